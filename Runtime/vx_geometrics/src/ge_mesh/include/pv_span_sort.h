#pragma once

// A stable sort of records whose keys lie in a known span, and the split of many records into parts that jobs sort one
// by one. Nothing here reports.
//
// The sort of every draw call (kr_sort_radix.h) cuts whole keys into three digits, since its sweeps are part of what it
// promises. Keys of one draw call differ in far fewer bits: those of distances between d and 2 d in 25. If the lowest
// key is subtracted from them first, fewer or shorter digits are enough:
//
//   key            | 32 bits                        |
//   less lowest    | zeros     | digit 1 | digit 0  |      here two digits, so records move twice
//
// Few records seldom share their leading bits. Once they are sorted by these, insertion finds the few that are out of
// order, so the bits below need no pass:
//
//   less lowest    | zeros  | digit 1 | digit 0 |   |      300 records with keys of 25 bits: digits of 8 bits

#include "ge_mesh_triangle_sorter.h"

#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_sort_lanes.h"
#include "kr_sort_records.h"

#include "pv_fill_groups.h"
#include "pv_jobs.h"

#include <algorithm>
#include <cstring>

namespace Vexmoor
{
// From the lowest to the highest key.
struct SKeySpan
{
	u32 m_Lowest = ~0u;
	u32 m_Highest = 0;

	SKeySpan With(const SKeySpan &other) const
	{
		return {std::min(m_Lowest, other.m_Lowest), std::max(m_Highest, other.m_Highest)};
	}
	// How many bits a key has above the lowest one.
	u32 BitCount() const
	{
		u32 bits = 0;
		for (u32 left = m_Highest - m_Lowest; left != 0; left >>= 1)
			++bits;
		return bits;
	}
};

// The span of the records' keys, which lanes look for. Without records it is the empty one, whose lowest key is the
// highest number, so that any key widens it.
static inline SKeySpan SpanOf(const SIndexAndDepth *records, u32 count)
{
	SKeySpan span;
	FillKernels().m_WidenSpan(records, count, span.m_Lowest, span.m_Highest);
	return span;
}

// A record on its way. Compilers move a structure of two numbers number by number, unless told that it is one word.
static VX_INLINE u64 LoadRecord(const SIndexAndDepth *record)
{
	u64 word;
	std::memcpy(&word, record, sizeof(word));
	return word;
}
static VX_INLINE void StoreRecord(SIndexAndDepth *record, u64 word)
{
	std::memcpy(static_cast<void *>(record), &word, sizeof(word));
}
static VX_INLINE u32 KeyOf(u64 record)
{
	return VX_LITTLE_ENDIAN ? u32(record) : u32(record >> 32);
}
static VX_INLINE u32 IndexOf(u64 record)
{
	return VX_LITTLE_ENDIAN ? u32(record >> 32) : u32(record);
}

// Adds one to a counter, and returns what it was before: of a position, the place that the next record takes.
template<typename _Counter>
static VX_INLINE u32 CountOneMore(_Counter &counter)
{
	const u32 before = counter;
	counter = _Counter(before + 1);
	return before;
}

// Counters of 16 bits count no more records. A position behind the last of so many wraps to 0, and is not read.
constexpr u32 kMaxInShortCounters = VEXMOOR_MAX_IN_SHORT_COUNTERS;

// How keys of a span are cut into digits of _DigitBits, as many as there are passes, from the highest bit in which they
// differ downwards. Bits below the digits are left to insertion. Only the last digit, of the highest bits, is counted
// from that of the lowest key. So it takes the fewest instructions to cut a key: a shift, and a mask or a subtraction.
//
//   key            | digit 1 and all bits above it | digit 0      | rest |      two digits
//   begins at bit                                  m_LastShift    m_FirstShift
//
// Keys may have one value more in the last digit than _DigitBits tell apart, depending on where the lowest key lies.
// Then all digits begin a bit higher. Two digits of 2 bits each:
//
//   lowest key      highest key      last digits
//   0x0E = 11|10    0x12 = 100|10    3 - 3 = 0 and 4 - 3 = 1
//   0x0E = 11|10    0x1D = 111|01    0 and 7 - 3 = 4, which is one too many, so the digits begin a bit higher:
//   0x0E = 1|11|0   0x1D = 11|10|1   1 - 1 = 0 and 3 - 1 = 2
template<u32 _PassCount, u32 _DigitBits>
class TSpanDigits
{
public:
	static constexpr u32 kPassCount = _PassCount;
	static constexpr u32 kDigitBits = _DigitBits;
	static constexpr u32 kSortedBits = std::min(_PassCount * _DigitBits, 32u);

	// bitCount  the span's, which is counted bit by bit
	TSpanDigits(const SKeySpan &span, u32 bitCount)
		: m_LastShift(std::max(bitCount, _PassCount * _DigitBits) - _DigitBits)
	{
		m_LastShift += _LastOf(span.m_Highest, span) >> _DigitBits;
		m_FirstShift = m_LastShift - (_PassCount - 1) * _DigitBits;
		m_LowestLast = span.m_Lowest >> m_LastShift;
	}

	// Whether no bit is left to insertion.
	bool SortsAllBits() const { return m_FirstShift == 0; }

	template<u32 _Pass>
	VX_INLINE u32 Of(u32 key) const
	{
		if constexpr (_Pass == _PassCount - 1)
			return (key >> m_LastShift) - m_LowestLast;
		else
			return key >> (m_FirstShift + _Pass * _DigitBits) & ((1u << _DigitBits) - 1);
	}

private:
	u32 _LastOf(u32 key, const SKeySpan &span) const { return (key >> m_LastShift) - (span.m_Lowest >> m_LastShift); }

	u32 m_FirstShift;
	u32 m_LastShift;
	u32 m_LowestLast;
};

// How many counters of 32 bits the sort of any span needs at most: three digits of 11 bits.
constexpr u32 kSpanCounterCount = 3u << 11;

// Moves records to the positions of their digits, from the first record to the last. A position is then one higher, for
// the next record of its digit.
//
//   digits of the records  2  0  2  1
//   positions before       0: 0   1: 1   2: 2
//   moved                  the second record, the fourth, the first, the third
//   positions afterwards   0: 1   1: 2   2: 4
//
// Neighbouring records often share a digit, and then the second one would wait for the position that the first one
// stores. So two records take their places together (TakeTwoPlaces).
//
// load(i)               record i
// digitOf(record)       the number of its position
// store(place, record)  called once for each record
template<typename _Counter, typename _Load, typename _DigitOf, typename _Store>
static VX_INLINE void MoveToPlaces(
	u32 count, _Counter *__restrict positions, const _Load &load, const _DigitOf &digitOf, const _Store &store)
{
	constexpr u32 kPairsPerStep = 2; // four or eight take as long, in larger code
	ForEachRecord<kPairsPerStep>(count / 2,
		[=](u32 pair)
		{
			const auto first = load(2 * pair);
			const auto second = load(2 * pair + 1);
			const STwoPlaces places = TakeTwoPlaces(positions, digitOf(first), digitOf(second));
			store(places.m_First, first);
			store(places.m_Second, second);
		});
	if (count % 2 != 0)
	{
		const auto last = load(count - 1);
		store(CountOneMore(positions[digitOf(last)]), last);
	}
}

// Moves the records by one digit of a span, whose counters are summed up first.
template<u32 _Pass, typename _Digits, typename _Counter>
static VX_INLINE void ScatterBySpanDigit(const SIndexAndDepth *__restrict source,
	SIndexAndDepth *__restrict destination,
	u32 count,
	const _Digits &digits,
	_Counter *__restrict counters)
{
	constexpr u32 kCounterCount = 1u << _Digits::kDigitBits;
	_Counter *const positions = counters + _Pass * kCounterCount; // once they are summed up
	SortLanes::SumCounters(positions, kCounterCount);
	const _Digits digitsOf = digits; // in registers
	MoveToPlaces(
		count, positions, [=](u32 i) { return LoadRecord(source + i); },
		[=](u64 record) { return digitsOf.template Of<_Pass>(KeyOf(record)); },
		[=](u32 place, u64 record) { StoreRecord(destination + place, record); });
}

// Sorts records by the digits of a span, equal digits in the order that they come in. Moves them between the two
// arrays, and returns the one that they end in. All digits are counted in one sweep, which also fetches the array that
// records are moved to: it may have lain idle since the last frame.
//
//   counters   | digit 0: 2^_DigitBits | digit 1 | ... one for each pass
template<typename _Digits, typename _Counter>
static SIndexAndDepth *SortBySpanDigits(
	SIndexAndDepth *records, SIndexAndDepth *others, u32 count, const SKeySpan &span, void *memory)
{
	constexpr u32 kCounterCount = 1u << _Digits::kDigitBits;
	static_assert(_Digits::kPassCount * kCounterCount * sizeof(_Counter) <= kSpanCounterCount * sizeof(u32));
	_Counter *__restrict const counters = static_cast<_Counter *>(memory);
	const _Digits digits(span, span.BitCount());
	std::memset(counters, 0, _Digits::kPassCount * kCounterCount * sizeof(_Counter));
	ForEachRecord(count,
		[=](u32 i)
		{
			if (i % kRecordsPerLine<SIndexAndDepth> == 0)
				VX_PREFETCH_TO_WRITE(others + i);
			const u32 key = records[i].m_Depth;
			CountOneMore(counters[digits.template Of<0>(key)]);
			if constexpr (_Digits::kPassCount > 1)
				CountOneMore(counters[kCounterCount + digits.template Of<1>(key)]);
			if constexpr (_Digits::kPassCount > 2)
				CountOneMore(counters[2 * kCounterCount + digits.template Of<2>(key)]);
		});
	ScatterBySpanDigit<0>(records, others, count, digits, counters);
	if constexpr (_Digits::kPassCount > 1)
		ScatterBySpanDigit<1>(others, records, count, digits, counters);
	if constexpr (_Digits::kPassCount > 2)
		ScatterBySpanDigit<2>(records, others, count, digits, counters);
	return _Digits::kPassCount % 2 == 0 ? records : others;
}

// Sorts records whose keys lie in a span, equal keys in the order that they come in. Moves them between the two arrays,
// and returns the one that they end in.
typedef SIndexAndDepth *(*CbSortOfSpan)(
	SIndexAndDepth *records, SIndexAndDepth *others, u32 count, const SKeySpan &span, void *counters);

// A way to sort by the digits of a span.
struct SSpanPasses
{
	CbSortOfSpan m_Sort;
	bool m_SortsAllBits; // or the lowest ones are left to insertion
};

// The cheapest way, by an estimate. A pass moves every record, and clears and sums its counters. Where bits are left to
// insertion, two records that share all digits may have to change places. For n records and digits of b bits in all,
// the estimate counts n * n / 2^b such pairs. Keys that differ in 25 bits, for example, are cut like this:
//
//   records     300          4,000         200,000
//   digits      8, 8 bits    11, 11 bits   11, 11, 3 bits
//   inserted    9 bits       3 bits        none
//
// Keys that differ in up to 13 bits need one pass only, if there are some 500 records.
//
// mayInsert  whether bits may be left to insertion
static inline SSpanPasses SpanPassesFor(const SKeySpan &span, u32 recordCount, bool mayInsert)
{
	// Costs are measured in moves of one record.
	constexpr u32 kCountersPerMove = 16;
	constexpr u32 kMovesPerInsertion = 24; // a mispredicted branch or two

	// Keys of floats crowd in a few octaves. So those that differ in more bits than this share their leading bits as
	// often as evenly spread keys that differ in so many.
	constexpr u32 kMaxEvenBits = 26;
	const u32 bitCount = span.BitCount();
	const u32 crowdedBits = std::max(bitCount, kMaxEvenBits) - kMaxEvenBits;

	SSpanPasses best = {};
	u64 bestCost = ~u64(0);
	const auto consider = [&](auto digits, auto counter)
	{
		typedef decltype(digits) Digits;
		const bool isWhole = digits.SortsAllBits();
		if (!isWhole && !mayInsert)
			return;
		u64 cost = Digits::kPassCount * (u64(recordCount) + (1u << Digits::kDigitBits) / kCountersPerMove);
		if (!isWhole)
			cost += (u64(recordCount) * recordCount << crowdedBits >> Digits::kSortedBits) * kMovesPerInsertion;
		if (cost >= bestCost)
			return;
		best = {&SortBySpanDigits<Digits, decltype(counter)>, isWhole};
		bestCost = cost;
	};
	if (recordCount <= kMaxInShortCounters)
	{
		consider(TSpanDigits<1, 13>(span, bitCount), u16());
		consider(TSpanDigits<2, 8>(span, bitCount), u16());
		if constexpr (!VX_WASM) // a module is downloaded, and this way saves 1 to 3 %
			consider(TSpanDigits<2, 9>(span, bitCount), u16());
		consider(TSpanDigits<2, 10>(span, bitCount), u16());
		consider(TSpanDigits<2, 11>(span, bitCount), u16());
		consider(TSpanDigits<3, 11>(span, bitCount), u16());
	}
	else
	{
		consider(TSpanDigits<2, 11>(span, bitCount), u32());
		consider(TSpanDigits<3, 11>(span, bitCount), u32());
	}
	return best;
}

// Moves a record down past all records of higher keys before it, and returns how many it has passed. It stays behind
// records of an equal key.
//
//   keys     2   5   7   9   5      place 4
//            2   5   5   7   9      it has passed two records
static inline u32 InsertRecord(SIndexAndDepth *records, u32 place)
{
	const u64 record = LoadRecord(records + place);
	const u32 start = place;
	for (; place != 0 && KeyOf(record) < records[place - 1].m_Depth; --place)
		StoreRecord(records + place, LoadRecord(records + place - 1));
	StoreRecord(records + place, record);
	return start - place;
}

// Sorts records of which few are out of order, equal keys in the order that they come in. A record that is not below
// the highest key before it stays where it is, which is one comparison. Gives up and returns false when records have
// moved past too many others, which would be quadratic. Equal keys have kept their order then as well.
static inline bool InsertionSortRecords(SIndexAndDepth *records, u32 count)
{
	constexpr u32 kMovesOfFewRecords = 1024;
	const u32 maxMoves = std::max(count, kMovesOfFewRecords);
	u32 moves = 0;
	u32 highest = 0; // of the records before
	ForEachRecord(count,
		[&](u32 i)
		{
			const u32 key = records[i].m_Depth;
			if (VX_LIKELY(key >= highest))
				highest = key;
			else if (moves <= maxMoves)
				moves += InsertRecord(records, i);
		});
	return moves <= maxMoves;
}

// Sorts records in ascending order of their keys, equal keys in the order that they come in. Moves them between the two
// arrays, and returns the one that they end in.
// span         contains all keys; the narrower, the faster
// counters     memory for kSpanCounterCount of 32 bits, or of 16 bits for up to kMaxInShortCounters records
static inline SIndexAndDepth *SortBySpan(
	SIndexAndDepth *records, SIndexAndDepth *others, u32 count, const SKeySpan &span, void *counters)
{
	constexpr u32 kMaxInsertedCount = 16;
	if (count == 0 || span.m_Lowest == span.m_Highest)
		return records;
	if (count <= kMaxInsertedCount)
	{
		InsertionSortRecords(records, count);
		return records;
	}
	const SSpanPasses passes = SpanPassesFor(span, count, true);
	SIndexAndDepth *const sorted = passes.m_Sort(records, others, count, span, counters);
	if (passes.m_SortsAllBits || InsertionSortRecords(sorted, count))
		return sorted;
	// Many keys share their leading bits: all bits are cut into digits after all.
	return SpanPassesFor(span, count, false)
	    .m_Sort(sorted, sorted == records ? others : records, count, span, counters);
}
} // namespace Vexmoor
