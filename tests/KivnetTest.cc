// Addresses, prefixes and names as texts and as keys. The canonical IPv6 form is compared with a
// second implementation that follows RFC 5952 sentence by sentence.

#include "platform/Kivnet/IntfId.h"
#include "platform/Kivnet/IpGenPrefix.h"
#include "platform/Kivnet/VrfName.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <sstream>

using namespace Kivnet;

namespace {

using Words = std::array< unsigned, 8 >;

Ip6Addr
addressOf( const Words & words ) {
   Ip6Addr::Bytes bytes;
   for ( std::size_t i = 0; i < 8; ++i ) {
      bytes[ 2 * i ] = static_cast< std::uint8_t >( words[ i ] >> 8 );
      bytes[ 2 * i + 1 ] = static_cast< std::uint8_t >( words[ i ] );
   }
   return Ip6Addr( bytes );
}

/// Random words with runs of zeros, which is where the text form is difficult.
Words
randomWords( std::mt19937 & random ) {
   Words words;
   const unsigned zeros = random() % 256;
   for ( std::size_t i = 0; i < 8; ++i ) {
      words[ i ] = zeros >> i & 1 ? 0 : random() >> random() % 16 & 0xffff;
   }
   return words;
}

std::string
dotted( const Words & w ) {
   std::ostringstream text;
   text << ( w[ 6 ] >> 8 ) << '.' << ( w[ 6 ] & 255 ) << '.' << ( w[ 7 ] >> 8 ) << '.'
        << ( w[ 7 ] & 255 );
   return text.str();
}

/// RFC 5952, section 4: the longest run of two or more zero words, the first among equals, is "::".
std::string
canonical( const Words & words ) {
   std::size_t begin = 8;
   std::size_t longest = 1;
   for ( std::size_t i = 0; i < 8; ++i ) {
      const auto end = std::find_if( words.begin() + i, words.end(), []( auto w ) { return w; } );
      const auto run = static_cast< std::size_t >( end - ( words.begin() + i ) );
      if ( run > longest ) {
         begin = i;
         longest = run;
      }
   }
   std::ostringstream text;
   text << std::hex;
   for ( std::size_t i = 0; i < 8; ++i ) {
      if ( i == begin ) {
         text << "::";
         i += longest - 1;
      } else {
         text << ( i == 0 || i == begin + longest ? "" : ":" ) << words[ i ];
      }
   }
   return text.str();
}

/// One of the many ways to write the same address.
std::string
someForm( const Words & words, std::mt19937 & random ) {
   const bool withDots = random() % 3 == 0;
   std::ostringstream text;
   text << std::hex << ( random() % 2 ? std::uppercase : std::nouppercase );
   for ( std::size_t i = 0; i < ( withDots ? 6 : 8 ); ++i ) {
      text << ( i ? ":" : "" );
      if ( random() % 2 ) {
         text.width( 4 );
         text.fill( '0' );
      }
      text << words[ i ];
   }
   return text.str() + ( withDots ? ":" + dotted( words ) : "" );
}

IpGenAddr
gen( const char * text ) {
   return IpGenAddr::parse( text ).value();
}

}

TEST( Kivnet, ipv4TextNamesOneAddress ) {
   std::mt19937 random( 1 );
   for ( int i = 0; i < 2000; ++i ) {
      const IpAddr address( static_cast< std::uint32_t >( random() ) );
      ASSERT_EQ( IpAddr::parse( address.stringValue() ), address );
   }
   EXPECT_EQ( IpAddr( 0x0a000001 ).stringValue(), "10.0.0.1" );
   EXPECT_TRUE( IpAddr::parse( "0.0.0.0" ) );
   for ( const char * text : { "", "1", "1.2.3", "1.2.3.4.5", "1.2.3.256", "01.2.3.4", "1.2.3.04",
                               " 1.2.3.4", "1.2.3.4 ", "1..3.4", "1.2.3.-4", "+1.2.3.4",
                               "0x1.2.3.4", "1.2.3.4/32", "1,2,3,4", "1.2.3.4000000000" } ) {
      EXPECT_FALSE( IpAddr::parse( text ) ) << text;
   }
   EXPECT_FALSE( IpAddr::parse( std::string_view( "1.2.3.4\0", 8 ) ) );
}

TEST( Kivnet, everyFormOfAnIpv6AddressReadsAndPrintsCanonically ) {
   std::mt19937 random( 2 );
   for ( int i = 0; i < 5000; ++i ) {
      const Words words = randomWords( random );
      const Ip6Addr address = addressOf( words );
      ASSERT_EQ( address.stringValue(), canonical( words ) );
      ASSERT_EQ( Ip6Addr::parse( address.stringValue() ), address );
      const std::string form = someForm( words, random );
      ASSERT_EQ( Ip6Addr::parse( form ), address ) << form;
   }
   EXPECT_EQ( gen( "::ffff:1.2.3.4" ).stringValue(), "::ffff:1.2.3.4" ) << "IPv4-mapped keeps dots";
   EXPECT_EQ( gen( "::1.2.3.4" ).stringValue(), "::102:304" );
   for ( const char * text :
         { ":", ":::", "1", "1::2::3", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9",
           "12345::", "g::", "::1%eth0", " ::1", "::1 ", "1:2:3:4:5:6:7::8:9", "::1.2.3",
           "::1.2.3.256", "1.2.3.4::", ":1:2:3:4:5:6:7", "[::1]" } ) {
      EXPECT_FALSE( IpGenAddr::parse( text ) ) << text;
   }
}

TEST( Kivnet, eitherFamilyIsOneOrderedKey ) {
   const std::vector< IpGenAddr > ordered{ {},
                                           gen( "0.0.0.0" ),
                                           gen( "9.255.255.255" ),
                                           gen( "10.0.0.1" ),
                                           gen( "224.0.0.1" ),
                                           gen( "::" ),
                                           gen( "::1" ),
                                           gen( "a00:1::" ),
                                           gen( "2001:db8::1" ) };
   for ( std::size_t i = 0; i < ordered.size(); ++i ) {
      for ( std::size_t j = 0; j < ordered.size(); ++j ) {
         EXPECT_EQ( ordered[ i ] <=> ordered[ j ], i <=> j ) << i << " " << j;
         EXPECT_EQ( ordered[ i ].hash() == ordered[ j ].hash(), i == j ) << i << " " << j;
      }
   }
   EXPECT_EQ( IpGenAddr().stringValue(), "" );
   EXPECT_FALSE( IpGenAddr() || gen( "0.0.0.0" ) || gen( "::" ) );
}

TEST( Kivnet, hashesOfNeighbouringAddressesSpread ) {
   std::vector< unsigned > load( 3 * 1024 );
   for ( std::uint32_t i = 0; i < 8192; ++i ) {
      const IpAddr v4( 0x0a000000 + i * 4 );
      ++load[ v4.hash() % 1024 ];
      ++load[ 1024 + IpGenAddr( v4 ).hash() % 1024 ];
      ++load[ 2048 + addressOf( { 0x2001, 0xdb8, 0, 0, 0, 0, i, 1 } ).hash() % 1024 ];
   }
   EXPECT_LT( std::ranges::max( load ), 64u );
}

TEST( Kivnet, prefixHoldsTheAddressesThatShareItsBits ) {
   std::mt19937 random( 3 );
   for ( int i = 0; i < 3000; ++i ) {
      const bool v6 = random() % 2;
      const auto draw = [ & ]() -> IpGenAddr {
         return v6 ? IpGenAddr( addressOf( randomWords( random ) ) )
                   : IpGenAddr( IpAddr( static_cast< std::uint32_t >( random() ) ) );
      };
      const unsigned bits = v6 ? 128 : 32;
      const IpGenAddr inside = draw();
      const auto length = static_cast< std::uint8_t >( random() % ( bits + 1 ) );
      Ip6Addr::Bytes bytes = inside.v6().bytes();
      bytes[ random() % ( bits / 8 ) ] ^= static_cast< std::uint8_t >( 1u << random() % 8 );
      const IpGenAddr other =
         v6 ? IpGenAddr( Ip6Addr( bytes ) ) : IpGenAddr( IpAddr::fromBytes( bytes.data() ) );
      unsigned shared = 0;
      const auto bit = []( const IpGenAddr & a, unsigned n ) {
         return a.v6().bytes()[ n / 8 ] >> ( 7 - n % 8 ) & 1;
      };
      while ( shared < bits && bit( inside, shared ) == bit( other, shared ) ) {
         ++shared;
      }
      const IpGenPrefix prefix( inside, length );
      ASSERT_TRUE( prefix.contains( inside ) ) << prefix.stringValue();
      ASSERT_EQ( prefix.contains( other ), shared >= length ) << prefix.stringValue();
      ASSERT_EQ( prefix.isHost(), length == bits );
      ASSERT_EQ( IpGenPrefix::parse( prefix.stringValue() ), prefix ) << prefix.stringValue();
   }
   EXPECT_FALSE( IpGenPrefix::parse( "0.0.0.0/0" )->contains( gen( "::" ) ) );
   EXPECT_FALSE( IpGenPrefix().contains( {} ) );
   EXPECT_EQ( IpGenPrefix::host( gen( "::1" ) ).stringValue(), "::1/128" );
}

TEST( Kivnet, prefixTextIsStrict ) {
   EXPECT_EQ( IpGenPrefix::parse( "10.0.0.0/8" )->stringValue(), "10.0.0.0/8" );
   for ( const char * text : { "", "/", "10.0.0.0", "10.0.0.0/", "10.0.0.0/33", "10.0.0.1/8",
                               "10.0.0.0/08", "10.0.0.0/+8", "10.0.0.0/8 ", "10.0.0.0/8/8", "/8",
                               "::/129", "::1/64", "::/99999999999999999999" } ) {
      EXPECT_FALSE( IpGenPrefix::parse( text ) ) << text;
   }
}

TEST( Kivnet, interfacesAreKnownByName ) {
   const IntfId a( "Ethernet1" );
   EXPECT_EQ( a, IntfId( std::string( "Ethernet" ) + "1" ) );
   EXPECT_EQ( a.stringValue(), "Ethernet1" );
   EXPECT_NE( a, IntfId( "Ethernet2" ) );
   EXPECT_LT( IntfId( "Ethernet10" ), IntfId( "Ethernet9" ) );
   EXPECT_LT( IntfId(), a );
   EXPECT_FALSE( IntfId( "" ) );
}

TEST( Kivnet, vrfNameIsBounded ) {
   EXPECT_EQ( L3::VrfName( std::string( 100, 'x' ) ).stringValue().size(), 100u );
   EXPECT_THAT( [] { L3::VrfName( std::string( 101, 'x' ) ); },
                testing::ThrowsMessage< std::range_error >(
                   "VrfName::value::bytes > VrfName::maxLength not allowed" ) );
}
