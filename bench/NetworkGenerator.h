#pragma once

#include "Cspf/Graph/Graph.h"

#include <array>
#include <cstdint>
#include <vector>

/// A network in the shape of a provider's: metro rings whose neighbouring routers are meshed,
/// joined by long links at random; 4.9 links a router; metrics 1 to 1000, different in the two
/// directions. Three attributes decide what a constraint leaves: administrative groups, SRLGs (a
/// sixth of the links carry one to three of 400), unreserved bandwidth.
struct GeneratedNetwork {
   struct Link {  // one direction; the other one is its neighbour (position ^ 1)
      uint32_t from, to;
      uint32_t metric;
      uint32_t adminGroup;
      std::vector< uint32_t > srlgs;
      float unreserved;
   };
   uint32_t routers = 0;
   std::vector< Link > links;

   /// Adds all to an empty graph; vertices and edges in order of their numbers here.
   void fill( Cspf::CspfGraph & graph ) const;
};

/// The same network for the same arguments.
GeneratedNetwork generateNetwork( uint32_t routers, uint32_t seed );
