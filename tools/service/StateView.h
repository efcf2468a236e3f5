#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Zorch/TableStore.h"
#include "tools/state/StateTypes.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// The state of a running process by path: entities of the state database and tables alike.
namespace Service {

using State::Json;

/// A request that cannot be served. The text says why.
struct RequestError : std::runtime_error {
   using std::runtime_error::runtime_error;
};

/// REQUIRES: both are canonical, and `top` is not empty.
bool isAtOrBelow( const std::string & path, std::string_view top );

class StateView {
 public:
   /// The stores outlive the view.
   StateView( Corvdb::StateStore & state, Zorch::TableStore & tables )
      : state_( state ),
        tables_( tables ) {}

   /// Writes the entity or table at the path as JSON, {"type": name, "value": ..}; where there is
   /// none, an object of all tables below the path. Throws RequestError where nothing is or can be.
   void get( const std::string & path, State::TextSink & sink ) const;
   /// The paths at and below that one at which there is something, in order: entities, entries of
   /// directories, tables. O(all that there is).
   std::vector< std::string > list( const std::string & path ) const;
   /// Writes an object of what is at the paths. REQUIRES: they are canonical and differ, and there
   /// is something at each.
   void states( const std::vector< std::string > & paths, State::TextSink & sink ) const;
   /// Merges the patch (RFC 7396) into the entity or table; a table is made where it is missing.
   /// Throws RequestError for what an agent writes and for a patch that would put what the agent
   /// looks at out of its sight, and State::Error.
   void patch( const std::string & path, const Json & patch );

   /// What a watch of a path is about: one entity, or the tables at and below the path, also those
   /// to come.
   struct Watched {
      std::string path;
      std::vector< std::string > present;
      bool tables = false;
   };
   /// Throws RequestError where nothing is or can be.
   Watched watched( const std::string & path ) const;
   void tableListenerIs( Zorch::TableStore::Listener listener ) {
      tables_.listenerIs( this, std::move( listener ) );
   }
   /// {"type": name, "value": ..}. REQUIRES: there is something at the path, which is canonical.
   Json typed( const std::string & path ) const;
   const Zorch::TableStore & tables() const noexcept { return tables_; }
   /// Null where there is none. REQUIRES: the path is canonical.
   Lum::Ptr< Lum::Entity > find( const std::string & path ) const;

 private:
   Lum::Ptr< Lum::Entity > findOrMake( const std::string & path, const Json & patch );

   Corvdb::StateStore & state_;
   Zorch::TableStore & tables_;
};

/// Tells of each change below one entity, in order: of the entity itself and of the entities in its
/// collections.
class StateWatch : public Lum::Reactor {
   LUM_ENTITY( Service, StateWatch );
   /// `tell( change )`: {"path": .., "attribute": .., "value": ..}, for an entry of a collection
   /// with its "key"; no "value" where the entry is gone. It may delete the watch.
   using Tell = std::function< void( const Json & change ) >;
   StateWatch( std::string path, Lum::Ptr< Lum::Entity > entity, Tell tell );

   void handleInitialized() override;

 private:
   void handleChange( const Lum::AnyChange & change );
   void childIs( const std::string & name, const Lum::Ptr< Lum::Entity > & child );

   const std::string path_;
   const Lum::Ptr< Lum::Entity > entity_;
   const Tell tell_;
   std::map< std::string, Lum::Ptr< StateWatch > > children_;
};

}
