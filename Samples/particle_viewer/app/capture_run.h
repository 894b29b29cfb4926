#pragma once

// A captured draw call without a window: in words as a replay, and in a picture of each of its orders.

#include "arguments.h"

namespace Viewer
{
/// Prints the words, and writes the pictures where a folder was asked for. Returns whether the call keeps the rules and
/// is sorted here as it is recorded.
bool RunCapture(const SArguments &arguments);
} // namespace Viewer
