// The judges. Written for clarity and from the meaning of constraints, costs and orders, not from
// the code under test: one edge at a time, with sets and maps, and no thought of speed.

#include "tests/TreeChecker.h"

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <tuple>
#include <vector>

using namespace Cspf;

namespace {

bool
isIn( const auto & list, const auto & value ) {
   return std::find( list.begin(), list.end(), value ) != list.end();
}

std::string
name( CspfVertex vertex ) {
   return "v" + std::to_string( index( vertex ) );
}
std::string
name( CspfEdge edge ) {
   return "e" + std::to_string( index( edge ) );
}

/// What one edge means under a constraint and the options of a run.
struct Meaning {
   const CspfGraph & g;
   const CspfLinkConstraint & c;
   const CspfRunOptions & options;

   CspfCost counts( CspfEdge edge ) const {
      CspfCost cost;
      if ( g.kind( edge ) == CspfEdgeKind::networkToRouter ) {
         return cost;
      }
      const auto srlgs = g.record( edge ).srlgs;
      for ( uint32_t srlg : srlgs ) {
         const bool matters = !c.srlgOnlyLocal || g.from( edge ) == c.ownSource;
         cost.srlgExclude += matters && isIn( c.excludedSrlgs, srlg );
      }
      for ( uint32_t srlg : std::set( c.includedSrlgs.begin(), c.includedSrlgs.end() ) ) {
         cost.srlgInclude += !isIn( srlgs, srlg );
      }
      return cost;
   }

   bool enoughBandwidth( CspfEdge edge ) const {
      auto available = static_cast< uint64_t >( g.record( edge ).unreserved[ c.setupPriority ] );
      for ( const auto & [ own, bandwidth ] : c.ownReservations ) {
         available += own == edge ? bandwidth : 0;
      }
      return available >= c.bandwidth;
   }

   CspfRefusal refusal( CspfEdge edge ) const {
      const CspfEdgeRecord link = g.record( edge );
      const CspfVertex from = g.from( edge ), to = g.to( edge );
      const bool isLink = g.isRouter( from );
      const uint32_t group = link.adminGroup;
      const bool overloaded = c.overloadRule == CspfOverloadRule::avoid
                                 ? g.overloaded( to )
                                 : g.overloaded( from ) && from != c.root;
      const std::pair< CspfRefusal, bool > tests[] = {
         { CspfRefusal::otherTopology,
           c.topology != CspfGraph::anyTopology && c.topology != link.topology },
         { CspfRefusal::twoWayCheck, !g.twoWay( edge ) },
         { CspfRefusal::overload, overloaded },
         { CspfRefusal::excludedInterface,
           from == c.ownSource && isIn( c.excludedInterfaces, link.interface ) },
         { CspfRefusal::excludedNode, isIn( c.excludedVertices, to ) },
         { CspfRefusal::srlg, c.srlgStrict && counts( edge ).srlgExclude },
         { CspfRefusal::includeAllAdminGroup, isLink && ( c.includeAllAdminGroup & ~group ) },
         { CspfRefusal::includeAnyAdminGroup,
           isLink && c.includeAnyAdminGroup && !( c.includeAnyAdminGroup & group ) },
         { CspfRefusal::excludeAdminGroup, isLink && ( c.excludeAdminGroup & group ) },
         { CspfRefusal::linkAddress, isIn( c.excludedEdges, edge ) },
         { CspfRefusal::bandwidth, isLink && c.bandwidth && !enoughBandwidth( edge ) },
      };
      for ( const auto & [ reason, refused ] : tests ) {
         if ( refused ) {
            return reason;
         }
      }
      return CspfRefusal::none;
   }

   /// The cost at the far end of an edge, when the edge may be walked from `cost`.
   std::optional< CspfCost > walk( CspfCost cost, CspfEdge edge ) const {
      if ( refusal( edge ) != CspfRefusal::none || expandsNot( g.from( edge ) ) ) {
         return {};
      }
      const bool free =
         options.reverse ? g.isNetwork( g.to( edge ) ) : g.isNetwork( g.from( edge ) );
      uint64_t metric = 0;
      if ( !free ) {
         const CspfEdgeRecord link = g.record( options.reverse ? g.reverse( edge ) : edge );
         metric = options.useTeMetric && link.teMetric ? *link.teMetric : link.igpMetric;
         if ( metric == 0 || ( metric > 0xFFFFFE && !options.useLinksWithMaxMetric ) ) {
            return {};
         }
      }
      if ( cost.metric + metric > 0xFDFFFFFF ) {
         return {};
      }
      const CspfCost more = counts( edge );
      return CspfCost{ cost.srlgExclude + more.srlgExclude, cost.srlgInclude + more.srlgInclude,
                       static_cast< uint32_t >( cost.metric + metric ) };
   }

   bool expandsNot( CspfVertex vertex ) const {
      return options.singleHop && g.isRouter( vertex ) && vertex != options.source;
   }
};

/// An entry of the tentative list, in the order in which entries leave it.
struct Entry {
   CspfCost cost;
   int kind = 0;           // 0 network, 1 router by a link of its own, 2 router through a network
   uint64_t nodeRank = 0;  // of a router through a network
   uint64_t keyRank = 0;
   uint64_t ownRank = 0;  // of the link by which that router stands on the network
   CspfEdge edge = noEdge;
   uint32_t interface = 0;
   bool operator<( const Entry & other ) const {
      return std::tie( cost, kind, nodeRank, keyRank, ownRank )
             < std::tie( other.cost, other.kind, other.nodeRank, other.keyRank, other.ownRank );
   }
};

/// The tentative list as a set of entries, least first.
struct LiteralRun {
   const Meaning & m;
   std::set< Entry > tentative;
   std::map< CspfVertex, std::set< Entry > > lastLinks;
   std::map< CspfVertex, Entry > madeFinalBy;
   std::vector< CspfVertex > order;

   void expand( CspfVertex vertex ) {
      const Entry reached = madeFinalBy[ vertex ];
      for ( uint32_t e : m.g.out( vertex ) ) {
         const CspfEdge edge{ e };
         if ( const auto cost = m.walk( reached.cost, edge ) ) {
            Entry entry{ *cost, 0, 0, m.g.keyRank( edge ), 0, edge, reached.interface };
            if ( vertex == m.c.ownSource ) {
               entry.interface = m.g.interface( edge );
            }
            if ( m.g.isNetwork( vertex ) ) {
               entry.kind = 2;
               entry.nodeRank = m.g.nodeRank( m.g.to( edge ) );
               entry.keyRank = reached.keyRank;
               entry.ownRank = m.g.keyRank( m.g.reverse( edge ) );
            } else if ( m.g.isRouter( m.g.to( edge ) ) ) {
               entry.kind = 1;
            }
            tentative.insert( entry );
         }
      }
   }

   void run() {
      madeFinalBy[ m.options.source ] = {};
      order.push_back( m.options.source );
      expand( m.options.source );
      while ( !tentative.empty() ) {
         const Entry entry = *tentative.begin();
         tentative.erase( tentative.begin() );
         const CspfVertex vertex = m.g.to( entry.edge );
         if ( vertex == m.options.source ) {
            continue;
         }
         const auto [ first, fresh ] = madeFinalBy.try_emplace( vertex, entry );
         const bool again = std::ranges::any_of( lastLinks[ vertex ], [ & ]( const Entry & other ) {
            return entry.kind == 2 && m.g.from( other.edge ) == m.g.from( entry.edge );
         } );
         if ( entry.cost == first->second.cost && !again ) {
            lastLinks[ vertex ].insert( entry );
         }
         if ( fresh ) {
            order.push_back( vertex );
            expand( vertex );
         }
      }
   }
};

}

std::string
TreeChecker::filterFault() const {
   const Meaning meaning{ graph, filter.constraint(), tree.options() };
   for ( uint32_t e = 0; e < graph.edgeBound(); ++e ) {
      const CspfEdge edge{ e };
      if ( !graph.has( edge ) ) {
         if ( filter.admitted( edge ) ) {
            return name( edge ) + " is free but admitted";
         }
         continue;
      }
      const CspfRefusal expected = meaning.refusal( edge );
      if ( filter.admitted( edge ) != ( expected == CspfRefusal::none )
           || filter.reason( graph, edge ) != expected ) {
         return name( edge ) + ": filter says "
                + std::string( text( filter.reason( graph, edge ) ) )
                + ( filter.admitted( edge ) ? ", admits" : ", refuses" ) + "; expected "
                + std::string( text( expected ) );
      }
   }
   return {};
}

std::string
TreeChecker::treeFault() const {
   const Meaning meaning{ graph, filter.constraint(), tree.options() };
   std::map< CspfVertex, std::set< CspfEdge > > attaining;
   if ( tree.cost( tree.source() ) != CspfCost{} || !tree.lastLinks( tree.source() ).empty() ) {
      return "the source costs something";
   }
   if ( !std::ranges::is_sorted( tree.reachedVertices(), {},
                                 [ & ]( CspfVertex v ) { return tree.cost( v ); } ) ) {
      return "reached vertices are not in order of their cost";
   }
   for ( uint32_t e = 0; e < graph.edgeBound(); ++e ) {
      const CspfEdge edge{ e };
      if ( !graph.has( edge ) || !tree.reached( graph.from( edge ) ) ) {
         continue;
      }
      const CspfVertex to = graph.to( edge );
      const auto cost = meaning.walk( tree.cost( graph.from( edge ) ), edge );
      if ( cost && ( !tree.reached( to ) || *cost < tree.cost( to ) ) ) {
         return name( edge ) + " improves " + name( to );
      }
      if ( cost && *cost == tree.cost( to ) ) {
         attaining[ to ].insert( edge );
      }
   }
   for ( auto & [ vertex, edges ] : attaining ) {  // one step from each network
      const auto isLater = [ & ]( CspfEdge edge, CspfEdge other ) {
         return graph.isNetwork( graph.from( edge ) ) && graph.from( edge ) == graph.from( other )
                && graph.keyRank( graph.reverse( edge ) ) > graph.keyRank( graph.reverse( other ) );
      };
      const std::set< CspfEdge > all = edges;
      std::erase_if( edges, [ & ]( CspfEdge edge ) {
         return std::ranges::any_of( all,
                                     [ & ]( CspfEdge other ) { return isLater( edge, other ); } );
      } );
   }
   for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
      const auto links = tree.lastLinks( CspfVertex{ v } );
      if ( attaining[ CspfVertex{ v } ] != std::set( links.begin(), links.end() )
           || links.empty()
                 != ( !tree.reached( CspfVertex{ v } ) || CspfVertex{ v } == tree.source() ) ) {
         return "last links of " + name( CspfVertex{ v } );
      }
   }
   return {};
}

std::string
TreeChecker::orderFault() const {
   const Meaning meaning{ graph, filter.constraint(), tree.options() };
   LiteralRun literal{ meaning, {}, {}, {}, {} };
   literal.run();
   if ( literal.order.size() != tree.reachedVertices().size() ) {
      return "number of reached vertices";
   }
   for ( const auto & [ vertex, entries ] : literal.lastLinks ) {
      const auto links = tree.lastLinks( vertex );
      if ( !std::ranges::equal( links, entries, {}, {}, &Entry::edge ) ) {
         return "order of last links of " + name( vertex );
      }
      if ( graph.isNetwork( vertex )
           && tree.entryLink( graph, vertex ) != literal.madeFinalBy[ vertex ].edge ) {
         return "entry link of " + name( vertex );
      }
      for ( const Entry & entry : entries ) {
         if ( tree.firstHopInterface( graph, entry.edge, filter.constraint().ownSource )
              != entry.interface ) {
            return "first-hop interface of " + name( entry.edge );
         }
      }
   }
   std::erase_if( literal.order, [ & ]( CspfVertex v ) { return graph.isNetwork( v ); } );
   for ( size_t i = 1; i < literal.order.size(); ++i ) {
      const CspfVertex a = literal.order[ i - 1 ], b = literal.order[ i ];
      if ( !tree.finalBefore( graph, a, b ) || tree.finalBefore( graph, b, a ) ) {
         return name( a ) + " becomes final before " + name( b );
      }
   }
   return {};
}

std::string
TreeChecker::exhaustiveFault() const {
   const Meaning meaning{ graph, filter.constraint(), tree.options() };
   std::map< CspfVertex, CspfCost > best;
   std::set< CspfVertex > onPath;
   const std::function< void( CspfVertex, CspfCost ) > visit = [ & ]( CspfVertex v,
                                                                      CspfCost cost ) {
      const auto [ entry, fresh ] = best.try_emplace( v, cost );
      entry->second = std::min( entry->second, cost );
      onPath.insert( v );
      for ( uint32_t e : graph.out( v ) ) {
         const CspfVertex to = graph.to( CspfEdge{ e } );
         const auto next =
            onPath.contains( to ) ? std::nullopt : meaning.walk( cost, CspfEdge{ e } );
         if ( next ) {
            visit( to, *next );
         }
      }
      onPath.erase( v );
   };
   visit( tree.source(), {} );
   for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
      const CspfVertex vertex{ v };
      if ( tree.reached( vertex ) != best.contains( vertex )
           || ( tree.reached( vertex ) && tree.cost( vertex ) != best[ vertex ] ) ) {
         return "a path to " + name( vertex ) + " is better";
      }
   }
   return {};
}

std::string
TreeChecker::setting() const {
   std::ostringstream out;
   const CspfLinkConstraint & c = filter.constraint();
   const CspfRunOptions & o = tree.options();
   out << "\nsource " << name( o.source ) << " te " << o.useTeMetric << " max "
       << o.useLinksWithMaxMetric << " reverse " << o.reverse << " single " << o.singleHop
       << "; own source " << name( c.ownSource ) << " root " << name( c.root ) << " overload rule "
       << int( c.overloadRule ) << " topology " << c.topology << " masks " << std::hex
       << c.includeAllAdminGroup << ' ' << c.includeAnyAdminGroup << ' ' << c.excludeAdminGroup
       << std::dec << " bandwidth " << c.bandwidth << '@' << int( c.setupPriority )
       << " srlg strict " << c.srlgStrict << " local " << c.srlgOnlyLocal << " exclude";
   std::ranges::for_each( c.excludedSrlgs, [ & ]( uint32_t srlg ) { out << ' ' << srlg; } );
   out << " include";
   std::ranges::for_each( c.includedSrlgs, [ & ]( uint32_t srlg ) { out << ' ' << srlg; } );
   for ( uint32_t e = 0; e < graph.edgeBound(); ++e ) {
      const CspfEdge edge{ e };
      if ( graph.has( edge ) ) {
         const CspfEdgeRecord r = graph.record( edge );
         out << '\n'
             << name( edge ) << ' ' << name( graph.from( edge ) ) << ' '
             << "rnr"[ int( graph.kind( edge ) ) ] << "-> " << name( graph.to( edge ) ) << " igp "
             << r.igpMetric << " te " << r.teMetric.value_or( 0 ) << " rank " << r.keyRank
             << " group " << r.adminGroup << " bw " << r.unreserved[ c.setupPriority ] << " topo "
             << r.topology << " srlgs";
         std::ranges::for_each( r.srlgs, [ & ]( uint32_t srlg ) { out << ' ' << srlg; } );
         out << ": " << text( filter.reason( graph, edge ) );
      }
   }
   return out.str();
}

std::string
TreeChecker::fault() const {
   std::string fault = filterFault();
   if ( fault.empty() ) {
      fault = treeFault();
   }
   if ( fault.empty() ) {
      fault = orderFault();
   }
   if ( fault.empty() && graph.vertices() < 10 ) {
      fault = exhaustiveFault();
   }
   return fault.empty() ? fault : fault + setting();
}
