// An agent that is told to stop withdraws what it published; one that is killed cannot. Inside of
// one process an agent can only be told, so its publications are kept aside and put back when it
// is gone. What others wrote is not touched.

#include "tools/lab/LabPublished.h"

#include "tools/state/StateWalk.h"

namespace Lab {

LabStateTexts
publishedIn( const Corvdb::StateStore & state, const Zorch::TableStore & tables ) {
   LabStateTexts published;
   State::forEachState(
      state, tables, [ & ]( const auto & path, const auto & kind, auto & entity ) {
         if ( kind.isAgents ) {
            published[ path ] = { kind.typeName, State::text( State::toJson( entity ) ) };
         }
      } );
   return published;
}

void
leavePublished( const LabStateTexts & published, Corvdb::StateStore & state,
                Zorch::TableStore & tables ) {
   for ( const auto & [ path, left ] : published ) {
      const auto value = State::Json::parse( left.value );
      if ( State::pathKind( State::entityPaths(), path ) ) {
         State::merge( *state.entityIs( path, left.type ), value );
      } else {
         State::merge( *tables.mount( path, left.type, Zorch::MountMode::writer ), value );
         tables.unmount( path );
      }
   }
}

void
killAndStart( AgentRunner::Runner & runner, Corvdb::StateStore & state,
              Zorch::TableStore & tables ) {
   const LabStateTexts left = publishedIn( state, tables );
   runner.stop();
   leavePublished( left, state, tables );
   runner.start();
}

}
