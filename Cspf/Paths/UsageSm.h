#pragma once

#include "Cspf/Hops/HopLinks.h"
#include "platform/Lum/CopyOnWrite.h"

#include <memory>

namespace Cspf {

class PathValidationMemory;

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
   /// more; null where there is none. The memory outlives this object.
   PathUsageSm( const VrfTopology & topology, PathValidationMemory & memory,
                const Lum::Ptr< PathUsageSm > & replaced,
                const Lum::Ptr< const PathConfigInfo > & pathConfigInfo,
                const Lum::Ptr< const PathStatusInfo > & pathStatusInfo )
      : topology_( topology ),
        memory_( memory ),
        replaced_( replaced ),
        pathConfigInfo_( pathConfigInfo ),
        pathStatusInfo_( pathStatusInfo ) {}

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
   const BwUsageId & oldBwUsageId() const noexcept { return *oldBwUsageId_; }
   void oldBwUsageIdIs( const BwUsageId & id );
   const Lum::Ptr< const PathBwUsage > & pathBwUsage() const noexcept { return pathBwUsage_; }
   /// The path was asked for anew; what is published, and held, is for the last answer.
   bool awaitsResult() const noexcept { return awaitsResult_; }
   /// The links that the published hops are known to be; null where none are.
   const PathAsTopoDbLinks * links() const noexcept { return hops_ ? hops_->links.ptr() : nullptr; }

 private:
   struct Granted {
      BwPriority priority;
      std::uint64_t bandwidth = 0;
   };
   /// The links of the hops that are published, under the names that they have or had last.
   struct KnownHops {
      PathArray::Hops hops;
      Lum::Ptr< const PathAsTopoDbLinks > links;
      std::vector< Kivnet::IpGenAddr > nearAddresses;  // of the links, by hop; they outlast names
      PathRouters routers;                             // that the links leave
   };

   void takeOver();
   bool wasRefused() const;
   void userChangedIs( const BwUsageId & bwUsageId );
   void pathBwUsageIs( const Lum::Ptr< const PathBwUsage > & pathBwUsage );
   /// `operation`: the one for which, as traces begin.
   Lum::Ptr< const PathBwUsage > currentPathBwUsage( const char * operation );
   void linksAre( const PathArray::Hops & hops, const Lum::Ptr< const PathAsTopoDbLinks > & links );
   bool linksKnown( const PathArray::Hops & hops ) const { return hops_ && hops_->hops == hops; }
   void followLinks();
   void watchRouters();
   Lum::Ptr< const PathAsTopoDbLinks > mapped( const PathArray::Hops & hops,
                                               const PathAsTopoDbLinks * known );
   bool isLink( const AllTopoNeighborKey & link, const Kivnet::IpGenAddr & nearAddress ) const;
   Kivnet::IpGenAddr nearAddress( const AllTopoNeighborKey & link ) const;
   void hold( PathBwUsage & usage, std::size_t hop,
              const Lum::Ptr< const BwUsageDeduped > & reservation ) const;
   Lum::Ptr< const BwUsageDeduped > reserved( const AllTopoNeighborKey & link ) const;

   const VrfTopology topology_;
   PathValidationMemory & memory_;
   Lum::Ptr< PathUsageSm > replaced_;  // until this one has started
   const Lum::Ptr< const PathConfigInfo > pathConfigInfo_;
   const Lum::Ptr< const PathStatusInfo > pathStatusInfo_;
   // Most paths reserve nothing: what those that do know besides is kept apart.
   Lum::CopyOnWrite< BwUsageId > oldBwUsageId_;
   std::unique_ptr< KnownHops > hops_;  // null: the links are not known
   Lum::Ptr< const PathBwUsage > pathBwUsage_;
   Granted granted_;            // by the last answer
   bool awaitsResult_ = false;  // the path was asked for anew, and is not answered yet
   std::uint32_t updates_ = 0;  // begun; one may begin inside of another
};

}
