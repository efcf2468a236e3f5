#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Prove {

inline constexpr std::uint32_t none = 0xFFFFFFFF;

/// One IGP topology in numbers: routers, and links by direction.
struct RepairNetwork {
   /// A way from router to router.
   struct Step {
      std::uint32_t to, metric;
      std::uint32_t link;     ///< by which it leaves
      std::uint32_t arrival;  ///< the same, but across a LAN: that from the LAN to the router
   };
   std::vector< std::vector< Step > > steps;  ///< by router
   std::vector< bool > overloaded;            ///< carries only what begins or ends there
   std::uint32_t links = 0;                   ///< above all numbers of links and arrivals
};

/// Who originates a destination, at which metric.
struct Originator {
   std::uint32_t router, metric;
};
using Originators = std::vector< Originator >;

/// What fails: links, named by each direction in which they are not used any more, and a router.
struct Failure {
   std::uint32_t plr = none;
   std::vector< std::uint32_t > links = {};
   std::uint32_t node = none;
};

/// How packets are steered: out by each of `firstLinks` to `firstHop`, by the segments, and on by
/// shortest paths.
struct Repair {
   /// To a router by shortest paths, or over one link.
   struct Segment {
      std::uint32_t node = none, link = none, arrival = none;
   };
   std::uint32_t firstHop = none;
   std::vector< std::uint32_t > firstLinks;
   std::vector< Segment > segments;
};

/// Judges repairs by sending packets. It knows the network alone: costs between all routers by its
/// own reckoning, with and without what fails, and forwarding hop by hop by all next hops of equal
/// cost. Costs are worked out for the routers where packets pass, and kept.
class RepairWalker {
 public:
   /// More repair nodes than this are too many.
   static constexpr std::uint32_t maxNodes = 8;

   explicit RepairWalker( RepairNetwork network );
   const RepairNetwork & network() const { return network_; }
   void failureIs( const Failure & failure );

   /// What is wrong with the repairs, in words, or nothing. None is right when the failure
   /// disconnects the destination, or when more nodes are needed than there may be. `tryAll`: also
   /// proves that there is one for each first hop after the failure, that no fewer nodes would do,
   /// and that the first one has the fewest. Where they all have more than `nodesAllowed`, one that
   /// leaves the paths after the failure is right, and it must have the fewest of these.
   std::string fault( const std::vector< Repair > & repairs, const Originators & destination,
                      bool tryAll, std::uint32_t nodesAllowed = maxNodes ) const;
   /// By how many repair nodes there would be a repair on the paths after the failure, or one that
   /// may leave them; nothing where by none, or none is due.
   std::optional< std::uint32_t > nodesNeeded( const Originators & destination,
                                               bool mayLeave = false ) const;
   /// Whether there is a way to the destination before the failure.
   bool reaches( std::uint32_t router, const Originators & destination ) const;

   // Why a repair is what it is.

   static constexpr std::uint32_t far = 0x3FFFFFFF;  ///< a cost that nothing has
   using Step = RepairNetwork::Step;
   /// Where a packet meets what fails.
   struct Meeting {
      std::uint32_t from = none;
      Step step = {};
   };
   /// Sends the packet by all next hops at once; whether it arrives by each of them. Begun at the
   /// router that is nearest after the failure, and originates the destination, it is there;
   /// elsewhere a router that originates it may as well use another one at the same cost. Where it
   /// meets what fails, `meeting` is set.
   bool forward( std::uint32_t from, const Originators & destination,
                 Meeting * meeting = nullptr ) const;
   bool fails( std::uint32_t from, const Step & step ) const;
   /// By the cheapest way, nothing failing.
   std::uint32_t costBefore( std::uint32_t from, const Originators & destination ) const;
   /// From the PLR, by the cheapest way after the failure.
   std::uint32_t costAfter( const Originators & destination ) const;
   /// The same, of the ways through that router.
   std::uint32_t costAfterBy( std::uint32_t router, const Originators & destination ) const;
   /// The same, of the ways over that step.
   std::uint32_t costAfterOver( std::uint32_t from, const Step & step,
                                const Originators & destination ) const;
   /// Whether a repair on the paths after the failure may begin with that step of the PLR.
   bool isFirst( const Step & step, const Originators & destination ) const;
   /// Whether such a repair may have a segment between these.
   bool onPath( std::uint32_t from, std::uint32_t to, const Originators & destination ) const;
   /// A link between them that does not fail; for `shortest` one that is a shortest path after the
   /// failure. Null where there is none.
   const Step * link( std::uint32_t from, std::uint32_t to, bool shortest ) const;
   /// Repairs on the paths after the failure with the fewest repair nodes, told apart by the first
   /// hop and the repair nodes.
   struct Shortest {
      std::uint32_t nodes = none;
      std::uint64_t count = 0;  ///< 0: there is none with at most `maxNodes`
   };
   /// Those that begin with that first hop and have that repair node, where these are given.
   Shortest shortest( const Originators & destination, std::uint32_t firstHop = none,
                      std::uint32_t node = none ) const;
   /// Whether packets arrive by the repair. `mayLeave`: also off the paths after the failure.
   bool walk( const Repair & repair, const Originators & destination, bool mayLeave ) const;

 private:
   using Costs = std::vector< std::uint32_t >;

   bool mayCross( std::uint32_t router ) const { return !network_.overloaded[ router ]; }
   Costs costsFrom( std::uint32_t source, bool afterFailure ) const;
   const Costs & before( std::uint32_t router ) const;
   const Costs & after( std::uint32_t router ) const;
   static std::uint32_t cost( const Costs & costs, const Originators & destination );
   static std::uint32_t own( std::uint32_t at, const Originators & destination );
   std::uint32_t rest( std::uint32_t at, const Costs & costs,
                       const Originators & destination ) const;
   bool crosses( std::uint32_t from, const Repair::Segment & segment ) const;
   bool joined( std::uint32_t from, std::uint32_t to ) const {
      return mayCross( from ) && link( from, to, false );
   }
   bool adjacent( std::uint32_t from, std::uint32_t to ) const { return link( from, to, true ); }
   bool extends( std::uint32_t from, std::uint32_t to, bool byLink,
                 const Originators & destination ) const;
   std::uint32_t fewestNodes( std::uint32_t firstHop, const Originators & destination,
                              bool mayLeave ) const;
   std::uint32_t fewestNodes( const Originators & destination, bool mayLeave ) const;

   const RepairNetwork network_;
   Failure failure_;
   std::vector< bool > fails_;                     // by link
   mutable std::vector< Costs > before_, after_;   // rows that were asked for
   mutable std::vector< std::uint32_t > visited_;  // by router: number of the packet
   mutable std::uint32_t packet_ = 0;
};

}
