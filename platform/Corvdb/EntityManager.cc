// An agent's view of the state database. Only what was mounted can be looked up, so an agent that
// forgets to ask for a path finds out at once. Paths are kept and compared in their canonical form.
// The mount group belongs to the manager; its completion may drop the last reference to both.

#include "platform/Corvdb/EntityManager.h"

#include "platform/Trace/Trace.h"

#include <algorithm>

namespace Corvdb {

namespace {

bool
isAtOrBelow( const std::string & path, const std::string & mount ) {
   return path.starts_with( mount )
          && ( path.size() == mount.size() || path[ mount.size() ] == '/' );
}

bool
isMode( const std::string & mode ) {
   return mode == "r" || mode == "w" || mode == "ri" || mode == "wi";
}

}

MountGroup::MountGroup( EntityManager & manager, const Lum::Ptr< Kiv::TaskScheduler > & scheduler )
   : manager_( manager ),
     completionTask_( scheduler, "mountGroupCompletion", [ this ] {
        const Lum::Ptr< EntityManager > manager( &manager_ );
        const MountStatus status = mountAll();
        std::exchange( completion_, nullptr )( status, manager );
     } ) {}

void
MountGroup::mountIs( const std::string & path, const std::string & typeName,
                     const std::string & mode ) {
   LUM_ASSERT( !closed_ );
   asked_.push_back( { canonicalPath( path ), typeName, mode } );
}

void
MountGroup::closeIs( Completion completion ) {
   LUM_ASSERT( !closed_ );
   closed_ = true;
   completion_ = std::move( completion );
   completionTask_.schedule();
}

MountStatus
MountGroup::mountAll() {
   for ( const MountPoint & asked : asked_ ) {
      if ( const MountStatus status = mount( asked ); status != mountSuccess_ ) {
         TRACE0( error_ );
         return status;
      }
   }
   return mountSuccess_;
}

MountStatus
MountGroup::mount( const MountPoint & mount ) {
   if ( !isMode( mount.mode ) ) {
      error_ = mount.path + ": no mount mode \"" + mount.mode + "\"";
      return MountStatus::badMode;
   }
   if ( !manager_.state_.types().has( mount.typeName ) ) {
      error_ = mount.path + ": no entity type " + mount.typeName;
      return MountStatus::unknownType;
   }
   manager_.state_.mountedIs( mount.path );
   if ( !manager_.state_.entityIs( mount.path, mount.typeName ) ) {
      error_ = mount.path + ": is no " + mount.typeName;
      return MountStatus::otherType;
   }
   manager_.mounts_.push_back( mount );
   return mountSuccess_;
}

EntityManager::EntityManager( StateStore & state, Zorch::TableStore & tables,
                              Lum::Ptr< Kiv::TaskScheduler > scheduler )
   : state_( state ),
     tableMounts_( tables ),
     scheduler_( std::move( scheduler ) ) {}

const Lum::Ptr< MountGroup > &
EntityManager::mountGroup( const std::string & ) {
   if ( !mountGroup_ ) {
      mountGroup_ = Lum::make< MountGroup >( *this, scheduler_ );
   }
   return mountGroup_;
}

Lum::Ptr< Lum::Entity >
EntityManager::entity( std::string_view path ) const {
   const std::string canonical = canonicalPath( path );
   if ( const auto local = local_.find( canonical ); local != local_.end() ) {
      return local->second;
   }
   const bool mounted = std::any_of( mounts_.begin(), mounts_.end(), [ & ]( const auto & mount ) {
      return isAtOrBelow( canonical, mount.path );
   } );
   return mounted ? state_.entity( canonical ) : nullptr;
}

Lum::Ptr< Lum::Entity >
EntityManager::localEntityIs( const std::string & path, const std::string & typeName,
                              const std::string & ) {
   LUM_ASSERT( !localEntitiesCreated_ );
   auto & local = local_[ canonicalPath( path ) ];
   if ( !local ) {
      state_.mountedIs( path );
      local = state_.entityIs( path, typeName );
   }
   LUM_ASSERT( local );
   return local;
}

}
