#pragma once

#include "schema/CspfKeys.h"

#include <span>
#include <vector>

/// The result records of one path. Once they are handed out they are only read, so that the cache,
/// the publisher and the bandwidth accounts share them.
namespace Cspf {

/// SRLGs of each hop's link.
class PathSrlg : public Lum::Entity {
   LUM_ENTITY( Cspf, PathSrlg );
   using Hops = Lum::List< HopIndex, SrlgOfHop >;
   LUM_LIST( pathSrlg, HopIndex, SrlgOfHop );
   PathSrlg() = default;
   explicit PathSrlg( Hops hops ) : pathSrlg_( std::move( hops ) ) {}

   const Hops & pathSrlg() const noexcept { return pathSrlg_; }
   std::size_t hopCount() const noexcept { return pathSrlg_.size(); }
};

/// TE router id of the router at the far end of each hop.
class PathTeRouterId : public Lum::Entity {
   LUM_ENTITY( Cspf, PathTeRouterId );
   using Hops = Lum::List< HopIndex, Kivnet::IpGenAddr >;
   LUM_LIST( pathTeRouterId, HopIndex, Kivnet::IpGenAddr );
   PathTeRouterId() = default;
   explicit PathTeRouterId( Hops hops ) : pathTeRouterId_( std::move( hops ) ) {}

   const Hops & pathTeRouterId() const noexcept { return pathTeRouterId_; }
   std::size_t hopCount() const noexcept { return pathTeRouterId_.size(); }
};

/// Hop addresses in travel order: the next-hop address of each link.
class PathArray : public Lum::Entity {
   LUM_ENTITY( Cspf, PathArray );
   using Hops = Lum::List< HopIndex, Kivnet::IpGenAddr >;
   LUM_LIST( path, HopIndex, Kivnet::IpGenAddr );
   PathArray() = default;
   explicit PathArray( Hops hops, bool fromSourceToSource = false )
      : path_( std::move( hops ) ),
        isPathFromSourceToSource_( fromSourceToSource ) {}

   const Hops & path() const noexcept { return path_; }
   std::size_t hopCount() const noexcept { return path_.size(); }
   /// The destination is the source itself: no hops, and yet a path.
   bool isPathFromSourceToSource() const noexcept { return isPathFromSourceToSource_; }
   void isPathFromSourceToSourceIs( bool is ) noexcept { isPathFromSourceToSource_ = is; }

   // What was last found beside these hops: most likely the same as beside them elsewhere.

   mutable Lum::Ptr< const PathSrlg > lastSrlg;
   mutable Lum::Ptr< const PathTeRouterId > lastTeRouterId;

 private:
   bool isPathFromSourceToSource_ = false;
};

/// Include hops found on the path, in order.
class IncludeIps : public Lum::Entity {
   LUM_ENTITY( Cspf, IncludeIps );
   using List = Lum::List< IncludeIpIndex, IncludeIp >;
   using Hops = List;
   LUM_LIST( includeIp, IncludeIpIndex, IncludeIp );
   IncludeIps() = default;
   explicit IncludeIps( List includeIps ) : includeIp_( std::move( includeIps ) ) {}

   const List & includeIp() const noexcept { return includeIp_; }
};

/// The record of that content: the one that stands in some result already, else a new one. Many
/// paths to one destination take the same way, and so take its records once. O(hops).
template< class Record >
Lum::Ptr< const Record > sharedRecord( const typename Record::Hops & hops );
/// The same, most likely the last one that was found here.
template< class Record >
Lum::Ptr< const Record > sharedRecord( const typename Record::Hops & hops,
                                       Lum::Ptr< const Record > & last );

/// A path as links of the topology: what it reserves, and what is checked of a published path.
class PathAsTopoDbLinks : public Lum::Entity {
   LUM_ENTITY( Cspf, PathAsTopoDbLinks );
   LUM_COLLECTION_ORDERED( path, HopIndex, AllTopoNeighborKey );
   /// The TE router id of the router inside of the LAN, for a hop that crosses one.
   LUM_COLLECTION_ORDERED( routerInNetworkForHop, HopIndex, Kivnet::IpGenAddr );

   bool operator==( const PathAsTopoDbLinks & other ) const {
      return pathColl() == other.pathColl()
             && routerInNetworkForHopColl() == other.routerInNetworkForHopColl();
   }
};

/// The answer for one path: its hops, and what is known of them. Null where nothing was worked out.
struct CspfPathResult {
   Lum::Ptr< const PathArray > path;
   Lum::Ptr< const PathSrlg > pathSrlg;
   Lum::Ptr< const PathTeRouterId > pathTeRouterId;
   Lum::Ptr< const IncludeIps > includeIps;
   Lum::Ptr< const PathAsTopoDbLinks > pathAsTopoDbLinks{};  ///< of paths that reserve bandwidth

   /// Makes it the answer "no hops".
   void clear();
   void clearIncludeIps();
};

enum class CspfVertex : std::uint32_t;

/// The routers that the hops of a run pass, its source first, as the graph numbers them, and the
/// graph's last change when it was run. Empty where that is not known.
struct CspfPathRouters {
   std::vector< CspfVertex > routers;
   std::uint64_t change = 0;
};

/// The hops that are published, from the source of the run, which equal-cost choices keep to.
struct CspfOldPath {
   std::span< const Kivnet::IpGenAddr > path;
   std::span< const Kivnet::IpGenAddr > pathTeRouterId;  ///< one a hop
};

}
