// Topologies as one-liners, for tests of computations on the graph. The header states the
// conventions. Text that does not follow them is an error of the test and throws.

#include "tests/GraphText.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <sstream>
#include <stdexcept>

using namespace Cspf;

struct GraphText::Link {
   uint32_t metric = 10;
   std::optional< uint32_t > te, back;
   uint32_t group = 0;
   std::vector< uint32_t > srlgs;
   float bandwidth = 0;
   uint16_t topology = 0;
   bool oneWay = false;
   std::string network;

   explicit Link( std::string connector );
   void attribute( const std::string & word, uint32_t value );
};

GraphText::Link::Link( std::string connector ) {
   oneWay = connector.back() == '>';
   const bool lan = connector.front() == '=';
   connector = connector.substr( 1, connector.size() - 2 );
   for ( char & c : connector ) {
      c = c == '{' || c == '}' ? ' ' : c;
   }
   std::istringstream words( connector );
   if ( lan ) {
      words >> network;
   }
   if ( !( words >> metric ) ) {
      metric = 10;
      words.clear();
   }
   uint32_t value = 0;
   for ( std::string word; words >> word >> value; ) {
      attribute( word, value );
   }
}

void
GraphText::Link::attribute( const std::string & word, uint32_t value ) {
   if ( word == "te" ) {
      te = value;
   } else if ( word == "back" ) {
      back = value;
   } else if ( word == "group" ) {
      group = value;
   } else if ( word == "srlg" ) {
      srlgs.push_back( value );
   } else if ( word == "bw" ) {
      bandwidth = static_cast< float >( value );
   } else if ( word == "topo" ) {
      topology = static_cast< uint16_t >( value );
   } else {
      throw std::invalid_argument( "unknown attribute " + word );
   }
}

GraphText::GraphText( std::string_view text ) {
   while ( !text.empty() ) {
      const size_t end = std::min( text.find( ';' ), text.size() );
      statement( text.substr( 0, end ) );
      text.remove_prefix( std::min( end + 1, text.size() ) );
   }
}

void
GraphText::statement( std::string_view text ) {
   std::istringstream words{ std::string( text ) };
   std::string left, right;
   std::optional< Link > link;
   for ( std::string word; words >> word; ) {
      if ( word == "overload" && words >> word ) {
         graph.overloadedIs( at( word ), true );
      } else if ( word.front() == '-' || word.front() == '=' ) {
         for ( std::string more; word.size() == 1 || !std::strchr( "->=", word.back() ); ) {
            words >> more;
            word += ' ' + more;
         }
         link.emplace( word );
         if ( !link->network.empty() ) {
            const bool known = vertices_.contains( link->network );
            const CspfVertex network = known ? at( link->network ) : graph.addNetwork();
            vertices_[ link->network ] = network;
            names_[ network ] = link->network;
            connect( at( left ), network, *link );
         }
      } else if ( link && !link->network.empty() ) {
         connect( at( word ), at( link->network ), *link );
      } else {
         if ( link ) {
            connect( at( left ), at( word ), *link );
         }
         left = word;
         at( word );
      }
   }
}

CspfVertex
GraphText::at( const std::string & name ) {
   const auto [ entry, fresh ] = vertices_.try_emplace( name );
   if ( fresh ) {
      uint64_t rank = 0;
      for ( size_t i = 0; i < 8; ++i ) {
         rank = rank << 8 | ( i < name.size() ? static_cast< uint8_t >( name[ i ] ) : 0 );
      }
      entry->second = graph.addRouter( rank );
      names_[ entry->second ] = name;
   }
   return entry->second;
}

CspfEdge
GraphText::edge( const std::string & from, const std::string & to ) {
   for ( uint32_t e : graph.out( at( from ) ) ) {
      if ( graph.to( CspfEdge{ e } ) == at( to ) ) {
         return CspfEdge{ e };
      }
   }
   throw std::invalid_argument( "no link from " + from + " to " + to );
}

CspfEdge
GraphText::add( CspfVertex from, CspfVertex to, uint32_t metric, const Link & link ) {
   CspfEdgeRecord record;
   record.igpMetric = metric;
   record.teMetric = link.te;
   record.adminGroup = link.group;
   record.srlgs = link.srlgs;
   record.unreserved.fill( link.bandwidth );
   record.topology = link.topology;
   record.keyRank = record.interface = ++links_;
   return graph.addEdge( from, to, record );
}

void
GraphText::connect( CspfVertex from, CspfVertex to, const Link & link ) {
   const CspfEdge edge = add( from, to, link.metric, link );
   if ( !link.oneWay ) {
      graph.pairIs( edge, add( to, from, link.back.value_or( link.metric ), link ), true );
   }
}

std::string
GraphText::path( const std::vector< CspfEdge > & edges ) const {
   std::string text;
   for ( CspfEdge edge : edges ) {
      text += ( text.empty() ? name( graph.from( edge ) ) : "" ) + " " + name( graph.to( edge ) );
   }
   return text;
}
