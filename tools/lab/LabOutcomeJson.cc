// Outcomes for programs. The shape is a contract: keys may join, and none may change.

#include "tools/lab/LabOutput.h"
#include "tools/lab/LabWriter.h"
#include "tools/state/JsonText.h"

namespace Lab {

namespace {

/// Members stay in the order in which they are written here.
using Json = nlohmann::ordered_json;

/// A list of what `one` makes of each element.
template< class List, class One >
Json
listJson( const List & list, One one ) {
   Json json = Json::array();
   for ( const auto & element : list ) {
      json.push_back( one( element ) );
   }
   return json;
}

template< class List >
Json
textsJson( const List & list ) {
   return listJson( list, []( const auto & element ) { return element.stringValue(); } );
}

/// Which path it is.
Json
keyJson( const PathOutcome & path ) {
   return { { "name", path.name ? Json( *path.name ) : Json() },
            { "dst", State::toText( path.status.pathKey().dst() ) },
            { "id", path.status.pathKey().id() } };
}

Json
pathJson( const PathOutcome & path ) {
   const Cspf::PathStatus & status = path.status;
   Json json = keyJson( path );
   json.update( { { "path", textsJson( status.pathList() ) },
                  { "pathTeRouterId", textsJson( status.pathTeRouterIdList() ) },
                  { "pathSrlg", listJson( status.pathSrlgList(),
                                          []( const Cspf::SrlgOfHop & hop ) {
                                             return listJson( hop.srlgList(),
                                                              []( auto srlg ) { return srlg; } );
                                          } ) },
                  { "includeIp", listJson( status.includeIpList(),
                                           []( const Cspf::IncludeIp & hop ) -> Json {
                                              return {
                                                 { "addr", hop.addr().stringValue() },
                                                 { "teRouterId", hop.teRouterId().stringValue() } };
                                           } ) },
                  { "refreshRespSeq", status.refreshRespSeq() },
                  { "changeCount", status.changeCount() },
                  { "repairPathIdx", status.repairPathIdx() },
                  { "cost", path.cost ? Json( *path.cost ) : Json() } } );
   if ( status.achieved() != Cspf::RepairKind::none ) {
      json[ "achieved" ] = Lum::enumName( status.achieved() );
   }
   if ( !path.error.empty() ) {
      json[ "error" ] = path.error;
   }
   return json;
}

Json
segmentJson( const Cspf::RepairSegment & segment ) {
   const std::string to = segment.to().stringValue();
   if ( !segment.from() ) {
      return { { "node", to } };
   }
   Json json = { { "adjacency", Json::array( { segment.from().stringValue(), to } ) } };
   if ( segment.nearAddr() || segment.farAddr() ) {
      json[ "address" ] =
         Json::array( { segment.nearAddr().stringValue(), segment.farAddr().stringValue() } );
   }
   return json;
}

Json
repairJson( const Cspf::PqInfo & repair ) {
   return { { "idx", repair.idx() },
            { "nhIp", repair.nhIp().stringValue() },
            { "nhIntf", repair.nhIntf().stringValue() },
            { "path", textsJson( repair.pathList() ) },
            { "segment", listJson( repair.segmentList(), segmentJson ) } };
}

Json
clientJson( const std::map< VrfAf, ClientOutcome > & services ) {
   Json json = Json::object();
   for ( const auto & [ where, service ] : services ) {
      Json & one = json[ where.text() ];
      one = { { "pathStatus", listJson( service.pathStatus, pathJson ) },
              { "pqInfo", listJson( service.pqInfo, []( const auto & entry ) {
                   return repairJson( entry.second );
                } ) } };
      if ( !service.unanswered.empty() ) {
         one[ "unanswered" ] = listJson( service.unanswered, []( const PathOutcome & path ) {
            Json reason = keyJson( path );
            reason[ "error" ] = path.error;
            return reason;
         } );
      }
   }
   return json;
}

Json
addressesJson(
   const std::vector< std::pair< Kivnet::IpGenAddr, Kivnet::IpGenAddr > > & addresses ) {
   Json json = Json::object();
   for ( const auto & [ address, teRouterId ] : addresses ) {
      append( json, address.stringValue(), teRouterId.stringValue() );
   }
   return json;
}

Json
constraintJson( const ConstraintOutcome & constraint ) {
   return { { "vrf", constraint.where.vrf.stringValue() },
            { "af", Kivnet::text( constraint.where.af ) },
            { "paths", constraint.paths },
            { "cspfCount", constraint.cspfCount },
            { "cspfSkippedCount", constraint.cspfSkippedCount },
            { "cspfCurrentDelay", constraint.cspfCurrentDelay },
            { "sourceMissing", constraint.sourceMissing },
            { "constraintMissingInTopo", constraint.constraintMissingInTopo } };
}

Json
bandwidthJson( const BandwidthOutcome & usage ) {
   Json link = Json::array( { usage.from.stringValue(), Json() } );
   if ( usage.to ) {
      link[ 1 ] = usage.to.stringValue();
   }
   return { { "vrf", usage.where.vrf.stringValue() },
            { "af", Kivnet::text( usage.where.af ) },
            { "link", std::move( link ) },
            { "client", usage.client },
            { "sharedBwGroupId", usage.sharedBwGroupId },
            { "localId", usage.localId },
            { "priority", usage.priority },
            { "reserved", usage.reserved } };
}

}

std::string
outcomeJson( const Outcome & outcome ) {
   Json json = { { "time", outcome.time },
                 { "agentEnabled", outcome.agentEnabled },
                 { "teRouterId", outcome.teRouterId.stringValue() },
                 { "clients", Json::object() },
                 { "intfIpToRouterId", Json::object() } };
   for ( const auto & [ client, services ] : outcome.clients ) {
      json[ "clients" ][ client ] = clientJson( services );
   }
   for ( const auto & [ where, addresses ] : outcome.intfIpToRouterId ) {
      json[ "intfIpToRouterId" ][ where.text() ] = addressesJson( addresses );
   }
   json[ "constraints" ] = listJson( outcome.constraints, constraintJson );
   json[ "bandwidth" ] = listJson( outcome.bandwidth, bandwidthJson );
   return json.dump( -1, ' ', false, Json::error_handler_t::replace );
}

}
