// What a run found, and what it counted, in the words of the topology. The tree keeps numbers; each
// answer translates the few that it needs.

#include "Cspf/Runs/RunData.h"

#include "Cspf/Records/PathRows.h"
#include "Cspf/Runs/RunWords.h"
#include "Cspf/Views/View.h"

#include <algorithm>
#include <stdexcept>
#include <tuple>

namespace Cspf {

std::string
CspfPathCost::stringValue() const {
   return std::to_string( metricCost_ ) + "|SE-" + std::to_string( srlgExcludeInfo_ ) + "|SI-"
          + std::to_string( srlgIncludeInfo_ );
}

std::strong_ordering
CspfPathCost::operator<=>( const CspfPathCost & other ) const {
   return std::tie( srlgExcludeInfo_, srlgIncludeInfo_, metricCost_ )
          <=> std::tie( other.srlgExcludeInfo_, other.srlgIncludeInfo_, other.metricCost_ );
}

CspfLinkInfoKey::CspfLinkInfoKey( const AllTopoNeighborKey & link, const NodeId & router,
                                  const CspfPathCost & pathCost )
   : allTopoNeighborKey_( link ),
     routerInNetwork_( router ),
     cost_( pathCost ) {
   if ( router && !link.isLan() ) {
      const auto neighborType = static_cast< unsigned >( link.neighborKey().neighborType() );
      throw std::invalid_argument( "Link with neighborType " + std::to_string( neighborType )
                                   + " and routerInNetwork are not compatible" );
   }
}

bool
CspfLinkInfoKey::equalCost( const CspfLinkInfoKey & other ) const {
   if ( !routerLink() || !other.routerLink() ) {
      throw std::invalid_argument( "Only router links are comparable" );
   }
   return cost_ == other.cost_;
}

std::strong_ordering
CspfLinkInfoKey::operator<=>( const CspfLinkInfoKey & other ) const {
   const auto kind = []( const CspfLinkInfoKey & key ) {
      return !key.allTopoNeighborKey_.isLan() ? 1 : key.routerInNetwork_ ? 2 : 0;
   };
   if ( const auto order = std::tuple( cost_, kind( *this ), routerInNetwork_ )
                           <=> std::tuple( other.cost_, kind( other ), other.routerInNetwork_ );
        order != 0 ) {
      return order;
   }
   return allTopoNeighborKey_ <=> other.allTopoNeighborKey_;
}

CspfData::CspfData() : work_( std::make_unique< Work >() ) {}
CspfData::~CspfData() = default;

// What rows know as a run's info is the run's data.

Lum::Ptr< CspfData >
ConstraintInfo::cspfData() const {
   return static_cast< CspfData * >( runInfo().ptr() );
}

void
ConstraintInfo::cspfDataIs( const Lum::Ptr< CspfData > & cspfData ) {
   runInfoIs( cspfData );
}

Lum::Ptr< CspfData >
PathStatusCache::cspfData() const {
   return static_cast< CspfData * >( runInfo().ptr() );
}

void
PathStatusCache::cspfDataIs( const Lum::Ptr< CspfData > & cspfData ) {
   runInfoIs( cspfData );
}

bool
CspfData::tepHas( const Kivnet::IpGenAddr & tep ) const {
   return work_ && std::ranges::find( work_->teps, tep, &Tep::tep ) != work_->teps.end();
}

bool
CspfData::hasTree() const {
   return work_ && work_->view && withTree( [ this ]( const auto & tree ) {
             return tree.graphVersion() == work_->view->graph().version();
          } );
}

std::size_t
CspfData::shortestPaths() const {
   return work_->tree.reachedVertices().size() - shortestPathForNetworks();
}

std::size_t
CspfData::shortestPathForNetworks() const {
   return static_cast< std::size_t >(
      std::ranges::count_if( work_->tree.reachedVertices(), [ this ]( CspfVertex vertex ) {
         return work_->view->graph().isNetwork( vertex );
      } ) );
}

const CspfData::Tep *
CspfData::findTep( const Kivnet::IpGenAddr & tep ) const {
   const auto at = std::ranges::lower_bound( work_->teps, tep, {}, &Tep::tep );
   return at != work_->teps.end() && at->tep == tep ? &*at : nullptr;
}

CspfVertex
CspfData::vertexWithTep( const Kivnet::IpGenAddr & tep ) const {
   const Tep * found = findTep( tep );
   return found ? found->router : noVertex;
}

NodeId
CspfData::routerWithTep( const Kivnet::IpGenAddr & tep ) const {
   const CspfVertex router = vertexWithTep( tep );
   return router == noVertex ? NodeId() : work_->view->topoGraph().nodeId( router );
}

bool
CspfData::routerWithTepHas( const Kivnet::IpGenAddr & tep ) const {
   return vertexWithTep( tep ) != noVertex;
}

std::size_t
CspfData::routerWithTeps() const {
   return static_cast< std::size_t >( std::ranges::count_if(
      work_->teps, []( const Tep & tep ) { return tep.router != noVertex; } ) );
}

bool
CspfData::shortestPathHas( const NodeId & router ) const {
   const CspfVertex vertex = work_->view->topoGraph().vertex( router );
   return vertex != noVertex && shortestPathHas( vertex );
}

CspfPath
CspfData::shortestPath( const NodeId & router ) const {
   return shortestPathTo( work_->view->topoGraph().vertex( router ), router );
}

bool
CspfData::shortestPathForNetworkHas( const AllTopoNetworkId & network ) const {
   const CspfVertex vertex = work_->view->topoGraph().vertex( network );
   return vertex != noVertex && work_->tree.reached( vertex );
}

CspfPath
CspfData::shortestPathForNetwork( const AllTopoNetworkId & network ) const {
   return shortestPathTo( work_->view->topoGraph().vertex( network ),
                          NodeId( network.networkId().id() ) );
}

CspfPath
CspfData::shortestPathTo( CspfVertex vertex, const NodeId & node ) const {
   const TopoGraph & topology = work_->view->topoGraph();
   const CspfVertex own = topology.vertex( work_->view->getOurSourceId() );
   const CspfRunWords words{ topology, work_->tree };
   CspfPath path;
   path.nodeIdIs( node );
   if ( vertex == noVertex || !work_->tree.reached( vertex ) ) {
      return path;
   }
   for ( const CspfEdge edge : work_->tree.lastLinks( vertex ) ) {
      const std::uint32_t interface = work_->tree.firstHopInterface( topology.graph(), edge, own );
      path.lastLinkIs( { words.linkInfoKey( edge ), Kivnet::IntfId::fromNumber( interface ) } );
   }
   return path;
}

std::uint32_t
CspfData::getLinkMetric( const AllTopoNeighborKey & link ) const {
   const Routing::Topology::Neighbor * neighbor = work_->view->neighbor( link );
   return !neighbor       ? 0
          : useTeMetric() ? neighbor->teMetric().value_or( neighbor->metric() )
                          : neighbor->metric();
}

std::uint32_t
CspfData::getReverseLinkMetric( const AllTopoNeighborKey & link ) const {
   return work_->view->getReverseLinkMetric( link, useTeMetric() );
}

std::uint32_t
CspfData::getReverseMetricNetwork( const AllTopoNetworkId & network, const NodeId & router ) const {
   const AllTopoRouter record = work_->view->router( router );
   std::uint32_t least = 0;
   for ( const AllTopoNeighborKey & link : record.neighborSet() ) {
      if ( link.isLan() && link.allTopoNetworkId() == network ) {
         const std::uint32_t metric = getLinkMetric( link );
         least = least == 0 ? metric : std::min( least, metric );
      }
   }
   return least;
}

Kivnet::IpGenAddr
CspfData::nexthopOnLink( const CspfLinkInfoKey & link ) const {
   return link.routerInNetwork()
             ? work_->view->nexthopOnLanLink( link.allTopoNeighborKey(), link.routerInNetwork() )
             : work_->view->nexthopOnP2pLink( link.allTopoNeighborKey() );
}

Kivnet::IpGenAddr
CspfData::teRouterIdOfNexthopOnLink( const CspfLinkInfoKey & link ) const {
   return link.routerInNetwork() ? link.routerInNetwork().ipAddress()
                                 : link.allTopoNeighborKey().neighborId().ipAddress();
}

}
