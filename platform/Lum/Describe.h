#pragma once

#include <cstddef>
#include <tuple>
#include <type_traits>

/// One statement a field. Each LUM_FIELD, LUM_ATTRIBUTE, ... line of a class declares the member
/// and its accessors, and leaves an overload of `lumField` that is found by the number of its
/// line. `Lum::fields< T >` collects them in the order of the declaration; equality, hash, the
/// value string, JSON and copies between processes are made from that one list.

namespace Lum {

/// A described class ends at or before this line of its header.
inline constexpr int maxLine = 499;

/// Overloads on `Line< n >` are ranked: a call with `Line< m >` finds the last field that is
/// declared at or before line m.
template< int n >
struct Line : Line< n - 1 > {};
template<>
struct Line< 0 > {};

enum class FieldKind { field, further, list, set, attribute, counter, collection, children };

template< int line_, FieldKind kind_, class Member >
struct Field {
   static constexpr int line = line_;
   static constexpr FieldKind kind = kind_;
   const char * name;
   Member member;
};

template< int line, FieldKind kind, class Member >
constexpr Field< line, kind, Member >
makeField( const char * name, Member member ) {
   return { name, member };
}

/// A field of an entity, with the operations that write it, so that watchers hear of a change:
/// `is( entity, value )` of an attribute or counter; `is( entity, key, value )` and
/// `del( entity, key )` of a collection.
template< int line, FieldKind kind, class Member, class Is, class Del >
struct EntityField : Field< line, kind, Member > {
   Is is;
   Del del;
};

template< int line, FieldKind kind, class Member, class Is, class Del = std::nullptr_t >
constexpr EntityField< line, kind, Member, Is, Del >
makeEntityField( const char * name, Member member, Is is, Del del = {} ) {
   return { { name, member }, is, del };
}

/// Stands at the line where the description of a class begins.
struct NoField {};

namespace Detail {

template< class T, int line >
constexpr auto
fieldsUpTo() {
   constexpr auto last = T::lumField( Line< line >{} );
   if constexpr ( std::is_same_v< decltype( last ), const NoField > ) {
      return std::tuple<>();
   } else {
      return std::tuple_cat( fieldsUpTo< T, last.line - 1 >(), std::make_tuple( last ) );
   }
}

}

namespace Detail {

template< class T, int line, class Object, class Visit >
[[gnu::always_inline]] constexpr void
visitUpTo( Object & object, Visit & visit ) {
   constexpr auto last = T::lumField( Line< line >{} );
   if constexpr ( !std::is_same_v< decltype( last ), const NoField > ) {
      visitUpTo< T, last.line - 1 >( object, visit );
      visit( last, object.*( last.member ) );
   }
}

}

/// The described fields of `T`, in order: a tuple of `Field`.
template< class T >
inline constexpr auto fields = Detail::fieldsUpTo< T, maxLine >();

template< class T >
concept Described = requires {
   T::lumField( Line< maxLine >{} );
};

/// Calls `visit( field, value )` for each described field of the object, in order. Far cheaper to
/// compile than a walk over `fields`.
template< class T, class Visit >
constexpr void
forEachField( T & object, Visit && visit ) {
   Detail::visitUpTo< std::remove_const_t< T >, maxLine >( object, visit );
}

}

#define LUM_DESCRIBE_FIELD_( kind_, name_ )                                                        \
   static constexpr auto lumField( ::Lum::Line< __LINE__ > ) {                                     \
      static_assert( __LINE__ <= ::Lum::maxLine, "the header of a described class is too long" );  \
      return ::Lum::makeField< __LINE__, ::Lum::FieldKind::kind_ >( #name_, &lumSelf::name_##_ );  \
   }

/// The same for a field of an entity; the operations that write it follow.
#define LUM_DESCRIBE_ENTITY_FIELD_( kind_, name_, ... )                                            \
   static constexpr auto lumField( ::Lum::Line< __LINE__ > ) {                                     \
      static_assert( __LINE__ <= ::Lum::maxLine, "the header of a described class is too long" );  \
      return ::Lum::makeEntityField< __LINE__, ::Lum::FieldKind::kind_ >(                          \
         #name_, &lumSelf::name_##_, __VA_ARGS__ );                                                \
   }
