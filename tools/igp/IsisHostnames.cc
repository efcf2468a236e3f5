#include "tools/igp/IsisHostnames.h"

#include <algorithm>

namespace Igp {

using Routing::Isis::SystemId;

namespace {

constexpr std::size_t shortestCut = 14;  ///< names are shown in full at least up to this length

}

std::vector< SystemId >
IsisHostnames::candidates( const std::string & shown, const std::string & full ) const {
   std::vector< SystemId > found;
   for ( auto at = capture_.hostnames.lower_bound( shown );
         at != capture_.hostnames.end() && at->first.starts_with( shown ); ++at ) {
      const bool cut = shown.size() >= shortestCut && ( full.empty() || at->first == full );
      if ( at->first == shown || cut ) {
         found.insert( found.end(), at->second.begin(), at->second.end() );
      }
   }
   std::ranges::sort( found );
   return found;
}

std::optional< SystemId >
IsisHostnames::id( const std::string & shown ) const {
   if ( const auto id = SystemId::parse( shown ) ) {
      return id;
   }
   const auto found = candidates( shown, {} );
   return found.size() == 1 ? std::optional( found.front() ) : std::nullopt;
}

}
