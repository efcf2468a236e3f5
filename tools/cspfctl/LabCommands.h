#pragma once

#include <CLI/CLI.hpp>

/// Adds `run LAB`. The status is set to the exit status of the run.
void addRunCommand( CLI::App & app, int & status );

/// Adds `repairs LAB`. The status is set to the exit status.
void addRepairsCommand( CLI::App & app, int & status );

/// Adds `check LAB...`: the labs are read and nothing runs. The status is set to that of a bad lab
/// where one is.
void addCheckCommand( CLI::App & app, int & status );
void addImportCommand( CLI::App & app, int & status );

/// Adds `prove [LAB]`: judges what is published at the end of a lab, or by a running agent. The
/// status is 1 where something does not hold.
void addProveCommand( CLI::App & app, int & status );

/// Adds `explain [LAB] CLIENT/PATH`: why a path is what it is, or why there is none, at the end of
/// a lab or by a running agent.
void addExplainCommand( CLI::App & app, int & status );

/// Adds `draw LAB|--live`: the network and its paths as a picture.
void addDrawCommand( CLI::App & app, int & status );

/// Adds `whatif LAB`: what a change would do to the paths of a lab, or every failure in turn.
/// Adds `replay FILE`: a record of an agent played again. The status is 1 where something else is
/// published than was then.
void addReplayCommand( CLI::App & app, int & status );

/// Adds `whatif [LAB]`: what a change would do to the paths of a lab or of a running agent, or
/// every failure in turn.
void addWhatIfCommand( CLI::App & app, int & status );
