// Repairs on random networks that change, proved by packets along all that is published.

#include "tests/GraphText.h"
#include "tests/LabText.h"
#include "tests/RandomNetwork.h"
#include "tests/TilfaLab.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <utility>

using namespace Cspf;

namespace {

using namespace TilfaLab;

/// One random network on both sides: as a lab for the agent, as graphs for walkers.
class TilfaStorm {
 public:
   explicit TilfaStorm( unsigned seed )
      : isV6_( seed % 2 ),
        random_( seed ),
        network_( 5 + seed % 12, random_ ),
        lab_( TestLab::of( labInFamily( network_.text(), isV6_, client ) ) ) {
      for ( std::size_t n = 0; n < network_.links.size(); ++n ) {
         const auto & link = network_.links[ n ];
         if ( link.a == 0 || link.b == 0 ) {
            own_[ link.name + ( link.a == 0 ? ".a" : ".b" ) ] = n;
         }
      }
      const char * const prefix = isV6_ ? "fd09::/32" : "10.9.0.0/16";
      Json patch;
      for ( const auto & [ router, metric ] : prefix_ ) {
         patch[ "topologies" ][ "core" ][ "routers" ][ network_.name( index( router ) ) ]
              [ "prefixes" ][ prefix ] = metric;
      }
      Json & paths = patch[ "paths" ][ "tilfa" ];
      forEachPath(
         [ & ]( const std::string & path, const std::string & intf, bool isLink, uint32_t to ) {
            const auto & link = network_.links[ own_[ intf ] ];
            const std::string router = "0000.0000." + std::to_string( 10001 + to ).substr( 1 );
            paths[ path ] = {
               { "dst", to < network_.routers ? router : prefix },
               { "id", paths.size() + 1 },
               { "af", isV6_ ? "ipv6" : "ipv4" },
               { "constraint",
                 isLink ? linkOf( intf ) : nodeBehind( intf, network_.name( link.a + link.b ) ) } };
         } );
      lab_.patch( patch );
      lab_.settle();
   }

   /// Packets prove all that is published; gives the number of repairs. `events` since last time:
   /// after one, the repair of a link that is gone is the one that it had.
   int judge( int events ) {
      GraphText text( network_.text() );
      GraphWalker walker( text.graph );
      int repairs = 0;
      forEachPath(
         [ & ]( const std::string & path, const std::string & intf, bool isLink, uint32_t to ) {
            const std::uint32_t before = std::exchange( idx_[ path ], idx( lab_, path ) );
            repairs += idx_[ path ] > 0;
            const CspfEdge protectedLink = edgeOf( text, intf );
            if ( protectedLink == noEdge || !text.graph.twoWay( protectedLink ) ) {
               EXPECT_TRUE( idx_[ path ] == before || events > 1 ) << path;
               return;
            }
            walker.resourceIs( GraphWalker::behind( text.graph, protectedLink, isLink ) );
            const GraphWalker::Originators router{ { CspfVertex{ to }, 0 } };
            EXPECT_EQ( walker.fault( published( text, idx_[ path ] ),
                                     to < network_.routers ? router : prefix_, false ),
                       "" )
               << path << " in " << network_.text();
         } );
      return repairs;
   }

   /// A link changes, goes or comes back.
   void event() {
      auto & link = network_.links[ random_() % network_.links.size() ];
      if ( link.state == RandomNetwork::State::oneWay ) {
         return;
      }
      const bool goes = link.state == RandomNetwork::State::up && random_() % 2;
      link.state = goes ? RandomNetwork::State::down : RandomNetwork::State::up;
      link.metric = link.back = 1 + static_cast< uint32_t >( random_() % 5 );
      lab_.link(
         link.name,
         { { "up", !goes }, { "metric", link.metric }, { "ba", { { "metric", link.metric } } } } );
      lab_.advance( static_cast< double >( random_() % 3 ) * 0.1 );
   }
   TestLab & lab() { return lab_; }

 private:
   template< typename Visit >
   void forEachPath( Visit && visit ) {
      for ( const auto & [ intf, n ] : own_ ) {
         for ( uint32_t to = 0; to <= network_.routers; ++to ) {
            visit( intf + " link " + std::to_string( to ), intf, true, to );
            visit( intf + " node " + std::to_string( to ), intf, false, to );
         }
      }
   }
   CspfEdge edgeOf( GraphText & text, const std::string & intf ) const {
      const auto own = own_.find( intf );
      return own == own_.end() ? text.edge( "A", intf.substr( 0, intf.find( '.' ) ) )  // a LAN
                               : network_.edgeFrom( CspfVertex{ 0 }, own->second );
   }
   CspfRepairs published( GraphText & text, std::uint32_t idx ) const {
      const auto af = isV6_ ? Kivnet::AddressFamily::ipv6 : Kivnet::AddressFamily::ipv4;
      if ( idx == 0 ) {
         return {};
      }
      const PqInfo & info = lab_.statusTable( "tilfa", "default", af )->pqInfo( idx );
      EXPECT_EQ( info.nhIp().af(), af );
      const CspfEdge link = edgeOf( text, info.nhIntf().stringValue() );
      const auto numbered = []( const std::string & id ) {  // a system id, or an address on a LAN
         return CspfVertex( std::stoul( id.substr( id.find_last_of( ".:" ) + 1 ) ) - 1 );
      };
      CspfRepair repair{ link == noEdge ? noVertex : text.graph.to( link ), { link }, {} };
      if ( link != noEdge && text.graph.isNetwork( repair.firstHop ) ) {
         repair.firstHop = numbered( info.nhIp().stringValue() );
      }
      for ( const RepairSegment & segment : info.segmentList() ) {
         const CspfVertex node = numbered( segment.to().stringValue() );
         repair.segments.push_back( { node } );
         if ( segment.from() ) {
            setLink( text, numbered( segment.from().stringValue() ), segment,
                     repair.segments.back() );
         }
      }
      return { { repair }, 0 };
   }
   /// The published addresses of the n-th link end in 64.0.2n and 2n+1, on a LAN in 128.n.m.
   void setLink( GraphText & text, CspfVertex from, const RepairSegment & published,
                 CspfRepairSegment & segment ) const {
      std::string address = published.nearAddr().stringValue();
      std::ranges::replace( address, ':', '.' );
      unsigned kind = 0, high = 0, low = 0;
      ASSERT_EQ( std::sscanf( address.c_str(), isV6_ ? "fd00..10.%u.%u.%u" : "10.%u.%u.%u", &kind,
                              &high, &low ),
                 3 )
         << address;
      if ( kind == 128 ) {
         const std::string lan = "lan" + std::to_string( high );
         EXPECT_EQ( low, index( from ) + 1 );
         segment.link = text.edge( text.name( from ), lan );
         segment.arrival = text.edge( lan, text.name( segment.node ) );
      } else {
         segment.link = network_.edgeFrom( from, ( 256 * high + low ) / 2 - 1 );
         segment.arrival = segment.link;
      }
      EXPECT_EQ( published.farAddr().af(), published.nearAddr().af() );
   }

   const bool isV6_;
   std::mt19937 random_;
   RandomNetwork network_;
   TestLab lab_;
   std::map< std::string, std::size_t > own_;    // A's point-to-point links, by interface
   std::map< std::string, std::uint32_t > idx_;  // of paths, when they were last judged
   const GraphWalker::Originators prefix_{ { CspfVertex{ 1 }, 4 }, { CspfVertex{ 3 }, 1 } };
};

TEST( Tilfa, packetsArriveWhileTheNetworkChanges ) {
   int repairs = 0;
   for ( unsigned seed = 1; seed <= 40 && !HasFailure(); ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      TilfaStorm storm( seed );
      for ( int round = 0; round < 6 && !HasFailure(); ++round ) {
         repairs += storm.judge( 1 + round % 2 );
         for ( int events = 1 + ( round + 1 ) % 2; events > 0; --events ) {
            storm.event();
         }
         storm.lab().settle();
      }
   }
   EXPECT_GT( repairs, 3000 );
}

}
