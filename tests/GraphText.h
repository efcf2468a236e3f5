#pragma once

#include "Cspf/Graph/Tree.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

/// A graph written as text: statements parted by ";".
///
///   A -10- B -20- C     links of metric 10 and 20, the same in both directions
///   A -10> B            one direction only: no reverse, so it fails the two-way check
///   A -- B              metric 10
///   A -10{te 5 back 7 group 6 srlg 1 srlg 2 bw 100 topo 1}- B
///                       TE metric, metric of the opposite direction, administrative groups,
///                       SRLGs, unreserved bandwidth at every priority, topology
///   A =lan1= D E        routers on a network; `=lan1 20=` gives their metric towards it
///   overload A
///
/// Names sort as node ids do. Links count up from 1 in the order written, forward direction first;
/// the count is key rank and interface.
class GraphText {
 public:
   explicit GraphText( std::string_view text );

   Cspf::CspfGraph graph;

   /// The router or network of that name, added when new.
   Cspf::CspfVertex at( const std::string & name );
   /// The first edge between two vertices.
   Cspf::CspfEdge edge( const std::string & from, const std::string & to );
   const std::string & name( Cspf::CspfVertex vertex ) const { return names_.at( vertex ); }
   /// Vertices that the edges visit: "A lan1 D".
   std::string path( const std::vector< Cspf::CspfEdge > & edges ) const;

 private:
   struct Link;
   void statement( std::string_view text );
   void connect( Cspf::CspfVertex from, Cspf::CspfVertex to, const Link & link );
   Cspf::CspfEdge add( Cspf::CspfVertex from, Cspf::CspfVertex to, uint32_t metric,
                       const Link & link );

   std::map< std::string, Cspf::CspfVertex > vertices_;
   std::map< Cspf::CspfVertex, std::string > names_;
   uint32_t links_ = 0;
};
