#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// What a path costs: excluded risk groups on it, then metric.
struct OracleCost {
   std::uint64_t srlgs = 0;
   std::uint64_t metric = 0;
   auto operator<=>( const OracleCost & ) const = default;
};

/// One way from a router to the next, over a link or across a LAN. Routers are named by their TE
/// router ids.
struct OracleEdge {
   std::string from, to;
   std::string intf;  ///< at `from`
   std::vector< std::string > nearAddrs, farAddrs;
   std::uint64_t metric = 0;
   std::uint64_t metricBack = 0;  ///< of the way back
   std::uint32_t adminGroup = 0;
   std::vector< std::uint32_t > srlg;
   std::array< double, 8 > unreserved{};  ///< by priority, bytes per second
   bool lan = false;
   std::string topology;

   /// Names the link: the ways that lead over one LAN from one router share it.
   std::string link() const { return from + " " + intf + " " + topology; }
};

/// What a lab file means for ordinary IPv4 paths, worked out from the document alone, in the
/// plainest way: all ways between routers in one list, costs by Bellman and Ford. It judges the
/// agent and shares nothing with it.
class LabOracle {
 public:
   /// REQUIRES: the document is a valid lab.
   LabOracle( const nlohmann::json & document, const std::string & vrf );

   /// The TE router id of the agent's router; "" where TE is off or has none.
   const std::string & source() const { return source_; }
   /// The least cost to the destination under the constraint; nothing where there is no path.
   std::optional< OracleCost > cost( const std::string & dst, const nlohmann::json & constraint );
   /// The cost of a published path (a `pathStatus` of the lab's output), or what is wrong with it.
   /// An empty path costs nothing. SRLGs are looked at where the status has "pathSrlg".
   std::optional< OracleCost > walk( const nlohmann::json & status, const std::string & dst,
                                     const nlohmann::json & constraint, std::string & complaint );
   /// Whether the router has that address.
   bool owns( const std::string & teRouterId, const std::string & address ) {
      return tunnelEnds_[ address ].contains( teRouterId );
   }
   /// The ways of the published hops, as far as they exist.
   std::vector< OracleEdge > hops( const nlohmann::json & status ) const;
   /// What the user of the next question holds of each link, by `OracleEdge::link`, at the priority
   /// of the question: it may have that besides what is unreserved.
   std::map< std::string, std::uint64_t > held;

 private:
   const OracleEdge * edge( const std::string & from, const std::string & to,
                            const std::string & address ) const;

   void addTopology( const std::string & name, const nlohmann::json & topology );
   void addLink( const std::string & name, const nlohmann::json & link );
   void addLan( const std::string & name, const nlohmann::json & lan );
   void addAddresses( const std::string & router, const nlohmann::json & addresses );
   std::string te( const std::string & router ) const;
   bool allowed( const OracleEdge & edge, const nlohmann::json & constraint );
   std::set< std::uint32_t > riskGroups( const nlohmann::json & constraint ) const;
   std::uint64_t conflicts( const OracleEdge & edge, const nlohmann::json & constraint ) const;

   const nlohmann::json & document_;
   std::string source_;
   std::vector< OracleEdge > edges_;
   std::map< std::string, std::set< std::string > > tunnelEnds_;     // address: TE router ids
   std::map< std::string, std::vector< std::uint32_t > > intfSrlg_;  // by local interface
   std::map< std::string, std::set< std::string > > teOfName_;       // router name: TE router ids
   std::set< std::pair< std::string, std::string > > overloaded_;    // topology, TE router id

   // The topology that is being read.
   std::string topologyName_;
   const nlohmann::json * routers_ = nullptr;
};
