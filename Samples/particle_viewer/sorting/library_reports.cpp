// The hooks of a host: one for assertions, one for what is logged once.

#include "library_reports.h"

#include "kr_log_unique.h"

#include <cstdio>

namespace Viewer
{
CLibraryReports::CLibraryReports()
{
	Assert::SetReportHandler(OnAssertion, &m_Assertions);
	CPerfHotspotsRegistry::Registry()->SetFirstTouchHandler([](const auto &, void *) {}, null);
}

CLibraryReports::~CLibraryReports()
{
	CPerfHotspotsRegistry::Registry()->SetFirstTouchHandler(null, null);
	Assert::SetReportHandler(null, null);
}

std::vector<std::string> CLibraryReports::SlowPaths()
{
	std::vector<std::string> messages;
	for (const CLogUniqueCollection::SEntry &entry : CPerfHotspotsRegistry::Registry()->Snapshot())
		messages.push_back(entry.m_Message);
	return messages;
}

int CLibraryReports::OnAssertion(const Assert::SReport &report, void *assertions)
{
	static_cast<std::vector<std::string> *>(assertions)->push_back(report.m_Message);
	std::fprintf(stderr, "%s(%d): %s\n", report.m_File, report.m_Line, report.m_Message);
	return Assert::Decision_Ignore;
}
} // namespace Viewer
