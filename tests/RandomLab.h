#pragma once

#include <nlohmann/json.hpp>

#include <random>
#include <string>
#include <vector>

/// Small random labs of every feature of ordinary IPv4 paths, and random events on them. The agent
/// runs on "R0". Client "cli" asks for paths that are always the best; client "rsvp" for paths that
/// are kept while they are valid.
class RandomLab {
 public:
   using Json = nlohmann::json;
   /// What there is besides: loose hops in some paths; or strict ones as well, bandwidth (enough
   /// for all, or for none), IPv6, repairs for "tilfa", and what is refused, where no two ways cost
   /// the same.
   enum class Kind { plain, withHops, everything };

   explicit RandomLab( unsigned seed, Kind kind = Kind::plain );

   /// A random document, the same for the same seed.
   Json document();
   /// A random merge patch on `document`. It may break the rules of a lab (a name that a constraint
   /// still uses, say): such a one is to be passed over.
   Json event( const Json & document );

   unsigned below( unsigned n ) { return static_cast< unsigned >( engine_() % n ); }
   bool oneIn( unsigned n ) { return below( n ) == 0; }

 private:
   std::string router() { return "R" + std::to_string( below( routers_ ) ); }
   std::string address();
   bool hasEverything() const { return kind_ == Kind::everything; }
   Json attributes();
   Json link( const std::string & a, const std::string & b );
   Json lan( const Json & routers );
   Json routerIn( bool isis, unsigned n );
   Json topology( unsigned kind );
   void shareLinks( const Json & topology, Json & other );
   Json path( const Json & document );
   Json constraint( const Json & document, const std::string & vrf );
   Json anothersConstraint( const Json & document, const std::string & vrf );
   void addHops( Json & constraint );
   void addRest( Json & constraint );
   Json repair( const Json & document );
   Json request( const Json & document, const std::string & client );
   Json served();
   Json topologyEvent( const Json & topology );
   Json linkEvent( const Json & link );
   Json clientEvent( const Json & document );
   Json configurationEvent( const Json & document );
   std::vector< std::string > localInterfaces( const Json & document ) const;
   std::string keyOf( const Json & object );

   std::mt19937 engine_;
   const Kind kind_;
   unsigned routers_ = 0;
   unsigned addresses_ = 0;
   unsigned paths_ = 0;
};
