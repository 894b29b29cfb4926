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
	// Prefix sums, 128 bits, of counters of 8, 16 or 32 bits.
	template<typename _Counter>
	static VX_INLINE __m128i Add(__m128i a, __m128i b)
	{
		if constexpr (sizeof(_Counter) == 1)
			return _mm_add_epi8(a, b);
		else if constexpr (sizeof(_Counter) == 2)
			return _mm_add_epi16(a, b);
		else
			return _mm_add_epi32(a, b);
	}

	template<typename _Counter>
	static VX_INLINE __m128i SpreadLast(__m128i lanes)
	{
		if constexpr (sizeof(_Counter) == 1)
			lanes = _mm_unpackhi_epi8(lanes, lanes);
		if constexpr (sizeof(_Counter) <= 2)
			lanes = _mm_shufflehi_epi16(lanes, _MM_SHUFFLE(3, 3, 3, 3));
		return _mm_shuffle_epi32(lanes, _MM_SHUFFLE(3, 3, 3, 3));
	}

	// Shifted additions double the run that a lane sums up, until it reaches from the first lane to its own; one lane
	// further, the runs are the sums before. From one register to the next only the total is carried, so that no more than
	// one addition waits for the one before. With 32 bits:
	//
	//   lane    0    1    2    3
	//   counts  a    b    c    d
	//           a    ab   bc   cd
	//   runs    a    ab   abc  abcd
	//   sums    0    a    ab   abc
	template<typename _Counter>
	static void SumCounters_Sse2(_Counter *counters, u32 count)
	{
		__m128i sum = _mm_setzero_si128();
		for (u32 i = 0; i < count; i += sizeof(__m128i) / sizeof(_Counter))
		{
			__m128i *const lanes = reinterpret_cast<__m128i *>(counters + i);
			__m128i runs = _mm_loadu_si128(lanes);
			if constexpr (sizeof(_Counter) == 1)
				runs = Add<_Counter>(runs, _mm_slli_si128(runs, 1));
			if constexpr (sizeof(_Counter) <= 2)
				runs = Add<_Counter>(runs, _mm_slli_si128(runs, 2));
			runs = Add<_Counter>(runs, _mm_slli_si128(runs, 4));
			runs = Add<_Counter>(runs, _mm_slli_si128(runs, 8));
			_mm_storeu_si128(lanes, Add<_Counter>(sum, _mm_slli_si128(runs, sizeof(_Counter))));
			sum = Add<_Counter>(sum, SpreadLast<_Counter>(runs));
		}
	}

#if defined(VX_TARGET_AVX2)
	// Prefix sums, 256 bits: the same in both halves at once. The lower half's total is added to the upper one, and both
	// are carried.
	template<typename _Counter>
	VX_TARGET_AVX2 static VX_INLINE __m256i Add(__m256i a, __m256i b)
	{
		if constexpr (sizeof(_Counter) == 1)
			return _mm256_add_epi8(a, b);
		else if constexpr (sizeof(_Counter) == 2)
			return _mm256_add_epi16(a, b);
		else
			return _mm256_add_epi32(a, b);
	}

	template<typename _Counter>
	VX_TARGET_AVX2 static VX_INLINE __m256i SpreadLastOfHalves(__m256i lanes)
	{
		if constexpr (sizeof(_Counter) == 1)
			return _mm256_shuffle_epi8(lanes, _mm256_set1_epi8(15));
		else if constexpr (sizeof(_Counter) == 2)
			return _mm256_shuffle_epi8(lanes, _mm256_set1_epi16(0x0F0E));
		else
			return _mm256_shuffle_epi32(lanes, _MM_SHUFFLE(3, 3, 3, 3));
	}

	template<typename _Counter>
	VX_TARGET_AVX2 static void SumCounters_Avx2(_Counter *counters, u32 count)
	{
		__m256i sum = _mm256_setzero_si256();
		for (u32 i = 0; i < count; i += sizeof(__m256i) / sizeof(_Counter))
		{
			__m256i *const lanes = reinterpret_cast<__m256i *>(counters + i);
			__m256i runs = _mm256_loadu_si256(lanes);
			if constexpr (sizeof(_Counter) == 1)
				runs = Add<_Counter>(runs, _mm256_slli_si256(runs, 1));
			if constexpr (sizeof(_Counter) <= 2)
				runs = Add<_Counter>(runs, _mm256_slli_si256(runs, 2));
			runs = Add<_Counter>(runs, _mm256_slli_si256(runs, 4));
			runs = Add<_Counter>(runs, _mm256_slli_si256(runs, 8));
			const __m256i totals = SpreadLastOfHalves<_Counter>(runs);
			const __m256i lowerToUpper = _mm256_permute2x128_si256(totals, totals, 0x08);
			const __m256i swappedTotals = _mm256_permute4x64_epi64(totals, _MM_SHUFFLE(1, 0, 3, 2));
			const __m256i before = Add<_Counter>(sum, lowerToUpper);
			_mm256_storeu_si256(lanes, Add<_Counter>(before, _mm256_slli_si256(runs, sizeof(_Counter))));
			sum = Add<_Counter>(sum, Add<_Counter>(totals, swappedTotals));
		}
	}
#endif

	template<typename _Counter>
	static VX_INLINE void SumCountersInLanes(_Counter *counters, u32 count)
	{
#if defined(VX_TARGET_AVX2)
		if (Cpu::LaneCount() >= 8)
			return SumCounters_Avx2(counters, count);
#endif
		SumCounters_Sse2(counters, count);
	}

	void SumCounters(u8 *counters, u32 count)
	{
		SumCountersInLanes(counters, count);
	}

	void SumCounters(u16 *counters, u32 count)
	{
		SumCountersInLanes(counters, count);
	}

	void SumCounters(u32 *counters, u32 count)
	{
		SumCountersInLanes(counters, count);
	}

	// Reads no more than the last block's keys.
	constexpr u32 kKeysPerStep = 4;
	static_assert(kKeysPerBlock % kKeysPerStep == 0, "the last step is whole");

	// Ranks, 128 bits: sixteen keys at a time against all. A comparison's mask is minus one. Several keys make a step, so
	// that a loop so short does not depend on where it lies in the instruction cache's lines.
	static void CountLowerKeys_Sse2(const s32 *keys, u32 count, u32 *ranks)
	{
		for (u32 block = 0; block < count; block += kKeysPerBlock)
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
			for (u32 i = 0; i < count; i += kKeysPerStep)
			{
				for (u32 k = 0; k < kKeysPerStep; ++k)
				{
					const __m128i key = _mm_set1_epi32(keys[i + k]);
					ranks0123 = _mm_sub_epi32(ranks0123, _mm_cmpgt_epi32(keys0123, key));
					ranks4567 = _mm_sub_epi32(ranks4567, _mm_cmpgt_epi32(keys4567, key));
					ranks89AB = _mm_sub_epi32(ranks89AB, _mm_cmpgt_epi32(keys89AB, key));
					ranksCDEF = _mm_sub_epi32(ranksCDEF, _mm_cmpgt_epi32(keysCDEF, key));
				}
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
		for (u32 block = 0; block < count; block += kKeysPerBlock)
		{
			const __m256i *const blockKeys = reinterpret_cast<const __m256i *>(keys + block);
			__m256i *const blockRanks = reinterpret_cast<__m256i *>(ranks + block);
			const __m256i keys0To7 = _mm256_loadu_si256(blockKeys);
			const __m256i keys8ToF = _mm256_loadu_si256(blockKeys + 1);
			__m256i ranks0To7 = _mm256_setzero_si256();
			__m256i ranks8ToF = _mm256_setzero_si256();
			for (u32 i = 0; i < count; i += kKeysPerStep)
			{
				for (u32 k = 0; k < kKeysPerStep; ++k)
				{
					const __m256i key = _mm256_set1_epi32(keys[i + k]);
					ranks0To7 = _mm256_sub_epi32(ranks0To7, _mm256_cmpgt_epi32(keys0To7, key));
					ranks8ToF = _mm256_sub_epi32(ranks8ToF, _mm256_cmpgt_epi32(keys8ToF, key));
				}
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
