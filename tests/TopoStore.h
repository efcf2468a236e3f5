#pragma once

#include "Cspf/Runs/Run.h"
#include "Cspf/Topology/AllTopoDbSm.h"
#include "platform/Lum/ActivityLoop.h"
#include "tests/LabText.h"
#include "tools/lab/LabFile.h"
#include "tools/lab/LabRecords.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace Cspf {

inline Kivnet::IpGenAddr
ip( const std::string & text ) {
   return *Kivnet::IpGenAddr::parse( text );
}

/// The elements, with blanks between them.
template< class List >
std::string
text( const List & list ) {
   std::string all;
   for ( const auto & element : list ) {
      all += ( all.empty() ? "" : " " ) + Lum::valueString( element );
   }
   return all;
}

/// The store of one VRF, filled as the IGPs would from the topologies of a lab. This router has the
/// TE router id 10.0.0.1.
struct TopoStore {
   explicit TopoStore( const nlohmann::json & topologies, const char * router = "A" ) {
      const nlohmann::json document{ { "router", router }, { "topologies", topologies } };
      const auto lab = Lab::LabFile::parse( document.dump() );
      Lab::LabLinkIds linkIds;
      for ( const auto & [ name, topology ] : lab.document().topologies ) {
         tables[ topology.id ] = Lum::make< Routing::Topology::TopoDb >();
         Lab::writeTable( *tables[ topology.id ], Lab::tableOf( name, topology, linkIds ) );
         allTopoDb->topoDbIs( topology.id, tables[ topology.id ] );
      }
      sourceId->vrfClientSourceIdIs( PathComputationType::cspf,
                                     { PathComputationType::cspf, us, Lum::now() } );
      status = Lum::make< AllTopoDbStatus >( sourceId, nullptr );
      importer = Lum::make< AllTopoDbSm >( allTopoDb, status );
   }
   explicit TopoStore( const char * topology )
      : TopoStore( nlohmann::json{ { "core", labTopology( topology ) } } ) {}
   ~TopoStore() { Lum::retire( importer ); }

   /// A run whose attributes `prepare` may change.
   template< class Prepare >
   Lum::Ptr< CspfData > run( const InternalPathConstraint & constraint,
                             const std::vector< std::string > & teps, Prepare prepare ) {
      view = Lum::make< AllTopoTeDbView >( allTopoDb, status, constraint );
      const auto data = Lum::make< CspfData >();
      data->sourceIs( us );
      data->useTeMetricIs( true );
      prepare( *data );
      for ( const auto & tep : teps ) {
         data->tepIs( ip( tep ) );
      }
      CspfRun( memory, *data, view );
      return data;
   }
   /// "10.64.0.3 10.64.0.5" of a plain run, or "-"; kept to `last` where that is possible.
   std::string path( const std::string & tep, const InternalPathConstraint & constraint = {} ) {
      return path( *run( constraint, { tep }, []( CspfData & ) {} ), tep );
   }
   std::string path( const CspfData & data, const std::string & tep ) {
      if ( !data.routerWithTepHas( ip( tep ) ) ) {
         return "-";
      }
      const CspfPathResult before = last;
      const PathArray::Hops none;
      const auto old = [ & ]() -> CspfOldPath {
         return { before.path ? before.path->path() : none,
                  before.pathTeRouterId ? before.pathTeRouterId->pathTeRouterId() : none };
      };
      EXPECT_TRUE( data.fillHopByHopPathForTep( ip( tep ), old, last ) );
      return text( last.path->path() );
   }

   const NodeId us{ ip( "10.0.0.1" ) };
   Lum::ActivityLoop loop{ Lum::ActivityLoop::Time::virtualTime };
   std::map< TopoId, Lum::Ptr< Routing::Topology::TopoDb > > tables;
   Lum::Ptr< AllTopoDb > allTopoDb = Lum::make< AllTopoDb >();
   Lum::Ptr< VrfSourceId > sourceId = Lum::make< VrfSourceId >( L3::VrfName( "default" ) );
   Lum::Ptr< AllTopoDbStatus > status;
   Lum::Ptr< AllTopoDbSm > importer;
   Lum::Ptr< AllTopoDbView > view;
   CspfRunMemory memory;
   CspfPathResult last;
};

}
