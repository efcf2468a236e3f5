// Any text as a lab file: it is read, or refused with one line.

#include "tools/lab/LabFile.h"

#include <cstdlib>
#include <string_view>

extern "C" int
LLVMFuzzerTestOneInput( const unsigned char * data, std::size_t size ) {
   try {
      const std::string_view text( reinterpret_cast< const char * >( data ), size );
      const Lab::LabFile lab = Lab::LabFile::parse( text );
      for ( Lab::LabPlayback playback( lab ); playback.next(); ) {
         playback.apply();
      }
   } catch ( const Lab::LabError & error ) {
      if ( std::string_view( error.what() ).find( '\n' ) != std::string_view::npos ) {
         std::abort();
      }
   }
   return 0;
}
