// A host's first program: five particles of one page, sorted back to front. It exits with 0 when their order is right.

#include "ge_mesh_triangle_sorter.h"

using namespace Vexmoor;

int main()
{
	const CFloat3 positions[] = {
		{0, 0, 1},
        {0, 0, 5},
        {0, 0, 3},
        {0, 0, 2},
        {0, 0, 4}
    };
	const TStridedMemoryView<const CFloat3> positionPage(positions, 5, sizeof(CFloat3));
	const TStridedMemoryView<const u8> enabledPage; // none is disabled
	const u32 renderedCount = 5;

	u32 quad[] = {0, 1, 2, 0, 2, 3};
	u32 indices[5 * 6];

	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(indices, 5 * 6), 5 * 4);
	sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(&positionPage, 1, sizeof(positionPage)),
		CTriangleSorter::CEnabledPages(&enabledPage, 1, sizeof(enabledPage)),
		CTriangleSorter::CRenderedCounts(&renderedCount, 1, sizeof(renderedCount)), 5, CFloat3(0, 0, 0));
	sorter.Setup_Geometry(TMemoryView<u32>(quad, 6), 4);
	sorter.SortPoints_AutogenIndices(null);

	const u32 farthestFirst[] = {1, 4, 2, 3, 0};
	for (u32 i = 0; i < 5; ++i)
	{
		if (indices[i * 6] != farthestFirst[i] * 4)
			return 1;
	}
	return 0;
}
