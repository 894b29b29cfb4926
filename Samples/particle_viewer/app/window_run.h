#pragma once

// A run in a window: the scene is played, and everything about its sort can be changed and watched.

#include "arguments.h"

namespace Viewer
{
/// Returns when the window is closed, or after as many frames as were asked for.
void RunWindow(const SArguments &arguments);
} // namespace Viewer
