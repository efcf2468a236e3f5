// Tables at paths, in the process. Reader and writer hold the same entity.

#include "platform/Zorch/TableStore.h"

namespace Zorch {

Lum::Ptr< Lum::Entity >
TableStore::mount( const std::string & path, const std::string & typeName, MountMode mode ) {
   if ( !types_.has( typeName ) ) {
      return nullptr;
   }
   Table & table = tables_[ path ];
   const bool isNew = !table.entity;
   if ( isNew ) {
      table.entity = types_.make( typeName );
   }
   if ( table.entity->typeName() != typeName ) {
      return nullptr;
   }
   ++table.mounts;
   table.stays = table.stays || mode == MountMode::writer;
   auto entity = table.entity;  // the listener may end the table
   if ( isNew ) {
      tell( path );
   }
   return entity;
}

void
TableStore::unmount( const std::string & path ) {
   const auto at = tables_.find( path );
   if ( at == tables_.end() || at->second.mounts == 0 ) {
      return;
   }
   if ( --at->second.mounts == 0 && !at->second.stays ) {
      cleanup( path );
   }
}

void
TableStore::cleanup( const std::string & path ) {
   if ( tables_.erase( path ) ) {
      tell( path );
   }
}

void
TableStore::writerGone( const std::string & path ) {
   const auto at = tables_.find( path );
   if ( at == tables_.end() ) {
      return;
   }
   at->second.stays = false;
   if ( at->second.mounts == 0 ) {
      cleanup( path );
   }
}

void
TableStore::listenerIs( const void * owner, Listener listener ) {
   if ( listener ) {
      listeners_[ owner ] = std::make_shared< Listener >( std::move( listener ) );
   } else {
      listeners_.erase( owner );
   }
}

/// A listener may make and end tables and listeners.
void
TableStore::tell( const std::string & path ) const {
   const auto listeners = listeners_;
   for ( const auto & [ owner, listener ] : listeners ) {
      if ( listeners_.contains( owner ) ) {
         ( *listener )( path );
      }
   }
}

Lum::Ptr< Lum::Entity >
TableStore::alwaysIs( const std::string & path, const std::string & typeName ) {
   auto entity = mount( path, typeName, MountMode::writer );
   if ( entity ) {
      unmount( path );
   }
   return entity;
}

Lum::Ptr< Lum::Entity >
TableStore::table( const std::string & path ) const {
   const auto at = tables_.find( path );
   return at == tables_.end() ? nullptr : at->second.entity;
}

std::vector< std::string >
TableStore::list( const std::string & prefix ) const {
   std::string below = prefix;
   while ( !below.empty() && below.back() == '/' ) {
      below.pop_back();
   }
   std::vector< std::string > paths;
   for ( const auto & [ path, table ] : tables_ ) {
      if ( below.empty() || path == below || path.starts_with( below + "/" ) ) {
         paths.push_back( path );
      }
   }
   return paths;
}

}
