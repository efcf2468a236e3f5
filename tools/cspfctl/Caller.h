#pragma once

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <functional>
#include <memory>
#include <optional>
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
   /// Hands on notifications until `notified` throws, or the other side is gone for good, which
   /// throws std::runtime_error. A database that is away for a while is waited for, and told of on
   /// standard error.
   virtual void listen( const Notified & notified ) = 0;
   /// From so many seconds on, `listen` ends by Service::TimedOut, and with an agent `call` as
   /// well.
   virtual void timeoutIs( double seconds ) = 0;
};

/// Throws Service::TimedOut where nobody answers, nor comes to within `patience` seconds, and
/// std::runtime_error where nobody can.
std::unique_ptr< Caller > agentCaller( const std::string & socket, double patience = 0 );
/// Knows `get`, `patch`, `watch` and `status`. Throws likewise; without `patience`
/// std::runtime_error as soon as the database cannot be reached.
std::unique_ptr< Caller > databaseCaller( const std::string & url, const std::string & passwordFile,
                                          std::optional< double > patience = {} );

/// The exit status of who has waited in vain.
inline constexpr int exitTimedOut = 4;

/// Whether the agent comes to rest within so many seconds. Throws Service::TimedOut where nobody
/// says so a second later, either.
bool settles( Caller & agent, double seconds );

/// The options of the program that name a database in place of an agent.
void addStateOptions( CLI::App & app );
/// Whether they do, on the command line that was read.
bool namesDatabase( const CLI::App & app );
/// The database that they name, else the agent at that socket. Throws as those do.
std::unique_ptr< Caller > liveCaller( const CLI::App & app, const std::string & socket,
                                      std::optional< double > patience = {} );
