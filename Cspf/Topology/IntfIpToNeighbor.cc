// Interface addresses of links, and what is published of them.
//
// An address stands for the links that carry it. In the published table it stands for one router,
// an owner of such a link that has a TE router id.

#include "Cspf/Topology/IntfIpToNeighbor.h"

#include "Cspf/Topology/Store.h"
#include "platform/Lum/Assert.h"
#include "platform/Trace/Trace.h"

#include <algorithm>

namespace Cspf {

IntfIpToNeighbor::Several *
IntfIpToNeighbor::several() const noexcept {
   if ( !( reinterpret_cast< std::uintptr_t >( link_ ) & 1 ) ) {
      return nullptr;
   }
   auto * const marked = const_cast< char * >( reinterpret_cast< const char * >( link_ ) );
   return reinterpret_cast< Several * >( marked - 1 );
}

void
IntfIpToNeighbor::severalIs( Several * several ) noexcept {
   link_ = reinterpret_cast< Link >( reinterpret_cast< const char * >( several ) + 1 );
}

std::span< const IntfIpToNeighbor::Link >
IntfIpToNeighbor::links() const noexcept {
   const Several * const several = this->several();
   return several ? std::span< const Link >( *several ) : std::span( &link_, link_ ? 1 : 0 );
}

namespace {

Kivnet::IpGenAddr
teRouterIdOfOwner( const TopoLink & link ) {
   const auto * node = link.from->second.at( TopoGraphKind::te ).node;
   return node ? node->first.ipAddress() : Kivnet::IpGenAddr();
}

AllTopoNeighborKey
keyWithOwner( const TopoLink & link ) {
   return { link.topoId(), link.neighborKey(), teRouterIdOfOwner( link ), {} };
}

bool
inKeyOrder( const TopoLink * a, const TopoLink * b ) {
   return a->rank < b->rank;
}

}

std::vector< AllTopoNeighborKey >
IntfIpToNeighbor::neighborSet() const {
   std::vector< AllTopoNeighborKey > keys;
   keys.reserve( neighbors() );
   for ( const auto * link : links() ) {
      keys.push_back( keyWithOwner( *link ) );
   }
   return keys;
}

bool
IntfIpToNeighbor::neighborHas( const AllTopoNeighborKey & key ) const {
   return std::ranges::any_of( links(),
                               [ & ]( Link link ) { return keyWithOwner( *link ) == key; } );
}

bool
IntfIpToNeighbor::linkIs( const TopoLink & link ) {
   if ( !link_ ) {
      link_ = &link;
      return true;
   }
   if ( link_ == &link ) {
      return false;
   }
   Several * several = this->several();
   if ( !several ) {
      several = new Several{ link_ };
      severalIs( several );
   }
   const auto at = std::ranges::lower_bound( *several, &link, inKeyOrder );
   const bool fresh = at == several->end() || *at != &link;
   if ( fresh ) {
      several->insert( at, &link );
   }
   return fresh;
}

bool
IntfIpToNeighbor::linkDel( const TopoLink & link ) {
   Several * const several = this->several();
   if ( !several ) {
      return link_ == &link && std::exchange( link_, nullptr );
   }
   const auto at = std::ranges::lower_bound( *several, &link, inKeyOrder );
   if ( at == several->end() || *at != &link ) {
      return false;
   }
   several->erase( at );
   if ( several->size() == 1 ) {
      link_ = several->front();
      delete several;
   }
   return true;
}

namespace {

/// What an address stands for has changed for the owner of a link that has it, or had it, and for
/// the others. Of several that have it all but one may not count, since their links lead nowhere;
/// where very many have it, it stays ambiguous.
void
touchOwners( const AllTopoDbStatus & allTopoDbStatus, const IntfIpToNeighbor & entry,
             const TopoLink & changed ) {
   TopoGraph & graph = allTopoDbStatus.teGraph();
   const TopoRouter & owner = *changed.from;
   graph.touch( owner );
   constexpr std::size_t few = 16;
   std::vector< const TopoRouter * > others;  // in several topologies one router
   const auto links = entry.links();
   for ( auto at = links.begin(); at != links.end(); ) {
      const TopoRouter * const other = ( *at )->from;
      if ( other != &owner ) {
         if ( others.size() == few ) {
            return;
         }
         others.push_back( other );
      }
      at = std::partition_point(
         at, links.end(), [ other ]( const TopoLink * link ) { return link->from == other; } );
   }
   for ( const TopoRouter * other : others ) {
      graph.touch( *other );
   }
}

/// The published row names the owner of one of the links, or is not there where none has a TE
/// router id.
void
republish( const Lum::Ptr< IntfIpToRouterIdTable > & published, const Kivnet::IpGenAddr & intfIp,
           const IntfIpToNeighbor & entry ) {
   const Kivnet::IpGenAddr row = published->intfIpToRouterId( intfIp );
   Kivnet::IpGenAddr owner;
   for ( const auto * link : entry.links() ) {
      const Kivnet::IpGenAddr id = teRouterIdOfOwner( *link );
      if ( id && id == row ) {
         return;
      }
      owner = owner ? owner : id;
   }
   if ( owner ) {
      addIntfIpToRouterId( published, intfIp, owner );
   } else {
      deleteIntfIpToRouterId( published, intfIp );
   }
}

void
publishOwner( const AllTopoDbStatus & allTopoDbStatus, const TopoLink & link,
              const Kivnet::IpGenAddr & intfIp ) {
   const auto & published = allTopoDbStatus.intfIpToRouterIdTable();
   const auto owner = published ? teRouterIdOfOwner( link ) : Kivnet::IpGenAddr();
   if ( owner ) {
      addIntfIpToRouterId( published, intfIp, owner );
   }
}

}

void
addLinkToIntfIp( AllTopoDbStatus & allTopoDbStatus, const TopoLink & link,
                 const Kivnet::IpGenAddr & intfIp ) {
   const auto & table = allTopoDbStatus.intfIpToNeighborTable();
   IntfIpToNeighbor & entry = table->entry( intfIp );
   if ( entry.linkIs( link ) ) {
      touchOwners( allTopoDbStatus, entry, link );
      table->entryChanged( intfIp );
   }
   allTopoDbStatus.noteAddress( intfIp );
   publishOwner( allTopoDbStatus, link, intfIp );
}

void
linkOfIntfIpMoved( AllTopoDbStatus & allTopoDbStatus, const TopoLink & link,
                   const Kivnet::IpGenAddr & intfIp ) {
   const auto & table = allTopoDbStatus.intfIpToNeighborTable();
   touchOwners( allTopoDbStatus, table->intfIpToNeighbor( intfIp ), link );
   table->entryChanged( intfIp );
   allTopoDbStatus.noteAddress( intfIp );
   publishOwner( allTopoDbStatus, link, intfIp );
   if ( const auto & published = allTopoDbStatus.intfIpToRouterIdTable() ) {
      republish( published, intfIp, table->intfIpToNeighbor( intfIp ) );
   }
}

void
deleteLinkFromIntfIp( AllTopoDbStatus & allTopoDbStatus, const TopoLink & link,
                      const Kivnet::IpGenAddr & intfIp ) {
   const auto & table = allTopoDbStatus.intfIpToNeighborTable();
   if ( !table->intfIpToNeighborHas( intfIp ) || !table->entry( intfIp ).linkDel( link ) ) {
      TRACE9( "Delete ngb " << keyWithOwner( link ) << " of " << intfIp << ": already deleted." );
      return;
   }
   if ( table->entry( intfIp ).neighbors() == 0 ) {
      table->intfIpToNeighborDel( intfIp );
   } else {
      table->entryChanged( intfIp );
   }
   allTopoDbStatus.noteAddress( intfIp );
   const IntfIpToNeighbor & left = table->intfIpToNeighbor( intfIp );
   touchOwners( allTopoDbStatus, left, link );
   if ( const auto & published = allTopoDbStatus.intfIpToRouterIdTable() ) {
      republish( published, intfIp, left );
   }
   if ( left.neighbors() > 0 ) {
      return;
   }
   const IntfIpToNeighbor * intfIpToNeighbor = table->intfIpToNeighborFind( intfIp );
   LUM_ASSERT( !intfIpToNeighbor );
}

void
addNeighborKeyToIntfIp( const Lum::Ptr< AllTopoDbStatus > & allTopoDbStatus,
                        const AllTopoNeighborKey & allTopoNeighborKey,
                        const Kivnet::IpGenAddr & intfIp ) {
   const auto * link = allTopoDbStatus->links().find( allTopoNeighborKey );
   LUM_ASSERT( link );
   addLinkToIntfIp( *allTopoDbStatus, *link, intfIp );
}

void
deleteNeighborKeyFromIntfIp( const Lum::Ptr< AllTopoDbStatus > & allTopoDbStatus,
                             const AllTopoNeighborKey & allTopoNeighborKey,
                             const Kivnet::IpGenAddr & intfIp ) {
   const auto * link = allTopoDbStatus->links().find( allTopoNeighborKey );
   if ( link ) {
      deleteLinkFromIntfIp( *allTopoDbStatus, *link, intfIp );
   } else {
      TRACE9( "Delete ngb " << allTopoNeighborKey << " of " << intfIp << ": already deleted." );
   }
}

void
addIntfIpToRouterId( const Lum::Ptr< IntfIpToRouterIdTable > & intfIpToRouterIdTable,
                     const Kivnet::IpGenAddr & intfIp, const Kivnet::IpGenAddr & teRouterId ) {
   TRACE9( "adding intfIpToRouterId entry for ip: " << intfIp << " teRouterId: " << teRouterId );
   intfIpToRouterIdTable->intfIpToRouterIdIs( intfIp, teRouterId );
}

void
deleteIntfIpToRouterId( const Lum::Ptr< IntfIpToRouterIdTable > & intfIpToRouterIdTable,
                        const Kivnet::IpGenAddr & intfIp ) {
   TRACE9( "deleting intfIpToRouterId entry for ip: " << intfIp );
   intfIpToRouterIdTable->intfIpToRouterIdDel( intfIp );
}

}
