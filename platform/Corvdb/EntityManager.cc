// An agent's view of the state database. Only what was mounted can be looked up, so an agent that
// forgets to ask for a path finds out at once.

#include "platform/Corvdb/EntityManager.h"

#include <algorithm>

namespace Corvdb {

namespace {

bool
isAtOrBelow( const std::vector< std::string > & path, const std::vector< std::string > & mount ) {
   return path.size() >= mount.size() && std::equal( mount.begin(), mount.end(), path.begin() );
}

}

MountGroup::MountGroup( EntityManager & manager, const Lum::Ptr< Kiv::TaskScheduler > & scheduler )
   : manager_( manager ), completionTask_( scheduler, "mountGroupCompletion", [ this ] {
        const Lum::Ptr< EntityManager > manager( &manager_ );
        completion_( mountAll(), manager );
     } ) {}

void
MountGroup::mountIs( const std::string & path, const std::string & typeName,
                     const std::string & mode ) {
   asked_.push_back( { path, typeName, mode } );
}

void
MountGroup::closeIs( Completion completion ) {
   completion_ = std::move( completion );
   completionTask_.schedule();
}

MountStatus
MountGroup::mountAll() {
   for ( const MountPoint & mount : asked_ ) {
      if ( mount.mode != "r" && mount.mode != "w" && mount.mode != "ri" && mount.mode != "wi" ) {
         return MountStatus::badMode;
      }
      if ( !manager_.state_.types().has( mount.typeName ) ) {
         return MountStatus::unknownType;
      }
      if ( !manager_.state_.entityIs( mount.path, mount.typeName ) ) {
         return MountStatus::otherType;
      }
      manager_.mounts_.push_back( mount );
   }
   return mountSuccess_;
}

EntityManager::EntityManager( StateStore & state, Zorch::TableStore & tables,
                              Lum::Ptr< Kiv::TaskScheduler > scheduler )
   : state_( state ), tables_( tables ), scheduler_( std::move( scheduler ) ) {}

const Lum::Ptr< MountGroup > &
EntityManager::mountGroup( const std::string & ) {
   if ( !mountGroup_ ) {
      mountGroup_ = Lum::make< MountGroup >( *this, scheduler_ );
   }
   return mountGroup_;
}

Lum::Ptr< Lum::Entity >
EntityManager::entity( std::string_view path ) const {
   const auto components = pathComponents( path );
   for ( const auto & [ localPath, local ] : local_ ) {
      if ( pathComponents( localPath ) == components ) {
         return local.entity;
      }
   }
   for ( const MountPoint & mount : mounts_ ) {
      if ( isAtOrBelow( components, pathComponents( mount.path ) ) ) {
         return state_.entity( path );
      }
   }
   return nullptr;
}

Lum::Ptr< Lum::Entity >
EntityManager::localEntityIs( const std::string & path, const std::string & typeName,
                              const std::string & entityName ) {
   LUM_ASSERT( !localEntitiesCreated_ );
   auto & local = local_[ path ];
   if ( !local.entity ) {
      local = { entityName, state_.types().make( typeName ) };
   }
   LUM_ASSERT( local.entity );
   return local.entity;
}

}
