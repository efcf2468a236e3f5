// Requests that read or write state. What is little is done at once. What is large to read is left
// to a worker, what is large to write to a job, of which there is one at a time: whoever has to do
// with state meanwhile waits in a queue, and finds all of what was written.

#include "tools/service/CommandStream.h"
#include "tools/service/Session.h"

#include <algorithm>
#include <set>
#include <utility>

namespace Service {

namespace {

constexpr std::size_t maxWorkers = 4;
/// What is more than this is left to a worker: bytes of text, entries of one collection.
constexpr std::size_t maxText = 256u << 10, maxEntries = 1000;
/// Values in a patch; what is more is left to a job.
constexpr std::size_t maxPatch = 300;
constexpr std::size_t maxLab = 256u << 20;

/// Somebody has to do it who may take longer.
struct TooLarge {};

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

/// How many values a patch has, no further than to `maxPatch`.
std::size_t
valuesOf( const Json & patch ) {
   std::size_t values = 1;
   for ( auto at = patch.begin(); patch.is_structured() && at != patch.end(); ++at ) {
      values += valuesOf( *at );
      if ( values > maxPatch ) {
         break;
      }
   }
   return values;
}

/// Whether the patch changes much, or empties what may hold much.
bool
isLong( const Json & patch ) {
   return valuesOf( patch ) > maxPatch
          || ( patch.is_object() && std::ranges::any_of( patch, &Json::is_null ) );
}

/// Takes the value apart, and lets others have their turns.
void
discard( Json & json ) {
   Pace::breathe();
   if ( json.is_structured() ) {
      std::ranges::for_each( json, discard );
   }
   json = nullptr;
}

std::string
joined( const std::vector< std::string > & parts ) {
   std::string all;
   for ( const std::string & part : parts ) {
      Pace::breathe();
      all += part;
   }
   return all;
}

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
      throw Later();
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
   wakeWaiting( shared_ );
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

Session::Result
Session::patch( Json & params ) {
   const auto path = param< std::string >( params, "path" );
   if ( !params.contains( "patch" ) ) {
      throw RpcFailure{ invalidParams, "\"patch\" is missing" };
   }
   Json & patch = params[ "patch" ];
   if ( isLong( patch ) ) {
      return write( [ &view = shared_.view, path, patch = std::move( patch ) ]() mutable {
         view.patch( path, patch );
         discard( patch );
      } );
   }
   shared_.view.patch( path, patch );
   return "true";
}

Session::Result
Session::write( Pace::Job::Work work ) {
   shared_.writer = std::make_unique< Pace::Job >(
      shared_.loop, std::move( work ),
      [ this, &shared = shared_, alive = alive_ ]( const std::exception_ptr & failure ) {
         shared.writer.reset();
         wakeWaiting( shared );
         if ( *alive ) {
            writeEnded( failure );
         }
      } );
   writing_ = true;
   return std::nullopt;
}

/// What comes next here has its turn behind those who have waited.
void
Session::writeEnded( const std::exception_ptr & failure ) {
   writing_ = false;
   if ( failure ) {
      answerFailure( failure );
   } else {
      answer( resultPrefix( id_ ) + "true}" );
   }
   rest( 0 );
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

/// A lab that is a part of the request, or that has come in parts.
Session::Result
Session::load( Request & request ) {
   const Json & params = request.json[ "params" ];
   if ( const auto part = params.find( "part" ); part != params.end() && part->is_string() ) {
      const auto & text = part->get_ref< const std::string & >();
      labSize_ += text.size();
      labParts_.push_back( text );
      if ( labSize_ > maxLab ) {
         takeLabParts();
         throw RequestError( "the lab is longer than 256 MiB" );
      }
      return "true";
   }
   if ( params.contains( "lab" ) ) {
      return write( [ &load = shared_.load, lab = std::move( request.lab ) ]() mutable {
         load( std::move( lab ) );
      } );
   }
   if ( labParts_.empty() ) {
      throw RpcFailure{ invalidParams, "\"lab\" is missing" };
   }
   return write( [ &load = shared_.load, parts = takeLabParts() ] {
      load( Lab::LabJson::parse( joined( parts ) ) );
   } );
}

std::vector< std::string >
Session::takeLabParts() {
   labSize_ = 0;
   return std::exchange( labParts_, {} );
}

}
