#pragma once

#include "tools/draw/Scene.h"

#include <string>
#include <vector>

namespace Draw {

/// The scene at one moment in the language of Graphviz, laid out by its program `neato`, or where
/// the routers have places by these. The routes that are named are thick, those of repairs dashed
/// and their nodes ringed, each in a colour of its own, with a legend.
std::string dotText( const Scene & scene, const Moment & moment,
                     const std::vector< std::string > & lit );

/// Colours of routes, in turn.
const std::string & routeColour( std::size_t number );
extern const char * const downColour;
extern const char * const linkColour;

}
