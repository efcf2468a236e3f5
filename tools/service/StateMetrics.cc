// Gauges, read when they are asked for: from the published tables, and from what the kernel knows
// of the process.

#include "tools/service/StateMetrics.h"

#include "platform/Corvdb/StateStore.h"
#include "platform/Metrics/Metrics.h"
#include "schema/CspfClient.h"
#include "schema/CspfStatus.h"

#include <dirent.h>
#include <fstream>
#include <map>
#include <unistd.h>

namespace Service {

namespace {

/// One gauge: its lines, by labels.
class Gauge {
 public:
   Gauge( std::string & text, const std::string & name, const std::string & help )
      : text_( text ),
        name_( name ) {
      text_ += "# HELP " + name + " " + help + "\n# TYPE " + name + " gauge\n";
   }
   void line( double value, const std::string & labels = "" ) {
      text_ += name_ + labels + " " + Metrics::number( value ) + "\n";
   }

 private:
   std::string & text_;
   const std::string name_;
};

std::string
quoted( const std::string & value ) {
   std::string text = "\"";
   for ( const char c : value ) {
      text += c == '\\' ? "\\\\" : c == '"' ? "\\\"" : c == '\n' ? "\\n" : std::string( 1, c );
   }
   return text + "\"";
}

/// Labels of a client's table: ".../VRF/family/client".
std::string
clientLabels( const std::string & path, const std::string & state ) {
   const auto parts = Corvdb::pathComponents( path );
   const auto last = [ &parts ]( std::size_t i ) { return quoted( parts[ parts.size() - i ] ); };
   return "{vrf=" + last( 3 ) + ",family=" + last( 2 ) + ",client=" + last( 1 )
          + ",state=" + quoted( state ) + "}";
}

void
pathGauges( std::string & text, const Zorch::TableStore & tables ) {
   Gauge paths( text, "cspf_paths", "Paths of clients by state" );
   for ( const std::string & path : tables.list( "te/cspf/config/vrf" ) ) {
      if ( const auto config = Lum::cast< Cspf::Config >( tables.table( path ) ) ) {
         paths.line( static_cast< double >( config->pathConfigs() ),
                     clientLabels( path, "requested" ) );
      }
   }
   for ( const std::string & path : tables.list( "te/cspf/status/vrf" ) ) {
      const auto status = Lum::cast< Cspf::Status >( tables.table( path ) );
      if ( !status ) {
         continue;
      }
      std::size_t up = 0;
      for ( const auto & [ key, one ] : status->pathStatusColl() ) {
         up += one.paths() > 0 || one.repairPathIdx() > 0;
      }
      paths.line( static_cast< double >( up ), clientLabels( path, "up" ) );
      paths.line( static_cast< double >( status->pathStatuss() - up ),
                  clientLabels( path, "down" ) );
      paths.line( static_cast< double >( status->pathErrors() ),
                  clientLabels( path, "with_reason" ) );
   }
}

void
constraintGauges( std::string & text, const Zorch::TableStore & tables ) {
   std::size_t constraints = 0;
   double longest = 0, skipped = 0;
   for ( const std::string & path : tables.list( "te/cspf/constraintStatus/vrf" ) ) {
      const auto table = Lum::cast< Cspf::ConstraintStatusTable >( tables.table( path ) );
      for ( const auto & [ number, status ] : table->constraintStatusColl() ) {
         ++constraints;
         longest = std::max( longest, status->cspfCurrentDelay() );
         skipped += status->cspfSkippedCount();
      }
   }
   Gauge( text, "cspf_constraints", "Distinct constraints" ).line( double( constraints ) );
   Gauge( text, "cspf_throttle_delay_max_seconds", "Longest throttle delay of a constraint" )
      .line( longest / 1000 );
   Gauge( text, "cspf_runs_skipped", "Runs spared for the constraints that there are" )
      .line( skipped );
}

double
residentBytes() {
   double size = 0, resident = 0;
   std::ifstream( "/proc/self/statm" ) >> size >> resident;
   return resident * static_cast< double >( sysconf( _SC_PAGESIZE ) );
}

std::size_t
openDescriptors() {
   std::size_t count = 0;
   if ( DIR * const directory = opendir( "/proc/self/fd" ) ) {
      while ( readdir( directory ) ) {
         ++count;
      }
      closedir( directory );
   }
   return count < 3 ? 0 : count - 3;  // itself, "." and ".."
}

}

std::string
metricsText( const Zorch::TableStore & tables, const AgentRunner::Runner & runner,
             const ServiceFigures & figures ) {
   std::string text = Metrics::text();
   pathGauges( text, tables );
   constraintGauges( text, tables );
   Gauge( text, "cspf_pending_tasks", "Tasks of the agent that wait for their time" )
      .line( double( runner.taskScheduler()->pending() ) );
   Gauge( text, "cspf_callers", "Callers of the control sockets" )
      .line( double( figures.sessions ) );
   Gauge( text, "cspf_backlog_bytes", "Bytes that callers have not read yet" )
      .line( double( figures.backlog ) );
   Gauge( text, "process_resident_memory_bytes", "Resident memory" ).line( residentBytes() );
   Gauge( text, "process_open_fds", "Open descriptors" ).line( double( openDescriptors() ) );
   return text;
}

}
