#pragma once

#include "platform/Kivnet/IpGenAddr.h"
#include "platform/Lum/Value.h"
#include "platform/Trace/Pieces.h"

#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Trace {

/// A text that many messages have, kept once: in the process while it lives, and in each ring. With
/// `pieceHere` in it, it is followed by as many pieces. There may be some hundreds: of functions
/// and types, never of what is traced.
class Name {
 public:
   explicit Name( const std::string & text );

   /// Where rings have it; `noPlace` where they have no room.
   std::uint16_t place() const noexcept { return place_; }
   const std::string & text() const noexcept { return *text_; }

 private:
   const std::string * text_;
   std::uint16_t place_;
};

/// All names, as a ring has them.
std::string_view names();

/// "void Cspf::PathSm::handleX(const Key&)", the compiler's text of a function, without its type.
std::string_view signature( std::string_view prettyFunction );

/// A function whose messages begin with its signature and ": ".
class Function {
 public:
   constexpr explicit Function( const char * prettyFunction ) noexcept
      : prettyFunction_( prettyFunction ) {}

   const Name & messageBegin() {
      if ( !messageBegin_ ) {
         cutOut();
      }
      return *messageBegin_;
   }

 private:
   void cutOut();

   const char * prettyFunction_;
   std::optional< Name > messageBegin_;
};

class Message;

/// A value that stays, as messages have it, for one that is traced again and again.
class Prepared {
 public:
   template< class T >
   explicit Prepared( const T & value );

   std::string_view pieces() const noexcept { return pieces_; }

 private:
   std::string pieces_;
};

/// A type whose trace is more than its `stringValue()`, or made faster than that.
template< class T >
concept Traced = requires( const T & value, Message & message ) {
   value.traceTo( message );
};

template< class T >
concept HasStringValue = requires( const T & value ) {
   { value.stringValue() } -> std::convertible_to< std::string >;
};

/// A message in the making. What is put in is kept as it is, as pieces; text is made of it where
/// somebody reads it, which of most that goes into a ring nobody does.
class Message {
 public:
   Message() noexcept = default;
   explicit Message( Function & function );
   /// Of the function of that text, which is looked up.
   explicit Message( const char * prettyFunction );
   Message( const Message & ) = delete;
   Message & operator=( const Message & ) = delete;

   Message & operator<<( std::string_view text );
   Message & operator<<( const std::string & text ) { return *this << std::string_view( text ); }
   /// Inline, so that the length of a literal is known.
   [[gnu::always_inline]] Message & operator<<( const char * text ) {
      return *this << std::string_view( text );
   }
   Message & operator<<( char letter ) { return *this << std::string_view( &letter, 1 ); }
   /// "1" or "0".
   Message & operator<<( bool value ) { return *this << static_cast< unsigned >( value ); }
   template< std::integral T >
   Message & operator<<( T value ) {
      return putInteger( value );
   }
   Message & operator<<( double value ) { return put( Piece::real, value ); }
   /// As `Lum::enumName` puts it.
   template< class E >
      requires( std::is_enum_v< E > )
   Message & operator<<( E member ) {
      const auto text = Lum::enumText( member );
      return text ? *this << *text : *this << static_cast< std::size_t >( member );
   }
   /// The pieces of what the name has left open follow.
   Message & operator<<( const Name & name ) {
      if ( name.place() != noPlace ) {
         return put( Piece::name, name.place() );
      }
      putLong( Piece::ownName, name.text() );
      return *this;
   }
   Message & operator<<( const Prepared & prepared );
   Message & operator<<( const Kivnet::IpAddr & address ) {
      return put( Piece::ip4, address.value() );
   }
   Message & operator<<( const Kivnet::Ip6Addr & address ) {
      return put( Piece::ip6, address.bytes() );
   }
   Message & operator<<( const Kivnet::IpGenAddr & address ) {
      switch ( address.af() ) {
      case Kivnet::AddressFamily::ipv4: return *this << address.v4();
      case Kivnet::AddressFamily::ipv6: return *this << address.v6();
      case Kivnet::AddressFamily::unspecified: break;
      }
      return put( Piece::empty );
   }
   template< Traced T >
   Message & operator<<( const T & value ) {
      value.traceTo( *this );
      return *this;
   }
   template< HasStringValue T >
      requires( !Traced< T > )
   Message & operator<<( const T & value ) { return *this << value.stringValue(); }
   /// As `Lum::valueString` puts it.
   template< Lum::Described T >
      requires( !Traced< T > && !HasStringValue< T > )
   Message & operator<<( const T & value ) {
      static const Name form( Lum::valueForm< T >( pieceHere ) );
      *this << form;
      Lum::forEachField( value, [ & ]( auto & field, const auto & v ) {
         using Field = std::remove_cvref_t< decltype( field ) >;
         putField< Field::kind == Lum::FieldKind::further >( field.name, v );
      } );
      return *this;
   }

   /// What was put in so far.
   std::string_view written() const noexcept {
      return { begin_, static_cast< std::size_t >( at_ - begin_ ) };
   }
   /// Padded to a multiple of 8 bytes, complete.
   std::string_view pieces() {
      std::memset( at_, static_cast< int >( Piece::end ), spare );
      const auto used = static_cast< std::size_t >( at_ - begin_ );
      return { begin_, ( used + 7 ) & ~std::size_t( 7 ) };
   }
   /// What they say.
   std::string text();

 private:
   /// Where the next piece goes.
   [[gnu::always_inline]] char * room( std::size_t bytes ) {
      if ( static_cast< std::size_t >( end_ - at_ ) < bytes ) {
         grow( bytes );
      }
      return at_;
   }
   void grow( std::size_t bytes );
   void putLong( Piece tag, std::string_view text );
   void putLabel( const char * furtherField );

   Message & put( Piece tag ) {
      *room( 1 ) = static_cast< char >( tag );
      ++at_;
      return *this;
   }
   template< class Bytes >
   [[gnu::always_inline]] Message & put( Piece tag, const Bytes & bytes ) {
      char * const to = room( 1 + sizeof bytes );
      *to = static_cast< char >( tag );
      std::memcpy( to + 1, &bytes, sizeof bytes );
      at_ = to + 1 + sizeof bytes;
      return *this;
   }
   template< class T >
   [[gnu::always_inline]] Message & putInteger( T value ) {
      const bool isNegative = std::cmp_less( value, 0 );
      const auto bits = static_cast< std::uint64_t >( value );
      putNumber( isNegative ? Piece::negative : Piece::number, isNegative ? ~bits + 1 : bits );
      return *this;
   }
   [[gnu::always_inline]] void putNumber( Piece tag, std::uint64_t number ) {
      char * const to = room( 1 + sizeof number );
      const auto bytes = static_cast< std::size_t >( ( std::bit_width( number ) + 7 ) / 8 );
      *to = static_cast< char >( static_cast< std::size_t >( tag ) + bytes );
      std::memcpy( to + 1, &number, sizeof number );
      at_ = to + 1 + bytes;
   }

   template< bool further, class T >
   void putField( const char * name, const T & value ) {
      if constexpr ( further ) {
         if ( value == T() ) {
            put( Piece::empty );
            return;
         }
         putLabel( name );
      }
      putValue( value );
   }
   /// One piece, and those that a name wants.
   template< class T >
   void putValue( const T & value ) {
      if constexpr ( std::same_as< T, bool > ) {
         put( value ? Piece::yes : Piece::no );
      } else if constexpr ( std::integral< T > ) {
         putInteger( value );
      } else if constexpr ( Lum::Range< T > && !HasStringValue< T > ) {
         *this << ( value.begin() == value.end() ? std::string_view( "[]" )
                                                 : std::string_view( Lum::valueString( value ) ) );
      } else if constexpr ( requires { *this << value; } ) {
         *this << value;
      } else {
         *this << Lum::valueString( value );
      }
   }

   static constexpr std::size_t spare = 8;  // for the padding, and whole words of numbers

   std::unique_ptr< char[] > grown_;
   char * begin_ = own_;
   char * at_ = own_;
   char * end_ = own_ + sizeof own_ - spare;
   char own_[ 1000 ];
};

template< class T >
Prepared::Prepared( const T & value ) {
   Message message;
   message << value;
   pieces_ = message.written();
}

}
