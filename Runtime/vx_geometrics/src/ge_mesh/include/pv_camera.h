#pragma once

// Distances of single positions to the camera. Positions in groups of four go through pv_fill.h.

#include "simd/exact_floats.h"
#include "simd/lanes.h"
#include "vx_compiler.h"
#include "vx_defs.h"
#include "vx_maths_vector.h"

#include "pv_mesh_triangle_sorter.h"

namespace Vexmoor
{
// The camera's position, once as floats and once in lanes. It is made once for all pages of a sort.
class CCamera
{
public:
	// Loads three floats and none behind them.
	explicit VX_INLINE CCamera(const CFloat3 &position)
		: m_Position(position)
		, m_Lanes(SLanesBase::LoadThree(position.Data()))
	{
	}

	// x, y and z, for kernels that put each into all lanes of a register.
	VX_INLINE const float *Position() const { return m_Position.Data(); }

	// The bits of the squared distance to a position of 12 bytes, at any address. If compilers may reorder the
	// additions, a NaN among the distances is worked out once more, because its bits are part of the key.
	VX_INLINE u32 SquaredDistanceBits(const void *position) const
	{
		const u32 bits = SLanesBase::Lane0(_SquaredDistance(position));
		if constexpr (!SLanesBase::kAddsInOrder)
		{
			if (VX_UNLIKELY(bits > kInfinityBits))
				return _NaNTo(position);
		}
		return bits;
	}

	// The bits of 0.0f - the squared distance: +0.0 at the camera, and a NaN as it is. A subtraction where that keeps
	// NaNs, which takes 0.7 of the time of an enabled particle; in integers elsewhere.
	VX_WRAPS VX_INLINE u32 NegatedSquaredDistanceBits(const void *position) const
	{
		if constexpr (SLanesBase::kAddsInOrder)
		{
			const Register zero = m_Barrier.Pass(SLanesBase::Splat(0)); // -ffast-math makes 0 - x a flip of the sign
			return SLanesBase::Lane0(SLanesBase::SubtractFloats(zero, _SquaredDistance(position)));
		}
		const u32 bits = SquaredDistanceBits(position);
		const bool isNegated = bits - 1 < kInfinityBits; // above 0, up to infinity
		return bits | (isNegated ? 0x80000000u : 0);
	}

private:
	// Single positions go through the narrowest registers. Wider ones would compute more lanes that nobody needs.
	typedef SLanesBase::Register Register;

	// In lane 0. The other lanes compute what nobody needs.
	//
	//   lane   0    1    2    3
	//   d      x    y    z    0
	//   yyyy   y    y    y    y
	//   zzzz   z    z    z    z
	//   sum    (x * x + y * y) + z * z in lane 0
	//
	// Nothing behind the position's 12th byte is read, so it may end where memory does.
	VX_INLINE Register _SquaredDistance(const void *position) const
	{
		const Register d = SLanesBase::SubtractFloats(SLanesBase::LoadThree(position), m_Lanes);
		const Register yyyy = SLanesBase::Shuffle<1, 1, 1, 1>(d);
		const Register zzzz = SLanesBase::Shuffle<2, 2, 2, 2>(d);
		return SquaredLengths<SLanesBase>(d, yyyy, zzzz, m_Barrier);
	}

	// Not inlined, so that the loop over particles keeps its registers: NaNs are rare. Both positions are read as bits,
	// because loading a NaN as a float may change it on some processors.
	VX_NOINLINE u32 _NaNTo(const void *position) const
	{
		u32 from[3], to[3];
		std::memcpy(from, position, sizeof(from));
		std::memcpy(to, m_Position.Data(), sizeof(to));
		return NaNOfSquaredDistance(from, to);
	}

	CFloat3 m_Position;
	Register m_Lanes;
	// Between products and their sums (simd/exact_floats.h).
	TBarrier<SLanesBase> m_Barrier;
};
} // namespace Vexmoor
