#include "tools/state/Announcement.h"

namespace State {

std::optional< Error >
faultOf( const Routing::Topology::ExportPath & announcement ) {
   if ( !announcement.initialized() || announcement.af() != Kivnet::AddressFamily::unspecified ) {
      return std::nullopt;
   }
   const Place whole;
   return Error( Place( whole, "af" ), "\"ipv4\" or \"ipv6\" where \"initialized\" is true" );
}

}
