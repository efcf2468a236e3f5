#include "tools/text/Output.h"

#include <filesystem>
#include <iostream>
#include <stdexcept>

namespace Text {

void
checkReplaceable( const std::string & file ) {
   std::error_code ignored;
   const auto status = std::filesystem::symlink_status( file, ignored );
   if ( std::filesystem::exists( status ) && !std::filesystem::is_regular_file( status ) ) {
      throw std::runtime_error( file + ": something stands here that is no regular file" );
   }
}

void
flushOutput() {
   if ( !std::cout.flush() ) {
      throw std::runtime_error( "standard output cannot be written" );
   }
}

}
