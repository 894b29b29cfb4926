#pragma once

// The vocabulary of simd/lanes.h in AVX-512, with its F, BW, DQ and VL. Permutations of two whole registers take the
// place of shuffles in groups where that is faster.

#include "vx_compiler.h"
#include "vx_defs.h"

#if VX_X86
	#include <cstring>
	#include <immintrin.h>

VX_BEGIN_TARGET_AVX512

	#include "simd/lanes_avx2.h"

namespace Vexmoor
{
/// Four groups of four. What only loads of groups from elsewhere need is left to SLanesAvx512VL.
struct SLanesAvx512
{
	typedef __m512i Register;
	/// A mask is a register of its own kind: one bit for each lane, bit 0 for lane 0.
	typedef __mmask16 Mask;
	typedef struct SLanesAvx512VL Gathering; // four loads for a register take longer than two for each half
	static constexpr u32 kGroups = 4;
	static constexpr u32 kLanes = 4 * kGroups;
	static constexpr bool kAddsInOrder = VX_HAS_ASM;

	// Memory.

	static VX_INLINE Register Load(const void *p) { return _mm512_loadu_si512(p); }
	/// Sixteen triples lie in three registers. Lane i of x, y and z is the coordinate of triple i:
	///
	///   lane   0    1    2    3    4    5   ...  14   15
	///   a      x0   y0   z0   x1   y1   z1  ...  z4   x5
	///   b      y5   z5   x6   y6   z6   x7  ...  x10  y10
	///   c      z10  x11  y11  z11  x12  y12 ...  y15  z15
	static VX_INLINE void LoadTriples(const u8 *p, Register &x, Register &y, Register &z)
	{
		const __m512i a = InRegister(Load(p)), b = InRegister(Load(p + 64)), c = InRegister(Load(p + 128));
		x = CoordinatesOfTriples<0>(a, b, c);
		y = CoordinatesOfTriples<1>(a, b, c);
		z = CoordinatesOfTriples<2>(a, b, c);
	}
	static VX_INLINE void Store(void *p, Register r) { _mm512_storeu_si512(p, r); }
	/// Each permutation takes eight pairs from a and b, which are two groups of the result:
	///
	///   pairs          0     1     2     3     4     5     6     7
	///   lower first    a0b0  a1b1  a2b2  a3b3  a4b4  a5b5  a6b6  a7b7      from p
	///                  a8b8  a9b9  ...                                     from p + 64
	///   upper first    a2b2  a3b3  a0b0  a1b1  a6b6  a7b7  a4b4  a5b5
	template<bool _UpperFirst>
	static VX_INLINE void StorePairs(u8 *p, Register a, Register b)
	{
		static constexpr SLaneNumbers kLower = PairsOfTwoGroups<_UpperFirst>(0);
		static constexpr SLaneNumbers kUpper = PairsOfTwoGroups<_UpperFirst>(2);
		Store(p, _mm512_permutex2var_epi32(a, Load(kLower.m_Lanes), b));
		Store(p + 64, _mm512_permutex2var_epi32(a, Load(kUpper.m_Lanes), b));
	}

	static VX_INLINE u32 BitsOfBytes(const u8 *p)
	{
		const __m128i bytes = SLanesSse2::Load(p);
		return _mm_test_epi8_mask(bytes, bytes);
	}
	static VX_INLINE u32 StoreWhere(u8 *p, u32 bits, Register r)
	{
		Store(p, _mm512_maskz_compress_epi32(Mask(bits), r));
		return u32(_mm_popcnt_u32(bits));
	}
	static VX_INLINE u32 StoreWhere(u8 *p, u32 bits, Register r, u32 room)
	{
		const u32 wantedCount = u32(_mm_popcnt_u32(bits));
		_mm512_mask_storeu_epi32(p, Mask((1u << room) - 1), _mm512_maskz_compress_epi32(Mask(bits), r));
		return wantedCount < room ? wantedCount : room;
	}

	// Constants.

	static VX_INLINE Register Splat(u32 value) { return _mm512_set1_epi32(s32(value)); }
	static VX_INLINE Register Multiples(u32 factor)
	{
		const __m512i numbers = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
		return _mm512_mullo_epi32(numbers, Splat(factor));
	}

	// Integers.

	template<typename _Element>
	static VX_INLINE Register Add(Register a, Register b)
	{
		static_assert(sizeof(_Element) == 4, "other widths are not needed in registers of this width");
		return _mm512_add_epi32(a, b);
	}
	static VX_INLINE Register And(Register a, Register b) { return _mm512_and_si512(a, b); }
	static VX_INLINE Register Or(Register a, Register b) { return _mm512_or_si512(a, b); }
	static VX_INLINE Register Xor(Register a, Register b) { return _mm512_xor_si512(a, b); }
	static VX_INLINE Mask GreaterSigned(Register a, Register b) { return _mm512_cmpgt_epi32_mask(a, b); }
	/// AVX-512 compares unsigned numbers by itself, so no sign bits are flipped.
	static VX_INLINE Mask LessUnsigned(Register a, Register b) { return _mm512_cmplt_epu32_mask(a, b); }
	static VX_INLINE Register Select(Mask mask, Register a, Register b) { return _mm512_mask_mov_epi32(b, mask, a); }
	/// Lanes that the mask leaves out are set to 0 by the instruction itself.
	static VX_INLINE Register Where(Mask mask, Register a) { return _mm512_maskz_mov_epi32(mask, a); }
	static VX_INLINE bool Any(Mask mask) { return mask != 0; }
	template<u32 _Count>
	static VX_INLINE Register ShiftRightSigned(Register r)
	{
		return _mm512_maskz_srai_epi32(kAll, r, _Count);
	}

	// Floats.

	static VX_INLINE Register SubtractFloats(Register a, Register b)
	{
		return _mm512_castps_si512(_mm512_sub_ps(_mm512_castsi512_ps(a), _mm512_castsi512_ps(b)));
	}
	static VX_INLINE Register MultiplyFloats(Register a, Register b)
	{
		return _mm512_castps_si512(_mm512_mul_ps(_mm512_castsi512_ps(a), _mm512_castsi512_ps(b)));
	}
	/// An addition in assembler cannot be fused with the multiplication before it, and its operands keep their order.
	static VX_INLINE Register AddFloats(Register a, Register b)
	{
	#if VX_HAS_ASM
		VX_ADD_FLOATS_AVX512(a, b);
		return a;
	#else
		return _mm512_castps_si512(_mm512_add_ps(_mm512_castsi512_ps(a), _mm512_castsi512_ps(b)));
	#endif
	}

private:
	// In place of functions without a mask, of which g++ 12 warns because its own header leaves a register undefined.
	static constexpr __mmask16 kAll = 0xFFFF;

	// For permutations: 0 to 15 are the first register's lanes, 16 to 31 the second's.
	struct alignas(64) SLaneNumbers
	{
		s32 m_Lanes[kLanes];
	};

	// Compilers that know where lanes come from load them again for each use. Loads that cross cache lines take longer
	// than the permutations that they feed: a fill of packed positions took 1.4 times as long.
	static VX_INLINE Register InRegister(Register lanes)
	{
	#if VX_HAS_ASM
		VX_OPAQUE(lanes);
	#endif
		return lanes;
	}

	// Coordinate _Axis of triple i is lane 3 * i + _Axis of 48 in three registers. What the first two have of it comes
	// together first, then what the third has.
	// Of x, for example: triples 0 to 5 have theirs in a, 6 to 10 in b and 11 to 15 in c.
	//
	//   lane          0   1   2   3   4   5    6   7   ...  10  11  ...  15
	//   from          a0  a3  a6  a9  a12 a15  b2  b5  ...  b14 ?   ...  ?      of the first two
	//   with third    the same lanes, in place             ...  c1  ...  c13
	template<u32 _Axis>
	static constexpr SLaneNumbers CoordinatesOfFirstTwo()
	{
		SLaneNumbers numbers = {};
		for (u32 i = 0; i < kLanes; ++i)
			numbers.m_Lanes[i] = s32(3 * i + _Axis) % 32;
		return numbers;
	}
	template<u32 _Axis>
	static constexpr SLaneNumbers CoordinatesWithThird()
	{
		SLaneNumbers numbers = {};
		for (u32 i = 0; i < kLanes; ++i)
			numbers.m_Lanes[i] = 3 * i + _Axis < 32 ? s32(i) : s32(3 * i + _Axis) - 16;
		return numbers;
	}
	template<u32 _Axis>
	static VX_INLINE Register CoordinatesOfTriples(Register a, Register b, Register c)
	{
		static constexpr SLaneNumbers kFirstTwo = CoordinatesOfFirstTwo<_Axis>();
		static constexpr SLaneNumbers kWithThird = CoordinatesWithThird<_Axis>();
		const __m512i firstTwo = _mm512_permutex2var_epi32(a, Load(kFirstTwo.m_Lanes), b);
		return _mm512_permutex2var_epi32(firstTwo, Load(kWithThird.m_Lanes), c);
	}

	// The lane numbers for eight pairs, from firstGroup on. With _UpperFirst, bit 1 of a pair's number is flipped,
	// which makes 0, 1, 2, 3 to 2, 3, 0, 1.
	template<bool _UpperFirst>
	static constexpr SLaneNumbers PairsOfTwoGroups(u32 firstGroup)
	{
		SLaneNumbers numbers = {};
		for (u32 pair = 0; pair < 8; ++pair)
		{
			const u32 lane = (firstGroup * 4 + pair) ^ (_UpperFirst ? 2 : 0);
			numbers.m_Lanes[2 * pair] = s32(lane);
			numbers.m_Lanes[2 * pair + 1] = s32(kLanes + lane);
		}
		return numbers;
	}
};

/// Two groups of four, as with AVX2, but for prefix sums: ten instructions for fourteen, 4 to 8 % of a sort of up to
/// 1,000 records.
struct SLanesAvx512VL : SLanesAvx2
{
	/// Prefix sums in three steps, each of which doubles how far an element's sum reaches back: in 64 bits by a
	/// multiplication, in a group, and in the register. Sums are inclusive, and at the end the counts are taken off
	/// again. With 32-bit counts a to h:
	///
	///   lane             0    1    2    3    | 4      5     6      7
	///   counts           a    b    c    d    | e      f     g      h
	///   in 64 bits       a    ab   c    cd   | e      ef    g      gh
	///   in groups        a    ab   abc  abcd | e      ef    efg    efgh
	///   in the register  a    ab   abc  abcd | abcde  +f    +fg    +fgh
	///   before           0    a    ab   abc  | abcd   +e    +ef    +efg
	///
	/// The multiplication carries inside its 64 bits: a sum of 8 or 16 bits that wraps to 0 adds one to the sum after
	/// it.
	template<typename _Element>
	static VX_INLINE void PrefixSums(Register counts, Register &before, Register &total)
	{
		__m256i runs = Add<_Element>(counts, SumsBeforeIn64Bits<_Element>(counts));
		runs = Add<_Element>(runs, LastOfLower64BitsToUpper<_Element>(runs));
		runs = Add<_Element>(runs, LastOfFirstGroupToSecond<_Element>(runs));
		before = Subtract<_Element>(runs, counts);
		total = SpreadLastOfAll<_Element>(runs);
	}

private:
	// Compilers that know a constant take the instruction that uses it apart into several.
	static VX_INLINE Register Unknown(Register constant)
	{
	#if VX_HAS_ASM
		VX_OPAQUE(constant);
	#endif
		return constant;
	}

	// The factor has a bit for each distance by which the counts are moved up. The product is the sum of the moved
	// counts, which is the sum of all elements before each one. With 16-bit counts:
	//
	//   element     0    1    2    3
	//   counts      a    b    c    d
	//   << 16       0    a    b    c
	//   << 32       0    0    a    b
	//   << 48       0    0    0    a
	//   product     0    a    ab   abc
	template<typename _Element>
	static VX_INLINE Register SumsBeforeIn64Bits(Register counts)
	{
		constexpr s64 kOnesFromSecondOn = sizeof(_Element) == 1   ? 0x0101010101010100
		                                  : sizeof(_Element) == 2 ? 0x0001000100010000
		                                                          : 0x0000000100000000;
		return _mm256_mullo_epi64(counts, Unknown(_mm256_set1_epi64x(kOnesFromSecondOn)));
	}

	// The last element of the lower 64 bits of each group, in all of the upper ones; the rest is 0.
	template<typename _Element>
	static VX_INLINE Register LastOfLower64BitsToUpper(Register runs)
	{
		constexpr s64 kZero = s64(0x8080808080808080u);
		constexpr s64 kLast = sizeof(_Element) == 1   ? 0x0707070707070707
		                      : sizeof(_Element) == 2 ? 0x0706070607060706
		                                              : 0x0706050407060504;
		return _mm256_shuffle_epi8(runs, _mm256_set_epi64x(kLast, kZero, kLast, kZero));
	}

	// The last element of the first group, in all of the second one; the rest is 0.
	template<typename _Element>
	static VX_INLINE Register LastOfFirstGroupToSecond(Register runs)
	{
		if constexpr (sizeof(_Element) == 1)
			return _mm256_maskz_permutex_epi64(0xC, SpreadLast<_Element>(runs), _MM_SHUFFLE(1, 0, 1, 0));
		else if constexpr (sizeof(_Element) == 2)
			return _mm256_maskz_permutexvar_epi16(0xFF00, Unknown(_mm256_set1_epi16(7)), runs);
		else
			return _mm256_maskz_permutexvar_epi32(0xF0, Unknown(_mm256_set1_epi32(3)), runs);
	}

	template<typename _Element>
	static VX_INLINE Register SpreadLastOfAll(Register runs)
	{
		if constexpr (sizeof(_Element) == 1)
			return _mm256_permute4x64_epi64(SpreadLast<_Element>(runs), _MM_SHUFFLE(3, 3, 3, 3));
		else if constexpr (sizeof(_Element) == 2)
			return _mm256_permutexvar_epi16(_mm256_set1_epi16(15), runs);
		else
			return _mm256_permutexvar_epi32(_mm256_set1_epi32(7), runs);
	}
};
} // namespace Vexmoor

VX_END_TARGET
#endif
