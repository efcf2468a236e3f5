// Readers of single values. Each states what it takes in one phrase, and that phrase is what a
// person reads when something else stands there.

#include "tools/lab/LabCursor.h"

#include "tools/text/Bandwidth.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace Lab {

std::string
LabCursor::pointer() const {
   if ( !parent_ ) {
      return {};
   }
   // A key may be empty; a list is known by what the parent holds.
   const bool listed = parent_->value_.as< LabJsonArray >() != nullptr;
   return parent_->pointer() + "/" + ( listed ? std::to_string( index_ ) : pointerToken( key_ ) );
}

void
LabCursor::fail( const std::string & expected ) const {
   fail( expected, value_.inShort() );
}

void
LabCursor::fail( const std::string & expected, const std::string & found ) const {
   throw LabError( pointer(), "expected " + expected + ", found " + found );
}

void
LabCursor::failMissing( std::string_view key, const std::string & expected ) const {
   throw LabError( pointer() + "/" + pointerToken( key ),
                   "expected " + expected + ", found nothing", true );
}

const LabJsonObject &
LabCursor::object() const {
   return orFail( *this, value_.as< LabJsonObject >(), "an object" );
}

const LabJsonArray &
LabCursor::list( const char * expected, std::size_t maxSize ) const {
   const auto * elements = value_.as< LabJsonArray >();
   return orFail( *this, elements && elements->size() <= maxSize ? elements : nullptr, expected );
}

void
failUnknown( const LabCursor & at, std::initializer_list< std::string_view > known ) {
   std::string names;
   for ( const std::string_view name : known ) {
      names.append( names.empty() ? "" : ", " ).append( name );
   }
   at.fail( ( known.size() == 1 ? "the key " : "one of the keys " ) + names,
            LabJson( std::string( at.key() ) ).inShort() );
}

bool
readBool( const LabCursor & at ) {
   return orFail( at, at.value().as< bool >(), "true or false" );
}

std::uint64_t
readNumber( const LabCursor & at, std::uint64_t min, std::uint64_t max ) {
   const auto * value = at.value().as< std::uint64_t >();
   if ( !value || *value < min || *value > max ) {
      at.fail( "a whole number from " + std::to_string( min ) + " to " + std::to_string( max ) );
   }
   return *value;
}

std::uint32_t
readUint32( const LabCursor & at ) {
   return static_cast< std::uint32_t >(
      readNumber( at, 0, std::numeric_limits< std::uint32_t >::max() ) );
}

namespace {

/// A number, whole or not, from 0 to `max`; nothing else.
std::optional< double >
number( const LabJson & json, double max ) {
   double value = -1;
   if ( const auto * whole = json.as< std::uint64_t >() ) {
      value = static_cast< double >( *whole );
   } else if ( const auto * real = json.as< LabJsonReal >() ) {
      value = real->value;
   }
   return value >= 0 && value <= max ? std::optional( value ) : std::nullopt;
}

}

double
readSeconds( const LabCursor & at ) {
   return orFail( at, number( at.value(), 1e9 ), "seconds, from 0 to 1000000000" );
}

namespace {

std::optional< std::uint64_t >
bandwidthInText( const LabJson & json ) {
   const auto * text = json.as< std::string >();
   return text ? Text::parseBandwidth( *text ) : std::nullopt;
}

}

float
readBandwidth( const LabCursor & at ) {
   if ( const auto inText = bandwidthInText( at.value() ) ) {
      return static_cast< float >( *inText );
   }
   return static_cast< float >(
      orFail( at, number( at.value(), std::numeric_limits< float >::max() ),
              "bytes per second, from 0 to 3.4e38, or bits per second such as \"10G\"" ) );
}

std::uint64_t
readWholeBandwidth( const LabCursor & at ) {
   const auto inText = bandwidthInText( at.value() );
   const auto * whole = at.value().as< std::uint64_t >();
   return orFail( at, whole ? std::optional( *whole ) : inText,
                  "bytes per second, a whole number of 64 bits, or bits per second such as "
                  "\"400M\"" );
}

LabPlace
readPlace( const LabCursor & at ) {
   constexpr const char * expected = "two numbers from -1e6 to 1e6, to the right and up";
   double numbers[ 2 ];
   const LabJsonArray & list = at.list( expected, 2 );
   if ( list.size() != 2 ) {
      at.fail( expected );
   }
   for ( std::size_t i = 0; i < 2; ++i ) {
      const auto * negative = list[ i ].as< std::int64_t >();
      const auto * real = list[ i ].as< LabJsonReal >();
      numbers[ i ] = negative ? static_cast< double >( *negative )
                     : real   ? real->value
                              : orFail( at, number( list[ i ], 1e6 ), expected );
      if ( !( std::abs( numbers[ i ] ) <= 1e6 ) ) {
         at.fail( expected );
      }
   }
   return { numbers[ 0 ], numbers[ 1 ] };
}

std::uint32_t
readMask( const LabCursor & at ) {
   if ( const auto * text = at.value().as< std::string >(); text && text->starts_with( "0x" ) ) {
      std::uint32_t mask = 0;
      const char * const end = text->data() + text->size();
      const auto [ stop, error ] = std::from_chars( text->data() + 2, end, mask, 16 );
      if ( error == std::errc() && stop == end && text->size() <= 10 ) {
         return mask;
      }
   } else if ( const auto * value = at.value().as< std::uint64_t >();
               value && *value <= std::numeric_limits< std::uint32_t >::max() ) {
      return static_cast< std::uint32_t >( *value );
   }
   at.fail( "a 32-bit mask, a whole number or a text such as \"0x1f\"" );
}

const std::string &
readText( const LabCursor & at, const char * expected ) {
   return orFail( at, at.value().as< std::string >(), expected );
}

Kivnet::IntfId
readIntf( const LabCursor & at ) {
   const auto * name = at.value().as< std::string >();
   return std::string_view(
      orFail( at, name && !name->empty() ? name : nullptr, "an interface name" ) );
}

Kivnet::IpAddr
readIpv4( const LabCursor & at ) {
   return parsed( at, Kivnet::IpAddr::parse, "an IPv4 address" );
}

Kivnet::IpGenAddr
readAddress( const LabCursor & at, Af af ) {
   const char * const expected = af == Af::ipv4   ? "an IPv4 address"
                                 : af == Af::ipv6 ? "an IPv6 address"
                                                  : "an address";
   const auto address = parsed( at, Kivnet::IpGenAddr::parse, expected );
   if ( af != Af::unspecified && address.af() != af ) {
      at.fail( expected );
   }
   return address;
}

Af
readFamily( const LabCursor & at ) {
   return parsed( at, Kivnet::addressFamilyParse, "\"ipv4\" or \"ipv6\"" );
}

Srlgs
readSrlgs( const LabCursor & at ) {
   Srlgs srlgs;
   forEachElement( at, at.list( "a list of at most 16 SRLG ids", Cspf::SrlgIndex::max + 1u ),
                   [ & ]( const LabCursor & id ) { srlgs.push_back( readUint32( id ) ); } );
   return srlgs;
}

Routing::Isis::SystemId
readSystemId( const LabCursor & at ) {
   return parsed( at, Routing::Isis::SystemId::parse,
                  "an IS-IS system id such as \"0000.0000.0001\"" );
}

const std::string &
checkPathName( const LabCursor & at, const std::string & name, const std::string & expected ) {
   if ( !Vrf::isName( name ) ) {
      at.fail( expected + " of 1 to " + std::to_string( Vrf::maxLength )
                  + " bytes without \"/\" and control characters",
               LabJson( name ).inShort() );
   }
   return name;
}

Vrf
readVrf( const LabCursor & at ) {
   return checkPathName( at, readText( at, "a VRF name" ), "a VRF name" );
}

}
