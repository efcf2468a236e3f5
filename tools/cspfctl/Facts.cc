#include "tools/cspfctl/Facts.h"

#include <set>
#include <sstream>

namespace {

const std::set< std::string > numbers{ "metric", "sharedRisks", "own",
                                       "free",   "bandwidth",   "equalPaths",
                                       "equal",  "upTo",        "milliseconds" };

Fact
factOf( const std::string & line ) {
   std::istringstream in( line );
   Fact fact( "", nlohmann::json::object() );
   std::getline( in, fact.first, '\t' );
   for ( std::string word; std::getline( in, word, '\t' ); ) {
      const auto mark = word.find( '=' );
      if ( mark == word.npos ) {
         continue;
      }
      const std::string name = word.substr( 0, mark ), value = word.substr( mark + 1 );
      if ( name == "path" ) {
         fact.second[ "paths" ].push_back( value );
      } else if ( numbers.contains( name ) ) {
         fact.second[ name ] = std::stoull( value );
      } else {
         fact.second[ name ] = value;
      }
   }
   return fact;
}

}

std::vector< Fact >
factsOf( const std::string & lines ) {
   std::vector< Fact > facts;
   std::istringstream in( lines );
   for ( std::string line; std::getline( in, line ); ) {
      facts.push_back( factOf( line ) );
   }
   return facts;
}
