#pragma once

#include "tools/service/UnixSocket.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Service {

using Json = nlohmann::json;

/// A caller of a running agent's control socket; waits for answers.
class Client {
 public:
   /// Throws as `connectTo` does.
   explicit Client( const std::string & socketPath, double patience = 0 );
   ~Client();
   Client( const Client & ) = delete;
   Client & operator=( const Client & ) = delete;

   using Notified = std::function< void( const std::string & method, const Json & params ) >;

   /// Gives the result. Notifications that come meanwhile go to `notified`. Throws
   /// std::runtime_error with the other side's text when the answer is an error, or when the
   /// connection ends.
   Json call( const std::string & method, const Json & params, const Notified & notified = {} ) {
      return callText( method, params.dump(), notified );
   }
   /// Likewise with the parameters as JSON text on one line, in whatever order they are written.
   Json callText( const std::string & method, const std::string & params,
                  const Notified & notified = {} );
   /// Hands on notifications until the other side closes the connection or `notified` throws.
   void listen( const Notified & notified );
   /// From so many seconds on, waiting ends by TimedOut.
   void timeoutIs( double seconds );
   /// Sends text as it stands.
   void send( std::string_view text );
   /// False once the other side has closed the connection.
   bool isOpen() const;
   /// The next frame. Throws std::runtime_error when the connection ends, and for what is no JSON.
   Json receive();

 private:
   void waitForText() const;
   /// A notification, or the answer to a call.
   Json receiveMessage();

   int fd_;
   std::optional< std::chrono::steady_clock::time_point > end_;
   std::string received_;
   std::size_t searched_ = 0;  ///< so much of it holds no line feed
   std::uint64_t lastId_ = 0;
};

}
