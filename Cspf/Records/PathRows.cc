// The rows of one VRF and family: how their keys are told apart and written, and how dumps show
// them. A path's key is the same in all tables; a request that differs in any field of it is
// another path. Rows are written by the state machines that their attributes are named after in the
// headers; nothing here reacts.

#include "Cspf/Records/PathRows.h"

#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Message.h"

#include <algorithm>

namespace Cspf {

namespace {

std::size_t
pathKeyHash( const PathKey & key ) noexcept {
   return key.dst().hash() ^ key.id();
}

/// Why there is a path of that key.
void
putOrigin( const PathInfoKey & key, Trace::Message & out ) {
   static const Trace::Name form( "internal=\1, constraintModifier=\1, parentPathKey=<dst=\1, "
                                  "id=\1>, pathSegmentSourceNodeAddr=\1" );
   out << form << key.internal() << key.constraintModifier() << key.parentPathKey().dst()
       << key.parentPathKey().id() << key.pathSegmentSourceNodeAddr();
}

std::string
originText( const PathInfoKey & key ) {
   Trace::Message text;
   putOrigin( key, text );
   return text.text();
}

bool
isClientsOwn( const PathInfoKey & key ) {
   return !key.internal() && key.constraintModifier() == constraintModifierDefault
          && !key.parentPathKey().dst() && key.parentPathKey().id() == 0
          && key.pathSegmentSourceNodeAddr().af() == Kivnet::AddressFamily::unspecified;
}

const char *
boolText( bool value ) {
   return value ? "True" : "False";
}

}

/// Every table asks for it, so it is worked out once for all copies.
std::size_t
PathInfoKey::hash() const noexcept {
   if ( shared_->hash == 0 ) {
      std::size_t seed = Lum::hashMix( 0, shared_->clientName.hash() );
      seed = Lum::hashMix( seed, pathKeyHash( pathKey() ) );
      seed = Lum::hashMix( seed, internal() );
      seed = Lum::hashMix( seed, static_cast< std::size_t >( constraintModifier() ) );
      seed = Lum::hashMix( seed, pathKeyHash( parentPathKey() ) );
      seed = Lum::hashMix( seed, pathSegmentSourceNodeAddr().hash() );
      shared_->hash = static_cast< std::uint32_t >( seed ) | 1;
   }
   return shared_->hash;
}

std::string
PathInfoKey::stringValue() const {
   return Lum::valueString( Detail::PathInfoKey{ clientName(), pathKey(), internal(),
                                                 constraintModifier(), parentPathKey(),
                                                 pathSegmentSourceNodeAddr() } );
}

void
PathStatusInfo::refreshIs( RefreshReason reason, double since ) {
   if ( !isRefreshed() ) {
      waitsSinceIs( since );
   }
   refreshReasonIs( refreshReason() | reason );
   refreshNeededIs( true );
}

CspfPathResult
PathStatusCache::result() const {
   return { path(), pathSrlg(), pathTeRouterId(), includeIps(), pathAsTopoDbLinks() };
}

void
PathStatusCache::resultIs( const CspfPathResult & result ) {
   routers = {};  // whoever knows them says so behind this
   pathIs( result.path );
   pathSrlgIs( result.pathSrlg );
   pathTeRouterIdIs( result.pathTeRouterId );
   includeIpsIs( result.includeIps );
   pathAsTopoDbLinksIs( result.pathAsTopoDbLinks );
}

void
PathStatusInfo::followedIs( const Lum::Ptr< ConstraintInfo > & constraintInfo ) {
   if ( followed_ ) {
      answersThrough_ += followed_->answers;
      --followed_->followers;
   }
   followed_ = constraintInfo;
   if ( followed_ ) {
      answersThrough_ -= followed_->answers;
      followedSince_ = followed_->marks;
      ++followed_->followers;
   }
}

bool
PathStatusInfo::isMarkedThrough() const {
   return followed_ && followed_->marked && hasMark( followed_->marks );
}

bool
PathStatusInfo::hasAskedThrough() const {
   return isMarkedThrough() || ( followed_ && followed_->marksOne );
}

std::uint32_t
PathStatusInfo::answersThrough() const noexcept {
   return answersThrough_ + ( followed_ ? followed_->answers : 0 );
}

void
PathTraceName::traceTo( Trace::Message & out ) const {
   static const Trace::Name form( "PathInfoKey=<client=\1, pathKey=<\1, id=\1>, \1>" );
   static const Trace::Name ownOrigin( originText( PathInfoKey() ) );
   out << form << key.clientName() << key.pathKey().dst() << key.pathKey().id();
   if ( isClientsOwn( key ) ) {
      out << ownOrigin;
   } else {
      putOrigin( key, out );
   }
}

std::string
PathTraceName::stringValue() const {
   Trace::Message text;
   return ( text << *this ).text();
}

void
PathConfigInfo::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cPathConfigInfo %p\n", static_cast< const void * >( this ) );
   context.printf( indent, "%*cconfigChangeCount: %u\n", configChangeCount() );
   context.printf( indent, "%*cderivedConfigChangeCount: %u\n", derivedConfigChangeCount() );
}

void
PathStatusInfo::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cPathStatusInfo %p\n", static_cast< const void * >( this ) );
   context.printf( indent, "%*cConstraint change count: %u\n", constraintChangeCount() );
   context.printf( indent, "%*cLast Refresh Req Sequence: %u\n", lastRefreshReqSeq() );
   context.printf( indent, "%*cRefresh Needed: %s Refresh Reason: 0x%x, updPathPending: %s\n",
                   boolText( refreshNeeded() || isMarkedThrough() ),
                   refreshReason() | ( isMarkedThrough() ? refreshReasonTopoChanged : 0 ),
                   boolText( updatePathPending() ) );
}

void
PathStatusCache::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cPathStatusCache %p\n", static_cast< const void * >( this ) );
   context.printf( indent, "%*cPath Refresh Stage1 Count: %u \n", refreshedStage1Count() );
   context.printf( indent, "%*cPath Refresh Stage2 Count: %u \n",
                   refreshedStage2Count() + answersHeld );
   if ( !pqInfo() ) {
      return;
   }
   const Lfa::PqPath & pqPath = pqInfo()->pqPath();
   context.printf( indent, "%*cPath to destination: \n" );
   context.printf( indent + 2, "%*c%s %s\n", pqPath.nhIp().stringValue().c_str(),
                   pqPath.nhIntf().stringValue().c_str() );
   for ( const Routing::Isis::SystemId & node : pqPath.pathList() ) {
      context.printf( indent + 2, "%*c%s\n", node.stringValue().c_str() );
   }
   context.printf( indent, "%*cPqIdx: %u\n", pqInfo()->pqIdx() );
   context.printf( indent, "%*cSPT results:\n" );
   if ( runInfo() ) {
      context.printf( indent + 2, "%*csource: %s\n", runInfo()->source().stringValue().c_str() );
      context.dumpAge( indent + 2, "run", runInfo()->ranAt() );
   }
}

void
ConstraintStats::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*c CSPF scheduled: %s\n", boolText( cspfScheduled() ) );
   context.dumpAge( indent, " CSPF last ran", cspfLastRanAt() );
   context.printf( indent, "%*c CSPF current delay: %0.2f ms\n", cspfCurrentDelay() );
   context.printf( indent, "%*c CSPF run count: %u\n", cspfCount() );
   context.printf( indent, "%*c cspfSkippedCount: %u\n", cspfSkippedCount() );
}

void
PathBwUsage::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cPathBwUsage\n" );
   context.printf( indent, "%*cbwUsage #%u\n", static_cast< unsigned >( bwUsages() ) );
   for ( const auto & [ link, reservation ] : bwUsageColl() ) {
      context.printf( indent + 2, "%*c%s : %s\n", link.stringValue().c_str(),
                      reservation->stringValue().c_str() );
   }
}

}
