#pragma once

#include <nlohmann/json.hpp>

#include <functional>
#include <memory>
#include <string>

/// Whom the commands for live state talk to: a running agent over its socket, or the database that
/// holds the state, agent or not.
class Caller {
 public:
   using Json = nlohmann::json;
   using Notified = std::function< void( const std::string & method, const Json & params ) >;

   virtual ~Caller() = default;
   /// The methods of the control socket. Throws std::runtime_error.
   virtual Json call( const std::string & method, const Json & params,
                      const Notified & notified = {} ) = 0;
   /// Hands on notifications until the other side is gone.
   virtual void listen( const Notified & notified ) = 0;
};

/// Throws std::runtime_error where nobody answers.
std::unique_ptr< Caller > agentCaller( const std::string & socket );
/// Knows `get`, `patch`, `watch` and `status`.
std::unique_ptr< Caller > databaseCaller( const std::string & url,
                                          const std::string & passwordFile );
