#pragma once

#include "Cspf/Graph/ChangeLog.h"
#include "Cspf/Graph/GraphStorage.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Cspf {

/// A vertex (router or multi-access network) and a directed edge of one graph. The numbers are
/// dense, stay with their vertex or edge until it is removed or the graph is renumbered, and are
/// given out again afterwards.
enum class CspfVertex : uint32_t {};
enum class CspfEdge : uint32_t {};
inline constexpr CspfVertex noVertex{ 0xFFFFFFFF };
inline constexpr CspfEdge noEdge{ 0xFFFFFFFF };
constexpr uint32_t
index( CspfVertex vertex ) {
   return static_cast< uint32_t >( vertex );
}
constexpr uint32_t
index( CspfEdge edge ) {
   return static_cast< uint32_t >( edge );
}

enum class CspfEdgeKind : uint8_t { routerToRouter, routerToNetwork, networkToRouter };

/// What an edge carries besides its two ends. An edge from a network to a router is a membership,
/// not a link: only `topology` means something there.
struct CspfEdgeRecord {
   uint32_t igpMetric = 0;
   std::optional< uint32_t > teMetric;
   uint32_t adminGroup = 0;
   std::span< const uint32_t > srlgs;    // at most 16; copied
   std::array< float, 8 > unreserved{};  // by setup priority
   uint16_t topology = 0;                // below CspfGraph::anyTopology
   uint32_t interface = 0;               // local interface, 0 for none
   uint64_t keyRank = 0;  // order of the link's key among all links of the graph; unique
};

/// One column an attribute, indexed by edge: a pass over one attribute reads nothing else.
struct CspfEdgeColumns {
   std::vector< CspfVertex > from, to;
   std::vector< uint8_t > flags;
   std::vector< uint16_t > topology;
   std::vector< uint32_t > igpMetric;
   /// The IGP metric where the link has no TE metric. Empty where no link has one.
   std::vector< uint32_t > teMetric;
   std::vector< uint32_t > adminGroup;
   std::vector< uint32_t > srlgList;  // number in CspfGraph::srlgPool()
   std::vector< uint32_t > interface;
   std::vector< uint64_t > keyRank;
   std::vector< CspfEdge > reverse;
   /// By setup priority. Empty where all edges have what they have at the priority before: most
   /// networks reserve at one priority or none.
   std::array< std::vector< float >, 8 > unreserved;

   const std::vector< uint32_t > & metric( bool useTeMetric ) const {
      return useTeMetric && !teMetric.empty() ? teMetric : igpMetric;
   }
   const std::vector< float > & unreservedAt( size_t priority ) const {
      while ( priority > 0 && unreserved[ priority ].empty() ) {
         --priority;
      }
      return unreserved[ priority ];
   }
};

/// Something of an edge between these two, or of the vertex (twice the same), is not as it was.
struct CspfEdgeChange {
   CspfVertex from, to;
   auto operator<=>( const CspfEdgeChange & ) const = default;
};

/// All topologies of one VRF and family in one view, as path computation walks them.
///
/// Invariants: edges run router to router, router to network or network to router; an edge stands
/// once in the out-row of its `from` and once in the in-row of its `to`; `reverse` is mutual; an
/// edge passes the two-way check only while it has a reverse.
class CspfGraph {
 public:
   static constexpr uint16_t anyTopology = 0xFFFF;
   static constexpr uint8_t kindBits = 0x3, twoWayBit = 0x4, usedBit = 0x8, ownTeMetricBit = 0x10;

   /// `nodeRank`: order of the router's node id among all routers; unique. O(1).
   CspfVertex addRouter( uint64_t nodeRank );
   CspfVertex addNetwork();
   /// REQUIRES: no edge begins or ends at the vertex.
   void removeVertex( CspfVertex vertex );
   void overloadedIs( CspfVertex router, bool overloaded );
   void nodeRankIs( CspfVertex router, uint64_t rank );

   /// The kind follows from the ends; network to network is no edge. The new edge has no reverse.
   /// Amortised O(1), but for O(degree) when a row moves.
   CspfEdge addEdge( CspfVertex from, CspfVertex to, const CspfEdgeRecord & record );
   /// Replaces what the edge carries. Ends, reverse and two-way check stay.
   void updateEdge( CspfEdge edge, const CspfEdgeRecord & record );
   /// Dissolves the pair that the edge is in, then removes it. O(degree of its ends).
   void removeEdge( CspfEdge edge );
   void keyRankIs( CspfEdge edge, uint64_t rank );
   /// Room for so many numbers, of which it is known that they will come.
   void reserve( size_t vertices, size_t edges );

   /// Makes two edges each other's reverse. `agree`: they pass the two-way check, addresses
   /// included. REQUIRES: they run between the same vertices in opposite directions; neither has
   /// another reverse. May be called again for the same pair with a new verdict.
   void pairIs( CspfEdge edge, CspfEdge reverse, bool agree );
   /// The edge and its reverse, if any, are without reverse and fail the two-way check.
   void unpair( CspfEdge edge );

   struct Renumbering {
      std::vector< CspfVertex > vertex;  // by old number; noVertex for a number not in use
      std::vector< CspfEdge > edge;
   };
   /// Numbers vertices breadth-first from `root` (the rest follows in old order) and edges in the
   /// order of their `from`, so that a walk from there touches memory in order; drops free
   /// numbers. Every number held outside is translated by the result. O(vertices + edges).
   Renumbering renumber( CspfVertex root );

   /// Numbers in use are below these bounds; some below them may be free.
   uint32_t vertexBound() const { return static_cast< uint32_t >( vertices_.size() ); }
   uint32_t edgeBound() const { return static_cast< uint32_t >( columns_.from.size() ); }
   uint32_t vertices() const { return vertexBound() - uint32_t( freeVertices_.size() ); }
   uint32_t edges() const { return edgeBound() - uint32_t( freeEdges_.size() ); }
   /// Whether edges are numbered in the order of their `from`, as renumbering leaves them.
   bool edgesAreInOrder() const { return edgesAreInOrder_; }
   /// Changes with every change of the graph; filters and trees hold for one version.
   uint64_t version() const { return version_; }

   /// Every change, by the edges whose use it may concern, but for ranks: their order stays. Where
   /// vertices come, go or get other numbers everything may have changed.
   const ChangeLog< CspfEdgeChange > & changes() const { return changes_; }
   /// Notes a change of what the edge, or some vertex, stands for and the graph does not hold.
   void noteEdge( CspfEdge edge ) {
      ++version_;
      noteUse( edge );
      reshapedAt_ = changes_.end();
   }
   /// Where the log stood when an edge last came or went, was paired, or got another meaning. What
   /// changed since is what edges carry, and overload.
   uint64_t reshapedAt() const { return reshapedAt_; }
   void noteAll() { changes_.noteAll(); }

   /// Notes a change of what the vertex stands for and the graph does not hold.
   void touch( CspfVertex vertex ) { at( vertex ).changedAt = ++lastChange_; }
   /// Counts changes of all vertices, and the last one of a vertex: of itself, of an edge that
   /// leaves it, of the pair that such an edge is in. Renumbering changes all. A number that is not
   /// in use has changed when its vertex went, or since.
   uint64_t lastChange() const { return lastChange_; }
   uint64_t changedAt( CspfVertex vertex ) const {
      return index( vertex ) < vertexBound() ? at( vertex ).changedAt : lastChange_;
   }

   bool has( CspfVertex vertex ) const {
      return index( vertex ) < vertexBound() && at( vertex ).kind != VertexKind::free;
   }
   bool has( CspfEdge edge ) const {
      return index( edge ) < edgeBound() && ( columns_.flags[ index( edge ) ] & usedBit );
   }
   bool isRouter( CspfVertex vertex ) const { return at( vertex ).kind == VertexKind::router; }
   bool isNetwork( CspfVertex vertex ) const { return at( vertex ).kind == VertexKind::network; }
   bool overloaded( CspfVertex vertex ) const { return at( vertex ).overloaded; }
   uint64_t nodeRank( CspfVertex router ) const { return at( router ).nodeRank; }
   std::span< const CspfVertex > overloadedRouters() const { return overloaded_; }

   /// Edges that leave, and that enter, a vertex, in no particular order; valid until the next
   /// change. Elements are edge numbers.
   std::span< const uint32_t > out( CspfVertex vertex ) const {
      return rows_.cells( at( vertex ).out );
   }
   std::span< const uint32_t > in( CspfVertex vertex ) const {
      return rows_.cells( at( vertex ).in );
   }

   CspfVertex from( CspfEdge edge ) const { return columns_.from[ index( edge ) ]; }
   CspfVertex to( CspfEdge edge ) const { return columns_.to[ index( edge ) ]; }
   CspfEdge reverse( CspfEdge edge ) const { return columns_.reverse[ index( edge ) ]; }
   bool twoWay( CspfEdge edge ) const { return columns_.flags[ index( edge ) ] & twoWayBit; }
   uint64_t keyRank( CspfEdge edge ) const { return columns_.keyRank[ index( edge ) ]; }
   /// Has the rank fetched, which is asked for soon.
   void fetchRank( CspfEdge edge ) const {
      __builtin_prefetch( columns_.keyRank.data() + index( edge ) );
   }
   uint32_t interface( CspfEdge edge ) const { return columns_.interface[ index( edge ) ]; }
   CspfEdgeKind kind( CspfEdge edge ) const {
      return static_cast< CspfEdgeKind >( columns_.flags[ index( edge ) ] & kindBits );
   }
   std::span< const uint32_t > srlgs( CspfEdge edge ) const {
      return srlgPool_.srlgs( columns_.srlgList[ index( edge ) ] );
   }
   /// What the edge carries; `srlgs` points into the graph until its next change.
   CspfEdgeRecord record( CspfEdge edge ) const;

   const CspfEdgeColumns & columns() const { return columns_; }
   const CspfSrlgPool & srlgPool() const { return srlgPool_; }

   /// For tests: the first invariant that does not hold, in words, or nothing. O(edges * degree).
   std::string inconsistency() const;

 private:
   enum class VertexKind : uint8_t { free, router, network };
   struct Vertex {
      uint64_t nodeRank = 0;
      CspfRowPool::Row out, in;
      uint64_t changedAt = 0;
      VertexKind kind = VertexKind::free;
      bool overloaded = false;
   };

   const Vertex & at( CspfVertex vertex ) const { return vertices_[ index( vertex ) ]; }
   Vertex & at( CspfVertex vertex ) { return vertices_[ index( vertex ) ]; }
   CspfVertex addVertex( VertexKind kind );
   CspfEdge newEdge();
   void noteUse( CspfEdge edge ) { changes_.note( { from( edge ), to( edge ) } ); }
   void write( CspfEdge edge, const CspfEdgeRecord & record );
   void writeUnreserved( uint32_t edge, const std::array< float, 8 > & unreserved );
   std::vector< CspfVertex > breadthFirst( CspfVertex root ) const;
   CspfGraph copyInOrder( std::span< const CspfVertex > order, Renumbering & map ) const;
   std::string edgeInconsistency( CspfEdge edge ) const;

   std::vector< Vertex > vertices_;
   std::vector< CspfVertex > freeVertices_;
   std::vector< CspfVertex > overloaded_;
   CspfEdgeColumns columns_;
   std::vector< CspfEdge > freeEdges_;
   bool edgesAreInOrder_ = true;
   CspfRowPool rows_;
   CspfSrlgPool srlgPool_;
   uint64_t version_ = 1;
   ChangeLog< CspfEdgeChange > changes_{ 4096 };
   uint64_t reshapedAt_ = 0;
   uint64_t lastChange_ = 0;
};

}
