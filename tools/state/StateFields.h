#pragma once

#include "platform/Lum/Entity.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// An entity as a flat list of named texts, which is how a database keeps it.
///
/// An attribute has its own name: "enabled". An entry of a collection stands as "pathConfig[KEY]",
/// with the text of its key (its JSON where it has none; "\" and "]" in it are escaped by "\"). An
/// entry that is an entity is "{}"; its own fields follow behind a dot, "constraintStatus[5].path".
/// Every text is JSON on one line, without blanks, with all fields of a value in order.
namespace State {

/// Calls `visit` with the name of each attribute and entry.
void forEachFieldName( const Lum::Entity & entity,
                       const std::function< void( const std::string & name ) > & visit );

/// All of them, for those who change the entity meanwhile.
std::vector< std::string > fieldNames( const Lum::Entity & entity );

/// Appends the text of a field to `out`; false, with nothing appended, for an entry that is not
/// there. Throws Error for a name that the entity cannot have.
bool appendFieldText( const Lum::Entity & entity, std::string_view name, std::string & out );

/// Whether the bytes are UTF-8 (RFC 3629), as all names and texts have to be that stand in JSON.
bool isUtf8( std::string_view bytes );

/// Gives the field the value of the text; without a text an attribute its default, and an entry
/// its end. A value may leave fields out, which then have their defaults. Throws Error, which names
/// field and place, for a name or a text that cannot be, and for an entry under another's key; the
/// entity is then untouched.
void fieldIs( Lum::Entity & entity, std::string_view name,
              const std::optional< std::string_view > & text );

/// Where the field stands among those that are described, and a field of an entry that is an entity
/// in the description of that: for an order of names. Empty for a name that the entity cannot have.
std::vector< std::size_t > placeOf( const Lum::Entity & entity, std::string_view name );

/// The field that a change is about. An entry that is an entity comes with it, null where it is
/// gone. REQUIRES: the change is of this entity, and is being delivered.
struct FieldChange {
   std::string name;
   bool isChild = false;
   Lum::Ptr< Lum::Entity > child;
};
FieldChange fieldOf( const Lum::Entity & entity, const Lum::AnyChange & change );

/// Calls `visit( field, child )` for each entry that is an entity.
void forEachChildField(
   const Lum::Entity & entity,
   const std::function< void( const std::string &, const Lum::Ptr< Lum::Entity > & ) > & visit );

}
