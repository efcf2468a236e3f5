#pragma once

#include "Cspf/Topology/Store.h"
#include "platform/Corvdb/EntityManager.h"
#include "platform/Lum/Dir.h"
#include "schema/Topology.h"

namespace Cspf {

/// The table of a topology: "routing/isis/topodb/ip/2/0/default". The IGP word of an unknown
/// source is empty.
std::string zorchPath( Kivnet::AddressFamily af, const TopoId & topoId,
                       const L3::VrfName & vrfName );

/// Mounts a topology table for reading and, where the directory has the VRF, registers it there.
void mountZorchTable( const Lum::Ptr< Corvdb::EntityManager > & entityMgr, const std::string & path,
                      const Lum::Ptr< AllTopoDbDir > & allTopoDbDir, const TopoId & topoId,
                      const L3::VrfName & vrfName );
void unmountZorchTable( const Lum::Ptr< Corvdb::EntityManager > & entityMgr,
                        const std::string & path );

/// Holds one announced topology table mounted and registered, while the announcement is ready and
/// some VRF of its name and family wants topologies. Machines of announcements that name one table
/// share its registration.
///
///   watches                         handler               does
///   ExportPath, all attributes      handleTopoDbExport    mounts, or takes the table away
///   IPv4 AllTopoDbDir.allTopoDbColl handleV4TopoDbDir     mounts or unmounts
///   IPv6 AllTopoDbDir.allTopoDbColl handleV6TopoDbDir     mounts or unmounts
class TopoDbExportSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, TopoDbExportSm );
   TopoDbExportSm( const Lum::String & name,
                   const Lum::Ptr< const Routing::Topology::ExportPath > & exportPath,
                   const Lum::Ptr< Corvdb::EntityManager > & entityMgr,
                   const Lum::Ptr< AllTopoDbDir > & v4AllTopoDbDir,
                   const Lum::Ptr< AllTopoDbDir > & v6AllTopoDbDir )
      : name_( name ),
        exportPath_( exportPath ),
        entityMgr_( entityMgr ),
        v4AllTopoDbDir_( v4AllTopoDbDir ),
        v6AllTopoDbDir_( v6AllTopoDbDir ) {}
   LUM_ATTRIBUTE( topoId, TopoId );
   LUM_ATTRIBUTE( topoVrfName, L3::VrfName );
   LUM_ATTRIBUTE( topoAf, Kivnet::AddressFamily );
   LUM_ATTRIBUTE( initialized, bool );
   LUM_ATTRIBUTE( zorchTableMounted, bool );

   const Lum::String & name() const noexcept { return name_; }

   void handleInitialized() override;
   /// Unregisters the table, unless another announcement names it, before its memory goes.
   void doPrepareToDie() override;
   void handleTopoDbExport();
   void handleV4TopoDbDir( const L3::VrfName & vrfName );
   void handleV6TopoDbDir( const L3::VrfName & vrfName );

 private:
   const Lum::Ptr< AllTopoDbDir > & allTopoDbDir() const;
   void handleTopoDbDir( const L3::VrfName & vrfName, Kivnet::AddressFamily af );
   void mount();

   const Lum::String name_;
   const Lum::Ptr< const Routing::Topology::ExportPath > exportPath_;
   const Lum::Ptr< Corvdb::EntityManager > entityMgr_;
   const Lum::Ptr< AllTopoDbDir > v4AllTopoDbDir_;
   const Lum::Ptr< AllTopoDbDir > v6AllTopoDbDir_;
};

/// Watches the announcements of topology tables.
///
///   watches                  handler                  makes
///   Lum::Dir of ExportPaths  handleTopoDbExportDir    topoDbExportSm, one an announcement
class TopoDbExportDirSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, TopoDbExportDirSm );
   TopoDbExportDirSm( const Lum::Ptr< Corvdb::EntityManager > & entityMgr,
                      const Lum::Ptr< const Lum::Dir > & topoDbExportDir,
                      const Lum::Ptr< AllTopoDbDir > & v4AllTopoDbDir,
                      const Lum::Ptr< AllTopoDbDir > & v6AllTopoDbDir )
      : entityMgr_( entityMgr ),
        topoDbExportDir_( topoDbExportDir ),
        v4AllTopoDbDir_( v4AllTopoDbDir ),
        v6AllTopoDbDir_( v6AllTopoDbDir ) {}
   LUM_CHILDREN( topoDbExportSm, Lum::String, TopoDbExportSm );

   void handleInitialized() override;
   void doPrepareToDie() override { topoDbExportSmDelAll(); }
   /// The announcement `name` came, changed or went.
   void handleTopoDbExportDir( const Lum::String & name );

 private:
   const Lum::Ptr< Corvdb::EntityManager > entityMgr_;
   const Lum::Ptr< const Lum::Dir > topoDbExportDir_;
   const Lum::Ptr< AllTopoDbDir > v4AllTopoDbDir_;
   const Lum::Ptr< AllTopoDbDir > v6AllTopoDbDir_;
};

}
