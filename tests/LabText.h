#pragma once

#include <nlohmann/json.hpp>

#include <string_view>

/// A topology of a lab, written as text: statements parted by ";".
///
///   A -10- B -20- C     links of metric 10 and 20, the same in both directions
///   A -10> B            advertised by A only
///   A -- B              metric 10
///   A -10{te 5 back 7 group 6 srlg 1 srlg 2 bw 100}- B
///                       TE metric, metric of the opposite direction, administrative groups,
///                       SRLGs, bandwidth
///   A =lan1= D E        routers on a LAN, the first one designated; `=lan1 20=` gives their metric
///   overload A          the overload bit
///   plain A             no TE router id
///
/// The n-th router named, from 1, has system id 0000.0000.<n in four decimal digits>, and TE router
/// id 10.0.0.n with its host prefix. The n-th link has the addresses 10.64.0.2n and 10.64.0.2n+1,
/// and is named "A-B"; a further link of the pair "A-B:2". Its interfaces are "A-B.a" and "A-B.b".
/// On the n-th LAN router m has the address 10.128.n.m and the interface "lan1.A".
nlohmann::json labTopology( std::string_view text );

/// The same with IPv6 addresses and host prefixes in place of those of IPv4: fd00::10:64:0:2.
nlohmann::json inIpv6( const nlohmann::json & part );

/// A lab of that topology, "core", for an agent on "A"; in IPv6 with all addresses but the TE
/// router id of the agent's own `inIpv6`. Clients are `clients`.
nlohmann::json labInFamily( std::string_view text, bool isV6, const nlohmann::json & clients );
