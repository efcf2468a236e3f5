#pragma once

#include "platform/Lum/Dir.h"
#include "schema/BwUsage.h"
#include "schema/CspfClient.h"
#include "schema/CspfStatus.h"
#include "schema/Isis.h"
#include "schema/Topology.h"
#include "schema/TrafficEngineering.h"

namespace Schema {

template< class E >
struct Is {
   using Type = E;
};

/// Calls `visit( Is< E >() )` for each entity type that lives at a state path, in a directory or
/// in a table.
template< class Visit >
void
forEachEntityType( Visit && visit ) {
   const auto visitAll = [ & ]< class... E >( Is< E >... type ) { ( visit( type ), ... ); };
   visitAll(
      Is< Lum::Dir >(), Is< Cspf::AgentStatus >(), Is< Cspf::BwUsage >(),
      Is< Cspf::BwUsagePerPriority >(), Is< Cspf::BwUsageTable >(), Is< Cspf::Client >(),
      Is< Cspf::Config >(), Is< Cspf::ConstraintStatus >(), Is< Cspf::ConstraintStatusTable >(),
      Is< Cspf::CspfCliConfig >(), Is< Cspf::IntfIpToRouterIdTable >(), Is< Cspf::Status >(),
      Is< Interface::AllEthPhyIntfStatusDir >(), Is< Interface::EthLagIntfStatusDir >(),
      Is< Ip::Status >(), Is< IsisExportImpl::IsisAdjacencyInfo >(),
      Is< Mpls::SegmentRouting::Status >(), Is< Routing::General::Config >(),
      Is< Routing::Isis::Hostnames >(), Is< Routing::Topology::Client >(),
      Is< Routing::Topology::ExportPath >(), Is< Routing::Topology::TopoDb >(),
      Is< TrafficEngineering::BandwidthClientStatus >(),
      Is< TrafficEngineering::BandwidthClientUsage >(), Is< TrafficEngineering::BwmActiveStatus >(),
      Is< TrafficEngineering::BwmStatus >(), Is< TrafficEngineering::Config >(),
      Is< TrafficEngineering::IntfStatus >(), Is< TrafficEngineering::Status >() );
}

}
