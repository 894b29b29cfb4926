#pragma once

// How far a drawing order is from the one that ascending keys promise, over all pairs of primitives.

#include "vx_defs.h"

#include <vector>

namespace Viewer
{
using namespace Vexmoor;

struct SPairFigures
{
	u64 m_PairCount = 0;
	u64 m_OutOfOrder = 0; ///< Pairs whose nearer primitive is drawn first. Equal distances are in order either way.
	/// The most that a primitive lies behind another one that is drawn before it, as a share of the range of distances
	/// without the nearest and the farthest hundredth.
	double m_WorstBacktrack = 0.0;
};

/// Measures an order by the distances of its primitives, that of the first one drawn first. None is a NaN.
SPairFigures MeasurePairs(std::vector<float> distances);
} // namespace Viewer
