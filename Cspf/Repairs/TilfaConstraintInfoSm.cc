// The runs behind repairs. All requests that protect the same link, whatever their destination,
// share one constraint for each tree, so that a machine serves many paths with one run. The tree
// stays with the constraint: the paths read it where it is.
//
// A tree holds numbers of the graph, and so answers exactly while the graph has the version that it
// was run on. That also tells whether the topology has changed, without comparing times: a
// change of prefixes stamps the topology but leaves the graph alone.

#include "Cspf/Repairs/TilfaConstraintInfoSm.h"

#include "Cspf/Runs/Run.h"
#include "Cspf/Views/View.h"
#include "platform/Trace/Trace.h"

#include <algorithm>

namespace Cspf {

InternalPathConstraint
TilfaConstraintInfoSm::viewConstraint( InternalPathConstraint constraint ) {
   if ( constraint.sourceType() == neighborOnLink() ) {
      constraint.excludeIntfIs( Kivnet::IntfId() );
      constraint.excludeNodeIs( ExcludeNode() );
   }
   return constraint;
}

void
TilfaConstraintInfoSm::handleThrottleTimeout() {
   if ( stopUnlessScheduled() ) {
      return;
   }
   constraintInfo()->sourceMissingIs( !sourceInTopology( view()->spfRoot() ) );
   constraintInfo()->constraintMissingInTopoIs( !constraintInfo()->sourceMissing()
                                                && pathConstraint().sourceType() == neighborOnLink()
                                                && !checkConstraintInTopoDb() );
   if ( constraintInfo()->sourceMissing() || constraintInfo()->constraintMissingInTopo() ) {
      endWithoutRun();
   } else if ( cspfDataHolds() ) {
      TRACE7( "No topodb change, reuse cspf data" );
      constraintStats()->cspfSkippedCountInc();
      constraintStats()->cspfLastRanAtIs( seenUntil() );
      updatePathStatusCache( tree_ );
   } else {
      computeTree();
   }
   backoffTimerTask();
}

/// The tree of a node behind a link that has gone stays, to tell a repair that came of it from one
/// of a link that never was there.
void
TilfaConstraintInfoSm::endWithoutRun() {
   TRACE7( "no tree for constraint " << constraintText() );
   if ( constraintInfo()->sourceMissing() || neighborOnConstraintIntf() ) {
      constraintInfo()->cspfDataIs( nullptr );
      tree_ = nullptr;
   }
   updatePathStatusCache( tree_ );
}

bool
TilfaConstraintInfoSm::checkConstraintInTopoDb() {
   const InternalPathConstraint & constraint = pathConstraint();
   LUM_ASSERT( constraint.sourceType() == neighborOnLink() );
   const TopoGraph & topology = view()->topoGraph();
   const auto links = view()->graph().out( topology.vertex( view()->spfRoot() ) );
   if ( std::ranges::none_of( links, [ & ]( std::uint32_t edge ) {
           return topology.neighbor( CspfEdge{ edge } ).intfId() == constraint.excludeIntf();
        } ) ) {
      TRACE7( "Constraint intf: " << constraint.excludeIntf() << " missing in topology" );
      return false;
   }
   const NodeId neighbor = neighborOnConstraintIntf();
   if ( !neighbor ) {
      TRACE7( "Neighbor not found on " << constraint.excludeIntf() << ", doing nothing" );
      return false;
   }
   if ( !isNodeOfConstraint( neighbor ) ) {
      TRACE7( "ngb node different from constraint, ngb: " << neighbor );
      return false;
   }
   return true;
}

NodeId
TilfaConstraintInfoSm::neighborOnConstraintIntf() const {
   return NodeId(
      view()->p2pNeighborOnLink( pathConstraint().excludeIntf(), pathConstraint().topoId() ) );
}

/// A constraint names the node by its identity, by its TE router id, or not at all.
bool
TilfaConstraintInfoSm::isNodeOfConstraint( const NodeId & neighbor ) const {
   const NodeId & node = pathConstraint().excludeNode().nodeId();
   const Kivnet::IpGenAddr & address = pathConstraint().neighbor();
   const auto hasTeRouterId = [ & ]( const Kivnet::IpGenAddr & teRouterId ) {
      return std::ranges::any_of( view()->allTopoDb()->topoDbColl(), [ & ]( const auto & topoDb ) {
         const auto * router = view()->allTopoDb()->router( topoDb.first, IgpRouterId( neighbor ) );
         return router && router->teRouterId() == teRouterId;
      } );
   };
   return ( !node || node == neighbor || ( node.ipAddress() && hasTeRouterId( node.ipAddress() ) ) )
          && ( !address || hasTeRouterId( address ) );
}

NodeId
TilfaConstraintInfoSm::source() const {
   return pathConstraint().sourceType() == neighborOnLink() ? neighborOnConstraintIntf()
                                                            : view()->spfRoot();
}

bool
TilfaConstraintInfoSm::cspfDataHolds() const {
   return tree_ && tree_->hasTree() && tree_->source() == source();
}

void
TilfaConstraintInfoSm::computeTree() {
   tree_ = Lum::make< LfaCspfData >();
   tree_->sourceIs( source() );
   tree_->buildReverseSptIs( pathConstraint().reversePath() );
   tree_->sourceOverloadedIs(
      view()->graph().overloaded( view()->topoGraph().vertex( tree_->source() ) ) );
   runCspf( tree_ );
   updatePathStatusCache( tree_ );
}

void
TilfaConstraintInfoSm::updatePathStatusCache( const Lum::Ptr< CspfData > & cspfData ) {
   for ( const PathInfoKey & key : Lum::sortedKeys( constraintInfo()->pathColl() ) ) {
      updatePath( key, cspfData );
   }
}

/// A tree is all that an internal path is for; of a client's path it is the first stage.
void
TilfaConstraintInfoSm::updatePath( const PathInfoKey & key,
                                   const Lum::Ptr< CspfData > & cspfData ) {
   const auto cache = pathStatusCache( key );
   const auto path = pathStatusInfo( key );
   if ( !cache || !path ) {
      return;
   }
   cache->cspfDataIs( cspfData );
   if ( path->refreshNeeded() ) {
      cache->refreshedStage1CountInc();
   }
   if ( path->updatePathPending() && key.internal() ) {
      cache->stage2LastRanAtIs( Lum::now() );
      cache->refreshedStage2CountInc();
   }
}

}
