#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace Lab {

/// A lab that is wrong: the place, as a JSON pointer (RFC 6901), and one sentence. `what()` is both
/// on one line.
class LabError : public std::runtime_error {
 public:
   LabError( std::string pointer, std::string text, bool missing = false );

   /// "" for the whole document.
   const std::string & pointer() const noexcept { return pointer_; }
   const std::string & text() const noexcept { return text_; }
   /// Nothing stands at the pointer, and something must; what it is part of is there.
   bool missing() const noexcept { return missing_; }

 private:
   std::string pointer_;
   std::string text_;
   bool missing_;
};

class LabJson;
struct LabJsonMember;

using LabJsonArray = std::vector< LabJson >;
using LabJsonObject = std::vector< LabJsonMember >;

/// A number that is not written as a whole number, or is too large for one, with its text.
struct LabJsonReal {
   double value = 0;
   std::string text;
};

/// JSON as it was written: members stay in the order of the document, whole numbers apart from
/// others. Keys of an object differ.
class LabJson {
 public:
   /// Deepest nesting of arrays and objects that is read; walks over the document recurse.
   static constexpr std::size_t maxDepth = 64;

   LabJson() noexcept;
   template< class T >
   explicit LabJson( T value );
   // Where members are complete.
   LabJson( const LabJson & );
   LabJson( LabJson && ) noexcept;
   LabJson & operator=( const LabJson & );
   LabJson & operator=( LabJson && ) noexcept;
   /// What is large is taken apart in slices where a job does it.
   ~LabJson();

   /// Throws LabError with line and column where the text is not JSON in UTF-8, for a key that
   /// stands twice in one object, and for too deep nesting.
   static LabJson parse( std::string_view text );

   /// The value if it is of that type, else null: std::nullptr_t, bool, std::uint64_t,
   /// std::int64_t (negative), LabJsonReal, std::string, LabJsonArray, LabJsonObject.
   template< class T >
   const T * as() const noexcept {
      return std::get_if< T >( &value_ );
   }
   template< class T >
   T * as() noexcept {
      return std::get_if< T >( &value_ );
   }
   bool isNull() const noexcept { return as< std::nullptr_t >() != nullptr; }

   /// The member of that key; null where there is none, or this is not an object. O(members).
   const LabJson * find( std::string_view key ) const noexcept;
   LabJson * find( std::string_view key ) noexcept {
      return const_cast< LabJson * >( std::as_const( *this ).find( key ) );
   }
   /// What the JSON pointer leads to; null where it leads nowhere.
   const LabJson * resolve( std::string_view pointer ) const;
   /// Removes that member where there is one.
   void erase( std::string_view key );
   /// Applies a merge patch (RFC 7396). O(members of what the patch names).
   void merge( const LabJson & patch );
   /// On one line, without spaces.
   std::string text() const;
   /// The value in a few words, for errors: `"lond..."`, `4294967296`, `an object`.
   std::string inShort() const;

 private:
   void mergeMembers( const LabJsonObject & patch );

   std::variant< std::nullptr_t, bool, std::uint64_t, std::int64_t, LabJsonReal, std::string,
                 LabJsonArray, LabJsonObject >
      value_;
};

struct LabJsonMember {
   std::string key;
   LabJson value;
};

inline LabJson::LabJson() noexcept = default;
template< class T >
LabJson::LabJson( T value ) : value_( std::move( value ) ) {}
inline LabJson::LabJson( const LabJson & ) = default;
inline LabJson::LabJson( LabJson && ) noexcept = default;
inline LabJson & LabJson::operator=( const LabJson & ) = default;
inline LabJson & LabJson::operator=( LabJson && ) noexcept = default;

/// The token as it stands in a JSON pointer: "~" as "~0", "/" as "~1".
std::string pointerToken( std::string_view token );
/// The text as a JSON string, quotes included. Bytes that are not UTF-8 are replaced.
std::string jsonText( std::string_view text );

}
