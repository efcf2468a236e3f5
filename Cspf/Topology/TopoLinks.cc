// The records of links, under names of which each part is kept once; and how the addresses of a
// link's two ends tell that they are its ends.

#include "Cspf/Topology/TopoLinks.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace Cspf {

using Routing::Topology::NeighborKey;

namespace {

using Links = Lum::PackedVector< TopoLink * >;

/// Whether a link stands before a key of the same router.
bool
isBefore( const TopoLink & link, const NeighborKey & key ) {
   return std::tie( link.neighborType, link.to->first.id(), link.linkId )
          < std::forward_as_tuple( key.neighborType(), key.neighborId(), key.linkId() );
}

/// Where among its router's links that one stands, or would stand.
std::uint32_t
placeOf( Links & links, const NeighborKey & key ) {
   if ( !links.empty() && isBefore( *links.back(), key ) ) {
      return links.size();
   }
   const auto * const at =
      std::partition_point( links.begin(), links.end(),
                            [ & ]( const TopoLink * link ) { return isBefore( *link, key ); } );
   return static_cast< std::uint32_t >( at - links.begin() );
}

}

bool
TopoLinks::InOrder::previous( Position & at ) const {
   if ( at.place > 0 ) {
      --at.place;
      return true;
   }
   if ( at.router == routers->begin() ) {
      return false;
   }
   --at.router;
   at.place = at.router->second.links.size();
   return true;
}

bool
TopoLinks::InOrder::next( Position & at ) const {
   if ( at.place < at.router->second.links.size() ) {
      ++at.place;
      return true;
   }
   if ( std::next( at.router ) == routers->end() ) {
      return false;
   }
   at = { std::next( at.router ), 0 };
   return true;
}

std::uint64_t &
TopoLinks::InOrder::rank( const Position & at ) const {
   TopoRouterParts & router = at.router->second;
   return at.place == 0 ? router.rank : router.links.begin()[ at.place - 1 ]->rank;
}

void
TopoLinks::rankIs( const InOrder::Position & at ) {
   Ranking< 63, InOrder >( { &routers_ } ).rankIs( at, [ this ]( const InOrder::Position & moved ) {
      if ( moved.place > 0 ) {
         moved_( *moved.router->second.links.begin()[ moved.place - 1 ] );
      }
   } );
}

TopoLinks::~TopoLinks() {
   for ( auto & [ name, router ] : routers_ ) {
      for ( const TopoLink * link : router.links ) {
         delete link;
      }
   }
}

TopoRouter *
TopoLinks::router( const TopoId & topoId, const IgpRouterId & id ) {
   const auto at = byName_.find( { topoId, id } );
   return at == byName_.end() ? nullptr : &**at;
}

TopoLinks::Routers::iterator
TopoLinks::routerAt( const TopoId & topoId, const IgpRouterId & id ) {
   const TopoRouterName name{ topoId, id };
   if ( const auto present = byName_.find( name ); present != byName_.end() ) {
      return *present;
   }
   const auto at = routers_.try_emplace( name ).first;
   byName_.insertOfKey( name, at );
   rankIs( { at, 0 } );
   return at;
}

TopoRouter &
TopoLinks::routerIs( const TopoId & topoId, const IgpRouterId & id ) {
   return *routerAt( topoId, id );
}

void
TopoLinks::routerDelIfUnused( TopoRouter & router ) {
   const auto takesPart = []( const TopoRouterParts::Part & part ) { return part.node; };
   TopoRouterParts & parts = router.second;
   if ( parts.links.empty() && parts.entering == 0
        && std::ranges::none_of( parts.parts, takesPart ) ) {
      const auto named = byName_.find( router.first );
      const auto at = *named;
      byName_.erase( named );
      routers_.erase( at );
   }
}

std::vector< TopoRouter * >
TopoLinks::routersOf( const TopoId & topoId ) {
   std::vector< TopoRouter * > routers;
   for ( auto at = routers_.lower_bound( { topoId, {} } );
         at != routers_.end() && at->first.topoId() == topoId; ++at ) {
      routers.push_back( &*at );
   }
   return routers;
}

TopoLink *
TopoLinks::find( const TopoId & topoId, const NeighborKey & key ) {
   TopoRouter * const from = router( topoId, key.routerId() );
   const std::uint32_t place = from ? placeOf( from->second.links, key ) : 0;
   TopoLink * const link =
      from && place < from->second.links.size() ? from->second.links.begin()[ place ] : nullptr;
   return link && link->neighborKey() == key ? link : nullptr;
}

TopoLink *
TopoLinks::tryInsert( Routers::iterator from, const NeighborKey & key ) {
   Links & links = from->second.links;
   const std::uint32_t place = placeOf( links, key );
   if ( place < links.size() && links.begin()[ place ]->neighborKey() == key ) {
      return nullptr;
   }
   TopoRouter & to = routerIs( from->first.topoId(), key.neighborId() );
   auto * const link = new TopoLink{ &*from, &to, key.linkId(), key.neighborType() };
   links.insert( links.begin() + place, link );
   ++to.second.entering;
   rankIs( { from, place + 1 } );
   return link;
}

void
TopoLinks::erase( TopoLink & link ) {
   TopoRouter & from = *link.from;
   TopoRouter & to = *link.to;
   Links & links = from.second.links;
   auto * const at = links.begin() + placeOf( links, link.neighborKey() );
   links.erase( at, at + 1 );
   delete &link;
   --to.second.entering;
   if ( &to != &from ) {
      routerDelIfUnused( to );
   }
   routerDelIfUnused( from );
}

void
TopoLinks::forget( TopoGraphKind kind ) {
   for ( auto next = routers_.begin(); next != routers_.end(); ) {
      TopoRouter & router = *next++;
      for ( TopoLink * link : router.second.links ) {
         link->at( kind ) = noEdge;
      }
      router.second.at( kind ) = {};
      routerDelIfUnused( router );
   }
}

bool
neighborHasInterfaceAddr( const Routing::Topology::Neighbor & neighbor,
                          const Kivnet::IpGenAddr & address ) {
   const auto & addresses = neighbor.interfaceAddrList();
   return address && std::ranges::find( addresses, address ) != addresses.end();
}

bool
addressesMirror( const Routing::Topology::Neighbor & neighbor,
                 const Routing::Topology::Neighbor & reverseNeighbor ) {
   const auto knows = []( const Routing::Topology::Neighbor & one,
                          const Routing::Topology::Neighbor & other ) {
      return std::ranges::any_of( one.neighborAddrList(), [ & ]( const auto & address ) {
         return neighborHasInterfaceAddr( other, address );
      } );
   };
   return knows( neighbor, reverseNeighbor ) && knows( reverseNeighbor, neighbor );
}

bool
addressesContradict( const Routing::Topology::Neighbor & neighbor,
                     const Routing::Topology::Neighbor & reverseNeighbor ) {
   const auto anyIsSet = []( const auto & addresses ) {
      return std::ranges::any_of( addresses, []( const auto & address ) { return !!address; } );
   };
   const auto contradicts = [ & ]( const auto & one, const auto & other ) {
      const auto & known = one.neighborAddrList();
      return anyIsSet( known ) && anyIsSet( other.interfaceAddrList() )
             && std::ranges::none_of( known, [ & ]( const auto & address ) {
                   return neighborHasInterfaceAddr( other, address );
                } );
   };
   return contradicts( neighbor, reverseNeighbor ) || contradicts( reverseNeighbor, neighbor );
}

}
