// Any text as a capture of a routing daemon: it is refused with one line, or makes a lab that can
// be read. The first byte chooses the daemon.

#include "tools/igp/IsisTopology.h"
#include "tools/igp/LabOfTopologies.h"
#include "tools/igp/OspfText.h"
#include "tools/lab/LabFile.h"

#include <cstdlib>
#include <string_view>

namespace {

std::vector< Igp::Topology >
topologiesOf( std::string_view text, bool isis ) {
   if ( isis ) {
      Igp::IsisCapture capture;
      Igp::readIsis( text, "capture", capture );
      return Igp::isisNetwork( capture, L3::VrfName::defaultVrf() ).topologies;
   }
   Igp::OspfCapture capture;
   Igp::readOspf( text, "capture", capture );
   return Igp::ospfNetwork( capture, 0 ).topologies;
}

}

extern "C" int
LLVMFuzzerTestOneInput( const unsigned char * data, std::size_t size ) {
   const std::string_view text( reinterpret_cast< const char * >( data ), size );
   try {
      Igp::Findings findings;
      const auto topologies =
         topologiesOf( text.substr( size > 0 ? 1 : 0 ), size > 0 && data[ 0 ] % 2 == 0 );
      const auto lab = Igp::labOf( topologies, "", true, findings );
      Lab::LabFile::parse(
         lab.dump( -1, ' ', false, nlohmann::ordered_json::error_handler_t::replace ) );
   } catch ( const Igp::CaptureError & error ) {
      if ( std::string_view( error.what() ).find( '\n' ) != std::string_view::npos ) {
         std::abort();
      }
   }
   return 0;
}
