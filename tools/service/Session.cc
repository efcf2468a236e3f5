// The requests of one caller. A request is parsed and checked whole, then served, then answered;
// whatever is wrong with it becomes an error answer and touches nothing else. A frame is read
// twice: as a lab's text would be, with bounded nesting and in the order in which it is written,
// which matters to labs, and then as plain JSON.

#include "tools/service/Session.h"

#include "platform/Toggle/Toggle.h"
#include "platform/Trace/Trace.h"
#include "platform/Trace/Velotrace.h"
#include "tools/service/CommandStream.h"

#include <set>
#include <unistd.h>
#include <utility>

namespace Service {

namespace {

/// Seconds of the requests of one frame before others have their turn.
constexpr Lum::Seconds answerSlice = 0.01;
/// Seconds after which a request for which there is no worker is looked at again.
constexpr Lum::Seconds workerWait = 0.02;
constexpr std::size_t maxWorkers = 4;
/// What is more than this is left to a worker: bytes of text, entries of one collection.
constexpr std::size_t maxText = 256u << 10, maxEntries = 1000;
constexpr std::size_t maxBatchAnswer = 64u << 20, maxLab = 256u << 20;

/// Somebody has to do it who may take longer.
struct TooLarge {};
/// All workers are busy.
struct NoWorker {};

/// An agent keeps what it has found.
Json
toggles( bool runs ) {
   constexpr const char * name = "OspfTopoDbExport";
   constexpr const char * file = "gated.json";
   return { { name, runs ? Toggle::getToggleStateOnce( name, file, true )
                         : Toggle::getToggleState( name, file, true ) } };
}

/// Text for an answer that is made at once.
class ShortText : public State::TextSink {
 public:
   void text( std::string_view piece ) override {
      all += piece;
      if ( all.size() > maxText ) {
         throw TooLarge();
      }
   }
   void entries( std::size_t count ) override {
      if ( count > maxEntries ) {
         throw TooLarge();
      }
   }

   std::string all;
};

/// Text for a worker's pipe.
class PipeText : public State::TextSink {
 public:
   explicit PipeText( const Worker::Write & write ) : write_( write ) {}
   ~PipeText() override { write_( waiting_ ); }
   void text( std::string_view piece ) override {
      waiting_ += piece;
      if ( waiting_.size() > maxWaiting ) {
         write_( waiting_ );
         waiting_.clear();
      }
   }

 private:
   static constexpr std::size_t maxWaiting = 65'536;

   const Worker::Write & write_;
   std::string waiting_;
};

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
   --shared_.sessions;
   shared_.workers -= worker_ ? 1 : 0;
   shared_.loop.timerDel( rest_ );
   shared_.loop.timerDel( look_ );
   shared_.loop.timerDel( waitTimeout_ );
   shared_.runner.taskScheduler()->listenerIs( this, {} );
}

void
Session::handleFrame( std::string_view text ) {
   Lab::LabJson inOrder;
   try {
      inOrder = Lab::LabJson::parse( text );
   } catch ( const Lab::LabError & error ) {
      connection_.answer( errorFrame( nullptr, parseError, error.what() ) );
      return;
   }
   Json json = Json::parse( text );
   auto * const several = inOrder.as< Lab::LabJsonArray >();
   batch_ = several && !several->empty();
   batchSize_ = 0;
   if ( batch_ ) {
      for ( std::size_t i = 0; i < several->size(); ++i ) {
         requests_.push_back( { std::move( json[ i ] ), std::move( ( *several )[ i ] ) } );
      }
   } else {
      requests_.push_back( { std::move( json ), std::move( inOrder ) } );
   }
   pump();
}

/// Whether the next request is served now; if not, somebody has been asked to call `pump` again.
bool
Session::mayGoOn( Lum::Seconds sliceEnd ) {
   if ( worker_ || waits_ || rest_.second || connection_.isFull() ) {
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

void
Session::pump() {
   const bool hadWork = !requests_.empty() || worker_ || waits_;
   const Lum::Seconds sliceEnd = shared_.loop.deadlineAfter( answerSlice );
   while ( !requests_.empty() && mayGoOn( sliceEnd ) ) {
      serveNext();
   }
   const bool isBusy = !requests_.empty() || worker_ || waits_;
   if ( hadWork && !isBusy && batch_ ) {
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
   const Json id = request.json.is_object() ? request.json.value( "id", Json() ) : Json();
   const bool isGood = isRequest( request.json ) && !id.is_structured() && !id.is_boolean();
   id_ = id.is_structured() || id.is_boolean() ? Json() : id;
   wantsAnswer_ = !isGood || request.json.contains( "id" );
   try {
      if ( !isGood ) {
         throw RpcFailure{ invalidRequest, "this is no JSON-RPC 2.0 request" };
      }
      if ( batchSize_ > maxBatchAnswer ) {
         throw RpcFailure{ serverError, "the answers of one frame are limited to 64 MiB" };
      }
      if ( const Result result = serve( request.json[ "method" ].get< std::string >(), request ) ) {
         answer( resultPrefix( id_ ) + *result + "}" );
      }
   } catch ( const NoWorker & ) {
      requests_.push_front( std::move( request ) );
      rest( workerWait );
   } catch ( const RpcFailure & failure ) {
      answer( errorFrame( id_, failure.code, failure.text ) );
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
Session::serve( const std::string & method, const Request & request ) {
   const Json params = request.json.value( "params", Json::object() );
   const bool changes = method == "patch" || method == "load" || method == "traceLevel";
   if ( changes && access_ == Access::reading ) {
      throw RpcFailure{ serverError, "this socket is for reading: it takes no \"" + method + "\"" };
   }
   if ( method == "get" ) {
      return get( params );
   }
   if ( method == "list" ) {
      return State::text( shared_.view.list( param< std::string >( params, "path" ) ) );
   }
   if ( method == "patch" ) {
      shared_.view.patch( param< std::string >( params, "path" ),
                          param< Json >( params, "patch" ) );
      return "true";
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
      return load( request.inOrder );
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
Session::text( const std::function< void( State::TextSink & ) > & write ) {
   if ( !wantsAnswer_ ) {
      return "";
   }
   try {
      ShortText text;
      write( text );
      return std::move( text.all );
   } catch ( const TooLarge & ) {
   }
   workerIs(
      [ write ]( const Worker::Write & writePipe ) {
         PipeText text( writePipe );
         write( text );
      },
      resultPrefix( id_ ), "}" );
   return std::nullopt;
}

/// Starts a worker whose text is the answer to the request in hand, between these two.
void
Session::workerIs( const Worker::Work & work, const std::string & before,
                   const std::string & behind ) {
   if ( shared_.workers >= maxWorkers ) {
      throw NoWorker();
   }
   worker_ = std::make_unique< Worker >(
      shared_.loop, work,
      Worker::Handlers{ [ this ]( std::string_view text ) {
                          batchSize_ += batch_ ? text.size() : 0;
                          connection_.part( text );
                          worker_->pausedIs( connection_.isFull() );
                       },
                        [ this, behind ]( bool done ) { workerEnded( done, behind ); } } );
   ++shared_.workers;
   connection_.part( ( !batch_ ? "" : batchSize_ ? "," : "[" ) + before );
   batchSize_ += batch_ ? before.size() : 0;
}

/// Half of an answer is none, and a peer that waits for the rest would wait for ever.
void
Session::workerEnded( bool done, const std::string & behind ) {
   worker_.reset();
   --shared_.workers;
   if ( !done ) {
      connection_.breakOff();
      return;
   }
   connection_.part( behind );
   if ( !batch_ ) {
      connection_.endFrame();
   }
   pump();
}

Session::Result
Session::get( const Json & params ) {
   const auto path = param< std::string >( params, "path" );
   return text( [ this, path ]( State::TextSink & sink ) { shared_.view.get( path, sink ); } );
}

Lum::Ptr< StateWatch >
Session::watchOf( const std::string & path ) {
   return Lum::make< StateWatch >( path, shared_.view.find( path ),
                                   [ this ]( const Json & change ) { tell( change ); } );
}

Session::Result
Session::watch( const Json & params ) {
   std::vector< StateView::Watched > watched;
   for ( const auto & path : param< std::vector< std::string > >( params, "paths" ) ) {
      watched.push_back( shared_.view.watched( path ) );
   }
   std::set< std::string > states;
   for ( const auto & one : watched ) {
      states.insert( one.present.begin(), one.present.end() );
   }
   Result result = text( [ this, states ]( State::TextSink & sink ) {
      shared_.view.states( { states.begin(), states.end() }, sink );
   } );
   for ( const auto & [ path, present, tables ] : watched ) {
      Watch & watch = watches_[ path ] = { tables, {} };
      for ( const std::string & part : present ) {
         watch.parts[ part ] = watchOf( part );
      }
   }
   return result;
}

Session::Result
Session::unwatch( const Json & params ) {
   for ( const auto & path : param< std::vector< std::string > >( params, "paths" ) ) {
      watches_.erase( Corvdb::canonicalPath( path ) );
   }
   return "true";
}

void
Session::handleTable( const std::string & path ) {
   const bool isThere = shared_.view.find( path ) != nullptr;
   for ( auto & [ top, watch ] : watches_ ) {
      if ( !watch.tables || !isAtOrBelow( path, top ) ) {
         continue;
      }
      Json change = isThere ? shared_.view.typed( path ) : Json::object();
      change[ "path" ] = path;
      tell( change );
      if ( isThere ) {
         watch.parts[ path ] = watchOf( path );
      } else {
         watch.parts.erase( path );
      }
   }
}

/// The agent writes in a worker, and so at its leisure.
Session::Result
Session::command( const Json & params ) {
   const auto name = param< std::string >( params, "name" );
   const auto text = param< std::string >( params, "text" );
   if ( batch_ ) {
      throw RpcFailure{ invalidRequest, "a command's output does not go with other answers" };
   }
   if ( !shared_.runner.takesCommand( name ) ) {
      throw RequestError( "the agent takes no command \"" + name + "\"" );
   }
   if ( !wantsAnswer_ ) {
      return "";
   }
   workerIs(
      [ this, name, text ]( const Worker::Write & write ) {
         CommandStream stream;
         shared_.runner.command( name, stream.fd(), text );
         stream.forEachPiece( [ & ]( std::string_view piece ) {
            write( notificationFrame( "output", { { "id", id_ }, { "text", piece } } ) + "\n" );
         } );
      },
      "", resultPrefix( id_ ) + "true}" );
   return std::nullopt;
}

Session::Result
Session::load( const Lab::LabJson & request ) {
   const Lab::LabJson * const params = request.find( "params" );
   const auto member = [ params ]( const char * name ) {
      return params ? params->find( name ) : nullptr;
   };
   const Lab::LabJson * const part = member( "part" );
   if ( part && part->as< std::string >() ) {
      labText_ += *part->as< std::string >();
      if ( labText_.size() > maxLab ) {
         labText_ = {};
         throw RequestError( "the lab is longer than 256 MiB" );
      }
   } else if ( const Lab::LabJson * const lab = member( "lab" ) ) {
      shared_.load( *lab );
   } else if ( !labText_.empty() ) {
      shared_.load( Lab::LabJson::parse( std::exchange( labText_, {} ) ) );
   } else {
      throw RpcFailure{ invalidParams, "\"lab\" is missing" };
   }
   return "true";
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
   Json status = { { "pid", getpid() },
                   { "agent", agent ? Json( agent->name() ) : Json() },
                   { "version", CSPF_VERSION },
                   { "options", shared_.options },
                   { "traceRing", Velotrace::path() },
                   { "clients", shared_.sessions },
                   { "pendingTasks", shared_.runner.taskScheduler()->pendingNames() },
                   { "toggles", toggles( agent != nullptr ) } };
   if ( shared_.describeState ) {
      status[ "state" ] = shared_.describeState();
   }
   return State::text( status );
}

}
