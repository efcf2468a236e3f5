#pragma once

#include "platform/Lum/Entity.h"

#include <functional>
#include <string>

/// What of a database's content may come into a process whose agent believes what it reads.
namespace Redis {

/// Why nothing of that type may stand at the key, for people; empty where it may.
std::string refusalOf( const std::string & key, const std::string & type );
/// Says what is wrong with an entity whose fields are each right; empty if nothing is.
using Judge = std::function< std::string( const Lum::Entity & entity ) >;
/// Who judges entities of the type; null where nothing can be wrong with one.
Judge judgeOf( const std::string & type );

}
