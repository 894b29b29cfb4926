#pragma once

// The vocabulary of simd/lanes.h in NEON, as AArch64 has it.

#include "simd/lanes_shared.h"
#include "vx_compiler.h"
#include "vx_defs.h"

#if VX_ARM64
	#include <arm_neon.h>
	#include <atomic>
	#include <cstring>

namespace Vexmoor
{
/// One group of four.
struct SLanesNeon : TOneGroup<SLanesNeon>
{
	/// NEON has a register type for each kind of element. Casts between them are no instructions: the bits stay as they
	/// are.
	typedef uint32x4_t Register;
	/// Comparisons fill a lane with ones or with zeros, so a mask is a register like any other.
	typedef Register Mask;
	/// NEON chooses another NaN of two than x86, so sums are searched for NaNs in any case.
	static constexpr bool kAddsInOrder = false;

	// Memory.

	/// Bytes are loaded, because a load of 32-bit elements would promise compilers an aligned address.
	static VX_INLINE Register Load(const void *p) { return vreinterpretq_u32_u8(vld1q_u8(static_cast<const u8 *>(p))); }
	/// One instruction takes triples apart:
	///
	///   lane   0    1    2    3
	///   x      p0   p3   p6   p9
	///   y      p1   p4   p7   p10
	///   z      p2   p5   p8   p11
	static VX_INLINE void LoadTriples(const u8 *p, Register &x, Register &y, Register &z)
	{
		const uint32x4x3_t triples = vld3q_u32(reinterpret_cast<const u32 *>(p));
		x = triples.val[0];
		y = triples.val[1];
		z = triples.val[2];
	}
	static VX_INLINE Register LoadEvenLanes(const u8 *p) { return vuzp1q_u32(Load(p), Load(p + 16)); }
	/// Bytes are stored for the same reason: the address may be any.
	static VX_INLINE void Store(void *p, Register r) { vst1q_u8(static_cast<u8 *>(p), vreinterpretq_u8_u32(r)); }

	static VX_INLINE u32 BitsOfBytes(const u8 *p)
	{
		static constexpr u8 kBits[8] = {1, 2, 4, 8};
		u32 bytes;
		std::memcpy(&bytes, p, sizeof(bytes));
		const uint8x8_t flags = vreinterpret_u8_u32(vdup_n_u32(bytes));
		return vaddv_u8(vand_u8(vtst_u8(flags, flags), vld1_u8(kBits)));
	}
	using TOneGroup::StoreWhere;
	static VX_INLINE u32 StoreWhere(u8 *p, u32 bits, Register r)
	{
		static constexpr TWantedLanes<kLanes, sizeof(u32)> kWanted;
		const uint8x16_t numbers = vld1q_u8(kWanted.m_Numbers[bits]);
		vst1q_u8(p, vqtbl1q_u8(vreinterpretq_u8_u32(r), numbers));
		return kWanted.m_Counts[bits];
	}

	static VX_INLINE Register LoadTwo(const void *p)
	{
		return vcombine_u32(vreinterpret_u32_u8(vld1_u8(static_cast<const u8 *>(p))), vdup_n_u32(0));
	}
	/// Reads 12 bytes and none behind them, because memory may end there.
	///
	///   lane     0    1    2    3
	///   result   m0   m1   m2   0
	static VX_INLINE Register LoadThree(const void *p)
	{
		u32 z;
		std::memcpy(&z, static_cast<const u8 *>(p) + 8, sizeof(z));
		return vsetq_lane_u32(z, LoadTwo(p), 2);
	}
	static VX_INLINE Register LoadAligned(const void *p) { return Load(p); }
	static VX_INLINE void StoreAligned(void *p, Register r) { Store(p, r); }
	static VX_INLINE void StoreInPlace(void *p, Register r) { VX_STORE_IN_PLACE(Register, p, r); }
	/// There is no 16-byte store past the caches for a single register, so streams are ordinary stores. The fence still
	/// orders them for a device that reads the memory.
	static VX_INLINE void Stream(void *p, Register r) { StoreInPlace(p, r); }
	/// All earlier stores are visible to other processors and devices before any later one.
	static VX_INLINE void Fence() { std::atomic_thread_fence(std::memory_order_release); }

	// Constants.

	static VX_INLINE Register Splat(u32 value) { return vdupq_n_u32(value); }
	static VX_INLINE Register Multiples(u32 factor)
	{
		static constexpr u32 kNumbers[] = {0, 1, 2, 3};
		return vmulq_n_u32(vld1q_u32(kNumbers), factor);
	}

	// Integers.

	template<typename _Element>
	static VX_INLINE Register Add(Register a, Register b)
	{
		if constexpr (sizeof(_Element) == 1)
			return vreinterpretq_u32_u8(vaddq_u8(vreinterpretq_u8_u32(a), vreinterpretq_u8_u32(b)));
		else if constexpr (sizeof(_Element) == 2)
			return vreinterpretq_u32_u16(vaddq_u16(vreinterpretq_u16_u32(a), vreinterpretq_u16_u32(b)));
		else if constexpr (sizeof(_Element) == 4)
			return vaddq_u32(a, b);
		else
			return vreinterpretq_u32_u64(vaddq_u64(vreinterpretq_u64_u32(a), vreinterpretq_u64_u32(b)));
	}
	template<typename _Element>
	static VX_INLINE Register Subtract(Register a, Register b)
	{
		if constexpr (sizeof(_Element) == 1)
			return vreinterpretq_u32_u8(vsubq_u8(vreinterpretq_u8_u32(a), vreinterpretq_u8_u32(b)));
		else
			return vsubq_u32(a, b);
	}
	static VX_INLINE Register And(Register a, Register b) { return vandq_u32(a, b); }
	static VX_INLINE Register Or(Register a, Register b) { return vorrq_u32(a, b); }
	static VX_INLINE Register Xor(Register a, Register b) { return veorq_u32(a, b); }
	/// The bitwise select takes bits of a where the mask has ones, and bits of b elsewhere.
	static VX_INLINE Register Select(Mask mask, Register a, Register b) { return vbslq_u32(mask, a, b); }
	static VX_INLINE Register Where(Mask mask, Register a) { return vandq_u32(mask, a); }
	/// The largest lane is not 0 exactly if some lane of the mask has ones.
	static VX_INLINE bool Any(Mask mask) { return vmaxvq_u32(mask) != 0; }
	static VX_INLINE Mask GreaterSigned(Register a, Register b)
	{
		return vcgtq_s32(vreinterpretq_s32_u32(a), vreinterpretq_s32_u32(b));
	}
	static VX_INLINE void SortTwo(Register &a, Register &b)
	{
		const int32x4_t signedA = vreinterpretq_s32_u32(a), signedB = vreinterpretq_s32_u32(b);
		a = vreinterpretq_u32_s32(vminq_s32(signedA, signedB));
		b = vreinterpretq_u32_s32(vmaxq_s32(signedA, signedB));
	}
	static VX_INLINE Mask LessUnsigned(Register a, Register b) { return vcltq_u32(a, b); }
	static VX_INLINE Register EqualBytes(Register a, Register b)
	{
		return vreinterpretq_u32_u8(vceqq_u8(vreinterpretq_u8_u32(a), vreinterpretq_u8_u32(b)));
	}
	template<u32 _Count>
	static VX_INLINE Register ShiftLeft(Register r)
	{
		return vshlq_n_u32(r, _Count);
	}
	template<u32 _Count>
	static VX_INLINE Register ShiftRightSigned(Register r)
	{
		return vreinterpretq_u32_s32(vshrq_n_s32(vreinterpretq_s32_u32(r), _Count));
	}
	///   element   0    1    2    3    4    5    6    7
	///   result    a0   a1   a2   a3   b0   b1   b2   b3     each limited to [-0x8000, 0x7FFF]
	static VX_INLINE Register PackSigned(Register a, Register b)
	{
		const int16x4_t lower = vqmovn_s32(vreinterpretq_s32_u32(a));
		return vreinterpretq_u32_s16(vqmovn_high_s32(lower, vreinterpretq_s32_u32(b)));
	}

	// Order.

	template<u32 _0, u32 _1, u32 _2, u32 _3>
	static VX_INLINE Register Shuffle(Register r)
	{
		return Shuffle2<_0, _1, _2, _3>(r, r);
	}
	/// Compilers choose the instructions for constant numbers. In VX_SHUFFLE, b's lanes are numbers 4 to 7.
	///
	///   lane     0       1       2       3
	///   result   a[_0]   a[_1]   b[_2]   b[_3]
	template<u32 _0, u32 _1, u32 _2, u32 _3>
	static VX_INLINE Register Shuffle2(Register a, Register b)
	{
		return VX_SHUFFLE(a, b, _0, _1, 4 + _2, 4 + _3);
	}
	/// The numbers are held to what SSE2 can do: _0 to _3 are 0 to 3, and _4 to _7 are 4 to 7.
	template<u32 _0, u32 _1, u32 _2, u32 _3, u32 _4, u32 _5, u32 _6, u32 _7>
	static VX_INLINE Register Shuffle16(Register r)
	{
		const uint16x8_t elements = vreinterpretq_u16_u32(r);
		return vreinterpretq_u32_u16(VX_SHUFFLE(elements, elements, _0, _1, _2, _3, _4, _5, _6, _7));
	}
	///   lane             0    1    2    3
	///   InterleaveLow    a0   b0   a1   b1
	///   InterleaveHigh   a2   b2   a3   b3
	static VX_INLINE Register InterleaveLow(Register a, Register b) { return vzip1q_u32(a, b); }
	static VX_INLINE Register InterleaveHigh(Register a, Register b) { return vzip2q_u32(a, b); }
	/// The instruction takes 16 bytes out of the 32 of two registers, from a byte number on. The first register is
	/// zeros, so a number _Count below 16 takes that many zeros, and then r from its lowest byte on:
	///
	///   lane             0    1    2    3
	///   by four bytes    0    r0   r1   r2
	template<u32 _Count>
	static VX_INLINE Register ShiftBytesUp(Register r)
	{
		return vreinterpretq_u32_u8(vextq_u8(vdupq_n_u8(0), vreinterpretq_u8_u32(r), 16 - _Count));
	}
	///   bytes     e15 in all 16
	///   u16       e7 in all 8
	///   u32       e3 in all 4
	template<typename _Element>
	static VX_INLINE Register SpreadLast(Register r)
	{
		if constexpr (sizeof(_Element) == 1)
			return vreinterpretq_u32_u8(vdupq_laneq_u8(vreinterpretq_u8_u32(r), 15));
		else if constexpr (sizeof(_Element) == 2)
			return vreinterpretq_u32_u16(vdupq_laneq_u16(vreinterpretq_u16_u32(r), 7));
		else
			return vdupq_laneq_u32(r, 3);
	}

	// One number of all.

	static VX_INLINE u32 Lane0(Register r) { return vgetq_lane_u32(r, 0); }
	/// The largest lane is 0 exactly if all lanes are 0. The lowest one has all bits set exactly if all lanes do.
	static VX_INLINE bool AllZero(Register r) { return vmaxvq_u32(r) == 0; }
	static VX_INLINE bool AllOnes(Register r) { return vminvq_u32(r) == ~0u; }
	/// The sum of 16 bytes is at most 4,080, and the instruction widens it to 16 bits.
	static VX_INLINE u32 SumBytes(Register r) { return vaddlvq_u8(vreinterpretq_u8_u32(r)); }

	// Floats.

	/// Compilers may fuse these intrinsics with each other. simd/exact_floats.h stands between a product and its sum.
	static VX_INLINE Register SubtractFloats(Register a, Register b)
	{
		return vreinterpretq_u32_f32(vsubq_f32(vreinterpretq_f32_u32(a), vreinterpretq_f32_u32(b)));
	}
	static VX_INLINE Register MultiplyFloats(Register a, Register b)
	{
		return vreinterpretq_u32_f32(vmulq_f32(vreinterpretq_f32_u32(a), vreinterpretq_f32_u32(b)));
	}
	static VX_INLINE Register AddFloats(Register a, Register b)
	{
		return vreinterpretq_u32_f32(vaddq_f32(vreinterpretq_f32_u32(a), vreinterpretq_f32_u32(b)));
	}
};
} // namespace Vexmoor
#endif
