#pragma once

namespace Draw {

/// What every page has: its style sheet, the controls over the drawing, and its script, which finds
/// what it shows in `data`.
extern const char * const pageStyle;
extern const char * const pageControls;
extern const char * const pageScript;

}
