// Writes documents into state. Each step compares what should be with the live entities, which
// others may have changed, and changes the differences, in an order in which a router's own
// processes would: configuration, topologies, adjacencies, then which clients there are and what
// they ask for; a client goes when it asks for nothing any more. A new entity is filled before it
// is put where others can see it. The document written last says only what may be taken away again.

#include "tools/lab/LabState.h"

#include "platform/Toggle/Toggle.h"
#include "tools/lab/LabPatchedState.h"
#include "tools/pace/Job.h"

namespace Lab {

namespace {

/// Deletes the live entries that are not wanted, then sets those that are.
template< class Live, class Wanted, class Is, class Del >
void
sync( const Live & live, const Wanted & wanted, Is && is, Del && del ) {
   for ( const auto & key : Lum::sortedKeys( live ) ) {
      Pace::breathe();
      if ( !wanted.contains( key ) ) {
         del( key );
      }
   }
   for ( const auto & [ key, value ] : wanted ) {
      Pace::breathe();
      is( key, value );
   }
}

/// Fills the directory's entry, which is made where there is none of its type.
template< class T, class Fill >
void
entryIs( Lum::Dir & dir, const std::string & name, Fill && fill ) {
   if ( const auto present = Lum::cast< T >( dir.entity( name ) ) ) {
      fill( *present );
      return;
   }
   const auto entry = Lum::make< T >();
   fill( *entry );
   dir.entityIs( name, entry );
}

void
fillClient( Cspf::Client & entity, const LabClient & client ) {
   entity.bwmRequiredIs( client.bwmRequired );
   sync(
      entity.addressFamilyColl(), client.addressFamily,
      [ & ]( auto af, bool on ) { entity.addressFamilyIs( af, on ); },
      [ & ]( auto af ) { entity.addressFamilyDel( af ); } );
   sync(
      entity.vrfColl(), client.vrf, [ & ]( const auto & vrf, bool on ) { entity.vrfIs( vrf, on ); },
      [ & ]( const auto & vrf ) { entity.vrfDel( vrf ); } );
}

/// Whether both stand in the same table under the same announcement.
bool
samePlace( const LabTopology & a, const LabTopology & b ) {
   return a.vrf == b.vrf && a.af == b.af && a.id == b.id && a.exported == b.exported;
}

/// What there may be to take away, when another document is written after this one.
LabDocument
outlineOf( const LabDocument & document ) {
   LabDocument outline;
   outline.interfaceBandwidths = document.interfaceBandwidths;
   outline.segmentRouting = document.segmentRouting;
   outline.clients = document.clients;
   for ( const auto & [ name, topology ] : document.topologies ) {
      outline.topologies.emplace( name, topology.outline() );
   }
   return outline;
}

}

LabState::LabState( Corvdb::StateStore & state, Zorch::TableStore & tables )
   : state_( state ),
     tables_( tables ) {}

LabState::~LabState() = default;

void
LabState::write( const LabDocument & document ) {
   if ( !patched_ && document.state.empty() ) {
      writeWords( document );
      return;
   }
   if ( !patched_ ) {
      patched_ = std::make_unique< LabPatchedState >( state_.types(), pathsWritten() );
   }
   patched_->write( document, state_, tables_ );
}

/// What may have to be emptied when a lab patches state, and does not have it any more.
std::set< std::string >
LabState::pathsWritten() const {
   std::set< std::string > paths;
   for ( const auto & [ vrf, systemId ] : written_.segmentRouting ) {
      paths.insert( "segmentrouting/isis/" + vrf.stringValue() );
   }
   for ( const auto & [ name, client ] : written_.clients ) {
      paths.insert( "te/cspf/client/" + name );
   }
   for ( const auto & [ name, topology ] : written_.topologies ) {
      paths.insert( tablePath( topology ) );
      if ( topology.exported ) {
         paths.insert( "routing/topoDbExport/" + name );
      }
   }
   for ( const auto & [ vrf, names ] : hostnamesOf( written_ ) ) {
      paths.insert( "routing/isis/hostname/" + vrf.stringValue() );
      paths.insert( "routing/isis/adjacency/" + vrf.stringValue() );
   }
   for ( const auto & [ table, config ] : configs_ ) {
      paths.insert( table.configPath() );
   }
   return paths;
}

void
LabState::writeWords( const LabDocument & document ) {
   for ( const auto & [ name, topology ] : document.topologies ) {
      linkIds_.givenBy( topology );
   }
   writeSettings( document );
   writeTopologies( document );
   writeDemands( document );
   written_ = outlineOf( document );
}

void
LabState::write( const LabDocument & document, const LabChange & change ) {
   bool everything = change.everything || patched_ || !document.state.empty();
   for ( const auto & [ name, part ] : change.topologies ) {
      everything |= linkIds_.givenBy( part.after );
   }
   if ( everything ) {
      write( document );
      return;
   }
   if ( change.surroundings ) {
      writeSettings( document );
   }
   for ( const auto & [ name, part ] : change.topologies ) {
      const auto table = Lum::cast< Routing::Topology::TopoDb >(
         tables_.table( tablePath( document.topologies.at( name ) ) ) );
      changeTable( *table, tableOf( name, part.before, linkIds_ ),
                   tableOf( name, part.after, linkIds_ ) );
   }
   if ( change.surroundings ) {
      writeDemands( document );
      written_ = outlineOf( document );
   }
}

void
LabState::writeSettings( const LabDocument & document ) {
   writeConfiguration( document );
   writeInterfaces( document );
   writeSegmentRouting( document );
}

void
LabState::writeDemands( const LabDocument & document ) {
   writeAdjacencies( document );
   writeHostnames( document );
   writeClients( document );
   writePaths( document );
   cleanupClients( document );
   cleanupPaths( document );
}

void
LabState::writeConfiguration( const LabDocument & document ) {
   Toggle::toggleOverrideIs( "OspfTopoDbExport", document.toggles.ospfTopoDbExport );
   const auto throttle = state_.entityIs< Cspf::CspfCliConfig >( "te/cspf/cliConfig" );
   throttle->initialIntIs( document.throttle.initialInt );
   throttle->holdIntIs( document.throttle.holdInt );
   throttle->maxIntIs( document.throttle.maxInt );
   state_.entityIs< Routing::General::Config >( "routing/general/config/global" )
      ->routerIdV4Is( document.routerIdV4 );

   std::map< std::string, Lum::Set< TrafficEngineering::SrlgId > > srlgs;
   for ( const auto & [ intf, list ] : document.interfaces ) {
      auto & set = srlgs[ intf.stringValue() ];
      for ( const auto srlg : list ) {
         set.insert( srlg );
      }
   }
   const auto te = state_.entityIs< TrafficEngineering::Config >( "te/config" );
   sync(
      te->intfSrlgColl(), srlgs,
      [ & ]( const auto & intf, const auto & set ) { te->intfSrlgIs( intf, set ); },
      [ & ]( const auto & intf ) { te->intfSrlgDel( intf ); } );
   te->routerIdIs( document.te.routerId );
   te->enabledIs( document.te.enabled );
}

/// Only what a lab has said is taken away: others keep the platform's state, too.
void
LabState::writeInterfaces( const LabDocument & document ) {
   const auto ports =
      state_.entityIs< Interface::AllEthPhyIntfStatusDir >( "interface/status/eth/phy/all" );
   const auto aggregates =
      state_.entityIs< Interface::EthLagIntfStatusDir >( "interface/status/eth/lag" );
   for ( const auto & [ intf, before ] : written_.interfaceBandwidths ) {
      const auto now = document.interfaceBandwidths.find( intf );
      if ( now != document.interfaceBandwidths.end()
           && now->second.aggregate == before.aggregate ) {
         continue;
      }
      if ( before.aggregate ) {
         aggregates->bandwidthDel( intf );
      } else {
         ports->bandwidthDel( intf );
      }
   }
   for ( const auto & [ intf, said ] : document.interfaceBandwidths ) {
      if ( said.aggregate ) {
         aggregates->bandwidthIs( intf, said.bandwidth );
      } else {
         ports->bandwidthIs( intf, said.bandwidth );
      }
   }
}

void
LabState::writeSegmentRouting( const LabDocument & document ) {
   const auto dir = state_.entityIs< Lum::Dir >( "segmentrouting/isis" );
   for ( const auto & [ vrf, systemId ] : written_.segmentRouting ) {
      if ( !document.segmentRouting.contains( vrf ) ) {
         dir->entityDel( vrf.stringValue() );
      }
   }
   for ( const auto & [ vrf, systemId ] : document.segmentRouting ) {
      entryIs< Mpls::SegmentRouting::Status >(
         *dir, vrf.stringValue(),
         [ &id = systemId ]( auto & status ) { status.systemIdIs( id ); } );
   }
}

void
LabState::writeTopologies( const LabDocument & document ) {
   const auto isNew = [ & ]( const std::string & name ) {
      const auto at = written_.topologies.find( name );
      return at == written_.topologies.end()
             || !samePlace( at->second, document.topologies.at( name ) );
   };
   for ( const auto & [ name, topology ] : written_.topologies ) {
      if ( !document.topologies.contains( name ) || isNew( name ) ) {
         topologyDel( name, topology );
      }
   }
   for ( const auto & [ name, topology ] : document.topologies ) {
      topologyIs( name, topology, isNew( name ) );
   }
}

void
LabState::topologyIs( const std::string & name, const LabTopology & topology, bool isNew ) {
   const std::string path = tablePath( topology );
   const auto table =
      isNew ? tables_.mount< Routing::Topology::TopoDb >( path, Zorch::MountMode::writer )
            : Lum::cast< Routing::Topology::TopoDb >( tables_.table( path ) );
   writeTable( *table, tableOf( name, topology, linkIds_ ) );
   if ( !topology.exported ) {
      return;
   }
   entryIs< Routing::Topology::ExportPath >( *state_.entityIs< Lum::Dir >( "routing/topoDbExport" ),
                                             name, [ & ]( auto & announcement ) {
                                                announcement.igpSourceIs( topology.id.igpSource() );
                                                announcement.number1Is( topology.id.number1() );
                                                announcement.number2Is( topology.id.number2() );
                                                announcement.vrfNameIs( topology.vrf );
                                                announcement.afIs( topology.af );
                                                announcement.initializedIs( topology.exportReady );
                                             } );
}

void
LabState::topologyDel( const std::string & name, const LabTopology & topology ) {
   const std::string path = tablePath( topology );
   if ( topology.exported ) {
      state_.entityIs< Lum::Dir >( "routing/topoDbExport" )->entityDel( name );
   }
   if ( const auto table = Lum::cast< Routing::Topology::TopoDb >( tables_.table( path ) ) ) {
      writeTable( *table, {} );
   }
   tables_.unmount( path );
   if ( topology.exported ) {
      tables_.cleanup( path );
   }
}

void
LabState::writeAdjacencies( const LabDocument & document ) {
   const auto before = adjacenciesOf( written_ ), after = adjacenciesOf( document );
   const auto path = []( const Vrf & vrf ) {
      return "routing/isis/adjacency/" + vrf.stringValue();
   };
   const auto write = [ & ]( const Vrf & vrf, const LabAdjacencies & wanted ) {
      const auto table =
         Lum::cast< IsisExportImpl::IsisAdjacencyInfo >( tables_.table( path( vrf ) ) );
      sync(
         table->adjacencyColl(), wanted,
         [ & ]( const auto & key, const auto & value ) { table->adjacencyIs( key, value ); },
         [ & ]( const auto & key ) { table->adjacencyDel( key ); } );
   };
   for ( const auto & [ vrf, adjacencies ] : before ) {
      if ( !after.contains( vrf ) ) {
         write( vrf, {} );
         tables_.unmount( path( vrf ) );
      }
   }
   for ( const auto & [ vrf, wanted ] : after ) {
      if ( !before.contains( vrf ) ) {
         tables_.mount< IsisExportImpl::IsisAdjacencyInfo >( path( vrf ),
                                                             Zorch::MountMode::writer );
      }
      write( vrf, wanted );
   }
}

void
LabState::writeHostnames( const LabDocument & document ) {
   const auto before = hostnamesOf( written_ ), after = hostnamesOf( document );
   const auto write = [ this ]( const Vrf & vrf, const LabHostnames & wanted ) {
      const std::string path = "routing/isis/hostname/" + vrf.stringValue();
      const auto table =
         tables_.mount< Routing::Isis::Hostnames >( path, Zorch::MountMode::writer );
      sync(
         table->hostnameColl(), wanted,
         [ & ]( const auto & id, const auto & name ) { table->hostnameIs( id, name ); },
         [ & ]( const auto & id ) { table->hostnameDel( id ); } );
      tables_.unmount( path );
      if ( wanted.empty() ) {
         tables_.cleanup( path );
      }
   };
   for ( const auto & [ vrf, names ] : before ) {
      if ( !after.contains( vrf ) ) {
         write( vrf, {} );
      }
   }
   for ( const auto & [ vrf, names ] : after ) {
      write( vrf, names );
   }
}

void
LabState::writePaths( const LabDocument & document ) {
   LabConfigs wanted = configsOf( document );
   for ( const auto & [ table, asked ] : wanted ) {
      auto & config = configs_[ table ];
      if ( !config ) {
         config = tables_.mount< Cspf::Config >( table.configPath(), Zorch::MountMode::writer );
      }
   }
   for ( const auto & entry : configs_ ) {
      Cspf::Config & config = *entry.second;
      const auto at = wanted.find( entry.first );
      sync(
         config.pathConfigColl(), at == wanted.end() ? LabConfigs::mapped_type() : at->second,
         [ & ]( const auto &, const auto & asked ) { config.pathConfigIs( asked ); },
         [ & ]( const auto & key ) { config.pathConfigDel( key ); } );
   }
   for ( auto & [ table, asked ] : wanted ) {
      Pace::takeApart( asked );
   }
}

void
LabState::writeClients( const LabDocument & document ) {
   const auto dir = state_.entityIs< Lum::Dir >( "te/cspf/client" );
   for ( const auto & [ name, client ] : document.clients ) {
      entryIs< Cspf::Client >( *dir, name, [ &asked = client ]( Cspf::Client & entity ) {
         fillClient( entity, asked );
      } );
   }
}

void
LabState::cleanupClients( const LabDocument & document ) {
   const auto dir = state_.entityIs< Lum::Dir >( "te/cspf/client" );
   for ( const auto & [ name, client ] : written_.clients ) {
      if ( !document.clients.contains( name ) ) {
         dir->entityDel( name );
      }
   }
}

/// A client that is gone and asks for nothing leaves no table behind.
void
LabState::cleanupPaths( const LabDocument & document ) {
   for ( auto at = configs_.begin(); at != configs_.end(); ) {
      const auto & [ table, config ] = *at;
      if ( config->pathConfigs() > 0 || document.clients.contains( table.client ) ) {
         ++at;
         continue;
      }
      tables_.unmount( table.configPath() );
      tables_.cleanup( table.configPath() );
      at = configs_.erase( at );
   }
}

}
