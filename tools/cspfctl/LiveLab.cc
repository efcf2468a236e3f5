// Live state comes as one answer, so as of one moment, into stores of this process.

#include "tools/cspfctl/LiveLab.h"

#include "platform/Toggle/Toggle.h"
#include "schema/Types.h"
#include "tools/lab/LabFile.h"
#include "tools/lab/LabOfState.h"
#include "tools/state/StateWalk.h"

#include <stdexcept>

LiveState::LiveState( Caller & caller ) {
   Schema::registerTypes( types_ );
   const Json toggles = caller.call( "status", Json::object() ).value( "toggles", Json::object() );
   for ( const auto & [ name, on ] : toggles.items() ) {
      Toggle::toggleOverrideIs( name, on.get< bool >() );
   }
   const Json all = caller.call( "get", { { "path", "" } } );
   for ( const auto & [ path, typed ] : all.items() ) {
      if ( path == "/" ) {
         addDirectory( "", typed.at( "value" ) );
      } else if ( const auto * kind = State::pathKind( State::tablePaths(), path );
                  kind && typed.at( "type" ) == kind->typeName ) {
         State::stateIs( state_, tables_, path, *kind, typed.at( "value" ) );
      }
   }
}

void
LiveState::addDirectory( const std::string & prefix, const Json & directory ) {
   for ( const auto & [ name, typed ] : directory.at( "entity" ).items() ) {
      const std::string path = prefix + name;
      if ( typed.at( "type" ) == "Lum::Dir" ) {
         addDirectory( path + "/", typed.at( "value" ) );
      } else if ( const auto * kind = State::pathKind( State::entityPaths(), path );
                  kind && typed.at( "type" ) == kind->typeName ) {
         State::stateIs( state_, tables_, path, *kind, typed.at( "value" ) );
      }
   }
}

nlohmann::ordered_json
liveLab( Caller & caller, const std::string & namesFile ) {
   Lab::LabNames names;
   if ( !namesFile.empty() ) {
      try {
         names = Lab::namesOf( Lab::LabFile::load( namesFile ).document() );
      } catch ( const Lab::LabError & error ) {
         throw std::runtime_error( namesFile + ": " + error.what() );
      }
   }
   const LiveState live( caller );
   return Lab::labOf( live.state(), live.tables(), names );
}
