// A program, a plug-in and the shared library are one process: its services are there once, and an assertion site of a
// header, which all three compile, is ignored by all three as soon as one is told to.

#include "vx_assert.h"

#include "plug_in.h"
#include <cstdio>
#include <map>
#include <string>

using namespace Vexmoor;

typedef std::map<std::string, int> CReportCounts; // by the site's function and condition

static int CountReport(const Assert::SReport &report, void *reportCounts)
{
	++(*static_cast<CReportCounts *>(reportCounts))[std::string(report.m_Function) + ": " + report.m_ConditionText];
	return Assert::Decision_Ignore;
}

// Of no particles the sort asks for the first record all the same.
static void LibraryReadsPastView()
{
	const TStridedMemoryView<const float> values;
	const TStridedMemoryView<const u8> enableds;
	const u32 renderedCount = 0;
	u32 pattern = 0;
	u32 output = 0;
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(output), 1);
	sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(values), CTriangleSorter::CEnabledPages(enableds),
		CTriangleSorter::CRenderedCounts(renderedCount), 0);
	sorter.Setup_Geometry(TMemoryView<u32>(pattern), 1);
	sorter.SortPoints_AutogenIndices(null);
}

int main()
{
	if (!(FindServices() == PlugInFindsServices()))
	{
		std::puts("the plug-in has services of its own");
		return 1;
	}

	CReportCounts reportCounts;
	Assert::SetReportHandler(&CountReport, &reportCounts);
	LibraryReadsPastView();
	PlugInReadsPastViews();
	ReadPastViews();

	bool eachOnce = true;
	for (const auto &[site, count] : reportCounts)
	{
		std::printf("reported %d times: %s\n", count, site.c_str());
		eachOnce &= count == 1;
	}
	return eachOnce && reportCounts.size() == kHeaderSites ? 0 : 1;
}
