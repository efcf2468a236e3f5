#pragma once

#include "Cspf/Detours/RepairTable.h"
#include "Cspf/Graph/TreeRun.h"

#include <optional>

/// The repairs of one link or node after another, as the agent works them out: four trees, of
/// which the memory is used again, and a table.
class RepairRuns {
 public:
   using Originators = std::span< const Cspf::CspfRepairTable::Originator >;

   explicit RepairRuns( const Cspf::CspfGraph & graph ) : graph_( graph ) {}

   /// What fails at the far end of a link of the PLR.
   struct Protected {
      Cspf::CspfEdge link;
      bool isLink = true;                      ///< else the node
      Cspf::CspfVertex node = Cspf::noVertex;  ///< else what the link leads to
      Cspf::CspfLinkConstraint asked = {};     ///< besides
      bool byInterface = true;                 ///< the PLR does not leave by that interface
   };

   /// Only the tree without what fails.
   void constrainedRun( const Protected & what ) {
      asked_ = what.asked;
      plr_ = graph_.from( what.link );
      node_ = what.node == Cspf::noVertex ? graph_.to( what.link ) : what.node;
      if ( what.byInterface ) {
         asked_.excludedInterfaces = { graph_.interface( what.link ) };
      }
      if ( !what.isLink ) {
         asked_.excludedVertices = { node_ };
      }
      run( plr_, asked_, false, after_ );
   }
   /// Everything that repairs are worked out of.
   void protect( const Protected & what ) {
      constrainedRun( what );
      run( plr_, {}, false, forward_ );
      run( node_, {}, false, fromNode_ );
      run( what.isLink ? plr_ : node_, {}, true, toResource_ );
      table_.emplace(
         graph_, Cspf::CspfProtectedResource{ plr_, node_, what.isLink, forward_.metric( node_ ) },
         Cspf::CspfRepairTrees{ after_, fromNode_, toResource_ },
         Cspf::CspfRepairConstraints{ rooted( {}, Cspf::noVertex ), rooted( asked_, plr_ ) } );
   }
   Cspf::CspfRepairs to( Originators destination, uint64_t key = 1, uint32_t maxNodes = 8 ) {
      const Cspf::CspfRepairTable::RouterKey routerKey = [ & ]( Cspf::CspfVertex v ) {
         return graph_.nodeRank( v );
      };
      const Cspf::CspfRepairTable::LinkKey linkKey = [ & ]( Cspf::CspfEdge e ) {
         return graph_.interface( e );
      };
      return table_->repairs( { destination, maxNodes, key, routerKey, linkKey } );
   }

 private:
   Cspf::CspfLinkConstraint rooted( Cspf::CspfLinkConstraint constraint,
                                    Cspf::CspfVertex root ) const {
      constraint.root = root;
      constraint.ownSource = plr_;
      constraint.overloadRule = Cspf::CspfOverloadRule::mayEnd;
      return constraint;
   }
   void run( Cspf::CspfVertex root, const Cspf::CspfLinkConstraint & constraint, bool reverse,
             Cspf::CspfTree & tree ) {
      filter_.apply( graph_, rooted( constraint, root ) );
      Cspf::CspfRunOptions options;
      options.source = root;
      options.reverse = reverse;
      run_.run( graph_, filter_, options, tree );
   }

   const Cspf::CspfGraph & graph_;
   Cspf::CspfVertex plr_ = Cspf::noVertex, node_ = Cspf::noVertex;
   Cspf::CspfLinkConstraint asked_;
   Cspf::CspfLinkFilter filter_;
   Cspf::CspfTreeRun run_;
   Cspf::CspfTree after_, forward_, fromNode_, toResource_;
   std::optional< Cspf::CspfRepairTable > table_;
};
