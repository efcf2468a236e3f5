// Texts that come from elsewhere, and times, as a person reads them.

#include "tools/text/Plain.h"

#include <cmath>
#include <cstdio>
#include <ctime>

namespace Text {

std::string
plain( std::string_view text ) {
   std::string line;
   for ( const char c : text ) {
      if ( c >= 0 && ( c < ' ' || c == '\x7f' ) ) {
         char escaped[ 8 ];
         std::snprintf( escaped, sizeof escaped, "\\u%04x", static_cast< unsigned >( c ) );
         line += escaped;
      } else {
         line += c;
      }
   }
   return line;
}

std::string
utcText( double seconds ) {
   const auto microseconds = std::llround( seconds * 1e6 );
   const std::time_t whole = microseconds / 1'000'000;
   std::tm utc{};
   gmtime_r( &whole, &utc );
   char date[ 32 ], text[ 48 ];
   std::strftime( date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc );
   std::snprintf( text, sizeof text, "%s.%06lldZ", date, microseconds % 1'000'000 );
   return text;
}

}
