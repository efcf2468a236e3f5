// Entities and their watchers. There are many entities, and most attributes that are watched have
// one watcher: that one takes two words in its entity, a crowd has a place of its own, and an
// entity that nobody watches pays a null pointer. A watcher only remembers whom it watches. While a
// crowd is told nobody is moved in it: a subscription that ends is marked (its owner is null) and
// swept when the outermost delivery is over. Subscriptions made meanwhile stand behind the last one
// that this delivery will visit.

#include "platform/Lum/Entity.h"

#include "platform/Lum/HashTable.h"

#include <memory>

namespace Lum {

/// The watchers of one attribute in the order in which they came. O(1) to come and to go, however
/// many there are.
class Entity::Crowd {
 public:
   struct Member {
      const Binding * binding;
      Reactor * owner;  // null once ended
      std::uint64_t number = 0;
   };

   explicit Crowd( const void * watched ) : attribute( watched ) {}
   static void * operator new( std::size_t bytes ) { return takeBlock( bytes ); }
   static void operator delete( void * block, std::size_t bytes ) { giveBlock( block, bytes ); }

   const void * const attribute;

   void add( Member member ) {
      member.number = ++last_;
      members_.push_back( member );
      if ( numbers_ ) {
         note( member );
      } else if ( members_.size() > few ) {
         numbers_ = std::make_unique< Numbers >();
         std::for_each( members_.begin(), members_.end(),
                        [ this ]( const Member & m ) { note( m ); } );
      }
   }
   void end( const Reactor & owner );
   void tell( const void * key );
   /// The owners forget the entity, which ends.
   void dissolve( const Entity & entity );

 private:
   static constexpr std::size_t few = 16;

   /// One of the subscriptions of a watcher, which may have several.
   struct Subscription {
      const Reactor * owner;
      std::uint32_t nth = 0;

      bool operator==( const Subscription & ) const = default;
   };
   struct HashOf {
      std::size_t operator()( const Subscription & of ) const noexcept {
         return reinterpret_cast< std::uintptr_t >( of.owner ) + of.nth;
      }
   };
   using Numbers = HashMap< Subscription, std::uint64_t, HashOf >;
   struct Delivery;

   void endMember( Member & member ) {
      member.owner = nullptr;
      ++ended_;
   }
   void sweepIfDue() {
      if ( !deliveries_ && ended_ && ( !numbers_ || 2 * ended_ > members_.size() ) ) {
         sweep();
      }
   }
   void sweep();
   void note( const Member & member );

   PackedVector< Member > members_;      // by number
   std::unique_ptr< Numbers > numbers_;  // where there are many, of those that have not ended
   std::uint64_t last_ = 0;
   std::size_t ended_ = 0;  // and not swept
   int deliveries_ = 0;
};

/// Keeps all members in their places while they are told, however that ends.
struct Entity::Crowd::Delivery {
   explicit Delivery( Crowd & told ) : crowd( told ) { ++crowd.deliveries_; }
   ~Delivery() {
      --crowd.deliveries_;
      crowd.sweepIfDue();
   }

   Crowd & crowd;
};

namespace {

TypeCensus * allTypes = nullptr;

}

TypeCensus::TypeCensus( const char * name ) : typeName( name ), next( allTypes ) {
   allTypes = this;
}

std::map< std::string, std::size_t >
census() {
   std::map< std::string, std::size_t > live;
   for ( const TypeCensus * type = allTypes; type; type = type->next ) {
      if ( type->live ) {
         live[ type->typeName ] += type->live;
      }
   }
   return live;
}

void
Entity::Crowd::note( const Member & member ) {
   if ( member.owner ) {
      Subscription subscription{ member.owner };
      while ( !numbers_->try_emplace( subscription, member.number ).second ) {
         ++subscription.nth;
      }
   }
}

void
Entity::Crowd::end( const Reactor & owner ) {
   if ( !numbers_ ) {
      for ( Member & member : members_ ) {
         if ( member.owner == &owner ) {
            endMember( member );
         }
      }
   } else {
      for ( Subscription subscription{ &owner };
            const auto number = numbers_->extract( subscription ); ++subscription.nth ) {
         endMember( *std::lower_bound(
            members_.begin(), members_.end(), number.mapped(),
            []( const Member & member, std::uint64_t n ) { return member.number < n; } ) );
      }
   }
   sweepIfDue();
}

void
Entity::Crowd::tell( const void * key ) {
   const Delivery delivery( *this );
   const std::size_t present = members_.size();
   for ( std::size_t i = 0; i < present; ++i ) {
      if ( const Member member = members_.begin()[ i ]; member.owner ) {
         deliverTo( *member.owner, *member.binding, key );
      }
   }
}

void
Entity::Crowd::dissolve( const Entity & entity ) {
   for ( const Member & member : members_ ) {
      if ( member.owner ) {
         member.owner->forget( entity );
      }
   }
}

void
Entity::Crowd::sweep() {
   members_.erase( std::remove_if( members_.begin(), members_.end(),
                                   []( const Member & member ) { return !member.owner; } ),
                   members_.end() );
   ended_ = 0;
   if ( members_.size() <= few ) {
      numbers_ = nullptr;
   }
}

const void *
Entity::Watchers::attribute() const {
   return binding ? binding->attribute : crowd->attribute;
}

Entity::~Entity() {
   for ( const Watchers & watchers : watchers_ ) {
      if ( watchers.binding ) {
         watchers.owner->forget( *this );
      } else {
         watchers.crowd->dissolve( *this );
         delete watchers.crowd;
      }
   }
}

Entity::Watchers *
Entity::find( const void * attribute ) const {
   return std::find_if( watchers_.begin(), watchers_.end(), [ & ]( const Watchers & watchers ) {
      return watchers.attribute() == attribute;
   } );
}

void
Entity::subscribe( Reactor & owner, const Binding & binding ) const {
   Watchers * const present = find( binding.attribute );
   if ( present == watchers_.end() ) {
      watchers_.insert( binding.attribute ? watchers_.end() : watchers_.begin(),
                        { &binding, { &owner } } );
      return;
   }
   if ( present->binding ) {
      auto * const crowd = new Crowd( binding.attribute );
      crowd->add( { present->binding, present->owner } );
      present->binding = nullptr;
      present->crowd = crowd;
   }
   present->crowd->add( { &binding, &owner } );
}

void
Entity::unsubscribe( const Reactor & owner ) const {
   for ( const Watchers & watchers : watchers_ ) {
      if ( !watchers.binding ) {
         watchers.crowd->end( owner );
      }
   }
   watchers_.erase( std::remove_if( watchers_.begin(), watchers_.end(),
                                    [ & ]( const Watchers & watchers ) {
                                       return watchers.binding && watchers.owner == &owner;
                                    } ),
                    watchers_.end() );
}

void
Entity::deliver( const void * attribute, const void * key ) const {
   const Ptr< const Entity > alive( references_ ? this : nullptr );
   if ( !watchers_.begin()->attribute() ) {
      const AnyChange change{ attribute, key };
      deliverTo( *watchers_.begin(), &change );
   }
   if ( const Watchers * const watchers = find( attribute ); watchers != watchers_.end() ) {
      deliverTo( *watchers, key );
   }
}

void
Entity::deliverTo( const Watchers & watchers, const void * key ) {
   if ( watchers.binding ) {
      deliverTo( *watchers.owner, *watchers.binding, key );
   } else {
      watchers.crowd->tell( key );
   }
}

void
Entity::deliverTo( Reactor & owner, const Binding & binding, const void * key ) {
   const Ptr< Reactor > alive( owner.references() ? &owner : nullptr );
   binding.deliver( owner, key );
}

void
Reactor::watch( const Entity & entity, const Binding & binding ) {
   entity.subscribe( *this, binding );
   if ( watched_.empty() || watched_.back() != &entity ) {
      watched_.push_back( &entity );
   }
}

void
Reactor::forget( const Entity & entity ) {
   watched_.erase( std::remove( watched_.begin(), watched_.end(), &entity ), watched_.end() );
}

void
Reactor::unwatch( const Entity & entity ) {
   forget( entity );
   entity.unsubscribe( *this );
}

void
Reactor::unwatchAll() {
   for ( const Entity * entity : watched_ ) {
      entity->unsubscribe( *this );
   }
   watched_.clear();
}

}
