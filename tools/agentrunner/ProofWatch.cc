// All work of the agent that follows a change is done by tasks, so it rests when none is scheduled.
// A run is followed by a hold-down, during which its constraint's task is, so that looking now and
// then misses none.

#include "tools/agentrunner/ProofWatch.h"

#include "tools/prove/Proof.h"

#include <stdexcept>
#include <utility>

namespace {

constexpr Lum::Seconds provedEvery = 0.05;

}

ProofWatch::ProofWatch( Lum::ActivityLoop & loop, const AgentRunner::Runner & runner,
                        const Corvdb::StateStore & state, const Zorch::TableStore & tables,
                        Say say )
   : loop_( loop ),
     runner_( runner ),
     state_( state ),
     tables_( tables ),
     say_( std::move( say ) ) {
   lookAgain();
}

ProofWatch::~ProofWatch() {
   loop_.timerDel( timer_ );
}

void
ProofWatch::lookAgain() {
   timer_ = loop_.timerIs( loop_.deadlineAfter( provedEvery ), [ this ] {
      proveWhereDue();
      lookAgain();
   } );
}

void
ProofWatch::proveWhereDue() {
   const bool works = runner_.taskScheduler()->pending() > 0;
   due_ = due_ || works;
   if ( worker_ || works || !due_ ) {
      return;
   }
   due_ = false;
   report_.clear();
   const auto work = [ this ]( const Service::Worker::Write & write ) {
      const Prove::Verdict verdict = Prove::prove( Prove::Snapshot::of( state_, tables_ ) );
      write( Prove::faultsText( verdict ) + Prove::sumText( verdict ) );
   };
   try {
      worker_ = std::make_unique< Service::Worker >(
         loop_, work,
         Service::Worker::Handlers{ [ this ]( std::string_view text ) { report_ += text; },
                                    [ this ]( bool done ) { ended( done ); } } );
   } catch ( const std::runtime_error & error ) {
      say_( std::string( "not proved: " ) + error.what() );
   }
}

void
ProofWatch::ended( bool done ) {
   worker_.reset();
   if ( !done ) {
      say_( "not proved: the judge came to no end" );
      return;
   }
   for ( std::size_t end = 0; ( end = report_.find( '\n' ) ) != report_.npos; ) {
      say_( report_.substr( 0, end ) );
      report_.erase( 0, end + 1 );
   }
   if ( report_ != lastSum_ ) {
      say_( report_ );
      lastSum_ = report_;
   }
}
