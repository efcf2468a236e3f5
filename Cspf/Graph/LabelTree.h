#pragma once

#include "Cspf/Graph/Labels.h"

namespace Cspf {

/// What a run would have found, answered from labels and an overlay: the same costs, the same
/// last links in the same order, the same choice of the first of two routers. Nothing but last
/// links of the vertices that somebody asks for is worked out.
class CspfLabelTree {
 public:
   /// All outlive this object, and stay as they are while it is asked.
   CspfLabelTree( const CspfGraph & graph, const CspfLabels & labels, const CspfOverlay & overlay )
      : graph_( graph ),
        labels_( labels ),
        overlay_( overlay ) {}

   CspfVertex source() const { return labels_.root(); }
   uint64_t graphVersion() const { return labels_.graphVersion(); }
   uint32_t metric( CspfVertex vertex ) const { return overlay_.metric( labels_, vertex ); }
   CspfCost cost( CspfVertex vertex ) const;
   bool reached( CspfVertex vertex ) const { return metric( vertex ) != CspfLabels::unreached; }
   /// As CspfTree. Valid until the next question.
   std::span< const CspfEdge > lastLinks( CspfVertex vertex ) const;
   CspfVertex before( CspfVertex vertex ) const { return graph_.from( lastLinks( vertex )[ 0 ] ); }
   bool finalBefore( const CspfGraph & graph, CspfVertex a, CspfVertex b ) const;

 private:
   template< class Cost, class Visit >
   void forEachAttaining( CspfVertex vertex, Visit && visit ) const;
   template< class Visit >
   void forEachLastLink( CspfVertex vertex, Visit && visit ) const;
   CspfEdge entryLink( CspfVertex network ) const;
   std::pair< bool, uint64_t > place( CspfVertex router ) const;
   void order() const;

   const CspfGraph & graph_;
   const CspfLabels & labels_;
   const CspfOverlay & overlay_;
   mutable std::vector< CspfEdge > links_;
};

}
