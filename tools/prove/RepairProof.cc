// Published repairs, each against its request, its failure and its topology. The topology is that
// of the protected interface; where this is in several, level 1 of IS-IS comes first if the
// destination can be reached there.

#include "platform/Lum/Dir.h"
#include "schema/Isis.h"
#include "tools/prove/Answers.h"
#include "tools/prove/RepairWalker.h"
#include "tools/prove/TeNetwork.h"

#include <algorithm>
#include <memory>
#include <span>

namespace Prove {

namespace {

using Cspf::IgpRouterId;
using Cspf::PathConstraint;
using Kivnet::IpGenAddr;
using Routing::Topology::Neighbor;

/// One topology in numbers, and what they mean.
class IgpTopology {
 public:
   explicit IgpTopology( const Topology & topology )
      : topology_( topology ),
        steps_( stepsOf( *topology.table, TwoWay::unlessDenied ) ) {
      RepairNetwork network;
      for ( const auto & [ id, router ] : topology.table->routerColl() ) {
         numbers_.emplace( id, static_cast< std::uint32_t >( numbers_.size() ) );
         network.overloaded.push_back( router.overload() );
      }
      network.steps.resize( numbers_.size() );
      for ( const Step & step : steps_ ) {
         const std::uint32_t metric = step.link->metric();
         const std::uint32_t link = number( step.link );
         const std::uint32_t arrival = step.lan ? number( step.back ) + 1 : link;
         if ( metric > 0 && metric <= 0xFFFFFE ) {
            network.steps[ *router( step.from() ) ].push_back(
               { *router( step.to() ), metric, link, arrival } );
         }
      }
      network.links = static_cast< std::uint32_t >( 2 * links_.size() );
      walker = std::make_unique< RepairWalker >( std::move( network ) );
   }

   std::optional< std::uint32_t > router( const IgpRouterId & id ) const {
      const auto at = numbers_.find( id );
      return at == numbers_.end() ? std::nullopt : std::optional( at->second );
   }
   /// Of the way by which the link leaves its router; the next one is that by which a LAN is left
   /// to the link's own router.
   std::uint32_t number( const Neighbor * link ) {
      return links_.try_emplace( link, 2 * static_cast< std::uint32_t >( links_.size() ) )
         .first->second;
   }
   Originators originators( const Cspf::Destination & destination ) const {
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
   const Cspf::TopoId & id() const { return topology_.id; }
   const std::vector< Step > & steps() const { return steps_; }
   /// The steps that leave that router.
   std::span< const Step > stepsFrom( const IgpRouterId & id ) const {
      const auto from = []( const Step & step ) -> const IgpRouterId & { return step.from(); };
      return { std::ranges::lower_bound( steps_, id, {}, from ),
               std::ranges::upper_bound( steps_, id, {}, from ) };
   }

   std::unique_ptr< RepairWalker > walker;

 private:
   const Topology topology_;
   const std::vector< Step > steps_;
   std::map< IgpRouterId, std::uint32_t > numbers_;
   std::map< const Neighbor *, std::uint32_t > links_;
};

Kivnet::IntfId
protectedInterface( const PathConstraint & asked ) {
   return asked.excludeIntf() ? asked.excludeIntf() : asked.excludeNode().nexthopIntf();
}

class RepairProof {
 public:
   RepairProof( const Snapshot & state, const Service & service, Verdict & verdict )
      : state_( state ),
        service_( service ),
        verdict_( verdict ) {
      for ( const Topology & topology : topologiesOf( state, service.vrf, service.af ) ) {
         if ( topology.id.igpSource() == Cspf::IgpSource::isis ) {
            topologies_.push_back( std::make_unique< IgpTopology >( topology ) );
         }
      }
      const auto identities = state.get< Lum::Dir >( "segmentrouting/isis" );
      const auto own = identities ? Lum::cast< Mpls::SegmentRouting::Status >(
                          identities->entity( service.vrf.stringValue() ) )
                                  : nullptr;
      self_ = own ? IgpRouterId( own->systemId() ) : IgpRouterId();
   }

   std::string fault( const Answer & answer ) {
      if ( !answer.config || !answer.served || !self_ || !answer.status ) {
         ++verdict_.passedOver;
         return answer.status && !answer.config ? "is published, and nobody asks for it" : "";
      }
      const std::uint32_t idx = answer.status->repairPathIdx();
      const Cspf::PqInfo * info = idx ? published( idx ) : nullptr;
      if ( idx && !info ) {
         return "names repair " + std::to_string( idx ) + ", which is not published";
      }
      const PathConstraint & asked = answer.config->constraint();
      const Step * link = nullptr;
      IgpTopology * topology = topologyOf( answer, link );
      // The repair of a link that is gone is the one that it had.
      if ( !topology || answer.uncertain() || !isJudged( asked, *link ) ) {
         ++verdict_.passedOver;
         return "";
      }
      ++( info ? verdict_.repairs : verdict_.unrepaired );
      return faultOf( *topology, *link, answer, info );
   }

 private:
   const Cspf::PqInfo * published( std::uint32_t idx ) const {
      const auto table =
         state_.get< Cspf::Status >( "te/cspf/status/vrf/" + service_.text() + "/" + tilfaClient );
      return table ? table->pqInfoFind( idx ) : nullptr;
   }

   /// A LAN's loss and the paths of least risk are not judged.
   bool isJudged( const PathConstraint & asked, const Step & link ) const {
      const bool risks = !asked.srlgStrictMode() && !risksOf( state_, asked ).empty();
      return !link.lan && !risks && asked.bandwidth() == 0;
   }

   /// The topology in which a request is computed, and the protected link there; null where the
   /// link is gone.
   IgpTopology * topologyOf( const Answer & answer, const Step *& link ) {
      const PathConstraint & asked = answer.config->constraint();
      IgpTopology * last = nullptr;
      for ( const auto & topology : topologies_ ) {  // level 1 before level 2
         const Step * found = nullptr;
         for ( const Step & step : topology->stepsFrom( self_ ) ) {
            if ( protectedInterface( asked )
                 && step.link->intfId() == protectedInterface( asked ) ) {
               found = &step;
               break;
            }
         }
         if ( !found || ( asked.topoId() && asked.topoId() != topology->id() ) ) {
            continue;
         }
         last = topology.get();
         link = found;
         if ( topology->walker->reaches( *topology->router( self_ ),
                                         topology->originators( answer.key.dst() ) ) ) {
            break;
         }
      }
      return last;
   }

   bool isRefused( const PathConstraint & asked,
                   const std::set< TrafficEngineering::SrlgId > & risks, const Step & step ) const {
      const Neighbor & link = *step.link;
      const std::uint32_t group = link.adminGroup(), all = asked.includeAllAdminGroup();
      if ( ( group & all ) != all || ( group & asked.excludeAdminGroup() )
           || ( asked.includeAnyAdminGroup() && !( group & asked.includeAnyAdminGroup() ) ) ) {
         return true;
      }
      for ( const auto & address : asked.excludeLinkWithIpList() ) {
         if ( hasAddress( link, address ) || ( !step.lan && hasAddress( *step.back, address ) ) ) {
            return true;
         }
      }
      if ( asked.srlgExcludeOnlyLocalLinks() && step.from() != self_ ) {
         return false;
      }
      return std::ranges::any_of( link.srlgList(),
                                  [ & ]( auto srlg ) { return risks.contains( srlg ); } );
   }

   Failure failureOf( IgpTopology & topology, const Step & link, const PathConstraint & asked ) {
      Failure failure;
      failure.plr = *topology.router( self_ );
      if ( asked.excludeNode().nodeId() ) {
         failure.node = *topology.router( link.to() );
      }
      failure.links = { topology.number( link.link ), topology.number( link.back ) };
      const auto risks = risksOf( state_, asked );
      const bool refuses = asked.excludeAdminGroup() || asked.includeAllAdminGroup()
                           || asked.includeAnyAdminGroup() || asked.excludeSrlg()
                           || !asked.excludeLinkWithIpList().empty();
      for ( const Step & step : refuses ? topology.steps() : std::vector< Step >() ) {
         if ( isRefused( asked, risks, step ) ) {
            failure.links.push_back( topology.number( step.link ) );
         }
      }
      return failure;
   }

   /// What the published repair means in the topology; the text says what means nothing.
   std::string repairOf( IgpTopology & topology, const Cspf::PqInfo & info, Repair & repair ) {
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

   bool isNextHop( const Step & step, const Cspf::PqInfo & info ) const {
      const auto table = state_.get< IsisExportImpl::IsisAdjacencyInfo >(
         "routing/isis/adjacency/" + service_.vrf.stringValue() );
      const auto * adjacency =
         table ? table->adjacencyFind( { info.nhIntf(), step.to().isisSystemId() } ) : nullptr;
      return ( adjacency
               && ( service_.af == Af::ipv6 ? adjacency->nexthopV6() : adjacency->nexthopV4() )
                     == info.nhIp() )
             || hasAddress( *step.back, info.nhIp() );
   }

   static bool setLink( IgpTopology & topology, const Cspf::RepairSegment & named,
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

   std::string faultOf( IgpTopology & topology, const Step & link, const Answer & answer,
                        const Cspf::PqInfo * info ) {
      const PathConstraint & asked = answer.config->constraint();
      std::vector< Repair > repairs;
      if ( info ) {
         std::string fault = repairOf( topology, *info, repairs.emplace_back() );
         if ( !fault.empty() ) {
            return fault;
         }
      }
      if ( topology_ != &topology || !( asked_ == asked ) ) {
         topology.walker->failureIs( failureOf( topology, link, asked ) );
         topology_ = &topology;
         asked_ = asked;
      }
      const std::uint32_t most = RepairWalker::maxNodes;
      const std::uint32_t allowed =
         asked.maxRepairNodes() ? std::min( asked.maxRepairNodes(), most ) : most;
      const std::string fault = topology.walker->fault(
         repairs, topology.originators( answer.key.dst() ), false, allowed );
      if ( fault.empty() ) {
         return "";
      }
      return info ? "repair " + std::to_string( info->idx() ) + " over "
                       + info->nhIntf().stringValue() + " to " + info->nhIp().stringValue()
                       + ": packets do not arrive"
                  : "has no repair, which " + fault;
   }

   const Snapshot & state_;
   const Service & service_;
   Verdict & verdict_;
   std::vector< std::unique_ptr< IgpTopology > > topologies_;
   IgpRouterId self_;
   const IgpTopology * topology_ = nullptr;  ///< judged last, under this constraint
   PathConstraint asked_;
};

}

void
proveRepairs( const Snapshot & state, const Service & service, Verdict & verdict ) {
   // Requests for one protection stand together, so that costs after the failure serve them all.
   std::vector< const Answer * > order;
   for ( const Answer & answer : service.answers ) {
      if ( answer.client == tilfaClient ) {
         order.push_back( &answer );
      }
   }
   if ( order.empty() ) {
      return;
   }
   std::ranges::stable_sort( order, {}, []( const Answer * answer ) {
      return answer->config ? answer->config->constraint() : PathConstraint();
   } );
   RepairProof proof( state, service, verdict );
   std::map< const Answer *, std::string > faults;
   for ( const Answer * answer : order ) {
      if ( std::string fault = proof.fault( *answer ); !fault.empty() ) {
         faults.emplace( answer, std::move( fault ) );
      }
   }
   for ( auto & [ answer, fault ] : faults ) {
      verdict.faults.push_back(
         { service.text(), answer->client, answer->name(), std::move( fault ) } );
   }
}

}
