// The two stores as one flat name space. Directories are nothing but the paths of what is in them.
// A watch stands on each entity and table; while something is taken over from elsewhere, the watch
// of that field is deaf, but those of everything that its readers change in answer are not.

#include "tools/redis/LocalState.h"

#include "tools/pace/Job.h"
#include "tools/state/JsonPlace.h"
#include "tools/state/StateFields.h"
#include "tools/state/StateTypes.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>

namespace Redis {

namespace {

/// "constraintStatus[5].cspfCount" is part of "constraintStatus[5]".
std::string_view
outermost( std::string_view field ) {
   for ( std::size_t i = 0; i < field.size(); ++i ) {
      if ( field[ i ] == '\\' ) {
         ++i;
      } else if ( field[ i ] == ']' ) {
         return field.substr( 0, i + 1 );
      }
   }
   return field;
}

/// As `State::fieldIs`, of a name that anybody may have written.
void
foreignFieldIs( Lum::Entity & entity, const std::string & field,
                const std::optional< std::string_view > & text ) {
   if ( text && !State::isUtf8( field ) ) {
      throw State::Error( State::Place( State::Place(), field ), "a name in UTF-8" );
   }
   State::fieldIs( entity, field, text );
}

constexpr std::string_view initializedField = "initialized";

bool
isTrue( const FieldText & field ) {
   return field.second && State::Json::parse( *field.second, nullptr, false ) == true;
}

/// The changes in the order in which the fields are described; those of one attribute as they came.
/// What is no longer initialized is so first: until then its watchers take the other fields for
/// granted.
KeyChanges
asDescribed( const Lum::Entity & entity, const KeyChanges & changes ) {
   const std::vector< std::size_t > first;
   std::vector< std::pair< std::vector< std::size_t >, const FieldText * > > order;
   const FieldText * last = nullptr;
   for ( const FieldText & one : changes.fields ) {
      last = one.first == initializedField ? &one : last;
   }
   for ( const FieldText & one : changes.fields ) {
      if ( one.first != initializedField ) {
         order.emplace_back( State::placeOf( entity, one.first ), &one );
      } else if ( &one == last ) {
         order.emplace_back( isTrue( one ) ? State::placeOf( entity, one.first ) : first, &one );
      }
   }
   std::ranges::stable_sort(
      order, {}, []( const auto & one ) -> const auto & { return one.first; } );
   KeyChanges ordered{ changes.key, {} };
   for ( const auto & [ place, one ] : order ) {
      ordered.fields.push_back( *one );
   }
   return ordered;
}

std::string
joined( const std::string & path, const std::string & name ) {
   return path.empty() ? name : path + "/" + name;
}

}

/// Watches one entity, and below it the entities in its collections.
class LocalState::EntityWatch : public Lum::Reactor {
   LUM_ENTITY( Redis, EntityWatch );
   EntityWatch( LocalState & owner, std::string key, std::string prefix,
                Lum::Ptr< Lum::Entity > entity )
      : owner_( owner ),
        key_( std::move( key ) ),
        prefix_( std::move( prefix ) ),
        entity_( std::move( entity ) ) {}

   void handleInitialized() override {
      watchAny< &EntityWatch::handleChange >( *entity_, this );
      State::forEachChildField( *entity_, [ this ]( const std::string & name, const auto & child ) {
         childIs( prefix_ + name, child );
      } );
   }
   const Lum::Ptr< Lum::Entity > & entity() const { return entity_; }
   void tellAll() const {
      State::forEachFieldName( *entity_, [ this ]( const std::string & name ) {
         owner_.changed( key_, prefix_ + name );
      } );
   }

 private:
   void childIs( const std::string & name, const Lum::Ptr< Lum::Entity > & child ) {
      children_[ name ] = Lum::make< EntityWatch >( owner_, key_, name + ".", child );
   }
   void handleChange( const Lum::AnyChange & change ) {
      State::FieldChange field = State::fieldOf( *entity_, change );
      const std::string name = std::move( field.name.insert( 0, prefix_ ) );
      owner_.changed( key_, name );
      if ( !field.isChild ) {
         return;
      }
      if ( const auto old = children_.extract( name ) ) {
         old.mapped()->tellAll();
      }
      if ( field.child ) {
         childIs( name, field.child );
         children_[ name ]->tellAll();
      }
   }

   LocalState & owner_;
   const std::string key_, prefix_;
   const Lum::Ptr< Lum::Entity > entity_;
   std::map< std::string, Lum::Ptr< EntityWatch > > children_;
};

class LocalState::DirWatch : public Lum::Reactor {
   LUM_ENTITY( Redis, DirWatch );
   DirWatch( LocalState & owner, std::string path, Lum::Ptr< Lum::Dir > dir )
      : owner_( owner ),
        path_( std::move( path ) ),
        dir_( std::move( dir ) ) {}

   void handleInitialized() override {
      LUM_WATCH_KEYS( dir_, entity, handleEntry );
      for ( const auto & name : Lum::sortedKeys( dir_->entityColl() ) ) {
         handleEntry( name );
      }
   }
   void end() {
      for ( const auto & name : Lum::sortedKeys( dir_->entityColl() ) ) {
         endEntry( name );
      }
   }

 private:
   void handleEntry( const Lum::String & name ) {
      endEntry( name );
      const std::string path = joined( path_, name );
      const auto entry = dir_->entity( name );
      if ( const auto dir = Lum::cast< Lum::Dir >( entry ) ) {
         dirs_[ name ] = Lum::make< DirWatch >( owner_, path, dir );
      } else if ( entry ) {
         owner_.watchIs( "e:" + path, entry, !owner_.state_.isMounted( path ) );
      }
   }
   void endEntry( const Lum::String & name ) {
      if ( const auto dir = dirs_.extract( name ) ) {
         dir.mapped()->end();
      }
      owner_.watchDel( "e:" + joined( path_, name ) );
   }

   LocalState & owner_;
   const std::string path_;
   const Lum::Ptr< Lum::Dir > dir_;
   std::map< std::string, Lum::Ptr< DirWatch > > dirs_;
};

/// Makes the watches deaf to one field, or to a whole key.
class LocalState::Taking {
 public:
   Taking( LocalState & owner, const std::string & key, std::string_view field = {} )
      : owner_( owner ),
        outerKey_( std::exchange( owner.takenKey_, &key ) ),
        outerField_( std::exchange( owner.takenField_, field ) ) {}
   ~Taking() {
      owner_.takenKey_ = outerKey_;
      owner_.takenField_ = outerField_;
   }
   Taking( const Taking & ) = delete;
   Taking & operator=( const Taking & ) = delete;

 private:
   LocalState & owner_;
   const std::string * const outerKey_;
   const std::string_view outerField_;
};

LocalState::LocalState( Corvdb::StateStore & state, Zorch::TableStore & tables, Handlers handlers )
   : state_( state ),
     tables_( tables ),
     handlers_( std::move( handlers ) ),
     root_( Lum::make< DirWatch >( *this, "", state.root() ) ) {
   for ( const std::string & path : tables_.list( "" ) ) {
      watchIs( "t:" + path, tables_.table( path ), true );
   }
   tables_.listenerIs( this, [ this ]( const std::string & path ) { handleTable( path ); } );
}

LocalState::~LocalState() {
   tables_.listenerIs( this, {} );
}

void
LocalState::changed( const std::string & key, const std::string & field ) {
   if ( takenKey_ && *takenKey_ == key
        && ( takenField_.empty() || outermost( takenField_ ) == outermost( field ) ) ) {
      return;
   }
   handlers_.changed( key, field );
}

void
LocalState::watchIs( const std::string & key, const Lum::Ptr< Lum::Entity > & entity,
                     bool isNews ) {
   if ( handlers_.refusal( key, entity->typeName() ).empty() ) {
      watches_[ key ] = Lum::make< EntityWatch >( *this, key, "", entity );
      if ( isNews ) {
         tellAll( key );
      }
   }
}

/// A table is not worth a word before it has a row: readers make empty ones.
void
LocalState::tellAll( const std::string & key ) {
   if ( !isTable( key ) ) {
      changed( key, "" );
   }
   watches_.at( key )->tellAll();
}

/// Whatever was in it: to name that would take long.
void
LocalState::watchDel( const std::string & key ) {
   if ( watches_.erase( key ) > 0 ) {
      changed( key, "" );
   }
}

void
LocalState::handleTable( const std::string & path ) {
   const std::string key = "t:" + path;
   const auto table = tables_.table( path );
   if ( table && table == entity( key ) ) {
      return;  // who heard of its end before has made it again
   }
   watchDel( key );
   if ( table ) {
      watchIs( key, table, false );
   }
}

std::vector< std::string >
LocalState::keys() const {
   return Lum::sortedKeys( watches_ );
}

Lum::Ptr< Lum::Entity >
LocalState::entity( const std::string & key ) const {
   const auto at = watches_.find( key );
   return at == watches_.end() ? nullptr : at->second->entity();
}

void
LocalState::fieldIs( const std::string & key, const std::string & field,
                     const std::optional< std::string_view > & text ) {
   const auto at = entity( key );
   if ( !at ) {
      return;
   }
   try {
      const Taking taking( *this, key, field );
      foreignFieldIs( *at, field, text );
   } catch ( const State::Error & error ) {
      handlers_.refused( key, field, key + ": " + error.what() );
   }
}

void
LocalState::apply( const KeyChanges & changes ) {
   const std::string & key = changes.key;
   if ( handlers_.isNewer( key, "" ) ) {
      return;
   }
   const auto type = std::ranges::find( changes.fields, typeField, &FieldText::first );
   if ( type != changes.fields.end() && !type->second ) {
      keyDel( key );
   } else if ( type != changes.fields.end() && !entity( key ) ) {
      create( key, *type->second, changes );
   } else if ( const auto present = entity( key ); !present ) {
      refuseKey( key, "missing" );
   } else if ( type != changes.fields.end() && present->typeName() != *type->second ) {
      refuseKey( key, std::string( "expected \"" ) + present->typeName() + "\", found \""
                         + *type->second + "\"" );
   } else if ( changes.isAnew ) {
      KeyChanges all{ key, endedBeside( changes ) };
      std::ranges::copy( changes.fields, std::back_inserter( all.fields ) );
      changeKey( present, all );
   } else {
      changeKey( present, changes );
   }
}

void
LocalState::changeKey( const Lum::Ptr< Lum::Entity > & entity, const KeyChanges & changes ) {
   if ( isTable( changes.key ) ) {
      // Readers alone may have made it.
      tables_.alwaysIs( pathOf( changes.key ), entity->typeName() );
      setWatchedFields( changes );
   } else {
      changeEntity( entity, changes );
   }
}

/// Its watchers hear of its fields in the order in which they are described, whatever the order in
/// which they came. Whether they leave it sound; else nothing happens.
bool
LocalState::changeEntity( const Lum::Ptr< Lum::Entity > & entity, const KeyChanges & changes ) {
   KeyChanges ordered = asDescribed( *entity, changes );
   std::erase_if( ordered.fields, [ & ]( const FieldText & one ) {
      return handlers_.isNewer( changes.key, one.first );
   } );
   const bool fits = isSoundWith( *entity, ordered );
   if ( fits ) {
      setWatchedFields( ordered );
   }
   return fits;
}

/// Whether the entity, as it will be, is sound. Most need no copy for that.
bool
LocalState::isSoundWith( const Lum::Entity & entity, const KeyChanges & changes ) {
   const Judge judge = handlers_.judge( entity.typeName() );
   if ( !judge ) {
      return true;
   }
   const auto copy = state_.types().make( entity.typeName() );
   std::string text;
   State::forEachFieldName( entity, [ & ]( const std::string & name ) {
      text.clear();
      State::appendFieldText( entity, name, text );
      State::fieldIs( *copy, name, text );
   } );
   setFields( changes.key, *copy, changes, false );
   return isSound( *copy, changes.key );
}

bool
LocalState::isSound( const Lum::Entity & entity, const std::string & key ) {
   const Judge judge = handlers_.judge( entity.typeName() );
   const std::string fault = judge ? judge( entity ) : std::string();
   if ( !fault.empty() ) {
      handlers_.refused( key, "", key + ": " + fault );
   }
   return fault.empty();
}

void
LocalState::setWatchedFields( const KeyChanges & changes ) {
   const bool isLong = changes.fields.size() > maxInOneGo;
   for ( const auto & [ field, text ] : changes.fields ) {
      if ( !field.starts_with( '@' ) && !handlers_.isNewer( changes.key, field ) ) {
         fieldIs( changes.key, field, text );
      }
      if ( isLong ) {
         Pace::breathe();
      }
   }
}

void
LocalState::refuseKey( const std::string & key, const std::string & why ) {
   handlers_.refused( key, "", key + ": /" + std::string( typeField ) + ": " + why );
}

void
LocalState::create( const std::string & key, const std::string & type,
                    const KeyChanges & changes ) {
   std::string refusal = handlers_.refusal( key, type );
   if ( refusal.empty() && !state_.types().has( type ) ) {
      refusal = "expected the name of a state type, found \"" + type + "\"";
   }
   if ( !refusal.empty() ) {
      refuseKey( key, refusal );
   } else if ( !isTable( key ) ) {
      createEntity( key, type, changes );
   } else {
      tableIs( key, type );
      setWatchedFields( changes );
   }
}

void
LocalState::tableIs( const std::string & key, const std::string & type ) {
   const Taking taking( *this, key );
   tables_.alwaysIs( pathOf( key ), type );
}

void
LocalState::createEntity( const std::string & key, const std::string & type,
                          const KeyChanges & changes ) {
   const auto made = state_.types().make( type );
   setFields( key, *made, changes, true );
   if ( !isSound( *made, key ) || handlers_.isNewer( key, "" ) ) {  // it may have come meanwhile
      return;
   }
   const std::string path = pathOf( key );
   const auto slash = path.rfind( '/' );
   const auto dir = Lum::cast< Lum::Dir >(
      slash == path.npos ? state_.root() : state_.entityIs( path.substr( 0, slash ), "Lum::Dir" ) );
   if ( !dir ) {
      handlers_.refused( key, "", key + ": a part of its path is no directory" );
      return;
   }
   const Taking taking( *this, key );
   dir->entityIs( path.substr( slash + 1 ), made );
}

/// On an entity that nobody watches yet.
void
LocalState::setFields( const std::string & key, Lum::Entity & entity, const KeyChanges & changes,
                       bool complains ) {
   const bool isLong = changes.fields.size() > maxInOneGo;
   for ( const auto & [ field, text ] : changes.fields ) {
      if ( isLong ) {
         Pace::breathe();
      }
      if ( field.starts_with( '@' ) ) {
         continue;
      }
      try {
         foreignFieldIs( entity, field, text );
      } catch ( const State::Error & error ) {
         if ( complains ) {
            handlers_.refused( key, field, key + ": " + error.what() );
         }
      }
   }
}

std::vector< FieldText >
LocalState::endedBeside( const KeyChanges & theirs ) const {
   std::vector< FieldText > ended;
   std::unordered_set< std::string_view > names;
   for ( const auto & [ field, text ] : theirs.fields ) {
      names.insert( field );
      Pace::breathe();
   }
   const auto present = entity( theirs.key );
   for ( std::string & field :
         present ? State::fieldNames( *present ) : std::vector< std::string >() ) {
      if ( !names.contains( field ) && !handlers_.isNewer( theirs.key, field ) ) {
         ended.emplace_back( std::move( field ), std::nullopt );
      }
      Pace::breathe();
   }
   return ended;
}

/// Whether the key, or anything in it, is newer.
bool
LocalState::hasNewer( const std::string & key ) const {
   const auto isNewer = [ & ]( const std::string & field ) {
      return handlers_.isNewer( key, field );
   };
   const auto present = entity( key );
   return isNewer( "" )
          || ( present && std::ranges::any_of( State::fieldNames( *present ), isNewer ) );
}

void
LocalState::keyDel( const std::string & key ) {
   const auto present = entity( key );
   if ( !present ) {
      return;
   }
   if ( isTable( key ) || state_.isMounted( pathOf( key ) ) || hasNewer( key ) ) {
      const KeyChanges all{ key, endedBeside( { key, {} } ) };
      if ( isTable( key ) ) {
         setWatchedFields( all );
      } else if ( !changeEntity( present, all ) ) {
         tellAll( key );  // what is newer does not stand alone
         return;
      }
   }
   if ( hasNewer( key ) ) {
      return;  // it has come again
   }
   const Taking taking( *this, key );
   if ( isTable( key ) ) {
      tables_.writerGone( pathOf( key ) );
   } else if ( !state_.isMounted( pathOf( key ) ) ) {
      state_.entityDel( pathOf( key ) );
   }
}

}
