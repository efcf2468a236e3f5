#pragma once

#include "Cspf/Graph/Graph.h"
#include "Cspf/Topology/RankedMap.h"
#include "platform/Lum/Blocks.h"
#include "platform/Lum/HashTable.h"
#include "platform/Lum/PackedVector.h"
#include "schema/CspfKeys.h"
#include "schema/Topology.h"

#include <array>
#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace Cspf {

/// The graphs that follow the store.
enum class TopoGraphKind : std::uint8_t { te, lfa };

struct TopoRouterName {
   LUM_VALUE( Cspf, TopoRouterName );
   LUM_FIELD( topoId, TopoId );
   LUM_FIELD( id, IgpRouterId );
};

struct TopoRouterParts;
/// A router or a LAN of one topology, under the one name that all links from and to it share.
/// Entries do not move in memory.
using TopoRouter = std::pair< const TopoRouterName, TopoRouterParts >;

/// A node of one graph.
struct TopoNode {
   CspfVertex vertex = noVertex;
   std::uint32_t overloaded = 0;               // how many of its routers are
   Lum::PackedVector< TopoRouter * > routers;  // that are attached as this node, by name
};
using TopoNodes = RankedMap< NodeId, TopoNode, 63 >;

struct TopoLink;

/// As what a router or a LAN takes part in each graph, and the links that name it.
struct TopoRouterParts {
   struct Part {
      TopoNodes::Entry * node = nullptr;  // that a router is attached as
      CspfVertex network = noVertex;      // of a LAN
      bool overloaded = false;
   };

   std::array< Part, 2 > parts;            // by TopoGraphKind
   Lum::PackedVector< TopoLink * > links;  // that it lists, in key order
   std::uint32_t entering = 0;             // links that others list towards it
   std::uint64_t rank = 0;                 // before those of its links

   Part & at( TopoGraphKind kind ) { return parts[ static_cast< std::size_t >( kind ) ]; }
   const Part & at( TopoGraphKind kind ) const {
      return parts[ static_cast< std::size_t >( kind ) ];
   }
};

/// The interface addresses under which a link stands in the store: the list of the neighbour entry
/// that it had last, which both share.
using NeighborToIntfIp = Lum::List< Routing::Topology::AddrIndex, Kivnet::IpGenAddr >;

/// What the store keeps of a link that its router lists: its name in all topologies of one VRF and
/// family, what it has registered under that name, so that it can be taken back, and where the link
/// stands in each graph.
struct TopoLink {
   TopoRouter * from;
   TopoRouter * to;  // or the LAN; of the same topology
   std::uint32_t linkId;
   Routing::Topology::NeighborType neighborType;
   std::uint64_t rank = 0;  // in key order among all listed links
   NeighborToIntfIp neighborToIntfIp{};
   std::array< CspfEdge, 2 > edges{ noEdge, noEdge };  // by TopoGraphKind

   const TopoId & topoId() const { return from->first.topoId(); }
   bool isLan() const { return neighborType == Routing::Topology::lan(); }
   Routing::Topology::NeighborKey neighborKey() const {
      return { from->first.id(), neighborType, to->first.id(), linkId };
   }
   CspfEdge & at( TopoGraphKind kind ) { return edges[ static_cast< std::size_t >( kind ) ]; }
   CspfEdge at( TopoGraphKind kind ) const { return edges[ static_cast< std::size_t >( kind ) ]; }
   static void * operator new( std::size_t bytes ) { return Lum::takeBlock( bytes ); }
   static void operator delete( void * link, std::size_t bytes ) { Lum::giveBlock( link, bytes ); }
};

/// All listed links, ranked in the order of topologies and neighbour keys, and the routers and LANs
/// that they name. Neither move in memory.
class TopoLinks {
 public:
   using Moved = std::function< void( const TopoLink & ) >;

   /// `moved` is told of each link whose rank has changed since it was listed.
   explicit TopoLinks( Moved moved ) : moved_( std::move( moved ) ) {}
   TopoLinks( const TopoLinks & ) = delete;
   TopoLinks & operator=( const TopoLinks & ) = delete;
   ~TopoLinks();

   /// Null where no link names it and no graph has it.
   TopoRouter * router( const TopoId & topoId, const IgpRouterId & id );
   /// Made where there is none. Whoever has no use for it in the end says so.
   TopoRouter & routerIs( const TopoId & topoId, const IgpRouterId & id );
   void routerDelIfUnused( TopoRouter & router );
   /// Those of one topology, in order.
   std::vector< TopoRouter * > routersOf( const TopoId & topoId );

   TopoLink * find( const TopoId & topoId, const Routing::Topology::NeighborKey & key );
   /// TE router ids do not matter.
   TopoLink * find( const AllTopoNeighborKey & key ) {
      return find( key.topoId(), key.neighborKey() );
   }
   /// The router lists these links, of which those under its own name count. `made( link )` is told
   /// of each new one. O(links of the router) for each, O(log links) where they stand behind those
   /// that are there.
   template< class Made >
   void listed( const TopoId & topoId, const IgpRouterId & id,
                const Lum::Set< Routing::Topology::NeighborKey > & keys, Made && made ) {
      const auto router = routerAt( topoId, id );
      for ( const Routing::Topology::NeighborKey & key : keys ) {
         if ( TopoLink * link = key.routerId() == id ? tryInsert( router, key ) : nullptr ) {
            made( *link );
         }
      }
      routerDelIfUnused( *router );
   }
   void erase( TopoLink & link );
   /// Drops what was noted for a graph that goes. O(links).
   void forget( TopoGraphKind kind );

 private:
   using Routers = std::map< TopoRouterName, TopoRouterParts, std::less< TopoRouterName >,
                             Lum::BlockAllocator< TopoRouter > >;
   struct NameOf {
      const TopoRouterName & operator()( Routers::iterator at ) const noexcept { return at->first; }
   };
   /// What has ranks: each router (place 0), and behind it its links.
   struct InOrder {
      struct Position {
         Routers::iterator router;
         std::uint32_t place;
         bool operator==( const Position & ) const = default;
      };
      bool previous( Position & at ) const;
      bool next( Position & at ) const;
      std::uint64_t & rank( const Position & at ) const;
      Routers * routers;
   };
   Routers::iterator routerAt( const TopoId & topoId, const IgpRouterId & id );
   /// Null where it is there.
   TopoLink * tryInsert( Routers::iterator from, const Routing::Topology::NeighborKey & key );
   void rankIs( const InOrder::Position & at );

   Routers routers_;
   Lum::HashTable< Routers::iterator, NameOf, Lum::Hash, std::equal_to< TopoRouterName > > byName_;
   const Moved moved_;
};

/// Whether the address is among the link's own interface addresses. No link has the unset one,
/// whatever gaps its list has.
bool neighborHasInterfaceAddr( const Routing::Topology::Neighbor & neighbor,
                               const Kivnet::IpGenAddr & address );
/// Each end of a link knows an address of the other: some interface address of each is among the
/// other's neighbour addresses. False where one has no addresses.
bool addressesMirror( const Routing::Topology::Neighbor & neighbor,
                      const Routing::Topology::Neighbor & reverseNeighbor );
/// An end knows addresses of its neighbour, and the other end has addresses, but none of these: the
/// two are ends of different links.
bool addressesContradict( const Routing::Topology::Neighbor & neighbor,
                          const Routing::Topology::Neighbor & reverseNeighbor );

}
