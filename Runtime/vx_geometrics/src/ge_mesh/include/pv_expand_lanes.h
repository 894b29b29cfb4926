#pragma once

// What the expansion stage does in registers: index patterns held in lanes, bases splatted over them, and the packing
// of 32-bit sums into 16-bit lanes. Nothing here reports on its own; aligned accesses check themselves.

#include "ge_mesh_triangle_sorter.h"

#include "simd/sse/simd_vector.h"

#include "pv_mesh_triangle_sorter.h"

namespace Vexmoor
{
// Two records: depth, index, depth, index.
static VX_INLINE __m128i LoadRecords2(const SIndexAndDepth *records)
{
	return Float4::LoadAligned16(records).Integers();
}

// The bases of four records.
static VX_INLINE __m128i LoadBases4(const SIndexAndDepth *records)
{
	return Shuffle2<3, 1, 3, 1>(LoadRecords2(records), LoadRecords2(records + kRecordsPerAccess));
}

// The bases of four records at any address, without a look at their alignment.
static VX_INLINE __m128i LoadBases4Unaligned(const SIndexAndDepth *records)
{
	return Shuffle2<3, 1, 3, 1>(
		Float4::LoadUnaligned(records).Integers(), Float4::LoadUnaligned(records + kRecordsPerAccess).Integers());
}

// Entries of a pattern, which lies at any multiple of 4 bytes.
static VX_INLINE __m128i LoadEntries4(const u32 *pattern)
{
	return Float4::LoadUnaligned(pattern).Integers();
}

// Three entries, as 32-bit lanes that repeat over three vectors. Nothing is read beyond the third.
//
//   lane          0    1    2    3
//   p0p1p2p0      p0   p1   p2   p0
//   p1p2p0p1      p1   p2   p0   p1
//   p2p0p1p2      p2   p0   p1   p2
struct SPattern3
{
	__m128i p0p1p2p0, p1p2p0p1, p2p0p1p2;

	explicit VX_INLINE SPattern3(const u32 *pattern)
	{
		const __m128i p0p1____ = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(pattern));
		const __m128i p0p1p2__ = _mm_unpacklo_epi64(p0p1____, _mm_cvtsi32_si128(s32(LoadU32(pattern + 2))));
		p0p1p2p0 = Shuffle<0, 2, 1, 0>(p0p1p2__);
		p1p2p0p1 = Shuffle<1, 0, 2, 1>(p0p1p2__);
		p2p0p1p2 = Shuffle<2, 1, 0, 2>(p0p1p2__);
	}
};

// The bases of four primitives of three indices each, spread over their twelve places.
struct SOffsets3
{
	__m128i b0b0b0b1, b1b1b2b2, b2b3b3b3;

	explicit VX_INLINE SOffsets3(const SIndexAndDepth *records)
		: SOffsets3(LoadBases4(records))
	{
	}
	explicit VX_INLINE SOffsets3(__m128i b0b1b2b3)
		: b0b0b0b1(Shuffle<1, 0, 0, 0>(b0b1b2b3))
		, b1b1b2b2(Shuffle<2, 2, 1, 1>(b0b1b2b3))
		, b2b3b3b3(Shuffle<3, 3, 3, 2>(b0b1b2b3))
	{
	}
};

// Eight 32-bit lanes into eight 16-bit lanes. An offset of 0x10000 or more spills into its neighbour: 16-bit buffers
// stay below.
static VX_INLINE __m128i PackOffsets16(__m128i lanes0123, __m128i lanes4567)
{
	const __m128i even = Shuffle2<2, 0, 2, 0>(lanes0123, lanes4567);
	const __m128i odd = Shuffle2<3, 1, 3, 1>(lanes0123, lanes4567);
	return _mm_or_si128(even, _mm_slli_epi32(odd, 16));
}

// Three entries in 16-bit lanes, which repeat over three vectors.
//
//   lane          0    1    2    3    4    5    6    7
//   p01201201     p0   p1   p2   p0   p1   p2   p0   p1
//   p20120120     p2   p0   p1   p2   p0   p1   p2   p0
//   p12012012     p1   p2   p0   p1   p2   p0   p1   p2
struct SPackedPattern3
{
	__m128i p01201201, p20120120, p12012012;

	explicit VX_INLINE SPackedPattern3(const u16 (&pattern)[3])
	{
		const short p0 = short(pattern[0]);
		const short p1 = short(pattern[1]);
		const short p2 = short(pattern[2]);
		p01201201 = _mm_setr_epi16(p0, p1, p2, p0, p1, p2, p0, p1);
		p20120120 = Shuffle<1, 0, 2, 1>(p01201201);
		p12012012 = Shuffle<2, 1, 0, 2>(p01201201);
	}
};

// Eight 32-bit lanes into eight 16-bit lanes with signed saturation, which keeps 0x8000 to 0xFFFF once they are made
// negative. Exact up to 0xFFFF; beyond, what the saturation makes of it.
static VX_INLINE __m128i PackIndices16(__m128i lanes0123, __m128i lanes4567)
{
	const __m128i largestPositive = _mm_set1_epi32(0x7FFF);
	const __m128i upperBits = Splat(0xFFFF0000u);
	const auto makeNegative = [&](__m128i lanes)
	{ return _mm_or_si128(lanes, _mm_and_si128(_mm_cmpgt_epi32(lanes, largestPositive), upperBits)); };
	return _mm_packs_epi32(makeNegative(lanes0123), makeNegative(lanes4567));
}

// Six entries, as lanes that repeat over three vectors.
struct SPattern6
{
	__m128i i0i1i2i3, i4i5i0i1, i2i3i4i5;

	explicit VX_INLINE SPattern6(const u32 *pattern)
	{
		// cppcheck-suppress useInitializationList ; the third is made of the first two
		i0i1i2i3 = LoadEntries4(pattern);
		i2i3i4i5 = LoadEntries4(pattern + 2);
		i4i5i0i1 = Shuffle2<1, 0, 3, 2>(i2i3i4i5, i0i1i2i3);
	}
};

// Six entries in 16-bit lanes, lowered so that the largest of them is 0x7FFF. Bases raised by as much then pack into
// 16 bits with signed saturation, and the bias cancels in the sum: exact while base + largest entry is below 0xFFFF.
// At 0xFFFF the base saturates, and the record comes out one lower.
//
//   lane              0    1    2    3    4    5    6    7
//   p01234501         p0   p1   p2   p3   p4   p5   p0   p1
//   p23450123         p2   p3   p4   p5   p0   p1   p2   p3
//   p45012345         p4   p5   p0   p1   p2   p3   p4   p5
struct SBiasedPattern6
{
	__m128i p01234501, p23450123, p45012345;
	__m128i signedOffsetter;

	explicit VX_WRAPS VX_INLINE SBiasedPattern6(const u32 *pattern)
	{
		s32 largestIndexInPattern = s32(LoadU32(pattern));
		for (u32 i = 1; i < 6; ++i)
		{
			const s32 entry = s32(LoadU32(pattern + i));
			largestIndexInPattern = entry > largestIndexInPattern ? entry : largestIndexInPattern;
		}
		signedOffsetter = Splat(u32(largestIndexInPattern) - 0x7FFFu);

		const SPattern6 lanes(pattern);
		const __m128i i0i1i2i3 = _mm_sub_epi32(lanes.i0i1i2i3, signedOffsetter);
		const __m128i i2i3i4i5 = _mm_sub_epi32(lanes.i2i3i4i5, signedOffsetter);
		const __m128i i4i5i0i1 = _mm_sub_epi32(lanes.i4i5i0i1, signedOffsetter);
		p01234501 = _mm_packs_epi32(i0i1i2i3, i4i5i0i1);
		p23450123 = _mm_packs_epi32(i2i3i4i5, i0i1i2i3);
		p45012345 = _mm_packs_epi32(i4i5i0i1, i2i3i4i5);
	}
};

// The bases of four primitives of six indices each, raised by the pattern's bias and spread over their 24 places.
struct SBiasedOffsets6
{
	__m128i off_00000011, off_11112222, off_22333333;

	VX_INLINE SBiasedOffsets6(const SIndexAndDepth *records, __m128i signedOffsetter)
	{
		const __m128i off0123 = _mm_add_epi32(LoadBases4(records), signedOffsetter);
		const __m128i off01230123 = _mm_packs_epi32(off0123, off0123);
		off_00000011 = Spread<0, 0, 0, 0, 1, 1, 0, 0>(off01230123);
		off_11112222 = Spread<1, 1, 1, 1, 2, 2, 2, 2>(off01230123);
		off_22333333 = Spread<3, 3, 2, 2, 3, 3, 3, 3>(off01230123);
	}

private:
	// 16-bit lanes of the lower and of the upper half, each counting down.
	template<u32 _L3, u32 _L2, u32 _L1, u32 _L0, u32 _H3, u32 _H2, u32 _H1, u32 _H0>
	static VX_INLINE __m128i Spread(__m128i lanes)
	{
		return _mm_shufflehi_epi16(
			_mm_shufflelo_epi16(lanes, _MM_SHUFFLE(_L3, _L2, _L1, _L0)), _MM_SHUFFLE(_H3, _H2, _H1, _H0));
	}
};

// Twelve entries as they lie.
struct SPattern12
{
	__m128i i0i1i2i3, i4i5i6i7, i8i9iAiB;

	explicit VX_INLINE SPattern12(const u32 *pattern)
		: i0i1i2i3(LoadEntries4(pattern))
		, i4i5i6i7(LoadEntries4(pattern + 4))
		, i8i9iAiB(LoadEntries4(pattern + 8))
	{
	}
};

// The low 16 bits of eight 32-bit lanes. Packing saturates signed lanes, so the lanes are first made the signed numbers
// that their low 16 bits are.
static VX_INLINE __m128i CutTo16(__m128i lanes0123, __m128i lanes4567)
{
	const auto signedLow16 = [](__m128i lanes) { return _mm_srai_epi32(_mm_slli_epi32(lanes, 16), 16); };
	return _mm_packs_epi32(signedLow16(lanes0123), signedLow16(lanes4567));
}

// Two consecutive pattern entries cut to 16 bits and packed, the first in the lower ones.
VX_WRAPS static VX_INLINE u32 PackEntries2(const u32 *pattern)
{
	return (LoadU32(pattern) & 0xFFFF) | LoadU32(pattern + 1) << 16;
}
} // namespace Vexmoor
