// Published repairs, each against its request, its failure and its topology.

#include "tools/prove/RepairTopology.h"

#include <algorithm>

namespace Prove {

namespace {

class RepairProof {
 public:
   RepairProof( const Snapshot & state, const Service & service, Verdict & verdict )
      : topologies_( state, service ),
        verdict_( verdict ) {}

   std::string fault( const Answer & answer ) {
      if ( !answer.config || !answer.served || !topologies_.self() || !answer.status ) {
         ++verdict_.passedOver;
         return answer.status && !answer.config ? "is published, and nobody asks for it" : "";
      }
      const std::uint32_t idx = answer.status->repairPathIdx();
      const Cspf::PqInfo * info = idx ? topologies_.published( idx ) : nullptr;
      if ( idx && !info ) {
         return "names repair " + std::to_string( idx ) + ", which is not published";
      }
      const Step * link = nullptr;
      RepairTopology * topology = topologies_.topologyOf( answer, link );
      // The repair of a link that is gone is the one that it had.
      const Cspf::PathConstraint & asked = answer.config->constraint();
      if ( !topology || answer.uncertain() || !RepairTopologies::isJudged( asked, *link )
           || ( topologies_.prefersRisks( asked )
                && ( !info || topology->originators( answer.key.dst() ).size() != 1 ) ) ) {
         ++verdict_.passedOver;
         return "";
      }
      ++( info ? verdict_.repairs : verdict_.unrepaired );
      return faultOf( *topology, *link, answer, info );
   }

 private:
   std::string faultOf( RepairTopology & topology, const Step & link, const Answer & answer,
                        const Cspf::PqInfo * info ) {
      const Cspf::PathConstraint asked = RepairTopologies::protectionOf( answer );
      std::vector< Repair > repairs;
      if ( info ) {
         std::string fault = topologies_.repairOf( topology, *info, repairs.emplace_back() );
         if ( !fault.empty() ) {
            return fault;
         }
      }
      if ( topology_ != &topology || !( asked_ == asked ) ) {
         topology.walker->failureIs( topologies_.failureOf( topology, link, asked ) );
         topology_ = &topology;
         asked_ = asked;
      }
      const Originators destination = topology.originators( answer.key.dst() );
      const RepairWalker & walker = *topology.walker;
      std::string fault;
      if ( !topologies_.prefersRisks( asked ) ) {
         fault = walker.fault( repairs, destination, false, repairNodesAllowed( asked ) );
      } else if ( !walker.walk( repairs.front(), destination, true ) ) {
         fault = "does not lead there";
      }
      if ( fault.empty() ) {
         return "";
      }
      return info ? "repair " + std::to_string( info->idx() ) + " over "
                       + info->nhIntf().stringValue() + " to " + info->nhIp().stringValue()
                       + ": packets do not arrive"
                  : "has no repair, which " + fault;
   }

   const RepairTopologies topologies_;
   Verdict & verdict_;
   const RepairTopology * topology_ = nullptr;  ///< judged last, under this constraint
   Cspf::PathConstraint asked_;
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
      return answer->config ? answer->config->constraint() : Cspf::PathConstraint();
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
