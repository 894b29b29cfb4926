#pragma once

// Squared lengths that are the same to the bit with every target, compiler and flag.
//
// (x * x + y * y) + z * z: each product and sum is rounded by itself, in this order. Compilers would fuse a product
// with the sum after it where they may use FMA, and reorder sums under -ffast-math; so a value passes a barrier on the
// way.
//
// NaNs are x86's: an operation hands on its first operand's NaN, else its second's, quieted, and makes a negative one
// with no payload where there was none. Processors differ in that, and compilers swap operands as if no NaN told them
// apart. Where an addition cannot be kept from it (kAddsInOrder is false), the last sum is searched for NaNs, and only
// if there is one, the rule is applied.

#include "vx_compiler.h"
#include "vx_defs.h"

#include <cstring>

VX_PRECISE_FLOATS

namespace Vexmoor
{
constexpr u32 kMagnitudeBits = 0x7FFFFFFFu; ///< A float's bits but for its sign. NaNs lie above infinity.
constexpr u32 kInfinityBits = 0x7F800000u;  ///< Of positive infinity.

/// Whether a target has words in place of a register: simd/lanes_scalar.h.
template<typename _Lanes>
inline constexpr bool kLanesAreWords = false;

/// Hands on lanes so that compilers know nothing of their value. With inline assembler it costs no instruction.
/// Without, an integer 0 that compilers cannot know is added.
template<typename _Lanes>
class TBarrier
{
public:
	typedef typename _Lanes::Register Register;

#if VX_HAS_ASM
	static VX_INLINE Register Pass(Register lanes)
	{
		if constexpr (kLanesAreWords<_Lanes>)
			_Lanes::MakeOpaque(lanes);
		else
			VX_OPAQUE(lanes);
		return lanes;
	}
#else
	VX_INLINE TBarrier()
		: m_Zero(_Lanes::Splat(s_Zero))
	{
	}
	VX_INLINE Register Pass(Register lanes) const
	{
		return _Lanes::template Add<u32>(lanes, m_Zero);
	}

private:
	static inline const volatile u32 s_Zero = 0;
	Register m_Zero;
#endif
};

/// (x * x + y * y) + z * z in each lane. With kAddsInOrder NaNs are right, else they are to be looked for: a sum of
/// squares is a NaN if its bits are above kInfinityBits, as an unsigned number, because it has a sign only if it is
/// one.
///
///   xx       x * x        rounded, as yy and zz are
///   xxyy     xx + yy      rounded
///   result   xxyy + zz    rounded
///
/// A fused operation would leave out a rounding, so its last bit would differ.
template<typename _Lanes>
VX_INLINE typename _Lanes::Register SquaredLengths(typename _Lanes::Register x,
	typename _Lanes::Register y,
	typename _Lanes::Register z,
	[[maybe_unused]] const TBarrier<_Lanes> &barrier)
{
	typedef typename _Lanes::Register Register;
	const Register xx = _Lanes::MultiplyFloats(x, x);
	const Register yy = _Lanes::MultiplyFloats(y, y);
	const Register zz = _Lanes::MultiplyFloats(z, z);
	if constexpr (_Lanes::kAddsInOrder)
	{
		return _Lanes::AddFloats(_Lanes::AddFloats(xx, yy), zz);
	}
	else
	{
		const Register xxyy = _Lanes::AddFloats(barrier.Pass(xx), barrier.Pass(yy));
		return _Lanes::AddFloats(barrier.Pass(xxyy), barrier.Pass(zz));
	}
}

/// Bits of the NaN that the squared distance of two points is, from the bits of their three coordinates. The first
/// difference that is a NaN is handed on by every product and sum; products and sums of other differences make none.
/// Without one: 0.
///
///   a, b on an axis    their difference            what is returned
///   NaN, anything      a's NaN                     a's bits, quieted
///   number, NaN        b's NaN                     b's bits, quieted
///   inf, same inf      a new NaN                   0xFFC00000: negative, quiet, no payload
///   anything else      a number or an infinity     what the next axis gives
VX_INLINE u32 NaNOfSquaredDistance(const u32 *a, const u32 *b)
{
	constexpr u32 kQuietBit = 0x00400000u;
	constexpr u32 kNewNaN = 0xFFC00000u;
	for (u32 axis = 0; axis < 3; ++axis)
	{
		if ((a[axis] & kMagnitudeBits) > kInfinityBits)
			return a[axis] | kQuietBit;
		if ((b[axis] & kMagnitudeBits) > kInfinityBits)
			return b[axis] | kQuietBit;
		if (a[axis] == b[axis] && (a[axis] & kMagnitudeBits) == kInfinityBits)
			return kNewNaN;
	}
	return 0;
}

/// Squared distances len2 of points to one point, with each NaN among them put right.
/// It goes through memory lane by lane. That is slow, but it runs only if a lane holds a NaN, which a scene in good
/// order never does.
template<typename _Lanes>
VX_INLINE typename _Lanes::Register WithNaNs(typename _Lanes::Register x,
	typename _Lanes::Register y,
	typename _Lanes::Register z,
	typename _Lanes::Register len2,
	const float *point)
{
	constexpr u32 kLanes = _Lanes::kLanes;
	u32 bits[3], axes[3][kLanes], lengths[kLanes];
	std::memcpy(bits, point, sizeof(bits));
	_Lanes::Store(axes[0], x);
	_Lanes::Store(axes[1], y);
	_Lanes::Store(axes[2], z);
	_Lanes::Store(lengths, len2);
	for (u32 lane = 0; lane < kLanes; ++lane)
	{
		const u32 other[3] = {axes[0][lane], axes[1][lane], axes[2][lane]};
		// Lanes whose coordinates give no NaN keep their length.
		const u32 nan = NaNOfSquaredDistance(other, bits);
		lengths[lane] = nan != 0 ? nan : lengths[lane];
	}
	return _Lanes::Load(lengths);
}

/// Squared distances of points, one in each lane, to one point. Unless kAddsInOrder, the caller looks for NaNs, and has
/// them put right by WithNaNs.
template<typename _Lanes>
class TSquaredDistances
{
public:
	typedef typename _Lanes::Register Register;

	/// point: x, y and z
	explicit VX_INLINE TSquaredDistances(const float *point)
	{
		u32 bits[3];
		std::memcpy(bits, point, sizeof(bits));
		m_X = _Lanes::Splat(bits[0]);
		m_Y = _Lanes::Splat(bits[1]);
		m_Z = _Lanes::Splat(bits[2]);
	}

	/// The squared distance of each lane's point: len2 in the functions above.
	VX_INLINE Register To(Register x, Register y, Register z) const
	{
		const Register dx = _Lanes::SubtractFloats(x, m_X);
		const Register dy = _Lanes::SubtractFloats(y, m_Y);
		const Register dz = _Lanes::SubtractFloats(z, m_Z);
		return SquaredLengths<_Lanes>(dx, dy, dz, m_Barrier);
	}
	/// As unsigned numbers, the bits of every NaN are above those of infinity. The bits of other sums of squares are
	/// not, because these have no sign.
	static VX_INLINE bool HaveNaN(Register len2)
	{
		return _Lanes::Any(_Lanes::LessUnsigned(_Lanes::Splat(kInfinityBits), len2));
	}

private:
	Register m_X, m_Y, m_Z;
	TBarrier<_Lanes> m_Barrier;
};
} // namespace Vexmoor
