#pragma once

#include "Cspf/Records/PathRows.h"

#include <utility>

namespace Cspf {

/// Keeps runs from beginning while somebody is in the middle of telling paths.
class RunHold {
 public:
   /// Null: holds nothing.
   explicit RunHold( Lum::Ptr< PathStatusInfoTable > paths ) : paths_( std::move( paths ) ) {}

   /// Runs that waited begin inside of the call that lets them go.
   void holdsIs( bool holds ) {
      if ( std::exchange( holds_, holds ) != holds && paths_ ) {
         paths_->intakesIs( holds ? paths_->intakes() + 1 : paths_->intakes() - 1 );
      }
   }

 private:
   const Lum::Ptr< PathStatusInfoTable > paths_;
   bool holds_ = false;
};

}
