// Mixed pages: some have disabled particles and some have none. This is the common case, and the one in which positions
// do not give the right order: all pages with disabled particles would be drawn before all others, however near they
// are. Values of 0 - squared distance give one order over all pages.

#include "ge_mesh_pages.h"

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
	const CFloat3 camera(0, 0, 0);

	const CPositionPage positionPages[kPageCount] = {
		{ViewOf(positions0), ViewOf(enableds0), 3},
		ViewOf(positions1),
	};

	// A value for each particle, disabled or not, in pages of the same sizes.
	std::vector<float> valuesOfPage[kPageCount];
	CSortKeyPage valuePages[kPageCount];
	for (u32 page = 0; page < kPageCount; ++page)
	{
		const TStridedMemoryView<const CFloat3> &positions = positionPages[page].m_Elements;
		for (u32 i = 0; i < positions.Count(); ++i)
			valuesOfPage[page].push_back(0.0f - Minimal::SquaredDistance(positions[i], camera));
		valuePages[page] = {
			ViewOf(valuesOfPage[page]), positionPages[page].m_Enableds, positionPages[page].m_RenderedCount};
	}

	std::vector<u32> indices(kRenderedCount * 6);
	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kRenderedCount));
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kRenderedCount * 4);
	sorter.Setup_Geometry(ViewOf(quad), 4);

	SetupInputPages(sorter, ViewOf(valuePages));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());
	const std::vector<u32> byValue = Minimal::DrawnParticles(indices, 6, 4);

	// ValidateSort advises against this one.
	SetupInputPages(sorter, ViewOf(positionPages), camera);
	sorter.SortPoints_AutogenIndices(scratch.data());
	const std::vector<u32> byPosition = Minimal::DrawnParticles(indices, 6, 4);

	Minimal::Print("By value, the farthest of all pages first", byValue);
	Minimal::Print("By position, one page before the other", byPosition);
	Minimal::Require(byValue == std::vector<u32>{1, 3, 2, 4, 0}, "the values do not give one order.");
	Minimal::Require(byPosition == std::vector<u32>{1, 2, 0, 3, 4}, "the positions give another order than they do.");
	return 0;
}
