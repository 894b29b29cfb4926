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
#include "kr_sort_radix.h"
#include "kr_sort_records.h"

#include "pv_jobs.h"
#include "pv_span_sort.h"

#include <algorithm>
#include <cstring>

namespace Vexmoor
{
// The lower digit's counters take 16 KB if they have 16 bits, and 32 KB if they have 32, so a first-level cache holds
// them. With 12 and 11 bits for the digit, the sort took 1.01 to 1.05 and 1.1 times as long.
constexpr u32 kLowerBits = 13;
constexpr u32 kLowerMask = (1u << kLowerBits) - 1;
constexpr u32 kMaxUpperBits = 14;

// With so few upper bits, a word has more room for the index. The upper digits of distances between d and 2 d need no
// more: squared, such distances lie in two octaves, which are 2^24 floats or 2^11 upper digits. If all indices are
// multiples of 4, as those of quads are, a word keeps a quarter of each.
//
//   word    | upper digit: 14 bits | index: 18 bits     |     262,144 vertices, or 1,048,576 of quads
//           | upper digit: 12 bits | index: 20 bits     |   1,048,576 vertices, or 4,194,304 of quads
constexpr u32 kFewUpperBits = 12;

// How many words of memory the counters of both digits take.
static inline u32 TwoDigitWordCount(u32 recordCount)
{
	constexpr u32 kCounters = (1u << kLowerBits) + (1u << kMaxUpperBits);
	return recordCount <= kMaxInShortCounters ? kCounters / 2 : kCounters;
}

// What 16 places that are spread evenly over the records tell of all keys. Fewer than 128 records are not looked at.
//
//   records    | f s . . . . . e | . . . . . . | f s . . . . . e | . . . . . . | ...
//              place 0                           place 1
//
// At each place, the first key, the second and the eighth are compared: f, s and e.
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

	// Whether neighbours often share a digit. Then a record waits for the position that the record before it has
	// stored, which the radix sort avoids.
	bool HasEqualDigits() const { return m_SameLowerCount >= kPlaces / 8 || m_SameUpperCount >= kPlaces - 1; }
};

// How many bits the upper digits of a span's keys have.
static inline u32 UpperBitCount(const SKeySpan &span)
{
	return SKeySpan{span.m_Lowest >> kLowerBits, span.m_Highest >> kLowerBits}.BitCount();
}

// What the first pass leaves of a record for the second: its upper digit, of up to _UpperBits, and its index without
// _ZeroBits low bits, which have to be 0.
template<u32 _UpperBits, u32 _ZeroBits>
struct TPackedWord
{
	static constexpr u32 kIndexBits = 32 - _UpperBits;

	// Whether words hold the upper digits of a span, and multiples of indexStep below indexEnd.
	static bool Holds(const SKeySpan &span, u32 indexEnd, u32 indexStep)
	{
		return UpperBitCount(span) <= _UpperBits && indexEnd <= 1u << (kIndexBits + _ZeroBits) &&
		       indexStep % (1u << _ZeroBits) == 0;
	}
	static VX_INLINE u32 Of(u64 record, u32 upper) { return upper << kIndexBits | IndexOf(record) >> _ZeroBits; }
	static VX_INLINE u32 UpperOf(u32 word) { return word >> kIndexBits; }
	static VX_INLINE u32 IndexIn(u32 word) { return (word & ((1u << kIndexBits) - 1)) << _ZeroBits; }
};

// Sorts records in ascending order of their keys, equal keys in the order that they come in, through words in the other
// array and back. Returns the array that they end in. Keys are unspecified afterwards. The span contains all keys, and
// words hold them.
//
//   sweep    reads      counts       moves to
//   1        records    lower
//   2        records    upper        words, by the lower digit
//   3        words                   records, by the upper digit
//
// memory            TwoDigitWordCount(count) words, for the counters of both digits
// _FetchesNextLine  whether what is stored to a line also fetches the line that its digit needs next
template<typename _Word, typename _Counter, bool _FetchesNextLine>
static SIndexAndDepth *SortThroughWords(
	SIndexAndDepth *records, SIndexAndDepth *others, u32 count, const SKeySpan &span, void *memory)
{
	SIndexAndDepth *__restrict const sorted = records;
	u32 *__restrict const words = reinterpret_cast<u32 *>(others);
	_Counter *__restrict const lower = static_cast<_Counter *>(memory);
	_Counter *__restrict const upper = lower + (1u << kLowerBits);
	const u32 lowestUpper = span.m_Lowest >> kLowerBits;
	constexpr u32 kMinUpperBits = 4; // a step of the prefix sums
	const u32 upperCount = 1u << std::max(UpperBitCount(span), kMinUpperBits);
	std::memset(lower, 0, sizeof(_Counter) << kLowerBits);
	std::memset(upper, 0, sizeof(_Counter) * upperCount);
	ForEachRecord(count,
		[=](u32 i)
		{
			if (i % kRecordsPerLine<u32> == 0)
				VX_PREFETCH_TO_WRITE(words + i); // this line has lain idle since the last frame
			CountOneMore(lower[records[i].m_Depth & kLowerMask]);
		});
	SortLanes::SumCounters(lower, 1u << kLowerBits);
	// Digits have so many bits that neighbours seldom share one. Taking two places together, as MoveToPlaces does,
	// takes 1.02 of the time here.
	ForEachRecord(count,
		[=](u32 i)
		{
			const u64 record = LoadRecord(records + i);
			const u32 digit = (KeyOf(record) >> kLowerBits) - lowestUpper;
			CountOneMore(upper[digit]);
			const u32 place = CountOneMore(lower[KeyOf(record) & kLowerMask]);
			if constexpr (_FetchesNextLine)
				VX_PREFETCH_TO_WRITE(words + place + kRecordsPerLine<u32>);
			words[place] = _Word::Of(record, digit);
		});
	SortLanes::SumCounters(upper, upperCount);
	ForEachRecord(count,
		[=](u32 i)
		{
			const u32 word = words[i];
			const u32 place = CountOneMore(upper[_Word::UpperOf(word)]);
			if constexpr (_FetchesNextLine)
				VX_PREFETCH_TO_WRITE(sorted + place + kRecordsPerLine<SIndexAndDepth>);
			sorted[place].m_Index = _Word::IndexIn(word);
		});
	return sorted;
}

// The sort of more records than 16 bits count, through words of one kind. Away from the core (kMaxCountNear) it fetches
// lines ahead, as the radix sort does: 800,000 of a ball and of a curve then take 0.75 and 0.63 of the time on an AMD
// EPYC (family 26), and 300,000 would take 1.04 and 1.08. WebAssembly's modules do not contain sorts that fetch ahead.
template<typename _Word>
static CbSortOfSpan ManyThroughWords(u32 recordCount)
{
	const bool isNear = VX_WASM || recordCount <= TRadixSort<Sort_InBuffer>::kMaxCountNear;
	return isNear ? &SortThroughWords<_Word, u32, false> : &SortThroughWords<_Word, u32, true>;
}

// The sort by two passes with the narrowest counters and most upper bits whose words hold the upper digits of a span,
// and multiples of indexStep below indexEnd. It may leave the keys unspecified, and its counters take
// TwoDigitWordCount(count) words. If there is none, null, unless counters are short: then passes by leading bits, which
// move whole records, are faster than the radix sort as well. They are faster than words, too, if there are more than
// kMaxDigitsPerRecord upper digits for each record, since they sum up fewer counters: 3,000 records with the camera
// inside take 0.93 of the time, 4,000 take 0.98 and 6,000, with fewer digits each, would take 1.01 (AMD EPYC, family
// 26).
static inline CbSortOfSpan TwoPassesFor(const SKeySpan &span, u32 recordCount, u32 indexEnd, u32 indexStep)
{
	constexpr u32 kMaxDigitsPerRecord = 4;
	const u32 upperBits = UpperBitCount(span);
	if (upperBits > kMaxUpperBits)
		return null;
	if (recordCount <= kMaxInShortCounters)
	{
		typedef TPackedWord<kMaxUpperBits, 0> Word;
		const bool isSparse = 1u << upperBits > recordCount * kMaxDigitsPerRecord;
		return isSparse || !Word::Holds(span, indexEnd, indexStep) ? &SortBySpan : &SortThroughWords<Word, u16, false>;
	}
	if (TPackedWord<kMaxUpperBits, 0>::Holds(span, indexEnd, indexStep))
		return ManyThroughWords<TPackedWord<kMaxUpperBits, 0>>(recordCount);
	if (TPackedWord<kMaxUpperBits, 2>::Holds(span, indexEnd, indexStep))
		return ManyThroughWords<TPackedWord<kMaxUpperBits, 2>>(recordCount);
	if (TPackedWord<kFewUpperBits, 0>::Holds(span, indexEnd, indexStep))
		return ManyThroughWords<TPackedWord<kFewUpperBits, 0>>(recordCount);
	if (TPackedWord<kFewUpperBits, 2>::Holds(span, indexEnd, indexStep))
		return ManyThroughWords<TPackedWord<kFewUpperBits, 2>>(recordCount);
	return null;
}
} // namespace Vexmoor
