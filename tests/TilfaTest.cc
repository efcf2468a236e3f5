// Repairs as the client "tilfa" reads them from a running agent: what is shared, what stays, what
// is computed anew, and, on random networks that change, packets along all that is published.

#include "tests/GraphText.h"
#include "tests/Lab.h"
#include "tests/RepairWalker.h"

#include <gtest/gtest.h>

#include <random>

using namespace Cspf;

namespace {

using Json = TestLab::Json;

const Json client{ { "clients",
                     { { "tilfa",
                         { { "vrf", { { "default", true } } },
                           { "addressFamily", { { "ipv4", true }, { "ipv6", true } } } } } } } };

Json
linkOf( const std::string & intf ) {
   return { { "excludeIntf", intf } };
}
Json
nodeBehind( const std::string & intf, const std::string & node ) {
   return { { "excludeIntf", intf },
            { "excludeNode", { { "node", node }, { "nexthopIntf", intf } } } };
}

/// Reads what is published at every change: a path never names a repair that is not there, and,
/// once told to, never goes without.
class Reader : public Lum::Reactor {
   LUM_ENTITY( Test, Reader );
   explicit Reader( const Lum::Ptr< Status > & status ) : status_( status ) {
      LUM_WATCH_KEYS( status_, pathStatus, read );
      LUM_WATCH_KEYS( status_, pqInfo, readAll );
   }
   bool mustStay = false;
   int writes = 0;

 private:
   void read( const PathKey & key ) {
      const std::uint32_t idx = status_->pathStatus( key ).repairPathIdx();
      ++writes;
      EXPECT_TRUE( idx == 0 || status_->pqInfoHas( idx ) );
      EXPECT_TRUE( idx != 0 || !mustStay );
   }
   void readAll( const std::uint32_t & ) {
      for ( const auto & [ key, path ] : status_->pathStatusColl() ) {
         read( key );
      }
   }
   const Lum::Ptr< Status > status_;
};

/// "0002 A-B.a: 0003 0004": address and interface of the next hop, then the repair nodes.
std::string
repair( const TestLab & lab, const std::string & path ) {
   const PathStatus * published = lab.status( "tilfa", path );
   if ( !published || published->repairPathIdx() == 0 ) {
      return "";
   }
   const PqInfo & info = lab.statusTable( "tilfa" )->pqInfo( published->repairPathIdx() );
   std::string text = info.nhIp().stringValue() + " " + info.nhIntf().stringValue() + ":";
   for ( const auto & node : info.pathList() ) {
      text += " " + node.stringValue().substr( 10 );
   }
   return text;
}

std::uint32_t
idx( const TestLab & lab, const std::string & path ) {
   return lab.status( "tilfa", path )->repairPathIdx();
}

// A is the router itself, B the neighbour behind the protected link: a ring of five with a tail.
const char * const ring = "A -1- B -1- C -1- D -1- E -1- A; B -1- F; E -1- G";

TEST( Tilfa, equalRepairsShareOneEntry ) {
   TestLab lab( ring, client );
   lab.request( "tilfa", "toB", "B", linkOf( "A-B.a" ) );
   lab.request( "tilfa", "toF", "F", linkOf( "A-B.a" ) );
   lab.request( "tilfa", "toG", "G", linkOf( "A-B.a" ) );
   lab.settle();
   EXPECT_EQ( repair( lab, "toB" ), "10.64.0.10 E-A.b: 0003" );
   EXPECT_EQ( repair( lab, "toG" ), "10.64.0.10 E-A.b:" );
   EXPECT_EQ( idx( lab, "toB" ), idx( lab, "toF" ) );
   EXPECT_EQ( lab.statusTable( "tilfa" )->pqInfos(), 2u );

   const std::uint32_t shared = idx( lab, "toB" );
   lab.withdraw( "tilfa", "toB" );
   lab.settle();
   EXPECT_EQ( idx( lab, "toF" ), shared );
   lab.withdraw( "tilfa", "toF" );
   lab.settle();
   EXPECT_FALSE( lab.statusTable( "tilfa" )->pqInfoHas( shared ) );
   lab.request( "tilfa", "toB", "B", linkOf( "A-B.a" ) );
   lab.settle();
   EXPECT_GT( idx( lab, "toB" ), 2u ) << "fresh identifiers go first";
}

TEST( Tilfa, aRepairStaysWhileWhatIsProtectedChanges ) {
   TestLab lab( "A -1- B -1- C; A -1- N -1- B; N -9- C", client );
   lab.request( "tilfa", "toC", "C", linkOf( "A-B.a" ) );
   lab.settle();
   Reader reader( lab.statusTable( "tilfa" ) );
   reader.mustStay = true;
   EXPECT_EQ( repair( lab, "toC" ), "10.64.0.7 A-N.a:" );
   lab.request( "tilfa", "toC", "C", nodeBehind( "A-B.a", "B" ) );
   lab.settle();
   EXPECT_EQ( repair( lab, "toC" ), "10.64.0.7 A-N.a: 0004 0003" );
   lab.request( "tilfa", "toC", "C", linkOf( "A-N.a" ) );
   lab.settle();
   EXPECT_EQ( repair( lab, "toC" ), "10.64.0.3 A-B.a:" );
   lab.link( "N-C", { { "metric", 3 } } );
   lab.settle();
   EXPECT_GT( reader.writes, 0 );

   const auto before = repair( lab, "toC" );
   const std::uint32_t beforeIdx = idx( lab, "toC" );
   lab.restart();
   lab.settle();
   EXPECT_EQ( repair( lab, "toC" ), before );
   EXPECT_EQ( idx( lab, "toC" ), beforeIdx ) << "an agent that starts anew finds its entries";
}

TEST( Tilfa, saysWhyThereIsNone ) {
   TestLab lab( ring, client );
   lab.request( "tilfa", "all", "C" );
   lab.request( "tilfa", "self", "A", linkOf( "A-B.a" ) );
   lab.request( "tilfa", "node", "B", nodeBehind( "A-B.a", "B" ), { { "id", 2 } } );
   lab.request( "tilfa", "other", "D", nodeBehind( "A-B.a", "C" ) );
   lab.request( "tilfa", "gone", "E", linkOf( "A-B.a" ) );
   lab.settle();
   EXPECT_NE( repair( lab, "gone" ), "" );
   lab.down( "A-B" );
   lab.settle();
   for ( const char * path : { "all", "self", "node", "other", "gone" } ) {
      EXPECT_EQ( repair( lab, path ), "" ) << path;
      EXPECT_NE( lab.error( "tilfa", path ), "" ) << path;
   }
   EXPECT_EQ( lab.statusTable( "tilfa" )->pqInfos(), 0u );
   lab.up( "A-B" );
   lab.settle();
   EXPECT_NE( repair( lab, "gone" ), "" );
   EXPECT_EQ( lab.error( "tilfa", "gone" ), "" );
}

TEST( Tilfa, runsAreSharedAndMadeForTheGraphAlone ) {
   TestLab lab( ring, client );
   const auto prefix = [ & ]( const std::string & router, const Json & metric ) {
      lab.patch(
         { { "topologies",
             { { "core",
                 { { "routers",
                     { { router,
                         { { "prefixes", { { "10.9.0.0/16", metric } } } } } } } } } } } } );
      lab.settle();
   };
   prefix( "B", 0 );
   lab.request( "tilfa", "prefix", "10.9.0.0/16", linkOf( "A-B.a" ) );
   lab.settle();
   const std::uint32_t runs = lab.runs();
   EXPECT_EQ( runs, 4u ) << "constrained, forward, neighbour, reverse";
   EXPECT_EQ( repair( lab, "prefix" ), "10.64.0.10 E-A.b: 0003" );

   for ( const char * name : { "B", "C", "D", "E", "F", "G" } ) {
      lab.request( "tilfa", name, name, linkOf( "A-B.a" ) );
      lab.settle();
   }
   EXPECT_EQ( lab.runs(), runs ) << "more destinations";
   prefix( "G", 3 );
   EXPECT_EQ( repair( lab, "prefix" ), "10.64.0.10 E-A.b: 0003" ) << "G is farther";
   prefix( "B", 3 );
   EXPECT_EQ( repair( lab, "prefix" ), "10.64.0.10 E-A.b:" ) << "G is nearer";
   for ( int i = 0; i < 20; ++i ) {
      prefix( "G", nullptr );
      prefix( "G", 3 );
   }
   prefix( "G", nullptr );
   EXPECT_EQ( repair( lab, "prefix" ), "10.64.0.10 E-A.b: 0003" );
   EXPECT_EQ( lab.runs(), runs ) << "prefixes that move";
   lab.link( "C-D", { { "metric", 2 } } );
   lab.settle();
   EXPECT_EQ( lab.runs(), 2 * runs );
}

/// One random network on both sides: as a lab for the agent, as a graph for the walker.
class TilfaStorm {
 public:
   explicit TilfaStorm( unsigned seed )
      : random_( seed ),
        network_( 5 + seed % 12, random_ ),
        lab_( network_.text(), client ) {
      for ( const auto & [ router, metric ] : { std::pair( 1u, 4u ), std::pair( 3u, 1u ) } ) {
         prefix_.push_back( { CspfVertex{ router }, metric } );
         lab_.patch(
            { { "topologies",
                { { "core",
                    { { "routers",
                        { { network_.name( router ),
                            { { "prefixes", { { "10.9.0.0/16", metric } } } } } } } } } } } } );
      }
      Json paths = Json::object();
      for ( const auto & [ intf, link ] : linksOfA() ) {
         const std::string neighbor = network_.name( link->a == 0 ? link->b : link->a );
         for ( const bool isLink : { true, false } ) {
            for ( uint32_t to = 0; to <= network_.routers; ++to ) {
               char dst[ 32 ] = "10.9.0.0/16";
               if ( to < network_.routers ) {
                  std::snprintf( dst, sizeof dst, "0000.0000.%04u", to + 1 );
               }
               paths[ pathName( intf, isLink, to ) ] = {
                  { "dst", dst },
                  { "id", paths.size() + 1 },
                  { "constraint", isLink ? linkOf( intf ) : nodeBehind( intf, neighbor ) } };
            }
         }
      }
      lab_.patch( { { "paths", { { "tilfa", paths } } } } );
      lab_.settle();
   }

   /// Packets prove all that is published; gives the number of repairs.
   int judge() {
      GraphText text( network_.text() );
      RepairWalker walker( text.graph );
      int repairs = 0;
      for ( const auto & [ intf, link ] : linksOfA() ) {
         const CspfEdge protectedLink = edgeOf( text, intf );
         const bool isThere = protectedLink != noEdge;
         for ( const bool isLink : { true, false } ) {
            for ( uint32_t to = 0; to <= network_.routers; ++to ) {
               const std::string path = pathName( intf, isLink, to );
               const auto repair = published( text, path );
               repairs += repair.has_value();
               if ( !isThere ) {
                  EXPECT_FALSE( repair ) << path;
                  continue;
               }
               walker.resourceIs( { protectedLink, isLink } );
               const RepairWalker::Originators router{ { CspfVertex{ to }, 0 } };
               EXPECT_EQ( walker.fault( repair, to < network_.routers ? router : prefix_, true ),
                          "" )
                  << path << " in " << network_.text();
            }
         }
      }
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
         linkName( &link - network_.links.data() ),
         { { "up", !goes }, { "metric", link.metric }, { "ba", { { "metric", link.metric } } } } );
      lab_.advance( static_cast< double >( random_() % 3 ) * 0.1 );
   }
   void settle() { lab_.settle(); }

 private:
   using Links = std::map< std::string, const RandomNetwork::Link * >;

   static std::string pathName( const std::string & intf, bool isLink, uint32_t to ) {
      return intf + ( isLink ? " link " : " node " ) + std::to_string( to );
   }
   std::string linkName( std::size_t n ) const {
      const auto & links = network_.links;
      const std::string name = network_.name( links[ n ].a ) + "-" + network_.name( links[ n ].b );
      const auto before = std::count_if( links.begin(), links.begin() + n, [ & ]( const auto & l ) {
         return l.a == links[ n ].a && l.b == links[ n ].b;
      } );
      return before ? name + ":" + std::to_string( before + 1 ) : name;
   }
   /// A's point-to-point links, by interface.
   Links linksOfA() const {
      Links found;
      for ( std::size_t n = 0; n < network_.links.size(); ++n ) {
         const auto & link = network_.links[ n ];
         if ( link.a == 0 || link.b == 0 ) {
            found[ linkName( n ) + ( link.a == 0 ? ".a" : ".b" ) ] = &link;
         }
      }
      return found;
   }
   CspfEdge edgeOf( GraphText & text, const std::string & intf ) const {
      const Links links = linksOfA();
      if ( !links.contains( intf ) ) {
         return text.edge( "A", intf.substr( 0, intf.find( '.' ) ) );  // a LAN
      }
      uint32_t edge = 0;
      for ( const auto & link : network_.links ) {
         const bool oneWay = link.state == RandomNetwork::State::oneWay;
         if ( &link == links.at( intf ) ) {
            const bool exists = link.state == RandomNetwork::State::up || ( oneWay && link.a == 0 );
            return exists ? CspfEdge{ edge + ( link.a == 0 ? 0 : 1 ) } : noEdge;
         }
         edge += link.state == RandomNetwork::State::down ? 0 : oneWay ? 1 : 2;
      }
      return noEdge;
   }
   std::optional< CspfRepair > published( GraphText & text, const std::string & path ) const {
      const PathStatus * status = lab_.status( "tilfa", path );
      if ( !status || !status->repairPathIdx() ) {
         return std::nullopt;
      }
      const PqInfo & info = lab_.statusTable( "tilfa" )->pqInfo( status->repairPathIdx() );
      CspfRepair repair;
      repair.firstLink = edgeOf( text, info.nhIntf().stringValue() );
      repair.firstHop = text.graph.to( repair.firstLink );
      if ( text.graph.isNetwork( repair.firstHop ) ) {  // 10.128.<LAN>.<router>
         const std::string address = info.nhIp().stringValue();
         repair.firstHop =
            CspfVertex( std::stoul( address.substr( address.rfind( '.' ) + 1 ) ) - 1 );
      }
      for ( const auto & node : info.pathList() ) {
         repair.nodes.push_back( CspfVertex( std::stoul( node.stringValue().substr( 10 ) ) - 1 ) );
      }
      return repair;
   }

   std::mt19937 random_;
   RandomNetwork network_;
   TestLab lab_;
   RepairWalker::Originators prefix_;
};

TEST( Tilfa, packetsArriveWhileTheNetworkChanges ) {
   int repairs = 0;
   for ( unsigned seed = 1; seed <= 12 && !HasFailure(); ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      TilfaStorm storm( seed );
      for ( int event = 0; event < 6 && !HasFailure(); ++event ) {
         repairs += storm.judge();
         storm.event();
         storm.event();
         storm.settle();
      }
   }
   EXPECT_GT( repairs, 1000 );
}

}
