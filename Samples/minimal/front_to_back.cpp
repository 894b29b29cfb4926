// Front to back, for opaque and cut-out particles (debris, leaves), where drawing the nearest first saves the shading
// of what they hide, and for blending under what is already drawn. The value is the squared distance: the lowest is the
// nearest.

#include "ge_mesh_pages.h"

#include "minimal.h"

using namespace Vexmoor;

int main()
{
	constexpr u32 kCount = 5;
	const CFloat3 positions[kCount] = {
		{0, 0, 3},
		{1, 0, 9},
		{0, 2, 1},
		{0, 0, 7},
		{2, 1, 5},
	};
	const CFloat3 camera(0, 0, 0);

	float values[kCount];
	for (u32 i = 0; i < kCount; ++i)
		values[i] = Minimal::SquaredDistance(positions[i], camera);

	std::vector<u32> indices(kCount * 6);
	const CSortKeyPage pages[] = {ViewOf(values)};

	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages));
	sorter.Setup_Geometry(ViewOf(quad), 4);

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kCount));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());

	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 6, 4);
	Minimal::Print("Drawn, the nearest first", drawn);
	Minimal::Require(drawn == std::vector<u32>{2, 0, 4, 3, 1}, "the particles are not drawn by rising distance.");
	return 0;
}
