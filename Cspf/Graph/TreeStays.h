#pragma once

#include "Cspf/Graph/LinkFilter.h"
#include "Cspf/Graph/Tree.h"

#include <span>

namespace Cspf {

/// Whether a run on the graph as it is would find the same costs and last links again. `changes`:
/// all that changed since that run; `reshaped`: edges came or went meanwhile, were paired
/// otherwise, or stand for something else, so that a tree stays only where no last link is among
/// the changes. `filter` has the constraint of the run, which is what it was. False where that
/// cannot be told. REQUIRES: the run asked for no single hop, and not everything has changed since.
/// O(changes * links of their ends).
bool treeStays( const CspfGraph & graph, const CspfTree & tree, const CspfLinkFilter & filter,
                std::span< const CspfEdgeChange > changes, bool reshaped );

}
