// Repairs in words, from state.

#include "tools/cspfctl/ExplainedRepair.h"

namespace {

std::string
protection( const Prove::Answer & answer ) {
   const Cspf::PathConstraint & asked = answer.config->constraint();
   const auto intf = asked.excludeIntf() ? asked.excludeIntf() : asked.excludeNode().nexthopIntf();
   return asked.excludeNode()
             ? "asks for protection against the loss of the router "
                  + asked.excludeNode().nodeId().stringValue() + " behind " + intf.stringValue()
             : "asks for protection against the loss of the link at " + intf.stringValue();
}

/// "to 0000.0000.0003" or "over the link 10.1.0.5 - 10.1.0.6 to 0000.0000.0003"
std::string
segmentText( const Cspf::PqInfo & repair, std::size_t i ) {
   const std::string node = "to " + repair.pathList()[ i ].stringValue();
   if ( i >= repair.segmentList().size() || !repair.segmentList()[ i ].from() ) {
      return node + " by plain routes";
   }
   const Cspf::RepairSegment & link = repair.segmentList()[ i ];
   const bool numbered = link.nearAddr() && link.farAddr();
   return "over the link "
          + ( numbered ? link.nearAddr().stringValue() + " - " + link.farAddr().stringValue() + " "
                       : "" )
          + node;
}

std::string
wayOf( const Cspf::PqInfo & repair ) {
   std::string way =
      "out over " + repair.nhIntf().stringValue() + " to " + repair.nhIp().stringValue();
   for ( std::size_t i = 0; i < repair.pathList().size(); ++i ) {
      way += ", then " + segmentText( repair, i );
   }
   return way + ", then on by plain routes";
}

std::string
judgement( const Prove::Snapshot & state, const Prove::Service & service,
           const Prove::Answer & answer ) {
   Prove::Verdict verdict;
   Prove::proveRepairs( state, { service.vrf, service.af, { answer } }, verdict );
   return !verdict.faults.empty() ? verdict.faults.front().text
          : verdict.repairs > 0 ? "packets sent so arrive by the plain routes of all other routers"
          : verdict.unrepaired > 0 ? "none is possible: no way remains after the failure, or none "
                                     "with as few repair nodes"
                                   : "whether it holds does not follow from state alone";
}

}

std::vector< std::string >
repairLines( const Prove::Snapshot & state, const Prove::Service & service,
             const Prove::Answer & answer ) {
   std::vector< std::string > lines{ protection( answer ) };
   const auto table =
      state.get< Cspf::Status >( "te/cspf/status/vrf/" + service.vrf.stringValue() + "/"
                                 + Kivnet::text( service.af ) + "/" + answer.client );
   const std::uint32_t index = answer.status ? answer.status->repairPathIdx() : 0;
   if ( table && index > 0 && table->pqInfoColl().contains( index ) ) {
      lines.push_back( "repair " + std::to_string( index ) + ": "
                       + wayOf( table->pqInfo( index ) ) );
      lines.push_back( "achieves protection of the " + Lum::enumName( answer.status->achieved() ) );
   } else {
      lines.emplace_back( answer.status ? "there is no repair" : "there is no answer yet" );
   }
   if ( answer.status && !answer.uncertain() ) {
      lines.push_back( judgement( state, service, answer ) );
   }
   return lines;
}
