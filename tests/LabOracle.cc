// The judge of end-to-end tests. It reads a lab file as a person would and asks no other code of
// this system. Clarity is all that counts: no filter is precomputed, no order of nodes is kept,
// every question walks the whole list of edges.

#include "tests/LabOracle.h"

#include <algorithm>
#include <sstream>

using Json = nlohmann::json;

namespace {

constexpr std::uint64_t maximumLinkMetric = 0xFFFFFE;
constexpr std::uint64_t maximumPathMetric = 0xFDFFFFFF;

std::vector< std::string >
addressList( const Json & object, const char * key ) {
   if ( !object.contains( key ) || object[ key ].is_null() ) {
      return {};
   }
   return object[ key ].is_string() ? std::vector{ object[ key ].get< std::string >() }
                                    : object[ key ].get< std::vector< std::string > >();
}

std::uint32_t
mask( const Json & object, const char * key ) {
   const Json value = object.value( key, Json( 0 ) );
   return static_cast< std::uint32_t >( value.is_string()
                                           ? std::stoull( value.get< std::string >(), nullptr, 16 )
                                           : value.get< std::uint64_t >() );
}

/// One direction of a link: the link's own attributes under the overrides of that direction.
Json
direction( const Json & link, const char * key ) {
   Json merged = link;
   merged.update( link.value( key, Json::object() ) );
   return merged;
}

/// What the way costs to a path of that constraint.
std::uint64_t
step( const OracleEdge & edge, const Json & constraint ) {
   return constraint.value( "reversePath", false ) ? edge.metricBack : edge.metric;
}

bool
advertised( const Json & link, const char * key ) {
   return link.value( "up", true ) && ( !link.contains( key ) || link[ key ].is_object() );
}

std::uint64_t
metricOf( const Json & attributes ) {
   const bool te = attributes.contains( "teMetric" ) && !attributes[ "teMetric" ].is_null();
   return te ? attributes[ "teMetric" ].get< std::uint64_t >()
             : attributes.value( "metric", std::uint64_t( 10 ) );
}

void
attributesOf( OracleEdge & edge, const Json & attributes ) {
   edge.metric = metricOf( attributes );
   edge.adminGroup = mask( attributes, "adminGroup" );
   edge.srlg = attributes.value( "srlg", std::vector< std::uint32_t >() );
   const Json unreserved =
      attributes.value( "unreserved", attributes.value( "bandwidth", Json( 0 ) ) );
   for ( std::size_t i = 0; i < edge.unreserved.size(); ++i ) {
      edge.unreserved[ i ] =
         ( unreserved.is_array() ? unreserved[ i ] : unreserved ).get< double >();
   }
}

}

LabOracle::LabOracle( const Json & document, const std::string & vrf ) : document_( document ) {
   const bool exports =
      document.value( "toggles", Json::object() ).value( "OspfTopoDbExport", true );
   for ( const auto & [ name, topology ] : document[ "topologies" ].items() ) {
      const bool isis = topology.value( "igp", "isis" ) == "isis";
      const bool exported = topology.value( "export", !isis );
      const bool ready = exported ? exports && topology.value( "exportReady", true ) : isis;
      if ( ready && topology.value( "vrf", "default" ) == vrf
           && topology.value( "af", "ipv4" ) == "ipv4" ) {
         addTopology( name, topology );
      }
   }
   for ( const Json interfaces = document.value( "interfaces", Json::object() );
         const auto & [ name, intf ] : interfaces.items() ) {
      intfSrlg_[ name ] = intf.value( "srlg", std::vector< std::uint32_t >() );
   }
   const Json te = document.value( "te", Json::object() );
   if ( te.value( "enabled", true ) ) {
      source_ = te.value( "routerId", std::string() );
   }
}

std::string
LabOracle::te( const std::string & router ) const {
   const Json & record = ( *routers_ )[ router ];
   return record.contains( "teRouterId" ) && record[ "teRouterId" ].is_string()
             ? record[ "teRouterId" ].get< std::string >()
             : std::string();
}

void
LabOracle::addAddresses( const std::string & router, const Json & addresses ) {
   for ( const auto & address : addresses ) {
      if ( !te( router ).empty() ) {
         tunnelEnds_[ address ].insert( te( router ) );
      }
   }
}

void
LabOracle::addTopology( const std::string & name, const Json & topology ) {
   topologyName_ = name;
   const Json none = Json::object();
   routers_ = topology.contains( "routers" ) ? &topology[ "routers" ] : &none;
   for ( const auto & [ routerName, router ] : routers_->items() ) {
      const std::string id = te( routerName );
      teOfName_[ routerName ].insert( id );
      addAddresses( routerName, { id } );
      if ( router.value( "overload", false ) ) {
         overloaded_.insert( { name, id } );
      }
      for ( const Json prefixes = router.value( "prefixes", none );
            const auto & [ prefix, metric ] : prefixes.items() ) {
         if ( prefix.ends_with( "/32" ) ) {
            addAddresses( routerName, { prefix.substr( 0, prefix.size() - 3 ) } );
         }
      }
   }
   for ( const Json links = topology.value( "links", none );
         const auto & [ linkName, link ] : links.items() ) {
      addLink( linkName, link );
   }
   for ( const Json lans = topology.value( "lans", none );
         const auto & [ lanName, lan ] : lans.items() ) {
      addLan( lanName, lan );
   }
}

void
LabOracle::addLink( const std::string & name, const Json & link ) {
   const std::string self = document_[ "router" ];
   const auto side = [ & ]( const char * from, const char * to, const char * way ) {
      const std::string router = link[ from ], intfKey = std::string( from ) + "Intf";
      OracleEdge edge;
      edge.from = te( router );
      edge.to = te( link[ to ] );
      edge.intf = link.value( intfKey, name + "." + from );
      edge.nearAddrs = addressList( link, ( std::string( from ) + "Addr" ).c_str() );
      edge.farAddrs = addressList( link, ( std::string( to ) + "Addr" ).c_str() );
      edge.topology = topologyName_;
      const auto attributes = [ & ]( const char * key ) {
         return direction( link, link.contains( key ) && link[ key ].is_object() ? key : "" );
      };
      attributesOf( edge, attributes( way ) );
      edge.metricBack = metricOf( attributes( way == std::string( "ab" ) ? "ba" : "ab" ) );
      if ( router == self ) {
         intfSrlg_.try_emplace( edge.intf, edge.srlg );
      }
      if ( advertised( link, way ) ) {
         addAddresses( router, edge.nearAddrs );
      }
      const bool twoWay = advertised( link, "ab" ) && advertised( link, "ba" );
      const bool numbered = !edge.nearAddrs.empty() && !edge.farAddrs.empty();
      if ( twoWay && numbered && !edge.from.empty() && !edge.to.empty() ) {
         edges_.push_back( edge );
      }
   };
   side( "a", "b", "ab" );
   side( "b", "a", "ba" );
}

void
LabOracle::addLan( const std::string & name, const Json & lan ) {
   for ( const auto & [ nearName, near ] : lan[ "members" ].items() ) {
      OracleEdge edge;
      edge.lan = true;
      edge.from = te( nearName );
      edge.intf = near.value( "intf", name + "." + nearName );
      edge.nearAddrs = addressList( near, "addr" );
      edge.topology = topologyName_;
      attributesOf( edge, near );
      if ( nearName == document_[ "router" ] ) {
         intfSrlg_.try_emplace( edge.intf, edge.srlg );
      }
      addAddresses( nearName, edge.nearAddrs );
      for ( const auto & [ farName, far ] : lan[ "members" ].items() ) {
         edge.to = te( farName );
         edge.farAddrs = addressList( far, "addr" );
         edge.metricBack = metricOf( far );
         const bool attached = near.value( "attached", true ) && far.value( "attached", true );
         if ( attached && nearName != farName && !edge.from.empty() && !edge.to.empty() ) {
            edges_.push_back( edge );
         }
      }
   }
}

std::set< std::uint32_t >
LabOracle::riskGroups( const Json & constraint ) const {
   std::set< std::uint32_t > groups;
   const auto add = [ & ]( const std::string & intf ) {
      if ( const auto at = intfSrlg_.find( intf ); at != intfSrlg_.end() ) {
         groups.insert( at->second.begin(), at->second.end() );
      }
   };
   if ( constraint.value( "excludeSrlg", false ) ) {
      add( constraint.value( "excludeIntf", std::string() ) );
      add(
         constraint.value( "excludeNode", Json::object() ).value( "nexthopIntf", std::string() ) );
   }
   return groups;
}

std::uint64_t
LabOracle::conflicts( const OracleEdge & edge, const Json & constraint ) const {
   if ( constraint.value( "srlgExcludeOnlyLocalLinks", false ) && edge.from != source_ ) {
      return 0;
   }
   const auto groups = riskGroups( constraint );
   return static_cast< std::uint64_t >(
      std::count_if( edge.srlg.begin(), edge.srlg.end(),
                     [ & ]( auto group ) { return groups.contains( group ); } ) );
}

bool
LabOracle::allowed( const OracleEdge & edge, const Json & constraint ) {
   const auto all = mask( constraint, "includeAllAdminGroup" );
   const auto any = mask( constraint, "includeAnyAdminGroup" );
   const auto none = mask( constraint, "excludeAdminGroup" );
   const std::string node = constraint.value( "excludeNode", Json::object() ).value( "node", "" );
   if ( ( edge.adminGroup & all ) != all || ( any && !( edge.adminGroup & any ) )
        || ( edge.adminGroup & none ) ) {
      return false;
   }
   if ( edge.from == source_ && edge.intf == constraint.value( "excludeIntf", "" ) ) {
      return false;
   }
   if ( teOfName_[ node ].contains( edge.to )
        || overloaded_.contains( { edge.topology, edge.to } ) ) {
      return false;
   }
   if ( const std::uint64_t bandwidth = constraint.value( "bandwidth", std::uint64_t( 0 ) ) ) {
      const auto own = held.find( edge.link() );
      const double left = edge.unreserved.at( constraint.value( "bwSetupPriority", 0u ) );
      if ( left + static_cast< double >( own == held.end() ? 0 : own->second )
           < static_cast< double >( bandwidth ) ) {
         return false;
      }
   }
   if ( constraint.value( "srlgStrictMode", false ) && conflicts( edge, constraint ) ) {
      return false;
   }
   for ( const std::string address : constraint.value( "excludeLinkWithIp", Json::array() ) ) {
      const bool near = std::ranges::count( edge.nearAddrs, address ) > 0;
      const bool far = std::ranges::count( edge.farAddrs, address ) > 0;
      if ( near || ( far && !edge.lan ) ) {
         return false;
      }
   }
   const std::string topology = constraint.value( "topoId", std::string() );
   const std::uint64_t metric = step( edge, constraint );
   return ( topology.empty() || topology == edge.topology ) && metric > 0
          && metric <= maximumLinkMetric;
}

std::optional< OracleCost >
LabOracle::cost( const std::string & dst, const Json & constraint ) {
   std::map< std::string, OracleCost > best{ { source_, {} } };
   for ( bool improved = !source_.empty(); improved; ) {
      improved = false;
      for ( const OracleEdge & edge : edges_ ) {
         const auto from = best.find( edge.from );
         if ( from == best.end() || !allowed( edge, constraint ) ) {
            continue;
         }
         const OracleCost cost{ from->second.srlgs + conflicts( edge, constraint ),
                                from->second.metric + step( edge, constraint ) };
         const auto to = best.find( edge.to );
         if ( cost.metric <= maximumPathMetric && ( to == best.end() || cost < to->second ) ) {
            best[ edge.to ] = cost;
            improved = true;
         }
      }
   }
   std::optional< OracleCost > least;
   for ( const std::string & end : tunnelEnds_[ dst ] ) {
      if ( const auto at = best.find( end );
           at != best.end() && ( !least || at->second < *least ) ) {
         least = at->second;
      }
   }
   return source_.empty() ? std::nullopt : least;
}

const OracleEdge *
LabOracle::edge( const std::string & from, const std::string & to,
                 const std::string & address ) const {
   const auto at = std::ranges::find_if( edges_, [ & ]( const OracleEdge & e ) {
      return e.from == from && e.to == to && std::ranges::count( e.farAddrs, address ) > 0;
   } );
   return at == edges_.end() ? nullptr : &*at;
}

std::vector< OracleEdge >
LabOracle::hops( const Json & status ) const {
   std::vector< OracleEdge > hops;
   std::string at = source_;
   for ( std::size_t i = 0; i < status[ "path" ].size(); ++i ) {
      const std::string to = status[ "pathTeRouterId" ][ i ];
      if ( const OracleEdge * hop = edge( at, to, status[ "path" ][ i ] ) ) {
         hops.push_back( *hop );
      }
      at = to;
   }
   return hops;
}

std::optional< OracleCost >
LabOracle::walk( const Json & status, const std::string & dst, const Json & constraint,
                 std::string & complaint ) {
   const std::size_t length = status[ "path" ].size();
   const Json srlgs = status.value( "pathSrlg", Json() );
   if ( status[ "pathTeRouterId" ].size() != length
        || ( srlgs.is_array() && srlgs.size() != length ) ) {
      complaint = "hop addresses, TE router ids and SRLGs differ in number";
      return std::nullopt;
   }
   const auto hops = this->hops( status );
   OracleCost cost;
   for ( std::size_t i = 0; i < length; ++i ) {
      const char * wrong =
         i >= hops.size() || hops[ i ].to != status[ "pathTeRouterId" ][ i ] ? "no such hop"
         : !allowed( hops[ i ], constraint ) ? "a hop that the constraint refuses"
         : srlgs.is_array() && srlgs[ i ] != Json( hops[ i ].srlg ) ? "other SRLGs"
                                                                    : nullptr;
      if ( wrong ) {
         complaint =
            wrong + ( " at hop " + std::to_string( i ) + ", " ) + status[ "path" ][ i ].dump();
         return std::nullopt;
      }
      cost.srlgs += conflicts( hops[ i ], constraint );
      cost.metric += step( hops[ i ], constraint );
   }
   if ( length > 0 && !tunnelEnds_[ dst ].contains( hops.back().to ) ) {
      complaint = "the path ends at " + hops.back().to;
      return std::nullopt;
   }
   return cost;
}
