#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace Prove {

/// What a path costs: shared risks on it, then metric.
struct Cost {
   std::uint64_t srlgs = 0;
   std::uint64_t metric = 0;

   Cost operator+( const Cost & other ) const {
      return { srlgs + other.srlgs, metric + other.metric };
   }
   auto operator<=>( const Cost & ) const = default;
};

struct Arc {
   std::uint32_t from, to;
   Cost cost;
};

/// A number for each node that says what its least cost is; nothing where it is not reached.
using Potentials = std::vector< std::optional< Cost > >;

/// Paths whose metric exceeds this are none.
inline constexpr std::uint64_t maximumPathMetric = 0xFDFFFFFF;

/// The least costs from the source, by a search. O(arcs log nodes).
Potentials search( std::span< const Arc > arcs, std::size_t nodes, std::uint32_t source );

/// Whether these are the least costs, arc by arc, however they were found: no arc leads to a node
/// for less than the node has, and each node but the source is entered by an arc for just what it
/// has. REQUIRES: metrics are greater than 0. O(arcs).
bool certifies( const Potentials & potentials, std::span< const Arc > arcs, std::uint32_t source );

}
