// One run, from a constraint to the tree and the destinations in it. The run itself works on dense
// numbers; this is where its inputs are translated and where what it did is told in terms of
// routers and links. Driven by the constraint machines, and by stitching for single hops.
//
// The telling is expensive. It hangs on the run's observer, and only runs whose traces somebody
// wants have one. A renumbering of the graph may come with the constraint's translation, so no
// number is asked for before that.

#include "Cspf/Runs/Run.h"

#include "Cspf/Runs/RunWords.h"
#include "platform/Trace/Trace.h"

#include <algorithm>
#include <map>
#include <set>

namespace Cspf {

namespace {

/// Traces a run. A link that the constraint refuses is told when its near end is made final, one
/// that is as good as another way or lost to it when its far end is.
class CspfRunTracer {
 public:
   CspfRunTracer( const char * operation, const AllTopoDbView & view, const CspfLinkFilter & filter,
                  const CspfTree & tree )
      : operation_( operation ),
        view_( view ),
        filter_( filter ),
        tree_( tree ),
        words_{ view.topoGraph(), tree } {}

   void madeFinal( CspfVertex vertex ) {
      tellFinal( vertex );
      final_.insert( vertex );
      const std::vector< CspfEdge > & best = best_[ vertex ];
      for ( std::size_t i = 1; i < best.size(); ++i ) {
         tellEqual( best[ i ] );
      }
      const auto [ first, last ] = lost_.equal_range( vertex );
      for ( auto lost = first; lost != last; ++lost ) {
         tellSkipped( lost->second );
      }
   }
   void improved( CspfEdge edge ) {
      const CspfVertex to = view_.graph().to( edge );
      for ( const CspfEdge displaced : std::exchange( best_[ to ], { edge } ) ) {
         lost_.emplace( to, displaced );
      }
   }
   void equalCost( CspfEdge edge ) {
      const CspfVertex to = view_.graph().to( edge );
      if ( final_.contains( to ) ) {
         tellEqual( edge );
      } else {
         best_[ to ].push_back( edge );
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
      tellNotAdded( edge, " as its path cost is more than maximum path metric" );
   }

 private:
   void tellFinal( CspfVertex vertex ) const {
      const CspfGraph & graph = view_.graph();
      if ( graph.isNetwork( vertex ) ) {
         TRACE9_FOR( operation_, "adding network " << words_.node( vertex ) << " with cost "
                                                   << words_.cost( vertex )
                                                   << " to shortestPathForNetwork" );
         view_.network( view_.topoGraph().networkId( vertex ) );  // tells who is left out
      } else if ( vertex != tree_.source() ) {
         TRACE9_FOR( operation_, "adding router "
                                    << words_.node( vertex ) << " to shortestPath via "
                                    << words_.link( tree_.lastLinks( vertex )[ 0 ] ) );
         if ( tree_.options().singleHop ) {
            TRACE9_FOR( operation_, "stopping because of single hop count limit at router "
                                       << words_.node( vertex ) );
            return;
         }
      }
      for ( const uint32_t edge : graph.out( vertex ) ) {
         tellRefusal( CspfEdge{ edge } );
      }
   }

   void tellEqual( CspfEdge edge ) const {
      const CspfVertex to = view_.graph().to( edge );
      if ( view_.graph().isNetwork( to ) ) {
         TRACE9_FOR( operation_, "found another equal cost (" << words_.cost( to )
                                                              << ") path for network "
                                                              << words_.node( to ) );
      } else {
         TRACE9_FOR( operation_,
                     "adding another equal cost path for router " << words_.node( to ) );
      }
   }

   void tellSkipped( CspfEdge edge ) const {
      const CspfVertex to = view_.graph().to( edge );
      if ( to == tree_.source() ) {
         TRACE9_FOR( operation_,
                     "Path back to self found via " << words_.link( edge ) << ", skipping..." );
      } else if ( view_.graph().isNetwork( to ) ) {
         TRACE9_FOR( operation_, "network " << words_.node( to )
                                            << " is already in shortestPathForNetwork with cost "
                                            << words_.cost( to ) << "skipping..." );
      } else {
         TRACE9_FOR( operation_,
                     "router " << words_.node( to ) << " is already in shortestPath, skipping..." );
      }
   }

   void tellRefusal( CspfEdge edge ) const {
      const CspfRefusal refusal =
         CspfArcs::refusal( view_.graph(), filter_, edge, tree_.options() );
      if ( refusal == CspfRefusal::zeroMetric ) {
         tellNotAdded( edge, " as its metric is zero" );
      } else if ( refusal == CspfRefusal::maximumMetric ) {
         tellNotAdded( edge, " as its link metric is maximum" );
      } else if ( refusal != CspfRefusal::none ) {
         tellNotAdded( edge, ": " + std::string( text( refusal ) ) );
         traceTests( edge );
      }
   }

   /// The run takes both steps as one; who reads traces knows them by their names.
   void tellNotAdded( CspfEdge edge, const std::string & why ) const {
      if ( view_.graph().kind( edge ) == CspfEdgeKind::networkToRouter ) {
         TRACE9_FOR( "void Cspf::CspfRun::doAddNetworkRoutersToTent(const Cspf::CspfLinkInfo&)",
                     "Not adding network router " << words_.link( edge ) << " to tent list"
                                                  << why );
      } else {
         TRACE9_FOR( "void Cspf::CspfRun::doAddRouterNeighborsToTent(const Cspf::CspfLinkInfo&)",
                     "Not adding neighbor " << words_.link( edge ) << " to tent list" << why );
      }
   }

   /// The tests trace themselves. A step from a LAN is judged by the link that entered the LAN.
   void traceTests( CspfEdge edge ) const {
      const CspfLinkInfoKey key = words_.linkInfoKey( edge );
      view_.neighborAndTepAllowedForTe( key.allTopoNeighborKey(), key.routerInNetwork() );
   }

   const char * const operation_;  // the run, as traces begin
   const AllTopoDbView & view_;
   const CspfLinkFilter & filter_;
   const CspfTree & tree_;
   const CspfRunWords words_;
   std::set< CspfVertex > final_;
   std::map< CspfVertex, std::vector< CspfEdge > > best_;  // ways to vertices, equal ones
   std::multimap< CspfVertex, CspfEdge > lost_;  // links to vertices that were to become final
};

}

void
CspfRunMemory::reclaim( CspfData & cspfData ) {
   const auto work = std::move( cspfData.work_ );
   if ( work && !work->labelTree ) {
      spareTree_ = std::move( work->tree );
   }
}

bool
CspfRunMemory::followTree( CspfData & earlier, CspfData & next, const CspfLinkFilter & filter,
                           std::span< const CspfEdgeChange > changes, bool reshaped ) {
   CspfTree tree = std::move( earlier.work_->tree );
   if ( !treeRepair_.follow( earlier.view().graph(), filter, changes, reshaped, tree ) ) {
      spareTree_ = std::move( tree );
      return false;
   }
   next.work_->view = earlier.work_->view;
   next.work_->tree = std::move( tree );
   return true;
}

CspfRun::CspfRun( CspfRunMemory & memory, CspfData & cspfData,
                  const Lum::Ptr< const AllTopoDbView > & view )
   : cspfData_( cspfData ),
     view_( *view ) {
   cspfData_.work_->view = view;
   doRunCspf( memory );
   doSearchAndUpdateForTeps();
   cspfData_.ranAtIs( Lum::now() );
}

CspfRun::CspfRun( CspfData & cspfData, const Lum::Ptr< const AllTopoDbView > & view,
                  const CspfLabelTree & tree )
   : cspfData_( cspfData ),
     view_( *view ) {
   cspfData_.work_->view = view;
   cspfData_.work_->labelTree = &tree;
   doSearchAndUpdateForTeps();
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
   CspfTree & tree = cspfData_.work_->tree = std::exchange( memory.spareTree_, CspfTree() );
   if ( Trace::wanted( 9 ) ) {
      memory.treeRun_.run( graph, memory.filter_, options, tree,
                           CspfRunTracer( __PRETTY_FUNCTION__, view_, memory.filter_, tree ) );
   } else {
      memory.treeRun_.run( graph, memory.filter_, options, tree );
   }
   const CspfRunWords words{ view_.topoGraph(), tree };
   const CspfLinkInfoKey sourceNode( {}, {}, words.pathCost( tree.source() ) );
   LUM_ASSERT( !sourceNode.cost().srlgExcludeInfo() );
   LUM_ASSERT( !sourceNode.cost().srlgIncludeInfo() );
}

void
CspfRunIs( const Lum::Ptr< CspfData > & cspfData, const Lum::Ptr< const AllTopoDbView > & view ) {
   CspfRunMemory memory;
   const CspfRun run( memory, *cspfData, view );
}

/// A destination on several routers belongs to the one that was made final first.
void
CspfRun::doSearchAndUpdateForTeps() {
   auto & teps = cspfData_.work_->teps;
   std::ranges::sort( teps, {}, &CspfData::Tep::tep );
   teps.erase( std::unique( teps.begin(), teps.end(),
                            []( const auto & a, const auto & b ) { return a.tep == b.tep; } ),
               teps.end() );
   for ( CspfData::Tep & tep : teps ) {
      searchForTep( tep, __PRETTY_FUNCTION__ );
   }
}

void
CspfRun::searchForTep( CspfData::Tep & tep, const char * operation ) {
   std::vector< CspfVertex > routers = view_.verticesWithTep( tep.tep );
   cspfData_.withTree( [ & ]( const auto & tree ) {
      for ( const CspfVertex router : routers ) {
         if ( tree.reached( router )
              && ( tep.router == noVertex
                   || tree.finalBefore( view_.graph(), router, tep.router ) ) ) {
            tep.router = router;
         }
      }
   } );
   if ( tep.router != noVertex ) {
      tellTep( tep, routers, operation );
   }
   if ( cspfData_.work_->labelTree ) {
      tep.routers = std::move( routers );
   }
}

void
CspfRun::tellTep( const CspfData::Tep & tep, const std::vector< CspfVertex > & routers,
                  const char * operation ) const {
   const TopoGraph & topology = view_.topoGraph();
   TRACE9_FOR( operation,
               "found TEP " << tep.tep << " on router " << topology.nodeId( tep.router ) );
   for ( const CspfVertex other : routers ) {
      if ( other != tep.router && cspfData_.shortestPathHas( other ) ) {
         TRACE9_FOR( operation, "already found TEP "
                                   << tep.tep << " on router " << topology.nodeId( tep.router )
                                   << ", ignoring router " << topology.nodeId( other ) );
      }
   }
}

}
