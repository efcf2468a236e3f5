#pragma once

#include "platform/LumZorch/Mount.h"

#include <string>
#include <vector>

namespace LumZorch {

/// One mount of a table of type `T`, for as long as this object lives. The table itself outlives
/// the mount as the table's own rules say, unless it is cleaned up.
template< class T >
class TableMount {
 public:
   TableMount( const Lum::Ptr< Corvdb::EntityManager > & entityManager, const std::string & path,
               LumZorch::MountMode mode, const std::vector< std::string > & collections = {},
               std::size_t capacity = 0 )
      : mount_( entityManager ),
        path_( path ),
        table_( Lum::cast< T >(
           mount_.mount( { path, T::lumTypeName, mode, collections, capacity } ) ) ) {}
   ~TableMount() {
      if ( table_ ) {
         mount_.unmount( path_ );
      }
   }
   TableMount( const TableMount & ) = delete;
   TableMount & operator=( const TableMount & ) = delete;

   /// Null where a table of another type is at the path.
   const Lum::Ptr< T > & table() const noexcept { return table_; }
   /// Removes the table for everybody.
   void cleanup() { mount_.cleanup( path_ ); }

 private:
   LumZorch::Mount mount_;
   const std::string path_;
   const Lum::Ptr< T > table_;
};

}
