// What is asked for and published, side by side, and who judges which.

#include "tools/prove/Proof.h"

#include "platform/Lum/Dir.h"
#include "tools/prove/Answers.h"

#include <map>
#include <tuple>

namespace Prove {

std::string
Answer::name() const {
   return key.dst().stringValue() + "#" + std::to_string( key.id() );
}

namespace {

/// "default/ipv4/rsvp", where the VRF may hold anything.
struct Place {
   Vrf vrf;
   Af af;
   std::string client;

   explicit Place( const std::string & rest ) {
      const auto last = rest.rfind( '/' ), middle = rest.rfind( '/', last - 1 );
      client = rest.substr( last + 1 );
      af = rest.substr( middle + 1, last - middle - 1 ) == "ipv6" ? Af::ipv6 : Af::ipv4;
      vrf = Vrf( rest.substr( 0, middle ) );
   }
};

bool
isServed( const Snapshot & state, const Place & place ) {
   const auto clients = state.get< Lum::Dir >( "te/cspf/client" );
   const auto client =
      clients ? Lum::cast< Cspf::Client >( clients->entity( place.client ) ) : nullptr;
   return client && client->vrf( place.vrf ) && client->addressFamily( place.af );
}

}

std::vector< Service >
servicesOf( const Snapshot & state ) {
   std::map< std::pair< Vrf, Af >, std::map< std::pair< std::string, Cspf::PathKey >, Answer > >
      found;
   const auto answer = [ & ]( const Place & place, const Cspf::PathKey & key ) -> Answer & {
      Answer & one = found[ { place.vrf, place.af } ][ { place.client, key } ];
      one.client = place.client;
      one.key = key;
      return one;
   };
   state.each< Cspf::Config >( "te/cspf/config/vrf/",
                               [ & ]( const std::string & rest, const Cspf::Config & config ) {
                                  const Place place( rest );
                                  const bool served = isServed( state, place );
                                  for ( const auto & [ key, asked ] : config.pathConfigColl() ) {
                                     Answer & one = answer( place, key );
                                     one.config = &asked;
                                     one.served = served;
                                  }
                               } );
   state.each< Cspf::Status >(
      "te/cspf/status/vrf/", [ & ]( const std::string & rest, const Cspf::Status & status ) {
         const Place place( rest );
         for ( const auto & [ key, published ] : status.pathStatusColl() ) {
            answer( place, key ).status = &published;
         }
         for ( const auto & [ key, reason ] : status.pathErrorColl() ) {
            answer( place, key ).error = reason;
         }
      } );
   std::vector< Service > services;
   for ( auto & [ where, answers ] : found ) {
      Service & service = services.emplace_back( Service{ where.first, where.second, {} } );
      for ( auto & [ key, one ] : answers ) {
         service.answers.push_back( std::move( one ) );
      }
   }
   return services;
}

Verdict
prove( const Snapshot & state ) {
   Verdict verdict;
   for ( const Service & service : servicesOf( state ) ) {
      provePaths( state, service, verdict );
      proveRepairs( state, service, verdict );
   }
   return verdict;
}

}
