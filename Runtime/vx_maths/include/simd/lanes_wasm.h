#pragma once

// The vocabulary of simd/lanes.h in WebAssembly's 128-bit SIMD (-msimd128).

#include "simd/lanes_shared.h"
#include "vx_compiler.h"
#include "vx_defs.h"

#if VX_WASM_SIMD
	#include <atomic>
	#include <cstring>
	#include <wasm_simd128.h>

namespace Vexmoor
{
/// One group of four.
struct SLanesWasm : TOneGroup<SLanesWasm>
{
	/// One register type for all kinds of elements: the name of an operation says how wide its elements are.
	typedef v128_t Register;
	/// Comparisons fill a lane with ones or with zeros, so a mask is a register like any other.
	typedef Register Mask;
	/// WebAssembly leaves it to the engine which NaN an addition hands on, so sums are searched for NaNs.
	static constexpr bool kAddsInOrder = false;

	// Memory.

	static VX_INLINE Register Load(const void *p) { return wasm_v128_load(p); }
	static VX_INLINE void Store(void *p, Register r) { wasm_v128_store(p, r); }

	static VX_INLINE u32 BitsOfBytes(const u8 *p)
	{
		return u32(wasm_i8x16_bitmask(wasm_i8x16_ne(wasm_v128_load32_zero(p), Splat(0))));
	}
	using TOneGroup::StoreWhere;
	static VX_INLINE u32 StoreWhere(u8 *p, u32 bits, Register r)
	{
		static constexpr TWantedLanes<kLanes, sizeof(u32)> kWanted;
		Store(p, wasm_i8x16_swizzle(r, Load(kWanted.m_Numbers[bits])));
		return kWanted.m_Counts[bits];
	}

	static VX_INLINE Register LoadTwo(const void *p) { return wasm_v128_load64_zero(p); }
	/// Reads 12 bytes and none behind them, because memory may end there.
	///
	///   lane     0    1    2    3
	///   result   m0   m1   m2   0
	static VX_INLINE Register LoadThree(const void *p)
	{
		s32 z;
		std::memcpy(&z, static_cast<const u8 *>(p) + 8, sizeof(z));
		return wasm_i32x4_replace_lane(LoadTwo(p), 2, z);
	}
	/// No instruction asks for an aligned address: the alignment in the code is a hint alone.
	static VX_INLINE Register LoadAligned(const void *p) { return Load(p); }
	static VX_INLINE void StoreAligned(void *p, Register r) { Store(p, r); }
	static VX_INLINE void StoreInPlace(void *p, Register r) { VX_STORE_IN_PLACE(Register, p, r); }
	/// WebAssembly has no stores past the caches, so streams are ordinary stores.
	static VX_INLINE void Stream(void *p, Register r) { StoreInPlace(p, r); }
	static VX_INLINE void Fence() { std::atomic_thread_fence(std::memory_order_release); }

	// Constants.

	static VX_INLINE Register Splat(u32 value) { return wasm_i32x4_splat(s32(value)); }
	static VX_INLINE Register Multiples(u32 factor)
	{
		return wasm_i32x4_mul(wasm_i32x4_make(0, 1, 2, 3), Splat(factor));
	}

	// Integers.

	template<typename _Element>
	static VX_INLINE Register Add(Register a, Register b)
	{
		if constexpr (sizeof(_Element) == 1)
			return wasm_i8x16_add(a, b);
		else if constexpr (sizeof(_Element) == 2)
			return wasm_i16x8_add(a, b);
		else if constexpr (sizeof(_Element) == 4)
			return wasm_i32x4_add(a, b);
		else
			return wasm_i64x2_add(a, b);
	}
	template<typename _Element>
	static VX_INLINE Register Subtract(Register a, Register b)
	{
		if constexpr (sizeof(_Element) == 1)
			return wasm_i8x16_sub(a, b);
		else
			return wasm_i32x4_sub(a, b);
	}
	static VX_INLINE Register And(Register a, Register b) { return wasm_v128_and(a, b); }
	static VX_INLINE Register Or(Register a, Register b) { return wasm_v128_or(a, b); }
	static VX_INLINE Register Xor(Register a, Register b) { return wasm_v128_xor(a, b); }
	/// The bitwise select takes bits of a where the mask has ones, and bits of b elsewhere.
	static VX_INLINE Register Select(Mask mask, Register a, Register b) { return wasm_v128_bitselect(a, b, mask); }
	static VX_INLINE Register Where(Mask mask, Register a) { return wasm_v128_and(mask, a); }
	static VX_INLINE bool Any(Mask mask) { return wasm_v128_any_true(mask); }
	static VX_INLINE Mask GreaterSigned(Register a, Register b) { return wasm_i32x4_gt(a, b); }
	static VX_INLINE void SortTwo(Register &a, Register &b)
	{
		const v128_t lower = wasm_i32x4_min(a, b);
		b = wasm_i32x4_max(a, b);
		a = lower;
	}
	static VX_INLINE Mask LessUnsigned(Register a, Register b) { return wasm_u32x4_lt(a, b); }
	static VX_INLINE Register EqualBytes(Register a, Register b) { return wasm_i8x16_eq(a, b); }
	template<u32 _Count>
	static VX_INLINE Register ShiftLeft(Register r)
	{
		return wasm_i32x4_shl(r, _Count);
	}
	template<u32 _Count>
	static VX_INLINE Register ShiftRightSigned(Register r)
	{
		return wasm_i32x4_shr(r, _Count);
	}
	///   element   0    1    2    3    4    5    6    7
	///   result    a0   a1   a2   a3   b0   b1   b2   b3     each limited to [-0x8000, 0x7FFF]
	static VX_INLINE Register PackSigned(Register a, Register b) { return wasm_i16x8_narrow_i32x4(a, b); }

	// Order.

	template<u32 _0, u32 _1, u32 _2, u32 _3>
	static VX_INLINE Register Shuffle(Register r)
	{
		return wasm_i32x4_shuffle(r, r, _0, _1, _2, _3);
	}
	/// Both registers' lanes are numbered through: b's lanes are numbers 4 to 7.
	///
	///   lane     0       1       2       3
	///   result   a[_0]   a[_1]   b[_2]   b[_3]
	template<u32 _0, u32 _1, u32 _2, u32 _3>
	static VX_INLINE Register Shuffle2(Register a, Register b)
	{
		return wasm_i32x4_shuffle(a, b, _0, _1, 4 + _2, 4 + _3);
	}
	template<u32 _0, u32 _1, u32 _2, u32 _3, u32 _4, u32 _5, u32 _6, u32 _7>
	static VX_INLINE Register Shuffle16(Register r)
	{
		return wasm_i16x8_shuffle(r, r, _0, _1, _2, _3, _4, _5, _6, _7);
	}
	///   lane             0    1    2    3
	///   InterleaveLow    a0   b0   a1   b1
	///   InterleaveHigh   a2   b2   a3   b3
	static VX_INLINE Register InterleaveLow(Register a, Register b) { return wasm_i32x4_shuffle(a, b, 0, 4, 1, 5); }
	static VX_INLINE Register InterleaveHigh(Register a, Register b) { return wasm_i32x4_shuffle(a, b, 2, 6, 3, 7); }
	///   lane             0    1    2    3
	///   r                r0   r1   r2   r3
	///   by four bytes    0    r0   r1   r2
	template<u32 _Count>
	static VX_INLINE Register ShiftBytesUp(Register r)
	{
		constexpr u32 k = 16 - _Count; // of 16 zeros and the register's 16 bytes, those from the k-th on
		return wasm_i8x16_shuffle(wasm_i32x4_splat(0), r, k, k + 1, k + 2, k + 3, k + 4, k + 5, k + 6, k + 7, k + 8,
			k + 9, k + 10, k + 11, k + 12, k + 13, k + 14, k + 15);
	}
	///   bytes     e15 in all 16
	///   u16       e7 in all 8
	///   u32       e3 in all 4
	template<typename _Element>
	static VX_INLINE Register SpreadLast(Register r)
	{
		if constexpr (sizeof(_Element) == 1)
			return wasm_i8x16_splat(wasm_i8x16_extract_lane(r, 15));
		else if constexpr (sizeof(_Element) == 2)
			return wasm_i16x8_splat(wasm_i16x8_extract_lane(r, 7));
		else
			return wasm_i32x4_shuffle(r, r, 3, 3, 3, 3);
	}

	// One number of all.

	static VX_INLINE u32 Lane0(Register r) { return u32(wasm_i32x4_extract_lane(r, 0)); }
	static VX_INLINE bool AllZero(Register r) { return !wasm_v128_any_true(r); }
	/// There is a test for any bit that is set, and none for all: so the inverted bits are tested.
	static VX_INLINE bool AllOnes(Register r) { return !wasm_v128_any_true(wasm_v128_not(r)); }
	/// Neighbours are added twice, each time into elements of twice the width, so no sum wraps:
	///
	///   16 bytes    b0 b1 b2 b3 ...
	///   8 of u16    b0+b1   b2+b3   ...
	///   4 of u32    b0+...+b3   b4+...+b7   b8+...+b11   b12+...+b15
	static VX_INLINE u32 SumBytes(Register r)
	{
		const v128_t sums = wasm_u32x4_extadd_pairwise_u16x8(wasm_u16x8_extadd_pairwise_u8x16(r));
		return Lane0(sums) + u32(wasm_i32x4_extract_lane(sums, 1)) + u32(wasm_i32x4_extract_lane(sums, 2)) +
		       u32(wasm_i32x4_extract_lane(sums, 3));
	}

	// Floats.

	/// Engines round each operation by itself: WebAssembly's 128-bit SIMD has no fused ones. simd/exact_floats.h keeps
	/// the compiler from reordering them.
	static VX_INLINE Register SubtractFloats(Register a, Register b) { return wasm_f32x4_sub(a, b); }
	static VX_INLINE Register MultiplyFloats(Register a, Register b) { return wasm_f32x4_mul(a, b); }
	static VX_INLINE Register AddFloats(Register a, Register b) { return wasm_f32x4_add(a, b); }
};
} // namespace Vexmoor
#endif
