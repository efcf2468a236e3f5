#pragma once

#include "tests/Lab.h"

#include <cstdint>
#include <string>

/// What requests for repairs are made of, and what is read of them.
namespace TilfaLab {

using Json = TestLab::Json;

/// The client, in both families.
inline const Json client{
   { "clients",
     { { "tilfa",
         { { "vrf", { { "default", true } } },
           { "addressFamily", { { "ipv4", true }, { "ipv6", true } } } } } } } };

inline Json
linkOf( const std::string & intf ) {
   return { { "excludeIntf", intf } };
}
inline Json
nodeBehind( const std::string & intf, const std::string & node ) {
   return { { "excludeIntf", intf },
            { "excludeNode", { { "node", node }, { "nexthopIntf", intf } } } };
}

/// The identifier of a path's repair; 0: it has none.
inline std::uint32_t
idx( const TestLab & lab, const std::string & path ) {
   const Cspf::PathStatus * published = lab.status( "tilfa", path );
   return published ? published->repairPathIdx() : 0;
}

}
