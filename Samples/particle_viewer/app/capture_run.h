#pragma once

// A run that shows a captured draw call without a window: it prints what a replay says, and draws a picture of each
// order.

#include "arguments.h"

namespace Viewer
{
/// Prints the words, and writes the pictures where a folder was asked for. Returns whether the call keeps the rules and
/// is sorted here as it is recorded.
bool RunCapture(const SArguments &arguments);
} // namespace Viewer
