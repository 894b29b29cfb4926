// Triangles of a mesh that share vertices, sorted by their own depth: for glass objects and hair. With
// triangle_depth.cpp, every triangle would need vertices of its own. The sorter's stages can do it: make a record of
// each triangle's middle, sort the records, and gather the triangles in their order.

#include "ge_mesh_triangle_sorter.h"

#include "kr_sort.h"
#include "kr_views.h"

#include "minimal.h"
#include <cmath>

using namespace Vexmoor;

int main()
{
	// A torus: the far side of its tube has to come before the near one, all the way round.
	constexpr u32 kAround = 24;
	constexpr u32 kAcross = 12;
	std::vector<CFloat3> vertices;
	std::vector<u32> meshIndices;
	for (u32 i = 0; i < kAround; ++i)
	{
		for (u32 j = 0; j < kAcross; ++j)
		{
			const float u = float(i) * (6.2831853f / float(kAround));
			const float v = float(j) * (6.2831853f / float(kAcross));
			const float radius = 4 + 1.5f * std::cos(v);
			vertices.push_back(CFloat3(radius * std::cos(u), 1.5f * std::sin(v), radius * std::sin(u)));
			const u32 a = i * kAcross + j, b = i * kAcross + (j + 1) % kAcross;
			const u32 c = (a + kAcross) % (kAround * kAcross), d = (b + kAcross) % (kAround * kAcross);
			meshIndices.insert(meshIndices.end(), {a, b, c, c, b, d});
		}
	}
	const u32 indexCount = u32(meshIndices.size());
	const u32 triangleCount = indexCount / 3;
	const CFloat3 camera(3, 6, -12);

	std::vector<CFloat3> middles(triangleCount);
	for (u32 i = 0; i < indexCount; ++i)
		for (u32 axis = 0; axis < 3; ++axis)
			middles[i / 3][axis] += vertices[meshIndices[i]][axis] / 3;

	// A record's index is its triangle's number. Two arrays of records: a sort reads one and leaves the result in the
	// other. A triangle sort's working buffer holds both.
	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(indexCount));
	const TMemoryView<SIndexAndDepth> records =
		CTriangleSorter::WorkingBuffer_SortedTris(scratch.data(), indexCount, 1);
	const TMemoryView<SIndexAndDepth> sorted = CTriangleSorter::WorkingBuffer_SortedTris(scratch.data(), indexCount, 0);
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(records, ViewOf(middles), camera, {}, 0, 1);
	Sort<SSortKeyExtractor_TriangleIndexAndDepth>(records.Begin(), records.End(), sorted.Begin());

	std::vector<u32> indices(indexCount);
	CTriangleSorter::ApplySortingIndirectionsListTriangles(sorted, ViewOf(meshIndices), indices.data(), triangleCount);

	std::vector<u32> drawn;
	for (u32 i = 0; i < triangleCount; ++i)
	{
		const u32 triangle = sorted[i].m_Index;
		for (u32 corner = 0; corner < 3; ++corner)
			Minimal::Require(indices[i * 3 + corner] == meshIndices[triangle * 3 + corner], "a triangle is torn.");
		drawn.push_back(triangle);
	}
	std::printf(
		"%u triangles on %zu vertices, from %u to %u.\n", triangleCount, vertices.size(), drawn.front(), drawn.back());
	Minimal::Require(Minimal::IsFarthestFirst(drawn, middles, camera), "the triangles are not drawn by distance.");
	return 0;
}
