#pragma once

#include "schema/CspfKeys.h"

/// The result records of one path. They are built once and then only read, so that the cache, the
/// publisher and the bandwidth accounts share them.
namespace Cspf {

/// Hop addresses in travel order: the next-hop address of each link.
class PathArray : public Lum::Entity {
   LUM_ENTITY( Cspf, PathArray );
   using Hops = Lum::List< HopIndex, Kivnet::IpGenAddr >;
   PathArray() = default;
   explicit PathArray( Hops hops, bool fromSourceToSource = false )
      : hops_( std::move( hops ) ),
        isPathFromSourceToSource_( fromSourceToSource ) {}

   const Hops & path() const noexcept { return hops_; }
   std::size_t hopCount() const noexcept { return hops_.size(); }
   /// The destination is the source itself: no hops, and yet a path.
   bool isPathFromSourceToSource() const noexcept { return isPathFromSourceToSource_; }

 private:
   Hops hops_;
   bool isPathFromSourceToSource_ = false;
};

/// SRLGs of each hop's link.
class PathSrlg : public Lum::Entity {
   LUM_ENTITY( Cspf, PathSrlg );
   using Hops = Lum::List< HopIndex, SrlgOfHop >;
   PathSrlg() = default;
   explicit PathSrlg( Hops hops ) : hops_( std::move( hops ) ) {}

   const Hops & pathSrlg() const noexcept { return hops_; }
   std::size_t hopCount() const noexcept { return hops_.size(); }

 private:
   Hops hops_;
};

/// TE router id of the router at the far end of each hop.
class PathTeRouterId : public Lum::Entity {
   LUM_ENTITY( Cspf, PathTeRouterId );
   using Hops = Lum::List< HopIndex, Kivnet::IpGenAddr >;
   PathTeRouterId() = default;
   explicit PathTeRouterId( Hops hops ) : hops_( std::move( hops ) ) {}

   const Hops & pathTeRouterId() const noexcept { return hops_; }
   std::size_t hopCount() const noexcept { return hops_.size(); }

 private:
   Hops hops_;
};

/// Include hops found on the path, in order.
class IncludeIps : public Lum::Entity {
   LUM_ENTITY( Cspf, IncludeIps );
   using List = Lum::List< IncludeIpIndex, IncludeIp >;
   IncludeIps() = default;
   explicit IncludeIps( List includeIps ) : includeIps_( std::move( includeIps ) ) {}

   const List & includeIp() const noexcept { return includeIps_; }

 private:
   List includeIps_;
};

/// The answer for one path: its hops, and what is known of them. Null where nothing was worked out.
struct CspfPathResult {
   Lum::Ptr< const PathArray > path;
   Lum::Ptr< const PathSrlg > pathSrlg;
   Lum::Ptr< const PathTeRouterId > pathTeRouterId;
   Lum::Ptr< const IncludeIps > includeIps;

   /// Makes it the answer "no hops".
   void clear();
   void clearIncludeIps();
};

/// The path that is published, which equal-cost choices keep to.
struct CspfOldPath {
   const PathArray::Hops & path;
   const PathTeRouterId::Hops & pathTeRouterId;  ///< one a hop
};

}
