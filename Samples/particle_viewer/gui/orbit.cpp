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
	const CFloat3 &up = scene.m_Up;
	const CFloat3 east =
		Normalized(Cross(up, std::abs(up.y()) > 0.5f ? CFloat3(0.0f, 0.0f, 1.0f) : CFloat3(0.0f, 1.0f, 0.0f)));
	const CFloat3 south = Cross(east, up);
	const CFloat3 offset = Subtract(scene.m_Position, scene.m_Target);
	const float distance = std::sqrt(Dot(offset, offset));
	const float longitude =
		std::atan2(Dot(offset, east), Dot(offset, south)) + float(orbit.m_TurnSteps) * kRadiansPerStep;
	const float latitude = std::clamp(
		std::asin(std::clamp(Dot(offset, up) / distance, -1.0f, 1.0f)) + float(orbit.m_TiltSteps) * kRadiansPerStep,
		-kMaxLatitude, kMaxLatitude);
	const float moved = distance * std::pow(kNearerPerStep, float(orbit.m_ZoomSteps));

	const float flat = moved * std::cos(latitude);
	const float along[] = {flat * std::sin(longitude), moved * std::sin(latitude), flat * std::cos(longitude)};
	SCamera camera = scene;
	for (u32 axis = 0; axis < 3; ++axis)
	{
		camera.m_Target[axis] = scene.m_Target[axis] + orbit.m_Shift[axis];
		camera.m_Position[axis] =
			camera.m_Target[axis] + east[axis] * along[0] + up[axis] * along[1] + south[axis] * along[2];
	}
	return camera;
}

CFloat3 ShiftAlong(const SCamera &camera, float right, float up, float forward)
{
	const CFloat3 offset = Subtract(camera.m_Position, camera.m_Target);
	const float distance = std::sqrt(Dot(offset, offset));
	const SViewTransform view = ViewTransform(camera, 1.0f);
	const CFloat3 back = Normalized(offset);
	CFloat3 shift;
	for (u32 axis = 0; axis < 3; ++axis)
		shift[axis] = distance * (right * view.m_Right[axis] + up * view.m_Up[axis] - forward * back[axis]);
	return shift;
}
} // namespace Viewer
