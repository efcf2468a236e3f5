#pragma once

#include "platform/Lum/Entity.h"
#include "platform/Lum/HashTable.h"
#include "platform/Lum/RareMap.h"
#include "platform/Lum/Value.h"

#include <concepts>
#include <map>
#include <vector>

namespace Lum {

/// The container of a keyed collection, by hash.
template< class Key, class T >
using Map = HashMap< Key, T, Hash >;

/// Makes a change of type `T` in `Count` live objects of that type visible in the census.
template< class T >
struct Counted {
   Counted() noexcept { ++type.live; }
   ~Counted() { --type.live; }
   static inline TypeCensus type{ T::lumTypeName };
};

/// A row of a table, made of its key where it takes one.
template< class T, class Key >
Ptr< T >
makeRow( const Key & key ) {
   if constexpr ( std::constructible_from< T, const Key & > ) {
      return make< T >( key );
   } else {
      return make< T >();
   }
}

/// The keys of a map at this moment, in no order: for walks during which entries may come and go.
template< class M >
std::vector< typename M::key_type >
keysOf( const M & map ) {
   std::vector< typename M::key_type > keys;
   keys.reserve( map.size() );
   for ( const auto & entry : map ) {
      keys.push_back( entry.first );
   }
   return keys;
}

/// ... in their order.
template< class M >
std::vector< typename M::key_type >
sortedKeys( const M & map ) {
   auto keys = keysOf( map );
   std::sort( keys.begin(), keys.end() );
   return keys;
}

}

/// Declares the type's name, its place in the census, and the start of its description. Stands
/// first in the class; what follows is public.
#define LUM_ENTITY( namespace_, name_ )                                                            \
 public:                                                                                           \
   using lumSelf = name_;                                                                          \
   static constexpr const char * lumTypeName = #namespace_ "::" #name_;                            \
   const char * typeName() const override {                                                        \
      return lumTypeName;                                                                          \
   }                                                                                               \
   static constexpr ::Lum::NoField lumField( ::Lum::Line< __LINE__ > ) {                           \
      return {};                                                                                   \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   [[no_unique_address]] ::Lum::Counted< name_ > lumCounted_;                                      \
                                                                                                   \
 public:                                                                                           \
   static_assert( true )

/// An attribute that can be watched: `x()`, `xIs( value )`. Setting an equal value changes and
/// tells nothing. The old value lives until all watchers have been told.
#define LUM_ATTRIBUTE( name_, ... )                                                                \
   static constexpr ::Lum::AttributeId< lumSelf > name_##Attribute{ #name_ };                      \
   const __VA_ARGS__ & name_() const noexcept {                                                    \
      return name_##_;                                                                             \
   }                                                                                               \
   void name_##Is( __VA_ARGS__ value ) {                                                           \
      if ( !( name_##_ == value ) ) {                                                              \
         std::swap( name_##_, value );                                                             \
         notify( &name_##Attribute, nullptr );                                                     \
      }                                                                                            \
   }                                                                                               \
   LUM_DESCRIBE_ENTITY_FIELD_( attribute, name_, []( lumSelf & entity, __VA_ARGS__ value ) {       \
      entity.name_##Is( std::move( value ) );                                                      \
   } )                                                                                             \
                                                                                                   \
 private:                                                                                          \
   __VA_ARGS__ name_##_{};                                                                         \
                                                                                                   \
 public:                                                                                           \
   static_assert( true )

/// An unsigned 32-bit counter: `x()`, `xIs( n )`, `xInc()`. Who watches it is told of each
/// increment, so that a counter is also the way to say that something has happened, as often as it
/// does.
#define LUM_COUNTER( name_ )                                                                       \
   static constexpr ::Lum::AttributeId< lumSelf > name_##Attribute{ #name_ };                      \
   std::uint32_t name_() const noexcept {                                                          \
      return name_##_;                                                                             \
   }                                                                                               \
   void name_##Is( std::uint32_t value ) {                                                         \
      if ( name_##_ != value ) {                                                                   \
         name_##_ = value;                                                                         \
         notify( &name_##Attribute, nullptr );                                                     \
      }                                                                                            \
   }                                                                                               \
   void name_##Inc() {                                                                             \
      name_##Is( name_##_ + 1 );                                                                   \
   }                                                                                               \
   LUM_DESCRIBE_ENTITY_FIELD_(                                                                     \
      counter, name_, []( lumSelf & entity, std::uint32_t value ) { entity.name_##Is( value ); } ) \
                                                                                                   \
 private:                                                                                          \
   std::uint32_t name_##_ = 0;                                                                     \
                                                                                                   \
 public:                                                                                           \
   static_assert( true )

#define LUM_COLLECTION_IN_( kind_, Container, name_, Key, ... )                                    \
   static constexpr ::Lum::AttributeId< lumSelf, Key > name_##Attribute{ #name_ };                 \
   const Container< Key, __VA_ARGS__ > & name_##Coll() const noexcept {                            \
      return name_##_;                                                                             \
   }                                                                                               \
   std::size_t name_##s() const noexcept {                                                         \
      return name_##_.size();                                                                      \
   }                                                                                               \
   bool name_##Has( const Key & key ) const {                                                      \
      return name_##_.contains( key );                                                             \
   }                                                                                               \
   const __VA_ARGS__ * name_##Find( const Key & key ) const {                                      \
      auto at = name_##_.find( key );                                                              \
      return at == name_##_.end() ? nullptr : &at->second;                                         \
   }                                                                                               \
   const __VA_ARGS__ & name_( const Key & key ) const {                                            \
      static const __VA_ARGS__ none{};                                                             \
      const auto * value = name_##Find( key );                                                     \
      return value ? *value : none;                                                                \
   }                                                                                               \
   LUM_DESCRIBE_ENTITY_FIELD_(                                                                     \
      kind_, name_,                                                                                \
      []( lumSelf & entity, const Key & key, __VA_ARGS__ value ) {                                 \
         entity.name_##Is( key, std::move( value ) );                                              \
      },                                                                                           \
      []( lumSelf & entity, const Key & key ) { entity.name_##Del( key ); } )                      \
                                                                                                   \
 private:                                                                                          \
   Container< Key, __VA_ARGS__ > name_##_{};                                                       \
                                                                                                   \
 public:                                                                                           \
   static_assert( true )

#define LUM_COLLECTION_OPS_( Container, name_, Key, ... )                                          \
   void name_##Is( const Key & key, __VA_ARGS__ value ) {                                          \
      auto [ at, fresh ] = name_##_.try_emplace( key );                                            \
      if ( fresh || !( at->second == value ) ) {                                                   \
         std::swap( at->second, value );                                                           \
         const Key changed( at->first );                                                           \
         notify( &name_##Attribute, &changed );                                                    \
      }                                                                                            \
   }                                                                                               \
   void name_##Del( const Key & key ) {                                                            \
      if ( auto entry = name_##_.extract( key ) ) {                                                \
         notify( &name_##Attribute, &entry.key() );                                                \
      }                                                                                            \
   }                                                                                               \
   void name_##DelAll() {                                                                          \
      const auto alive = this->keptAlive();                                                        \
      for ( const auto & key : ::Lum::sortedKeys( name_##_ ) ) {                                   \
         name_##Del( key );                                                                        \
      }                                                                                            \
   }                                                                                               \
   static_assert( true )

/// A keyed collection that can be watched by key: `x( key )` (a default value where there is
/// none), `xFind( key )` (null where there is none), `xHas( key )`, `xs()` (the count), `xColl()`,
/// `xIs( key, value )`, `xDel( key )`, `xDelAll()`. Hashed, with `xExpect( count )` for so many
/// more entries, of which it is known that they will come; the _ORDERED form keeps key order, and
/// so does the _RARE form, for what most entities of the type have none of.
#define LUM_COLLECTION( name_, Key, ... )                                                          \
   void name_##Expect( std::size_t count ) {                                                       \
      name_##_.reserve( name_##_.size() + count );                                                 \
   }                                                                                               \
   LUM_COLLECTION_OPS_( ::Lum::Map, name_, Key, __VA_ARGS__ );                                     \
   LUM_COLLECTION_IN_( collection, ::Lum::Map, name_, Key, __VA_ARGS__ )
#define LUM_COLLECTION_ORDERED( name_, Key, ... )                                                  \
   LUM_COLLECTION_OPS_( std::map, name_, Key, __VA_ARGS__ );                                       \
   LUM_COLLECTION_IN_( collection, std::map, name_, Key, __VA_ARGS__ )
#define LUM_COLLECTION_RARE( name_, Key, ... )                                                     \
   LUM_COLLECTION_OPS_( ::Lum::RareMap, name_, Key, __VA_ARGS__ );                                 \
   LUM_COLLECTION_IN_( collection, ::Lum::RareMap, name_, Key, __VA_ARGS__ )

/// Owned children by key, in key order, held by `Lum::Ptr`: `x( key )` (null where there is none),
/// `xHas`, `xs`, `xColl`, `xIs( key, child )` (starts the child: `handleInitialized`), with several
/// arguments those of its constructor after the key, `xDel( key )` (ends it: `doPrepareToDie`),
/// `xDelAll`. Watchers hear of a child when it
/// is in place, before it starts, and of its end when it is out of the collection; a child that one
/// of them removes at once never starts.
#define LUM_CHILDREN( name_, Key, ... )                                                            \
   ::Lum::Ptr< __VA_ARGS__ > name_##Is( const Key & key, ::Lum::Ptr< __VA_ARGS__ > child ) {       \
      const Key changed( key );                                                                    \
      name_##Del( changed );                                                                       \
      name_##_.insert_or_assign( changed, child );                                                 \
      notify( &name_##Attribute, &changed );                                                       \
      if ( this->name_( changed ) == child ) {                                                     \
         ::Lum::start( child );                                                                    \
      }                                                                                            \
      return child;                                                                                \
   }                                                                                               \
   template< class... Args, class Child = __VA_ARGS__ >                                            \
      requires( sizeof...( Args ) > 1 && std::constructible_from< Child, const Key &, Args... > )  \
   ::Lum::Ptr< Child > name_##Is( const Key & key, Args &&... args ) {                             \
      return name_##Is(                                                                            \
         key, ::Lum::Ptr< Child >( new Child( key, std::forward< Args >( args )... ) ) );          \
   }                                                                                               \
   void name_##Del( const Key & key ) {                                                            \
      if ( auto entry = name_##_.extract( key ) ) {                                                \
         notify( &name_##Attribute, &entry.key() );                                                \
         ::Lum::retire( entry.mapped() );                                                          \
      }                                                                                            \
   }                                                                                               \
   void name_##DelAll() {                                                                          \
      const auto alive = this->keptAlive();                                                        \
      while ( !name_##_.empty() ) {                                                                \
         name_##Del( name_##_.begin()->first );                                                    \
      }                                                                                            \
   }                                                                                               \
   LUM_COLLECTION_IN_( children, std::map, name_, Key, ::Lum::Ptr< __VA_ARGS__ > )

/// One owned child: `x()` (null where there is none), `xIs( arguments of its constructor... )`
/// (creates and starts it), `xDel()` (ends it).
#define LUM_CHILD( name_, ... )                                                                    \
   const ::Lum::Ptr< __VA_ARGS__ > & name_() const noexcept {                                      \
      return name_##_;                                                                             \
   }                                                                                               \
   template< class... Args >                                                                       \
   const ::Lum::Ptr< __VA_ARGS__ > & name_##Is( Args &&... args ) {                                \
      name_##Del();                                                                                \
      name_##_ = new __VA_ARGS__( std::forward< Args >( args )... );                               \
      ::Lum::start( name_##_ );                                                                    \
      return name_##_;                                                                             \
   }                                                                                               \
   void name_##Del() {                                                                             \
      ::Lum::retire( name_##_ );                                                                   \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   ::Lum::Ptr< __VA_ARGS__ > name_##_;                                                             \
                                                                                                   \
 public:                                                                                           \
   static_assert( true )

/// `xIs( key )` of a collection of rows: the row of that key, made where there was none.
#define LUM_ROWS_BY_KEY( name_, Key, ... )                                                         \
   ::Lum::Ptr< __VA_ARGS__ > name_##Is( const Key & key ) {                                        \
      if ( !this->name_##Has( key ) ) {                                                            \
         this->name_##Is( key, ::Lum::makeRow< __VA_ARGS__ >( key ) );                             \
      }                                                                                            \
      return this->name_( key );                                                                   \
   }                                                                                               \
   static_assert( true )
