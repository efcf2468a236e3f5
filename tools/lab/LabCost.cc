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

/// Calls `step( from, far address, to, metrics forth and back )`, routers by TE router id, for each
/// way that both ends advertise.
template< class Step >
void
forEachStep( const LabTopology & topology, Step step ) {
   const auto id = [ & ]( const std::string & router ) {
      return topology.routers.at( router ).teRouterId;
   };
   const auto steps = [ & ]( const std::string & near, const std::string & far,
                             const Addresses & farAddresses, const LabLinkAttributes & forth,
                             const LabLinkAttributes & back ) {
      for ( const auto & address : farAddresses ) {
         step( id( near ), address, id( far ), metricOf( forth ), metricOf( back ) );
      }
   };
   for ( const auto & [ name, link ] : topology.links ) {
      if ( link.ab.advertised && link.ba.advertised ) {
         steps( link.a.router, link.b.router, link.b.addrs, link.ab.attributes,
                link.ba.attributes );
         steps( link.b.router, link.a.router, link.a.addrs, link.ba.attributes,
                link.ab.attributes );
      }
   }
   for ( const auto & [ name, lan ] : topology.lans ) {
      for ( const auto & [ near, nearMember ] : lan.members ) {
         for ( const auto & [ far, farMember ] : lan.members ) {
            if ( near != far && nearMember.attached && farMember.attached ) {
               steps( near, far, farMember.addrs, nearMember.attributes, farMember.attributes );
            }
         }
      }
   }
}

/// Whether a router that was there has another TE router id, or none any more.
bool
renames( const LabTopologyChange & change ) {
   return std::ranges::any_of( change.before.routers, [ & ]( const auto & before ) {
      const auto after = change.after.routers.find( before.first );
      return after != change.after.routers.end()
             && after->second.teRouterId != before.second.teRouterId;
   } );
}

}

LabCosts::LabCosts( const LabDocument & document ) : document_( &document ) {
   addAll();
}

void
LabCosts::addAll() {
   networks_.clear();
   for ( const auto & [ name, topology ] : document_->topologies ) {
      add( name, topology );
   }
   setOwn();
}

void
LabCosts::follow( const LabChange & change ) {
   if ( change.everything || std::ranges::any_of( change.topologies, []( const auto & part ) {
           return renames( part.second );
        } ) ) {
      addAll();
      return;
   }
   for ( const auto & [ name, part ] : change.topologies ) {
      const std::string & kept = document_->topologies.find( name )->first;
      remove( kept, part.before );
      add( kept, part.after );
   }
   if ( change.surroundings ) {
      setOwn();
   }
}

void
LabCosts::add( const std::string & name, const LabTopology & part ) {
   Network & network = networks_[ { part.vrf, part.af } ];
   forEachStep( part, [ & ]( const auto & from, const auto & address, const auto & to,
                             std::uint64_t forth, std::uint64_t back ) {
      network.steps[ { from, address } ].push_back( { to, &name, forth, back } );
   } );
}

void
LabCosts::remove( const std::string & name, const LabTopology & part ) {
   Network & network = networks_[ { part.vrf, part.af } ];
   forEachStep( part, [ & ]( const auto & from, const auto & address, const auto & to,
                             std::uint64_t forth, std::uint64_t back ) {
      const auto steps = network.steps.find( { from, address } );
      const Step gone{ to, &name, forth, back };
      steps->second.erase( std::ranges::find( steps->second, gone ) );
      if ( steps->second.empty() ) {
         network.steps.erase( steps );
      }
   } );
}

void
LabCosts::setOwn() {
   for ( auto & [ where, network ] : networks_ ) {
      network.own.clear();
   }
   for ( const auto & [ name, topology ] : document_->topologies ) {
      if ( visible( *document_, topology ) ) {
         addOwn( networks_[ { topology.vrf, topology.af } ], topology, document_->router );
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
                   const Kivnet::IpGenAddr & to ) const {
   const auto steps = network.steps.find( hop );
   std::optional< std::uint64_t > least;
   if ( steps == network.steps.end() ) {
      return least;
   }
   const auto & topology = path.constraint.topoId;
   for ( const Step & step : steps->second ) {
      if ( step.to == to && ( !topology || *topology == *step.topology )
           && visible( *document_, document_->topologies.at( *step.topology ) ) ) {
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
