// The active VRFs of one family. Holders of a VRF's handle decide whether it is active; the root
// only follows, in fixed orders: the topology store comes before the VRF root that reads it, and
// goes after it; the path tables stand in AllClientInfo while their VRF root lives. Whoever hears
// of what a VRF publishes while it comes or goes may ask for it again, and waits until that is
// over. The agent owns one root a family for its whole life.

#include "Cspf/Agent/Root.h"

#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

namespace Cspf {

void
CspfActiveVrfsNotifiee::handleInsert( const Lum::Ptr< Kiv::DedupHandle > & handle ) {
   const L3::VrfName & vrf = vrfOf( handle );
   TRACE7( " Adding active VRF: " << vrf );
   cspfRoot_.vrfActiveIs( vrf );
}

void
CspfActiveVrfsNotifiee::handleRemove( const Lum::Ptr< Kiv::DedupHandle > & handle ) {
   const L3::VrfName & vrf = vrfOf( handle );
   TRACE7( " Deleting active VRF: " << vrf );
   cspfRoot_.vrfActiveDel( vrf );
}

void
CspfRoot::handleInitialized() {
   lifeTimeNotifieeIs( this );
   allClientInfoIs();
   allClientInfo()->taskSchedulerIs( taskScheduler_ );
   allClientInfo()->activeVrfsDedupTable()->lifeTimeNotifieeIs( lifeTimeNotifiee() );
   initializedIs( true );
}

void
CspfRoot::doPrepareToDie() {
   allClientInfo()->activeVrfsDedupTable()->detach();
   allClientInfoDel();
   lifeTimeNotifieeDel();
}

void
CspfRoot::initialClientsDone() {
   const auto client =
      Lum::cast< Routing::Topology::Client >( topoDbClientDir_->entity( topoDbClientName ) );
   if ( !client ) {
      return;
   }
   for ( const auto & vrf : Lum::sortedKeys( client->needTopoDbColl() ) ) {
      if ( !vrfRootHas( vrf ) ) {
         client->needTopoDbDel( vrf );
      }
   }
   if ( client->needTopoDbs() == 0 ) {
      topoDbClientDir_->entityDel( topoDbClientName );
   }
}

void
CspfRoot::vrfActiveIs( const L3::VrfName & vrf ) {
   const auto & clients = allClientInfo();
   clients->vrfChangeBegins( vrf );
   const Lum::Ptr< const VrfSourceId > vrfSourceId = clients->vrfSourceIdIs( vrf );
   const auto allTopoDb = Lum::make< AllTopoDb >();
   allTopoDbDir_->allTopoDbCollIs( vrf, allTopoDb );
   const auto root = vrfRootIs( vrf, af_, entityManager_, topoDbClientDir_, vrfSourceId,
                                taskScheduler_, teStatus_, allTopoDb );
   vrfRootSmIs( vrf, root, vrfSourceId );
   clients->pathConfigInfoTableIs( vrf, root->pathConfigInfoTable() );
   clients->pathStatusInfoTableIs( vrf, root->pathStatusInfoTable() );
   clients->clientDataIs( vrf, root->clientData() );
   clients->repairScopeIs( vrf, root->repairScope() );
   clients->vrfChangeEnds( vrf );
}

void
CspfRoot::vrfActiveDel( const L3::VrfName & vrf ) {
   allClientInfo()->vrfChangeBegins( vrf );
   vrfRootSmDel( vrf );
   endedVrfRoots_.push_back( vrfRoot( vrf ) );  // its machines may be at work further down
   endedVrfRootsTask_.schedule();
   vrfRootDel( vrf );
   allClientInfo()->pathConfigInfoTableDel( vrf );
   allClientInfo()->pathStatusInfoTableDel( vrf );
   allClientInfo()->clientDataDel( vrf );
   allClientInfo()->repairScopeDel( vrf );
   allTopoDbDir_->allTopoDbCollDel( vrf );
   allClientInfo()->vrfChangeEnds( vrf );
   allClientInfo()->vrfSourceIdDelIfUnused( vrf );
}

void
CspfRoot::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*c----CSPF Root " );
   context.printf( indent, "%s----\n", text( af_ ) );
   for ( const auto & [ vrf, root ] : vrfRootColl() ) {
      context.printf( indent, "%*cVRF %s\n", vrf.stringValue().c_str() );
      context.dump( *root, indent + 2 );
   }
   context.dump( *allClientInfo(), indent + 2 );
}

}
