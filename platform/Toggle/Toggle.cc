// Feature toggles. Of the file's JSON only what a toggle needs is understood: a quoted name, a
// colon, and true or false; anything else about a name leaves it at its default.

#include "platform/Toggle/Toggle.h"

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string_view>

namespace Toggle {

namespace {

std::map< std::string, bool > overrides;

std::string_view
skipBlanks( std::string_view text ) {
   const auto at = text.find_first_not_of( " \t\r\n" );
   return at == text.npos ? std::string_view() : text.substr( at );
}

/// The boolean that `text`, which stands behind a name, gives to it.
std::optional< bool >
valueBehind( std::string_view text ) {
   text = skipBlanks( text );
   if ( !text.starts_with( ':' ) ) {
      return std::nullopt;
   }
   text = skipBlanks( text.substr( 1 ) );
   const std::string_view word = text.substr( 0, text.find_first_of( " \t\r\n,}" ) );
   return word == "true" || word == "false" ? std::optional( word == "true" ) : std::nullopt;
}

/// The name may also stand as some other toggle's text; it counts where a boolean follows.
std::optional< bool >
find( std::string_view json, const std::string & name ) {
   const std::string quoted = '"' + name + '"';
   for ( auto at = json.find( quoted ); at != json.npos; at = json.find( quoted, at + 1 ) ) {
      if ( const auto value = valueBehind( json.substr( at + quoted.size() ) ) ) {
         return value;
      }
   }
   return std::nullopt;
}

}

bool
getToggleState( const std::string & toggleName, const std::string & fileName, bool defaultState ) {
   if ( const auto at = overrides.find( toggleName ); at != overrides.end() ) {
      return at->second;
   }
   const char * directory = std::getenv( "TOGGLEDIR" );
   std::ifstream in( std::string( directory ? directory : "/etc/toggles" ) + "/" + fileName );
   std::ostringstream json;
   json << in.rdbuf();
   return find( json.view(), toggleName ).value_or( defaultState );
}

bool
getToggleStateOnce( const std::string & toggleName, const std::string & fileName,
                    bool defaultState ) {
   if ( const auto at = overrides.find( toggleName ); at != overrides.end() ) {
      return at->second;
   }
   static std::map< std::pair< std::string, std::string >, bool > known;
   const auto [ at, fresh ] = known.try_emplace( { fileName, toggleName } );
   if ( fresh ) {
      at->second = getToggleState( toggleName, fileName, defaultState );
   }
   return at->second;
}

void
toggleOverrideIs( const std::string & toggleName, std::optional< bool > state ) {
   if ( state ) {
      overrides[ toggleName ] = *state;
   } else {
      overrides.erase( toggleName );
   }
}

}
