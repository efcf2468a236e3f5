#pragma once

#include "platform/Corvdb/TypeRegistry.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Zorch {

enum class MountMode { reader = 1, writer = 2 };

/// The embedded back end of the shared-memory tables: entities by path, held in the process.
///
/// A table that was written by somebody stays until it is cleaned up. A reader may mount a table
/// that nobody has written yet: it is empty, and fills when the writer comes; with its last
/// mount it goes again. Tables that always exist stay whoever mounts them.
class TableStore {
 public:
   /// The registry outlives the store.
   explicit TableStore( const Corvdb::TypeRegistry & types ) : types_( types ) {}

   /// Gives the table, counted as mounted once more. Null when the type is unknown or a table of
   /// another type is at the path.
   Lum::Ptr< Lum::Entity > mount( const std::string & path, const std::string & typeName,
                                  MountMode mode );
   template< class T >
   Lum::Ptr< T > mount( const std::string & path, MountMode mode ) {
      return Lum::cast< T >( mount( path, T::lumTypeName, mode ) );
   }
   /// Ends one mount of the table; nothing happens where it has none.
   void unmount( const std::string & path );
   /// Removes the table, whoever mounted it; those who hold it keep what they hold.
   void cleanup( const std::string & path );
   /// The table always exists from now on. Null as for `mount`.
   Lum::Ptr< Lum::Entity > alwaysIs( const std::string & path, const std::string & typeName );

   /// The table's writer, which lives elsewhere, has removed it: it goes with its last mount.
   void writerGone( const std::string & path );

   /// Is told the path of each table that has come, still empty, or gone.
   using Listener = std::function< void( const std::string & path ) >;
   /// One listener for each owner; an empty one is none.
   void listenerIs( const void * owner, Listener listener );

   /// Null where there is none.
   Lum::Ptr< Lum::Entity > table( const std::string & path ) const;
   /// Paths of all tables at or below `prefix` (whole components), in order; "" for all.
   std::vector< std::string > list( const std::string & prefix ) const;

 private:
   struct Table {
      Lum::Ptr< Lum::Entity > entity;
      std::uint32_t mounts = 0;
      bool stays = false;
   };

   void tell( const std::string & path ) const;

   const Corvdb::TypeRegistry & types_;
   std::map< std::string, Table > tables_;
   std::map< const void *, std::shared_ptr< Listener > > listeners_;
};

}
