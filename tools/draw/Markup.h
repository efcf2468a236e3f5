#pragma once

#include <string>

namespace Draw {

/// The text as it stands between the tags of HTML, SVG, or a label of Graphviz.
inline std::string
escaped( const std::string & text ) {
   std::string escaped;
   for ( const char c : text ) {
      escaped += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : std::string( 1, c );
   }
   return escaped;
}

}
