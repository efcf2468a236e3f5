// Which trees a change leaves as they are. A tree is right as long as no edge leads to a vertex at
// less than its cost, and those that lead there at that very cost are its last links. Edges that
// have not changed keep to that; those that have are looked at, each with what runs between the
// same ends. What an edge was before needs no record: a last link gave its vertex the cost, others
// gave it more, or nothing.

#include "Cspf/Graph/TreeStays.h"

#include "Cspf/Graph/LabelRepair.h"
#include "platform/Lum/Assert.h"

#include <algorithm>

namespace Cspf {

namespace {

class Judge {
 public:
   Judge( const CspfGraph & graph, const CspfTree & tree, const CspfLinkFilter & filter,
          bool reshaped )
      : graph_( graph ),
        tree_( tree ),
        filter_( filter ),
        reshaped_( reshaped ) {}

   /// Whether the edges that run so stand in the tree as a run would place them.
   bool standRight( CspfVertex from, CspfVertex to ) const {
      if ( to == tree_.source() ) {
         return true;
      }
      const auto lasts = tree_.lastLinks( to );
      if ( reshaped_ && std::ranges::any_of( lasts, [ & ]( CspfEdge last ) {
              return !graph_.has( last ) || graph_.to( last ) != to || graph_.from( last ) == from;
           } ) ) {
         return false;
      }
      const auto attaining = [ & ]( CspfEdge edge ) { return arrival( edge ) == known( to ); };
      const auto leaving = graph_.out( from ), entering = graph_.in( to );
      for ( const std::uint32_t e : leaving.size() < entering.size() ? leaving : entering ) {
         const CspfEdge edge{ e };
         if ( graph_.from( edge ) == from && graph_.to( edge ) == to
              && ( arrival( edge ) < known( to )
                   || ( tree_.reached( to ) && attaining( edge )
                        && std::ranges::find( lasts, edge ) == lasts.end() ) ) ) {
            return false;
         }
      }
      return std::ranges::all_of( lasts, [ & ]( CspfEdge last ) {
         return graph_.from( last ) != from || attaining( last );
      } );
   }

 private:
   static constexpr CspfCost none = cspfUnreached< CspfCost >;

   CspfCost known( CspfVertex vertex ) const {
      return tree_.reached( vertex ) ? tree_.cost( vertex ) : none;
   }
   /// What a path costs that ends with the edge; `none` where it may not.
   CspfCost arrival( CspfEdge edge ) const {
      const CspfCost before = known( graph_.from( edge ) );
      if ( before == none
           || CspfArcs::refusal( graph_, filter_, edge, tree_.options() ) != CspfRefusal::none ) {
         return none;
      }
      const auto [ excludes, lacks ] =
         filter_.countsSrlgs() ? filter_.srlgCounts( graph_, edge ) : std::pair{ 0U, 0U };
      const CspfCost step{ excludes, lacks, CspfArcs::stepMetric( graph_, edge, tree_.options() ) };
      return mayFollow( before, step ) ? costSum( before, step ) : none;
   }

   const CspfGraph & graph_;
   const CspfTree & tree_;
   const CspfLinkFilter & filter_;
   const bool reshaped_;
};

}

/// In a reverse tree an edge costs what its reverse does; and an edge is told where it is by the
/// addresses of both.
bool
treeStays( const CspfGraph & graph, const CspfTree & tree, const CspfLinkFilter & filter,
           std::span< const CspfEdgeChange > changes, bool reshaped ) {
   LUM_ASSERT( !tree.options().singleHop );
   const Judge judge( graph, tree, filter, reshaped );
   const bool bothWays = tree.options().reverse || reshaped;
   return std::ranges::all_of( changes, [ & ]( const CspfEdgeChange & change ) {
      return change.from == change.to
             || ( judge.standRight( change.from, change.to )
                  && ( !bothWays || judge.standRight( change.to, change.from ) ) );
   } );
}

}
