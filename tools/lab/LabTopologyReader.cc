// Reads one topology: routers first, since links and LANs name them. A link's attributes are kept
// as far as they are given until both the link and the override of a direction have been read, so
// that defaults apply to what the two say together.

#include "tools/lab/LabTopologyReader.h"

#include <set>

namespace Lab {

/// A link's attributes with what was not given still absent.
struct GivenAttributes {
   LabLinkAttributes given;
   std::optional< std::array< float, 8 > > unreserved;

   LabLinkAttributes whole() const {
      LabLinkAttributes attributes = given;
      if ( unreserved ) {
         attributes.unreserved = *unreserved;
      } else {
         attributes.unreserved.fill( given.bandwidth );
      }
      return attributes;
   }
};

namespace {

constexpr const char * unreservedShape = "bytes per second, one number or a list of 8";

std::array< float, 8 >
readUnreserved( const LabCursor & at ) {
   std::array< float, 8 > unreserved;
   if ( !at.value().as< LabJsonArray >() ) {
      unreserved.fill( readBandwidth( at ) );
      return unreserved;
   }
   const LabJsonArray & list = at.list( unreservedShape, unreserved.size() );
   if ( list.size() != unreserved.size() ) {
      at.fail( unreservedShape );
   }
   std::size_t priority = 0;
   forEachElement( at, list, [ & ]( const LabCursor & element ) {
      unreserved[ priority++ ] = readBandwidth( element );
   } );
   return unreserved;
}

/// Reads an object of link attributes and of `others`.
template< class... Read >
void
readAttributes( const LabCursor & at, GivenAttributes & to, const LabKey< Read > &... others ) {
   readObject( at, others...,
               key( "metric", [ & ]( auto & v ) { to.given.metric = readUint32( v ); } ),
               key( "teMetric", [ & ]( auto & v ) { to.given.teMetric = readUint32( v ); } ),
               key( "adminGroup", [ & ]( auto & v ) { to.given.adminGroup = readMask( v ); } ),
               key( "srlg", [ & ]( auto & v ) { to.given.srlg = readSrlgs( v ); } ),
               key( "bandwidth", [ & ]( auto & v ) { to.given.bandwidth = readBandwidth( v ); } ),
               key( "unreserved", [ & ]( auto & v ) { to.unreserved = readUnreserved( v ); } ),
               key( "id", [ & ]( auto & v ) { to.given.id = readUint32( v ); } ) );
}

/// An interface's name; null where it is not known.
Kivnet::IntfId
readKnownIntf( const LabCursor & at ) {
   return at.value().isNull() ? Kivnet::IntfId() : readIntf( at );
}

}

void
TopologyReader::read( const LabCursor & at ) {
   readScalars( at );
   section( at, routersKey, [ & ]( const LabCursor & router ) { readRouter( router ); } );
   section( at, linksKey, [ & ]( const LabCursor & link ) { readLink( link ); } );
   section( at, lansKey, [ & ]( const LabCursor & lan ) { readLan( lan ); } );
}

template< class Read >
void
TopologyReader::section( const LabCursor & at, std::string_view name, Read read ) {
   if ( const LabJson * members = at.value().find( name ) ) {
      forEachMember( LabCursor( at, name, *members ), read );
   }
}

void
TopologyReader::readScalars( const LabCursor & at ) {
   std::optional< bool > exported;
   Cspf::IgpSource igp = Cspf::IgpSource::isis;
   const auto later = []( const LabCursor & ) {};
   const LabJson * numbers = nullptr;
   readObject( at, key( "vrf", [ & ]( auto & v ) { topology.vrf = readVrf( v ); } ),
               key( "af", [ & ]( auto & v ) { topology.af = readFamily( v ); } ),
               key( "igp",
                    [ & ]( auto & v ) {
                       igp = parsed( v, Lum::enumParse< Cspf::IgpSource >, "\"isis\" or \"ospf\"" );
                    } ),
               key( "numbers", [ & ]( auto & v ) { numbers = &v.value(); } ),
               key( "export", [ & ]( auto & v ) { exported = readBool( v ); } ),
               key( "exportReady", [ & ]( auto & v ) { topology.exportReady = readBool( v ); } ),
               key( routersKey, later ), key( linksKey, later ), key( lansKey, later ) );
   const bool isis = igp == Cspf::IgpSource::isis;
   topology.id = isis ? Cspf::TopoId::isisL2() : Cspf::TopoId{ igp, 0, 0 };
   topology.exported = exported.value_or( !isis );
   if ( numbers ) {
      readNumbers( LabCursor( at, "numbers", *numbers ) );
   }
}

void
TopologyReader::readNumbers( const LabCursor & at ) {
   const LabJsonArray & list = at.list( "a list of two numbers", 2 );
   if ( list.size() != 2 ) {
      at.fail( "a list of two numbers" );
   }
   const LabCursor first( at, std::size_t( 0 ), list[ 0 ] ), second( at, 1, list[ 1 ] );
   topology.id.number1Is( readUint32( first ) );
   topology.id.number2Is( readUint32( second ) );
   if ( topology.id.igpSource() == Cspf::IgpSource::isis && !topology.exported ) {
      // The router's own tables, of which there is one a level.
      readNumber( first, 1, 2 );
      readNumber( second, 0, 0 );
   }
}

void
TopologyReader::readRouter( const LabCursor & at ) {
   LabRouter router;
   const bool isis = topology.id.igpSource() == Cspf::IgpSource::isis;
   const auto readId = [ & ]( const LabCursor & v ) {
      router.id =
         isis ? Cspf::IgpRouterId( readSystemId( v ) )
              : Cspf::IgpRouterId( Cspf::VertexType::ospfRouter, readIpv4( v ).stringValue() );
      if ( !names_.routerIds.insert( router.id ).second ) {
         v.fail( "a router id that no other router of the topology has" );
      }
   };
   const auto readPrefix = [ & ]( const LabCursor & v ) {
      const auto prefix = Kivnet::IpGenPrefix::parse( v.key() );
      if ( !prefix ) {
         v.fail( "as key, a prefix such as \"10.0.0.1/32\"",
                 LabJson( std::string( v.key() ) ).inShort() );
      }
      router.prefixes[ *prefix ] = readUint32( v );
   };
   readObject(
      at,
      requiredKey( "id", isis ? "the router's IS-IS system id" : "the router's OSPF router id",
                   readId ),
      key( "teRouterId",
           [ & ]( auto & v ) {
              router.teRouterId = v.value().isNull() ? Kivnet::IpGenAddr() : readAddress( v );
           } ),
      key( "overload", [ & ]( auto & v ) { router.overload = readBool( v ); } ),
      key( "prefixes", [ & ]( auto & v ) { forEachMember( v, readPrefix ); } ),
      key( "at", [ & ]( auto & v ) { router.at = readPlace( v ); } ) );
   topology.routers.emplace( at.key(), std::move( router ) );
}

void
TopologyReader::readLink( const LabCursor & at ) {
   const std::string name( at.key() );
   LabLink link;
   link.a.intf = Kivnet::IntfId( name + ".a" );
   link.b.intf = Kivnet::IntfId( name + ".b" );
   GivenAttributes attributes;
   bool up = true;
   const LabJson nothing{ LabJsonObject() };
   const LabJson * ab = &nothing;
   const LabJson * ba = &nothing;
   readAttributes( at, attributes,
                   requiredKey( "a", "a router's name",
                                [ & ]( auto & v ) { link.a.router = readRouterName( v ); } ),
                   requiredKey( "b", "a router's name",
                                [ & ]( auto & v ) { link.b.router = readRouterName( v ); } ),
                   key( "aAddr", [ & ]( auto & v ) { link.a.addrs = readAddresses( v ); } ),
                   key( "bAddr", [ & ]( auto & v ) { link.b.addrs = readAddresses( v ); } ),
                   key( "aIntf", [ & ]( auto & v ) { link.a.intf = readKnownIntf( v ); } ),
                   key( "bIntf", [ & ]( auto & v ) { link.b.intf = readKnownIntf( v ); } ),
                   key( "aNexthop", [ & ]( auto & v ) { link.a.nexthop = readNexthop( v ); } ),
                   key( "bNexthop", [ & ]( auto & v ) { link.b.nexthop = readNexthop( v ); } ),
                   key( "up", [ & ]( auto & v ) { up = readBool( v ); } ),
                   key( "ab", [ & ]( auto & v ) { ab = &v.value(); } ),
                   key( "ba", [ & ]( auto & v ) { ba = &v.value(); } ) );
   if ( link.a.router == link.b.router ) {
      const LabJson & b = *at.value().find( "b" );
      LabCursor( at, "b", b ).fail( "a router other than the link's \"a\"" );
   }
   link.ab = readDirection( LabCursor( at, "ab", *ab ), attributes );
   link.ba = readDirection( LabCursor( at, "ba", *ba ), attributes );
   link.ab.advertised &= up;
   link.ba.advertised &= up;
   topology.links.emplace( name, std::move( link ) );
}

LabLinkDirection
TopologyReader::readDirection( const LabCursor & at, const GivenAttributes & base ) {
   const auto * on = at.value().as< bool >();
   GivenAttributes attributes = base;
   LabLinkDirection direction;
   if ( at.value().isNull() || ( on && !*on ) ) {
      direction.advertised = false;
   } else if ( at.value().as< LabJsonObject >() ) {
      readAttributes( at, attributes );
   } else {
      at.fail( "an object, null or false" );
   }
   direction.attributes = attributes.whole();
   return direction;
}

void
TopologyReader::readLan( const LabCursor & at ) {
   LabLan lan;
   const std::string name( at.key() );
   readObject(
      at,
      requiredKey( "dr", "a router's name", [ & ]( auto & v ) { lan.dr = readRouterName( v ); } ),
      key( "pseudonode",
           [ & ]( auto & v ) {
              lan.pseudonode = static_cast< std::uint8_t >( readNumber( v, 1, 255 ) );
           } ),
      key( "members", [ & ]( auto & v ) {
         forEachMember( v, [ & ]( const LabCursor & member ) {
            lan.members.emplace( readRouterName( member, std::string( member.key() ) ),
                                 readMember( member, name ) );
         } );
      } ) );
   if ( !names_.pseudonodes.emplace( lan.dr, lan.pseudonode ).second ) {
      at.fail( "\"dr\" and \"pseudonode\" that no other LAN of the topology has",
               LabJson( lan.dr ).inShort() + " and " + std::to_string( lan.pseudonode ) );
   }
   topology.lans.emplace( name, std::move( lan ) );
}

LabLanMember
TopologyReader::readMember( const LabCursor & at, const std::string & lan ) {
   LabLanMember member;
   member.intf = Kivnet::IntfId( lan + "." + std::string( at.key() ) );
   GivenAttributes attributes;
   readAttributes( at, attributes,
                   key( "addr", [ & ]( auto & v ) { member.addrs = readAddresses( v ); } ),
                   key( "intf", [ & ]( auto & v ) { member.intf = readKnownIntf( v ); } ),
                   key( "nexthop", [ & ]( auto & v ) { member.nexthop = readNexthop( v ); } ),
                   key( "attached", [ & ]( auto & v ) { member.attached = readBool( v ); } ) );
   member.attributes = attributes.whole();
   return member;
}

/// One address, or a list of up to ten.
Addresses
TopologyReader::readAddresses( const LabCursor & at ) {
   Addresses addresses;
   const auto readOne = [ & ]( const LabCursor & one ) {
      addresses.push_back( readAddress( one, topology.af ) );
      if ( !names_.addresses.insert( addresses.back() ).second ) {
         one.fail( "an address that no other interface of the topology has" );
      }
   };
   if ( at.value().as< LabJsonArray >() ) {
      constexpr std::size_t most = Routing::Topology::AddrIndex::max + 1u;
      forEachElement( at, at.list( "a list of at most 10 addresses", most ), readOne );
   } else {
      readOne( at );
   }
   return addresses;
}

/// False, an address, or a list of one for each family.
LabNexthop
TopologyReader::readNexthop( const LabCursor & at ) const {
   const bool * on = at.value().as< bool >();
   if ( on && !*on ) {
      return { false, {} };
   }
   LabNexthop nexthop{ true, Addresses() };
   if ( at.value().as< LabJsonArray >() ) {
      forEachElement(
         at, at.list( "a list of at most 2 addresses", 2 ),
         [ & ]( const LabCursor & v ) { nexthop.given->push_back( readAddress( v ) ); } );
   } else {
      nexthop.given->push_back( readAddress( at ) );
   }
   return nexthop;
}

std::string
TopologyReader::readRouterName( const LabCursor & at, const std::string & name ) {
   if ( !topology.routers.contains( name ) ) {
      at.fail( "the name of a router of the topology", LabJson( name ).inShort() );
   }
   return name;
}

LabTopology
readTopology( const LabCursor & at, LabTopologyNames & names ) {
   LabTopology topology;
   TopologyReader( topology, names ).read( at );
   return topology;
}

}
