// What a run prints. For a person the first outcome is a table for each VRF and family; each
// further outcome is told as the differences from the one before, under the event that came
// between.

#include "tools/lab/LabOutput.h"

#include "tools/text/Plain.h"
#include "tools/text/Table.h"

#include <ostream>
#include <set>
#include <sstream>

namespace Lab {

namespace {

constexpr const char * red = "31";
constexpr const char * green = "32";
constexpr const char * bold = "1";

std::string
secondsText( double seconds ) {
   std::ostringstream text;
   text << seconds << " s";
   return text.str();
}

std::string
timeText( const LabEvent & event ) {
   return "at " + secondsText( event.at );
}

/// "rsvp plain to kansas-city (10.0.0.4) id 1"
std::string
title( const RowKey & key, const Row & row ) {
   std::string text = key.client;
   if ( !row.name.empty() ) {
      text += " " + row.name;
   }
   text = Text::plain( text + " to " + row.destination );
   if ( key.path.id() != 1 ) {
      text += " id " + std::to_string( key.path.id() );
   }
   const bool plain = key.where == VrfAf{ Vrf::defaultVrf(), Af::ipv4 };
   return plain ? text : text + " in " + key.where.text();
}

/// How a row came to be what it is.
std::string
remark( const Row & before, const Row & after ) {
   if ( before.route == after.route && before.metric == after.metric ) {
      return "request " + std::to_string( after.answered ) + " answered";
   }
   if ( before.metric == after.metric ) {
      return "";
   }
   const std::string was = before.metric == noMetric ? "none" : before.metric;
   return ( after.metric == noMetric ? "metric was " : "was " ) + was;
}

/// Calls `line( "/paths/rsvp/t1/id: 2" )` for each value of the patch.
template< class Line >
void
forEachChange( const std::string & pointer, const LabJson & patch, const Line & line ) {
   const auto * members = patch.as< LabJsonObject >();
   if ( !members || ( members->empty() && !pointer.empty() ) ) {
      line( Text::plain( pointer ) + ": " + patch.text() );
      return;
   }
   for ( const LabJsonMember & member : *members ) {
      forEachChange( pointer + "/" + pointerToken( member.key ), member.value, line );
   }
}

}

std::string
LabOutput::coloured( const char * code, const std::string & text ) const {
   return options_.colour ? "\033[" + std::string( code ) + "m" + text + "\033[0m" : text;
}

std::vector< std::string >
eventLines( const LabEvent & event ) {
   std::vector< std::string > lines;
   if ( event.restart ) {
      lines.push_back( timeText( event ) + "  the agent is started anew" );
   }
   forEachChange( "", event.patch, [ & ]( const std::string & what ) {
      lines.push_back( timeText( event ) + "  " + what );
   } );
   return lines;
}

void
LabOutput::eventIs( const LabEvent & event ) {
   if ( options_.json ) {
      return;
   }
   out_ << "\n";
   for ( const std::string & line : eventLines( event ) ) {
      const std::string time = timeText( event );
      out_ << coloured( bold, time ) << line.substr( time.size() ) << "\n";
   }
}

void
LabOutput::outcomeIs( const LabDocument & document, const Outcome & outcome ) {
   if ( options_.json ) {
      out_ << outcomeJson( outcome ) << std::endl;
      return;
   }
   Rows rows = rowsOf( document, outcome );
   if ( first_ ) {
      rows_ = std::move( rows );
      printTables( document, outcome );
   } else {
      printChanges( outcome, rows );
      rows_ = std::move( rows );
   }
   first_ = false;
   enabled_ = outcome.agentEnabled;
   out_.flush();
}

void
LabOutput::printTables( const LabDocument & document, const Outcome & outcome ) const {
   out_ << coloured( bold, Text::plain( document.router ) ) << ", TE router id "
        << outcome.teRouterId.stringValue() << ", after " << secondsText( outcome.time )
        << ( outcome.agentEnabled ? "" : ", agent not enabled" ) << "\n";
   for ( auto row = rows_.begin(); row != rows_.end(); ) {
      const VrfAf where = row->first.where;
      Text::Table table(
         { "CLIENT", "PATH", "DESTINATION", "ID", "METRIC", "HOPS OR PROTECTION" } );
      for ( ; row != rows_.end() && row->first.where == where; ++row ) {
         const Row & r = row->second;
         table.row( { row->first.client, r.name, r.destination,
                      std::to_string( row->first.path.id() ), r.metric, r.route } );
      }
      out_ << "\nVRF " << where.vrf.stringValue() << ", " << Kivnet::text( where.af ) << "\n";
      table.print( out_, options_.width );
   }
}

void
LabOutput::printChanges( const Outcome & outcome, const Rows & after ) const {
   if ( enabled_ != outcome.agentEnabled ) {
      out_ << "   agent " << ( outcome.agentEnabled ? "enabled" : "disabled" ) << "\n";
   }
   diffMaps(
      rows_, after,
      [ & ]( const RowKey & key, const Row & row ) { printChange( key, row, "new" ); },
      [ & ]( const RowKey & key, const Row & before, const Row & row ) {
         printChange( key, row, remark( before, row ) );
      },
      [ & ]( const RowKey & key, const Row & row ) {
         out_ << "   " << title( key, row ) << ": withdrawn\n";
      } );
   if ( rows_ == after ) {
      out_ << "   no path changed\n";
   }
}

void
LabOutput::printChange( const RowKey & key, const Row & row, const std::string & remark ) const {
   out_ << "   " << title( key, row ) << ": "
        << coloured( row.up ? green : red, Text::plain( row.route ) );
   std::string notes = row.metric == noMetric ? "" : "metric " + row.metric;
   if ( !remark.empty() ) {
      notes += ( notes.empty() ? "" : ", " ) + remark;
   }
   out_ << ( notes.empty() ? "" : "; " + notes ) << "\n";
}

}
