// Graphviz says in SVG what belongs to which node or edge by groups with their ids, a line for each
// tag that opens or closes a group.

#include "tools/draw/Graphviz.h"

#include "tools/draw/Markup.h"
#include "tools/service/Program.h"
#include "tools/text/Input.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Draw {

namespace {

/// What is said of each node and edge, by id.
std::map< std::string, std::string >
titlesOf( const Scene & scene, const Moment & moment ) {
   std::map< std::string, std::string > titles;
   for ( std::size_t i = 0; i < scene.nodes.size(); ++i ) {
      titles[ scene.nodes[ i ].id ] = moment.nodes[ i ].title;
   }
   for ( std::size_t i = 0; i < scene.edges.size(); ++i ) {
      titles[ scene.edges[ i ].id ] = moment.edges[ i ].title;
      titles[ scene.edges[ i ].id + "r" ] = moment.edges[ i ].title;  // a repair's own line
   }
   return titles;
}

}

std::string
svgOf( const std::string & dot ) {
   const Service::TemporaryDirectory directory;
   const std::string in = directory.path() + "/network.dot",
                     out = directory.path() + "/network.svg";
   if ( !( std::ofstream( in ) << dot ).flush() ) {
      throw std::runtime_error( in + " cannot be written" );
   }
   Service::runProgram( { "neato", "-Tsvg", "-o", out, in },
                        "Graphviz is not installed, which lays networks out; on Debian: apt "
                        "install graphviz. Without it there is -o FILE.dot" );
   return Text::contentOf( out );
}

std::string
titled( const std::string & svg, const Scene & scene, const Moment & moment ) {
   const auto titles = titlesOf( scene, moment );
   std::istringstream lines( svg.substr( svg.find( "<svg" ) ) );
   std::string text, id;
   bool inLink = false;  // which Graphviz makes of a tooltip
   for ( std::string line; std::getline( lines, line ); ) {
      constexpr std::string_view group = "<g id=\"";
      if ( line.starts_with( "<g id=\"a_" ) ) {
         inLink = true;
         continue;
      }
      if ( line == "</a>" && inLink ) {
         std::getline( lines, line );  // of the group about it
         inLink = false;
         continue;
      }
      if ( line.starts_with( group ) ) {
         id = line.substr( group.size(), line.find( '"', group.size() ) - group.size() );
      }
      if ( const auto title = titles.find( id );
           line.starts_with( "<title>" ) && title != titles.end() ) {
         line = "<title>" + escaped( title->second ) + "</title>";
      }
      text += line + "\n";
   }
   return text;
}

}
