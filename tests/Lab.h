#pragma once

#include "platform/AgentRunner/Runner.h"
#include "platform/Lum/ActivityLoop.h"
#include "tools/lab/LabOutcome.h"
#include "tools/lab/LabState.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// The real agent on an embedded state, on a virtual clock. What surrounds the agent is a lab's
/// document; verbs change it as events of a lab do, and what is asserted is what clients and
/// operators see. Nothing waits: time moves in `advance` and `settle` alone.
///
///   TestLab lab( "A -10- B -20- C; A -40- C" );
///   lab.request( "cli", "t1", "C" );
///   lab.settle();
///   EXPECT_EQ( lab.path( "cli", "t1" ), "A B C" );
class TestLab {
 public:
   using Json = nlohmann::json;

   /// The agent runs on router "A" of the IS-IS level-2 topology "core" (see `labTopology`). The
   /// clients "cli" and "rsvp" are served in the default VRF in IPv4. `more` is merged into that.
   explicit TestLab( std::string_view topology, const Json & more = Json::object() );
   /// The agent on any lab's document. Throws LabError.
   static TestLab of( const Json & document ) { return TestLab( Whole(), document ); }
   ~TestLab();
   TestLab( const TestLab & ) = delete;
   TestLab & operator=( const TestLab & ) = delete;

   // ---- Events, at the time as it stands ----

   /// Applies a merge patch to the document and writes what it changes. Throws LabError, with
   /// nothing changed, where the result is no lab.
   void patch( const Json & patch );
   /// Asks for a path (or asks anew): `dst` is a router's name or an address. Further keys of the
   /// path, such as "id", are in `more`.
   void request( const std::string & client, const std::string & name, const std::string & dst,
                 const Json & constraint = Json::object(), const Json & more = Json::object() );
   void withdraw( const std::string & client, const std::string & name );
   /// Changes a link of "core": `link( "A-B", { { "metric", 5 } } )`.
   void link( const std::string & name, const Json & change );
   void down( const std::string & name ) { link( name, { { "up", false } } ); }
   void up( const std::string & name ) { link( name, { { "up", true } } ); }
   /// Ends the agent in order; `start` brings a new one.
   void stop() { runner_->stop(); }
   void start() { runner_->start(); }
   /// Kills the agent and starts a new one, which looks at what was left in the next turn.
   void restart();
   /// The agent does no more than so many rows of long work at once.
   void slicesOf( std::size_t rows ) { runner_->taskScheduler()->sliceIs( rows ); }

   // ---- Time ----

   void advance( Lum::Seconds duration ) { loop_.advance( duration ); }
   /// Lets the agent do so many pieces of its work, those that are due first.
   void work( std::size_t pieces ) { loop_.settle( pieces ); }
   /// Lets the agent work until nothing is pending. An agent that never rests fails the test, with
   /// the names of its pending tasks.
   void settle();

   // ---- What can be seen ----

   /// The published path as router names from the source, "A B C"; "" where none is published or
   /// it has no hops.
   std::string path( const std::string & client, const std::string & name ) const;
   /// What the path costs in the network as it stands; nothing where there is none.
   std::optional< std::uint64_t > cost( const std::string & client,
                                        const std::string & name ) const;
   /// What is published for a path of the document; null where nothing is.
   const Cspf::PathStatus * status( const std::string & client, const std::string & name ) const;
   /// Why the path has none; "" where there is no reason.
   std::string error( const std::string & client, const std::string & name ) const;
   /// Runs made for the constraint that a path shares, and for all constraints together.
   std::uint32_t runs( const std::string & client, const std::string & name ) const;
   std::uint32_t runs() const;
   Lab::Outcome outcome() const;
   /// The client's published paths in a VRF and family; null where it has no service there.
   Lum::Ptr< Cspf::Status >
   statusTable( const std::string & client, const std::string & vrf = "default",
                Kivnet::AddressFamily af = Kivnet::AddressFamily::ipv4 ) const;
   /// All state and tables as JSON by path: what one can see from outside.
   Json snapshot() const;
   /// What the agent answers to "DUMP_CSPF_STATE".
   std::string dump();

   const Json & document() const noexcept { return json_; }
   Corvdb::StateStore & state() noexcept { return state_; }
   Zorch::TableStore & tables() noexcept { return tables_; }
   AgentRunner::Runner & runner() noexcept { return *runner_; }
   const Lum::ActivityLoop & loop() const noexcept { return loop_; }

 private:
   struct Whole {};
   TestLab( Whole, Json document );

   void documentIs( Json document );
   const Lab::LabPath & pathOf( const std::string & client, const std::string & name ) const;

   Json json_;
   Lab::LabDocument document_;
   Corvdb::TypeRegistry types_;
   Lum::ActivityLoop loop_{ Lum::ActivityLoop::Time::virtualTime };
   mutable Corvdb::StateStore state_{ types_ };
   mutable Zorch::TableStore tables_{ types_ };
   Lab::LabState writer_{ state_, tables_ };
   std::unique_ptr< AgentRunner::Runner > runner_;
};

/// Counts the changes of an entity's attributes and of the entries of its collections.
class WriteCount : public Lum::Reactor {
   LUM_ENTITY( Test, WriteCount );
   explicit WriteCount( const Lum::Entity & entity ) {
      watchAny< &WriteCount::handleChange >( entity, this );
   }
   std::size_t writes() const noexcept { return writes_; }

 private:
   void handleChange( const Lum::AnyChange & ) { ++writes_; }

   std::size_t writes_ = 0;
};
