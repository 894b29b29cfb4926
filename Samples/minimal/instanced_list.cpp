// A sorted list of particle numbers, for instanced drawing and for shaders that fetch particles themselves. The pattern
// {0} with one vertex per particle writes one number for each particle, a sixth of the indices of quads. A shader reads
// entry i of the list for instance i, or for vertices 4 i to 4 i + 3.

#include "ge_mesh_pages.h"

#include "minimal.h"

using namespace Vexmoor;

int main()
{
	constexpr u32 kCount = 1000;
	const std::vector<CFloat3> positions = Minimal::ScatteredPoints(kCount, 1);
	const CFloat3 camera(0, 0, -30);

	std::vector<u32> list(kCount);
	const CPositionPage pages[] = {ViewOf(positions)};

	u32 pattern[] = {0};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(list), kCount);
	SetupInputPages(sorter, ViewOf(pages), camera);
	sorter.Setup_Geometry(ViewOf(pattern), 1);

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kCount));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());

	Minimal::Print("The first of the list", std::vector<u32>(list.begin(), list.begin() + 8));
	Minimal::Require(Minimal::IsFarthestFirst(list, positions, camera), "the list is not in the order of distance.");
	return 0;
}
