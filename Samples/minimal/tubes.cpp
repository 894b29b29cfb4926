// Tubes: particles of several quads that cover each other. The particles are sorted, and inside each particle its
// quads, by the quads' centres. This is the slowest of the sorts, and warns once. A particle has at most 15 quads.

#include "ge_mesh_pages.h"

#include "minimal.h"
#include <algorithm>
#include <cmath>

using namespace Vexmoor;

int main()
{
	constexpr u32 kCount = 3;
	constexpr u32 kSides = 8;                 // a quad each, around the tube's axis
	constexpr u32 kVertices = 2 * kSides;     // 2s and 2s + 1 on the edge before side s
	constexpr u32 kIndices = 6 * kSides;      // per particle
	constexpr u32 kCentreSlots = 16 * kCount; // 16 per particle, however many quads there are
	const CFloat3 positions[kCount] = {
		{0, 0, 5 },
		{0, 0, 15},
		{0, 0, 10},
	};
	const CFloat3 camera(0, 0.5f, 0);

	std::vector<u32> pattern;
	for (u32 side = 0; side < kSides; ++side)
	{
		const u32 a = 2 * side;
		const u32 b = 2 * ((side + 1) % kSides);
		pattern.insert(pattern.end(), {a, a + 1, b, b, a + 1, b + 1});
	}

	std::vector<CFloat4> centres(kCentreSlots);
	std::vector<u32> firstVertices(kCount);
	for (u32 particle = 0; particle < kCount; ++particle)
	{
		firstVertices[particle] = particle * kVertices;
		for (u32 side = 0; side < kSides; ++side)
		{
			const float angle = (float(side) + 0.5f) * (6.2831853f / float(kSides));
			const CFloat3 &axis = positions[particle];
			centres[particle * 16 + side] =
				CFloat4(axis.x(), axis.y() + std::sin(angle), axis.z() + std::cos(angle), 0);
		}
	}

	std::vector<u32> indices(kCount * kIndices);
	const CPositionPage pages[] = {ViewOf(positions)};

	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kCount * kVertices);
	SetupInputPages(sorter, ViewOf(pages), camera);
	sorter.Setup_Geometry(ViewOf(pattern), ViewOf(firstVertices), ViewOf(centres), kVertices);

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kCount));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());

	const u32 expectedParticles[kCount] = {1, 2, 0};
	for (u32 i = 0; i < kCount; ++i)
	{
		std::vector<u32> sides;
		std::vector<float> distances;
		for (u32 quad = 0; quad < kSides; ++quad)
		{
			const u32 firstVertex = indices[i * kIndices + quad * 6];
			const u32 side = firstVertex % kVertices / 2;
			const CFloat4 &centre = centres[firstVertex / kVertices * 16 + side];
			Minimal::Require(firstVertex / kVertices == expectedParticles[i], "tubes are not drawn by distance.");
			sides.push_back(side);
			distances.push_back(Minimal::SquaredDistance(CFloat3(centre.x(), centre.y(), centre.z()), camera));
		}
		Minimal::Print("Sides of a tube, the farthest first", sides);
		Minimal::Require(std::is_sorted(distances.rbegin(), distances.rend()), "a tube's quads are not in order.");
		std::sort(sides.begin(), sides.end());
		Minimal::Require(std::unique(sides.begin(), sides.end()) == sides.end(), "a side is drawn twice.");
	}
	return 0;
}
