// Parts of a document read anew, where a patch bears on no more than these.

#include "tools/lab/LabDocumentReader.h"

#include <algorithm>

namespace Lab {

namespace {

/// Whether a path may name what the change brought or took: a router or an interface.
bool
bearsOnPaths( const LabTopologyChange & change ) {
   const auto names = []( const LabLink & link ) {
      return std::tie( link.a.router, link.a.intf, link.b.router, link.b.intf );
   };
   const auto & [ before, after ] = change;
   return !before.lans.empty() || !after.lans.empty()
          || !std::ranges::equal(
             before.links, after.links, [ & ]( const auto & b, const auto & a ) {
                return b.first == a.first && names( b.second ) == names( a.second );
             } );
}

}

/// Whether there is a link of the lab's router in it.
bool
DocumentReader::bearsOnSelf( const LabTopologyChange & change ) const {
   return std::ranges::any_of( change.after.links, [ & ]( const auto & link ) {
      return link.second.a.router == document.router || link.second.b.router == document.router;
   } );
}

/// Gives whether that was all; sets the flag where paths may name what came or went.
bool
DocumentReader::rereadTopologies( const LabJson & patch, LabChange & change, bool & names ) {
   const auto * members = patch.as< LabJsonObject >();
   if ( !members ) {
      return false;
   }
   const LabCursor at( at_, "topologies", *at_.value().find( "topologies" ) );
   for ( const auto & [ name, part ] : *members ) {
      const auto topology = document.topologies.find( name );
      if ( topology == document.topologies.end() || !isOfElements( part ) ) {
         return false;
      }
      auto reread = rereadTopology( LabCursor( at, name, *at.value().find( name ) ), part,
                                    topology->second, topologyNames_[ name ] );
      if ( !reread ) {
         return false;
      }
      names |= part.find( "routers" ) || bearsOnPaths( *reread );
      change.surroundings |= names || bearsOnSelf( *reread );
      change.topologies.emplace( name, std::move( *reread ) );
   }
   return true;
}

void
DocumentReader::rereadSurroundings() {
   LabDocument fresh;
   fresh.topologies = std::move( document.topologies );
   fresh.paths = std::move( document.paths );
   fresh.state = std::move( document.state );
   fresh.published = std::move( document.published );
   document = std::move( fresh );
   readScalars();
   readSurroundings();
}

bool
DocumentReader::rereadPaths( const LabJson & patch ) {
   const auto * clients = patch.as< LabJsonObject >();
   const bool isOfPaths = clients && std::ranges::all_of( *clients, []( const auto & client ) {
                             return client.value.template as< LabJsonObject >();
                          } );
   if ( !isOfPaths ) {
      return false;
   }
   const LabCursor at( at_, "paths", *at_.value().find( "paths" ) );
   for ( const auto & [ client, named ] : *clients ) {
      const LabCursor there( at, client, *at.value().find( client ) );
      checkPathName( there, client, "as key, a client's name" );
      auto & paths = document.paths[ client ];
      for ( const auto & [ name, patched ] : *named.as< LabJsonObject >() ) {
         if ( const auto node = paths.extract( name ) ) {
            pathNames_[ client ].erase( keyOf( node.mapped() ) );
         }
      }
      for ( const auto & [ name, patched ] : *named.as< LabJsonObject >() ) {
         if ( const LabJson * value = there.value().find( name ) ) {
            readPath( LabCursor( there, name, *value ), client );
         }
      }
   }
   return true;
}

std::optional< LabChange >
DocumentReader::reread( const LabJson & patch ) {
   LabChange change;
   bool names = false;
   const auto * members = patch.as< LabJsonObject >();
   if ( !members || patch.find( "state" ) || patch.find( "published" ) ) {
      return std::nullopt;
   }
   const LabJson * topologies = patch.find( "topologies" );
   const LabJson * paths = patch.find( "paths" );
   const std::size_t parts = ( topologies ? 1 : 0 ) + ( paths ? 1 : 0 );
   if ( topologies && !rereadTopologies( *topologies, change, names ) ) {
      return std::nullopt;
   }
   const bool settings = members->size() > parts;
   change.surroundings |= settings || paths;
   if ( change.surroundings ) {
      rereadSurroundings();
   }
   if ( names ) {
      readAllPaths();
   } else if ( paths && !rereadPaths( *paths ) ) {
      return std::nullopt;
   }
   return change;
}

}
