#pragma once

// Rotations that are stored as a quaternion without its largest component. That component follows from the length 1. It
// may be taken as positive, because a quaternion and its negative are the same rotation.

#include "vx_defs.h"

#include <algorithm>
#include <cmath>

namespace Viewer
{
using namespace Vexmoor;

constexpr double kSqrt2 = 1.4142135623730951; // twice what the second largest component can be

/// The four components, where one is left out and the others are given in their order.
inline void ExpandSmallestThree(u32 leftOut, const double others[3], double rotation[4])
{
	double rest = 1.0;
	for (u32 i = 0; i < 3; ++i)
	{
		rotation[i < leftOut ? i : i + 1] = others[i];
		rest -= others[i] * others[i];
	}
	rotation[leftOut] = std::sqrt(std::max(rest, 0.0));
}
} // namespace Viewer
