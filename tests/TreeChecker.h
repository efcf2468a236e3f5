#pragma once

#include "Cspf/Graph/LinkFilter.h"
#include "Cspf/Graph/Tree.h"

#include <string>

/// Judges of a shortest-path tree. Each reads the graph and the constraint alone, not the filter's
/// answers, and gives the first fault in words, or nothing.
struct TreeChecker {
   const Cspf::CspfGraph & graph;
   const Cspf::CspfLinkFilter & filter;
   const Cspf::CspfTree & tree;

   /// The filter's answer and reason for every edge are what the constraint means.
   std::string filterFault() const;
   /// Proof that the tree is a shortest-path tree: the source costs zero, no admitted edge
   /// improves, last links are exactly the edges that attain a vertex's cost, and no admitted
   /// edge leads from a reached to an unreached vertex.
   std::string treeFault() const;
   /// The tentative list played out entry by entry: same order of last links, same order in which
   /// routers become final, same first-hop interfaces.
   std::string orderFault() const;
   /// Every simple path from the source tried. For graphs below ten vertices.
   std::string exhaustiveFault() const;
   /// All of them; the last on small graphs only. A fault comes with topology, constraint and the
   /// reason of each refused edge.
   std::string fault() const;

 private:
   std::string setting() const;
};
