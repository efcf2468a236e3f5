#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

/// The words after the program's name. A `--socket` before the command, which every command for a
/// running agent has itself, stands behind it here.
std::vector< std::string > wordsOf( int argc, char ** argv );

/// Gives the commands their groups and examples, and the help that shows them. REQUIRES: all
/// commands have been added.
void describeCommands( CLI::App & app );

/// Of a command for a lab or for live state: throws CLI::ParseError where an option is given that
/// is for the other one.
void checkOptions( bool hasLab, const std::vector< const CLI::Option * > & ofLabs,
                   const std::vector< const CLI::Option * > & ofLiveState );

/// What is wrong with the command line, on one line that begins with the program's name; things
/// stand in it in the order in which they were typed.
std::string complaint( const CLI::App & app, const std::vector< std::string > & words,
                       const CLI::ParseError & error );
