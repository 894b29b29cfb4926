#pragma once

// Where the viewer looks from, and the matrix that takes the world to the screen.

#include "vx_maths_vector.h"

namespace Viewer
{
using namespace Vexmoor;

struct SCamera
{
	CFloat3 m_Position;
	CFloat3 m_Target;
	float m_TanHalfFov = 0.364f; ///< Half the picture's height at distance 1.
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

SViewTransform ViewTransform(const SCamera &camera, float aspect);
} // namespace Viewer
