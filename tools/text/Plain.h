#pragma once

#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace Text {

/// The text with its control characters, those of ISO 6429 above U+007F included, as "\u000a", and
/// bytes that are not UTF-8 as "\x9b": on one line, and harmless to a terminal.
std::string plain( std::string_view text );
/// The same, but line feeds stay.
std::string plainLines( std::string_view text );

/// While this lives, what is written to the stream comes out plain but for its line feeds. JSON
/// keeps its meaning.
class PlainOutput : private std::streambuf {
 public:
   explicit PlainOutput( std::ostream & out ) : out_( out ), target_( out.rdbuf( this ) ) {}
   ~PlainOutput() override;
   PlainOutput( const PlainOutput & ) = delete;
   PlainOutput & operator=( const PlainOutput & ) = delete;

 private:
   int_type overflow( int_type letter ) override;
   std::streamsize xsputn( const char * text, std::streamsize length ) override;
   int sync() override;
   /// Passes the text on to the target; false where that takes no more.
   bool put( std::string_view text );

   std::ostream & out_;
   std::streambuf * target_;
   std::string line_;  ///< its beginning, as far as it was written
};

/// "2026-11-21T11:17:02.123456Z", from seconds since 1970.
std::string utcText( double seconds );

}
