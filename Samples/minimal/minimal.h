#pragma once

// What the examples share, apart from sorting: a check that ends the program with a sentence and exit code 1, the order
// that an index buffer draws, and particles to draw.

#include "ge_mesh_sort_validation.h"
#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"
#include "vx_maths_vector.h"

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

namespace Minimal
{
using namespace Vexmoor;

static_assert(__STDCPP_DEFAULT_NEW_ALIGNMENT__ >= 16, "a vector's memory starts where a sort's scratch memory has to");

inline void Require(bool holds, const char *sentenceIfNot)
{
	if (holds)
		return;
	std::fprintf(stderr, "Wrong: %s\n", sentenceIfNot);
	std::exit(1);
}

/// A sort that breaks no rule, and of which there is nothing to advise either.
inline void RequireValid(const CTriangleSorter &sorter, const std::vector<u8> &scratch)
{
	const auto fail = [](const SSortFinding &finding, void *) { Require(false, finding.m_Sentence); };
	ValidateSort(sorter, scratch.data(), scratch.size(), fail, null);
}

/// The particles of a draw call in the order drawn, where each one's pattern starts with its first vertex.
inline std::vector<u32> DrawnParticles(const std::vector<u32> &indices, u32 indicesPerParticle, u32 verticesPerParticle)
{
	std::vector<u32> particles;
	for (size_t i = 0; i < indices.size(); i += indicesPerParticle)
		particles.push_back(indices[i] / verticesPerParticle);
	return particles;
}

inline void Print(const char *label, const std::vector<u32> &numbers)
{
	std::printf("%s:", label);
	for (const u32 number : numbers)
		std::printf(" %u", number);
	std::printf("\n");
}

inline float SquaredDistance(const CFloat3 &a, const CFloat3 &b)
{
	const float x = a.x() - b.x();
	const float y = a.y() - b.y();
	const float z = a.z() - b.z();
	return x * x + y * y + z * z;
}

/// Every particle once, the farthest first; what is as far as the next but for rounding may come after it.
inline bool IsFarthestFirst(const std::vector<u32> &drawn, const std::vector<CFloat3> &positions, const CFloat3 &camera)
{
	std::vector<bool> isDrawn(positions.size(), false);
	float previous = std::numeric_limits<float>::max();
	for (const u32 particle : drawn)
	{
		if (particle >= positions.size() || isDrawn[particle])
			return false;
		isDrawn[particle] = true;
		const float squaredDistance = SquaredDistance(positions[particle], camera);
		if (squaredDistance > previous * 1.000001f)
			return false;
		previous = squaredDistance;
	}
	return drawn.size() == positions.size();
}

/// Points in a cube of 20 around the origin, the same for the same seed.
inline std::vector<CFloat3> ScatteredPoints(u32 count, u32 seed)
{
	std::mt19937 random(seed);
	const auto coordinate = [&random] { return float(random() >> 8) * (20.0f / 16777216.0f) - 10.0f; };
	std::vector<CFloat3> points(count);
	for (CFloat3 &point : points)
		for (u32 axis = 0; axis < 3; ++axis)
			point[axis] = coordinate();
	return points;
}
} // namespace Minimal
