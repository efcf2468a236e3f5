// The series of the process. They enter a list as they are made, which is before `main` for those
// of the program, and when its library is loaded for those of an agent.

#include "platform/Metrics/Metrics.h"

#include <algorithm>
#include <charconv>

namespace Metrics {

namespace {

std::vector< const Series * > &
allSeries() {
   static std::vector< const Series * > all;
   return all;
}

}

Series::Series( const char * name, const char * help ) : name_( name ), help_( help ) {
   allSeries().push_back( this );
}

Series::~Series() {
   std::erase( allSeries(), this );
}

void
Series::writeHead( std::string & text, const char * type ) const {
   text.append( "# HELP " ).append( name_ ).append( " " ).append( help_ ).append( "\n# TYPE " );
   text.append( name_ ).append( " " ).append( type ).append( "\n" );
}

void
Counter::write( std::string & text ) const {
   writeHead( text, "counter" );
   text.append( name() ).append( " " ).append( std::to_string( count_ ) ).append( "\n" );
}

Histogram::Histogram( const char * name, const char * help, std::vector< double > bounds )
   : Series( name, help ),
     bounds_( std::move( bounds ) ),
     counts_( bounds_.size() + 1 ) {}

void
Histogram::observe( double value ) noexcept {
   const auto at = std::lower_bound( bounds_.begin(), bounds_.end(), value );
   ++counts_[ static_cast< std::size_t >( at - bounds_.begin() ) ];
   sum_ += value;
}

void
Histogram::write( std::string & text ) const {
   writeHead( text, "histogram" );
   std::uint64_t count = 0;
   for ( std::size_t i = 0; i < counts_.size(); ++i ) {
      count += counts_[ i ];
      const std::string bound = i < bounds_.size() ? number( bounds_[ i ] ) : "+Inf";
      text.append( name() ).append( "_bucket{le=\"" ).append( bound ).append( "\"} " );
      text.append( std::to_string( count ) ).append( "\n" );
   }
   text.append( name() ).append( "_sum " ).append( number( sum_ ) ).append( "\n" );
   text.append( name() ).append( "_count " ).append( std::to_string( count ) ).append( "\n" );
}

std::string
text() {
   std::vector< const Series * > sorted = allSeries();
   std::sort( sorted.begin(), sorted.end(), []( const Series * a, const Series * b ) {
      return std::string_view( a->name() ) < b->name();
   } );
   std::string text;
   for ( const Series * series : sorted ) {
      series->write( text );
   }
   return text;
}

std::string
number( double value ) {
   char digits[ 32 ];
   return { digits, std::to_chars( digits, digits + sizeof digits, value ).ptr };
}

}
