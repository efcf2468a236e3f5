#pragma once

#include "platform/Kivnet/IpGenPrefix.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

/// What routing daemons print, line by line.
namespace Igp {

/// A text that is not what it claims to be. The text says where and what was expected, in one line.
struct CaptureError : std::runtime_error {
   using std::runtime_error::runtime_error;
};

/// A walk over the lines of a text, which outlives it. The current line is without the blanks
/// around it.
class CaptureLines {
 public:
   /// `name` stands before the line's number in errors.
   CaptureLines( std::string_view text, std::string name )
      : rest_( text ),
        name_( std::move( name ) ) {}

   /// Goes to the next line; false at the end.
   bool next();
   std::string_view text() const { return line_; }
   /// Blanks before the line's text.
   std::size_t indent() const { return indent_; }
   bool startsWith( std::string_view start ) const { return line_.starts_with( start ); }
   /// What follows the label, without blanks before it; nothing where the line has another label.
   std::optional< std::string_view > after( std::string_view label ) const;
   /// Throws CaptureError: "NAME:LINE: expected EXPECTED, found "..."".
   [[noreturn]] void fail( std::string_view expected, std::string_view found ) const;

   // Values. Each throws CaptureError where the word is no such thing.
   std::uint32_t number( std::string_view word, int base = 10 ) const;
   /// A mask of at most 32 bits, "0x..".
   std::uint32_t mask( std::string_view word ) const;
   /// Bytes per second, also an infinite or a negative one, or none at all.
   float bandwidth( std::string_view word ) const;
   Kivnet::IpGenAddr address( std::string_view word ) const;
   Kivnet::IpAddr ipv4( std::string_view word ) const;
   /// With bits beyond the length cleared.
   Kivnet::IpGenPrefix prefix( std::string_view word ) const;

 private:
   std::string_view rest_;
   std::string_view line_;
   std::size_t indent_ = 0;
   std::size_t number_ = 0;
   const std::string name_;
};

/// Takes the first word off the text: what stands before a blank, without a comma behind it.
/// Empty at the end.
std::string_view takeWord( std::string_view & text );
/// What stands between the two, "" where either is missing.
std::string_view between( std::string_view text, std::string_view before, std::string_view after );

}
