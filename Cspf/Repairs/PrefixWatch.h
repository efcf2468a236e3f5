#pragma once

#include "Cspf/Topology/Store.h"

#include <set>

namespace Cspf::Lfa {

/// Hears that a prefix came or went in a topology.
class PrefixListener {
 public:
   virtual void handlePfxOriginatorInfo( const Kivnet::IpGenPrefix & prefix ) = 0;

 protected:
   ~PrefixListener() = default;

 private:
   friend class PrefixWatch;
   std::uint64_t place_ = 0;  // in the order of those who came
};

/// Tells each listener of its own prefix alone, however many others there are, and those of one
/// prefix in the order in which they came.
///
///   watches                                   handler
///   AllTopoDbStatus.pfxOriginatorInfoTable    handlePfxOriginatorInfoTable
///   PfxOriginatorInfoTable.pfxOriginatorInfo  handlePfxOriginatorInfo
class PrefixWatch : public Lum::Reactor {
   LUM_ENTITY( Cspf::Lfa, PrefixWatch );
   explicit PrefixWatch( const Lum::Ptr< const AllTopoDbStatus > & allTopoDbStatus )
      : allTopoDbStatus_( allTopoDbStatus ) {}

   void handleInitialized() override;
   /// Not owned: it is taken back before the listener ends.
   void listenerIs( const Kivnet::IpGenPrefix & prefix, PrefixListener & listener ) {
      listener.place_ = ++lastPlace_;
      listeners_[ prefix ].insert( &listener );
   }
   void listenerDel( const Kivnet::IpGenPrefix & prefix, PrefixListener & listener );
   void handlePfxOriginatorInfoTable( const TopoId & topoId );
   void handlePfxOriginatorInfo( const Kivnet::IpGenPrefix & prefix );

 private:
   struct Earlier {
      bool operator()( const PrefixListener * a, const PrefixListener * b ) const {
         return a->place_ < b->place_;
      }
   };

   const Lum::Ptr< const AllTopoDbStatus > allTopoDbStatus_;
   Lum::Map< Kivnet::IpGenPrefix, std::set< PrefixListener *, Earlier > > listeners_;
   std::uint64_t lastPlace_ = 0;
};

}
