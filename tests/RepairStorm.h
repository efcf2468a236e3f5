#pragma once

#include "schema/Isis.h"
#include "tests/Lab.h"
#include "tests/LabText.h"
#include "tests/RandomNetwork.h"

#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

/// A small network of the hard kind, in one family and sometimes two levels, around a router that
/// protects its links; beside the resource requests refuse shared risks, colours and addresses.
class RepairStorm {
   using Json = nlohmann::json;

 public:
   explicit RepairStorm( unsigned seed )
      : isV6_( seed % 2 ),
        engine_( seed ),
        routers_( 6 + below( 8 ) ),
        lab_( TestLab::of( document() ) ) {
      for ( int n = 0; n < 25; ++n ) {
         ask();
      }
   }

   /// May throw Lab::LabError: the event is none.
   void event() {
      const Json & core = lab_.document()[ "topologies" ][ "core" ];
      const auto & links = core[ "links" ];
      const std::string link = std::next( links.begin(), below( links.size() ) ).key();
      switch ( below( 18 ) ) {
      case 0: ask(); break;
      case 1: lab_.withdraw( "tilfa", std::to_string( 1 + below( paths_ ) ) ); break;
      case 2: lab_.link( link, { { "up", !links[ link ].value( "up", true ) } } ); break;
      case 3: lab_.link( link, { { "ba", below( 2 ) ? Json( false ) : Json() } } ); break;
      case 4: lab_.link( link, { { "srlg", { 1 + below( 3 ) } } } ); break;
      case 5: lab_.link( link, { { "adminGroup", below( 2 ) } } ); break;
      case 6: router( router(), { { "overload", below( 2 ) == 0 } } ); break;
      case 7: {
         const Json first = links[ link ].value( "aAddr", Json( address() ) ).front();
         lab_.link( link,
                    { { "aAddr", below( 2 ) ? Json( address() ) : Json{ first, address() } } } );
         break;
      }
      case 8:
      case 9:
         router( router(),
                 { { "prefixes", { { prefix(), below( 3 ) ? Json( below( 9 ) ) : Json() } } } } );
         break;
      case 10: adjacency(); break;
      case 11: lan( core[ "lans" ] ); break;
      case 12: newLink(); break;
      case 13:
         lab_.patch( { { "interfaces",
                         { { own_[ below( own_.size() ) ].first,
                             { { "srlg", { 1 + below( 3 ) } } } } } } } );
         break;
      case 14:
         router( RandomNetwork::name( 1 + below( routers_ - 1 ) ),
                 { { "teRouterId", below( 4 ) ? Json( teRouterId() ) : Json() } } );
         break;
      case 15: askAnew(); break;
      default: lab_.link( below( 3 ) ? link : "R1-R3", { { "metric", 1 + below( 5 ) } } );
      }
      if ( below( 4 ) == 0 ) {  // what no repair reads
         lab_.link( link, { { "unreserved", below( 9 ) } } );
      }
   }
   TestLab & lab() { return lab_; }
   unsigned below( std::size_t n ) { return static_cast< unsigned >( engine_() % n ); }

 private:
   Json document() {
      Json document = labInFamily(
         RandomNetwork( routers_, engine_ ).text() + "; R1 -900- R3; R2 -900- A", isV6_,
         { { "clients",
             { { "tilfa",
                 { { "vrf", { { "default", true } } },
                   { "addressFamily", { { "ipv4", true }, { "ipv6", true } } } } } } } } );
      for ( const auto & [ name, link ] : document[ "topologies" ][ "core" ][ "links" ].items() ) {
         if ( link[ "a" ] == "A" || link[ "b" ] == "A" ) {
            own_.emplace_back( name + ( link[ "a" ] == "A" ? ".a" : ".b" ),
                               link[ link[ "a" ] == "A" ? "b" : "a" ] );
            document[ "interfaces" ][ own_.back().first ][ "srlg" ] = { 1 + below( 3 ) };
         }
      }
      for ( const auto & [ name, lan ] : document[ "topologies" ][ "core" ][ "lans" ].items() ) {
         if ( lan[ "members" ].contains( "A" ) ) {
            own_.emplace_back( name + ".A", std::prev( lan[ "members" ].end() ).key() );
         }
      }
      if ( !isV6_ && below( 3 ) == 0 ) {
         Json & level = document[ "topologies" ][ "level1" ] =
            labTopology( "A -5- R1 -5- R2 -5- R3 -7- A" );
         level[ "numbers" ] = { 1, 0 };
      }
      return document;
   }

   std::string systemId( unsigned router ) const {
      return "0000.0000." + std::to_string( 10000 + router ).substr( 1 );
   }
   std::string router() { return RandomNetwork::name( below( routers_ ) ); }
   void ask() {
      const auto & [ intf, far ] = own_[ below( own_.size() ) ];
      const bool isNode = below( 2 );
      Json constraint{ { "excludeIntf", intf } };
      if ( isNode ) {
         constraint[ "excludeNode" ] = { { "node", below( 9 ) ? far : router() },
                                         { "nexthopIntf", intf } };
         constraint[ "fallBackToLink" ] = below( 3 ) == 0;
      } else if ( intf.starts_with( "lan" ) && below( 2 ) ) {
         constraint[ "neighbor" ] = below( 2 ) ? systemId( 1 + below( routers_ ) ) : teRouterId();
      }
      constraint[ "excludeSrlg" ] = below( 4 ) == 0;
      constraint[ "srlgStrictMode" ] = below( 2 ) == 0;
      constraint[ "excludeAdminGroup" ] = below( 8 ) ? 0 : 1;
      if ( below( 3 ) == 0 ) {
         constraint[ "maxRepairNodes" ] = 1 + below( 2 );
      }
      if ( below( 5 ) == 0 ) {
         constraint[ "excludeLinkWithIp" ] = { address(), address() };
      }
      const unsigned n = paths_ > 30 ? 1 + below( paths_ ) : ++paths_;
      lab_.request( "tilfa", std::to_string( n ),
                    below( 3 ) ? systemId( 1 + below( routers_ ) ) : prefix(), constraint,
                    { { "id", n }, { "af", isV6_ ? "ipv6" : "ipv4" } } );
   }
   void askAnew() {
      const Json asked =
         lab_.document().value( Json::json_pointer( "/paths/tilfa" ), Json::object() );
      if ( !asked.empty() ) {
         const auto path = std::next( asked.begin(), below( asked.size() ) );
         const Json sequence = path->value( "refreshReqSeq", 0 ) + 1;
         lab_.patch(
            { { "paths",
                { { "tilfa", { { path.key(), { { "refreshReqSeq", sequence } } } } } } } } );
      }
   }
   std::string prefix() {
      const std::string number = below( 2 ) ? "9" : "90";
      return isV6_ ? "fd" + number + "::/32" : "10." + number + ".0.0/16";
   }

   void router( const std::string & name, const Json & change ) {
      lab_.patch( { { "topologies", { { "core", { { "routers", { { name, change } } } } } } } } );
   }
   std::string teRouterId() {
      const std::string number = std::to_string( 1 + below( routers_ ) );
      return isV6_ ? "fd00::10:0:0:" + number : "10.0.0." + number;
   }
   std::string address() {
      const std::string number = std::to_string( 2 + below( 20 ) );
      return isV6_ ? "fd00::10:65:0:" + number : "10.65.0." + number;
   }
   void newLink() {
      const std::string from = router(), to = router();
      lab_.patch( { { "topologies",
                      { { "core",
                          { { "links",
                              { { "new" + std::to_string( below( 4 ) ),
                                  { { "a", from },
                                    { "b", to },
                                    { "metric", 1 + below( 3 ) } } } } } } } } } } );
   }
   void lan( const Json & lans ) {
      if ( !lans.empty() ) {
         const std::string name = std::next( lans.begin(), below( lans.size() ) ).key();
         const Json & members = lans[ name ][ "members" ];
         const std::string member = std::next( members.begin(), below( members.size() ) ).key();
         lab_.patch(
            { { "topologies",
                { { "core",
                    { { "lans",
                        { { name,
                            { { "members",
                                { { member,
                                    { { "metric", 1 + below( 3 ) },
                                      { "attached", below( 3 ) > 0 } } } } } } } } } } } } } } );
      }
   }
   /// One goes, or all are back.
   void adjacency() {
      using IsisExportImpl::IsisAdjacencyInfo;
      const auto table =
         Lum::cast< IsisAdjacencyInfo >( lab_.tables().table( "routing/isis/adjacency/default" ) );
      const auto keys = Lum::sortedKeys( table->adjacencyColl() );
      if ( !keys.empty() && below( 2 ) ) {
         const auto & key = keys[ below( keys.size() ) ];
         gone_[ key ] = table->adjacency( key );
         table->adjacencyDel( key );
      } else {
         for ( const auto & [ key, adjacency ] : std::exchange( gone_, {} ) ) {
            table->adjacencyIs( key, adjacency );
         }
      }
   }
   const bool isV6_;
   std::mt19937 engine_;
   const unsigned routers_;
   std::vector< std::pair< std::string, std::string > > own_;  // interfaces, and who is behind
   std::map< IsisExportImpl::AdjacencyKey, IsisExportImpl::Adjacency > gone_;
   unsigned paths_ = 0;
   TestLab lab_;
};
