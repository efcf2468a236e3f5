#pragma once

#include "schema/CspfKeys.h"

/// What clients and configuration write for the agent.
namespace Cspf {

/// An entry under "te/cspf/client", named by the client.
class Client : public Lum::Entity {
   LUM_ENTITY( Cspf, Client );
   LUM_COLLECTION_ORDERED( vrf, L3::VrfName, bool );
   LUM_COLLECTION_ORDERED( addressFamily, Kivnet::AddressFamily, bool );
   LUM_ATTRIBUTE( bwmRequired, bool );
};

/// "te/cspf/cliConfig": the throttle of CSPF runs, in milliseconds.
class CspfCliConfig : public Lum::Entity {
   LUM_ENTITY( Cspf, CspfCliConfig );
   LUM_ATTRIBUTE( initialInt, std::uint32_t );  ///< delay of the first run after a quiet period
   LUM_ATTRIBUTE( holdInt, std::uint32_t );     ///< first hold-down after a run
   LUM_ATTRIBUTE( maxInt, std::uint32_t );      ///< ceiling of the doubling hold-down
   CspfCliConfig() {
      initialInt_ = 50;
      holdInt_ = 200;
      maxInt_ = 5000;
   }
};

/// What a path must satisfy.
struct PathConstraint {
   LUM_VALUE( Cspf, PathConstraint );
   LUM_FIELD( excludeIntf, Kivnet::IntfId );
   LUM_FIELD( excludeNode, ExcludeNode );
   LUM_FIELD( excludeSrlg, bool );
   LUM_FIELD( includeAllAdminGroup, std::uint32_t );
   LUM_FIELD( includeAnyAdminGroup, std::uint32_t );
   LUM_FIELD( excludeAdminGroup, std::uint32_t );
   LUM_FIELD( topoId, TopoId );
   LUM_FIELD( srlgStrictMode, bool );
   LUM_FIELD( srlgExcludeOnlyLocalLinks, bool );
   LUM_FIELD( bandwidth, std::uint64_t );
   LUM_FIELD( bwSetupPriority, std::uint32_t );
   LUM_FIELD( sharedBwGroupId, std::uint32_t );
   LUM_LIST( excludeLinkWithIp, ConstraintAttrIndex, Kivnet::IpGenAddr );
   LUM_LIST( includeHop, ConstraintAttrIndex, IncludeHop );
   LUM_FIELD( includeHopAllExplicit, bool );
   LUM_FIELD( reversePath, bool );
   LUM_FIELD( pathComputationType, PathComputationType );
   LUM_FIELD( sourceType, CspfSourceType );
   LUM_FIELD( neighborLink, Kivnet::IpGenAddr );
   LUM_FIELD( neighbor, Kivnet::IpGenAddr );
   /// Of a repair on a LAN: the one neighbour whose place on the LAN is protected, by its identity
   /// (`neighbor` names it by its TE router id). Unset both: the interface as a whole is.
   LUM_FIELD( neighborSystemId, Routing::Isis::SystemId );
   LUM_FIELD( maxRepairNodes, std::uint32_t );  ///< of a repair, 1 to 8; 0: 8
   /// Of a repair for a node: where the node cannot be avoided, the link to it is.
   LUM_FIELD( fallBackToLink, bool );
   LUM_FIELD( noSpf, bool );
   PathConstraint() { sourceType_ = plr(); }
};

/// A client's request for one path.
struct PathConfig {
   LUM_VALUE( Cspf, PathConfig );
   LUM_FIELD( pathKey, PathKey );
   LUM_FIELD( refreshReqSeq, std::uint32_t );  ///< a new number asks for a new computation
   LUM_FIELD( autoUpdate, bool );
   LUM_FIELD( constraint, PathConstraint );
};

/// "te/cspf/config/vrf/<VRF>/<family>/<client>"
class Config : public Lum::Entity {
   LUM_ENTITY( Cspf, Config );
   LUM_COLLECTION( pathConfig, PathKey, PathConfig );
   void pathConfigIs( const PathConfig & config ) { pathConfigIs( config.pathKey(), config ); }
};

}
