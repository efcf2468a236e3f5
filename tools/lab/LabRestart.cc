// An agent that is told to stop withdraws what it published; one that is killed cannot. Inside of
// one process an agent can only be told, so its publications are kept aside and put back when it
// is gone. What others wrote is not touched.

#include "tools/lab/LabRestart.h"

#include "tools/state/StateTypes.h"

namespace Lab {

namespace {

constexpr const char * publishedTables[] = { "te/cspf/status",           "te/cspf/intfIpToRouterId",
                                             "te/cspf/constraintStatus", "te/cspf/bwUsage",
                                             "te/bwm/client/status",     "te/bwm/status" };
constexpr const char * publishedEntities[] = { "te/cspf/agentStatus", "te/bwm/activeStatus",
                                               "routing/export/topodb/client",
                                               "routing6/export/topodb/client" };

struct Published {
   std::string path, typeName;
   State::Json value;

   Published( std::string at, const Lum::Entity & entity )
      : path( std::move( at ) ),
        typeName( entity.typeName() ),
        value( State::toJson( entity ) ) {}
};

}

void
killAndStart( AgentRunner::Runner & runner, Corvdb::StateStore & state,
              Zorch::TableStore & tables ) {
   std::vector< Published > tablesLeft, entitiesLeft;
   for ( const char * prefix : publishedTables ) {
      for ( const auto & path : tables.list( prefix ) ) {
         tablesLeft.emplace_back( path, *tables.table( path ) );
      }
   }
   for ( const char * path : publishedEntities ) {
      if ( const auto entity = state.entity( path ) ) {
         entitiesLeft.emplace_back( path, *entity );
      }
   }
   runner.stop();
   for ( const Published & left : tablesLeft ) {
      State::merge( *tables.mount( left.path, left.typeName, Zorch::MountMode::writer ),
                    left.value );
      tables.unmount( left.path );
   }
   for ( const Published & left : entitiesLeft ) {
      State::merge( *state.entityIs( left.path, left.typeName ), left.value );
   }
   runner.start();
}

}
