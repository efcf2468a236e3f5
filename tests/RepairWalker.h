#pragma once

#include "Cspf/Graph/RepairTable.h"

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

/// Judges repairs by sending packets. It knows the graph alone: costs between all routers by its
/// own reckoning, with and without the protected resource, and forwarding hop by hop by all next
/// hops of equal cost. Links that fail the two-way check do not exist; an overloaded router carries
/// only what begins or ends at it; a LAN is a step from router to router.
class RepairWalker {
 public:
   using Originators = std::vector< Cspf::CspfRepairTable::Originator >;
   /// What fails: links, named by each direction in which they are not used any more, and a router.
   struct Resource {
      Cspf::CspfVertex plr = Cspf::noVertex;
      std::vector< Cspf::CspfEdge > edges = {};
      Cspf::CspfVertex node = Cspf::noVertex;
   };

   explicit RepairWalker( const Cspf::CspfGraph & graph );
   void resourceIs( const Resource & resource );
   /// The link and its other direction, or the router that it leads to.
   Resource behind( Cspf::CspfEdge link, bool isLink ) const;

   /// What is wrong with the repairs, in words, or nothing. None is right when the failure
   /// disconnects the destination, or when more nodes are needed than there may be. `tryAll`: also
   /// proves that there is one for each first hop after the failure, that no fewer nodes would do,
   /// and that the first one has the fewest.
   std::string fault( const Cspf::CspfRepairs & result, const Originators & destination,
                      bool tryAll ) const;

 private:
   static constexpr uint32_t far = 0x3FFFFFFF;
   struct Step {
      uint32_t to, metric;
      Cspf::CspfEdge link, arrival;  // the same, but across a LAN
   };
   using Costs = std::vector< std::vector< uint32_t > >;

   uint32_t plr() const { return index( resource_.plr ); }
   bool mayCross( uint32_t router ) const {
      return !graph_.overloaded( Cspf::CspfVertex{ router } );
   }
   bool fails( const Step & step ) const;
   std::vector< uint32_t > costsFrom( uint32_t source, bool afterFailure ) const;
   const std::vector< uint32_t > & after( uint32_t router ) const;
   static uint32_t cost( const std::vector< uint32_t > & costs, const Originators & destination );
   static uint32_t own( uint32_t at, const Originators & destination );
   uint32_t rest( uint32_t at, const std::vector< uint32_t > & costs,
                  const Originators & destination ) const;
   bool forward( uint32_t at, const Originators & destination ) const;
   bool crosses( uint32_t from, const Cspf::CspfRepairSegment & segment ) const;
   bool adjacent( uint32_t from, uint32_t to ) const;
   bool walk( const Cspf::CspfRepair & repair, const Originators & destination ) const;
   bool onPath( uint32_t from, uint32_t to, const Originators & destination ) const;
   uint32_t fewestNodes( uint32_t firstHop, const Originators & destination ) const;

   const Cspf::CspfGraph & graph_;
   std::vector< std::vector< Step > > steps_;  // by router
   Costs before_;
   Resource resource_;
   std::vector< bool > fails_;                // by edge
   mutable Costs after_;                      // rows that were asked for
   mutable std::vector< uint32_t > visited_;  // by router: number of the packet
   mutable uint32_t packet_ = 0;
};
