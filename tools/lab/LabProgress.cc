// The progress line. It is written over itself, and only ever to a terminal.

#include "tools/lab/LabProgress.h"

#include <iomanip>
#include <ostream>
#include <utility>

namespace Lab {

namespace {

constexpr std::chrono::milliseconds patience{ 1000 }, interval{ 200 };
constexpr const char * clearLine = "\r\033[K";

}

LabProgress::LabProgress( std::ostream & err, bool shown, std::size_t events )
   : err_( err ),
     shown_( shown ),
     events_( events ),
     next_( Clock::now() + patience ) {}

void
LabProgress::clear() {
   if ( std::exchange( printed_, false ) ) {
      err_ << clearLine << std::flush;
   }
}

void
LabProgress::now( double time, std::size_t eventsDone ) {
   if ( !shown_ || Clock::now() < next_ ) {
      return;
   }
   next_ = Clock::now() + interval;
   printed_ = true;
   err_ << clearLine << "at " << std::fixed << std::setprecision( 2 ) << time << std::defaultfloat
        << " s of the lab, " << eventsDone << " of " << events_ << " events done" << std::flush;
}

}
