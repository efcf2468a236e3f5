#pragma once

#include "schema/Isis.h"
#include "schema/Topology.h"
#include "tools/lab/LabOfState.h"

namespace Lab {

std::string routerNameKey( const std::string & table, const Cspf::IgpRouterId & id );
std::string lanNameKey( const std::string & table, const Cspf::IgpRouterId & pseudonode );
/// Of a link between two routers, by the addresses that one of its ends has.
std::string linkNameKey( const std::string & table, const Cspf::IgpRouterId & near,
                         const Cspf::IgpRouterId & far, const Addresses & addresses );

/// How the things of a table are called, where somebody has said so.
struct TableNames {
   const LabNames & given;
   std::string path;        ///< of the table
   Cspf::IgpRouterId self;  ///< the agent's own router there, if it is known,
   std::string selfName;    ///< which is called so
   const Routing::Isis::Hostnames * igp = nullptr;
};

/// Adds the routers, links and LANs of a table to the topology. A link of which one end alone
/// speaks is advertised one way. O(table log table).
void addTable( const Routing::Topology::TopoDb & table, const TableNames & names, Shown shown,
               LabTopology & topology );

}
