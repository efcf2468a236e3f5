// Texts that come from elsewhere, and times, as a person reads them.

#include "tools/text/Plain.h"

#include <cmath>
#include <cstdio>
#include <ctime>

namespace Text {

namespace {

struct Letter {
   std::size_t length;  ///< in bytes
   unsigned code;       ///< of the character; of a byte that begins none, its value
   bool valid;
};

/// The letter that the text begins with, as RFC 3629 has it. REQUIRES: the text is not empty.
Letter
firstLetter( std::string_view text ) {
   const auto byte = [ &text ]( std::size_t i ) {
      return static_cast< unsigned char >( text[ i ] );
   };
   const unsigned first = byte( 0 );
   const std::size_t length = first < 0x80                     ? 1
                              : first >= 0xc2 && first < 0xe0  ? 2
                              : first >= 0xe0 && first < 0xf0  ? 3
                              : first >= 0xf0 && first <= 0xf4 ? 4
                                                               : 0;
   if ( length == 0 || length > text.size() ) {
      return { 1, first, false };
   }
   unsigned code = length == 1 ? first : first & ( 0x7fu >> length );
   for ( std::size_t i = 1; i < length; ++i ) {
      if ( ( byte( i ) & 0xc0 ) != 0x80 ) {
         return { 1, first, false };
      }
      code = code << 6 | ( byte( i ) & 0x3f );
   }
   // The least code of each length, the surrogates, and the last code of all.
   constexpr unsigned least[] = { 0, 0, 0x80, 0x800, 0x10000 };
   const bool valid =
      code >= least[ length ] && ( code < 0xd800 || code > 0xdfff ) && code <= 0x10ffff;
   return valid ? Letter{ length, code, true } : Letter{ 1, first, false };
}

/// What XML has no place for counts as such.
bool
isControl( unsigned code ) {
   return code < 0x20 || ( code >= 0x7f && code < 0xa0 ) || code == 0xfffe || code == 0xffff;
}

}

std::string
plain( std::string_view text ) {
   std::string line;
   while ( !text.empty() ) {
      const Letter letter = firstLetter( text );
      if ( letter.valid && !isControl( letter.code ) ) {
         line += text.substr( 0, letter.length );
      } else {
         char escaped[ 16 ];
         std::snprintf( escaped, sizeof escaped, letter.valid ? "\\u%04x" : "\\x%02x",
                        letter.code );
         line += escaped;
      }
      text.remove_prefix( letter.length );
   }
   return line;
}

std::string
plainLines( std::string_view text ) {
   std::string lines;
   for ( std::size_t end; ( end = text.find( '\n' ) ) != text.npos; ) {
      lines += plain( text.substr( 0, end ) ) + "\n";
      text.remove_prefix( end + 1 );
   }
   return lines + plain( text );
}

PlainOutput::~PlainOutput() {
   const bool good = sync() == 0;
   const auto state = out_.rdstate();  // which the next line clears
   out_.rdbuf( target_ );
   out_.setstate( good ? state : state | std::ios::badbit );
}

bool
PlainOutput::put( std::string_view text ) {
   const auto length = static_cast< std::streamsize >( text.size() );
   return target_->sputn( text.data(), length ) == length;
}

std::streamsize
PlainOutput::xsputn( const char * data, std::streamsize length ) {
   std::string_view text( data, static_cast< std::size_t >( length ) );
   for ( std::size_t end; ( end = text.find( '\n' ) ) != text.npos; ) {
      line_ += text.substr( 0, end );
      text.remove_prefix( end + 1 );
      if ( !put( plain( line_ ) + "\n" ) ) {
         return 0;
      }
      line_.clear();
   }
   line_ += text;
   return length;
}

PlainOutput::int_type
PlainOutput::overflow( int_type letter ) {
   if ( traits_type::eq_int_type( letter, traits_type::eof() ) ) {
      return traits_type::not_eof( letter );
   }
   const char one = traits_type::to_char_type( letter );
   return xsputn( &one, 1 ) == 1 ? letter : traits_type::eof();
}

int
PlainOutput::sync() {
   const bool good = put( plain( line_ ) );
   line_.clear();
   return good ? target_->pubsync() : -1;
}

std::string
utcText( double seconds ) {
   const auto microseconds = std::llround( seconds * 1e6 );
   const std::time_t whole = microseconds / 1'000'000;
   std::tm utc{};
   gmtime_r( &whole, &utc );
   char date[ 32 ], text[ 48 ];
   std::strftime( date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc );
   std::snprintf( text, sizeof text, "%s.%06lldZ", date, microseconds % 1'000'000 );
   return text;
}

}
