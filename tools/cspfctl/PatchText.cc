#include "tools/cspfctl/PatchText.h"

#include "tools/text/Input.h"

#include <stdexcept>

namespace {

bool
isFile( const std::string & given ) {
   return given == "-" || given.starts_with( '@' );
}

}

std::string
patchText( const std::string & given ) {
   if ( !isFile( given ) ) {
      return given;
   }
   const std::string file = patchName( given );
   try {
      return Text::contentOf( file );
   } catch ( const std::runtime_error & error ) {
      throw std::runtime_error( file + ": " + error.what() );
   }
}

std::string
patchName( const std::string & given ) {
   return isFile( given ) ? given.substr( given.starts_with( '@' ) ) : "the patch";
}
