// From a TI-LFA request to the rows of its computations. The rows of the trees come before the
// request's own, since whoever serves that one looks for them. Which trees a request needs follows
// from its constraint alone, so that a thousand destinations behind one link need one set. A change
// of link into node protection replaces it.
//
// A request without a protected interface has neither neighbour nor repair; it keeps its own key,
// under which the client reads why.

#include "Cspf/Repairs/TilfaPathSm.h"

#include "platform/Trace/Trace.h"

#include <algorithm>
#include <utility>

namespace Cspf {

namespace {

ConstraintModifier
modifierOf( TilfaTree tree, bool isLinkProtection ) {
   switch ( tree ) {
   case TilfaTree::forward: return unconstrainedSpfAtPlr();
   case TilfaTree::neighbor: return unconstrainedSpfAtProtectedNode();
   case TilfaTree::withoutLink: return ConstraintModifier::spfWithoutProtectedLink;
   case TilfaTree::toPlr: return unconstrainedReverseSpfAtPlr();
   case TilfaTree::reverse: break;
   }
   return isLinkProtection ? unconstrainedReverseSpfAtPlr()
                           : unconstrainedReverseSpfAtProtectedNode();
}

}

PathInfoKey
tilfaTreeKey( const Lum::SharedString & clientName, std::uint32_t treesId, TilfaTree tree,
              bool isLinkProtection ) {
   PathInfoKey key;
   key.clientNameIs( clientName );
   key.pathKeyIs( { Destination(), treesId } );
   key.internalIs( true );
   key.constraintModifierIs( modifierOf( tree, isLinkProtection ) );
   key.parentPathKeyIs( key.pathKey() );
   return key;
}

class TilfaPathSm::Replacing : public Lum::Reactor {
   LUM_ENTITY( Cspf, Replacing );
   Replacing( TilfaPathSm & owner, std::uint32_t trees ) : owner_( owner ), trees_( trees ) {}

   void handleInitialized() override { handleRows(); }
   /// Of trees that are just being made, some rows may not be there yet.
   void handleRows() {
      unwatchAll();
      for ( const PathInfoKey & key : owner_.keysOf( trees_ ) ) {
         if ( const auto & row = owner_.pathStatusInfoTable()->pathStatusInfo( key ) ) {
            LUM_WATCH( row, stage2RequestCount, handleResult );
         }
      }
   }

   std::set< PathKey > waiting;

 private:
   void handleResult() { owner_.endStaleOf( trees_ ); }

   TilfaPathSm & owner_;
   const std::uint32_t trees_;
};

TilfaPathSm::TilfaPathSm( Kivnet::AddressFamily af, const L3::VrfName & vrfName,
                          const Lum::String & name,
                          const Lum::Ptr< const TrafficEngineering::Status > & teStatus,
                          const Lum::Ptr< const Config > & cspfConfig,
                          const Lum::Ptr< Status > & cspfStatus,
                          const Lum::Ptr< PathConfigInfoTable > & pathConfigInfoTable,
                          const Lum::Ptr< PathStatusInfoTable > & pathStatusInfoTable,
                          const Lum::Ptr< const RepairScope > & scope,
                          const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler )
   : PathSmBase( af, vrfName, name, teStatus, cspfConfig, cspfStatus, pathConfigInfoTable,
                 pathStatusInfoTable, taskScheduler ),
     scope_( scope ),
     treesConfig_( Lum::make< Config >() ),
     scopeWalk_( *this, taskScheduler, "repairScopeTask-" + name,
                 { [ this ]( const PathKey & pathKey ) { return moveToScope( pathKey ); },
                   [ this ] { endMoving(); } } ) {}

void
TilfaPathSm::handleInitialized() {
   if ( scope_ ) {
      LUM_WATCH( scope_, changeCount, handleScope );
   }
   PathSmBase::handleInitialized();
}

void
TilfaPathSm::doPrepareToDie() {
   stopMoving();
   while ( !replacing_.empty() ) {
      replacingDel( replacing_.begin()->first );
   }
   PathSmBase::doPrepareToDie();
}

void
TilfaPathSm::leave() {
   stopMoving();
   PathSmBase::leave();
}

/// Repairs that no path names are an earlier agent's.
void
TilfaPathSm::handleTakenIn() {
   std::set< std::uint32_t > named;
   for ( const auto & [ pathKey, path ] : cspfStatus()->pathStatusColl() ) {
      named.insert( path.repairPathIdx() );
   }
   for ( const std::uint32_t idx : Lum::sortedKeys( cspfStatus()->pqInfoColl() ) ) {
      if ( !named.contains( idx ) ) {
         cspfStatus()->pqInfoDel( idx );
      }
   }
}

PathInfoKey
TilfaPathSm::externalPathInfoKey( const PathKey & pathKey ) const {
   PathInfoKey key;
   key.clientNameIs( name() );
   key.pathKeyIs( pathKey );
   return key;
}

std::vector< PathInfoKey >
TilfaPathSm::keysOf( std::uint32_t trees ) const {
   std::vector< PathInfoKey > keys;
   if ( const auto at = trees_.find( trees ); at != trees_.end() ) {
      const PathConstraint & constraint = at->second.constraint;
      for ( const TilfaTree tree : tilfaTrees( constraint ) ) {
         keys.push_back( tilfaTreeKey( name(), trees, tree, isLinkProtection( constraint ) ) );
      }
   }
   return keys;
}

TilfaPathInfoKeyColl
TilfaPathSm::tilfaPathInfoKeyColl( const PathKey & pathKey, TilfaPathInfoKeyIndex tree ) const {
   TilfaPathInfoKeyColl keys;
   const auto request = requests_.find( pathKey );
   const PathConfig * config = cspfConfig()->pathConfigFind( pathKey );
   if ( request == requests_.end() || !config ) {
      return keys;
   }
   keys.isLinkProtectionIs( isLinkProtection( config->constraint() ) );
   keys.pathKeyIs( pathKey );
   keys.clientNameIs( name() );
   const auto keyOf = [ & ]( std::uint32_t trees ) {
      const auto all = keysOf( trees );
      return tree.value() < all.size() ? all[ tree.value() ] : PathInfoKey();
   };
   keys.pathInfoKeyIs( keyOf( request->second.trees ) );
   keys.stalePathInfoKeyIs( keyOf( request->second.stale ) );
   return keys;
}

/// While the interface is gone, the topology that it was in.
TopoId
TilfaPathSm::topoIdOf( const PathKey & pathKey, const PathConstraint & constraint,
                       const TopoId & before ) const {
   if ( constraint.topoId() || !scope_ ) {
      return constraint.topoId();
   }
   const TopoId now = scope_->topoId( repairConstraint( constraint ).excludeIntf(), pathKey.dst() );
   return now ? now : before;
}

/// What is the same for all requests that share trees: that which runs read.
PathConstraint
TilfaPathSm::treesConstraint( const PathConfig & config, const TopoId & topoId ) const {
   PathConstraint constraint = repairConstraint( config.constraint() );
   constraint.topoIdIs( topoId );
   constraint.maxRepairNodesIs( 0 );
   constraint.pathComputationTypeIs( PathComputationType::tilfa );
   constraint.sourceTypeIs( plr() );
   return constraint;
}

void
TilfaPathSm::handleCspfConfig( const PathKey & pathKey ) {
   TRACE7( pathKey.dst() << ", id " << pathKey.id() << ", vrf " << vrfName() << ", af "
                         << text( af() ) );
   LUM_ASSERT( pathConfigInfoTable() );
   const Handling handling( *this, pathKey );
   const PathConfig * config = cspfConfig()->pathConfigFind( pathKey );
   if ( handling.isVoid() ) {
      return;
   }
   if ( !config ) {
      doCleanupPathInfoKeyEntries( pathKey );
      return;
   }
   Request & request = requests_[ pathKey ];
   request.topoId = topoIdOf( pathKey, config->constraint(), request.topoId );
   const PathConstraint constraint = treesConstraint( *config, request.topoId );
   std::uint32_t trees = constraint.excludeIntf() ? treesIs( constraint ) : 0;
   if ( handling.isVoid() ) {
      treesDel( trees );
      return;
   }
   replace( pathKey, trees );
   if ( handling.isVoid() ) {
      return;
   }
   const PathInfoKey key = externalPathInfoKey( pathKey );
   addRows( key, cspfConfig() );
   if ( const auto row = pathConfigInfoTable()->pathConfigInfo( key ); row && !handling.isVoid() ) {
      row->repairTopoIdIs( constraint.topoId() );
      row->treesIdIs( trees );
      row->configChangeCountInc();
   }
   endStaleOf( trees );
}

/// The number of the trees, one user more; made where there were none.
std::uint32_t
TilfaPathSm::treesIs( const PathConstraint & constraint ) {
   const auto [ at, fresh ] = treesOf_.try_emplace( constraint, lastTrees_ + 1 );
   const std::uint32_t number = at->second;
   Trees & trees = trees_[ number ];
   ++trees.users;
   if ( fresh ) {
      ++lastTrees_;
      trees.constraint = constraint;
      PathConfig config;
      config.pathKeyIs( { Destination(), number } );
      config.constraintIs( constraint );
      treesConfig_->pathConfigIs( config );
      for ( const PathInfoKey & key : keysOf( number ) ) {
         addOrUpdatePathInfoKey( key, treesConfig_ );
      }
      if ( const auto waiting = replacing_.find( number ); waiting != replacing_.end() ) {
         waiting->second->handleRows();
      }
   }
   return number;
}

/// One user less.
void
TilfaPathSm::treesDel( std::uint32_t & trees ) {
   const std::uint32_t number = std::exchange( trees, 0 );
   const auto at = trees_.find( number );
   if ( at == trees_.end() || --at->second.users > 0 ) {
      return;
   }
   const auto keys = keysOf( number );
   treesOf_.erase( at->second.constraint );
   trees_.erase( at );
   for ( const PathInfoKey & key : keys ) {
      deletePathInfoKey( key );
   }
   treesConfig_->pathConfigDel( { Destination(), number } );
}

/// What was published came of the oldest trees, which stay; those between were never used.
void
TilfaPathSm::replace( const PathKey & pathKey, std::uint32_t trees ) {
   std::uint32_t old = std::exchange( requests_[ pathKey ].trees, trees );
   if ( const auto at = replacing_.find( old ); at != replacing_.end() ) {
      at->second->waiting.erase( pathKey );
      if ( at->second->waiting.empty() ) {
         replacingDel( old );
      }
   }
   if ( old == trees || requests_[ pathKey ].stale ) {
      treesDel( old );
   } else {
      requests_[ pathKey ].stale = old;
   }
   const auto request = requests_.find( pathKey );
   if ( request == requests_.end() || request->second.trees != trees ) {
      return;  // whoever heard of the end asks for something else, or for nothing
   }
   if ( request->second.stale && trees ) {
      Lum::Ptr< Replacing > & replacing = replacing_[ trees ];
      if ( !replacing ) {
         replacing = Lum::make< Replacing >( *this, trees );
      }
      replacing->waiting.insert( pathKey );
   } else {
      treesDel( request->second.stale );
   }
}

bool
TilfaPathSm::haveResult( std::uint32_t trees ) const {
   return std::ranges::all_of( keysOf( trees ), [ & ]( const PathInfoKey & key ) {
      const auto & row = pathStatusInfoTable()->pathStatusInfo( key );
      return row && row->stage2RequestCount() > 0;
   } );
}

/// Where all of them have a result, nobody keeps the trees that they replace.
void
TilfaPathSm::endStaleOf( std::uint32_t trees ) {
   const auto at = replacing_.find( trees );
   if ( at == replacing_.end() || !haveResult( trees ) ) {
      return;
   }
   const auto waiting = std::move( at->second->waiting );
   replacingDel( trees );
   for ( const PathKey & pathKey : waiting ) {
      treesDel( requests_[ pathKey ].stale );
   }
}

void
TilfaPathSm::replacingDel( std::uint32_t trees ) {
   Lum::Ptr< Replacing > replacing = std::move( replacing_[ trees ] );
   replacing_.erase( trees );
   Lum::retire( replacing );
}

/// An interface may be in another topology, or reach a destination in another level. Requests are
/// looked at by slices. Until all have been looked at no run begins, which would answer some of
/// them by the wrong level. What changes meanwhile has them looked at once more, while runs go on,
/// so that changes which never cease hold nobody back.
void
TilfaPathSm::handleScope() {
   if ( scopeWalk_.isUnderWay() ) {
      movesAgain_ = true;
      return;
   }
   runHold_.holdsIs( true );
   scopeWalk_.start( Lum::keysOf( requests_ ) );
}

void
TilfaPathSm::endMoving() {
   const bool movesAgain = std::exchange( movesAgain_, false );
   runHold_.holdsIs( false );
   if ( movesAgain && !isRetired() && !scopeWalk_.isUnderWay() ) {
      scopeWalk_.start( Lum::keysOf( requests_ ) );
   }
}

void
TilfaPathSm::stopMoving() {
   scopeWalk_.stop();
   movesAgain_ = false;
   runHold_.holdsIs( false );
}

std::size_t
TilfaPathSm::moveToScope( const PathKey & pathKey ) {
   const PathConfig * config = cspfConfig()->pathConfigFind( pathKey );
   const auto request = requests_.find( pathKey );
   if ( config && request != requests_.end()
        && topoIdOf( pathKey, config->constraint(), request->second.topoId )
              != request->second.topoId ) {
      handleCspfConfig( pathKey );
   }
   return 1;
}

/// What is published of the path goes first: it names a repair, which goes with the rows.
void
TilfaPathSm::doCleanupPathInfoKeyEntries( const PathKey & pathKey ) {
   TRACE7( "Deleting all PathInfoKey Entries for " << pathKey.dst() << ", id " << pathKey.id() );
   const Handling handling( *this, pathKey );
   cspfStatus()->pathStatusDel( pathKey );
   if ( handling.isOvertaken() ) {
      return;
   }
   deletePathInfoKey( externalPathInfoKey( pathKey ) );
   if ( !handling.isOvertaken() && requests_.contains( pathKey ) ) {
      replace( pathKey, 0 );
      requests_.erase( pathKey );
   }
}

}
