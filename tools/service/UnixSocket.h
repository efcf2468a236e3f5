#pragma once

#include <string>

namespace Service {

/// Where the control socket is unless somebody says otherwise: CSPF_SOCKET of the environment, else
/// "/run/cspf/control.sock" for root, and for others "cspf.sock" in XDG_RUNTIME_DIR, else
/// "/tmp/cspf-<uid>/control.sock".
std::string defaultSocketPath();

/// A non-blocking listener at the path, for its owner alone. The directory is made where it is
/// missing. Throws std::runtime_error; neither a socket that somebody serves nor another file is
/// taken away.
int listenAt( const std::string & path );
/// The next connection, non-blocking; -1 when there is none, or its user is not the one this
/// process runs as (nor root).
int acceptOwner( int listener );
/// A connection to the socket at the path. Throws std::runtime_error.
int connectTo( const std::string & path );

}
