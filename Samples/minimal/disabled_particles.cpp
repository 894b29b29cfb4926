// Pages with disabled particles, for simulations that leave dead particles in their slots until a page is tidied: a
// byte per particle says whether it is drawn. Drawn particles are numbered through all pages, and only they have
// vertices. All pages here have disabled particles, so positions give one order over them; mixed_pages.cpp shows what
// to do if only some have.

#include "ge_mesh_pages.h"

#include "minimal.h"

using namespace Vexmoor;

int main()
{
	const CFloat3 positions0[] = {
		{0, 0, 2 },
		{0, 0, 50},
		{0, 0, 6 },
		{0, 0, 4 },
	};
	const CFloat3 positions1[] = {
		{0, 0, 5 },
		{0, 0, 1 },
		{0, 0, 60},
	};
	const u8 enableds0[] = {1, 0, 1, 1}; // drawn: 0, 1 and 2
	const u8 enableds1[] = {1, 1, 0};    // drawn: 3 and 4
	constexpr u32 kRenderedCount = 5;
	const CFloat3 camera(0, 0, 0);

	const CPositionPage pages[] = {
		{ViewOf(positions0), ViewOf(enableds0), 3},
		{ViewOf(positions1), ViewOf(enableds1), 2},
	};

	std::vector<u32> indices(kRenderedCount * 6);
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kRenderedCount * 4);
	SetupInputPages(sorter, ViewOf(pages), camera);
	sorter.Setup_Geometry(ViewOf(quad), 4);

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kRenderedCount));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());

	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 6, 4);
	Minimal::Print("Drawn particles of both pages, the farthest first", drawn);
	Minimal::Require(drawn == std::vector<u32>{1, 3, 2, 0, 4}, "the enabled particles are not drawn by distance.");
	return 0;
}
