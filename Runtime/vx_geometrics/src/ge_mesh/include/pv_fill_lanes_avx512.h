#pragma once

// Filling sixteen records at a time, by distance, from packed positions: four groups of four in one 512-bit register,
// with the operations of pv_fill_lanes.h on every lane, so the records are the same to the bit. Permutations of two
// whole registers take the place of shuffles.

#include "pv_fill_lanes.h"

#if defined(VX_TARGET_AVX512)
	#include <immintrin.h>

namespace Vexmoor
{
constexpr u32 kLanesAvx512 = 16;

// Lane numbers for _mm512_permutex2var: 0 to 15 are the first register's lanes, 16 to 31 the second's.
struct alignas(64) SLaneNumbers
{
	s32 m_Lanes[kLanesAvx512];

	VX_TARGET_AVX512 VX_INLINE __m512i Load() const { return _mm512_load_si512(m_Lanes); }
};

// Coordinate _Axis of position i is float 3 * i + _Axis of 48 in three registers: what the first two have of it comes
// together first, then what the third has.
template<u32 _Axis>
constexpr SLaneNumbers CoordinatesOfFirstTwo()
{
	SLaneNumbers numbers = {};
	for (u32 i = 0; i < kLanesAvx512; ++i)
		numbers.m_Lanes[i] = s32(3 * i + _Axis) % 32;
	return numbers;
}
template<u32 _Axis>
constexpr SLaneNumbers CoordinatesWithThird()
{
	SLaneNumbers numbers = {};
	for (u32 i = 0; i < kLanesAvx512; ++i)
		numbers.m_Lanes[i] = 3 * i + _Axis < 32 ? s32(i) : s32(3 * i + _Axis) - 16;
	return numbers;
}

template<u32 _Axis>
VX_TARGET_AVX512 static VX_INLINE __m512 Coordinates(__m512 a, __m512 b, __m512 c)
{
	static constexpr SLaneNumbers kFirstTwo = CoordinatesOfFirstTwo<_Axis>();
	static constexpr SLaneNumbers kWithThird = CoordinatesWithThird<_Axis>();
	return _mm512_permutex2var_ps(_mm512_permutex2var_ps(a, kFirstTwo.Load(), b), kWithThird.Load(), c);
}

// Keys and bases of two groups, interleaved, each group's pairs in the order that its source of bases asks for.
template<bool _UpperPairFirst>
constexpr SLaneNumbers RecordsOfTwoGroups(u32 firstGroup)
{
	SLaneNumbers numbers = {};
	for (u32 record = 0; record < 2 * kRecordsPerGroup; ++record)
	{
		const u32 source = (firstGroup * kRecordsPerGroup + record) ^ (_UpperPairFirst ? 2 : 0);
		numbers.m_Lanes[2 * record] = s32(source);
		numbers.m_Lanes[2 * record + 1] = s32(kLanesAvx512 + source);
	}
	return numbers;
}

// Where vertex bases come from, sixteen at a time.
class CVertexBases16_Sequence
{
public:
	VX_WRAPS VX_TARGET_AVX512 explicit VX_INLINE CVertexBases16_Sequence(const CVertexBases_Sequence &bases)
	{
		const __m512i numbers = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
		const __m512i increment = _mm512_set1_epi32(s32(bases.Increment()));
		m_Counters = _mm512_add_epi32(_mm512_set1_epi32(s32(bases.Start())), _mm512_mullo_epi32(numbers, increment));
		m_Step = _mm512_set1_epi32(s32(kLanesAvx512 * bases.Increment()));
	}

	VX_TARGET_AVX512 VX_INLINE __m512i Next(__m512i &)
	{
		const __m512i bases = m_Counters;
		m_Counters = _mm512_add_epi32(m_Counters, m_Step);
		return bases;
	}

private:
	__m512i m_Counters;
	__m512i m_Step;
};

class CVertexBases16_List
{
public:
	VX_TARGET_AVX512 explicit VX_INLINE CVertexBases16_List(const CVertexBases_List &bases)
		: m_Entries(bases.Entries())
		, m_MaxVertexId(_mm512_set1_epi32(s32(bases.MaxVertexId())))
	{
	}

	VX_TARGET_AVX512 VX_INLINE __m512i Next(__m512i &keys)
	{
		const __m512i entries = _mm512_loadu_si512(m_Entries);
		m_Entries += kLanesAvx512;
		const __mmask16 valid = _mm512_cmplt_epu32_mask(entries, m_MaxVertexId);
		keys = _mm512_mask_mov_epi32(_mm512_set1_epi32(s32(SDistanceKey::kFar)), valid, keys);
		return _mm512_maskz_mov_epi32(valid, entries);
	}

private:
	const u32 *m_Entries;
	__m512i m_MaxVertexId;
};

// As AddInOrder.
VX_TARGET_AVX512 static VX_INLINE __m512 AddInOrder16(__m512 a, __m512 b)
{
	__asm__("vaddps %2, %1, %0" : "=v"(a) : "v"(a), "v"(b));
	return a;
}

template<typename _VertexBases>
VX_TARGET_AVX512 static void FillSixteensByDistance(SIndexAndDepth *packedPtr,
	const u8 *srcPos,
	u32 sixteenCount,
	const SCamera &camera,
	const _VertexBases &vertexBases)
{
	static constexpr SLaneNumbers kLowerRecords = RecordsOfTwoGroups<_VertexBases::kUpperPairFirst>(0);
	static constexpr SLaneNumbers kUpperRecords = RecordsOfTwoGroups<_VertexBases::kUpperPairFirst>(2);
	const __m512 cameraX = _mm512_set1_ps(_mm_cvtss_f32(camera.xxxx));
	const __m512 cameraY = _mm512_set1_ps(_mm_cvtss_f32(camera.yyyy));
	const __m512 cameraZ = _mm512_set1_ps(_mm_cvtss_f32(camera.zzzz));
	typename _VertexBases::Sixteens bases16(vertexBases);
	for (u32 sixteen = 0; sixteen < sixteenCount; ++sixteen)
	{
		const __m512 a = _mm512_loadu_ps(srcPos);
		const __m512 b = _mm512_loadu_ps(srcPos + 64);
		const __m512 c = _mm512_loadu_ps(srcPos + 128);
		const __m512 x = _mm512_sub_ps(Coordinates<0>(a, b, c), cameraX);
		const __m512 y = _mm512_sub_ps(Coordinates<1>(a, b, c), cameraY);
		const __m512 z = _mm512_sub_ps(Coordinates<2>(a, b, c), cameraZ);
		const __m512 len2 = AddInOrder16(AddInOrder16(_mm512_mul_ps(x, x), _mm512_mul_ps(y, y)), _mm512_mul_ps(z, z));
		__m512i keys = _mm512_xor_si512(_mm512_castps_si512(len2), _mm512_set1_epi32(-1));
		const __m512i bases = bases16.Next(keys);
		_mm512_storeu_si512(packedPtr, _mm512_permutex2var_epi32(keys, kLowerRecords.Load(), bases));
		_mm512_storeu_si512(packedPtr + 8, _mm512_permutex2var_epi32(keys, kUpperRecords.Load(), bases));
		packedPtr += kLanesAvx512;
		srcPos += kLanesAvx512 * sizeof(CFloat3);
	}
}
} // namespace Vexmoor
#endif
