#pragma once

#include <chrono>
#include <cstddef>
#include <iosfwd>

namespace Lab {

/// One line on a terminal that says how far a run is, for runs that take longer than a second of
/// the wall clock. The line is taken away when the run ends.
class LabProgress {
 public:
   /// `shown`: `err` is a terminal; without, nothing is ever printed. `err` outlives it.
   LabProgress( std::ostream & err, bool shown, std::size_t events );
   ~LabProgress() { clear(); }
   LabProgress( const LabProgress & ) = delete;
   LabProgress & operator=( const LabProgress & ) = delete;

   /// Called often, such as each turn of the loop: `time` of the lab in seconds, and how many
   /// events have been applied. Costs one look at the clock.
   void now( double time, std::size_t eventsDone );
   /// Takes the line away, so that something else can be printed.
   void clear();

 private:
   using Clock = std::chrono::steady_clock;

   std::ostream & err_;
   const bool shown_;
   const std::size_t events_;
   Clock::time_point next_;  ///< when the line is due
   bool printed_ = false;
};

}
