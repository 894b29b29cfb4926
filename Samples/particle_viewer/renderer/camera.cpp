// A right-handed view: x to the right, y up, the camera looks along -z; clip space as OpenGL has it.

#include "camera.h"

#include <cmath>

namespace Viewer
{
CFloat3 Normalized(const CFloat3 &a)
{
	const float length = std::sqrt(Dot(a, a));
	const float scale = length > 0.0f ? 1.0f / length : 0.0f;
	return CFloat3(a.x() * scale, a.y() * scale, a.z() * scale);
}

SViewTransform ViewTransform(const SCamera &camera, float aspect)
{
	constexpr float kNear = 0.05f;
	constexpr float kFar = 100.0f;

	const CFloat3 back = Normalized(Subtract(camera.m_Position, camera.m_Target));
	const CFloat3 right = Normalized(Cross(CFloat3(0.0f, 1.0f, 0.0f), back));
	const CFloat3 up = Cross(back, right);

	// Rows of the product of projection and view: what a world position's x, y, z and 1 are weighed with.
	const float sx = 1.0f / (camera.m_TanHalfFov * aspect);
	const float sy = 1.0f / camera.m_TanHalfFov;
	const float sz = (kFar + kNear) / (kNear - kFar);
	const float tz = 2.0f * kFar * kNear / (kNear - kFar);
	const CFloat3 &eye = camera.m_Position;
	const float viewX = -Dot(right, eye);
	const float viewY = -Dot(up, eye);
	const float viewZ = -Dot(back, eye);

	SViewTransform view = {};
	for (u32 axis = 0; axis < 3; ++axis)
	{
		view.m_WorldToClip[axis * 4 + 0] = sx * right[axis];
		view.m_WorldToClip[axis * 4 + 1] = sy * up[axis];
		view.m_WorldToClip[axis * 4 + 2] = sz * back[axis];
		view.m_WorldToClip[axis * 4 + 3] = -back[axis];
	}
	view.m_WorldToClip[12] = sx * viewX;
	view.m_WorldToClip[13] = sy * viewY;
	view.m_WorldToClip[14] = sz * viewZ + tz;
	view.m_WorldToClip[15] = -viewZ;
	view.m_Right = right;
	view.m_Up = up;
	return view;
}
} // namespace Viewer
