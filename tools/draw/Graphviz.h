#pragma once

#include "tools/draw/Scene.h"

#include <string>

namespace Draw {

/// What Graphviz draws of that text: an SVG document, in which nodes and edges have their ids.
/// Throws std::runtime_error where Graphviz is not installed or fails.
std::string svgOf( const std::string & dot );

/// The same with all that is to be said of nodes and edges in their titles, without what only
/// Graphviz makes use of, and without what stands before the element `svg`.
std::string titled( const std::string & svg, const Scene & scene, const Moment & moment );

}
