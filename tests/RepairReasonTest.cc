// Why a repair is what it is, held against costs between all routers, before and after the failure.

#include "tools/prove/RepairReason.h"
#include "tests/Lab.h"
#include "tests/RandomNetwork.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

using Costs = std::vector< std::vector< std::uint64_t > >;
constexpr std::uint64_t unreached = 1'000'000'000;

/// The network without what its text has besides links, and with one of them failing.
class Failing {
 public:
   Failing( const RandomNetwork & network, std::size_t failing, std::uint32_t to )
      : n( network.routers ),
        to( to ),
        before( n, std::vector( n, unreached ) ) {
      after = before;
      for ( std::uint32_t i = 0; i < n; ++i ) {
         before[ i ][ i ] = after[ i ][ i ] = 0;
      }
      for ( std::size_t i = 0; i < network.links.size(); ++i ) {
         const auto & link = network.links[ i ];
         add( { link.a, link.b, link.metric }, i == failing );
         add( { link.b, link.a, link.back }, i == failing );
      }
      close( before );
      close( after );
   }

   /// No plain route crosses the link.
   bool isSound( std::uint32_t from, std::uint32_t end ) const {
      return std::ranges::none_of( failed_, [ & ]( const Arc & arc ) {
         return before[ from ][ arc.from ] + arc.metric + before[ arc.to ][ end ]
                == before[ from ][ end ];
      } );
   }
   /// All repairs on shortest paths after the failure with so many nodes: the next hop comes first.
   std::vector< std::vector< std::uint32_t > > lists( std::size_t nodes ) const {
      std::vector< std::vector< std::uint32_t > > found;
      for ( std::uint32_t hop = 1; hop < n; ++hop ) {
         if ( isLink( 0, hop ) ) {
            extend( { hop }, after[ 0 ][ hop ], nodes, found );
         }
      }
      return found;
   }
   std::uint64_t costBy( std::uint32_t router ) const {
      return after[ 0 ][ router ] + after[ router ][ to ];
   }

   const std::uint32_t n, to;
   Costs before, after;

 private:
   struct Arc {
      std::uint32_t from, to;
      std::uint64_t metric;
   };
   void add( const Arc & arc, bool fails ) {
      if ( arc.metric == 0xFFFFFF ) {
         return;
      }
      before[ arc.from ][ arc.to ] = std::min( before[ arc.from ][ arc.to ], arc.metric );
      if ( fails ) {
         failed_.push_back( arc );
      } else {
         stays_.push_back( arc );
         after[ arc.from ][ arc.to ] = std::min( after[ arc.from ][ arc.to ], arc.metric );
      }
   }
   void close( Costs & costs ) const {
      for ( std::uint32_t by = 0; by < n; ++by ) {
         for ( auto & row : costs ) {
            for ( std::uint32_t end = 0; end < n; ++end ) {
               row[ end ] = std::min( row[ end ], row[ by ] + costs[ by ][ end ] );
            }
         }
      }
   }
   /// One that is a shortest path after the failure.
   bool isLink( std::uint32_t from, std::uint32_t end ) const {
      return std::ranges::any_of( stays_, [ & ]( const Arc & arc ) {
         return arc.from == from && arc.to == end && arc.metric == after[ from ][ end ];
      } );
   }
   void extend( std::vector< std::uint32_t > list, std::uint64_t cost, std::size_t nodes,
                std::vector< std::vector< std::uint32_t > > & found ) const {
      const std::uint32_t last = list.back();
      if ( cost + after[ last ][ to ] != after[ 0 ][ to ] ) {
         return;
      }
      if ( list.size() == nodes + 1 ) {
         if ( isSound( last, to ) ) {
            found.push_back( list );
         }
         return;
      }
      for ( std::uint32_t next = 1; next < n; ++next ) {
         if ( next != last
              && ( isSound( last, next ) || ( list.size() > 1 && isLink( last, next ) ) ) ) {
            list.push_back( next );
            extend( list, cost + after[ last ][ next ], nodes, found );
            list.pop_back();
         }
      }
   }

   std::vector< Arc > failed_, stays_;
};

/// What is said, judged line by line; counts what it judged by kind.
class Judge {
 public:
   Judge( const Failing & truth, std::map< std::string, int > & judged )
      : truth_( truth ),
        judged_( judged ) {
      for ( fewest_ = 0; fewest_ <= 8 && ( lists_ = truth.lists( fewest_ ) ).empty(); ++fewest_ ) {
      }
   }

   void line( const std::string & text ) {
      std::smatch m;
      if ( std::regex_search( text, m, std::regex( "one of (\\d+) equal ones" ) ) ) {
         EXPECT_EQ( std::stoul( m[ 1 ] ), lists_.size() ) << text;
         ++judged_[ "equal" ];
      } else if ( text.find( "the only one with so few" ) != text.npos ) {
         EXPECT_EQ( lists_.size(), 1u ) << text;
      }
      if ( std::regex_search( text, m,
                              std::regex( "(\\w+)( as repair node)?: (not )?in P of (\\w+)" ) ) ) {
         EXPECT_EQ( !m[ 3 ].matched, truth_.isSound( router( m[ 4 ] ), router( m[ 1 ] ) ) ) << text;
         ++judged_[ m[ 3 ].matched ? "not in P" : "in P" ];
      }
      if ( std::regex_search(
              text, m,
              std::regex( "(\\w+)( as next hop| as repair node)?: (.*; )?(not )?in Q" ) ) ) {
         EXPECT_EQ( !m[ 4 ].matched, truth_.isSound( router( m[ 1 ] ), truth_.to ) ) << text;
         ++judged_[ m[ 4 ].matched ? "not in Q" : "in Q" ];
      }
      if ( std::regex_search( text, m,
                              std::regex( "(\\w+) as repair node: is dearer.* costs "
                                          "(\\d+) against (\\d+)" ) ) ) {
         EXPECT_EQ( std::stoul( m[ 2 ] ), truth_.costBy( router( m[ 1 ] ) ) ) << text;
         EXPECT_EQ( std::stoul( m[ 3 ] ), truth_.after[ 0 ][ truth_.to ] ) << text;
         ++judged_[ "dearer" ];
      }
      if ( std::regex_search( text, m,
                              std::regex( "(\\w+) as (\\w+ \\w+): as good, (\\d+) of (\\d+)" ) ) ) {
         const auto has = [ & ]( const auto & list ) {
            const auto at = std::ranges::find( list, router( m[ 1 ] ) ) - list.begin();
            return m[ 2 ] == "next hop" ? at == 0 : at > 0 && at < std::ssize( list );
         };
         EXPECT_EQ( std::stol( m[ 3 ] ), std::ranges::count_if( lists_, has ) ) << text;
         EXPECT_EQ( std::stoul( m[ 4 ] ), lists_.size() ) << text;
         ++judged_[ "as good" ];
      }
   }
   /// Of a next hop and a repair node: whether packets arrive.
   void pair( std::uint32_t hop, std::uint32_t node, const std::string & text ) {
      if ( text.find( "packets arrive" ) != text.npos ) {
         EXPECT_TRUE( truth_.isSound( hop, node ) && truth_.isSound( node, truth_.to ) ) << text;
         ++judged_[ "pair" ];
      } else if ( text.find( "not in" ) != text.npos ) {
         EXPECT_FALSE( truth_.isSound( hop, node ) && truth_.isSound( node, truth_.to ) ) << text;
         ++judged_[ "no pair" ];
      }
   }

 private:
   static std::uint32_t router( const std::string & name ) {
      return name == "A" ? 0 : static_cast< std::uint32_t >( std::stoul( name.substr( 1 ) ) );
   }

   const Failing & truth_;
   std::map< std::string, int > & judged_;
   std::size_t fewest_ = 0;
   std::vector< std::vector< std::uint32_t > > lists_;
};

std::string
nameOf( const Cspf::IgpRouterId & id ) {
   const std::string text = id.isisSystemId().stringValue();
   return RandomNetwork::name(
      static_cast< std::uint32_t >( std::stoul( text.substr( text.size() - 4 ) ) ) - 1 );
}

void
judgeAll( TestLab & lab, const RandomNetwork & network, std::size_t link,
          std::map< std::string, int > & judged ) {
   const auto state = Prove::Snapshot::of( lab.state(), lab.tables() );
   for ( const Prove::Service & service : Prove::servicesOf( state ) ) {
      for ( const Prove::Answer & answer : service.answers ) {
         if ( !answer.status || answer.status->repairPathIdx() == 0 ) {
            continue;
         }
         const std::uint32_t to = answer.key.id() - 1;
         const Failing truth( network, link, to );
         Judge judge( truth, judged );
         const Prove::RepairReason reason( state, service, answer, nameOf );
         for ( const std::string & line : reason.why() ) {
            judge.line( line );
         }
         for ( std::uint32_t router = 1; router < network.routers; ++router ) {
            for ( const std::string & line : reason.whyNot( { RandomNetwork::name( router ) } ) ) {
               judge.line( line );
            }
            const std::uint32_t node = 1 + ( router + to ) % ( network.routers - 1 );
            const auto pair =
               reason.whyNot( { RandomNetwork::name( router ), RandomNetwork::name( node ) } );
            judge.pair( router, node, pair.front() );
         }
      }
   }
}

TEST( RepairReason, isTrueOfRandomNetworks ) {
   std::map< std::string, int > judged;
   for ( unsigned seed = 1; seed <= 120 && !HasFailure(); ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      std::mt19937 random( seed );
      RandomNetwork network( 4 + seed % 6, random );
      network.rest.clear();
      for ( auto & link : network.links ) {
         link.state = RandomNetwork::State::up;
      }
      std::size_t own = 0;
      while ( own < network.links.size() && network.links[ own ].a != 0 ) {
         ++own;
      }
      if ( own == network.links.size() ) {
         continue;
      }
      TestLab lab( network.text(), { { "clients",
                                       { { "tilfa",
                                           { { "vrf", { { "default", true } } },
                                             { "addressFamily", { { "ipv4", true } } } } } } } } );
      for ( std::uint32_t to = 1; to < network.routers; ++to ) {
         lab.request( "tilfa", "to" + std::to_string( to ), RandomNetwork::name( to ),
                      { { "excludeIntf", network.links[ own ].name + ".a" } },
                      { { "id", to + 1 } } );
      }
      lab.settle();
      judgeAll( lab, network, own, judged );
   }
   for ( const char * kind : { "equal", "in P", "not in P", "in Q", "not in Q", "dearer", "as good",
                               "pair", "no pair" } ) {
      EXPECT_GT( judged[ kind ], 20 ) << kind;
   }
}

TEST( RepairReason, namesWhatStandsInTheWay ) {
   TestLab lab( "A -1- B -1{srlg 7}- C; A -9- D -1- C; A -9- E -9- C",
                { { "clients",
                    { { "tilfa",
                        { { "vrf", { { "default", true } } },
                          { "addressFamily", { { "ipv4", true } } } } } } } } );
   lab.patch( { { "interfaces", { { "A-B.a", { { "srlg", { 7 } } } } } } } );
   lab.request(
      "tilfa", "toC", "C",
      { { "excludeIntf", "A-B.a" }, { "excludeSrlg", true }, { "srlgStrictMode", true } } );
   lab.settle();
   const auto state = Prove::Snapshot::of( lab.state(), lab.tables() );
   const auto service = Prove::servicesOf( state ).back();
   const auto & answer = service.answers.back();
   const auto id = []( const Cspf::IgpRouterId & router ) {
      return router.isisSystemId().stringValue().substr( 13 );
   };
   const Prove::RepairReason reason( state, service, answer, id );
   const auto whyNot = [ & ]( const std::vector< std::string > & names ) {
      return reason.whyNot( names ).front();
   };
   EXPECT_EQ( whyNot( { "10.64.0.5" } ), "the link 2 - 3 (10.64.0.4) shares SRLG 7" );
   EXPECT_EQ( whyNot( { "2" } ), "2 as next hop: the link 1 - 2 (10.64.0.2) is protected against" );
   EXPECT_EQ( whyNot( { "10.0.0.5" } ),
              "5 as next hop: is dearer: after the failure it costs 18 against 10" );
   EXPECT_EQ( whyNot( { "5", "4" } ).substr( 0, 14 ), "packets arrive" );
   EXPECT_EQ( whyNot( { "3", "4" } ), "3 is no neighbour: the next hop comes first" );
   EXPECT_EQ( whyNot( { "1" } ), "1 is the router that repairs" );
   EXPECT_THROW( whyNot( { "nobody" } ), std::runtime_error );
}

}
