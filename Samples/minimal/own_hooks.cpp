// Assertions and warnings in the host's own log. Builds with assertions report broken rules; every build warns of slow
// paths. The host's handlers decide what becomes of them. Without handlers, each is a line on stderr.

#include "ge_mesh_pages.h"

#include "vx_assert.h"

#include "kr_log_unique.h"

#include "minimal.h"
#include <string>

using namespace Vexmoor;

typedef std::vector<std::string> CLog;

// On the thread that broke the rule. What it returns decides: break into the debugger, silence this site, or go on.
static int OnBrokenRule(const Assert::SReport &report, void *userData)
{
	static_cast<CLog *>(userData)->push_back(std::string("broken rule: ") + report.m_Message);
	return Assert::Decision_Continue;
}

// Once for each slow path of the library that is taken, not once a frame.
static void OnSlowPath(const CLogUniqueCollection::SEntry &entry, void *userData)
{
	static_cast<CLog *>(userData)->push_back("slow path: " + entry.m_Message);
}

int main()
{
	CLog log;
	Assert::SetReportHandler(OnBrokenRule, &log);
	CPerfHotspotsRegistry::Registry()->SetFirstTouchHandler(OnSlowPath, &log);

	constexpr u32 kCount = 3;
	const CFloat3 positions[kCount] = {
		{0, 0, 1},
		{0, 0, 2},
		{0, 0, 3},
	};
	const CPositionPage pages[] = {ViewOf(positions)};
	std::vector<u32> indices(1 + kCount * 6);
	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kCount));
	u32 quad[] = {0, 1, 2, 0, 2, 3};

	// A rule broken: nothing is set up. The sort reports it and ends.
	CTriangleSorter sorter;
	sorter.SortPoints_AutogenIndices(scratch.data());
	Minimal::Require(log.size() == (VX_ASSERTIONS ? 1 : 0), "a sort that is not set up is not reported once.");

	// A slow path: the output does not start at a multiple of 16 bytes. The result is the same, and it is said once.
	log.clear();
	sorter.Setup_OutputIndexBuffer(ViewOf(indices.data() + 1, kCount * 6), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages), CFloat3(0, 0, 0));
	sorter.Setup_Geometry(ViewOf(quad), 4);
	for (u32 frame = 0; frame < 3; ++frame)
		sorter.SortPoints_AutogenIndices(scratch.data());
	for (const std::string &line : log)
		std::printf("%s\n", line.c_str());
	Minimal::Require(log.size() == 1 && log[0].find("Unaligned dst memory") != std::string::npos,
		"the slow path is not reported once.");
	Minimal::Require(indices[1] == 8 && indices[7] == 4 && indices[13] == 0, "the order is not the farthest first.");

	Assert::SetReportHandler(null, null);
	CPerfHotspotsRegistry::Registry()->SetFirstTouchHandler(null, null);
	return 0;
}
