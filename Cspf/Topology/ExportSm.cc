// Announced topology tables. A table is mounted while its announcement is ready and some VRF of its
// name and family wants topologies, and stands in that VRF's topology store while it is mounted.
// An announcement that ceases to be ready is treated as withdrawn; one that names another table is
// treated as withdrawn and made anew. Several may name one table, as while an IGP restarts under a
// new name: the table stands until the last of them goes. The agent owns the directory reactor,
// unless the toggle is off.

#include "Cspf/Topology/ExportSm.h"

#include "platform/LumZorch/Mount.h"
#include "platform/Trace/Trace.h"

namespace Cspf {

namespace {

constexpr const char *
igpWord( IgpSource source ) {
   return source == IgpSource::isis ? "isis" : source == IgpSource::ospf ? "ospf" : "";
}

}

std::string
zorchPath( Kivnet::AddressFamily af, const TopoId & topoId, const L3::VrfName & vrfName ) {
   return std::string( "routing/" ) + igpWord( topoId.igpSource() ) + "/topodb/"
          + ( af == Kivnet::AddressFamily::ipv4 ? "ip" : "ip6" ) + "/"
          + std::to_string( topoId.number1() ) + "/" + std::to_string( topoId.number2() ) + "/"
          + vrfName.stringValue();
}

void
mountZorchTable( const Lum::Ptr< Corvdb::EntityManager > & entityMgr, const std::string & path,
                 const Lum::Ptr< AllTopoDbDir > & allTopoDbDir, const TopoId & topoId,
                 const L3::VrfName & vrfName ) {
   using Routing::Topology::TopoDb;
   LumZorch::Mount mount( entityMgr );
   TRACE7( "Mounting topoDb " << path );
   const auto igpTopoDb = Lum::cast< const TopoDb >(
      mount.mount( { path, TopoDb::lumTypeName, LumZorch::MountMode::reader } ) );
   LUM_ASSERT( igpTopoDb );
   if ( const auto & allTopoDb = allTopoDbDir->allTopoDbColl( vrfName ) ) {
      allTopoDb->topoDbIs( topoId, igpTopoDb );
   }
}

void
unmountZorchTable( const Lum::Ptr< Corvdb::EntityManager > & entityMgr, const std::string & path ) {
   LumZorch::Mount( entityMgr ).unmount( path );
   TRACE7( "Unmounted " << path );
}

void
TopoDbExportSm::handleInitialized() {
   LUM_WATCH( exportPath_, initialized, handleTopoDbExport );
   LUM_WATCH( exportPath_, igpSource, handleTopoDbExport );
   LUM_WATCH( exportPath_, number1, handleTopoDbExport );
   LUM_WATCH( exportPath_, number2, handleTopoDbExport );
   LUM_WATCH( exportPath_, vrfName, handleTopoDbExport );
   LUM_WATCH( exportPath_, af, handleTopoDbExport );
   LUM_WATCH_KEYS( v4AllTopoDbDir_, allTopoDbColl, handleV4TopoDbDir );
   LUM_WATCH_KEYS( v6AllTopoDbDir_, allTopoDbColl, handleV6TopoDbDir );
   handleTopoDbExport();
}

void
TopoDbExportSm::doPrepareToDie() {
   if ( !zorchTableMounted() ) {
      return;
   }
   const std::string path = zorchPath( topoAf(), topoId(), topoVrfName() );
   const bool isLast = LumZorch::Mount( entityMgr_ ).mountCount( path ) == 1;
   const auto & allTopoDb = allTopoDbDir()->allTopoDbColl( topoVrfName() );
   if ( isLast && allTopoDb ) {
      allTopoDb->topoDbDel( topoId() );
   }
   unmountZorchTable( entityMgr_, path );
   zorchTableMountedIs( false );
}

void
TopoDbExportSm::handleTopoDbExport() {
   doPrepareToDie();
   const IgpSource igpSource = exportPath_->igpSource();
   if ( igpSource != IgpSource::isis && igpSource != IgpSource::ospf ) {
      Lum::assertFailed(
         "false && \"Invalid IGP source \" + valueToStrep( exportPath()->igpSource() )", __FILE__,
         __LINE__ );
   }
   topoVrfNameIs( exportPath_->vrfName() );
   topoAfIs( exportPath_->af() );
   topoIdIs( { igpSource, exportPath_->number1(), exportPath_->number2() } );
   initializedIs( exportPath_->initialized() );
   if ( initialized() && allTopoDbDir()->allTopoDbCollHas( topoVrfName() ) ) {
      mount();
   }
}

void
TopoDbExportSm::handleV4TopoDbDir( const L3::VrfName & vrfName ) {
   handleTopoDbDir( vrfName, Kivnet::AddressFamily::ipv4 );
}

void
TopoDbExportSm::handleV6TopoDbDir( const L3::VrfName & vrfName ) {
   handleTopoDbDir( vrfName, Kivnet::AddressFamily::ipv6 );
}

void
TopoDbExportSm::handleTopoDbDir( const L3::VrfName & vrfName, Kivnet::AddressFamily af ) {
   if ( !initialized() || vrfName != topoVrfName() || topoAf() != af ) {
      return;
   }
   if ( allTopoDbDir()->allTopoDbCollHas( vrfName ) ) {
      LUM_ASSERT( !zorchTableMounted() );
      mount();
   } else if ( zorchTableMounted() ) {
      unmountZorchTable( entityMgr_, zorchPath( topoAf(), topoId(), vrfName ) );
      zorchTableMountedIs( false );
   }
}

void
TopoDbExportSm::mount() {
   mountZorchTable( entityMgr_, zorchPath( topoAf(), topoId(), topoVrfName() ), allTopoDbDir(),
                    topoId(), topoVrfName() );
   zorchTableMountedIs( true );
}

const Lum::Ptr< AllTopoDbDir > &
TopoDbExportSm::allTopoDbDir() const {
   switch ( topoAf() ) {
   case Kivnet::AddressFamily::ipv4: return v4AllTopoDbDir_;
   case Kivnet::AddressFamily::ipv6: return v6AllTopoDbDir_;
   default: Lum::assertFailed( "false", __FILE__, __LINE__ );
   }
}

void
TopoDbExportDirSm::handleInitialized() {
   TRACE7( "topoDbExportDirSm getting initialized" );
   LUM_FOLLOW_KEYS( topoDbExportDir_, entity, handleTopoDbExportDir );
}

void
TopoDbExportDirSm::handleTopoDbExportDir( const Lum::String & name ) {
   using Routing::Topology::ExportPath;
   const auto entity = topoDbExportDir_->entity( name );
   const auto exportPathPtr = Lum::cast< const ExportPath >( entity );
   if ( entity ) {
      LUM_ASSERT( exportPathPtr );
   }
   if ( exportPathPtr && !topoDbExportSmHas( name ) ) {
      TRACE7( "Creating TopoDbExportSm for " << name );
      topoDbExportSmIs( name, exportPathPtr, entityMgr_, v4AllTopoDbDir_, v6AllTopoDbDir_ );
   } else if ( !exportPathPtr && topoDbExportSmHas( name ) ) {
      TRACE7( "Deleting TopoDbExportSm for " << name );
      topoDbExportSmDel( name );
   }
}

}
