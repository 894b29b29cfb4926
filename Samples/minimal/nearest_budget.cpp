// A budget that keeps the nearest particles: an output with room for fewer particles than there are loses the farthest
// ones. It loses an even number of them. If the shortfall is odd, the very nearest is lost as well, and one more of the
// far ones is drawn. So if it is odd, give the output room for one particle more, and draw from the second one on.

#include "ge_mesh_pages.h"

#include "minimal.h"
#include <algorithm>

using namespace Vexmoor;

// Writes as many particles as the indices have room for.
static void Sort(const std::vector<CFloat3> &positions, std::vector<u32> &indices)
{
	const u32 count = u32(positions.size());
	const CPositionPage pages[] = {ViewOf(positions)};
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), count * 4);
	SetupInputPages(sorter, ViewOf(pages), CFloat3(0, 0, 0));
	sorter.Setup_Geometry(ViewOf(quad), 4);
	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count));
	const u32 violationCount = ValidateSort(sorter, scratch.data(), scratch.size(), null, null); // it advises more room
	Minimal::Require(violationCount == 0, "the sort breaks a rule.");
	sorter.SortPoints_AutogenIndices(scratch.data());
}

// Sorts into an output with room for budget particles, and returns the nearest ones, which a renderer draws with a
// first index and a count of indices.
static std::vector<u32> DrawNearest(const std::vector<CFloat3> &positions, u32 budget)
{
	const u32 count = u32(positions.size());
	const u32 lostCount = count - std::min(budget, count);
	const u32 skippedCount = lostCount % 2;
	std::vector<u32> indices((count - lostCount + skippedCount) * 6);
	Sort(positions, indices);

	const u32 firstIndex = skippedCount * 6;
	const std::vector<u32> drawCall(indices.begin() + firstIndex, indices.end());
	return Minimal::DrawnParticles(drawCall, 6, 4);
}

int main()
{
	constexpr u32 kCount = 10;
	std::vector<CFloat3> positions;
	for (u32 i = 0; i < kCount; ++i)
		positions.push_back(CFloat3(0, 0, float(kCount - i))); // particle 9 is the nearest

	std::vector<u32> roomForSeven(7 * 6);
	Sort(positions, roomForSeven);
	const std::vector<u32> asWritten = Minimal::DrawnParticles(roomForSeven, 6, 4);
	Minimal::Print("Room for 7 of 10: three are lost, the nearest among them", asWritten);
	Minimal::Require(asWritten == std::vector<u32>{2, 3, 4, 5, 6, 7, 8}, "the output has lost others.");

	for (u32 budget = 1; budget <= kCount + 1; ++budget)
	{
		std::vector<u32> nearest;
		for (u32 i = kCount - std::min(budget, kCount); i < kCount; ++i)
			nearest.push_back(i);
		Minimal::Require(DrawNearest(positions, budget) == nearest, "a budget does not keep the nearest.");
	}
	Minimal::Print("A budget of 7", DrawNearest(positions, 7));
	return 0;
}
