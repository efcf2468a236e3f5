#pragma once

#include "Cspf/Topology/TopoLinks.h"
#include "schema/CspfStatus.h"

#include <algorithm>
#include <span>
#include <utility>
#include <vector>

namespace Cspf {

/// The links that carry one interface address: mostly one, many where links borrow an address.
class IntfIpToNeighbor {
 public:
   using Link = const TopoLink *;

   IntfIpToNeighbor() = default;
   IntfIpToNeighbor( IntfIpToNeighbor && other ) noexcept
      : link_( std::exchange( other.link_, nullptr ) ) {}
   IntfIpToNeighbor & operator=( IntfIpToNeighbor && other ) noexcept {
      std::swap( link_, other.link_ );
      return *this;
   }
   ~IntfIpToNeighbor() { delete several(); }

   /// Their keys, in order. They name the owner by its TE router id (unset where it has none), the
   /// far end by its IGP vertex alone.
   std::vector< AllTopoNeighborKey > neighborSet() const;
   std::size_t neighbors() const noexcept { return links().size(); }
   bool neighborHas( const AllTopoNeighborKey & link ) const;
   bool operator==( const IntfIpToNeighbor & other ) const {
      return std::ranges::equal( links(), other.links() );
   }

   /// The links themselves, in key order; valid until the next change.
   std::span< const Link > links() const noexcept;
   /// Whether the link was not there.
   bool linkIs( const TopoLink & link );
   /// Whether it was.
   bool linkDel( const TopoLink & link );

 private:
   using Several = std::vector< Link >;
   Several * several() const noexcept;
   void severalIs( Several * several ) noexcept;

   Link link_ = nullptr;  // the only one; or, with its lowest bit set, a vector of them
};

class IntfIpToNeighborTable : public Lum::Entity {
   LUM_ENTITY( Cspf, IntfIpToNeighborTable );
   LUM_COLLECTION( intfIpToNeighbor, Kivnet::IpGenAddr, IntfIpToNeighbor );

   /// The entry, made where there is none, for a change of which others are told afterwards.
   IntfIpToNeighbor & entry( const Kivnet::IpGenAddr & intfIp ) {
      return intfIpToNeighbor_[ intfIp ];
   }
   void entryChanged( const Kivnet::IpGenAddr & intfIp ) {
      notify( &intfIpToNeighborAttribute, &intfIp );
   }
};

class AllTopoDbStatus;

/// Enters a link under an address that it has, and publishes its owner's TE router id for the
/// address. O(links with the address).
void addLinkToIntfIp( AllTopoDbStatus & allTopoDbStatus, const TopoLink & link,
                      const Kivnet::IpGenAddr & intfIp );
/// The link's owner has got another TE router id, or has none any more: so for the published row.
void linkOfIntfIpMoved( AllTopoDbStatus & allTopoDbStatus, const TopoLink & link,
                        const Kivnet::IpGenAddr & intfIp );
/// Takes the link out; the published row goes to a remaining link's owner, or away.
void deleteLinkFromIntfIp( AllTopoDbStatus & allTopoDbStatus, const TopoLink & link,
                           const Kivnet::IpGenAddr & intfIp );
/// The same by the link's key. Adding REQUIRES that its router lists the link.
void addNeighborKeyToIntfIp( const Lum::Ptr< AllTopoDbStatus > & allTopoDbStatus,
                             const AllTopoNeighborKey & allTopoNeighborKey,
                             const Kivnet::IpGenAddr & intfIp );
void deleteNeighborKeyFromIntfIp( const Lum::Ptr< AllTopoDbStatus > & allTopoDbStatus,
                                  const AllTopoNeighborKey & allTopoNeighborKey,
                                  const Kivnet::IpGenAddr & intfIp );
void addIntfIpToRouterId( const Lum::Ptr< IntfIpToRouterIdTable > & intfIpToRouterIdTable,
                          const Kivnet::IpGenAddr & intfIp, const Kivnet::IpGenAddr & teRouterId );
void deleteIntfIpToRouterId( const Lum::Ptr< IntfIpToRouterIdTable > & intfIpToRouterIdTable,
                             const Kivnet::IpGenAddr & intfIp );

}
