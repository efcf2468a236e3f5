#pragma once

#include "tools/lab/LabDocument.h"
#include "tools/lab/LabJson.h"
#include "tools/pace/Job.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

/// How values of a lab are read: every reader checks what it takes, and throws LabError with the
/// place, what was expected there, and what was found.
namespace Lab {

/// A value inside of a document, and the way to it. Lives on the stack of the walk.
class LabCursor {
 public:
   explicit LabCursor( const LabJson & root ) : value_( root ) {}
   LabCursor( const LabCursor & parent, std::string_view key, const LabJson & value )
      : value_( value ),
        parent_( &parent ),
        key_( key ) {}
   LabCursor( const LabCursor & parent, std::size_t index, const LabJson & value )
      : value_( value ),
        parent_( &parent ),
        index_( index ) {}

   const LabJson & value() const noexcept { return value_; }
   /// The key under which the value stands; "" in a list.
   std::string_view key() const noexcept { return key_; }
   std::string pointer() const;
   /// "expected ..., found" and the value.
   [[noreturn]] void fail( const std::string & expected ) const;
   [[noreturn]] void fail( const std::string & expected, const std::string & found ) const;
   /// Fails for a member that is not there.
   [[noreturn]] void failMissing( std::string_view key, const std::string & expected ) const;

   const LabJsonObject & object() const;
   const LabJsonArray & list( const char * expected, std::size_t maxSize = SIZE_MAX ) const;

 private:
   const LabJson & value_;
   const LabCursor * parent_ = nullptr;
   std::string_view key_;
   std::size_t index_ = 0;
};

// ---- Objects and lists ----

template< class Read >
struct LabKey {
   std::string_view name;
   const char * required;  ///< what must stand there; null where nothing need
   Read read;
};

/// A key that may be absent; `read` gets the cursor of its value.
template< class Read >
LabKey< Read >
key( std::string_view name, Read read ) {
   return { name, nullptr, std::move( read ) };
}

template< class Read >
LabKey< Read >
requiredKey( std::string_view name, const char * expected, Read read ) {
   return { name, expected, std::move( read ) };
}

[[noreturn]] void failUnknown( const LabCursor & at,
                               std::initializer_list< std::string_view > known );

/// Reads an object whose keys are all known, in the order of the document.
template< class... Read >
void
readObject( const LabCursor & at, const LabKey< Read > &... keys ) {
   const LabJsonObject & members = at.object();
   const auto require = [ & ]( const auto & key ) {
      if ( key.required && !at.value().find( key.name ) ) {
         at.failMissing( key.name, key.required );
      }
   };
   ( require( keys ), ... );
   for ( const LabJsonMember & member : members ) {
      const LabCursor here( at, member.key, member.value );
      const bool known = ( ( member.key == keys.name && ( keys.read( here ), true ) ) || ... );
      if ( !known ) {
         failUnknown( here, { keys.name... } );
      }
   }
}

/// Reads an object whose keys are names.
template< class Read >
void
forEachMember( const LabCursor & at, Read && read ) {
   for ( const LabJsonMember & member : at.object() ) {
      Pace::breathe();
      read( LabCursor( at, member.key, member.value ) );
   }
}

template< class Read >
void
forEachElement( const LabCursor & at, const LabJsonArray & elements, Read && read ) {
   for ( std::size_t i = 0; i < elements.size(); ++i ) {
      Pace::breathe();
      read( LabCursor( at, i, elements[ i ] ) );
   }
}

// ---- Values ----

/// What `found` points at or holds; fails where that is nothing.
template< class Found >
auto
orFail( const LabCursor & at, const Found & found, const char * expected ) -> decltype( *found ) {
   if ( !found ) {
      at.fail( expected );
   }
   return *found;
}

/// What `parse` makes of the text that stands there.
template< class Parse >
auto
parsed( const LabCursor & at, Parse parse, const char * expected ) {
   const auto * text = at.value().as< std::string >();
   const auto value = text ? parse( *text ) : std::nullopt;
   if ( !value ) {
      at.fail( expected );
   }
   return *value;
}

bool readBool( const LabCursor & at );
/// A whole number from `min` to `max`.
std::uint64_t readNumber( const LabCursor & at, std::uint64_t min, std::uint64_t max );
std::uint32_t readUint32( const LabCursor & at );
/// Seconds, not negative.
double readSeconds( const LabCursor & at );
/// A list of two numbers.
LabPlace readPlace( const LabCursor & at );
/// Bytes per second, not negative, in single precision, or a text such as "10G" in bits per second.
float readBandwidth( const LabCursor & at );
/// Likewise, as a whole number of 64 bits.
std::uint64_t readWholeBandwidth( const LabCursor & at );
/// A number, or "0x" and up to eight hexadecimal digits.
std::uint32_t readMask( const LabCursor & at );
const std::string & readText( const LabCursor & at, const char * expected );
Kivnet::IntfId readIntf( const LabCursor & at );
Kivnet::IpAddr readIpv4( const LabCursor & at );
/// An address of that family, of any where it is unspecified.
Kivnet::IpGenAddr readAddress( const LabCursor & at, Af af = Af::unspecified );
Af readFamily( const LabCursor & at );
/// A list of up to 16 SRLG ids.
Srlgs readSrlgs( const LabCursor & at );
Routing::Isis::SystemId readSystemId( const LabCursor & at );
/// A name that is part of state paths: not empty, without "/", at most 100 bytes. `name` is what
/// stands at `at`, its key or its text.
const std::string & checkPathName( const LabCursor & at, const std::string & name,
                                   const std::string & expected );
Vrf readVrf( const LabCursor & at );

}
