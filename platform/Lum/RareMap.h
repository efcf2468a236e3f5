#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <utility>

namespace Lum {

/// A map in key order that most of its owners leave empty: an empty one takes a pointer.
template< class Key, class T >
class RareMap {
   using Entries = std::map< Key, T >;

 public:
   using key_type = Key;
   using mapped_type = T;
   using value_type = typename Entries::value_type;
   using iterator = typename Entries::iterator;
   using const_iterator = typename Entries::const_iterator;

   RareMap() = default;
   RareMap( const RareMap & other )
      : entries_( other.entries_ ? std::make_unique< Entries >( *other.entries_ ) : nullptr ) {}
   RareMap & operator=( RareMap other ) noexcept {
      entries_.swap( other.entries_ );
      return *this;
   }

   const_iterator begin() const { return entries().begin(); }
   const_iterator end() const { return entries().end(); }
   std::size_t size() const { return entries().size(); }
   bool empty() const { return !entries_; }
   bool contains( const Key & key ) const { return entries().contains( key ); }
   const_iterator find( const Key & key ) const { return entries().find( key ); }
   std::pair< iterator, bool > try_emplace( const Key & key ) {
      if ( !entries_ ) {
         entries_ = std::make_unique< Entries >();
      }
      return entries_->try_emplace( key );
   }
   /// Takes the entry out; the node is empty where there is none.
   typename Entries::node_type extract( const Key & key ) {
      auto node = entries_ ? entries_->extract( key ) : typename Entries::node_type();
      if ( entries_ && entries_->empty() ) {
         entries_ = nullptr;
      }
      return node;
   }

 private:
   const Entries & entries() const {
      static const Entries none;
      return entries_ ? *entries_ : none;
   }

   std::unique_ptr< Entries > entries_;  // null: empty
};

}
