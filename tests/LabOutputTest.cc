// What a run prints: for programs the shape that they rely on, for people the words of the lab.

#include "tools/lab/LabOutput.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace {

using Json = nlohmann::json;

const char * const lab = R"({"router": "paris",
   "topologies": {"core": {
      "routers": {"paris": {"id": "0000.0000.0001", "teRouterId": "10.0.0.1"},
                  "lyon": {"id": "0000.0000.0002", "teRouterId": "10.0.0.2"},
                  "nice": {"id": "0000.0000.0003", "teRouterId": "10.0.0.3"}},
      "links": {"pl": {"a": "paris", "b": "lyon", "aAddr": "10.1.0.0", "bAddr": "10.1.0.1"},
                "ln": {"a": "lyon", "b": "nice", "aAddr": "10.1.0.2", "bAddr": "10.1.0.3"}}}},
   "paths": {"rsvp": {"south": {"dst": "10.0.0.3"}, "asleep": {"dst": "10.0.0.2", "id": 4}},
             "tilfa": {"link": {"dst": "0000.0000.0003"}}},
   "events": [{"at": 1.5, "restart": true, "patch": {"te": {"enabled": false}}}]})";

Kivnet::IpGenAddr
address( const char * text ) {
   return *Kivnet::IpGenAddr::parse( text );
}

Cspf::PathKey
key( const char * dst, std::uint32_t id ) {
   return { Cspf::Destination( address( dst ) ), id };
}

/// "south" leads over lyon, and "link" is repaired over lyon towards nice.
Lab::Outcome
outcome() {
   Lab::PathOutcome south;
   south.name = "south";
   south.cost = 20;
   south.status.pathKeyIs( key( "10.0.0.3", 1 ) );
   south.status.refreshRespSeqIs( 2 );
   south.status.changeCountIs( 3 );
   Cspf::SrlgOfHop srlg;
   srlg.srlg_.push( 7 );
   for ( const char * hop : { "10.1.0.1", "10.1.0.3" } ) {
      south.status.path_.push( address( hop ) );
      south.status.pathSrlg_.push( std::exchange( srlg, {} ) );
   }
   south.status.pathTeRouterId_.push( address( "10.0.0.2" ) );
   south.status.pathTeRouterId_.push( address( "10.0.0.3" ) );
   south.status.includeIp_.push( { address( "10.1.0.1" ), address( "10.0.0.2" ) } );
   Lab::PathOutcome stray;
   stray.status.pathKeyIs( key( "10.0.0.9", 1 ) );
   stray.error = "no such router";
   Lab::PathOutcome asleep;
   asleep.status.pathKeyIs( key( "10.0.0.2", 4 ) );
   asleep.error = "asleep";
   Lab::PathOutcome link;
   link.name = "link";
   link.status.pathKeyIs(
      { Cspf::Destination( *Routing::Isis::SystemId::parse( "0000.0000.0003" ) ), 1 } );
   link.status.repairPathIdxIs( 5 );
   link.status.achievedIs( Cspf::RepairKind::node );
   const auto systemId = []( const char * text ) {
      return *Routing::Isis::SystemId::parse( text );
   };
   const auto nice = systemId( "0000.0000.0003" ), other = systemId( "0000.0000.0004" );
   Cspf::PqInfo repair{ 5, address( "10.1.0.1" ), Kivnet::IntfId( "pl.a" ), {}, {} };
   repair.path_.push( nice );
   repair.segment_.push( { {}, nice, {}, {} } );
   repair.path_.push( other );
   repair.segment_.push( { nice, other, address( "10.1.0.9" ), address( "10.1.0.10" ) } );
   repair.path_.push( nice );
   repair.segment_.push( { other, nice, {}, {} } );  // unnumbered

   const Lab::VrfAf where{ "default", Lab::Af::ipv4 };
   Lab::Outcome outcome;
   outcome.time = 0.25;
   outcome.agentEnabled = true;
   outcome.teRouterId = address( "10.0.0.1" ).v4();
   outcome.clients[ "idle" ];
   outcome.clients[ "rsvp" ][ where ] = { { south, stray }, {}, { asleep } };
   outcome.clients[ "tilfa" ][ where ] = { { link }, { { 5, repair } }, {} };
   outcome.intfIpToRouterId[ where ] = { { address( "10.1.0.1" ), address( "10.0.0.2" ) } };
   outcome.constraints.push_back( { where, { "south" }, 2, 1, 200, false, true } );
   outcome.bandwidth.push_back(
      { where, address( "10.0.0.1" ), {}, "rsvp", 0, 6, 7, { 100, 300 } } );
   return outcome;
}

TEST( LabOutput, programsGetTheDocumentedShape ) {
   const Json expected = Json::parse( R"({
      "time": 0.25, "agentEnabled": true, "teRouterId": "10.0.0.1",
      "clients": {
         "idle": {},
         "rsvp": {"default/ipv4": {
            "pathStatus": [
               {"name": "south", "dst": "10.0.0.3", "id": 1, "path": ["10.1.0.1", "10.1.0.3"],
                "pathTeRouterId": ["10.0.0.2", "10.0.0.3"], "pathSrlg": [[7], []],
                "includeIp": [{"addr": "10.1.0.1", "teRouterId": "10.0.0.2"}], "refreshRespSeq": 2,
                "changeCount": 3, "repairPathIdx": 0, "cost": 20},
               {"name": null, "dst": "10.0.0.9", "id": 1, "path": [], "pathTeRouterId": [],
                "pathSrlg": [], "includeIp": [], "refreshRespSeq": 0, "changeCount": 0,
                "repairPathIdx": 0, "cost": null, "error": "no such router"}],
            "pqInfo": [], "unanswered": [{"name": null, "dst": "10.0.0.2", "id": 4, "error": "asleep"}]}},
         "tilfa": {"default/ipv4": {
            "pathStatus": [
               {"name": "link", "dst": "0000.0000.0003", "id": 1, "path": [], "pathTeRouterId": [],
                "pathSrlg": [], "includeIp": [], "refreshRespSeq": 0, "changeCount": 0,
                "repairPathIdx": 5, "cost": null, "achieved": "node"}],
            "pqInfo": [{"idx": 5, "nhIp": "10.1.0.1", "nhIntf": "pl.a",
                "path": ["0000.0000.0003", "0000.0000.0004", "0000.0000.0003"],
                "segment": [{"node": "0000.0000.0003"},
                            {"adjacency": ["0000.0000.0003", "0000.0000.0004"],
                             "address": ["10.1.0.9", "10.1.0.10"]},
                            {"adjacency": ["0000.0000.0004", "0000.0000.0003"]}]}]}}},
      "intfIpToRouterId": {"default/ipv4": {"10.1.0.1": "10.0.0.2"}},
      "constraints": [{"vrf": "default", "af": "ipv4", "paths": ["south"], "cspfCount": 2,
                       "cspfSkippedCount": 1, "cspfCurrentDelay": 200.0, "sourceMissing": false,
                       "constraintMissingInTopo": true}],
      "bandwidth": [{"vrf": "default", "af": "ipv4", "link": ["10.0.0.1", null], "client": "rsvp",
                     "sharedBwGroupId": 0, "localId": 6, "priority": 7, "reserved": [100, 300]}]})" );
   const std::string line = Lab::outcomeJson( outcome() );
   EXPECT_EQ( Json::parse( line ), expected );
   EXPECT_EQ( line.find( '\n' ), line.npos );
}

TEST( LabOutput, peopleReadTablesThenChanges ) {
   const Lab::LabFile file = Lab::LabFile::parse( lab );
   std::ostringstream out;
   Lab::LabOutput output( {}, out );
   Lab::Outcome published = outcome();
   output.outcomeIs( file.document(), published );
   output.eventIs( file.events()[ 0 ] );
   auto & rsvp = published.clients[ "rsvp" ].begin()->second.pathStatus;
   rsvp[ 0 ].cost = 25;
   rsvp[ 0 ].status.pathTeRouterId_.erase( Cspf::HopIndex( 0 ) );
   rsvp.pop_back();
   published.clients[ "tilfa" ].begin()->second.pathStatus[ 0 ].status.repairPathIdxIs( 0 );
   output.outcomeIs( file.document(), published );
   output.eventIs( file.events()[ 0 ] );
   output.outcomeIs( file.document(), published );
   EXPECT_EQ( out.str(), R"(paris, TE router id 10.0.0.1, after 0.25 s

VRF default, ipv4
CLIENT PATH   DESTINATION           ID METRIC HOPS OR PROTECTION
rsvp   asleep lyon (10.0.0.2)       4  -      no answer: asleep
rsvp   south  nice (10.0.0.3)       1  20     lyon, nice
rsvp          10.0.0.9              1  -      no path: no such router
tilfa  link   nice (0000.0000.0003) 1  -      over pl.a to lyon, then nice, 0000.0000.0004, nice

at 1.5 s  the agent is started anew
at 1.5 s  /te/enabled: false
   rsvp south to nice (10.0.0.3): nice; metric 25, was 20
   rsvp to 10.0.0.9: withdrawn
   tilfa link to nice (0000.0000.0003): no protection

at 1.5 s  the agent is started anew
at 1.5 s  /te/enabled: false
   no path changed
)" );
}

}
