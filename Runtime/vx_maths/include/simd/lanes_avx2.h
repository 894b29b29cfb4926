#pragma once

// The vocabulary of simd/lanes.h in AVX2. Most instructions work in groups by themselves.

#include "vx_compiler.h"
#include "vx_defs.h"

#if VX_X86
	#include <cstring>
	#include <immintrin.h>

VX_BEGIN_TARGET_AVX2

	#include "simd/lanes_shared.h"
	#include "simd/lanes_sse2.h"

namespace Vexmoor
{
/// Two groups of four.
///
///   group   0 0 0 0 | 1 1 1 1
///   lane    0 1 2 3 | 4 5 6 7
struct SLanesAvx2
{
	typedef __m256i Register;
	typedef Register Mask;
	typedef SLanesAvx2 Gathering;
	static constexpr u32 kGroups = 2;
	static constexpr u32 kLanes = 4 * kGroups;
	static constexpr bool kAddsInOrder = VX_HAS_ASM;

	// Memory.

	static VX_INLINE Register Load(const void *p) { return _mm256_loadu_si256(static_cast<const __m256i *>(p)); }
	///   lane     0-3         4-7
	///   result   16 bytes    16 bytes
	///            at p        at p + stride
	static VX_INLINE Register LoadGroups(const u8 *p, ureg stride)
	{
		const __m256i first = _mm256_castsi128_si256(SLanesSse2::Load(p));
		return _mm256_inserti128_si256(first, SLanesSse2::Load(p + stride), 1);
	}
	static VX_INLINE Register LoadGroupsFrom(const u8 *const *p, ureg offset)
	{
		const __m256i first = _mm256_castsi128_si256(SLanesSse2::Load(p[0] + offset));
		return _mm256_inserti128_si256(first, SLanesSse2::Load(p[4] + offset), 1);
	}
	static VX_INLINE void LoadTriples(const u8 *p, Register &x, Register &y, Register &z)
	{
		LoadTriplesInGroups<SLanesAvx2>(p, x, y, z);
	}
	static VX_INLINE Register LoadEvenLanes(const u8 *p) { return EvenLanes(Load(p), Load(p + 32)); }
	static VX_INLINE void Store(void *p, Register r) { _mm256_storeu_si256(static_cast<__m256i *>(p), r); }
	/// Interleaving works in groups, so each result holds a half of either group, and four stores put the halves in
	/// order:
	///
	///   lane              0   1   2   3  | 4   5   6   7
	///   InterleaveLow     a0  b0  a1  b1 | a4  b4  a5  b5
	///   InterleaveHigh    a2  b2  a3  b3 | a6  b6  a7  b7
	///
	///   bytes from p      0          16         32         48
	///   lower first       a0b0 a1b1  a2b2 a3b3  a4b4 a5b5  a6b6 a7b7
	///   upper first       a2b2 a3b3  a0b0 a1b1  a6b6 a7b7  a4b4 a5b5
	template<bool _UpperFirst>
	static VX_INLINE void StorePairs(u8 *p, Register a, Register b)
	{
		const __m256i first = _UpperFirst ? InterleaveHigh(a, b) : InterleaveLow(a, b);
		const __m256i second = _UpperFirst ? InterleaveLow(a, b) : InterleaveHigh(a, b);
		__m128i *const dst = reinterpret_cast<__m128i *>(p);
		_mm_storeu_si128(dst, _mm256_castsi256_si128(first));
		_mm_storeu_si128(dst + 1, _mm256_castsi256_si128(second));
		_mm_storeu_si128(dst + 2, _mm256_extracti128_si256(first, 1));
		_mm_storeu_si128(dst + 3, _mm256_extracti128_si256(second, 1));
	}

	static VX_INLINE u32 BitsOfBytes(const u8 *p)
	{
		const __m128i areZero = _mm_cmpeq_epi8(SLanesSse2::LoadTwo(p), _mm_setzero_si128());
		return u32(_mm_movemask_epi8(areZero)) ^ 0xFFFF;
	}
	static VX_INLINE u32 StoreWhere(u8 *p, u32 bits, Register r)
	{
		Store(p, WantedFirst(bits, r));
		return u32(_mm_popcnt_u32(bits));
	}
	static VX_INLINE u32 StoreWhere(u8 *p, u32 bits, Register r, u32 room)
	{
		const u32 wantedCount = u32(_mm_popcnt_u32(bits));
		_mm256_maskstore_epi32(
			reinterpret_cast<int *>(p), GreaterSigned(Splat(room), Multiples(1)), WantedFirst(bits, r));
		return wantedCount < room ? wantedCount : room;
	}

	// Constants.

	static VX_INLINE Register Splat(u32 value) { return _mm256_set1_epi32(s32(value)); }
	static VX_INLINE Register Multiples(u32 factor)
	{
		return _mm256_mullo_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), Splat(factor));
	}

	// Integers.

	template<typename _Element>
	static VX_INLINE Register Add(Register a, Register b)
	{
		if constexpr (sizeof(_Element) == 1)
			return _mm256_add_epi8(a, b);
		else if constexpr (sizeof(_Element) == 2)
			return _mm256_add_epi16(a, b);
		else
			return _mm256_add_epi32(a, b);
	}
	template<typename _Element>
	static VX_INLINE Register Subtract(Register a, Register b)
	{
		if constexpr (sizeof(_Element) == 1)
			return _mm256_sub_epi8(a, b);
		else if constexpr (sizeof(_Element) == 2)
			return _mm256_sub_epi16(a, b);
		else
			return _mm256_sub_epi32(a, b);
	}
	static VX_INLINE Register And(Register a, Register b) { return _mm256_and_si256(a, b); }
	static VX_INLINE Register Or(Register a, Register b) { return _mm256_or_si256(a, b); }
	static VX_INLINE Register Xor(Register a, Register b) { return _mm256_xor_si256(a, b); }
	static VX_INLINE Register Select(Mask mask, Register a, Register b) { return _mm256_blendv_epi8(b, a, mask); }
	/// AVX2 compares signed numbers only. With the sign bits of both flipped, their signed order is the unsigned one.
	static VX_INLINE Mask LessUnsigned(Register a, Register b)
	{
		const __m256i signs = Splat(0x80000000u);
		return _mm256_cmpgt_epi32(_mm256_xor_si256(b, signs), _mm256_xor_si256(a, signs));
	}
	static VX_INLINE Register Where(Mask mask, Register a) { return _mm256_and_si256(mask, a); }
	static VX_INLINE bool Any(Mask mask) { return !AllZero(mask); }
	static VX_INLINE Mask GreaterSigned(Register a, Register b) { return _mm256_cmpgt_epi32(a, b); }
	static VX_INLINE void SortTwo(Register &a, Register &b)
	{
		const __m256i lower = _mm256_min_epi32(a, b);
		b = _mm256_max_epi32(a, b);
		a = lower;
	}
	template<u32 _Count>
	static VX_INLINE Register ShiftRightSigned(Register r)
	{
		return _mm256_srai_epi32(r, _Count);
	}

	// Order.

	///   lane     0      1      2      3      | 4        5        6        7
	///   result   a[_0]  a[_1]  b[_2]  b[_3]  | a[4+_0]  a[4+_1]  b[4+_2]  b[4+_3]
	template<u32 _0, u32 _1, u32 _2, u32 _3>
	static VX_INLINE Register Shuffle2(Register a, Register b)
	{
		const __m256 floatsA = _mm256_castsi256_ps(a), floatsB = _mm256_castsi256_ps(b);
		return _mm256_castps_si256(_mm256_shuffle_ps(floatsA, floatsB, _MM_SHUFFLE(_3, _2, _1, _0)));
	}
	static VX_INLINE Register InterleaveLow(Register a, Register b) { return _mm256_unpacklo_epi32(a, b); }
	static VX_INLINE Register InterleaveHigh(Register a, Register b) { return _mm256_unpackhi_epi32(a, b); }
	/// Zeros enter at the bottom of each group, and what leaves the first group is lost:
	///
	///   lane             0    1    2    3  | 4    5    6    7
	///   by four bytes    0    r0   r1   r2 | 0    r4   r5   r6
	template<u32 _Count>
	static VX_INLINE Register ShiftBytesUp(Register r)
	{
		return _mm256_slli_si256(r, _Count);
	}
	/// The byte shuffle takes its bytes by number, from the same group: byte 15 is the last one, bytes 14 and 15 are
	/// the last 16 bits.
	template<typename _Element>
	static VX_INLINE Register SpreadLast(Register r)
	{
		if constexpr (sizeof(_Element) == 1)
			return _mm256_shuffle_epi8(r, _mm256_set1_epi8(15));
		else if constexpr (sizeof(_Element) == 2)
			return _mm256_shuffle_epi8(r, _mm256_set1_epi16(0x0F0E));
		else
			return _mm256_shuffle_epi32(r, _MM_SHUFFLE(3, 3, 3, 3));
	}

	// One number of all.

	static VX_INLINE bool AllZero(Register r) { return _mm256_testz_si256(r, r) != 0; }
	/// Prefix sums through the whole register: those in each group, then what the first group sums up to goes into the
	/// second one. With 32-bit counts a to h:
	///
	///   lane             0    1    2    3    | 4     5     6      7
	///   beforeInGroups   0    a    ab   abc  | 0     e     ef     efg
	///   totals           abcd in all         | efgh in all
	///   firstToSecond    0    0    0    0    | abcd in all
	///   before           0    a    ab   abc  | abcd  +e    +ef    +efg
	///   total            abcdefgh in all     | abcdefgh in all
	template<typename _Element>
	static VX_INLINE void PrefixSums(Register counts, Register &before, Register &total)
	{
		Register beforeInGroups, totals;
		PrefixSumsInGroups<SLanesAvx2, _Element>(counts, beforeInGroups, totals);
		const __m256i firstToSecond = _mm256_permute2x128_si256(totals, totals, 0x08);
		const __m256i swapped = _mm256_permute4x64_epi64(totals, _MM_SHUFFLE(1, 0, 3, 2));
		before = Add<_Element>(firstToSecond, beforeInGroups);
		total = Add<_Element>(totals, swapped);
	}

	// Floats.

	static VX_INLINE Register SubtractFloats(Register a, Register b)
	{
		return _mm256_castps_si256(_mm256_sub_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b)));
	}
	static VX_INLINE Register MultiplyFloats(Register a, Register b)
	{
		return _mm256_castps_si256(_mm256_mul_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b)));
	}
	static VX_INLINE Register AddFloats(Register a, Register b)
	{
	#if VX_HAS_ASM
		VX_ADD_FLOATS_AVX(a, b);
		return a;
	#else
		return _mm256_castps_si256(_mm256_add_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b)));
	#endif
	}

	// Own to this target: words that are sorted by a network.

	template<u32 _Count>
	static VX_INLINE Register ShiftLeft(Register r)
	{
		return _mm256_slli_epi32(r, _Count);
	}
	/// The higher one of both in every lane, as signed numbers.
	static VX_INLINE Register HigherSigned(Register a, Register b) { return _mm256_max_epi32(a, b); }
	/// Lanes change places in pairs, each with the lane whose number differs by _Distance:
	///
	///   lane      0   1   2   3  | 4   5   6   7
	///   by 1      r1  r0  r3  r2 | r5  r4  r7  r6
	///   by 2      r2  r3  r0  r1 | r6  r7  r4  r5
	///   by 4      r4  r5  r6  r7 | r0  r1  r2  r3
	template<u32 _Distance>
	static VX_INLINE Register SwapLanes(Register r)
	{
		static_assert(_Distance == 1 || _Distance == 2 || _Distance == 4, "a bit of the lane's number");
		if constexpr (_Distance == 1)
			return _mm256_shuffle_epi32(r, _MM_SHUFFLE(2, 3, 0, 1));
		else if constexpr (_Distance == 2)
			return _mm256_shuffle_epi32(r, _MM_SHUFFLE(1, 0, 3, 2));
		else
			return _mm256_permute4x64_epi64(r, _MM_SHUFFLE(1, 0, 3, 2));
	}

	// Own to this target: the ragged end of keys that are ranked, or sorted by a network.

	/// LoadEvenLanes of those pairs alone whose lane in signs is negative; the others are not touched, and give 0.
	/// The signs are widened to 64 bits, one to a pair, which is what the instruction that loads selected pairs asks
	/// for. It does not fault on pairs that it leaves out, so they may lie behind the end of memory.
	static VX_INLINE Register LoadEvenLanesWhere(const u8 *p, Register signs)
	{
		const long long *const pairs = reinterpret_cast<const long long *>(p);
		const __m256i lower = _mm256_cvtepi32_epi64(_mm256_castsi256_si128(signs));
		const __m256i upper = _mm256_cvtepi32_epi64(_mm256_extracti128_si256(signs, 1));
		return EvenLanes(_mm256_maskload_epi64(pairs, lower), _mm256_maskload_epi64(pairs + 4, upper));
	}

private:
	// By a permutation from a table of 2 KB.
	static VX_INLINE Register WantedFirst(u32 bits, Register r)
	{
		static constexpr TWantedLanes<kLanes, 1> kWantedLanes;
		const __m256i numbers = _mm256_cvtepu8_epi32(SLanesSse2::LoadTwo(kWantedLanes.m_Numbers[bits]));
		return _mm256_permutevar8x32_epi32(r, numbers);
	}
	// The even lanes of two registers, which are the first words of eight pairs in a row.
	//
	//   lane            0   1   2   3  | 4   5   6   7
	//   a               a0  a1  a2  a3 | a4  a5  a6  a7      pairs 0 to 3
	//   b               b0  b1  b2  b3 | b4  b5  b6  b7      pairs 4 to 7
	//   shuffled        a0  a2  b0  b2 | a4  a6  b4  b6
	//   result          a0  a2  a4  a6 | b0  b2  b4  b6      64 bits 0, 2, 1 and 3 of the line above
	static VX_INLINE Register EvenLanes(Register a, Register b)
	{
		const __m256i a02b02a46b46 = Shuffle2<0, 2, 0, 2>(a, b);
		return _mm256_permute4x64_epi64(a02b02a46b46, _MM_SHUFFLE(3, 1, 2, 0));
	}
};

/// One group of four, for what is left. Compilers encode the instructions of SSE2 as AVX has them by themselves; an
/// addition that they leave as it stands has to be spelled that way.
struct SLanesAvx : SLanesSse2
{
	typedef SLanesAvx Gathering;

	static VX_INLINE Register AddFloats(Register a, Register b)
	{
	#if VX_HAS_ASM
		VX_ADD_FLOATS_AVX(a, b);
		return a;
	#else
		return SLanesSse2::AddFloats(a, b);
	#endif
	}
};
} // namespace Vexmoor

VX_END_TARGET
#endif
