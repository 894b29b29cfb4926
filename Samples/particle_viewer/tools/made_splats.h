#pragma once

// Splats that are made by arithmetic, the same every time.

#include "vx_defs.h"

#include <vector>

namespace Viewer
{
using namespace Vexmoor;

struct SMadeSplat
{
	float m_Position[3];
	float m_Rotation[4]; ///< w, x, y, z, of length 1.
	float m_Scales[3];   ///< Standard deviations.
	float m_Colour[3];   ///< From all sides; from 0 to 1, or a little beyond.
	float m_Alpha;       ///< Between 0 and 1.
	float m_Age;
};

struct SMadeSplats
{
	std::vector<SMadeSplat> m_Splats;
	u32 m_HarmonicDegree = 0;
	/// Per splat HarmonicCount(degree) coefficients of red, as many of green, then of blue.
	std::vector<float> m_Harmonics;

	const float *Harmonics(size_t splat) const;
};

/// A trefoil of glass, of splats that lie flat on its surface.
SMadeSplats MakeKnot(u32 count, u32 harmonicDegree);
/// Spiral arms of stars and dust.
SMadeSplats MakeGalaxy(u32 count, u32 harmonicDegree);
/// Where three numbers from -2 to 2 lie on a curve that fills space: mostly near each other if they are alike.
u32 PlaceOnCurve(const float numbers[3]);
/// Puts splats into the order of their positions on that curve.
void OrderAlongCurve(SMadeSplats &splats);
} // namespace Viewer
