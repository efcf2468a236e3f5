#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Zorch/TableStore.h"
#include "tools/lab/LabFile.h"
#include "tools/lab/LabOutcome.h"

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <limits>

namespace Lab {

struct RunOptions {
   bool json = false;       ///< one JSON document a line instead of tables
   bool verbose = false;    ///< the agent's traces, with the time of the lab, on `err`
   bool realtime = false;   ///< the wall clock instead of the virtual one
   std::uint32_t seed = 1;  ///< of the choice among equal-cost links
   bool colour = false;     ///< `out` is a terminal that shows colours
   bool progress = false;   ///< `err` is a terminal
   unsigned width = 0;      ///< columns of `out`; 0: no limit
};

/// Exit statuses of a run; 3 is that of a broken invariant.
inline constexpr int exitOk = 0;
inline constexpr int exitBadLab = 2;
inline constexpr int exitBrokenInvariant = 3;

/// Starts the agent on the lab, lets it work through all events, and prints what it published
/// before each of them and at the end. Gives the exit status.
int runLab( const LabFile & lab, const RunOptions & options, std::ostream & out,
            std::ostream & err );

/// What a lab has led to.
struct LabMoment {
   const LabDocument & document;
   const Corvdb::StateStore & state;
   const Zorch::TableStore & tables;
   bool settled = true;  ///< no work is pending
   /// Hands the agent a command, and gives what it writes; "" where it takes none of that name.
   std::function< std::string( const std::string & name, const std::string & text ) > command;
   /// What the agent has published.
   std::function< Outcome() > outcome;
   /// Applies a merge patch to the lab, lets the agent work until it rests, and gives what it has
   /// published then. All above changes with it. Throws LabError where the patch leaves no lab.
   std::function< Outcome( const LabJson & patch ) > after;
};
using LabVisitor = std::function< void( const LabMoment & moment ) >;
inline constexpr double atTheEnd = std::numeric_limits< double >::infinity();

/// Starts the agent on the lab, lets it work for `until` seconds of the lab, before what happens
/// then, or through all events until it rests; prints nothing, and shows the state.
void visitLab( const LabFile & lab, const RunOptions & options, double until,
               const LabVisitor & visit, std::ostream & err );

/// Starts the agent on the lab and shows the state just before each event, and at the end. `since`:
/// the event that came last; null before the first.
using LabTour = std::function< void( const LabMoment & moment, const LabEvent * since ) >;
void tourLab( const LabFile & lab, const RunOptions & options, const LabTour & visit,
              std::ostream & err );

}
