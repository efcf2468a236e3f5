// From pieces to text, for the text trace and for whoever reads a ring. A ring is any file: every
// length is checked, and neither the depth nor the size of the text is left to it.

#include "platform/Trace/Pieces.h"

#include "platform/Kivnet/IpAddr.h"
#include "platform/Trace/RingLayout.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>

namespace Trace {

namespace {

constexpr int maxDepth = 8;

class PieceReader {
 public:
   PieceReader( std::string_view pieces, std::string_view names, std::size_t maxLength,
                std::string & text )
      : rest_( pieces ),
        names_( names ),
        maxLength_( maxLength ),
        text_( text ) {}

   bool readAll() {
      bool whole = true;
      while ( whole && !isFull() && !rest_.empty()
              && rest_.front() != static_cast< char >( Piece::end ) ) {
         whole = readPiece( 0 );
      }
      return whole;
   }

 private:
   bool isFull() const { return text_.size() >= maxLength_; }

   bool add( std::string_view text ) {
      text_ += text.substr( 0, maxLength_ - text_.size() );
      return true;
   }

   std::optional< std::string_view > take( std::size_t bytes ) {
      if ( bytes > rest_.size() ) {
         return std::nullopt;
      }
      const std::string_view taken = rest_.substr( 0, bytes );
      rest_.remove_prefix( bytes );
      return taken;
   }

   template< class Number >
   std::optional< Number > takeNumber( std::size_t bytes = sizeof( Number ) ) {
      const auto taken = take( bytes );
      if ( !taken || bytes > sizeof( Number ) ) {
         return std::nullopt;
      }
      Number number{};
      std::memcpy( &number, taken->data(), bytes );
      return number;
   }

   template< class Length >
   std::optional< std::string_view > takeText() {
      const auto length = takeNumber< Length >();
      return length ? take( *length ) : std::nullopt;
   }

   template< class Number >
   bool addNumber( std::optional< Number > number ) {
      char digits[ 32 ];
      return number
             && add( { digits, std::to_chars( digits, digits + sizeof digits, *number ).ptr } );
   }

   bool readPiece( int depth ) {
      const auto tag = takeNumber< std::uint8_t >();
      if ( !tag || depth > maxDepth ) {
         return false;
      }
      switch ( static_cast< Piece >( *tag ) ) {
      case Piece::end: return false;
      case Piece::empty: return true;
      case Piece::no: return add( "False" );
      case Piece::yes: return add( "True" );
      case Piece::text: return addTaken( takeText< std::uint8_t >() );
      case Piece::longText: return addTaken( takeText< std::uint32_t >() );
      case Piece::name: return readName( takeNumber< std::uint16_t >(), depth );
      case Piece::ownName: return fill( takeText< std::uint32_t >(), depth );
      case Piece::real: return addNumber( takeNumber< double >() );
      case Piece::ip4: return addIp4( takeNumber< std::uint32_t >() );
      case Piece::ip6: return addIp6( takeNumber< Kivnet::Ip6Addr::Bytes >() );
      default: return readNumber( *tag );
      }
   }

   bool readNumber( std::uint8_t tag ) {
      const auto kind = static_cast< Piece >( tag & 0xf0 );
      if ( kind != Piece::number && kind != Piece::negative ) {
         return false;
      }
      return ( kind == Piece::number || add( "-" ) )
             && addNumber( takeNumber< std::uint64_t >( tag & 0x0f ) );
   }

   bool addTaken( std::optional< std::string_view > taken ) { return taken && add( *taken ); }

   bool addIp4( std::optional< std::uint32_t > address ) {
      return address && add( Kivnet::IpAddr( *address ).stringValue() );
   }

   bool addIp6( const std::optional< Kivnet::Ip6Addr::Bytes > & address ) {
      return address && add( Kivnet::Ip6Addr( *address ).stringValue() );
   }

   bool readName( std::optional< std::uint16_t > place, int depth ) {
      return place && fill( Velotrace::nameAt( names_, *place ), depth );
   }

   bool fill( std::optional< std::string_view > name, int depth ) {
      bool whole = name.has_value();
      while ( whole && !isFull() && !name->empty() ) {
         const std::size_t length = std::min( name->find( pieceHere ), name->size() );
         add( name->substr( 0, length ) );
         name->remove_prefix( length );
         if ( !name->empty() ) {
            name->remove_prefix( 1 );
            whole = readPiece( depth + 1 );
         }
      }
      return whole;
   }

   std::string_view rest_;
   std::string_view names_;
   std::size_t maxLength_;
   std::string & text_;
};

}

bool
appendText( std::string_view pieces, std::string_view names, std::size_t maxLength,
            std::string & text ) {
   return PieceReader( pieces, names, maxLength, text ).readAll();
}

}
