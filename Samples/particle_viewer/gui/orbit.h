#pragma once

// A camera that the user moves: it turns around a target, goes nearer and farther, and takes another target. Turns and
// zooms are kept as counts of small steps, so that the same steps in any number of pieces end at the same view, to the
// bit.

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
	CFloat3 m_Shift;     ///< From what the scene's camera looks at to what is looked at.

	bool operator==(const SOrbit &other) const
	{
		const CFloat3 apart = Subtract(m_Shift, other.m_Shift);
		return m_TurnSteps == other.m_TurnSteps && m_TiltSteps == other.m_TiltSteps &&
		       m_ZoomSteps == other.m_ZoomSteps && Dot(apart, apart) == 0.0f;
	}
	bool operator!=(const SOrbit &other) const { return !(*this == other); }
};

/// The scene's camera, moved along the orbit.
SCamera Moved(const SCamera &scene, const SOrbit &orbit);

/// A shift to the right, upwards and forwards as the camera looks, in shares of its distance from what it looks at.
CFloat3 ShiftAlong(const SCamera &camera, float right, float up, float forward);
} // namespace Viewer
