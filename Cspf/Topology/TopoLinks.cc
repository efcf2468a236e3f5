// The records of links, under names of which each part is kept once; and how the addresses of a
// link's two ends tell that they are its ends.

#include "Cspf/Topology/TopoLinks.h"

#include <algorithm>

namespace Cspf {

using Routing::Topology::NeighborKey;

std::strong_ordering
TopoLinkName::operator<=>( const TopoLinkName & other ) const {
   if ( from != other.from ) {
      if ( const auto order = from->first <=> other.from->first; order != 0 ) {
         return order;
      }
   }
   if ( const auto order = neighborType <=> other.neighborType; order != 0 ) {
      return order;
   }
   if ( to != other.to ) {
      if ( const auto order = to->first.id() <=> other.to->first.id(); order != 0 ) {
         return order;
      }
   }
   return linkId <=> other.linkId;
}

TopoRouter *
TopoLinks::router( const TopoId & topoId, const IgpRouterId & id ) {
   const auto at = routers_.find( { topoId, id } );
   return at == routers_.end() ? nullptr : &*at;
}

TopoRouter &
TopoLinks::routerIs( const TopoId & topoId, const IgpRouterId & id ) {
   return *routers_.try_emplace( { topoId, id } ).first;
}

void
TopoLinks::routerDelIfUnused( TopoRouter & router ) {
   const auto takesPart = []( const TopoRouterParts::Part & part ) { return part.node; };
   if ( router.second.links == 0 && std::ranges::none_of( router.second.parts, takesPart ) ) {
      routers_.erase( TopoRouterName( router.first ) );
   }
}

TopoLinks::Entry *
TopoLinks::find( const TopoId & topoId, const NeighborKey & key ) {
   TopoRouter * const from = router( topoId, key.routerId() );
   TopoRouter * const to = from ? router( topoId, key.neighborId() ) : nullptr;
   return to ? links_.find( { from, to, key.linkId(), key.neighborType() } ) : nullptr;
}

void
TopoLinks::erase( Entry & link ) {
   const TopoLinkName name = link.first;
   links_.erase( name );
   --name.from->second.links;
   --name.to->second.links;
   if ( name.to != name.from ) {
      routerDelIfUnused( *name.to );
   }
   routerDelIfUnused( *name.from );
}

void
TopoLinks::forget( TopoGraphKind kind ) {
   for ( Entry & link : links_ ) {
      link.second.value.at( kind ) = noEdge;
   }
   for ( auto at = routers_.begin(); at != routers_.end(); ) {
      TopoRouter & router = *at++;
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
