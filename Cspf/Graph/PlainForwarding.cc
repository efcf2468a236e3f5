// Plain forwarding against a constraint. The links that are refused may be one (another one of the
// same fibre) or half of the network (a colour to stay away from); neither is a case of its own.
//
// A LAN costs nothing to leave, so that a router behind it may be as near as the LAN itself. Runs
// therefore take LANs before routers at equal cost: whatever is to be known of a vertex is known
// when it is taken.

#include "Cspf/Graph/PlainForwarding.h"

#include <algorithm>
#include <queue>

namespace Cspf {

namespace {

constexpr uint32_t unreached = CspfTree::unreachedMetric;

}

/// One walk over arcs by rising cost, from any number of vertices.
class CspfPlainForwarding::Run {
 public:
   Run( const CspfArcs & arcs, std::span< const uint8_t > isRouter,
        std::span< const uint8_t > isRefused )
      : arcs_( arcs ),
        isRouter_( isRouter ),
        isRefused_( isRefused ),
        labels_( isRouter.size() ) {}

   /// REQUIRES: the cost is below unreachedMetric.
   void offer( CspfVertex vertex, uint32_t cost, bool meetsRefused ) {
      Label & label = labels_[ index( vertex ) ];
      if ( cost < label.cost ) {
         label = { cost, meetsRefused };
         const uint64_t place = isRouter_[ index( vertex ) ] ? routerBit | index( vertex )  //
                                                             : index( vertex );
         queue_.push( uint64_t( cost ) << 32 | place );
      } else if ( cost == label.cost ) {
         label.meetsRefused |= meetsRefused;
      }
   }

   /// What is within that cost, in the order of cost.
   std::vector< Reached > walk( uint64_t within ) {
      std::vector< Reached > reached;
      for ( ; !queue_.empty() && queue_.top() >> 32 <= within; ) {
         const uint64_t next = queue_.top();
         queue_.pop();
         const CspfVertex vertex{ static_cast< uint32_t >( next ) & ~routerBit };
         const Label & label = labels_[ index( vertex ) ];
         if ( next >> 32 == label.cost ) {
            reached.push_back( { vertex, label.cost, label.meetsRefused } );
            expand( reached.back() );
         }
      }
      return reached;
   }

 private:
   static constexpr uint32_t routerBit = 0x80000000;
   struct Label {
      uint32_t cost = unreached;
      bool meetsRefused = false;
   };

   void expand( const Reached & at ) {
      for ( const CspfArcs::Arc & arc : arcs_.out( at.vertex ) ) {
         if ( arc.metric <= CspfTreeRun::maxPathMetric - at.cost ) {
            offer( arc.to, at.cost + arc.metric,
                   at.meetsRefused || isRefused_[ index( arcs_.edge( arc ) ) ] );
         }
      }
   }

   const CspfArcs & arcs_;
   const std::span< const uint8_t > isRouter_, isRefused_;
   std::vector< Label > labels_;
   std::priority_queue< uint64_t, std::vector< uint64_t >, std::greater<> > queue_;
};

void
CspfPlainForwarding::build( const CspfGraph & graph, const CspfLinkConstraint & plain,
                            const CspfLinkConstraint & constraint,
                            const std::function< bool( CspfEdge ) > & isApart ) {
   CspfLinkFilter before, after;
   before.apply( graph, plain );
   after.apply( graph, constraint );
   CspfRunOptions options;
   arcs_.build( graph, before, options );
   isRouter_.assign( graph.vertexBound(), 0 );
   isRefused_.assign( graph.edgeBound(), 0 );
   toRefused_.clear();
   behindRefused_.clear();
   reaches_.clear();
   std::vector< CspfEdge > refused;
   for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
      isRouter_[ v ] = graph.isRouter( CspfVertex{ v } );
      for ( const CspfArcs::Arc & arc : arcs_.out( CspfVertex{ v } ) ) {
         const CspfEdge edge = arcs_.edge( arc );
         if ( !after.admitted( edge ) && !isApart( edge ) ) {
            isRefused_[ index( edge ) ] = 1;
            refused.push_back( edge );
         }
      }
   }
   if ( !refused.empty() ) {
      reaches_.resize( graph.vertexBound() );
      toRefused_ = costsTo( graph, before, refused );
      behindRefused_ = costsBehind( graph, refused );
   }
}

std::vector< uint32_t >
CspfPlainForwarding::costsTo( const CspfGraph & graph, const CspfLinkFilter & filter,
                              std::span< const CspfEdge > links ) const {
   CspfRunOptions options;
   CspfArcs backwards;
   const CspfRunOptions forwards = options;
   options.reverse = true;
   backwards.build( graph, filter, options );
   Run run( backwards, isRouter_, isRefused_ );
   for ( const CspfEdge link : links ) {
      run.offer( graph.from( link ), CspfArcs::stepMetric( graph, link, forwards ), false );
   }
   return costs( run );
}

std::vector< uint32_t >
CspfPlainForwarding::costsBehind( const CspfGraph & graph,
                                  std::span< const CspfEdge > links ) const {
   Run run( arcs_, isRouter_, isRefused_ );
   for ( const CspfEdge link : links ) {
      run.offer( graph.to( link ), 0, false );
   }
   return costs( run );
}

std::vector< uint32_t >
CspfPlainForwarding::costs( Run & run ) const {
   std::vector< uint32_t > costs( isRouter_.size(), unreached );
   for ( const Reached & reached : run.walk( unreached ) ) {
      costs[ index( reached.vertex ) ] = reached.cost;
   }
   return costs;
}

const CspfPlainForwarding::Reach &
CspfPlainForwarding::reach( CspfVertex from, uint32_t within ) const {
   Reach & reach = reaches_[ index( from ) ];
   if ( reach.vertices.empty() || within > reach.within ) {
      reach.within = std::max< uint64_t >( within, 2 * reach.within );
      Run run( arcs_, isRouter_, isRefused_ );
      run.offer( from, 0, false );
      reach.vertices = run.walk( reach.within );
      std::ranges::sort( reach.vertices, {}, &Reached::vertex );
   }
   return reach;
}

bool
CspfPlainForwarding::avoidsRefused( CspfVertex from, std::span< const CspfOriginator > destination,
                                    uint32_t within ) const {
   uint64_t behind = unreached;
   for ( const CspfOriginator & end : destination ) {
      behind = std::min( behind, uint64_t( behindRefused_[ index( end.router ) ] ) + end.metric );
   }
   if ( toRefused_[ index( from ) ] == unreached || behind == unreached
        || toRefused_[ index( from ) ] + behind > within ) {
      return true;
   }
   uint64_t least = unreached;
   bool meetsRefused = false;
   const auto & reached = reach( from, within ).vertices;
   for ( const CspfOriginator & end : destination ) {
      const auto at = std::ranges::lower_bound( reached, end.router, {}, &Reached::vertex );
      if ( at == reached.end() || at->vertex != end.router
           || at->cost + uint64_t( end.metric ) > least ) {
         continue;
      }
      meetsRefused =
         at->meetsRefused || ( meetsRefused && at->cost + uint64_t( end.metric ) == least );
      least = at->cost + uint64_t( end.metric );
   }
   return !meetsRefused;
}

}
