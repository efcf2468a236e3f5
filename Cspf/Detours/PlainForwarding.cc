// Plain forwarding against a constraint. The links that are refused may be one (another one of the
// same fibre) or half of the network (a colour to stay away from); neither is a case of its own.
//
// A LAN costs nothing to leave, so that a router behind it may be as near as the LAN itself. Runs
// therefore take LANs before routers at equal cost: whatever is to be known of a vertex is known
// when it is taken.

#include "Cspf/Detours/PlainForwarding.h"

#include <algorithm>
#include <queue>

namespace Cspf {

namespace {

constexpr uint32_t unreached = CspfTree::unreachedMetric;

}

CspfRefusedLinks::CspfRefusedLinks( const CspfGraph & graph, const CspfLinkConstraint & plain,
                                    const CspfLinkConstraint & constraint, IsApart isApart )
   : graph_( graph ),
     isApart_( std::move( isApart ) ) {
   plain_.constraintIs( plain );
   constraint_.constraintIs( constraint );
}

bool
CspfRefusedLinks::has( CspfEdge edge ) const {
   return graph_.has( edge ) && CspfArcs::refusal( graph_, plain_, edge, {} ) == CspfRefusal::none
          && ( ( constraint_.reason( graph_, edge ) != CspfRefusal::none && !isApart_( edge ) )
               || ( constraint_.countsSrlgs() && comesBack( graph_, constraint_, edge ) ) );
}

bool
CspfRefusedLinks::comesBack( const CspfGraph & graph, const CspfLinkFilter & constraint,
                             CspfEdge edge ) {
   const CspfEdge out = graph.reverse( edge );
   return graph.to( edge ) == constraint.constraint().root && out != noEdge
          && constraint.reason( graph, out ) == CspfRefusal::excludedInterface;
}

template< typename Edges >
bool
CspfRefusedLinks::anyOf( const Edges & edges ) const {
   return std::ranges::any_of(
      edges, [ this ]( auto edge ) { return has( CspfEdge{ uint32_t( edge ) } ); } );
}

/// What both test alike they refuse alike, but that a root may be left.
bool
CspfRefusedLinks::any() const {
   const CspfLinkConstraint &plain = plain_.constraint(), &constraint = constraint_.constraint();
   CspfLinkConstraint unnamed = constraint;
   unnamed.root = plain.root;
   unnamed.overloadedEdges = plain.overloadedEdges;
   unnamed.excludedInterfaces = plain.excludedInterfaces;
   unnamed.excludedVertices = plain.excludedVertices;
   unnamed.excludedEdges = plain.excludedEdges;
   if ( unnamed != plain ) {
      uint32_t edge = 0;
      while ( edge < graph_.edgeBound() && !has( CspfEdge{ edge } ) ) {
         ++edge;
      }
      return edge < graph_.edgeBound();
   }
   return anyOf( constraint.overloadedEdges ) || anyOf( constraint.excludedEdges )
          || std::ranges::any_of(
             constraint.excludedVertices,
             [ this ]( CspfVertex vertex ) { return anyOf( graph_.in( vertex ) ); } )
          || ( constraint.ownSource != noVertex && anyOf( graph_.out( constraint.ownSource ) ) );
}

/// One walk over arcs by rising cost, from any number of vertices. `isForwards`: in the direction
/// of packets.
template< typename Arcs >
class CspfPlainForwarding::Run {
 public:
   Run( const Arcs & arcs, std::span< const uint8_t > isRouter, std::span< const uint8_t > marks,
        Mark mark, bool isForwards = true, Mark barred = unmarked )
      : arcs_( arcs ),
        isRouter_( isRouter ),
        marks_( marks ),
        mark_( mark ),
        barred_( barred ),
        isForwards_( isForwards ),
        labels_( isRouter.size() ) {}

   /// REQUIRES: the cost is below unreachedMetric.
   void offer( CspfVertex vertex, uint32_t cost, bool meetsMarked ) {
      Label & label = labels_[ index( vertex ) ];
      if ( cost < label.cost ) {
         label = { cost, meetsMarked };
         const bool isLast = bool( isRouter_[ index( vertex ) ] ) == isForwards_;
         const uint64_t place = isLast ? lastBit | index( vertex ) : index( vertex );
         queue_.push( uint64_t( cost ) << 32 | place );
      } else if ( cost == label.cost ) {
         label.meetsMarked |= meetsMarked;
      }
   }

   /// What is within that cost, in the order of cost.
   std::vector< Reached > walk( uint64_t within = unreached ) {
      std::vector< Reached > reached;
      for ( ; !queue_.empty() && queue_.top() >> 32 <= within; ) {
         const uint64_t next = queue_.top();
         queue_.pop();
         const CspfVertex vertex{ static_cast< uint32_t >( next ) & ~lastBit };
         const Label & label = labels_[ index( vertex ) ];
         if ( next >> 32 == label.cost ) {
            reached.push_back( { vertex, label.cost, label.meetsMarked } );
            expand( reached.back() );
         }
      }
      return reached;
   }
   /// By vertex.
   std::vector< uint32_t > costs() {
      std::vector< uint32_t > costs( isRouter_.size(), unreached );
      for ( const Reached & reached : walk() ) {
         costs[ index( reached.vertex ) ] = reached.cost;
      }
      return costs;
   }

 private:
   static constexpr uint32_t lastBit = 0x80000000;
   struct Label {
      uint32_t cost = unreached;
      bool meetsMarked = false;
   };

   void expand( const Reached & at ) {
      for ( const auto & arc : arcs_.out( at.vertex ) ) {
         const uint8_t marks = marks_[ index( arcs_.edge( arc ) ) ];
         if ( arc.metric <= CspfTreeRun::maxPathMetric - at.cost && !( marks & barred_ ) ) {
            offer( arc.to, at.cost + arc.metric, at.meetsMarked || marks & mark_ );
         }
      }
   }

   const Arcs & arcs_;
   const std::span< const uint8_t > isRouter_, marks_;
   const Mark mark_, barred_;
   const bool isForwards_;
   std::vector< Label > labels_;
   std::priority_queue< uint64_t, std::vector< uint64_t >, std::greater<> > queue_;
};

/// The arcs by the vertex that they lead to: `to` is where they come from.
class CspfPlainForwarding::Backwards {
 public:
   struct Arc {
      CspfVertex to;
      uint32_t metric;
      CspfEdge edge;
   };

   Backwards( const CspfArcs & arcs, size_t vertices ) : begins_( vertices + 1 ) {
      const auto forEach = [ & ]( auto visit ) {
         for ( uint32_t v = 0; v < vertices; ++v ) {
            for ( const CspfArcs::Arc & arc : arcs.out( CspfVertex{ v } ) ) {
               visit( CspfVertex{ v }, arc );
            }
         }
      };
      forEach( [ & ]( CspfVertex, const CspfArcs::Arc & arc ) { ++begins_[ index( arc.to ) ]; } );
      for ( size_t v = 0, sum = 0; v <= vertices; ++v ) {
         sum += begins_[ v ];
         begins_[ v ] = static_cast< uint32_t >( sum );  // the end, until the arcs are there
      }
      arcs_.resize( begins_.back() );
      forEach( [ & ]( CspfVertex from, const CspfArcs::Arc & arc ) {
         arcs_[ --begins_[ index( arc.to ) ] ] = { from, arc.metric, arcs.edge( arc ) };
      } );
   }
   std::span< const Arc > out( CspfVertex vertex ) const {
      const uint32_t * begin = begins_.data() + index( vertex );
      return { arcs_.data() + begin[ 0 ], arcs_.data() + begin[ 1 ] };
   }
   static CspfEdge edge( const Arc & arc ) { return arc.edge; }

 private:
   std::vector< uint32_t > begins_;
   std::vector< Arc > arcs_;
};

CspfPlainForwarding::CspfPlainForwarding( const CspfGraph & graph, const CspfLinkConstraint & plain,
                                          const CspfLinkConstraint & constraint,
                                          const IsApart & isApart )
   : plr_( constraint.root ),
     isRouter_( graph.vertexBound() ) {
   CspfLinkFilter before, after;
   before.apply( graph, plain );
   after.apply( graph, constraint );
   arcs_.build( graph, before, {} );
   for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
      isRouter_[ v ] = graph.isRouter( CspfVertex{ v } );
   }
   mark( graph, after, isApart );
   addOwnSteps( graph, after );
   std::vector< CspfEdge > refusedEdges;
   for ( uint32_t e = 0; e < graph.edgeBound(); ++e ) {
      if ( marks_[ e ] & refused ) {
         refusedEdges.push_back( CspfEdge{ e } );
      }
   }
   if ( !refusedEdges.empty() ) {
      reaches_.resize( graph.vertexBound() );
      toRefused_ = costsTo( graph, before, refusedEdges );
      behindRefused_ = costsBehind( graph, refusedEdges );
   }
}

void
CspfPlainForwarding::mark( const CspfGraph & graph, const CspfLinkFilter & after,
                           const IsApart & isApart ) {
   marks_.assign( graph.edgeBound(), unmarked );
   for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
      for ( const CspfArcs::Arc & arc : arcs_.out( CspfVertex{ v } ) ) {
         const CspfEdge edge = arcs_.edge( arc );
         uint8_t & marks = marks_[ index( edge ) ];
         if ( !after.admitted( edge ) ) {
            marks = isApart( edge ) ? failing : refused | failing;
         } else if ( CspfRefusedLinks::comesBack( graph, after, edge ) ) {
            marks = after.countsSrlgs() ? refused | failing : failing;
         }
      }
   }
}

void
CspfPlainForwarding::addOwnSteps( const CspfGraph & graph, const CspfLinkFilter & after ) {
   ownSteps_.clear();
   const auto isUsable = [ & ]( CspfEdge edge ) {
      return after.admitted( edge )
             && CspfArcs::metricRefusal( graph, edge, {} ) == CspfRefusal::none;
   };
   for ( const uint32_t e : graph.out( plr_ ) ) {
      const CspfEdge link{ e };
      const CspfVertex to = graph.to( link );
      if ( !isUsable( link ) ) {
         continue;
      }
      const uint32_t metric = CspfArcs::stepMetric( graph, link, {} );
      if ( graph.isRouter( to ) ) {
         ownSteps_.push_back( { to, link, link, metric } );
         continue;
      }
      for ( const uint32_t member : graph.out( to ) ) {
         if ( isUsable( CspfEdge{ member } ) && graph.to( CspfEdge{ member } ) != plr_ ) {
            ownSteps_.push_back(
               { graph.to( CspfEdge{ member } ), link, CspfEdge{ member }, metric } );
         }
      }
   }
}

std::vector< CspfPlainForwarding::Sound >
CspfPlainForwarding::soundFrom( CspfVertex from ) const {
   Run run( arcs_, isRouter_, marks_, failing );
   run.offer( from, 0, false );
   std::vector< Sound > sound;
   for ( const Reached & reached : run.walk() ) {
      if ( isRouter_[ index( reached.vertex ) ] && !reached.meetsMarked ) {
         sound.push_back( { reached.vertex, reached.cost } );
      }
   }
   return sound;
}

std::vector< CspfPlainForwarding::Arrival >
CspfPlainForwarding::arrivals( std::span< const CspfOriginator > destination ) const {
   const Backwards backwards( arcs_, isRouter_.size() );
   Run before( backwards, isRouter_, marks_, failing, false );
   Run after( backwards, isRouter_, marks_, failing, false, failing );
   for ( const CspfOriginator & end : destination ) {
      before.offer( end.router, end.metric, false );
      after.offer( end.router, end.metric, false );
   }
   std::vector< Arrival > arrivals( isRouter_.size() );
   for ( const Reached & reached : before.walk() ) {
      arrivals[ index( reached.vertex ) ] = { !reached.meetsMarked, reached.cost };
   }
   const std::vector< uint32_t > costs = after.costs();
   for ( const CspfOriginator & end : destination ) {
      if ( costs[ index( end.router ) ] == end.metric ) {
         arrivals[ index( end.router ) ] = { true, end.metric };
      }
   }
   return arrivals;
}

std::vector< uint32_t >
CspfPlainForwarding::costsTo( const CspfGraph & graph, const CspfLinkFilter & filter,
                              std::span< const CspfEdge > links ) const {
   CspfRunOptions options;
   CspfArcs backwards;
   const CspfRunOptions forwards = options;
   options.reverse = true;
   backwards.build( graph, filter, options );
   Run run( backwards, isRouter_, marks_, refused );
   for ( const CspfEdge link : links ) {
      run.offer( graph.from( link ), CspfArcs::stepMetric( graph, link, forwards ), false );
   }
   return run.costs();
}

std::vector< uint32_t >
CspfPlainForwarding::costsBehind( const CspfGraph & graph,
                                  std::span< const CspfEdge > links ) const {
   Run run( arcs_, isRouter_, marks_, refused );
   for ( const CspfEdge link : links ) {
      run.offer( graph.to( link ), 0, false );
   }
   return run.costs();
}

const CspfPlainForwarding::Reach &
CspfPlainForwarding::reach( CspfVertex from, uint32_t within ) const {
   Reach & reach = reaches_[ index( from ) ];
   if ( reach.vertices.empty() || within > reach.within ) {
      reach.within = std::max< uint64_t >( within, 2 * reach.within );
      Run run( arcs_, isRouter_, marks_, refused );
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
   bool meetsMarked = false;
   const auto & reached = reach( from, within ).vertices;
   for ( const CspfOriginator & end : destination ) {
      const auto at = std::ranges::lower_bound( reached, end.router, {}, &Reached::vertex );
      if ( at == reached.end() || at->vertex != end.router
           || at->cost + uint64_t( end.metric ) > least ) {
         continue;
      }
      meetsMarked =
         at->meetsMarked || ( meetsMarked && at->cost + uint64_t( end.metric ) == least );
      least = at->cost + uint64_t( end.metric );
   }
   return !meetsMarked;
}

}
