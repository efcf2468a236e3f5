// Messages in the making, and the names that they share.

#include "platform/Trace/Message.h"

#include "platform/Trace/RingLayout.h"

#include <array>
#include <unordered_map>

namespace Trace {

namespace {

/// All names of the process as each ring has them.
struct Names {
   char image[ namesSize ];
   std::size_t size;
};
Names known;

/// Gives the name its place.
std::uint16_t
addName( std::string_view text ) {
   constexpr std::size_t longest = 0xffff - 8;
   const std::uint64_t bytes = Velotrace::recordSize( text.size() );
   if ( text.size() > longest || bytes > namesSize - known.size ) {
      return noPlace;
   }
   Velotrace::RecordHeader header{ 0,         static_cast< std::uint16_t >( text.size() ), 0, 0, 0,
                                   known.size };
   header.checkSum = Velotrace::checkSum( header, text );
   char * const at = known.image + known.size;
   std::memcpy( at, &header, sizeof header );
   text.copy( at + sizeof header, text.size() );
   known.size += bytes;
   return static_cast< std::uint16_t >( header.position / 8 );
}

}

Name::Name( const std::string & text ) {
   static std::unordered_map< std::string, std::uint16_t > places;
   const auto [ at, fresh ] = places.try_emplace( text, noPlace );
   if ( fresh ) {
      at->second = addName( text );
   }
   text_ = &at->first;
   place_ = at->second;
}

std::string_view
names() {
   return { known.image, known.size };
}

std::string_view
signature( std::string_view prettyFunction ) {
   const auto with = prettyFunction.rfind( " [with " );
   prettyFunction = prettyFunction.substr( 0, with );
   const auto arguments = prettyFunction.find( '(' );
   const auto type = prettyFunction.rfind( ' ', arguments );
   return type == prettyFunction.npos || arguments == prettyFunction.npos
             ? prettyFunction
             : prettyFunction.substr( type + 1 );
}

void
Function::cutOut() {
   messageBegin_.emplace( std::string( signature( prettyFunction_ ) ) + ": " );
}

Message::Message( Function & function ) {
   *this << function.messageBegin();
}

/// Helpers are given few different functions. Their texts stay where they are, since libraries stay
/// as long as the process.
Message::Message( const char * prettyFunction ) {
   struct Known {
      const char * prettyFunction;
      std::optional< Name > messageBegin;
   };
   static std::array< Known, 64 > known;
   const auto address = reinterpret_cast< std::uintptr_t >( prettyFunction );
   Known & function = known[ ( address ^ address >> 6 ) % known.size() ];
   if ( function.prettyFunction != prettyFunction ) {
      function = { prettyFunction, Function( prettyFunction ).messageBegin() };
   }
   *this << *function.messageBegin;
}

Message &
Message::operator<<( std::string_view text ) {
   if ( text.size() <= 0xff ) {
      char * const to = room( 2 + text.size() );
      to[ 0 ] = static_cast< char >( Piece::text );
      to[ 1 ] = static_cast< char >( text.size() );
      text.copy( to + 2, text.size() );
      at_ = to + 2 + text.size();
   } else {
      putLong( Piece::longText, text );
   }
   return *this;
}

Message &
Message::operator<<( const Prepared & prepared ) {
   const std::string_view pieces = prepared.pieces();
   pieces.copy( room( pieces.size() ), pieces.size() );
   at_ += pieces.size();
   return *this;
}

void
Message::grow( std::size_t bytes ) {
   const auto used = static_cast< std::size_t >( at_ - begin_ );
   const std::size_t size = 2 * used + bytes + spare;
   auto larger = std::make_unique< char[] >( size );
   std::memcpy( larger.get(), begin_, used );
   grown_ = std::move( larger );
   begin_ = grown_.get();
   at_ = begin_ + used;
   end_ = begin_ + size - spare;
}

void
Message::putLong( Piece tag, std::string_view text ) {
   const auto length = static_cast< std::uint32_t >( text.size() );
   room( 1 + sizeof length + text.size() );
   put( tag, length );
   text.copy( at_, length );
   at_ += length;
}

void
Message::putLabel( const char * furtherField ) {
   *this << Name( Lum::furtherLabel( furtherField ) + pieceHere );
}

std::string
Message::text() {
   std::string text;
   appendText( pieces(), names(), std::string::npos, text );
   return text;
}

}
