#pragma once

#include "Cspf/Requests/RunHold.h"
#include "platform/Kiv/Walk.h"
#include "schema/TrafficEngineering.h"

#include <set>

namespace Cspf {

/// Tells the paths that exclude the interface (or a node behind it) that what their constraint is
/// derived from has changed. O(paths).
void incrementDerivedConfigChangeCount( const Lum::Ptr< PathConfigInfoTable > & table,
                                        const Kivnet::IntfId & intfId );

class TeIntfStatusSm;

/// Passes changes of one interface's SRLGs on to its owner.
///
///   watches            handler
///   IntfStatus.srlg    handleSrlg
class TeIntfSrlgSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, TeIntfSrlgSm );
   /// The owner outlives this object.
   TeIntfSrlgSm( const Lum::String & name,
                 const Lum::Ptr< const TrafficEngineering::IntfStatus > & intfStatus,
                 TeIntfStatusSm & owner )
      : intfId_( name ),
        intfStatus_( intfStatus ),
        owner_( owner ) {}

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
   TeIntfStatusSm & owner_;
};

/// Follows the TE interfaces, and has the paths that exclude one look at its SRLGs anew: once for
/// all that changes in a turn, by slices. No run begins meanwhile.
///
///   watches               handler            makes, writes
///   TE Status.intfStatus  handleIntfStatus   intfSrlgSm, one an interface
///   (changed SRLGs)       srlgsChanged       PathConfigInfo.derivedConfigChangeCount
class TeIntfStatusSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, TeIntfStatusSm );
   /// Without a scheduler paths are told at once.
   TeIntfStatusSm( const Lum::Ptr< const TrafficEngineering::Status > & teStatus,
                   const Lum::Ptr< PathConfigInfoTable > & pathConfigInfoTable,
                   const Lum::Ptr< PathStatusInfoTable > & pathStatusInfoTable = nullptr,
                   const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler = nullptr );
   LUM_CHILDREN( intfSrlgSm, Lum::String, TeIntfSrlgSm );

   void handleInitialized() override;
   void handleIntfStatus( const Lum::String & name );
   void doPrepareToDie() override;
   void srlgsChanged( const Kivnet::IntfId & intfId );

 private:
   void goOverPathsLater();
   void goOverPaths();
   std::size_t tell( const PathInfoKey & key ) const;
   void endGoingOver();

   const Lum::Ptr< const TrafficEngineering::Status > teStatus_;
   const Lum::Ptr< PathConfigInfoTable > pathConfigInfoTable_;
   RunHold runHold_;
   const Lum::Ptr< Kiv::TaskScheduler > taskScheduler_;
   std::set< Kivnet::IntfId > changed_;  // since the paths were gone over
   Kiv::Task pathsTask_;
   Kiv::Walk< PathInfoKey > paths_;
};

}
