// What explanations compute: runs from any router under one constraint, and one link in words.

#include "Cspf/Bandwidth/BwUsageManager.h"
#include "Cspf/Hops/HopLinks.h"
#include "Cspf/Runs/Explanation.h"

#include <algorithm>

namespace Cspf {

ExplainedFact &
ExplainedFact::with( std::string_view name, std::string_view value ) {
   if ( !value.empty() ) {
      text_.append( "\t" ).append( name ).append( "=" ).append( value );
   }
   return *this;
}

ExplainedSearch::ExplainedSearch( const VrfTopology & topology,
                                  const InternalPathConstraint & constraint )
   : view_( Lum::make< AllTopoTeDbView >( topology, constraint ) ),
     options_( runOptions( *view_ ) ) {
   CspfLinkConstraint numbers = view_->linkConstraint( view_->spfRoot() );
   filter_.apply( graph(), std::move( numbers ) );
}

const CspfTree &
ExplainedSearch::from( CspfVertex vertex ) {
   const auto [ at, fresh ] = trees_.try_emplace( vertex );
   if ( fresh ) {
      options_.source = vertex;
      run_.run( graph(), filter_, options_, at->second );
   }
   return at->second;
}

CspfVertex
ExplainedSearch::nearest( std::span< const CspfVertex > to ) {
   CspfVertex best = noVertex;
   if ( source() != noVertex ) {
      const CspfTree & tree = from( source() );
      for ( const CspfVertex vertex : to ) {
         if ( tree.reached( vertex )
              && ( best == noVertex || tree.cost( vertex ) < tree.cost( best ) ) ) {
            best = vertex;
         }
      }
   }
   return best;
}

std::optional< CspfCost >
ExplainedSearch::cost( CspfVertex vertex, std::span< const CspfVertex > to ) {
   std::optional< CspfCost > least;
   const CspfTree & tree = from( vertex );
   for ( const CspfVertex end : to ) {
      if ( tree.reached( end ) ) {
         least = least ? std::min( *least, tree.cost( end ) ) : tree.cost( end );
      }
   }
   return least;
}

CspfRefusal
ExplainedSearch::refusal( CspfEdge edge ) const {
   return CspfArcs::refusal( graph(), filter_, edge, options_ );
}

CspfCost
ExplainedSearch::step( CspfEdge edge ) const {
   const auto [ excludes, lacks ] = filter_.srlgCounts( graph(), edge );
   return { excludes, lacks, CspfArcs::stepMetric( graph(), edge, options_ ) };
}

namespace {

std::string
hex( std::uint32_t mask ) {
   static constexpr const char * digits = "0123456789abcdef";
   std::string text;
   for ( ; mask; mask >>= 4 ) {
      text.insert( text.begin(), digits[ mask & 15 ] );
   }
   return text.empty() ? text : "0x" + text;
}

std::uint64_t
whole( float bandwidth ) {
   return bandwidth >= 0x1p64F ? ~std::uint64_t( 0 )
          : bandwidth > 0      ? static_cast< std::uint64_t >( bandwidth )
                               : 0;
}

}

ExplainedFact
ExplainedSearch::fact( std::string_view kind, CspfEdge link, CspfEdge arrival ) const {
   const TopoGraph & topology = view_->topoGraph();
   const CspfEdgeRecord record = graph().record( link );
   const auto node = [ & ]( CspfVertex vertex ) {
      return graph().isNetwork( vertex )
                ? "LAN " + topology.networkId( vertex ).networkId().stringValue()
                : topology.nodeId( vertex ).ipAddress().stringValue();
   };
   ExplainedFact fact( kind );
   fact.with( "from", node( graph().from( link ) ) )
      .with( "to", node( graph().to( arrival ) ) )
      .with( "address", topology.nextHop( arrival ).stringValue() );
   const CspfRefusal first = refusal( link );
   const CspfRefusal test =
      first != CspfRefusal::none || arrival == link ? first : refusal( arrival );
   fact.with( "test", test == CspfRefusal::none ? std::string_view() : text( test ) );
   const bool membership = graph().kind( link ) == CspfEdgeKind::networkToRouter;
   if ( membership ) {
      return fact;
   }
   const Routing::Topology::Neighbor & neighbor = topology.neighbor( link );
   fact.with( "near", topology.interfaceAddr( link ).stringValue() )
      .with( "interface", neighbor.intfId().stringValue() )
      .with( "metric", step( link ).metric );
   std::string srlgs;
   for ( const std::uint32_t srlg : record.srlgs ) {
      srlgs += ( srlgs.empty() ? "" : " " ) + std::to_string( srlg );
   }
   fact.with( "adminGroup", hex( record.adminGroup ) ).with( "srlg", srlgs );
   if ( step( link ).srlgExclude > 0 ) {
      fact.with( "sharedRisks", step( link ).srlgExclude );
   }
   const std::uint8_t priority = filter_.constraint().setupPriority;
   const std::uint64_t free = whole( record.unreserved[ priority ] );
   if ( filter_.constraint().bandwidth > 0 ) {
      const BwUsageKey key{ topology.neighborKey( link ), view_->constraint().bwUsageId() };
      const std::uint64_t available = view_->bwUsageManager()->bandwidthAvailable( key, priority );
      fact.with( "own", available - std::min( free, available ) );
   }
   return fact.with( "free", free ).with( "bandwidth", whole( neighbor.maxLinkBandwidth() ) );
}

}
