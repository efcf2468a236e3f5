// What it costs to keep state in a database: one change until its reader hears of it, many paths
// published, a large topology written and read. Each beside the same on the embedded stores, and
// beside plain HSETs of the same bytes, pipelined by the client library as fast as it can. The
// ratios are of the CPU time of all processes that take part; rows and texts are made before.

#include "bench/BenchAgent.h"
#include "schema/Types.h"
#include "tools/lab/LabRecords.h"
#include "tools/redis/Replica.h"
#include "tools/state/StateFields.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::uint32_t paths = 100'000, routers = 10'000, changes = 2'000;
constexpr const char * statusPath = "te/cspf/status/vrf/default/ipv4/rsvp";

/// A server without persistence, in a directory of its own.
class Server {
 public:
   Server() {
      mkdtemp( directory_.data() );
      pid_ = fork();
      if ( pid_ == 0 ) {
         execl( "/usr/bin/redis-server", "redis-server", "--port", "0", "--unixsocket",
                socket().c_str(), "--save", "", "--logfile", "/dev/null", nullptr );
         _exit( 127 );
      }
      while ( !std::filesystem::exists( socket() ) ) {
         usleep( 1000 );
      }
   }
   ~Server() {
      kill( pid_, SIGKILL );
      waitpid( pid_, nullptr, 0 );
      std::filesystem::remove_all( directory_ );
   }
   Server( const Server & ) = delete;
   Server & operator=( const Server & ) = delete;

   std::string socket() const { return directory_ + "/sock"; }
   pid_t pid() const { return pid_; }

 private:
   std::string directory_ = "/tmp/cspfStateBenchXXXXXX";
   pid_t pid_;
};

double
cpuSeconds( clockid_t clock ) {
   timespec time{};
   clock_gettime( clock, &time );
   return static_cast< double >( time.tv_sec ) + static_cast< double >( time.tv_nsec ) * 1e-9;
}

/// Milliseconds of CPU time that this process and the server took for the work.
template< class Work >
double
cpuMilliseconds( const Server & server, Work && work ) {
   clockid_t theirs{};
   clock_getcpuclockid( server.pid(), &theirs );
   const double before = cpuSeconds( CLOCK_PROCESS_CPUTIME_ID ) + cpuSeconds( theirs );
   work();
   return 1000 * ( cpuSeconds( CLOCK_PROCESS_CPUTIME_ID ) + cpuSeconds( theirs ) - before );
}

struct Stores {
   Stores() { Schema::registerTypes( types ); }
   Corvdb::TypeRegistry types;
   Corvdb::StateStore state{ types };
   Zorch::TableStore tables{ types };
};

/// A process's stores and their replica.
struct Process : Stores {
   Process( Lum::ActivityLoop & loop, const Server & server )
      : replica( loop, state, tables, { Redis::parseUrl( "unix:" + server.socket() ), "bench" },
                 { [] {}, []( const auto &, bool ) {},
                   []( const std::string & line ) { std::printf( "%s\n", line.c_str() ); } } ) {}
   Redis::Replica replica;
};

/// All fields of a table, pipelined one HSET each.
void
plainHsets( const Server & server, const std::vector< Redis::FieldText > & fields ) {
   redisContext * const context = redisConnectUnix( server.socket().c_str() );
   constexpr std::size_t atOnce = 1000;
   for ( std::size_t i = 0; i < fields.size(); ++i ) {
      const auto & [ field, text ] = fields[ i ];
      const char * words[] = { "HSET", "plain", field.data(), text->data() };
      const std::size_t sizes[] = { 4, 5, field.size(), text->size() };
      redisAppendCommandArgv( context, 4, words, sizes );
      if ( ( i + 1 ) % atOnce == 0 || i + 1 == fields.size() ) {
         for ( std::size_t answers = i % atOnce + 1; answers > 0; --answers ) {
            void * reply = nullptr;
            redisGetReply( context, &reply );
            freeReplyObject( reply );
         }
      }
   }
   redisFree( context );
}

std::vector< Redis::FieldText >
fieldsOf( const Lum::Entity & table ) {
   std::vector< Redis::FieldText > fields;
   State::forEachFieldName( table, [ & ]( const std::string & name ) {
      std::string text;
      State::appendFieldText( table, name, text );
      fields.emplace_back( name, std::move( text ) );
   } );
   return fields;
}

std::vector< Cspf::PathStatus >
manyPaths() {
   std::vector< Cspf::PathStatus > all( paths );
   for ( std::uint32_t n = 0; n < paths; ++n ) {
      Cspf::PathStatus & path = all[ n ];
      path.pathKey_ = { Cspf::Destination( teRouterIdOf( n % routers ) ), n };
      for ( std::uint32_t hop = 0; hop < 6; ++hop ) {
         path.path_.push( teRouterIdOf( ( n + hop ) % routers ) );
         path.pathTeRouterId_.push( teRouterIdOf( ( n * 7 + hop ) % routers ) );
      }
   }
   return all;
}

void
print( const char * what, double embedded, double database, double plain ) {
   std::printf(
      "%s: %.0f ms of CPU; embedded %.0f ms, ratio %.1f; plain HSET %.0f ms, ratio %.2f\n", what,
      database, embedded, database / embedded, plain, database / plain );
}

template< class Write >
void
measureWriting( const char * what, const std::string & path, Write write ) {
   const Server server;
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::real );
   Stores alone;
   const double embedded = cpuMilliseconds( server, [ & ] { write( alone ); } );
   const auto fields = fieldsOf( *alone.tables.table( path ) );
   const double plain = cpuMilliseconds( server, [ & ] { plainHsets( server, fields ); } );
   Process process( loop, server );
   process.replica.settle( 60 );
   const double database = cpuMilliseconds( server, [ & ] {
      write( process );
      process.replica.settle( 60 );
   } );
   print( what, embedded, database, plain );
   std::unique_ptr< Process > reader;
   const double read = cpuMilliseconds( server, [ & ] {
      reader = std::make_unique< Process >( loop, server );
      reader->replica.settle( 60 );
   } );
   if ( fieldsOf( *reader->tables.table( path ) ).size() != fields.size() ) {
      std::printf( "%s: the reader has something else\n", what );
   }
   std::printf( "%s, read by a new process: %.0f ms of CPU; ratio to plain HSET %.2f\n", what, read,
                read / plain );
}

class Ear : public Lum::Reactor {
   LUM_ENTITY( Bench, Ear );
   explicit Ear( Lum::Ptr< Ip::Status > status ) : status_( std::move( status ) ) {}
   void handleInitialized() override { LUM_WATCH( status_, routing, handleRouting ); }
   void handleRouting() { ++heard; }
   int heard = 0;

 private:
   Lum::Ptr< Ip::Status > status_;
};

void
measureOneChange() {
   const Server server;
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::real );
   Process writer( loop, server ), reader( loop, server );
   const auto written = writer.state.entityIs< Ip::Status >( "ip/status" );
   while ( !reader.state.entity( "ip/status" ) ) {
      loop.runOnce( 0.01 );
   }
   const auto ear =
      Lum::make< Ear >( Lum::cast< Ip::Status >( reader.state.entity( "ip/status" ) ) );
   redisContext * const context = redisConnectUnix( server.socket().c_str() );
   std::vector< double > took, plain;
   for ( std::uint32_t i = 0; i < changes; ++i ) {
      took.push_back( microseconds( [ & ] {
         const int before = ear->heard;
         written->routingIs( !written->routing() );
         while ( ear->heard == before ) {
            loop.runOnce( 0.01 );
         }
      } ) );
      plain.push_back( microseconds(
         [ & ] { freeReplyObject( redisCommand( context, "HSET plain routing true" ) ); } ) );
   }
   redisFree( context );
   const auto at99 = []( std::vector< double > values ) {
      std::ranges::sort( values );
      return values[ values.size() * 99 / 100 ];
   };
   std::printf( "one change to a notified reader: median %.0f us, 99 %%: %.0f us; one HSET and its "
                "answer: %.0f and %.0f us; ratio of medians %.1f\n",
                median( took ), at99( took ), median( plain ), at99( plain ),
                median( took ) / median( plain ) );
}

}

int
main() {
   measureOneChange();
   const auto all = manyPaths();
   measureWriting( "100,000 paths published", statusPath, [ & ]( Stores & stores ) {
      const auto status =
         stores.tables.mount< Cspf::Status >( statusPath, Zorch::MountMode::writer );
      for ( const Cspf::PathStatus & path : all ) {
         status->pathStatusIs( path );
      }
   } );
   const Lab::LabDocument document = labOf( generateNetwork( routers, 1 ) );
   const auto & [ name, topology ] = *document.topologies.begin();
   const std::string tablePath = Lab::tablePath( topology );
   Lab::LabLinkIds linkIds;
   const Lab::LabTable table = Lab::tableOf( name, topology, linkIds );
   measureWriting( "a topology of 10,000 routers", tablePath, [ & ]( Stores & stores ) {
      Lab::writeTable(
         *stores.tables.mount< Routing::Topology::TopoDb >( tablePath, Zorch::MountMode::writer ),
         table );
   } );
}
