// Repairs in words, from state.

#include "tools/cspfctl/ExplainedRepair.h"

#include "tools/prove/RepairReason.h"

#include <stdexcept>

namespace {

std::string
nodeText( const Cspf::NodeId & node, const Lab::RouterNames & names ) {
   return node.isisSystemId() ? names.of( node.isisSystemId() )
          : node.ipAddress()  ? names.of( node.ipAddress() )
                              : node.stringValue();
}

std::string
protection( const Prove::Answer & answer, const Lab::RouterNames & names ) {
   const Cspf::PathConstraint & asked = answer.config->constraint();
   const auto intf = asked.excludeIntf() ? asked.excludeIntf() : asked.excludeNode().nexthopIntf();
   return asked.excludeNode()
             ? "asks for protection against the loss of the router "
                  + nodeText( asked.excludeNode().nodeId(), names ) + " behind "
                  + intf.stringValue()
             : "asks for protection against the loss of the link at " + intf.stringValue();
}

/// "to frankfurt" or "over the link 10.1.0.5 - 10.1.0.6 to frankfurt"
std::string
segmentText( const Cspf::PqInfo & repair, std::size_t i, const Lab::RouterNames & names ) {
   const std::string node = "to " + names.of( repair.pathList()[ i ] );
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
wayOf( const Cspf::PqInfo & repair, const Lab::RouterNames & names ) {
   std::string way =
      "out over " + repair.nhIntf().stringValue() + " to " + repair.nhIp().stringValue();
   for ( std::size_t i = 0; i < repair.pathList().size(); ++i ) {
      way += ", then " + segmentText( repair, i, names );
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
             const Prove::Answer & answer, const Lab::RouterNames & names,
             const std::vector< std::string > & whyNot ) {
   std::vector< std::string > lines{ protection( answer, names ) };
   if ( !answer.status ) {
      lines.emplace_back( "there is no answer yet" );
      return lines;
   }
   const auto table =
      state.get< Cspf::Status >( "te/cspf/status/vrf/" + service.text() + "/" + answer.client );
   const std::uint32_t index = answer.status->repairPathIdx();
   if ( table && index > 0 && table->pqInfoColl().contains( index ) ) {
      lines.push_back( "repair " + std::to_string( index ) + ": "
                       + wayOf( table->pqInfo( index ), names ) );
      lines.push_back( "achieves protection of the " + Lum::enumName( answer.status->achieved() ) );
   } else {
      lines.emplace_back( "there is no repair" );
   }
   const Prove::RepairReason reason( state, service, answer, [ & ]( const Cspf::IgpRouterId & id ) {
      return names.of( id.isisSystemId() );
   } );
   const auto add = [ & ]( const std::vector< std::string > & more ) {
      lines.insert( lines.end(), more.begin(), more.end() );
   };
   add( reason.why() );
   if ( !answer.uncertain() ) {
      lines.push_back( judgement( state, service, answer ) );
   }
   if ( !whyNot.empty() ) {
      add( reason.whyNot( whyNot ) );
   }
   return lines;
}
