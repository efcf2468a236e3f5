// Names of interfaces, kept for the life of the process: there are as many as interfaces in the
// networks that it sees, and ids of them are everywhere.

#include "platform/Kivnet/IntfId.h"

#include <unordered_set>

namespace Kivnet {

const std::string IntfId::noName;

IntfId::IntfId( std::string_view name ) {
   static std::unordered_set< std::string > names;
   if ( !name.empty() ) {
      name_ = &*names.emplace( name ).first;
   }
}

}
