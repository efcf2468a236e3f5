#include "tools/igp/Topology.h"

#include <algorithm>

namespace Igp {

namespace {

using Cspf::IgpRouterId;

bool
shareAny( const Addresses & a, const Addresses & b ) {
   return std::ranges::any_of(
      a, [ & ]( const auto & address ) { return std::ranges::find( b, address ) != b.end(); } );
}

bool
mirror( const LinkEnd & one, const LinkEnd & other ) {
   return shareAny( one.local, other.remote ) && shareAny( one.remote, other.local );
}

/// Each end says nothing, or what the other says as well; and they share something.
bool
agree( const LinkEnd & one, const LinkEnd & other ) {
   const auto fits = []( const Addresses & a, const Addresses & b ) {
      return a.empty() || b.empty() || shareAny( a, b );
   };
   return fits( one.local, other.remote ) && fits( one.remote, other.local )
          && ( shareAny( one.local, other.remote ) || shareAny( one.remote, other.local ) );
}

bool
nameless( const LinkEnd & one, const LinkEnd & other ) {
   return one.local.empty() && one.remote.empty() && other.local.empty() && other.remote.empty();
}

/// Neither end names an address that the other one would have to know.
bool
silent( const LinkEnd & one, const LinkEnd & other ) {
   return ( one.local.empty() || other.remote.empty() )
          && ( one.remote.empty() || other.local.empty() );
}

class Pairing {
 public:
   Pairing( Topology & topology, Findings & findings )
      : topology_( topology ),
        findings_( findings ) {}

   void pairAll();

 private:
   using Index = std::vector< std::size_t >;

   void dropLoops();
   static Index linksTo( const Router & router, const IgpRouterId & to );
   void pairBetween( const IgpRouterId & low, const IgpRouterId & high );
   template< class Match >
   std::size_t pairEach( Router & a, const Index & aLinks, Router & b, const Index & bLinks,
                         Match match );
   void tellUnpaired( const Router & from, const Index & links, const std::string & to );
   void number( Router & router, const IgpRouterId & id );

   Topology & topology_;
   Findings & findings_;
};

Pairing::Index
Pairing::linksTo( const Router & router, const IgpRouterId & to ) {
   Index found;
   for ( std::size_t i = 0; i < router.links.size(); ++i ) {
      if ( !router.links[ i ].lan && router.links[ i ].to == to ) {
         found.push_back( i );
      }
   }
   return found;
}

template< class Match >
std::size_t
Pairing::pairEach( Router & a, const Index & aLinks, Router & b, const Index & bLinks,
                   Match match ) {
   std::size_t paired = 0;
   for ( const std::size_t i : aLinks ) {
      LinkEnd & one = a.links[ i ];
      const auto at = std::ranges::find_if( bLinks, [ & ]( std::size_t j ) {
         return !one.reverse && !b.links[ j ].reverse && match( one, b.links[ j ] );
      } );
      if ( at == bLinks.end() ) {
         continue;
      }
      LinkEnd & other = b.links[ *at ];
      one.reverse = *at;
      other.reverse = i;
      const auto fill = []( Addresses & to, const Addresses & from ) {
         to = to.empty() ? from : to;
      };
      fill( one.local, other.remote );
      fill( one.remote, other.local );
      fill( other.local, one.remote );
      fill( other.remote, one.local );
      ++paired;
   }
   return paired;
}

void
Pairing::tellUnpaired( const Router & from, const Index & links, const std::string & to ) {
   for ( const std::size_t i : links ) {
      if ( !from.links[ i ].reverse ) {
         findings_.push_back( "the link " + from.name + " to " + to
                              + ( from.links[ i ].local.empty()
                                     ? std::string()
                                     : " from " + from.links[ i ].local.front().stringValue() )
                              + ": the far end says nothing of it" );
      }
   }
}

void
Pairing::pairBetween( const IgpRouterId & low, const IgpRouterId & high ) {
   Router & a = topology_.routers.at( low );
   Router & b = topology_.routers.at( high );
   const Index aLinks = linksTo( a, high ), bLinks = linksTo( b, low );
   pairEach( a, aLinks, b, bLinks, mirror );
   pairEach( a, aLinks, b, bLinks, agree );
   const std::size_t unnumbered = pairEach( a, aLinks, b, bLinks, nameless );
   if ( unnumbered + pairEach( a, aLinks, b, bLinks, silent ) > 1 ) {
      findings_.push_back( "links " + a.name + " to " + b.name
                           + ": without addresses, so paired in the order in which they stand" );
   }
   tellUnpaired( a, aLinks, b.name );
   tellUnpaired( b, bLinks, a.name );
}

std::uint32_t
numberOf( const Kivnet::IpGenAddr & address ) {
   if ( address.af() == Kivnet::AddressFamily::ipv4 ) {
      return address.v4().value();
   }
   const Kivnet::Ip6Addr::Bytes bytes = address.v6().bytes();
   std::uint32_t number = 0;
   for ( const std::uint8_t byte : bytes ) {
      number = number * 31 + byte;
   }
   return number;
}

/// A link is numbered by the address of its lower end, which no parallel link has; without
/// addresses, by its place among the links to that neighbour.
void
Pairing::number( Router & router, const IgpRouterId & id ) {
   std::map< IgpRouterId, std::set< std::uint32_t > > taken;
   for ( LinkEnd & link : router.links ) {
      auto & numbers = taken[ link.to ];
      if ( link.lan ) {
         link.linkId = static_cast< std::uint32_t >( numbers.size() );
      } else {
         const Addresses & lower = id < link.to ? link.local : link.remote;
         link.linkId = lower.empty() ? static_cast< std::uint32_t >( numbers.size() + 1 )
                                     : numberOf( lower.front() );
      }
      while ( !numbers.insert( link.linkId ).second ) {
         ++link.linkId;
      }
   }
}

void
Pairing::dropLoops() {
   for ( auto & [ id, router ] : topology_.routers ) {
      const auto own = [ &own = id ]( const LinkEnd & link ) { return link.to == own; };
      if ( std::erase_if( router.links, own ) > 0 ) {
         findings_.push_back( "the link " + router.name + " to itself is not used" );
      }
   }
}

void
Pairing::pairAll() {
   dropLoops();
   for ( auto & [ id, router ] : topology_.routers ) {
      std::set< IgpRouterId > neighbors;
      for ( const LinkEnd & link : router.links ) {
         if ( !link.lan ) {
            neighbors.insert( link.to );
         }
      }
      for ( const auto & to : neighbors ) {
         const auto there = topology_.routers.find( to );
         if ( there == topology_.routers.end() ) {
            tellUnpaired( router, linksTo( router, to ), to.stringValue() );
         } else if ( id < to || linksTo( there->second, id ).empty() ) {
            pairBetween( std::min( id, to ), std::max( id, to ) );
         }
      }
   }
   for ( auto & [ id, router ] : topology_.routers ) {
      number( router, id );
   }
}

}

void
pairLinks( Topology & topology, Findings & findings ) {
   Pairing( topology, findings ).pairAll();
}

void
findDuplicates( const Topology & topology, Findings & findings ) {
   std::map< Kivnet::IpGenAddr, std::string > owners;
   for ( const auto & [ id, router ] : topology.routers ) {
      if ( !router.teRouterId ) {
         continue;
      }
      const auto [ at, fresh ] = owners.emplace( router.teRouterId, router.name );
      if ( !fresh ) {
         findings.push_back( "TE router id " + router.teRouterId.stringValue() + ": of "
                             + at->second + " and of " + router.name );
      }
   }
}

}
