// Culling by enabled bytes: particles that a view does not see are neither sorted nor drawn, and nothing moves in
// memory. Drawn particles are numbered anew for every view, so an index list, filled while culling, keeps each at its
// own vertices. The sort is by value, since culling leaves mixed pages: some lose particles and some do not.

#include "ge_mesh_pages.h"

#include "minimal.h"

using namespace Vexmoor;

int main()
{
	constexpr u32 kPageCount = 3;
	constexpr u32 kPerPage = 4;
	constexpr u32 kCount = kPageCount * kPerPage;
	const float xs[kCount] = {0, 0, 8, 0, 0, 0, 0, 0, 9, 9, 9, 9}; // one page loses one, one none, one all
	const float zs[kCount] = {9, 5, 7, 2, 6, 3, 8, 4, 1, 2, 3, 4};
	const CFloat3 camera(0, 0, 0);

	float values[kCount];
	u8 enableds[kCount];
	u32 seenCounts[kPageCount] = {};
	std::vector<u32> firstVertices;
	for (u32 i = 0; i < kCount; ++i)
	{
		const bool isSeen = -zs[i] < xs[i] && xs[i] < zs[i]; // 45 degrees to each side
		values[i] = 0.0f - Minimal::SquaredDistance(CFloat3(xs[i], 0, zs[i]), camera);
		enableds[i] = isSeen ? 1 : 0;
		if (!isSeen)
			continue;
		seenCounts[i / kPerPage] += 1;
		firstVertices.push_back(i * 4);
	}
	const u32 seenCount = u32(firstVertices.size());

	CSortKeyPage pages[kPageCount];
	for (u32 page = 0; page < kPageCount; ++page)
		pages[page] = {
			ViewOf(&values[page * kPerPage], kPerPage), ViewOf(&enableds[page * kPerPage], kPerPage), seenCounts[page]};

	std::vector<u32> indices(seenCount * 6);
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages));
	sorter.Setup_Geometry(ViewOf(quad), ViewOf(firstVertices));

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(seenCount));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());

	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 6, 4);
	Minimal::Print("Drawn of 12, the farthest first", drawn);
	Minimal::Require(drawn == std::vector<u32>{0, 6, 4, 1, 7, 5, 3}, "the seen particles are not drawn by distance.");
	return 0;
}
