#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Zorch/TableStore.h"
#include "tools/redis/Border.h"
#include "tools/redis/Change.h"

#include <functional>
#include <map>
#include <memory>

namespace Redis {

/// The state of this process as keys and fields: tells of what changes here, and takes over what
/// has changed elsewhere.
class LocalState {
 public:
   struct Handlers {
      /// A field, or with an empty name the key itself, has come, changed or gone here. Not told of
      /// what is taken over from elsewhere.
      std::function< void( const std::string & key, const std::string & field ) > changed;
      /// Why nothing of that type may stand at the key; empty where it may.
      std::function< std::string( const std::string & key, const std::string & type ) > refusal;
      /// Who judges an entity of the type as a whole.
      std::function< Judge( const std::string & type ) > judge;
      /// Something from elsewhere is refused: a field, or with an empty name the key itself. `line`
      /// says which, and why.
      std::function< void( const std::string & key, std::string_view field,
                           const std::string & line ) >
         refused;
      /// Whether a field, or with an empty name the key itself, is newer here than what is taken
      /// over.
      std::function< bool( const std::string & key, const std::string & field ) > isNewer =
         []( const auto &, const auto & ) { return false; };
   };

   /// The stores outlive it.
   LocalState( Corvdb::StateStore & state, Zorch::TableStore & tables, Handlers handlers );
   ~LocalState();
   LocalState( const LocalState & ) = delete;
   LocalState & operator=( const LocalState & ) = delete;

   /// All that there is, directories excepted, in order.
   std::vector< std::string > keys() const;
   /// Null where there is none.
   Lum::Ptr< Lum::Entity > entity( const std::string & key ) const;

   /// Tells all that there is at the key as if it had come just now. REQUIRES: something is there.
   void tellAll( const std::string & key );

   /// Takes over what is not newer here. A key that is new comes whole: its entity is complete when
   /// others see it.
   void apply( const KeyChanges & changes );
   /// Takes the end of a key over. What is mounted stays: without entries, with its defaults; and
   /// so does what is newer.
   void keyDel( const std::string & key );
   /// The end of each field that is there beside those, and not newer.
   std::vector< FieldText > endedBeside( const KeyChanges & theirs ) const;
   void fieldIs( const std::string & key, const std::string & field,
                 const std::optional< std::string_view > & text );

 private:
   class EntityWatch;
   class DirWatch;
   class Taking;

   void changed( const std::string & key, const std::string & field );
   void watchIs( const std::string & key, const Lum::Ptr< Lum::Entity > & entity, bool isNews );
   void watchDel( const std::string & key );
   void handleTable( const std::string & path );
   void create( const std::string & key, const std::string & type, const KeyChanges & changes );
   void tableIs( const std::string & key, const std::string & type );
   void createEntity( const std::string & key, const std::string & type,
                      const KeyChanges & changes );
   bool hasNewer( const std::string & key ) const;
   void changeKey( const Lum::Ptr< Lum::Entity > & entity, const KeyChanges & changes );
   bool changeEntity( const Lum::Ptr< Lum::Entity > & entity, const KeyChanges & changes );
   bool isSoundWith( const Lum::Entity & entity, const KeyChanges & changes );
   bool isSound( const Lum::Entity & entity, const std::string & key );
   void setFields( const std::string & key, Lum::Entity & entity, const KeyChanges & changes,
                   bool complains );
   void setWatchedFields( const KeyChanges & changes );
   void refuseKey( const std::string & key, const std::string & why );

   Corvdb::StateStore & state_;
   Zorch::TableStore & tables_;
   const Handlers handlers_;
   /// What is being taken over; an empty field is the key with all its fields.
   const std::string * takenKey_ = nullptr;
   std::string_view takenField_;
   // The watches tell as soon as they are made.
   std::map< std::string, Lum::Ptr< EntityWatch > > watches_;
   Lum::Ptr< DirWatch > root_;
};

}
