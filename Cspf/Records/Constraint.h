#pragma once

#include "platform/Kiv/DedupTable.h"
#include "platform/Lum/CopyOnWrite.h"
#include "schema/CspfClient.h"
#include "schema/CspfKeys.h"

#include <string>

namespace Kiv {
class DumpContext;
}

namespace Cspf {

class ConstraintInfoTable;

/// Everything that one computation depends on besides the topology. Paths with equal constraints
/// share one computation.
struct InternalPathConstraint {
   LUM_VALUE( Cspf, InternalPathConstraint );
   LUM_FIELD( excludeIntf, Kivnet::IntfId );  ///< a local interface not to leave by
   LUM_FIELD( excludeNode, ExcludeNode );
   LUM_FIELD( excludeSrlg, bool );                    ///< avoid the SRLGs of what is excluded
   LUM_FIELD( includeAllAdminGroup, std::uint32_t );  ///< a link must carry all of these
   LUM_FIELD( includeAnyAdminGroup, std::uint32_t );  ///< at least one of these; 0: no test
   LUM_FIELD( excludeAdminGroup, std::uint32_t );     ///< none of these
   LUM_FIELD( topoId, TopoId );                       ///< default: all topologies
   LUM_FIELD( srlgStrictMode, bool );                 ///< SRLG exclusion is hard
   LUM_FIELD( srlgExcludeOnlyLocalLinks, bool );      ///< only on the source's own links
   LUM_FIELD( bandwidth, std::uint64_t );             ///< 0: none
   LUM_FIELD( bwSetupPriority, std::uint32_t );
   LUM_FIELD( sharedBwGroupId, std::uint32_t );
   LUM_LIST( excludeLinkWithIp, ConstraintAttrIndex, Kivnet::IpGenAddr );
   LUM_LIST( includeHop, ConstraintAttrIndex, IncludeHop );
   LUM_FIELD( includeHopAllExplicit, bool );  ///< the include hops are the whole path
   LUM_FIELD( reversePath, bool );            ///< from the destination to the source
   LUM_FIELD( pathComputationType, PathComputationType );
   LUM_FIELD( sourceType, CspfSourceType );       ///< where the computation is rooted
   LUM_FIELD( neighborLink, Kivnet::IpGenAddr );  ///< `neighborOnLink`: the link
   LUM_FIELD( neighbor, Kivnet::IpGenAddr );      ///< `neighborOnLink`: the neighbour
   LUM_SET( excludeSrlgDerived, TrafficEngineering::SrlgId );
   LUM_SET( includeSrlgDerived, TrafficEngineering::SrlgId );
   LUM_FIELD( bwUsageId, BwUsageId );
   LUM_FIELD( noSpf, bool );  ///< the path is given
   LUM_FIELD( pathSegmentSourceNodeAddr, Kivnet::IpGenAddr );
   LUM_FURTHER_FIELD( neighborSystemId, Routing::Isis::SystemId );  ///< on a LAN: the neighbour
   LUM_FURTHER_FIELD( fallBackToLink, bool );
   InternalPathConstraint() { sourceType_ = plr(); }
   LUM_NO_STRING_CONSTRUCTOR( InternalPathConstraint );
};

/// One whose copies are one.
using SharedPathConstraint = Lum::CopyOnWrite< InternalPathConstraint >;

/// The constraint that is shared. Tests true unless it is the default.
class DedupConstraintContent {
 public:
   explicit DedupConstraintContent( InternalPathConstraint constraint )
      : constraint_( std::move( constraint ) ),
        hash_( Lum::hashOf( *constraint_ ) ) {}

   const InternalPathConstraint & pathConstraint() const noexcept { return *constraint_; }
   const SharedPathConstraint & sharedPathConstraint() const noexcept { return constraint_; }
   std::size_t hash() const noexcept { return hash_; }
   explicit operator bool() const { return pathConstraint() != InternalPathConstraint(); }
   bool operator==( const DedupConstraintContent & other ) const {
      return hash_ == other.hash_ && constraint_ == other.constraint_;
   }
   auto operator<=>( const DedupConstraintContent & other ) const {
      return constraint_ <=> other.constraint_;
   }

 private:
   SharedPathConstraint constraint_;
   std::size_t hash_;
};

/// One distinct constraint; lives while a path holds it.
class DedupConstraint : public Kiv::DedupHandle {
   LUM_ENTITY( Cspf, DedupConstraint );
   explicit DedupConstraint( InternalPathConstraint constraint )
      : content_( std::move( constraint ) ) {}

   const InternalPathConstraint & pathConstraint() const { return content_.pathConstraint(); }
   const SharedPathConstraint & sharedPathConstraint() const noexcept {
      return content_.sharedPathConstraint();
   }
   const DedupConstraintContent & dedupContent() const noexcept { return content_; }
   const DedupConstraintContent & content() const noexcept { return content_; }
   std::size_t hash() const override { return content_.hash(); }
   std::strong_ordering compareByContent( const Kiv::DedupHandle & other ) const override;
   /// By handle: the older one first.
   std::strong_ordering compare( const Kiv::DedupHandle & other ) const override {
      return serial() <=> other.serial();
   }

 private:
   DedupConstraintContent content_;
};

/// A constraint that is in no table yet.
Lum::Ptr< DedupConstraint > allocDedupConstraint( const InternalPathConstraint & constraint );

/// What users hold of a constraint.
using DedupConstraintLifeTimeNotifier = DedupConstraint;

/// Keeps one `ConstraintInfo` for each constraint in use. What serves a constraint comes and goes
/// with that row.
class DedupConstraintTableNotifiee : public Kiv::DedupLifeTimeNotifiee {
   LUM_ENTITY( Cspf, DedupConstraintTableNotifiee );
   explicit DedupConstraintTableNotifiee( const Lum::Ptr< ConstraintInfoTable > & table );
   ~DedupConstraintTableNotifiee() override;

   void handleInsert( const Lum::Ptr< Kiv::DedupHandle > & handle ) override;
   void handleRemove( const Lum::Ptr< Kiv::DedupHandle > & handle ) override;

 private:
   const Lum::Ptr< ConstraintInfoTable > & constraintInfoTable() const { return table_; }

   const Lum::Ptr< ConstraintInfoTable > table_;
};

/// The distinct constraints that paths hold.
class DedupConstraintTable : public Kiv::DedupTable< DedupConstraint > {
   LUM_ENTITY( Cspf, DedupConstraintTable );
   explicit DedupConstraintTable( const Lum::Ptr< ConstraintInfoTable > & constraintInfoTable );

   /// The one shared constraint of that content, new where nobody held it. O(1) look-up.
   Lum::Ptr< DedupConstraint > dedup( const InternalPathConstraint & constraint );
};

/// The lines of a dump that say what a constraint asks for.
void dumpConstraint( const InternalPathConstraint & constraint, Kiv::DumpContext & context,
                     int indent );

}
