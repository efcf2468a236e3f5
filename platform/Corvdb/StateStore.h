#pragma once

#include "platform/Corvdb/TypeRegistry.h"

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Corvdb {

/// The embedded back end of the state database: a tree of directories and entities, held in the
/// process. Components of a path are separated by "/"; a trailing one makes no difference. It
/// outlives the agents that mount parts of it.
class StateStore {
 public:
   /// The registry outlives the store.
   explicit StateStore( const TypeRegistry & types ) : types_( types ) {}

   /// The entity at the path, made with the directories above it where there was none. Null when
   /// the type is unknown, when an entity of another type is there already, or when a component
   /// above is no directory.
   Lum::Ptr< Lum::Entity > entityIs( std::string_view path, const std::string & typeName );
   template< class T >
   Lum::Ptr< T > entityIs( std::string_view path ) {
      return Lum::cast< T >( entityIs( path, T::lumTypeName ) );
   }
   /// Null where there is none.
   Lum::Ptr< Lum::Entity > entity( std::string_view path ) const;
   /// Takes the entity, or the directory with all below it, out of the tree. Directories above it
   /// stay, empty or not: others may have mounted them.
   void entityDel( std::string_view path );

   /// Somebody looks at the entity at the path, there or not yet, by its path alone: whoever
   /// removes it on behalf of a writer elsewhere gives it its defaults instead.
   void mountedIs( std::string_view path );
   /// REQUIRES: the path is canonical.
   bool isMounted( const std::string & path ) const { return mounted_.contains( path ); }

   const Lum::Ptr< Lum::Dir > & root() const noexcept { return root_; }
   const TypeRegistry & types() const noexcept { return types_; }

 private:
   const TypeRegistry & types_;
   Lum::Ptr< Lum::Dir > root_ = Lum::make< Lum::Dir >();
   std::set< std::string > mounted_;
};

/// The components of a path.
std::vector< std::string > pathComponents( std::string_view path );
/// The path with single slashes between its components and none at its ends.
std::string canonicalPath( std::string_view path );

}
