#pragma once

#include "platform/Lum/Entity.h"
#include "tools/state/JsonPlace.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <string>
#include <string_view>

/// JSON to and from every value and entity type, derived from its one description.
///
/// An entity or value is an object of its fields. What has a plain text (names, numbers,
/// enumerations, addresses, prefixes, ids) stands as that text or number, "" where it is unset.
/// Lists and sets are arrays, an absent optional is null. A collection whose keys have a text is
/// an object; any other is an array of {"key": .., "value": ..}, in key order. Where a collection
/// holds entities of any type, each is {"type": name, "value": ..}.
///
/// `merge` reads a JSON merge patch (RFC 7396): null gives an attribute its default and takes an
/// entry out of a collection, an object changes the fields that it names, anything else replaces.
namespace State {

using Json = nlohmann::json;

Json toJson( const Lum::Entity & entity );

/// Takes a long text, piece by piece.
class TextSink {
 public:
   virtual ~TextSink() = default;
   virtual void text( std::string_view piece ) = 0;
   /// So many entries of a collection come next.
   virtual void entries( std::size_t /*count*/ ) {}
};
/// The JSON of the entity as text, an entry at a time.
void writeText( const Lum::Entity & entity, TextSink & sink );
/// Likewise {"type": name, "value": the entity's}.
void writeTyped( const Lum::Entity & entity, TextSink & sink );
/// A JSON value as text on one line. Bytes that are not UTF-8 are replaced.
std::string text( const Json & json );

/// Checks the whole patch first, then changes what differs, entry by entry, so that watchers hear
/// of nothing else. Throws `Error` with the entity untouched.
void merge( Lum::Entity & entity, const Json & patch, const Place & place = {} );
/// One change as its watchers hear of it: {"attribute": .., "value": ..}, for an entry of a
/// collection with its "key" (no "value" where the entry is gone). An entry that is an entity is
/// `child` (null where it is gone) under `childName`, "attribute/key".
struct Change {
   Json json;
   bool isChild = false;
   std::string childName;
   Lum::Ptr< Lum::Entity > child;
};
/// REQUIRES: the change is of this entity, and is being delivered.
Change changeToJson( const Lum::Entity & entity, const Lum::AnyChange & change );
/// Calls `visit( "attribute/key", child )` for each entity in the collections of this one.
void forEachChild(
   const Lum::Entity & entity,
   const std::function< void( const std::string &, const Lum::Ptr< Lum::Entity > & ) > & visit );
/// A new entity of the type of that name; null where there is no such type.
Lum::Ptr< Lum::Entity > makeEntity( std::string_view typeName );

}
