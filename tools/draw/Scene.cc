// The network as it is drawn. Nodes are TE routers, joined over the topologies by TE router id, and
// whatever else a topology has; edges keep their identity by the names of links.

#include "tools/draw/Scene.h"

#include "tools/draw/Routes.h"
#include "tools/draw/Titles.h"
#include "tools/text/Plain.h"

#include <algorithm>
#include <cmath>

namespace Draw {

using namespace Lab;

double
Scene::width( const Look & edge ) const {
   return leastFree < mostFree ? 0.8 + 3.2 * std::sqrt( edge.free / mostFree ) : 1.5;
}

std::size_t
SceneMaker::nodeIs( const std::string & key, const std::string & name ) {
   const auto [ at, isNew ] = nodeNumbers_.try_emplace( key, scene_.nodes.size() );
   if ( isNew ) {
      scene_.nodes.push_back( { "n" + std::to_string( at->second ), name, false, false, {} } );
   }
   auto & looks = scene_.moments.back().nodes;
   looks.resize( scene_.nodes.size() );
   looks[ at->second ].up = true;
   return at->second;
}

Look &
SceneMaker::edgeIs( const std::string & topology, const std::string & name, std::size_t a,
                    std::size_t b ) {
   const auto [ at, isNew ] = edgeNumbers_.try_emplace( { topology, name }, scene_.edges.size() );
   if ( isNew ) {
      scene_.edges.push_back( { "e" + std::to_string( at->second ), a, b } );
   }
   auto & looks = scene_.moments.back().edges;
   looks.resize( scene_.edges.size() );
   return looks[ at->second ];
}

void
SceneMaker::addRouters( const LabDocument & document, const LabTopology & topology,
                        const std::string & topologyName ) {
   for ( const auto & [ name, router ] : topology.routers ) {
      const std::size_t number = nodeIs( nodeKey( topologyName, name, router ), name );
      Node & node = scene_.nodes[ number ];
      node.self = name == document.router;
      node.at = router.at ? router.at : node.at;
      std::string & title = scene_.moments.back().nodes[ number ].title;
      title += ( title.empty() ? name : "" ) + "\n" + routerTitle( topologyName, router );
   }
}

void
SceneMaker::addLinks( const LabTopology & topology, const std::string & topologyName ) {
   const auto node = [ & ]( const std::string & name ) {
      return nodeIs( nodeKey( topologyName, name, topology.routers.at( name ) ), name );
   };
   for ( const auto & [ name, link ] : topology.links ) {
      Look & look = edgeIs( topologyName, name, node( link.a.router ), node( link.b.router ) );
      look.up = link.ab.advertised && link.ba.advertised;
      look.free = std::min( freeOf( link.ab.attributes ), freeOf( link.ba.attributes ) );
      look.label = metricLabel( link );
      look.title = linkTitle( topologyName, name, link );
   }
}

void
SceneMaker::addLans( const LabTopology & topology, const std::string & topologyName ) {
   for ( const auto & [ name, lan ] : topology.lans ) {
      const std::size_t number = nodeIs( lanKey( topologyName, name ), name );
      scene_.nodes[ number ].lan = true;
      scene_.moments.back().nodes[ number ].title = lanTitle( topologyName, name, lan );
      for ( const auto & [ router, member ] : lan.members ) {
         const std::size_t from =
            nodeIs( nodeKey( topologyName, router, topology.routers.at( router ) ), router );
         Look & look = edgeIs( topologyName, memberKey( name, router ), from, number );
         look.up = member.attached;
         look.free = freeOf( member.attributes );
         look.label = std::to_string( metricOf( member.attributes ) );
         look.title = memberTitle( topologyName, name, router, member );
      }
   }
}

void
SceneMaker::add( const LabDocument & document, const Prove::Snapshot & state,
                 const std::string & text ) {
   scene_.moments.push_back( { text, {}, {}, {} } );
   for ( const auto & [ name, topology ] : document.topologies ) {
      if ( topology.vrf == where_.vrf && topology.af == where_.af ) {
         addRouters( document, topology, name );
         addLinks( topology, name );
         addLans( topology, name );
      }
   }
   scene_.moments.back().routes =
      RouteFinder( where_, document, nodeNumbers_, edgeNumbers_ ).routes( state );
}

/// Names are anybody's: what pictures and pages cannot hold is not in a scene.
void
SceneMaker::makePlain() {
   for ( Node & node : scene_.nodes ) {
      node.name = Text::plain( node.name );
   }
   for ( Moment & moment : scene_.moments ) {
      moment.text = Text::plainLines( moment.text );
      for ( auto * const looks : { &moment.nodes, &moment.edges } ) {
         for ( Look & look : *looks ) {
            look.title = Text::plainLines( look.title );
         }
      }
      for ( Route & route : moment.routes ) {
         route.name = Text::plain( route.name );
         route.text = Text::plain( route.text );
      }
   }
}

Scene
SceneMaker::take() {
   makePlain();
   for ( Moment & moment : scene_.moments ) {
      moment.nodes.resize( scene_.nodes.size() );
      moment.edges.resize( scene_.edges.size() );
      for ( const Look & look : moment.edges ) {
         if ( look.up ) {
            scene_.leastFree = std::min( scene_.leastFree, look.free );
            scene_.mostFree = std::max( scene_.mostFree, look.free );
         }
      }
   }
   return std::move( scene_ );
}

}
