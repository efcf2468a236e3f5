// Programs of the build as processes. A test that talks to one polls with a patience that only a
// broken program outlasts; nothing depends on how fast the machine is.

#include "tests/RunnerProcess.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int patience = 60'000;  // milliseconds

/// Starts the program with its output in the files (none: this process's own).
pid_t
spawn( const std::string & program, const std::vector< std::string > & arguments,
       const std::string & out = "", const std::string & err = "" ) {
   std::vector< char * > argv{ const_cast< char * >( program.c_str() ) };
   for ( const std::string & argument : arguments ) {
      argv.push_back( const_cast< char * >( argument.c_str() ) );
   }
   argv.push_back( nullptr );
   const pid_t child = fork();
   if ( child != 0 ) {
      return child;
   }
   const auto redirect = []( const std::string & file, int fd ) {
      if ( !file.empty() ) {
         dup2( open( file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600 ), fd );
      }
   };
   redirect( out, STDOUT_FILENO );
   redirect( err, STDERR_FILENO );
   execv( program.c_str(), argv.data() );
   _exit( 127 );
}

std::string
inBuild( const std::string & program ) {
   return program.find( '/' ) == program.npos ? CSPF_BINARY_DIR "/bin/" + program : program;
}

std::string
contentOf( const std::string & file ) {
   std::ifstream in( file );
   std::ostringstream text;
   text << in.rdbuf();
   return text.str();
}

}

TemporaryDirectory::TemporaryDirectory() : path_( std::filesystem::temp_directory_path() ) {
   path_ += "/cspfXXXXXX";
   if ( !mkdtemp( path_.data() ) ) {
      throw std::runtime_error( "no temporary directory" );
   }
}

TemporaryDirectory::~TemporaryDirectory() {
   std::filesystem::remove_all( path_ );
}

pid_t
startProgram( const std::string & program, const std::vector< std::string > & arguments,
              const std::string & err ) {
   return spawn( inBuild( program ), arguments, "", err );
}

ProgramResult
runProgram( std::string program, std::vector< std::string > arguments ) {
   const TemporaryDirectory directory;
   const std::string out = directory / "out", err = directory / "err";
   const pid_t child = spawn( inBuild( program ), arguments, out, err );
   int status = 0;
   waitpid( child, &status, 0 );
   return { WIFEXITED( status ) ? WEXITSTATUS( status ) : -1, contentOf( out ), contentOf( err ) };
}

Background::Background( const std::string & program, std::vector< std::string > arguments,
                        const std::string & log )
   : pid_( spawn( inBuild( program ), arguments, "", log ) ) {}

Background::~Background() {
   kill( pid_, SIGKILL );
   waitpid( pid_, nullptr, 0 );
}

RunnerProcess::RunnerProcess( const TemporaryDirectory & directory,
                              std::vector< std::string > arguments )
   : socket_( directory / "control.sock" ) {
   arguments.insert( arguments.begin(), { "--socket", socket_ } );
   unsetenv( "VELOTRACE_DISABLE" );  // which labs of this process may have set
   setenv( "VELOTRACEDIR", directory.path().c_str(), 1 );
   pid_ = spawn( inBuild( "agentrunner" ), arguments, "", directory / "log" );
   unsetenv( "VELOTRACEDIR" );
   for ( int waited = 0; waited < patience; waited += 10 ) {
      try {
         Service::Client( socket_ ).call( "status", Service::Json::object() );
         return;
      } catch ( const std::runtime_error & ) {
         usleep( 10'000 );
      }
   }
   throw std::runtime_error( "agentrunner does not answer: " + contentOf( directory / "log" ) );
}

RunnerProcess::~RunnerProcess() {
   if ( pid_ > 0 ) {
      end( SIGKILL );
   }
}

int
RunnerProcess::end( int signal ) {
   kill( pid_, signal );
   int status = 0;
   waitpid( pid_, &status, 0 );
   pid_ = -1;
   return status;
}
