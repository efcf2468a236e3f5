// A run of a lab: state, tables, the clock and the agent in one process. The document is there
// before the agent starts; then each event comes at its time, into whatever work is under way. A
// broken invariant ends the process from inside of the agent, so what was printed until then is
// flushed from there.

#include "tools/lab/LabRunner.h"

#include "platform/AgentRunner/Runner.h"
#include "platform/Trace/Gemtrace.h"
#include "schema/Types.h"
#include "tools/lab/AgentLibrary.h"
#include "tools/lab/LabObserve.h"
#include "tools/lab/LabOutput.h"
#include "tools/lab/LabProgress.h"
#include "tools/lab/LabRestart.h"
#include "tools/lab/LabState.h"
#include "tools/service/CommandStream.h"

#include <algorithm>
#include <cstdlib>
#include <iomanip>
#include <limits>
#include <ostream>
#include <stdexcept>

namespace Lab {

namespace {

/// Where a broken invariant and the agent's log are told: handlers are plain functions.
struct Streams {
   std::ostream * out = nullptr;
   std::ostream * err = nullptr;
} streams;

[[noreturn]] void
exitBroken( std::string_view text ) {
   streams.out->flush();
   *streams.err << text << std::endl;
   std::_Exit( exitBrokenInvariant );
}

void
logToErr( const Trace::LogMessage & message, std::string_view text ) {
   *streams.err << Trace::logLine( message, text ) << std::endl;
}

/// Traces, log and broken invariants of the agent go to the streams while this lives.
class Listening {
 public:
   Listening( const RunOptions & options, std::ostream & out, std::ostream & err,
              const Lum::ActivityLoop & loop )
      : start_( loop.now() ) {
      streams = { &out, &err };
      previous_ = Lum::assertHandlerIs(
         []( std::string_view expression, const char *, int ) { exitBroken( expression ); } );
      Trace::logSinkIs( logToErr );
      if ( options.verbose ) {
         Gemtrace::sinkIs( [ this, &err, &loop ]( int level, std::string_view text ) {
            err << std::fixed << std::setprecision( 6 ) << std::setw( 12 ) << loop.now() - start_
                << " " << level << " " << text << "\n";
         } );
      }
   }
   ~Listening() {
      Gemtrace::sinkIs( nullptr );
      Trace::logSinkIs( nullptr );
      Lum::assertHandlerIs( previous_ );
   }
   Listening( const Listening & ) = delete;
   Listening & operator=( const Listening & ) = delete;

 private:
   const Lum::Seconds start_;
   Lum::AssertHandler previous_ = nullptr;
};

class LabRun {
 public:
   LabRun( const LabFile & lab, const RunOptions & options, std::ostream & out, std::ostream & err )
      : playback_( lab ),
        output_( options, out ),
        loop_( options.realtime ? Lum::ActivityLoop::Time::real
                                : Lum::ActivityLoop::Time::virtualTime ),
        start_( loop_.now() ),
        isVirtual_( !options.realtime ),
        listening_( options, out, err, loop_ ),
        library_( agentLibraryPath() ),
        progress_( err, options.progress, lab.events().size() ) {
      Schema::registerTypes( types_ );
   }

   void run() {
      writer_.write( playback_.document() );
      LabObserver observer( playback_.document(), state_, tables_ );
      runner_.start();
      while ( const LabEvent * event = playback_.next() ) {
         workUntil( start_ + event->at );
         outcomeIs( observer.observe( event->at ) );
         output_.eventIs( *event );
         observer.follow( apply( *event ) );
         ++eventsDone_;
      }
      workUntil( unending );
      outcomeIs( observer.observe( loop_.now() - start_ ) );
      runner_.stop();
   }

   void tour( const LabTour & visit ) {
      const LabEvent * since = nullptr;
      writer_.write( playback_.document() );
      runner_.start();
      while ( const LabEvent * event = playback_.next() ) {
         workUntil( start_ + event->at );
         visit( moment(), since );
         apply( *event );
         since = event;
      }
      workUntil( unending );
      visit( moment(), since );
      runner_.stop();
   }

   void visit( double until, const LabVisitor & visit ) {
      writer_.write( playback_.document() );
      runner_.start();
      for ( const LabEvent * event = playback_.next(); event && event->at < until;
            event = playback_.next() ) {
         workUntil( start_ + event->at );
         apply( *event );
         ++eventsDone_;
      }
      workUntil( start_ + until );
      progress_.clear();
      visit( moment() );
      runner_.stop();
   }

 private:
   LabMoment moment() {
      const auto published = [ this ] {
         return observe( playback_.document(), state_, tables_, loop_.now() - start_ );
      };
      const auto command = [ this ]( const std::string & name, const std::string & text ) {
         return this->command( name, text );
      };
      const auto after = [ this, published ]( const LabJson & patch ) {
         playback_.apply( patch );
         writer_.write( playback_.document() );
         workUntil( unending );
         return published();
      };
      return { playback_.document(),
               state_,
               tables_,
               loop_.nextDeadline() == unending,
               command,
               published,
               after };
   }

   std::string command( const std::string & name, const std::string & text ) {
      const Service::CommandStream stream;
      std::string answer;
      runner_.command( name, stream.fd(), text );
      stream.forEachPiece( [ & ]( std::string_view piece ) { answer += piece; } );
      return answer;
   }

   LabChange apply( const LabEvent & event ) {
      if ( event.restart ) {
         killAndStart( runner_, state_, tables_ );
         // The new agent finds the state as it is, and takes it up before anything changes.
         workUntil( loop_.now() );
      }
      LabChange change = playback_.apply();
      writer_.write( playback_.document(), change );
      return change;
   }

   /// Does all that is due until then, and at infinity until nothing is pending.
   void workUntil( Lum::Seconds end ) {
      const auto unfinished = [ & ] {
         const Lum::Seconds next = loop_.nextDeadline();
         return std::min( next, end ) < unending && ( next <= end || loop_.now() < end );
      };
      while ( unfinished() ) {
         turn( end );
         progress_.now( loop_.now() - start_, eventsDone_ );
      }
   }

   /// Serves what is due next; where that is nothing until `end`, time passes. Real time passes in
   /// short pieces, for the sake of the progress line.
   void turn( Lum::Seconds end ) {
      if ( !isVirtual_ ) {
         loop_.runOnce( std::min( end - loop_.now(), 0.2 ) );
      } else if ( loop_.nextDeadline() <= end ) {
         loop_.settle( 1, end );
      } else {
         loop_.advance( end - loop_.now() );
      }
   }

   void outcomeIs( const Outcome & outcome ) {
      progress_.clear();
      output_.outcomeIs( playback_.document(), outcome );
   }

   static constexpr Lum::Seconds unending = std::numeric_limits< Lum::Seconds >::infinity();

   LabPlayback playback_;
   LabOutput output_;
   Corvdb::TypeRegistry types_;
   Lum::ActivityLoop loop_;
   const Lum::Seconds start_;
   const bool isVirtual_;
   const Listening listening_;
   Corvdb::StateStore state_{ types_ };
   Zorch::TableStore tables_{ types_ };
   LabState writer_{ state_, tables_ };
   const AgentRunner::Library library_;
   AgentRunner::Runner runner_{ loop_, state_, tables_, library_.factory(), "CspfAgent" };
   LabProgress progress_;
   std::size_t eventsDone_ = 0;
};

void
prepare( const RunOptions & options ) {
   if ( !std::getenv( "VELOTRACEDIR" ) ) {
      // A run leaves no trace ring in the directory that it is started in.
      setenv( "VELOTRACE_DISABLE", "1", 0 );
   }
   std::srand( options.seed );
}

template< class Work >
void
guarded( Work && work ) {
   try {
      work();
   } catch ( const std::range_error & broken ) {
      exitBroken( broken.what() );
   }
}

}

int
runLab( const LabFile & lab, const RunOptions & options, std::ostream & out, std::ostream & err ) {
   prepare( options );
   LabRun run( lab, options, out, err );
   guarded( [ & ] { run.run(); } );
   return exitOk;
}

void
tourLab( const LabFile & lab, const RunOptions & options, const LabTour & visit,
         std::ostream & err ) {
   prepare( options );
   LabRun run( lab, options, err, err );
   guarded( [ & ] { run.tour( visit ); } );
}

void
visitLab( const LabFile & lab, const RunOptions & options, double until, const LabVisitor & visit,
          std::ostream & err ) {
   prepare( options );
   LabRun run( lab, options, err, err );
   guarded( [ & ] { run.visit( until, visit ); } );
}

}
