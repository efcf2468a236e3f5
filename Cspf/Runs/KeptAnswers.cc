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
   if ( !interfaces.empty() && numbers.ownSource != noVertex ) {
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

/// A list may be longer than it needs to be by such a part, so that it is copied for every so many
/// answers only.
constexpr std::size_t slackDivisor = 8;

template< class T >
void
leaveSlack( std::vector< T > & list ) {
   const std::size_t slack = list.size() / slackDivisor;
   if ( list.capacity() - list.size() < slack / 2 ) {
      list.reserve( list.size() + slack );
   }
}

template< class T >
void
takeBackSlack( std::vector< T > & list ) {
   if ( list.capacity() - list.size() > list.size() / slackDivisor ) {
      list.shrink_to_fit();
   }
}

std::uint32_t
tepHash( const Kivnet::IpGenAddr & tep ) {
   return static_cast< std::uint32_t >( tep.hash() );
}

/// In order.
std::vector< CspfEdge >
edgesOfPartlyOverloaded( const TopoGraph & topology ) {
   auto edges = topology.edgesOfPartlyOverloaded( false );
   std::ranges::sort( edges );
   return edges;
}

}

bool
KeptAnswers::suits( const InternalPathConstraint & constraint ) {
   return constraint.pathComputationType() == PathComputationType::cspf && !constraint.noSpf();
}

bool
KeptAnswers::follow( const AllTopoDbView & view, const NodeId & source, SharedLabels & shared ) {
   TopoGraph & topology = view.topoGraph();
   topology.settle( topology.vertex( source ) );
   const CspfGraph & graph = topology.graph();
   const auto & log = graph.changes();
   const auto & addressLog = view.allTopoDbStatus()->addressChanges();
   const auto changes = log.since( position_ );
   const auto addresses = addressLog.since( addressPosition_ );
   const bool known = changes && addresses && isCurrent( view, source );
   const bool stands = known && !isRenamed( *changes, *addresses, view.constraint() )
                       && followHolding( view, *changes ) && followLabels( graph, shared );
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

bool
KeptAnswers::isAt( const AllTopoDbView & view, const NodeId & source ) const {
   return labels_ && epoch_ == view.graph().changes().epoch() && source_ == source;
}

/// Whether the labels are of this source, and what is refused for overload is what it was.
bool
KeptAnswers::isCurrent( const AllTopoDbView & view, const NodeId & source ) const {
   const bool own = view.constraint().sourceType() == CspfSourceType::plr;
   return isAt( view, source ) && ( own || ownSource_ == view.getOurSourceId() )
          && std::ranges::equal( partlyOverloaded_, edgesOfPartlyOverloaded( view.topoGraph() ) );
}

/// Whether the constraint may mean other edges now.
bool
KeptAnswers::isRenamed( std::span< const CspfEdgeChange > changes,
                        std::span< const Kivnet::IpGenAddr > addresses,
                        const InternalPathConstraint & constraint ) const {
   const auto & excluded = constraint.excludeLinkWithIpList();
   return std::ranges::any_of( changes,
                               [ & ]( const CspfEdgeChange & change ) {
                                  return change.from == interfaceOf_
                                         || ( sees( change.to )
                                              && std::ranges::count( named_, change.to ) > 0 );
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
   const CspfGraph & graph = view.graph();
   source_ = source;
   ownSource_ = view.getOurSourceId();
   numbers.overloadedEdges = edgesOfPartlyOverloaded( view.topoGraph() );
   partlyOverloaded_ = Lum::PackedVector< CspfEdge >( numbers.overloadedEdges );
   std::vector< CspfVertex > named = numbers.excludedVertices;
   for ( const CspfEdge edge : numbers.excludedEdges ) {
      named.push_back( graph.from( edge ) );
      named.push_back( graph.to( edge ) );
   }
   named_ = Lum::PackedVector< CspfVertex >( named );
   interfaceOf_ = numbers.excludedInterfaces.empty() ? noVertex : numbers.ownSource;
   noteHolding( view, view.ownReservations() );
   const bool shares = shareLabels( view, std::move( numbers ), shared );
   seeAgain();
   return shares;
}

/// False where there is no room for labels.
bool
KeptAnswers::shareLabels( const AllTopoDbView & view, CspfLinkConstraint numbers,
                          SharedLabels & shared ) {
   const CspfGraph & graph = view.graph();
   const CspfLinkConstraint whole = numbers;
   std::vector< CspfEdge > refused = takeRefusedSingly( graph, numbers );
   const auto held = std::exchange( numbers.ownReservations, {} );
   allDue_ = true;
   holdsInLabels_ = regranted_ = false;
   const bool reverse = view.constraint().reversePath();
   labels_ = shared.labels( graph, numbers, reverse );
   if ( !labels_ ) {
      return false;
   }
   labels_->advance( graph, shared.memory() );
   overlay_ = CspfOverlay( std::move( refused ) );
   overlay_.heldIs( graph, *labels_, held );
   if ( overlay_.empty() || overlay_.compute( graph, *labels_, shared.memory(), shared.moved() ) ) {
      return true;
   }
   overlay_ = {};
   holdsInLabels_ = true;
   labels_ = shared.labels( graph, whole, reverse );
   if ( labels_ ) {
      labels_->advance( graph, shared.memory() );
   }
   return labels_ != nullptr;
}

/// Whether the change is of a link that the user holds, in either direction, or of the router
/// behind one.
bool
KeptAnswers::isOfHolding( const CspfEdgeChange & change ) const {
   if ( change.from == change.to ) {
      return std::ranges::any_of( holding_,
                                  [ & ]( const auto & held ) { return held.to == change.to; } );
   }
   const CspfEdgeChange reverse{ change.to, change.from };
   return std::ranges::binary_search( holding_, change )
          || std::ranges::binary_search( holding_, reverse );
}

/// Whether the user may have been granted other links than were known.
bool
KeptAnswers::isHoldingMoved( const AllTopoDbView & view,
                             std::span< const CspfEdgeChange > changes ) const {
   const InternalPathConstraint & constraint = view.constraint();
   return constraint.bandwidth() > 0
          && ( view.bwUsageManager()->lastChange( constraint.bwUsageId() ) != holdingChange_
               || ( holdsSomeAway_ && !changes.empty() )
               || std::ranges::any_of( changes, [ this ]( const CspfEdgeChange & change ) {
                     return isOfHolding( change );
                  } ) );
}

void
KeptAnswers::noteHolding( const AllTopoDbView & view, const AllTopoDbView::OwnReservations & own ) {
   const CspfGraph & graph = view.graph();
   std::vector< CspfEdgeChange > holding;
   for ( const auto & [ edge, bandwidth ] : own.held ) {
      holding.push_back( { graph.from( edge ), graph.to( edge ) } );
   }
   std::ranges::sort( holding );
   holding_ = Lum::PackedVector< CspfEdgeChange >( holding );
   holdsSomeAway_ = own.someAway;
   holdingChange_ = view.constraint().bandwidth() > 0
                       ? view.bwUsageManager()->lastChange( view.constraint().bwUsageId() )
                       : 0;
}

/// False where the labels are for what was held before.
bool
KeptAnswers::followHolding( const AllTopoDbView & view,
                            std::span< const CspfEdgeChange > changes ) {
   if ( !isHoldingMoved( view, changes ) ) {
      return true;
   }
   if ( holdsInLabels_ ) {
      return false;
   }
   const auto own = view.ownReservations();
   noteHolding( view, own );
   regranted_ = overlay_.heldIs( view.graph(), *labels_, own.held );
   return true;
}

/// False where too much differs to share labels.
bool
KeptAnswers::followLabels( const CspfGraph & graph, SharedLabels & shared ) {
   labels_->advance( graph, shared.memory() );
   if ( labels_->steps() == steps_ && !regranted_ ) {
      return true;
   }
   const CspfTouched * touched = shared.touchedSince( labels_, steps_, graph.vertexBound() );
   if ( touched && !regranted_ && !mayMeet( *touched ) ) {
      return true;
   }
   allDue_ = allDue_ || !touched;
   const bool concerned =
      std::exchange( regranted_, false )
      || ( !overlay_.empty() && ( !touched || overlay_.isConcerned( *touched ) ) );
   if ( concerned && !overlay_.compute( graph, *labels_, shared.memory(), shared.moved() ) ) {
      return false;
   }
   if ( concerned ) {
      see( overlay_.watched() );
   }
   if ( !allDue_ ) {
      const std::span< const CspfVertex > all = vertices_;
      const auto * const moved = concerned ? &shared.moved() : nullptr;
      for ( Path & path : paths_ ) {
         path.due =
            path.due || meets( all.subspan( path.begin, path.end - path.begin ), *touched, moved );
      }
   }
   return true;
}

void
KeptAnswers::followAddresses( std::span< const Kivnet::IpGenAddr > addresses ) {
   for ( const Kivnet::IpGenAddr & address : addresses ) {
      for ( Path & path : paths_ ) {
         path.due = path.due || path.tepHash == tepHash( address );
      }
   }
}

/// An overlay that was worked out again may have other last links wherever an edge leads from a
/// vertex that moved.
bool
KeptAnswers::meets( std::span< const CspfVertex > way, const CspfTouched & touched,
                    const std::vector< CspfVertex > * overlayMoved ) {
   return std::ranges::any_of( way, [ & ]( CspfVertex vertex ) {
      return touched.isTouched( vertex )
             || ( overlayMoved
                  && ( touched.isNear( vertex )
                       || std::ranges::binary_search( *overlayMoved, vertex ) ) );
   } );
}

/// Most changes meet nothing, which a few bits tell.
bool
KeptAnswers::mayMeet( const CspfTouched & touched ) const {
   constexpr std::size_t few = 64;
   return touched.vertices().size() > few
          || std::ranges::any_of( touched.vertices(),
                                  [ this ]( CspfVertex vertex ) { return sees( vertex ); } );
}

void
KeptAnswers::see( std::span< const CspfVertex > vertices ) {
   for ( const CspfVertex vertex : vertices ) {
      seen_[ index( vertex ) / 64 % seen_.size() ] |= std::uint64_t{ 1 } << index( vertex ) % 64;
   }
}

void
KeptAnswers::seeAgain() {
   seen_ = {};
   see( vertices_ );
   see( overlay_.watched() );
   see( named_ );
}

void
KeptAnswers::forgetPaths() {
   allDue_ = true;
   paths_.clear();
   vertices_.clear();
   endAnswers();
   seeAgain();
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
   if ( all && allDue_ ) {
      return Lum::keysOf( constraintInfo.pathColl() );
   }
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
   return known < constraintInfo.paths() ? Lum::keysOf( constraintInfo.pathColl() ) : keys;
}

void
KeptAnswers::beginAnswers( const std::vector< PathInfoKey > & paths,
                           const ConstraintInfo & constraintInfo,
                           const PathStatusInfoTable & rows ) {
   if ( paths.size() == constraintInfo.paths() ) {
      forgetPaths();
      allDue_ = false;
      return;
   }
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
   std::size_t kept = 0;
   std::erase_if( paths_, [ & ]( const Path & path ) {
      const bool goes = std::ranges::binary_search( answered, path.row );
      kept += goes ? 0 : path.end - path.begin;
      return goes;
   } );
   if ( vertices_.size() - kept > kept / slackDivisor ) {
      closeGaps( kept );
   }
   leaveSlack( vertices_ );
   leaveSlack( paths_ );
}

/// Puts the ways, which have so many vertices, one behind the other.
void
KeptAnswers::closeGaps( std::size_t kept ) {
   std::vector< CspfVertex > vertices;
   vertices.reserve( kept + kept / slackDivisor );
   for ( Path & path : paths_ ) {
      const auto begin = static_cast< std::uint32_t >( vertices.size() );
      vertices.insert( vertices.end(), vertices_.begin() + path.begin,
                       vertices_.begin() + path.end );
      path.begin = begin;
      path.end = static_cast< std::uint32_t >( vertices.size() );
   }
   vertices_ = std::move( vertices );
   seeAgain();
}

void
KeptAnswers::noteAnswer( const PathStatusInfo & path, const CspfData::Ground & ground ) {
   const auto begin = static_cast< std::uint32_t >( vertices_.size() );
   vertices_.insert( vertices_.end(), ground.vertices.begin(), ground.vertices.end() );
   see( ground.vertices );
   paths_.push_back( { &path, begin, static_cast< std::uint32_t >( vertices_.size() ),
                       tepHash( path.pathInfoKey().pathKey().dst().ipAddress() ),
                       !ground.settled } );
}

void
KeptAnswers::endAnswers() {
   takeBackSlack( vertices_ );
   takeBackSlack( paths_ );
}

}
