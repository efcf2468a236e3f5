// The topology of a repair is that of the protected interface; where this is in several, level 1 of
// IS-IS comes first if the destination can be reached there.

#include "tools/prove/RepairTopology.h"

#include "platform/Lum/Dir.h"
#include "schema/Isis.h"
#include "tools/prove/TeNetwork.h"

#include <algorithm>

namespace Prove {

using Cspf::IgpRouterId;
using Cspf::PathConstraint;
using Kivnet::IpGenAddr;
using Routing::Topology::Neighbor;

RepairTopology::RepairTopology( const Topology & topology )
   : topology_( topology ),
     steps_( stepsOf( *topology.table, TwoWay::unlessDenied ) ) {
   RepairNetwork network;
   for ( const auto & [ id, router ] : topology.table->routerColl() ) {
      numbers_.emplace( id, static_cast< std::uint32_t >( numbers_.size() ) );
      ids_.push_back( id );
      network.overloaded.push_back( router.overload() );
   }
   network.steps.resize( numbers_.size() );
   for ( const Step & step : steps_ ) {
      const std::uint32_t metric = step.link->metric();
      const std::uint32_t link = numberIs( step.link );
      const std::uint32_t arrival = step.lan ? numberIs( step.back ) + 1 : link;
      numberIs( step.back );
      if ( metric > 0 && metric <= 0xFFFFFE ) {
         network.steps[ *router( step.from() ) ].push_back(
            { *router( step.to() ), metric, link, arrival } );
      }
   }
   network.links = static_cast< std::uint32_t >( 2 * links_.size() );
   walker = std::make_unique< RepairWalker >( std::move( network ) );
}

std::span< const Step >
RepairTopology::stepsFrom( const IgpRouterId & id ) const {
   const auto from = []( const Step & step ) -> const IgpRouterId & { return step.from(); };
   return { std::ranges::lower_bound( steps_, id, {}, from ),
            std::ranges::upper_bound( steps_, id, {}, from ) };
}

const Step *
RepairTopology::step( std::uint32_t from, const RepairNetwork::Step & step ) const {
   for ( const Step & one : stepsFrom( ids_[ from ] ) ) {
      if ( number( one.link ) == step.link && one.to() == ids_[ step.to ] ) {
         return &one;
      }
   }
   return nullptr;
}

std::optional< std::uint32_t >
RepairTopology::router( const IgpRouterId & id ) const {
   const auto at = numbers_.find( id );
   return at == numbers_.end() ? std::nullopt : std::optional( at->second );
}

Originators
RepairTopology::originators( const Cspf::Destination & destination ) const {
   Originators found;
   if ( destination.isisSystemId() ) {
      if ( const auto at = router( IgpRouterId( destination ) ) ) {
         found.push_back( { *at, 0 } );
      }
      return found;
   }
   for ( const auto & [ id, reachability ] : topology_.table->reachabilityColl() ) {
      for ( const auto & prefix : reachability.prefixSet() ) {
         const auto at = router( id );
         if ( at && prefix.prefix() == destination.ipPrefix() ) {
            found.push_back( { *at, prefix.metric() } );
         }
      }
   }
   return found;
}

RepairTopologies::RepairTopologies( const Snapshot & state, const Service & service )
   : state_( state ),
     service_( service ) {
   for ( const Topology & topology : topologiesOf( state, service.vrf, service.af ) ) {
      if ( topology.id.igpSource() == Cspf::IgpSource::isis ) {
         topologies_.push_back( std::make_unique< RepairTopology >( topology ) );
      }
   }
   const auto identities = state.get< Lum::Dir >( "segmentrouting/isis" );
   const auto own = identities ? Lum::cast< Mpls::SegmentRouting::Status >(
                       identities->entity( service.vrf.stringValue() ) )
                               : nullptr;
   self_ = own ? IgpRouterId( own->systemId() ) : IgpRouterId();
}

const Cspf::PqInfo *
RepairTopologies::published( std::uint32_t idx ) const {
   const auto table =
      state_.get< Cspf::Status >( "te/cspf/status/vrf/" + service_.text() + "/" + tilfaClient );
   return table ? table->pqInfoFind( idx ) : nullptr;
}

bool
RepairTopologies::isJudged( const PathConstraint & asked, const Step & link ) {
   return !link.lan && asked.bandwidth() == 0;
}

bool
RepairTopologies::prefersRisks( const PathConstraint & asked ) const {
   return !asked.srlgStrictMode() && !risksOf( state_, asked ).empty();
}

RepairTopology *
RepairTopologies::topologyOf( const Answer & answer, const Step *& link ) const {
   const PathConstraint & asked = answer.config->constraint();
   const auto intf = asked.excludeIntf() ? asked.excludeIntf() : asked.excludeNode().nexthopIntf();
   RepairTopology * last = nullptr;
   for ( const auto & topology : topologies_ ) {  // level 1 before level 2
      const auto own = topology->stepsFrom( self_ );
      const auto found = std::ranges::find_if(
         own, [ & ]( const Step & step ) { return intf && step.link->intfId() == intf; } );
      if ( found == own.end() || ( asked.topoId() && asked.topoId() != topology->id() ) ) {
         continue;
      }
      last = topology.get();
      link = &*found;
      if ( topology->walker->reaches( *topology->router( self_ ),
                                      topology->originators( answer.key.dst() ) ) ) {
         break;
      }
   }
   return last;
}

PathConstraint
RepairTopologies::protectionOf( const Answer & answer ) {
   PathConstraint asked = answer.config->constraint();
   if ( asked.fallBackToLink() && answer.status && answer.status->repairPathIdx()
        && answer.status->achieved() == Cspf::RepairKind::link && asked.excludeNode() ) {
      if ( !asked.excludeIntf() ) {
         asked.excludeIntfIs( asked.excludeNode().nexthopIntf() );
      }
      asked.excludeNodeIs( {} );
   }
   return asked;
}

std::string
RepairTopologies::refusal( const PathConstraint & asked,
                           const std::set< TrafficEngineering::SrlgId > & risks,
                           const Step & step ) const {
   const Neighbor & link = *step.link;
   const std::uint32_t group = link.adminGroup(), all = asked.includeAllAdminGroup();
   if ( ( group & all ) != all || ( group & asked.excludeAdminGroup() )
        || ( asked.includeAnyAdminGroup() && !( group & asked.includeAnyAdminGroup() ) ) ) {
      return "is refused for its administrative groups";
   }
   for ( const auto & address : asked.excludeLinkWithIpList() ) {
      if ( hasAddress( link, address ) || ( !step.lan && hasAddress( *step.back, address ) ) ) {
         return "has the excluded address " + address.stringValue();
      }
   }
   if ( asked.srlgExcludeOnlyLocalLinks() && step.from() != self_ ) {
      return "";
   }
   for ( const auto & srlg : link.srlgList() ) {
      if ( risks.contains( srlg ) ) {
         return "shares SRLG " + std::to_string( srlg );
      }
   }
   return "";
}

Failure
RepairTopologies::failureOf( const RepairTopology & topology, const Step & link,
                             const PathConstraint & asked ) const {
   Failure failure;
   failure.plr = *topology.router( self_ );
   if ( asked.excludeNode().nodeId() ) {
      failure.node = *topology.router( link.to() );
   }
   failure.links = { topology.number( link.link ), topology.number( link.back ) };
   const auto risks =
      prefersRisks( asked ) ? std::set< TrafficEngineering::SrlgId >() : risksOf( state_, asked );
   const bool refuses = asked.excludeAdminGroup() || asked.includeAllAdminGroup()
                        || asked.includeAnyAdminGroup() || asked.excludeSrlg()
                        || !asked.excludeLinkWithIpList().empty();
   for ( const Step & step : refuses ? topology.steps() : std::vector< Step >() ) {
      if ( !refusal( asked, risks, step ).empty() ) {
         failure.links.push_back( topology.number( step.link ) );
      }
   }
   return failure;
}

namespace {

bool
setLink( const RepairTopology & topology, const Cspf::RepairSegment & named,
         Repair::Segment & segment ) {
   const auto is = []( const Neighbor & link, const IpGenAddr & address ) {
      return !address || hasAddress( link, address );
   };
   for ( const Step & step : topology.stepsFrom( IgpRouterId( named.from() ) ) ) {
      if ( step.to().isisSystemId() == named.to() && is( *step.link, named.nearAddr() )
           && is( *step.back, named.farAddr() ) ) {
         segment.link = topology.number( step.link );
         segment.arrival = step.lan ? topology.number( step.back ) + 1 : segment.link;
         return true;
      }
   }
   return false;
}

}

std::string
RepairTopologies::repairOf( const RepairTopology & topology, const Cspf::PqInfo & info,
                            Repair & repair ) const {
   for ( const Step & step : topology.stepsFrom( self_ ) ) {
      if ( step.link->intfId() == info.nhIntf() && ( !step.lan || isNextHop( step, info ) ) ) {
         repair.firstHop = *topology.router( step.to() );
         repair.firstLinks = { topology.number( step.link ) };
      }
   }
   if ( repair.firstHop == none ) {
      return "no neighbour " + info.nhIp().stringValue() + " is on the interface "
             + info.nhIntf().stringValue();
   }
   for ( std::size_t i = 0; i < info.pathList().size(); ++i ) {
      const auto node = topology.router( IgpRouterId( info.pathList()[ i ] ) );
      if ( !node ) {
         return "repair node " + info.pathList()[ i ].stringValue() + " does not exist";
      }
      repair.segments.push_back( { *node } );
      if ( i < info.segmentList().size() && info.segmentList()[ i ].from()
           && !setLink( topology, info.segmentList()[ i ], repair.segments.back() ) ) {
         return "no link from " + info.segmentList()[ i ].from().stringValue() + " to "
                + info.segmentList()[ i ].to().stringValue() + " has the addresses "
                + info.segmentList()[ i ].nearAddr().stringValue() + " and "
                + info.segmentList()[ i ].farAddr().stringValue();
      }
   }
   return "";
}

bool
RepairTopologies::isNextHop( const Step & step, const Cspf::PqInfo & info ) const {
   const auto table = state_.get< IsisExportImpl::IsisAdjacencyInfo >(
      "routing/isis/adjacency/" + service_.vrf.stringValue() );
   const auto * adjacency =
      table ? table->adjacencyFind( { info.nhIntf(), step.to().isisSystemId() } ) : nullptr;
   return ( adjacency
            && ( service_.af == Af::ipv6 ? adjacency->nexthopV6() : adjacency->nexthopV4() )
                  == info.nhIp() )
          || hasAddress( *step.back, info.nhIp() );
}

std::uint32_t
repairNodesAllowed( const PathConstraint & asked ) {
   const std::uint32_t most = RepairWalker::maxNodes;
   return asked.maxRepairNodes() ? std::min( asked.maxRepairNodes(), most ) : most;
}

}
