#pragma once

#include "Cspf/Graph/LabelTree.h"
#include "Cspf/Records/PathRows.h"
#include "Cspf/Runs/RunData.h"
#include "Cspf/Runs/SharedLabels.h"
#include "Cspf/Views/View.h"
#include "platform/Lum/PackedVector.h"

#include <array>
#include <memory>
#include <span>

namespace Cspf {

/// What one constraint keeps of its runs: labels, which it may share, what it refuses besides, and
/// the vertices that the way of each of its paths meets. With these it follows the topology and
/// tells which paths a run could answer differently. A path that is not due is as a run would leave
/// it.
class KeptAnswers {
 public:
   /// Whether such a constraint can be followed: a path computation over the TE view.
   static bool suits( const InternalPathConstraint & constraint );

   /// Brings everything in line with the topology as it is. False where that cannot be: a run it
   /// must be. `source`: a node of the view. O(what changed + paths), or a run for all that share
   /// the labels.
   bool follow( const AllTopoDbView & view, const NodeId & source, SharedLabels & shared );
   /// Whether that node is the source of what is kept, and was a router of the constraint's
   /// topology all the time.
   bool isAt( const AllTopoDbView & view, const NodeId & source ) const;
   /// Forgets everything; what is due will be told by the next run.
   void forget() { *this = KeptAnswers(); }
   /// All paths are answered otherwise.
   void forgetPaths();

   /// A path is no more among the constraint's.
   void pathLeft() { left_ = true; }
   /// Forgets paths that have left. Comes before anything is asked of paths.
   void dropLeft( const ConstraintInfo & constraintInfo, const PathStatusInfoTable & rows );
   /// The paths to answer one by one, in no order: those that are due, where `all` must be
   /// answered, and those that wait.
   std::vector< PathInfoKey > pathsToAnswer( const ConstraintInfo & constraintInfo,
                                             bool all ) const;
   /// Those among them have new answers; `noteAnswer` comes for each.
   void beginAnswers( const std::vector< PathInfoKey > & paths,
                      const ConstraintInfo & constraintInfo, const PathStatusInfoTable & rows );
   void noteAnswer( const PathStatusInfo & path, const CspfData::Ground & ground );
   /// All were noted: they take little more memory than they need.
   void endAnswers();
   /// Calls `visit( path )` for each path that is not due.
   template< class Visit >
   void forEachHeld( Visit && visit ) const {
      for ( const Path & path : paths_ ) {
         if ( !allDue_ && !path.due ) {
            visit( *path.row );
         }
      }
   }

   /// What a run would give. REQUIRES: `follow` was true, and the topology is as it was then. Valid
   /// as long as nothing is followed.
   CspfLabelTree tree( const CspfGraph & graph ) const { return { graph, *labels_, overlay_ }; }

 private:
   struct Path {
      const PathStatusInfo * row;  // not held: a row holds its constraint
      std::uint32_t begin, end;    // in vertices_
      std::uint32_t tepHash;       // one that is due for nothing does no harm
      bool due;
   };

   bool isCurrent( const AllTopoDbView & view, const NodeId & source ) const;
   bool startAgain( const AllTopoDbView & view, const NodeId & source, SharedLabels & shared );
   bool isRenamed( std::span< const CspfEdgeChange > changes,
                   std::span< const Kivnet::IpGenAddr > addresses,
                   const InternalPathConstraint & constraint ) const;
   bool shareLabels( const AllTopoDbView & view, CspfLinkConstraint numbers,
                     SharedLabels & shared );
   bool isOfHolding( const CspfEdgeChange & change ) const;
   bool isHoldingMoved( const AllTopoDbView & view,
                        std::span< const CspfEdgeChange > changes ) const;
   void noteHolding( const AllTopoDbView & view, const AllTopoDbView::OwnReservations & own );
   bool followHolding( const AllTopoDbView & view, std::span< const CspfEdgeChange > changes );
   bool followLabels( const CspfGraph & graph, SharedLabels & shared );
   void followAddresses( std::span< const Kivnet::IpGenAddr > addresses );
   static bool meets( std::span< const CspfVertex > way, const CspfTouched & touched,
                      const std::vector< CspfVertex > * overlayMoved );
   bool mayMeet( const CspfTouched & touched ) const;
   void see( std::span< const CspfVertex > vertices );
   bool sees( CspfVertex vertex ) const {
      return seen_[ index( vertex ) / 64 % seen_.size() ] >> index( vertex ) % 64 & 1;
   }
   void seeAgain();
   void closeGaps( std::size_t kept );

   std::shared_ptr< CspfLabels > labels_;
   CspfOverlay overlay_;
   Lum::PackedVector< CspfVertex > named_;           // edges into these change what is refused
   CspfVertex interfaceOf_ = noVertex;               // ... and edges that leave this one
   Lum::PackedVector< CspfEdge > partlyOverloaded_;  // edges refused for it
   NodeId source_, ownSource_;
   // What the user holds: the ends of those links, which change of it was the last one known,
   // whether links of it are away, and whether the labels are for it in particular.
   Lum::PackedVector< CspfEdgeChange > holding_;
   std::uint64_t holdingChange_ = 0;
   bool holdsSomeAway_ = false, holdsInLabels_ = false;
   bool regranted_ = false;
   std::uint64_t epoch_ = 0, position_ = 0, addressPosition_ = 0, steps_ = 0;  // read up to there
   std::vector< Path > paths_;
   std::vector< CspfVertex > vertices_;
   // A bit for each vertex of a way, that the overlay watches, or that is named; several share one.
   std::array< std::uint64_t, 32 > seen_{};
   bool allDue_ = true;
   bool left_ = false;
};

}
