#pragma once

#include "platform/AgentRunner/Runner.h"
#include "tools/redis/LocalState.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <functional>
#include <set>
#include <string>

/// Records of all that came into an agent, and what it made of it. A line is one JSON object:
///
///   {"record": 1, "version": .., "agent": ..}       first
///   {"at": S, "path": P, "type": T, "value": ..}    an entity or table as it is now; without a
///                                                   value it is gone
///   {"at": S, "path": P, "field": F, "value": ..}   one field of it, as of `State::fieldIs`
///   {"at": S, "start": true, "toggles": {..}}       the agent starts
///   {"at": S, "run": N}                             it did N pieces of work
///   {"at": S, "published": P, "field": F, "value": ..}    which it published
///   {"at": S, "end": true}                          the record is whole
///
/// in the order in which it happened, S seconds after the record began. Whatever ends the process,
/// a line stands in the file before the agent sees what it says, and all of them when it has no
/// work left.
namespace Record {

inline constexpr int formatVersion = 1;

class Recorder {
 public:
   /// Takes one line for the operator.
   using Say = std::function< void( const std::string & line ) >;

   /// Begins with all state as it is. A file of that name is kept, as FILE.1. Throws
   /// std::runtime_error where none can be written. All outlives it.
   Recorder( const std::string & file, const Lum::ActivityLoop & loop, AgentRunner::Runner & runner,
             Corvdb::StateStore & state, Zorch::TableStore & tables, Say say );
   ~Recorder();
   Recorder( const Recorder & ) = delete;
   Recorder & operator=( const Recorder & ) = delete;

   /// The agent is about to start.
   void agentStarts();

 private:
   using Json = nlohmann::ordered_json;

   /// What is the same in many lines.
   struct Subject {
      std::string key, path, quotedPath;
      bool isAgents = false, isRecorded = false;
      Lum::Seconds at = -1;
      std::string atText;
   };

   Json lineNow() const;
   Lum::Seconds after( Lum::Seconds time ) const;
   void subjectIs( const std::string & key );
   void changed( const std::string & key, const std::string & field );
   void tellWhole( const std::string & key, const std::string & path );
   void tellField( const std::string & field, bool isPublished );
   void taskRuns();
   void tellRuns();
   void write( const Json & line );
   void writeText( std::string_view line );
   void flush();

   const std::string file_;
   const Lum::ActivityLoop & loop_;
   AgentRunner::Runner & runner_;
   const Say say_;
   const Lum::Seconds begin_;
   std::ofstream out_;
   bool begun_ = false;
   std::set< std::string > toldWith_;  ///< fields that a whole entity has told of, to be told again
   std::string toldKey_;               ///< of that entity
   Subject subject_;                   ///< of the last line
   unsigned runs_ = 0;
   Lum::Seconds runsAt_ = 0;
   std::unique_ptr< Redis::LocalState > watched_;
};

/// Whether what the agent publishes there is part of a record: paths, repairs and reservations.
bool isRecorded( const std::string & path );

}
