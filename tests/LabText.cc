// Topologies as one-liners, made into a topology of a lab file. The header states the conventions.
// Text that does not follow them is an error of the test and throws.

#include "tests/LabText.h"

#include <cstdio>
#include <cstring>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace {

using Json = nlohmann::json;

std::string
numbered( const char * format, std::size_t a, std::size_t b = 0 ) {
   char text[ 32 ];
   std::snprintf( text, sizeof text, format, a, b );
   return text;
}

/// What stands between two routers: "-10{te 5}-", "=lan1 20=".
struct Connector {
   Json attributes = Json::object();
   std::string lan;

   explicit Connector( std::string text );
   void attribute( const std::string & word, std::uint32_t value );
};

Connector::Connector( std::string text ) {
   const bool oneWay = text.back() == '>';
   const bool isLan = text.front() == '=';
   text = text.substr( 1, text.size() - 2 );
   for ( char & c : text ) {
      c = c == '{' || c == '}' ? ' ' : c;
   }
   std::istringstream words( text );
   if ( isLan ) {
      words >> lan;
   }
   if ( std::uint32_t metric = 0; words >> metric ) {
      attributes[ "metric" ] = metric;
   } else {
      words.clear();
   }
   std::uint32_t value = 0;
   for ( std::string word; words >> word >> value; ) {
      attribute( word, value );
   }
   if ( oneWay ) {
      attributes[ "ba" ] = false;
   }
}

void
Connector::attribute( const std::string & word, std::uint32_t value ) {
   if ( word == "te" ) {
      attributes[ "teMetric" ] = value;
   } else if ( word == "back" ) {
      attributes[ "ba" ][ "metric" ] = value;
   } else if ( word == "group" ) {
      attributes[ "adminGroup" ] = value;
   } else if ( word == "srlg" ) {
      attributes[ "srlg" ].push_back( value );
   } else if ( word == "bw" ) {
      attributes[ "bandwidth" ] = value;
   } else {
      throw std::invalid_argument( "unknown attribute " + word );
   }
}

class Builder {
 public:
   void statement( const std::string & text );
   Json topology{
      { "routers", Json::object() }, { "links", Json::object() }, { "lans", Json::object() } };

 private:
   Json & router( const std::string & name );
   void link( const std::string & a, const std::string & b, Json link );
   void member( const std::string & name, const Connector & connector );

   std::vector< std::string > routers_, lans_;
};

Json &
Builder::router( const std::string & name ) {
   auto & router = topology[ "routers" ][ name ];
   if ( router.is_null() ) {
      routers_.push_back( name );
      const std::string address = numbered( "10.0.0.%zu", routers_.size() );
      router = { { "id", numbered( "0000.0000.%04zu", routers_.size() ) },
                 { "teRouterId", address },
                 { "prefixes", { { address + "/32", 0 } } } };
   }
   return router;
}

void
Builder::link( const std::string & a, const std::string & b, Json link ) {
   router( b );
   auto & links = topology[ "links" ];
   const std::size_t number = links.size() + 1;
   std::string name = a + "-" + b;
   for ( int count = 2; links.contains( name ); ++count ) {
      name = a + "-" + b + ":" + std::to_string( count );
   }
   link[ "a" ] = a;
   link[ "b" ] = b;
   link[ "aAddr" ] = numbered( "10.64.%zu.%zu", 2 * number / 256, 2 * number % 256 );
   link[ "bAddr" ] = numbered( "10.64.%zu.%zu", 2 * number / 256, 2 * number % 256 + 1 );
   links[ name ] = std::move( link );
}

void
Builder::member( const std::string & name, const Connector & connector ) {
   router( name );
   auto & lan = topology[ "lans" ][ connector.lan ];
   if ( lan.is_null() ) {
      lans_.push_back( connector.lan );
      lan = { { "dr", name }, { "members", Json::object() } };
   }
   const auto position = []( const std::vector< std::string > & names, const std::string & one ) {
      return static_cast< std::size_t >( std::find( names.begin(), names.end(), one )
                                         - names.begin() )
             + 1;
   };
   Json member = connector.attributes;
   member[ "addr" ] =
      numbered( "10.128.%zu.%zu", position( lans_, connector.lan ), position( routers_, name ) );
   member[ "intf" ] = connector.lan + "." + name;
   lan[ "members" ][ name ] = std::move( member );
}

void
Builder::statement( const std::string & text ) {
   std::istringstream words( text );
   std::string left;
   std::optional< Connector > connector;
   for ( std::string word; words >> word; ) {
      if ( word == "overload" && words >> word ) {
         router( word )[ "overload" ] = true;
      } else if ( word == "plain" && words >> word ) {
         router( word ).erase( "teRouterId" );
      } else if ( word.front() == '-' || word.front() == '=' ) {
         for ( std::string more; word.size() == 1 || !std::strchr( "->=", word.back() ); ) {
            if ( !( words >> more ) ) {
               throw std::invalid_argument( "unfinished: " + text );
            }
            word += ' ' + more;
         }
         connector.emplace( word );
         if ( !connector->lan.empty() ) {
            member( left, *connector );
         }
      } else if ( connector && !connector->lan.empty() ) {
         member( word, *connector );
      } else {
         if ( connector ) {
            link( left, word, connector->attributes );
         }
         left = word;
         router( word );
      }
   }
}

}

nlohmann::json
labTopology( std::string_view text ) {
   Builder builder;
   std::istringstream statements{ std::string( text ) };
   for ( std::string statement; std::getline( statements, statement, ';' ); ) {
      builder.statement( statement );
   }
   return builder.topology;
}

nlohmann::json
inIpv6( const nlohmann::json & part ) {
   static const std::regex address( R"re("(\d+)\.(\d+)\.(\d+)\.(\d+)(?=["/]))re" ),
      length( "/32\"" );
   const std::string text = std::regex_replace( part.dump(), address, "\"fd00::$1:$2:$3:$4" );
   return nlohmann::json::parse( std::regex_replace( text, length, "/128\"" ) );
}

nlohmann::json
labInFamily( std::string_view text, bool isV6, const nlohmann::json & clients ) {
   nlohmann::json document{ { "router", "A" },
                            { "topologies", { { "core", labTopology( text ) } } } };
   if ( isV6 ) {
      document = inIpv6( document );
      document[ "topologies" ][ "core" ][ "af" ] = "ipv6";
   }
   document.update( clients );
   document[ "te" ][ "routerId" ] = "10.0.0.1";
   return document;
}
