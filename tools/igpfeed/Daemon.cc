// The version is made of counters that the daemons keep anyway: packets of link states sent and
// received, own ones made anew, runs of SPF; for OSPF the sums of checksums.

#include "tools/igpfeed/Daemon.h"

#include "tools/igp/CaptureText.h"
#include "tools/text/Plain.h"

#include <algorithm>
#include <array>

namespace IgpFeed {

namespace {

/// The lines that hold any of the words.
template< std::size_t n >
std::string
linesWith( const std::string & text, const std::array< std::string_view, n > & words ) {
   std::string kept;
   for ( Igp::CaptureLines lines( text, {} ); lines.next(); ) {
      const auto holds = [ & ]( std::string_view word ) {
         return lines.text().find( word ) != std::string_view::npos;
      };
      if ( std::ranges::any_of( words, holds ) ) {
         kept.append( lines.text() ).append( "\n" );
      }
   }
   return kept;
}

std::vector< Vrf >
isisVrfs( Vty & vty ) {
   std::vector< Vrf > vrfs;
   const std::string text = vty.ask( "show isis vrf all summary" );
   for ( Igp::CaptureLines lines( text, "summary" ); lines.next(); ) {
      if ( auto rest = lines.after( "vrf" ); rest && rest->starts_with( ':' ) ) {
         rest->remove_prefix( 1 );
         const std::string name( Igp::takeWord( *rest ) );
         if ( name.empty() || name.size() > Vrf::maxLength ) {
            lines.fail( "the name of a VRF", name );
         }
         vrfs.emplace_back( name );
      }
   }
   return vrfs;
}

/// A router without a name of its own is called by its system id.
Hostnames
hostnamesIn( const std::vector< Igp::Topology > & topologies ) {
   Hostnames hostnames;
   for ( const Igp::Topology & topology : topologies ) {
      for ( const auto & [ id, router ] : topology.routers ) {
         const Routing::Isis::SystemId systemId = id.isisSystemId();
         if ( router.name != systemId.stringValue() ) {
            hostnames[ systemId ] = Text::plain( router.name );
         }
      }
   }
   return hostnames;
}

}

std::string
IsisDaemon::version( Vty & vty ) const {
   return linesWith( vty.ask( "show isis vrf all summary" ),
                     std::array< std::string_view, 7 >{ "vrf", "System Id", "Area ",
                                                        " LSP: ", "LSP0 regenerated", "LSPs purged",
                                                        "run count" } );
}

Reading
IsisDaemon::read( Vty & vty ) const {
   Reading reading;
   for ( const Vrf & vrf : isisVrfs( vty ) ) {
      Igp::IsisCapture capture;
      // Host names last but one, so that they know every packet's.
      for ( const char * what :
            { "database detail", "hostname", "interface detail", "neighbor detail" } ) {
         const std::string command = "show isis vrf " + vrf.stringValue() + " " + what;
         Igp::readIsis( vty.ask( command ), command, capture );
      }
      Igp::IsisNetwork network = Igp::isisNetwork( capture, vrf );
      reading.hostnames[ vrf ] = hostnamesIn( network.topologies );
      std::ranges::move( network.topologies, std::back_inserter( reading.topologies ) );
      std::ranges::move( network.findings, std::back_inserter( reading.findings ) );
      reading.adjacencies[ vrf ] = std::move( network.adjacencies );
      if ( network.self ) {
         reading.systemIds[ vrf ] = network.self;
      }
   }
   return reading;
}

std::string
OspfDaemon::version( Vty & vty ) const {
   return linesWith( vty.ask( "show ip ospf vrf all" ),
                     std::array< std::string_view, 5 >{ "VRF Name", "Router ID", "Area ID",
                                                        "Checksum", "algorithm executed" } );
}

Reading
OspfDaemon::read( Vty & vty ) const {
   Igp::OspfCapture capture;
   for ( const char * what :
         { "database router", "database network", "database opaque-area", "interface" } ) {
      const std::string command = std::string( "show ip ospf vrf all " ) + what;
      Igp::readOspf( vty.ask( command ), command, capture );
   }
   Igp::OspfNetwork network = Igp::ospfNetwork( capture, 0 );
   Reading reading;
   reading.topologies = std::move( network.topologies );
   reading.findings = std::move( network.findings );
   return reading;
}

}
