#pragma once

#include "Cspf/Records/PathRows.h"
#include "Cspf/Runs/Run.h"

namespace Cspf {

/// Puts what a run found for a path into the path's cache: its hops, or none. Gives the reason why
/// there are none, "" where there are. `operation`: the one for which, as traces begin. REQUIRES:
/// the data has its tree.
std::string fillPathStatusCache( const PathStatusInfo & path, const CspfData & cspfData,
                                 PathStatusCache & cache, const char * operation );
/// What that answer rests on, after it was published. REQUIRES: the data answers from labels.
CspfData::Ground ground( const PathStatusInfo & path, const CspfData & cspfData );
/// Puts the answer "no hops" there. Gives the reason back.
std::string noPath( PathStatusCache & cache, std::string reason );

/// The answer for one path alone, computed from that node in place of the constraint's own source.
/// `operation`: the one for which, as traces begin. O(edges + vertices).
Lum::Ptr< const PathStatusCache > computeFrom( const NodeId & source, const PathStatusInfo & path,
                                               const Lum::Ptr< const AllTopoDbView > & view,
                                               CspfRunMemory & memory, const char * operation );

}
