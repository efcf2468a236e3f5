// Callers who wait for the agent to have no work left. Nobody looks again and again: the scheduler
// tells when its last task is done.

#include "tools/service/Session.h"

namespace Service {

namespace {

/// Seconds after which somebody looks again who waits while there is no agent, or it is written to.
constexpr Lum::Seconds agentWait = 0.2;

}

/// What comes to rest in one turn may go on in it: it is looked at in the next.
Session::Result
Session::wait( const Json & params ) {
   const auto soon = [ this ] {
      shared_.loop.timerDel( look_ );
      look_ = shared_.loop.timerIs( shared_.loop.deadlineAfter( 0 ),
                                    [ this ] { lookWhetherSettled(); } );
   };
   if ( params.contains( "timeout" ) ) {
      waitTimeout_ =
         shared_.loop.timerIs( shared_.loop.deadlineAfter( param< double >( params, "timeout" ) ),
                               [ this ] { waitEnds( false ); } );
   }
   waits_ = true;
   shared_.runner.taskScheduler()->listenerIs( this, { soon, {} } );
   soon();
   return std::nullopt;
}

/// While there is no agent, somebody may start one at any time, which nobody tells; and what is
/// being written may leave it nothing to do.
void
Session::lookWhetherSettled() {
   look_ = { 0, 0 };
   if ( !shared_.runner.agent() || shared_.writer ) {
      look_ = shared_.loop.timerIs( shared_.loop.deadlineAfter( agentWait ),
                                    [ this ] { lookWhetherSettled(); } );
   } else if ( shared_.runner.taskScheduler()->pending() == 0 ) {
      waitEnds( true );
   }
}

void
Session::waitEnds( bool settled ) {
   shared_.runner.taskScheduler()->listenerIs( this, {} );
   for ( auto * const timer : { &look_, &waitTimeout_ } ) {
      shared_.loop.timerDel( *timer );
      *timer = { 0, 0 };
   }
   answer( resultPrefix( id_ ) + ( settled ? "true}" : "false}" ) );
   waits_ = false;
   pump();
}

}
