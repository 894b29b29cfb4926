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
	static VX_INLINE Register LoadGroups(const u8 *p, ureg stride)
	{
		const __m256i first = _mm256_castsi128_si256(SLanesSse2::Load(p));
		return _mm256_inserti128_si256(first, SLanesSse2::Load(p + stride), 1);
	}
	static VX_INLINE void LoadTriples(const u8 *p, Register &x, Register &y, Register &z)
	{
		LoadTriplesInGroups<SLanesAvx2>(p, x, y, z);
	}
	static VX_INLINE Register LoadEvenLanes(const u8 *p) { return EvenLanes(Load(p), Load(p + 32)); }
	static VX_INLINE void Store(void *p, Register r) { _mm256_storeu_si256(static_cast<__m256i *>(p), r); }
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
	static VX_INLINE Mask LessUnsigned(Register a, Register b)
	{
		const __m256i signs = Splat(0x80000000u);
		return _mm256_cmpgt_epi32(_mm256_xor_si256(b, signs), _mm256_xor_si256(a, signs));
	}
	static VX_INLINE Register Where(Mask mask, Register a) { return _mm256_and_si256(mask, a); }
	static VX_INLINE bool Any(Mask mask) { return !AllZero(mask); }
	static VX_INLINE Mask GreaterSigned(Register a, Register b) { return _mm256_cmpgt_epi32(a, b); }
	template<u32 _Count>
	static VX_INLINE Register ShiftRightSigned(Register r)
	{
		return _mm256_srai_epi32(r, _Count);
	}

	// Order.

	template<u32 _0, u32 _1, u32 _2, u32 _3>
	static VX_INLINE Register Shuffle2(Register a, Register b)
	{
		const __m256 floatsA = _mm256_castsi256_ps(a), floatsB = _mm256_castsi256_ps(b);
		return _mm256_castps_si256(_mm256_shuffle_ps(floatsA, floatsB, _MM_SHUFFLE(_3, _2, _1, _0)));
	}
	static VX_INLINE Register InterleaveLow(Register a, Register b) { return _mm256_unpacklo_epi32(a, b); }
	static VX_INLINE Register InterleaveHigh(Register a, Register b) { return _mm256_unpackhi_epi32(a, b); }
	template<u32 _Count>
	static VX_INLINE Register ShiftBytesUp(Register r)
	{
		return _mm256_slli_si256(r, _Count);
	}
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
	/// The first group's total is added to what is before in the second one, and both totals are carried.
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

	// Own to this target: the ragged end of keys that are ranked.

	/// LoadEvenLanes of those pairs alone whose lane in signs is negative; the others are not touched, and give 0.
	static VX_INLINE Register LoadEvenLanesWhere(const u8 *p, Register signs)
	{
		const long long *const pairs = reinterpret_cast<const long long *>(p);
		const __m256i lower = _mm256_cvtepi32_epi64(_mm256_castsi256_si128(signs));
		const __m256i upper = _mm256_cvtepi32_epi64(_mm256_extracti128_si256(signs, 1));
		return EvenLanes(_mm256_maskload_epi64(pairs, lower), _mm256_maskload_epi64(pairs + 4, upper));
	}

private:
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
