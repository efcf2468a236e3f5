// Whether a published path still holds. A tunnel that carries traffic must not move because the
// network changed somewhere else, so a path is not computed again before this says that it must be.
//
// The check asks the graph about the links of the path alone: each hop costs one look-up of its
// address (remembered from path to path) and the few tests of the constraint; no run, and no pass
// over all links. What is known of the hops is worked out anew on the way; the caller publishes it
// where it moved. Most paths do not meet most changes: a valid path is not looked at again before
// one of its routers has changed. A link belongs to the router that it leaves, an address to all
// routers that have it.

#include "Cspf/Hops/PathValidator.h"

#include "Cspf/Bandwidth/BwUsageManager.h"
#include "platform/Trace/Trace.h"

#include <algorithm>

namespace Cspf {

PathValidationMemory::PathValidationMemory(
   const Lum::Ptr< const AllTopoDbStatus > & allTopoDbStatus )
   : hopAddresses_( Lum::make< HopAddressMemory >( allTopoDbStatus ) ) {}

PathValidationMemory::~PathValidationMemory() = default;

const CspfLinkFilter &
PathValidationMemory::filter( const AllTopoDbView & view, const NodeId & source ) {
   filterConstraint_.bwUsageIdIs( view.constraint().bwUsageId() );  // it is the same for all users
   if ( filterVersion_ != view.graph().version() || filterAddresses_ != hopAddresses_->changes()
        || filterSource_ != source || filters_.size() > mostFilters ) {
      filters_.clear();
      filter_ = nullptr;
   }
   if ( !filter_ || filterConstraint_ != view.constraint() ) {
      filterConstraint_ = view.constraint();
      filterConstraint_.bwUsageIdIs( {} );
      const auto present = filters_.find( filterConstraint_ );
      filter_ = present == filters_.end() ? &newFilter( view, source ) : &present->second;
   }
   return *filter_;
}

/// Of the constraint in `filterConstraint_`.
const CspfLinkFilter &
PathValidationMemory::newFilter( const AllTopoDbView & view, const NodeId & source ) {
   const AllTopoTeDbView anyUser( view.allTopoDb(), view.allTopoDbStatus(), filterConstraint_,
                                  view.bwUsageManager() );
   CspfLinkFilter & filter = filters_[ filterConstraint_ ];
   filter.constraintIs( anyUser.linkConstraint( source ) );
   filterSource_ = source;
   filterVersion_ = view.graph().version();
   filterAddresses_ = hopAddresses_->changes();
   return filter;
}

PathValidity::PathValidity( const AllTopoDbView & view, PathValidationMemory & memory )
   : routers_( view.graph(), memory.hopAddresses(), memory.links() ),
     userChange_( userChange( view.bwUsageManager().ptr(), view.constraint().bwUsageId() ) ) {}

bool
PathValidity::holds( const VrfTopology & topology, const PathValidationMemory & memory,
                     const BwUsageId & user ) const {
   return routers_.unchanged( topology.allTopoDbStatus->teGraph().graph(), memory.hopAddresses() )
          && userChange_ == userChange( topology.bwUsageManager.ptr(), user );
}

std::uint64_t
PathValidity::userChange( const BwUsageManager * manager, const BwUsageId & user ) {
   return user ? manager->lastChange( user ) : 0;
}

RsvpPathValidator::RsvpPathValidator(
   const PathInfoKey & pathInfoKey,
   [[maybe_unused]] const Lum::Ptr< const PathStatusInfo > & pathStatusInfo,
   const PathStatus & pathStatus, [[maybe_unused]] const InternalPathConstraint & constraint,
   const AllTopoDbView & view )
   : RsvpPathValidator( pathInfoKey, pathStatus, view,
                        std::make_unique< PathValidationMemory >( view.allTopoDbStatus() ) ) {
   LUM_ASSERT( pathStatusInfo->pathInfoKey() == pathInfoKey );
   LUM_ASSERT( view.constraint() == constraint );
}

RsvpPathValidator::RsvpPathValidator( const PathInfoKey & pathInfoKey,
                                      const PathStatus & pathStatus, const AllTopoDbView & view,
                                      std::unique_ptr< PathValidationMemory > memory )
   : ownMemory_( std::move( memory ) ),
     pathInfoKey_( pathInfoKey ),
     pathStatus_( pathStatus ),
     isPathFromSourceToSource_(
        pathStatus.paths() == 0
        && view.hasTep( view.spfRoot().ipAddress(), pathInfoKey.pathKey().dst().ipAddress() ) ),
     view_( view ),
     memory_( *ownMemory_ ),
     known_( nullptr ) {}

void
RsvpPathValidator::validatePathAndUpdateMetadata() {
   valid_ = checkPath( __PRETTY_FUNCTION__ );
   if ( valid_ ) {
      updateIncludeIps( __PRETTY_FUNCTION__ );
   }
}

PathValidity
RsvpPathValidator::validity() const {
   return { view_, memory_ };
}

bool
RsvpPathValidator::checkPath( const char * operation ) {
   if ( pathStatus_.pathList().empty() && !isPathFromSourceToSource_ ) {
      return fail( " : no old path computed to validate", operation );
   }
   const NodeId source = view_.spfRoot();
   if ( !source || !view_.hasRouter( source ) ) {
      return fail( " : Source node not found in the topology ", operation );
   }
   const CspfLinkFilter & filter = memory_.filter( view_, source );  // numbers may be others now
   if ( pathStatus_.paths() != pathStatus_.pathTeRouterIds() ) {
      TRACE8_FOR( operation, "RsvpPathValidator : "
                                << pathInfoKey_.traceString() << " : path length "
                                << pathStatus_.paths() << " and pathTeRouterId length "
                                << pathStatus_.pathTeRouterIds() << " in path status differ" );
   }
   const CspfVertex sourceNode = view_.topoGraph().vertex( source );
   HopToTopoDbLinkMapper mapper( view_, memory_.hopAddresses(), filter, known_ );
   mapper.handleNew( sourceNode, pathStatus_.pathList(), memory_.links() );
   if ( !validatePath( sourceNode, filter ) ) {
      reason_ = mapper.failure().empty() ? reason_ : mapper.failure();
      return false;
   }
   updateTeRouterIds( operation );
   return destinationIsOn(
      memory_.links().empty() ? source.ipAddress() : memory_.links().back().teRouterId, operation );
}

bool
RsvpPathValidator::validatePath( const PathAsTopoDbLinks & links ) {
   const NodeId source = view_.spfRoot();
   if ( !view_.hasRouter( source ) ) {
      return fail( " : Source node not found in the topology ", __PRETTY_FUNCTION__ );
   }
   const CspfLinkFilter & filter = memory_.filter( view_, source );
   memory_.links().clear();
   for ( std::size_t i = 0; i < pathStatus_.paths(); ++i ) {
      memory_.links().push_back( pathHop( view_.topoGraph(), links, HopIndex( i ) ) );
   }
   return validatePath( view_.topoGraph().vertex( source ), filter );
}

bool
RsvpPathValidator::validatePath( CspfVertex sourceNode, const CspfLinkFilter & filter ) {
   const auto & links = memory_.links();
   const auto found = std::ranges::count_if( links, &CspfPathHop::known );
   if ( static_cast< std::size_t >( found ) != pathStatus_.paths() ) {
      return fail( " : missing links, expected " + std::to_string( pathStatus_.paths() )
                      + " but found " + std::to_string( found ),
                   __PRETTY_FUNCTION__ );
   }
   CspfVertex previous = sourceNode;
   for ( std::size_t i = 0; i < links.size(); ++i ) {
      if ( !validateHop( i, previous, filter, __PRETTY_FUNCTION__ ) ) {
         return false;
      }
      previous = links[ i ].end( view_.graph() );
   }
   return true;
}

bool
RsvpPathValidator::validateHop( std::size_t hopIndex, CspfVertex previous,
                                const CspfLinkFilter & filter, const char * operation ) {
   const CspfGraph & graph = view_.graph();
   const CspfPathHop & hop = memory_.links()[ hopIndex ];
   const auto hopText = [ & ]() { return pathStatus_.pathList()[ hopIndex ].stringValue(); };
   if ( graph.from( hop.link ) != previous ) {
      const TopoGraph & names = view_.topoGraph();
      return fail( " : path not continuous, expected previous hop "
                      + names.nodeId( previous ).stringValue() + " but found "
                      + names.nodeId( graph.from( hop.link ) ).stringValue() + " for hop "
                      + hopText() + " at hopIndex " + std::to_string( hopIndex ),
                   operation );
   }
   const CspfRefusal refusal = refusalForUser( view_, filter, hop );
   return refusal == CspfRefusal::none
          || fail( " : Link on hop to hop failed constraint verification " + hopText() + ": "
                      + std::string( text( refusal ) ),
                   operation );
}

void
RsvpPathValidator::updateTeRouterIds( const char * operation ) {
   const auto & published = pathStatus_.pathTeRouterIdList();
   const auto & links = memory_.links();
   if ( std::ranges::equal( published, links, {}, {}, &CspfPathHop::teRouterId ) ) {
      return;
   }
   pathTeRouterIdChanged_ = true;
   for ( std::size_t i = 0; i < links.size(); ++i ) {
      const Kivnet::IpGenAddr & teNeighborId = links[ i ].teRouterId;
      if ( i < published.size() && published[ i ] != teNeighborId ) {
         TRACE8_FOR( operation, "RsvpPathValidator : " << pathInfoKey_.traceString()
                                                       << " : path TE router id mismatch, expected "
                                                       << published[ i ] << ", found "
                                                       << teNeighborId );
      }
      pathTeRouterId_.push( teNeighborId );
   }
}

bool
RsvpPathValidator::destinationIsOn( const Kivnet::IpGenAddr & teRouterId, const char * operation ) {
   const Kivnet::IpGenAddr destination = pathInfoKey_.pathKey().dst().ipAddress();
   if ( view_.hasTep( teRouterId, destination ) ) {
      return true;
   }
   return fail( " : path destination " + destination.stringValue()
                   + " is not found on node with TE router id " + teRouterId.stringValue()
                   + ", destWasOnSourceNode: " + ( isPathFromSourceToSource_ ? "1" : "0" ),
                operation );
}

/// From what was asked for: an address that was gone for a while is listed again. Listed are those
/// hops of the request that were there, in their order.
void
RsvpPathValidator::updateIncludeIps( const char * operation ) {
   const auto & published = pathStatus_.includeIpList();
   std::size_t next = 0;
   for ( const IncludeHop & hop : view_.constraint().includeHopList() ) {
      const bool listed = next < published.size() && published[ next ].addr() == hop.addr();
      const IncludeIp current =
         currentIncludeIp( listed ? published[ next++ ] : IncludeIp{ hop.addr(), {} }, operation );
      if ( current.teRouterId() ) {
         includeIps_.push( current );
      }
   }
   includeIpsChanged_ = includeIps_ != published;
   if ( includeIps_.size() != published.size() ) {
      TRACE8_FOR( operation, "RsvpPathValidator : " << pathInfoKey_.traceString()
                                                    << " : Include IP length changed" );
   } else if ( includeIpsChanged_ ) {
      TRACE8_FOR( operation,
                  "RsvpPathValidator : " << pathInfoKey_.traceString() << " : Include IP changed" );
   }
}

/// The include IP with the router that has it now: its router under the id that this has now, else
/// another router of the path; unset where none has it.
IncludeIp
RsvpPathValidator::currentIncludeIp( const IncludeIp & published, const char * operation ) const {
   const Kivnet::IpGenAddr & address = published.addr();
   const Kivnet::IpGenAddr teRouterId = currentTeRouterId( published.teRouterId() );
   if ( teRouterId && view_.hasTep( teRouterId, address ) ) {
      return { address, teRouterId };
   }
   if ( published.teRouterId() ) {
      TRACE8_FOR( operation, "RsvpPathValidator : " << pathInfoKey_.traceString() << " Include IP "
                                                    << address << " no longer present on "
                                                    << published.teRouterId() );
   }
   const Kivnet::IpGenAddr source = view_.spfRoot().ipAddress();
   if ( view_.hasTep( source, address ) ) {
      return { address, source };
   }
   const auto moved = std::ranges::find_if( memory_.links(), [ & ]( const CspfPathHop & hop ) {
      return view_.hasTep( hop.teRouterId, address );
   } );
   return { address, moved == memory_.links().end() ? Kivnet::IpGenAddr() : moved->teRouterId };
}

/// The id that a router of the published path has now; unset where it is none of them.
Kivnet::IpGenAddr
RsvpPathValidator::currentTeRouterId( const Kivnet::IpGenAddr & published ) const {
   const auto & old = pathStatus_.pathTeRouterIdList();
   for ( std::size_t i = 0; i < old.size() && i < memory_.links().size(); ++i ) {
      if ( old[ i ] == published ) {
         return memory_.links()[ i ].teRouterId;
      }
   }
   const Kivnet::IpGenAddr source = view_.spfRoot().ipAddress();
   return published == source ? source : Kivnet::IpGenAddr();
}

bool
RsvpPathValidator::fail( const std::string & text, const char * operation ) {
   TRACE8_FOR( operation, "RsvpPathValidator : " << pathInfoKey_.traceString() << text );
   const std::size_t begin = text.find_first_not_of( " :" );
   reason_ = text.substr( begin, text.find_last_not_of( ' ' ) + 1 - begin );
   return false;
}

}
