#pragma once

// A run without a display: so many frames, then the last one in every order worth seeing, beside the exact answer.

#include "arguments.h"

namespace Viewer
{
/// Prints the figures, and writes the pictures where a folder was asked for.
void RunHeadless(const SArguments &arguments);
} // namespace Viewer
