// What the sorts do in lanes, with 128 bits everywhere and with 256 where the processor has them.

#include "vx_compiler.h"

#include "kr_cpu.h"
#include "kr_sort.h"

#if defined(VX_TARGET_AVX2)
	#include <immintrin.h>
#endif
#include <cstring>

namespace Vexmoor
{
namespace SortLanes
{
	// Prefix sums, 128 bits, of counters of 8, 16 or 32 bits. Sparse counters have long runs of zeros, whose sums are
	// the one before: a branch that few mispredict. Others' counts are added on the way.
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
	static VX_INLINE __m128i LoadCounts_Sse2(const _Counter *counters, const _Counter *others, u32 first)
	{
		const __m128i counts = _mm_loadu_si128(reinterpret_cast<const __m128i *>(counters + first));
		if (others == nullptr)
			return counts;
		return Add<_Counter>(counts, _mm_loadu_si128(reinterpret_cast<const __m128i *>(others + first)));
	}

	static VX_INLINE bool AreZero(__m128i lanes)
	{
		return _mm_movemask_epi8(_mm_cmpeq_epi8(lanes, _mm_setzero_si128())) == 0xFFFF;
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
	// further, the runs are the sums before. From one register to the next only the total is carried, so that no more
	// than one addition waits for the one before. With 32 bits:
	//
	//   lane    0    1    2    3
	//   counts  a    b    c    d
	//           a    ab   bc   cd
	//   runs    a    ab   abc  abcd
	//   sums    0    a    ab   abc
	template<bool _Sparse, typename _Counter>
	static void SumCounters_Sse2(_Counter *counters, const _Counter *others, u32 count)
	{
		__m128i sum = _mm_setzero_si128();
		for (u32 i = 0; i < count; i += sizeof(__m128i) / sizeof(_Counter))
		{
			__m128i *const lanes = reinterpret_cast<__m128i *>(counters + i);
			__m128i runs = LoadCounts_Sse2(counters, others, i);
			if (_Sparse && AreZero(runs))
			{
				_mm_storeu_si128(lanes, sum);
				continue;
			}
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
	// Prefix sums, 256 bits: the same in both halves at once. The lower half's total is added to the upper one, and
	// both are carried.
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
	VX_TARGET_AVX2 static VX_INLINE __m256i LoadCounts_Avx2(const _Counter *counters, const _Counter *others, u32 first)
	{
		const __m256i counts = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(counters + first));
		if (others == nullptr)
			return counts;
		return Add<_Counter>(counts, _mm256_loadu_si256(reinterpret_cast<const __m256i *>(others + first)));
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

	template<bool _Sparse, typename _Counter>
	VX_TARGET_AVX2 static void SumCounters_Avx2(_Counter *counters, const _Counter *others, u32 count)
	{
		__m256i sum = _mm256_setzero_si256();
		for (u32 i = 0; i < count; i += sizeof(__m256i) / sizeof(_Counter))
		{
			__m256i *const lanes = reinterpret_cast<__m256i *>(counters + i);
			__m256i runs = LoadCounts_Avx2(counters, others, i);
			if (_Sparse && _mm256_testz_si256(runs, runs))
			{
				_mm256_storeu_si256(lanes, sum);
				continue;
			}
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

#if defined(VX_TARGET_AVX512)
	// Prefix sums, 256 bits, by what came with AVX-512, in ten instructions for fourteen: a multiplication sums up what
	// is before a counter in its 64 bits, and shuffles reach across halves. The 64 bits carry: a narrow sum that wraps
	// to 0 adds one to the sum after it.
	VX_TARGET_AVX512 static VX_INLINE __m256i Opaque(__m256i constant)
	{
		__asm__("" : "+v"(constant)); // compilers that know it take the instruction that uses it apart into several
		return constant;
	}

	template<typename _Counter>
	VX_TARGET_AVX512 static VX_INLINE __m256i Subtract(__m256i a, __m256i b)
	{
		if constexpr (sizeof(_Counter) == 1)
			return _mm256_sub_epi8(a, b);
		else if constexpr (sizeof(_Counter) == 2)
			return _mm256_sub_epi16(a, b);
		else
			return _mm256_sub_epi32(a, b);
	}

	template<typename _Counter>
	VX_TARGET_AVX512 static VX_INLINE __m256i SumsWithin64Bits(__m256i counts)
	{
		constexpr s64 kOnesFromSecondOn = sizeof(_Counter) == 1   ? 0x0101010101010100
		                                  : sizeof(_Counter) == 2 ? 0x0001000100010000
		                                                          : 0x0000000100000000;
		return _mm256_mullo_epi64(counts, Opaque(_mm256_set1_epi64x(kOnesFromSecondOn)));
	}

	// The last counter of the lower 64 bits of each half, in all of the upper ones; the rest is 0.
	template<typename _Counter>
	VX_TARGET_AVX512 static VX_INLINE __m256i LastOfLower64BitsToUpper(__m256i runs)
	{
		constexpr s64 kZero = s64(0x8080808080808080u);
		constexpr s64 kLast = sizeof(_Counter) == 1   ? 0x0707070707070707
		                      : sizeof(_Counter) == 2 ? 0x0706070607060706
		                                              : 0x0706050407060504;
		return _mm256_shuffle_epi8(runs, _mm256_set_epi64x(kLast, kZero, kLast, kZero));
	}

	// The same of the lower half.
	template<typename _Counter>
	VX_TARGET_AVX512 static VX_INLINE __m256i LastOfLowerHalfToUpper(__m256i runs)
	{
		if constexpr (sizeof(_Counter) == 1)
			return _mm256_maskz_permutex_epi64(0xC, SpreadLastOfHalves<_Counter>(runs), _MM_SHUFFLE(1, 0, 1, 0));
		else if constexpr (sizeof(_Counter) == 2)
			return _mm256_maskz_permutexvar_epi16(0xFF00, Opaque(_mm256_set1_epi16(7)), runs);
		else
			return _mm256_maskz_permutexvar_epi32(0xF0, Opaque(_mm256_set1_epi32(3)), runs);
	}

	template<typename _Counter>
	VX_TARGET_AVX512 static VX_INLINE __m256i SpreadLast(__m256i runs)
	{
		if constexpr (sizeof(_Counter) == 1)
			return _mm256_permute4x64_epi64(SpreadLastOfHalves<_Counter>(runs), _MM_SHUFFLE(3, 3, 3, 3));
		else if constexpr (sizeof(_Counter) == 2)
			return _mm256_permutexvar_epi16(_mm256_set1_epi16(15), runs);
		else
			return _mm256_permutexvar_epi32(_mm256_set1_epi32(7), runs);
	}

	template<bool _Sparse, typename _Counter>
	VX_TARGET_AVX512 static void SumCounters_Avx512(_Counter *counters, const _Counter *others, u32 count)
	{
		__m256i sum = _mm256_setzero_si256();
		for (u32 i = 0; i < count; i += sizeof(__m256i) / sizeof(_Counter))
		{
			__m256i *const lanes = reinterpret_cast<__m256i *>(counters + i);
			const __m256i counts = LoadCounts_Avx2(counters, others, i);
			if (_Sparse && _mm256_testz_si256(counts, counts))
			{
				_mm256_storeu_si256(lanes, sum);
				continue;
			}
			__m256i runs = Add<_Counter>(counts, SumsWithin64Bits<_Counter>(counts));
			runs = Add<_Counter>(runs, LastOfLower64BitsToUpper<_Counter>(runs));
			runs = Add<_Counter>(runs, LastOfLowerHalfToUpper<_Counter>(runs));
			_mm256_storeu_si256(lanes, Add<_Counter>(runs, Subtract<_Counter>(sum, counts)));
			sum = Add<_Counter>(sum, SpreadLast<_Counter>(runs));
		}
	}
#endif

	template<bool _Sparse, typename _Counter>
	static VX_INLINE void SumCountersInLanes(_Counter *counters, const _Counter *others, u32 count)
	{
		VX_ASSERT(count * sizeof(_Counter) % kStepInBytes == 0);
#if defined(VX_TARGET_AVX512)
		if (Cpu::LaneCount() >= 16)
			return SumCounters_Avx512<_Sparse>(counters, others, count);
#endif
#if defined(VX_TARGET_AVX2)
		if (Cpu::LaneCount() >= 8)
			return SumCounters_Avx2<_Sparse>(counters, others, count);
#endif
		SumCounters_Sse2<_Sparse>(counters, others, count);
	}

	void SumCounters(u8 *counters, u32 count)
	{
		SumCountersInLanes<false, u8>(counters, nullptr, count);
	}

	void SumCounters(u16 *counters, u32 count)
	{
		SumCountersInLanes<false, u16>(counters, nullptr, count);
	}

	void SumCounters(u32 *counters, u32 count)
	{
		SumCountersInLanes<false, u32>(counters, nullptr, count);
	}

	void SumSparseCounters(u8 *counters, const u8 *others, u32 count)
	{
		SumCountersInLanes<true>(counters, others, count);
	}

	void SumSparseCounters(u16 *counters, const u16 *others, u32 count)
	{
		SumCountersInLanes<true>(counters, others, count);
	}

	void SumSparseCounters(u32 *counters, const u32 *others, u32 count)
	{
		SumCountersInLanes<true>(counters, others, count);
	}

	// Ranks: the keys of a block, one to four registers, against all. A comparison's mask is minus one. Lanes compare
	// as signed, so sign bits are flipped; what fills up the last keys is lower than none. Keys go on through memory in
	// stores as wide as the loads, since a load that spans two stores waits for both to reach the cache. Several
	// comparisons make a step, so that a loop so short does not depend on where it lies in the instruction cache's
	// lines.
	constexpr u32 kKeysPerStep = 4;
	static_assert(kRanksPerStep % kKeysPerStep == 0, "the last step is whole");
	constexpr u32 kSignBit = 0x80000000u;
	constexpr u32 kHighest = 0x7FFFFFFFu; // as flipped

	// Ranks, 128 bits.
	static VX_INLINE u32 FlipKeys_Sse2(const u8 *records, u32 count, s32 *keys)
	{
		const __m128i flips = _mm_set1_epi32(s32(kSignBit));
		u32 i = 0;
		for (; i + 4 <= count; i += 4)
		{
			const __m128i *const four = reinterpret_cast<const __m128i *>(records + i * kRankedSize);
			const __m128 records01 = _mm_castsi128_ps(_mm_loadu_si128(four));
			const __m128 records23 = _mm_castsi128_ps(_mm_loadu_si128(four + 1));
			const __m128i words = _mm_castps_si128(_mm_shuffle_ps(records01, records23, _MM_SHUFFLE(2, 0, 2, 0)));
			_mm_store_si128(reinterpret_cast<__m128i *>(keys + i), _mm_xor_si128(words, flips));
		}
		for (; i < count; ++i)
		{
			u32 key;
			std::memcpy(&key, records + i * kRankedSize, sizeof(key));
			keys[i] = s32(key ^ kSignBit);
		}
		for (; i % kRanksPerStep != 0; ++i)
			keys[i] = s32(kHighest);
		return i;
	}

	template<u32 _Registers>
	static VX_INLINE void RankBlock_Sse2(const s32 *keys, u32 count, const s32 *blockKeys, u32 *blockRanks)
	{
		__m128i own[_Registers];
		__m128i ranks[_Registers];
		for (u32 r = 0; r < _Registers; ++r)
		{
			own[r] = _mm_load_si128(reinterpret_cast<const __m128i *>(blockKeys) + r);
			ranks[r] = _mm_setzero_si128();
		}
		for (u32 i = 0; i < count; i += kKeysPerStep)
		{
			for (u32 k = 0; k < kKeysPerStep; ++k)
			{
				const __m128i key = _mm_set1_epi32(keys[i + k]);
				for (u32 r = 0; r < _Registers; ++r)
					ranks[r] = _mm_sub_epi32(ranks[r], _mm_cmpgt_epi32(own[r], key));
			}
		}
		for (u32 r = 0; r < _Registers; ++r)
			_mm_store_si128(reinterpret_cast<__m128i *>(blockRanks) + r, ranks[r]);
	}

	static void CountLowerKeys_Sse2(const u8 *records, u32 count, u32 *ranks)
	{
		alignas(16) s32 keys[kMaxRankedCount];
		const u32 filledCount = FlipKeys_Sse2(records, count, keys);
		u32 i = 0;
		for (; i + kRanksPerStep < count; i += 2 * kRanksPerStep)
			RankBlock_Sse2<4>(keys, filledCount, keys + i, ranks + i);
		if (i < count)
			RankBlock_Sse2<2>(keys, filledCount, keys + i, ranks + i);
	}

#if defined(VX_TARGET_AVX2)
	// Ranks, 256 bits.
	alignas(64) constexpr u32 kFlips[2 * kRanksPerStep] = {kSignBit, kSignBit, kSignBit, kSignBit, kSignBit, kSignBit,
		kSignBit, kSignBit, kHighest, kHighest, kHighest, kHighest, kHighest, kHighest, kHighest, kHighest};

	VX_TARGET_AVX2 static VX_INLINE void StoreFlipped(
		__m256i records0123, __m256i records4567, __m256i flips, s32 *keys)
	{
		const __m256 words01452367 = _mm256_shuffle_ps(
			_mm256_castsi256_ps(records0123), _mm256_castsi256_ps(records4567), _MM_SHUFFLE(2, 0, 2, 0));
		const __m256i words = _mm256_permute4x64_epi64(_mm256_castps_si256(words01452367), _MM_SHUFFLE(3, 1, 2, 0));
		_mm256_storeu_si256(reinterpret_cast<__m256i *>(keys), _mm256_xor_si256(words, flips));
	}

	VX_TARGET_AVX2 static VX_INLINE u32 FlipKeys_Avx2(const u8 *records, u32 count, s32 *keys)
	{
		u32 i = 0;
		for (; i + kRanksPerStep <= count; i += kRanksPerStep)
		{
			const __m256i *const eight = reinterpret_cast<const __m256i *>(records + i * kRankedSize);
			const __m256i flips = _mm256_set1_epi32(s32(kSignBit));
			StoreFlipped(_mm256_loadu_si256(eight), _mm256_loadu_si256(eight + 1), flips, keys + i);
		}
		if (i < count)
		{
			// Where there is a record, its key's sign bit is flipped; as a sign, that bit tells to load the record.
			const long long *const rest = reinterpret_cast<const long long *>(records + i * kRankedSize);
			const u32 *const restFlips = kFlips + kRanksPerStep - (count - i);
			const __m256i flips = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(restFlips));
			const __m256i mask0123 = _mm256_cvtepi32_epi64(_mm256_castsi256_si128(flips));
			const __m256i mask4567 = _mm256_cvtepi32_epi64(_mm256_extracti128_si256(flips, 1));
			StoreFlipped(
				_mm256_maskload_epi64(rest, mask0123), _mm256_maskload_epi64(rest + 4, mask4567), flips, keys + i);
			i += kRanksPerStep;
		}
		return i;
	}

	template<u32 _Registers>
	VX_TARGET_AVX2 static VX_INLINE void RankBlock_Avx2(
		const s32 *keys, u32 count, const s32 *blockKeys, u32 *blockRanks)
	{
		__m256i own[_Registers];
		__m256i ranks[_Registers];
		for (u32 r = 0; r < _Registers; ++r)
		{
			own[r] = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(blockKeys) + r);
			ranks[r] = _mm256_setzero_si256();
		}
		for (u32 i = 0; i < count; i += kKeysPerStep)
		{
			for (u32 k = 0; k < kKeysPerStep; ++k)
			{
				const __m256i key = _mm256_set1_epi32(keys[i + k]);
				for (u32 r = 0; r < _Registers; ++r)
					ranks[r] = _mm256_sub_epi32(ranks[r], _mm256_cmpgt_epi32(own[r], key));
			}
		}
		for (u32 r = 0; r < _Registers; ++r)
			_mm256_storeu_si256(reinterpret_cast<__m256i *>(blockRanks) + r, ranks[r]);
	}

	VX_TARGET_AVX2 static void CountLowerKeys_Avx2(const u8 *records, u32 count, u32 *ranks)
	{
		alignas(16) s32 keys[kMaxRankedCount];
		const u32 filledCount = FlipKeys_Avx2(records, count, keys);
		u32 i = 0;
		for (; i + kRanksPerStep < count; i += 2 * kRanksPerStep)
			RankBlock_Avx2<2>(keys, filledCount, keys + i, ranks + i);
		if (i < count)
			RankBlock_Avx2<1>(keys, filledCount, keys + i, ranks + i);
	}
#endif

	void CountLowerKeys(const void *records, u32 count, u32 *ranks)
	{
		VX_ASSERT(count <= kMaxRankedCount);
		if (count > kMaxRankedCount)
			return;
		const u8 *const bytes = static_cast<const u8 *>(records);
#if defined(VX_TARGET_AVX2)
		if (Cpu::LaneCount() >= 8)
			return CountLowerKeys_Avx2(bytes, count, ranks);
#endif
		CountLowerKeys_Sse2(bytes, count, ranks);
	}
} // namespace SortLanes
} // namespace Vexmoor
