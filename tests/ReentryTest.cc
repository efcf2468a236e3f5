// Clients that answer at once, in the same turn, from inside of the notification that tells them
// what is published. Whatever they do, nothing breaks, and nothing is left of what they took back.

#include "tests/Answering.h"
#include "tests/Lab.h"
#include "tests/LabText.h"
#include "tests/Seeds.h"
#include "tests/TopoStore.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <utility>

using Json = nlohmann::json;

namespace {

using Kivnet::AddressFamily;

const char * const topology = "A -10{bw 100}- B -20{bw 100}- C; A -40{bw 100}- C; A -10{bw 100}- B";
const std::vector< std::string > clients{ "cli", "rsvp", "tilfa" };
const L3::VrfName vrf( "default" );
const Json served{ { "vrf", { { "default", true } } }, { "addressFamily", { { "ipv4", true } } } };

/// A lab, and what its clients and operators read and switch, of the default VRF.
struct Watched {
   Watched() : lab( topology, { { "clients", { { "tilfa", served } } } } ) {
      lab.state()
         .entityIs< Interface::AllEthPhyIntfStatusDir >( "interface/status/eth/phy/all" )
         ->bandwidthIs( Kivnet::IntfId( "A-B.a" ), 1000 );
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
   Lum::Ptr< Lum::Entity > table( const std::string & path ) { return lab.tables().table( path ); }
   Lum::Ptr< Cspf::BwUsageTable > usage() {
      return Lum::cast< Cspf::BwUsageTable >( table( "te/cspf/bwUsage/vrf/default/ipv4" ) );
   }
   Lum::Ptr< Cspf::Config > config( const std::string & client ) {
      return Lum::cast< Cspf::Config >( table( "te/cspf/config/vrf/default/ipv4/" + client ) );
   }

   /// The client's entry, which is in the directory or was.
   Cspf::Client & entry( const std::string & client ) {
      if ( const auto present = Lum::cast< Cspf::Client >( clientDir->entity( client ) ) ) {
         entries[ client ] = present;
      }
      return *entries.at( client );
   }
   /// One of seven things that a service hangs on.
   void turn( unsigned which, const std::string & client, bool isOn ) {
      Cspf::Client & own = entry( client );
      if ( which == 0 ) {
         own.vrfIs( vrf, isOn );
      } else if ( which < 3 ) {
         own.addressFamilyIs( which == 1 ? AddressFamily::ipv4 : AddressFamily::ipv6, isOn );
      } else if ( which == 3 ) {
         own.bwmRequiredIs( isOn );
      } else if ( which == 4 ) {
         te->enabledIs( isOn );
      } else if ( which == 5 ) {
         isis->systemIdIs( isOn ? identity : Routing::Isis::SystemId() );
      } else if ( isOn ) {
         clientDir->entityIs( client, &own );
      } else {
         clientDir->entityDel( client );
      }
   }
   static constexpr unsigned switches = 7;

   /// A client has its tables, and an answer to each of its requests, where it is to be served, and
   /// nothing elsewhere.
   void isAsWanted() {
      for ( const std::string & name : clients ) {
         SCOPED_TRACE( name );
         const Cspf::Client & own = entry( name );
         const bool isMounted = te->enabled() && own.vrf( vrf ) && clientDir->entityHas( name );
         for ( const auto af : { AddressFamily::ipv4, AddressFamily::ipv6 } ) {
            const bool hasSource = name == "tilfa" ? !!isis->systemId() : af == AddressFamily::ipv4;
            const auto status = lab.statusTable( name, "default", af );
            ASSERT_EQ( !!status, isMounted && own.addressFamily( af ) && hasSource );
            if ( status && af == AddressFamily::ipv4 ) {
               for ( const auto & [ key, request ] : config( name )->pathConfigColl() ) {
                  EXPECT_TRUE( status->pathStatusHas( key ) || status->pathErrorHas( key ) );
               }
            }
         }
         const auto told = Lum::cast< TrafficEngineering::BandwidthClientStatus >(
            table( "te/bwm/client/status/vrf/default/" + name ) );
         ASSERT_EQ( !!told, isMounted && own.bwmRequired() );
         EXPECT_EQ( told ? told->maxReservableBandwidths() : 1, 1u );
         isManaged |= !!told;
      }
      EXPECT_EQ( !!table( "te/bwm/status/vrf/default" ), std::exchange( isManaged, false ) );
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
   const Lum::Ptr< Lum::Dir > clientDir =
      Lum::cast< Lum::Dir >( lab.state().entity( "te/cspf/client" ) );
   const Lum::Ptr< TrafficEngineering::Config > te =
      lab.state().entityIs< TrafficEngineering::Config >( "te/config" );
   const Lum::Ptr< Mpls::SegmentRouting::Status > isis = Lum::cast< Mpls::SegmentRouting::Status >(
      lab.state().entity( "segmentrouting/isis/default" ) );
   const Routing::Isis::SystemId identity = isis->systemId();
   std::map< std::string, Lum::Ptr< Cspf::Client > > entries;
   bool isManaged = false;
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
   for ( unsigned seed = 1; seed <= seedsOf( 150 ) && !HasFailure(); ++seed ) {
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
         const unsigned kind = engine() % ( patching ? 12 : 14 );
         if ( kind < 5 && config ) {
            config->pathConfigIs( request( name, engine ) );
         } else if ( kind < 8 && config && config->pathConfigs() > 0 ) {
            const auto & requests = config->pathConfigColl();
            const auto any = std::next( requests.begin(), engine() % requests.size() );
            config->pathConfigDel( Cspf::PathKey( any->first ) );
         } else if ( kind < 12 ) {
            watched.turn( engine() % Watched::switches, name, engine() % 2 == 0 );
         } else {
            const char * id = engine() % 2 ? "10.0.0.77" : "10.0.0.2";
            const char * const names[] = { "A-B", "A-C", "B-C" };
            const Json links{ { names[ engine() % 3 ], { { "up", engine() % 2 == 0 } } } };
            const Json routers{ { "B", { { "teRouterId", id } } } };
            patch( { { "topologies",
                       { { "core", { { "routers", routers }, { "links", links } } } } } } );
         }
      };
      const auto restore = [ & ] {
         for ( const std::string & name : clients ) {
            for ( unsigned which = 0; which < Watched::switches; ++which ) {
               watched.turn( which, name, which != 2 && which != 3 );
            }
         }
      };
      for ( int round = 0; round < 4; ++round ) {
         restore();
         const auto answering = Lum::make< Answering >( lab, [ & ] {
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
         watched.isAsWanted();
      }
      answers = 0;
      restore();
      for ( const std::string & name : clients ) {
         watched.config( name )->pathConfigDelAll();
      }
      watched.repairOnce();
      watched.isAsWanted();
      watched.isEmpty();
      EXPECT_EQ( left( before ), Census() );
   }
}

/// At one notification of its end the service is switched off another way, then on; or at one of
/// its beginning.
TEST( Reentry, AServiceMayBeAskedForAgainInsideOfItsEndAndEndedInsideOfItsBeginning ) {
   Watched watched;
   TestLab & lab = watched.lab;
   std::mt19937 engine( 1 );
   for ( const std::string & name : clients ) {
      for ( unsigned id = 0; id < 5; ++id ) {
         watched.config( name )->pathConfigIs( request( name, engine ) );
      }
      for ( unsigned which = 0; which < Watched::switches; ++which ) {
         watched.turn( which, name, true );
      }
   }
   lab.settle();
   watched.isAsWanted();
   unsigned awaited = 0;
   std::function< void() > answer;
   const auto answering = Lum::make< Answering >( lab, [ & ] {
      if ( awaited > 0 && --awaited == 0 ) {
         answer();
      }
   } );
   std::size_t answers = 0;
   for ( unsigned trial = 0; trial < 3 * 7 * 7 * 4 && !HasFailure(); ++trial ) {
      const std::string & name = clients[ trial % 3 ];
      const unsigned first = trial / 3 % 7, second = trial / 21 % 7;
      const bool isBeginning = trial / 147 % 2 == 0, isBack = trial / 294 == 0;
      SCOPED_TRACE( ( isBeginning ? "beginning " : "end " ) + std::string( isBack ? "back " : "" )
                    + name + ", switches " + std::to_string( first ) + " and "
                    + std::to_string( second ) );
      answer = [ & ] {
         ++answers;
         watched.turn( second, name, false );
         watched.turn( second, name, isBack );
         watched.turn( first, name, true );
      };
      for ( unsigned nth = 1; awaited == 0 && !HasFailure(); ++nth ) {
         SCOPED_TRACE( "notification " + std::to_string( nth ) );
         lab.slicesOf( ( trial + nth ) % 2 ? 400 : 1 );
         awaited = isBeginning ? 0 : nth;
         watched.turn( first, name, false );
         if ( isBeginning ) {
            lab.settle();
            awaited = nth;
            watched.turn( first, name, true );
         }
         lab.settle();
         watched.isAsWanted();
         watched.turn( first, name, true );
         watched.turn( second, name, true );
         lab.settle();
         watched.isAsWanted();
      }
      awaited = 0;
   }
   EXPECT_GT( answers, 1000u );
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
   const auto answering = Lum::make< Answering >( watched.lab, [ & ] {
      read = true;
      config->pathConfigDel( refused.pathKey() );
   } );
   config->pathConfigIs( refused );
   watched.lab.settle();
   EXPECT_TRUE( read );
   watched.isEmpty();
}

/// What it held, or was published for it, is no ground for what is asked for now.
TEST( Reentry, APathMayBeAskedForAnewWhileItIsWithdrawn ) {
   for ( const char * client : { "cli", "rsvp" } ) {
      SCOPED_TRACE( client );
      Watched watched;
      const auto config = watched.config( client );
      const auto ask = [ & ]( std::uint64_t bandwidth, std::uint32_t adminGroup,
                              std::uint32_t priority = 0 ) {
         Cspf::PathConfig request;
         request.pathKeyIs( { Cspf::Destination( Cspf::ip( "10.0.0.3" ) ), 7 } );
         request.refreshReqSeqIs( config->pathConfigs() );
         Cspf::PathConstraint constraint;
         constraint.bandwidthIs( bandwidth );
         constraint.excludeAdminGroupIs( adminGroup );
         constraint.bwSetupPriorityIs( priority );
         request.constraintIs( constraint );
         config->pathConfigIs( request );
         return request.pathKey();
      };
      const Cspf::PathKey key = ask( 100, 0 );
      watched.lab.settle();
      const auto status = watched.lab.statusTable( client );
      ASSERT_EQ( status->pathStatus( key ).paths(), 2u );
      bool isAsked = false;
      {
         const auto answering = Lum::make< Answering >( watched.lab, [ & ] {
            if ( !std::exchange( isAsked, true ) ) {
               ask( 1'000'000, 0 );
            }
         } );
         config->pathConfigDel( key );
      }
      EXPECT_TRUE( isAsked );
      watched.lab.settle();
      EXPECT_EQ( status->pathStatus( key ).paths(), 0u );
      EXPECT_EQ( status->pathError( key ), "no path found for tep 10.0.0.3" );
      ask( 50, 1 );
      watched.lab.settle();
      EXPECT_EQ( status->pathStatus( key ).paths(), 2u );
      EXPECT_EQ( status->pathError( key ), "" );
      {
         const auto answering = Lum::make< Answering >( watched.lab, [ & ] {
            if ( !config->pathConfigHas( key ) && !status->pathStatusHas( key ) ) {
               ask( 50, 0, 9 );
            }
         } );
         config->pathConfigDel( key );
      }
      watched.lab.settle();
      ASSERT_TRUE( config->pathConfigHas( key ) );
      EXPECT_NE( status->pathError( key ), "" );
      config->pathConfigDel( key );
      watched.lab.settle();
      watched.isEmpty();
   }
}

/// At each moment of the next agent's beginning.
TEST( Reentry, AClientMayNeedLessBeforeItIsServedByTheNextAgent ) {
   Watched watched;
   const auto interfaces = Lum::cast< Interface::AllEthPhyIntfStatusDir >(
      watched.lab.state().entity( "interface/status/eth/phy/all" ) );
   unsigned awaited = 0;
   const auto answering = Lum::make< Answering >( watched.lab, [ & ] {
      if ( awaited > 0 && --awaited == 0 ) {
         watched.turn( 3, "rsvp", false );
      }
   } );
   unsigned nth = 0;
   while ( awaited == 0 && !HasFailure() ) {
      SCOPED_TRACE( "notification " + std::to_string( ++nth ) );
      for ( const std::string & name : clients ) {
         watched.turn( 3, name, true );
      }
      watched.lab.settle();
      awaited = nth;
      watched.lab.restart();
      interfaces->bandwidthIs( Kivnet::IntfId( "A-B.a" ), 1000 + nth );
      watched.lab.settle();
      watched.isAsWanted();
   }
   EXPECT_GT( nth, 5u );
}
