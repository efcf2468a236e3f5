#pragma once

#include "Cspf/Hops/HopLinks.h"
#include "schema/CspfStatus.h"

#include <memory>
#include <string>
#include <vector>

namespace Cspf {

/// What validations work in, one after the other, and what they share: where addresses lead, and
/// the constraint in the graph's numbers while it stays the same.
class PathValidationMemory {
 public:
   explicit PathValidationMemory( const Lum::Ptr< const AllTopoDbStatus > & allTopoDbStatus );
   ~PathValidationMemory();

   /// The view's constraint, ready to be asked for reasons; without what its user has reserved, so
   /// that paths which differ in their user alone share it. May renumber the graph.
   const CspfLinkFilter & filter( const AllTopoDbView & view, const NodeId & source );
   HopAddressMemory & hopAddresses() noexcept { return *hopAddresses_; }
   const HopAddressMemory & hopAddresses() const noexcept { return *hopAddresses_; }
   std::vector< CspfPathHop > & links() noexcept { return links_; }

 private:
   const CspfLinkFilter & newFilter( const AllTopoDbView & view, const NodeId & source );

   static constexpr std::size_t mostFilters = 1024;

   Lum::Ptr< HopAddressMemory > hopAddresses_;
   Lum::Map< InternalPathConstraint, CspfLinkFilter > filters_;  // by constraint, but for the user
   const CspfLinkFilter * filter_ = nullptr;  // the last one that was asked for; null: none
   InternalPathConstraint filterConstraint_;  // ... and of what
   // What all of them were made of.
   NodeId filterSource_;
   std::uint64_t filterVersion_ = 0;    // of the graph
   std::uint64_t filterAddresses_ = 0;  // changes of addresses
   std::vector< CspfPathHop > links_;
};

/// That a path was found valid, and when. It rests on the routers that the path passes, on the
/// source of computations and on what the constraint's user has reserved; while none of them
/// changed it holds, and so do the path's metadata. The constraint and what is published of the
/// path are its owner's to watch.
class PathValidity {
 public:
   PathValidity() = default;
   /// The path in the memory's links, which has just been found valid.
   PathValidity( const AllTopoDbView & view, PathValidationMemory & memory );
   /// A run's path of no user, which is unchanged.
   PathValidity( const PathValidationMemory & memory, Lum::CopyOnWrite< CspfPathRouters > path )
      : routers_( memory.hopAddresses(), std::move( path ) ) {}

   /// O(hops).
   bool holds( const VrfTopology & topology, const PathValidationMemory & memory,
               const BwUsageId & user ) const;

 private:
   static std::uint64_t userChange( const BwUsageManager * manager, const BwUsageId & user );

   PathRouters routers_;
   std::uint64_t userChange_ = 0;
};

/// Checks one published path: whether it still holds in the topology as it is and under the view's
/// constraint, and what is known of its hops now.
class RsvpPathValidator {
 public:
   /// `sourceToSource`: the path leads from its source to itself, without a hop. `known`: links
   /// that its hops are known to be; null where none are. All outlive this object.
   RsvpPathValidator( const PathInfoKey & pathInfoKey, const PathStatus & pathStatus,
                      bool sourceToSource, const AllTopoDbView & view,
                      PathValidationMemory & memory, const PathAsTopoDbLinks * known = nullptr )
      : pathInfoKey_( pathInfoKey ),
        pathStatus_( pathStatus ),
        isPathFromSourceToSource_( sourceToSource ),
        view_( view ),
        memory_( memory ),
        known_( known ) {}
   /// For one path on its own. REQUIRES: the row is the path's, the view is under the constraint.
   RsvpPathValidator( const PathInfoKey & pathInfoKey,
                      const Lum::Ptr< const PathStatusInfo > & pathStatusInfo,
                      const PathStatus & pathStatus, const InternalPathConstraint & constraint,
                      const AllTopoDbView & view );

   /// Does all of the check. O(hops).
   void validatePathAndUpdateMetadata();
   /// The part of it that is about links, for hops that are these: whether there is one for each
   /// hop, each starts where the last one ended, and the constraint allows it. The metadata stays.
   bool validatePath( const PathAsTopoDbLinks & links );

   // Results. The metadata means something for a valid path only.

   bool valid() const noexcept { return valid_; }
   /// Why not, as a person reads it; "" for a valid path.
   const std::string & reason() const noexcept { return reason_; }
   bool pathTeRouterIdChanged() const noexcept { return pathTeRouterIdChanged_; }
   bool includeIpsChanged() const noexcept { return includeIpsChanged_; }
   Lum::Ptr< PathTeRouterId > pathTeRouterId() const {
      return Lum::make< PathTeRouterId >(
         pathTeRouterIdChanged_ ? pathTeRouterId_ : pathStatus_.pathTeRouterIdList() );
   }
   Lum::Ptr< IncludeIps > includeIps() const { return Lum::make< IncludeIps >( includeIps_ ); }
   /// REQUIRES: the path is valid and has hops.
   PathValidity validity() const;
   /// The links of the hops.
   std::span< const CspfPathHop > links() const { return memory_.links(); }

 private:
   RsvpPathValidator( const PathInfoKey & pathInfoKey, const PathStatus & pathStatus,
                      const AllTopoDbView & view, std::unique_ptr< PathValidationMemory > memory );
   // `operation`: the one for which, as traces begin.
   bool checkPath( const char * operation );
   /// The same of the links that stand in the memory.
   bool validatePath( CspfVertex sourceNode, const CspfLinkFilter & filter );
   bool validateHop( std::size_t hopIndex, CspfVertex previous, const CspfLinkFilter & filter,
                     const char * operation );
   void updateTeRouterIds( const char * operation );
   bool destinationIsOn( const Kivnet::IpGenAddr & teRouterId, const char * operation );
   void updateIncludeIps( const char * operation );
   IncludeIp currentIncludeIp( const IncludeIp & published, const char * operation ) const;
   Kivnet::IpGenAddr currentTeRouterId( const Kivnet::IpGenAddr & published ) const;
   bool fail( const std::string & text, const char * operation );

   const std::unique_ptr< PathValidationMemory > ownMemory_;  // null: it shares its caller's
   const PathInfoKey & pathInfoKey_;
   const PathStatus & pathStatus_;
   const bool isPathFromSourceToSource_;
   const AllTopoDbView & view_;
   PathValidationMemory & memory_;
   const PathAsTopoDbLinks * const known_;
   bool valid_ = false;
   std::string reason_;
   bool pathTeRouterIdChanged_ = false;
   bool includeIpsChanged_ = false;
   PathTeRouterId::Hops pathTeRouterId_;  // where they changed
   IncludeIps::List includeIps_;
};

}
