#pragma once

#include "platform/Lum/Assert.h"
#include "platform/Lum/Blocks.h"
#include "platform/Lum/PackedVector.h"
#include "platform/Lum/Ptr.h"

#include <cstdint>
#include <map>
#include <string>

namespace Lum {

class Entity;
class Reactor;

/// Names one attribute or collection of an entity type for subscription. The address of the
/// constant is the identity; `E` and `Key` check the handler's type at compile time
/// (`Key` is void for a plain attribute).
template< class E, class Key = void >
struct AttributeId {
   const char * name;
};

/// What a kind of watcher hears of, and how: one constant for each place in the code that watches.
struct Binding {
   const void * attribute;  ///< null: all
   void ( *deliver )( Reactor & owner, const void * key );
};

/// An object with identity: counted references, attributes that can be watched, a type name.
///
/// Delivery of a change is synchronous and in order of subscription. What happens when, during
/// the delivery of a change of attribute A of entity E, a handler
///   sets A again                delivers the newer value at once, to all; the outer delivery then
///                               goes on, and later handlers see the newest value a second time
///   subscribes to A             the new subscription hears the next change, not this one
///   ends its own subscription,  at once; one that was ended is not delivered to any more
///   or another's
///   deletes E                   E lives until the delivery is over
///   deletes its own owner       the owner's other subscriptions end; the delivery goes on. The
///                               owner lives until its handler returns
///   inserts into or removes     as "sets A again", for the key in question: the key of this
///   from the collection A       delivery stays valid, its entry may be gone
///   throws                      the change stands; whoever made it gets the exception, and those
///                               who stand behind the handler do not hear of this change
class Entity {
 public:
   Entity() noexcept = default;
   Entity( const Entity & ) = delete;
   Entity & operator=( const Entity & ) = delete;
   virtual ~Entity();

   static void * operator new( std::size_t bytes ) { return takeBlock( bytes ); }
   static void operator delete( void * block, std::size_t bytes ) { giveBlock( block, bytes ); }

   /// The type's full name, such as "Cspf::PathConfigInfo".
   virtual const char * typeName() const = 0;

   void referenceInc() const noexcept { ++references_; }
   void referenceDec() const {
      if ( --references_ == 0 ) {
         const_cast< Entity * >( this )->lastReferenceGone();
      }
   }
   std::uint32_t references() const noexcept { return references_; }

 protected:
   /// Runs when the last reference goes; the default deletes the object.
   virtual void lastReferenceGone() { delete this; }
   /// Delivers a change of the attribute to its watchers. O(watchers of this attribute).
   void notify( const void * attribute, const void * key ) const {
      if ( !watchers_.empty() ) {
         deliver( attribute, key );
      }
   }

   /// Keeps the entity alive through an operation with several deliveries.
   Ptr< const Entity > keptAlive() const { return references_ ? this : nullptr; }

 private:
   friend class Reactor;
   class Crowd;
   /// The watcher of an attribute, or its watchers where there are several.
   struct Watchers {
      const Binding * binding;  // null: a crowd
      union {
         Reactor * owner;
         Crowd * crowd;
      };

      const void * attribute() const;
   };

   Watchers * find( const void * attribute ) const;
   void subscribe( Reactor & owner, const Binding & binding ) const;
   void unsubscribe( const Reactor & owner ) const;
   void deliver( const void * attribute, const void * key ) const;
   static void deliverTo( const Watchers & watchers, const void * key );
   static void deliverTo( Reactor & owner, const Binding & binding, const void * key );

   mutable PackedVector< Watchers > watchers_;  // by attribute; those of all attributes come first
   mutable std::uint32_t references_ = 0;
   bool started_ = false;
   bool retired_ = false;  // a Reactor's; here it takes no room

   template< class T >
   friend void start( const Ptr< T > & object );
};

/// What a watcher of all attributes hears: which one, and the key of the entry of a collection that
/// changed (null for a plain attribute). `attribute` points to an `AttributeId`.
struct AnyChange {
   const void * attribute;
   const void * key;

   const char * name() const {
      return static_cast< const AttributeId< void > * >( attribute )->name;
   }
};

/// An entity that watches others. State machines derive from it: `watch` binds a member function
/// to an attribute or collection, and everything ends with the reactor or by `unwatch`.
class Reactor : public Entity {
 public:
   ~Reactor() override { unwatchAll(); }

   virtual void handleInitialized() {}
   /// Runs once before the owner drops the state machine: it undoes what it did to others.
   virtual void doPrepareToDie() {}
   /// Its owner has let it go (`retire`). It lives on until those who are inside of it return.
   bool isRetired() const noexcept { return retired_; }
   void retiredIs() noexcept { retired_ = true; }

   /// Ends all subscriptions to attributes of `entity`.
   void unwatch( const Entity & entity );
   void unwatchAll();

 protected:
   template< auto handler, const auto & attribute, class Self >
   void watchAttribute( const Entity & entity, Self * ) {
      watch( entity, binding< handler, attribute, Self > );
   }
   /// Subscribes to all attributes and collections at once. Hears of a change before those who
   /// watch that attribute, so that it hears of all changes in the order in which they happen.
   template< auto handler, class Self >
   void watchAny( const Entity & entity, Self * ) {
      watch( entity, anyBinding< handler, Self > );
   }

 private:
   friend class Entity;

   template< auto handler, class Self, class E, class Key >
   static void call( Reactor & owner, const void * key, const AttributeId< E, Key > & ) {
      if constexpr ( std::is_void_v< Key > ) {
         ( static_cast< Self & >( owner ).*handler )();
      } else {
         ( static_cast< Self & >( owner ).*handler )( *static_cast< const Key * >( key ) );
      }
   }
   template< auto handler, const auto & attribute, class Self >
   static void hear( Reactor & owner, const void * key ) {
      call< handler, Self >( owner, key, attribute );
   }
   template< auto handler, const auto & attribute, class Self >
   static constexpr Binding binding{ &attribute, &hear< handler, attribute, Self > };
   template< auto handler, class Self >
   static void hearAny( Reactor & owner, const void * change ) {
      ( static_cast< Self & >( owner ).*handler )( *static_cast< const AnyChange * >( change ) );
   }
   template< auto handler, class Self >
   static constexpr Binding anyBinding{ nullptr, &hearAny< handler, Self > };

   void watch( const Entity & entity, const Binding & binding );
   void forget( const Entity & entity );

   PackedVector< const Entity * > watched_;  // one or more times each
};

/// Number of live objects by type name, for the types declared with LUM_ENTITY.
std::map< std::string, std::size_t > census();

/// Counts the live objects of one type.
class TypeCensus {
 public:
   explicit TypeCensus( const char * typeName );
   std::size_t live = 0;
   const char * const typeName;
   TypeCensus * const next;
};

/// Starts an object, where it is one that starts (`handleInitialized`): a state machine would
/// subscribe twice if it started twice. REQUIRES: it has not been started.
template< class T >
void
start( const Ptr< T > & object ) {
   if constexpr ( requires { object->handleInitialized(); } ) {
      const Ptr< T > starting = object;
      Entity & entity = *starting;
      LUM_ASSERT( !entity.started_ );
      entity.started_ = true;
      starting->handleInitialized();
   }
}

/// Creates an object and starts it. An owner that starts what it is given takes a `new` one.
template< class T, class... Args >
Ptr< T >
make( Args &&... args ) {
   Ptr< T > object( new T( std::forward< Args >( args )... ) );
   start( object );
   return object;
}

/// Ends an owned child: its own undoing, then its subscriptions, then the owner's reference.
template< class T >
void
retire( Ptr< T > & child ) {
   const Ptr< T > dying = std::move( child );
   if ( !dying ) {
      return;
   }
   if constexpr ( requires { dying->retiredIs(); } ) {
      dying->retiredIs();
   }
   if constexpr ( requires { dying->doPrepareToDie(); } ) {
      dying->doPrepareToDie();
   }
   if constexpr ( requires { dying->unwatchAll(); } ) {
      dying->unwatchAll();
   }
}

}

/// Subscribes a handler of this reactor: `LUM_WATCH( entity, attribute, handleAttribute )`, where
/// the handler takes nothing; LUM_WATCH_KEYS is for collections, its handler takes the key.
#define LUM_WATCH( entity, attribute, handler )                                                    \
   this->template watchAttribute<                                                                  \
      &std::remove_reference_t< decltype( *this ) >::handler,                                      \
      std::remove_reference_t< decltype( *( entity ) ) >::attribute##Attribute >( *( entity ),     \
                                                                                  this )
#define LUM_WATCH_KEYS( entity, collection, handler ) LUM_WATCH( entity, collection, handler )
/// LUM_WATCH_KEYS, and the handler for each key that is there at this moment, in order.
#define LUM_FOLLOW_KEYS( entity, collection, handler )                                             \
   LUM_WATCH_KEYS( entity, collection, handler );                                                  \
   for ( const auto & lumKey : ::Lum::sortedKeys( ( entity )->collection##Coll() ) ) {             \
      handler( lumKey );                                                                           \
   }                                                                                               \
   static_assert( true )
