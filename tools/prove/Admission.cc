// The tests of links, each as its words say it: nothing is prepared but the sets that a request
// names by something else than links.

#include "tools/prove/TeNetwork.h"

#include <algorithm>

namespace Prove {

namespace {

constexpr std::uint64_t maximumLinkMetric = 0xFFFFFE;

std::string
hex( std::uint32_t mask ) {
   static const char * const digits = "0123456789abcdef";
   std::string text;
   for ( ; mask || text.empty(); mask >>= 4 ) {
      text.insert( text.begin(), digits[ mask & 15 ] );
   }
   return "0x" + text;
}

}

std::set< TrafficEngineering::SrlgId >
risksOf( const Snapshot & state, const Cspf::PathConstraint & constraint ) {
   std::set< TrafficEngineering::SrlgId > risks;
   const auto te = state.get< TrafficEngineering::Config >( "te/config" );
   if ( !te || !constraint.excludeSrlg() ) {
      return risks;
   }
   for ( const Kivnet::IntfId & intf :
         { constraint.excludeIntf(), constraint.excludeNode().nexthopIntf() } ) {
      if ( const auto * srlgs = te->intfSrlgFind( intf.stringValue() ); intf && srlgs ) {
         risks.insert( srlgs->begin(), srlgs->end() );
      }
   }
   return risks;
}

Admission::Admission( const TeNetwork & network, const Snapshot & state, std::uint32_t source,
                      const Cspf::PathConstraint & constraint, Holdings own )
   : network_( network ),
     source_( source ),
     constraint_( constraint ),
     own_( std::move( own ) ),
     risks_( risksOf( state, constraint ) ) {
   if ( constraint.excludeNode().nodeId() ) {
      excludedNodes_ = network.routers( constraint.excludeNode().nodeId() );
   }
}

std::uint64_t
Admission::conflicts( const Way & way ) const {
   if ( risks_.empty() || ( constraint_.srlgExcludeOnlyLocalLinks() && way.from != source_ ) ) {
      return 0;
   }
   return static_cast< std::uint64_t >( std::ranges::count_if(
      way.link->srlgList(), [ & ]( auto srlg ) { return risks_.contains( srlg ); } ) );
}

/// By what the link is, whatever is on it.
std::string
Admission::refusedLink( const Way & way ) const {
   if ( constraint_.topoId() && constraint_.topoId() != way.topology ) {
      return "is of topology " + way.topology.stringValue();
   }
   if ( way.from == source_ && constraint_.excludeIntf()
        && way.link->intfId() == constraint_.excludeIntf() ) {
      return "leaves by the excluded interface " + constraint_.excludeIntf().stringValue();
   }
   if ( excludedNodes_.contains( way.to ) ) {
      return "leads to the excluded router " + network_.id( way.to ).stringValue();
   }
   for ( const auto & address : constraint_.excludeLinkWithIpList() ) {
      if ( hasAddress( *way.link, address ) || ( !way.lan && way.arrivesAt( address ) ) ) {
         return "has the excluded address " + address.stringValue();
      }
   }
   return way.farOverloaded ? "leads to an overloaded router" : "";
}

bool
Admission::hasRoom( const Way & way, double & free ) const {
   const std::uint64_t asked = constraint_.bandwidth();
   if ( asked == 0 ) {
      return true;
   }
   const auto own = own_.find( { way.topology, way.link->key() } );
   free = way.link->unreservedBandwidth().at( std::min( constraint_.bwSetupPriority(), 7u ) );
   return free + static_cast< double >( own == own_.end() ? 0 : own->second )
          >= static_cast< double >( asked );
}

std::string
Admission::refusal( const Way & way ) const {
   if ( std::string link = refusedLink( way ); !link.empty() ) {
      return link;
   }
   const std::uint32_t group = way.link->adminGroup();
   if ( ( group & constraint_.includeAllAdminGroup() ) != constraint_.includeAllAdminGroup()
        || ( constraint_.includeAnyAdminGroup() && !( group & constraint_.includeAnyAdminGroup() ) )
        || ( group & constraint_.excludeAdminGroup() ) ) {
      return "has the admin groups " + hex( group );
   }
   if ( way.metric == 0 || way.metric > maximumLinkMetric ) {
      return "has the metric " + std::to_string( way.metric );
   }
   if ( constraint_.srlgStrictMode() && conflicts( way ) > 0 ) {
      return "shares a risk with an excluded interface";
   }
   double free = 0;
   if ( !hasRoom( way, free ) ) {
      return "has " + std::to_string( static_cast< std::uint64_t >( free ) ) + " left at priority "
             + std::to_string( constraint_.bwSetupPriority() ) + ", and "
             + std::to_string( constraint_.bandwidth() ) + " are asked for";
   }
   return "";
}

std::vector< Arc >
Admission::arcs() const {
   std::vector< Arc > arcs;
   for ( const Way & way : network_.ways() ) {
      if ( refusal( way ).empty() ) {
         arcs.push_back( { way.from, way.to, cost( way ) } );
      }
   }
   return arcs;
}

}
