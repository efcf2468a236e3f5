// The texts that are held at this moment. The table holds no reference: a text goes with its last
// holder.

#include "platform/Lum/SharedString.h"

#include "platform/Lum/HashTable.h"

#include <string_view>

namespace Lum {

namespace {

std::size_t
hashOfText( std::string_view text ) noexcept {
   return std::hash< std::string_view >()( text );
}

}

/// Never destroyed: the last holders may go after it.
class SharedString::All {
   struct TextOf {
      const std::string & operator()( const Shared * shared ) const noexcept {
         return shared->text;
      }
   };
   struct HashOf {
      std::size_t operator()( const std::string & text ) const noexcept {
         return hashOfText( text );
      }
   };

 public:
   HashTable< Shared *, TextOf, HashOf, std::equal_to< std::string > > texts;

   static All & instance() {
      static All & all = *new All;
      return all;
   }
};

const std::string SharedString::none;
const std::size_t SharedString::noneHash = hashOfText( {} );

SharedString::SharedString( const std::string & text ) {
   if ( text.empty() ) {
      return;
   }
   auto & texts = All::instance().texts;
   if ( const auto present = texts.find( text ); present != texts.end() ) {
      shared_ = *present;
      ++shared_->holders;
      return;
   }
   auto fresh = std::make_unique< Shared >( Shared{ text, hashOfText( text ), 1 } );
   texts.insertOfKey( text, fresh.get() );
   shared_ = fresh.release();
}

void
SharedString::drop( Shared * shared ) noexcept {
   All::instance().texts.erase( shared->text );
   delete shared;
}

}
