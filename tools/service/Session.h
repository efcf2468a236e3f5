#pragma once

#include "platform/AgentRunner/Runner.h"
#include "tools/lab/LabJson.h"
#include "tools/pace/Job.h"
#include "tools/service/Connection.h"
#include "tools/service/Rpc.h"
#include "tools/service/StateView.h"
#include "tools/service/Worker.h"

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Service {

/// `lab`: what `load` brings, as it was written, which matters to labs; taken out of the rest.
struct Request {
   Json json;
   Lab::LabJson lab;
};

struct Frame {
   std::vector< Request > requests;
   bool isBatch = false;
};

/// What the sessions of one server share.
struct Shared {
   Lum::ActivityLoop & loop;
   AgentRunner::Runner & runner;
   StateView & view;
   /// Writes a lab document into the stores; throws with a text that names the place.
   std::function< void( Lab::LabJson lab ) > load;
   std::function< std::string() > metrics;
   /// What the service was started with, for people.
   Json options;
   /// Says of the state what is not in it; empty: there is nothing to say.
   std::function< Json() > describeState = {};
   std::size_t sessions = 0;
   std::size_t workers = 0;
   /// Long writing into the state; nobody else reads or writes the state meanwhile.
   std::unique_ptr< Pace::Job > writer = {};
   /// Who waits for the writer's end, or for a worker, in order.
   std::deque< class Session * > waiting = {};
};

/// One caller of the control socket: its requests, one after the other, and what it watches.
///
/// A frame of many requests is served in slices of time, and no faster than its answers are read.
/// What is large to read is read by a worker, what is large to write is written in slices by a job;
/// the requests behind it wait for it. What has been begun to be written is finished when the
/// caller has gone.
class Session {
 public:
   enum class Access { full, reading };

   /// Takes over the connected socket; `closed` is called when the caller has gone, and may destroy
   /// the session. What is shared outlives it.
   Session( Shared & shared, int socket, Access access, std::function< void() > closed );
   ~Session();
   Session( const Session & ) = delete;
   Session & operator=( const Session & ) = delete;

   std::size_t backlog() const noexcept { return connection_.backlog(); }
   /// A table has come or gone.
   void handleTable( const std::string & path );

 private:
   /// What a client watches under one path; the watches of single entities and tables.
   struct Watch {
      bool tables = false;
      std::map< std::string, Lum::Ptr< StateWatch > > parts;
   };
   /// A result as text, or nothing where a worker brings it.
   using Result = std::optional< std::string >;
   /// The request has to wait for a worker, or for the end of the writing.
   struct Later {};

   void handleFrame( std::string_view text );
   void readLong( std::string text );
   void frameIs( Frame && frame, const std::exception_ptr & failure );
   void requestsAre( Frame && frame );
   void pump();
   bool mayGoOn( Lum::Seconds sliceEnd );
   /// Goes on after so many seconds.
   void rest( Lum::Seconds duration );
   static void wakeWaiting( Shared & shared );
   void serveNext();
   void refuseRest();
   void answer( const std::string & text );
   void answerFailure( const std::exception_ptr & failure );
   void batchEnds();
   Result serve( const std::string & method, Request & request );
   Result get( const Json & params );
   Result watch( const Json & params );
   Result unwatch( const Json & params );
   Result command( const Json & params );
   Result patch( Json & params );
   Result load( Request & request );
   /// Does what may take long to write, in a job.
   Result write( Pace::Job::Work work );
   void writeEnded( const std::exception_ptr & failure );
   std::vector< std::string > takeLabParts();
   Result traceLevel( const Json & params );
   Result wait( const Json & params );
   void lookWhetherSettled();
   void waitEnds( bool settled );
   std::string status() const;
   /// What `write` writes: at once if that is little, else by a worker.
   Result text( const std::function< void( State::TextSink & ) > & write );
   void workerIs( const Worker::Work & work, const std::string & before,
                  const std::string & behind );
   void workerEnded( bool done, const std::string & behind );
   Lum::Ptr< StateWatch > watchOf( const std::string & path );
   void tell( const Json & change ) { connection_.send( notificationFrame( "change", change ) ); }

   Shared & shared_;
   const Access access_;
   Connection connection_;
   std::deque< Request > requests_;
   Json id_;                    ///< of the request in hand
   bool wantsAnswer_ = false;   ///< so does that request
   bool batch_ = false;         ///< the requests came in one frame
   std::size_t batchSize_ = 0;  ///< bytes of its answers so far
   bool refusesRest_ = false;   ///< they are more than may be
   std::vector< std::string > labParts_;
   std::size_t labSize_ = 0;  ///< bytes of these
   std::unique_ptr< Worker > worker_;
   std::unique_ptr< Pace::Job > reading_;  ///< of a long frame
   bool writing_ = false;                  ///< the shared writer works for the request in hand
   bool queued_ = false;                   ///< among those who wait
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
   Lum::ActivityLoop::TimerId rest_{ 0, 0 };
   bool waits_ = false;  ///< the request in hand is answered when the agent has settled
   Lum::ActivityLoop::TimerId look_{ 0, 0 }, waitTimeout_{ 0, 0 };
   std::map< std::string, Watch > watches_;
};

}
