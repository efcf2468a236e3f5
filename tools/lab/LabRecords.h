#pragma once

#include "schema/CspfClient.h"
#include "schema/Isis.h"
#include "tools/lab/LabDocument.h"
#include "tools/lab/LabTable.h"

#include <map>
#include <set>
#include <string>
#include <utility>

/// A lab's document as the records of the state that it stands for. Plain data, no state is
/// touched.
namespace Lab {

/// Numbers that tell parallel links apart. A link keeps its number for as long as this object
/// lives, whatever comes and goes around it, unless a lab gives that number to another one.
class LabLinkIds {
 public:
   std::uint32_t id( const std::string & topology, const std::string & link ) {
      std::uint32_t & id = ids_[ { topology, link } ];
      while ( id == 0 || given_.contains( id ) ) {
         id = ++last_;
      }
      return id;
   }
   /// Links there may be given numbers; whether one of these is new, so that any link may have to
   /// get another.
   bool givenBy( const LabTopology & topology );

 private:
   std::map< std::pair< std::string, std::string >, std::uint32_t > ids_;
   std::set< std::uint32_t > given_;
   std::uint32_t last_ = 0;
};

/// The table that the IGP of that topology publishes.
LabTable tableOf( const std::string & name, const LabTopology & topology, LabLinkIds & linkIds );
/// Its path: that of an announced table, or of the router's own IS-IS table of that level.
std::string tablePath( const LabTopology & topology );

using LabAdjacencies = std::map< IsisExportImpl::AdjacencyKey, IsisExportImpl::Adjacency >;
/// The IS-IS adjacencies of the document's router, by VRF. A VRF with an IS-IS topology has an
/// entry, if only an empty one.
std::map< Vrf, LabAdjacencies > adjacenciesOf( const LabDocument & document );

using LabHostnames = std::map< Routing::Isis::SystemId, std::string >;
/// What IS-IS routers call themselves, by VRF: as the lab does.
std::map< Vrf, LabHostnames > hostnamesOf( const LabDocument & document );

/// One client's tables in one VRF and family.
struct ClientTable {
   std::string client;
   Vrf vrf;
   Af af = Af::unspecified;

   auto operator<=>( const ClientTable & ) const = default;
   /// "te/cspf/config/vrf/<VRF>/<family>/<client>"
   std::string configPath() const { return path( "te/cspf/config/vrf/" ); }
   std::string statusPath() const { return path( "te/cspf/status/vrf/" ); }

 private:
   std::string path( const std::string & base ) const {
      return base + vrf.stringValue() + "/" + Kivnet::text( af ) + "/" + client;
   }
};

using LabConfigs = std::map< ClientTable, std::map< Cspf::PathKey, Cspf::PathConfig > >;
/// What the clients ask for.
LabConfigs configsOf( const LabDocument & document );

}
