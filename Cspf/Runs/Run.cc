// One run, from a constraint to the tree and the destinations in it. The run itself works on dense
// numbers; this is where its inputs are translated and where what it did is told in terms of
// routers and links. Driven by the constraint machines, and by stitching for single hops.
//
// The telling is expensive. It hangs on the run's observer, and only runs whose traces somebody
// wants have one. A renumbering of the graph may come with the constraint's translation, so no
// number is asked for before that.

#include "Cspf/Runs/Run.h"

#include "platform/Trace/Trace.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

namespace Cspf {

namespace {

/// A graph's numbers in the words of the topology.
struct Words {
   const TopoGraph & topology;
   const CspfTree & tree;

   std::string node( CspfVertex vertex ) const { return nodeText( topology, vertex ); }
   std::string cost( CspfVertex vertex ) const { return pathCost( vertex ).stringValue(); }
   CspfPathCost pathCost( CspfVertex vertex ) const {
      const CspfCost cost = tree.cost( vertex );
      return { cost.metric, cost.srlgExclude, cost.srlgInclude };
   }
   /// The key of an edge as a last link of its far end.
   CspfLinkInfoKey linkInfoKey( CspfEdge edge ) const {
      const CspfGraph & graph = topology.graph();
      const CspfVertex to = graph.to( edge );
      if ( graph.kind( edge ) != CspfEdgeKind::networkToRouter ) {
         return { topology.neighborKey( edge ), NodeId(), pathCost( to ) };
      }
      const CspfEdge entry = tree.entryLink( graph, graph.from( edge ) );
      return { topology.neighborKey( entry ), topology.nodeId( to ), pathCost( to ) };
   }
   std::string link( CspfEdge edge ) const { return topology.neighborKey( edge ).stringValue(); }
};

/// Traces a run. A link that the constraint refuses is told when its near end is made final, one
/// that lost to another way when its far end is.
class CspfRunTracer {
 public:
   CspfRunTracer( const AllTopoDbView & view, const CspfLinkFilter & filter, const CspfTree & tree )
      : view_( view ),
        filter_( filter ),
        tree_( tree ),
        words_{ view.topoGraph(), tree } {}

   void madeFinal( CspfVertex vertex ) {
      tellFinal( vertex );
      final_.insert( vertex );
      const auto [ first, last ] = lost_.equal_range( vertex );
      for ( auto lost = first; lost != last; ++lost ) {
         tellSkipped( lost->second );
      }
   }
   void improved( CspfEdge ) {}
   void equalCost( CspfEdge edge ) {
      const CspfVertex to = view_.graph().to( edge );
      if ( view_.graph().isNetwork( to ) ) {
         TRACE9( "found another equal cost (" << words_.cost( to ) << ") path for network "
                                              << words_.node( to ) );
      } else {
         TRACE9( "adding another equal cost path for router " << words_.node( to ) );
      }
   }
   void worse( CspfEdge edge ) {
      const CspfVertex to = view_.graph().to( edge );
      if ( final_.contains( to ) ) {
         tellSkipped( edge );
      } else {
         lost_.emplace( to, edge );
      }
   }
   void tooFar( CspfEdge edge ) {
      TRACE9( kindText( edge ) << words_.link( edge ) << " to tent list as its path "
                               << "cost is more than maximum path metric" );
   }

 private:
   void tellFinal( CspfVertex vertex ) const {
      const CspfGraph & graph = view_.graph();
      if ( graph.isNetwork( vertex ) ) {
         TRACE9( "adding network " << words_.node( vertex ) << " with cost "
                                   << words_.cost( vertex ) << " to shortestPathForNetwork" );
      } else if ( vertex != tree_.source() ) {
         TRACE9( "adding router " << words_.node( vertex ) << " to shortestPath via "
                                  << words_.link( tree_.lastLinks( vertex )[ 0 ] ) );
         if ( tree_.options().singleHop ) {
            TRACE9( "stopping because of single hop count limit at router "
                    << words_.node( vertex ) );
            return;
         }
      }
      for ( const uint32_t edge : graph.out( vertex ) ) {
         tellRefusal( CspfEdge{ edge } );
      }
   }

   void tellSkipped( CspfEdge edge ) const {
      const CspfVertex to = view_.graph().to( edge );
      if ( to == tree_.source() ) {
         TRACE9( "Path back to self found via " << words_.link( edge ) << ", skipping..." );
      } else if ( view_.graph().isNetwork( to ) ) {
         TRACE9( "network " << words_.node( to )
                            << " is already in shortestPathForNetwork with cost "
                            << words_.cost( to ) << "skipping..." );
      } else {
         TRACE9( "router " << words_.node( to ) << " is already in shortestPath, skipping..." );
      }
   }

   const char * kindText( CspfEdge edge ) const {
      return view_.graph().kind( edge ) == CspfEdgeKind::networkToRouter
                ? "Not adding network router "
                : "Not adding neighbor ";
   }

   void tellRefusal( CspfEdge edge ) const {
      const CspfRefusal refusal =
         CspfArcs::refusal( view_.graph(), filter_, edge, tree_.options() );
      if ( refusal == CspfRefusal::zeroMetric ) {
         TRACE9( kindText( edge ) << words_.link( edge ) << " to tent list as its metric is zero" );
      } else if ( refusal == CspfRefusal::maximumMetric ) {
         TRACE9( kindText( edge ) << words_.link( edge )
                                  << " to tent list as its link metric is maximum" );
      } else if ( refusal != CspfRefusal::none ) {
         TRACE9( kindText( edge ) << words_.link( edge ) << " to tent list: " << text( refusal ) );
         traceTests( edge );
      }
   }

   /// The tests trace themselves. A step from a LAN is judged by the link that entered the LAN.
   void traceTests( CspfEdge edge ) const {
      const CspfLinkInfoKey key = words_.linkInfoKey( edge );
      view_.neighborAndTepAllowedForTe( key.allTopoNeighborKey(), key.routerInNetwork() );
   }

   const AllTopoDbView & view_;
   const CspfLinkFilter & filter_;
   const CspfTree & tree_;
   const Words words_;
   std::set< CspfVertex > final_;
   std::multimap< CspfVertex, CspfEdge > lost_;  // links to vertices that were to become final
};

}

std::string
CspfPathCost::stringValue() const {
   return std::to_string( metricCost_ ) + "|SE-" + std::to_string( srlgExcludeInfo_ ) + "|SI-"
          + std::to_string( srlgIncludeInfo_ );
}

std::strong_ordering
CspfPathCost::operator<=>( const CspfPathCost & other ) const {
   return std::tie( srlgExcludeInfo_, srlgIncludeInfo_, metricCost_ )
          <=> std::tie( other.srlgExcludeInfo_, other.srlgIncludeInfo_, other.metricCost_ );
}

CspfLinkInfoKey::CspfLinkInfoKey( const AllTopoNeighborKey & link, const NodeId & router,
                                  const CspfPathCost & pathCost )
   : allTopoNeighborKey_( link ),
     routerInNetwork_( router ),
     cost_( pathCost ) {
   if ( router && !link.isLan() ) {
      const auto neighborType = static_cast< unsigned >( link.neighborKey().neighborType() );
      throw std::invalid_argument( "Link with neighborType " + std::to_string( neighborType )
                                   + " and routerInNetwork are not compatible" );
   }
}

bool
CspfLinkInfoKey::equalCost( const CspfLinkInfoKey & other ) const {
   if ( !routerLink() || !other.routerLink() ) {
      throw std::invalid_argument( "Only router links are comparable" );
   }
   return cost_ == other.cost_;
}

std::strong_ordering
CspfLinkInfoKey::operator<=>( const CspfLinkInfoKey & other ) const {
   const auto kind = []( const CspfLinkInfoKey & key ) {
      return !key.allTopoNeighborKey_.isLan() ? 1 : key.routerInNetwork_ ? 2 : 0;
   };
   if ( const auto order = std::tuple( cost_, kind( *this ), routerInNetwork_ )
                           <=> std::tuple( other.cost_, kind( other ), other.routerInNetwork_ );
        order != 0 ) {
      return order;
   }
   return allTopoNeighborKey_ <=> other.allTopoNeighborKey_;
}

void
CspfRunMemory::reclaim( CspfData & cspfData ) {
   cspfData.view_ = nullptr;
   spareTree_ = std::exchange( cspfData.tree_, CspfTree() );
   cspfData.edges_ = {};
   cspfData.hops_ = {};
   cspfData.teps_ = {};
}

CspfRun::CspfRun( CspfRunMemory & memory, CspfData & cspfData,
                  const Lum::Ptr< const AllTopoDbView > & view )
   : cspfData_( cspfData ),
     view_( *view ) {
   cspfData_.view_ = view;
   doRunCspf( memory );
   doSearchAndUpdateForTeps();
   cspfData_.ranAtIs( Lum::now() );
}

void
CspfRun::doRunCspf( CspfRunMemory & memory ) {
   LUM_ASSERT( !cspfData()->tents() );
   LUM_ASSERT( !cspfData()->shortestPaths() );
   LUM_ASSERT( !cspfData()->shortestPathForNetworks() );
   LUM_ASSERT( !cspfData()->routerWithTeps() );
   const InternalPathConstraint & constraint = view_.constraint();
   TRACE8( "Starting SPF with sourceNode "
           << cspfData_.source() << " useTeMetric=" << cspfData_.useTeMetric() << " reverseSpt="
           << cspfData_.buildReverseSpt() << " const. intf: " << constraint.excludeIntf()
           << " node: " << constraint.excludeNode().nodeId() );
   CspfLinkConstraint linkConstraint = view_.linkConstraint( cspfData_.source() );
   const CspfGraph & graph = view_.graph();
   const CspfRunOptions options{ view_.vertex( cspfData_.source() ), cspfData_.useTeMetric(),
                                 cspfData_.useLinksWithMaxMetric(), cspfData_.buildReverseSpt(),
                                 cspfData_.singleHopCountLimit() };
   memory.filter_.apply( graph, std::move( linkConstraint ) );
   CspfTree & tree = cspfData_.tree_ = std::exchange( memory.spareTree_, CspfTree() );
   if ( Trace::wanted( 9 ) ) {
      memory.treeRun_.run( graph, memory.filter_, options, tree,
                           CspfRunTracer( view_, memory.filter_, tree ) );
   } else {
      memory.treeRun_.run( graph, memory.filter_, options, tree );
   }
}

/// A destination on several routers belongs to the one that was made final first.
void
CspfRun::doSearchAndUpdateForTeps() {
   auto & teps = cspfData_.teps_;
   std::ranges::sort( teps, {}, &CspfData::Tep::tep );
   teps.erase( std::unique( teps.begin(), teps.end(),
                            []( const auto & a, const auto & b ) { return a.tep == b.tep; } ),
               teps.end() );
   const CspfTree & tree = cspfData_.tree_;
   for ( CspfData::Tep & tep : teps ) {
      const std::vector< CspfVertex > routers = view_.verticesWithTep( tep.tep );
      for ( const CspfVertex router : routers ) {
         if ( !tree.reached( router ) ) {
            continue;
         }
         if ( tep.router == noVertex || tree.finalBefore( view_.graph(), router, tep.router ) ) {
            tep.router = router;
         }
      }
      if ( tep.router != noVertex ) {
         tellTep( tep, routers );
      }
   }
}

void
CspfRun::tellTep( const CspfData::Tep & tep, const std::vector< CspfVertex > & routers ) const {
   const TopoGraph & topology = view_.topoGraph();
   TRACE9( "found TEP " << tep.tep << " on router " << topology.nodeId( tep.router ) );
   for ( const CspfVertex other : routers ) {
      if ( other != tep.router && cspfData_.tree_.reached( other ) ) {
         TRACE9( "already found TEP " << tep.tep << " on router " << topology.nodeId( tep.router )
                                      << ", ignoring router " << topology.nodeId( other ) );
      }
   }
}

CspfData::CspfData() = default;
CspfData::~CspfData() = default;

bool
CspfData::hasTree() const {
   return view_ && tree_.graphVersion() == view_->graph().version();
}

std::size_t
CspfData::shortestPaths() const {
   return tree_.reachedVertices().size() - shortestPathForNetworks();
}

std::size_t
CspfData::shortestPathForNetworks() const {
   return static_cast< std::size_t >(
      std::ranges::count_if( tree_.reachedVertices(), [ this ]( CspfVertex vertex ) {
         return view_->graph().isNetwork( vertex );
      } ) );
}

bool
CspfData::routerWithTeps() const {
   return std::ranges::any_of( teps_, []( const Tep & tep ) { return tep.router != noVertex; } );
}

CspfVertex
CspfData::routerWithTep( const Kivnet::IpGenAddr & tep ) const {
   const auto at = std::ranges::lower_bound( teps_, tep, {}, &Tep::tep );
   return at != teps_.end() && at->tep == tep ? at->router : noVertex;
}

bool
CspfData::routerWithTepHas( const Kivnet::IpGenAddr & tep ) const {
   return routerWithTep( tep ) != noVertex;
}

bool
CspfData::shortestPathHas( const NodeId & router ) const {
   const CspfVertex vertex = view_->topoGraph().vertex( router );
   return vertex != noVertex && tree_.reached( vertex );
}

CspfPath
CspfData::shortestPath( const NodeId & router ) const {
   const TopoGraph & topology = view_->topoGraph();
   const CspfGraph & graph = topology.graph();
   const CspfVertex own = topology.vertex( view_->getOurSourceId() );
   const Words words{ topology, tree_ };
   CspfPath path;
   path.nodeIdIs( router );
   for ( const CspfEdge edge : tree_.lastLinks( topology.vertex( router ) ) ) {
      const std::uint32_t interface = tree_.firstHopInterface( graph, edge, own );
      path.lastLinkIs( { words.linkInfoKey( edge ), Kivnet::IntfId::fromNumber( interface ) } );
   }
   return path;
}

}
