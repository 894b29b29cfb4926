// When a sort can be skipped. If nothing has changed, keep the indices: the same input gives the same indices, to the
// bit. If something has moved, no distance has changed by more than m, which is how far the camera has moved plus how
// far the fastest particle has.
//
// - Two particles whose distances differ by more than 2 m keep their order. If 2 m is below the smallest gap between
//   neighbours in the order, all particles keep it. That is so for a few particles; among thousands the smallest gap is
//   tiny.
// - If the sort is skipped all the same, two particles are drawn in the wrong order only if their distances differ by
//   less than 2 m.
//
// Both statements count from the last sort, not from the last frame. They hold for distances, not for the squared
// distances that are sorted. These are rounded, but by little: a distance between 10^-15 and 10^15 is off by less than
// its 2^-21th part.

#include "ge_mesh_pages.h"

#include "minimal.h"
#include <algorithm>
#include <cmath>

using namespace Vexmoor;

static double Distance(const CFloat3 &a, const CFloat3 &b)
{
	return std::hypot(double(a.x()) - b.x(), double(a.y()) - b.y(), double(a.z()) - b.z());
}

static std::vector<u32> Sort(const std::vector<CFloat3> &positions, const CFloat3 &camera)
{
	const u32 count = u32(positions.size());
	std::vector<u32> indices(count * 6);
	const CPositionPage pages[] = {ViewOf(positions)};
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), count * 4);
	SetupInputPages(sorter, ViewOf(pages), camera);
	sorter.Setup_Geometry(ViewOf(quad), 4);
	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());
	return Minimal::DrawnParticles(indices, 6, 4);
}

// How far the camera may move, from where it was at the sort, without a change of the order. Below 0: not at all.
static double FreeMovement(const std::vector<CFloat3> &positions, const CFloat3 &camera, const std::vector<u32> &drawn)
{
	double smallestGap = std::numeric_limits<double>::max();
	for (size_t i = 1; i < drawn.size(); ++i)
		smallestGap =
			std::min(smallestGap, Distance(positions[drawn[i - 1]], camera) - Distance(positions[drawn[i]], camera));
	// Of two distances, none of which will be larger than the first particle's now and half the gap.
	const double rounding = 2 * (Distance(positions[drawn[0]], camera) + smallestGap) / double(1 << 21);
	return (smallestGap - rounding) / 2;
}

int main()
{
	const std::vector<CFloat3> positions = Minimal::ScatteredPoints(24, 3);
	CFloat3 camera(0, 0, -30); // moves on in small steps
	CFloat3 sortCamera = camera;
	std::vector<u32> drawn = Sort(positions, camera);
	Minimal::Require(Sort(positions, camera) == drawn, "the same input gives another order.");
	double freeMovement = FreeMovement(positions, camera, drawn);

	u32 sortCount = 0;
	constexpr u32 kFrameCount = 2000;
	for (u32 frame = 0; frame < kFrameCount; ++frame)
	{
		camera.x() += 0.002f;
		if (Distance(camera, sortCamera) > freeMovement)
		{
			drawn = Sort(positions, camera);
			sortCamera = camera;
			freeMovement = FreeMovement(positions, camera, drawn);
			++sortCount;
		}
		Minimal::Require(drawn == Sort(positions, camera), "a frame whose sort was skipped is out of order.");
	}
	std::printf("%u frames took %u sorts.\n", kFrameCount, sortCount);
	Minimal::Require(sortCount < kFrameCount, "no sort was skipped.");

	// Skipped all the same, for many: 0.5 further on, a pair in wrong order is less than 1 apart.
	const std::vector<CFloat3> many = Minimal::ScatteredPoints(300, 4);
	camera = CFloat3(0, 0, 0);
	drawn = Sort(many, camera);
	camera.x() += 0.5f;
	double largestError = 0;
	for (size_t i = 0; i < drawn.size(); ++i)
		for (size_t j = i + 1; j < drawn.size(); ++j)
			largestError = std::max(largestError, Distance(many[drawn[j]], camera) - Distance(many[drawn[i]], camera));
	std::printf("After a movement of 0.5 without a sort the worst pair is %.3f out of order.\n", largestError);
	Minimal::Require(largestError > 0, "the movement has changed no order.");
	Minimal::Require(largestError < 1.0001, "a pair is farther out of order than the movement allows.");
	return 0;
}
