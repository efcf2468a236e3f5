#pragma once

#include "Cspf/Graph/Graph.h"
#include "platform/Lum/Attribute.h"

#include <span>
#include <vector>

namespace Cspf {

class PathUsageSm;

/// The machines of paths that hold links, by the routers that these leave: a change of the topology
/// is told to those that it may concern. It holds none of them.
class PathsByRouter {
 public:
   /// One entry of a path; 0: none.
   using Entry = std::uint64_t;

   /// The path's entry anew, in place of an earlier one. `routers`: none where a link of the path
   /// is away, so that any change may concern it.
   Entry set( Entry earlier, PathUsageSm & path, std::span< const CspfVertex > routers );
   void del( Entry entry );
   /// Entries of routers that have changed since the last call, in no order, some of them twice or
   /// ended; all where the source of computations has. `sourceChanges`: of it, so far. O(routers +
   /// these).
   std::vector< Entry > concerned( const CspfGraph & graph, std::uint64_t sourceChanges );
   /// Null where the entry has ended.
   Lum::Ptr< PathUsageSm > path( Entry entry ) const;

 private:
   struct Path {
      PathUsageSm * machine;
      std::size_t routers;
   };

   std::vector< Entry > & at( CspfVertex router );
   void dropEnded( std::vector< Entry > & entries );
   void sweep();

   Entry last_ = 0;
   Lum::Map< Entry, Path > paths_;
   std::vector< std::vector< Entry > > byRouter_;  // with some that have ended
   std::vector< Entry > anywhere_;                 // likewise
   std::size_t noted_ = 0, live_ = 0;              // by router: all, and those that have not ended
   std::uint64_t change_ = 0, sourceChanges_ = 0;  // of the last call
};

}
