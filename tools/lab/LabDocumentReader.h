#pragma once

#include "tools/lab/LabReader.h"

#include <tuple>

namespace Lab {

/// What no other path of its client may have.
inline auto
keyOf( const LabPath & path ) {
   return std::tuple( path.vrf, path.af, path.dst, path.id );
}

/// Reads a document, or those parts of it that a patch bears on.
class DocumentReader {
 public:
   explicit DocumentReader( LabReading & reading )
      : at_( reading.root_ ),
        document( reading.document_ ),
        topologyNames_( reading.topologyNames_ ),
        pathNames_( reading.pathNames_ ),
        interfaces_( document ) {}

   void readAll();
   /// Reads what a patch, which has been applied, names and bears on; nothing where that is more
   /// than parts.
   std::optional< LabChange > reread( const LabJson & patch );

 private:
   /// Reads a member of the document if it is there.
   template< class Read >
   void section( std::string_view name, Read read ) {
      if ( const LabJson * value = at_.value().find( name ) ) {
         read( LabCursor( at_, name, *value ) );
      }
   }
   void readScalars();
   void readThrottle( const LabCursor & at );
   void readTopologies( const LabCursor & at );
   void readRouter( const LabCursor & at );
   void readTe( const LabCursor & at );
   void readSegmentRouting( const LabCursor & at );
   void readInterface( const LabCursor & at, const Kivnet::IntfId & intf, Srlgs & srlgs );
   void readInterfaces( const LabCursor & at );
   void readClient( const LabCursor & at );
   void readPaths( const LabCursor & at );
   void setTeRouterId();
   void setInterfaces();
   void setSystemIds();
   const LabRouter * self( const LabTopology & topology ) const;

   /// Everything but topologies and paths.
   void readSurroundings();
   void readAllPaths();
   /// What stands in state beside all else.
   void readTexts();
   void checkAnnouncement( const LabCursor & at, const LabStateText & text ) const;
   void readPath( const LabCursor & at, const std::string & client );
   bool rereadTopologies( const LabJson & patch, LabChange & change, bool & names );
   void rereadSurroundings();
   bool rereadPaths( const LabJson & patch );
   bool bearsOnSelf( const LabTopologyChange & change ) const;
   /// In the order of the text.
   template< class Visit >
   void forEachTopology( Visit visit ) const;

   const LabCursor at_;
   LabDocument & document;
   std::map< std::string, LabTopologyNames > & topologyNames_;
   std::map< std::string, LabPathNames > & pathNames_;
   LabInterfaces interfaces_;  ///< that paths may name
};

template< class Visit >
void
DocumentReader::forEachTopology( Visit visit ) const {
   for ( const LabJsonMember & member : *at_.value().find( "topologies" )->as< LabJsonObject >() ) {
      visit( document.topologies.at( member.key ) );
   }
}

}
