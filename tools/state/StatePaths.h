#pragma once

#include <span>
#include <string>
#include <string_view>

/// What may stand at which path of the state.
namespace State {

/// One kind of entity or table. In its pattern a word in capitals stands for any of its sort: NAME
/// for a name of 1 to 100 bytes, AF for "ipv4" or "ipv6", IP for "ip" or "ip6", NUMBER.
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

}
