// What the agent published, read back: the tables under its own paths and nothing else. The lab
// adds names and costs.

#include "tools/lab/LabObserve.h"

#include "schema/BwUsage.h"
#include "schema/Topology.h"
#include "schema/TrafficEngineering.h"
#include "tools/lab/LabCost.h"
#include "tools/lab/LabRecords.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace Lab {

namespace {

/// The path of a table under "BASE/<VRF>/<family>/...": VRF and family, and what comes after them.
struct TablePath {
   VrfAf where;
   std::string rest;

   TablePath( const std::string & path, std::size_t baseLength ) {
      const auto components = Corvdb::pathComponents( path.substr( baseLength ) );
      where = { Vrf( components.at( 0 ) ), components.at( 1 ) == "ipv6" ? Af::ipv6 : Af::ipv4 };
      rest = components.size() > 2 ? components[ 2 ] : std::string();
   }
};

class Observer {
 public:
   Observer( Corvdb::StateStore & state, Zorch::TableStore & tables, const LabCosts & costs,
             const LabPathsByKey & names )
      : state_( state ),
        tables_( tables ),
        costs_( costs ),
        names_( names ) {}

   Outcome observe( const LabDocument & document, double time ) {
      for ( const auto & [ client, asked ] : document.clients ) {
         outcome_.clients[ client ];
      }
      // Sums of virtual delays carry rounding; a microsecond is finer than any of them.
      outcome_.time = std::round( time * 1e6 ) / 1e6;
      const auto agent = Lum::cast< Cspf::AgentStatus >( state_.entity( "te/cspf/agentStatus" ) );
      outcome_.agentEnabled = agent && agent->agentEnabled();
      outcome_.teRouterId = teRouterId();
      each< Cspf::Status >( "te/cspf/status/vrf", &Observer::addStatus );
      each< Cspf::IntfIpToRouterIdTable >( "te/cspf/intfIpToRouterId/vrf",
                                           &Observer::addAddresses );
      each< Cspf::ConstraintStatusTable >( "te/cspf/constraintStatus/vrf",
                                           &Observer::addConstraints );
      each< Cspf::BwUsageTable >( "te/cspf/bwUsage/vrf", &Observer::addReservations );
      return std::move( outcome_ );
   }

 private:
   template< class Table >
   void each( const std::string & base,
              void ( Observer::*add )( const TablePath &, const Table & ) ) {
      for ( const auto & path : tables_.list( base ) ) {
         if ( const auto table = Lum::cast< Table >( tables_.table( path ) ) ) {
            ( this->*add )( TablePath( path, base.size() ), *table );
         }
      }
   }

   /// The TE router id as configured; unset while TE is off.
   Kivnet::IpAddr teRouterId() const {
      const auto te = Lum::cast< TrafficEngineering::Config >( state_.entity( "te/config" ) );
      const auto general =
         Lum::cast< Routing::General::Config >( state_.entity( "routing/general/config/global" ) );
      if ( !te || !te->enabled() ) {
         return {};
      }
      return te->routerId() || !general ? te->routerId() : general->routerIdV4();
   }

   LabPathName named( const ClientTable & table, const Cspf::PathKey & key ) const {
      const auto paths = names_.find( table );
      if ( paths == names_.end() ) {
         return {};
      }
      const auto at = paths->second.find( key );
      return at == paths->second.end() ? LabPathName() : at->second;
   }

   void addStatus( const TablePath & at, const Cspf::Status & status ) {
      const ClientTable table{ at.rest, at.where.vrf, at.where.af };
      ClientOutcome & service = outcome_.clients[ at.rest ][ at.where ];
      for ( const auto & key : Lum::sortedKeys( status.pathStatusColl() ) ) {
         const LabPathName known = named( table, key );
         PathOutcome path;
         path.status = status.pathStatus( key );
         path.error = status.pathError( key );
         if ( known.path ) {
            path.name = *known.name;
            path.cost = cost( table, *known.path, path );
         }
         service.pathStatus.push_back( std::move( path ) );
      }
      for ( const auto & key : Lum::sortedKeys( status.pathErrorColl() ) ) {
         if ( !status.pathStatusColl().contains( key ) ) {
            const LabPathName known = named( table, key );
            PathOutcome & path = service.unanswered.emplace_back();
            path.status.pathKeyIs( key );
            path.error = status.pathError( key );
            if ( known.name ) {
               path.name = *known.name;
            }
         }
      }
      for ( const auto & [ index, info ] : status.pqInfoColl() ) {
         service.pqInfo[ index ] = info;
      }
   }

   std::optional< std::uint64_t > cost( const ClientTable & table, const LabPath & path,
                                        const PathOutcome & published ) const {
      const bool empty = published.status.pathList().empty();
      if ( table.client == tilfaClient || ( empty && !published.error.empty() ) ) {
         return std::nullopt;
      }
      const bool fromNeighbor = path.constraint.sourceType == Cspf::CspfSourceType::neighborOnLink;
      return costs_.cost( path,
                          fromNeighbor ? path.constraint.neighbor.value_or( Kivnet::IpGenAddr() )
                                       : Kivnet::IpGenAddr( outcome_.teRouterId ),
                          published.status );
   }

   void addAddresses( const TablePath & at, const Cspf::IntfIpToRouterIdTable & table ) {
      auto & addresses = outcome_.intfIpToRouterId[ at.where ];
      addresses.assign( table.intfIpToRouterIdColl().begin(), table.intfIpToRouterIdColl().end() );
      std::ranges::sort( addresses );
   }

   void addConstraints( const TablePath & at, const Cspf::ConstraintStatusTable & table ) {
      for ( const auto & [ number, status ] : table.constraintStatusColl() ) {
         ConstraintOutcome constraint{ at.where,
                                       {},
                                       status->cspfCount(),
                                       status->cspfSkippedCount(),
                                       status->cspfCurrentDelay(),
                                       status->sourceMissing(),
                                       status->constraintMissingInTopo() };
         std::set< std::string > names;
         for ( const auto & user : Lum::sortedKeys( status->pathColl() ) ) {
            const std::string name = nameOf( at.where, user );
            if ( names.insert( name ).second ) {
               constraint.paths.push_back( name );
            }
         }
         outcome_.constraints.push_back( std::move( constraint ) );
      }
   }

   std::string nameOf( const VrfAf & where, const Cspf::ConstraintPath & user ) const {
      const std::string & client = user.clientName();
      const LabPathName known = named( { client, where.vrf, where.af }, user.pathKey() );
      const bool isTrees = user.internal() && !user.pathKey().dst();
      return known.name ? *known.name
             : isTrees  ? client + " trees " + std::to_string( user.pathKey().id() )
                        : client + " " + user.pathKey().dst().stringValue() + " "
                            + std::to_string( user.pathKey().id() );
   }

   void addReservations( const TablePath & at, const Cspf::BwUsageTable & table ) {
      for ( const auto & key : Lum::sortedKeys( table.bandwidthUsageColl() ) ) {
         const auto & usage = table.bandwidthUsage( key );
         for ( const auto & [ priority, reserved ] : usage->reservedBandwidthPerPriorityColl() ) {
            BandwidthOutcome reservation{ at.where,
                                          key.link().teNeighborOf(),
                                          key.link().teNeighborId(),
                                          key.bwUsageId().clientName(),
                                          key.bwUsageId().sharedBwGroupId(),
                                          key.bwUsageId().localId(),
                                          priority,
                                          {} };
            for ( const auto & [ bandwidth, held ] : reserved->bandwidthColl() ) {
               reservation.reserved.push_back( bandwidth );
            }
            outcome_.bandwidth.push_back( std::move( reservation ) );
         }
      }
   }

   Corvdb::StateStore & state_;
   Zorch::TableStore & tables_;
   const LabCosts & costs_;
   const LabPathsByKey & names_;
   Outcome outcome_;
};

}

LabObserver::LabObserver( const LabDocument & document, Corvdb::StateStore & state,
                          Zorch::TableStore & tables )
   : document_( document ),
     state_( state ),
     tables_( tables ),
     costs_( document ) {
   setNames();
}

void
LabObserver::setNames() {
   names_.clear();
   for ( const auto & [ client, paths ] : document_.paths ) {
      for ( const auto & [ name, path ] : paths ) {
         names_[ { client, path.vrf, path.af } ][ { path.dst, path.id } ] = { &name, &path };
      }
   }
}

void
LabObserver::follow( const LabChange & change ) {
   costs_.follow( change );
   if ( change.everything || change.surroundings ) {
      setNames();
   }
}

Outcome
LabObserver::observe( double time ) const {
   return Observer( state_, tables_, costs_, names_ ).observe( document_, time );
}

Outcome
observe( const LabDocument & document, Corvdb::StateStore & state, Zorch::TableStore & tables,
         double time ) {
   return LabObserver( document, state, tables ).observe( time );
}

}
