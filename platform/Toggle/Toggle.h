#pragma once

#include <optional>
#include <string>

namespace Toggle {

/// Whether a feature is on. Takes the toggle's name and the name of the file that lists it: a flat
/// JSON object of names and booleans in the directory of the environment's TOGGLEDIR (default
/// "/etc/toggles"). A toggle or file that is not there, or cannot be read, gives the default. The
/// file is read at each call.
bool getToggleState( const std::string & toggleName, const std::string & fileName,
                     bool defaultState );

/// The same, but a toggle that was asked for once in this way keeps its state for the life of the
/// process, whatever becomes of the file.
bool getToggleStateOnce( const std::string & toggleName, const std::string & fileName,
                         bool defaultState );

/// What both answer for the name from now on, whatever the file says.
void toggleOverrideIs( const std::string & toggleName, std::optional< bool > state );

}
