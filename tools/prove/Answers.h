#pragma once

#include "schema/CspfClient.h"
#include "schema/CspfStatus.h"
#include "tools/prove/Proof.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Prove {

inline constexpr const char * rsvpClient = "rsvp";
inline constexpr const char * tilfaClient = "tilfa";

/// A client's request, what is published for it, and the reason beside it; either may be missing.
struct Answer {
   std::string client;
   Cspf::PathKey key;
   const Cspf::PathConfig * config = nullptr;
   const Cspf::PathStatus * status = nullptr;
   std::string error;
   bool served = false;  ///< the client is there, and asks for service in the VRF and family

   std::string name() const;  ///< "10.0.0.3#1"
   bool hasHops() const { return status && !status->pathList().empty(); }
   /// Its hops are put together from segments, or given one by one.
   bool stitched() const {
      const auto & constraint = config->constraint();
      return !constraint.includeHopList().empty() || constraint.includeHopAllExplicit();
   }
   /// The last request may not have been answered by what is published.
   bool uncertain() const {
      return !error.empty()
             || ( status && config && status->refreshRespSeq() != config->refreshReqSeq() );
   }
};

/// One VRF and family: all that is asked for and published there.
struct Service {
   Vrf vrf;
   Af af = Af::unspecified;
   std::vector< Answer > answers;  ///< by client, by path key

   std::string text() const { return vrf.stringValue() + "/" + Kivnet::text( af ); }
};

/// They point into the snapshot.
std::vector< Service > servicesOf( const Snapshot & state );

/// Ordinary paths of a service, then the reservations; then the repairs.
void provePaths( const Snapshot & state, const Service & service, Verdict & verdict );
void proveRepairs( const Snapshot & state, const Service & service, Verdict & verdict );

}
