// Router LSAs say which links there are, network LSAs who is on a LAN, and opaque LSAs what each
// link is worth to traffic engineering; they meet at the router and its own address.

#include "tools/igp/OspfText.h"

#include <algorithm>
#include <bit>

namespace Igp {

namespace {

using Cspf::IgpRouterId;
using Kivnet::IpAddr;
using Kivnet::IpGenAddr;

constexpr std::uint32_t maxLinkMetric = 0xffff;

IgpRouterId
routerId( const IpAddr & id ) {
   return IgpRouterId( Cspf::VertexType::ospfRouter, id.stringValue() );
}

class AreaMaker {
 public:
   AreaMaker( const OspfProcess & process, const std::vector< Lsa > & lsas, Topology & topology,
              Findings & findings )
      : process_( process ),
        topology_( topology ),
        findings_( findings ) {
      for ( const Lsa & lsa : lsas ) {
         add( lsa );
      }
   }

   void make();

 private:
   using LsaKey = std::pair< IpAddr, IpAddr >;  ///< advertiser, id
   struct Lan {
      IgpRouterId pseudonode;
      Kivnet::IpGenPrefix prefix;
   };

   void add( const Lsa & lsa );
   void addLans();
   void addRouter( const Lsa & lsa );
   void addLink( Router & router, const Lsa & lsa, const OspfLink & said );
   void addTe( const IpAddr & router, const OspfLink & said, LinkEnd & link );
   void addTeOfUnnumbered( const IpAddr & id, Router & router );
   void nameInterface( LinkEnd & link, const IpAddr & data ) const;
   void guessRemotes();
   void findLanFaults();

   const OspfProcess & process_;
   Topology & topology_;
   Findings & findings_;
   std::map< LsaKey, const Lsa * > routers_, networks_, opaques_;  ///< the latest of each
   std::map< IpAddr, Lan > lans_;                                  ///< by the router's address
   std::map< IpAddr, std::vector< const OspfTeLink * > > te_;      ///< by advertiser, not yet used
};

/// Of two captures of one LSA the later one holds. Sequence numbers are signed, from the least up.
void
AreaMaker::add( const Lsa & lsa ) {
   auto & known = lsa.kind == Lsa::Kind::router    ? routers_
                  : lsa.kind == Lsa::Kind::network ? networks_
                                                   : opaques_;
   const auto [ at, fresh ] = known.emplace( LsaKey( lsa.advertiser, lsa.id ), &lsa );
   if ( !fresh
        && static_cast< std::int32_t >( at->second->sequence )
              < static_cast< std::int32_t >( lsa.sequence ) ) {
      at->second = &lsa;
   }
}

/// A network LSA is named by an address, a pseudonode by a number of its router: one that follows
/// from the address, or the next free one.
void
AreaMaker::addLans() {
   std::map< IpAddr, std::set< std::uint8_t > > taken;
   for ( const auto & [ key, lsa ] : networks_ ) {
      auto & numbers = taken[ lsa->advertiser ];
      if ( numbers.size() == 255 ) {
         findings_.push_back( "network " + lsa->id.stringValue() + " of "
                              + lsa->advertiser.stringValue()
                              + ": its router has more than 255 networks; not used" );
         continue;
      }
      auto number = static_cast< std::uint8_t >( 1 + lsa->id.value() % 255 );
      while ( !numbers.insert( number ).second ) {
         number = static_cast< std::uint8_t >( number % 255 + 1 );
      }
      const IgpRouterId id( routerId( lsa->advertiser ).pseudonode( number ) );
      lans_[ lsa->id ] = { id, { lsa->id, static_cast< std::uint8_t >( lsa->mask ) } };
      auto & attached = topology_.lans[ id ];
      for ( const auto & member : lsa->attached ) {
         if ( routers_.contains( { member, member } ) ) {
            attached.insert( routerId( member ) );
         }
      }
   }
}

void
AreaMaker::make() {
   for ( const auto & [ key, lsa ] : opaques_ ) {
      if ( lsa->teLink ) {
         te_[ lsa->advertiser ].push_back( &*lsa->teLink );
      }
   }
   addLans();
   for ( const auto & [ key, lsa ] : routers_ ) {
      addRouter( *lsa );
   }
   for ( const auto & [ key, lsa ] : opaques_ ) {
      const auto router = topology_.routers.find( routerId( lsa->advertiser ) );
      if ( router != topology_.routers.end() && lsa->teRouterId ) {
         router->second.teRouterId = lsa->teRouterId;
      }
   }
   guessRemotes();
   findLanFaults();
   pairLinks( topology_, findings_ );
   findDuplicates( topology_, findings_ );
}

/// A router that no traffic may cross says so by the largest metric on every link (RFC 6987).
void
AreaMaker::addRouter( const Lsa & lsa ) {
   Router & router = topology_.routers[ routerId( lsa.advertiser ) ];
   router.name = lsa.advertiser.stringValue();
   for ( const OspfLink & said : lsa.links ) {
      addLink( router, lsa, said );
   }
   addTeOfUnnumbered( lsa.advertiser, router );
   router.overload =
      !router.links.empty() && std::ranges::all_of( router.links, [ & ]( const LinkEnd & link ) {
         return link.metric == maxLinkMetric;
      } );
}

void
AreaMaker::addLink( Router & router, const Lsa & lsa, const OspfLink & said ) {
   using Kind = OspfLink::Kind;
   if ( said.kind == Kind::stub ) {
      const int length = std::countl_one( said.data.value() );
      router.prefixes[ { said.id, static_cast< std::uint8_t >( length ) } ] = said.metric;
      return;
   }
   const auto lan = lans_.find( said.id );
   if ( said.kind == Kind::transit && lan == lans_.end() ) {
      findings_.push_back( "the link " + router.name + " to network " + said.id.stringValue()
                           + ": the far end says nothing of it" );
      return;
   }
   if ( said.kind != Kind::transit && said.kind != Kind::pointToPoint ) {
      findings_.push_back( "the virtual link " + router.name + " to " + said.id.stringValue()
                           + " is not used" );
      return;
   }
   LinkEnd link;
   link.lan = said.kind == Kind::transit;
   link.to = link.lan ? lan->second.pseudonode : routerId( said.id );
   link.metric = said.metric;
   if ( said.data.value() >> 24 != 0 ) {  // else the index of an unnumbered interface
      link.local.push_back( said.data );
   }
   if ( link.lan ) {
      router.prefixes[ lan->second.prefix ] = said.metric;
   }
   addTe( lsa.advertiser, said, link );
   if ( lsa.advertiser == process_.self ) {
      nameInterface( link, said.data );
   }
   router.links.push_back( std::move( link ) );
}

/// Of the TE links with that address the one to that neighbour, for an interface without an address
/// of its own may have borrowed it.
void
AreaMaker::addTe( const IpAddr & router, const OspfLink & said, LinkEnd & link ) {
   const auto all = te_.find( router );
   if ( all == te_.end() || link.local.empty() ) {
      return;
   }
   auto found = all->second.end();
   for ( auto at = all->second.begin(); at != all->second.end(); ++at ) {
      if ( std::ranges::find( ( *at )->local, said.data ) != ( *at )->local.end()
           && ( found == all->second.end() || ( *at )->id == said.id ) ) {
         found = at;
      }
   }
   if ( found == all->second.end() ) {
      return;
   }
   const OspfTeLink & te = **found;
   all->second.erase( found );
   link.te = te.attributes;
   std::ranges::copy_if( te.local, std::back_inserter( link.local ),
                         [ & ]( const IpGenAddr & more ) { return more != said.data; } );
   if ( !link.lan ) {
      link.remote = te.remote;
   }
}

/// Interfaces without an address borrow one, all of them the same. So the neighbour and the order
/// say which TE link is which.
void
AreaMaker::addTeOfUnnumbered( const IpAddr & id, Router & router ) {
   std::map< IgpRouterId, std::vector< const OspfTeLink * > > left;
   for ( const OspfTeLink * te : te_[ id ] ) {
      left[ routerId( te->id ) ].push_back( te );
   }
   std::map< IgpRouterId, std::vector< LinkEnd * > > unnumbered;
   for ( LinkEnd & link : router.links ) {
      if ( !link.lan && link.local.empty() ) {
         unnumbered[ link.to ].push_back( &link );
      }
   }
   for ( const auto & [ to, links ] : unnumbered ) {
      const auto & said = left[ to ];
      for ( std::size_t i = 0; said.size() == links.size() && i < links.size(); ++i ) {
         links[ i ]->te = said[ i ]->attributes;
      }
      if ( !said.empty() && said.size() != links.size() ) {
         findings_.push_back( std::to_string( said.size() ) + " TE links " + router.name + " to "
                              + to.stringValue() + " for " + std::to_string( links.size() )
                              + " links without addresses: not used" );
      }
   }
}

void
AreaMaker::nameInterface( LinkEnd & link, const IpAddr & data ) const {
   if ( link.local.empty() ) {
      const auto at = process_.unnumbered.find( data.value() );
      link.intf = at == process_.unnumbered.end() ? std::string() : at->second;
   } else if ( const auto at = process_.interfaces.find( link.local.front() );
               at != process_.interfaces.end() ) {
      link.intf = at->second;
   }
}

/// A router LSA has the near address only. The far one is that of the neighbour's link back which
/// is in the same subnet, for both ends advertise the subnet as a stub.
void
AreaMaker::guessRemotes() {
   const auto subnet = []( const Router & router, const IpGenAddr & address ) {
      Kivnet::IpGenPrefix longest;
      for ( const auto & [ prefix, metric ] : router.prefixes ) {
         if ( !prefix.isHost() && prefix.contains( address )
              && ( !longest || prefix.length() > longest.length() ) ) {
            longest = prefix;
         }
      }
      return longest;
   };
   for ( auto & [ id, router ] : topology_.routers ) {
      for ( LinkEnd & link : router.links ) {
         const auto far = topology_.routers.find( link.to );
         if ( link.lan || link.local.empty() || !link.remote.empty()
              || far == topology_.routers.end() ) {
            continue;
         }
         const auto shared = subnet( router, link.local.front() );
         for ( const LinkEnd & back : far->second.links ) {
            if ( shared && back.to == id && !back.local.empty()
                 && shared.contains( back.local.front() ) ) {
               link.remote = back.local;
            }
         }
      }
   }
}

void
AreaMaker::findLanFaults() {
   for ( const auto & [ lan, attached ] : topology_.lans ) {
      for ( const auto & id : attached ) {
         const Router & router = topology_.routers.at( id );
         if ( std::ranges::find( router.links, lan, &LinkEnd::to ) == router.links.end() ) {
            findings_.push_back( "LAN " + lan.stringValue() + " to " + router.name
                                 + ": the far end says nothing of it" );
         }
      }
   }
}

}

OspfNetwork
ospfNetwork( const OspfCapture & capture, std::uint32_t number ) {
   OspfNetwork network;
   network.findings = capture.findings;
   for ( const auto & [ vrf, process ] : capture.processes ) {
      for ( const auto & [ area, lsas ] : process.areas ) {
         Topology topology;
         topology.name = "area-" + area.stringValue();
         topology.vrf = vrf;
         topology.id = { Cspf::IgpSource::ospf, number, area.value() };
         topology.self = process.self ? routerId( process.self ) : IgpRouterId();
         AreaMaker( process, lsas, topology, network.findings ).make();
         network.topologies.push_back( std::move( topology ) );
      }
   }
   return network;
}

}
