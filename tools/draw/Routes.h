#pragma once

#include "tools/draw/Scene.h"
#include "tools/lab/RouterNames.h"
#include "tools/prove/Answers.h"

#include <set>

namespace Draw {

/// By what a router is known in a scene: its TE router id, without one its name in the topology.
std::string nodeKey( const std::string & topology, const std::string & name,
                     const Lab::LabRouter & router );

/// Likewise a LAN, and the edge of a LAN's member.
std::string lanKey( const std::string & topology, const std::string & lan );
std::string memberKey( const std::string & lan, const std::string & router );

/// Finds published paths, and the ways of packets with a repair, as edges of a scene.
class RouteFinder {
 public:
   using Numbers = std::map< std::string, std::size_t >;
   using EdgeNumbers = std::map< std::pair< std::string, std::string >, std::size_t >;

   /// The numbers are those of all nodes and edges, and outlive it, as does the document.
   RouteFinder( const Lab::VrfAf & where, const Lab::LabDocument & document, const Numbers & nodes,
                const EdgeNumbers & edges );

   /// All paths that are asked for or published, in order of their names. A path of which a hop is
   /// not there has the hops before it.
   std::vector< Route > routes( const Prove::Snapshot & state ) const;

 private:
   /// A way from router to router.
   struct Arc {
      std::size_t from, to;
      std::vector< Route::Step > steps;  ///< two across a LAN
      const Lab::LabTopology * topology;
      const Kivnet::IntfId * intf;       ///< by which it leaves
      const Lab::Addresses * addresses;  ///< where it arrives
      std::uint64_t metric, igpMetric;
   };
   using Arcs = std::vector< const Arc * >;
   using Costs = std::vector< std::uint64_t >;

   void add( const std::string & name, const Lab::LabTopology & topology );
   std::size_t node( const std::string & topology, const Lab::LabTopology & routers,
                     const std::string & router ) const;
   void addLan( const std::string & name, const Lab::LabTopology & topology,
                const std::string & lanName, const Lab::LabLan & lan );
   void addArc( Arc arc );
   std::optional< std::size_t > nodeOf( const Kivnet::IpGenAddr & teRouterId ) const;
   const Arc * arcOf( std::size_t from, std::optional< std::size_t > to,
                      const Kivnet::IpGenAddr & address, const Kivnet::IntfId * intf ) const;
   std::optional< std::uint64_t > follow( std::size_t at, const Cspf::PathStatus & status,
                                          Route & route ) const;
   void walk( std::size_t at, const Cspf::PqInfo & repair, const Cspf::Destination & destination,
              Route & route ) const;
   void spread( const Lab::LabTopology & topology, std::size_t from, std::size_t to,
                std::set< Route::Step > & steps ) const;
   Costs costs( const Lab::LabTopology & topology, std::size_t node, bool backwards ) const;
   std::optional< std::size_t > originator( const Lab::LabTopology & topology, std::size_t from,
                                            const Cspf::Destination & destination ) const;

   void describe( const Prove::Answer & answer, const Prove::Snapshot & state,
                  const Lab::RouterNames & names, Route & route ) const;
   std::optional< std::size_t > startOf( const Prove::Answer & answer ) const;

   const Lab::VrfAf where_;
   const Lab::LabDocument & document_;
   const Numbers & nodes_;
   const EdgeNumbers & edges_;
   std::optional< std::size_t > self_;
   std::set< std::pair< const Lab::LabTopology *, std::size_t > > overloaded_;
   std::vector< Arc > arcs_;
   std::vector< std::vector< std::size_t > > leaving_, arriving_;  // arcs, by node
   std::map< std::pair< const Lab::LabTopology *, Routing::Isis::SystemId >, std::size_t >
      bySystemId_;
   std::map< const Lab::LabTopology *, std::string > names_;
};

}
