// One published path against its request. Least costs come with a certificate: numbers of the
// routers, which are checked link by link before they are believed.

#include "tools/prove/PathProof.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Prove {

namespace {

/// Whether the kind of request is one of which state says all: from the router itself, forwards.
bool
isJudged( const Cspf::PathConstraint & constraint ) {
   return constraint.sourceType() == Cspf::plr()
          && constraint.pathComputationType() == Cspf::PathComputationType::cspf
          && !constraint.reversePath() && !constraint.noSpf();
}

std::string
hopText( std::size_t index, const Cspf::PathStatus & status ) {
   return "hop " + std::to_string( index + 1 ) + ", " + status.pathList()[ index ].stringValue()
          + ": ";
}

std::string
costText( const Cost & cost ) {
   return std::to_string( cost.metric )
          + ( cost.srlgs ? " with " + std::to_string( cost.srlgs ) + " shared risks" : "" );
}

}

std::vector< std::vector< const Way * > >
hopsOf( const TeNetwork & network, std::uint32_t from, const Cspf::PathStatus & status ) {
   std::vector< std::vector< const Way * > > hops;
   const auto & routers = status.pathTeRouterIdList();
   for ( std::size_t i = 0; i < std::min( status.pathList().size(), routers.size() ); ++i ) {
      hops.push_back( network.hop( from, routers[ i ], status.pathList()[ i ] ) );
      if ( hops.back().empty() ) {
         hops.pop_back();
         break;
      }
      from = hops.back().front()->to;
   }
   return hops;
}

PathProof::PathProof( const Snapshot & state, const Service & service, const TeNetwork & network )
   : state_( state ),
     service_( service ),
     network_( network ),
     sourceId_( teRouterIdOf( state ) ),
     source_( sourceId_ ? network.node( sourceId_ ) : std::nullopt ) {
   const auto table = state.get< Cspf::BwUsageTable >( "te/cspf/bwUsage/vrf/" + service.text() );
   if ( !table ) {
      return;
   }
   for ( const auto & [ key, usage ] : table->bandwidthUsageColl() ) {
      const Cspf::BwUsageId & user = key.bwUsageId();
      if ( user.sharedBwGroupId() != 0 ) {
         groups_[ { user.clientName(), user.sharedBwGroupId() } ].emplace_back(
            LinkId( key.link().topoId(), key.link().neighborKey() ), usage );
      }
   }
}

std::string
PathProof::fault( const Answer & answer, Verdict & verdict ) {
   // Ordinary paths start at an IPv4 TE router id.
   if ( !answer.config ) {
      return answer.status ? "is published, and nobody asks for it" : "";
   }
   if ( !answer.served || service_.af != Af::ipv4 || !sourceId_ ) {
      ++verdict.passedOver;
      return answer.status ? "is published without service" : "";
   }
   if ( !answer.status ) {
      ++verdict.passedOver;
      return answer.error.empty() ? "has no answer" : "";
   }
   const std::size_t hops = answer.status->pathList().size();
   if ( answer.status->pathTeRouterIdList().size() != hops
        || answer.status->pathSrlgList().size() != hops ) {
      return "hop addresses, TE router ids and SRLGs differ in number";
   }
   const bool kept = answer.stitched() && ( !answer.hasHops() || !answer.error.empty() );
   if ( kept || !isJudged( answer.config->constraint() ) ) {
      ++verdict.passedOver;
      return "";
   }
   return answer.hasHops() ? faultOfHops( answer, verdict ) : faultOfNone( answer, verdict );
}

/// A user without a group holds what its own published hops imply.
Holdings
PathProof::holdings( const Answer & answer ) const {
   Holdings own;
   const auto & constraint = answer.config->constraint();
   if ( constraint.bandwidth() == 0 || constraint.bwSetupPriority() > Cspf::BwPriority::max ) {
      return own;
   }
   if ( constraint.sharedBwGroupId() == 0 ) {
      for ( const auto & hop : hopsOf( network_, *source_, *answer.status ) ) {
         for ( const Way * way : hop ) {
            own[ { way->topology, way->link->key() } ] = constraint.bandwidth();
         }
      }
   } else if ( const auto group = groups_.find( { answer.client, constraint.sharedBwGroupId() } );
               group != groups_.end() ) {
      const Cspf::BwPriority priority( constraint.bwSetupPriority() );
      for ( const auto & [ link, usage ] : group->second ) {
         own[ link ] = usage->maxReservedBandwidth( priority );
      }
   }
   return own;
}

std::optional< Cost >
PathProof::least( std::uint32_t from, const Kivnet::IpGenAddr & to,
                  const Cspf::PathConstraint & constraint, const Holdings & own ) {
   // What a user holds is its own, so only numbers without bandwidth serve several.
   Potentials mine;
   auto & numbers = constraint.bandwidth() ? mine : known_[ { from, constraint } ];
   if ( numbers.empty() ) {
      const auto arcs = Admission( network_, state_, from, constraint, own ).arcs();
      numbers = search( arcs, network_.nodes(), from );
      if ( !certifies( numbers, arcs, from ) ) {
         throw std::logic_error( "the certificate of least costs does not hold" );
      }
   }
   std::optional< Cost > least;
   for ( const std::uint32_t end : network_.owners( to ) ) {
      if ( numbers[ end ] && ( !least || *numbers[ end ] < *least ) ) {
         least = numbers[ end ];
      }
   }
   return least;
}

std::optional< Cost >
PathProof::walk( std::uint32_t from, const Cspf::PathStatus & status, const Admission & admission,
                 std::string & fault ) const {
   const auto hops = hopsOf( network_, from, status );
   Cost sum;
   for ( std::size_t i = 0; i < status.pathList().size(); ++i ) {
      if ( i >= hops.size() ) {
         fault = hopText( i, status ) + "there is no such hop to "
                 + status.pathTeRouterIdList()[ i ].stringValue();
         return std::nullopt;
      }
      std::optional< Cost > cost;
      for ( const Way * way : hops[ i ] ) {
         if ( admission.refusal( *way ).empty() && ( !cost || admission.cost( *way ) < *cost ) ) {
            cost = admission.cost( *way );
         }
      }
      if ( !cost ) {
         fault = hopText( i, status ) + "the link " + admission.refusal( *hops[ i ].front() );
         return std::nullopt;
      }
      sum = sum + *cost;
   }
   return sum;
}

/// Include hops are met in their order; a strict one is the router itself or the very next. A path
/// in use stays while one of them is away.
std::string
PathProof::faultOfOrder( const Answer & answer ) const {
   const auto hops = hopsOf( network_, *source_, *answer.status );
   std::vector< std::uint32_t > routers{ *source_ };
   for ( const auto & hop : hops ) {
      routers.push_back( hop.front()->to );
   }
   auto at = routers.begin();
   bool isAway = false;  // the hop before
   for ( const Cspf::IncludeHop & asked : answer.config->constraint().includeHopList() ) {
      const auto & owners = network_.owners( asked.addr() );
      if ( owners.empty() && answer.client == rsvpClient ) {
         isAway = true;
         continue;
      }
      const auto met = std::find_if(
         at, routers.end(), [ & ]( std::uint32_t router ) { return owners.contains( router ); } );
      const bool isLoose = std::exchange( isAway, false ) || asked.loose();
      if ( met == routers.end() || ( !isLoose && met - at > 1 ) ) {
         return "does not pass " + asked.addr().stringValue() + " where it is asked for";
      }
      at = met;
   }
   return "";
}

std::string
PathProof::faultOfRisks( const Cspf::PathStatus & status ) const {
   const auto hops = hopsOf( network_, *source_, status );
   for ( std::size_t i = 0; i < hops.size(); ++i ) {
      const bool same = std::ranges::any_of( hops[ i ], [ & ]( const Way * way ) {
         return way->link->srlgList() == status.pathSrlgList()[ i ].srlgList();
      } );
      if ( !same ) {
         return hopText( i, status ) + "the link has other SRLGs";
      }
   }
   return "";
}

std::string
PathProof::faultOfHops( const Answer & answer, Verdict & verdict ) {
   ++verdict.paths;
   const Cspf::PathConstraint & constraint = answer.config->constraint();
   if ( !source_ ) {
      return "starts at " + sourceId_.stringValue() + ", which is no TE router of any topology";
   }
   const Holdings own = holdings( answer );
   const Admission admission( network_, state_, *source_, constraint, own );
   std::string fault;
   const auto cost = walk( *source_, *answer.status, admission, fault );
   if ( !cost ) {
      return fault;
   }
   const auto end = hopsOf( network_, *source_, *answer.status ).back().front()->to;
   const Kivnet::IpGenAddr to = answer.key.dst().ipAddress();
   if ( !network_.owners( to ).contains( end ) ) {
      return "ends at " + network_.id( end ).stringValue() + ", which does not have that address";
   }
   if ( answer.stitched() ) {
      return faultOfOrder( answer );
   }
   // A path in use is kept while it holds. A member's numbers go with what its group held when it
   // was computed.
   if ( answer.client == rsvpClient || network_.ambiguous()
        || ( constraint.bandwidth() && constraint.sharedBwGroupId() ) ) {
      return "";
   }
   ++verdict.best;
   const auto best = least( *source_, to, constraint, own );
   if ( !best || *best < *cost ) {
      return "costs " + costText( *cost ) + "; the least cost is "
             + ( best ? costText( *best ) : "none" );
   }
   return faultOfRisks( *answer.status );
}

std::string
PathProof::faultOfNone( const Answer & answer, Verdict & verdict ) {
   const Cspf::PathConstraint & constraint = answer.config->constraint();
   const bool shares = constraint.bandwidth() && constraint.sharedBwGroupId();
   if ( network_.ambiguous() || shares || constraint.bwSetupPriority() > Cspf::BwPriority::max ) {
      ++verdict.passedOver;
      return "";
   }
   ++verdict.absent;
   const auto best =
      source_ ? least( *source_, answer.key.dst().ipAddress(), constraint, {} ) : std::nullopt;
   return best && *best != Cost() ? "has no hops; a path of cost " + costText( *best ) + " exists"
                                  : "";
}

void
provePaths( const Snapshot & state, const Service & service, Verdict & verdict ) {
   const TeNetwork network( state, service.vrf, service.af );
   PathProof proof( state, service, network );
   for ( const Answer & answer : service.answers ) {
      if ( answer.client == tilfaClient ) {
         continue;
      }
      std::string fault = proof.fault( answer, verdict );
      if ( !fault.empty() ) {
         verdict.faults.push_back(
            { service.text(), answer.client, answer.name(), std::move( fault ) } );
      }
   }
   proveReservations( state, service, network, proof.source(), verdict );
}

}
