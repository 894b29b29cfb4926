#pragma once

// A run that draws nothing: replays a captured sort and says what became of it.

#include <string>

namespace Viewer
{
/// Prints the figures. True when the sort keeps the rules and its output is the recorded one, if there is one; a file
/// that cannot be replayed is a CFailure.
bool RunReplay(const std::string &fileName);
} // namespace Viewer
