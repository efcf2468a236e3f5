// Who uses a repair, and under which identifier it is published. There are two kinds of use: the
// handles that computations hold, and the paths that the client reads, which follow a little later
// and stay when the agent ends. An entry goes when neither kind is left, so that the order in which
// a path drops one repair and publishes the next does not matter.
//
// After a restart the published entries begin with the second kind alone. A computation that comes
// to the same result finds its entry among them, and the client sees nothing of the restart.

#include "Cspf/Repairs/DedupPqInfoTable.h"

#include "platform/Trace/Trace.h"

namespace Cspf::Lfa {

void
DedupPqInfoLTNotifiee::handleInsert( const Lum::Ptr< Kiv::DedupHandle > & handle ) {
   table_.publish( static_cast< DedupPqInfo & >( *handle ) );
}

void
DedupPqInfoLTNotifiee::handleRemove( const Lum::Ptr< Kiv::DedupHandle > & handle ) {
   const auto & pqInfo = static_cast< const DedupPqInfo & >( *handle );
   TRACE7( "pqIdx " << pqInfo.pqIdx() << " is not used any more" );
   table_.release( pqInfo );
}

DedupPqInfoTable::DedupPqInfoTable( const Lum::Ptr< Status > & status,
                                    const Kiv::Range & identifiers )
   : status_( status ),
     idConfig_( identifiers ),
     idStatus_( Lum::make< Kiv::NumAllocatorStatus >() ),
     idAllocator_( Lum::make< Kiv::NumAllocator >(
        Lum::make< Kiv::NumAllocatorConfig >( identifiers ), idStatus_ ) ),
     dedupTable_( Lum::make< Kiv::DedupTable< DedupPqInfo > >() ) {}

void
DedupPqInfoTable::handleInitialized() {
   dedupTable_->DedupHashTableUnorderedSetIs( true );
   dedupTable_->lifeTimeNotifieeIs( Lum::make< DedupPqInfoLTNotifiee >( *this ) );
   takeOverPublished();
   LUM_WATCH_KEYS( status_, pathStatus, handlePathStatus );
}

void
DedupPqInfoTable::takeOverPublished() {
   for ( const auto & [ pathKey, path ] : status_->pathStatusColl() ) {
      const std::uint32_t idx = path.repairPathIdx();
      if ( idx >= idConfig_.first() && idx <= idConfig_.last() && status_->pqInfoHas( idx ) ) {
         named_[ pathKey ] = idx;
         ++uses_[ idx ].paths;
      }
   }
   std::vector< std::uint64_t > unused;
   const std::uint32_t last = uses_.empty() ? 0 : uses_.rbegin()->first;
   for ( std::uint64_t number = 0; number != last; ) {
      number = idAllocator_->getNumber();
      if ( !uses_.contains( static_cast< std::uint32_t >( number ) ) ) {
         unused.push_back( number );
      }
   }
   for ( const std::uint64_t number : unused ) {
      idAllocator_->releaseNumber( number );
   }
   for ( const std::uint32_t idx : Lum::sortedKeys( status_->pqInfoColl() ) ) {
      if ( uses_.contains( idx ) ) {
         PqPath path;
         Lum::copyFields( status_->pqInfo( idx ), path );
         unheld_.try_emplace( path, idx );
      }
      withdrawIfUnused( idx );
   }
}

Lum::Ptr< DedupPqInfo >
DedupPqInfoTable::dedup( const PqPath & path ) {
   return dedupTable_->dedup( Lum::make< DedupPqInfo >( path ) );
}

void
DedupPqInfoTable::publish( DedupPqInfo & pqInfo ) {
   if ( const auto known = unheld_.extract( pqInfo.pqPath() ) ) {
      pqInfo.pqIdxIs( known.mapped() );
      uses_[ pqInfo.pqIdx() ].held = true;
      return;
   }
   const std::uint64_t number = idAllocator_->getNumber();
   if ( number == Kiv::NumAllocator::invalidNumber() ) {
      TRACE0( "no pqIdx is left for " << pqInfo.pqPath() );
      return;
   }
   pqInfo.pqIdxIs( static_cast< std::uint32_t >( number ) );
   uses_[ pqInfo.pqIdx() ].held = true;
   TRACE7( "pqIdx " << pqInfo.pqIdx() << " is used for " << pqInfo.pqPath() );
   PqInfo published;
   Lum::copyFields( pqInfo.pqPath(), published );
   published.idxIs( pqInfo.pqIdx() );
   status_->pqInfoIs( published );
}

void
DedupPqInfoTable::release( const DedupPqInfo & pqInfo ) {
   const std::uint32_t idx = pqInfo.pqIdx();
   if ( idx == 0 ) {
      return;
   }
   Use & use = uses_.at( idx );
   use.held = false;
   if ( use.paths > 0 ) {
      unheld_[ pqInfo.pqPath() ] = idx;
   }
   withdrawIfUnused( idx );
}

void
DedupPqInfoTable::handlePathStatus( const PathKey & pathKey ) {
   const std::uint32_t idx = status_->pathStatus( pathKey ).repairPathIdx();
   const auto before = named_.extract( pathKey );
   if ( const auto use = uses_.find( idx ); use != uses_.end() ) {
      named_[ pathKey ] = idx;
      ++use->second.paths;
   }
   if ( before ) {
      --uses_.at( before.mapped() ).paths;
      withdrawIfUnused( before.mapped() );
   }
}

void
DedupPqInfoTable::withdrawIfUnused( std::uint32_t idx ) {
   const auto use = uses_.find( idx );
   if ( use != uses_.end() && ( use->second.held || use->second.paths > 0 ) ) {
      return;
   }
   PqPath path;
   Lum::copyFields( status_->pqInfo( idx ), path );
   if ( const auto unheld = unheld_.find( path );
        unheld != unheld_.end() && unheld->second == idx ) {
      unheld_.erase( unheld );
   }
   if ( use != uses_.end() ) {
      uses_.erase( use );
      idAllocator_->releaseNumber( idx );
   }
   status_->pqInfoDel( idx );
}

}
