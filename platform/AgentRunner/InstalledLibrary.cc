// Libraries are installed or built as one tree, which may stand anywhere: they are looked for from
// the platform's own place, not from the directory in which a program was started.

#include "platform/AgentRunner/InstalledLibrary.h"

#include <dlfcn.h>
#include <filesystem>

namespace AgentRunner {

std::string
installedLibrary( const std::string & fileName ) {
   static const char ofPlatform = 0;
   Dl_info info{};
   if ( !dladdr( &ofPlatform, &info ) ) {
      return fileName;
   }
   std::error_code ignored;
   const auto directory = std::filesystem::absolute( info.dli_fname, ignored ).parent_path();
   for ( const char * place : { "", "cspf-agent" } ) {
      const auto library = directory / place / fileName;
      if ( std::filesystem::exists( library, ignored ) ) {
         return library.lexically_normal();
      }
   }
   return fileName;
}

}
