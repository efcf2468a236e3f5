// When repairs are worked out. Four runs come in on their own throttles; a repair needs all four of
// one and the same topology, so this waits until the last one has caught up. Meanwhile what is
// published stays. A run that cannot be had ends the wait: then there is no repair, and the client
// reads why.
//
// Requests that are new, or changed, wait for the next answer of the constraint's throttle as paths
// of other clients do. All others are looked at only when the runs are others than those that they
// were last answered from: a prefix that moves stamps the topology, but is its own requests'
// affair. Where the graph has changed, but what they were answered from has not, the answers hold;
// each counts as worked out again.

#include "Cspf/Repairs/ProtectionSm.h"

#include "Cspf/Repairs/PqComputeSm.h"
#include "Cspf/Runs/KeptCheck.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

#include <utility>

namespace Cspf::Lfa {

namespace {

Lum::Ptr< const LfaCspfData >
dataOf( const Lum::Ptr< PathStatusCache > & cache ) {
   return cache ? Lum::cast< const LfaCspfData >( cache->cspfData() ) : nullptr;
}

}

ProtectionSm::ProtectionSm( const RepairContext & context, const ProtectionKey & key,
                            const Lum::String & clientName, const PathConstraint & asked )
   : context_( context ),
     key_( key ),
     isLinkProtection_( Cspf::isLinkProtection( asked ) ),
     constraintInfo_( context.constraintInfoTable->constraintInfo( key.constraint ) ),
     pqComputeTask_( *this, context.taskScheduler, "pqComputeTask-" + std::to_string( key.treesId ),
                     [ this ]() { handlePqComputeTask(); } ) {
   bindTrees( clientName, asked.excludeIntf() ? tilfaTrees( asked ).size() : 0 );
}

void
ProtectionSm::bindTrees( const Lum::String & clientName, std::size_t trees ) {
   if ( trees > 0 ) {
      uFwdPathStatusCache_ = treeCache( clientName, TilfaTree::forward );
      uNgbPathStatusCache_ = treeCache( clientName, TilfaTree::neighbor );
      uRevPathStatusCache_ = treeCache( clientName, TilfaTree::reverse );
   }
   if ( trees > 3 ) {
      linkPathStatusCache_ = treeCache( clientName, TilfaTree::withoutLink );
      plrPathStatusCache_ = treeCache( clientName, TilfaTree::toPlr );
   }
}

Lum::Ptr< PathStatusCache >
ProtectionSm::treeCache( const Lum::String & clientName, TilfaTree tree ) {
   return context_.pathStatusCacheTable->pathStatusCache(
      tilfaTreeKey( clientName, key_.treesId, tree, isLinkProtection_ ) );
}

void
ProtectionSm::handleInitialized() {
   LUM_WATCH( constraintInfo_, topoInfoChangedAt, handleTopoChanged );
   LUM_WATCH( constraintInfo_, answeredCount, handleAnswered );
   for ( const auto & cache : { uFwdPathStatusCache_, uNgbPathStatusCache_, uRevPathStatusCache_,
                                linkPathStatusCache_, plrPathStatusCache_ } ) {
      if ( cache ) {
         LUM_WATCH( cache, cspfData, handleTree );
         LUM_WATCH( cache, refreshedStage1Count, handleTree );
      }
   }
   if ( context_.isisAdjacencyInfo ) {
      LUM_WATCH_KEYS( context_.isisAdjacencyInfo, adjacency, handleAdjacency );
   }
}

void
ProtectionSm::doPrepareToDie() {
   waiting_.clear();
   due_.clear();
}

void
ProtectionSm::requestIs( PqComputeSm & request ) {
   request.placeIs( requests_.size() );
   requests_.push_back( &request );
}

void
ProtectionSm::requestDel( PqComputeSm & request ) {
   requests_.back()->placeIs( request.place() );
   requests_[ request.place() ] = requests_.back();
   requests_.pop_back();
}

void
ProtectionSm::refreshIs( PqComputeSm & request ) {
   waiting_.emplace_back( &request );
}

void
ProtectionSm::handleTopoChanged() {
   constraintInfo_->cspfRequestCountInc();
}

void
ProtectionSm::handleAnswered() {
   for ( const Lum::Ptr< PqComputeSm > & request : std::exchange( waiting_, {} ) ) {
      if ( !request->isRetired() && request->waitsForRefresh() ) {
         request->handleCspfData();
         someAreDue_ = true;
      }
   }
   handleTree();
}

void
ProtectionSm::handleTree() {
   runsHaveMoved_ |= !isSettled();
   scheduleIfDue();
}

/// What would have been preferred, or was used, may be any request's.
void
ProtectionSm::handleAdjacency( const IsisExportImpl::AdjacencyKey & ) {
   adjacencyUpdatedAt_ = Lum::now();
   allAreDue_ = true;
   scheduleIfDue();
}

void
ProtectionSm::scheduleIfDue() {
   const bool canCompute = runsAreComplete() || !missingRun().empty();
   if ( !due_.empty() || ( ( allAreDue_ || someAreDue_ || runsHaveMoved_ ) && canCompute ) ) {
      if ( !pqComputeTask_.scheduled() ) {
         pqComputeTask_.schedule();
      }
   } else if ( pqComputeTask_.scheduled() ) {
      TRACE8_FOR( "void Cspf::Lfa::PqComputeSm::handleCspfData()", "Unscheduling pqComputeTask" );
      pqComputeTask_.unschedule();
   }
}

void
ProtectionSm::handlePqComputeTask() {
   if ( !due_.empty() && !isSettled() ) {
      startAgain();
   }
   const std::string missing = missingRun();
   if ( !due_.empty() ) {
      goOverDue();
   } else if ( !missing.empty() || runsAreComplete() ) {
      compute( missing );
   }
}

/// The runs have moved before all requests were looked at. Those that are left are due whatever the
/// next runs are, and the first, so that changes which never cease keep none of them waiting.
void
ProtectionSm::startAgain() {
   std::erase_if( due_, []( const auto & request ) { return request->isRetired(); } );
   firstDue_ = due_.empty() ? 0 : due_.back()->place();
   for ( const auto & request : std::exchange( due_, {} ) ) {
      request->becomesDue();
   }
   someAreDue_ = runsHaveMoved_ = true;
}

void
ProtectionSm::compute( const std::string & missing ) {
   const bool hold = !isSettled() && takeRuns( missing ) && !allAreDue_;
   const bool haveMoved = std::exchange( runsHaveMoved_, false );
   const bool all = std::exchange( allAreDue_, false ) || ( haveMoved && !hold );
   allHold_ |= all;
   due_ = dueRequests( all, hold );
   firstDue_ = 0;
   someAreDue_ = false;
   someHaveMoved_ &= !all && !hold;
   if ( hold ) {
      countHeld( due_ );
   }
   goOverDue();
}

/// Whether requests would be worked out of runs that the topology has left behind.
bool
ProtectionSm::isOvertaken() const {
   return settledFor_.empty()
          && !( repairs_.runs().complete()
                && ( !mayFallBack() || linkRepairs_.runs().complete() ) );
}

/// Whoever reads what is published may end or change any request, and with the last one this; or
/// change the topology.
void
ProtectionSm::goOverDue() {
   const auto alive = keptAlive();
   for ( std::size_t left = context_.taskScheduler->slice();
         left > 0 && !due_.empty() && !isOvertaken(); --left ) {
      const Lum::Ptr< PqComputeSm > request = std::move( due_.back() );
      due_.pop_back();
      if ( !request->isRetired() ) {
         request->handlePqComputeTask();
      }
   }
   if ( !isRetired() ) {
      scheduleIfDue();
   }
}

/// Whether all answers hold for the runs that there are.
bool
ProtectionSm::takeRuns( const std::string & missing ) {
   const bool complete = missing.empty(), fallsBack = complete && mayFallBack();
   RepairRuns now = complete ? currentRuns( false ) : RepairRuns();
   RepairRuns instead = fallsBack ? currentRuns( true ) : RepairRuns();
   const bool hold = complete && settledFor_.empty() && allHold_ && repairs_.holdFor( now )
                     && ( !fallsBack || linkRepairs_.holdFor( instead ) );
   if ( hold ) {
      repairs_.runsAre( std::move( now ) );
      linkRepairs_.runsAre( std::move( instead ) );
   } else {
      repairs_ = SharedRepairs( std::move( now ) );
      linkRepairs_ = SharedRepairs( std::move( instead ) );
   }
   settledFor_ = missing;
   return hold;
}

/// `hold`: the others have no other answer.
std::vector< Lum::Ptr< PqComputeSm > >
ProtectionSm::dueRequests( bool all, bool hold ) const {
   std::vector< Lum::Ptr< PqComputeSm > > due;
   if ( all || someAreDue_ || someHaveMoved_ ) {
      for ( std::size_t i = requests_.size(); i > 0; --i ) {
         PqComputeSm * request = requests_[ ( firstDue_ + i - 1 ) % requests_.size() ];
         if ( all || request->isDue() || ( hold && request->hasMoved() ) ) {
            due.emplace_back( request );
         }
      }
   }
   return due;
}

/// Those who are answered themselves, or not before the next run, count for themselves.
void
ProtectionSm::countHeld( std::span< const Lum::Ptr< PqComputeSm > > due ) {
   ++answersHeld_;
   for ( const auto & request : due ) {
      request->isCountedAlone();
   }
   for ( const auto & request : waiting_ ) {
      if ( !request->isRetired() && request->waitsForRefresh() ) {
         request->isCountedAlone();
      }
   }
   if ( isVerified() ) {
      verifyHeld();
   }
}

void
ProtectionSm::verifyHeld() {
   for ( PqComputeSm * request : requests_ ) {
      if ( !request->isDue() && !request->hasMoved() ) {
         request->verifyAnswer();
      }
   }
}

RepairRuns
ProtectionSm::currentRuns( bool isInstead ) const {
   return { isInstead ? dataOf( linkPathStatusCache_ )
                      : Lum::cast< const LfaCspfData >( constraintInfo_->cspfData() ),
            dataOf( uFwdPathStatusCache_ ), dataOf( uNgbPathStatusCache_ ),
            dataOf( isInstead ? plrPathStatusCache_ : uRevPathStatusCache_ ),
            isInstead || isLinkProtection_ };
}

bool
ProtectionSm::runsAreComplete() const {
   return currentRuns( false ).complete() && ( !mayFallBack() || currentRuns( true ).complete() );
}

bool
ProtectionSm::runsAreKnown() const {
   return repairs_.runs().complete() && repairs_.runs() == currentRuns( false )
          && ( !mayFallBack() || linkRepairs_.runs() == currentRuns( true ) );
}

/// Whether all requests were answered from what there is.
bool
ProtectionSm::isSettled() const {
   const std::string missing = missingRun();
   return missing.empty() ? runsAreKnown() : missing == settledFor_;
}

const ConstraintInfo *
ProtectionSm::rowOf( const PathStatusCache & cache ) const {
   const auto & path = context_.pathStatusInfoTable->pathStatusInfo( cache.pathInfoKey() );
   return path && path->constraint()
             ? context_.constraintInfoTable->constraintInfo( path->constraint() ).ptr()
             : nullptr;
}

std::string
ProtectionSm::missingRunOf( const PathStatusCache & cache ) const {
   const ConstraintInfo * row = rowOf( cache );
   return row ? missingRunOf( *row ) : "";
}

std::string
ProtectionSm::missingRunOf( const ConstraintInfo & row ) const {
   if ( row.sourceMissing() ) {
      return "source not found in topology";
   }
   if ( !row.constraintMissingInTopo() ) {
      return "";
   }
   const std::string intf = row.constraint().pathConstraint().excludeIntf().stringValue();
   switch ( row.missing() ) {
   case ConstraintMissing::neighborOnInterface: return "interface " + intf + " has no neighbor";
   case ConstraintMissing::neighborOnLan: return "neighbor not found on the LAN behind " + intf;
   case ConstraintMissing::nodeBehindInterface: return "another node is behind interface " + intf;
   default: return "interface " + intf + " not found in topology";
   }
}

std::string
ProtectionSm::missingRun() const {
   if ( !uFwdPathStatusCache_ ) {
      return "no protected interface asked for";
   }
   std::string missing = missingRunOf( *constraintInfo_ );
   for ( const auto & cache :
         { uFwdPathStatusCache_, uNgbPathStatusCache_, uRevPathStatusCache_ } ) {
      missing = missing.empty() ? missingRunOf( *cache ) : missing;
   }
   if ( missing.empty() && constraintInfo_->constraint().pathConstraint().reversePath() ) {
      return "reverse path asked for";
   }
   return missing;
}

bool
ProtectionSm::protectedLinkIsGone() const {
   if ( !uNgbPathStatusCache_ || missingRunOf( *uNgbPathStatusCache_ ).empty() ) {
      return false;
   }
   return rowOf( *uNgbPathStatusCache_ )->missing() != ConstraintMissing::nodeBehindInterface;
}

void
ProtectionSm::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cprotection: %s, shared by %zu requests\n",
                   isLinkProtection_ ? "link" : "node", requests_.size() );
   const auto dumpRun = [ & ]( const char * label, const Lum::Ptr< const LfaCspfData > & run ) {
      context.dumpAge( indent, label, run ? run->ranAt() : 0 );
   };
   dumpRun( "constrained run", repairs_.runs().constrained );
   dumpRun( "forward run", repairs_.runs().forward );
   dumpRun( "neighbor run", repairs_.runs().neighbor );
   dumpRun( "reverse run", repairs_.runs().reverse );
   context.dumpAge( indent, "adjacency updated", adjacencyUpdatedAt_ );
   context.printf( indent, "%*ccomputation scheduled: %s\n",
                   pqComputeTask_.scheduled() ? "yes" : "no" );
}

Lum::Ptr< ProtectionSm >
ProtectionTable::protectionIs( const RepairContext & context, const ProtectionKey & key,
                               const Lum::String & clientName, const PathConstraint & asked ) {
   Lum::Ptr< ProtectionSm > & protection = protections_[ key ];
   if ( !protection ) {
      protection = Lum::make< ProtectionSm >( context, key, clientName, asked );
   }
   return protection;
}

void
ProtectionTable::protectionDel( const ProtectionKey & key ) {
   const auto at = protections_.find( key );
   if ( at != protections_.end() && at->second->requests() == 0 ) {
      auto protection = std::move( at->second );
      protections_.erase( at );
      Lum::retire( protection );
   }
}

}
