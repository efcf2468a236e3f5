#pragma once

#include "platform/Corvdb/EntityManager.h"
#include "platform/Zorch/TableStore.h"

namespace LumZorch {

using Zorch::MountMode;

/// What to mount: the table's path and type, how, which of its collections (none: all of them),
/// and how many entries to expect.
struct MountInfo {
   std::string path;
   std::string typeName;
   MountMode mode = MountMode::reader;
   std::vector< std::string > collections{};
   std::size_t capacity = 0;
};

/// An agent's access to tables.
class Mount {
 public:
   explicit Mount( const Lum::Ptr< Corvdb::EntityManager > & entityManager )
      : tables_( entityManager->tables() ) {}

   /// Null when the type is unknown or a table of another type is at the path.
   Lum::Ptr< Lum::Entity > mount( const MountInfo & info ) {
      return tables_.mount( info.path, info.typeName, info.mode );
   }
   /// The table at the path; null where there is none or it is of another type.
   template< class T >
   Lum::Ptr< T > entity( const std::string & path ) const {
      return Lum::cast< T >( tables_.table( path ) );
   }
   void unmount( const std::string & path ) { tables_.unmount( path ); }
   /// Removes the table.
   void cleanup( const std::string & path ) { tables_.cleanup( path ); }
   std::vector< std::string > list( const std::string & prefix ) const {
      return tables_.list( prefix );
   }

 private:
   Zorch::TableStore & tables_;
};

}
