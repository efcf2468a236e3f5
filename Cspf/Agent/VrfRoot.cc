// The owner of one VRF's path service in one family. Start-up and tear-down are in fixed orders:
// tables come before the machines that fill them, the topology store before the views that read
// it, and all go in reverse. State machines are made and ended by VrfRootSm and by each other;
// here they only have their place. A path has up to eight machines, which stand in one row, so
// that its key is kept once.

#include "Cspf/Agent/VrfRoot.h"

#include "Cspf/Agent/VrfRootSm.h"
#include "Cspf/Paths/ChildSm.h"
#include "Cspf/Paths/RefreshSm.h"
#include "Cspf/Paths/StatusUpdate.h"
#include "Cspf/Paths/StitchSm.h"
#include "Cspf/Paths/UsageSm.h"
#include "Cspf/Repairs/DedupPqInfoTable.h"
#include "Cspf/Repairs/PqComputeSm.h"
#include "Cspf/Requests/PathConfigInfoSm.h"
#include "Cspf/Requests/PathStatusInfoSm.h"
#include "Cspf/Runs/ConstraintInfoSm.h"
#include "Cspf/Runs/ConstraintStatusSm.h"
#include "Cspf/Runs/Run.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

namespace Cspf {

namespace {

constexpr std::size_t intfIpCapacity = 2048;

using LumZorch::MountMode;

template< class T >
using Mount = LumZorch::TableMount< T >;

}

struct PathMachines {
   Lum::Ptr< PathConfigInfoSm > pathConfigInfoSm;
   Lum::Ptr< PathStatusInfoSm > pathStatusInfoSm;
   Lum::Ptr< PathRefreshSm > pathRefreshSm;
   Lum::Ptr< PathStatusUpdateSm > pathStatusUpdateSm;
   Lum::Ptr< Lfa::PqComputeSm > pqComputeSm;
   Lum::Ptr< PathUsageSm > pathUsageSm;
   Lum::Ptr< RsvpPathStitchSm > rsvpPathStitchSm;
   Lum::Ptr< PathConstraintSm > pathConstraintSm;

   bool empty() const {
      return !pathConfigInfoSm && !pathStatusInfoSm && !pathRefreshSm && !pathStatusUpdateSm
             && !pqComputeSm && !pathUsageSm && !rsvpPathStitchSm && !pathConstraintSm;
   }
};

struct ConstraintMachines {
   Lum::Ptr< ConstraintInfoSmBase > constraintInfoSm;
   Lum::Ptr< ConstraintStatusSm > constraintStatusSm;

   bool empty() const { return !constraintInfoSm && !constraintStatusSm; }
};

/// Rows of machines by key. A row is there while one of its machines is.
template< class Key, class Row >
class MachineRows {
 public:
   template< auto member >
   const auto & get( const Key & key ) const {
      static const std::remove_cvref_t< decltype( std::declval< Row >().*member ) > none;
      const auto row = rows_.find( key );
      return row == rows_.end() ? none : row->second.*member;
   }
   template< auto member, class Machine >
   void set( const Key & key, Lum::Ptr< Machine > machine ) {
      del< member >( key );
      rows_[ key ].*member = machine;
      Lum::start( machine );
   }
   template< auto member >
   void del( const Key & key ) {
      const auto row = rows_.find( key );
      if ( row == rows_.end() ) {
         return;
      }
      auto machine = std::move( row->second.*member );
      row->second.*member = nullptr;
      if ( row->second.empty() ) {
         rows_.erase( row );
      }
      Lum::retire( machine );
   }
   template< auto member >
   void delAll() {
      for ( const Key & key : Lum::sortedKeys( rows_ ) ) {
         del< member >( key );
      }
   }

 private:
   Lum::Map< Key, Row > rows_;
};

namespace {

std::string
statePath( const char * kind, const VrfRoot & root ) {
   return std::string( "te/cspf/" ) + kind + "/vrf/" + root.vrfName().stringValue() + "/"
          + Kivnet::text( root.af() );
}

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
      : intfIpToRouterId( root.entityManager_, statePath( "intfIpToRouterId", root ),
                          MountMode::writer, { "intfIpToRouterId" }, intfIpCapacity ),
        constraintStatus( root.entityManager_, statePath( "constraintStatus", root ),
                          MountMode::writer ),
        bwUsage( root.entityManager_, statePath( "bwUsage", root ), MountMode::writer ) {}

   Mount< IntfIpToRouterIdTable > intfIpToRouterId;
   Mount< ConstraintStatusTable > constraintStatus;
   Mount< BwUsageTable > bwUsage;
   std::unique_ptr< Mount< TopoDb > > isisLevel1, isisLevel2;
};

struct VrfRoot::Machines {
   MachineRows< PathInfoKey, PathMachines > path;
   MachineRows< ConstraintHandle, ConstraintMachines > constraint;
};

#define CSPF_MACHINE( rows_, name_, Key, Row, ... )                                                \
   const Lum::Ptr< __VA_ARGS__ > & VrfRoot::name_( const Key & key ) const {                       \
      return machines_->rows_.get< &Row::name_ >( key );                                           \
   }                                                                                               \
   void VrfRoot::name_##Is( const Key & key, Lum::Ptr< __VA_ARGS__ > machine ) {                   \
      machines_->rows_.set< &Row::name_ >( key, std::move( machine ) );                            \
   }                                                                                               \
   void VrfRoot::name_##Del( const Key & key ) {                                                   \
      machines_->rows_.del< &Row::name_ >( key );                                                  \
   }                                                                                               \
   void VrfRoot::name_##DelAll() {                                                                 \
      machines_->rows_.delAll< &Row::name_ >();                                                    \
   }                                                                                               \
   static_assert( true )

CSPF_MACHINE( path, pathConfigInfoSm, PathInfoKey, PathMachines, PathConfigInfoSm );
CSPF_MACHINE( path, pathStatusInfoSm, PathInfoKey, PathMachines, PathStatusInfoSm );
CSPF_MACHINE( path, pathRefreshSm, PathInfoKey, PathMachines, PathRefreshSm );
CSPF_MACHINE( path, pathStatusUpdateSm, PathInfoKey, PathMachines, PathStatusUpdateSm );
CSPF_MACHINE( path, pqComputeSm, PathInfoKey, PathMachines, Lfa::PqComputeSm );
CSPF_MACHINE( path, pathUsageSm, PathInfoKey, PathMachines, PathUsageSm );
CSPF_MACHINE( path, rsvpPathStitchSm, PathInfoKey, PathMachines, RsvpPathStitchSm );
CSPF_MACHINE( path, pathConstraintSm, PathInfoKey, PathMachines, PathConstraintSm );
CSPF_MACHINE( constraint, constraintInfoSm, ConstraintHandle, ConstraintMachines,
              ConstraintInfoSmBase );
CSPF_MACHINE( constraint, constraintStatusSm, ConstraintHandle, ConstraintMachines,
              ConstraintStatusSm );

#undef CSPF_MACHINE

#define CSPF_CHILD( name_, ... )                                                                   \
   void VrfRoot::name_##Is( Lum::Ptr< __VA_ARGS__ > child ) {                                      \
      name_##Del();                                                                                \
      name_##_ = std::move( child );                                                               \
      Lum::start( name_##_ );                                                                      \
   }                                                                                               \
   void VrfRoot::name_##Del() {                                                                    \
      Lum::retire( name_##_ );                                                                     \
   }                                                                                               \
   static_assert( true )

CSPF_CHILD( dedupConstraintTable, DedupConstraintTable );
CSPF_CHILD( dedupPqInfoTable, Lfa::DedupPqInfoTable );
CSPF_CHILD( childPathStatusCacheSm, ChildPathStatusCacheSm );

#undef CSPF_CHILD

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
     allTopoDb_( allTopoDb ),
     runMemory_( std::make_unique< CspfRunMemory >() ),
     machines_( std::make_unique< Machines >() ) {}

VrfRoot::~VrfRoot() = default;

PathValidationMemory &
VrfRoot::pathValidationMemory() {
   if ( !pathValidationMemory_ ) {
      pathValidationMemory_ = std::make_unique< PathValidationMemory >( allTopoDbStatus() );
   }
   return *pathValidationMemory_;
}

void
VrfRoot::handleInitialized() {
   TRACE7( "vrf " << vrf_ << ", af " << Kivnet::text( af_ ) );
   tables_ = std::make_unique< Tables >( *this );
   cliConfigIs( entityManager_->entity< const CspfCliConfig >( "te/cspf/cliConfig" ) );
   constraintInfoTableIs();
   constraintStatsTableIs();
   dedupConstraintTableIs( new DedupConstraintTable( constraintInfoTable() ) );
   pathConfigInfoTableIs();
   pathStatusInfoTableIs();
   pathStatusCacheTableIs();
   clientDataIs();
   doMountTopoDb();
   bwUsageManagerIs( allTopoDb_, bwUsageTable() );
   allTopoDbStatusIs( vrfSourceId_, tables_->intfIpToRouterId.table() );
   allTopoDbStatus()->bwUsageManagerIs( bwUsageManager().ptr() );
   allTopoDbSmIs( allTopoDb_, allTopoDbStatus() );
   enableTopoDbClient();
   if ( teStatus_ ) {
      teIntfStatusSmIs( teStatus_, pathConfigInfoTable() );
   }
   childPathStatusCacheSmIs(
      new ChildPathStatusCacheSm( { pathConfigInfoTable(), pathStatusCacheTable(),
                                    pathStatusInfoTable(), constraintInfoTable() } ) );
   initializedIs( true );
}

void
VrfRoot::doPrepareToDie() {
   constraintInfoSmDelAll();
   constraintStatusSmDelAll();
   pathStatusInfoTable()->pathStatusInfoDelAll();
   pathConfigInfoTable()->pathConfigInfoDelAll();
   pathConfigInfoSmDelAll();
   pathStatusInfoSmDelAll();
   pathStatusUpdateSmDelAll();
   pathRefreshSmDelAll();
   rsvpPathStitchSmDelAll();
   pathStatusCacheTable()->pathStatusCacheDelAll();
   pqComputeSmDelAll();
   pathUsageSmDelAll();
   childPathStatusCacheSmDel();
   teIntfStatusSmDel();
   dedupPqInfoTableDel();
   handleDestruction();
}

void
VrfRoot::handleDestruction() {
   TRACE7( "vrf " << vrf_ << ", af " << Kivnet::text( af_ ) );
   disableTopoDbClient();
   allTopoDbSmDel();
   allTopoDbStatus()->bwUsageManagerIs( nullptr );
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
   topoDbClientIs( nullptr );
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
      context.printf( indent, "%*c%s\n", key.traceString().c_str() );
      context.dump( *pathConfigInfoTable()->pathConfigInfo( key ), indent + 2 );
      context.dump( *pathStatusInfoTable()->pathStatusInfo( key ), indent + 2 );
      context.dump( *pathStatusCacheTable()->pathStatusCache( key ), indent + 2 );
      if ( const auto & usage = pathUsageSm( key ); usage && usage->pathBwUsage() ) {
         context.dump( *usage->pathBwUsage(), indent + 2 );
      }
      if ( const auto & pqCompute = pqComputeSm( key ) ) {
         context.dump( *pqCompute, indent + 2 );
      }
   }
}

}
