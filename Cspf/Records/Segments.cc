// How a path with include hops is cut into segments.
//
// Every include hop ends a segment, loose or strict. A loose segment is computed as a path of its
// own, from the hop before it, under the parent's constraint without the include hops; the agent
// keeps it as an internal child path. A strict segment is a single link, which is chosen when the
// path is stitched, so it needs no child. The path's machine makes the children by this list, and
// the stitching reads them back by it, so that both agree on what segment n is.

#include "Cspf/Records/Segments.h"

#include <algorithm>

namespace Cspf {

namespace {

void
addSegment( std::vector< PathSegment > & segments, const Kivnet::IpGenAddr & end, bool loose ) {
   PathSegment segment;
   segment.index = static_cast< std::uint8_t >( segments.size() );
   segment.loose = loose;
   segment.source = segments.empty() ? Kivnet::IpGenAddr() : segments.back().end;
   segment.end = end;
   segment.repeats =
      static_cast< std::uint32_t >( std::ranges::count_if( segments, [ & ]( const auto & earlier ) {
         return earlier.source == segment.source && earlier.end == end;
      } ) );
   segments.push_back( segment );
}

}

bool
hasExplicitHops( const PathConstraint & constraint ) {
   return constraint.includeHops() > 0 || constraint.includeHopAllExplicit();
}

std::vector< PathSegment >
pathSegments( const PathConstraint & constraint, const Destination & destination ) {
   std::vector< PathSegment > segments;
   for ( const IncludeHop & hop : constraint.includeHopList() ) {
      addSegment( segments, hop.addr(), hop.loose() );
   }
   const Kivnet::IpGenAddr end = destination.ipAddress();
   if ( !segments.empty() && !constraint.includeHopAllExplicit() && segments.back().end != end ) {
      addSegment( segments, end, true );
      segments.back().isIncludeHop = false;
   }
   return segments;
}

PathInfoKey
childPathInfoKey( const PathInfoKey & parent, const PathSegment & segment ) {
   PathInfoKey child;
   child.clientNameIs( parent.clientName() );
   child.pathKeyIs( { Destination( segment.end ), segment.repeats } );
   child.internalIs( true );
   child.constraintModifierIs( ConstraintModifier::spfForPathSegment );
   child.parentPathKeyIs( parent.pathKey() );
   child.pathSegmentSourceNodeAddrIs( segment.source );
   return child;
}

}
