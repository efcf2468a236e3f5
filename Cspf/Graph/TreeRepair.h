#pragma once

#include "Cspf/Graph/LabelRepair.h"
#include "Cspf/Graph/LinkFilter.h"
#include "Cspf/Graph/Tree.h"

#include <span>
#include <tuple>
#include <vector>

namespace Cspf {

template< class Cost >
struct CspfTreeCosts;

/// Brings trees in line with a graph of which some edges have changed, at the price of the vertices
/// whose cost or last links move. They follow each other, so one serves all.
class CspfTreeRepair {
 public:
   /// Makes the tree what a run on the graph as it is would find; its serial stays where it is the
   /// same. `changes`: all that changed since the tree was right; `reshaped`: edges came or went
   /// meanwhile, were paired otherwise, or stand for something else, so that a tree with a last
   /// link among the changes is another one. `filter` has the constraint of the run, which is what
   /// it was; it need not be applied. False where a run it must be, and the tree is void: where
   /// more than a quarter of the vertices is concerned, or so many last links have moved that they
   /// want to be put together anew. REQUIRES: the run asked for no single hop, and not everything
   /// has changed since.
   bool follow( const CspfGraph & graph, const CspfLinkFilter & filter,
                std::span< const CspfEdgeChange > changes, bool reshaped, CspfTree & tree );

 private:
   template< class Cost >
   bool moveCosts( const CspfGraph & graph, const CspfLinkFilter & filter, CspfTree & tree );
   template< class Cost >
   void takeLastLinks( const CspfTreeCosts< Cost > & costs, CspfVertex vertex );
   bool keepLastLinks( CspfTree & tree, std::size_t groups ) const;

   std::tuple< CspfLabelRepair< uint32_t >, CspfLabelRepair< CspfCost > > repairs_;
   std::vector< CspfVertex > heads_, touched_;
   std::vector< CspfTree::Last > before_;  // of touched ones
   std::vector< CspfTree::Tie > ties_;
   CspfTree::TieMemory tieMemory_;
   bool moved_ = false;  // a cost is another one
};

}
