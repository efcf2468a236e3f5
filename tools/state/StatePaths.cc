// The map of the state: one line for each kind of path.

#include "tools/state/StatePaths.h"

#include "platform/Kivnet/VrfName.h"
#include "tools/state/JsonText.h"

#include <algorithm>
#include <array>

namespace State {

namespace {

constexpr std::array entityKinds = {
   PathKind{ "te/cspf/client/NAME", "Cspf::Client" },
   PathKind{ "te/config", "TrafficEngineering::Config", false, true },
   PathKind{ "routing/general/config/global", "Routing::General::Config", false, true },
   PathKind{ "te/cspf/cliConfig", "Cspf::CspfCliConfig", false, true },
   PathKind{ "ip/status", "Ip::Status", false, true },
   PathKind{ "interface/status/eth/phy/all", "Interface::AllEthPhyIntfStatusDir", false, true },
   PathKind{ "interface/status/eth/lag", "Interface::EthLagIntfStatusDir", false, true },
   PathKind{ "routing/topoDbExport/NAME", "Routing::Topology::ExportPath" },
   PathKind{ "segmentrouting/isis/NAME", "Mpls::SegmentRouting::Status" },
   PathKind{ "te/cspf/agentStatus", "Cspf::AgentStatus", true, true },
   PathKind{ "te/bwm/activeStatus", "TrafficEngineering::BwmActiveStatus", true, true },
   PathKind{ "routing/export/topodb/client/NAME", "Routing::Topology::Client", true },
   PathKind{ "routing6/export/topodb/client/NAME", "Routing::Topology::Client", true },
};

constexpr std::array tableKinds = {
   PathKind{ "te/cspf/config/vrf/NAME/AF/NAME", "Cspf::Config" },
   PathKind{ "routing/isis/topodb/IP/NUMBER/NAME", "Routing::Topology::TopoDb" },
   PathKind{ "routing/isis/topodb/IP/NUMBER/NUMBER/NAME", "Routing::Topology::TopoDb" },
   PathKind{ "routing/ospf/topodb/IP/NUMBER/NUMBER/NAME", "Routing::Topology::TopoDb" },
   PathKind{ "routing/isis/adjacency/NAME", "IsisExportImpl::IsisAdjacencyInfo" },
   PathKind{ "routing/isis/hostname/NAME", "Routing::Isis::Hostnames" },
   PathKind{ "te/bwm/client/input/vrf/NAME/NAME", "TrafficEngineering::BandwidthClientUsage" },
   PathKind{ "te/cspf/status/vrf/NAME/AF/NAME", "Cspf::Status", true },
   PathKind{ "te/cspf/intfIpToRouterId/vrf/NAME/AF", "Cspf::IntfIpToRouterIdTable", true },
   PathKind{ "te/cspf/constraintStatus/vrf/NAME/AF", "Cspf::ConstraintStatusTable", true },
   PathKind{ "te/cspf/bwUsage/vrf/NAME/AF", "Cspf::BwUsageTable", true },
   PathKind{ "te/bwm/client/status/vrf/NAME/NAME", "TrafficEngineering::BandwidthClientStatus",
             true },
   PathKind{ "te/bwm/status/vrf/NAME", "TrafficEngineering::BwmStatus", true },
};

constexpr std::array< std::string_view, 10 > agents = {
   "te/cspf/agentStatus",          "te/bwm/activeStatus",
   "routing/export/topodb/client", "routing6/export/topodb/client",
   "te/cspf/status/vrf",           "te/cspf/intfIpToRouterId/vrf",
   "te/cspf/constraintStatus/vrf", "te/cspf/bwUsage/vrf",
   "te/bwm/client/status/vrf",     "te/bwm/status/vrf",
};

std::string_view
takeComponent( std::string_view & path ) {
   const auto slash = std::min( path.find( '/' ), path.size() );
   const std::string_view component = path.substr( 0, slash );
   path.remove_prefix( std::min( slash + 1, path.size() ) );
   return component;
}

bool
matches( std::string_view word, std::string_view component ) {
   if ( word == "NAME" ) {
      return L3::VrfName::isName( component );
   }
   if ( word == "AF" ) {
      return component == "ipv4" || component == "ipv6";
   }
   if ( word == "IP" ) {
      return component == "ip" || component == "ip6";
   }
   return word == "NUMBER" ? fromText< std::uint32_t >( component ).has_value() : component == word;
}

/// Whether the path is the beginning of what the pattern stands for, and what follows there.
struct Match {
   bool isBeginning = true;
   std::string_view rest;
};

Match
match( std::string_view pattern, std::string_view path ) {
   while ( !pattern.empty() && !path.empty() ) {
      if ( !matches( takeComponent( pattern ), takeComponent( path ) ) ) {
         return { false, pattern };
      }
   }
   return { path.empty(), pattern };
}

}

std::span< const PathKind >
entityPaths() {
   return entityKinds;
}

std::span< const PathKind >
tablePaths() {
   return tableKinds;
}

std::span< const std::string_view >
agentsPaths() {
   return agents;
}

const PathKind *
pathKind( std::span< const PathKind > kinds, std::string_view path ) {
   const auto at = std::ranges::find_if( kinds, [ & ]( const PathKind & kind ) {
      const Match matched = match( kind.pattern, path );
      return matched.isBeginning && matched.rest.empty();
   } );
   return at == kinds.end() || path.ends_with( '/' ) ? nullptr : &*at;
}

const PathKind *
entryKind( std::string_view directory ) {
   const auto at = std::ranges::find_if( entityKinds, [ & ]( const PathKind & kind ) {
      const Match matched = match( kind.pattern, directory );
      return !kind.isAgents && matched.isBeginning && matched.rest == "NAME";
   } );
   return at == entityKinds.end() ? nullptr : &*at;
}

bool
isAboveTables( std::string_view path ) {
   return std::ranges::any_of( tableKinds, [ & ]( const PathKind & kind ) {
      const Match matched = match( kind.pattern, path );
      return matched.isBeginning && !matched.rest.empty();
   } );
}

}
