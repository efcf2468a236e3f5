// Why a path is what it is, or why there is none. Each question is a run of its own under what is
// left of the constraint.

#include "Cspf/Runs/Explanation.h"

#include "Cspf/Hops/HopLinks.h"

#include <algorithm>
#include <functional>

namespace Cspf {

namespace {

/// A part of a constraint that may stand in the way.
struct Part {
   const char * name;
   bool ( *asked )( const InternalPathConstraint & );
   void ( *leaveOut )( InternalPathConstraint & );
};

const Part parts[] = {
   { "excludeIntf",
     []( const InternalPathConstraint & c ) { return static_cast< bool >( c.excludeIntf() ); },
     []( InternalPathConstraint & c ) {
        c.excludeIntf_ = {};
        c.excludeSrlgDerived_.clear();
     } },
   { "excludeNode",
     []( const InternalPathConstraint & c ) { return static_cast< bool >( c.excludeNode() ); },
     []( InternalPathConstraint & c ) {
        c.excludeNode_ = {};
        c.excludeSrlgDerived_.clear();
     } },
   { "excludeSrlg",
     []( const InternalPathConstraint & c ) { return c.excludeSrlg() && c.srlgStrictMode(); },
     []( InternalPathConstraint & c ) {
        c.excludeSrlg_ = false;
        c.excludeSrlgDerived_.clear();
     } },
   { "includeAllAdminGroup",
     []( const InternalPathConstraint & c ) { return c.includeAllAdminGroup() != 0; },
     []( InternalPathConstraint & c ) { c.includeAllAdminGroup_ = 0; } },
   { "includeAnyAdminGroup",
     []( const InternalPathConstraint & c ) { return c.includeAnyAdminGroup() != 0; },
     []( InternalPathConstraint & c ) { c.includeAnyAdminGroup_ = 0; } },
   { "excludeAdminGroup",
     []( const InternalPathConstraint & c ) { return c.excludeAdminGroup() != 0; },
     []( InternalPathConstraint & c ) { c.excludeAdminGroup_ = 0; } },
   { "topoId", []( const InternalPathConstraint & c ) { return static_cast< bool >( c.topoId() ); },
     []( InternalPathConstraint & c ) { c.topoId_ = {}; } },
   { "bandwidth", []( const InternalPathConstraint & c ) { return c.bandwidth() != 0; },
     []( InternalPathConstraint & c ) { c.bandwidth_ = 0; } },
   { "excludeLinkWithIp",
     []( const InternalPathConstraint & c ) { return !c.excludeLinkWithIpList().empty(); },
     []( InternalPathConstraint & c ) { c.excludeLinkWithIp_.clear(); } },
};

class Explainer {
 public:
   Explainer( const VrfTopology & topology, const ExplainedPath & path )
      : topology_( topology ),
        path_( path ),
        search_( topology, path.constraint ),
        ends_( search_.view().verticesWithTep( path.destination ) ) {}

   ExplainedFacts facts() {
      if ( search_.source() == noVertex ) {
         say( "the source is in no topology" );
         return std::move( facts_ );
      }
      tellHops();
      const CspfVertex end = search_.nearest( ends_ );
      if ( end != noVertex ) {
         tellBest( end );
      } else if ( ends_.empty() ) {
         say( "no router has the address " + path_.destination.stringValue() );
      } else {
         tellWhatStandsInTheWay();
         tellCut();
      }
      return std::move( facts_ );
   }

 private:
   void say( const std::string & text ) {
      facts_.push_back( ExplainedFact( "reason" ).with( "text", text ) );
   }

   void tellHops() {
      const auto memory = Lum::make< HopAddressMemory >( topology_.allTopoDbStatus );
      HopToTopoDbLinkMapper mapper( search_.view(), *memory, search_.filter() );
      HopToTopoDbLinkMapper::Hops hops;
      for ( std::size_t i = 0; i < path_.hops.size(); ++i ) {
         hops.set( HopIndex( i ), path_.hops[ i ] );
      }
      std::vector< CspfPathHop > links;
      mapper.handleNew( search_.source(), hops, links );
      CspfCost sum;
      for ( std::size_t i = 0; i < links.size(); ++i ) {
         if ( !links[ i ].known() ) {
            facts_.push_back( ExplainedFact( "hop" )
                                 .with( "address", path_.hops[ i ].stringValue() )
                                 .with( "test", "there is no such hop any more" ) );
            continue;
         }
         const bool lan = links[ i ].membership != noEdge;
         const CspfEdge arrival = lan ? links[ i ].membership : links[ i ].link;
         ExplainedFact hop = search_.fact( "hop", links[ i ].link, arrival );
         add( sum, search_.step( links[ i ].link ) );
         if ( lan ) {
            add( sum, search_.step( arrival ) );
         }
         facts_.push_back( withEqualWays( std::move( hop ), links[ i ], sum ) );
      }
      if ( !links.empty() ) {
         facts_.push_back( costFact( "cost", sum ) );
      }
   }

   /// By how many links the hop is reached at that cost, where they are several.
   ExplainedFact withEqualWays( ExplainedFact hop, const CspfPathHop & at, const CspfCost & sum ) {
      const CspfTree & tree = search_.from( search_.source() );
      const auto ways = [ & ]( CspfEdge edge ) {
         const CspfVertex to = search_.graph().to( edge );
         return tree.reached( to ) && tree.cost( to ) == sum ? tree.lastLinks( to ).size() : 0;
      };
      const std::size_t most =
         std::max( ways( at.link ), at.membership == noEdge ? 0 : ways( at.membership ) );
      return most > 1 ? hop.with( "equal", most ) : hop;
   }

   static void add( CspfCost & sum, const CspfCost & step ) {
      sum.srlgExclude += step.srlgExclude;
      sum.srlgInclude += step.srlgInclude;
      sum.metric += step.metric;
   }

   static ExplainedFact costFact( std::string_view kind, const CspfCost & cost ) {
      ExplainedFact fact( kind );
      fact.with( "metric", cost.metric );
      if ( cost.srlgExclude > 0 ) {
         fact.with( "sharedRisks", cost.srlgExclude );
      }
      return fact;
   }

   void tellBest( CspfVertex end ) {
      const CspfTree & tree = search_.from( search_.source() );
      facts_.push_back(
         costFact( "best", tree.cost( end ) ).with( "equalPaths", equalPaths( tree, end ) ) );
   }

   /// How many paths of least cost there are, at most 2^63. A LAN and its routers cost the same, so
   /// that routers come after the LANs that lead to them; in a reverse run before.
   std::uint64_t equalPaths( const CspfTree & tree, CspfVertex end ) const {
      const CspfGraph & graph = search_.graph();
      const auto reached = tree.reachedVertices();
      std::vector< CspfVertex > order( reached.begin(), reached.end() );
      std::ranges::stable_sort( order, {}, [ & ]( CspfVertex vertex ) {
         return std::pair( tree.cost( vertex ),
                           graph.isRouter( vertex ) != tree.options().reverse );
      } );
      std::vector< std::uint64_t > ways( graph.vertexBound() );
      constexpr std::uint64_t most = std::uint64_t( 1 ) << 63;
      for ( const CspfVertex vertex : order ) {
         std::uint64_t & here = ways[ index( vertex ) ];
         here = vertex == tree.source();
         for ( const CspfEdge link : tree.lastLinks( vertex ) ) {
            const std::uint64_t there = ways[ index( graph.from( link ) ) ];
            here = there > most - here ? most : here + there;
         }
      }
      return ways[ index( end ) ];
   }

   bool existsWithout( std::span< const Part * const > out ) const {
      InternalPathConstraint c = path_.constraint;
      for ( const Part * part : out ) {
         part->leaveOut( c );
      }
      return ExplainedSearch( topology_, c ).nearest( ends_ ) != noVertex;
   }

   void tellWhatStandsInTheWay() {
      std::vector< const Part * > asked, alone;
      for ( const Part & part : parts ) {
         if ( part.asked( path_.constraint ) ) {
            asked.push_back( &part );
         }
      }
      if ( asked.empty() || !existsWithout( asked ) ) {
         say( "no way leads there, whatever is asked for" );
         return;
      }
      for ( const Part * part : asked ) {
         if ( existsWithout( std::span( &part, 1 ) ) ) {
            alone.push_back( part );
            tellWithout( part->name, "" );
         }
      }
      std::erase_if( asked,
                     [ & ]( const Part * p ) { return std::ranges::count( alone, p ) > 0; } );
      for ( std::size_t i = 0; i < asked.size(); ++i ) {
         for ( std::size_t j = i + 1; j < asked.size(); ++j ) {
            if ( existsWithout( std::array{ asked[ i ], asked[ j ] } ) ) {
               tellWithout( asked[ i ]->name, asked[ j ]->name );
            }
         }
      }
   }

   void tellWithout( std::string_view one, std::string_view other ) {
      ExplainedFact fact( "existsWithout" );
      fact.with( "part", one ).with( "and", other );
      if ( one == "bandwidth" ) {
         fact.with( "upTo", mostBandwidth() );
      }
      facts_.push_back( fact );
   }

   /// The most that some path to the destination has free. O(edges log edges).
   std::uint64_t mostBandwidth() const {
      std::uint64_t fits = 0, tooMuch = path_.constraint.bandwidth();
      while ( tooMuch - fits > 1 ) {
         InternalPathConstraint c = path_.constraint;
         c.bandwidth_ = fits + ( tooMuch - fits ) / 2;
         ( ExplainedSearch( topology_, c ).nearest( ends_ ) != noVertex ? fits : tooMuch ) =
            c.bandwidth_;
      }
      return fits;
   }

   /// The links that are refused between what is reached and whatever leads on to the destination.
   void tellCut() {
      const CspfGraph & graph = search_.graph();
      std::vector< bool > leadsOn( graph.vertexBound() );
      std::vector< CspfVertex > waiting = ends_;
      while ( !waiting.empty() ) {
         const CspfVertex at = waiting.back();
         waiting.pop_back();
         if ( leadsOn[ index( at ) ] ) {
            continue;
         }
         leadsOn[ index( at ) ] = true;
         for ( const std::uint32_t edge : graph.in( at ) ) {
            waiting.push_back( graph.from( CspfEdge{ edge } ) );
         }
      }
      const CspfTree & tree = search_.from( search_.source() );
      for ( const CspfVertex vertex : tree.reachedVertices() ) {
         for ( const std::uint32_t e : graph.out( vertex ) ) {
            const CspfEdge edge{ e };
            if ( !tree.reached( graph.to( edge ) ) && leadsOn[ index( graph.to( edge ) ) ] ) {
               facts_.push_back( search_.fact( "refused", edge, edge ) );
            }
         }
      }
   }

   const VrfTopology & topology_;
   const ExplainedPath & path_;
   ExplainedSearch search_;
   const std::vector< CspfVertex > ends_;
   ExplainedFacts facts_;
};

/// Follows a path that somebody thinks of.
class ByExplainer {
 public:
   ByExplainer( const VrfTopology & topology, const ExplainedPath & path )
      : topology_( topology ),
        search_( topology, path.constraint ),
        ends_( search_.view().verticesWithTep( path.destination ) ),
        at_( search_.source() ) {}

   ExplainedFacts facts( std::span< const Kivnet::IpGenAddr > by ) {
      bool holds = at_ != noVertex;
      for ( std::size_t i = 0; holds && i < by.size(); ++i ) {
         holds = pass( by[ i ], by.size() == 1 );
      }
      if ( holds && reach( ends_, "the destination" ) ) {
         facts_.push_back( ExplainedFact( "by" )
                              .with( "metric", sum_.metric )
                              .with( "sharedRisks", sum_.srlgExclude ) );
      }
      return std::move( facts_ );
   }

 private:
   /// A router's address is passed there; a link's where the link leads, `either`: or the other way
   /// round. False where that cannot be.
   bool pass( const Kivnet::IpGenAddr & address, bool either ) {
      const CspfVertex router = search_.view().topoGraph().vertex( NodeId( address ) );
      if ( router != noVertex ) {
         return reach( std::span( &router, 1 ), address.stringValue() );
      }
      std::vector< CspfEdge > links = linksTo( address, either );
      if ( links.empty() ) {
         facts_.push_back(
            ExplainedFact( "reason" )
               .with( "text", "no router and no link has the address " + address.stringValue() ) );
         return false;
      }
      std::erase_if( links, [ & ]( CspfEdge link ) {
         if ( search_.refusal( link ) != CspfRefusal::none ) {
            facts_.push_back( search_.fact( "refused", link, link ) );
            return true;
         }
         return false;
      } );
      return !links.empty() && cross( links );
   }

   /// By the link of those that makes the least way so far and on.
   bool cross( const std::vector< CspfEdge > & links ) {
      CspfEdge best = noEdge;
      std::optional< CspfCost > least;
      for ( const CspfEdge link : links ) {
         const CspfVertex from = search_.graph().from( link ), to = search_.graph().to( link );
         const auto before = search_.cost( at_, std::span( &from, 1 ) );
         const auto after = search_.cost( to, ends_ );
         if ( before && after ) {
            const CspfCost cost = plus( plus( *before, search_.step( link ) ), *after );
            if ( !least || cost < *least ) {
               least = cost;
               best = link;
            }
         }
      }
      if ( best == noEdge ) {
         facts_.push_back( ExplainedFact( "reason" ).with( "text", "no path leads there and on" ) );
         return false;
      }
      const CspfVertex from = search_.graph().from( best );
      sum_ =
         plus( plus( sum_, *search_.cost( at_, std::span( &from, 1 ) ) ), search_.step( best ) );
      at_ = search_.graph().to( best );
      return true;
   }

   bool reach( std::span< const CspfVertex > to, const std::string & name ) {
      if ( const auto cost = search_.cost( at_, to ) ) {
         sum_ = plus( sum_, *cost );
         at_ = to[ 0 ];
         return true;
      }
      for ( const CspfVertex vertex : to ) {
         for ( const std::uint32_t e : search_.graph().in( vertex ) ) {
            if ( search_.refusal( CspfEdge{ e } ) != CspfRefusal::none ) {
               facts_.push_back( search_.fact( "refused", CspfEdge{ e }, CspfEdge{ e } ) );
            }
         }
      }
      facts_.push_back( ExplainedFact( "reason" ).with( "text", "no path leads to " + name ) );
      return false;
   }

   std::vector< CspfEdge > linksTo( const Kivnet::IpGenAddr & address, bool either ) const {
      const TopoGraph & topology = search_.view().topoGraph();
      const auto & owned =
         topology_.allTopoDbStatus->intfIpToNeighborTable()->intfIpToNeighbor( address );
      std::vector< CspfEdge > links;
      for ( const AllTopoNeighborKey & key : owned.neighborSet() ) {
         const CspfEdge out = topology.edge( key );
         const CspfEdge in = out == noEdge ? noEdge : search_.graph().reverse( out );
         for ( const CspfEdge edge : { in, either || in == noEdge ? out : noEdge } ) {
            if ( edge != noEdge ) {
               links.push_back( edge );
            }
         }
      }
      return links;
   }

   static CspfCost plus( const CspfCost & a, const CspfCost & b ) {
      return { a.srlgExclude + b.srlgExclude, a.srlgInclude + b.srlgInclude, a.metric + b.metric };
   }

   const VrfTopology & topology_;
   ExplainedSearch search_;
   const std::vector< CspfVertex > ends_;
   CspfVertex at_;
   CspfCost sum_;
   ExplainedFacts facts_;
};

}

ExplainedFacts
explain( const VrfTopology & topology, const ExplainedPath & path ) {
   return Explainer( topology, path ).facts();
}

ExplainedFacts
explainBy( const VrfTopology & topology, const ExplainedPath & path,
           std::span< const Kivnet::IpGenAddr > by ) {
   return ByExplainer( topology, path ).facts( by );
}

}
