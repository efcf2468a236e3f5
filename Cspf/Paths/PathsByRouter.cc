// Which paths a change may concern. A path notes itself at each of its routers, often anew, and
// some routers are on nearly all paths; so what a path noted earlier is not searched for, but ends,
// and goes when most of what is noted has ended.

#include "Cspf/Paths/PathsByRouter.h"

#include "Cspf/Paths/UsageSm.h"

#include <algorithm>

namespace Cspf {

PathsByRouter::Entry
PathsByRouter::set( Entry earlier, PathUsageSm & path, std::span< const CspfVertex > routers ) {
   del( earlier );
   paths_.emplace( ++last_, Path{ &path, routers.size() } );
   for ( const CspfVertex router : routers ) {
      at( router ).push_back( last_ );
   }
   if ( routers.empty() ) {
      anywhere_.push_back( last_ );
   }
   noted_ += routers.size();
   live_ += routers.size();
   sweep();
   return last_;
}

void
PathsByRouter::del( Entry entry ) {
   if ( const auto path = paths_.find( entry ); path != paths_.end() ) {
      live_ -= path->second.routers;
      paths_.erase( path );
   }
}

std::vector< PathsByRouter::Entry >
PathsByRouter::concerned( const CspfGraph & graph, std::uint64_t sourceChanges ) {
   const std::uint64_t before = std::exchange( change_, graph.lastChange() );
   if ( std::exchange( sourceChanges_, sourceChanges ) != sourceChanges ) {
      return Lum::keysOf( paths_ );
   }
   std::vector< Entry > told = anywhere_;
   for ( std::uint32_t router = 0; router < byRouter_.size(); ++router ) {
      if ( graph.changedAt( CspfVertex{ router } ) > before ) {
         told.insert( told.end(), byRouter_[ router ].begin(), byRouter_[ router ].end() );
      }
   }
   return told;
}

Lum::Ptr< PathUsageSm >
PathsByRouter::path( Entry entry ) const {
   const auto path = paths_.find( entry );
   return path == paths_.end() ? nullptr : path->second.machine;
}

std::vector< PathsByRouter::Entry > &
PathsByRouter::at( CspfVertex router ) {
   if ( byRouter_.size() <= index( router ) ) {
      byRouter_.resize( index( router ) + 1 );
   }
   return byRouter_[ index( router ) ];
}

void
PathsByRouter::dropEnded( std::vector< Entry > & entries ) {
   std::erase_if( entries, [ this ]( Entry entry ) { return !paths_.contains( entry ); } );
}

void
PathsByRouter::sweep() {
   constexpr std::size_t few = 1024;
   if ( noted_ <= few + 2 * live_ && anywhere_.size() <= few + 2 * paths_.size() ) {
      return;
   }
   for ( auto & entries : byRouter_ ) {
      dropEnded( entries );
   }
   dropEnded( anywhere_ );
   noted_ = live_;
}

}
