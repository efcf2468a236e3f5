#pragma once

#include "platform/Lum/Attribute.h"

#include <compare>
#include <cstdint>
#include <functional>
#include <set>
#include <string>

namespace Kiv {

class DedupHashTable;

/// A value that equal users share: one counted object for each distinct content. Users hold it by
/// `Lum::Ptr`; when the last one lets go, it leaves its table and is deleted.
class DedupHandle : public Lum::Entity {
 public:
   /// Names a handle without holding it. Ordered by age, so that walks are repeatable.
   class Key {
    public:
      Key() noexcept = default;
      Key( const DedupHandle * handle ) noexcept
         : handle_( handle ),
           serial_( handle ? handle->serial() : 0 ) {}
      template< class T >
      Key( const Lum::Ptr< T > & handle ) noexcept
         : Key( static_cast< const DedupHandle * >( handle.ptr() ) ) {}

      /// REQUIRES for use: somebody holds the handle.
      const DedupHandle * handle() const noexcept { return handle_; }
      std::uint64_t serial() const noexcept { return serial_; }
      std::size_t hash() const noexcept { return Lum::hashMix( 0, serial_ ); }
      std::string stringValue() const { return "#" + std::to_string( serial_ ); }
      explicit operator bool() const noexcept { return serial_ != 0; }
      bool operator==( const Key & other ) const noexcept { return serial_ == other.serial_; }
      auto operator<=>( const Key & other ) const noexcept { return serial_ <=> other.serial_; }

    private:
      const DedupHandle * handle_ = nullptr;
      std::uint64_t serial_ = 0;
   };

   DedupHandle() noexcept : serial_( ++lastSerial ) {}

   /// Of the content. Equal contents have equal hashes, and compare equal.
   virtual std::size_t hash() const = 0;
   /// The order in which users keep handles; by content, unless a type says otherwise. REQUIRES:
   /// `other` is of the same type.
   virtual std::strong_ordering compare( const DedupHandle & other ) const = 0;
   /// As the table tells handles apart. REQUIRES: as above.
   virtual std::strong_ordering compareByContent( const DedupHandle & other ) const {
      return compare( other );
   }
   /// A number of its own, larger than that of any earlier handle.
   std::uint64_t serial() const noexcept { return serial_; }
   /// One more user.
   Lum::Ptr< DedupHandle > referencesIncReturnRef() noexcept { return this; }

 protected:
   void lastReferenceGone() override;

 private:
   friend class DedupHashTable;
   static inline std::uint64_t lastSerial = 0;

   const std::uint64_t serial_;
   DedupHashTable * table_ = nullptr;
};

/// Hears when a distinct content comes into use for the first time, and when its last user lets it
/// go (the handle is out of the table by then, and lives until the call returns).
class DedupLifeTimeNotifiee : public Lum::Entity {
 public:
   virtual void handleInsert( const Lum::Ptr< DedupHandle > & handle ) = 0;
   virtual void handleRemove( const Lum::Ptr< DedupHandle > & handle ) = 0;
};

/// The distinct contents that are in use. It holds no references: users do. Two forms: an ordered
/// set by content, or an unordered set by `hash`.
class DedupHashTable : public Lum::Entity {
   LUM_ENTITY( Kiv, DedupHashTable );
   ~DedupHashTable() override;

   /// Chooses the form. REQUIRES: the table is empty.
   void DedupHashTableUnorderedSetIs( bool unordered );
   /// The table holds the notifiee; null for none.
   void lifeTimeNotifieeIs( Lum::Ptr< DedupLifeTimeNotifiee > notifiee ) {
      notifiee_ = std::move( notifiee );
   }
   /// Gives the one shared handle that is equal to the candidate: an earlier one, or else the
   /// candidate itself, of which the notifiee hears before this returns. REQUIRES: the candidate is
   /// in no other table, and the table is not being detached.
   Lum::Ptr< DedupHandle > dedup( const Lum::Ptr< DedupHandle > & candidate );
   std::size_t size() const noexcept { return unorderedSet_.size() + orderedSet_.size(); }
   /// From now on no handle is to be had; those in use just go when their users let go.
   void detach();
   bool beingDetached() const noexcept { return beingDetached_; }

 private:
   friend class DedupHandle;

   struct HashContent {
      std::size_t operator()( const DedupHandle * h ) const { return h->hash(); }
   };
   struct EqualContent {
      bool operator()( const DedupHandle * a, const DedupHandle * b ) const {
         return a->compareByContent( *b ) == 0;
      }
   };
   struct LessContent {
      bool operator()( const DedupHandle * a, const DedupHandle * b ) const {
         return a->compareByContent( *b ) < 0;
      }
   };

   void remove( DedupHandle * handle );

   bool unordered_ = false;
   bool beingDetached_ = false;
   Lum::Ptr< DedupLifeTimeNotifiee > notifiee_;
   Lum::HashSet< DedupHandle *, HashContent, EqualContent > unorderedSet_;
   std::set< DedupHandle *, LessContent > orderedSet_;
};

/// A de-duplication table of handles of one type.
template< class T >
class DedupTable : public DedupHashTable {
 public:
   Lum::Ptr< T > dedup( const Lum::Ptr< T > & candidate ) {
      return Lum::Ptr< T >( static_cast< T * >( DedupHashTable::dedup( candidate ).ptr() ) );
   }
};

}
