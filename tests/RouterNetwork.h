#pragma once

#include "tests/RunnerProcess.h"

#include <map>
#include <set>
#include <string>

/// What a router forwards by: its own routes to the loopbacks of the others.
struct RouterRoute {
   unsigned cost = 0;
   std::set< std::string > nextHops;
};

/// Six real routers r1 to r6 in network namespaces of their own; router n has the loopback 10.0.0.n
/// and the system id 0000.0000.000n. A namespace "red" has a link "lred" to r4, which is in both
/// levels of IS-IS there, and in another area of OSPF. They are gone with the object.
class RouterNetwork {
 public:
   /// Why there can be no such network here; empty where there can.
   static std::string missing();

   /// Brings the routers up. Throws std::runtime_error. `withVrf`: "red" is a VRF of r1, which no
   /// daemon uses yet.
   explicit RouterNetwork( bool withVrf = false );
   ~RouterNetwork();
   RouterNetwork( const RouterNetwork & ) = delete;
   RouterNetwork & operator=( const RouterNetwork & ) = delete;

   std::string namespaceOf( const std::string & router ) const { return prefix_ + "-" + router; }
   std::string vtyDirectory( const std::string & router ) const { return directory_ / router; }
   /// What the daemon prints; "" while it does not answer.
   std::string ask( const std::string & router, const std::string & daemon,
                    const std::string & command ) const;
   void configure( const std::string & router, const std::string & daemon,
                   const std::vector< std::string > & lines ) const;
   void interfaceIs( const std::string & router, const std::string & name, bool up ) const;
   void kill( const std::string & router, const std::string & daemon ) const;
   void start( const std::string & router, const std::string & daemon ) const;
   /// Takes everything down; gives what is left of it, which should be nothing.
   std::string down();

   /// Routes of r1 to the loopbacks, by loopback.
   std::map< std::string, RouterRoute > isisRoutes() const;
   std::map< std::string, RouterRoute > ospfRoutes() const;
   /// Labels of r1's repair of the loopback, the one of the destination included; empty for none.
   std::map< std::string, std::vector< unsigned > > repairLabels() const;

 private:
   TemporaryDirectory directory_;
   std::string prefix_;  ///< of the namespaces; empty once they are gone
};
