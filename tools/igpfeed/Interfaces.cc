// The kernel tells of each link that comes, goes or changes; its speed is asked for apart. Speeds
// change without a message where a link is up all the while, so they are asked for again at times.

#include "tools/igpfeed/Interfaces.h"
#include "tools/text/Plain.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <linux/ethtool.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <span>
#include <stdexcept>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace IgpFeed {

namespace {

constexpr const char * physicalPath = "interface/status/eth/phy/all";
constexpr const char * aggregatePath = "interface/status/eth/lag";
constexpr double lookInterval = 1;  // seconds

/// Calls `visit( type, payload )` for each attribute.
template< class Visit >
void
forEachAttribute( std::span< const std::uint8_t > bytes, Visit visit ) {
   while ( bytes.size() >= sizeof( rtattr ) ) {
      rtattr head;
      std::memcpy( &head, bytes.data(), sizeof head );
      if ( head.rta_len < sizeof head || head.rta_len > bytes.size() ) {
         return;
      }
      visit( head.rta_type & NLA_TYPE_MASK,
             bytes.subspan( sizeof head, head.rta_len - sizeof head ) );
      bytes = bytes.subspan( std::min< std::size_t >( RTA_ALIGN( head.rta_len ), bytes.size() ) );
   }
}

std::string
textOf( std::span< const std::uint8_t > bytes ) {
   const std::string text( bytes.begin(), bytes.end() );
   return text.substr( 0, text.find( '\0' ) );
}

std::runtime_error
systemError( const char * what ) {
   return std::runtime_error( std::string( what ) + ": " + std::strerror( errno ) );
}

Json
patchOf( const Bandwidths & present, const Bandwidths & wanted ) {
   Json changes = Json::object();
   for ( const auto & [ name, bandwidth ] : present ) {
      if ( !wanted.contains( name ) ) {
         changes[ name ] = nullptr;
      }
   }
   for ( const auto & [ name, bandwidth ] : wanted ) {
      const auto at = present.find( name );
      if ( at == present.end() || at->second != bandwidth ) {
         changes[ name ] = bandwidth;
      }
   }
   return changes;
}

}

std::optional< std::pair< int, KernelLink > >
readLink( const nlmsghdr & message ) {
   if ( ( message.nlmsg_type != RTM_NEWLINK && message.nlmsg_type != RTM_DELLINK )
        || message.nlmsg_len < NLMSG_LENGTH( sizeof( ifinfomsg ) ) ) {
      return std::nullopt;
   }
   const auto * info = static_cast< const ifinfomsg * >( NLMSG_DATA( &message ) );
   if ( info->ifi_family != AF_UNSPEC ) {
      return std::nullopt;  // of a bridge, about its port
   }
   KernelLink link;
   link.ethernet = info->ifi_type == ARPHRD_ETHER;
   link.up = ( info->ifi_flags & IFF_UP ) && ( info->ifi_flags & IFF_RUNNING );
   const auto * start =
      reinterpret_cast< const std::uint8_t * >( info ) + NLMSG_ALIGN( sizeof *info );
   const auto * end = reinterpret_cast< const std::uint8_t * >( &message ) + message.nlmsg_len;
   forEachAttribute( { start, end }, [ & ]( int type, auto value ) {
      if ( type == IFLA_IFNAME ) {
         link.name = textOf( value );
      } else if ( type == IFLA_LINKINFO ) {
         forEachAttribute( value, [ & ]( int inner, auto text ) {
            if ( inner == IFLA_INFO_KIND ) {
               link.kind = textOf( text );
            } else if ( inner == IFLA_INFO_SLAVE_KIND ) {
               link.masterKind = textOf( text );
            }
         } );
      }
   } );
   return std::pair( info->ifi_index, std::move( link ) );
}

InterfaceBandwidths
bandwidthsOf( const std::map< int, KernelLink > & links,
              const std::function< std::uint64_t( const std::string & ) > & speed ) {
   const auto isAggregate = []( const std::string & kind ) {
      return kind == "bond" || kind == "team";
   };
   InterfaceBandwidths all;
   for ( const auto & [ index, link ] : links ) {
      const bool aggregate = isAggregate( link.kind );
      const bool device = link.kind.empty() || link.kind == "veth";
      if ( !link.ethernet || !link.up || isAggregate( link.masterKind )
           || ( !aggregate && !device ) ) {
         continue;
      }
      if ( const std::uint64_t bandwidth = speed( link.name ) ) {
         ( aggregate ? all.aggregates : all.physical )[ link.name ] = bandwidth;
      }
   }
   return all;
}

InterfaceFeed::InterfaceFeed( Lum::ActivityLoop & loop, OpenState openState )
   : loop_( loop ),
     openState_( std::move( openState ) ) {
   netlink_ = socket( AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE );
   control_ = socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
   sockaddr_nl address{};
   address.nl_family = AF_NETLINK;
   address.nl_groups = RTMGRP_LINK;
   if ( netlink_ < 0 || control_ < 0
        || bind( netlink_, reinterpret_cast< sockaddr * >( &address ), sizeof address ) != 0 ) {
      throw systemError( "the kernel's interfaces" );
   }
   loop_.fdIs( netlink_, EPOLLIN, [ this ]( std::uint32_t ) { handleMessages(); } );
   askForAll();
   timer_ = loop_.timerIs( loop_.now(), [ this ] { tick(); } );
}

InterfaceFeed::~InterfaceFeed() {
   loop_.timerDel( timer_ );
   loop_.fdDel( netlink_ );
   close( netlink_ );
   close( control_ );
}

void
InterfaceFeed::askForAll() {
   struct {
      nlmsghdr header;
      ifinfomsg body;
   } request{};
   request.header.nlmsg_len = NLMSG_LENGTH( sizeof request.body );
   request.header.nlmsg_type = RTM_GETLINK;
   request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
   links_.clear();
   complete_ = false;
   if ( send( netlink_, &request, request.header.nlmsg_len, 0 ) < 0 ) {
      throw systemError( "the kernel's interfaces" );
   }
}

/// Where messages were lost, everything is asked for again.
void
InterfaceFeed::handleMessages() {
   alignas( nlmsghdr ) char buffer[ 64 * 1024 ];
   for ( ;; ) {
      const ssize_t n = recv( netlink_, buffer, sizeof buffer, 0 );
      if ( n < 0 && errno == ENOBUFS ) {
         askForAll();
         continue;
      }
      if ( n <= 0 ) {
         break;
      }
      auto left = static_cast< unsigned >( n );
      for ( auto * message = reinterpret_cast< nlmsghdr * >( buffer ); NLMSG_OK( message, left );
            message = NLMSG_NEXT( message, left ) ) {
         complete_ = complete_ || message->nlmsg_type == NLMSG_DONE;
         if ( const auto link = readLink( *message ) ) {
            if ( message->nlmsg_type == RTM_DELLINK ) {
               links_.erase( link->first );
            } else {
               links_[ link->first ] = link->second;
            }
            changed_ = true;
         }
      }
   }
   write();
}

void
InterfaceFeed::tick() {
   timer_ = loop_.timerIs( loop_.now() + lookInterval, [ this ] { tick(); } );
   changed_ = true;
   write();
}

/// ethtool's speed is in Mbit/s, and all ones where it is not known.
std::uint64_t
InterfaceFeed::speed( const std::string & name ) const {
   constexpr std::uint64_t bytesInMegabit = 1'000'000 / 8;
   ethtool_cmd settings{};
   settings.cmd = ETHTOOL_GSET;
   ifreq request{};
   name.copy( request.ifr_name, IFNAMSIZ - 1 );
   request.ifr_data = reinterpret_cast< char * >( &settings );
   if ( ioctl( control_, SIOCETHTOOL, &request ) != 0 ) {
      return 0;
   }
   const std::uint32_t speed = ethtool_cmd_speed( &settings );
   return speed == static_cast< std::uint32_t >( SPEED_UNKNOWN ) ? 0 : speed * bytesInMegabit;
}

void
InterfaceFeed::write() {
   if ( !complete_ || !changed_ ) {
      return;
   }
   const auto wanted =
      bandwidthsOf( links_, [ this ]( const std::string & name ) { return speed( name ); } );
   try {
      if ( !access_ || !access_->isOpen() ) {
         access_ = openState_();
         const auto present = [ & ]( const char * path ) {
            return access_->entity( path ).at( "bandwidth" ).get< Bandwidths >();
         };
         written_ = { present( physicalPath ), present( aggregatePath ) };
      }
      const auto patch = [ & ]( const char * path, const Bandwidths & from,
                                const Bandwidths & to ) {
         if ( Json changes = patchOf( from, to ); !changes.empty() ) {
            access_->patch( path, { { "bandwidth", std::move( changes ) } } );
         }
      };
      patch( physicalPath, written_.physical, wanted.physical );
      patch( aggregatePath, written_.aggregates, wanted.aggregates );
      written_ = wanted;
      changed_ = false;
      trouble_.clear();
   } catch ( const std::runtime_error & error ) {
      access_.reset();
      if ( trouble_ != error.what() ) {
         trouble_ = error.what();
         std::cerr << "igpfeed: interfaces: " << Text::plain( trouble_ ) << std::endl;
      }
   }
}

}
