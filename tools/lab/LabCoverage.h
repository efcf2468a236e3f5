#pragma once

#include "tools/lab/LabFile.h"

#include <iosfwd>

namespace Lab {

struct CoverageOptions {
   bool node = false;         ///< protect the router behind each link, not the link
   bool everyRouter = false;  ///< of the network in turn, on all cores
   bool json = false;         ///< one JSON document a router, one a line
   unsigned width = 0;        ///< columns of `out`; 0: no limit
};

/// How well repairs cover the network at the start of a lab: for each IS-IS interface of the router
/// how many of the other routers are protected against its loss, by what kind of repair, and which
/// are not, and why. The agent works it out, for one request each. Gives the exit status of a run.
int printCoverage( const LabFile & lab, const CoverageOptions & options, std::ostream & out,
                   std::ostream & err );

}
