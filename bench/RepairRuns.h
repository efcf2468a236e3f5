#pragma once

#include "Cspf/Graph/RepairTable.h"
#include "Cspf/Graph/TreeRun.h"

/// The repairs of one link or node after another, as the agent works them out: four trees and a
/// table. Its memory is used again.
class RepairRuns {
 public:
   using Originators = std::span< const Cspf::CspfRepairTable::Originator >;

   explicit RepairRuns( const Cspf::CspfGraph & graph ) : graph_( graph ) {}

   /// Only the tree without the link, or without the node behind it.
   void constrainedRun( Cspf::CspfEdge link, bool isLink ) {
      Cspf::CspfLinkConstraint without;
      if ( isLink ) {
         without.excludedInterfaces = { graph_.interface( link ) };
      } else {
         without.excludedVertices = { graph_.to( link ) };
      }
      plr_ = graph_.from( link );
      run( plr_, without, false, after_ );
   }
   /// Everything that repairs are worked out of.
   void protect( Cspf::CspfEdge link, bool isLink ) {
      const Cspf::CspfVertex node = graph_.to( link );
      constrainedRun( link, isLink );
      run( plr_, {}, false, forward_ );
      run( node, {}, false, fromNode_ );
      run( isLink ? plr_ : node, {}, true, toResource_ );
      table_.build( graph_, { plr_, node, isLink, forward_.metric( node ) },
                    { after_, fromNode_, toResource_ } );
   }
   std::vector< Cspf::CspfRepair > to( Originators destination, uint64_t key = 1 ) const {
      return table_.repairs(
         graph_, after_, destination, key,
         [ & ]( Cspf::CspfVertex v ) { return graph_.nodeRank( v ); },
         [ & ]( Cspf::CspfEdge e ) { return graph_.interface( e ); } );
   }

 private:
   void run( Cspf::CspfVertex root, Cspf::CspfLinkConstraint constraint, bool reverse,
             Cspf::CspfTree & tree ) {
      constraint.root = root;
      constraint.ownSource = plr_;
      constraint.overloadRule = Cspf::CspfOverloadRule::mayEnd;
      filter_.apply( graph_, constraint );
      Cspf::CspfRunOptions options;
      options.source = root;
      options.reverse = reverse;
      run_.run( graph_, filter_, options, tree );
   }

   const Cspf::CspfGraph & graph_;
   Cspf::CspfVertex plr_ = Cspf::noVertex;
   Cspf::CspfLinkFilter filter_;
   Cspf::CspfTreeRun run_;
   Cspf::CspfTree after_, forward_, fromNode_, toResource_;
   Cspf::CspfRepairTable table_;
};
