// The page draws nothing anew: it changes strokes, labels and titles of what Graphviz drew, and
// lays the strokes of lit paths over it. Of later moments it is told what differs from the first.

#include "tools/draw/Page.h"

#include "tools/draw/Dot.h"
#include "tools/draw/Markup.h"
#include "tools/draw/PageParts.h"

#include <nlohmann/json.hpp>

namespace Draw {

namespace {

using Json = nlohmann::json;

Json
edgeJson( const Scene & scene, const Look & look ) {
   return { { "up", look.up },
            { "width", look.up ? scene.width( look ) : 1.5 },
            { "label", look.label },
            { "title", look.title } };
}

Json
nodeJson( const Look & look ) {
   return { { "up", look.up }, { "title", look.title } };
}

Json
routeJson( const Scene & scene, const Route & route ) {
   Json json{ { "text", route.text },
              { "repair", route.repair },
              { "steps", Json::array() },
              { "rings", Json::array() } };
   for ( const Route::Step & step : route.steps ) {
      json[ "steps" ].push_back( { scene.edges[ step.edge ].id, step.forward } );
   }
   for ( const std::size_t node : route.rings ) {
      json[ "rings" ].push_back( scene.nodes[ node ].id );
   }
   return json;
}

Json
momentJson( const Scene & scene, const Moment & moment ) {
   Json json{ { "text", moment.text },
              { "nodes", Json::object() },
              { "edges", Json::object() },
              { "routes", Json::object() } };
   for ( std::size_t i = 0; i < scene.nodes.size(); ++i ) {
      json[ "nodes" ][ scene.nodes[ i ].id ] = nodeJson( moment.nodes[ i ] );
   }
   for ( std::size_t i = 0; i < scene.edges.size(); ++i ) {
      json[ "edges" ][ scene.edges[ i ].id ] = edgeJson( scene, moment.edges[ i ] );
   }
   for ( const Route & route : moment.routes ) {
      json[ "routes" ][ route.name ] = routeJson( scene, route );
   }
   return json;
}

/// What of a later moment differs; null where something is not there any more.
void
leaveDifferences( Json & moment, const Json & first ) {
   for ( const char * kind : { "nodes", "edges", "routes" } ) {
      Json & entries = moment[ kind ];
      for ( const auto & [ name, entry ] : first[ kind ].items() ) {
         if ( !entries.contains( name ) ) {
            entries[ name ] = nullptr;
         } else if ( entries[ name ] == entry ) {
            entries.erase( name );
         }
      }
   }
}

/// As it may stand inside of an element `script`.
std::string
scriptText( const Json & json ) {
   std::string text = json.dump( -1, ' ', false, Json::error_handler_t::replace );
   for ( auto at = text.find( '<' ); at != text.npos; at = text.find( '<', at ) ) {
      text.replace( at, 1, "\\u003c" );
   }
   return text;
}

}

std::string
pageText( const Scene & scene, const std::string & svg, const std::string & name,
          const std::vector< std::string > & lit ) {
   Json data{ { "moments", Json::array() },
              { "lit", lit },
              { "down", downColour },
              { "link", linkColour },
              { "colours", Json::array() } };
   for ( std::size_t i = 0; i < 6; ++i ) {
      data[ "colours" ].push_back( routeColour( i ) );
   }
   for ( const Moment & moment : scene.moments ) {
      Json json = momentJson( scene, moment );
      if ( !data[ "moments" ].empty() ) {
         leaveDifferences( json, data[ "moments" ][ 0 ] );
      }
      data[ "moments" ].push_back( std::move( json ) );
   }
   return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>"
          + escaped( name ) + "</title>\n<style>" + pageStyle
          + "</style>\n</head>\n<body>\n<header>" + "<h1>" + escaped( name ) + "</h1>"
          + pageControls + "</header>\n<main><nav id=\"paths\">" + "</nav><div id=\"picture\">"
          + svg + "</div></main>\n<script>\nconst data = " + scriptText( data ) + ";\n" + pageScript
          + "</script>\n</body>\n</html>\n";
}

}
