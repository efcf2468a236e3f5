#pragma once

#include <compare>
#include <cstddef>
#include <string>
#include <utility>

namespace Lum {

/// A text that very many objects hold, of which there are few: the name of a client. Equal texts
/// are kept once in the process, counted, so that each holder takes a pointer, copies are free, and
/// equal ones are equal pointers. To make one of another text is a look-up. Ordered as texts are.
/// Counted without locks, for one thread.
class SharedString {
 public:
   constexpr SharedString() noexcept = default;
   SharedString( const std::string & text );
   SharedString( const char * text ) : SharedString( std::string( text ) ) {}
   SharedString( const SharedString & other ) noexcept : shared_( other.shared_ ) {
      if ( shared_ ) {
         ++shared_->holders;
      }
   }
   SharedString( SharedString && other ) noexcept
      : shared_( std::exchange( other.shared_, nullptr ) ) {}
   SharedString & operator=( SharedString other ) noexcept {
      std::swap( shared_, other.shared_ );
      return *this;
   }
   ~SharedString() {
      if ( shared_ && --shared_->holders == 0 ) {
         drop( shared_ );
      }
   }

   const std::string & stringValue() const noexcept { return shared_ ? shared_->text : none; }
   operator const std::string &() const noexcept { return stringValue(); }
   /// That of the text.
   std::size_t hash() const noexcept { return shared_ ? shared_->hash : noneHash; }
   bool empty() const noexcept { return !shared_; }
   friend bool operator==( const SharedString & a, const SharedString & b ) noexcept {
      return a.shared_ == b.shared_;
   }
   friend bool operator==( const SharedString & a, const std::string & b ) noexcept {
      return a.stringValue() == b;
   }
   friend bool operator==( const SharedString & a, const char * b ) noexcept {
      return a.stringValue() == b;
   }
   friend std::strong_ordering operator<=>( const SharedString & a,
                                            const SharedString & b ) noexcept {
      return a == b ? std::strong_ordering::equal : a.stringValue() <=> b.stringValue();
   }

 private:
   struct Shared {
      std::string text;
      std::size_t hash;
      std::size_t holders;
   };
   class All;
   static void drop( Shared * shared ) noexcept;
   static const std::string none;
   static const std::size_t noneHash;

   Shared * shared_ = nullptr;  // null: ""
};

}
