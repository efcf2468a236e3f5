// Hops and repairs as edges. Costs of plain routes are worked out here once more, for a picture
// shows all ways of equal cost that a packet may take to a repair node.

#include "tools/draw/Routes.h"

#include "tools/draw/Titles.h"
#include "tools/lab/LabRows.h"
#include "tools/prove/Answers.h"

#include <algorithm>
#include <queue>

namespace Draw {

using namespace Lab;
using Kivnet::IpGenAddr;

namespace {

constexpr std::uint64_t far = UINT64_MAX / 4;

}

std::string
nodeKey( const std::string & topology, const std::string & name, const LabRouter & router ) {
   return router.teRouterId ? router.teRouterId.stringValue() : topology + "/" + name;
}

std::string
lanKey( const std::string & topology, const std::string & lan ) {
   return topology + "/lan/" + lan;
}

std::string
memberKey( const std::string & lan, const std::string & router ) {
   return "lan/" + lan + "/" + router;
}

RouteFinder::RouteFinder( const VrfAf & where, const LabDocument & document, const Numbers & nodes,
                          const EdgeNumbers & edges )
   : where_( where ),
     document_( document ),
     nodes_( nodes ),
     edges_( edges ),
     leaving_( nodes.size() ),
     arriving_( nodes.size() ) {
   for ( const auto & [ name, topology ] : document.topologies ) {
      if ( topology.vrf == where.vrf && topology.af == where.af ) {
         add( name, topology );
      }
   }
}

std::size_t
RouteFinder::node( const std::string & topology, const LabTopology & routers,
                   const std::string & router ) const {
   return nodes_.at( nodeKey( topology, router, routers.routers.at( router ) ) );
}

void
RouteFinder::addArc( Arc arc ) {
   leaving_[ arc.from ].push_back( arcs_.size() );
   arriving_[ arc.to ].push_back( arcs_.size() );
   arcs_.push_back( std::move( arc ) );
}

void
RouteFinder::add( const std::string & name, const LabTopology & topology ) {
   names_[ &topology ] = name;
   for ( const auto & [ routerName, router ] : topology.routers ) {
      if ( routerName == document_.router ) {
         self_ = node( name, topology, routerName );
      }
      if ( router.overload ) {
         overloaded_.emplace( &topology, node( name, topology, routerName ) );
      }
      if ( topology.id.igpSource() == Cspf::IgpSource::isis ) {
         bySystemId_[ { &topology, router.id.isisSystemId() } ] =
            node( name, topology, routerName );
      }
   }
   for ( const auto & [ linkName, link ] : topology.links ) {
      const std::size_t edge = edges_.at( { name, linkName } );
      const auto addDirection = [ & ]( const LabLinkEnd & from, const LabLinkEnd & to,
                                       const LabLinkAttributes & attributes, bool forward ) {
         addArc( { node( name, topology, from.router ),
                   node( name, topology, to.router ),
                   { { edge, forward } },
                   &topology,
                   &from.intf,
                   &to.addrs,
                   metricOf( attributes ),
                   attributes.metric } );
      };
      if ( link.ab.advertised && link.ba.advertised ) {
         addDirection( link.a, link.b, link.ab.attributes, true );
         addDirection( link.b, link.a, link.ba.attributes, false );
      }
   }
   for ( const auto & [ lanName, lan ] : topology.lans ) {
      addLan( name, topology, lanName, lan );
   }
}

void
RouteFinder::addLan( const std::string & name, const LabTopology & topology,
                     const std::string & lanName, const LabLan & lan ) {
   const auto edge = [ & ]( const std::string & member ) {
      return edges_.at( { name, memberKey( lanName, member ) } );
   };
   for ( const auto & [ from, near ] : lan.members ) {
      for ( const auto & [ to, other ] : lan.members ) {
         if ( from != to && near.attached && other.attached ) {
            addArc( { node( name, topology, from ),
                      node( name, topology, to ),
                      { { edge( from ), true }, { edge( to ), false } },
                      &topology,
                      &near.intf,
                      &other.addrs,
                      metricOf( near.attributes ),
                      near.attributes.metric } );
         }
      }
   }
}

std::optional< std::size_t >
RouteFinder::nodeOf( const IpGenAddr & teRouterId ) const {
   const auto at = nodes_.find( teRouterId.stringValue() );
   return at == nodes_.end() ? std::nullopt : std::optional( at->second );
}

/// The one by that interface that arrives at that router and address, where these are given; one
/// that arrives at the router where none has the address. Null where there is none.
const RouteFinder::Arc *
RouteFinder::arcOf( std::size_t from, std::optional< std::size_t > to, const IpGenAddr & address,
                    const Kivnet::IntfId * intf ) const {
   const Arc * found = nullptr;
   for ( const std::size_t number : leaving_[ from ] ) {
      const Arc & arc = arcs_[ number ];
      if ( ( to && arc.to != *to ) || ( intf && *arc.intf != *intf ) ) {
         continue;
      }
      if ( std::ranges::count( *arc.addresses, address ) > 0 ) {
         return &arc;
      }
      found = found ? found : &arc;
   }
   return found;
}

/// Gives what the hops cost; nothing where one is not there.
std::optional< std::uint64_t >
RouteFinder::follow( std::size_t at, const Cspf::PathStatus & status, Route & route ) const {
   std::uint64_t cost = 0;
   const auto & hops = status.pathList();
   const auto & ids = status.pathTeRouterIdList();
   for ( std::size_t i = 0; i < hops.size(); ++i ) {
      const auto to = i < ids.size() ? nodeOf( ids[ i ] ) : std::nullopt;
      const Arc * const arc = arcOf( at, to, hops[ i ], nullptr );
      if ( !arc ) {
         return std::nullopt;
      }
      route.steps.insert( route.steps.end(), arc->steps.begin(), arc->steps.end() );
      cost += arc->metric;
      at = arc->to;
   }
   return cost;
}

/// Least IGP metrics from a node, or to it.
RouteFinder::Costs
RouteFinder::costs( const LabTopology & topology, std::size_t node, bool backwards ) const {
   Costs costs( leaving_.size(), far );
   std::priority_queue< std::pair< std::uint64_t, std::size_t >,
                        std::vector< std::pair< std::uint64_t, std::size_t > >, std::greater<> >
      waiting;
   costs[ node ] = 0;
   waiting.emplace( 0, node );
   while ( !waiting.empty() ) {
      const auto [ cost, at ] = waiting.top();
      waiting.pop();
      // An overloaded router is where packets begin or end.
      const bool crosses = at == node || !overloaded_.contains( { &topology, at } );
      for ( const std::size_t number : backwards ? arriving_[ at ] : leaving_[ at ] ) {
         const Arc & arc = arcs_[ number ];
         const std::size_t next = backwards ? arc.from : arc.to;
         if ( arc.topology == &topology && crosses && cost + arc.igpMetric < costs[ next ] ) {
            costs[ next ] = cost + arc.igpMetric;
            waiting.emplace( costs[ next ], next );
         }
      }
   }
   return costs;
}

/// Adds all that lies on ways of least cost.
void
RouteFinder::spread( const LabTopology & topology, std::size_t from, std::size_t to,
                     std::set< Route::Step > & steps ) const {
   const Costs there = costs( topology, from, false ), back = costs( topology, to, true );
   const auto crosses = [ & ]( std::size_t node, std::size_t end ) {
      return node == end || !overloaded_.contains( { &topology, node } );
   };
   for ( const Arc & arc : arcs_ ) {
      if ( arc.topology == &topology && crosses( arc.from, from ) && crosses( arc.to, to )
           && there[ to ] < far
           && there[ arc.from ] + arc.igpMetric + back[ arc.to ] == there[ to ] ) {
         steps.insert( arc.steps.begin(), arc.steps.end() );
      }
   }
}

/// The router that originates it at the least cost.
std::optional< std::size_t >
RouteFinder::originator( const LabTopology & topology, std::size_t from,
                         const Cspf::Destination & destination ) const {
   if ( const auto id = destination.isisSystemId() ) {
      const auto at = bySystemId_.find( { &topology, id } );
      return at == bySystemId_.end() ? std::nullopt : std::optional( at->second );
   }
   const Costs there = costs( topology, from, false );
   std::optional< std::size_t > found;
   std::uint64_t least = far;
   for ( const auto & [ name, router ] : topology.routers ) {
      const auto prefix = router.prefixes.find( destination.ipPrefix() );
      const std::size_t number = node( names_.at( &topology ), topology, name );
      if ( prefix != router.prefixes.end() && there[ number ] + prefix->second < least ) {
         least = there[ number ] + prefix->second;
         found = number;
      }
   }
   return found;
}

void
RouteFinder::walk( std::size_t at, const Cspf::PqInfo & repair,
                   const Cspf::Destination & destination, Route & route ) const {
   const Arc * const first = arcOf( at, std::nullopt, repair.nhIp(), &repair.nhIntf() );
   if ( !first ) {
      return;
   }
   const LabTopology & topology = *first->topology;
   std::set< Route::Step > steps( first->steps.begin(), first->steps.end() );
   at = first->to;
   const auto travel = [ & ]( const Routing::Isis::SystemId & id ) {
      const auto to = bySystemId_.find( { &topology, id } );
      if ( to != bySystemId_.end() && to->second != at ) {
         spread( topology, at, to->second, steps );
         at = to->second;
      }
   };
   for ( const auto & segment : repair.segmentList() ) {
      if ( segment.from() ) {
         travel( segment.from() );
         const auto to = bySystemId_.find( { &topology, segment.to() } );
         const Arc * const link =
            to == bySystemId_.end() ? nullptr : arcOf( at, to->second, segment.farAddr(), nullptr );
         if ( link ) {
            steps.insert( link->steps.begin(), link->steps.end() );
            at = link->to;
         }
      }
      travel( segment.to() );
      route.rings.push_back( at );
   }
   if ( const auto end = originator( topology, at, destination ) ) {
      spread( topology, at, *end, steps );
   }
   route.steps.assign( steps.begin(), steps.end() );
}

namespace {

/// Names of the lab's paths by client and key.
class PathNames {
 public:
   PathNames( const LabDocument & document, const VrfAf & where ) {
      for ( const auto & [ client, paths ] : document.paths ) {
         for ( const auto & [ name, path ] : paths ) {
            if ( VrfAf{ path.vrf, path.af } == where ) {
               names_[ client ][ { path.dst, path.id } ] = name;
            }
         }
      }
   }
   /// "CLIENT/NAME", or "CLIENT/DESTINATION#ID".
   std::string of( const Prove::Answer & answer ) const {
      const auto client = names_.find( answer.client );
      if ( client != names_.end() ) {
         if ( const auto at = client->second.find( answer.key ); at != client->second.end() ) {
            return answer.client + "/" + at->second;
         }
      }
      return answer.client + "/" + answer.name();
   }

 private:
   std::map< std::string, std::map< Cspf::PathKey, std::string > > names_;
};

/// "paris, brest; metric 20"
std::string
routeText( const Row & row ) {
   return row.route + ( row.metric == noMetric ? "" : "; metric " + row.metric );
}

}

std::vector< Route >
RouteFinder::routes( const Prove::Snapshot & state ) const {
   const PathNames pathNames( document_, where_ );
   const RouterNames names( document_, where_ );
   std::vector< Route > routes;
   for ( const Prove::Service & service : Prove::servicesOf( state ) ) {
      if ( VrfAf{ service.vrf, service.af } != where_ ) {
         continue;
      }
      for ( const Prove::Answer & answer : service.answers ) {
         Route & route = routes.emplace_back();
         route.name = pathNames.of( answer );
         describe( answer, state, names, route );
      }
   }
   std::ranges::sort( routes, {}, &Route::name );
   return routes;
}

std::optional< std::size_t >
RouteFinder::startOf( const Prove::Answer & answer ) const {
   const auto constraint = answer.config ? answer.config->constraint() : Cspf::PathConstraint();
   const bool fromNeighbor = constraint.sourceType() == Cspf::CspfSourceType::neighborOnLink;
   return fromNeighbor && answer.client != Prove::tilfaClient ? nodeOf( constraint.neighbor() )
                                                              : self_;
}

/// Where a published path leads: its text, and its steps.
void
RouteFinder::describe( const Prove::Answer & answer, const Prove::Snapshot & state,
                       const RouterNames & names, Route & route ) const {
   route.repair = answer.client == Prove::tilfaClient;
   if ( !answer.status ) {
      route.text = answer.error.empty() ? "no answer" : "no answer: " + answer.error;
      return;
   }
   PathOutcome path;
   path.status = *answer.status;
   path.error = answer.error;
   ClientOutcome service;
   const auto start = startOf( answer );
   const auto status =
      state.get< Cspf::Status >( "te/cspf/status/vrf/" + where_.text() + "/" + answer.client );
   const std::uint32_t idx = answer.status->repairPathIdx();
   if ( route.repair && idx != 0 && status->pqInfoColl().contains( idx ) ) {
      service.pqInfo[ idx ] = status->pqInfo( idx );
      if ( start ) {
         walk( *start, service.pqInfo[ idx ], answer.key.dst(), route );
      }
   } else if ( start && !route.repair ) {
      const bool isSelf = nodeOf( answer.key.dst().ipAddress() ) == start;
      const bool leads = !path.status.pathList().empty() || isSelf;
      path.cost = leads ? follow( *start, path.status, route ) : std::nullopt;
   }
   route.text = routeText( rowOf( names, answer.client, path, service ) );
}

}
