#pragma once

#include "tools/lab/LabOutcome.h"
#include "tools/prove/Snapshot.h"

#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// Networks as pictures: what is there to see, in what order of time, and how Graphviz and a
/// browser are told of it.
namespace Draw {

/// A router or a LAN.
struct Node {
   std::string id;  ///< "n12", in the text of Graphviz and in the picture
   std::string name;
   bool lan = false;
   bool self = false;  ///< the agent runs there
   std::optional< Lab::LabPlace > at;
};

/// A point-to-point link, or that of a LAN's member.
struct Edge {
   std::string id;    ///< "e12"
   std::size_t a, b;  ///< nodes; of a LAN's member, b is the LAN
};

/// How a node or an edge looks at one moment.
struct Look {
   bool up = false;
   double free = 0;    ///< of an edge: bytes per second that are free in both directions
   std::string label;  ///< of an edge: metric, or both metrics
   std::string title;  ///< all attributes, in lines

   bool operator==( const Look & ) const = default;
};

/// A published path, or the packet's ways with a repair.
struct Route {
   struct Step {
      std::size_t edge;
      bool forward;  ///< from a to b

      auto operator<=>( const Step & ) const = default;
   };
   std::string name;  ///< "CLIENT/PATH"
   std::string text;  ///< where it leads, in words
   bool repair = false;
   std::vector< Step > steps;
   std::vector< std::size_t > rings;  ///< repair nodes

   bool operator==( const Route & ) const = default;
};

struct Moment {
   std::string text;                  ///< when it is, and what has happened since the one before
   std::vector< Look > nodes, edges;  ///< as many as the scene has
   std::vector< Route > routes;       ///< in order of their names
};

/// One VRF and family over time. All texts are plain (`Text::plainLines`).
struct Scene {
   std::vector< Node > nodes;
   std::vector< Edge > edges;
   std::vector< Moment > moments;
   double leastFree = HUGE_VAL, mostFree = 0;  ///< of all edges that are up, at any time

   /// Width of an edge that looks so, from 0.8 to 4: by the root of its share of the most that is
   /// free anywhere at any time; 1.5 where all have as much.
   double width( const Look & edge ) const;
};

/// Puts a scene together, a moment at a time.
class SceneMaker {
 public:
   explicit SceneMaker( const Lab::VrfAf & where ) : where_( where ) {}

   /// `state` holds what is published; the document gives the network and the names of paths.
   /// O(network log network), for each repair as much again.
   void add( const Lab::LabDocument & document, const Prove::Snapshot & state,
             const std::string & text );
   /// What is not there at a moment is down then.
   Scene take();

 private:
   using Key = std::pair< std::string, std::string >;

   std::size_t nodeIs( const std::string & key, const std::string & name );
   Look & edgeIs( const std::string & topology, const std::string & name, std::size_t a,
                  std::size_t b );
   void addRouters( const Lab::LabDocument & document, const Lab::LabTopology & topology,
                    const std::string & topologyName );
   void addLinks( const Lab::LabTopology & topology, const std::string & name );
   void addLans( const Lab::LabTopology & topology, const std::string & name );
   void makePlain();

   const Lab::VrfAf where_;
   Scene scene_;
   std::map< std::string, std::size_t > nodeNumbers_;
   std::map< Key, std::size_t > edgeNumbers_;
};

}
