#pragma once

#include "platform/Lum/Attribute.h"

#include <type_traits>
#include <utility>

namespace Cspf {

/// State machines by key, the few kinds that one key has standing in one row, so that the key is
/// kept once. A row is there while one of its machines is. `Row` says whether it is empty().
template< class Key, class Row >
class MachineRows {
 public:
   /// Null where there is none.
   template< auto member >
   const auto & get( const Key & key ) const {
      static const std::remove_cvref_t< decltype( std::declval< Row >().*member ) > none;
      const auto row = rows_.find( key );
      return row == rows_.end() ? none : row->second.*member;
   }
   /// Starts the machine, in place of an earlier one.
   template< auto member, class Machine >
   void set( const Key & key, Lum::Ptr< Machine > machine ) {
      if ( auto & place = rows_[ key ].*member; !place ) {
         place = machine;
      } else {
         del< member >( key );
         rows_[ key ].*member = machine;
      }
      Lum::start( machine );
   }
   /// Ends the machine, if there is one.
   template< auto member >
   void del( const Key & key ) {
      const auto row = rows_.find( key );
      if ( row == rows_.end() ) {
         return;
      }
      auto machine = std::move( row->second.*member );
      row->second.*member = nullptr;
      if ( row->second.empty() ) {
         rows_.erase( row );
      }
      Lum::retire( machine );
   }
   template< auto member, class Visit >
   void forEach( Visit && visit ) const {
      for ( const auto & [ key, row ] : rows_ ) {
         if ( row.*member ) {
            visit( *( row.*member ) );
         }
      }
   }
   /// In key order.
   template< auto member >
   void delAll() {
      for ( const Key & key : Lum::sortedKeys( rows_ ) ) {
         del< member >( key );
      }
   }

 private:
   Lum::Map< Key, Row > rows_;
};

/// State machines of one kind, in `rows_`, under the member of the row that is called as they are:
/// `x( key )` (null where there is none), `xHas( key )`, `xIs( key, machine )` (starts it in place
/// of an earlier one), `xDel( key )` (ends it), `xDelAll()`.
#define CSPF_MACHINE( rows_, name_, Key, Row, ... )                                                \
   const Lum::Ptr< __VA_ARGS__ > & name_( const Key & key ) const {                                \
      return rows_.get< &Row::name_ >( key );                                                      \
   }                                                                                               \
   bool name_##Has( const Key & key ) const {                                                      \
      return name_( key ) != nullptr;                                                              \
   }                                                                                               \
   void name_##Is( const Key & key, Lum::Ptr< __VA_ARGS__ > machine ) {                            \
      rows_.set< &Row::name_ >( key, std::move( machine ) );                                       \
   }                                                                                               \
   void name_##Del( const Key & key ) {                                                            \
      rows_.del< &Row::name_ >( key );                                                             \
   }                                                                                               \
   void name_##DelAll() {                                                                          \
      rows_.delAll< &Row::name_ >();                                                               \
   }                                                                                               \
   static_assert( true )

}
