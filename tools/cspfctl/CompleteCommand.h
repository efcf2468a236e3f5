#pragma once

#include <CLI/CLI.hpp>

#include <iosfwd>
#include <string>
#include <vector>

/// The word by which completion scripts of shells call.
inline constexpr const char * completeCommand = "complete";

/// Prints what the last of the words, behind the program's name, may become, one a line: commands,
/// options and their values, state paths, clients and their paths, names in a lab. After what ends
/// in "/" more is to come. Nothing where it may be a file. An agent that does not answer at once is
/// done without.
void complete( const CLI::App & app, const std::vector< std::string > & words, std::ostream & out );
