#pragma once

#include "tools/lab/RouterNames.h"

#include <compare>
#include <map>
#include <string>

/// Published paths in the words of a lab, for a person.
namespace Lab {

struct RowKey {
   VrfAf where;
   std::string client;
   Cspf::PathKey path;

   auto operator<=>( const RowKey & ) const = default;
};

inline constexpr const char * noMetric = "-";

/// One path that is asked for or published.
struct Row {
   std::string name;         ///< of the path in the lab; "" where it is not in the lab
   std::string destination;  ///< router and address
   std::string metric = noMetric;
   std::string route;           ///< names of routers or the protection, or why there is none
   std::uint32_t answered = 0;  ///< the request that the status answers
   bool up = false;             ///< there is a path, or a repair

   /// Whether both say the same of the path; how the lab calls things is no news.
   bool operator==( const Row & other ) const {
      return metric == other.metric && route == other.route && answered == other.answered
             && up == other.up;
   }
};

/// The row of a published path, which is one of the service.
Row rowOf( const RouterNames & names, const std::string & client, const PathOutcome & path,
           const ClientOutcome & service );

using Rows = std::map< RowKey, Row >;

/// A row for each path of the document and for each status of the outcome. O(both).
Rows rowsOf( const LabDocument & document, const Outcome & outcome );

}
