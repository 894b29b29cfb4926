#pragma once

// Filling eight records at a time, by distance: two groups of four side by side, one in each half of a 256-bit
// register. Each half does what pv_fill_lanes.h does with a group, operation by operation, so the records are the same
// to the bit. Shuffles stay inside their half; loads and stores of 128 bits bring the halves together and take them
// apart.

#include "pv_fill_lanes.h"

#if defined(VX_TARGET_AVX2)
	#include <immintrin.h>

namespace Vexmoor
{
VX_TARGET_AVX2 static VX_INLINE __m256 LoadHalves(const u8 *lower, const u8 *upper)
{
	return _mm256_insertf128_ps(
		_mm256_castps128_ps256(Float4::LoadUnaligned(lower).Floats()), Float4::LoadUnaligned(upper).Floats(), 1);
}

// Ways to bring the next eight positions into lanes, as those for four.
struct SPositions8_Packed
{
	VX_TARGET_AVX2 static VX_INLINE void Load8(const u8 *src, u32, __m256 &x, __m256 &y, __m256 &z)
	{
		constexpr u32 kGroupInBytes = kRecordsPerGroup * sizeof(CFloat3);
		const __m256 a = LoadHalves(src, src + kGroupInBytes);
		const __m256 b = LoadHalves(src + 16, src + 16 + kGroupInBytes);
		const __m256 c = LoadHalves(src + 32, src + 32 + kGroupInBytes);
		const __m256 y0z0y1z1 = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(1, 0, 2, 1));
		const __m256 x2y2x3y3 = _mm256_shuffle_ps(b, c, _MM_SHUFFLE(2, 1, 3, 2));
		x = _mm256_shuffle_ps(a, x2y2x3y3, _MM_SHUFFLE(2, 0, 3, 0));
		y = _mm256_shuffle_ps(y0z0y1z1, x2y2x3y3, _MM_SHUFFLE(3, 1, 2, 0));
		z = _mm256_shuffle_ps(y0z0y1z1, c, _MM_SHUFFLE(3, 0, 3, 1));
	}
};

struct SPositions8_Gathered
{
	VX_TARGET_AVX2 static VX_INLINE void Load8(const u8 *src, u32 stride, __m256 &x, __m256 &y, __m256 &z)
	{
		const u8 *const upper = src + kRecordsPerGroup * ureg(stride);
		const ureg p3 = 3 * ureg(stride) - 4;
		const __m256 p0 = LoadHalves(src, upper);
		const __m256 p1 = LoadHalves(src + stride, upper + stride);
		const __m256 p2 = LoadHalves(src + 2 * ureg(stride), upper + 2 * ureg(stride));
		const __m256 _p3 = LoadHalves(src + p3, upper + p3); // ? x3 y3 z3
		const __m256 x0x1y0y1 = _mm256_unpacklo_ps(p0, p1);
		const __m256 z0z1____ = _mm256_unpackhi_ps(p0, p1);
		const __m256 x2x2x3x3 = _mm256_shuffle_ps(p2, _p3, _MM_SHUFFLE(1, 1, 0, 0));
		const __m256 y2y2y3y3 = _mm256_shuffle_ps(p2, _p3, _MM_SHUFFLE(2, 2, 1, 1));
		const __m256 z2z2z3z3 = _mm256_shuffle_ps(p2, _p3, _MM_SHUFFLE(3, 3, 2, 2));
		x = _mm256_shuffle_ps(x0x1y0y1, x2x2x3x3, _MM_SHUFFLE(2, 0, 1, 0));
		y = _mm256_shuffle_ps(x0x1y0y1, y2y2y3y3, _MM_SHUFFLE(2, 0, 3, 2));
		z = _mm256_shuffle_ps(z0z1____, z2z2z3z3, _MM_SHUFFLE(2, 0, 1, 0));
	}
};

// Where vertex bases come from, eight at a time.
class CVertexBases8_Sequence
{
public:
	VX_TARGET_AVX2 explicit VX_INLINE CVertexBases8_Sequence(const CVertexBases_Sequence &bases)
	{
		const __m256i numbers = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
		const __m256i increment = _mm256_set1_epi32(s32(bases.Increment()));
		m_Counters = _mm256_add_epi32(_mm256_set1_epi32(s32(bases.Start())), _mm256_mullo_epi32(numbers, increment));
		m_Step = _mm256_slli_epi32(increment, 3);
	}

	VX_TARGET_AVX2 VX_INLINE __m256i Next(__m256i &)
	{
		const __m256i bases = m_Counters;
		m_Counters = _mm256_add_epi32(m_Counters, m_Step);
		return bases;
	}

private:
	__m256i m_Counters;
	__m256i m_Step;
};

class CVertexBases8_List
{
public:
	VX_TARGET_AVX2 explicit VX_INLINE CVertexBases8_List(const CVertexBases_List &bases)
		: m_Entries(bases.Entries())
		, m_MaxVertexIdFlipped(_mm256_set1_epi32(s32(bases.MaxVertexId() ^ kSignBit)))
	{
	}

	VX_TARGET_AVX2 VX_INLINE __m256i Next(__m256i &keys)
	{
		const __m256i entries = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(m_Entries));
		m_Entries += 2 * kRecordsPerGroup;
		const __m256i flipped = _mm256_xor_si256(entries, _mm256_set1_epi32(s32(kSignBit)));
		const __m256i valid = _mm256_cmpgt_epi32(m_MaxVertexIdFlipped, flipped);
		keys = _mm256_blendv_epi8(_mm256_set1_epi32(s32(SDistanceKey::kFar)), keys, valid);
		return _mm256_and_si256(entries, valid);
	}

private:
	const u32 *m_Entries;
	__m256i m_MaxVertexIdFlipped;
};

// Two groups of keys and bases, interleaved into records.
//
//   half        lower     upper
//   lo          r0 r1     r4 r5
//   hi          r2 r3     r6 r7
template<bool _UpperPairFirst>
VX_TARGET_AVX2 static VX_INLINE void StoreTwoGroups(SIndexAndDepth *records, __m256i keys, __m256i bases)
{
	const __m256i lo = _mm256_unpacklo_epi32(keys, bases);
	const __m256i hi = _mm256_unpackhi_epi32(keys, bases);
	const __m256i first = _UpperPairFirst ? hi : lo;
	const __m256i second = _UpperPairFirst ? lo : hi;
	__m128i *const dst = reinterpret_cast<__m128i *>(records);
	_mm_storeu_si128(dst, _mm256_castsi256_si128(first));
	_mm_storeu_si128(dst + 1, _mm256_castsi256_si128(second));
	_mm_storeu_si128(dst + 2, _mm256_extracti128_si256(first, 1));
	_mm_storeu_si128(dst + 3, _mm256_extracti128_si256(second, 1));
}

// As AddInOrder.
VX_TARGET_AVX2 static VX_INLINE __m256 AddInOrder8(__m256 a, __m256 b)
{
	__asm__("%{vex3%} vaddps %2, %1, %0" : "=x"(a) : "x"(a), "x"(b));
	return a;
}

template<typename _Positions, typename _VertexBases>
VX_TARGET_AVX2 static void FillEightsByDistance(SIndexAndDepth *packedPtr,
	const u8 *srcPos,
	u32 srcStride,
	u32 eightCount,
	const SCamera &camera,
	const _VertexBases &vertexBases)
{
	const __m256 cameraX = _mm256_broadcastss_ps(camera.xxxx);
	const __m256 cameraY = _mm256_broadcastss_ps(camera.yyyy);
	const __m256 cameraZ = _mm256_broadcastss_ps(camera.zzzz);
	typename _VertexBases::Eights bases8(vertexBases);
	for (u32 eight = 0; eight < eightCount; ++eight)
	{
		__m256 x, y, z;
		_Positions::Load8(srcPos, srcStride, x, y, z);
		x = _mm256_sub_ps(x, cameraX);
		y = _mm256_sub_ps(y, cameraY);
		z = _mm256_sub_ps(z, cameraZ);
		const __m256 len2 = AddInOrder8(AddInOrder8(_mm256_mul_ps(x, x), _mm256_mul_ps(y, y)), _mm256_mul_ps(z, z));
		__m256i keys = _mm256_xor_si256(_mm256_castps_si256(len2), _mm256_set1_epi32(-1));
		const __m256i bases = bases8.Next(keys);
		StoreTwoGroups<_VertexBases::kUpperPairFirst>(packedPtr, keys, bases);
		packedPtr += 2 * kRecordsPerGroup;
		srcPos += 2 * kRecordsPerGroup * ureg(srcStride);
	}
}
} // namespace Vexmoor
#endif
