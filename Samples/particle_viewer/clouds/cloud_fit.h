#pragma once

// Finds the body of a cloud, which a camera should show: most of the points form it, and a few may float far from it.

#include "vx_defs.h"
#include "vx_maths_vector.h"

#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// A sphere around the body.
struct SCloudFit
{
	double m_Centre[3];
	double m_Radius;
	u64 m_FarCount; ///< Points outside of it.
};

/// The body is every dense part of the cloud that hangs together and has a fair share of the points; thin parts that it
/// touches, such as legs and stands, belong to it. A cloud without such a part is its own body, but for the farthest
/// hundredth. At least one position is given.
SCloudFit FitCloud(const std::vector<CFloat3> &positions);
} // namespace Viewer
