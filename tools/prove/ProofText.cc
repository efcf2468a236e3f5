// A verdict in words.

#include "tools/prove/Proof.h"

namespace Prove {

std::span< const Count >
counts() {
   static constexpr Count all[] = {
      { "paths", &Verdict::paths, "paths" },
      { "best", &Verdict::best, "held against the least cost" },
      { "absent", &Verdict::absent, "without a path since there is none" },
      { "reservations", &Verdict::reservations, "reservations" },
      { "repairs", &Verdict::repairs, "repairs" },
      { "unrepaired", &Verdict::unrepaired, "without a repair since there is none" },
      { "passedOver", &Verdict::passedOver, "passed over" } };
   return all;
}

std::string
faultsText( const Verdict & verdict ) {
   std::string text;
   for ( const Fault & fault : verdict.faults ) {
      text += fault.where + " " + fault.client + " " + fault.path + ": " + fault.text + "\n";
   }
   for ( const std::string & remark : verdict.remarks ) {
      text += "note: " + remark + "\n";
   }
   return text;
}

std::string
sumText( const Verdict & verdict ) {
   std::string sum;
   for ( const Count & count : counts() ) {
      if ( verdict.*count.count > 0 ) {
         sum += ( sum.empty() ? "" : ", " ) + std::to_string( verdict.*count.count ) + " "
                + count.words;
      }
   }
   const std::size_t faults = verdict.faults.size();
   return ( sum.empty() ? "nothing is published" : sum ) + ": "
          + ( faults == 0 ? "all holds" : std::to_string( faults ) + " do not hold" );
}

}
