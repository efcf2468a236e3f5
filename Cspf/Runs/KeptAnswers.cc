// Which paths of a constraint a change may concern.
//
// A run gives a path its way back along last links. The way is the same as long as the last links
// of every vertex on it are, and the choice among equal ones, which is the one that is in use,
// falls on itself. So it is enough to know the vertices of each way, and which vertices were
// touched (CspfLabels). What a hop is described with, addresses and SRLGs, belongs to the edge into
// such a vertex, and a change of it touches the vertex as well.
//
// A destination may be an address of several routers. All that have it belong to the ground of the
// answer, and a change of who has it makes the path due.

#include "Cspf/Runs/KeptAnswers.h"

#include <algorithm>
#include <utility>

namespace Cspf {

namespace {

/// Takes out what the constraint refuses singly: those edges, in order.
std::vector< CspfEdge >
takeRefusedSingly( const CspfGraph & graph, CspfLinkConstraint & numbers ) {
   std::vector< CspfEdge > edges = std::exchange( numbers.excludedEdges, {} );
   const auto interfaces = std::exchange( numbers.excludedInterfaces, {} );
   if ( !interfaces.empty() ) {
      for ( const std::uint32_t e : graph.out( numbers.ownSource ) ) {
         if ( std::ranges::count( interfaces, graph.interface( CspfEdge{ e } ) ) > 0 ) {
            edges.push_back( CspfEdge{ e } );
         }
      }
   }
   for ( const CspfVertex vertex : std::exchange( numbers.excludedVertices, {} ) ) {
      for ( const std::uint32_t e : graph.in( vertex ) ) {
         edges.push_back( CspfEdge{ e } );
      }
   }
   std::ranges::sort( edges );
   edges.erase( std::unique( edges.begin(), edges.end() ), edges.end() );
   return edges;
}

}

bool
KeptAnswers::suits( const InternalPathConstraint & constraint ) {
   const bool ranksBySrlg = !constraint.includeSrlgDerivedSet().empty()
                            || ( !constraint.excludeSrlgDerivedSet().empty()
                                 && !( constraint.excludeSrlg() && constraint.srlgStrictMode() ) );
   return constraint.pathComputationType() == PathComputationType::cspf
          && constraint.sourceType() == CspfSourceType::plr && !constraint.reversePath()
          && !constraint.noSpf() && !ranksBySrlg && constraint.bandwidth() == 0;
}

bool
KeptAnswers::follow( const AllTopoDbView & view, const NodeId & source, SharedLabels & shared ) {
   TopoGraph & topology = view.topoGraph();
   topology.settle( source );
   const CspfGraph & graph = topology.graph();
   const auto & log = graph.changes();
   const auto & addressLog = view.allTopoDbStatus()->addressChanges();
   const auto changes = log.since( position_ );
   const auto addresses = addressLog.since( addressPosition_ );
   const bool known = labels_ && epoch_ == log.epoch() && changes && addresses
                      && labels_->root() == topology.vertex( source );
   if ( known && changes->empty() && addresses->empty() ) {
      return true;
   }
   const bool stands = known && !isRenamed( *changes, *addresses, view.constraint() )
                       && followLabels( graph, shared );
   if ( !stands && !startAgain( view, source, shared ) ) {
      forget();
      return false;
   }
   if ( stands ) {
      followAddresses( *addresses );
   }
   epoch_ = log.epoch();
   position_ = log.end();
   addressPosition_ = addressLog.end();
   steps_ = labels_->steps();
   return true;
}

/// Whether the constraint may mean other edges now.
bool
KeptAnswers::isRenamed( std::span< const CspfEdgeChange > changes,
                        std::span< const Kivnet::IpGenAddr > addresses,
                        const InternalPathConstraint & constraint ) const {
   const auto & excluded = constraint.excludeLinkWithIpList();
   return std::ranges::any_of( changes,
                               [ & ]( const CspfEdgeChange & change ) {
                                  return ( namesInterface_ && change.from == labels_->root() )
                                         || std::ranges::count( named_, change.to ) > 0;
                               } )
          || std::ranges::any_of( addresses, [ & ]( const Kivnet::IpGenAddr & address ) {
                return std::ranges::find( excluded, address ) != excluded.end();
             } );
}

/// Translates the constraint anew.
bool
KeptAnswers::startAgain( const AllTopoDbView & view, const NodeId & source,
                         SharedLabels & shared ) {
   CspfLinkConstraint numbers = view.linkConstraint( source );
   if ( !numbers.overloadedEdges.empty() ) {
      return false;  // numbers of edges that come and go
   }
   const CspfGraph & graph = view.graph();
   named_ = numbers.excludedVertices;
   namesInterface_ = !numbers.excludedInterfaces.empty();
   for ( const CspfEdge edge : numbers.excludedEdges ) {
      named_.push_back( graph.from( edge ) );
      named_.push_back( graph.to( edge ) );
   }
   shareLabels( graph, std::move( numbers ), shared );
   return true;
}

void
KeptAnswers::shareLabels( const CspfGraph & graph, CspfLinkConstraint numbers,
                          SharedLabels & shared ) {
   const std::uint64_t epoch = graph.changes().epoch();
   const CspfLinkConstraint whole = numbers;
   overlay_ = CspfOverlay( takeRefusedSingly( graph, numbers ) );
   allDue_ = true;
   labels_ = shared.labels( numbers, epoch );
   labels_->advance( graph, shared.memory() );
   if ( !overlay_.refused().empty()
        && !overlay_.compute( graph, *labels_, shared.memory(), moved_ ) ) {
      labels_ = shared.labels( whole, epoch );
      labels_->advance( graph, shared.memory() );
      overlay_ = {};
   }
}

/// False where too much differs to share labels.
bool
KeptAnswers::followLabels( const CspfGraph & graph, SharedLabels & shared ) {
   labels_->advance( graph, shared.memory() );
   const CspfTouched * touched = shared.touchedSince( labels_, steps_, graph.vertexBound() );
   allDue_ = allDue_ || !touched;
   moved_.clear();
   const bool concerned =
      !overlay_.refused().empty() && ( !touched || overlay_.isConcerned( *touched ) );
   if ( concerned && !overlay_.compute( graph, *labels_, shared.memory(), moved_ ) ) {
      return false;
   }
   if ( !allDue_ ) {
      for ( Path & path : paths_ ) {
         path.due = path.due || meets( path, *touched, concerned );
      }
   }
   return true;
}

void
KeptAnswers::followAddresses( std::span< const Kivnet::IpGenAddr > addresses ) {
   if ( addresses.empty() ) {
      return;
   }
   for ( Path & path : paths_ ) {
      const Kivnet::IpGenAddr tep = path.row->pathInfoKey().pathKey().dst().ipAddress();
      path.due = path.due || std::ranges::find( addresses, tep ) != addresses.end();
   }
}

/// An overlay that was worked out again may have other last links wherever an edge leads from a
/// vertex that moved.
bool
KeptAnswers::meets( const Path & path, const CspfTouched & touched, bool overlayMoved ) const {
   return std::any_of( vertices_.begin() + path.begin, vertices_.begin() + path.end,
                       [ & ]( CspfVertex vertex ) {
                          return touched.isTouched( vertex )
                                 || ( overlayMoved
                                      && ( touched.isNear( vertex )
                                           || std::ranges::binary_search( moved_, vertex ) ) );
                       } );
}

/// A row that has left may be gone, and another one stand in its place: that one waits for its
/// first answer.
void
KeptAnswers::dropLeft( const ConstraintInfo & constraintInfo, const PathStatusInfoTable & rows ) {
   if ( !std::exchange( left_, false ) ) {
      return;
   }
   std::vector< const PathStatusInfo * > present;
   for ( const auto & [ key, uses ] : constraintInfo.pathColl() ) {
      present.push_back( rows.pathStatusInfo( key ).ptr() );
   }
   std::ranges::sort( present );
   std::erase_if( paths_, [ & ]( const Path & path ) {
      return !std::ranges::binary_search( present, path.row );
   } );
}

std::vector< PathInfoKey >
KeptAnswers::pathsToAnswer( const ConstraintInfo & constraintInfo, bool all ) const {
   const auto & waiting = constraintInfo.waiting;
   std::vector< PathInfoKey > keys( waiting.begin(), waiting.end() );
   if ( !all ) {
      return keys;
   }
   std::size_t known = waiting.size();
   for ( const Path & path : paths_ ) {
      const PathInfoKey & key = path.row->pathInfoKey();
      const bool waits = !waiting.empty() && waiting.contains( key );
      known += !waits;
      if ( path.due && !waits ) {
         keys.push_back( key );
      }
   }
   if ( allDue_ || known < constraintInfo.paths() ) {
      return Lum::sortedKeys( constraintInfo.pathColl() );
   }
   std::ranges::sort( keys );
   return keys;
}

/// Closes the gaps that the ways of those paths leave.
void
KeptAnswers::beginAnswers( const std::vector< PathInfoKey > & paths,
                           const PathStatusInfoTable & rows ) {
   if ( allDue_ ) {
      for ( Path & path : paths_ ) {
         path.due = true;
      }
      allDue_ = false;
   }
   std::vector< const PathStatusInfo * > answered;
   answered.reserve( paths.size() );
   for ( const PathInfoKey & key : paths ) {
      answered.push_back( rows.pathStatusInfo( key ).ptr() );
   }
   std::ranges::sort( answered );
   std::erase_if( paths_, [ & ]( const Path & path ) {
      return std::ranges::binary_search( answered, path.row );
   } );
   std::vector< CspfVertex > vertices;
   for ( Path & path : paths_ ) {
      const auto begin = static_cast< std::uint32_t >( vertices.size() );
      vertices.insert( vertices.end(), vertices_.begin() + path.begin,
                       vertices_.begin() + path.end );
      path.begin = begin;
      path.end = static_cast< std::uint32_t >( vertices.size() );
   }
   vertices_ = std::move( vertices );
}

void
KeptAnswers::noteAnswer( const PathStatusInfo & path, const CspfData::Ground & ground ) {
   const auto begin = static_cast< std::uint32_t >( vertices_.size() );
   vertices_.insert( vertices_.end(), ground.vertices.begin(), ground.vertices.end() );
   paths_.push_back(
      { &path, begin, static_cast< std::uint32_t >( vertices_.size() ), !ground.settled } );
}

}
