// `cspfctl wait`: until a running agent has no work left, or a path has an answer. Nothing is asked
// twice: the agent answers when it has settled, and paths are watched.

#include "tools/cspfctl/Caller.h"
#include "tools/cspfctl/LiveCommands.h"
#include "tools/service/Client.h"
#include "tools/service/UnixSocket.h"
#include "tools/text/Number.h"
#include "tools/text/Plain.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <map>
#include <memory>
#include <optional>

namespace {

using Service::Json;

constexpr const char * requests = "te/cspf/config/vrf";
constexpr const char * answers = "te/cspf/status/vrf";

struct WaitOptions {
   std::string socket = Service::defaultSocketPath();
   std::string expression = "settled";
   std::string vrf;
   std::optional< double > timeout;
};

/// What is asked, published and complained of for one path in one table.
struct Answer {
   std::optional< std::uint64_t > asked, answered;
   bool hops = false;
   std::string error;

   bool isThere() const { return asked && ( !error.empty() || answered == asked ); }
   bool isUp() const { return isThere() && answered == asked && hops; }
};

/// "CLIENT/DESTINATION#ID", "...=up" or "...=down".
class PathWait {
 public:
   PathWait( const std::string & expression, std::string vrf ) : vrf_( std::move( vrf ) ) {
      const auto mark = expression.find( '=' );
      const std::string path = expression.substr( 0, mark );
      wanted_ = mark == expression.npos ? "" : expression.substr( mark + 1 );
      const auto slash = path.find( '/' );
      if ( slash == path.npos || !( wanted_.empty() || wanted_ == "up" || wanted_ == "down" ) ) {
         throw std::runtime_error( "--for " + expression
                                   + ": expected settled, CLIENT/PATH, CLIENT/PATH=up or "
                                     "CLIENT/PATH=down" );
      }
      client_ = path.substr( 0, slash );
      key_ = path.substr( slash + 1 );
      key_ += key_.find( '#' ) == key_.npos ? "#1" : "";
   }

   /// A table, or none any more.
   void tableIs( const std::string & path, const Json & value ) {
      const auto attributeIs = [ & ]( const char * attribute ) {
         const Json entries = value.value( attribute, Json::object() );
         entryIs( path, attribute, entries.contains( key_ ) ? entries[ key_ ] : Json() );
      };
      if ( path.starts_with( requests ) ) {
         attributeIs( "pathConfig" );
      } else {
         attributeIs( "pathStatus" );
         attributeIs( "pathError" );
      }
   }
   void changeIs( const Json & change ) {
      if ( !change.contains( "attribute" ) ) {
         tableIs( change[ "path" ], change.value( "value", Json::object() ) );
      } else if ( change.value( "key", Json() ) == key_ ) {
         entryIs( change[ "path" ], change[ "attribute" ], change.value( "value", Json() ) );
      }
   }

   bool holds() const {
      return std::ranges::any_of( answers_, [ & ]( const auto & entry ) {
         const Answer & answer = entry.second;
         return wanted_ == "up"     ? answer.isUp()
                : wanted_ == "down" ? answer.isThere() && !answer.isUp()
                                    : answer.isThere();
      } );
   }
   /// Why it does not.
   std::string reason() const {
      const std::string name = client_ + "/" + key_;
      for ( const auto & [ where, answer ] : answers_ ) {
         if ( answer.isThere() ) {
            return name + " is " + ( answer.isUp() ? "up" : "down" )
                   + ( answer.error.empty() ? "" : ": " + answer.error );
         }
         if ( answer.asked ) {
            return name + " has no answer";
         }
      }
      return "nobody asks for " + name;
   }

 private:
   /// "te/cspf/status/vrf/VRF/AF/CLIENT"
   void entryIs( const std::string & path, const std::string & attribute, const Json & entry ) {
      const auto vrf = path.find( "/vrf/" );
      const std::string where = vrf == path.npos ? "" : path.substr( vrf + 5 );
      if ( !where.ends_with( "/" + client_ )
           || !( vrf_.empty() || where.starts_with( vrf_ + "/" ) ) ) {
         return;
      }
      Answer & answer = answers_[ where ];
      const auto sequence = [ & ]( const char * name ) {
         return entry.is_object() ? std::optional( entry.value( name, std::uint64_t( 0 ) ) )
                                  : std::nullopt;
      };
      if ( attribute == "pathConfig" ) {
         answer.asked = sequence( "refreshReqSeq" );
      } else if ( attribute == "pathStatus" ) {
         answer.answered = sequence( "refreshRespSeq" );
         answer.hops = entry.is_object()
                       && ( !entry.value( "path", Json::array() ).empty()
                            || entry.value( "repairPathIdx", 0 ) > 0 );
      } else if ( attribute == "pathError" ) {
         answer.error = entry.is_string() ? entry.get< std::string >() : "";
      }
   }

   const std::string vrf_;
   std::string client_, key_, wanted_;
   std::map< std::string, Answer > answers_;
};

struct Done {};

int
timedOut( const std::string & reason ) {
   std::cerr << "cspfctl: timed out: " << Text::plain( reason ) << std::endl;
   return exitTimedOut;
}

int
waitForPath( Caller & caller, PathWait wait ) {
   const auto changed = [ & ]( const std::string & method, const Json & params ) {
      if ( method == "change" ) {
         wait.changeIs( params );
         if ( wait.holds() ) {
            throw Done();
         }
      }
   };
   try {
      const Json states = caller.call( "watch", { { "paths", { requests, answers } } }, changed );
      for ( const auto & [ path, typed ] : states.items() ) {
         wait.tableIs( path, typed[ "value" ] );
      }
      if ( !wait.holds() ) {
         caller.listen( changed );
      }
   } catch ( const Done & ) {
   } catch ( const Service::TimedOut & ) {
      return timedOut( wait.reason() );
   }
   return 0;
}

int
waitUntilSettled( Caller & caller, std::optional< double > timeout ) {
   try {
      if ( timeout ? settles( caller, *timeout )
                   : caller.call( "wait", Json::object() ).get< bool >() ) {
         return 0;
      }
      const Json status = caller.call( "status", Json::object() );
      return timedOut( status[ "agent" ].is_null()
                          ? "no agent runs"
                          : "the agent has work to do: " + status[ "pendingTasks" ].dump() );
   } catch ( const Service::TimedOut & ) {
      return timedOut( "the agent does not answer" );
   }
}

}

void
addWaitCommand( CLI::App & app, int & status ) {
   const auto options = std::make_shared< WaitOptions >();
   CLI::App * command =
      app.add_subcommand( "wait", "Wait until the agent has settled, or a path has an answer" );
   CLI::Option * path =
      command
         ->add_option( "--for", options->expression,
                       "settled; or CLIENT/PATH, with =up or =down, as PATH in DESTINATION#ID" )
         ->capture_default_str();
   command
      ->add_option( "--timeout", options->timeout,
                    "seconds, also for an agent to come; without it for ever, for one that is "
                    "there" )
      ->check( Text::numberFrom( 0, Text::longestTime ) );
   command->add_option( "--vrf", options->vrf, "VRF of the path; any without" )->needs( path );
   command->add_option( "--socket", options->socket, "control socket of the agentrunner" )
      ->capture_default_str();
   command->fallthrough();
   command->callback( [ &app, options, &status ] {
      const bool settled = options->expression == "settled";
      if ( settled && namesDatabase( app ) ) {
         throw CLI::ValidationError( "only an agent knows whether it has settled; of a database, "
                                     "wait --for CLIENT/PATH" );
      }
      if ( settled && !options->vrf.empty() ) {
         throw CLI::ValidationError( "--vrf is of a path, for which --for CLIENT/PATH waits" );
      }
      const auto path =
         settled ? std::nullopt : std::optional( PathWait( options->expression, options->vrf ) );
      const auto start = std::chrono::steady_clock::now();
      std::unique_ptr< Caller > caller;
      try {
         caller = liveCaller( app, options->socket, options->timeout );
      } catch ( const Service::TimedOut & nobody ) {
         if ( !options->timeout ) {
            throw;
         }
         status = timedOut( nobody.what() );
         return;
      }
      const std::chrono::duration< double > passed = std::chrono::steady_clock::now() - start;
      auto left = options->timeout;
      if ( left ) {
         left = std::max( 0.0, *left - passed.count() );
      }
      if ( left && path ) {
         caller->timeoutIs( *left );
      }
      status = path ? waitForPath( *caller, *path ) : waitUntilSettled( *caller, left );
   } );
}
