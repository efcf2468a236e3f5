// One agent's share in the counts of the table store. A table that was cleaned up by another agent,
// and perhaps made anew, is not the one that was mounted here: its mounts count no more.

#include "platform/Zorch/Mounts.h"

namespace Zorch {

Mounts::~Mounts() {
   for ( const auto & [ path, mounted ] : mounted_ ) {
      for ( std::uint32_t i = 0; i < mounted.mounts; ++i ) {
         release( path, mounted );
      }
   }
}

Lum::Ptr< Lum::Entity >
Mounts::mount( const std::string & path, const std::string & typeName, MountMode mode ) {
   auto table = store_.mount( path, typeName, mode );
   if ( table ) {
      Mounted & mounted = mounted_[ path ];
      if ( mounted.table != table ) {
         mounted = { table, 0 };
      }
      ++mounted.mounts;
   }
   return table;
}

Lum::Ptr< Lum::Entity >
Mounts::table( const std::string & path ) const {
   const auto at = mounted_.find( path );
   return at == mounted_.end() ? nullptr : at->second.table;
}

std::uint32_t
Mounts::mounts( const std::string & path ) const {
   const auto at = mounted_.find( path );
   return at == mounted_.end() ? 0 : at->second.mounts;
}

void
Mounts::unmount( const std::string & path ) {
   const auto at = mounted_.find( path );
   if ( at == mounted_.end() ) {
      return;
   }
   release( path, at->second );
   if ( --at->second.mounts == 0 ) {
      mounted_.erase( at );
   }
}

void
Mounts::cleanup( const std::string & path ) {
   mounted_.erase( path );
   store_.cleanup( path );
}

void
Mounts::release( const std::string & path, const Mounted & mounted ) {
   if ( store_.table( path ) == mounted.table ) {
      store_.unmount( path );
   }
}

}
