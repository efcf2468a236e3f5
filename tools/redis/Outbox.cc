// Changes on their way to the database. One batch is in flight at a time; more changes gather
// behind it, so the batches grow with the load. A batch counts as standing in the log only when the
// log has been followed past it: until then entries of others on the same fields are older.

#include "tools/redis/Outbox.h"

#include "tools/redis/PackedChanges.h"
#include "tools/state/JsonPlace.h"
#include "tools/state/StateFields.h"

#include <algorithm>

namespace Redis {

namespace {

/// Fields of one batch: while it is written down, this process hears nobody else, and while it is
/// taken, the server does not.
constexpr std::size_t maxFields = 4'000;

/// As `State::appendFieldText`; nothing stands under a name that cannot be.
bool
appendText( const Lum::Entity & entity, const std::string & field, std::string & text ) {
   try {
      return State::appendFieldText( entity, field, text );
   } catch ( const State::Error & ) {
      return false;
   }
}

std::uint32_t
hashOf( std::string_view name ) {
   return static_cast< std::uint32_t >( std::hash< std::string_view >()( name ) );
}

}

/// The slot of the name, or a free one where there is none. REQUIRES: there are slots.
std::size_t
Outbox::Names::slotOf( std::uint32_t hash, std::string_view name ) const {
   const std::size_t mask = slots_.size() - 1;
   std::size_t at = hash & mask;
   while (
      slots_[ at ].place != 0
      && ( slots_[ at ].hash != hash || inOrder_[ slots_[ at ].place - taken_ - 1 ] != name ) ) {
      at = ( at + 1 ) & mask;
   }
   return at;
}

void
Outbox::Names::grow() {
   const std::size_t size = slots_.empty() ? 16 : 2 * slots_.size();
   for ( const Slot & slot : std::exchange( slots_, std::vector< Slot >( size ) ) ) {
      if ( slot.place != 0 ) {
         std::size_t at = slot.hash & ( size - 1 );
         while ( slots_[ at ].place != 0 ) {
            at = ( at + 1 ) & ( size - 1 );
         }
         slots_[ at ] = slot;
      }
   }
}

void
Outbox::Names::insert( std::string_view name ) {
   if ( 2 * ( size() + 1 ) > slots_.size() ) {
      grow();
   }
   const std::uint32_t hash = hashOf( name );
   Slot & slot = slots_[ slotOf( hash, name ) ];
   if ( slot.place == 0 ) {
      inOrder_.emplace_back( name );
      slot = { hash, taken_ + static_cast< std::uint32_t >( size() ) };
   }
}

bool
Outbox::Names::contains( std::string_view name ) const {
   return !slots_.empty() && slots_[ slotOf( hashOf( name ), name ) ].place != 0;
}

/// What stands behind the slot moves up where it may, so that no search ends too early. REQUIRES:
/// there is a name.
std::string
Outbox::Names::takeFirst() {
   const std::size_t mask = slots_.size() - 1;
   std::size_t hole = slotOf( hashOf( inOrder_.front() ), inOrder_.front() );
   for ( std::size_t at = ( hole + 1 ) & mask; slots_[ at ].place != 0; at = ( at + 1 ) & mask ) {
      if ( ( ( at - slots_[ at ].hash ) & mask ) >= ( ( at - hole ) & mask ) ) {
         slots_[ hole ] = slots_[ at ];
         hole = at;
      }
   }
   slots_[ hole ] = {};
   ++taken_;
   std::string name = std::move( inOrder_.front() );
   inOrder_.pop_front();
   return name;
}

Outbox::Names
Outbox::Names::takeFirst( std::size_t most ) {
   if ( size() <= most ) {
      return std::exchange( *this, {} );
   }
   Names first;
   while ( first.size() < most ) {
      first.insert( takeFirst() );
   }
   return first;
}

Outbox::Fields &
Outbox::pendingOf( const std::string & key ) {
   const auto [ at, isNew ] = pending_.keys.try_emplace( key );
   if ( isNew ) {
      pending_.order.push_back( key );
   }
   return at->second;
}

void
Outbox::changed( const std::string & key, const std::string & field ) {
   Fields & fields = pendingOf( key );
   if ( field.empty() ) {
      fields.whole = true;
   } else {
      fields.names.insert( field );
   }
}

void
Outbox::ended( const std::string & key ) {
   Fields & fields = pendingOf( key );
   fields = {};
   fields.ended = true;
}

std::size_t
Outbox::size() const {
   std::size_t fields = 0;
   for ( const auto & [ key, one ] : pending_.keys ) {
      fields += one.size();
   }
   return fields;
}

bool
Outbox::holds( const Batch & batch, const std::string & key, const std::string & field ) {
   const auto at = batch.keys.find( key );
   return at != batch.keys.end()
          && ( at->second.ended || at->second.whole || at->second.names.contains( field ) );
}

bool
Outbox::holds( const std::string & key, const std::string & field ) const {
   return holds( pending_, key, field )
          || std::ranges::any_of(
             sent_, [ & ]( const Batch & batch ) { return holds( batch, key, field ); } );
}

bool
Outbox::holdsAny( const std::string & key ) const {
   return pending_.keys.contains( key )
          || std::ranges::any_of(
             sent_, [ & ]( const Batch & batch ) { return batch.keys.contains( key ); } );
}

void
Outbox::addKey( const LocalState & state, const std::string & key, const Fields & fields,
                Command & command ) {
   const auto entity = state.entity( key );
   const bool hasCome = fields.whole || fields.names.size() > 0;
   if ( fields.ended ) {
      command.add( key ).add( "" ).add( "" );
   }
   if ( !entity || !hasCome ) {
      return;
   }
   PackedChanges changes;
   const auto add = [ & ] { command.add( key ).add( entity->typeName() ).add( changes.take() ); };
   std::string text;
   for ( const std::string & field : fields.names.inOrder() ) {
      text.clear();
      if ( appendText( *entity, field, text ) ) {
         changes.fieldIs( field, text );
      } else {
         changes.fieldDel( field );
      }
      if ( changes.size() == PackedChanges::most ) {
         add();
      }
   }
   if ( changes.size() > 0 || fields.names.size() == 0 ) {
      add();
   }
}

std::size_t
Outbox::take( const LocalState & state, Command & command ) {
   Batch batch;
   std::size_t room = maxFields;
   while ( room > 0 && hasPending() ) {
      const std::string key = pending_.order.front();
      if ( !state.entity( key ) ) {
         ended( key );  // whatever has changed in it before
      }
      Fields & all = pending_.keys.at( key );
      if ( all.ended && !batch.order.empty()
           && room < 1 + std::min( all.names.size(), maxFields - 1 ) ) {
         break;  // what comes again goes with its end, if that is possible
      }
      Fields & fields = batch.keys[ key ];
      fields.ended = std::exchange( all.ended, false );
      fields.whole = all.whole;
      room -= fields.ended;
      fields.names = all.names.takeFirst( room );
      room -= fields.names.size();
      batch.order.push_back( key );
      addKey( state, key, fields, command );
      if ( all.names.size() == 0 ) {
         pending_.keys.erase( key );
         pending_.order.pop_front();
      }
   }
   sent_.push_back( std::move( batch ) );
   return maxFields - room;
}

void
Outbox::acknowledged( std::uint64_t revision ) {
   if ( isInFlight() ) {
      sent_.back().revision = revision;
   }
}

void
Outbox::reached( std::uint64_t revision, bool own ) {
   if ( own && isInFlight()
        && ( sent_.size() == 1 || sent_[ sent_.size() - 2 ].revision < revision ) ) {
      sent_.back().revision = revision;
   }
   while ( !sent_.empty() && sent_.front().revision != 0 && sent_.front().revision <= revision ) {
      sent_.pop_front();
   }
}

void
Outbox::refused( const std::string & key ) {
   restore();
   pending_.keys.erase( key );
   std::erase( pending_.order, key );
}

void
Outbox::restore() {
   if ( isInFlight() ) {
      restoreLast();
   }
}

void
Outbox::restoreAll() {
   while ( !sent_.empty() ) {
      restoreLast();
   }
}

/// It goes in front of what is pending.
void
Outbox::restoreLast() {
   Batch newer = std::exchange( pending_, std::move( sent_.back() ) );
   sent_.pop_back();
   for ( const std::string & key : newer.order ) {
      Fields & fields = newer.keys.at( key );
      Fields & older = pendingOf( key );
      if ( fields.ended ) {
         older = std::move( fields );
         continue;
      }
      older.whole |= fields.whole;
      for ( const std::string & name : fields.names.inOrder() ) {
         older.names.insert( name );
      }
   }
}

}
