#pragma once

#include <CLI/CLI.hpp>

/// Adds what is said to a running agent: get, patch, watch, dump, status, paths. Each throws
/// std::runtime_error with a text for the person when it cannot be done.
void addLiveCommands( CLI::App & app );

/// Adds `trace FILE`: the records of a trace ring as text.
void addTraceCommand( CLI::App & app );
