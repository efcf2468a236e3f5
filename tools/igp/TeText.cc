#include "tools/igp/TeText.h"

#include <cmath>

namespace Igp {

float
readBandwidth( const CaptureLines & lines, std::string_view word, const std::string & owner,
               Findings & findings ) {
   const float value = lines.bandwidth( word );
   if ( std::isfinite( value ) && value >= 0 ) {
      return value;
   }
   findings.push_back( owner + ": a bandwidth of " + std::string( word ) + " counts as 0" );
   return 0;
}

void
readUnreserved( const CaptureLines & lines, TeAttributes & attributes, const std::string & owner,
                Findings & findings ) {
   std::string_view rest = lines.text();
   while ( !rest.empty() ) {
      const std::string_view priority = takeWord( rest );
      const auto index = priority.size() == 4 && priority.ends_with( "]:" )
                            ? static_cast< std::size_t >( priority[ 1 ] - '0' )
                            : attributes.unreserved.size();
      if ( index >= attributes.unreserved.size() ) {
         lines.fail( "a priority from [0]: to [7]:", priority );
      }
      attributes.unreserved[ index ] = readBandwidth( lines, takeWord( rest ), owner, findings );
      takeWord( rest );  // the unit
   }
}

}
