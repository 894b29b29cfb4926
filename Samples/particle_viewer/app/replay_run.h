#pragma once

// A run that draws nothing: it replays a captured sort and prints the result.

#include "ge_mesh_sort_replay.h"

#include "findings.h"
#include "library_reports.h"
#include <string>

namespace Viewer
{
using namespace Vexmoor;

/// Prints the figures. True when the sort keeps the rules and its output is the recorded one, if there is one; a file
/// that cannot be replayed is a CFailure.
bool RunReplay(const std::string &fileName);

/// Prints the figures of a capture that has been replayed, and sorts it some more times to measure it.
/// source  where the capture comes from
void PrintReplay(const std::string &source,
	CCapturedSort &capture,
	const CFindings &findings,
	const SSortReplay &replay,
	const CLibraryReports &libraryReports);
} // namespace Viewer
