#include "tools/cspfctl/PatchText.h"

#include "tools/text/Input.h"

#include <stdexcept>

std::string
patchText( const std::string & given ) {
   if ( given != "-" && !given.starts_with( '@' ) ) {
      return given;
   }
   const std::string file = given.substr( given.starts_with( '@' ) );
   try {
      return Text::contentOf( file );
   } catch ( const std::runtime_error & error ) {
      throw std::runtime_error( file + ": " + error.what() );
   }
}
