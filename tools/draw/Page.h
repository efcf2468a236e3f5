#pragma once

#include "tools/draw/Scene.h"

#include <string>
#include <vector>

namespace Draw {

/// One HTML file that needs nothing else: the drawing of the scene's first moment, as `titled`
/// gives it, a slider over all moments, and a list of the paths, which light up. `lit`: paths that
/// are lit from the start. "#moment=2&path=CLIENT/PATH" behind the file's name opens it so.
std::string pageText( const Scene & scene, const std::string & svg, const std::string & name,
                      const std::vector< std::string > & lit );

}
