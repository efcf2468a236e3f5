#pragma once

#include "platform/Lum/Blocks.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace Lum {

/// A hash table that grows a bucket at a time (linear hashing, Litwin 1980), so that no insertion
/// into a large one holds everybody up. Entries do not move in memory and have no order. An
/// insertion ends walks, as with the standard's tables; the end of one entry leaves all others.
///
/// `KeyOf`, `HashOf`, `Equal`: of an entry its key, of a key its hash, and whether two are equal.
template< class Entry, class KeyOf, class HashOf, class Equal >
class HashTable {
   struct Node {
      Node * next;
      Entry entry;
      static void * operator new( std::size_t bytes ) { return takeBlock( bytes ); }
      static void operator delete( void * node, std::size_t bytes ) { giveBlock( node, bytes ); }
   };
   using Buckets = std::vector< Node * >;

   template< class E >
   class Iterator {
    public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = Entry;
      using difference_type = std::ptrdiff_t;
      using pointer = E *;
      using reference = E &;

      Iterator() = default;
      operator Iterator< const E >() const noexcept { return { buckets_, bucket_, node_ }; }
      E & operator*() const noexcept { return node_->entry; }
      E * operator->() const noexcept { return &node_->entry; }
      Iterator & operator++() noexcept {
         node_ = node_->next;
         toEntry();
         return *this;
      }
      Iterator operator++( int ) noexcept {
         const Iterator at = *this;
         ++*this;
         return at;
      }
      friend bool operator==( const Iterator & a, const Iterator & b ) noexcept {
         return a.node_ == b.node_;
      }

    private:
      friend class HashTable;
      template< class Other >
      friend class Iterator;

      Iterator( const Buckets * buckets, std::size_t bucket, Node * node ) noexcept
         : buckets_( buckets ),
           bucket_( bucket ),
           node_( node ) {}
      void toEntry() noexcept {
         while ( !node_ && ++bucket_ < buckets_->size() ) {
            fetchAhead( *buckets_, bucket_ );
            node_ = ( *buckets_ )[ bucket_ ];
         }
      }

      const Buckets * buckets_ = nullptr;
      std::size_t bucket_ = 0;
      Node * node_ = nullptr;
   };

 public:
   using key_type = std::remove_cvref_t< std::invoke_result_t< KeyOf, const Entry & > >;
   using value_type = Entry;
   using size_type = std::size_t;
   using iterator = Iterator< Entry >;
   using const_iterator = Iterator< const Entry >;

   HashTable() = default;
   HashTable( const HashTable & other ) {
      reserve( other.size() );
      for ( const Entry & entry : other ) {
         insertNew( mixed( KeyOf()( entry ) ), entry );
      }
   }
   HashTable( HashTable && other ) noexcept
      : buckets_( std::exchange( other.buckets_, {} ) ),
        size_( std::exchange( other.size_, 0 ) ) {}
   HashTable & operator=( HashTable other ) noexcept {
      std::swap( buckets_, other.buckets_ );
      std::swap( size_, other.size_ );
      return *this;
   }
   ~HashTable() { clear(); }

   std::size_t size() const noexcept { return size_; }
   bool empty() const noexcept { return size_ == 0; }
   /// O(buckets in front of the first entry).
   iterator begin() noexcept { return beginOf< iterator >(); }
   const_iterator begin() const noexcept { return beginOf< const_iterator >(); }
   iterator end() noexcept { return {}; }
   const_iterator end() const noexcept { return {}; }

   iterator find( const key_type & key ) noexcept { return findAs< iterator >( key ); }
   const_iterator find( const key_type & key ) const noexcept {
      return findAs< const_iterator >( key );
   }
   bool contains( const key_type & key ) const noexcept { return find( key ) != end(); }

   /// The entry of that key, made of `parts` where there is none.
   template< class... Parts >
   std::pair< iterator, bool > insertOfKey( const key_type & key, Parts &&... parts ) {
      const std::size_t hash = mixed( key );
      const auto at = findAs< iterator >( key, hash );
      return at != end() ? std::pair( at, false )
                         : std::pair( insertNew( hash, std::forward< Parts >( parts )... ), true );
   }
   iterator erase( const_iterator at ) noexcept {
      iterator next( at.buckets_, at.bucket_, at.node_ );
      ++next;
      delete unlink( at.node_ );
      return next;
   }
   std::size_t erase( const key_type & key ) noexcept {
      const iterator at = find( key );
      if ( at == end() ) {
         return 0;
      }
      delete unlink( at.node_ );
      return 1;
   }

   /// An entry that is out of its table, or none.
   class Extracted {
    public:
      explicit Extracted( Node * node ) noexcept : node_( node ) {}
      explicit operator bool() const noexcept { return node_ != nullptr; }
      const key_type & key() const noexcept { return KeyOf()( node_->entry ); }
      auto & mapped() const noexcept { return node_->entry.second; }

    private:
      std::unique_ptr< Node > node_;
   };
   Extracted extract( const key_type & key ) noexcept {
      const iterator at = find( key );
      return Extracted( at == end() ? nullptr : unlink( at.node_ ) );
   }

   void clear() noexcept {
      const Buckets buckets = std::exchange( buckets_, {} );
      size_ = 0;
      for ( std::size_t bucket = 0; bucket < buckets.size(); ++bucket ) {
         fetchAhead( buckets, bucket );
         for ( Node * node = buckets[ bucket ]; node; ) {
            delete std::exchange( node, node->next );
         }
      }
   }
   /// Room for so many entries in all.
   void reserve( std::size_t entries ) {
      if ( size_ == 0 && bucketsFor( entries ) > buckets_.size() ) {
         buckets_.assign( bucketsFor( entries ), nullptr );
      } else {
         buckets_.reserve( bucketsFor( entries ) );
      }
   }

   friend bool operator==( const HashTable & a, const HashTable & b ) {
      return a.size() == b.size() && std::all_of( a.begin(), a.end(), [ & ]( const Entry & entry ) {
                const auto at = b.find( KeyOf()( entry ) );
                return at != b.end() && *at == entry;
             } );
   }

 private:
   static constexpr std::size_t bucketsFor( std::size_t entries ) noexcept {
      return entries + entries / 4;
   }
   /// Entries are all over the memory; who walks over them asks for the next ones early.
   static void fetchAhead( const Buckets & buckets, std::size_t bucket ) noexcept {
      constexpr std::size_t ahead = 8;
      if ( bucket + ahead < buckets.size() ) {
         __builtin_prefetch( buckets[ bucket + ahead ] );
      }
   }
   static std::size_t mixed( const key_type & key ) noexcept {
      return ( std::uint64_t{ HashOf()( key ) } * 0x9e3779b97f4a7c15u ) >> 32;
   }
   /// By as many low bits of the hash as number all buckets, or one less where that is too many.
   std::size_t bucketOf( std::size_t hash ) const noexcept {
      const std::size_t mask = std::bit_ceil( buckets_.size() ) - 1;
      return ( hash & mask ) < buckets_.size() ? hash & mask : hash & mask >> 1;
   }
   /// One bucket more; it takes over entries of the one whose number has one bit less.
   void split() {
      if ( buckets_.size() == buckets_.capacity() ) {
         buckets_.reserve( buckets_.size() + buckets_.size() / 4 + 2 );
      }
      const std::size_t last = buckets_.size();
      buckets_.push_back( nullptr );
      if ( last == 0 ) {
         return;
      }
      Node ** to = &buckets_[ last ];
      for ( Node ** from = &buckets_[ last - std::bit_floor( last ) ]; *from; ) {
         if ( bucketOf( mixed( KeyOf()( ( *from )->entry ) ) ) == last ) {
            *to = std::exchange( *from, ( *from )->next );
            to = &( *to )->next;
            *to = nullptr;
         } else {
            from = &( *from )->next;
         }
      }
   }
   /// REQUIRES: there is no entry of that key.
   template< class... Parts >
   iterator insertNew( std::size_t hash, Parts &&... parts ) {
      while ( buckets_.size() < bucketsFor( size_ + 1 ) ) {
         split();
      }
      auto * const node = new Node{ nullptr, Entry( std::forward< Parts >( parts )... ) };
      const std::size_t bucket = bucketOf( hash );
      node->next = std::exchange( buckets_[ bucket ], node );
      ++size_;
      return { &buckets_, bucket, node };
   }
   template< class It >
   It findAs( const key_type & key ) const noexcept {
      return size_ > 0 ? findAs< It >( key, mixed( key ) ) : It();
   }
   template< class It >
   It findAs( const key_type & key, std::size_t hash ) const noexcept {
      const std::size_t bucket = bucketOf( hash );
      for ( Node * node = size_ > 0 ? buckets_[ bucket ] : nullptr; node; node = node->next ) {
         if ( Equal()( KeyOf()( node->entry ), key ) ) {
            return { &buckets_, bucket, node };
         }
      }
      return {};
   }
   template< class It >
   It beginOf() const noexcept {
      if ( size_ == 0 ) {
         return {};
      }
      It first( &buckets_, 0, buckets_[ 0 ] );
      first.toEntry();
      return first;
   }
   Node * unlink( Node * node ) noexcept {
      Node ** place = &buckets_[ bucketOf( mixed( KeyOf()( node->entry ) ) ) ];
      while ( *place != node ) {
         place = &( *place )->next;
      }
      *place = node->next;
      --size_;
      return node;
   }

   Buckets buckets_;
   std::size_t size_ = 0;
};

namespace Detail {

struct FirstOf {
   template< class Pair >
   const auto & operator()( const Pair & pair ) const noexcept {
      return pair.first;
   }
};

}

/// A `HashTable` of values by key, with the names of the standard's maps.
template< class Key, class T, class HashOf >
class HashMap
   : public HashTable< std::pair< const Key, T >, Detail::FirstOf, HashOf, std::equal_to< Key > > {
 public:
   using mapped_type = T;

   /// O(1), as all of these.
   template< class... Args >
   auto try_emplace( const Key & key, Args &&... args ) {
      return this->insertOfKey( key, std::piecewise_construct, std::forward_as_tuple( key ),
                                std::forward_as_tuple( std::forward< Args >( args )... ) );
   }
   template< class V >
   auto emplace( const Key & key, V && value ) {
      return try_emplace( key, std::forward< V >( value ) );
   }
   template< class V >
   auto insert_or_assign( const Key & key, V && value ) {
      const auto at = try_emplace( key );
      at.first->second = std::forward< V >( value );
      return at;
   }
   T & operator[]( const Key & key ) { return try_emplace( key ).first->second; }
   const T & at( const Key & key ) const {
      const auto entry = this->find( key );
      if ( entry == this->end() ) {
         throw std::out_of_range( "no entry of that key" );
      }
      return entry->second;
   }
   T & at( const Key & key ) { return const_cast< T & >( std::as_const( *this ).at( key ) ); }
};

/// A `HashTable` of keys alone.
template< class Key, class HashOf, class Equal = std::equal_to< Key > >
class HashSet : public HashTable< Key, std::identity, HashOf, Equal > {
 public:
   auto insert( const Key & key ) { return this->insertOfKey( key, key ); }
};

}
