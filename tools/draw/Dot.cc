// Names and titles are quoted; all else is made here. Everything is drawn by attributes, so that
// the text can be laid out and drawn by hand as well.

#include "tools/draw/Dot.h"

#include "tools/draw/Markup.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace Draw {

// Told apart by those who do not see red or green as well (Okabe and Ito), and none is red.
const std::string &
routeColour( std::size_t number ) {
   static const std::array< std::string, 6 > colours{ "#0072b2", "#009e73", "#cc79a7",
                                                      "#e69f00", "#56b4e9", "#7a4fb5" };
   return colours[ number % colours.size() ];
}

const char * const downColour = "#d62728";
const char * const linkColour = "#8c8c8c";

namespace {

std::string
dotString( const std::string & text ) {
   std::string quoted = "\"";
   for ( const char c : text ) {
      quoted += c == '"' || c == '\\' ? std::string( "\\" ) + c
                : c == '\n'           ? "\\n"
                                      : std::string( 1, c );
   }
   return quoted + "\"";
}

std::string
number( double value ) {
   char text[ 32 ];
   std::snprintf( text, sizeof text, "%.2f", value );
   return text;
}

using Places = std::vector< std::optional< Lab::LabPlace > >;

/// LANs stand amid their members.
void
placeLans( const Scene & scene, Places & places ) {
   std::vector< std::vector< Lab::LabPlace > > members( places.size() );
   for ( const Edge & edge : scene.edges ) {
      if ( scene.nodes[ edge.b ].lan && places[ edge.a ] ) {
         members[ edge.b ].push_back( *places[ edge.a ] );
      }
   }
   for ( std::size_t i = 0; i < places.size(); ++i ) {
      const auto count = static_cast< double >( members[ i ].size() );
      for ( const Lab::LabPlace & member : members[ i ] ) {
         places[ i ] = places[ i ].value_or( Lab::LabPlace() );
         places[ i ]->right += member.right / count;
         places[ i ]->up += member.up / count;
      }
   }
}

/// In inches, about the middle: links are as long as drawings like them.
Places
placesOf( const Scene & scene ) {
   Places places;
   Lab::LabPlace middle;
   double count = 0;
   for ( const Node & node : scene.nodes ) {
      places.push_back( node.at );
      middle.right += node.at ? node.at->right : 0;
      middle.up += node.at ? node.at->up : 0;
      count += node.at.has_value();
   }
   placeLans( scene, places );
   std::vector< double > lengths;
   for ( const Edge & edge : scene.edges ) {
      const auto & a = places[ edge.a ];
      const auto & b = places[ edge.b ];
      if ( a && b && *a != *b ) {
         lengths.push_back( std::hypot( a->right - b->right, a->up - b->up ) );
      }
   }
   std::ranges::sort( lengths );
   const double inches = lengths.empty() ? 1 : 1.4 / lengths[ lengths.size() / 2 ];
   for ( auto & place : places ) {
      if ( place ) {
         place = { ( place->right - middle.right / count ) * inches,
                   ( place->up - middle.up / count ) * inches };
      }
   }
   return places;
}

class Writer {
 public:
   Writer( const Scene & scene, const Moment & moment, const std::vector< std::string > & lit )
      : scene_( scene ),
        moment_( moment ),
        places_( placesOf( scene ) ),
        drawn_( scene.edges.size() ),
        rings_( scene.nodes.size() ) {
      for ( const std::string & name : lit ) {
         const auto route = std::ranges::find( moment.routes, name, &Route::name );
         if ( route != moment.routes.end() ) {
            light( *route );
         }
      }
   }

   std::string write() {
      head();
      for ( std::size_t i = 0; i < scene_.nodes.size(); ++i ) {
         node( i );
      }
      for ( std::size_t i = 0; i < scene_.edges.size(); ++i ) {
         edge( i );
      }
      return text_ + "}\n";
   }

 private:
   /// Routes over an edge: those of paths, or those of repairs.
   struct Drawn {
      std::vector< std::string > colours;
      bool forward = false, backward = false;
   };
   struct Both {
      Drawn paths, repairs;
   };

   void light( const Route & route ) {
      const std::string & colour = routeColour( legend_.size() );
      legend_.push_back( &route );
      for ( const Route::Step & step : route.steps ) {
         Both & both = drawn_[ step.edge ];
         Drawn & drawn = route.repair ? both.repairs : both.paths;
         if ( std::ranges::count( drawn.colours, colour ) == 0 ) {
            drawn.colours.push_back( colour );
         }
         ( step.forward ? drawn.forward : drawn.backward ) = true;
      }
      for ( const std::size_t node : route.rings ) {
         rings_[ node ] = colour;
      }
   }

   void attribute( const char * name, const std::string & value ) {
      text_ += std::string( line_ ? ", " : "" ) + name + "=" + value;
      line_ = true;
   }
   void begin( const std::string & what ) {
      text_ += "  " + what + " [";
      line_ = false;
   }
   void end() { text_ += "];\n"; }

   /// More room about the nodes of a large network, smaller letters on its links.
   void head() {
      const bool large = scene_.nodes.size() > 100;
      text_ = "graph network {\n"
              "  graph [layout=neato, start=1, overlap=prism, overlap_scaling=3, splines=line, "
              "outputorder=edgesfirst, fontname=\"Helvetica\", fontsize=11, labeljust=l, sep=\"+";
      text_ += large ? "10" : "20";
      text_ += "\"";
      if ( !legend_.empty() ) {
         text_ += ", label=<";
         for ( std::size_t i = 0; i < legend_.size(); ++i ) {
            text_ += "<FONT COLOR=\"" + routeColour( i ) + "\"><B>" + escaped( legend_[ i ]->name )
                     + "</B></FONT>: " + escaped( legend_[ i ]->text ) + "<BR ALIGN=\"LEFT\"/>";
         }
         text_ += ">";
      }
      text_ +=
         "];\n"
         "  node [shape=box, style=\"rounded,filled\", fillcolor=\"#ffffff\", "
         "fontname=\"Helvetica\", fontsize=10, margin=\"0.06,0.03\", width=0.2, height=0.2];\n"
         "  edge [fontname=\"Helvetica\", fontcolor=\"#555555\", fontsize=";
      text_ += large ? "7" : "8";
      text_ += "];\n";
   }

   void node( std::size_t i ) {
      const Node & node = scene_.nodes[ i ];
      const Look & look = moment_.nodes[ i ];
      begin( node.id );
      attribute( "id", node.id );
      attribute( "label", dotString( node.name ) );
      attribute( "tooltip", dotString( look.title ) );
      if ( node.lan ) {
         attribute( "style", "filled" );
         attribute( "fillcolor", "\"#dddddd\"" );
         attribute( "fontsize", "7" );
      }
      if ( node.self ) {
         attribute( "fillcolor", "\"#fff2b3\"" );
         attribute( "penwidth", "2" );
      }
      if ( !look.up ) {
         attribute( "color", dotString( downColour ) );
         attribute( "fontcolor", dotString( downColour ) );
      } else if ( !rings_[ i ].empty() ) {
         attribute( "color", dotString( rings_[ i ] ) );
         attribute( "penwidth", "2" );
         attribute( "peripheries", "2" );
      }
      if ( const auto & place = places_[ i ] ) {
         attribute( "pos", "\"" + number( place->right ) + "," + number( place->up ) + "!\"" );
      }
      end();
   }

   /// Where paths and repairs share a link, the repairs have a line of their own beside it.
   void edge( std::size_t i ) {
      const Look & look = moment_.edges[ i ];
      const auto & [ paths, repairs ] = drawn_[ i ];
      const bool beside = !paths.colours.empty() && !repairs.colours.empty();
      beginEdge( i, "" );
      attribute( "label", dotString( look.label ) );
      if ( !look.up ) {
         attribute( "fontcolor", dotString( downColour ) );
      }
      if ( !paths.colours.empty() ) {
         strokes( paths, "4" );
      } else if ( !repairs.colours.empty() ) {
         strokes( repairs, "3" );
         attribute( "style", "dashed" );
      } else {
         attribute( "color", dotString( look.up ? linkColour : downColour ) );
         attribute( "penwidth", number( look.up ? scene_.width( look ) : 1.5 ) );
      }
      end();
      if ( beside ) {
         beginEdge( i, "r" );
         strokes( repairs, "3" );
         attribute( "style", "dashed" );
         end();
      }
   }

   void beginEdge( std::size_t i, const char * behindId ) {
      const Edge & edge = scene_.edges[ i ];
      begin( scene_.nodes[ edge.a ].id + " -- " + scene_.nodes[ edge.b ].id );
      attribute( "id", edge.id + behindId );
      attribute( "tooltip", dotString( moment_.edges[ i ].title ) );
   }

   void strokes( const Drawn & drawn, const char * width ) {
      std::string colours;
      for ( const std::string & colour : drawn.colours ) {
         colours += ( colours.empty() ? "" : ":" ) + colour;
      }
      attribute( "color", dotString( colours ) );
      attribute( "penwidth", width );
      attribute( "arrowsize", "0.6" );
      attribute( "dir", drawn.forward && drawn.backward ? "both"
                        : drawn.forward                 ? "forward"
                                                        : "back" );
   }

   const Scene & scene_;
   const Moment & moment_;
   const Places places_;
   std::vector< Both > drawn_;         // by edge
   std::vector< std::string > rings_;  // colours
   std::vector< const Route * > legend_;
   std::string text_;
   bool line_ = false;
};

}

std::string
dotText( const Scene & scene, const Moment & moment, const std::vector< std::string > & lit ) {
   return Writer( scene, moment, lit ).write();
}

}
