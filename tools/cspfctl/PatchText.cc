#include "tools/cspfctl/PatchText.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

std::string
patchText( const std::string & given ) {
   if ( given == "-" ) {
      return { std::istreambuf_iterator< char >( std::cin ), {} };
   }
   if ( !given.starts_with( '@' ) ) {
      return given;
   }
   std::ifstream in( given.substr( 1 ) );
   std::string content( std::istreambuf_iterator< char >( in ), {} );
   if ( !in.is_open() || in.bad() ) {
      throw std::runtime_error( given.substr( 1 ) + ": cannot be read" );
   }
   return content;
}
