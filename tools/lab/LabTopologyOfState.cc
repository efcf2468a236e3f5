// A topology table in the words of a lab. The two directions of a link are entries of their own,
// with numbers that need not be equal; they belong together where their addresses mirror each
// other, else where neither denies it.

#include "tools/lab/LabTopologyOfState.h"

#include <algorithm>
#include <set>

namespace Lab {

using namespace Routing::Topology;
using Cspf::IgpRouterId;

std::string
routerNameKey( const std::string & table, const IgpRouterId & id ) {
   return "router " + table + " " + id.stringValue();
}

std::string
lanNameKey( const std::string & table, const IgpRouterId & pseudonode ) {
   return "LAN " + table + " " + pseudonode.stringValue();
}

std::string
linkNameKey( const std::string & table, const IgpRouterId & near, const IgpRouterId & far,
             const Addresses & addresses ) {
   std::string key = "link " + table + " " + near.stringValue() + " " + far.stringValue();
   for ( const auto & address : addresses ) {
      key += " " + address.stringValue();
   }
   return key;
}

namespace {

template< class List >
Addresses
addressesOf( const List & list ) {
   return { list.begin(), list.end() };
}

LabLinkAttributes
attributesOf( const Neighbor & link ) {
   LabLinkAttributes attributes;
   attributes.metric = link.metric();
   attributes.teMetric = link.teMetric();
   attributes.adminGroup = link.adminGroup();
   attributes.srlg.assign( link.srlgList().begin(), link.srlgList().end() );
   attributes.bandwidth = link.maxLinkBandwidth();
   attributes.unreserved = link.unreservedBandwidth();
   attributes.id = link.key().linkId();
   return attributes;
}

bool
mirrors( const Neighbor & one, const Neighbor & other ) {
   return one.interfaceAddrList() == other.neighborAddrList()
          && one.neighborAddrList() == other.interfaceAddrList();
}

/// Whether the one names addresses of its far end, and none of them is the other's.
bool
denies( const Neighbor & one, const Neighbor & other ) {
   return !one.neighborAddrList().empty() && !other.interfaceAddrList().empty()
          && std::ranges::none_of( one.neighborAddrList(), [ & ]( const auto & address ) {
                return std::ranges::count( other.interfaceAddrList(), address ) > 0;
             } );
}

bool
mayBelong( const Neighbor & one, const Neighbor & other ) {
   return !denies( one, other ) && !denies( other, one );
}

/// The router whose pseudonode that is.
IgpRouterId
ownerOf( const IgpRouterId & pseudonode ) {
   return pseudonode.type() == Cspf::VertexType::isisRouter
             ? IgpRouterId( pseudonode.isisSystemId() )
             : IgpRouterId( pseudonode.type(), pseudonode.ipAddress().stringValue() );
}

/// Which pseudonode of the router that is; 0: none.
std::uint8_t
pseudonodeNumber( const IgpRouterId & owner, const IgpRouterId & pseudonode ) {
   unsigned number = 255;
   while ( number > 0
           && IgpRouterId( owner.pseudonode( static_cast< std::uint8_t >( number ) ) )
                 != pseudonode ) {
      --number;
   }
   return static_cast< std::uint8_t >( number );
}

class TableWords {
 public:
   TableWords( const TopoDb & table, const TableNames & names, Shown shown, LabTopology & topology )
      : names_( names ),
        shown_( shown ),
        topology_( topology ) {
      for ( const auto & [ key, link ] : table.neighborColl() ) {
         if ( link.key() == key ) {
            links_[ key ] = &link;
         }
      }
   }

   void addRouters( const TopoDb & table );
   void addLinks();
   void addLans( const TopoDb & table );

 private:
   std::string nameOf( const std::string & key, const std::string & usual ) const {
      const auto at = names_.given.find( key );
      return at == names_.given.end() ? usual : at->second;
   }
   std::string routerName( const Router & row ) const;
   /// Whether two entries are the directions of one link.
   using Match = bool ( * )( const Neighbor &, const Neighbor & );
   const Neighbor * backOf( const Neighbor & link, Match match ) const;
   void addPairs( Match match );
   std::string linkName( const Neighbor & link, const std::string & a,
                         const std::string & b ) const;
   void addLink( const Neighbor & link, const Neighbor * back );
   void addMembers( const Network & network, LabLan & lan );
   bool takes( const Addresses & addresses );

   const TableNames & names_;
   const Shown shown_;
   LabTopology & topology_;
   std::map< NeighborKey, const Neighbor * > links_;
   std::map< IgpRouterId, std::string > routers_;
   std::set< NeighborKey > told_;
   std::set< Kivnet::IpGenAddr > addresses_;
};

std::string
TableWords::routerName( const Router & row ) const {
   if ( row.id() == names_.self ) {
      return names_.selfName;
   }
   std::string name = names_.igp && row.id().type() == Cspf::VertexType::isisRouter
                         ? names_.igp->hostname( row.id().isisSystemId() )
                         : std::string();
   name = !name.empty()      ? name
          : row.teRouterId() ? row.teRouterId().stringValue()
                             : row.id().stringValue();
   name = nameOf( routerNameKey( names_.path, row.id() ), name );
   return name == names_.selfName || topology_.routers.contains( name ) ? row.id().stringValue()
                                                                        : name;
}

void
TableWords::addRouters( const TopoDb & table ) {
   const auto type = topology_.id.igpSource() == Cspf::IgpSource::isis
                        ? Cspf::VertexType::isisRouter
                        : Cspf::VertexType::ospfRouter;
   for ( const auto & id : Lum::sortedKeys( table.routerColl() ) ) {
      const Router & row = *table.routerFind( id );
      if ( id.type() != type || row.id() != id ) {
         continue;
      }
      const std::string name = routerName( row );
      LabRouter & router = topology_.routers[ name ];
      router.id = id;
      router.teRouterId = row.teRouterId();
      router.overload = row.overload();
      if ( const auto * reach = table.reachabilityFind( id ) ) {
         for ( const auto & prefix : reach->prefixSet() ) {
            router.prefixes.emplace( prefix.prefix(), prefix.metric() );
         }
      }
      routers_[ id ] = name;
   }
}

/// Whether no other interface has these; they are taken then.
bool
TableWords::takes( const Addresses & addresses ) {
   if ( shown_ == Shown::all ) {
      return true;
   }
   const std::set< Kivnet::IpGenAddr > different( addresses.begin(), addresses.end() );
   const bool fresh = different.size() == addresses.size()
                      && std::ranges::none_of( different, [ & ]( const auto & address ) {
                            return addresses_.contains( address ) || address.af() != topology_.af;
                         } );
   if ( fresh ) {
      addresses_.insert( different.begin(), different.end() );
   }
   return fresh;
}

/// The other direction: the one of that number where it fits, else the first that does.
const Neighbor *
TableWords::backOf( const Neighbor & link, Match match ) const {
   const NeighborKey & key = link.key();
   const auto fits = [ & ]( const NeighborKey & back, const Neighbor & other ) {
      return !told_.contains( back ) && match( link, other );
   };
   const NeighborKey same{ key.neighborId(), p2p(), key.routerId(), key.linkId() };
   if ( const auto at = links_.find( same ); at != links_.end() && fits( same, *at->second ) ) {
      return at->second;
   }
   for ( auto at = links_.lower_bound( { key.neighborId(), p2p(), key.routerId(), 0 } );
         at != links_.end() && at->first.routerId() == key.neighborId()
         && at->first.neighborType() == p2p() && at->first.neighborId() == key.routerId();
         ++at ) {
      if ( fits( at->first, *at->second ) ) {
         return at->second;
      }
   }
   return nullptr;
}

std::string
TableWords::linkName( const Neighbor & link, const std::string & a, const std::string & b ) const {
   const std::string name =
      nameOf( linkNameKey( names_.path, link.key().routerId(), link.key().neighborId(),
                           addressesOf( link.interfaceAddrList() ) ),
              a + "-" + b );
   std::string free = name;
   for ( int number = 2; topology_.links.contains( free ); ++number ) {
      free = name + "-" + std::to_string( number );
   }
   return free;
}

/// `back`: null where the other end says nothing of it.
void
TableWords::addLink( const Neighbor & link, const Neighbor * back ) {
   const auto a = routers_.find( link.key().routerId() ),
              b = routers_.find( link.key().neighborId() );
   if ( a == routers_.end() || b == routers_.end() || a == b ) {
      return;
   }
   Addresses all = addressesOf( link.interfaceAddrList() );
   const Addresses far = addressesOf( back ? back->interfaceAddrList() : link.neighborAddrList() );
   all.insert( all.end(), far.begin(), far.end() );
   if ( !takes( all ) ) {
      return;
   }
   LabLink & words = topology_.links[ linkName( link, a->second, b->second ) ];
   words.a = { a->second, link.intfId(), addressesOf( link.interfaceAddrList() ), {} };
   words.b = { b->second, back ? back->intfId() : Kivnet::IntfId(), far, {} };
   words.ab = { true, attributesOf( link ) };
   words.ba = { back != nullptr, attributesOf( back ? *back : link ) };
   told_.insert( link.key() );
   if ( back ) {
      told_.insert( back->key() );
   }
}

void
TableWords::addPairs( Match match ) {
   for ( const auto & [ key, link ] : links_ ) {
      const bool open = key.neighborType() == p2p() && !told_.contains( key );
      if ( const Neighbor * back = open ? backOf( *link, match ) : nullptr ) {
         addLink( *link, back );
      }
   }
}

void
TableWords::addLinks() {
   addPairs( mirrors );
   addPairs( mayBelong );
   for ( const auto & [ key, link ] : links_ ) {
      if ( key.neighborType() == p2p() && !told_.contains( key ) ) {
         addLink( *link, nullptr );
      }
   }
}

void
TableWords::addMembers( const Network & network, LabLan & lan ) {
   for ( const auto & [ key, link ] : links_ ) {
      const auto router = routers_.find( key.routerId() );
      if ( key.neighborType() != Routing::Topology::lan()
           || key.neighborId() != network.networkId().id() || router == routers_.end()
           || lan.members.contains( router->second )
           || !takes( addressesOf( link->interfaceAddrList() ) ) ) {
         continue;
      }
      LabLanMember & member = lan.members[ router->second ];
      member.intf = link->intfId();
      member.addrs = addressesOf( link->interfaceAddrList() );
      member.attributes = attributesOf( *link );
      member.attached = network.routerHas( key.routerId() );
   }
}

void
TableWords::addLans( const TopoDb & table ) {
   for ( const NetworkId & id : Lum::sortedKeys( table.networkColl() ) ) {
      const auto dr = routers_.find( ownerOf( id.id() ) );
      const std::uint8_t number = dr == routers_.end() ? 0 : pseudonodeNumber( dr->first, id.id() );
      if ( number == 0 && shown_ == Shown::readable ) {
         continue;
      }
      const std::string usual =
         number == 0 ? id.id().stringValue() : "lan-" + dr->second + "-" + std::to_string( number );
      std::string name = nameOf( lanNameKey( names_.path, id.id() ), usual );
      name = topology_.lans.contains( name ) ? usual : name;
      LabLan & lan = topology_.lans[ name ];
      lan.dr = number == 0 ? usual : dr->second;
      lan.pseudonode = number;
      addMembers( *table.networkFind( id ), lan );
   }
}

}

void
addTable( const TopoDb & table, const TableNames & names, Shown shown, LabTopology & topology ) {
   TableWords words( table, names, shown, topology );
   words.addRouters( table );
   words.addLinks();
   words.addLans( table );
}

}
