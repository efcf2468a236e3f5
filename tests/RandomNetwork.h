#pragma once

#include "Cspf/Detours/RepairTable.h"
#include "tools/prove/RepairWalker.h"

#include <random>
#include <string>
#include <vector>

/// A network with everything that makes repairs hard, as text for a graph or a lab: few different
/// metrics, so that many costs are equal, not the same in both directions; parallel and one-way
/// links, LANs, overloaded routers. Routers are "A", "R1", "R2", ..., named in this order.
struct RandomNetwork {
   enum class State { up, oneWay, down };
   struct Link {
      uint32_t a, b, metric, back;
      uint32_t srlg, group;  ///< 0: none
      State state = State::up;
      std::string name = {};  ///< in a lab
   };
   uint32_t routers;
   std::vector< Link > links;
   std::string rest;  // overloaded routers, LANs

   RandomNetwork( uint32_t routers, std::mt19937 & random );
   static std::string name( uint32_t router ) {
      return router == 0 ? "A" : "R" + std::to_string( router );
   }
   std::string text() const;
   /// The edge by which a router leaves by that link of its own, in a graph of that text.
   Cspf::CspfEdge edgeFrom( Cspf::CspfVertex router, size_t link ) const;
};

/// The walker on a graph, whose numbers it keeps.
class GraphWalker {
 public:
   using Originators = std::vector< Cspf::CspfRepairTable::Originator >;
   /// As `Prove::Failure`; an edge may be `noEdge`.
   struct Resource {
      Cspf::CspfVertex plr = Cspf::noVertex;
      std::vector< Cspf::CspfEdge > edges = {};
      Cspf::CspfVertex node = Cspf::noVertex;
   };

   explicit GraphWalker( const Cspf::CspfGraph & graph );
   void resourceIs( const Resource & resource );
   /// The link and its other direction, or the router that it leads to.
   static Resource behind( const Cspf::CspfGraph & graph, Cspf::CspfEdge link, bool isLink );
   /// Also holds the number of nodes that are said to be needed against that found by trying all.
   std::string fault( const Cspf::CspfRepairs & result, const Originators & destination,
                      bool tryAll, uint32_t maxNodes = Prove::RepairWalker::maxNodes ) const;
   /// Whether packets arrive by each of the repairs, wherever these lead.
   bool arrive( const Cspf::CspfRepairs & result, const Originators & destination ) const;

 private:
   Prove::RepairWalker walker_;
};
