// The owner of one VRF's path service in one family. Start-up and tear-down are in fixed orders:
// tables come before the machines that fill them, the topology store before the views that read
// it, and all go in reverse. State machines are made and ended by VrfRootSm and by each other;
// here they only have their place. The machines of a path stand in one row, so that its key is
// kept once.

#include "Cspf/Agent/VrfRoot.h"

#include "Cspf/Agent/VrfRootSm.h"
#include "Cspf/Records/StatePaths.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

namespace Cspf {

namespace {

constexpr std::size_t intfIpCapacity = 2048;

using LumZorch::MountMode;

template< class T >
using Mount = LumZorch::TableMount< T >;

std::string
isisTopoDbPath( const VrfRoot & root, const char * level ) {
   const char * const word = root.af() == Kivnet::AddressFamily::ipv4 ? "ip" : "ip6";
   return std::string( "routing/isis/topodb/" ) + word + "/" + level + "/"
          + root.vrfName().stringValue();
}

}

struct VrfRoot::Tables {
   using TopoDb = Routing::Topology::TopoDb;

   explicit Tables( const VrfRoot & root )
      : intfIpToRouterId( root.entityManager_,
                          StatePath::ofVrf( StatePath::intfIpToRouterId, root.vrf_, root.af_ ),
                          MountMode::writer, { "intfIpToRouterId" }, intfIpCapacity ),
        constraintStatus( root.entityManager_,
                          StatePath::ofVrf( StatePath::constraintStatus, root.vrf_, root.af_ ),
                          MountMode::writer ),
        bwUsage( root.entityManager_, StatePath::ofVrf( StatePath::bwUsage, root.vrf_, root.af_ ),
                 MountMode::writer ) {}

   Mount< IntfIpToRouterIdTable > intfIpToRouterId;
   Mount< ConstraintStatusTable > constraintStatus;
   Mount< BwUsageTable > bwUsage;
   std::unique_ptr< Mount< TopoDb > > isisLevel1, isisLevel2;
};

VrfRoot::VrfRoot( const L3::VrfName & vrf, Kivnet::AddressFamily af,
                  const Lum::Ptr< Corvdb::EntityManager > & entityManager,
                  const Lum::Ptr< Lum::Dir > & dir,
                  const Lum::Ptr< const VrfSourceId > & vrfSourceId,
                  const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler,
                  const Lum::Ptr< const TrafficEngineering::Status > & teStatus,
                  const Lum::Ptr< AllTopoDb > & allTopoDb )
   : vrf_( vrf ),
     af_( af ),
     entityManager_( entityManager ),
     dir_( dir ),
     vrfSourceId_( vrfSourceId ),
     taskScheduler_( taskScheduler ),
     teStatus_( teStatus ),
     allTopoDb_( allTopoDb ) {}

VrfRoot::~VrfRoot() = default;

CspfRunMemory &
VrfRoot::runMemory() {
   if ( !runMemory_ ) {
      runMemory_ = std::make_unique< CspfRunMemory >();
   }
   return *runMemory_;
}

const ConstraintSmContext &
VrfRoot::constraintSmContext() {
   if ( !constraintSmContext_ ) {
      constraintSmContext_ = std::make_unique< ConstraintSmContext >(
         ConstraintSmContext{ cliConfig(), taskScheduler(), pathStatusInfoTable(),
                              pathStatusCacheTable(), runMemory() } );
   }
   return *constraintSmContext_;
}

void
VrfRoot::handleInitialized() {
   TRACE7( "vrf " << vrf_ << ", af " << Kivnet::text( af_ ) );
   tables_ = std::make_unique< Tables >( *this );
   cliConfigIs( entityManager_->entity< const CspfCliConfig >( "te/cspf/cliConfig" ) );
   constraintInfoTableIs();
   constraintStatsTableIs();
   dedupConstraintTableIs( constraintInfoTable() );
   pathConfigInfoTableIs();
   pathStatusInfoTableIs();
   pathStatusCacheTableIs();
   clientDataIs();
   doMountTopoDb();
   bwUsageManagerIs( allTopoDb_, bwUsageTable() );
   allTopoDbStatusIs( vrfSourceId_, tables_->intfIpToRouterId.table() );
   topology_ = { allTopoDb_, allTopoDbStatus(), bwUsageManager() };
   requestContext_ = { dedupConstraintTable(), pathStatusInfoTable(), pathStatusCacheTable(),
                       teStatus_, bwUsageManager()->localIdAllocator() };
   pathValidationMemory_ = std::make_unique< PathValidationMemory >( allTopoDbStatus() );
   pathUsageContext_ = std::make_unique< PathUsageContext >(
      PathUsageContext{ topology_, *pathValidationMemory_, {} } );
   allTopoDbSmIs( allTopoDb_, allTopoDbStatus(), taskScheduler_ );
   enableTopoDbClient();
   if ( teStatus_ ) {
      teIntfStatusSmIs( teStatus_, pathConfigInfoTable(), pathStatusInfoTable(), taskScheduler_ );
   }
   childPathStatusCacheSmIs( pathConfigInfoTable(), pathStatusCacheTable(), pathStatusInfoTable(),
                             constraintStatsTable() );
   repairScopeIs( topology_ );
   prefixWatchIs( allTopoDbStatus() );
   protectionTableIs();
   initializedIs( true );
}

void
VrfRoot::doPrepareToDie() {
   constraintInfoSmDelAll();
   constraintStatusSmDelAll();
   const auto paths = Lum::sortedKeys( pathStatusInfoTable()->pathStatusInfoColl() );
   pathStatusInfoTable()->pathStatusInfoDelAll();
   pathConfigInfoTable()->pathConfigInfoDelAll();
   for ( const PathInfoKey & key : paths ) {
      pathDel( key );
   }
   childPathStatusCacheSmDel();
   repairScopeDel();
   prefixWatchDel();
   protectionTableDel();
   teIntfStatusSmDel();
   dedupPqInfoTableDel();
   handleDestruction();
}

void
VrfRoot::pathDel( const PathInfoKey & key ) {
   pathConfigInfoSmDel( key );
   pathStatusInfoSmDel( key );
   pathStatusUpdateSmDel( key );
   pathRefreshSmDel( key );
   rsvpPathStitchSmDel( key );
   pathStatusCacheTable()->pathStatusCacheDel( key );
   pqComputeSmDel( key );
   pathUsageSmDel( key );
}

void
VrfRoot::pathConstraintsDel() {
   pathMachines_.forEach< &PathMachines::pathStatusInfoSm >(
      []( PathConstraintSm & machine ) { machine.ownerIs( nullptr ); } );
}

void
VrfRoot::handleDestruction() {
   TRACE7( "vrf " << vrf_ << ", af " << Kivnet::text( af_ ) );
   disableTopoDbClient();
   allTopoDbSmDel();
   bwUsageManagerDel();
   tables_->intfIpToRouterId.cleanup();
   tables_->constraintStatus.cleanup();
   tables_->bwUsage.cleanup();
   tables_ = nullptr;
}

void
VrfRoot::doMountTopoDb() {
   using TopoDbMount = Mount< Routing::Topology::TopoDb >;
   tables_->isisLevel1 = std::make_unique< TopoDbMount >(
      entityManager_, isisTopoDbPath( *this, "1" ), MountMode::reader );
   tables_->isisLevel2 = std::make_unique< TopoDbMount >(
      entityManager_, isisTopoDbPath( *this, "2" ), MountMode::reader );
   const auto & level1TopoDb = tables_->isisLevel1->table();
   const auto & level2TopoDb = tables_->isisLevel2->table();
   LUM_ASSERT( level1TopoDb );
   LUM_ASSERT( level2TopoDb );
   doRegisterTopoDb( TopoId::isisL1() );
   doRegisterTopoDb( TopoId::isisL2() );
}

/// The router's own table stands for its level unless one was announced under the same identity.
void
VrfRoot::doRegisterTopoDb( const TopoId & topoId ) {
   if ( allTopoDb_->topoDbHas( topoId ) ) {
      return;
   }
   if ( topoId == TopoId::isisL1() ) {
      allTopoDb_->topoDbIs( topoId, tables_->isisLevel1->table() );
   } else if ( topoId == TopoId::isisL2() ) {
      allTopoDb_->topoDbIs( topoId, tables_->isisLevel2->table() );
   }
}

void
VrfRoot::enableTopoDbClient() {
   using Client = Routing::Topology::Client;
   auto client = Lum::cast< Client >( dir_->entity( topoDbClientName ) );
   if ( !client ) {
      client = Lum::make< Client >();
      dir_->entityIs( topoDbClientName, client );
   }
   topoDbClientIs( client );
   client->needTopoDbIs( vrf_, true );
}

/// The client is one for all VRFs; the last one takes it away.
void
VrfRoot::disableTopoDbClient() {
   topoDbClient()->needTopoDbDel( vrf_ );
   if ( topoDbClient()->needTopoDbs() == 0 ) {
      dir_->entityDel( topoDbClientName );
   }
   topoDbClientDel();
}

const Lum::Ptr< ConstraintStatusTable > &
VrfRoot::constraintStatusTable() const noexcept {
   return tables_->constraintStatus.table();
}

const Lum::Ptr< BwUsageTable > &
VrfRoot::bwUsageTable() const noexcept {
   return tables_->bwUsage.table();
}

void
VrfRoot::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.dump( *allTopoDbSm(), indent + 2 );
   context.dump( *bwUsageManager(), indent + 2 );
   for ( const auto & [ handle, constraintInfo ] : constraintInfoTable()->constraintInfoColl() ) {
      context.printf( indent, "%*cConstraint %s\n", handle.stringValue().c_str() );
      context.dump( *constraintInfoSm( handle ), indent + 2 );
   }
   for ( const auto & key : Lum::sortedKeys( pathConfigInfoTable()->pathConfigInfoColl() ) ) {
      context.printf( indent, "%*c%s\n", key.traceString().stringValue().c_str() );
      context.dump( *pathConfigInfoTable()->pathConfigInfo( key ), indent + 2 );
      context.dump( *pathStatusInfoTable()->pathStatusInfo( key ), indent + 2 );
      const auto & pqCompute = pqComputeSm( key );
      if ( pqCompute ) {
         pqCompute->countHeld();
      }
      context.dump( *pathStatusCacheTable()->pathStatusCache( key ), indent + 2 );
      if ( const auto & usage = pathUsageSm( key ); usage && usage->pathBwUsage() ) {
         context.dump( *usage->pathBwUsage(), indent + 2 );
      }
      if ( pqCompute ) {
         context.dump( *pqCompute, indent + 2 );
      }
   }
}

}
