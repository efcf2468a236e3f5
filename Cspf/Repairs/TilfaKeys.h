#pragma once

#include "Cspf/Records/PathRows.h"

#include <array>
#include <span>

/// How one TI-LFA request becomes several computations: its own run without the protected resource,
/// and the plain trees that the repairs are worked out of. The plain trees are internal paths of
/// their own, which all requests share that differ in the destination alone.
namespace Cspf {

LUM_BOUNDED( TilfaPathInfoKeyIndex, std::uint8_t, 0, 7 );

/// The internal key of one tree of a client path.
struct TilfaPathInfoKeyColl {
   LUM_VALUE( Cspf, TilfaPathInfoKeyColl );
   LUM_FIELD( isLinkProtection, bool );  ///< else of the node
   LUM_FIELD( pathKey, PathKey );
   LUM_FIELD( clientName, Lum::String );
   LUM_FIELD( pathInfoKey, PathInfoKey );       ///< in use
   LUM_FIELD( stalePathInfoKey, PathInfoKey );  ///< until the new one has a result
};

/// The trees besides the path's own. The last two serve protection of the link where the node
/// cannot be avoided: that without the link, and the plain one that leads to this router.
enum class TilfaTree : std::uint8_t { forward, neighbor, reverse, withoutLink, toPlr };

/// The trees that repairs under the constraint need.
inline std::span< const TilfaTree >
tilfaTrees( const PathConstraint & constraint ) {
   static constexpr std::array all{ TilfaTree::forward, TilfaTree::neighbor, TilfaTree::reverse,
                                    TilfaTree::withoutLink, TilfaTree::toPlr };
   return std::span( all ).first( constraint.fallBackToLink() && constraint.excludeNode() ? 5 : 3 );
}

/// Link protection unless a node is excluded.
inline bool
isLinkProtection( const PathConstraint & constraint ) {
   return !constraint.excludeNode();
}

/// The internal key of one tree of the client's trees of that number. The reverse tree leads to the
/// router itself for link protection, to the protected node for node protection.
PathInfoKey tilfaTreeKey( const Lum::SharedString & clientName, std::uint32_t treesId,
                          TilfaTree tree, bool isLinkProtection );

}
