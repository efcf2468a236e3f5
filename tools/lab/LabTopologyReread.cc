// Elements of a topology read anew: those that a patch names, where no others change with them.

#include "tools/lab/LabTopologyReader.h"

#include <algorithm>

namespace Lab {

/// Moves the elements that the patch names from one map to the other.
template< class Map, class Left >
void
moveNamed( const LabJson & patch, std::string_view part, Map & from, Map & to, Left left ) {
   const LabJson * named = patch.find( part );
   if ( !named ) {
      return;
   }
   for ( const LabJsonMember & member : *named->as< LabJsonObject >() ) {
      if ( auto node = from.extract( member.key ) ) {
         left( to.insert( std::move( node ) ).position->second );
      }
   }
}

void
TopologyReader::giveUp( const Addresses & addresses ) {
   for ( const auto & address : addresses ) {
      names_.addresses.erase( address );
   }
}

void
TopologyReader::takeOut( const LabJson & patch, LabTopology & before ) {
   moveNamed( patch, routersKey, topology.routers, before.routers,
              [ & ]( const LabRouter & router ) { names_.routerIds.erase( router.id ); } );
   moveNamed( patch, linksKey, topology.links, before.links, [ & ]( const LabLink & link ) {
      giveUp( link.a.addrs );
      giveUp( link.b.addrs );
   } );
   moveNamed( patch, lansKey, topology.lans, before.lans, [ & ]( const LabLan & lan ) {
      names_.pseudonodes.erase( { lan.dr, lan.pseudonode } );
      for ( const auto & [ router, member ] : lan.members ) {
         giveUp( member.addrs );
      }
   } );
}

template< class Read >
void
TopologyReader::readNamed( const LabCursor & at, const LabJson & patch, std::string_view part,
                           Read read ) {
   const LabJson * named = patch.find( part );
   const LabJson * present = at.value().find( part );
   if ( !named || !present ) {
      return;
   }
   const LabCursor there( at, part, *present );
   for ( const LabJsonMember & member : *named->as< LabJsonObject >() ) {
      if ( const LabJson * value = present->find( member.key ) ) {
         read( LabCursor( there, member.key, *value ) );
      }
   }
}

/// Calls `use( router's name )` for each time that an element names one.
template< class Use >
void
forEachUse( const LabTopology & topology, Use use ) {
   for ( const auto & [ name, link ] : topology.links ) {
      use( link.a.router );
      use( link.b.router );
   }
   for ( const auto & [ name, lan ] : topology.lans ) {
      use( lan.dr );
      for ( const auto & [ router, member ] : lan.members ) {
         use( router );
      }
   }
}

/// Whether elements that the patch does not name are as they were: none of them has to do with a
/// router that is gone, or that has another id.
bool
TopologyReader::leavesOthers( const LabTopologyChange & change ) const {
   std::set< std::string_view > others;
   for ( const auto & [ name, router ] : change.before.routers ) {
      const auto now = topology.routers.find( name );
      if ( now == topology.routers.end() || now->second.id != router.id ) {
         others.insert( name );
      }
   }
   bool leaves = true;
   if ( !others.empty() ) {
      forEachUse( topology,
                  [ & ]( const std::string & router ) { leaves &= !others.contains( router ); } );
   }
   return leaves;
}

/// Copies the elements that the patch names.
template< class Map >
void
copyNamed( const LabJson & patch, std::string_view part, const Map & from, Map & to ) {
   if ( const LabJson * named = patch.find( part ) ) {
      for ( const LabJsonMember & member : *named->as< LabJsonObject >() ) {
         if ( const auto at = from.find( member.key ); at != from.end() ) {
            to.insert( *at );
         }
      }
   }
}

std::optional< LabTopologyChange >
TopologyReader::reread( const LabCursor & at, const LabJson & patch ) {
   LabTopologyChange change{ topology.outline(), topology.outline() };
   auto & [ before, after ] = change;
   // All are given up before one is taken: elements may exchange what others must not have.
   takeOut( patch, before );
   readNamed( at, patch, routersKey, [ & ]( const LabCursor & v ) { readRouter( v ); } );
   readNamed( at, patch, linksKey, [ & ]( const LabCursor & v ) { readLink( v ); } );
   readNamed( at, patch, lansKey, [ & ]( const LabCursor & v ) { readLan( v ); } );
   if ( !leavesOthers( change ) ) {
      return std::nullopt;
   }
   copyNamed( patch, routersKey, topology.routers, after.routers );
   copyNamed( patch, linksKey, topology.links, after.links );
   copyNamed( patch, lansKey, topology.lans, after.lans );
   const LabJson * routers = patch.find( routersKey );
   std::set< std::string > used;
   for ( const LabTopology * part : { &before, &after } ) {
      forEachUse( *part, [ & ]( const std::string & router ) { used.insert( router ); } );
   }
   for ( const std::string & router : used ) {
      if ( const auto present = topology.routers.find( router );
           present != topology.routers.end() ) {
         after.routers.insert( *present );
         if ( !routers || !routers->find( router ) ) {
            before.routers.insert( *present );
         }
      }
   }
   return change;
}

bool
isOfElements( const LabJson & patch ) {
   const auto * parts = patch.as< LabJsonObject >();
   return parts && std::ranges::all_of( *parts, []( const LabJsonMember & part ) {
             return ( part.key == routersKey || part.key == linksKey || part.key == lansKey )
                    && part.value.as< LabJsonObject >();
          } );
}

std::optional< LabTopologyChange >
rereadTopology( const LabCursor & at, const LabJson & patch, LabTopology & topology,
                LabTopologyNames & names ) {
   return TopologyReader( topology, names ).reread( at, patch );
}

}
