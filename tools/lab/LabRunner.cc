// A run of a lab: state, tables, the clock and the agent in one process. The document is there
// before the agent starts; then each event comes at its time, into whatever work is under way. A
// broken invariant ends the process from inside of the agent, so what was printed until then is
// flushed from there.

#include "tools/lab/LabRunner.h"

#include "platform/AgentRunner/Runner.h"
#include "schema/Types.h"
#include "tools/lab/AgentLibrary.h"
#include "tools/lab/AgentListening.h"
#include "tools/lab/LabObserve.h"
#include "tools/lab/LabOutput.h"
#include "tools/lab/LabProgress.h"
#include "tools/lab/LabPublished.h"
#include "tools/lab/LabState.h"
#include "tools/service/CommandStream.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <ostream>

namespace Lab {

namespace {

class LabRun {
 public:
   LabRun( const LabFile & lab, const RunOptions & options, std::ostream & out, std::ostream & err )
      : playback_( lab ),
        output_( options, out ),
        loop_( options.realtime ? Lum::ActivityLoop::Time::real
                                : Lum::ActivityLoop::Time::virtualTime ),
        start_( loop_.now() ),
        isVirtual_( !options.realtime ),
        listening_( out, err, loop_, options.verbose ),
        library_( agentLibraryPath() ),
        progress_( err, options.progress, lab.events().size() ) {
      Schema::registerTypes( types_ );
   }

   void run() {
      start();
      LabObserver observer( playback_.document(), state_, tables_ );
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
      start();
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
      start();
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
   void start() {
      writer_.write( playback_.document() );
      leavePublished( playback_.document().published, state_, tables_ );
      runner_.start();
   }

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
   const AgentListening listening_;
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
   withoutTraceRing();
   std::srand( options.seed );
}

}

int
runLab( const LabFile & lab, const RunOptions & options, std::ostream & out, std::ostream & err ) {
   prepare( options );
   LabRun run( lab, options, out, err );
   untilBroken( [ & ] { run.run(); } );
   return exitOk;
}

void
tourLab( const LabFile & lab, const RunOptions & options, const LabTour & visit,
         std::ostream & err ) {
   prepare( options );
   LabRun run( lab, options, err, err );
   untilBroken( [ & ] { run.tour( visit ); } );
}

void
visitLab( const LabFile & lab, const RunOptions & options, double until, const LabVisitor & visit,
          std::ostream & err ) {
   prepare( options );
   LabRun run( lab, options, err, err );
   untilBroken( [ & ] { run.visit( until, visit ); } );
}

}
