#pragma once

#include "Cspf/Records/PathRows.h"

#include <optional>
#include <vector>

namespace Cspf {

/// The stretch of an explicit-hop path that ends at one include hop, or at the destination.
struct PathSegment {
   std::uint8_t index = 0;    ///< of the include hop; one more for the destination's own
   bool loose = false;        ///< a path of its own; a strict one is a single link
   bool isIncludeHop = true;  ///< false for the destination's own
   Kivnet::IpGenAddr source;  ///< the include hop before it; unset for the path's own source
   Kivnet::IpGenAddr end;
   std::uint32_t repeats = 0;  ///< earlier segments with the same ends
};

/// True when the path is put together from segments, or given by all its hops.
bool hasExplicitHops( const PathConstraint & constraint );

/// The segments of a path in order: one for each include hop; then, unless the hops are the whole
/// path or the last one is the destination itself, a loose one to the destination. None for a path
/// without explicit hops. O(hops^2), of at most 100.
std::vector< PathSegment > pathSegments( const PathConstraint & constraint,
                                         const Destination & destination );

/// Part of a path's hops.
struct HopRange {
   std::size_t first = 0;
   std::size_t count = 0;
};
/// The hops that a published path has for the segment of one of its child paths, where the include
/// hops that are published tell. `source`: TE router id of where the path starts. O(hops).
std::optional< HopRange > publishedSegment( const PathStatus & published,
                                            const Kivnet::IpGenAddr & source,
                                            const PathInfoKey & child );

/// The key of the child path of a loose segment. It depends on the ends of the segment and on
/// nothing else of the parent's hops, so that a change of one hop gives new keys to the segments
/// next to it only. Segments of one parent have different keys.
PathInfoKey childPathInfoKey( const PathInfoKey & parent, const PathSegment & segment );

}
