#pragma once

// What is sorted: particles of two shapes, and records of their distance keys or of keys without a shape. The same
// arguments always give the same input, and every input is made once and kept, so that all competitors see equal bytes.

#include "ge_mesh_triangle_sorter.h"

#include "vx_maths_vector.h"

#include "bench_memory.h"

namespace VexmoorBench
{
/// How particles lie in space.
enum class EShape
{
	Ball, ///< Uniform in a ball, in no order.
	Curve ///< A plume: along a rising, winding curve in emission order, with noise that grows with age.
};

/// What the keys of records come from.
enum class EKeys
{
	Uniform,      ///< Random bits.
	Ball,         ///< Distance keys of the ball.
	Curve,        ///< Distance keys of the plume, in emission order.
	NearlySorted, ///< Distance keys of the plume a frame later, in last frame's sorted order.
	AllEqual      ///< One key.
};

const char *Name(EShape shape);
const char *Name(EKeys keys);

/// Small sorts rotate different inputs: a predictor that has seen one input before knows its branches. A pool holds as
/// many inputs as fit, and one at least.
constexpr u32 kPoolRecords = 1u << 18;

inline u32 PoolInputCount(u32 count)
{
	return count >= kPoolRecords ? 1 : kPoolRecords / count;
}

/// Where the camera stands: outside both shapes.
CFloat3 Camera();

/// The camera of a frame: each a little further on a circle around the shapes, so that no two frames sort alike.
CFloat3 CameraOfFrame(u32 frame);

/// The squared distance, rounded as the sorter rounds it: products and sums one by one.
inline float SquaredDistance(const CFloat3 &position, const CFloat3 &camera)
{
	const float x = position.x() - camera.x();
	const float y = position.y() - camera.y();
	const float z = position.z() - camera.z();
	return (x * x + y * y) + z * z;
}

inline u32 FloatBits(float value)
{
	u32 bits;
	std::memcpy(&bits, &value, sizeof(bits));
	return bits;
}

inline float FloatFromBits(u32 bits)
{
	float value;
	std::memcpy(&value, &bits, sizeof(value));
	return value;
}

/// A batch of whole sorts: as many inputs as the second cache holds well, and one at least.
constexpr u32 kBatchParticles = 1u << 15;

inline u32 BatchInputCount(u32 count)
{
	return count >= kBatchParticles ? 1 : kBatchParticles / count;
}

/// BatchInputCount(count) inputs of count particles each, one after the other.
const CBuffer<CFloat3> &Positions(EShape shape, u32 count);

/// PoolInputCount(count) inputs of count records each, one after the other. Record i of an input has index 4 * i.
const CBuffer<SIndexAndDepth> &Records(EKeys keys, u32 count);
} // namespace VexmoorBench
