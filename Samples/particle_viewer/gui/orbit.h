#pragma once

// A viewer's own look at a scene: turned about what the scene's camera looks at, and nearer or farther. Kept as counts
// of small steps, so that the same steps in any number of pieces end at the same view, to the bit.

#include "vx_defs.h"

#include "camera.h"

namespace Viewer
{
using namespace Vexmoor;

struct SOrbit
{
	s32 m_TurnSteps = 0; ///< About the vertical, kDegreesPerStep each.
	s32 m_TiltSteps = 0; ///< Upwards.
	s32 m_ZoomSteps = 0; ///< Nearer.

	bool operator==(const SOrbit &other) const
	{
		return m_TurnSteps == other.m_TurnSteps && m_TiltSteps == other.m_TiltSteps && m_ZoomSteps == other.m_ZoomSteps;
	}
	bool operator!=(const SOrbit &other) const { return !(*this == other); }
};

/// The scene's camera, moved along the orbit.
SCamera Moved(const SCamera &scene, const SOrbit &orbit);
} // namespace Viewer
