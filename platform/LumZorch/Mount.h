#pragma once

#include "platform/Corvdb/EntityManager.h"

namespace LumZorch {

using Zorch::MountMode;

/// What to mount: the table's path and type, how, which of its collections (none: all of them),
/// and how many entries to expect. The last two help back ends that copy tables; in the process
/// all share one.
struct MountInfo {
   std::string path;
   std::string typeName;
   MountMode mode = MountMode::reader;
   std::vector< std::string > collections{};
   std::size_t capacity = 0;
};

/// An agent's access to tables, by way of its entity manager: mounts outlive this object and end
/// with the manager.
class Mount {
 public:
   explicit Mount( Lum::Ptr< Corvdb::EntityManager > entityManager )
      : entityManager_( std::move( entityManager ) ) {}

   /// Null when the type is unknown or a table of another type is at the path.
   Lum::Ptr< Lum::Entity > mount( const MountInfo & info ) {
      return mounts().mount( info.path, info.typeName, info.mode );
   }
   /// The table that the agent has mounted; null where it has none or one of another type.
   template< class T >
   Lum::Ptr< T > entity( const std::string & path ) const {
      return Lum::cast< T >( mounts().table( path ) );
   }
   /// How often the agent has the table mounted.
   std::uint32_t mountCount( const std::string & path ) const { return mounts().mounts( path ); }
   void unmount( const std::string & path ) { mounts().unmount( path ); }
   /// Removes the table, whoever mounted it.
   void cleanup( const std::string & path ) { mounts().cleanup( path ); }
   /// Paths of all tables at or below `prefix`, mounted or not, in order.
   std::vector< std::string > list( const std::string & prefix ) const {
      return mounts().list( prefix );
   }

 private:
   Zorch::Mounts & mounts() const { return entityManager_->tableMounts(); }

   Lum::Ptr< Corvdb::EntityManager > entityManager_;
};

}
