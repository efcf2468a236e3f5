// State as a lab. What the words make of it is written into stores of their own and held against
// what there is, so that nothing is lost that they do not say.

#include "schema/Types.h"
#include "tools/lab/LabFile.h"
#include "tools/lab/LabOfState.h"
#include "tools/lab/LabPublished.h"
#include "tools/lab/LabReader.h"
#include "tools/lab/LabState.h"
#include "tools/lab/LabWriter.h"
#include "tools/state/StateWalk.h"

namespace Lab {

namespace {

using Json = nlohmann::ordered_json;
using Texts = std::map< std::string, LabStateText >;

/// All that others than the agent have written, by path; what says nothing is left out.
Texts
othersState( const Corvdb::StateStore & state, const Zorch::TableStore & tables ) {
   Texts all;
   State::forEachState(
      state, tables, [ & ]( const auto & path, const auto & kind, auto & entity ) {
         if ( !kind.isAgents && !State::saysNothing( entity ) ) {
            all[ path ] = { kind.typeName, State::text( State::toJson( entity ) ) };
         }
      } );
   return all;
}

Texts
stateOf( const LabDocument & words ) {
   Corvdb::TypeRegistry types;
   Schema::registerTypes( types );
   Corvdb::StateStore state( types );
   Zorch::TableStore tables( types );
   LabState( state, tables ).write( words );
   return othersState( state, tables );
}

/// Takes out of the words what their reader does not take: the path, link, LAN or topology, ... at
/// that place, else all that is of its kind.
void
drop( Json & words, const std::string & pointer ) {
   const auto tokens = Corvdb::pathComponents( pointer );
   const std::string first = tokens.empty() || tokens[ 0 ] == "router" ? "topologies" : tokens[ 0 ];
   const bool part = first == "topologies" && tokens.size() > 3
                     && ( tokens[ 2 ] == "links" || tokens[ 2 ] == "lans" );
   std::string place;
   for ( std::size_t i = 0; i < ( part               ? 4u
                                  : first == "paths" ? 3u
                                                     : 2u )
                            && i < tokens.size();
         ++i ) {
      place += "/" + tokens[ i ];
   }
   const Json::json_pointer at( place );
   if ( place.empty() || place == "/router" || !words.contains( at )
        || at.parent_pointer().empty() ) {
      words[ first ] = Json::object();
   } else {
      words[ at.parent_pointer() ].erase( at.back() );
   }
}

/// The words that their reader takes, and what it reads.
LabDocument
readable( Json & words ) {
   for ( ;; ) {
      try {
         return LabReading( LabJson::parse( words.dump() ) ).document();
      } catch ( const LabError & error ) {
         drop( words, error.pointer() );
      }
   }
}

/// A path that the words do not say as it is asked for is none of theirs. Gives whether there was
/// one.
bool
dropOtherPaths( Json & words, const LabDocument & document, const Zorch::TableStore & tables ) {
   const LabConfigs configs = configsOf( document );
   bool any = false;
   for ( const auto & [ client, paths ] : document.paths ) {
      for ( const auto & [ name, path ] : paths ) {
         const ClientTable table{ client, path.vrf, path.af };
         const Cspf::PathKey key{ path.dst, path.id };
         const auto live = Lum::cast< Cspf::Config >( tables.table( table.configPath() ) );
         const auto * asked = live ? live->pathConfigFind( key ) : nullptr;
         if ( !asked || *asked != configs.at( table ).at( key ) ) {
            words[ "paths" ][ client ].erase( name );
            any = true;
         }
      }
   }
   return any;
}

/// What makes the one state the other.
LabStateTexts
patchesBetween( const Texts & said, const Texts & there ) {
   using State::Json;
   LabStateTexts patches;
   for ( const auto & [ path, one ] : said ) {
      if ( !there.contains( path ) ) {
         patches[ path ] = {};
      }
   }
   for ( const auto & [ path, one ] : there ) {
      const auto at = said.find( path );
      if ( at == said.end() ) {
         patches[ path ] = one;
      } else if ( at->second.value != one.value ) {
         patches[ path ] = { one.type,
                             State::text( State::patchBetween( Json::parse( at->second.value ),
                                                               Json::parse( one.value ) ) ) };
      }
   }
   return patches;
}

}

Json
labOf( const Corvdb::StateStore & state, const Zorch::TableStore & tables,
       const LabNames & names ) {
   Json words = writtenDocument( documentOf( state, tables, names ) );
   LabDocument document = readable( words );
   if ( dropOtherPaths( words, document, tables ) ) {
      document = readable( words );
   }
   document.state = patchesBetween( stateOf( document ), othersState( state, tables ) );
   document.published = publishedIn( state, tables );
   return writtenDocument( document );
}

}
