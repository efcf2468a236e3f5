#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <utility>
#include <vector>

/// What the agent answers to a command that asks: a line a fact, its kind and its values by name,
/// all apart by tabs. Values that are numbers are so here; those that may stand there several times
/// are lists.
using Fact = std::pair< std::string, nlohmann::json >;
std::vector< Fact > factsOf( const std::string & lines );
