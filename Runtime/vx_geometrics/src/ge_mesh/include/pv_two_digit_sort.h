#pragma once

// The sort of one draw call by one job, in two passes over records that fit the caches. Nothing here reports.
//
//   key     | what all keys share | upper digit, less the lowest one | lower digit |
//                                   up to 14 bits                     13 bits
//
// The second pass needs no more of a record than its upper digit and its index. Where both fit 32 bits, the first pass
// stores them alone, and half as many cache lines:
//
//   records   | key, index | key, index | key, index | ...        8 bytes each
//                 first pass: moves by the lower digit, and counts the upper one
//   words     | upper digit, index | upper digit, index | ...     4 bytes each
//                 second pass: moves by the upper digit
//   records   |      index |      index |      index | ...        8 bytes each

#include "ge_mesh_triangle_sorter.h"

#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_sort_lanes.h"
#include "kr_sort_records.h"

#include "pv_jobs.h"
#include "pv_span_sort.h"

#include <algorithm>
#include <cstring>

namespace Vexmoor
{
// With 12 and 11 bits for the lower digit, the sort took 1.01 to 1.05 and 1.1 times as long.
constexpr u32 kLowerBits = 13;
constexpr u32 kLowerMask = (1u << kLowerBits) - 1;
constexpr u32 kMaxUpperBits = 14;

// With so few upper bits, a word has more room for the index. Distances between d and 2 d have fewer.
constexpr u32 kFewUpperBits = 12;

// Counters of 16 bits count no more. A position behind the last of so many records wraps to 0, and is not read.
constexpr u32 kMaxInShortCounters = VEXMOOR_MAX_IN_SHORT_COUNTERS;

// With more records, words with few upper bits hold no index of a particle with four vertices.
constexpr u32 kMaxInTwoPasses = 1u << 20;

// How many words of memory the counters of both digits take.
static inline u32 TwoDigitWordCount(u32 recordCount)
{
	constexpr u32 kCounters = (1u << kLowerBits) + (1u << kMaxUpperBits);
	return recordCount <= kMaxInShortCounters ? kCounters / 2 : kCounters;
}

// What 16 places that are spread evenly over records tell of all keys. Of fewer than 128 records it tells nothing.
struct SKeySample
{
	SKeySpan m_Span;      // a part of the span of all keys
	u32 m_EqualCount;     // at how many places the first key and the eighth are equal
	u32 m_SameLowerCount; // at how many places the first two keys have the same lower digit
	u32 m_SameUpperCount; // at how many places the first two keys have the same bits above the lower digit

	static constexpr u32 kPlaces = 16;
	static constexpr u32 kRecordsPerPlace = 8;

	static SKeySample Of(const SIndexAndDepth *records, u32 count)
	{
		SKeySample sample = {{}, 0, 0, 0};
		const u32 distance = count / kPlaces;
		for (u32 place = 0; place < kPlaces && distance >= kRecordsPerPlace; ++place)
		{
			const SIndexAndDepth *const first = records + place * distance;
			const u32 key = first->m_Depth;
			const u32 differing = key ^ first[1].m_Depth;
			sample.m_Span = sample.m_Span.With({key, key});
			sample.m_EqualCount += key == first[kRecordsPerPlace - 1].m_Depth;
			sample.m_SameLowerCount += (differing & kLowerMask) == 0;
			sample.m_SameUpperCount += differing >> kLowerBits == 0;
		}
		return sample;
	}

	// Whether keys come in runs, or are few. Then the radix sort is fast, which moves runs at once.
	bool HasEqualKeys() const { return m_EqualCount >= kPlaces / 8; }
};

// How many bits the upper digits of a span's keys have.
static inline u32 UpperBitCount(const SKeySpan &span)
{
	return SKeySpan{span.m_Lowest >> kLowerBits, span.m_Highest >> kLowerBits}.BitCount();
}

// Whether two passes may sort such keys, and are faster than the radix sort. They are not where neighbours often share
// a digit: then a record waits for the position that the record before it has stored.
static inline bool SuitTwoPasses(const SKeySample &keys, u32 maxUpperBits)
{
	const bool isWide = keys.m_Span.m_Lowest < keys.m_Span.m_Highest && UpperBitCount(keys.m_Span) > maxUpperBits;
	return !isWide && keys.m_SameLowerCount < SKeySample::kPlaces / 8 &&
	       keys.m_SameUpperCount < SKeySample::kPlaces - 1;
}

// What the first pass leaves of a record for the second: its upper digit, of up to _UpperBits, and its index without
// _ZeroBits low bits, which have to be 0.
template<u32 _UpperBits, u32 _ZeroBits>
struct TPackedWord
{
	static constexpr u32 kIndexBits = 32 - _UpperBits;

	// Whether words hold multiples of indexStep below indexEnd.
	static bool Holds(u32 indexEnd, u32 indexStep)
	{
		return indexEnd <= 1u << (kIndexBits + _ZeroBits) && indexStep % (1u << _ZeroBits) == 0;
	}
	static VX_INLINE TPackedWord Of(u64 record, u32 upper)
	{
		return {upper << kIndexBits | IndexOf(record) >> _ZeroBits};
	}
	VX_INLINE u32 Upper(u32) const { return m_Word >> kIndexBits; }
	VX_INLINE void StoreTo(SIndexAndDepth *record) const
	{
		record->m_Index = (m_Word & ((1u << kIndexBits) - 1)) << _ZeroBits;
	}

	u32 m_Word;
};

// The whole record, where its index is too high.
struct SWholeWord
{
	static VX_INLINE SWholeWord Of(u64 record, u32) { return {record}; }
	VX_INLINE u32 Upper(u32 lowestUpper) const { return (KeyOf(m_Word) >> kLowerBits) - lowestUpper; }
	VX_INLINE void StoreTo(SIndexAndDepth *record) const { StoreRecord(record, m_Word); }

	u64 m_Word;
};

// Whether one of the words with so many upper bits holds multiples of indexStep below indexEnd.
template<u32 _UpperBits>
static bool PackedWordsHold(u32 indexEnd, u32 indexStep)
{
	return TPackedWord<_UpperBits, 0>::Holds(indexEnd, indexStep) ||
	       TPackedWord<_UpperBits, 2>::Holds(indexEnd, indexStep);
}

// How many upper bits keys may have, so that two passes are faster than the radix sort; 0 if they never are. Whole
// records as words pay as long as counters are short.
static inline u32 MaxUpperBitCount(u32 recordCount, u32 indexEnd, u32 indexStep)
{
	if (recordCount <= kMaxInShortCounters)
		return kMaxUpperBits;
	if (recordCount > kMaxInTwoPasses)
		return 0;
	return PackedWordsHold<kMaxUpperBits>(indexEnd, indexStep)   ? kMaxUpperBits
	       : PackedWordsHold<kFewUpperBits>(indexEnd, indexStep) ? kFewUpperBits
	                                                             : 0;
}

// Adds one to a counter, and returns what it was.
template<typename _Counter>
static VX_INLINE u32 CountOneMore(_Counter &counter)
{
	const u32 before = counter;
	counter = _Counter(before + 1);
	return before;
}

// Sorts records in ascending order of their keys, equal keys in the order that they come in, through words in the other
// array and back. Keys are unspecified afterwards. The span contains all keys, and has no more upper bits than words.
// counters  TwoDigitWordCount(count) words of memory
template<typename _Word, typename _Counter>
static void SortThroughWords(
	SIndexAndDepth *__restrict records, SIndexAndDepth *others, u32 count, const SKeySpan &span, _Counter *counters)
{
	_Word *__restrict const words = reinterpret_cast<_Word *>(others);
	_Counter *__restrict const lower = counters;
	_Counter *__restrict const upper = counters + (1u << kLowerBits);
	const u32 lowestUpper = span.m_Lowest >> kLowerBits;
	constexpr u32 kMinUpperBits = 4; // a step of the prefix sums
	const u32 upperCount = 1u << std::max(UpperBitCount(span), kMinUpperBits);
	std::memset(lower, 0, sizeof(_Counter) << kLowerBits);
	std::memset(upper, 0, sizeof(_Counter) * upperCount);
	ForEachRecord(count,
		[=](u32 i)
		{
			if (i % kRecordsPerLine<_Word> == 0)
				VX_PREFETCH_TO_WRITE(words + i); // this line has lain idle since the last frame
			CountOneMore(lower[records[i].m_Depth & kLowerMask]);
		});
	SortLanes::SumCounters(lower, 1u << kLowerBits);
	ForEachRecord(count,
		[=](u32 i)
		{
			const u64 record = LoadRecord(records + i);
			const u32 digit = (KeyOf(record) >> kLowerBits) - lowestUpper;
			CountOneMore(upper[digit]);
			words[CountOneMore(lower[KeyOf(record) & kLowerMask])] = _Word::Of(record, digit);
		});
	SortLanes::SumCounters(upper, upperCount);
	ForEachRecord(count,
		[=](u32 i)
		{
			const _Word word = words[i];
			word.StoreTo(records + CountOneMore(upper[word.Upper(lowestUpper)]));
		});
}

// Sorts records as SortThroughWords does, with the narrowest words and counters that hold them. The span has no more
// than MaxUpperBitCount of these records and their indices, which are multiples of indexStep below indexEnd.
static inline void SortInTwoPasses(SIndexAndDepth *records,
	SIndexAndDepth *others,
	u32 count,
	const SKeySpan &span,
	u32 indexEnd,
	u32 indexStep,
	u32 *counters)
{
	const auto sort = [&](auto word, auto *countersOfWord)
	{ SortThroughWords<decltype(word)>(records, others, count, span, countersOfWord); };
	u16 *const shortCounters = reinterpret_cast<u16 *>(counters);
	if (count <= kMaxInShortCounters)
	{
		if (TPackedWord<kMaxUpperBits, 0>::Holds(indexEnd, indexStep))
			sort(TPackedWord<kMaxUpperBits, 0>(), shortCounters);
		else
			sort(SWholeWord(), shortCounters);
	}
	else if (TPackedWord<kMaxUpperBits, 0>::Holds(indexEnd, indexStep))
		sort(TPackedWord<kMaxUpperBits, 0>(), counters);
	else if (TPackedWord<kMaxUpperBits, 2>::Holds(indexEnd, indexStep))
		sort(TPackedWord<kMaxUpperBits, 2>(), counters);
	else if (TPackedWord<kFewUpperBits, 0>::Holds(indexEnd, indexStep))
		sort(TPackedWord<kFewUpperBits, 0>(), counters);
	else
		sort(TPackedWord<kFewUpperBits, 2>(), counters);
}
} // namespace Vexmoor
