// Ribbons by index list, for geometry whose vertices do not lie particle after particle: the segments of a ribbon share
// the vertices between them. A list gives the first vertex of each segment, and the segments of all ribbons are sorted
// together by their middles.

#include "ge_mesh_pages.h"

#include "minimal.h"

using namespace Vexmoor;

int main()
{
	// Two vertices at each point: 0 and 1 at the first, 2 and 3 at the second ...
	constexpr u32 kRibbonCount = 2;
	const std::vector<CFloat3> ribbons[kRibbonCount] = {
		{{-3, 0, 8}, {-1, 0, 6}, {1, 0, 4}, {3, 0, 2}},
		{{0, -2, 7},          {0, 0, 5},           {0, 2, 3} },
	};
	const CFloat3 camera(0, 0, 0);

	std::vector<CFloat3> middles;
	std::vector<u32> firstVertices;
	u32 vertexCount = 0;
	for (const std::vector<CFloat3> &points : ribbons)
	{
		for (size_t i = 0; i + 1 < points.size(); ++i)
		{
			const CFloat3 &a = points[i];
			const CFloat3 &b = points[i + 1];
			middles.push_back(CFloat3((a.x() + b.x()) / 2, (a.y() + b.y()) / 2, (a.z() + b.z()) / 2));
			firstVertices.push_back(vertexCount + 2 * u32(i));
		}
		vertexCount += 2 * u32(points.size());
	}

	const u32 segmentCount = u32(middles.size());
	std::vector<u32> indices(segmentCount * 6);
	const CPositionPage pages[] = {ViewOf(middles)};

	u32 segment[] = {0, 1, 2, 2, 1, 3}; // from two vertices to the next two
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), vertexCount);
	SetupInputPages(sorter, ViewOf(pages), camera);
	sorter.Setup_Geometry(ViewOf(segment), ViewOf(firstVertices));

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(segmentCount));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());

	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 6, 1);
	Minimal::Print("First vertices of the segments drawn", drawn);
	Minimal::Require(drawn == std::vector<u32>{0, 8, 2, 10, 4}, "the segments are not drawn by falling distance.");
	return 0;
}
