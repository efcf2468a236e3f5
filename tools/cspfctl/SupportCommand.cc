// `cspfctl support`: what somebody who looks for a fault from afar needs, in one archive.

#include "tools/cspfctl/LiveCommands.h"
#include "tools/service/Client.h"
#include "tools/service/Program.h"
#include "tools/service/UnixSocket.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>

namespace {

using Service::Client;
using Service::Json;

struct SupportOptions {
   std::string socket = Service::defaultSocketPath();
   std::string archive = "cspf-support.tar.gz";
};

/// The files of one archive, in a directory.
class Collection {
 public:
   explicit Collection( std::string directory ) : directory_( std::move( directory ) ) {}

   /// Writes what `content` gives; where it throws, why there is none.
   template< class Content >
   void add( const std::string & name, Content content ) const {
      std::ofstream out( directory_ + "/" + name );
      try {
         out << content() << "\n";
      } catch ( const std::exception & error ) {
         out << "not to be had: " << error.what() << "\n";
      }
   }
   /// Copies a file as far as it is there and may be read.
   void copy( const std::string & file ) const {
      std::error_code ignored;
      if ( std::filesystem::is_regular_file( file, ignored ) ) {
         const auto name = std::filesystem::path( file ).filename();
         std::filesystem::copy_file( file, std::filesystem::path( directory_ ) / name, ignored );
      }
   }

 private:
   std::string directory_;
};

std::string
dumpOf( Client & client ) {
   std::string text;
   client.call( "command", { { "name", "CspfDump" }, { "text", "DUMP_CSPF_STATE" } },
                [ & ]( const std::string & method, const Json & params ) {
                   text += method == "output" ? params.value( "text", "" ) : "";
                } );
   return text;
}

/// Nothing that is collected holds a secret: state and options have none, and the environment, in
/// which there may be some, is left out.
void
runSupport( const SupportOptions & options ) {
   Client client( options.socket );
   const Service::TemporaryDirectory directory;
   const std::string top = directory.path() + "/cspf-support";
   std::filesystem::create_directory( top );
   const Collection files( top );
   const Json status = client.call( "status", Json::object() );
   files.add( "status.json", [ & ] { return status.dump( 2 ); } );
   files.add( "state.json", [ & ] { return client.call( "get", { { "path", "" } } ).dump( 1 ); } );
   files.add( "dump.txt", [ & ] { return dumpOf( client ); } );
   files.add( "metrics.txt",
              [ & ] { return client.call( "metrics", Json::object() ).get< std::string >(); } );
   files.copy( status.value( "traceRing", "" ) );
   const Json started = status.value( "options", Json::object() );
   for ( const char * option : { "trace", "metrics", "lab", "record" } ) {
      files.copy( started.value( option, "" ) );
   }
   Service::runProgram( { "tar", "-czf", std::filesystem::absolute( options.archive ), "-C",
                          directory.path(), "cspf-support" } );
   std::cout << options.archive << std::endl;
}

}

void
addSupportCommand( CLI::App & app ) {
   CLI::App * const command =
      app.add_subcommand( "support", "Collect what a report of a fault needs in one archive" );
   const auto options = std::make_shared< SupportOptions >();
   command->add_option( "--socket", options->socket, "control socket of the agentrunner" )
      ->capture_default_str();
   command->add_option( "archive", options->archive, "the archive, a compressed tar file" )
      ->capture_default_str();
   command->callback( [ options ] { runSupport( *options ); } );
}
