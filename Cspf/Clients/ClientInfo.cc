// Records that the intake of clients and the services of one address family share. Nothing here
// watches anything: the intake writes, the services read.

#include "Cspf/Clients/ClientInfo.h"

#include "platform/Kiv/DumpContext.h"

namespace Cspf {

Lum::Ptr< TeConfigDir >
teConfigDirFactory() {
   return Lum::make< TeConfigDir >();
}

Lum::Ptr< DedupVrfHandle >
CspfActiveVrfsDedupTable::dedupFromVrfName( const L3::VrfName & vrf ) {
   return dedup( dedupVrfHandleFactory( vrf ) );
}

void
AllClientInfo::handleInitialized() {
   activeVrfsDedupTableIs();
   initializedIs( true );
}

void
AllClientInfo::vrfSourceIdDelIfUnused( const L3::VrfName & vrf ) {
   const auto & sources = vrfSourceId( vrf );
   const bool isActive = vrfChangeHas( vrf ) || pathStatusInfoTableHas( vrf );
   if ( sources && sources->vrfClientSourceIds() == 0 && !isActive ) {
      vrfSourceIdDel( vrf );
   }
}

void
AllClientInfo::vrfChangeEnds( const L3::VrfName & vrf ) {
   const auto change = vrfChange( vrf );
   vrfChangeDel( vrf );
   change->isOverIs( true );
}

void
ClientData::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cisisAdjacencyInfo: %p\n",
                   static_cast< const void * >( isisAdjacencyInfo().ptr() ) );
}

void
AllClientInfo::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cSource ID per vrf per client\n" );
   for ( const auto & [ vrf, sources ] : vrfSourceIdColl() ) {
      context.printf( indent, "%*cVrf: %s\n", vrf.stringValue().c_str() );
      for ( const auto & [ type, source ] : sources->vrfClientSourceIdColl() ) {
         context.printf( indent, "%*c Client: %d, sourceId: %s\n", static_cast< int >( type ),
                         source.sourceId().stringValue().c_str() );
         context.dumpAge( indent, " Last client source ID change", source.changedAt() );
      }
   }
   context.printf( indent, "%*cClientData per vrf\n" );
   for ( const auto & [ vrf, data ] : clientDataColl() ) {
      context.printf( indent, "%*cVrf: %s\n", vrf.stringValue().c_str() );
      context.dump( *data, indent + 2 );
   }
}

}
