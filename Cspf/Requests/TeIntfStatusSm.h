#pragma once

#include "Cspf/Records/PathRows.h"
#include "schema/TrafficEngineering.h"

namespace Cspf {

/// Tells the paths that exclude the interface (or a node behind it) that what their constraint is
/// derived from has changed. O(paths).
void incrementDerivedConfigChangeCount( const Lum::Ptr< PathConfigInfoTable > & table,
                                        const Kivnet::IntfId & intfId );

/// Passes changes of one interface's SRLGs on.
///
///   watches            handler      writes
///   IntfStatus.srlg    handleSrlg   PathConfigInfo.derivedConfigChangeCount
class TeIntfSrlgSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, TeIntfSrlgSm );
   TeIntfSrlgSm( const Lum::String & name,
                 const Lum::Ptr< const TrafficEngineering::IntfStatus > & intfStatus,
                 const Lum::Ptr< PathConfigInfoTable > & pathConfigInfoTable )
      : intfId_( name ),
        intfStatus_( intfStatus ),
        pathConfigInfoTable_( pathConfigInfoTable ) {}

   void handleInitialized() override;
   /// Without the status there are no SRLGs.
   void doPrepareToDie() override { handleDestroy(); }
   void handleSrlg( const TrafficEngineering::SrlgId & srlg );
   /// Any of them may have changed.
   void handleSrlg();
   void handleDestroy();

 private:
   void handleSrlgChange( const TrafficEngineering::SrlgId & srlg ) { handleSrlg( srlg ); }

   const Kivnet::IntfId intfId_;
   const Lum::Ptr< const TrafficEngineering::IntfStatus > intfStatus_;
   const Lum::Ptr< PathConfigInfoTable > pathConfigInfoTable_;
};

/// Follows the TE interfaces.
///
///   watches               handler            makes
///   TE Status.intfStatus  handleIntfStatus   intfSrlgSm, one an interface
class TeIntfStatusSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, TeIntfStatusSm );
   TeIntfStatusSm( const Lum::Ptr< const TrafficEngineering::Status > & teStatus,
                   const Lum::Ptr< PathConfigInfoTable > & pathConfigInfoTable )
      : teStatus_( teStatus ),
        pathConfigInfoTable_( pathConfigInfoTable ) {}
   LUM_CHILDREN( intfSrlgSm, Lum::String, TeIntfSrlgSm );

   void handleInitialized() override;
   void handleIntfStatus( const Lum::String & name );

 private:
   const Lum::Ptr< const TrafficEngineering::Status > teStatus_;
   const Lum::Ptr< PathConfigInfoTable > pathConfigInfoTable_;
};

}
