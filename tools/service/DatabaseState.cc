#include "tools/service/DatabaseState.h"

#include "schema/Types.h"
#include "tools/state/StatePaths.h"

namespace Service {

namespace {

Corvdb::TypeRegistry
stateTypes() {
   Corvdb::TypeRegistry types;
   Schema::registerTypes( types );
   return types;
}

/// What an agent would have there by itself, before the database is read.
void
makeMounts( Corvdb::StateStore & state ) {
   for ( const State::PathKind & kind : State::entityPaths() ) {
      const std::string path( kind.pattern );
      if ( kind.isOne ) {
         state.mountedIs( path );
         state.entityIs( path, kind.typeName );
      } else {
         state.entityIs( path.substr( 0, path.rfind( '/' ) ), "Lum::Dir" );
      }
   }
}

}

DatabaseState::DatabaseState( Lum::ActivityLoop & loop, Redis::Replica::Settings settings,
                              Redis::Replica::Handlers handlers )
   : types_( stateTypes() ) {
   makeMounts( state_ );
   replica_ = std::make_unique< Redis::Replica >( loop, state_, tables_, std::move( settings ),
                                                  std::move( handlers ) );
}

}
