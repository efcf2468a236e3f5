#pragma once

#include "Cspf/Records/Constraint.h"
#include "Cspf/Records/PathRecords.h"
#include "Cspf/Records/PqInfo.h"
#include "Cspf/Records/Reservation.h"
#include "Cspf/Records/RunInfo.h"
#include "platform/Lum/CopyOnWrite.h"
#include "platform/Lum/SharedString.h"
#include "schema/CspfClient.h"
#include "schema/CspfStatus.h"

#include <string>
#include <tuple>
#include <vector>

namespace Kiv {
class DumpContext;
}
namespace Trace {
class Message;
}

/// The rows by which one VRF and family tracks and answers its path requests.
namespace Cspf {

LUM_ENUM( ConstraintModifier, std::uint8_t, noChange, noSpf, unconstrainedSpfAtPlr,
          unconstrainedSpfAtProtectedNode, unconstrainedReverseSpfAtPlr,
          unconstrainedReverseSpfAtProtectedNode, spfForPathSegment, spfWithoutProtectedLink );
inline constexpr ConstraintModifier constraintModifierDefault = ConstraintModifier::noChange;

/// The client whose paths are repairs.
inline constexpr const char * tilfaClientName = "tilfa";

/// Why a path is to be refreshed: a bit set.
using RefreshReason = std::uint32_t;
inline constexpr RefreshReason refreshReasonConfigChanged = 0x1;
inline constexpr RefreshReason refreshReasonTopoChanged = 0x2;
inline constexpr RefreshReason refreshReasonExplicit = 0x4;

inline constexpr const char * rsvpClientName = "rsvp";

namespace Detail {

/// The fields of the key of that name, as its value string tells them.
struct PathInfoKey {
   LUM_VALUE( Cspf, PathInfoKey );
   LUM_FIELD( clientName, Lum::String );
   LUM_FIELD( pathKey, PathKey );
   LUM_FIELD( internal, bool );  ///< derived by the agent itself
   LUM_FIELD( constraintModifier, ConstraintModifier );
   LUM_FIELD( parentPathKey, PathKey );  ///< of an internal child path
   LUM_FIELD( pathSegmentSourceNodeAddr, Kivnet::IpGenAddr );
};

/// Whom a path of the agent's own serves.
struct PathParent {
   PathKey pathKey;
   Kivnet::IpGenAddr segmentSource;

   auto operator<=>( const PathParent & ) const = default;
};

/// As keys hold them.
struct SharedPathInfoKey {
   Lum::SharedString clientName;
   PathKey pathKey;
   bool internal = false;
   ConstraintModifier constraintModifier = constraintModifierDefault;
   mutable std::uint32_t hash = 0;         // 0: not worked out yet
   Lum::CopyOnWrite< PathParent > parent;  // most paths have none

   auto tie() const noexcept {
      return std::tie( clientName, pathKey, internal, constraintModifier, parent );
   }
};

}

class PathInfoKey;

/// "PathInfoKey=<client=rsvp, pathKey=<10.0.0.4, id=1>, internal=0, ...".
struct PathTraceName {
   const PathInfoKey & key;

   void traceTo( Trace::Message & out ) const;
   std::string stringValue() const;
};

/// The agent's key of every path row. Rows, tables and machines of a path hold copies, which share
/// the fields.
class PathInfoKey {
 public:
   PathInfoKey() = default;
   PathInfoKey( Lum::SharedString clientName, const PathKey & pathKey, bool internal = false,
                ConstraintModifier constraintModifier = constraintModifierDefault,
                const PathKey & parentPathKey = {},
                const Kivnet::IpGenAddr & pathSegmentSourceNodeAddr = {} )
      : PathInfoKey() {
      clientNameIs( std::move( clientName ) );
      pathKeyIs( pathKey );
      internalIs( internal );
      constraintModifierIs( constraintModifier );
      parentPathKeyIs( parentPathKey );
      pathSegmentSourceNodeAddrIs( pathSegmentSourceNodeAddr );
   }

   const Lum::String & clientName() const noexcept { return shared_->clientName; }
   const Lum::SharedString & sharedClientName() const noexcept { return shared_->clientName; }
   const PathKey & pathKey() const noexcept { return shared_->pathKey; }
   bool internal() const noexcept { return shared_->internal; }
   ConstraintModifier constraintModifier() const noexcept { return shared_->constraintModifier; }
   const PathKey & parentPathKey() const noexcept { return shared_->parent->pathKey; }
   const Kivnet::IpGenAddr & pathSegmentSourceNodeAddr() const noexcept {
      return shared_->parent->segmentSource;
   }
   void clientNameIs( Lum::SharedString name ) { written().clientName = std::move( name ); }
   void pathKeyIs( const PathKey & key ) { written().pathKey = key; }
   void internalIs( bool is ) { written().internal = is; }
   void constraintModifierIs( ConstraintModifier modifier ) {
      written().constraintModifier = modifier;
   }
   void parentPathKeyIs( const PathKey & key ) {
      if ( key != parentPathKey() ) {
         written().parent.own().pathKey = key;
      }
   }
   void pathSegmentSourceNodeAddrIs( const Kivnet::IpGenAddr & address ) {
      if ( address != pathSegmentSourceNodeAddr() ) {
         written().parent.own().segmentSource = address;
      }
   }

   bool operator==( const PathInfoKey & other ) const {
      return shared_.shares( other.shared_ ) || shared_->tie() == other.shared_->tie();
   }
   std::strong_ordering operator<=>( const PathInfoKey & other ) const {
      return shared_.shares( other.shared_ ) ? std::strong_ordering::equal
                                             : shared_->tie() <=> other.shared_->tie();
   }
   std::size_t hash() const noexcept;
   explicit operator bool() const { return *this != PathInfoKey(); }
   std::string stringValue() const;
   /// A path that carries traffic: it stays while it is valid.
   bool keptWhileValid() const { return clientName() == rsvpClientName && !internal(); }
   /// A path that is computed as a whole, for its client, with every change of the topology.
   bool followsConstraint() const {
      return !internal() && constraintModifier() == ConstraintModifier::noChange
             && clientName() != rsvpClientName && clientName() != tilfaClientName;
   }
   /// The client's request that this path serves: its own, or that of its parent.
   const PathKey & clientPathKey() const { return internal() ? parentPathKey() : pathKey(); }
   /// As traces name a path. Valid as long as the key.
   PathTraceName traceString() const { return { *this }; }

 private:
   Detail::SharedPathInfoKey & written() {
      Detail::SharedPathInfoKey & own = shared_.own();
      own.hash = 0;
      return own;
   }

   Lum::CopyOnWrite< Detail::SharedPathInfoKey > shared_;
};

class PathConfigInfo : public Lum::Entity {
   LUM_ENTITY( Cspf, PathConfigInfo );
   /// A row that is made by its key alone stands for a request that is in no client's
   /// configuration.
   explicit PathConfigInfo( const PathInfoKey & key,
                            const Lum::Ptr< const Config > & config = Lum::make< const Config >() )
      : pathInfoKey_( key ),
        cspfConfig_( config ) {}
   LUM_ATTRIBUTE( pathInfoKey, PathInfoKey );
   LUM_COUNTER( configChangeCount );          ///< the client's PathConfig changed
   LUM_COUNTER( derivedConfigChangeCount );   ///< what the constraint is derived from did
   LUM_COUNTER( usageChangeCount );           ///< bandwidth usage is to be re-accounted
   LUM_ATTRIBUTE( repairTopoId, TopoId );     ///< of a repair whose request names no topology
   LUM_ATTRIBUTE( treesId, std::uint32_t );   ///< of a repair: the trees that it is worked out of
   LUM_ATTRIBUTE( parentPath, PathInfoKey );  ///< of a child path
   LUM_COLLECTION_RARE( childPath, std::uint8_t, PathInfoKey );  ///< by path segment

   /// The client's requests, among them this path's.
   const Lum::Ptr< const Config > & cspfConfig() const noexcept { return cspfConfig_; }
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   Lum::Ptr< const Config > cspfConfig_;
};

/// Names a constraint in tables.
using ConstraintHandle = Kiv::DedupHandle::Key;

/// REQUIRES: the handle is that of a constraint.
inline const DedupConstraint &
dedupConstraintOf( const ConstraintHandle & handle ) {
   return static_cast< const DedupConstraint & >( *handle.handle() );
}

/// What a constraint names that is not in the topology.
LUM_ENUM( ConstraintMissing, std::uint8_t, nothing, interface, neighborOnInterface, neighborOnLan,
          nodeBehindInterface );

/// The paths that share one constraint, and what they wait for.
class ConstraintInfo : public Lum::Entity {
   LUM_ENTITY( Cspf, ConstraintInfo );
   explicit ConstraintInfo( const ConstraintHandle & handle )
      : constraint_( dedupConstraintOf( handle ) ) {}
   LUM_COLLECTION( path, PathInfoKey, bool );
   LUM_COUNTER( answeredCount );                       ///< of a repair's: they were answered
   LUM_COUNTER( cspfRequestCount );                    ///< requests for a computation
   LUM_ATTRIBUTE( topoInfoChangedAt, double );         ///< seconds; 0: reset
   LUM_ATTRIBUTE( runInfo, Lum::Ptr< CspfRunInfo > );  ///< of the last run
   /// ... and all of it, for those who include CspfData.
   Lum::Ptr< CspfData > cspfData() const;
   void cspfDataIs( const Lum::Ptr< CspfData > & cspfData );
   static constexpr const auto & cspfDataAttribute = runInfoAttribute;
   LUM_ATTRIBUTE( sourceMissing, bool );
   LUM_ATTRIBUTE( constraintMissingInTopo, bool );
   /// The paths that asked since the last run.
   Lum::HashSet< PathInfoKey, Lum::Hash > waiting;
   LUM_ATTRIBUTE( missing, ConstraintMissing );

   // Followers are marked for refresh, and answered, all at once: their rows stay as they are and
   // read here what happened. A follower that is answered otherwise by a run is marked itself.

   std::uint32_t followers = 0;  ///< paths
   bool marked = false;          ///< they wait for a run, since the topology changed
   double markedSince = 0;       ///< the change; seconds
   std::uint32_t marks = 0;      ///< how often they were marked
   std::uint32_t answers = 0;    ///< runs that answered all followers
   bool marksOne = false;        ///< while one is marked itself: it has asked already

   /// The constraint; it outlives this row, which goes when its last user lets it go.
   const DedupConstraint & constraint() const noexcept { return constraint_; }
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   const DedupConstraint & constraint_;
};

/// A counter of one path's refreshes: its own count, and what `answersThrough()` counts of those
/// for all followers at once, of which its watchers do not hear.
#define CSPF_COUNTER_OF_FOLLOWER( name_ )                                                          \
   LUM_COUNTER( name_##Alone );                                                                    \
   static constexpr const auto & name_##Attribute = name_##AloneAttribute;                         \
   std::uint32_t name_() const noexcept {                                                          \
      return name_##Alone() + answersThrough();                                                    \
   }                                                                                               \
   void name_##Is( std::uint32_t value ) {                                                         \
      name_##AloneIs( value - answersThrough() );                                                  \
   }                                                                                               \
   void name_##Inc() {                                                                             \
      name_##AloneInc();                                                                           \
   }                                                                                               \
   static_assert( true )

class PathStatusInfo : public Lum::Entity {
   LUM_ENTITY( Cspf, PathStatusInfo );
   explicit PathStatusInfo( const PathInfoKey & key,
                            const Lum::Ptr< Status > & status = Lum::make< Status >() )
      : pathInfoKey_( key ),
        cspfStatus_( status ) {}
   LUM_ATTRIBUTE( pathInfoKey, PathInfoKey );
   LUM_ATTRIBUTE( constraint, Lum::Ptr< DedupConstraint > );
   LUM_COUNTER( constraintChangeCount );               ///< `constraint` was replaced
   LUM_ATTRIBUTE( lastRefreshReqSeq, std::uint32_t );  ///< the request last accepted
   LUM_ATTRIBUTE( refreshNeeded, bool );
   LUM_ATTRIBUTE( refreshReason, RefreshReason );
   LUM_ATTRIBUTE( waitsSince, double );       ///< the change that the refresh is for; seconds
   LUM_ATTRIBUTE( updatePathPending, bool );  ///< a new path must be published
   /// Refreshes passed to the second stage.
   CSPF_COUNTER_OF_FOLLOWER( stage2RequestCount );
   LUM_COUNTER( pathStatusMetadataUpdateCount );  ///< updates that kept the hops
   LUM_ATTRIBUTE( lastUpdatedAt, double );        ///< of what is published; seconds, 0: earlier run

   /// Where the client reads its paths.
   const Lum::Ptr< Status > & cspfStatus() const noexcept { return cspfStatus_; }
   /// A refresh is under way: asked for, or to be published.
   bool isRefreshed() const noexcept { return refreshNeeded() || updatePathPending(); }
   /// Marks the path; one that is marked already gets the further reason. `since`: the change of
   /// the topology that it has to follow; 0: none.
   void refreshIs( RefreshReason reason, double since = 0 );

   /// The path is marked and answered through that constraint from now on; null: it is not.
   void followedIs( const Lum::Ptr< ConstraintInfo > & constraintInfo );
   /// It waits since its constraint was marked, whatever its own row says.
   bool isMarkedThrough() const;
   /// It was a follower already when its constraint was marked for that time, counted in `marks`.
   bool hasMark( std::uint32_t marks ) const { return followed_ && followedSince_ < marks; }
   /// A request for a computation was counted for it when its constraint was marked.
   bool hasAskedThrough() const;
   /// How often it was refreshed through its constraint alone.
   std::uint32_t answersThrough() const noexcept;
   /// A run that answers all followers has answered this one in its own row.
   void answeredAlone() { --answersThrough_; }
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   Lum::Ptr< Status > cspfStatus_;
   Lum::Ptr< ConstraintInfo > followed_;
   std::uint32_t followedSince_ = 0;   // marks of then
   std::uint32_t answersThrough_ = 0;  // with the answers of the followed one
};

/// The computed answer, kept until it is published.
class PathStatusCache : public Lum::Entity {
   LUM_ENTITY( Cspf, PathStatusCache );
   explicit PathStatusCache( const PathInfoKey & key ) : pathInfoKey_( key ) {}
   LUM_ATTRIBUTE( pathInfoKey, PathInfoKey );
   LUM_ATTRIBUTE( runInfo, Lum::Ptr< CspfRunInfo > );  ///< of the run that gave the result
   /// ... and all of it, for those who include CspfData.
   Lum::Ptr< CspfData > cspfData() const;
   void cspfDataIs( const Lum::Ptr< CspfData > & cspfData );
   static constexpr const auto & cspfDataAttribute = runInfoAttribute;
   LUM_ATTRIBUTE( path, Lum::Ptr< const PathArray > );
   LUM_ATTRIBUTE( pathSrlg, Lum::Ptr< const PathSrlg > );
   LUM_ATTRIBUTE( pathTeRouterId, Lum::Ptr< const PathTeRouterId > );
   LUM_ATTRIBUTE( includeIps, Lum::Ptr< const IncludeIps > );
   /// The links that the run or the stitching chose, of a path that reserves bandwidth; else null.
   LUM_ATTRIBUTE( pathAsTopoDbLinks, Lum::Ptr< const PathAsTopoDbLinks > );
   LUM_ATTRIBUTE( pqInfo, Lum::Ptr< Lfa::DedupPqInfo > );  ///< of a repair path
   LUM_ATTRIBUTE( achieved, RepairKind );                  ///< by `pqInfo`
   /// Of a repair: computations that left it as it was, of which nobody heard; second stages, too.
   std::uint32_t answersHeld = 0;
   /// Hash of the client's constraint that `pqInfo` answers.
   LUM_ATTRIBUTE( repairOf, std::uint64_t );
   CSPF_COUNTER_OF_FOLLOWER( refreshedStage1Count );
   CSPF_COUNTER_OF_FOLLOWER( refreshedStage2Count );
   LUM_ATTRIBUTE( stage2LastRanAt, double );  ///< seconds
   /// Of a path in use that one run found, and that is published so.
   Lum::CopyOnWrite< CspfPathRouters > routers;
   /// Of the same path; null in a cache that stands alone.
   Lum::Ptr< const PathStatusInfo > pathStatusInfo;

   /// The answer as one value.
   CspfPathResult result() const;
   void resultIs( const CspfPathResult & result );
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   std::uint32_t answersThrough() const noexcept {
      return pathStatusInfo ? pathStatusInfo->answersThrough() : 0;
   }
};

#undef CSPF_COUNTER_OF_FOLLOWER

class ConstraintStats : public Lum::Entity {
   LUM_ENTITY( Cspf, ConstraintStats );
   LUM_COUNTER( cspfCount );         ///< runs made
   LUM_COUNTER( cspfSkippedCount );  ///< runs not made since nothing changed
   LUM_ATTRIBUTE( cspfScheduled, bool );
   LUM_ATTRIBUTE( cspfCurrentDelay, double );  ///< milliseconds
   LUM_ATTRIBUTE( cspfLastRanAt, double );     ///< seconds; 0: never
   double timerEndsAt = 0;                     ///< seconds: of the delay that runs, if one does
   bool sourceMissing = false;                 ///< at the last expiry, so that nothing was run

   void dumpState( Kiv::DumpContext & context, int indent ) const;
};

/// What one path has reserved: link address -> reservation.
class PathBwUsage : public Lum::Entity {
   LUM_ENTITY( Cspf, PathBwUsage );
   LUM_COLLECTION_ORDERED( bwUsage, Kivnet::IpGenAddr, Lum::Ptr< const BwUsageDeduped > );
   /// On links whose addresses stand for other ones above already.
   std::vector< Lum::Ptr< const BwUsageDeduped > > furtherBwUsages;

   void dumpState( Kiv::DumpContext & context, int indent ) const;
};

/// Tables by path. `Is( key, row )` adds a row, `Is( key )` makes one where there is none, `Del(
/// key )` removes it; watch for rows that come and go.
class PathConfigInfoTable : public Lum::Entity {
   LUM_ENTITY( Cspf, PathConfigInfoTable );
   LUM_COLLECTION( pathConfigInfo, PathInfoKey, Lum::Ptr< PathConfigInfo > );
   LUM_ROWS_BY_KEY( pathConfigInfo, PathInfoKey, PathConfigInfo );
};

class PathStatusInfoTable : public Lum::Entity {
   LUM_ENTITY( Cspf, PathStatusInfoTable );
   LUM_COLLECTION( pathStatusInfo, PathInfoKey, Lum::Ptr< PathStatusInfo > );
   LUM_ROWS_BY_KEY( pathStatusInfo, PathInfoKey, PathStatusInfo );
   /// Clients whose requests are being taken in. Nothing is computed before that is over, since
   /// what an earlier run has published is reserved first.
   LUM_ATTRIBUTE( intakes, std::uint32_t );
   /// Topologies that are being taken in. Requests of clients follow them, and runs both.
   LUM_ATTRIBUTE( imports, std::uint32_t );
   /// Constraints whose throttle has run out meanwhile; they are gone on with when all is in.
   std::vector< ConstraintHandle > heldBack;

   bool isTakingIn() const noexcept { return intakes() > 0 || imports() > 0; }
};

class PathStatusCacheTable : public Lum::Entity {
   LUM_ENTITY( Cspf, PathStatusCacheTable );
   LUM_COLLECTION( pathStatusCache, PathInfoKey, Lum::Ptr< PathStatusCache > );
   LUM_ROWS_BY_KEY( pathStatusCache, PathInfoKey, PathStatusCache );
};

/// Tables by constraint, likewise.
class ConstraintStatsTable : public Lum::Entity {
   LUM_ENTITY( Cspf, ConstraintStatsTable );
   LUM_COLLECTION_ORDERED( constraintStats, ConstraintHandle, Lum::Ptr< ConstraintStats > );
   LUM_ROWS_BY_KEY( constraintStats, ConstraintHandle, ConstraintStats );
};

class ConstraintInfoTable : public Lum::Entity {
   LUM_ENTITY( Cspf, ConstraintInfoTable );
   LUM_COLLECTION_ORDERED( constraintInfo, ConstraintHandle, Lum::Ptr< ConstraintInfo > );
   LUM_ROWS_BY_KEY( constraintInfo, ConstraintHandle, ConstraintInfo );
};

}
