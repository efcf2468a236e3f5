// Programs and library are installed or built as one tree, which may stand anywhere: a program
// looks from its own place, not from the directory in which it was started.

#include "tools/lab/AgentLibrary.h"

#include <cstdlib>
#include <filesystem>

namespace Lab {

std::string
agentLibraryPath() {
   if ( const char * library = std::getenv( "CSPF_AGENT_LIBRARY" ); library && *library ) {
      return library;
   }
   std::error_code ignored;
   const auto program = std::filesystem::read_symlink( "/proc/self/exe", ignored );
   for ( const char * place : { "../lib/libCspfAgent.so", "../lib/cspf/libCspfAgent.so" } ) {
      const auto library = program.parent_path() / place;
      if ( std::filesystem::exists( library, ignored ) ) {
         return library.lexically_normal();
      }
   }
   return "libCspfAgent.so";
}

}
