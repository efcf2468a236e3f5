// Random labs. Numbers are drawn from few values, so that equal costs, shared risk groups and
// refused links are common and every feature decides some path of some lab.

#include "tests/RandomLab.h"

#include "tests/LabText.h"

#include <span>

using Json = nlohmann::json;

namespace {

const char * const clientNames[] = { "cli", "rsvp", "tilfa" };

}

RandomLab::RandomLab( unsigned seed, Kind kind ) : engine_( seed ), kind_( kind ) {}

std::string
RandomLab::keyOf( const Json & object ) {
   return object.empty() ? std::string()
                         : std::next( object.begin(), below( object.size() ) ).key();
}

std::string
RandomLab::address() {
   ++addresses_;
   return "10.64." + std::to_string( addresses_ / 250 ) + "."
          + std::to_string( addresses_ % 250 + 1 );
}

Json
RandomLab::attributes() {
   Json attributes = Json::object();
   static const std::uint32_t metrics[] = { 1, 5, 10, 10, 20, 0, 0xFFFFFE, 0xFFFFFF };
   attributes[ "metric" ] = metrics[ below( oneIn( 6 ) ? 8 : 5 ) ];
   if ( oneIn( 4 ) ) {
      attributes[ "teMetric" ] = 1 + below( 12 );
   }
   if ( hasEverything() ) {
      attributes[ "metric" ] = 1000 + below( 1'000'000 );
      attributes[ "teMetric" ] = 1000 + below( 1'000'000 );
      attributes[ "bandwidth" ] = oneIn( 6 ) ? 0 : 1000;
   }
   if ( oneIn( 2 ) ) {
      attributes[ "adminGroup" ] = oneIn( 4 ) ? Json( "0x80000001" ) : Json( below( 8 ) );
   }
   for ( unsigned n = oneIn( 2 ) ? below( 3 ) : 0; n > 0; --n ) {
      attributes[ "srlg" ].push_back( 1 + below( 3 ) + 10 * n );
   }
   return attributes;
}

Json
RandomLab::link( const std::string & a, const std::string & b ) {
   Json link = attributes();
   link[ "a" ] = a;
   link[ "b" ] = b;
   for ( const char * side : { "aAddr", "bAddr" } ) {
      if ( oneIn( 10 ) ) {
         link[ side ] = { address(), address() };
      } else if ( !oneIn( 15 ) ) {
         link[ side ] = address();
      }
   }
   if ( oneIn( 4 ) ) {
      link[ oneIn( 2 ) ? "ab" : "ba" ] = oneIn( 4 ) ? Json( false ) : attributes();
   }
   return link;
}

Json
RandomLab::lan( const Json & routers ) {
   Json lan{ { "members", Json::object() } };
   for ( unsigned n = 2 + below( 3 ); n > 0; --n ) {
      const std::string name = keyOf( routers );
      Json member = attributes();
      member[ "addr" ] = address();
      member[ "intf" ] = "lan" + std::to_string( addresses_ );
      if ( oneIn( 8 ) ) {
         member[ "attached" ] = false;
      }
      lan[ "dr" ] = name;
      lan[ "members" ][ name ] = std::move( member );
   }
   lan[ "pseudonode" ] = 1 + addresses_ % 255;
   return lan;
}

Json
RandomLab::routerIn( bool isis, unsigned n ) {
   const std::string number = std::to_string( n + 1 );
   Json router{ { "id", isis ? "0000.0000.000" + number : "1.1.1." + number } };
   if ( n == 0 || !oneIn( hasEverything() ? 6 : 12 ) ) {
      router[ "teRouterId" ] = "10.0.0." + number;
      router[ "prefixes" ] = { { "10.0.0." + number + "/32", 0 } };
   }
   if ( oneIn( 4 ) ) {
      router[ "prefixes" ][ "20.0.0." + std::to_string( 1 + below( 3 ) ) + "/32" ] = below( 3 );
   }
   if ( oneIn( 10 ) ) {
      router[ "overload" ] = true;
   }
   return router;
}

Json
RandomLab::topology( unsigned kind ) {
   // Level 2 of IS-IS, an OSPF area, an exported IS-IS topology, level 1 of IS-IS, level 2 for
   // IPv6.
   static const Json numbers[] = { { 2, 0 }, { 0, 5 }, { 2, 7 }, { 1, 0 }, { 2, 0 } };
   const bool isis = kind != 1;
   Json topology{ { "igp", isis ? "isis" : "ospf" }, { "numbers", numbers[ kind ] } };
   if ( kind == 2 ) {
      topology[ "export" ] = true;
   }
   Json routers = Json::object();
   for ( unsigned n = 0; n < routers_; ++n ) {
      if ( n == 0 || !oneIn( kind == 0 ? 10 : 3 ) ) {
         routers[ "R" + std::to_string( n ) ] = routerIn( isis, n );
      }
   }
   Json links = Json::object();
   for ( unsigned n = routers.size() + below( routers.size() + 2 ); n > 0; --n ) {
      const std::string a =
         n < routers.size() ? std::next( routers.begin(), n ).key() : keyOf( routers );
      const std::string b = keyOf( routers );
      if ( a != b ) {
         links[ "k" + std::to_string( kind ) + "." + std::to_string( n ) ] = link( a, b );
      }
   }
   topology[ "links" ] = links;
   if ( oneIn( 2 ) ) {
      topology[ "lans" ][ "lan" + std::to_string( kind ) ] = lan( routers );
   }
   topology[ "routers" ] = std::move( routers );
   return topology;
}

std::vector< std::string >
RandomLab::localInterfaces( const Json & document ) const {
   std::vector< std::string > interfaces;
   const Json none = Json::object();
   for ( const auto & topology : document[ "topologies" ] ) {
      for ( const Json links = topology.value( "links", none );
            const auto & [ name, link ] : links.items() ) {
         if ( link[ "a" ] == "R0" || link[ "b" ] == "R0" ) {
            interfaces.push_back( name + ( link[ "a" ] == "R0" ? ".a" : ".b" ) );
         }
      }
      for ( const auto & lan : topology.value( "lans", none ) ) {
         if ( lan[ "members" ].contains( "R0" ) ) {
            interfaces.push_back( lan[ "members" ][ "R0" ][ "intf" ] );
         }
      }
   }
   return interfaces;
}

/// That of another path of the VRF; null where the draw has none.
Json
RandomLab::anothersConstraint( const Json & document, const std::string & vrf ) {
   const Json none = Json::object();
   const Json paths = document.value( "paths", none ).value( clientNames[ below( 2 ) ], none );
   const Json path = paths.value( keyOf( paths ), none );
   return path.value( "vrf", "default" ) == vrf ? path.value( "constraint", Json() ) : Json();
}

Json
RandomLab::constraint( const Json & document, const std::string & vrf ) {
   if ( const Json shared = oneIn( 3 ) ? anothersConstraint( document, vrf ) : Json();
        !shared.is_null() ) {
      return shared;
   }
   Json constraint = Json::object();
   if ( hasEverything() && oneIn( 2 ) ) {
      addHops( constraint );
      addRest( constraint );
      return constraint;
   }
   for ( const char * field :
         { "includeAllAdminGroup", "includeAnyAdminGroup", "excludeAdminGroup" } ) {
      if ( oneIn( 5 ) ) {
         constraint[ field ] = 1u << below( 3 );
      }
   }
   const auto interfaces = localInterfaces( document );
   if ( !interfaces.empty() && oneIn( 3 ) ) {
      constraint[ "excludeIntf" ] = interfaces[ below( interfaces.size() ) ];
   }
   const Json & topology = document[ "topologies" ][ keyOf( document[ "topologies" ] ) ];
   const std::string node = keyOf( topology[ "routers" ] );
   if ( !interfaces.empty() && node != "R0" && topology.value( "vrf", "default" ) == vrf
        && !topology.contains( "af" ) && oneIn( 3 ) ) {
      constraint[ "excludeNode" ] = { { "node", node },
                                      { "nexthopIntf", interfaces[ below( interfaces.size() ) ] } };
   }
   for ( const char * field : { "excludeSrlg", "srlgStrictMode", "srlgExcludeOnlyLocalLinks" } ) {
      if ( oneIn( field[ 0 ] == 'e' ? 2 : 3 ) ) {
         constraint[ field ] = true;
      }
   }
   if ( oneIn( 5 ) ) {
      constraint[ "excludeLinkWithIp" ] = { "10.64.0." + std::to_string( 1 + below( addresses_ ) ),
                                            "10.64.0."
                                               + std::to_string( 1 + below( addresses_ ) ) };
   }
   if ( oneIn( 6 ) ) {
      const std::string name = keyOf( document[ "topologies" ] );
      constraint[ "topoId" ] = name == "v6" ? "core" : name;
   }
   if ( oneIn( 8 ) ) {
      constraint[ "reversePath" ] = true;
   }
   if ( kind_ != Kind::plain && oneIn( 2 ) ) {
      addHops( constraint );
   }
   if ( hasEverything() ) {
      addRest( constraint );
   }
   return constraint;
}

void
RandomLab::addHops( Json & constraint ) {
   for ( unsigned hops = hasEverything() ? below( 4 ) : 1 + below( 3 ); hops > 0; --hops ) {
      const std::string addresses[] = { "10.0.0." + std::to_string( 1 + below( routers_ ) ),
                                        "10.64.0." + std::to_string( 1 + below( addresses_ ) ),
                                        "20.0.0." + std::to_string( 1 + below( 3 ) ) };
      const bool isStrict = hasEverything() && oneIn( 3 );
      constraint[ "includeHop" ].push_back(
         { { "addr", addresses[ hasEverything() && oneIn( 2 ) ? 0 : below( 3 ) ] },
           { "loose", !isStrict } } );
   }
}

/// What no path has in other labs.
void
RandomLab::addRest( Json & constraint ) {
   if ( constraint.contains( "includeHop" ) && oneIn( 3 ) ) {
      const Json again = constraint[ "includeHop" ];  // there and back, and there
      for ( const Json & hop : again ) {
         constraint[ "includeHop" ].push_back( hop );
      }
   }
   if ( oneIn( 3 ) ) {
      constraint[ "bandwidth" ] = oneIn( 12 ) ? 2000 : 1 + below( 3 );
      constraint[ "bwSetupPriority" ] = below( 8 );
      constraint[ "sharedBwGroupId" ] = oneIn( 2 ) ? 0 : 1 + below( 2 );
   }
   for ( const char * field : { "includeHopAllExplicit", "noSpf" } ) {
      if ( oneIn( 12 ) ) {
         constraint[ field ] = true;
      }
   }
   if ( oneIn( 20 ) ) {
      constraint[ "sourceType" ] = "neighborOnLink";
   }
}

/// A request of "tilfa", as `path` gives one of others.
Json
RandomLab::repair( const Json & document ) {
   const std::string number = std::to_string( 1 + below( routers_ ) );
   const bool isV6 = document[ "topologies" ].contains( "v6" ) && oneIn( 2 );
   const std::string prefix = std::to_string( 1 + below( 3 ) );
   const std::string destinations[] = { "0000.0000.000" + number, "0000.0000.000" + number,
                                        isV6 ? "fd00::20:0:0:" + prefix + "/128"
                                             : "20.0.0." + prefix + "/32" };
   Json path{
      { "dst", destinations[ below( 3 ) ] }, { "id", ++paths_ }, { "af", isV6 ? "ipv6" : "ipv4" } };
   Json & constraint = path[ "constraint" ] = Json::object();
   const auto interfaces = localInterfaces( document );
   if ( interfaces.empty() || oneIn( 12 ) ) {
      return path;
   }
   const std::string & intf = constraint[ "excludeIntf" ] =
      interfaces[ below( interfaces.size() ) ];
   const Json & topology = document[ "topologies" ][ isV6 ? "v6" : "core" ];
   if ( const std::string node = keyOf( topology[ "routers" ] ); node != "R0" && oneIn( 2 ) ) {
      constraint[ "excludeNode" ] = { { "node", node }, { "nexthopIntf", intf } };
      constraint[ "fallBackToLink" ] = oneIn( 2 );
   }
   constraint[ "excludeSrlg" ] = oneIn( 3 );
   constraint[ "maxRepairNodes" ] = 1 + below( 8 );
   return path;
}

Json
RandomLab::request( const Json & document, const std::string & client ) {
   return client == "tilfa" ? repair( document ) : path( document );
}

Json
RandomLab::path( const Json & document ) {
   const std::string number = std::to_string( 1 + below( routers_ ) );
   const std::string destinations[] = { "10.0.0." + number, "10.0.0." + number,
                                        "10.64.0." + std::to_string( 1 + below( addresses_ ) ),
                                        "20.0.0." + std::to_string( 1 + below( 4 ) ) };
   Json path{ { "dst", destinations[ hasEverything() && oneIn( 2 ) ? 0 : below( 4 ) ] },
              { "id", ++paths_ } };
   if ( oneIn( 6 ) ) {
      path[ "vrf" ] = "red";
   }
   if ( !oneIn( 4 ) ) {
      path[ "constraint" ] = constraint( document, path.value( "vrf", "default" ) );
   }
   if ( document[ "topologies" ].contains( "v6" ) && !path.contains( "vrf" ) && oneIn( 3 ) ) {
      path = inIpv6( path );
      path[ "af" ] = "ipv6";
      for ( const char * named : { "topoId", "excludeNode" } ) {  // of the other family
         if ( path.contains( "constraint" ) ) {
            path[ "constraint" ].erase( named );
         }
      }
   }
   return path;
}

/// Links of one topology are in the other one as well, with the same addresses.
void
RandomLab::shareLinks( const Json & topology, Json & other ) {
   for ( const auto & [ name, link ] : topology[ "links" ].items() ) {
      if ( oneIn( 2 ) && other[ "routers" ].contains( link[ "a" ] )
           && other[ "routers" ].contains( link[ "b" ] ) ) {
         Json & shared = other[ "links" ][ name ] = link;
         shared.update( attributes() );
      }
   }
}

/// A client in both VRFs.
Json
RandomLab::served() {
   return { { "vrf", { { "default", true }, { "red", true } } },
            { "addressFamily", { { "ipv4", true }, { "ipv6", hasEverything() } } },
            { "bwmRequired", hasEverything() && oneIn( 2 ) } };
}

Json
RandomLab::document() {
   routers_ = 3 + below( 6 );
   Json document{ { "router", "R0" }, { "te", { { "routerId", "10.0.0.1" } } } };
   document[ "topologies" ][ "core" ] = topology( 0 );
   if ( oneIn( 3 ) ) {
      document[ "throttle" ] = { { "initialInt", 0 } };
   }
   static const char * const names[] = { "core", "area", "plane", "level1" };
   for ( unsigned kind = 1; kind < 4; ++kind ) {
      if ( oneIn( 3 ) ) {
         auto & more = document[ "topologies" ][ names[ kind ] ] = topology( kind );
         if ( hasEverything() ) {
            shareLinks( document[ "topologies" ][ "core" ], more );
         }
         if ( oneIn( 3 ) ) {
            more[ "vrf" ] = "red";
         }
      }
   }
   if ( hasEverything() && oneIn( 2 ) ) {
      auto & more = document[ "topologies" ][ "v6" ] = inIpv6( topology( 4 ) );
      more[ "af" ] = "ipv6";
      more[ "routers" ][ "R0" ][ "teRouterId" ] = "10.0.0.1";
      more[ "export" ] = oneIn( 2 );
   }
   if ( oneIn( 3 ) ) {
      if ( const auto interfaces = localInterfaces( document ); !interfaces.empty() ) {
         document[ "interfaces" ][ interfaces[ below( interfaces.size() ) ] ] = {
            { "srlg", { 11 + below( 3 ), 21 + below( 3 ) } } };
      }
   }
   const std::size_t clients = hasEverything() ? 3 : 2;
   for ( const std::string client : std::span( clientNames ).first( clients ) ) {
      document[ "clients" ][ client ] = served();
      for ( unsigned n = 2 + below( 6 ); n > 0; --n ) {
         const Json asked = request( document, client );
         document[ "paths" ][ client ][ "p" + asked[ "id" ].dump() ] = asked;
      }
   }
   return document;
}

Json
RandomLab::linkEvent( const Json & link ) {
   switch ( below( 5 ) ) {
   case 0: return { { "up", !link.value( "up", true ) } };
   case 1: return { { oneIn( 2 ) ? "ab" : "ba", oneIn( 2 ) ? Json( false ) : attributes() } };
   case 2: return { { "aAddr", address() } };
   case 3: return nullptr;
   default: return attributes();
   }
}

Json
RandomLab::topologyEvent( const Json & topology ) {
   const std::string name = keyOf( topology[ "routers" ] );
   const Json & router = topology[ "routers" ][ name ];
   const std::string link = keyOf( topology.value( "links", Json::object() ) );
   const std::string lan = keyOf( topology.value( "lans", Json::object() ) );
   switch ( below( 10 ) ) {
   case 0:
      return {
         { "routers", { { name, { { "overload", !router.value( "overload", false ) } } } } } };
   case 1:
      return {
         { "routers",
           { { name,
               { { "teRouterId", router.value( "teRouterId", Json() ).is_null()
                                    ? Json( "10.0.0." + std::to_string( name[ 1 ] - '0' + 1 ) )
                                    : Json() } } } } } };
   case 2:
      return { { "links",
                 { { "new" + std::to_string( below( 20 ) ),
                     this->link( name, keyOf( topology[ "routers" ] ) ) } } } };
   case 3:
      if ( !lan.empty() ) {
         const Json & members = topology[ "lans" ][ lan ][ "members" ];
         const std::string member = keyOf( members );
         Json change = attributes();
         change[ "attached" ] = !members[ member ].value( "attached", true );
         return { { "lans", { { lan, { { "members", { { member, change } } } } } } } };
      }
      [[fallthrough]];
   case 4:
      if ( topology.value( "export", topology[ "igp" ] == "ospf" ) ) {
         return { { "exportReady", !topology.value( "exportReady", true ) } };
      }
      [[fallthrough]];
   case 5: {
      const std::string prefix = "20.0.0." + std::to_string( 1 + below( 3 ) ) + "/32";
      const Json metric = oneIn( 2 ) ? Json() : Json( below( 3 ) );
      return { { "routers", { { name, { { "prefixes", { { prefix, metric } } } } } } } };
   }
   default:
      return link.empty()
                ? Json::object()
                : Json{ { "links", { { link, linkEvent( topology[ "links" ][ link ] ) } } } };
   }
}

Json
RandomLab::clientEvent( const Json & document ) {
   const std::string client = hasEverything() && oneIn( 3 ) ? "tilfa" : oneIn( 2 ) ? "cli" : "rsvp";
   const std::string name = keyOf( document[ "paths" ].value( client, Json::object() ) );
   if ( hasEverything() && !document.value( "clients", Json::object() ).contains( client ) ) {
      return { { "clients", { { client, served() } } } };
   }
   switch ( below( 6 ) ) {
   case 0: return { { "clients", { { client, nullptr } } } };
   case 1:
      return { { "clients",
                 { { client,
                     { { "vrf", { { "default", true }, { "red", oneIn( 2 ) } } },
                       { "bwmRequired", hasEverything() && oneIn( 2 ) },
                       { "addressFamily", { { "ipv4", !oneIn( 4 ) } } } } } } } };
   case 2:
      if ( !name.empty() ) {
         return { { "paths", { { client, { { name, nullptr } } } } } };
      }
      [[fallthrough]];
   case 3:
      if ( !name.empty() && hasEverything() && oneIn( 3 ) ) {  // in one thing
         const Json change = client == "tilfa" ? Json{ { "maxRepairNodes", 1 + below( 3 ) } }
                                               : Json{ { "bandwidth", below( 4 ) } };
         return { { "paths", { { client, { { name, { { "constraint", change } } } } } } } };
      }
      if ( !name.empty() ) {
         const std::string vrf = document[ "paths" ][ client ][ name ].value( "vrf", "default" );
         Json asked = client == "tilfa" ? Json( repair( document )[ "constraint" ] )
                                        : constraint( document, vrf );
         const Json before = document[ "paths" ][ client ][ name ].value( "constraint", Json() );
         for ( const auto & [ field, value ] : before.items() ) {
            asked.emplace( field, nullptr );
         }
         return { { "paths", { { client, { { name, { { "constraint", asked } } } } } } } };
      }
      [[fallthrough]];
   default: {
      const Json asked = request( document, client );
      return { { "paths", { { client, { { "p" + asked[ "id" ].dump(), asked } } } } } };
   }
   }
}

Json
RandomLab::configurationEvent( const Json & document ) {
   const auto interfaces = localInterfaces( document );
   if ( interfaces.empty() || oneIn( 4 ) ) {
      const Json identity{ { "systemId", "0000.0000.000" + std::to_string( 1 + below( 2 ) ) } };
      return { { "segmentRouting", { { "default", oneIn( 2 ) ? Json() : identity } } } };
   }
   const std::string & intf = interfaces[ below( interfaces.size() ) ];
   if ( oneIn( 2 ) ) {
      const std::string user = clientNames[ below( 2 ) ];
      return { { "state",
                 { { "te/bwm/client/input/vrf/default/" + user,
                     { { "type", "TrafficEngineering::BandwidthClientUsage" },
                       { "value", { { "usage", { { intf, below( 900 ) } } } } } } } } } };
   }
   Json asked{ { "srlg", Json::array() }, { "bandwidth", 1000 * below( 3 ) } };
   for ( unsigned n = below( 3 ); n > 0; --n ) {
      asked[ "srlg" ].push_back( 1 + below( 3 ) + 10 * n );
   }
   return { { "interfaces", { { intf, asked } } } };
}

Json
RandomLab::event( const Json & document ) {
   if ( oneIn( 4 ) ) {
      return clientEvent( document );
   }
   if ( hasEverything() && oneIn( 10 ) ) {
      return configurationEvent( document );
   }
   const bool enabled = document[ "te" ].value( "enabled", true );
   if ( oneIn( enabled ? 25 : 5 ) ) {
      return { { "te", { { "enabled", !enabled } } } };
   }
   const std::string name = keyOf( document[ "topologies" ] );
   if ( oneIn( 40 ) && name != "core" ) {
      return { { "topologies", { { name, nullptr } } } };
   }
   const Json change = topologyEvent( document[ "topologies" ][ name ] );
   return { { "topologies", { { name, name == "v6" ? inIpv6( change ) : change } } } };
}
