// A constraint turned into one answer an edge.
//
// The filter serves one computation, which applies it before its runs. Tests that could refuse any
// edge (topology, two-way check, administrative groups, SRLGs, bandwidth) are one loop each over
// the one column they read, without branches, and only when the constraint asks; tests that name
// their edges (interface, node, address, overload) touch those edges alone. `reason` asks the same
// questions edge by edge, first refusal first, and exists for people; that both agree is
// tested.
//
// Steps from a network to its routers are memberships, not links: they are subject to topology,
// two-way check, overload and node exclusion, to the exclusion of a repair's named neighbour, and
// to nothing else: an excluded address of a router on a network refuses that router's own link
// alone. The loops over attributes ignore this; `admitByState`, which follows them, puts it right.

#include "Cspf/Graph/LinkFilter.h"

#include "platform/Lum/Assert.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Cspf {

namespace {

bool
contains( const auto & list, const auto & value ) {
   return std::ranges::find( list, value ) != std::ranges::end( list );
}

void
sortUnique( std::vector< uint32_t > & values ) {
   std::ranges::sort( values );
   values.erase( std::unique( values.begin(), values.end() ), values.end() );
}

/// The least single-precision value that is not below `bandwidth`: for link values, which count
/// whole units, comparing with it gives what comparing truncated integers gives.
float
leastEnough( uint64_t bandwidth ) {
   const float nearest = static_cast< float >( bandwidth );
   // 2^64 is not below any 64-bit value, and its conversion back would not be defined.
   const bool enough = nearest >= 0x1p64F || static_cast< uint64_t >( nearest ) >= bandwidth;
   return enough ? nearest : std::nextafter( nearest, std::numeric_limits< float >::infinity() );
}

uint64_t
sumAtMost( uint64_t a, uint64_t b ) {
   return a + std::min( b, std::numeric_limits< uint64_t >::max() - a );
}

uint64_t
truncated( float bandwidth ) {
   return bandwidth >= 0x1p64F ? std::numeric_limits< uint64_t >::max()
          : bandwidth > 0      ? static_cast< uint64_t >( bandwidth )
                               : 0;
}

bool
isMembership( const CspfGraph & graph, CspfEdge edge ) {
   return graph.kind( edge ) == CspfEdgeKind::networkToRouter;
}

}

std::string_view
text( CspfRefusal refusal ) {
   static constexpr std::string_view texts[] = {
      "admitted",
      "in another topology",
      "two-way check failed",
      "router is overloaded",
      "interface is excluded",
      "node is excluded",
      "carries an excluded SRLG",
      "lacks an administrative group to include",
      "has none of the administrative groups to include",
      "has an excluded administrative group",
      "link address is excluded",
      "bandwidth is not available",
      "metric is zero",
      "metric is maximum",
   };
   return texts[ static_cast< size_t >( refusal ) ];
}

void
CspfLinkFilter::constraintIs( CspfLinkConstraint constraint ) {
   LUM_ASSERT( constraint.setupPriority < 8 );
   constraint_ = std::move( constraint );
   sortUnique( constraint_.excludedSrlgs );
   sortUnique( constraint_.includedSrlgs );
   countsSrlgs_ = ( !constraint_.excludedSrlgs.empty() && !constraint_.srlgStrict )
                  || !constraint_.includedSrlgs.empty();
}

void
CspfLinkFilter::apply( const CspfGraph & graph, CspfLinkConstraint constraint ) {
   static uint64_t lastSerial = 0;
   constraintIs( std::move( constraint ) );
   serial_ = ++lastSerial;
   graphVersion_ = graph.version();
   admitted_.assign( graph.edgeBound(), 1 );
   countSrlgs( graph );
   admitByAdminGroup( graph );
   admitBySrlg( graph );
   admitByBandwidth( graph );
   admitByState( graph );
   refuseSingly( graph );
   refuseOverloaded( graph );
}

void
CspfLinkFilter::countSrlgs( const CspfGraph & graph ) {
   const auto & excluded = constraint_.excludedSrlgs;
   const auto & included = constraint_.includedSrlgs;
   constexpr uint64_t exclude = uint64_t{ 1 } << 32;
   const CspfSrlgPool & pool = graph.srlgPool();
   countsByList_.assign( pool.lists(), included.size() );
   for ( uint32_t srlg : excluded ) {
      for ( uint32_t list : pool.listsWith( srlg ) ) {
         countsByList_[ list ] += exclude;
      }
   }
   for ( uint32_t srlg : included ) {
      uint32_t done = 0;  // no SRLG is on list 0
      for ( uint32_t list : pool.listsWith( srlg ) ) {
         countsByList_[ list ] -= list != done;
         done = list;
      }
   }
}

template< typename Verdict >
void
CspfLinkFilter::revise( Verdict verdict ) {
   // Blocks of fixed size, judged beside the column: that is what compilers turn into vectors.
   constexpr size_t block = 64;
   uint8_t verdicts[ block ];
   uint8_t * admitted = admitted_.data();
   const size_t edges = admitted_.size();
   size_t e = 0;
   for ( ; e + block <= edges; e += block ) {
      for ( size_t i = 0; i < block; ++i ) {
         verdicts[ i ] = verdict( e + i, admitted[ e + i ] );
      }
      std::copy_n( verdicts, block, admitted + e );
   }
   for ( ; e < edges; ++e ) {
      admitted[ e ] = verdict( e, admitted[ e ] );
   }
}

template< typename Test >
void
CspfLinkFilter::narrow( Test test ) {
   revise( [ = ]( size_t e, uint8_t admitted ) -> uint8_t { return admitted & test( e ); } );
}

void
CspfLinkFilter::admitByAdminGroup( const CspfGraph & graph ) {
   const uint32_t all = constraint_.includeAllAdminGroup;
   const uint32_t any = constraint_.includeAnyAdminGroup;
   const uint32_t none = constraint_.excludeAdminGroup;
   if ( all | any | none ) {
      const uint32_t * groups = graph.columns().adminGroup.data();
      narrow( [ =, anyUnasked = any == 0 ]( size_t e ) {
         const uint32_t group = groups[ e ];
         const uint32_t wrong = ( ~group & all ) | ( group & none );
         return ( wrong == 0 ) & ( ( ( group & any ) | anyUnasked ) != 0 );
      } );
   }
}

void
CspfLinkFilter::admitBySrlg( const CspfGraph & graph ) {
   if ( !constraint_.srlgStrict || constraint_.excludedSrlgs.empty() ) {
      return;
   }
   const uint32_t * lists = graph.columns().srlgList.data();
   const uint64_t * counts = countsByList_.data();
   if ( !constraint_.srlgOnlyLocal ) {
      narrow( [ = ]( size_t e ) { return counts[ lists[ e ] ] >> 32 == 0; } );
   } else if ( constraint_.ownSource != noVertex ) {
      for ( uint32_t e : graph.out( constraint_.ownSource ) ) {
         admitted_[ e ] &= counts[ lists[ e ] ] >> 32 == 0;
      }
   }
}

void
CspfLinkFilter::admitByBandwidth( const CspfGraph & graph ) {
   if ( constraint_.bandwidth == 0 ) {
      return;
   }
   // The request's own links are judged in whole 64-bit numbers; what the other tests said of
   // them is kept aside.
   std::vector< uint8_t > others;
   for ( const auto & [ edge, own ] : constraint_.ownReservations ) {
      others.push_back( admitted_[ index( edge ) ] );
   }
   const float enough = leastEnough( constraint_.bandwidth );
   const float * unreserved = graph.columns().unreservedAt( constraint_.setupPriority ).data();
   narrow( [ = ]( size_t e ) { return unreserved[ e ] >= enough; } );
   for ( size_t i = 0; i < others.size(); ++i ) {
      const CspfEdge edge = constraint_.ownReservations[ i ].first;
      admitted_[ index( edge ) ] = others[ i ] && bandwidthAllows( graph, edge );
   }
}

void
CspfLinkFilter::admitByState( const CspfGraph & graph ) {
   // Whatever the loops over attributes read for a membership, it does not matter.
   const uint8_t * flags = graph.columns().flags.data();
   constexpr auto membership = static_cast< uint8_t >( CspfEdgeKind::networkToRouter );
   revise( [ = ]( size_t e, uint8_t admitted ) -> uint8_t {
      admitted |= ( flags[ e ] & CspfGraph::kindBits ) == membership;
      return admitted & ( flags[ e ] / CspfGraph::twoWayBit );
   } );
   if ( const uint16_t wanted = constraint_.topology; wanted != CspfGraph::anyTopology ) {
      const uint16_t * topology = graph.columns().topology.data();
      narrow( [ = ]( size_t e ) { return topology[ e ] == wanted; } );
   }
}

void
CspfLinkFilter::refuse( std::span< const uint32_t > edges ) {
   for ( uint32_t e : edges ) {
      admitted_[ e ] = 0;
   }
}

void
CspfLinkFilter::refuseSingly( const CspfGraph & graph ) {
   if ( constraint_.ownSource != noVertex && !constraint_.excludedInterfaces.empty() ) {
      for ( uint32_t e : graph.out( constraint_.ownSource ) ) {
         admitted_[ e ] &= !hasExcludedInterface( graph, CspfEdge{ e } );
      }
   }
   for ( CspfVertex vertex : constraint_.excludedVertices ) {
      refuse( graph.in( vertex ) );
   }
   for ( CspfEdge edge : constraint_.excludedEdges ) {
      admitted_[ index( edge ) ] = 0;
   }
}

void
CspfLinkFilter::refuseOverloaded( const CspfGraph & graph ) {
   for ( CspfEdge edge : constraint_.overloadedEdges ) {
      admitted_[ index( edge ) ] = 0;
   }
   for ( CspfVertex router : graph.overloadedRouters() ) {
      if ( constraint_.overloadRule == CspfOverloadRule::avoid ) {
         refuse( graph.in( router ) );
      } else if ( router != constraint_.root ) {
         refuse( graph.out( router ) );
      }
   }
}

bool
CspfLinkFilter::leavesOwnSource( const CspfGraph & graph, CspfEdge edge ) const {
   return graph.from( edge ) == constraint_.ownSource;
}

bool
CspfLinkFilter::overloadRefuses( const CspfGraph & graph, CspfEdge edge ) const {
   if ( contains( constraint_.overloadedEdges, edge ) ) {
      return true;
   }
   if ( constraint_.overloadRule == CspfOverloadRule::avoid ) {
      return graph.overloaded( graph.to( edge ) );
   }
   return graph.from( edge ) != constraint_.root && graph.overloaded( graph.from( edge ) );
}

bool
CspfLinkFilter::hasExcludedInterface( const CspfGraph & graph, CspfEdge edge ) const {
   return leavesOwnSource( graph, edge )
          && contains( constraint_.excludedInterfaces, graph.interface( edge ) );
}

bool
CspfLinkFilter::bandwidthAllows( const CspfGraph & graph, CspfEdge edge, uint64_t held ) const {
   uint64_t available = sumAtMost(
      truncated( graph.columns().unreservedAt( constraint_.setupPriority )[ index( edge ) ] ),
      held );
   for ( const auto & [ ownEdge, own ] : constraint_.ownReservations ) {
      if ( ownEdge == edge ) {
         available = sumAtMost( available, own );
      }
   }
   return available >= constraint_.bandwidth;
}

std::pair< uint32_t, uint32_t >
CspfLinkFilter::srlgCounts( const CspfGraph & graph, CspfEdge edge ) const {
   if ( isMembership( graph, edge ) ) {
      return { 0, 0 };
   }
   const auto srlgs = graph.srlgs( edge );
   const auto excludes = std::ranges::count_if( srlgs, [ & ]( uint32_t srlg ) {
      return std::ranges::binary_search( constraint_.excludedSrlgs, srlg );
   } );
   const auto lacks = std::ranges::count_if(
      constraint_.includedSrlgs, [ & ]( uint32_t srlg ) { return !contains( srlgs, srlg ); } );
   const bool counted = !constraint_.srlgOnlyLocal || leavesOwnSource( graph, edge );
   return { counted ? static_cast< uint32_t >( excludes ) : 0, static_cast< uint32_t >( lacks ) };
}

bool
CspfLinkFilter::carriesExcludedSrlg( const CspfGraph & graph, CspfEdge edge ) const {
   if ( constraint_.srlgOnlyLocal && !leavesOwnSource( graph, edge ) ) {
      return false;
   }
   return std::ranges::any_of( graph.srlgs( edge ), [ & ]( uint32_t srlg ) {
      return std::ranges::binary_search( constraint_.excludedSrlgs, srlg );
   } );
}

CspfRefusal
CspfLinkFilter::reason( const CspfGraph & graph, CspfEdge edge, uint64_t held ) const {
   const uint16_t topology = graph.columns().topology[ index( edge ) ];
   if ( constraint_.topology != CspfGraph::anyTopology && topology != constraint_.topology ) {
      return CspfRefusal::otherTopology;
   }
   if ( !graph.twoWay( edge ) ) {
      return CspfRefusal::twoWayCheck;
   }
   if ( overloadRefuses( graph, edge ) ) {
      return CspfRefusal::overload;
   }
   if ( hasExcludedInterface( graph, edge ) ) {
      return CspfRefusal::excludedInterface;
   }
   if ( contains( constraint_.excludedVertices, graph.to( edge ) ) ) {
      return CspfRefusal::excludedNode;
   }
   const CspfRefusal attribute =
      isMembership( graph, edge ) ? CspfRefusal::none : attributeReason( graph, edge );
   if ( attribute != CspfRefusal::none ) {
      return attribute;
   }
   if ( contains( constraint_.excludedEdges, edge ) ) {
      return CspfRefusal::linkAddress;
   }
   const bool enough = constraint_.bandwidth == 0 || isMembership( graph, edge )
                       || bandwidthAllows( graph, edge, held );
   return enough ? CspfRefusal::none : CspfRefusal::bandwidth;
}

CspfRefusal
CspfLinkFilter::attributeReason( const CspfGraph & graph, CspfEdge edge ) const {
   const CspfLinkConstraint & c = constraint_;
   const uint32_t groups = graph.columns().adminGroup[ index( edge ) ];
   if ( c.srlgStrict && carriesExcludedSrlg( graph, edge ) ) {
      return CspfRefusal::srlg;
   }
   if ( ( groups & c.includeAllAdminGroup ) != c.includeAllAdminGroup ) {
      return CspfRefusal::includeAllAdminGroup;
   }
   if ( c.includeAnyAdminGroup && !( groups & c.includeAnyAdminGroup ) ) {
      return CspfRefusal::includeAnyAdminGroup;
   }
   return groups & c.excludeAdminGroup ? CspfRefusal::excludeAdminGroup : CspfRefusal::none;
}

}
