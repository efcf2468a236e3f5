// Lab files as people write them: every key is taken at its meaning, everything wrong is one line
// that says where and what was expected, and what a run prints has the shape that programs and
// people rely on.

#include "tools/lab/LabOutput.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <sstream>

namespace {

using Json = nlohmann::json;

/// Every key of the format.
const char * const everything = R"({
   "router": "a",
   "te": {"enabled": true, "routerId": "10.0.0.9"},
   "routing": {"routerIdV4": "10.9.9.9"},
   "throttle": {"initialInt": 1, "holdInt": 2, "maxInt": 3},
   "toggles": {"OspfTopoDbExport": false},
   "interfaces": {"ab.a": {"srlg": [7], "bandwidth": "10k", "aggregate": true}},
   "segmentRouting": {"blue": {"systemId": "0000.0000.00bb"}},
   "topologies": {
      "core": {
         "vrf": "default", "af": "ipv4", "igp": "isis", "numbers": [1, 0], "export": false,
         "exportReady": true,
         "routers": {
            "a": {"id": "0000.0000.0001", "teRouterId": "10.0.0.1", "prefixes": {"10.0.0.1/32": 0}},
            "b": {"id": "0000.0000.0002", "teRouterId": null, "overload": true, "at": [-4.5, 52]},
            "c": {"id": "0000.0000.0003"}},
         "links": {
            "ab": {"a": "a", "b": "b", "aAddr": "10.1.0.0", "bAddr": ["10.1.0.1", "10.1.0.3"],
                   "aIntf": "ab.a", "metric": 5, "teMetric": 6, "adminGroup": "0xff", "srlg": [1, 2],
                   "bandwidth": "0.8k", "unreserved": [8, 7, 6, 5, 4, 3, 2, "0.008k"], "up": true,
                   "ab": {"bandwidth": 50}, "ba": {"metric": 9, "unreserved": 1.5}},
            "bc": {"a": "b", "b": "c", "bIntf": "Ethernet1/1", "bandwidth": 4, "ba": false}},
         "lans": {"lan": {"dr": "b", "pseudonode": 9, "members": {
            "a": {"addr": "10.2.0.1", "intf": "lan.a", "metric": 3, "srlg": [3]},
            "b": {"addr": ["10.2.0.2"], "attached": false}}}}},
      "area": {"igp": "ospf", "numbers": [0, 5], "vrf": "blue", "af": "ipv6",
               "routers": {"a": {"id": "1.1.1.1", "teRouterId": "10.0.0.2"}}}},
   "clients": {"rsvp": {"vrf": {"default": true, "blue": false},
                        "addressFamily": {"ipv4": true, "ipv6": false}, "bwmRequired": true}},
   "paths": {
      "rsvp": {"t1": {"vrf": "default", "af": "ipv4", "dst": "10.0.0.3", "id": 2, "refreshReqSeq": 3,
         "autoUpdate": false,
         "constraint": {"excludeIntf": "ab.a", "excludeNode": {"node": "b", "nexthopIntf": "lan.a"},
            "excludeSrlg": true, "includeAllAdminGroup": 1, "includeAnyAdminGroup": "0x2",
            "excludeAdminGroup": "0x80000000", "topoId": "core", "srlgStrictMode": true,
            "srlgExcludeOnlyLocalLinks": true, "bandwidth": 18446744073709551615,
            "bwSetupPriority": 7, "sharedBwGroupId": 4, "excludeLinkWithIp": ["10.1.0.1"],
            "includeHop": [{"addr": "10.2.0.2", "loose": true}, {"addr": "10.1.0.1"}],
            "includeHopAllExplicit": true, "reversePath": true, "pathComputationType": "cspf",
            "sourceType": "neighborOnLink", "neighborLink": "10.1.0.1", "neighbor": "10.0.0.2",
            "noSpf": true}}},
      "tilfa": {"r": {"dst": "0000.0000.0003"}, "p": {"dst": "10.5.0.0/16"}}},
   "events": [{"at": 0.5, "patch": {"topologies": {"core": {"links": {"ab": {"up": false}}}}}},
              {"at": 0.5, "restart": true}]
})";

std::string
parseError( const std::string & text ) {
   try {
      Lab::LabFile::parse( text );
   } catch ( const Lab::LabError & error ) {
      return error.what();
   }
   return "valid";
}

/// What is wrong with the lab above after that merge patch.
std::string
errorAfter( const char * patch ) {
   Json lab = Json::parse( everything );
   lab.merge_patch( Json::parse( patch ) );
   return parseError( lab.dump() );
}

TEST( LabDocument, everyKeyIsTakenAtItsMeaning ) {
   const Lab::LabFile file = Lab::LabFile::parse( everything );
   const Lab::LabDocument & lab = file.document();
   EXPECT_EQ( lab.te.routerId.stringValue(), "10.0.0.9" );
   EXPECT_EQ( lab.throttle, ( Lab::LabThrottle{ 1, 2, 3 } ) );
   EXPECT_EQ( lab.interfaces.at( { "ab.a" } ), Lab::Srlgs{ 7 } );
   EXPECT_EQ( lab.interfaceBandwidths.at( { "ab.a" } ),
              ( Lab::LabInterfaceBandwidth{ 1250, true } ) );
   EXPECT_EQ( lab.segmentRouting.at( "blue" ).stringValue(), "0000.0000.00bb" );

   const Lab::LabTopology & core = lab.topologies.at( "core" );
   const Lab::LabLink & ab = core.links.at( "ab" );
   EXPECT_EQ( ab.ab.attributes.metric, 5u );
   EXPECT_EQ( ab.ab.attributes.bandwidth, 50 );
   EXPECT_EQ( ab.ba.attributes.unreserved[ 7 ], 1.5 );
   EXPECT_EQ( ab.ba.attributes.bandwidth, 100 );
   EXPECT_EQ( ab.ab.attributes.unreserved[ 7 ], 1 );
   EXPECT_EQ( core.routers.at( "b" ).at, ( Lab::LabPlace{ -4.5, 52 } ) );
   EXPECT_FALSE( core.lans.at( "lan" ).members.at( "b" ).attached );

   const Lab::LabConstraint & constraint = lab.paths.at( "rsvp" ).at( "t1" ).constraint;
   EXPECT_EQ( constraint.excludeAdminGroup, 0x80000000u );
   EXPECT_TRUE( constraint.includeHop[ 0 ].loose && !constraint.includeHop[ 1 ].loose );
   EXPECT_EQ( lab.paths.at( "tilfa" ).at( "p" ).dst.ipPrefix().stringValue(), "10.5.0.0/16" );

   Lab::LabPlayback playback( file );
   playback.apply();
   EXPECT_FALSE( playback.document().topologies.at( "core" ).links.at( "ab" ).ab.advertised );
   EXPECT_TRUE( playback.next()->restart );
   playback.apply();
   EXPECT_EQ( playback.next(), nullptr );
}

TEST( LabDocument, defaultsComeFromTheNetwork ) {
   const Lab::LabFile file = Lab::LabFile::parse( R"({"router": "a", "topologies": {
      "six": {"af": "ipv6", "routers": {"a": {"id": "0000.0000.0006", "teRouterId": "2001:db8::1"}}},
      "four": {"igp": "ospf", "routers": {"a": {"id": "9.9.9.9", "teRouterId": "10.0.0.1"}}}}})" );
   const Lab::LabDocument & lab = file.document();
   EXPECT_EQ( lab.te, ( Lab::LabTe{ true, *Kivnet::IpAddr::parse( "10.0.0.1" ) } ) );
   EXPECT_EQ( lab.throttle, ( Lab::LabThrottle{ 50, 200, 5000 } ) );
   EXPECT_TRUE( lab.topologies.at( "four" ).exported );
   EXPECT_EQ( lab.segmentRouting.size(), 1u );
}

TEST( LabDocument, everythingWrongIsOneLineWithItsPlace ) {
   // clang-format off
   static const std::pair< const char *, const char * > cases[] = {
      { R"({"rooter": 1})", "/rooter: expected one of the keys router, te, routing, throttle, toggles, "
                            "interfaces, segmentRouting, topologies, clients, paths, events, state, published, found \"rooter\"" },
      { R"({"router": null})", "/router: expected the name of the router that the agent runs on, found nothing" },
      { R"({"router": "x"})", "/router: expected the name of a router of a topology, found \"x\"" },
      { R"({"te": {"enabled": 1}})", "/te/enabled: expected true or false, found 1" },
      { R"({"toggles": {"x": true}})", "/toggles/x: expected the key OspfTopoDbExport, found \"x\"" },
      { R"({"state": {"te/none": {}}})", "/state/te~1none: expected as key, a state path that others than the agent write, found \"te/none\"" },
      { R"({"state": {"routing/topoDbExport/x": {"type": "Routing::Topology::ExportPath", "value": {"initialized": true}}}})", "/state/routing~1topoDbExport~1x/value/af: expected \"ipv4\" or \"ipv6\" where \"initialized\" is true" },
      { R"({"state": {"te/config": {"type": "Cspf::Client"}}})", "/state/te~1config/type: expected \"TrafficEngineering::Config\", found \"Cspf::Client\"" },
      { R"({"published": {"te/cspf/agentStatus": {"type": "Cspf::AgentStatus", "value": {"agentEnabled": 1}}}})", "/published/te~1cspf~1agentStatus/value/agentEnabled: expected true or false" },
      { R"({"interfaces": {"x": {}}})", "/interfaces/x: expected as key, the name of an interface of the lab's router, found \"x\"" },
      { R"({"segmentRouting": {"a/b": {}}})", "/segmentRouting/a~1b: expected as key, a VRF name of 1 to 100 bytes without \"/\" and control characters, found \"a/b\"" },
      { R"({"topologies": {"z": {"numbers": [1, 0]}}})", "/topologies/z: expected a VRF, family, IGP and numbers that no other topology has, found those of \"core\"" },
      { R"({"topologies": {"core": {"routers": {"c": {"id": "0000.0000.0001"}}}}})", "/topologies/core/routers/c/id: expected a router id that no other router of the topology has, found \"0000.0000.0001\"" },
      { R"({"topologies": {"core": {"routers": {"a": {"prefixes": {"10.0.0.1/8": 0}}}}}})", "/topologies/core/routers/a/prefixes/10.0.0.1~18: expected as key, a prefix such as \"10.0.0.1/32\", found \"10.0.0.1/8\"" },
      { R"({"topologies": {"core": {"links": {"ab": {"b": "a"}}}}})", "/topologies/core/links/ab/b: expected a router other than the link's \"a\", found \"a\"" },
      { R"({"topologies": {"core": {"links": {"bc": {"aAddr": "10.1.0.3"}}}}})", "/topologies/core/links/bc/aAddr: expected an address that no other interface of the topology has, found \"10.1.0.3\"" },
      { R"({"topologies": {"core": {"links": {"ab": {"ba": {"up": true}}}}}})", "/topologies/core/links/ab/ba/up: expected one of the keys metric, teMetric, adminGroup, srlg, bandwidth, unreserved, id, found \"up\"" },
      { R"({"topologies": {"core": {"links": {"ab": {"unreserved": [1, 2]}}}}})", "/topologies/core/links/ab/unreserved: expected bytes per second, one number or a list of 8, found a list of 2" },
      { R"({"topologies": {"core": {"links": {"ab": {"bandwidth": 1e39}}}}})", "/topologies/core/links/ab/bandwidth: expected bytes per second, from 0 to 3.4e38, or bits per second such as \"10G\", found 1e+39" },
      { R"({"topologies": {"core": {"links": {"ab": {"bandwidth": "10g"}}}}})", "/topologies/core/links/ab/bandwidth: expected bytes per second, from 0 to 3.4e38, or bits per second such as \"10G\", found \"10g\"" },
      { R"({"topologies": {"core": {"routers": {"a": {"at": [1, 1e7]}}}}})", "/topologies/core/routers/a/at: expected two numbers from -1e6 to 1e6, to the right and up, found a list of 2" },
      { R"({"paths": {"rsvp": {"t1": {"constraint": {"bandwidth": -1}}}}})", "/paths/rsvp/t1/constraint/bandwidth: expected bytes per second, a whole number of 64 bits, or bits per second such as \"400M\", found -1" },
      { R"({"topologies": {"core": {"links": {"ab": {"metric": 4294967296}}}}})", "/topologies/core/links/ab/metric: expected a whole number from 0 to 4294967295, found 4294967296" },
      { R"({"topologies": {"core": {"links": {"ab": {"srlg": [1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17]}}}}})", "/topologies/core/links/ab/srlg: expected a list of at most 16 SRLG ids, found a list of 17" },
      { R"({"topologies": {"core": {"lans": {"z": {"dr": "b", "pseudonode": 9}}}}})", "/topologies/core/lans/z: expected \"dr\" and \"pseudonode\" that no other LAN of the topology has, found \"b\" and 9" },
      { R"({"paths": {"tilfa": {"r": {"dst": "10.0.0.3"}}}})", "/paths/tilfa/r/dst: expected an IS-IS system id or a prefix, found \"10.0.0.3\"" },
      { R"({"paths": {"rsvp": {"t2": {"dst": "10.0.0.3", "id": 2}}}})", "/paths/rsvp/t2: expected a VRF, family, destination and id that no other path of the client has, found those of \"t1\"" },
      { R"({"paths": {"rsvp": {"t1": {"constraint": {"excludeIntf": "x"}}}}})", "/paths/rsvp/t1/constraint/excludeIntf: expected the name of an interface of the lab, found \"x\"" },
      { R"({"paths": {"rsvp": {"t1": {"constraint": {"excludeNode": {"node": "x"}}}}}})", "/paths/rsvp/t1/constraint/excludeNode/node: expected the name of a router of the path's VRF and family, found \"x\"" },
      { R"({"paths": {"rsvp": {"t1": {"constraint": {"topoId": "x"}}}}})", "/paths/rsvp/t1/constraint/topoId: expected the name of a topology of the lab, found \"x\"" },
      { R"({"topologies": {"six": {"af": "ipv6"}}, "paths": {"rsvp": {"t1": {"constraint": {"topoId": "six"}}}}})", "/paths/rsvp/t1/constraint/topoId: expected the name of a topology of the path's family, found \"six\"" },
      { R"({"paths": {"rsvp": {"t1": {"constraint": {"bwSetupPriority": 8}}}}})", "/paths/rsvp/t1/constraint/bwSetupPriority: expected a whole number from 0 to 7, found 8" },
      { R"({"paths": {"rsvp": {"t1": {"constraint": {"excludeAdminGroup": "0x100000000"}}}}})", "/paths/rsvp/t1/constraint/excludeAdminGroup: expected a 32-bit mask, a whole number or a text such as \"0x1f\", found \"0x100000000\"" },
      { R"({"paths": {"rsvp": {"t1": {"constraint": {"sourceType": "x"}}}}})", "/paths/rsvp/t1/constraint/sourceType: expected \"plr\", \"neighborOnLink\" or \"pathSegmentSource\", found \"x\"" },
      { R"({"events": [{"at": 2}, {"at": 1}]})", "/events/1/at: expected a time not before that of the event before, found 1" },
      { R"({"events": [{"at": 0, "patch": {"events": []}}]})", "/events/0/patch/events: expected a patch that leaves the events alone, found []" },
      { R"({"events": [{"at": 0, "patch": {"topologies": {"core": {"links": {"ab": {"b": "x"}}}}}}]})", "/events/0/patch/topologies/core/links/ab/b: expected the name of a router of the topology, found \"x\"" },
      { R"({"events": [{"at": 0}, {"at": 1, "patch": {"topologies": {"core": {"routers": {"c": null}}}}}]})", "/events/1: leaves an error at /topologies/core/links/bc/b: expected the name of a router of the topology, found \"c\"" },
   };
   // clang-format on
   for ( const auto & [ patch, line ] : cases ) {
      EXPECT_EQ( errorAfter( patch ), line ) << patch;
   }
   EXPECT_EQ( errorAfter( R"({"paths": {"nobody": {"p": {"dst": "10.0.0.3"}}}})" ), "valid" );
}

TEST( LabDocument, whatIsNoJsonSaysWhere ) {
   EXPECT_EQ( parseError( "{\n \"router\": }" ),
              "/router: line 2, column 12: expected '[', '{', or a literal, found '}'" );
   EXPECT_THAT( parseError( "" ), testing::HasSubstr( "line 1, column 1: expected" ) );
   EXPECT_EQ( parseError( "[1]" ), "expected an object, found a list of 1" );
   EXPECT_EQ( parseError( std::string( everything ) + '\0' ),
              "line 45, column 2: expected end of input, found a zero byte" );
   EXPECT_EQ( parseError( R"({"te": {"enabled": true, "enabled": true}})" ),
              "/te/enabled: expected each key once in an object, found \"enabled\" again" );
   for ( const char * piece : { "[", "\xff", "{\"a\":", "9", "\"\\u0000", " ", "\n]" } ) {
      std::string noise;
      while ( noise.size() < 1'000'000 ) {
         noise += piece;
      }
      const std::string line = parseError( noise );
      EXPECT_NE( line, "valid" ) << piece;
      EXPECT_LT( line.size(), 1000u ) << piece;
      EXPECT_EQ( line.find( '\n' ), line.npos ) << piece;
   }
   for ( const std::string & file :
         { std::string( "/no/such.json" ), std::filesystem::temp_directory_path().string() } ) {
      EXPECT_THROW( Lab::LabFile::load( file ), Lab::LabError ) << file;
   }
}

}
