// Clients that answer at once, in the same turn, from inside of the notification that tells them
// what is published. Whatever they do, nothing breaks, and nothing is left of what they took back.

#include "tests/Lab.h"
#include "tests/LabText.h"
#include "tests/TopoStore.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

using Json = nlohmann::json;

namespace {

/// Does something at every change of an entity, but not inside of what it does there.
class Answering : public Lum::Reactor {
   LUM_ENTITY( Test, Answering );
   using Answer = std::function< void( const char * ) >;
   Answering( const std::vector< Lum::Ptr< Lum::Entity > > & entities, Answer answer )
      : answer_( std::move( answer ) ) {
      for ( const auto & entity : entities ) {
         watchAny< &Answering::handleChange >( *entity, this );
      }
   }

 private:
   void handleChange( const Lum::AnyChange & change ) { answer_( change.name() ); }

   const Answer answer_;
};

const char * const topology = "A -10{bw 100}- B -20{bw 100}- C; A -40{bw 100}- C; A -10{bw 100}- B";
const std::vector< std::string > clients{ "cli", "rsvp", "tilfa" };
const Json served{ { "vrf", { { "default", true } } }, { "addressFamily", { { "ipv4", true } } } };

/// A lab, and what its clients and operators read, of the default VRF.
struct Watched {
   Watched() : lab( topology, { { "clients", { { "tilfa", served } } } } ) {
      lab.settle();
      repairOnce();
   }

   /// Identifiers of repairs are those of the table that the last one was published in.
   void repairOnce() {
      lab.request( "tilfa", "once", "0000.0000.0003", { { "excludeIntf", "A-B.a" } } );
      lab.settle();
      lab.withdraw( "tilfa", "once" );
      lab.settle();
   }
   std::vector< Lum::Ptr< Lum::Entity > > read() {
      std::vector< Lum::Ptr< Lum::Entity > > all{ usage() };
      for ( const std::string & name : clients ) {
         all.push_back( lab.statusTable( name ) );
      }
      return all;
   }
   Lum::Ptr< Cspf::BwUsageTable > usage() {
      return Lum::cast< Cspf::BwUsageTable >(
         lab.tables().table( "te/cspf/bwUsage/vrf/default/ipv4" ) );
   }
   Lum::Ptr< Cspf::Config > config( const std::string & client ) {
      return Lum::cast< Cspf::Config >(
         lab.tables().table( "te/cspf/config/vrf/default/ipv4/" + client ) );
   }
   void isEmpty() {
      for ( const std::string & name : clients ) {
         EXPECT_EQ( lab.statusTable( name )->pathStatuss(), 0u );
         EXPECT_EQ( lab.statusTable( name )->pathErrors(), 0u );
         EXPECT_EQ( lab.statusTable( name )->pqInfos(), 0u );
      }
      EXPECT_EQ( usage()->bandwidthUsages(), 0u );
   }

   TestLab lab;
};

using Census = std::map< std::string, std::size_t >;

/// What there is of each type of which there were fewer.
Census
left( const Census & before ) {
   Census left = Lum::census();
   std::erase_if( left, [ & ]( const auto & type ) {
      const auto at = before.find( type.first );
      return at != before.end() && at->second >= type.second;
   } );
   return left;
}

/// A random request for a repair.
Cspf::PathConfig
repairRequest( std::mt19937 & engine ) {
   Cspf::PathConfig config;
   const Routing::Isis::SystemId router(
      { 0, 0, 0, 0, 0, static_cast< std::uint8_t >( 1 + engine() % 4 ) } );
   config.pathKeyIs( { Cspf::Destination( router ), unsigned( 1 + engine() % 3 ) } );
   Cspf::PathConstraint constraint;
   constraint.excludeIntfIs( Kivnet::IntfId( engine() % 3 ? "A-B.a" : "A-C.a" ) );
   if ( engine() % 3 == 0 ) {
      Cspf::ExcludeNode node;
      node.nodeIdIs( Cspf::NodeId( router ) );
      node.nexthopIntfIs( constraint.excludeIntf() );
      constraint.excludeNodeIs( node );
   }
   config.constraintIs( constraint );
   return config;
}

/// A random request, good or bad, as its client writes it.
Cspf::PathConfig
request( const std::string & client, std::mt19937 & engine ) {
   if ( client == "tilfa" ) {
      return repairRequest( engine );
   }
   Cspf::PathConfig config;
   const auto router = [ & ] { return Cspf::ip( "10.0.0." + std::to_string( 1 + engine() % 4 ) ); };
   config.pathKeyIs( { Cspf::Destination( router() ), unsigned( 1 + engine() % 3 ) } );
   config.refreshReqSeqIs( engine() % 4 );
   Cspf::PathConstraint constraint;
   constraint.bandwidthIs( engine() % 3 * 10 );
   constraint.bwSetupPriorityIs( engine() % 6 ? engine() % 8 : 9 );
   constraint.sharedBwGroupIdIs( engine() % 3 ? 0 : 5 );
   for ( unsigned hop = 0; hop < engine() % 3; ++hop ) {
      constraint.includeHopIs( hop, { router(), engine() % 3 != 0 } );
   }
   config.constraintIs( constraint );
   return config;
}

}

TEST( Reentry, WhoeverReadsWhatIsPublishedMayAnswerAtOnce ) {
   for ( unsigned seed = 1; seed <= 150; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      std::mt19937 engine( seed );
      Watched watched;
      TestLab & lab = watched.lab;
      lab.slicesOf( 1 + seed % 3 );
      const auto before = Lum::census();
      bool patching = false;
      unsigned answers = 40;
      const auto patch = [ & ]( const Json & change ) {
         patching = true;
         lab.patch( change );
         patching = false;
      };
      const auto act = [ & ] {
         const std::string & name = clients[ engine() % clients.size() ];
         const auto config = watched.config( name );
         const unsigned kind = engine() % ( patching ? 8 : 12 );
         if ( kind < 5 && config ) {
            config->pathConfigIs( request( name, engine ) );
         } else if ( kind < 8 && config && config->pathConfigs() > 0 ) {
            const auto & requests = config->pathConfigColl();
            const auto any = std::next( requests.begin(), engine() % requests.size() );
            config->pathConfigDel( Cspf::PathKey( any->first ) );
         } else if ( kind == 8 ) {
            const bool toggle = !lab.document()[ "te" ].value( "enabled", true );
            patch( { { "te", { { "enabled", toggle } } } } );
         } else if ( kind == 9 ) {
            patch( { { "clients", { { name, nullptr } } } } );
         } else if ( kind > 9 ) {
            const char * id = engine() % 2 ? "10.0.0.77" : "10.0.0.2";
            const Json links{ { "A-C", { { "up", engine() % 2 == 0 } } } };
            const Json routers{ { "B", { { "teRouterId", id } } } };
            patch( { { "topologies",
                       { { "core", { { "routers", routers }, { "links", links } } } } } } );
         }
      };
      const auto restore = [ & ] {
         Json all;
         for ( const std::string & name : clients ) {
            all[ name ] = served;
         }
         patch( { { "te", { { "enabled", true } } }, { "clients", all } } );
      };
      for ( int round = 0; round < 4; ++round ) {
         restore();
         const auto answering = Lum::make< Answering >( watched.read(), [ & ]( const char * ) {
            if ( answers > 0 && engine() % 3 == 0 ) {
               --answers;
               act();
            }
         } );
         for ( int n = 0; n < 6; ++n ) {
            act();
            lab.advance( 0.02 * ( engine() % 5 ) );
         }
         lab.settle();
      }
      answers = 0;
      restore();
      for ( const std::string & name : clients ) {
         watched.config( name )->pathConfigDelAll();
      }
      watched.repairOnce();
      watched.isEmpty();
      EXPECT_EQ( left( before ), Census() );
   }
}

TEST( Reentry, ARefusedRequestMayBeWithdrawnWhenItsReasonIsRead ) {
   Watched watched;
   const auto config = watched.config( "cli" );
   Cspf::PathConfig refused;
   refused.pathKeyIs( { Cspf::Destination( Cspf::ip( "10.0.0.3" ) ), 5 } );
   Cspf::PathConstraint constraint;
   constraint.bandwidthIs( 1 );
   constraint.bwSetupPriorityIs( 9 );
   constraint.includeHopIs( 0, { Cspf::ip( "10.0.0.2" ), true } );
   refused.constraintIs( constraint );
   bool read = false;
   const auto answering = Lum::make< Answering >( watched.read(), [ & ]( const char * ) {
      read = true;
      config->pathConfigDel( refused.pathKey() );
   } );
   config->pathConfigIs( refused );
   watched.lab.settle();
   EXPECT_TRUE( read );
   watched.isEmpty();
}
