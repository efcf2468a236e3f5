// The requests of one caller. A request is parsed and checked whole, then served, then answered;
// whatever is wrong with it becomes an error answer and touches nothing else. A frame is read as a
// lab's text would be, with bounded nesting and in the order in which it is written; all but a lab
// is plain JSON from then on.

#include "tools/service/Session.h"

#include "platform/Toggle/Toggle.h"
#include "platform/Trace/Trace.h"
#include "platform/Trace/Velotrace.h"

#include <algorithm>
#include <iterator>
#include <unistd.h>
#include <utility>

namespace Service {

namespace {

/// Seconds of the requests of one frame before others have their turn.
constexpr Lum::Seconds answerSlice = 0.01;
/// Bytes of a frame; what is more is left to a job.
constexpr std::size_t maxFrame = 64u << 10;
constexpr std::size_t maxBatchAnswer = 64u << 20;

/// An agent keeps what it has found.
Json
toggles( bool runs ) {
   constexpr const char * name = "OspfTopoDbExport";
   constexpr const char * file = "gated.json";
   return { { name, runs ? Toggle::getToggleStateOnce( name, file, true )
                         : Toggle::getToggleState( name, file, true ) } };
}

/// Takes the value apart as it goes. REQUIRES: the nesting is bounded, and keys differ.
Json
plain( Lab::LabJson from ) {
   Pace::breathe();
   if ( auto * members = from.as< Lab::LabJsonObject >() ) {
      Json to = Json::object();
      for ( Lab::LabJsonMember & member : *members ) {
         to.emplace( member.key, plain( std::move( member.value ) ) );
      }
      return to;
   }
   if ( auto * elements = from.as< Lab::LabJsonArray >() ) {
      Json to = Json::array();
      for ( Lab::LabJson & element : *elements ) {
         to.push_back( plain( std::move( element ) ) );
      }
      return to;
   }
   if ( const auto * real = from.as< Lab::LabJsonReal >() ) {
      return real->value;
   }
   Json to;
   const auto take = [ & ]( const auto * value ) {
      if ( value ) {
         to = *value;
      }
   };
   take( from.as< bool >() );
   take( from.as< std::uint64_t >() );
   take( from.as< std::int64_t >() );
   take( from.as< std::string >() );
   return to;
}

/// Null is left in its place.
Lab::LabJson
takeLab( Lab::LabJson & request ) {
   Lab::LabJson * const params = request.find( "params" );
   Lab::LabJson * const lab = params ? params->find( "lab" ) : nullptr;
   return lab ? std::exchange( *lab, Lab::LabJson() ) : Lab::LabJson();
}

Request
requestOf( Lab::LabJson & from ) {
   Lab::LabJson lab = takeLab( from );
   return { plain( std::move( from ) ), std::move( lab ) };
}

Frame
parse( std::string_view text ) {
   try {
      Lab::LabJson all = Lab::LabJson::parse( text );
      Frame frame;
      auto * const several = all.as< Lab::LabJsonArray >();
      frame.isBatch = several && !several->empty();
      if ( frame.isBatch ) {
         std::ranges::transform( *several, std::back_inserter( frame.requests ), requestOf );
      } else {
         frame.requests.push_back( requestOf( all ) );
      }
      return frame;
   } catch ( const Lab::LabError & error ) {
      throw RpcFailure{ parseError, error.what() };
   }
}

/// Whether the method has to do with the state itself.
bool
isOfState( const std::string & method ) {
   return method == "get" || method == "list" || method == "patch" || method == "watch"
          || method == "command" || method == "load";
}

}

Session::Session( Shared & shared, int socket, Access access, std::function< void() > closed )
   : shared_( shared ),
     access_( access ),
     connection_( shared.loop, socket,
                  { [ this ]( std::string_view text ) { handleFrame( text ); },
                    [ this ] {
                       connection_.answer(
                          errorFrame( nullptr, invalidRequest, "the frame is longer than 8 MiB" ) );
                    },
                    [ this ] {
                       if ( worker_ ) {
                          worker_->pausedIs( false );
                       } else {
                          pump();
                       }
                    },
                    std::move( closed ) } ) {
   connection_.farewellIs(
      notificationFrame( "cutOff", { { "reason", "too much is waiting to be read" } } ) );
   ++shared_.sessions;
}

Session::~Session() {
   *alive_ = false;
   --shared_.sessions;
   std::erase( shared_.waiting, this );
   if ( worker_ ) {
      --shared_.workers;
      wakeWaiting( shared_ );
   }
   shared_.loop.timerDel( rest_ );
   shared_.loop.timerDel( look_ );
   shared_.loop.timerDel( waitTimeout_ );
   shared_.runner.taskScheduler()->listenerIs( this, {} );
}

void
Session::handleFrame( std::string_view text ) {
   Frame frame;
   std::exception_ptr failure;
   try {
      if ( text.size() > maxFrame ) {
         readLong( std::string( text ) );
         return;
      }
      frame = parse( text );
   } catch ( ... ) {
      failure = std::current_exception();
   }
   frameIs( std::move( frame ), failure );
}

/// Reads a frame in a job, and takes no other meanwhile.
void
Session::readLong( std::string text ) {
   const auto frame = std::make_shared< Frame >();
   reading_ = std::make_unique< Pace::Job >(
      shared_.loop, [ frame, text = std::move( text ) ] { *frame = parse( text ); },
      [ this, frame ]( const std::exception_ptr & failure ) {
         reading_.reset();
         frameIs( std::move( *frame ), failure );
      } );
   connection_.pausedIs( true );
}

/// A frame has been read, or could not be.
void
Session::frameIs( Frame && frame, const std::exception_ptr & failure ) {
   if ( failure ) {
      batch_ = false;
      wantsAnswer_ = true;
      id_ = nullptr;
      answerFailure( failure );
   } else {
      requestsAre( std::move( frame ) );
   }
   pump();
}

/// Takes the requests of one frame.
void
Session::requestsAre( Frame && frame ) {
   batch_ = frame.isBatch;
   batchSize_ = 0;
   refusesRest_ = false;
   std::ranges::move( frame.requests, std::back_inserter( requests_ ) );
}

/// Whether the next request is served now; if not, somebody has been asked to call `pump` again.
bool
Session::mayGoOn( Lum::Seconds sliceEnd ) {
   if ( worker_ || writing_ || waits_ || queued_ || rest_.second || connection_.isFull() ) {
      return false;
   }
   if ( shared_.loop.deadlineAfter( 0 ) < sliceEnd ) {
      return true;
   }
   rest( 0 );
   return false;
}

void
Session::rest( Lum::Seconds duration ) {
   rest_ = shared_.loop.timerIs( shared_.loop.deadlineAfter( duration ), [ this ] {
      rest_ = { 0, 0 };
      pump();
   } );
}

/// Those who waited go on in later turns, one after the other: who finds others before it waits on.
void
Session::wakeWaiting( Shared & shared ) {
   for ( Session * const session : std::exchange( shared.waiting, {} ) ) {
      session->queued_ = false;
      session->rest( 0 );
   }
}

void
Session::pump() {
   const Lum::Seconds sliceEnd = shared_.loop.deadlineAfter( answerSlice );
   while ( !requests_.empty() && mayGoOn( sliceEnd ) ) {
      serveNext();
   }
   const bool isBusy = !requests_.empty() || worker_ || reading_ || writing_ || waits_;
   if ( !isBusy && batch_ ) {
      batchEnds();
   }
   if ( isBusy != connection_.isPaused() ) {
      connection_.pausedIs( isBusy );
   }
}

void
Session::serveNext() {
   Request request = std::move( requests_.front() );
   requests_.pop_front();
   if ( batchSize_ > maxBatchAnswer ) {
      refuseRest();
      return;
   }
   const Json id = request.json.is_object() ? request.json.value( "id", Json() ) : Json();
   const bool isGood = isRequest( request.json ) && !id.is_structured() && !id.is_boolean();
   id_ = id.is_structured() || id.is_boolean() ? Json() : id;
   wantsAnswer_ = !isGood || request.json.contains( "id" );
   try {
      if ( !isGood ) {
         throw RpcFailure{ invalidRequest, "this is no JSON-RPC 2.0 request" };
      }
      if ( const Result result = serve( request.json[ "method" ].get< std::string >(), request ) ) {
         answer( resultPrefix( id_ ) + *result + "}" );
      }
   } catch ( const Later & ) {
      requests_.push_front( std::move( request ) );
      shared_.waiting.push_back( this );
      queued_ = true;
   } catch ( ... ) {
      answerFailure( std::current_exception() );
   }
}

/// What is left of the frame is not served, and has one answer together.
void
Session::refuseRest() {
   if ( !std::exchange( refusesRest_, true ) ) {
      wantsAnswer_ = true;
      answer( errorFrame( nullptr, serverError,
                          "the answers of one frame are limited to 64 MiB; the requests from here "
                          "on are not served" ) );
   }
}

void
Session::answerFailure( const std::exception_ptr & failure ) {
   try {
      std::rethrow_exception( failure );
   } catch ( const RpcFailure & rpc ) {
      answer( errorFrame( id_, rpc.code, rpc.text ) );
   } catch ( const std::runtime_error & error ) {
      answer( errorFrame( id_, serverError, error.what() ) );
   }
}

/// The answer, or the next part of it, of the request in hand.
void
Session::answer( const std::string & text ) {
   if ( !wantsAnswer_ ) {
      return;
   }
   if ( !batch_ ) {
      connection_.answer( text );
      return;
   }
   connection_.part( ( batchSize_ ? "," : "[" ) + text );
   batchSize_ += text.size();
}

void
Session::batchEnds() {
   batch_ = false;
   if ( batchSize_ ) {
      connection_.part( "]" );
      connection_.endFrame();
   }
}

Session::Result
Session::serve( const std::string & method, Request & request ) {
   Json & params = request.json[ "params" ];
   const bool changes = method == "patch" || method == "load" || method == "traceLevel";
   if ( changes && access_ == Access::reading ) {
      throw RpcFailure{ serverError, "this socket is for reading: it takes no \"" + method + "\"" };
   }
   if ( shared_.writer && isOfState( method ) ) {
      throw Later();
   }
   if ( method == "get" ) {
      return get( params );
   }
   if ( method == "list" ) {
      return State::text( shared_.view.list( param< std::string >( params, "path" ) ) );
   }
   if ( method == "patch" ) {
      return patch( params );
   }
   if ( method == "watch" ) {
      return watch( params );
   }
   if ( method == "unwatch" ) {
      return unwatch( params );
   }
   if ( method == "command" ) {
      return command( params );
   }
   if ( method == "load" ) {
      return load( request );
   }
   if ( method == "status" ) {
      return status();
   }
   if ( method == "wait" ) {
      return wait( params );
   }
   if ( method == "metrics" ) {
      return State::text( shared_.metrics() );
   }
   if ( method == "traceLevel" ) {
      return traceLevel( params );
   }
   throw RpcFailure{ methodNotFound, "there is no method \"" + method + "\"" };
}

Session::Result
Session::traceLevel( const Json & params ) {
   if ( params.empty() ) {
      Trace::levelDel();
      return "true";
   }
   const int level = param< int >( params, "level" );
   if ( level < 0 || level >= Trace::levels || !params[ "level" ].is_number_integer() ) {
      throw RpcFailure{ invalidParams, "\"level\" is a number from 0 to 9" };
   }
   const bool some = params.contains( "files" );
   Trace::levelIs( level, some ? param< std::string >( params, "files" ) : std::string() );
   return "true";
}

std::string
Session::status() const {
   const auto & agent = shared_.runner.agent();
   constexpr std::size_t mostNames = 100;
   const auto & tasks = *shared_.runner.taskScheduler();
   auto pending = tasks.pendingNames( mostNames );
   if ( shared_.writer ) {
      pending.emplace_back( "writing" );
   }
   Json status = { { "pid", getpid() },
                   { "agent", agent ? Json( agent->name() ) : Json() },
                   { "version", CSPF_VERSION },
                   { "options", shared_.options },
                   { "traceRing", Velotrace::path() },
                   { "clients", shared_.sessions },
                   { "pendingTasks", std::move( pending ) },
                   { "pendingTaskCount", tasks.pending() + ( shared_.writer ? 1 : 0 ) },
                   { "toggles", toggles( agent != nullptr ) } };
   if ( shared_.describeState ) {
      status[ "state" ] = shared_.describeState();
   }
   return State::text( status );
}

}
