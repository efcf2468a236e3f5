#include "tools/service/Program.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace Service {

TemporaryDirectory::TemporaryDirectory()
   : path_( std::filesystem::temp_directory_path() / "cspfctlXXXXXX" ) {
   if ( !mkdtemp( path_.data() ) ) {
      throw std::runtime_error( path_ + ": " + std::strerror( errno ) );
   }
}

TemporaryDirectory::~TemporaryDirectory() {
   std::error_code ignored;
   std::filesystem::remove_all( path_, ignored );
}

void
runProgram( const std::vector< std::string > & words, const std::string & missing ) {
   std::vector< char * > arguments;
   arguments.reserve( words.size() + 1 );
   for ( const std::string & word : words ) {
      arguments.push_back( const_cast< char * >( word.c_str() ) );
   }
   arguments.push_back( nullptr );
   pid_t child = -1;
   int status = 0;
   const int error =
      posix_spawnp( &child, arguments[ 0 ], nullptr, nullptr, arguments.data(), environ );
   if ( error == ENOENT && !missing.empty() ) {
      throw std::runtime_error( missing );
   }
   if ( error || waitpid( child, &status, 0 ) < 0 || status != 0 ) {
      throw std::runtime_error( words[ 0 ] + " failed" );
   }
}

}
