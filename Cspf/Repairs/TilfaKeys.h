#pragma once

#include "Cspf/Records/PathRows.h"

#include <array>

/// How one TI-LFA request becomes several computations: its own run without the protected resource,
/// and the plain trees that the repairs are worked out of. The plain trees are internal paths of
/// their own; their constraints are equal for all requests that protect the same thing, so that the
/// runs are shared.
namespace Cspf {

LUM_BOUNDED( TilfaPathInfoKeyIndex, std::uint8_t, 0, 7 );

/// The internal keys of one client path, by TilfaTree.
struct TilfaPathInfoKeyColl {
   LUM_VALUE( Cspf, TilfaPathInfoKeyColl );
   LUM_FIELD( isLinkProtection, bool );  ///< else of the node
   LUM_FIELD( pathKey, PathKey );
   LUM_FIELD( clientName, Lum::String );
   LUM_LIST( pathInfoKey, TilfaPathInfoKeyIndex, PathInfoKey );  ///< in use
   LUM_LIST( stalePathInfoKey, TilfaPathInfoKeyIndex,
             PathInfoKey );  ///< until the new one has a result
};

/// The plain trees, in the order of `TilfaPathInfoKeyColl::pathInfoKey`.
enum class TilfaTree : std::uint8_t { forward, neighbor, reverse };
inline constexpr std::array< TilfaTree, 3 > tilfaTrees{ TilfaTree::forward, TilfaTree::neighbor,
                                                        TilfaTree::reverse };

/// Link protection unless a node is excluded.
inline bool
isLinkProtection( const PathConstraint & constraint ) {
   return !constraint.excludeNode();
}

/// The internal key of one tree of the client path `external`. The reverse tree leads to the router
/// itself for link protection, to the protected node for node protection.
PathInfoKey tilfaTreeKey( const PathInfoKey & external, TilfaTree tree, bool isLinkProtection );

}
