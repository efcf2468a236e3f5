#pragma once

#include "tools/lab/LabOutcome.h"

#include <map>
#include <string>

namespace Lab {

/// What a person calls the routers of one VRF and family. What has no name stands as it is.
class RouterNames {
 public:
   RouterNames() = default;
   /// As the document names them, by TE router id, host prefix, interface address and system id.
   RouterNames( const LabDocument & document, const VrfAf & where );

   /// The first name of an address or system id stays.
   void nameIs( const Kivnet::IpGenAddr & address, const std::string & name ) {
      byAddress_.emplace( address, name );
   }
   void nameIs( const Routing::Isis::SystemId & id, const std::string & name ) {
      bySystemId_.emplace( id, name );
   }
   std::string of( const Kivnet::IpGenAddr & address ) const;
   std::string of( const Routing::Isis::SystemId & id ) const;
   /// "kansas-city (10.0.0.4)"
   std::string withText( const Cspf::Destination & destination ) const;

 private:
   void add( const LabTopology & topology );

   std::map< Kivnet::IpGenAddr, std::string > byAddress_;
   std::map< Routing::Isis::SystemId, std::string > bySystemId_;
};

}
