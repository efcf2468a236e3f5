// Feature toggles. Of the file's JSON only what a toggle needs is understood: a quoted name, a
// colon, and true or false; anything else about a name leaves it at its default.

#include "platform/Toggle/Toggle.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <string_view>

namespace Toggle {

namespace {

std::map< std::string, bool > overrides;

std::string_view
skipBlanks( std::string_view text ) {
   const auto at = text.find_first_not_of( " \t\r\n" );
   return at == text.npos ? std::string_view() : text.substr( at );
}

std::optional< bool >
find( const std::string & json, const std::string & name ) {
   const auto at = json.find( '"' + name + '"' );
   if ( at == json.npos ) {
      return std::nullopt;
   }
   std::string_view rest = skipBlanks( std::string_view( json ).substr( at + name.size() + 2 ) );
   if ( !rest.starts_with( ':' ) ) {
      return std::nullopt;
   }
   rest = skipBlanks( rest.substr( 1 ) );
   if ( rest.starts_with( "true" ) ) {
      return true;
   }
   return rest.starts_with( "false" ) ? std::optional( false ) : std::nullopt;
}

}

bool
getToggleState( const std::string & toggleName, const std::string & fileName, bool defaultState ) {
   if ( const auto at = overrides.find( toggleName ); at != overrides.end() ) {
      return at->second;
   }
   const char * directory = std::getenv( "TOGGLEDIR" );
   std::ifstream in( std::string( directory ? directory : "/etc/toggles" ) + "/" + fileName );
   const std::string json( ( std::istreambuf_iterator< char >( in ) ),
                           std::istreambuf_iterator< char >() );
   return find( json, toggleName ).value_or( defaultState );
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
