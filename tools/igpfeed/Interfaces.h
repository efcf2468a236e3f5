#pragma once

#include "platform/Lum/ActivityLoop.h"
#include "tools/igpfeed/StateAccess.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

struct nlmsghdr;

namespace IgpFeed {

/// What the kernel says of one interface.
struct KernelLink {
   std::string name;
   bool ethernet = false;
   bool up = false;         ///< administratively, and with a carrier
   std::string kind;        ///< "" for a device, else "bond", "veth", "bridge", ...
   std::string masterKind;  ///< of what it is a part of: "bond" for a member of an aggregate
};

/// Bytes per second by interface name.
using Bandwidths = std::map< std::string, std::uint64_t >;

struct InterfaceBandwidths {
   Bandwidths physical;
   Bandwidths aggregates;

   bool operator==( const InterfaceBandwidths & ) const = default;
};

/// The interface of one message of rtnetlink(7); nothing for any other message, such as one of a
/// bridge about its port.
std::optional< std::pair< int, KernelLink > > readLink( const nlmsghdr & message );

/// The interfaces whose bandwidth may be reserved: Ethernet that is up and knows its speed. An
/// aggregate stands for its members. `speed( name )`: bytes per second, 0 where it is not known.
InterfaceBandwidths
bandwidthsOf( const std::map< int, KernelLink > & links,
              const std::function< std::uint64_t( const std::string & ) > & speed );

/// Keeps the bandwidth of the interfaces in the state current with the kernel of this network
/// namespace.
class InterfaceFeed {
 public:
   using OpenState = std::function< std::unique_ptr< StateAccess >() >;
   /// Throws std::runtime_error where the kernel cannot be asked. The loop outlives this object.
   InterfaceFeed( Lum::ActivityLoop & loop, OpenState openState );
   ~InterfaceFeed();
   InterfaceFeed( const InterfaceFeed & ) = delete;
   InterfaceFeed & operator=( const InterfaceFeed & ) = delete;

 private:
   void askForAll();
   void handleMessages();
   void tick();
   void write();
   std::uint64_t speed( const std::string & name ) const;

   Lum::ActivityLoop & loop_;
   const OpenState openState_;
   Lum::ActivityLoop::TimerId timer_;
   int netlink_ = -1;
   int control_ = -1;
   std::map< int, KernelLink > links_;
   bool changed_ = false;   ///< since the last write
   bool complete_ = false;  ///< all interfaces have been heard of
   std::unique_ptr< StateAccess > access_;
   InterfaceBandwidths written_;
   std::string trouble_;
};

}
