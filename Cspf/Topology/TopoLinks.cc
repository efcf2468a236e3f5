// How the addresses of a link's two ends tell that they are its ends.

#include "Cspf/Topology/TopoLinks.h"

#include <algorithm>

namespace Cspf {

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
