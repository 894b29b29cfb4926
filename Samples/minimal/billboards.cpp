// Billboards by distance, the first sort to try: every particle draws the same quad, and the particle farthest from the
// camera is drawn first.

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

	// Where the indices go: mapped index memory in a renderer.
	std::vector<u32> indices(kCount * 6);

	// All particles lie in one page, and an empty view of enabled bytes says that none is disabled.
	const CPositionPage pages[] = {ViewOf(positions)};

	u32 quad[] = {0, 1, 2, 0, 2, 3}; // relative to the particle's first vertex
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages), camera);
	sorter.Setup_Geometry(ViewOf(quad), 4);

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kCount));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());

	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 6, 4);
	Minimal::Print("Drawn, the farthest first", drawn);
	Minimal::Require(drawn == std::vector<u32>{1, 3, 4, 0, 2}, "the particles are not drawn by falling distance.");
	Minimal::Require(indices[0] == 4 && indices[1] == 5 && indices[2] == 6 && indices[5] == 7,
		"the first quad is not that of vertices 4 to 7.");
	return 0;
}
