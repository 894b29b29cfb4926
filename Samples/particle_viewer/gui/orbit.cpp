// Angles as on a globe around the target: longitude from +z towards +x, latitude upwards.

#include "orbit.h"

#include <algorithm>
#include <cmath>

namespace Viewer
{
namespace
{
	constexpr float kRadiansPerStep = 0.25f * 3.14159265f / 180.0f;
	constexpr float kMaxLatitude = 1.5f; // short of the poles, where up is nowhere
	constexpr float kNearerPerStep = 0.9f;
} // namespace

SCamera Moved(const SCamera &scene, const SOrbit &orbit)
{
	if (orbit == SOrbit())
		return scene;
	const CFloat3 offset = Subtract(scene.m_Position, scene.m_Target);
	const float distance = std::sqrt(Dot(offset, offset));
	const float longitude = std::atan2(offset.x(), offset.z()) + float(orbit.m_TurnSteps) * kRadiansPerStep;
	const float latitude = std::clamp(
		std::asin(offset.y() / distance) + float(orbit.m_TiltSteps) * kRadiansPerStep, -kMaxLatitude, kMaxLatitude);
	const float moved = distance * std::pow(kNearerPerStep, float(orbit.m_ZoomSteps));

	const float flat = moved * std::cos(latitude);
	SCamera camera = scene;
	camera.m_Position = CFloat3(scene.m_Target.x() + flat * std::sin(longitude),
		scene.m_Target.y() + moved * std::sin(latitude), scene.m_Target.z() + flat * std::cos(longitude));
	return camera;
}
} // namespace Viewer
