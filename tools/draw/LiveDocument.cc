#include "tools/draw/LiveDocument.h"

#include "schema/Isis.h"
#include "tools/prove/Steps.h"

#include <set>

namespace Draw {

using namespace Lab;
using namespace Routing::Topology;

namespace {

LabLinkAttributes
attributesOf( const Neighbor & link ) {
   LabLinkAttributes attributes;
   attributes.metric = link.metric();
   attributes.teMetric = link.teMetric();
   attributes.adminGroup = link.adminGroup();
   attributes.bandwidth = link.maxLinkBandwidth();
   attributes.unreserved = link.unreservedBandwidth();
   attributes.srlg.assign( link.srlgList().begin(), link.srlgList().end() );
   return attributes;
}

class TopologyMaker {
 public:
   TopologyMaker( const TopoDb & table, const Routing::Isis::Hostnames * hostnames )
      : table_( table ) {
      for ( const auto & [ id, router ] : table.routerColl() ) {
         addRouter( id, router, hostnames ? hostnames->hostname( id.isisSystemId() ) : "" );
      }
      addLinks();
      for ( const auto & [ id, network ] : table.networkColl() ) {
         addLan( network );
      }
   }

   LabTopology topology;

 private:
   void addRouter( const IgpRouterId & id, const Router & router, std::string name ) {
      if ( name.empty() ) {
         name = router.teRouterId() ? router.teRouterId().stringValue() : id.stringValue();
      }
      if ( topology.routers.contains( name ) ) {
         name += " (" + id.stringValue() + ")";
      }
      LabRouter & made = topology.routers[ name ];
      made.id = id;
      made.teRouterId = router.teRouterId();
      made.overload = router.overload();
      if ( const Reachability * reachability = table_.reachabilityFind( id ) ) {
         for ( const auto & prefix : reachability->prefixSet() ) {
            made.prefixes[ prefix.prefix() ] = prefix.metric();
         }
      }
      names_[ id ] = name;
   }

   LabLinkEnd endOf( const Neighbor & link ) const {
      LabLinkEnd end{ names_.at( link.key().routerId() ), link.intfId(), {} };
      end.addrs.assign( link.interfaceAddrList().begin(), link.interfaceAddrList().end() );
      return end;
   }
   void linkIs( LabLink link ) {
      std::string name = link.a.router + "-" + link.b.router;
      for ( int i = 2; topology.links.contains( name ); ++i ) {
         name = link.a.router + "-" + link.b.router + " " + std::to_string( i );
      }
      topology.links.emplace( name, std::move( link ) );
   }

   /// Those of two ends, then those of which one end alone speaks.
   void addLinks() {
      std::set< NeighborKey > paired;
      for ( const Prove::Step & step : Prove::stepsOf( table_, Prove::TwoWay::unlessDenied ) ) {
         if ( !step.lan && paired.insert( step.link->key() ).second ) {
            paired.insert( step.back->key() );
            linkIs( { endOf( *step.link ),
                      endOf( *step.back ),
                      { true, attributesOf( *step.link ) },
                      { true, attributesOf( *step.back ) } } );
         }
      }
      for ( const auto & [ key, link ] : table_.neighborColl() ) {
         if ( key.neighborType() == p2p() && !paired.contains( key )
              && names_.contains( key.routerId() ) && names_.contains( key.neighborId() ) ) {
            LabLink one{ endOf( link ),
                         { names_.at( key.neighborId() ), {}, {} },
                         { true, attributesOf( link ) },
                         { false, attributesOf( link ) } };
            linkIs( std::move( one ) );
         }
      }
   }

   void addLan( const Network & network ) {
      const IgpRouterId & id = network.networkId().id();
      LabLan & lan = topology.lans[ id.stringValue() ];
      const auto owner = names_.find( IgpRouterId( id.isisSystemId() ) );
      lan.dr = owner == names_.end() ? id.stringValue() : owner->second;
      for ( const auto & [ key, link ] : table_.neighborColl() ) {
         if ( key.neighborId() == id && names_.contains( key.routerId() ) ) {
            const LabLinkEnd end = endOf( link );
            lan.members[ end.router ] = { end.intf, end.addrs, attributesOf( link ),
                                          network.routerHas( key.routerId() ) };
         }
      }
   }

   const TopoDb & table_;
   std::map< IgpRouterId, std::string > names_;
};

}

LabDocument
liveDocument( const Prove::Snapshot & state, const VrfAf & where ) {
   LabDocument document;
   const auto hostnames =
      state.get< Routing::Isis::Hostnames >( "routing/isis/hostname/" + where.vrf.stringValue() );
   const auto self = Prove::teRouterIdOf( state );
   for ( const auto & [ id, table ] : Prove::topologiesOf( state, where.vrf, where.af ) ) {
      const bool isis = id.igpSource() == Cspf::IgpSource::isis;
      LabTopology made =
         TopologyMaker( *table, isis && hostnames ? &*hostnames : nullptr ).topology;
      made.vrf = where.vrf;
      made.af = where.af;
      made.id = id;
      for ( const auto & [ name, router ] : made.routers ) {
         if ( self && router.teRouterId == self ) {
            document.router = name;
         }
      }
      document.topologies.emplace( Lum::enumName( id.igpSource() ) + "-"
                                      + std::to_string( id.number1() ) + "-"
                                      + std::to_string( id.number2() ),
                                   std::move( made ) );
   }
   return document;
}

}
