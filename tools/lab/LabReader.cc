// Reads a document. What names something, and what has its default from the network, comes after
// the topologies, wherever it stands in the text: the router, its TE router id, its interfaces and
// its IS-IS identities, and the paths.

#include "tools/lab/LabDocumentReader.h"

#include "schema/CspfClient.h"
#include "tools/pace/Job.h"
#include "tools/state/Announcement.h"
#include "tools/state/StateWalk.h"

namespace Lab {

namespace {

/// {"type", "value"}: a patch of what may stand at the path, `agents`: what the agent wrote there.
/// Null takes away what else would be there.
LabStateText
readStateText( const LabCursor & at, bool agents ) {
   const std::string path( at.key() );
   const State::PathKind * kind = State::anyKind( path );
   if ( !kind || kind->isAgents != agents ) {
      at.fail( agents ? "as key, a state path that the agent writes"
                      : "as key, a state path that others than the agent write",
               LabJson( path ).inShort() );
   }
   if ( !agents && at.value().isNull() ) {
      return {};
   }
   LabStateText text{ kind->typeName, "{}" };
   readObject( at,
               requiredKey( "type", "the type of the state",
                            [ & ]( auto & v ) {
                               if ( readText( v, "a state type" ) != text.type ) {
                                  v.fail( "\"" + text.type + "\"" );
                               }
                            } ),
               key( "value", [ & ]( auto & v ) { text.value = v.value().text(); } ) );
   try {
      State::merge( *State::makeEntity( text.type ), nlohmann::json::parse( text.value ) );
   } catch ( const State::Error & error ) {
      throw LabError( at.pointer() + "/value" + error.pointer(), "expected " + error.expected() );
   }
   return text;
}

}

void
DocumentReader::readAll() {
   readScalars();
   section( "topologies", [ & ]( const LabCursor & v ) { readTopologies( v ); } );
   readSurroundings();
   readAllPaths();
   readTexts();
}

void
DocumentReader::readSurroundings() {
   section( "router", [ & ]( const LabCursor & v ) { readRouter( v ); } );
   setTeRouterId();
   setInterfaces();
   setSystemIds();
   section( "te", [ & ]( const LabCursor & v ) { readTe( v ); } );
   section( "interfaces", [ & ]( const LabCursor & v ) { readInterfaces( v ); } );
   section( "segmentRouting", [ & ]( const LabCursor & v ) { readSegmentRouting( v ); } );
   section( "clients", [ & ]( const LabCursor & v ) {
      forEachMember( v, [ & ]( const LabCursor & client ) { readClient( client ); } );
   } );
}

void
DocumentReader::readAllPaths() {
   document.paths.clear();
   pathNames_.clear();
   section( "paths", [ & ]( const LabCursor & v ) {
      forEachMember( v, [ & ]( const LabCursor & client ) { readPaths( client ); } );
   } );
}

void
DocumentReader::readTexts() {
   const auto read = [ & ]( const char * name, LabStateTexts & to, bool agents ) {
      section( name, [ & ]( const LabCursor & v ) {
         forEachMember( v, [ & ]( const LabCursor & one ) {
            const LabStateText & text = to[ std::string( one.key() ) ] =
               readStateText( one, agents );
            checkAnnouncement( one, text );
         } );
      } );
   };
   read( "state", document.state, false );
   read( "published", document.published, true );
}

/// Of one that a topology makes the text says what is different.
void
DocumentReader::checkAnnouncement( const LabCursor & at, const LabStateText & text ) const {
   using Routing::Topology::ExportPath;
   if ( text.type != ExportPath::lumTypeName ) {
      return;
   }
   const auto announcement = Lum::make< ExportPath >();
   const std::string_view path = at.key();
   const auto topology =
      document.topologies.find( std::string( path.substr( path.rfind( '/' ) + 1 ) ) );
   if ( topology != document.topologies.end() && topology->second.exported ) {
      announcement->afIs( topology->second.af );
      announcement->initializedIs( topology->second.exportReady );
   }
   State::merge( *announcement, State::Json::parse( text.value ) );
   if ( const auto fault = State::faultOf( *announcement ) ) {
      throw LabError( at.pointer() + "/value" + fault->pointer(), "expected " + fault->expected() );
   }
}

void
DocumentReader::readScalars() {
   const Lum::Ptr< Cspf::CspfCliConfig > defaults( new Cspf::CspfCliConfig );
   document.throttle = { defaults->initialInt(), defaults->holdInt(), defaults->maxInt() };
   const auto later = []( const LabCursor & ) {};
   readObject(
      at_,
      requiredKey( "router", "the name of the router that the agent runs on",
                   [ & ]( auto & v ) { document.router = readText( v, "a router's name" ); } ),
      key( "te", later ),
      key( "routing",
           [ & ]( auto & v ) {
              readObject( v, key( "routerIdV4",
                                  [ & ]( auto & id ) { document.routerIdV4 = readIpv4( id ); } ) );
           } ),
      key( "throttle", [ & ]( auto & v ) { readThrottle( v ); } ),
      key( "toggles",
           [ & ]( auto & v ) {
              readObject( v, key( "OspfTopoDbExport", [ & ]( auto & on ) {
                             document.toggles.ospfTopoDbExport = readBool( on );
                          } ) );
           } ),
      key( "interfaces", later ), key( "segmentRouting", later ),
      requiredKey( "topologies", "an object of topologies", later ), key( "clients", later ),
      key( "paths", later ), key( "events", later ), key( "state", later ),
      key( "published", later ) );
}

void
DocumentReader::readThrottle( const LabCursor & at ) {
   LabThrottle & throttle = document.throttle;
   readObject( at,
               key( "initialInt", [ & ]( auto & v ) { throttle.initialInt = readUint32( v ); } ),
               key( "holdInt", [ & ]( auto & v ) { throttle.holdInt = readUint32( v ); } ),
               key( "maxInt", [ & ]( auto & v ) { throttle.maxInt = readUint32( v ); } ) );
}

void
DocumentReader::readTopologies( const LabCursor & at ) {
   std::map< std::tuple< Vrf, Af, Cspf::TopoId >, std::string > names;
   forEachMember( at, [ & ]( const LabCursor & v ) {
      const std::string name( v.key() );
      const auto topology =
         document.topologies.emplace( name, readTopology( v, topologyNames_[ name ] ) ).first;
      const auto & [ vrf, af, id ] =
         std::tie( topology->second.vrf, topology->second.af, topology->second.id );
      const auto [ first, isNew ] = names.try_emplace( { vrf, af, id }, name );
      if ( !isNew ) {
         v.fail( "a VRF, family, IGP and numbers that no other topology has",
                 "those of " + LabJson( first->second ).inShort() );
      }
   } );
}

const LabRouter *
DocumentReader::self( const LabTopology & topology ) const {
   const auto router = topology.routers.find( document.router );
   return router == topology.routers.end() ? nullptr : &router->second;
}

/// Where no topology has any router, which an event may bring about, the name refers to what is
/// not there yet.
void
DocumentReader::readRouter( const LabCursor & at ) {
   bool anyRouter = false;
   for ( const auto & [ name, topology ] : document.topologies ) {
      if ( self( topology ) ) {
         return;
      }
      anyRouter |= !topology.routers.empty();
   }
   if ( anyRouter ) {
      at.fail( "the name of a router of a topology" );
   }
}

void
DocumentReader::setTeRouterId() {
   forEachTopology( [ & ]( const LabTopology & topology ) {
      const LabRouter * router = self( topology );
      if ( !document.te.routerId && router && router->teRouterId.af() == Af::ipv4 ) {
         document.te.routerId = router->teRouterId.v4();
      }
   } );
}

void
DocumentReader::setInterfaces() {
   for ( const auto & [ name, topology ] : document.topologies ) {
      for ( const auto & [ linkName, link ] : topology.links ) {
         if ( link.a.router == document.router ) {
            document.interfaces.emplace( link.a.intf, link.ab.attributes.srlg );
         }
         if ( link.b.router == document.router ) {
            document.interfaces.emplace( link.b.intf, link.ba.attributes.srlg );
         }
      }
      for ( const auto & [ lanName, lan ] : topology.lans ) {
         if ( const auto own = lan.members.find( document.router ); own != lan.members.end() ) {
            document.interfaces.emplace( own->second.intf, own->second.attributes.srlg );
         }
      }
   }
   document.interfaces.erase( Kivnet::IntfId() );
}

void
DocumentReader::setSystemIds() {
   forEachTopology( [ & ]( const LabTopology & topology ) {
      const LabRouter * router = self( topology );
      if ( router && topology.id.igpSource() == Cspf::IgpSource::isis ) {
         document.segmentRouting.emplace( topology.vrf, router->id.isisSystemId() );
      }
   } );
}

void
DocumentReader::readTe( const LabCursor & at ) {
   readObject( at, key( "enabled", [ & ]( auto & v ) { document.te.enabled = readBool( v ); } ),
               key( "routerId", [ & ]( auto & v ) { document.te.routerId = readIpv4( v ); } ) );
}

/// One that is named keeps the SRLGs of its link only where it is named for its bandwidth.
void
DocumentReader::readInterface( const LabCursor & at, const Kivnet::IntfId & intf, Srlgs & srlgs ) {
   LabInterfaceBandwidth bandwidth;
   const auto readList = [ & ]( const LabCursor & list ) {
      srlgs.clear();
      forEachElement( list, list.list( "a list of SRLG ids" ),
                      [ & ]( const LabCursor & id ) { srlgs.push_back( readUint32( id ) ); } );
   };
   if ( !at.value().find( "bandwidth" ) ) {
      srlgs.clear();
   }
   readObject(
      at, key( "srlg", readList ),
      key( "bandwidth", [ & ]( auto & v ) { bandwidth.bandwidth = readWholeBandwidth( v ); } ),
      key( "aggregate", [ & ]( auto & v ) { bandwidth.aggregate = readBool( v ); } ) );
   if ( bandwidth.bandwidth > 0 ) {
      document.interfaceBandwidths[ intf ] = bandwidth;
   }
}

void
DocumentReader::readInterfaces( const LabCursor & at ) {
   forEachMember( at, [ & ]( const LabCursor & v ) {
      const auto intf = document.interfaces.find( Kivnet::IntfId( v.key() ) );
      if ( intf == document.interfaces.end() ) {
         v.fail( "as key, the name of an interface of the lab's router",
                 LabJson( std::string( v.key() ) ).inShort() );
      }
      readInterface( v, intf->first, intf->second );
   } );
}

void
DocumentReader::readSegmentRouting( const LabCursor & at ) {
   forEachMember( at, [ & ]( const LabCursor & v ) {
      const Vrf vrf = checkPathName( v, std::string( v.key() ), "as key, a VRF name" );
      readObject( v, key( "systemId", [ & ]( auto & id ) {
                     document.segmentRouting[ vrf ] = readSystemId( id );
                  } ) );
   } );
}

void
DocumentReader::readClient( const LabCursor & at ) {
   const std::string name = checkPathName( at, std::string( at.key() ), "as key, a client's name" );
   LabClient & client = document.clients[ name ];
   readObject( at,
               key( "vrf",
                    [ & ]( auto & v ) {
                       forEachMember( v, [ & ]( const LabCursor & on ) {
                          const Vrf vrf =
                             checkPathName( on, std::string( on.key() ), "as key, a VRF name" );
                          client.vrf[ vrf ] = readBool( on );
                       } );
                    } ),
               key( "addressFamily",
                    [ & ]( auto & v ) {
                       const auto family = [ & ]( const char * text, Af af ) {
                          return key( text, [ &client, af ]( auto & on ) {
                             client.addressFamily[ af ] = readBool( on );
                          } );
                       };
                       readObject( v, family( "ipv4", Af::ipv4 ), family( "ipv6", Af::ipv6 ) );
                    } ),
               key( "bwmRequired", [ & ]( auto & v ) { client.bwmRequired = readBool( v ); } ) );
}

void
DocumentReader::readPaths( const LabCursor & at ) {
   const std::string client =
      checkPathName( at, std::string( at.key() ), "as key, a client's name" );
   document.paths[ client ];
   forEachMember( at, [ & ]( const LabCursor & v ) { readPath( v, client ); } );
}

void
DocumentReader::readPath( const LabCursor & at, const std::string & client ) {
   const std::string name( at.key() );
   const LabPath & path =
      document.paths[ client ]
         .insert_or_assign( name, Lab::readPath( at, client, document, interfaces_ ) )
         .first->second;
   const auto [ first, isNew ] = pathNames_[ client ].try_emplace( keyOf( path ), name );
   if ( !isNew ) {
      at.fail( "a VRF, family, destination and id that no other path of the client has",
               "those of " + LabJson( first->second ).inShort() );
   }
}

LabReading::LabReading( LabJson root ) : LabReading() {
   root_ = std::move( root );
   readAll();
}

LabReading::~LabReading() {
   for ( auto & [ client, paths ] : document_.paths ) {
      Pace::takeApart( paths );
   }
   for ( auto & [ client, names ] : pathNames_ ) {
      Pace::takeApart( names );
   }
   for ( auto & [ name, topology ] : document_.topologies ) {
      Pace::takeApart( topology.routers );
      Pace::takeApart( topology.links );
      Pace::takeApart( topology.lans );
   }
   for ( auto & [ topology, names ] : topologyNames_ ) {
      Pace::takeApart( names.routerIds );
      Pace::takeApart( names.addresses );
      Pace::takeApart( names.pseudonodes );
   }
}

void
LabReading::readAll() {
   document_ = {};
   topologyNames_.clear();
   pathNames_.clear();
   DocumentReader( *this ).readAll();
}

LabChange
LabReading::apply( const LabJson & patch ) {
   root_.merge( patch );
   try {
      if ( auto change = DocumentReader( *this ).reread( patch ) ) {
         return std::move( *change );
      }
   } catch ( const LabError & ) {
      // What is wrong is said as of the whole, whose first error may be another.
   }
   readAll();
   LabChange change;
   change.everything = true;
   return change;
}

}
