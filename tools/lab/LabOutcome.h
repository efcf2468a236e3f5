#pragma once

#include "schema/CspfStatus.h"
#include "tools/lab/LabDocument.h"

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// What the agent has published at one moment, as plain data in which the names of the lab stand
/// again.
namespace Lab {

struct VrfAf {
   Vrf vrf;
   Af af = Af::unspecified;

   /// "default/ipv4"
   std::string text() const { return vrf.stringValue() + "/" + Kivnet::text( af ); }
   auto operator<=>( const VrfAf & ) const = default;
};

struct PathOutcome {
   std::optional< std::string > name;  ///< of the lab's path; nothing where it is not in the lab
   Cspf::PathStatus status;
   std::optional< std::uint64_t > cost;
   std::string error;  ///< the agent's reason; "" where it gives none
};

/// One client's service in one VRF and family.
struct ClientOutcome {
   std::vector< PathOutcome > pathStatus;  ///< by path key
   std::map< std::uint32_t, Cspf::PqInfo > pqInfo;
   std::vector< PathOutcome > unanswered;  ///< paths that have no status but the agent's reason
};

struct ConstraintOutcome {
   VrfAf where;
   std::vector< std::string > paths;  ///< names of the lab's paths that share it
   std::uint64_t cspfCount = 0;
   std::uint64_t cspfSkippedCount = 0;
   double cspfCurrentDelay = 0;  ///< milliseconds
   bool sourceMissing = false;
   bool constraintMissingInTopo = false;
};

/// One user's reservations on one directed link at one priority.
struct BandwidthOutcome {
   VrfAf where;
   Kivnet::IpGenAddr from;
   Kivnet::IpGenAddr to;  ///< unset: the link leads to a LAN
   std::string client;
   std::uint32_t sharedBwGroupId = 0;
   std::uint32_t localId = 0;
   std::uint32_t priority = 0;
   std::vector< std::uint64_t > reserved;  ///< bytes per second
};

struct Outcome {
   double time = 0;  ///< seconds
   bool agentEnabled = false;
   Kivnet::IpAddr teRouterId;
   /// Every client of the lab, and every other with published state; by client, by service.
   std::map< std::string, std::map< VrfAf, ClientOutcome > > clients;
   /// Owners of interface addresses, in order.
   std::map< VrfAf, std::vector< std::pair< Kivnet::IpGenAddr, Kivnet::IpGenAddr > > >
      intfIpToRouterId;
   std::vector< ConstraintOutcome > constraints;
   std::vector< BandwidthOutcome > bandwidth;
};

}
