#include "tools/igp/CaptureText.h"

#include <algorithm>
#include <charconv>

namespace Igp {

namespace {

constexpr std::string_view blanks = " \t\r";

std::string_view
trimmed( std::string_view text ) {
   const auto first = text.find_first_not_of( blanks );
   return first == text.npos ? std::string_view()
                             : text.substr( first, text.find_last_not_of( blanks ) - first + 1 );
}

/// Printable and short enough for one line of an error.
std::string
quoted( std::string_view text ) {
   constexpr std::size_t most = 60;
   std::string shown( text.substr( 0, most ) );
   std::ranges::replace_if(
      shown, []( unsigned char c ) { return c < ' ' || c > '~'; }, '?' );
   return "\"" + shown + ( text.size() > most ? "..." : "" ) + "\"";
}

}

bool
CaptureLines::next() {
   if ( rest_.empty() ) {
      return false;
   }
   const auto end = rest_.find( '\n' );
   const std::string_view whole = rest_.substr( 0, end );
   rest_ = end == rest_.npos ? std::string_view() : rest_.substr( end + 1 );
   line_ = trimmed( whole );
   indent_ = line_.empty() ? 0 : static_cast< std::size_t >( line_.data() - whole.data() );
   ++number_;
   return true;
}

std::optional< std::string_view >
CaptureLines::after( std::string_view label ) const {
   if ( !startsWith( label ) ) {
      return std::nullopt;
   }
   return trimmed( line_.substr( label.size() ) );
}

void
CaptureLines::fail( std::string_view expected, std::string_view found ) const {
   throw CaptureError( name_ + ":" + std::to_string( number_ ) + ": expected "
                       + std::string( expected ) + ", found " + quoted( found ) );
}

std::uint32_t
CaptureLines::number( std::string_view word, int base ) const {
   std::uint32_t value = 0;
   const auto [ end, error ] = std::from_chars( word.begin(), word.end(), value, base );
   if ( error != std::errc() || end != word.end() ) {
      fail( "a number of at most 32 bits", word );
   }
   return value;
}

std::uint32_t
CaptureLines::mask( std::string_view word ) const {
   if ( !word.starts_with( "0x" ) ) {
      fail( "a number such as 0x1f", word );
   }
   return number( word.substr( 2 ), 16 );
}

float
CaptureLines::bandwidth( std::string_view word ) const {
   float value = 0;
   const auto [ end, error ] = std::from_chars( word.begin(), word.end(), value );
   if ( error != std::errc() || end != word.end() ) {
      fail( "bytes per second", word );
   }
   return value;
}

Kivnet::IpGenAddr
CaptureLines::address( std::string_view word ) const {
   const auto address = Kivnet::IpGenAddr::parse( word );
   return address ? *address : ( fail( "an address", word ), Kivnet::IpGenAddr() );
}

Kivnet::IpAddr
CaptureLines::ipv4( std::string_view word ) const {
   const auto address = Kivnet::IpGenAddr::parse( word );
   if ( !address || address->af() != Kivnet::AddressFamily::ipv4 ) {
      fail( "an IPv4 address", word );
   }
   return address->v4();
}

Kivnet::IpGenPrefix
CaptureLines::prefix( std::string_view word ) const {
   const auto slash = word.find( '/' );
   const auto address = Kivnet::IpGenAddr::parse( word.substr( 0, slash ) );
   if ( slash == word.npos || !address ) {
      fail( "a prefix", word );
   }
   const std::uint32_t length = number( word.substr( slash + 1 ) );
   if ( length > ( address->af() == Kivnet::AddressFamily::ipv4 ? 32U : 128U ) ) {
      fail( "a prefix", word );
   }
   return { *address, static_cast< std::uint8_t >( length ) };
}

std::string_view
takeWord( std::string_view & text ) {
   text = trimmed( text );
   const auto end = std::min( text.find_first_of( blanks ), text.size() );
   std::string_view word = text.substr( 0, end );
   text.remove_prefix( end );
   if ( word.ends_with( ',' ) ) {
      word.remove_suffix( 1 );
   }
   return word;
}

std::string_view
between( std::string_view text, std::string_view before, std::string_view after ) {
   const auto start = text.find( before );
   if ( start == text.npos ) {
      return {};
   }
   text.remove_prefix( start + before.size() );
   const auto end = text.find( after );
   return end == text.npos ? std::string_view() : text.substr( 0, end );
}

}
