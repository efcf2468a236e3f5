#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// A key of the database is one entity, "e:PATH", or one table, "t:PATH"; it has fields, as of
/// `State::fieldIs`, and its type under `typeField`.
namespace Redis {

inline constexpr std::string_view typeField = "@type", revisionField = "@rev";

/// A field and its new text; none: it is gone.
using FieldText = std::pair< std::string, std::optional< std::string > >;

/// Changes of one key, in order.
struct KeyChanges {
   std::string key;
   std::vector< FieldText > fields;
   bool isAnew = false;  ///< the key ended before them: nothing else is in it
};

/// Whether the key ends by them, with all that is in it.
inline bool
endsKey( const KeyChanges & changes ) {
   return !changes.fields.empty() && changes.fields.front().first == typeField
          && !changes.fields.front().second;
}

/// So many changes of one turn are taken over in one go; between those of a longer one, and while a
/// key ends, the loop serves others (`Pace::breathe`).
inline constexpr std::size_t maxInOneGo = 1000;

/// What one writer wrote in one step.
struct Turn {
   std::uint64_t revision = 0;
   std::string writer;
   std::vector< KeyChanges > keys;
};

inline bool
isTable( const std::string & key ) {
   return key.starts_with( "t:" );
}
/// REQUIRES: a key.
inline std::string
pathOf( const std::string & key ) {
   return key.substr( 2 );
}

}
