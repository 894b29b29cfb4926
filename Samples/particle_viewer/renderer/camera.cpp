// A right-handed view: x to the right, y up, the camera looks along -z; clip space as OpenGL has it.

#include "camera.h"

#include <cmath>

namespace Viewer
{
namespace
{
	constexpr const char *kUpNames[] = {"y", "-y", "z", "-z", "x", "-x"}; // in the order of EUp
	constexpr u32 kUpCount = 6;

	// Turned about the x axis, or about the z axis for x.
	CFloat3 Turned(const CFloat3 &a, EUp up)
	{
		switch (up)
		{
		case EUp::MinusY:
			return CFloat3(a.x(), -a.y(), -a.z());
		case EUp::Z:
			return CFloat3(a.x(), -a.z(), a.y());
		case EUp::MinusZ:
			return CFloat3(a.x(), a.z(), -a.y());
		case EUp::X:
			return CFloat3(a.y(), -a.x(), a.z());
		case EUp::MinusX:
			return CFloat3(-a.y(), a.x(), a.z());
		default:
			return a;
		}
	}
} // namespace

const char *UpName(EUp up)
{
	return kUpNames[u32(up)];
}

std::optional<EUp> FindUp(const std::string &name)
{
	for (u32 up = 0; up < kUpCount; ++up)
		if (name == kUpNames[up])
			return EUp(up);
	return std::nullopt;
}

EUp NextUp(EUp up)
{
	return EUp((u32(up) + 1) % kUpCount);
}

SCamera Upright(const SCamera &camera, EUp up)
{
	SCamera turned = camera;
	turned.m_Up = Turned(camera.m_Up, up);
	if (camera.m_IsPlaced)
		return turned;
	turned.m_Position = Turned(camera.m_Position, up);
	turned.m_Target = Turned(camera.m_Target, up);
	return turned;
}

CFloat3 Normalized(const CFloat3 &a)
{
	const float length = std::sqrt(Dot(a, a));
	const float scale = length > 0.0f ? 1.0f / length : 0.0f;
	return CFloat3(a.x() * scale, a.y() * scale, a.z() * scale);
}

static CFloat3 RightOf(const CFloat3 &back, const CFloat3 &up)
{
	constexpr float kAlong = 1e-4f; // sine of the angle between them, squared
	const CFloat3 right = Cross(up, back);
	if (Dot(right, right) > kAlong * Dot(up, up))
		return Normalized(right);
	return Normalized(Cross(std::abs(up.z()) > 0.5f ? CFloat3(0.0f, 1.0f, 0.0f) : CFloat3(0.0f, 0.0f, 1.0f), back));
}

SViewTransform ViewTransform(const SCamera &camera, float aspect)
{
	constexpr float kNear = 0.05f;
	constexpr float kFar = 100.0f;

	const CFloat3 back = Normalized(Subtract(camera.m_Position, camera.m_Target));
	const CFloat3 right = RightOf(back, camera.m_Up);
	const CFloat3 up = Cross(back, right);

	// Rows of the product of projection and view: what a world position's x, y, z and 1 are weighed with.
	const float sy = 1.0f / HalfHeight(camera, aspect);
	const float sx = sy / aspect;
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

SClipPoint Projected(const SViewTransform &view, const CFloat3 &point)
{
	const auto row = [&](u32 i)
	{
		return view.m_WorldToClip[i] * point.x() + view.m_WorldToClip[4 + i] * point.y() +
		       view.m_WorldToClip[8 + i] * point.z() + view.m_WorldToClip[12 + i];
	};
	return {row(0), row(1), row(3)};
}
} // namespace Viewer
