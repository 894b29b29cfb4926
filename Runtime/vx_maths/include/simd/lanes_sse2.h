#pragma once

// The vocabulary of simd/lanes.h in SSE2. With VEXMOOR_SIMDE the intrinsics are SIMDe's of the same names.

#include "simd/lanes_shared.h"
#include "vx_compiler.h"
#include "vx_defs.h"

#include <cstring>
#if defined(VEXMOOR_SIMDE)
	#define SIMDE_ENABLE_NATIVE_ALIASES
	#include <simde/x86/sse2.h>
#else
	#include <emmintrin.h>
#endif

namespace Vexmoor
{
/// For any bits of four lanes that are two pairs: all bits of each pair's lower lane that is not wanted, how many of
/// the lower pair are wanted, and how many in all.
struct SPairs
{
	alignas(16) u32 m_UnwantedLower[16][4] = {};
	u8 m_LowerCounts[16] = {};
	u8 m_Counts[16] = {};

	constexpr SPairs()
	{
		for (u32 bits = 0; bits < 16; ++bits)
		{
			for (u32 lane = 0; lane < 4; ++lane)
			{
				const bool isWanted = (bits >> lane & 1) != 0;
				m_UnwantedLower[bits][lane] = lane % 2 == 0 && !isWanted ? ~0u : 0;
				m_LowerCounts[bits] = u8(m_LowerCounts[bits] + (isWanted && lane < 2));
				m_Counts[bits] = u8(m_Counts[bits] + isWanted);
			}
		}
	}
};

/// One group of four.
struct SLanesSse2 : TOneGroup<SLanesSse2>
{
	typedef __m128i Register;
	/// Comparisons fill a lane with ones or with zeros, so a mask is a register like any other.
	typedef Register Mask;
	/// Inline assembler spells additions as they stand. Without it, compilers may swap their operands.
	static constexpr bool kAddsInOrder = VX_X86 && VX_HAS_ASM;

	// Memory.

	static VX_INLINE Register Load(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }
	static VX_INLINE void Store(void *p, Register r) { _mm_storeu_si128(static_cast<__m128i *>(p), r); }

	static VX_INLINE u32 BitsOfBytes(const u8 *p)
	{
		s32 bytes;
		std::memcpy(&bytes, p, sizeof(bytes));
		const __m128i areZero = _mm_cmpeq_epi8(_mm_cvtsi32_si128(bytes), _mm_setzero_si128());
		return u32(_mm_movemask_epi8(areZero)) ^ 0xFFFF;
	}
	using TOneGroup::StoreWhere;
	/// SSE2 cannot shuffle lanes by numbers that are not constant. So in each pair, the lower lane takes the upper
	/// one's bits if it is not wanted itself, and each pair is stored by itself. Of lanes 0, 1 and 3, for example:
	///
	///   lane     0    1    2    3
	///   r        r0   r1   r2   r3
	///   bits     1    1    0    1
	///   pairs    r0   r1   r3   r3     lane 2 is not wanted
	///   stored   r0   r1   r3   r3     the upper pair behind the two wanted lanes of the lower pair
	static VX_INLINE u32 StoreWhere(u8 *p, u32 bits, Register r)
	{
		static constexpr SPairs kPairs;
		const __m128i toUpper = Xor(r, _mm_shuffle_epi32(r, _MM_SHUFFLE(3, 3, 1, 1)));
		const __m128i pairs = Xor(r, And(toUpper, LoadAligned(kPairs.m_UnwantedLower[bits])));
		u8 *const behindLowerPair = p + kPairs.m_LowerCounts[bits] * sizeof(u32);
		_mm_storel_epi64(reinterpret_cast<__m128i *>(p), pairs);
		_mm_storel_epi64(reinterpret_cast<__m128i *>(behindLowerPair), _mm_unpackhi_epi64(pairs, pairs));
		return kPairs.m_Counts[bits];
	}

	///   lane     0    1    2    3
	///   p        m0   m1
	///   result   m0   m1   0    0
	static VX_INLINE Register LoadTwo(const void *p) { return _mm_loadl_epi64(static_cast<const __m128i *>(p)); }
	/// Reads 12 bytes and none behind them, because memory may end there.
	///
	///   lane         0    1    2    3
	///   LoadTwo(p)   m0   m1   0    0
	///   z            m2   0    0    0
	///   result       m0   m1   m2   0      the lower halves of both
	static VX_INLINE Register LoadThree(const void *p)
	{
		s32 z;
		std::memcpy(&z, static_cast<const u8 *>(p) + 8, sizeof(z));
		return _mm_unpacklo_epi64(LoadTwo(p), _mm_cvtsi32_si128(z));
	}
	static VX_INLINE Register LoadAligned(const void *p) { return _mm_load_si128(static_cast<const __m128i *>(p)); }
	static VX_INLINE void StoreAligned(void *p, Register r) { _mm_store_si128(static_cast<__m128i *>(p), r); }
	/// A store past the caches. The statements around it make compilers keep it in its place among volatile accesses:
	/// to them the intrinsic is an ordinary store, and g++ reordered several of them.
	static VX_INLINE void Stream(void *p, Register r)
	{
		VX_BEFORE_STORE_IN_PLACE(r);
		_mm_stream_si128(static_cast<__m128i *>(p), r);
		VX_BEHIND_STORE_IN_PLACE(*static_cast<u8(*)[16]>(p));
	}
	static VX_INLINE void StoreInPlace(void *p, Register r) { VX_STORE_IN_PLACE(Register, p, r); }
	/// Streamed bytes are visible to other processors and devices before the bytes of any later store.
	static VX_INLINE void Fence() { _mm_sfence(); }

	// Constants.

	static VX_INLINE Register Splat(u32 value) { return _mm_set1_epi32(s32(value)); }
	static VX_WRAPS VX_INLINE Register Multiples(u32 factor)
	{
		return _mm_setr_epi32(0, s32(factor), s32(2 * factor), s32(3 * factor));
	}

	// Integers.

	template<typename _Element>
	static VX_INLINE Register Add(Register a, Register b)
	{
		if constexpr (sizeof(_Element) == 1)
			return _mm_add_epi8(a, b);
		else if constexpr (sizeof(_Element) == 2)
			return _mm_add_epi16(a, b);
		else if constexpr (sizeof(_Element) == 4)
			return _mm_add_epi32(a, b);
		else
			return _mm_add_epi64(a, b);
	}
	template<typename _Element>
	static VX_INLINE Register Subtract(Register a, Register b)
	{
		if constexpr (sizeof(_Element) == 1)
			return _mm_sub_epi8(a, b);
		else
			return _mm_sub_epi32(a, b);
	}
	static VX_INLINE Register And(Register a, Register b) { return _mm_and_si128(a, b); }
	static VX_INLINE Register Or(Register a, Register b) { return _mm_or_si128(a, b); }
	static VX_INLINE Register Xor(Register a, Register b) { return _mm_xor_si128(a, b); }
	/// SSE2 has no blend. The mask takes its lanes out of a, the inverted mask takes the others out of b.
	static VX_INLINE Register Select(Mask mask, Register a, Register b)
	{
		return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b));
	}
	/// SSE2 compares signed numbers only. If the sign bits of both numbers are flipped, their signed order is the
	/// unsigned order of what they were:
	///
	///   unsigned   0            0x7FFFFFFF   0x80000000   0xFFFFFFFF
	///   flipped    0x80000000   0xFFFFFFFF   0            0x7FFFFFFF
	///   as signed  -2^31        -1           0            2^31 - 1
	static VX_INLINE Mask LessUnsigned(Register a, Register b)
	{
		const __m128i signs = Splat(0x80000000u);
		return _mm_cmpgt_epi32(_mm_xor_si128(b, signs), _mm_xor_si128(a, signs));
	}
	static VX_INLINE Register Where(Mask mask, Register a) { return _mm_and_si128(mask, a); }
	static VX_INLINE bool Any(Mask mask) { return _mm_movemask_epi8(mask) != 0; }
	static VX_INLINE Mask GreaterSigned(Register a, Register b) { return _mm_cmpgt_epi32(a, b); }
	/// Lanes in the wrong order are exchanged: by the bits in which they differ.
	static VX_INLINE void SortTwo(Register &a, Register &b)
	{
		const __m128i exchanged = _mm_and_si128(_mm_cmpgt_epi32(a, b), _mm_xor_si128(a, b));
		a = _mm_xor_si128(a, exchanged);
		b = _mm_xor_si128(b, exchanged);
	}
	static VX_INLINE Register EqualBytes(Register a, Register b) { return _mm_cmpeq_epi8(a, b); }
	template<u32 _Count>
	static VX_INLINE Register ShiftLeft(Register r)
	{
		return _mm_slli_epi32(r, _Count);
	}
	template<u32 _Count>
	static VX_INLINE Register ShiftRightSigned(Register r)
	{
		return _mm_srai_epi32(r, _Count);
	}
	///   element   0    1    2    3    4    5    6    7
	///   result    a0   a1   a2   a3   b0   b1   b2   b3     each limited to [-0x8000, 0x7FFF]
	static VX_INLINE Register PackSigned(Register a, Register b) { return _mm_packs_epi32(a, b); }

	// Order.

	template<u32 _0, u32 _1, u32 _2, u32 _3>
	static VX_INLINE Register Shuffle(Register r)
	{
		return _mm_shuffle_epi32(r, _MM_SHUFFLE(_3, _2, _1, _0));
	}
	/// The instruction is made for floats, but moves bits unchanged, those of NaNs too.
	///
	///   lane     0       1       2       3
	///   result   a[_0]   a[_1]   b[_2]   b[_3]
	template<u32 _0, u32 _1, u32 _2, u32 _3>
	static VX_INLINE Register Shuffle2(Register a, Register b)
	{
		return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), _MM_SHUFFLE(_3, _2, _1, _0)));
	}
	/// One instruction for each half, so no element leaves its half: _0 to _3 are 0 to 3, and _4 to _7 are 4 to 7.
	template<u32 _0, u32 _1, u32 _2, u32 _3, u32 _4, u32 _5, u32 _6, u32 _7>
	static VX_INLINE Register Shuffle16(Register r)
	{
		return _mm_shufflehi_epi16(
			_mm_shufflelo_epi16(r, _MM_SHUFFLE(_3, _2, _1, _0)), _MM_SHUFFLE(_7 - 4, _6 - 4, _5 - 4, _4 - 4));
	}
	///   lane             0    1    2    3
	///   InterleaveLow    a0   b0   a1   b1
	///   InterleaveHigh   a2   b2   a3   b3
	static VX_INLINE Register InterleaveLow(Register a, Register b) { return _mm_unpacklo_epi32(a, b); }
	static VX_INLINE Register InterleaveHigh(Register a, Register b) { return _mm_unpackhi_epi32(a, b); }
	///   lane             0    1    2    3
	///   r                r0   r1   r2   r3
	///   by four bytes    0    r0   r1   r2
	template<u32 _Count>
	static VX_INLINE Register ShiftBytesUp(Register r)
	{
		return _mm_slli_si128(r, _Count);
	}
	/// A narrow element is doubled until it fills lane 3, which then goes to every lane. With bytes, of which the last
	/// is f:
	///
	///   bytes of lane 3    c d e f
	///   doubled            e e f f
	///   doubled again      f f f f
	template<typename _Element>
	static VX_INLINE Register SpreadLast(Register r)
	{
		if constexpr (sizeof(_Element) == 1)
			r = _mm_unpackhi_epi8(r, r);
		if constexpr (sizeof(_Element) <= 2)
			r = _mm_shufflehi_epi16(r, _MM_SHUFFLE(3, 3, 3, 3));
		return _mm_shuffle_epi32(r, _MM_SHUFFLE(3, 3, 3, 3));
	}

	// One number of all.

	static VX_INLINE u32 Lane0(Register r) { return u32(_mm_cvtsi128_si32(r)); }
	/// SSE2 has no test of all bits. Bytes are compared with 0, and the comparison's 16 sign bits are gathered.
	static VX_INLINE bool AllZero(Register r) { return AllOnes(_mm_cmpeq_epi8(r, _mm_setzero_si128())); }
	static VX_INLINE bool AllOnes(Register r) { return _mm_movemask_epi8(r) == 0xFFFF; }
	/// The instruction sums absolute differences, here to 0, of eight bytes at a time:
	///
	///   lane     0               1    2                3
	///   sums     of bytes 0-7    0    of bytes 8-15    0
	static VX_INLINE u32 SumBytes(Register r)
	{
		const __m128i sums = _mm_sad_epu8(r, _mm_setzero_si128()); // of the lower and the upper eight bytes
		return Lane0(sums) + Lane0(_mm_srli_si128(sums, 8));
	}

	// Floats.

	/// The casts are no instructions. They only tell the compiler that the same bits are floats.
	static VX_INLINE Register SubtractFloats(Register a, Register b)
	{
		return _mm_castps_si128(_mm_sub_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b)));
	}
	static VX_INLINE Register MultiplyFloats(Register a, Register b)
	{
		return _mm_castps_si128(_mm_mul_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b)));
	}
	/// An addition in assembler cannot be fused with the multiplication before it, and its operands keep their order.
	static VX_INLINE Register AddFloats(Register a, Register b)
	{
#if VX_X86 && VX_HAS_ASM
		VX_ADD_FLOATS_SSE2(a, b);
		return a;
#else
		return _mm_castps_si128(_mm_add_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b)));
#endif
	}
};
} // namespace Vexmoor
