#pragma once

// Receives what the library reports while the viewer runs: counts assertions, and collects warnings of slow paths.

#include "vx_assert.h"
#include "vx_defs.h"

#include <string>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// Listens to the process-wide hooks while it lives.
class CLibraryReports
{
public:
	CLibraryReports();
	~CLibraryReports();
	CLibraryReports(const CLibraryReports &) = delete;
	CLibraryReports &operator=(const CLibraryReports &) = delete;

	/// The assertions so far, which have been told on standard error too.
	const std::vector<std::string> &Assertions() const { return m_Assertions; }
	/// The warnings so far, once each.
	static std::vector<std::string> SlowPaths();

private:
	static int OnAssertion(const Assert::SReport &report, void *assertions);

	std::vector<std::string> m_Assertions;
};
} // namespace Viewer
