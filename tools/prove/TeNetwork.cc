// Routers by TE router id, and the ways between them.

#include "tools/prove/TeNetwork.h"

namespace Prove {

using Kivnet::IpGenAddr;

TeNetwork::TeNetwork( const Snapshot & state, const Vrf & vrf, Af af ) {
   for ( const Topology & topology : topologiesOf( state, vrf, af ) ) {
      add( topology );
   }
   leaving_.resize( ids_.size() );
   for ( std::size_t i = 0; i < ways_.size(); ++i ) {
      leaving_[ ways_[ i ].from ].push_back( i );
   }
}

std::uint32_t
TeNetwork::nodeIs( const IpGenAddr & id ) {
   const auto [ at, fresh ] = nodes_.try_emplace( id, static_cast< std::uint32_t >( ids_.size() ) );
   if ( fresh ) {
      ids_.push_back( id );
   }
   return at->second;
}

void
TeNetwork::add( const Topology & topology ) {
   const auto & table = *topology.table;
   tables_.push_back( topology.table );
   std::unordered_map< Cspf::IgpRouterId, std::uint32_t, Lum::Hash > numbers;
   std::set< std::uint32_t > taken;
   for ( const auto & [ id, router ] : table.routerColl() ) {
      if ( router.teRouterId() ) {
         const std::uint32_t node = nodeIs( router.teRouterId() );
         numbers[ id ] = node;
         ambiguous_ = ambiguous_ || !taken.insert( node ).second;
         owners_[ router.teRouterId() ].insert( node );
         byIgpId_[ Cspf::NodeId( id ) ].insert( node );
      }
   }
   for ( const auto & [ key, link ] : table.neighborColl() ) {
      if ( const auto owner = numbers.find( key.routerId() ); owner != numbers.end() ) {
         for ( const auto & address : link.interfaceAddrList() ) {
            owners_[ address ].insert( owner->second );
         }
      }
   }
   for ( const auto & [ id, reachability ] : table.reachabilityColl() ) {
      const auto owner = numbers.find( id );
      for ( const auto & prefix : reachability.prefixSet() ) {
         if ( owner != numbers.end() && prefix.prefix().isHost() ) {
            owners_[ prefix.prefix().address() ].insert( owner->second );
         }
      }
   }
   for ( const Step & step : stepsOf( table, TwoWay::addresses ) ) {
      const auto from = numbers.find( step.from() ), to = numbers.find( step.to() );
      if ( from != numbers.end() && to != numbers.end() && from->second != to->second ) {
         Way way( step, topology.id );
         way.from = from->second;
         way.to = to->second;
         way.metric = step.link->teMetric().value_or( step.link->metric() );
         way.farOverloaded = table.routerFind( step.to() )->overload();
         ways_.push_back( way );
      }
   }
}

std::optional< std::uint32_t >
TeNetwork::node( const IpGenAddr & id ) const {
   const auto at = nodes_.find( id );
   return at == nodes_.end() ? std::nullopt : std::optional( at->second );
}

const std::set< std::uint32_t > &
TeNetwork::owners( const IpGenAddr & address ) const {
   static const std::set< std::uint32_t > none;
   const auto at = owners_.find( address );
   return at == owners_.end() ? none : at->second;
}

std::set< std::uint32_t >
TeNetwork::routers( const Cspf::NodeId & id ) const {
   if ( const auto known = node( id.ipAddress() );
        known && id.type() == Cspf::VertexType::ipAddress ) {
      return { *known };
   }
   const auto at = byIgpId_.find( id );
   return at == byIgpId_.end() ? std::set< std::uint32_t >() : at->second;
}

std::vector< const Way * >
TeNetwork::hop( std::uint32_t from, const IpGenAddr & to, const IpGenAddr & address ) const {
   std::vector< const Way * > found;
   for ( const std::size_t i : leaving_[ from ] ) {
      if ( id( ways_[ i ].to ) == to && ways_[ i ].arrivesAt( address ) ) {
         found.push_back( &ways_[ i ] );
      }
   }
   return found;
}

}
