#pragma once

#include "schema/Isis.h"
#include "tools/igp/IsisTopology.h"
#include "tools/igp/OspfText.h"
#include "tools/igpfeed/Vty.h"

#include <map>
#include <string>
#include <vector>

namespace IgpFeed {

using Vrf = L3::VrfName;

/// What routers call themselves.
using Hostnames = std::map< Routing::Isis::SystemId, std::string >;

/// What one daemon knows at one time.
struct Reading {
   std::vector< Igp::Topology > topologies;
   std::map< Vrf, Igp::IsisAdjacencies > adjacencies;   ///< IS-IS only
   std::map< Vrf, Routing::Isis::SystemId > systemIds;  ///< IS-IS only
   std::map< Vrf, Hostnames > hostnames;                ///< IS-IS only
   Igp::Findings findings;
};

/// A routing daemon as a source. Both operations throw VtyError; `read` also Igp::CaptureError
/// where the daemon prints what nobody expects.
class Daemon {
 public:
   virtual ~Daemon() = default;
   /// A text that is another one whenever the databases are others; costs the daemon little.
   virtual std::string version( Vty & vty ) const = 0;
   virtual Reading read( Vty & vty ) const = 0;
};

class IsisDaemon : public Daemon {
 public:
   std::string version( Vty & vty ) const override;
   Reading read( Vty & vty ) const override;
};

class OspfDaemon : public Daemon {
 public:
   std::string version( Vty & vty ) const override;
   Reading read( Vty & vty ) const override;
};

}
