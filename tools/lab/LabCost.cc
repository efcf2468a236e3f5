// The network of a lab as steps from router to router, by the address that a hop is published
// under. Only links that both ends advertise are steps, and only topologies that the agent sees.

#include "tools/lab/LabCost.h"

#include <algorithm>

namespace Lab {

namespace {

std::uint64_t
metricOf( const LabLinkAttributes & attributes ) {
   return attributes.teMetric.value_or( attributes.metric );
}

}

LabCosts::LabCosts( const LabDocument & document ) {
   for ( const auto & [ name, topology ] : document.topologies ) {
      if ( visible( document, topology ) ) {
         add( name, topology, document.router );
      }
   }
}

void
LabCosts::add( const std::string & name, const LabTopology & topology, const std::string & self ) {
   Network & network = networks_[ { topology.vrf, topology.af } ];
   const auto step = [ & ]( const LabLinkEnd & near, const LabLinkEnd & far,
                            const LabLinkDirection & forth, const LabLinkDirection & back ) {
      const auto & from = topology.routers.at( near.router ).teRouterId;
      const auto & to = topology.routers.at( far.router ).teRouterId;
      for ( const auto & address : far.addrs ) {
         network.steps[ { from, address } ].push_back(
            { to, &name, metricOf( forth.attributes ), metricOf( back.attributes ) } );
      }
   };
   for ( const auto & [ linkName, link ] : topology.links ) {
      if ( link.ab.advertised && link.ba.advertised ) {
         step( link.a, link.b, link.ab, link.ba );
         step( link.b, link.a, link.ba, link.ab );
      }
   }
   for ( const auto & [ lanName, lan ] : topology.lans ) {
      addLan( network, name, topology, lan );
   }
   addOwn( network, topology, self );
}

void
LabCosts::addLan( Network & network, const std::string & name, const LabTopology & topology,
                  const LabLan & lan ) {
   for ( const auto & [ near, nearMember ] : lan.members ) {
      for ( const auto & [ far, farMember ] : lan.members ) {
         if ( near == far || !nearMember.attached || !farMember.attached ) {
            continue;
         }
         for ( const auto & address : farMember.addrs ) {
            network.steps[ { topology.routers.at( near ).teRouterId, address } ].push_back(
               { topology.routers.at( far ).teRouterId, &name, metricOf( nearMember.attributes ),
                 metricOf( farMember.attributes ) } );
         }
      }
   }
}

void
LabCosts::addOwn( Network & network, const LabTopology & topology, const std::string & self ) {
   const auto router = topology.routers.find( self );
   if ( router == topology.routers.end() ) {
      return;
   }
   network.own.insert( router->second.teRouterId );
   for ( const auto & [ prefix, metric ] : router->second.prefixes ) {
      if ( prefix.isHost() ) {
         network.own.insert( prefix.address() );
      }
   }
   for ( const auto & [ name, link ] : topology.links ) {
      for ( const LabLinkEnd * end : { &link.a, &link.b } ) {
         if ( end->router == self ) {
            network.own.insert( end->addrs.begin(), end->addrs.end() );
         }
      }
   }
   for ( const auto & [ name, lan ] : topology.lans ) {
      if ( const auto member = lan.members.find( self ); member != lan.members.end() ) {
         network.own.insert( member->second.addrs.begin(), member->second.addrs.end() );
      }
   }
}

std::optional< std::uint64_t >
LabCosts::hopCost( const Network & network, const LabPath & path, const From & hop,
                   const Kivnet::IpGenAddr & to ) {
   const auto steps = network.steps.find( hop );
   std::optional< std::uint64_t > least;
   if ( steps == network.steps.end() ) {
      return least;
   }
   const auto & topology = path.constraint.topoId;
   for ( const Step & step : steps->second ) {
      if ( step.to == to && ( !topology || *topology == *step.topology ) ) {
         const auto metric = path.constraint.reversePath ? step.metricBack : step.metric;
         least = std::min( least.value_or( metric ), metric );
      }
   }
   return least;
}

std::optional< std::uint64_t >
LabCosts::cost( const LabPath & path, const Kivnet::IpGenAddr & source,
                const Cspf::PathStatus & status ) const {
   const auto network = networks_.find( { path.vrf, path.af } );
   const auto & hops = status.pathList();
   const auto & routers = status.pathTeRouterIdList();
   if ( network == networks_.end() || hops.size() != routers.size() ) {
      return std::nullopt;
   }
   if ( hops.empty() && !network->second.own.contains( path.dst.ipAddress() ) ) {
      return std::nullopt;
   }
   std::uint64_t sum = 0;
   Kivnet::IpGenAddr at = source;
   for ( std::size_t i = 0; i < hops.size(); ++i ) {
      const auto metric = hopCost( network->second, path, { at, hops[ i ] }, routers[ i ] );
      if ( !metric ) {
         return std::nullopt;
      }
      sum += *metric;
      at = routers[ i ];
   }
   return sum;
}

}
