// State at paths, in the process. Directories are entities themselves, so whoever watches one hears
// of the entries that come and go.

#include "platform/Corvdb/StateStore.h"

namespace Corvdb {

std::vector< std::string >
pathComponents( std::string_view path ) {
   std::vector< std::string > components;
   while ( !path.empty() ) {
      const auto slash = path.find( '/' );
      if ( slash != 0 ) {
         components.emplace_back( path.substr( 0, slash ) );
      }
      path = slash == path.npos ? std::string_view() : path.substr( slash + 1 );
   }
   return components;
}

std::string
canonicalPath( std::string_view path ) {
   std::string canonical;
   for ( const std::string & component : pathComponents( path ) ) {
      canonical.append( canonical.empty() ? "" : "/" ).append( component );
   }
   return canonical;
}

Lum::Ptr< Lum::Entity >
StateStore::entityIs( std::string_view path, const std::string & typeName ) {
   if ( !types_.has( typeName ) ) {
      return nullptr;
   }
   Lum::Ptr< Lum::Entity > at = root_;
   const auto components = pathComponents( path );
   for ( std::size_t i = 0; i < components.size(); ++i ) {
      const auto dir = Lum::cast< Lum::Dir >( at );
      if ( !dir ) {
         return nullptr;
      }
      at = dir->entity( components[ i ] );
      if ( !at ) {
         const bool isLast = i + 1 == components.size();
         at = types_.make( isLast ? typeName : Lum::Dir::lumTypeName );
         dir->entityIs( components[ i ], at );
      }
   }
   return at->typeName() == typeName ? at : nullptr;
}

Lum::Ptr< Lum::Entity >
StateStore::entity( std::string_view path ) const {
   Lum::Ptr< Lum::Entity > at = root_;
   for ( const auto & component : pathComponents( path ) ) {
      const auto dir = Lum::cast< Lum::Dir >( at );
      at = dir ? dir->entity( component ) : nullptr;
      if ( !at ) {
         break;
      }
   }
   return at;
}

void
StateStore::mountedIs( std::string_view path ) {
   mounted_.insert( canonicalPath( path ) );
}

void
StateStore::entityDel( std::string_view path ) {
   const std::string canonical = canonicalPath( path );
   const auto slash = canonical.rfind( '/' );
   const std::string above = slash == canonical.npos ? "" : canonical.substr( 0, slash );
   if ( const auto dir = Lum::cast< Lum::Dir >( entity( above ) ) ) {
      dir->entityDel( canonical.substr( slash + 1 ) );
   }
}

}
