#pragma once

#include "Cspf/Hops/HopLinks.h"
#include "Cspf/Paths/PathsByRouter.h"
#include "platform/Lum/CopyOnWrite.h"

#include <memory>

namespace Cspf {

class PathValidationMemory;

/// What the paths of one VRF and family hold bandwidth with.
struct PathUsageContext {
   const VrfTopology & topology;
   PathValidationMemory & memory;
   PathsByRouter byRouter{};
};

/// Keeps the bandwidth that one path has reserved in step with the path that its client uses: the
/// published one. New links are reserved before old ones are given back, so a path that moves
/// holds both for a moment and never less than what it needs.
///
///   watches                                handler                  writes
///   PathConfigInfo.usageChangeCount        doUpdatePathBwUsage      PathBwUsage
///   PathStatusInfo.constraintChangeCount   handleConstraintChange   PathBwUsage
///   (its PathBwUsage)                      handlePathBwUsage        bwUsageChangedAt of its user
///
/// A path that the agent derived from another one reserves nothing: the path that it serves does.
class PathUsageSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, PathUsageSm );
   /// `replaced`: the machine of the same request under the key that it is not followed under any
   /// more; null where there is none. The context outlives this object.
   PathUsageSm( PathUsageContext & context, const Lum::Ptr< PathUsageSm > & replaced,
                const Lum::Ptr< const PathConfigInfo > & pathConfigInfo,
                const Lum::Ptr< const PathStatusInfo > & pathStatusInfo )
      : context_( context ),
        pathConfigInfo_( pathConfigInfo ),
        pathStatusInfo_( pathStatusInfo ) {
      if ( replaced ) {
         takeOver( *replaced );
      }
   }

   void handleInitialized() override;
   /// Gives everything back.
   void doPrepareToDie() override;
   void handleDestruction();
   void handleConstraintChange();
   void doUpdatePathBwUsage();
   /// Accounts again where a router of the path has changed. O(hops).
   void handleTopoChanged();
   /// What the path has reserved changed.
   void handlePathBwUsage();
   /// The path's request is answered: what is published from now on is for it.
   void handleResult( const PathStatusCache & result );
   /// The published path was found valid over these links, and holds its bandwidth there.
   void handleValid( const TopoGraph & topoGraph, std::span< const CspfPathHop > links );

   /// The user under which the reservations were made.
   const BwUsageId & oldBwUsageId() const noexcept { return account_->user; }
   void oldBwUsageIdIs( const BwUsageId & id );
   const Lum::Ptr< const PathBwUsage > & pathBwUsage() const noexcept { return account_->held; }
   /// The path was asked for anew; what is published, and held, is for the last answer.
   bool awaitsResult() const noexcept { return awaitsResult_; }
   /// The links that the published hops are known to be; null where none are.
   const PathAsTopoDbLinks * links() const noexcept {
      return known() ? known()->links.ptr() : nullptr;
   }

 private:
   struct Granted {
      BwPriority priority;
      std::uint64_t bandwidth = 0;

      bool operator==( const Granted & ) const = default;
   };
   /// The links of the hops that are published, under the names that they have or had last.
   struct KnownHops {
      PathArray::Hops hops;
      Lum::Ptr< const PathAsTopoDbLinks > links;
      std::vector< Kivnet::IpGenAddr > nearAddresses;  // of the links, by hop; they outlast names
      PathRouters routers;                             // that the links leave,
      PathsByRouter::Entry noted = 0;                  // and the path's entry there
   };
   /// What a path that reserves knows besides.
   struct Account {
      BwUsageId user;   // under which the reservations were made
      Granted granted;  // by the last answer
      Lum::Ptr< const PathBwUsage > held;
      std::shared_ptr< KnownHops > known;  // null: the links are not known
   };

   const VrfTopology & topology() const noexcept { return context_.topology; }
   KnownHops * known() const noexcept { return account_->known.get(); }
   void grantedIs( const Granted & granted );
   void takeOver( const PathUsageSm & replaced );
   bool wasRefused() const;
   void userChangedIs( const BwUsageId & bwUsageId );
   void pathBwUsageIs( const Lum::Ptr< const PathBwUsage > & pathBwUsage );
   /// `operation`: the one for which, as traces begin.
   Lum::Ptr< const PathBwUsage > currentPathBwUsage( const char * operation );
   void linksAre( const PathArray::Hops & hops, const Lum::Ptr< const PathAsTopoDbLinks > & links );
   bool linksKnown( const PathArray::Hops & hops ) const {
      return known() && known()->hops == hops;
   }
   bool followLinks();
   bool watchRouters();
   void routersAre( std::vector< CspfVertex > routers );
   Lum::Ptr< const PathAsTopoDbLinks > mapped( const PathArray::Hops & hops,
                                               const PathAsTopoDbLinks * known );
   bool isLink( const AllTopoNeighborKey & link, const Kivnet::IpGenAddr & nearAddress ) const;
   static Kivnet::IpGenAddr nearAddress( const Routing::Topology::Neighbor & neighbor );
   void hold( PathBwUsage & usage, std::size_t hop,
              const Lum::Ptr< const BwUsageDeduped > & reservation ) const;
   Lum::Ptr< const BwUsageDeduped > reserved( const AllTopoNeighborKey & link ) const;

   PathUsageContext & context_;
   const Lum::Ptr< const PathConfigInfo > pathConfigInfo_;
   const Lum::Ptr< const PathStatusInfo > pathStatusInfo_;
   Lum::CopyOnWrite< Account > account_;  // most paths reserve nothing
   bool awaitsResult_ = false;            // the path was asked for anew, and is not answered yet
   std::uint32_t updates_ = 0;            // begun; one may begin inside of another
};

}
