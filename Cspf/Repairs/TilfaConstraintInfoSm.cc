// The runs behind repairs. All requests that protect the same link, whatever their destination,
// share one constraint for each tree, so that a machine serves many paths with one run. The tree
// stays with the constraint: the paths read it where it is.
//
// A tree holds numbers of the graph, and so answers exactly while the graph has the version that it
// was run on, and the constraint's names mean the same numbers. That also tells whether the
// topology has changed, without comparing times: a change of prefixes stamps the topology but
// leaves the graph alone. Names are looked up again, since the graph knows of no TE router id and
// of no second address that comes or goes. Where the graph has changed the next result takes the
// tree over from the last one, of which nobody has a tree any more, and brings it in line.

#include "Cspf/Repairs/TilfaConstraintInfoSm.h"

#include "Cspf/Runs/KeptCheck.h"
#include "Cspf/Runs/Run.h"
#include "Cspf/Views/View.h"
#include "platform/Trace/Trace.h"

#include <algorithm>
#include <utility>

namespace Cspf {

InternalPathConstraint
TilfaConstraintInfoSm::viewConstraint( InternalPathConstraint constraint ) {
   if ( constraint.sourceType() == neighborOnLink() ) {
      constraint.excludeIntfIs( Kivnet::IntfId() );
      constraint.excludeNodeIs( ExcludeNode() );
      constraint.neighborIs( Kivnet::IpGenAddr() );
      constraint.neighborSystemIdIs( Routing::Isis::SystemId() );
   }
   return constraint;
}

void
TilfaConstraintInfoSm::handleInitialized() {
   for ( const auto & [ key, uses ] : constraintInfo()->pathColl() ) {
      handlePathUpdate( key );
   }
   ConstraintInfoSmBase::handleInitialized();
}

void
TilfaConstraintInfoSm::handlePathUpdate( const PathInfoKey & key ) {
   if ( !constraintInfo()->pathHas( key ) ) {
      trees_.erase( key );
   } else if ( key.internal() ) {
      trees_.insert( key );
   }
   ConstraintInfoSmBase::handlePathUpdate( key );
}

void
TilfaConstraintInfoSm::handleThrottleTimeout() {
   if ( stopUnlessScheduled( __PRETTY_FUNCTION__ ) ) {
      return;
   }
   constraintInfo()->waiting = {};  // all are answered
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
      constraintInfo()->cspfDataIs( cspfData_ );  // for a while there may have been none
      if ( isVerified() ) {
         verifyKept( *cspfData_, view(), context() );
      }
      updatePathStatusCache( cspfData_ );
   } else {
      computeTree( __PRETTY_FUNCTION__ );
   }
   backoffTimerTask();
}

void
TilfaConstraintInfoSm::endWithoutRun() {
   TRACE7( "no tree for constraint " << tracedConstraint() );
   constraintInfo()->cspfDataIs( nullptr );
   updatePathStatusCache( nullptr );
}

bool
TilfaConstraintInfoSm::checkConstraintInTopoDb() {
   const InternalPathConstraint & constraint = pathConstraint();
   LUM_ASSERT( constraint.sourceType() == neighborOnLink() );
   const FarEnd farEnd = this->farEnd();
   constraintInfo()->missingIs( farEnd.missing );
   switch ( farEnd.missing ) {
   case ConstraintMissing::nothing: return true;
   case ConstraintMissing::interface:
      TRACE7( "Constraint intf: " << constraint.excludeIntf() << " missing in topology" );
      return false;
   case ConstraintMissing::neighborOnInterface:
   case ConstraintMissing::neighborOnLan:
      TRACE7( "Neighbor not found on " << constraint.excludeIntf() << ", doing nothing" );
      return false;
   case ConstraintMissing::nodeBehindInterface:
      TRACE7( "ngb node different from constraint, ngb: " << farEnd.node );
      return false;
   }
   return false;
}

TilfaConstraintInfoSm::FarEnd
TilfaConstraintInfoSm::farEnd() const {
   const TopoGraph & topology = view()->topoGraph();
   const CspfGraph & graph = view()->graph();
   const TopoId & topoId = pathConstraint().topoId();
   CspfEdge first = noEdge;
   bool known = false;
   for ( const std::uint32_t e : graph.out( topology.vertex( view()->spfRoot() ) ) ) {
      const CspfEdge link{ e };
      const AllTopoNeighborKey key = topology.neighborKey( link );
      if ( topology.neighbor( link ).intfId() != pathConstraint().excludeIntf()
           || ( topoId && key.topoId() != topoId ) ) {
         continue;
      }
      known = true;
      if ( graph.twoWay( link )
           && ( first == noEdge || graph.keyRank( link ) < graph.keyRank( first ) ) ) {
         first = link;
      }
   }
   if ( first == noEdge ) {
      return { known ? ConstraintMissing::neighborOnInterface : ConstraintMissing::interface };
   }
   if ( graph.kind( first ) == CspfEdgeKind::routerToNetwork ) {
      return farEndOnLan( first );
   }
   const NodeId & neighbor = topology.nodeId( graph.to( first ) );
   return { isNodeOfConstraint( neighbor ) ? ConstraintMissing::nothing
                                           : ConstraintMissing::nodeBehindInterface,
            neighbor };
}

TilfaConstraintInfoSm::FarEnd
TilfaConstraintInfoSm::farEndOnLan( CspfEdge link ) const {
   const TopoGraph & topology = view()->topoGraph();
   const CspfGraph & graph = view()->graph();
   const InternalPathConstraint & c = pathConstraint();
   const bool isNamed = c.excludeNode() || c.neighborSystemId() || c.neighbor();
   bool known = false;
   for ( const std::uint32_t e : graph.out( graph.to( link ) ) ) {
      const CspfEdge step{ e };
      if ( graph.to( step ) == graph.from( link ) || !graph.twoWay( step ) ) {
         continue;
      }
      known = true;
      const NodeId & member = topology.nodeId( graph.to( step ) );
      if ( isNamed && isNodeOfConstraint( member ) ) {
         return { ConstraintMissing::nothing, member };
      }
   }
   if ( !known || isNamed ) {
      return { known ? ConstraintMissing::neighborOnLan : ConstraintMissing::neighborOnInterface };
   }
   return { ConstraintMissing::nothing,
            NodeId( topology.neighborKey( link ).neighborKey().neighborId() ) };
}

/// A constraint names the node by its identity, by its TE router id, or not at all; so it does the
/// neighbour. Of several routers with one TE router id it names the owner.
bool
TilfaConstraintInfoSm::isNodeOfConstraint( const NodeId & neighbor ) const {
   const NodeId & node = pathConstraint().excludeNode().nodeId();
   const Kivnet::IpGenAddr & address = pathConstraint().neighbor();
   const auto hasTeRouterId = [ & ]( const Kivnet::IpGenAddr & teRouterId ) {
      const auto & maps = view()->allTopoDbStatus()->routerIdMapColl();
      return std::ranges::any_of( maps, [ & ]( const auto & entry ) {
         return entry.second->igpRouterId( teRouterId ) == IgpRouterId( neighbor );
      } );
   };
   const Routing::Isis::SystemId & id = pathConstraint().neighborSystemId();
   return ( !node || node == neighbor || ( node.ipAddress() && hasTeRouterId( node.ipAddress() ) ) )
          && ( !id || NodeId( id ) == neighbor ) && ( !address || hasTeRouterId( address ) );
}

NodeId
TilfaConstraintInfoSm::source() const {
   return pathConstraint().sourceType() == neighborOnLink() ? farEnd().node : view()->spfRoot();
}

CspfLinkConstraint
TilfaConstraintInfoSm::numbersFor( const NodeId & source ) const {
   CspfLinkFilter filter;
   filter.constraintIs( view()->linkConstraint( source ) );
   return filter.constraint();
}

bool
TilfaConstraintInfoSm::cspfDataHolds() const {
   const NodeId source = this->source();
   return cspfData_ && cspfData_->source() == source && numbersFor( source ) == numbers_
          && cspfData_->hasTree();
}

void
TilfaConstraintInfoSm::computeTree( const char * operation ) {
   const Lum::Ptr< LfaCspfData > last = cspfData_;
   cspfDataIs( Lum::make< LfaCspfData >() );
   cspfData_->sourceIs( source() );
   cspfData_->buildReverseSptIs( pathConstraint().reversePath() );
   cspfData_->sourceOverloadedIs(
      view()->graph().overloaded( view()->vertex( cspfData_->source() ) ) );
   if ( treeFollows( last ) ) {
      TRACE7_FOR( operation,
                  "run cspf, cspfRequestCount " << constraintInfo()->cspfRequestCount() );
      if ( isVerified() ) {
         verifyKept( *cspfData_, view(), context() );
      }
      countRun( cspfData_, 0 );
   } else {
      runCspf( cspfData_, operation );
   }
   updatePathStatusCache( cspfData_ );
}

/// Takes note of the graph as it is. Whoever traces every step of a run gets runs.
bool
TilfaConstraintInfoSm::treeFollows( const Lum::Ptr< LfaCspfData > & last ) {
   CspfLinkFilter filter;
   filter.constraintIs( view()->linkConstraint( cspfData_->source() ) );
   CspfRunMemory & memory = context().runMemory;
   const CspfGraph & graph = view()->graph();
   const bool reshaped = graph.reshapedAt() > position_;
   const auto changes = graph.changes().since( std::exchange( position_, graph.changes().end() ) );
   const auto before = std::exchange( numbers_, filter.constraint() );
   return last && changes && last->source() == cspfData_->source() && numbers_ == before
          && memory.sharedLabels().enabled() && !Trace::wanted( 9 )
          && memory.followTree( *last, *cspfData_, filter, *changes, reshaped );
}

/// A tree is all that an internal path is for. Requests read the constraint's own, all at once.
void
TilfaConstraintInfoSm::updatePathStatusCache( const Lum::Ptr< CspfData > & cspfData ) {
   const auto trees = trees_;  // whoever is told may end some
   for ( const PathInfoKey & key : trees ) {
      updatePath( key, cspfData );
   }
   constraintInfo()->answeredCountInc();
}

void
TilfaConstraintInfoSm::updatePath( const PathInfoKey & key,
                                   const Lum::Ptr< CspfData > & cspfData ) {
   const auto cache = pathStatusCache( key );
   const auto path = pathStatusInfo( key );
   if ( !cache || !path ) {
      return;
   }
   cache->cspfDataIs( cspfData );
   tellPath( *path, *cache, true );
}

}
