#pragma once

#include "tools/lab/LabReader.h"

namespace Lab {

/// The parts of a topology that have elements by name.
inline constexpr std::string_view routersKey = "routers", linksKey = "links", lansKey = "lans";

struct GivenAttributes;

/// Reads a topology, or those of its elements that a patch names.
class TopologyReader {
 public:
   TopologyReader( LabTopology & topology, LabTopologyNames & names )
      : topology( topology ),
        names_( names ) {}

   void read( const LabCursor & at );
   std::optional< LabTopologyChange > reread( const LabCursor & at, const LabJson & patch );

 private:
   /// Takes what the patch names out of `from`, and gives its names up.
   void takeOut( const LabJson & patch, LabTopology & before );
   void giveUp( const Addresses & addresses );
   template< class Read >
   void readNamed( const LabCursor & at, const LabJson & patch, std::string_view part, Read read );
   bool leavesOthers( const LabTopologyChange & change ) const;

   void readScalars( const LabCursor & at );
   void readNumbers( const LabCursor & at );
   void readRouter( const LabCursor & at );
   void readLink( const LabCursor & at );
   void readLan( const LabCursor & at );
   LabLanMember readMember( const LabCursor & at, const std::string & lan );
   LabLinkDirection readDirection( const LabCursor & at, const GivenAttributes & base );
   Addresses readAddresses( const LabCursor & at );
   LabNexthop readNexthop( const LabCursor & at ) const;
   std::string readRouterName( const LabCursor & at, const std::string & name );
   std::string readRouterName( const LabCursor & at ) {
      return readRouterName( at, readText( at, "a router's name" ) );
   }
   template< class Read >
   void section( const LabCursor & at, std::string_view name, Read read );

   LabTopology & topology;
   LabTopologyNames & names_;
};

}
