// Mixed pages: some have disabled particles and some have none. This is the common case, and the one in which positions
// do not give the right order: all pages with disabled particles would be drawn before all others, however near they
// are. Values of 0 - squared distance give one order over all pages.

#include "ge_mesh_triangle_sorter.h"

#include "minimal.h"

using namespace Vexmoor;

int main()
{
	constexpr u32 kPageCount = 2;
	constexpr u32 kRenderedCount = 5;
	const CFloat3 positions0[] = {
		{0, 0, 1 },
		{0, 0, 50},
		{0, 0, 5 },
		{0, 0, 3 },
	};
	const u8 enableds0[] = {1, 0, 1, 1}; // drawn: 0, 1 and 2
	const CFloat3 positions1[] = {
		{0, 0, 4},
		{0, 0, 2},
	}; // drawn: 3 and 4
	const u32 renderedCounts[kPageCount] = {3, 2};
	const CFloat3 camera(0, 0, 0);

	const TStridedMemoryView<const CFloat3> positions[kPageCount] = {
		{positions0, 4, sizeof(CFloat3)},
		{positions1, 2, sizeof(CFloat3)},
	};
	const TStridedMemoryView<const u8> enableds[kPageCount] = {
		{enableds0, 4, 1},
		{ },
	};

	// A value for each particle, disabled or not, in pages of the same sizes.
	std::vector<float> valuesOfPage[kPageCount];
	TStridedMemoryView<const float> values[kPageCount];
	for (u32 page = 0; page < kPageCount; ++page)
	{
		const u32 count = positions[page].Count();
		for (u32 i = 0; i < count; ++i)
			valuesOfPage[page].push_back(0.0f - Minimal::SquaredDistance(positions[page][i], camera));
		values[page] = TStridedMemoryView<const float>(valuesOfPage[page].data(), count, sizeof(float));
	}
	const CTriangleSorter::CEnabledPages enabledPages(enableds, kPageCount, sizeof(enableds[0]));
	const CTriangleSorter::CRenderedCounts countPages(renderedCounts, kPageCount, sizeof(u32));

	std::vector<u32> indices(kRenderedCount * 6);
	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kRenderedCount));
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(indices.data(), kRenderedCount * 6), kRenderedCount * 4);
	sorter.Setup_Geometry(TMemoryView<u32>(quad, 6), 4);

	sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(values, kPageCount, sizeof(values[0])), enabledPages,
		countPages, kRenderedCount);
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());
	const std::vector<u32> byValue = Minimal::DrawnParticles(indices, 6, 4);

	// ValidateSort advises against this one.
	sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(positions, kPageCount, sizeof(positions[0])),
		enabledPages, countPages, kRenderedCount, camera);
	sorter.SortPoints_AutogenIndices(scratch.data());
	const std::vector<u32> byPosition = Minimal::DrawnParticles(indices, 6, 4);

	Minimal::Print("By value, the farthest of all pages first", byValue);
	Minimal::Print("By position, one page before the other", byPosition);
	Minimal::Require(byValue == std::vector<u32>{1, 3, 2, 4, 0}, "the values do not give one order.");
	Minimal::Require(byPosition == std::vector<u32>{1, 2, 0, 3, 4}, "the positions give another order than they do.");
	return 0;
}
