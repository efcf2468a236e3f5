#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Zorch/TableStore.h"
#include "schema/Topology.h"

#include <map>
#include <string>
#include <vector>

/// Proves what an agent has published from state alone: from what the IGPs, the configuration and
/// the clients wrote, and from what the agent wrote. Nothing here shares code with the agent.
namespace Prove {

using Vrf = L3::VrfName;
using Af = Kivnet::AddressFamily;

/// State and tables by path, as of one moment.
class Snapshot {
 public:
   /// Of the stores of this process. The entities are theirs, not copies.
   static Snapshot of( const Corvdb::StateStore & state, const Zorch::TableStore & tables );

   /// Null where there is nothing of that type.
   template< class T >
   Lum::Ptr< T > get( const std::string & path ) const {
      const auto at = entities_.find( path );
      return at == entities_.end() ? Lum::Ptr< T >() : Lum::cast< T >( at->second );
   }
   /// Calls `visit( rest of the path, entity )` for each entity of that type below a path that
   /// ends in a slash, in order.
   template< class T, class Visit >
   void each( const std::string & base, Visit && visit ) const {
      for ( auto at = entities_.lower_bound( base );
            at != entities_.end() && at->first.starts_with( base ); ++at ) {
         if ( const auto entity = Lum::cast< T >( at->second ) ) {
            visit( at->first.substr( base.size() ), *entity );
         }
      }
   }

 private:
   std::map< std::string, Lum::Ptr< Lum::Entity > > entities_;
};

/// One IGP topology.
struct Topology {
   Cspf::TopoId id;
   Lum::Ptr< Routing::Topology::TopoDb > table;
};

/// The topologies that the agent sees in that VRF and family: those that are announced and ready,
/// and the router's own IS-IS levels where none of these is announced. Whether announcements are
/// looked at is the toggle "OspfTopoDbExport" of this process.
std::vector< Topology > topologiesOf( const Snapshot & state, const Vrf & vrf, Af af );

/// The TE router id as configured; unset while TE is off.
Kivnet::IpGenAddr teRouterIdOf( const Snapshot & state );

}
