#pragma once

#include "platform/Zorch/TableStore.h"

namespace Zorch {

/// The mounts of one agent. They end with this object; the tables that the agent wrote stay.
class Mounts {
 public:
   /// The store outlives this object.
   explicit Mounts( TableStore & store ) : store_( store ) {}
   ~Mounts();
   Mounts( const Mounts & ) = delete;
   Mounts & operator=( const Mounts & ) = delete;

   /// As `TableStore::mount`. A table may be mounted more than once.
   Lum::Ptr< Lum::Entity > mount( const std::string & path, const std::string & typeName,
                                  MountMode mode );
   /// The table that is mounted here; null where none is.
   Lum::Ptr< Lum::Entity > table( const std::string & path ) const;
   /// How many mounts of the path there are here.
   std::uint32_t mounts( const std::string & path ) const;
   /// Ends one mount of the path; nothing happens where there is none.
   void unmount( const std::string & path );
   /// Removes the table, whoever mounted it, and all mounts of it here.
   void cleanup( const std::string & path );
   std::vector< std::string > list( const std::string & prefix ) const {
      return store_.list( prefix );
   }

 private:
   struct Mounted {
      Lum::Ptr< Lum::Entity > table;
      std::uint32_t mounts = 0;
   };

   void release( const std::string & path, const Mounted & mounted );

   TableStore & store_;
   std::map< std::string, Mounted > mounted_;
};

}
