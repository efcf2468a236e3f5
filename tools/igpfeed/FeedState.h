#pragma once

#include "tools/igpfeed/Daemon.h"
#include "tools/igpfeed/StateAccess.h"
#include "tools/lab/LabTable.h"

namespace IgpFeed {

/// Which topology table.
struct TableId {
   Cspf::TopoId topoId;
   Kivnet::AddressFamily af = Kivnet::AddressFamily::ipv4;
   Vrf vrf;

   auto operator<=>( const TableId & ) const = default;
   /// "routing/isis/topodb/ip/2/0/default"
   std::string path() const;
   /// Of its announcement: "igpfeed-isis-2-0-ipv4-default".
   std::string name() const;
};

/// What state holds on behalf of one daemon.
struct FeedContent {
   std::map< TableId, Lab::LabTable > tables;
   std::map< Vrf, Igp::IsisAdjacencies > adjacencies;
   std::map< Vrf, Routing::Isis::SystemId > systemIds;
   std::map< Vrf, Hostnames > hostnames;

   static FeedContent of( const Reading & reading );
   bool operator==( const FeedContent & ) const = default;
};

/// The daemon's own router, by table.
using Selves = std::map< TableId, Cspf::IgpRouterId >;

/// Whether `after` is a daemon's view that has come back to what it was: it has every router of
/// `before`, and every link to and from the daemon's own router.
bool comesUpTo( const FeedContent & after, const FeedContent & before, const Selves & selves );
/// Whether in each table of `before` the daemon's own router has a neighbour again that knows it.
bool isConnected( const FeedContent & after, const FeedContent & before, const Selves & selves );

/// Keeps that part of the state which one IGP writes: a table is filled before it is announced, and
/// its announcement goes before its content does. Only differences are written, in pieces.
class FeedState {
 public:
   /// Takes over what an earlier feed of the IGP left. Throws as StateAccess does, after which this
   /// object is of no more use, as after every other operation that throws.
   FeedState( StateAccess & access, Cspf::IgpSource igp );

   const FeedContent & standing() const { return standing_; }
   void write( const FeedContent & wanted );

 private:
   void writeTable( const TableId & id, const Lab::LabTable & wanted );
   void announce( const TableId & id, bool announced );
   void writeAdjacencies( const Vrf & vrf, const Igp::IsisAdjacencies & wanted );
   void writeHostnames( const Vrf & vrf, const Hostnames & wanted );
   void writeSystemId( const Vrf & vrf, const Routing::Isis::SystemId & wanted );
   void takeOver( const TableId & id );
   void takeOverIsis( const Vrf & vrf );

   StateAccess & access_;
   const Cspf::IgpSource igp_;
   FeedContent standing_;
};

}
