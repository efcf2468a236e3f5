#pragma once

#include "platform/Lum/Describe.h"
#include "platform/Lum/Enum.h"
#include "platform/Lum/SharedArray.h"

#include <algorithm>
#include <charconv>
#include <compare>
#include <concepts>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Lum {

using String = std::string;

/// The framework's hash mixer: folds `value` into `seed`.
constexpr std::size_t
hashMix( std::size_t seed, std::size_t value ) noexcept {
   std::uint64_t x = ( seed ^ value ) + 0x9e3779b97f4a7c15u + ( std::uint64_t( seed ) << 6 );
   x ^= x >> 32;
   x *= 0xd6e8feb86659fd93u;
   x ^= x >> 32;
   return x;
}

template< class T >
std::size_t hashOf( const T & value ) noexcept;

struct Hash {
   template< class T >
   std::size_t operator()( const T & value ) const noexcept {
      return hashOf( value );
   }
};

template< class T >
concept Range = requires( const T & t ) {
   t.begin();
   t.end();
}
&&!std::convertible_to< T, std::string >;

template< class T >
std::size_t
hashOf( const T & value ) noexcept {
   if constexpr ( requires {
                     { value.hash() } -> std::convertible_to< std::size_t >;
                  } ) {
      return value.hash();
   } else if constexpr ( Described< T > ) {
      std::size_t seed = 0;
      forEachField( value,
                    [ & ]( auto &, const auto & v ) { seed = hashMix( seed, hashOf( v ) ); } );
      return seed;
   } else if constexpr ( requires { value.has_value(); } ) {
      return value ? hashMix( 3, hashOf( *value ) ) : 3;
   } else if constexpr ( Range< T > ) {
      std::size_t seed = 1;
      for ( const auto & v : value ) {
         seed = hashMix( seed, hashOf( v ) );
      }
      return seed;
   } else {
      return hashMix( 2, std::hash< T >()( value ) );
   }
}

/// The text of a value: its own `stringValue()`, the name of an enumerator, a number, or
/// "[a, b]" for a list. Of a described value: "Value('Cspf::BwUsageId', ** {'clientName': ..})",
/// without its further fields that are not set.
template< class T >
std::string valueString( const T & value );

/// What stands in that text before a further field that is set.
inline std::string
furtherLabel( const char * name ) {
   return std::string( ", '" ) + name + "': ";
}

/// The value string of a described type with `place` for the text of each field; for that of a
/// further field with its label, or nothing. The first field is no further one.
template< Described T >
std::string
valueForm( char place ) {
   std::string form = std::string( "Value('" ) + T::lumTypeName + "', ** {";
   const char * separator = "'";
   const T any{};
   forEachField( any, [ & ]( auto & field, const auto & ) {
      if constexpr ( std::remove_cvref_t< decltype( field ) >::kind != FieldKind::further ) {
         form.append( separator ).append( field.name ).append( "': " );
      }
      form += place;
      separator = ", '";
   } );
   return form + "})";
}

namespace Detail {

template< class T >
std::string
describedString( const T & value ) {
   constexpr char place = '\1';
   static const std::string form = valueForm< T >( place );
   std::string text;
   std::string_view rest = form;
   forEachField( value, [ & ]( auto & field, const auto & v ) {
      const auto length = rest.find( place );
      text += rest.substr( 0, length );
      rest.remove_prefix( length + 1 );
      if constexpr ( std::remove_cvref_t< decltype( field ) >::kind == FieldKind::further ) {
         if ( v == std::remove_cvref_t< decltype( v ) >() ) {
            return;
         }
         text += furtherLabel( field.name );
      }
      text += valueString( v );
   } );
   return text.append( rest );
}

}

template< class T >
std::string
valueString( const T & value ) {
   if constexpr ( requires {
                     { value.stringValue() } -> std::convertible_to< std::string >;
                  } ) {
      return value.stringValue();
   } else if constexpr ( std::same_as< T, bool > ) {
      return value ? "True" : "False";
   } else if constexpr ( std::is_enum_v< T > ) {
      return enumName( value );
   } else if constexpr ( requires { value.has_value(); } ) {
      return value ? valueString( *value ) : "None";
   } else if constexpr ( std::is_floating_point_v< T > ) {
      char buffer[ 32 ];
      return { buffer, std::to_chars( buffer, buffer + sizeof buffer, value ).ptr };
   } else if constexpr ( std::is_integral_v< T > ) {
      return std::to_string( value );
   } else if constexpr ( Range< T > ) {
      std::string text = "[";
      for ( const auto & v : value ) {
         text.append( text.size() > 1 ? ", " : "" ).append( valueString( v ) );
      }
      return text + "]";
   } else if constexpr ( Described< T > ) {
      return Detail::describedString( value );
   } else {
      return value;
   }
}

namespace Detail {

template< class From >
constexpr std::size_t
fieldIndex( std::string_view name ) {
   std::size_t found = std::tuple_size_v< decltype( fields< From > ) >;
   std::size_t index = 0;
   std::apply(
      [ & ]( const auto &... f ) { ( ( name == f.name ? found = index++ : index++ ), ... ); },
      fields< From > );
   return found;
}

template< std::size_t i, class From, class To >
void
copyField( const From & from, To & to ) {
   constexpr auto & target = std::get< i >( fields< To > );
   constexpr std::size_t source = fieldIndex< From >( target.name );
   if constexpr ( source < std::tuple_size_v< decltype( fields< From > ) > ) {
      to.*( target.member ) = from.*( std::get< source >( fields< From > ).member );
   }
}

}

/// Copies to `to` each field that `from` has under the same name.
template< Described From, Described To >
void
copyFields( const From & from, To & to ) {
   [ & ]< std::size_t... i >( std::index_sequence< i... > ) {
      ( Detail::copyField< i >( from, to ), ... );
   }
   ( std::make_index_sequence< std::tuple_size_v< decltype( fields< To > ) > >() );
}

/// The first field of a row. REQUIRES: the row is described.
template< class Row >
constexpr auto &
firstField( Row & row ) {
   return row.*( std::get< 0 >( fields< std::remove_const_t< Row > > ).member );
}

/// Whether a row of a collection with such keys holds its own key: as its first field.
template< class Row, class Key >
concept HasOwnKey = Described< Row > && requires( Row & row ) {
   { firstField( row ) } -> std::same_as< Key & >;
};

/// A list inside of a value, by index from 0 without gaps: writing beyond the end fills with
/// default elements. `Index` is a bounded type, so an index out of its bounds raises its error.
/// Copies share their elements until one is written.
template< class Index, class T >
class List {
 public:
   using value_type = T;

   const T * begin() const noexcept { return elements_.begin(); }
   const T * end() const noexcept { return elements_.end(); }
   std::size_t size() const noexcept { return elements_.size(); }
   bool empty() const noexcept { return size() == 0; }
   void reserve( std::size_t n ) { elements_.own( n ); }
   void clear() noexcept { elements_.clear(); }
   const T & operator[]( std::size_t i ) const noexcept { return elements_[ i ]; }
   const T * find( Index index ) const noexcept {
      return index.value() < size() ? &elements_[ index.value() ] : nullptr;
   }
   void set( Index index, T element ) {
      if ( index.value() >= size() ) {
         elements_.resize( index.value() + 1u );
      }
      elements_.own( size() )[ index.value() ] = std::move( element );
   }
   /// Appends one element; the bound of `Index` holds.
   void push( T element ) { set( Index( size() ), std::move( element ) ); }
   void erase( Index index ) {
      if ( index.value() < size() ) {
         elements_.erase( index.value() );
      }
   }
   bool operator==( const List & other ) const {
      return elements_.shares( other.elements_ )
             || std::equal( begin(), end(), other.begin(), other.end() );
   }
   auto operator<=>( const List & other ) const {
      return std::lexicographical_compare_three_way( begin(), end(), other.begin(), other.end() );
   }

 private:
   static_assert( Index::max < 0xffff );

   SharedArray< T > elements_;
};

/// A small ordered set inside of a value.
template< class T >
class Set {
 public:
   using value_type = T;

   auto begin() const noexcept { return elements_.begin(); }
   auto end() const noexcept { return elements_.end(); }
   std::size_t size() const noexcept { return elements_.size(); }
   bool empty() const noexcept { return elements_.empty(); }
   void clear() noexcept { elements_.clear(); }
   bool has( const T & element ) const {
      auto at = std::lower_bound( elements_.begin(), elements_.end(), element );
      return at != elements_.end() && *at == element;
   }
   void insert( const T & element ) {
      auto at = std::lower_bound( elements_.begin(), elements_.end(), element );
      if ( at == elements_.end() || *at != element ) {
         elements_.insert( at, element );
      }
   }
   void erase( const T & element ) {
      auto at = std::lower_bound( elements_.begin(), elements_.end(), element );
      if ( at != elements_.end() && *at == element ) {
         elements_.erase( at );
      }
   }
   bool operator==( const Set & ) const = default;
   auto operator<=>( const Set & ) const = default;

 private:
   std::vector< T > elements_;
};

}

/// Makes a struct a value: compared by all its fields in order, hashable, with a value string.
/// Stands first; the fields follow, one LUM_FIELD, LUM_LIST or LUM_SET a line. The struct stays
/// an aggregate: `BwUsageId{ "rsvp", 0, 7 }`.
#define LUM_VALUE( namespace_, name_ )                                                             \
   LUM_VALUE_OF_OWN_ORDER( namespace_, name_ );                                                    \
   auto operator<=>( const name_ & ) const = default

/// The same for a value that states its order itself.
#define LUM_VALUE_OF_OWN_ORDER( namespace_, name_ )                                                \
   using lumSelf = name_;                                                                          \
   static constexpr const char * lumTypeName = #namespace_ "::" #name_;                            \
   static constexpr ::Lum::NoField lumField( ::Lum::Line< __LINE__ > ) {                           \
      return {};                                                                                   \
   }                                                                                               \
   bool operator==( const name_ & ) const = default

/// For a value with lists or sets: text makes none. Throws std::invalid_argument.
#define LUM_NO_STRING_CONSTRUCTOR( name_ )                                                         \
   explicit name_( const ::Lum::String & ) {                                                       \
      throw std::invalid_argument( "No String constructor for " #name_ " - has collection" );      \
   }                                                                                               \
   static_assert( true )

/// A field of a value: `x()` and `xIs( value )`.
#define LUM_FIELD( name_, ... ) LUM_FIELD_OF_KIND_( field, name_, __VA_ARGS__ )
/// One that joined a value whose text others know: the value string tells it only where it is set.
#define LUM_FURTHER_FIELD( name_, ... ) LUM_FIELD_OF_KIND_( further, name_, __VA_ARGS__ )
#define LUM_FIELD_OF_KIND_( kind_, name_, ... )                                                    \
   __VA_ARGS__ name_##_{};                                                                         \
   const __VA_ARGS__ & name_() const noexcept {                                                    \
      return name_##_;                                                                             \
   }                                                                                               \
   void name_##Is( __VA_ARGS__ value ) {                                                           \
      name_##_ = std::move( value );                                                               \
   }                                                                                               \
   LUM_DESCRIBE_FIELD_( kind_, name_ )                                                             \
   static_assert( true )

/// A list field: `x( index )` (a default element where there is none), `xs()` (the count),
/// `xList()`, `xIs( index, element )`, `xDel( index )`, `xDelAll()`.
#define LUM_LIST( name_, Index, ... )                                                              \
   ::Lum::List< Index, __VA_ARGS__ > name_##_{};                                                   \
   __VA_ARGS__ name_( Index index ) const {                                                        \
      const auto * element = name_##_.find( index );                                               \
      return element ? *element : __VA_ARGS__();                                                   \
   }                                                                                               \
   std::size_t name_##s() const noexcept {                                                         \
      return name_##_.size();                                                                      \
   }                                                                                               \
   const ::Lum::List< Index, __VA_ARGS__ > & name_##List() const noexcept {                        \
      return name_##_;                                                                             \
   }                                                                                               \
   void name_##Is( Index index, __VA_ARGS__ element ) {                                            \
      name_##_.set( index, std::move( element ) );                                                 \
   }                                                                                               \
   void name_##Del( Index index ) {                                                                \
      name_##_.erase( index );                                                                     \
   }                                                                                               \
   void name_##DelAll() noexcept {                                                                 \
      name_##_.clear();                                                                            \
   }                                                                                               \
   LUM_DESCRIBE_FIELD_( list, name_ )                                                              \
   static_assert( true )

/// A set field: `xHas( element )`, `xs()`, `xSet()`, `xIs( element )`, `xDel`, `xDelAll`.
#define LUM_SET( name_, ... )                                                                      \
   ::Lum::Set< __VA_ARGS__ > name_##_{};                                                           \
   bool name_##Has( const __VA_ARGS__ & element ) const {                                          \
      return name_##_.has( element );                                                              \
   }                                                                                               \
   std::size_t name_##s() const noexcept {                                                         \
      return name_##_.size();                                                                      \
   }                                                                                               \
   const ::Lum::Set< __VA_ARGS__ > & name_##Set() const noexcept {                                 \
      return name_##_;                                                                             \
   }                                                                                               \
   void name_##Is( const __VA_ARGS__ & element ) {                                                 \
      name_##_.insert( element );                                                                  \
   }                                                                                               \
   void name_##Del( const __VA_ARGS__ & element ) {                                                \
      name_##_.erase( element );                                                                   \
   }                                                                                               \
   void name_##DelAll() noexcept {                                                                 \
      name_##_.clear();                                                                            \
   }                                                                                               \
   LUM_DESCRIBE_FIELD_( set, name_ )                                                               \
   static_assert( true )
