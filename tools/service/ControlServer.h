#pragma once

#include "platform/AgentRunner/Runner.h"
#include "tools/lab/LabJson.h"
#include "tools/service/Connection.h"
#include "tools/service/StateView.h"

#include <map>
#include <memory>
#include <string>

namespace Service {

/// The control socket of a running agent: JSON-RPC 2.0, one frame a line, several clients at once.
///
///   get {"path": P}: the entity or table there as {"type", "value"}; of tables below the path each
///   that there is, by its path.
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
///   {"id", "text"}, then the result.
///
///   load {"lab": document}: writes a lab's state, its events excluded.
///
///   status {}: the process, the agent and what it is busy with.
///
/// A client that does not read hears of it in a last notification "cutOff", {"reason"}.
class ControlServer {
 public:
   /// Writes a lab document into the stores; throws with a text that names the place.
   using Load = std::function< void( const Lab::LabJson & lab ) >;

   /// Listens on a Unix socket at `path`, which only its owner may connect to. A stale socket is
   /// replaced; one that somebody serves is an error. Throws std::runtime_error. All outlive it.
   ControlServer( Lum::ActivityLoop & loop, AgentRunner::Runner & runner, StateView & view,
                  std::string path, Load load );
   ~ControlServer();
   ControlServer( const ControlServer & ) = delete;
   ControlServer & operator=( const ControlServer & ) = delete;

 private:
   class Client;

   void handleConnect();

   Lum::ActivityLoop & loop_;
   AgentRunner::Runner & runner_;
   StateView & view_;
   const std::string path_;
   const Load load_;
   int listener_ = -1;
   std::uint64_t lastClient_ = 0;
   std::map< std::uint64_t, std::unique_ptr< Client > > clients_;
};

}
