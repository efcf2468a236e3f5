#pragma once

#include <stdexcept>
#include <string>

namespace IgpFeed {

/// The daemon does not answer, or not any more.
struct VtyError : std::runtime_error {
   using std::runtime_error::runtime_error;
};

/// A conversation with a routing daemon over its vty socket, as vtysh leads it: a command ends with
/// a zero byte, an answer with three and a status.
class Vty {
 public:
   /// Throws VtyError where nobody listens at the path.
   explicit Vty( const std::string & socketPath );
   ~Vty();
   Vty( const Vty & ) = delete;
   Vty & operator=( const Vty & ) = delete;

   /// What the daemon prints. Waits for it; throws VtyError when it refuses the command, when it
   /// goes, or when it says nothing for ten seconds.
   std::string ask( const std::string & command );

 private:
   void send( const std::string & command );
   int receive( std::string & answer );

   const std::string path_;
   int fd_;
};

}
