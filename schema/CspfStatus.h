#pragma once

#include "platform/Lum/SharedString.h"
#include "schema/CspfKeys.h"

#include <set>
#include <utility>

/// What the agent publishes.
namespace Cspf {

/// "te/cspf/agentStatus"
class AgentStatus : public Lum::Entity {
   LUM_ENTITY( Cspf, AgentStatus );
   LUM_ATTRIBUTE( agentEnabled, bool );
};

/// What a published repair protects against.
LUM_ENUM( RepairKind, std::uint8_t, none, link, node );

/// The published path. No hops: there is none, or the destination is the router itself.
struct PathStatus {
   LUM_VALUE( Cspf, PathStatus );
   LUM_FIELD( pathKey, PathKey );
   LUM_FIELD( refreshRespSeq, std::uint32_t );  ///< the `refreshReqSeq` that it answers
   LUM_FIELD( changeCount, std::uint32_t );
   LUM_FIELD( repairPathIdx, std::uint32_t );  ///< an index of `Status::pqInfo`; 0: none
   LUM_FIELD( achieved, RepairKind );          ///< by the repair
   LUM_LIST( path, HopIndex, Kivnet::IpGenAddr );
   LUM_LIST( pathSrlg, HopIndex, SrlgOfHop );
   LUM_LIST( pathTeRouterId, HopIndex, Kivnet::IpGenAddr );
   LUM_LIST( includeIp, IncludeIpIndex, IncludeIp );
};

/// How a packet gets to a repair node: by the node's own segment, or, where `from` is set, over one
/// link of the router before it (RFC 8402: node segment, adjacency segment).
struct RepairSegment {
   LUM_VALUE( Cspf, RepairSegment );
   LUM_FIELD( from, Routing::Isis::SystemId );
   LUM_FIELD( to, Routing::Isis::SystemId );
   LUM_FIELD( nearAddr, Kivnet::IpGenAddr );  ///< of the link, at `from`; unset where it has none
   LUM_FIELD( farAddr, Kivnet::IpGenAddr );   ///< at `to`
};

/// A repair path: the next hop, then the repair nodes in order, each with its segment.
struct PqInfo {
   LUM_VALUE( Cspf, PqInfo );
   LUM_FIELD( idx, std::uint32_t );
   LUM_FIELD( nhIp, Kivnet::IpGenAddr );
   LUM_FIELD( nhIntf, Kivnet::IntfId );
   LUM_LIST( path, RepairNodeIdx, Routing::Isis::SystemId );
   LUM_LIST( segment, RepairNodeIdx, RepairSegment );
};

/// "te/cspf/status/vrf/<VRF>/<family>/<client>"
class Status : public Lum::Entity {
   LUM_ENTITY( Cspf, Status );
   LUM_COLLECTION( pathStatus, PathKey, PathStatus );
   LUM_COLLECTION_ORDERED( pqInfo, std::uint32_t, PqInfo );
   /// Why the last computation of a path gave none, or could not replace the published one.
   LUM_COLLECTION( pathError, PathKey, Lum::String );
   void pathStatusIs( const PathStatus & status ) { pathStatusIs( status.pathKey(), status ); }
   void pqInfoIs( const PqInfo & info ) { pqInfoIs( info.idx(), info ); }
};

/// "te/cspf/intfIpToRouterId/vrf/<VRF>/<family>": interface address to the TE router id of the
/// router that owns it.
class IntfIpToRouterIdTable : public Lum::Entity {
   LUM_ENTITY( Cspf, IntfIpToRouterIdTable );
   LUM_COLLECTION( intfIpToRouterId, Kivnet::IpGenAddr, Kivnet::IpGenAddr );

   /// Readers hear nothing until as many `tellReaders` as `holdReaders` have come; then of each row
   /// that has changed. So does whoever writes rows while it reads what a reader may change.
   void holdReaders() noexcept { ++holds_; }
   void tellReaders() {
      if ( --holds_ == 0 ) {
         const auto alive = keptAlive();
         for ( const Kivnet::IpGenAddr & intfIp : std::exchange( untold_, {} ) ) {
            notify( &intfIpToRouterIdAttribute, &intfIp );
         }
      }
   }

 private:
   // In the place of the entity's own.
   void notify( const void * attribute, const void * intfIp ) {
      if ( holds_ == 0 ) {
         Entity::notify( attribute, intfIp );
      } else {
         untold_.insert( *static_cast< const Kivnet::IpGenAddr * >( intfIp ) );
      }
   }

   std::uint32_t holds_ = 0;
   std::set< Kivnet::IpGenAddr > untold_;
};

/// Names one client path among those that share a constraint.
struct ConstraintPath {
   LUM_VALUE( Cspf, ConstraintPath );
   LUM_FIELD( clientName, Lum::SharedString );
   LUM_FIELD( pathKey, PathKey );
   LUM_FIELD( internal, bool );  ///< derived by the agent from that client path
};

/// How often one distinct constraint was computed, and for whom.
class ConstraintStatus : public Lum::Entity {
   LUM_ENTITY( Cspf, ConstraintStatus );
   LUM_COLLECTION( path, ConstraintPath, std::uint32_t );  ///< users of that name
   LUM_COUNTER( cspfCount );
   LUM_COUNTER( cspfSkippedCount );
   LUM_ATTRIBUTE( cspfCurrentDelay, double );  ///< milliseconds
   LUM_ATTRIBUTE( sourceMissing, bool );
   LUM_ATTRIBUTE( constraintMissingInTopo, bool );
};

/// "te/cspf/constraintStatus/vrf/<VRF>/<family>", by the constraint's serial number.
class ConstraintStatusTable : public Lum::Entity {
   LUM_ENTITY( Cspf, ConstraintStatusTable );
   LUM_COLLECTION_ORDERED( constraintStatus, std::uint64_t, Lum::Ptr< ConstraintStatus > );
};

}

namespace Ip {

/// "ip/status"
class Status : public Lum::Entity {
   LUM_ENTITY( Ip, Status );
   LUM_ATTRIBUTE( routing, bool );
};

}
