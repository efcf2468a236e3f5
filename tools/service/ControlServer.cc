// Who may come in, and how many. Some descriptors are kept back, so that the service can work for
// the callers that it has; where there is none for a caller all the same, the door rests, since a
// caller that is not taken in would make the loop spin.

#include "tools/service/ControlServer.h"

#include "tools/service/StateMetrics.h"

#include <algorithm>
#include <numeric>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <unistd.h>

namespace Service {

namespace {

constexpr std::size_t keptBack = 32;
/// Seconds that a door rests after a failure.
constexpr Lum::Seconds doorRest = 0.2;

std::size_t
maxSessions() {
   rlimit limit{};
   getrlimit( RLIMIT_NOFILE, &limit );
   const auto most = static_cast< std::size_t >( std::min< rlim_t >( limit.rlim_cur, 65'536 ) );
   return most > 2 * keptBack ? most - keptBack : most / 2;
}

}

ControlServer::ControlServer( Lum::ActivityLoop & loop, AgentRunner::Runner & runner,
                              StateView & view, const SocketFile & control,
                              const std::optional< SocketFile > & monitor, Load load, Json options )
   : shared_{ loop,
              runner,
              view,
              std::move( load ),
              [ this ] { return metrics(); },
              std::move( options ) },
     maxSessions_( maxSessions() ) {
   doors_.push_back( { Listener( control ), Session::Access::full, {} } );
   if ( monitor ) {
      doors_.push_back( { Listener( *monitor ), Session::Access::reading, {} } );
   }
   view.tableListenerIs( [ this ]( const std::string & table ) {
      for ( const auto & [ number, session ] : sessions_ ) {
         session->handleTable( table );
      }
   } );
}

ControlServer::~ControlServer() {
   shared_.view.tableListenerIs( {} );
   sessions_.clear();
   for ( const Door & door : doors_ ) {
      shared_.loop.timerDel( door.rest );
      shared_.loop.fdDel( door.listener.fd() );
   }
}

void
ControlServer::open() {
   for ( Door & door : doors_ ) {
      door.listener.open();
      takeIn( door );
   }
}

std::string
ControlServer::metrics() const {
   return metricsText( shared_.view.tables(), shared_.runner, { sessions_.size(), backlog() } );
}

std::size_t
ControlServer::backlog() const {
   return std::accumulate(
      sessions_.begin(), sessions_.end(), std::size_t( 0 ),
      []( std::size_t sum, const auto & entry ) { return sum + entry.second->backlog(); } );
}

void
ControlServer::takeIn( Door & door ) {
   shared_.loop.fdIs( door.listener.fd(), EPOLLIN,
                      [ this, &door ]( std::uint32_t ) { handleConnect( door ); } );
}

void
ControlServer::handleConnect( Door & door ) {
   const Listener::Caller caller = door.listener.accept();
   if ( caller.failed ) {
      shared_.loop.fdDel( door.listener.fd() );
      door.rest = shared_.loop.timerIs( shared_.loop.deadlineAfter( doorRest ),
                                        [ this, &door ] { takeIn( door ); } );
   } else if ( caller.socket >= 0 && sessions_.size() >= maxSessions_ ) {
      close( caller.socket );
   } else if ( caller.socket >= 0 ) {
      const std::uint64_t number = ++lastSession_;
      sessions_[ number ] = std::make_unique< Session >(
         shared_, caller.socket, door.access, [ this, number ] { sessions_.erase( number ); } );
   }
}

}
