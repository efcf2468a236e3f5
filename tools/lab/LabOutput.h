#pragma once

#include "tools/lab/LabFile.h"
#include "tools/lab/LabRows.h"
#include "tools/lab/LabRunner.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace Lab {

/// The outcome as one JSON document on one line, without the line's end. O(outcome).
std::string outcomeJson( const Outcome & outcome );

/// What happens, a line each: "at 5 s  /topologies/core/links/ab/up: false".
std::vector< std::string > eventLines( const LabEvent & event );

/// Prints the outcomes of a run, in order, as JSON lines or as text for a person: tables at
/// first, then what each event changed.
class LabOutput {
 public:
   /// `out` outlives it.
   LabOutput( const RunOptions & options, std::ostream & out ) : options_( options ), out_( out ) {}

   /// Takes the outcome just before the next event or at the end, and the document as it stands
   /// then.
   void outcomeIs( const LabDocument & document, const Outcome & outcome );
   /// Says that this event is applied now.
   void eventIs( const LabEvent & event );

 private:
   void printTables( const LabDocument & document, const Outcome & outcome ) const;
   void printChanges( const Outcome & outcome, const Rows & after ) const;
   void printChange( const RowKey & key, const Row & row, const std::string & remark ) const;
   std::string coloured( const char * code, const std::string & text ) const;

   const RunOptions options_;
   std::ostream & out_;
   bool first_ = true;
   bool enabled_ = false;  ///< the agent, at the last outcome
   Rows rows_;             ///< of the last outcome
};

}
