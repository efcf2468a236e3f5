// JSON of state: every type survives the way there and back, merge patches mean what RFC 7396
// says (nlohmann's own implementation, on the documents alone, is the judge), watchers hear of
// what changed and of nothing else, and a bad patch names its place and changes nothing.

#include "tests/RandomValue.h"
#include "tools/state/StateTypes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using State::Json;

/// A random patch: some of `source`'s members, merged or whole, and null for some entries of the
/// collections of `target`: objects just below the entity, `depth` 1.
Json
randomPatch( const Json & source, const Json & target, RandomValue & random, int depth = 0 ) {
   Json patch = Json::object();
   for ( const auto & [ name, value ] : source.items() ) {
      if ( random.below( 2 ) ) {
         const bool both = value.is_object() && target.contains( name );
         patch[ name ] = both && target[ name ].is_object()
                            ? randomPatch( value, target[ name ], random, depth + 1 )
                            : value;
      }
   }
   for ( const auto & [ name, value ] : target.items() ) {
      if ( depth == 1 && random.below( 3 ) == 0 ) {
         patch[ name ] = nullptr;
      }
   }
   return patch;
}

/// The document without members that are null: an absent optional, which a patch removes.
Json
withoutNulls( Json json ) {
   for ( auto member = json.begin(); json.is_structured() && member != json.end(); ) {
      *member = withoutNulls( *member );
      member = json.is_object() && member->is_null() ? json.erase( member ) : std::next( member );
   }
   return json;
}

template< class Member >
inline constexpr bool hasChildren = false;
template< class Member >
   requires Lum::isPtr< typename Member::mapped_type >
inline constexpr bool hasChildren< Member > = true;

template< class E >
void
roundTrip( unsigned seed ) {
   SCOPED_TRACE( std::string( E::lumTypeName ) + ", seed " + std::to_string( seed ) );
   RandomValue random( seed );
   Lum::Ptr< E > first( new E ), second( new E );
   random.fillEntity( *first );
   random.fillEntity( *second );
   const Json json = State::toJson( *first );

   const auto copy = State::makeEntity( E::lumTypeName );
   ASSERT_TRUE( copy );
   State::merge( *copy, Json::parse( json.dump() ) );
   EXPECT_EQ( State::toJson( *copy ), json );
   Lum::forEachField( *first, [ & ]( auto & field, const auto & value ) {
      using Member = std::remove_cvref_t< decltype( value ) >;
      const auto & other = static_cast< E & >( *copy ).*( field.member );
      if constexpr ( hasChildren< Member > ) {
         EXPECT_EQ( value.size(), other.size() ) << field.name;
      } else {
         EXPECT_TRUE( value == other ) << field.name;
      }
   } );

   const Json other = State::toJson( *second );
   const Json patch = randomPatch( other, json, random );
   Json expected = json;
   expected.merge_patch( patch );
   State::merge( *first, patch );
   EXPECT_EQ( withoutNulls( State::toJson( *first ) ), withoutNulls( expected ) )
      << patch.dump( 1 );
}

TEST( JsonCodecTest, everyTypeComesBackAndTakesPatches ) {
   Schema::forEachEntityType( []< class E >( Schema::Is< E > ) {
      for ( unsigned seed = 1; seed <= 60; ++seed ) {
         roundTrip< E >( seed );
      }
   } );
}

class Listener : public Lum::Reactor {
 public:
   const char * typeName() const override { return "Listener"; }
   explicit Listener( Lum::Ptr< Cspf::Client > client ) : client_( client ) {
      LUM_WATCH_KEYS( client_, vrf, handleVrf );
      LUM_WATCH( client_, bwmRequired, handleBwmRequired );
   }
   std::vector< std::string > heard;

 private:
   void handleVrf( const L3::VrfName & vrf ) { heard.push_back( vrf.stringValue() ); }
   void handleBwmRequired() { heard.push_back( "bwmRequired" ); }
   Lum::Ptr< Cspf::Client > client_;
};

TEST( JsonCodecTest, watchersHearOfWhatChangedOnly ) {
   Lum::Ptr< Cspf::Client > client( new Cspf::Client );
   State::merge( *client, { { "vrf", { { "red", true }, { "blue", true }, { "old", false } } } } );
   Lum::Ptr< Listener > listener( new Listener( client ) );

   State::merge( *client, State::toJson( *client ) );
   EXPECT_EQ( listener->heard, std::vector< std::string >() );

   State::merge( *client, { { "vrf", { { "red", true }, { "blue", false }, { "old", nullptr } } },
                            { "bwmRequired", true } } );
   EXPECT_EQ( listener->heard, ( std::vector< std::string >{ "bwmRequired", "blue", "old" } ) );
}

TEST( JsonCodecTest, nullGivesTheDefaultOfTheType ) {
   Lum::Ptr< Cspf::CspfCliConfig > throttle( new Cspf::CspfCliConfig );
   throttle->initialIntIs( 7 );
   State::merge( *throttle, { { "initialInt", nullptr } } );
   EXPECT_EQ( throttle->initialInt(), 50u );
}

TEST( JsonCodecTest, newEntriesKnowTheirKey ) {
   Lum::Ptr< Cspf::Config > config( new Cspf::Config );
   State::merge( *config,
                 Json::parse( R"({"pathConfig": {"10.0.0.4#7": {"autoUpdate": true}}})" ) );
   ASSERT_EQ( config->pathConfigs(), 1u );
   const auto & [ key, path ] = *config->pathConfigColl().begin();
   EXPECT_EQ( key.dst().stringValue(), "10.0.0.4" );
   EXPECT_EQ( key.id(), 7u );
   EXPECT_EQ( path.pathKey(), key );
   EXPECT_TRUE( path.autoUpdate() );
}

/// What merging the patch into an entity of the type says is wrong, and where.
std::string
complaint( const char * typeName, const std::string & patch ) {
   const auto entity = State::makeEntity( typeName );
   const Json before = State::toJson( *entity );
   try {
      State::merge( *entity, Json::parse( patch ) );
   } catch ( const State::Error & error ) {
      EXPECT_EQ( State::toJson( *entity ), before ) << "a bad patch changed the entity";
      return error.what();
   }
   return "";
}

TEST( JsonCodecTest, badPatchesNameTheirPlaceAndChangeNothing ) {
   EXPECT_EQ( complaint( "Cspf::Client", R"({"bwmRequired": true, "vrf": {"red": 1}})" ),
              "/vrf/red: expected true or false" );
   EXPECT_EQ( complaint( "Cspf::Client", R"({"vrfs": {}})" ),
              "/vrfs: expected a field of Cspf::Client" );
   EXPECT_EQ( complaint( "Cspf::Client", R"({"addressFamily": {"ipv5": true}})" ),
              "/addressFamily/ipv5: expected as key, one of \"\", \"ipv4\", \"ipv6\"" );
   EXPECT_EQ( complaint( "Cspf::CspfCliConfig", R"({"initialInt": 1, "maxInt": 4294967296})" ),
              "/maxInt: expected a number from 0 to 4294967295" );
   EXPECT_EQ(
      complaint( "TrafficEngineering::Config", R"({"intfSrlg": {"Ethernet1/1": [1, -1]}})" ),
      "/intfSrlg/Ethernet1~11/1: expected a number from 0 to 4294967295" );
   for ( const char * name : { "", "a/b", "a\\u001b[2J", "a\\u007f" } ) {
      for ( const char * type : { "Cspf::Client", "TrafficEngineering::BwmActiveStatus" } ) {
         const std::string vrfs = type[ 0 ] == 'C' ? "vrf" : "bwmActive";
         EXPECT_THAT(
            complaint( type, "{\"" + vrfs + "\": {\"" + name + "\": true}}" ),
            testing::HasSubstr( ": expected as key, a name of 1 to 100 bytes without \"/\" and "
                                "control characters" ) );
      }
   }
   for ( const char * key :
         { "10.0.0.4", "10.0.0.4#", "10.0.0.4#-1", "10.0.0.4#4294967296", "x#1", "" } ) {
      EXPECT_EQ(
         complaint( "Cspf::Config", R"({"pathConfig": {")" + std::string( key ) + R"(": {}}})" ),
         "/pathConfig/" + std::string( key ) + ": expected as key, a path such as \"10.0.0.4#1\"" );
   }
   for ( const char * key : { "0000.0000.0001 p2p 0000.0000.0002", "0000.0000.0001 p2p#1",
                              "0000.0000.0001 bus 0000.0000.0002#1", "p2p 0000.0000.0002#1" } ) {
      EXPECT_EQ( complaint( "Routing::Topology::TopoDb",
                            R"({"neighbor": {")" + std::string( key ) + R"(": {}}})" ),
                 "/neighbor/" + std::string( key )
                    + ": expected as key, a link such as \"0000.0000.0001 p2p 0000.0000.0002#1\"" );
   }
   EXPECT_EQ( complaint( "IsisExportImpl::IsisAdjacencyInfo",
                         R"({"adjacency": [{"key": {}, "value": {}}, {"key": {}, "value": {}}]})" ),
              "/adjacency/1/key: expected a key that is not there yet" );
   EXPECT_EQ( complaint( "Lum::Dir", R"({"entity": {"x": {"type": "No::Such", "value": {}}}})" ),
              "/entity/x/type: expected the name of a state type" );
   EXPECT_EQ( complaint( "Lum::Dir", R"({"entity": {"x": {"type": "Cspf::Client", "vrf": {}}}})" ),
              "/entity/x/vrf: expected \"type\" or \"value\", as in "
              "{\"type\": \"Cspf::Client\", \"value\": {}}" );
   for ( const auto & [ type, patch, place ] : std::vector< std::array< const char *, 3 > >{
            { "Cspf::Config", R"({"pathConfig": {"10.0.0.4#1": {"pathKey": "10.0.0.4#2"}}})",
              "/pathConfig/10.0.0.4#1/pathKey" },
            { "Routing::Topology::TopoDb",
              R"({"router": {"0000.0000.0001": {"id": "0000.0000.0002"}}})",
              "/router/0000.0000.0001/id" } } ) {
      EXPECT_EQ( complaint( type, patch ),
                 place + std::string( ": expected the key that the entry stands under" ) );
   }
   const std::string seventeen( "[1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17]" );
   EXPECT_EQ( complaint( "Cspf::Status", R"({"pathStatus": {"10.0.0.4#1":
                                            {"pathSrlg": [{"srlg": )"
                                            + seventeen + "}]}}}" ),
              "/pathStatus/10.0.0.4#1/pathSrlg/0/srlg/16: expected an array of at most 16" );
}

}
