#pragma once

#include <span>
#include <string>
#include <string_view>

/// What may stand at which path of the state.
namespace State {

/// One kind of entity or table. In its pattern a word in capitals stands for any of its sort: NAME
/// for a name as of `L3::VrfName::isName`, AF for "ipv4" or "ipv6", IP for "ip" or "ip6", NUMBER.
struct PathKind {
   std::string_view pattern;
   const char * typeName;
   bool isAgents = false;  ///< the agent writes it, and nobody else
   bool isOne = false;     ///< the agent looks at it by this path, there or not
};

std::span< const PathKind > entityPaths();
std::span< const PathKind > tablePaths();
/// All that the agent writes, and nothing else, is at or below these; each is in front of the first
/// word in capitals.
std::span< const std::string_view > agentsPaths();

/// The kind that the canonical path is of; null: none.
const PathKind * pathKind( std::span< const PathKind > kinds, std::string_view path );
/// The kind of the entries that others make, change and remove in the directory; null: it is none
/// of theirs. REQUIRES: the path is canonical.
const PathKind * entryKind( std::string_view directory );
/// Whether tables of some kind may be below the canonical path.
bool isAboveTables( std::string_view path );

}
