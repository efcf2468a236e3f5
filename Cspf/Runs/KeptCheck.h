#pragma once

#include "Cspf/Runs/KeptAnswers.h"

#include <string>

namespace Cspf {

struct ConstraintSmContext;

/// Whether CSPF_VERIFY_REPAIR asks for the check. Read once.
bool isVerified();
/// Makes the run that was spared, and stops the agent at the first difference between what it finds
/// and what is kept: distances, last links and their order, and the answers of the paths that were
/// not told one by one. REQUIRES: the answers have followed; none was handed out since.
void verifyKept( const KeptAnswers & kept, const Lum::Ptr< const AllTopoDbView > & view,
                 const ConstraintSmContext & context );
/// The same of a tree that was taken over.
void verifyKept( const LfaCspfData & kept, const Lum::Ptr< const AllTopoDbView > & view,
                 const ConstraintSmContext & context );
/// Stops the agent: `what` was kept, and a run finds otherwise.
[[noreturn]] void differFromRun( const AllTopoDbView & view, const std::string & what );

}
