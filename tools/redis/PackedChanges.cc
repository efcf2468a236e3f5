#include "tools/redis/PackedChanges.h"

#include <utility>

namespace Redis {

namespace {

void
appendNumber( std::string & out, std::size_t number, int bytes ) {
   while ( bytes-- > 0 ) {
      out += static_cast< char >( number >> 8 * bytes & 0xff );
   }
}

void
appendText( std::string & out, std::string_view text ) {
   const std::size_t size = text.size();
   const int width = size <= 0xff ? 1 : size <= 0xffff ? 2 : 4;
   out += width == 1 ? '\xd9' : width == 2 ? '\xda' : '\xdb';
   appendNumber( out, size, width );
   out += text;
}

void
appendArray( std::string & out, std::size_t elements ) {
   out += '\xdc';
   appendNumber( out, elements, 2 );
}

/// What is left of a packed text.
class Rest {
 public:
   explicit Rest( std::string_view packed ) : packed_( packed ) {}

   bool isEmpty() const { return packed_.empty(); }
   std::optional< std::size_t > takeArray() { return takeHead( 0x90, 0x0f, 0xdc, 2 ); }
   std::optional< std::string_view > takeText() {
      const auto size = takeHead( 0xa0, 0x1f, 0xd9, 1 );
      return size ? takeBytes( *size ) : std::nullopt;
   }

 private:
   std::optional< std::string_view > takeBytes( std::size_t size ) {
      if ( size > packed_.size() ) {
         return std::nullopt;
      }
      const std::string_view bytes = packed_.substr( 0, size );
      packed_.remove_prefix( size );
      return bytes;
   }
   /// The size stands in the low bits of a first byte that begins as `small`, or behind one of
   /// those from `large` on: in so many bytes, twice as many, and so on up to four.
   std::optional< std::size_t > takeHead( unsigned small, unsigned mask, unsigned large,
                                          std::size_t width ) {
      const auto head = takeBytes( 1 );
      const unsigned first = head ? static_cast< unsigned char >( head->front() ) : 0;
      if ( ( first & ~mask ) == small ) {
         return first & mask;
      }
      for ( ; width <= 4; width *= 2, ++large ) {
         const auto bytes = first == large ? takeBytes( width ) : std::nullopt;
         if ( bytes ) {
            std::size_t size = 0;
            for ( const char byte : *bytes ) {
               size = size << 8 | static_cast< unsigned char >( byte );
            }
            return size;
         }
      }
      return std::nullopt;
   }

   std::string_view packed_;
};

}

void
PackedChanges::fieldIs( std::string_view field, std::string_view text ) {
   ++set_;
   appendText( setTexts_, field );
   appendText( setTexts_, text );
}

void
PackedChanges::fieldDel( std::string_view field ) {
   ++ended_;
   appendText( endedTexts_, field );
}

std::string
PackedChanges::take() {
   std::string packed;
   packed.reserve( setTexts_.size() + endedTexts_.size() + 6 );
   appendArray( packed, 2 * std::size_t( std::exchange( set_, 0 ) ) );
   packed += setTexts_;
   appendArray( packed, std::exchange( ended_, 0 ) );
   packed += endedTexts_;
   setTexts_.clear();
   endedTexts_.clear();
   return packed;
}

bool
forEachPacked( std::string_view packed, const VisitChange & visit ) {
   Rest rest( packed );
   const auto set = rest.takeArray();
   for ( std::size_t i = 0; set && i < *set; i += 2 ) {
      const auto field = rest.takeText(), text = rest.takeText();
      if ( !field || !text ) {
         return false;
      }
      visit( *field, *text );
   }
   const auto ended = set ? rest.takeArray() : std::nullopt;
   for ( std::size_t i = 0; ended && i < *ended; ++i ) {
      const auto field = rest.takeText();
      if ( !field ) {
         return false;
      }
      visit( *field, std::nullopt );
   }
   return ended && rest.isEmpty();
}

}
