#pragma once

#include "tools/prove/Snapshot.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace Prove {

/// Something that is published, or should be, and does not hold.
struct Fault {
   std::string where;  ///< "default/ipv4"
   std::string client;
   std::string path;  ///< "10.0.0.3#1", or a link where it is about reservations alone
   std::string text;  ///< what is wrong, with the hop and the numbers

   bool operator==( const Fault & ) const = default;
};

struct Verdict {
   std::vector< Fault > faults;
   /// What an operator may want to know, and no fault of the agent: "default/ipv4 link: ..".
   std::vector< std::string > remarks;
   // What was judged, faults included.
   std::size_t paths = 0;         ///< published with hops
   std::size_t best = 0;          ///< of these, held against the least cost
   std::size_t absent = 0;        ///< published without, since there is none
   std::size_t reservations = 0;  ///< of one user on one link at one priority
   std::size_t repairs = 0;       ///< published repairs of destinations
   std::size_t unrepaired = 0;    ///< requests without, since there is none
   /// Requests that state alone does not settle: answered with an error beside what is kept,
   /// without service, or of a kind that is not judged.
   std::size_t passedOver = 0;
};

/// Judges all that is published. What the agent has not got round to yet, for a throttle, is judged
/// as if it had. Faults are in the order of VRF, family, client and path key.
Verdict prove( const Snapshot & state );

/// One of the numbers of a verdict: its name in JSON, and in words.
struct Count {
   const char * name;
   std::size_t Verdict::*count;
   const char * words;
};
/// All of them, in the order of printing.
std::span< const Count > counts();

/// One line for each fault, then one for each remark.
std::string faultsText( const Verdict & verdict );
/// "12 paths, 3 repairs: all holds", without an end of line.
std::string sumText( const Verdict & verdict );

}
