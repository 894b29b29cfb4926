// What the sorts do in lanes, with 128 bits everywhere and with 256 where the processor has them.

#include "vx_compiler.h"

#include "kr_cpu.h"
#include "kr_sort.h"

#if defined(VX_TARGET_AVX2)
	#include <immintrin.h>
#endif

namespace Vexmoor
{
namespace SortLanes
{
	// Prefix sums, 128 bits. Sums of four run through two shifted additions; from one four to the next only the total is
	// carried, so that no more than one addition waits for the one before.
	//
	//   lane        0    1    2    3
	//   counts      a    b    c    d
	//   pairs       a    ab   bc   cd
	//   inclusive   a    ab   abc  abcd
	static VX_INLINE __m128i SumFourCounters(u32 *counters, __m128i sum)
	{
		const __m128i counts = _mm_loadu_si128(reinterpret_cast<const __m128i *>(counters));
		const __m128i pairs = _mm_add_epi32(counts, _mm_slli_si128(counts, 4));
		const __m128i inclusive = _mm_add_epi32(pairs, _mm_slli_si128(pairs, 8));
		const __m128i exclusive = _mm_sub_epi32(inclusive, counts);
		_mm_storeu_si128(reinterpret_cast<__m128i *>(counters), _mm_add_epi32(exclusive, sum));
		return _mm_add_epi32(sum, _mm_shuffle_epi32(inclusive, _MM_SHUFFLE(3, 3, 3, 3)));
	}

	static void SumCounters_Sse2(u32 *counters, u32 count)
	{
		__m128i sum = _mm_setzero_si128();
		for (u32 i = 0; i < count; i += 8)
		{
			sum = SumFourCounters(counters + i, sum);
			sum = SumFourCounters(counters + i + 4, sum);
		}
	}

#if defined(VX_TARGET_AVX2)
	// The upper half of a register, and the lower half of the one that follows it.
	VX_TARGET_AVX2 static VX_INLINE __m256i BetweenHalves(__m256i before, __m256i lanes)
	{
		return _mm256_permute2x128_si256(before, lanes, 0x21);
	}

	// Prefix sums, 256 bits. Lane k of a window is the sum of the counts that end at k, over the border between registers:
	// of two, of four, of eight. A prefix sum is the one eight counters before and the window of eight between them, so
	// that nothing but the sums themselves is carried from step to step.
	VX_TARGET_AVX2 static void SumCounters_Avx2(u32 *counters, u32 count)
	{
		__m256i lastCounts = _mm256_setzero_si256();
		__m256i lastOf2 = _mm256_setzero_si256();
		__m256i lastOf4 = _mm256_setzero_si256();
		__m256i sums = _mm256_setzero_si256();
		for (u32 i = 0; i < count; i += 8)
		{
			__m256i *const lanes = reinterpret_cast<__m256i *>(counters + i);
			const __m256i counts = _mm256_loadu_si256(lanes);
			const __m256i oneBefore = _mm256_alignr_epi8(counts, BetweenHalves(lastCounts, counts), 12);
			const __m256i of2 = _mm256_add_epi32(counts, oneBefore);
			const __m256i of2TwoBefore = _mm256_alignr_epi8(of2, BetweenHalves(lastOf2, of2), 8);
			const __m256i of4 = _mm256_add_epi32(of2, of2TwoBefore);
			const __m256i of8 = _mm256_add_epi32(of4, BetweenHalves(lastOf4, of4));
			sums = _mm256_add_epi32(sums, of8);
			_mm256_storeu_si256(lanes, _mm256_sub_epi32(sums, counts));
			lastCounts = counts;
			lastOf2 = of2;
			lastOf4 = of4;
		}
	}
#endif

	void SumCounters(u32 *counters, u32 count)
	{
#if defined(VX_TARGET_AVX2)
		if (Cpu::LaneCount() >= 8)
			return SumCounters_Avx2(counters, count);
#endif
		SumCounters_Sse2(counters, count);
	}

	// Ranks, 128 bits: sixteen keys at a time against all. A comparison's mask is minus one.
	static void CountLowerKeys_Sse2(const s32 *keys, u32 count, u32 *ranks)
	{
		for (u32 block = 0; block < count; block += 16)
		{
			const __m128i *const blockKeys = reinterpret_cast<const __m128i *>(keys + block);
			__m128i *const blockRanks = reinterpret_cast<__m128i *>(ranks + block);
			const __m128i keys0123 = _mm_load_si128(blockKeys);
			const __m128i keys4567 = _mm_load_si128(blockKeys + 1);
			const __m128i keys89AB = _mm_load_si128(blockKeys + 2);
			const __m128i keysCDEF = _mm_load_si128(blockKeys + 3);
			__m128i ranks0123 = _mm_setzero_si128();
			__m128i ranks4567 = _mm_setzero_si128();
			__m128i ranks89AB = _mm_setzero_si128();
			__m128i ranksCDEF = _mm_setzero_si128();
			for (u32 i = 0; i < count; ++i)
			{
				const __m128i key = _mm_set1_epi32(keys[i]);
				ranks0123 = _mm_sub_epi32(ranks0123, _mm_cmpgt_epi32(keys0123, key));
				ranks4567 = _mm_sub_epi32(ranks4567, _mm_cmpgt_epi32(keys4567, key));
				ranks89AB = _mm_sub_epi32(ranks89AB, _mm_cmpgt_epi32(keys89AB, key));
				ranksCDEF = _mm_sub_epi32(ranksCDEF, _mm_cmpgt_epi32(keysCDEF, key));
			}
			_mm_store_si128(blockRanks, ranks0123);
			_mm_store_si128(blockRanks + 1, ranks4567);
			_mm_store_si128(blockRanks + 2, ranks89AB);
			_mm_store_si128(blockRanks + 3, ranksCDEF);
		}
	}

#if defined(VX_TARGET_AVX2)
	// Ranks, 256 bits.
	VX_TARGET_AVX2 static void CountLowerKeys_Avx2(const s32 *keys, u32 count, u32 *ranks)
	{
		for (u32 block = 0; block < count; block += 16)
		{
			const __m256i *const blockKeys = reinterpret_cast<const __m256i *>(keys + block);
			__m256i *const blockRanks = reinterpret_cast<__m256i *>(ranks + block);
			const __m256i keys0To7 = _mm256_loadu_si256(blockKeys);
			const __m256i keys8ToF = _mm256_loadu_si256(blockKeys + 1);
			__m256i ranks0To7 = _mm256_setzero_si256();
			__m256i ranks8ToF = _mm256_setzero_si256();
			for (u32 i = 0; i < count; ++i)
			{
				const __m256i key = _mm256_set1_epi32(keys[i]);
				ranks0To7 = _mm256_sub_epi32(ranks0To7, _mm256_cmpgt_epi32(keys0To7, key));
				ranks8ToF = _mm256_sub_epi32(ranks8ToF, _mm256_cmpgt_epi32(keys8ToF, key));
			}
			_mm256_storeu_si256(blockRanks, ranks0To7);
			_mm256_storeu_si256(blockRanks + 1, ranks8ToF);
		}
	}
#endif

	void CountLowerKeys(const s32 *keys, u32 count, u32 *ranks)
	{
#if defined(VX_TARGET_AVX2)
		if (Cpu::LaneCount() >= 8)
			return CountLowerKeys_Avx2(keys, count, ranks);
#endif
		CountLowerKeys_Sse2(keys, count, ranks);
	}
} // namespace SortLanes
} // namespace Vexmoor
