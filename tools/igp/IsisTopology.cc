// Packets name their owner by host name and neighbours by system id; the table of host names joins
// the two. Where several routers share the shown name, the order of the database, which is that of
// the system ids, tells them apart.

#include "tools/igp/IsisTopology.h"

#include "tools/igp/IsisHostnames.h"

#include <algorithm>

namespace Igp {

namespace {

using Cspf::IgpRouterId;
using Kivnet::AddressFamily;
using Routing::Isis::SystemId;

using Fragments = std::vector< const Lsp * >;

/// The packets of one area and level, by owner.
struct LevelDatabase {
   std::string area;
   std::uint32_t level = 2;
   std::uint32_t areaNumber = 0;
   std::map< IgpRouterId, Fragments > routers;  ///< fragment 0 first
   std::map< IgpRouterId, Fragments > pseudonodes;

   bool any( bool Lsp::*flag ) const {
      return std::ranges::any_of(
         routers, [ & ]( const auto & entry ) { return entry.second.front()->*flag; } );
   }
};

/// Visits what the fragments say that `counts`. While a network moves from narrow metrics to wide
/// ones its routers say each thing twice: wide ones hold.
template< class Said, class Counts, class Visit >
void
forEachSaid( const Fragments & fragments, std::vector< Said > Lsp::*list, Counts counts,
             Visit visit ) {
   const bool wide = std::ranges::any_of( fragments, [ & ]( const Lsp * lsp ) {
      return std::ranges::any_of(
         lsp->*list, [ & ]( const Said & one ) { return counts( one ) && !one.narrow; } );
   } );
   for ( const Lsp * lsp : fragments ) {
      for ( const Said & one : lsp->*list ) {
         if ( counts( one ) && !( wide && one.narrow ) ) {
            visit( one );
         }
      }
   }
}

class NetworkMaker {
 public:
   NetworkMaker( const IsisCapture & capture, const L3::VrfName & vrf )
      : capture_( capture ),
        vrf_( vrf ),
        hostnames_( capture ) {}

   IsisNetwork make();

 private:
   std::vector< LevelDatabase > databases();
   std::optional< SystemId > ownerOf( const Lsp & lsp );
   void addLsp( LevelDatabase & database, const Lsp & lsp, const SystemId & id );
   void dropIncomplete( LevelDatabase & database );
   void addAdjacencies();

   void addFamily( const LevelDatabase & database, AddressFamily af );
   bool takesPart( const LevelDatabase & database, const IgpRouterId & id ) const;
   void addRouter( const LevelDatabase & database, const IgpRouterId & id );
   void addLinks( Router & router, const Fragments & fragments, const LevelDatabase & database );
   void addLink( Router & router, const Lsp::Neighbor & said, const LevelDatabase & database );
   void addPrefixes( Router & router, const Fragments & fragments );
   void addLan( const LevelDatabase & database, const IgpRouterId & id );
   void findLanFaults();
   void nameInterface( LinkEnd & link ) const;

   const IsisCapture & capture_;
   const L3::VrfName vrf_;
   const IsisHostnames hostnames_;
   const Lsp * previous_ = nullptr;
   std::optional< SystemId > previousOwner_;
   std::set< SystemId > seen_;  ///< owners of a fragment 0 in the database at hand
   IsisNetwork network_;

   // The topology at hand.
   Topology * topology_ = nullptr;
   bool ipv6Alone_ = false;
};

IsisNetwork
NetworkMaker::make() {
   network_.findings = capture_.findings;
   network_.self = capture_.self;
   for ( const LevelDatabase & database : databases() ) {
      addFamily( database, AddressFamily::ipv4 );
      addFamily( database, AddressFamily::ipv6 );
   }
   for ( Topology & topology : network_.topologies ) {
      topology.self = network_.self ? IgpRouterId( network_.self ) : IgpRouterId();
   }
   addAdjacencies();
   return std::move( network_ );
}

std::optional< SystemId >
NetworkMaker::ownerOf( const Lsp & lsp ) {
   if ( const auto id = SystemId::parse( lsp.owner ) ) {
      return id;
   }
   const auto place = []( const Lsp & one ) { return std::pair( one.pseudonode, one.fragment ); };
   if ( previous_ && previous_->owner == lsp.owner && place( *previous_ ) < place( lsp ) ) {
      return previousOwner_;
   }
   for ( const SystemId & id : hostnames_.candidates( lsp.owner, lsp.hostname ) ) {
      if ( !seen_.contains( id ) ) {
         return id;
      }
   }
   network_.findings.push_back( "LSP of " + lsp.owner
                                + ": no system id for that host name; not used" );
   return std::nullopt;
}

/// Of two captures of one packet the later one holds.
void
NetworkMaker::addLsp( LevelDatabase & database, const Lsp & lsp, const SystemId & id ) {
   const IgpRouterId router( id );
   auto & fragments = lsp.pseudonode ? database.pseudonodes[ IgpRouterId(
                         router.pseudonode( static_cast< std::uint8_t >( lsp.pseudonode ) ) ) ]
                                     : database.routers[ router ];
   const auto same = std::ranges::find( fragments, lsp.fragment, &Lsp::fragment );
   if ( same == fragments.end() ) {
      fragments.push_back( &lsp );
   } else if ( ( *same )->sequence < lsp.sequence ) {
      *same = &lsp;
   }
   if ( lsp.own && !network_.self ) {
      network_.self = id;
   }
}

/// Without its first fragment, and with it expired, a router says nothing.
void
NetworkMaker::dropIncomplete( LevelDatabase & database ) {
   for ( auto * owners : { &database.routers, &database.pseudonodes } ) {
      for ( auto at = owners->begin(); at != owners->end(); ) {
         auto & fragments = at->second;
         std::ranges::sort( fragments, {}, &Lsp::fragment );
         std::erase_if( fragments, []( const Lsp * lsp ) { return lsp->expired; } );
         if ( !fragments.empty() && fragments.front()->fragment == 0 ) {
            ++at;
            continue;
         }
         if ( !fragments.empty() ) {
            network_.findings.push_back( "LSPs of " + at->first.stringValue()
                                         + ": without the first one, so not used" );
         }
         at = owners->erase( at );
      }
   }
}

std::vector< LevelDatabase >
NetworkMaker::databases() {
   std::vector< LevelDatabase > all;
   std::vector< std::string > areas;
   for ( const Lsp & lsp : capture_.lsps ) {
      auto at = std::ranges::find_if( all, [ & ]( const LevelDatabase & one ) {
         return one.area == lsp.area && one.level == lsp.level;
      } );
      if ( at == all.end() ) {
         auto area = std::ranges::find( areas, lsp.area );
         area = area == areas.end() ? areas.insert( area, lsp.area ) : area;
         all.push_back(
            { lsp.area, lsp.level, static_cast< std::uint32_t >( area - areas.begin() ), {}, {} } );
         at = std::prev( all.end() );
      }
      if ( lsp.first ) {
         seen_.clear();
         previous_ = nullptr;
      }
      if ( const auto id = ownerOf( lsp ) ) {
         addLsp( *at, lsp, *id );
         seen_.insert( *id );
         previousOwner_ = id;
         previous_ = &lsp;
      }
   }
   for ( LevelDatabase & database : all ) {
      dropIncomplete( database );
   }
   return all;
}

bool
NetworkMaker::takesPart( const LevelDatabase & database, const IgpRouterId & id ) const {
   const auto at = database.routers.find( id );
   if ( at == database.routers.end() ) {
      return false;
   }
   const Lsp & lsp = *at->second.front();
   return topology_->af == AddressFamily::ipv4 ? lsp.speaksIpv4 || !lsp.speaksIpv6
          : ipv6Alone_                         ? lsp.inIpv6Topology
                                               : lsp.speaksIpv6;
}

void
NetworkMaker::addFamily( const LevelDatabase & database, AddressFamily af ) {
   ipv6Alone_ = af == AddressFamily::ipv6 && database.any( &Lsp::inIpv6Topology );
   if ( af == AddressFamily::ipv6 && !database.any( &Lsp::speaksIpv6 ) ) {
      return;
   }
   Topology topology;
   topology.name = ( database.area.empty() ? "isis" : database.area ) + "-l"
                   + std::to_string( database.level )
                   + ( af == AddressFamily::ipv6 ? "-ipv6" : "" );
   topology.vrf = vrf_;
   topology.af = af;
   topology.id = { Cspf::IgpSource::isis, database.level, database.areaNumber };
   topology_ = &topology;
   for ( const auto & [ id, fragments ] : database.routers ) {
      if ( takesPart( database, id ) ) {
         addRouter( database, id );
      }
   }
   for ( const auto & [ id, fragments ] : database.pseudonodes ) {
      addLan( database, id );
   }
   findLanFaults();
   pairLinks( topology, network_.findings );
   findDuplicates( topology, network_.findings );
   topology_ = nullptr;
   network_.topologies.push_back( std::move( topology ) );
}

void
NetworkMaker::addRouter( const LevelDatabase & database, const IgpRouterId & id ) {
   const auto & fragments = database.routers.at( id );
   const Lsp & lsp = *fragments.front();
   Router & router = topology_->routers[ id ];
   router.name = lsp.hostname.empty() ? id.stringValue() : lsp.hostname;
   const bool ipv6 = topology_->af == AddressFamily::ipv6;
   router.teRouterId = ipv6 && lsp.teRouterId6 ? lsp.teRouterId6 : lsp.teRouterId;
   router.overload = ipv6Alone_ ? lsp.ipv6Overload : lsp.overload;
   addLinks( router, fragments, database );
   addPrefixes( router, fragments );
   if ( capture_.self == id.isisSystemId() ) {
      for ( LinkEnd & link : router.links ) {
         nameInterface( link );
      }
   }
}

void
NetworkMaker::addLinks( Router & router, const Fragments & fragments,
                        const LevelDatabase & database ) {
   forEachSaid(
      fragments, &Lsp::neighbors,
      [ & ]( const Lsp::Neighbor & said ) { return said.ipv6Topology == ipv6Alone_; },
      [ & ]( const Lsp::Neighbor & said ) { addLink( router, said, database ); } );
}

void
NetworkMaker::addLink( Router & router, const Lsp::Neighbor & said,
                       const LevelDatabase & database ) {
   const auto id = hostnames_.id( said.owner );
   if ( !id ) {
      network_.findings.push_back( "the link " + router.name + " to " + said.owner
                                   + ": no system id for that host name; not used" );
      return;
   }
   const IgpRouterId to( *id );
   if ( !said.pseudonode && database.routers.contains( to ) && !takesPart( database, to ) ) {
      return;
   }
   LinkEnd link = said.end;
   link.lan = said.pseudonode != 0;
   link.to = link.lan
                ? IgpRouterId( to.pseudonode( static_cast< std::uint8_t >( said.pseudonode ) ) )
                : to;
   for ( Addresses * list : { &link.local, &link.remote } ) {
      std::erase_if( *list, [ & ]( const auto & one ) { return one.af() != topology_->af; } );
   }
   router.links.push_back( std::move( link ) );
}

void
NetworkMaker::addPrefixes( Router & router, const Fragments & fragments ) {
   forEachSaid(
      fragments, &Lsp::prefixes,
      [ & ]( const Lsp::Prefix & said ) {
         return said.prefix.af() == topology_->af && said.ipv6Topology == ipv6Alone_;
      },
      [ & ]( const Lsp::Prefix & said ) {
         const auto at = router.prefixes.emplace( said.prefix, said.metric ).first;
         at->second = std::min( at->second, said.metric );
      } );
}

void
NetworkMaker::addLan( const LevelDatabase & database, const IgpRouterId & id ) {
   auto & attached = topology_->lans[ id ];
   for ( const Lsp * lsp : database.pseudonodes.at( id ) ) {
      for ( const Lsp::Neighbor & said : lsp->neighbors ) {
         const auto member = hostnames_.id( said.owner );
         if ( member && takesPart( database, IgpRouterId( *member ) ) ) {
            attached.insert( IgpRouterId( *member ) );
         }
      }
   }
}

void
NetworkMaker::findLanFaults() {
   for ( const auto & [ id, router ] : topology_->routers ) {
      for ( const LinkEnd & link : router.links ) {
         const auto lan = topology_->lans.find( link.to );
         if ( link.lan && ( lan == topology_->lans.end() || !lan->second.contains( id ) ) ) {
            network_.findings.push_back( "the link " + router.name + " to LAN "
                                         + link.to.stringValue()
                                         + ": the far end says nothing of it" );
         }
      }
   }
   for ( const auto & [ lan, attached ] : topology_->lans ) {
      for ( const auto & id : attached ) {
         const Router & router = topology_->routers.at( id );
         if ( std::ranges::find( router.links, lan, &LinkEnd::to ) == router.links.end() ) {
            network_.findings.push_back( "LAN " + lan.stringValue() + " to " + router.name
                                         + ": the far end says nothing of it" );
         }
      }
   }
}

/// By its own address, else by the neighbour behind it. An address that the packet leaves out is
/// known from the interface.
void
NetworkMaker::nameInterface( LinkEnd & link ) const {
   for ( const auto & address : link.local ) {
      if ( const auto at = capture_.interfaces.find( address ); at != capture_.interfaces.end() ) {
         link.intf = at->second;
         return;
      }
   }
   const IsisAdjacency * only = nullptr;
   std::size_t count = 0;
   for ( const IsisAdjacency & adjacency : capture_.adjacencies ) {
      const auto id = hostnames_.id( adjacency.owner );
      if ( !id || IgpRouterId( *id ) != link.to ) {
         continue;
      }
      only = &adjacency;
      ++count;
      const bool known = std::ranges::any_of( link.remote, [ & ]( const auto & address ) {
         return std::ranges::find( adjacency.addresses, address ) != adjacency.addresses.end();
      } );
      if ( known ) {
         count = 1;
         break;
      }
   }
   if ( count == 1 ) {
      link.intf = only->intf;
      for ( const auto & [ address, intf ] : capture_.interfaces ) {
         if ( link.local.empty() && intf == link.intf && address.af() == topology_->af ) {
            link.local.push_back( address );
         }
      }
   }
}

void
NetworkMaker::addAdjacencies() {
   for ( const IsisAdjacency & adjacency : capture_.adjacencies ) {
      const auto id = hostnames_.id( adjacency.owner );
      if ( !id ) {
         network_.findings.push_back( "neighbour " + adjacency.owner + " on " + adjacency.intf
                                      + ": no system id for that host name; not used" );
         continue;
      }
      auto & entry = network_.adjacencies[ { Kivnet::IntfId( adjacency.intf ), *id } ];
      for ( const auto & address : adjacency.addresses ) {
         auto & nexthop = address.af() == AddressFamily::ipv4 ? entry.nexthopV4_ : entry.nexthopV6_;
         if ( !nexthop ) {
            nexthop = address;
         }
      }
   }
}

}

IsisNetwork
isisNetwork( const IsisCapture & capture, const L3::VrfName & vrf ) {
   return NetworkMaker( capture, vrf ).make();
}

}
