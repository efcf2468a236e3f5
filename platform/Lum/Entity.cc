// Entities and their watchers. An entity keeps one list of subscriptions for each attribute that
// somebody watches, so that a change costs its own watchers only; an entity that nobody watches
// pays one null pointer. While a list is being delivered nothing is unlinked from it: a
// subscription that ends is marked (its owner is null) and swept when the outermost delivery
// of that list is over. Subscriptions made meanwhile stand behind the last node that this
// delivery will visit.

#include "platform/Lum/Entity.h"

namespace Lum {

struct Entity::AttributeList {
   const void * attribute;
   Subscription * first = nullptr;
   Subscription * last = nullptr;
   int deliveries = 0;
   bool swept = true;
   AttributeList * next = nullptr;
};

/// Keeps ended subscriptions of a list in their place while it is delivered, however that ends.
struct Entity::Delivery {
   explicit Delivery( AttributeList & delivered ) : list( delivered ) { ++list.deliveries; }
   ~Delivery() {
      if ( --list.deliveries == 0 && !list.swept ) {
         sweep( list );
      }
   }

   AttributeList & list;
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

Entity::~Entity() {
   while ( lists_ ) {
      AttributeList * list = lists_;
      while ( Subscription * subscription = list->first ) {
         if ( subscription->owner ) {
            subscription->owner->forget( subscription );
         }
         list->first = subscription->next;
         delete subscription;
      }
      lists_ = list->next;
      delete list;
   }
}

/// The list of those who watch any attribute comes first, so that it is seen at once.
Entity::AttributeList &
Entity::listIs( const void * attribute ) const {
   if ( AttributeList * list = find( attribute ) ) {
      return *list;
   }
   AttributeList ** place = &lists_;
   while ( attribute && *place ) {
      place = &( *place )->next;
   }
   return *( *place = new AttributeList{ .attribute = attribute, .next = *place } );
}

Entity::AttributeList *
Entity::find( const void * attribute ) const {
   AttributeList * list = lists_;
   while ( list && list->attribute != attribute ) {
      list = list->next;
   }
   return list;
}

void
Entity::deliver( const void * attribute, const void * key ) const {
   const Ptr< const Entity > alive( references_ ? this : nullptr );
   if ( lists_ && !lists_->attribute ) {
      const AnyChange change{ attribute, key };
      deliverTo( *lists_, &change );
   }
   if ( AttributeList * list = find( attribute ) ) {
      deliverTo( *list, key );
   }
}

void
Entity::deliverTo( AttributeList & list, const void * key ) {
   if ( !list.first ) {
      return;
   }
   const Delivery delivery( list );
   const Subscription * const last = list.last;
   for ( Subscription * s = list.first;; s = s->next ) {
      if ( s->owner ) {
         const Ptr< Reactor > owner( s->owner->references() ? s->owner : nullptr );
         s->deliver( *s->owner, key );
      }
      if ( s == last ) {
         return;
      }
   }
}

void
Entity::sweep( AttributeList & list ) {
   list.swept = true;
   for ( Subscription * s = list.first; s; ) {
      Subscription * next = s->next;
      if ( !s->owner ) {
         ( s->previous ? s->previous->next : list.first ) = s->next;
         ( s->next ? s->next->previous : list.last ) = s->previous;
         delete s;
      }
      s = next;
   }
}

void
Entity::unlink( Subscription * s ) {
   AttributeList & list = s->entity->listIs( s->attribute );
   if ( list.deliveries ) {
      s->owner = nullptr;
      list.swept = false;
      return;
   }
   ( s->previous ? s->previous->next : list.first ) = s->next;
   ( s->next ? s->next->previous : list.last ) = s->previous;
   delete s;
}

void
Reactor::watch( const Entity & entity, const void * attribute, Subscription::Deliver deliver ) {
   Entity::AttributeList & list = entity.listIs( attribute );
   auto * s = new Subscription{ &entity, attribute, this, deliver };
   s->previous = list.last;
   ( list.last ? list.last->next : list.first ) = s;
   list.last = s;
   s->ownerNext = subscriptions_;
   if ( subscriptions_ ) {
      subscriptions_->ownerPrevious = s;
   }
   subscriptions_ = s;
}

void
Reactor::forget( Subscription * s ) {
   ( s->ownerPrevious ? s->ownerPrevious->ownerNext : subscriptions_ ) = s->ownerNext;
   if ( s->ownerNext ) {
      s->ownerNext->ownerPrevious = s->ownerPrevious;
   }
}

void
Reactor::unwatch( const Entity & entity ) {
   for ( Subscription * s = subscriptions_; s; ) {
      Subscription * next = s->ownerNext;
      if ( s->entity == &entity ) {
         forget( s );
         Entity::unlink( s );
      }
      s = next;
   }
}

void
Reactor::unwatchAll() {
   while ( Subscription * s = subscriptions_ ) {
      forget( s );
      Entity::unlink( s );
   }
}

}
