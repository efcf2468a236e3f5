#pragma once

#include "tools/lab/LabFile.h"

#include <nlohmann/json.hpp>

#include <iosfwd>
#include <string>
#include <vector>

namespace Lab {

struct CoverageOptions {
   bool node = false;         ///< protect the router behind each link, not the link
   bool everyRouter = false;  ///< of the network in turn, on all cores
   bool json = false;         ///< one JSON document a router, one a line
   unsigned width = 0;        ///< columns of `out`; 0: no limit
};

/// How one interface's destinations are covered: how many by what kind of repair, and which are not
/// and why.
nlohmann::json noCoverage();
void addProtected( nlohmann::json & coverage, std::size_t repairNodes );
void addUnprotected( nlohmann::json & coverage, const std::string & destination,
                     const std::string & reason );

struct CoverageRow {
   std::vector< std::string > cells;  ///< what it is of
   nlohmann::json coverage;
};
/// `columns`: those of the rows' cells.
void printCoverage( std::vector< std::string > columns, const std::vector< CoverageRow > & rows,
                    unsigned width, std::ostream & out );

/// How well repairs cover the network at the start of a lab: for each IS-IS interface of the router
/// how many of the other routers are protected against its loss, by what kind of repair, and which
/// are not, and why. The agent works it out, for one request each. Gives the exit status of a run.
int printCoverage( const LabFile & lab, const CoverageOptions & options, std::ostream & out,
                   std::ostream & err );

}
