#pragma once

#include "platform/Lum/Entity.h"

#include <string>

/// What of a database's content may come into a process whose agent believes what it reads.
namespace Redis {

/// Why nothing of that type may stand at the key, for people; empty where it may.
std::string refusalOf( const std::string & key, const std::string & type );
/// What is wrong with an entity whose fields are each right; empty if nothing is.
std::string faultOf( const Lum::Entity & entity );

}
