// Documents as a person would write them: a link once for both of its directions, with what differs
// in the other one; nothing that goes without saying.

#include "tools/lab/LabWriter.h"

#include "tools/lab/LabRecords.h"

#include <algorithm>
#include <cstdio>

namespace Lab {

using Json = nlohmann::ordered_json;

Json
maskOf( std::uint32_t mask ) {
   char text[ 16 ];
   std::snprintf( text, sizeof text, "0x%x", mask );
   return text;
}

Json
numberOf( float value ) {
   char text[ 32 ];
   for ( int digits = 1; digits < 9; ++digits ) {
      std::snprintf( text, sizeof text, "%.*g", digits, static_cast< double >( value ) );
      if ( std::strtof( text, nullptr ) == value ) {
         return std::strtod( text, nullptr );
      }
   }
   std::snprintf( text, sizeof text, "%.9g", static_cast< double >( value ) );
   return std::strtod( text, nullptr );
}

void
append( Json & object, const std::string & key, Json value ) {
   if ( object.is_null() ) {
      object = Json::object();
   }
   object.get_ref< Json::object_t & >().emplace_back( key, std::move( value ) );
}

namespace {

/// Adds the member where the value is not what it is anyway.
template< class T >
void
add( Json & json, const char * key, const T & value, const T & usual ) {
   if ( value != usual ) {
      json[ key ] = value;
   }
}

template< class T >
void
addText( Json & json, const char * key, const T & value ) {
   if ( value ) {
      json[ key ] = value.stringValue();
   }
}

/// One address, or a list of several.
Json
listOf( const Addresses & addresses ) {
   Json list = Json::array();
   for ( const auto & address : addresses ) {
      list.push_back( address.stringValue() );
   }
   return list.size() == 1 ? list.front() : list;
}

void
addAddresses( Json & json, const char * key, const Addresses & addresses ) {
   if ( !addresses.empty() ) {
      json[ key ] = listOf( addresses );
   }
}

void
addNexthop( Json & json, const char * key, const LabNexthop & nexthop ) {
   if ( !nexthop.adjacent ) {
      json[ key ] = false;
   } else if ( nexthop.given ) {
      json[ key ] = listOf( *nexthop.given );
   }
}

void
addIntf( Json & json, const char * key, const Kivnet::IntfId & intf, const std::string & usual ) {
   if ( intf.stringValue() != usual ) {
      json[ key ] = intf ? Json( intf.stringValue() ) : Json();
   }
}

Json
unreservedOf( const LabLinkAttributes & attributes ) {
   const auto & free = attributes.unreserved;
   if ( std::ranges::count( free, free[ 0 ] ) == static_cast< int >( free.size() ) ) {
      return numberOf( free[ 0 ] );
   }
   Json list = Json::array();
   for ( const float one : free ) {
      list.push_back( numberOf( one ) );
   }
   return list;
}

/// All of them, those with their defaults as well.
Json
allAttributes( const LabLinkAttributes & attributes ) {
   Json json{ { "metric", attributes.metric },
              { "teMetric", attributes.teMetric.value_or( attributes.metric ) },
              { "adminGroup", maskOf( attributes.adminGroup ) },
              { "srlg", attributes.srlg },
              { "bandwidth", numberOf( attributes.bandwidth ) },
              { "unreserved", unreservedOf( attributes ) } };
   if ( attributes.id ) {
      json[ "id" ] = *attributes.id;
   }
   return json;
}

void
addAttributes( Json & json, const LabLinkAttributes & attributes ) {
   Json all = allAttributes( attributes );
   if ( !attributes.teMetric ) {
      all.erase( "teMetric" );
   }
   LabLinkAttributes usual;
   usual.bandwidth = attributes.bandwidth;
   usual.unreserved.fill( attributes.bandwidth );
   Json plain = allAttributes( usual );
   plain.erase( "teMetric" );
   plain.erase( "metric" );
   plain[ "bandwidth" ] = numberOf( 0 );
   for ( const auto & [ key, value ] : all.items() ) {
      if ( !plain.contains( key ) || plain[ key ] != value ) {
         json[ key ] = value;
      }
   }
}

/// What the one direction has that the other has not; null where a direction cannot say it beside
/// the other, since what has no TE metric must not be told one.
std::optional< Json >
difference( const LabLinkAttributes & base, const LabLinkAttributes & other ) {
   if ( ( base.teMetric && !other.teMetric ) || ( base.id && !other.id ) ) {
      return std::nullopt;
   }
   Json from = allAttributes( base ), to = allAttributes( other ), differing = Json::object();
   if ( !other.teMetric ) {
      from.erase( "teMetric" );
      to.erase( "teMetric" );
   } else if ( !base.teMetric ) {
      from.erase( "teMetric" );
   }
   if ( unreservedOf( base ) == numberOf( base.bandwidth ) ) {
      from[ "unreserved" ] = to[ "bandwidth" ];  // which it goes by where it is not given
   }
   for ( const auto & [ key, value ] : to.items() ) {
      if ( !from.contains( key ) || from[ key ] != value ) {
         differing[ key ] = value;
      }
   }
   return differing;
}

Json
routerOf( const LabRouter & router ) {
   Json json{ { "id", router.id.stringValue() } };
   addText( json, "teRouterId", router.teRouterId );
   add( json, "overload", router.overload, false );
   if ( router.at ) {
      json[ "at" ] = { router.at->right, router.at->up };
   }
   for ( const auto & [ prefix, metric ] : router.prefixes ) {
      json[ "prefixes" ][ prefix.stringValue() ] = metric;
   }
   return json;
}

void
addDirections( Json & json, const LabLink & link ) {
   if ( !link.ab.advertised && !link.ba.advertised ) {
      json[ "up" ] = false;
   } else if ( !link.ab.advertised || !link.ba.advertised ) {
      addAttributes( json, ( link.ab.advertised ? link.ab : link.ba ).attributes );
      json[ link.ab.advertised ? "ba" : "ab" ] = false;
      return;
   }
   if ( const auto back = difference( link.ab.attributes, link.ba.attributes ) ) {
      addAttributes( json, link.ab.attributes );
      if ( !back->empty() ) {
         json[ "ba" ] = *back;
      }
   } else if ( const auto forth = difference( link.ba.attributes, link.ab.attributes ) ) {
      addAttributes( json, link.ba.attributes );
      json[ "ab" ] = *forth;
   } else {
      addAttributes( json[ "ab" ] = Json::object(), link.ab.attributes );
      addAttributes( json[ "ba" ] = Json::object(), link.ba.attributes );
   }
}

Json
linkOf( const std::string & name, const LabLink & link ) {
   Json json{ { "a", link.a.router }, { "b", link.b.router } };
   addAddresses( json, "aAddr", link.a.addrs );
   addAddresses( json, "bAddr", link.b.addrs );
   addIntf( json, "aIntf", link.a.intf, name + ".a" );
   addIntf( json, "bIntf", link.b.intf, name + ".b" );
   addNexthop( json, "aNexthop", link.a.nexthop );
   addNexthop( json, "bNexthop", link.b.nexthop );
   addDirections( json, link );
   return json;
}

Json
lanOf( const std::string & name, const LabLan & lan ) {
   Json json{ { "dr", lan.dr }, { "pseudonode", lan.pseudonode } };
   for ( const auto & [ router, member ] : lan.members ) {
      Json & one = json[ "members" ][ router ] = Json::object();
      addAddresses( one, "addr", member.addrs );
      addIntf( one, "intf", member.intf, std::string( name ).append( "." ).append( router ) );
      addNexthop( one, "nexthop", member.nexthop );
      add( one, "attached", member.attached, true );
      addAttributes( one, member.attributes );
   }
   return json;
}

Json
topologyOf( const LabTopology & topology ) {
   const bool isis = topology.id.igpSource() == Cspf::IgpSource::isis;
   Json json{ { "igp", Lum::enumName( topology.id.igpSource() ) },
              { "numbers", { topology.id.number1(), topology.id.number2() } } };
   add( json, "vrf", topology.vrf.stringValue(), std::string( "default" ) );
   add( json, "af", std::string( Kivnet::text( topology.af ) ), std::string( "ipv4" ) );
   add( json, "export", topology.exported, !isis );
   add( json, "exportReady", topology.exportReady, true );
   for ( const auto & [ name, router ] : topology.routers ) {
      append( json[ "routers" ], name, routerOf( router ) );
   }
   for ( const auto & [ name, link ] : topology.links ) {
      append( json[ "links" ], name, linkOf( name, link ) );
   }
   for ( const auto & [ name, lan ] : topology.lans ) {
      append( json[ "lans" ], name, lanOf( name, lan ) );
   }
   return json;
}

void
addMask( Json & json, const char * key, std::uint32_t mask ) {
   if ( mask != 0 ) {
      json[ key ] = maskOf( mask );
   }
}

void
addNeighbor( Json & json, const LabConstraint & c ) {
   if ( c.neighborLink ) {
      json[ "neighborLink" ] = *c.neighborLink ? Json( c.neighborLink->stringValue() ) : Json();
   }
   if ( c.neighborSystemId ) {
      json[ "neighbor" ] = c.neighborSystemId.stringValue();
   } else if ( c.neighbor ) {
      json[ "neighbor" ] = *c.neighbor ? Json( c.neighbor->stringValue() ) : Json();
   }
}

void
addHops( Json & json, const LabConstraint & c ) {
   for ( const auto & address : c.excludeLinkWithIp ) {
      json[ "excludeLinkWithIp" ].push_back( address.stringValue() );
   }
   for ( const auto & hop : c.includeHop ) {
      Json one{ { "addr", hop.addr.stringValue() } };
      add( one, "loose", hop.loose, false );
      json[ "includeHop" ].push_back( std::move( one ) );
   }
   add( json, "includeHopAllExplicit", c.includeHopAllExplicit, false );
}

Json
constraintOf( const LabConstraint & c ) {
   Json json = Json::object();
   addText( json, "excludeIntf", c.excludeIntf );
   if ( c.excludeNode ) {
      json[ "excludeNode" ][ "node" ] = c.excludeNode->node;
      addText( json[ "excludeNode" ], "nexthopIntf", c.excludeNode->nexthopIntf );
   }
   add( json, "excludeSrlg", c.excludeSrlg, false );
   add( json, "srlgStrictMode", c.srlgStrictMode, false );
   add( json, "srlgExcludeOnlyLocalLinks", c.srlgExcludeOnlyLocalLinks, false );
   addMask( json, "includeAllAdminGroup", c.includeAllAdminGroup );
   addMask( json, "includeAnyAdminGroup", c.includeAnyAdminGroup );
   addMask( json, "excludeAdminGroup", c.excludeAdminGroup );
   if ( c.topoId ) {
      json[ "topoId" ] = *c.topoId;
   }
   add( json, "bandwidth", c.bandwidth, std::uint64_t( 0 ) );
   add( json, "bwSetupPriority", c.bwSetupPriority, 0u );
   add( json, "sharedBwGroupId", c.sharedBwGroupId, 0u );
   addHops( json, c );
   add( json, "reversePath", c.reversePath, false );
   if ( c.pathComputationType ) {
      json[ "pathComputationType" ] = Lum::enumName( *c.pathComputationType );
   }
   if ( c.sourceType ) {
      json[ "sourceType" ] = Lum::enumName( *c.sourceType );
   }
   addNeighbor( json, c );
   add( json, "maxRepairNodes", c.maxRepairNodes, 0u );
   add( json, "fallBackToLink", c.fallBackToLink, false );
   add( json, "noSpf", c.noSpf, false );
   return json;
}

Json
pathOf( const LabPath & path ) {
   Json json = Json::object();
   add( json, "vrf", path.vrf.stringValue(), std::string( "default" ) );
   add( json, "af", std::string( Kivnet::text( path.af ) ), std::string( "ipv4" ) );
   json[ "dst" ] = path.dst.stringValue();
   add( json, "id", path.id, 1u );
   add( json, "refreshReqSeq", path.refreshReqSeq, 0u );
   add( json, "autoUpdate", path.autoUpdate, true );
   if ( Json constraint = constraintOf( path.constraint ); !constraint.empty() ) {
      json[ "constraint" ] = std::move( constraint );
   }
   return json;
}

Json
clientOf( const LabClient & client ) {
   Json json = Json::object();
   for ( const auto & [ vrf, on ] : client.vrf ) {
      json[ "vrf" ][ vrf.stringValue() ] = on;
   }
   for ( const auto & [ af, on ] : client.addressFamily ) {
      json[ "addressFamily" ][ Kivnet::text( af ) ] = on;
   }
   add( json, "bwmRequired", client.bwmRequired, false );
   return json;
}

void
addInterfaces( Json & lab, const LabDocument & document ) {
   for ( const auto & [ intf, srlgs ] : document.interfaces ) {
      Json & one = lab[ "interfaces" ][ intf.stringValue() ] = { { "srlg", srlgs } };
      if ( const auto at = document.interfaceBandwidths.find( intf );
           at != document.interfaceBandwidths.end() ) {
         one[ "bandwidth" ] = at->second.bandwidth;
         add( one, "aggregate", at->second.aggregate, false );
      }
   }
}

void
addTexts( Json & lab, const char * key, const LabStateTexts & texts ) {
   for ( const auto & [ path, text ] : texts ) {
      lab[ key ][ path ] =
         text.type.empty()
            ? Json()
            : Json{ { "type", text.type }, { "value", nlohmann::json::parse( text.value ) } };
   }
}

}

Json
writtenDocument( const LabDocument & document ) {
   Json lab{ { "router", document.router },
             { "te",
               { { "enabled", document.te.enabled },
                 { "routerId", document.te.routerId.stringValue() } } } };
   if ( document.routerIdV4 ) {
      lab[ "routing" ][ "routerIdV4" ] = document.routerIdV4.stringValue();
   }
   lab[ "throttle" ] = { { "initialInt", document.throttle.initialInt },
                         { "holdInt", document.throttle.holdInt },
                         { "maxInt", document.throttle.maxInt } };
   if ( !document.toggles.ospfTopoDbExport ) {
      lab[ "toggles" ][ "OspfTopoDbExport" ] = false;
   }
   lab[ "topologies" ] = Json::object();
   for ( const auto & [ name, topology ] : document.topologies ) {
      lab[ "topologies" ][ name ] = topologyOf( topology );
   }
   addInterfaces( lab, document );
   for ( const auto & [ vrf, systemId ] : document.segmentRouting ) {
      lab[ "segmentRouting" ][ vrf.stringValue() ][ "systemId" ] = systemId.stringValue();
   }
   for ( const auto & [ name, client ] : document.clients ) {
      lab[ "clients" ][ name ] = clientOf( client );
   }
   for ( const auto & [ client, paths ] : document.paths ) {
      for ( const auto & [ name, path ] : paths ) {
         append( lab[ "paths" ][ client ], name, pathOf( path ) );
      }
   }
   addTexts( lab, "state", document.state );
   addTexts( lab, "published", document.published );
   return lab;
}

}
