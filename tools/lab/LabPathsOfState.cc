// What clients ask for in the words of a lab.

#include "tools/lab/LabPathsOfState.h"

#include "tools/state/JsonText.h"

namespace Lab {

std::string
pathNameKey( const std::string & table, const Cspf::PathKey & key ) {
   return "path " + table + " " + State::toText( key );
}

namespace {

/// What the document calls the nodes of each VRF and family.
class NodeNames {
 public:
   explicit NodeNames( const LabDocument & document ) {
      for ( const auto & [ topologyName, topology ] : document.topologies ) {
         auto & names = names_[ { topology.vrf, topology.af } ];
         for ( const auto & [ name, router ] : topology.routers ) {
            names.emplace( Cspf::NodeId( router.id ), name );
            names.emplace( Cspf::NodeId( router.teRouterId ), name );
         }
      }
   }
   std::string of( const LabPath & path, const Cspf::NodeId & node ) const {
      const auto names = names_.find( { path.vrf, path.af } );
      if ( names == names_.end() ) {
         return {};
      }
      const auto name = names->second.find( node );
      return name == names->second.end() ? std::string() : name->second;
   }

 private:
   std::map< std::pair< Vrf, Af >, std::map< Cspf::NodeId, std::string > > names_;
};

LabConstraint
constraintOf( const LabDocument & document, const NodeNames & nodes, const LabPath & path,
              const std::string & client, const Cspf::PathConstraint & asked ) {
   const bool tilfa = client == tilfaClient;
   LabConstraint words;
   words.excludeIntf = asked.excludeIntf();
   if ( asked.excludeNode() ) {
      words.excludeNode = { nodes.of( path, asked.excludeNode().nodeId() ),
                            asked.excludeNode().nexthopIntf() };
   }
   words.excludeSrlg = asked.excludeSrlg();
   words.includeAllAdminGroup = asked.includeAllAdminGroup();
   words.includeAnyAdminGroup = asked.includeAnyAdminGroup();
   words.excludeAdminGroup = asked.excludeAdminGroup();
   for ( const auto & [ name, topology ] : document.topologies ) {
      if ( asked.topoId() && topology.vrf == path.vrf && topology.af == path.af
           && topology.id == asked.topoId() ) {
         words.topoId = name;
      }
   }
   words.srlgStrictMode = asked.srlgStrictMode();
   words.srlgExcludeOnlyLocalLinks = asked.srlgExcludeOnlyLocalLinks();
   words.bandwidth = asked.bandwidth();
   words.bwSetupPriority = asked.bwSetupPriority();
   words.sharedBwGroupId = asked.sharedBwGroupId();
   words.excludeLinkWithIp.assign( asked.excludeLinkWithIpList().begin(),
                                   asked.excludeLinkWithIpList().end() );
   for ( const auto & hop : asked.includeHopList() ) {
      words.includeHop.push_back( { hop.addr(), hop.loose() } );
   }
   words.includeHopAllExplicit = asked.includeHopAllExplicit();
   words.reversePath = asked.reversePath();
   const auto usual = tilfa ? Cspf::PathComputationType::tilfa : Cspf::PathComputationType::cspf;
   if ( asked.pathComputationType() != usual ) {
      words.pathComputationType = asked.pathComputationType();
   }
   if ( asked.sourceType() != Cspf::CspfSourceType::plr ) {
      words.sourceType = asked.sourceType();
   }
   if ( tilfa || asked.neighborLink() ) {
      words.neighborLink = asked.neighborLink();
   }
   if ( tilfa || asked.neighbor() ) {
      words.neighbor = asked.neighbor();
   }
   words.neighborSystemId = asked.neighborSystemId();
   words.maxRepairNodes = asked.maxRepairNodes();
   words.fallBackToLink = asked.fallBackToLink();
   words.noSpf = asked.noSpf();
   return words;
}

LabPath
pathOf( const LabDocument & document, const NodeNames & nodes, const ClientTable & table,
        const Cspf::PathConfig & asked ) {
   LabPath path;
   path.vrf = table.vrf;
   path.af = table.af;
   path.dst = asked.pathKey().dst();
   path.id = asked.pathKey().id();
   path.refreshReqSeq = asked.refreshReqSeq();
   path.autoUpdate = asked.autoUpdate();
   path.constraint = constraintOf( document, nodes, path, table.client, asked.constraint() );
   return path;
}

}

/// Paths are called by destination and id, as people name those of a running agent; the second one
/// of that name, in another VRF or family, by these as well.
void
readPaths( const Zorch::TableStore & tables, const LabNames & names, LabDocument & document ) {
   const std::string base = "te/cspf/config/vrf";
   const NodeNames nodes( document );
   for ( const std::string & path : tables.list( base ) ) {
      const auto words = Corvdb::pathComponents( path.substr( base.size() ) );
      const auto config = Lum::cast< Cspf::Config >( tables.table( path ) );
      if ( words.size() != 3 || !config ) {
         continue;
      }
      const ClientTable table{ words[ 2 ], words[ 0 ], words[ 1 ] == "ipv6" ? Af::ipv6 : Af::ipv4 };
      auto & paths = document.paths[ table.client ];
      for ( const auto & key : Lum::sortedKeys( config->pathConfigColl() ) ) {
         const auto named = names.find( pathNameKey( path, key ) );
         std::string name = named == names.end() ? State::toText( key ) : named->second;
         if ( paths.contains( name ) ) {
            name.insert( 0, words[ 0 ] + "/" + words[ 1 ] + "/" );
         }
         paths.emplace( name, pathOf( document, nodes, table, *config->pathConfigFind( key ) ) );
      }
   }
}

}
