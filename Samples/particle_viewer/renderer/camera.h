#pragma once

// Where the viewer looks from, and the matrix that takes the world to the screen.

#include "vx_maths_vector.h"

#include <optional>
#include <string>

namespace Viewer
{
using namespace Vexmoor;

struct SCamera
{
	CFloat3 m_Position;
	CFloat3 m_Target;
	float m_TanHalfFov = 0.364f; ///< Half the picture's height, or its width if that is less, at distance 1.
	CFloat3 m_Up = CFloat3(0.0f, 1.0f, 0.0f);
	bool m_IsPlaced = false; ///< Stands where it stands, whatever points upwards.
};

/// What points upwards in a picture. Files have their own ideas of it.
enum class EUp
{
	Y,
	MinusY,
	Z,
	MinusZ,
	X,
	MinusX
};

/// What the vertex shaders need of a camera. The matrix is column by column.
struct SViewTransform
{
	float m_WorldToClip[16];
	CFloat3 m_Right;
	CFloat3 m_Up;
};

inline CFloat3 Subtract(const CFloat3 &a, const CFloat3 &b)
{
	return CFloat3(a.x() - b.x(), a.y() - b.y(), a.z() - b.z());
}
inline float Dot(const CFloat3 &a, const CFloat3 &b)
{
	return a.x() * b.x() + a.y() * b.y() + a.z() * b.z();
}
inline CFloat3 Cross(const CFloat3 &a, const CFloat3 &b)
{
	return CFloat3(a.y() * b.z() - a.z() * b.y(), a.z() * b.x() - a.x() * b.z(), a.x() * b.y() - a.y() * b.x());
}
CFloat3 Normalized(const CFloat3 &a);

/// "y", "-y" and so on; nothing where no axis has this name.
const char *UpName(EUp up);
std::optional<EUp> FindUp(const std::string &name);
/// The one after it, and after the last the first.
EUp NextUp(EUp up);

/// A camera for a world in which y is up, turned with that world so that another axis is. One that is placed stays, and
/// turns about its line of sight.
SCamera Upright(const SCamera &camera, EUp up);

/// Half the picture's height at distance 1. A picture that is higher than wide shows as much from left to right as one
/// that is a square.
inline float HalfHeight(const SCamera &camera, float aspect)
{
	return aspect < 1.0f ? camera.m_TanHalfFov / aspect : camera.m_TanHalfFov;
}

/// Where the camera looks straight along its up vector, another axis is taken for up.
SViewTransform ViewTransform(const SCamera &camera, float aspect);

/// A point of clip space; on the screen it is at x / w and y / w, and w is its depth.
struct SClipPoint
{
	float m_X, m_Y, m_W;
};
SClipPoint Projected(const SViewTransform &view, const CFloat3 &point);
} // namespace Viewer
