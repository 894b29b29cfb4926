// True depth of triangles, for particles that are woven into each other, such as crossing shards. No order of whole
// particles is right there, so every triangle is a particle, sorted by its own middle. Triangles share no vertices
// here: triangle t has the vertices 3 t to 3 t + 2. (Triangles that cut through each other have no right order even
// then.)

#include "ge_mesh_pages.h"

#include "minimal.h"

using namespace Vexmoor;

int main()
{
	// Two shards, a strip of quads each: one is the nearer at its one end, the other at its other.
	constexpr u32 kSegments = 8;
	constexpr u32 kTriangles = 2 * kSegments * 2; // of both shards
	std::vector<CFloat3> vertices;
	for (u32 shard = 0; shard < 2; ++shard)
	{
		for (u32 segment = 0; segment < kSegments; ++segment)
		{
			const auto corner = [&](u32 along, float side)
			{
				const float rise = along < kSegments / 2 ? 0.5f : -0.5f;
				return CFloat3(float(along), side + 0.1f * float(shard), 10 + (shard == 0 ? rise : -rise));
			};
			const CFloat3 a = corner(segment, 0), b = corner(segment, 1);
			const CFloat3 c = corner(segment + 1, 0), d = corner(segment + 1, 1);
			vertices.insert(vertices.end(), {a, b, c, c, b, d});
		}
	}
	const CFloat3 camera(3.5f, -2, 0);

	std::vector<CFloat3> middles;
	for (u32 t = 0; t < kTriangles; ++t)
	{
		CFloat3 middle;
		for (u32 axis = 0; axis < 3; ++axis)
			middle[axis] = (vertices[3 * t][axis] + vertices[3 * t + 1][axis] + vertices[3 * t + 2][axis]) / 3;
		middles.push_back(middle);
	}

	std::vector<u32> indices(kTriangles * 3);
	const CPositionPage pages[] = {ViewOf(middles)};

	u32 triangle[] = {0, 1, 2};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kTriangles * 3);
	SetupInputPages(sorter, ViewOf(pages), camera);
	sorter.Setup_Geometry(ViewOf(triangle), 3);

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kTriangles));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());

	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 3, 3);
	u32 shardChanges = 0;
	for (u32 i = 1; i < kTriangles; ++i)
		shardChanges += drawn[i] / (2 * kSegments) != drawn[i - 1] / (2 * kSegments) ? 1 : 0;
	std::printf("%u triangles of two shards, drawn in %u turns.\n", kTriangles, shardChanges + 1);
	Minimal::Require(Minimal::IsFarthestFirst(drawn, middles, camera), "the triangles are not drawn by distance.");
	Minimal::Require(shardChanges > 1, "one shard is drawn after the other.");
	return 0;
}
