#pragma once

#include "tools/service/Session.h"
#include "tools/service/UnixSocket.h"

#include <list>
#include <map>
#include <memory>
#include <optional>

namespace Service {

/// The control socket of a running agent: JSON-RPC 2.0, one frame a line, several clients at once.
///
///   get {"path": P}: the entity or table there as {"type", "value"}; of tables below the path each
///   that there is, by its path.
///
///   list {"path": P}: the paths at and below P at which there is something.
///
///   patch {"path": P, "patch": merge patch}
///
///   watch {"paths": [P...]}: the state there by path, as of `get`; then notifications "change", in
///   order, none lost and none doubled: {"path", "attribute", "key"?, "value"?}, without the value
///   for an entry that is gone; of tables that come and go {"path", "type"?, "value"?}.
///
///   unwatch {"paths": [P...]}
///
///   command {"name": N, "text": T}: what the agent writes comes as notifications "output",
///   {"id", "text"}, then the result. It works on a copy of the agent.
///
///   load {"lab": document}: writes a lab's state, its events excluded. A lab that does not fit a
///   frame comes as text: {"part": text} as often as needed, then {}.
///
///   status {}: the process, the agent and what it is busy with.
///
///   wait {"timeout"?: seconds}: answers when an agent runs and no work of it is pending, true; or
///   false when the time is over.
///
///   metrics {}: counters and gauges, a text in Prometheus' exposition format.
///
///   traceLevel {"level": 0 to 9, "files"?: pattern}: what is traced from now on, as
///   `Trace::levelIs` has it; {}: as of the start.
///
/// What is asked for is as of one instant, however large it is. While a large patch or a lab is
/// being written, in slices, whoever reads or writes the state waits; `status` says so. A client
/// that does not read hears of it in a last notification "cutOff", {"reason"}. A second socket may
/// serve all but `patch`, `load` and `traceLevel`. Callers beyond what the limit of descriptors
/// allows are turned away.
class ControlServer {
 public:
   /// Writes a lab document into the stores; throws with a text that names the place.
   using Load = std::function< void( Lab::LabJson lab ) >;

   /// What the service was started with is for people. The sockets of the files are this process's
   /// from now on. Throws std::runtime_error where one is another's. All else outlives it.
   ControlServer( Lum::ActivityLoop & loop, AgentRunner::Runner & runner, StateView & view,
                  const SocketFile & control, const std::optional< SocketFile > & monitor,
                  Load load, Json options );
   ~ControlServer();
   ControlServer( const ControlServer & ) = delete;
   ControlServer & operator=( const ControlServer & ) = delete;

   /// Makes the sockets, and takes callers in. Throws std::runtime_error where one cannot be made.
   void open();
   /// As of `metrics`.
   std::string metrics() const;
   /// What `status` says of the state beside: "state".
   void stateIs( std::function< Json() > describe ) {
      shared_.describeState = std::move( describe );
   }

 private:
   struct Door {
      Listener listener;
      Session::Access access;
      Lum::ActivityLoop::TimerId rest{ 0, 0 };  ///< armed while it takes nobody in
   };

   std::size_t backlog() const;
   void takeIn( Door & door );
   void handleConnect( Door & door );

   Shared shared_;
   const std::size_t maxSessions_;
   std::list< Door > doors_;
   std::uint64_t lastSession_ = 0;
   std::map< std::uint64_t, std::unique_ptr< Session > > sessions_;
};

}
