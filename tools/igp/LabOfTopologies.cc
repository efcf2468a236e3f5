// A lab names routers, each address once, and writes a link once for both of its ends.

#include "tools/igp/LabOfTopologies.h"

#include "tools/igp/CaptureText.h"
#include "tools/lab/LabWriter.h"

#include <algorithm>
#include <utility>

namespace Igp {

namespace {

using Json = nlohmann::ordered_json;
using Cspf::IgpRouterId;

Json
attributesOf( const LinkEnd & link ) {
   Json json = Json::object();
   json[ "metric" ] = link.metric;
   if ( link.te.teMetric ) {
      json[ "teMetric" ] = *link.te.teMetric;
   }
   if ( link.te.adminGroup ) {
      json[ "adminGroup" ] = Lab::maskOf( link.te.adminGroup );
   }
   if ( link.te.bandwidth > 0 ) {
      json[ "bandwidth" ] = Lab::numberOf( link.te.bandwidth );
   }
   const auto & unreserved = link.te.unreserved;
   if ( std::ranges::any_of( unreserved, [ & ]( float u ) { return u != link.te.bandwidth; } ) ) {
      Json & list = json[ "unreserved" ] = Json::array();
      for ( const float one : unreserved ) {
         list.push_back( Lab::numberOf( one ) );
      }
   }
   return json;
}

/// What `other` says that differs from `one`: an override of one direction. What `other` leaves out
/// stands with the value that it has then.
Json
difference( const LinkEnd & one, const LinkEnd & other ) {
   const Json base = attributesOf( one ), said = attributesOf( other );
   Json differing = Json::object();
   for ( const auto & [ name, value ] : said.items() ) {
      if ( !base.contains( name ) || base[ name ] != value ) {
         differing[ name ] = value;
      }
   }
   if ( one.te.teMetric && !other.te.teMetric ) {
      differing[ "teMetric" ] = other.metric;
   }
   if ( one.te.adminGroup && !other.te.adminGroup ) {
      differing[ "adminGroup" ] = 0;
   }
   if ( one.te.bandwidth > 0 && other.te.bandwidth == 0 ) {
      differing[ "bandwidth" ] = 0;
   }
   if ( base.contains( "unreserved" ) && !said.contains( "unreserved" ) ) {
      differing[ "unreserved" ] = Lab::numberOf( other.te.bandwidth );
   }
   return differing;
}

/// The router whose pseudonode that is.
IgpRouterId
ownerOf( const IgpRouterId & pseudonode ) {
   return pseudonode.type() == Cspf::VertexType::isisRouter
             ? IgpRouterId( pseudonode.isisSystemId() )
             : IgpRouterId( pseudonode.type(), pseudonode.ipAddress().stringValue() );
}

class TopologyWriter {
 public:
   TopologyWriter( const Topology & topology, Findings & findings )
      : topology_( topology ),
        findings_( findings ) {}

   Json write();
   const std::string & name( const IgpRouterId & id ) const { return names_.at( id ); }

 private:
   void nameRouters();
   Json routerOf( const IgpRouterId & id, const Router & router ) const;
   void addLink( Json & links, const IgpRouterId & id, const LinkEnd & link );
   void addLans( Json & lans );
   using Members = std::vector< std::pair< IgpRouterId, const LinkEnd * > >;
   Json membersOf( const IgpRouterId & pseudonode, const Members & members );
   Json addressesOf( const Addresses & addresses, const std::string & where );

   const Topology & topology_;
   Findings & findings_;
   std::map< IgpRouterId, std::string > names_;
   std::set< std::string > linkNames_;
   std::set< Kivnet::IpGenAddr > addresses_;
};

void
TopologyWriter::nameRouters() {
   std::set< std::string > taken;
   for ( const auto & [ id, router ] : topology_.routers ) {
      std::string name = router.name;
      while ( !taken.insert( name ).second ) {
         name += "-" + id.stringValue();
      }
      names_[ id ] = name;
   }
}

/// One address, or a list where there are several. An address that another end has is left out.
Json
TopologyWriter::addressesOf( const Addresses & addresses, const std::string & where ) {
   Json list = Json::array();
   for ( const auto & address : addresses ) {
      if ( list.size() > Routing::Topology::AddrIndex::max ) {
         break;
      }
      if ( addresses_.insert( address ).second ) {
         list.push_back( address.stringValue() );
      } else {
         findings_.push_back( where + ": the address " + address.stringValue()
                              + " is there twice; left out" );
      }
   }
   return list.size() == 1 ? list.front() : list;
}

Json
TopologyWriter::routerOf( const IgpRouterId & id, const Router & router ) const {
   Json json = { { "id", id.stringValue() } };
   if ( router.teRouterId ) {
      json[ "teRouterId" ] = router.teRouterId.stringValue();
   }
   if ( router.overload ) {
      json[ "overload" ] = true;
   }
   Json prefixes;
   for ( const auto & [ prefix, metric ] : router.prefixes ) {
      Lab::append( prefixes, prefix.stringValue(), metric );
   }
   if ( !prefixes.is_null() ) {
      json[ "prefixes" ] = std::move( prefixes );
   }
   return json;
}

void
TopologyWriter::addLink( Json & links, const IgpRouterId & id, const LinkEnd & link ) {
   const auto far = topology_.routers.find( link.to );
   if ( link.lan || far == topology_.routers.end() || ( link.reverse && link.to < id ) ) {
      return;
   }
   std::string name = names_[ id ] + "-" + names_[ link.to ];
   for ( int number = 2; !linkNames_.insert( name ).second; ++number ) {
      name = names_[ id ] + "-" + names_[ link.to ] + "-" + std::to_string( number );
   }
   Json json = { { "a", names_[ id ] }, { "b", names_[ link.to ] } };
   const LinkEnd * back = link.reverse ? &far->second.links[ *link.reverse ] : nullptr;
   const auto addAddresses = [ & ]( const char * key, const Addresses & addresses ) {
      if ( Json list = addressesOf( addresses, "link " + name ); !list.empty() ) {
         json[ key ] = std::move( list );
      }
   };
   addAddresses( "aAddr", link.local );
   addAddresses( "bAddr", link.remote );
   if ( !link.intf.empty() ) {
      json[ "aIntf" ] = link.intf;
   }
   if ( back && !back->intf.empty() ) {
      json[ "bIntf" ] = back->intf;
   }
   json.update( attributesOf( link ) );
   if ( !back ) {
      json[ "ba" ] = false;
   } else if ( Json differing = difference( link, *back ); !differing.empty() ) {
      json[ "ba" ] = std::move( differing );
   }
   Lab::append( links, name, std::move( json ) );
}

/// `members` are in the order of their routers.
Json
TopologyWriter::membersOf( const IgpRouterId & pseudonode, const Members & members ) {
   const std::string where = "LAN " + pseudonode.stringValue();
   const auto at = topology_.lans.find( pseudonode );
   Json json;
   IgpRouterId last;
   for ( const auto & [ id, link ] : members ) {
      const std::string & name = names_[ id ];
      if ( id == std::exchange( last, id ) ) {
         findings_.emplace_back( where ).append( ": " ).append( name ).append(
            " is on it twice; the second time left out" );
         continue;
      }
      Json member = Json::object();
      if ( Json list = addressesOf( link->local, where ); !list.empty() ) {
         member[ "addr" ] = std::move( list );
      }
      if ( !link->intf.empty() ) {
         member[ "intf" ] = link->intf;
      }
      member.update( attributesOf( *link ) );
      if ( at == topology_.lans.end() || !at->second.contains( id ) ) {
         member[ "attached" ] = false;
      }
      Lab::append( json, name, std::move( member ) );
   }
   return json;
}

void
TopologyWriter::addLans( Json & lans ) {
   std::map< IgpRouterId, Members > byPseudonode;
   for ( const auto & [ id, router ] : topology_.routers ) {
      for ( const LinkEnd & link : router.links ) {
         if ( link.lan ) {
            byPseudonode[ link.to ].emplace_back( id, &link );
         }
      }
   }
   for ( const auto & [ pseudonode, members ] : byPseudonode ) {
      const auto dr = names_.find( ownerOf( pseudonode ) );
      if ( dr == names_.end() ) {
         findings_.push_back( "LAN " + pseudonode.stringValue()
                              + ": its designated router says nothing of itself; not used" );
         continue;
      }
      const auto number =
         std::stoul( pseudonode.stringValue().substr( pseudonode.stringValue().rfind( '.' ) + 1 ),
                     nullptr, 16 );
      Lab::append( lans, "lan-" + dr->second + "-" + std::to_string( number ),
                   { { "dr", dr->second },
                     { "pseudonode", number },
                     { "members", membersOf( pseudonode, members ) } } );
   }
}

Json
TopologyWriter::write() {
   nameRouters();
   Json json = Json::object();
   if ( topology_.vrf != L3::VrfName::defaultVrf() ) {
      json[ "vrf" ] = topology_.vrf.stringValue();
   }
   if ( topology_.af == Kivnet::AddressFamily::ipv6 ) {
      json[ "af" ] = "ipv6";
   }
   json[ "igp" ] = Lum::enumName( topology_.id.igpSource() );
   json[ "numbers" ] = { topology_.id.number1(), topology_.id.number2() };
   if ( topology_.id.number2() != 0 ) {
      json[ "export" ] = true;  // the router's own tables are one a level
   }
   Json routers = Json::object(), links = Json::object(), lans = Json::object();
   for ( const auto & [ id, router ] : topology_.routers ) {
      Lab::append( routers, names_[ id ], routerOf( id, router ) );
   }
   json[ "routers" ] = std::move( routers );
   for ( const auto & [ id, router ] : topology_.routers ) {
      for ( const LinkEnd & link : router.links ) {
         addLink( links, id, link );
      }
   }
   addLans( lans );
   if ( !links.empty() ) {
      json[ "links" ] = std::move( links );
   }
   if ( !lans.empty() ) {
      json[ "lans" ] = std::move( lans );
   }
   return json;
}

/// Adds what the client "rsvp" asks for: a path to every other TE router of IPv4, once where that
/// is in several topologies.
void
addPaths( Json & lab, const std::vector< Topology > & topologies,
          const std::vector< TopologyWriter > & writers ) {
   const std::string self = lab[ "router" ];
   std::set< std::pair< L3::VrfName, Kivnet::IpGenAddr > > destinations;
   std::set< std::string > labels;
   Json vrfs, paths;
   for ( std::size_t i = 0; i < topologies.size(); ++i ) {
      const Topology & topology = topologies[ i ];
      const std::string vrf = topology.vrf.stringValue();
      for ( const auto & [ id, one ] : topology.routers ) {
         const std::string & name = writers[ i ].name( id );
         if ( name == self || !one.teRouterId || topology.af != Kivnet::AddressFamily::ipv4
              || !destinations.emplace( topology.vrf, one.teRouterId ).second ) {
            continue;
         }
         std::string label = "to-" + name;
         while ( !labels.insert( label ).second ) {
            label.append( "-" ).append( vrf ).append( "-" ).append( topology.name );
         }
         Json path = { { "dst", one.teRouterId.stringValue() } };
         if ( topology.vrf != L3::VrfName::defaultVrf() ) {
            path[ "vrf" ] = vrf;
         }
         vrfs[ vrf ] = true;
         Lab::append( paths, label, std::move( path ) );
      }
   }
   if ( !paths.is_null() ) {
      lab[ "clients" ][ "rsvp" ] = { { "vrf", std::move( vrfs ) },
                                     { "addressFamily", { { "ipv4", true } } } };
      lab[ "paths" ][ "rsvp" ] = std::move( paths );
   }
}

}

Json
labOf( const std::vector< Topology > & topologies, const std::string & router, bool paths,
       Findings & findings ) {
   Json lab = { { "router", router } };
   Json & written = lab[ "topologies" ] = Json::object();
   std::vector< TopologyWriter > writers;
   bool found = false;
   for ( const Topology & topology : topologies ) {
      writers.emplace_back( topology, findings );
      const std::string name = topology.vrf == L3::VrfName::defaultVrf()
                                  ? topology.name
                                  : topology.vrf.stringValue() + "-" + topology.name;
      if ( topology.routers.empty() ) {
         findings.push_back( "topology " + name + ": the capture has no router of it; left out" );
         continue;
      }
      written[ name ] = writers.back().write();
      if ( router.empty() && !found && topology.routers.contains( topology.self ) ) {
         lab[ "router" ] = writers.back().name( topology.self );
      }
      found =
         found || written[ name ][ "routers" ].contains( lab[ "router" ].get< std::string >() );
   }
   if ( !found ) {
      throw CaptureError( router.empty()
                             ? "the capture does not say which router it is of: name one"
                             : "there is no router \"" + router + "\" in the capture" );
   }
   if ( paths ) {
      addPaths( lab, topologies, writers );
   }
   return lab;
}

}
