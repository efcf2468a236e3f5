// A router is known by many addresses, and a person by none of them.

#include "tools/lab/RouterNames.h"

#include "tools/state/JsonText.h"

namespace Lab {

RouterNames::RouterNames( const LabDocument & document, const VrfAf & where ) {
   for ( const auto & [ topologyName, topology ] : document.topologies ) {
      if ( topology.vrf == where.vrf && topology.af == where.af ) {
         add( topology );
      }
   }
}

std::string
RouterNames::of( const Kivnet::IpGenAddr & address ) const {
   const auto at = byAddress_.find( address );
   return at == byAddress_.end() ? address.stringValue() : at->second;
}

std::string
RouterNames::of( const Routing::Isis::SystemId & id ) const {
   const auto at = bySystemId_.find( id );
   return at == bySystemId_.end() ? id.stringValue() : at->second;
}

std::string
RouterNames::withText( const Cspf::Destination & destination ) const {
   const std::string text = State::toText( destination );
   std::string name = text;
   if ( const auto id = destination.isisSystemId() ) {
      name = of( id );
   } else if ( const auto address = destination.ipAddress() ) {
      name = of( address );
   } else if ( destination.ipPrefix().isHost() ) {
      name = of( destination.ipPrefix().address() );
   }
   return name == text || name == destination.ipPrefix().address().stringValue()
             ? text
             : name + " (" + text + ")";
}

void
RouterNames::add( const LabTopology & topology ) {
   for ( const auto & [ name, router ] : topology.routers ) {
      if ( router.teRouterId ) {
         nameIs( router.teRouterId, name );
      }
      for ( const auto & [ prefix, metric ] : router.prefixes ) {
         if ( prefix.isHost() ) {
            nameIs( prefix.address(), name );
         }
      }
      if ( topology.id.igpSource() == Cspf::IgpSource::isis ) {
         nameIs( router.id.isisSystemId(), name );
      }
   }
   const auto addAll = [ & ]( const Addresses & addresses, const std::string & name ) {
      for ( const auto & address : addresses ) {
         nameIs( address, name );
      }
   };
   for ( const auto & [ linkName, link ] : topology.links ) {
      addAll( link.a.addrs, link.a.router );
      addAll( link.b.addrs, link.b.router );
   }
   for ( const auto & [ lanName, lan ] : topology.lans ) {
      for ( const auto & [ router, member ] : lan.members ) {
         addAll( member.addrs, router );
      }
   }
}

}
