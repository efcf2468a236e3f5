// The accounts: each link of a published path that asks for bandwidth is paid for once, however
// often the path crosses it, and nothing is paid for that no path crosses. A user without a group
// is known to the table by a number of the agent's own, so such users are told apart by nothing but
// what they hold.

#include "tools/prove/PathProof.h"

#include <algorithm>
#include <tuple>

namespace Prove {

namespace {

class Accounts {
 public:
   Accounts( const Snapshot & state, const Service & service, const TeNetwork & network,
             Verdict & verdict )
      : service_( service ),
        verdict_( verdict ) {
      for ( const Way & way : network.ways() ) {
         links_[ { way.topology, way.link->key() } ] = &way;
      }
      if ( const auto table =
              state.get< Cspf::BwUsageTable >( "te/cspf/bwUsage/vrf/" + service.text() ) ) {
         for ( const auto & [ key, usage ] : table->bandwidthUsageColl() ) {
            add( key, *usage );
         }
      }
   }

   void pay( const Answer & answer, const TeNetwork & network, std::uint32_t source ) {
      const Cspf::PathConstraint & asked = answer.config->constraint();
      if ( answer.uncertain() ) {
         uncertain_.insert( answer.client );
      }
      const auto hops = hopsOf( network, source, *answer.status );
      std::set< const Account * > paid;
      for ( std::size_t i = 0; i < hops.size(); ++i ) {
         if ( !payHop( answer, hops[ i ], paid ) && !answer.uncertain() ) {
            fault( answer.client, answer.name(),
                   "hop " + std::to_string( i + 1 ) + ", "
                      + answer.status->pathList()[ i ].stringValue() + ": "
                      + std::to_string( asked.bandwidth() ) + " at priority "
                      + std::to_string( asked.bwSetupPriority() ) + " are not reserved" );
         }
      }
   }

   /// What is left over is nobody's, unless its link is away or somebody's answer is.
   void close() {
      for ( const auto & [ entry, account ] : accounts_ ) {
         const auto & [ client, group, link, priority, amount ] = entry;
         const bool open = group ? account.paid == 0 : account.paid < account.held;
         const auto way = links_.find( link );
         if ( open && way != links_.end() && !uncertain_.contains( client ) ) {
            fault( client, linkText( *way->second ),
                   std::to_string( amount ) + " at priority " + std::to_string( priority )
                      + " are reserved, and no path needs them" );
         }
      }
      for ( const auto & [ link, sum ] : sums_ ) {
         const auto way = links_.find( link );
         if ( way != links_.end() && sum > way->second->link->maxLinkBandwidth() ) {
            verdict_.remarks.push_back(
               service_.text() + " " + linkText( *way->second ) + ": all users together hold "
               + std::to_string( static_cast< std::uint64_t >( sum ) ) + ", the link has "
               + std::to_string(
                  static_cast< std::uint64_t >( way->second->link->maxLinkBandwidth() ) ) );
         }
      }
   }

 private:
   struct Account {
      std::size_t held = 0, paid = 0;
   };
   /// Client, group, link, priority, bytes per second.
   using Entry = std::tuple< std::string, std::uint32_t, LinkId, std::uint32_t, std::uint64_t >;

   void add( const Cspf::BwUsageKey & key, const Cspf::BwUsage & usage ) {
      const LinkId link{ key.link().topoId(), key.link().neighborKey() };
      const auto & user = key.bwUsageId();
      for ( const auto & [ priority, values ] : usage.reservedBandwidthPerPriorityColl() ) {
         for ( const auto & [ amount, held ] : values->bandwidthColl() ) {
            ++verdict_.reservations;
            ++accounts_[ { user.clientName(), user.sharedBwGroupId(), link, priority, amount } ]
                 .held;
         }
      }
      sums_[ link ] += static_cast< double >( usage.maxReservedBandwidth( Cspf::BwPriority::max ) );
   }

   /// A hop's address may mean the same link in several topologies; one of them is paid for.
   /// `paid`: what the answer has paid for before.
   bool payHop( const Answer & answer, const std::vector< const Way * > & hop,
                std::set< const Account * > & paid ) {
      const Cspf::PathConstraint & asked = answer.config->constraint();
      return std::ranges::any_of( hop, [ & ]( const Way * way ) {
         const auto at = accounts_.find( { answer.client,
                                           asked.sharedBwGroupId(),
                                           { way->topology, way->link->key() },
                                           asked.bwSetupPriority(),
                                           asked.bandwidth() } );
         if ( at == accounts_.end() ) {
            return false;
         }
         Account & account = at->second;
         const bool isPaid = paid.contains( &account );
         if ( !isPaid && ( asked.sharedBwGroupId() || account.paid < account.held ) ) {
            ++account.paid;
            return paid.insert( &account ).second;
         }
         return isPaid;
      } );
   }

   static std::string linkText( const Way & way ) {
      const auto & near = way.link->interfaceAddrList();
      return "link "
             + ( near.empty() ? way.link->intfId().stringValue() : near[ 0 ].stringValue() );
   }
   void fault( const std::string & client, const std::string & path, std::string text ) {
      verdict_.faults.push_back( { service_.text(), client, path, std::move( text ) } );
   }

   const Service & service_;
   Verdict & verdict_;
   std::map< LinkId, const Way * > links_;
   std::map< Entry, Account > accounts_;
   std::map< LinkId, double > sums_;
   std::set< std::string > uncertain_;  ///< clients
};

}

void
proveReservations( const Snapshot & state, const Service & service, const TeNetwork & network,
                   std::optional< std::uint32_t > source, Verdict & verdict ) {
   Accounts accounts( state, service, network, verdict );
   if ( !source ) {
      return;  // what paths hold stays until they are computed again
   }
   for ( const Answer & answer : service.answers ) {
      if ( answer.config && answer.client != tilfaClient && answer.hasHops()
           && answer.config->constraint().bandwidth() > 0 ) {
         accounts.pay( answer, network, *source );
      }
   }
   accounts.close();
}

}
