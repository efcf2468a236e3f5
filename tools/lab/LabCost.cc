// The network of a lab as steps from router to router, by the address that a hop is published
// under. Only links that both ends advertise are steps, and only topologies that the agent sees.
// What crosses a LAN is put together of its two members, so that a LAN costs what its members are.

#include "tools/lab/LabCost.h"

#include <algorithm>
#include <span>

namespace Lab {

namespace {

std::uint64_t
metricOf( const LabLinkAttributes & attributes ) {
   return attributes.teMetric.value_or( attributes.metric );
}

template< class Ways >
std::span< const typename Ways::mapped_type::value_type >
found( const Ways & ways, const typename Ways::key_type & key ) {
   const auto at = ways.find( key );
   if ( at == ways.end() ) {
      return {};
   }
   return at->second;
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

/// Calls `visit( map of the network, key, value )` for each way that both ends advertise.
template< class Visit >
void
LabCosts::forEachWay( const std::string & name, const LabTopology & part, Visit visit ) {
   Network & network = networks_[ { part.vrf, part.af } ];
   const auto id = [ & ]( const std::string & router ) {
      return part.routers.at( router ).teRouterId;
   };
   const auto step = [ & ]( const LabLinkEnd & near, const LabLinkEnd & far, std::uint64_t forth,
                            std::uint64_t back ) {
      for ( const auto & address : far.addrs ) {
         visit( network.steps, std::pair( id( near.router ), address ),
                Step{ id( far.router ), &name, forth, back } );
      }
   };
   for ( const auto & [ linkName, link ] : part.links ) {
      if ( link.ab.advertised && link.ba.advertised ) {
         const auto forth = metricOf( link.ab.attributes );
         const auto back = metricOf( link.ba.attributes );
         step( link.a, link.b, forth, back );
         step( link.b, link.a, back, forth );
      }
   }
   for ( const auto & [ lanName, lan ] : part.lans ) {
      for ( const auto & [ router, member ] : lan.members ) {
         if ( !member.attached ) {
            continue;
         }
         const Port port{ { &name, lanName }, router, metricOf( member.attributes ) };
         if ( id( router ) ) {  // others carry no path, and may be very many
            visit( network.departures, std::pair( id( router ), port.lan ), port );
         }
         for ( const auto & address : member.addrs ) {
            visit( network.arrivals, std::pair( id( router ), address ), port );
         }
      }
   }
}

void
LabCosts::add( const std::string & name, const LabTopology & part ) {
   forEachWay( name, part, []( auto & ways, const auto & key, const auto & way ) {
      ways[ key ].push_back( way );
   } );
}

void
LabCosts::remove( const std::string & name, const LabTopology & part ) {
   forEachWay( name, part, []( auto & ways, const auto & key, const auto & gone ) {
      const auto kept = ways.find( key );
      kept->second.erase( std::ranges::find( kept->second, gone ) );
      if ( kept->second.empty() ) {
         ways.erase( kept );
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
LabCosts::hopCost( const Network & network, const LabPath & path, const TeRouterId & from,
                   const HopAddress & hop, const TeRouterId & to ) const {
   const auto & asked = path.constraint.topoId;
   std::optional< std::uint64_t > least;
   const auto judge = [ & ]( const std::string & topology, std::uint64_t forth,
                             std::uint64_t back ) {
      if ( ( !asked || *asked == topology )
           && visible( *document_, document_->topologies.at( topology ) ) ) {
         const auto metric = path.constraint.reversePath ? back : forth;
         least = std::min( least.value_or( metric ), metric );
      }
   };
   for ( const Step & step : found( network.steps, { from, hop } ) ) {
      if ( step.to == to ) {
         judge( *step.topology, step.metric, step.metricBack );
      }
   }
   for ( const Port & arrival : found( network.arrivals, { to, hop } ) ) {
      for ( const Port & departure : found( network.departures, { from, arrival.lan } ) ) {
         if ( departure.router != arrival.router ) {
            judge( *arrival.lan.topology, departure.metric, arrival.metric );
         }
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
      const auto metric = hopCost( network->second, path, at, hops[ i ], routers[ i ] );
      if ( !metric ) {
         return std::nullopt;
      }
      sum += *metric;
      at = routers[ i ];
   }
   return sum;
}

}
