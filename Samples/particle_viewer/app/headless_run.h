#pragma once

// A run without a display: sorts and draws the frames, then draws the last one in every order worth seeing, and
// compares it with the exact answer.

#include "arguments.h"

namespace Viewer
{
/// Prints the figures, and writes the pictures where a folder was asked for.
void RunHeadless(const SArguments &arguments);
} // namespace Viewer
