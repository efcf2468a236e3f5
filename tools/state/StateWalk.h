#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Zorch/TableStore.h"
#include "tools/state/StatePaths.h"
#include "tools/state/StateTypes.h"

#include <functional>
#include <string>

namespace State {

/// What stands at the path may be of its kind.
using StateVisit = std::function< void( const std::string & path, const PathKind & kind,
                                        const Lum::Entity & entity ) >;

/// Visits each entity that is no directory, then each table, in order of their paths. What the map
/// of the state does not know is passed over.
void forEachState( const Corvdb::StateStore & state, const Zorch::TableStore & tables,
                   const StateVisit & visit );

/// Whether it says what a new one would: no entries, and nothing but defaults.
bool saysNothing( const Lum::Entity & entity );

/// The merge patch (RFC 7396) that makes the one JSON of an entity the other.
Json patchBetween( const Json & from, const Json & to );

/// Gives the path the entity or table of that JSON, made where there is none; what is the same is
/// not written. Throws State::Error.
void stateIs( Corvdb::StateStore & state, Zorch::TableStore & tables, const std::string & path,
              const PathKind & kind, const Json & value );
/// Takes it away: a table, and an entity that the agent looks at by its path, stays with nothing in
/// it.
void stateDel( Corvdb::StateStore & state, Zorch::TableStore & tables, const std::string & path,
               const PathKind & kind );

/// What may stand at the path; null: nothing that is known.
const PathKind * anyKind( std::string_view path );

}
