#pragma once

#include <CLI/CLI.hpp>

/// Adds what is said to a running agent: get, patch, load, watch, dump, status, paths,
/// metrics, trace-level. Each throws
/// std::runtime_error with a text for the person when it cannot be done. The status is set to that
/// of a bad lab where one is to be loaded.
void addLiveCommands( CLI::App & app, int & status );

/// Adds `wait`: until the agent has settled, or a path has an answer. The status is 4 where the
/// time for it is over.
void addWaitCommand( CLI::App & app, int & status );

/// Adds `trace FILE`: the records of a trace ring as text.
void addTraceCommand( CLI::App & app );

/// Adds `support`: an archive of all that a running agent tells of itself.
void addSupportCommand( CLI::App & app );
