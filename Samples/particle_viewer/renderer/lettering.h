#pragma once

// Text in pictures, in a font that most desktops have, or in plain strokes if that font is not installed.

#include "vx_defs.h"

#include "picture.h"
#include <string>

namespace Viewer
{
using namespace Vexmoor;

/// Where the font is looked for.
extern const char *const kFontFile;

/// How wide a text is, in pixels, in letters of a height from the lowest descender to the highest ascender.
u32 TextWidth(const std::string &text, u32 height);
/// Draws a text with its upper left corner there; what is beyond the picture is cut off.
void DrawText(SPicture &picture, u32 left, u32 top, const std::string &text, u32 height, const SRgb &colour);
} // namespace Viewer
