#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <unordered_map>
#include <vector>

namespace Cspf {

/// Many short lists of edges in one arena. A list that outgrows its cells moves to cells twice as
/// wide, and the cells it leaves serve the next list of that width: no change costs more than the
/// one list that it touches.
class CspfRowPool {
 public:
   struct Row {
      uint32_t begin = 0;
      uint32_t count = 0;
      uint32_t capacity = 0;  // 0 or a power of two
   };

   std::span< const uint32_t > cells( Row row ) const {
      return { cells_.data() + row.begin, row.count };
   }
   void reserve( Row & row, uint32_t capacity );
   void append( Row & row, uint32_t value );
   /// Removes one value; the last one takes its place. REQUIRES: the row holds it. O(row).
   void erase( Row & row, uint32_t value );
   void release( Row & row );

 private:
   std::vector< uint32_t > cells_;
   std::array< std::vector< uint32_t >, 32 > freeBegins_;  // by the width's power of two
};

/// Equal lists of shared-risk link groups are stored once. List 0 is the empty list.
class CspfSrlgPool {
 public:
   CspfSrlgPool();
   CspfSrlgPool( CspfSrlgPool && ) = default;
   CspfSrlgPool & operator=( CspfSrlgPool && ) = default;
   /// The list's number, with one more user. O(log lists).
   uint32_t acquire( std::span< const uint32_t > srlgs );
   void release( uint32_t list );
   std::span< const uint32_t > srlgs( uint32_t list ) const {
      const auto * const srlgs = lists_[ list ].srlgs;
      return srlgs ? std::span( *srlgs ) : std::span< const uint32_t >();
   }
   uint32_t lists() const { return static_cast< uint32_t >( lists_.size() ); }
   uint32_t users( uint32_t list ) const { return lists_[ list ].users; }
   /// The lists that hold an SRLG, each as often as it holds it, one after the other.
   std::span< const uint32_t > listsWith( uint32_t srlg ) const;

 private:
   struct List {
      const std::vector< uint32_t > * srlgs =
         nullptr;  // the key in numbers_; null where it is none
      uint32_t users = 0;
   };
   std::vector< List > lists_;
   std::vector< uint32_t > freeLists_;
   std::map< std::vector< uint32_t >, uint32_t > numbers_;
   std::unordered_map< uint32_t, std::vector< uint32_t > > listsWith_;
};

}
