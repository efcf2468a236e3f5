// What two records say of each other: the reverse of a point-to-point link, and who is on a LAN.
//
// An edge is paired with its reverse among the parallel links of two routers: with the one whose
// addresses mirror it, else with the one of equal rank in key order, unless the addresses say that
// they are ends of different links. The pairing is a function of the links that are there, not of
// the order in which they came; a pair that stays is not touched. It is worked out when the graph
// is asked for, once for however many of the links have changed. On a LAN the router lists the LAN
// (that is its link), and the LAN lists the router (the step back); where both do, the two edges
// are a pair.

#include "Cspf/Topology/TopoGraph.h"

#include <algorithm>

namespace Cspf {

namespace Igp = Routing::Topology;

namespace {

using Addresses = Lum::List< Igp::AddrIndex, Kivnet::IpGenAddr >;

Kivnet::IpGenAddr
first( const Addresses & addresses ) {
   const auto set = std::ranges::find_if( addresses, []( const auto & a ) { return !!a; } );
   return set == addresses.end() ? Kivnet::IpGenAddr() : *set;
}

template< class T >
void
dropRepeats( std::vector< T > & elements ) {
   std::ranges::sort( elements );
   elements.erase( std::unique( elements.begin(), elements.end() ), elements.end() );
}

}

// The reverses of point-to-point links.

/// In key order.
std::vector< TopoGraph::Parallel >
TopoGraph::parallels( CspfVertex from, CspfVertex to, std::uint16_t topology ) const {
   std::vector< Parallel > found;
   const auto leaving = graph_.out( from );
   const auto entering = graph_.in( to );
   for ( const std::uint32_t e : leaving.size() < entering.size() ? leaving : entering ) {
      const CspfEdge edge{ e };
      if ( graph_.from( edge ) == from && graph_.to( edge ) == to
           && graph_.columns().topology[ e ] == topology ) {
         found.push_back( { edge } );
      }
   }
   std::ranges::sort( found, {},
                      [ this ]( const Parallel & p ) { return graph_.keyRank( p.edge ); } );
   return found;
}

void
TopoGraph::pairingIs( CspfEdge link ) {
   if ( unpaired_.size() == unpaired_.capacity() ) {
      dropRepeats( unpaired_ );
      unpaired_.reserve( 2 * unpaired_.size() );
   }
   const auto [ low, high ] = std::minmax( { graph_.from( link ), graph_.to( link ) } );
   unpaired_.push_back( { low, high, graph_.columns().topology[ index( link ) ] } );
}

void
TopoGraph::pairAll() const {
   constexpr std::uint64_t few = 512;
   const std::uint64_t before = graph_.changes().end();
   auto unpaired = std::exchange( unpaired_, {} );
   dropRepeats( unpaired );
   for ( const auto & [ low, high, topology ] : unpaired ) {
      if ( graph_.isRouter( low ) && graph_.isRouter( high ) ) {
         pairParallels( parallels( low, high, topology ), parallels( high, low, topology ) );
      }
   }
   if ( graph_.changes().end() - before > std::max< std::uint64_t >( few, graph_.edges() ) ) {
      graph_.noteAll();  // a topology has come: nobody is helped by so long a list
   }
}

void
TopoGraph::pairParallels( std::vector< Parallel > forward,
                          std::vector< Parallel > backward ) const {
   pairMirrored( forward, backward );
   const auto pairEach = [ & ]( auto && match ) {
      auto first = backward.begin();  // that may be free
      for ( Parallel & one : forward ) {
         first = std::find_if( first, backward.end(), []( const auto & p ) { return !p.paired; } );
         const auto other =
            std::find_if( first, backward.end(), [ & ]( const Parallel & candidate ) {
               return !one.paired && !candidate.paired && match( one, candidate );
            } );
         if ( other != backward.end() ) {
            pair( one, *other, kind_ == TopoGraphKind::lfa );
         }
      }
   };
   pairEach( [ & ]( const Parallel & one, const Parallel & other ) {
      return !addressesContradict( neighbor( one.edge ), neighbor( other.edge ) );
   } );
   for ( const auto * side : { &forward, &backward } ) {
      for ( const Parallel & one : *side ) {
         if ( !one.paired ) {
            unpair( one.edge );
         }
         updateNextHop( one.edge );
      }
   }
}

namespace {

/// Calls `visit( address of this end, address of the far end )` for each two that a link knows.
template< class Visit >
void
forEachAddresses( const Igp::Neighbor & neighbor, Visit && visit ) {
   for ( const Kivnet::IpGenAddr & near : neighbor.interfaceAddrList() ) {
      for ( const Kivnet::IpGenAddr & far : neighbor.neighborAddrList() ) {
         if ( near && far ) {
            visit( near, far );
         }
      }
   }
}

/// Whether one has two addresses of the other, the other way round.
bool
mirror( const Igp::Neighbor & one, const Igp::Neighbor & other ) {
   bool found = false;
   forEachAddresses( one, [ & ]( const auto & near, const auto & far ) {
      forEachAddresses( other, [ & ]( const auto & otherNear, const auto & otherFar ) {
         found |= near == otherFar && far == otherNear;
      } );
   } );
   return found;
}

}

/// Pairs each link with the first free one, in key order, whose addresses mirror it: one that has
/// two of its addresses the other way round. O(n log n).
void
TopoGraph::pairMirrored( std::vector< Parallel > & forward,
                         std::vector< Parallel > & backward ) const {
   if ( forward.size() == 1 && backward.size() == 1 ) {
      if ( mirror( neighbor( forward[ 0 ].edge ), neighbor( backward[ 0 ].edge ) ) ) {
         pair( forward[ 0 ], backward[ 0 ], true );
      }
      return;
   }
   using Ends = std::pair< Kivnet::IpGenAddr, Kivnet::IpGenAddr >;  // of a forward link
   struct Candidates {
      std::vector< Parallel * > links;
      std::size_t next = 0;
   };
   std::map< Ends, Candidates > byEnds;
   for ( Parallel & other : backward ) {
      forEachAddresses( neighbor( other.edge ), [ & ]( const auto & near, const auto & far ) {
         byEnds[ { far, near } ].links.push_back( &other );
      } );
   }
   for ( Parallel & one : forward ) {
      Parallel * first = nullptr;
      forEachAddresses( neighbor( one.edge ), [ & ]( const auto & near, const auto & far ) {
         const auto at = byEnds.find( { near, far } );
         if ( at == byEnds.end() ) {
            return;
         }
         Candidates & candidates = at->second;
         while ( candidates.next < candidates.links.size()
                 && candidates.links[ candidates.next ]->paired ) {
            ++candidates.next;
         }
         if ( candidates.next < candidates.links.size() ) {
            Parallel * const candidate = candidates.links[ candidates.next ];
            first = first ? std::min( first, candidate ) : candidate;
         }
      } );
      if ( first ) {
         pair( one, *first, true );
      }
   }
}

void
TopoGraph::pair( Parallel & one, Parallel & other, bool agree ) const {
   one.paired = other.paired = true;
   if ( graph_.reverse( one.edge ) == other.edge && graph_.twoWay( one.edge ) == agree ) {
      return;
   }
   unpair( one.edge );
   unpair( other.edge );
   graph_.pairIs( one.edge, other.edge, agree );
}

void
TopoGraph::unpair( CspfEdge edge ) const {
   if ( graph_.reverse( edge ) != noEdge ) {
      graph_.unpair( edge );
   }
}

void
TopoGraph::updateNextHop( CspfEdge edge ) const {
   const CspfEdge reverse = graph_.reverse( edge );
   const Addresses & known = neighbor( edge ).neighborAddrList();
   const auto shared = std::ranges::find_if( known, [ & ]( const Kivnet::IpGenAddr & address ) {
      return reverse != noEdge && neighborHasInterfaceAddr( neighbor( reverse ), address );
   } );
   const Kivnet::IpGenAddr own =
      reverse == noEdge ? Kivnet::IpGenAddr() : first( neighbor( reverse ).interfaceAddrList() );
   nextHopIs( edge, shared != known.end() ? *shared : own ? own : first( known ) );
}

void
TopoGraph::nextHopIs( CspfEdge edge, const Kivnet::IpGenAddr & nextHop ) const {
   if ( nextHops_[ index( edge ) ] != nextHop ) {
      nextHops_.set( index( edge ), nextHop );
      graph_.noteEdge( edge );
   }
}

Kivnet::IpGenAddr
TopoGraph::interfaceAddr( CspfEdge link ) const {
   const CspfEdge reverse = graph_.reverse( link );
   return reverse != noEdge && graph_.kind( link ) == CspfEdgeKind::routerToRouter
             ? nextHop( reverse )
             : first( neighbor( link ).interfaceAddrList() );
}

// LANs.

CspfVertex
TopoGraph::networkIs( TopoRouter & network ) {
   CspfVertex & vertex = part( network ).network;
   if ( vertex == noVertex ) {
      vertex = graph_.addNetwork();
      meaningIs( vertex, { nullptr, &network } );
   }
   return vertex;
}

void
TopoGraph::networkDelIfUnused( TopoRouter & network ) {
   if ( graph_.in( part( network ).network ).empty() ) {
      graph_.removeVertex( std::exchange( part( network ).network, noVertex ) );
   }
}

CspfEdge
TopoGraph::membership( CspfEdge link ) const {
   return graph_.kind( link ) == CspfEdgeKind::routerToNetwork ? graph_.reverse( link ) : noEdge;
}

void
TopoGraph::updateMembership( TopoLink & link ) {
   const auto & topology = topologies_.at( link.topoId() );
   const auto * network = topology.topoDb->networkFind( { link.to->first.id() } );
   const bool listed = network && network->routerHas( link.from->first.id() );
   const CspfEdge edge = edgeOf( link );
   CspfEdge step = membership( edge );
   if ( !listed ) {
      removeEdge( step );
      return;
   }
   if ( step == noEdge ) {
      CspfEdgeRecord record;
      record.topology = topology.number;
      step = addEdge( graph_.to( edge ), graph_.from( edge ), record, link, neighbor( edge ) );
      graph_.pairIs( edge, step, true );
   }
   nextHopIs( step, first( neighbor( edge ).interfaceAddrList() ) );
}

void
TopoGraph::networkChanged( const TopoId & topoId, const Igp::NetworkId & networkId ) {
   const CspfVertex network = vertex( AllTopoNetworkId{ topoId, networkId } );
   if ( network == noVertex ) {
      return;
   }
   const auto entering = graph_.in( network );
   for ( const std::uint32_t e : std::vector( entering.begin(), entering.end() ) ) {
      updateMembership( *edgeMeanings_[ e ].link );
   }
}

}
