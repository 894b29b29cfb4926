#pragma once

// The radix sort: a least-significant-digit sort of 32-bit keys in three passes. It counts all three digits in one
// sweep over the records, turns the counts into positions, and then moves the records three times, once for each digit.
// A sweep is a loop over all records in order; a pass is a sweep that moves them. One digit of five records a to e:
//
//   records             a   b   c   d   e
//   their digits        2   0   2   1   0
//
//   digit               0   1   2   3
//   histogram           2   1   2   0        how many records have the digit
//   positions           0   2   3   5        exclusive prefix sums: where the first record of each digit goes
//
//   records, moved      b   e   d   a   c    each record advances the position of its digit
//
// Most of the time that this takes beyond reading and writing goes into waiting. If two records in a row have the same
// digit, the second one loads the counter or the position that the first one has just stored (store-to-load
// forwarding). Much of what follows keeps such pairs apart, or moves records with the same digit together.

#include "vx_assert.h"
#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_sort_lanes.h"
#include "kr_sort_records.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

namespace Vexmoor
{
/// Where a sort leaves its result.
enum ESortOutputMode
{
	Sort_InPlace = 0, ///< In the input range.
	Sort_InBuffer = 1 ///< In a range of its own.
};

/// How keys of a width in bytes are cut into digits.
template<u32 _KeyWidth>
struct SRadixKeyIntegralTranslator;

/// Digits of 32-bit keys.
template<>
struct SRadixKeyIntegralTranslator<4>
{
	static constexpr u32 RadixDegree = 11; ///< Bits of a digit: three digits' counters fit a first-level cache.
};

/// Stable radix sort of 32-bit keys in three passes of 11, 11 and 10 bits, whose histograms are all counted in one
/// sweep. Sort_InPlace, which would leave the result in the input, is not provided.
template<ESortOutputMode _OutputMode>
class TRadixSort
{
	static_assert(_OutputMode == Sort_InBuffer, "the result is left in the output range");

public:
	// The histograms on the stack, in places of 32 bits, whatever the width of the counters:
	//
	//   0              2048    2240           4288    4480          5504
	//   | key bits 0-10 | gap   | key bits 11-21 | gap  | bits 22-31  |
	//
	// All three are incremented in one loop. Without a gap they would start 8 KB apart, at addresses that compete for
	// the same lines of a first-level cache: 192 places move each histogram on by 12 lines.
	///@{
	/// How the counters of three digits lie on the stack.
	static constexpr u32 _BaseBits = SRadixKeyIntegralTranslator<4>::RadixDegree;
	static constexpr u32 _BaseSize = 1u << _BaseBits;
	static constexpr u32 _LastBits = 32 - 2 * _BaseBits;
	static constexpr u32 _AntiAliasOffset = 192;
	static constexpr u32 _HistogramStride = _BaseSize + _AntiAliasOffset;
	static constexpr u32 _CounterCount = 2 * _HistogramStride + (1u << _LastBits);
	static_assert(_CounterCount == 5504, "22016 bytes of the stack");
	///@}

	///@{
	/// Up to how many records a counter of 8 or 16 bits counts: its highest value plus one, since the position after
	/// the last record may wrap to 0. Narrower counters are faster wherever they suffice: they take fewer cache lines
	/// to clear, sum up and keep.
	static constexpr u32 kMaxCountIn8Bits = 1u << 8;
	static constexpr u32 kMaxCountIn16Bits = 1u << 16;
	///@}

	///@{
	/// Where records of 8 bytes are taken to lie, by their count: up to 6 MB of them near a core, and up to 16 MB in
	/// the caches. The output has lain idle since the last frame. In the caches its lines are fetched in order while
	/// the keys are counted. Away from the core, a record that is moved to a line fetches the line that its digit needs
	/// next. WebAssembly has no instruction for that.
	/// Measured on an AMD EPYC (family 26) with 1 MB of second-level cache: sorts of up to 500,000 records take 1.03 to
	/// 1.09 times as long if they fetch the next line, sorts of 600,000 to 700,000 take 0.5 to 1.09 times as long, and
	/// those of 1 and 2 million 0.42 to 0.80 times. On an Intel Xeon with 2 MB of second-level cache, fetching in order
	/// is faster up to 2 million records.
	static constexpr u32 kMaxCountInCaches = 1u << 21;
	static constexpr u32 kMaxCountNear = VX_WASM ? kMaxCountInCaches : 3u << 18;
	///@}

	/// Sorts [first, last) into output in ascending order of the keys that keyExtractor makes of records: u32, compared
	/// as unsigned. Records with equal keys keep their order.
	/// first, last  contiguous records, left in the order of their keys' low 22 bits
	/// output       as many records, apart from the input
	/// Up to four sweeps over the records, whatever their keys, and 22 KB of stack; no heap. No records: nothing is
	/// written. Up to kMaxCountIn8Bits records of two words are sorted by networks where registers are wide.
	template<typename _KeyExtractor, typename _Iterator>
	static void Sort11(_Iterator first, _Iterator last, _Iterator output, const _KeyExtractor &keyExtractor)
	{
		static_assert(kExtractsU32<_KeyExtractor, std::decay_t<decltype(*first)>>, "keys are u32");
		const u32 elementCount = u32(last - first);
		if (elementCount == 0)
			return;
		VX_ASSERT(AreApart(&*first, &*output, elementCount));

		// Three histograms of 8-bit counters take 5 KB, of 16-bit ones 10 KB, and of 32-bit ones 20 KB. With few
		// records, most of the time goes into clearing and summing the counters, so they are as narrow as the count
		// allows. With 4,000 to 65,536 records, 32-bit counters in place of 16-bit ones take 1.03 to 1.07 times as long
		// for uniform keys and for a ball, on an Intel Xeon with AVX-512.
		if (elementCount <= kMaxCountIn8Bits)
			_SortFew(&*first, &*output, elementCount, keyExtractor);
		else if (elementCount <= kMaxCountIn16Bits)
			_SortWith<_TInARow<u16, _BaseBits>, kNear>(&*first, &*output, elementCount, keyExtractor);
		else if (elementCount <= kMaxCountNear)
			_SortWith<_TInARow<u32, _BaseBits>, kNear>(&*first, &*output, elementCount, keyExtractor);
		else if (elementCount <= kMaxCountInCaches)
			_SortWith<_TInARow<u32, _BaseBits>, kInCaches>(&*first, &*output, elementCount, keyExtractor);
		else
			_SortWith<_TInARow<u32, _BaseBits>, kBeyondCaches>(&*first, &*output, elementCount, keyExtractor);
	}

	/// Sorts up to kMaxCountIn8Bits records by the highest of the bits in which their keys differ and the 23 bits below
	/// it, and leaves the input unchanged. Records that agree in these bits keep their order, so where two keys differ
	/// by less than 256, the higher one may come first. Three passes of 8 bits, whose 768 counters are a seventh of
	/// what Sort11 clears and sums up: for few records the faster way.
	/// first, count  contiguous records; more of them are reported, and nothing is written
	/// output        as many records, apart from the input
	/// 3.1 KB of stack for records of 8 bytes, no heap.
	template<typename _KeyExtractor, typename _Iterator>
	static void SortByTopBits(_Iterator first, u32 count, _Iterator output, const _KeyExtractor &keyExtractor)
	{
		typedef std::decay_t<decltype(*first)> Record;
		typedef _TInARow<u8, 8, 24> Layout; // above these bits, all keys agree
		static_assert(kExtractsU32<_KeyExtractor, Record>, "keys are u32");
		VX_ASSERT(count <= kMaxCountIn8Bits);
		if (count == 0 || count > kMaxCountIn8Bits)
			return;
		const Record *const records = &*first;
		Record *const sorted = &*output;
		VX_ASSERT(AreApart(records, sorted, count));

		const u32 firstKey = keyExtractor.ExtractKey(*records);
		u32 differing = 0;
		for (u32 i = 1; i < count; ++i)
			differing |= firstKey ^ keyExtractor.ExtractKey(records[i]);
		_TTopBits<_KeyExtractor> topBits{keyExtractor, 0};
		while (differing >> topBits.m_DroppedBits >= 1u << Layout::kBits)
			++topBits.m_DroppedBits;

		constexpr u32 kSize = 1u << 8;
		alignas(64) u8 counters[4 * kSize] = {};
		u8 *const histograms[] = {counters, counters + kSize, counters + 2 * kSize};
		u8 *const oddHistogram = counters + 3 * kSize;
		alignas(Record) unsigned char betweenBytes[kMaxCountIn8Bits * sizeof(Record)];
		Record *const between = reinterpret_cast<Record *>(betweenBytes); // stored to and loaded from as bytes alone

		_CountDigits<Layout, kNear, false>(records, sorted, count, histograms, oddHistogram, topBits);
		Layout::Sum(histograms[0]);
		Layout::Sum(histograms[1]);
		Layout::SumLast(histograms[2], oddHistogram);
		// A pass over so few records loads the first ones while the stores of the pass before still compute their
		// addresses. Starting over after wrong guesses takes as long as the passes do; so each waits for those
		// addresses.
		_Scatter<Layout, 0, kSingly>(records, sorted, count, histograms[0], topBits);
		VX_FINISH_STORES_FIRST();
		_Scatter<Layout, 1, kSingly>(sorted, between, count, histograms[1], topBits);
		VX_FINISH_STORES_FIRST();
		_ScatterFromBothEnds<Layout>(between, sorted, count, histograms[2], histograms[0], topBits);
		VX_FINISH_STORES_FIRST();
	}

	/// Replaces 2^_Bitcount counters by their exclusive prefix sums: counts of a digit become its first position.
	template<u32 _Bitcount, typename _Counter>
	static void SumCounters(_Counter *counters)
	{
		static_assert((sizeof(_Counter) << _Bitcount) % SortLanes::kStepInBytes == 0, "whole steps");
		SortLanes::SumCounters(counters, 1u << _Bitcount);
	}

private:
	// A step is 8 records in a row, a cache line of 8-byte records. Loops over records take a step without a test in
	// between, so that the processor sees more of the independent records ahead.
	static constexpr u32 kRecordsPerStep = 8;

	// How many steps are looked at before the records are counted, and the least distance between two of them, in
	// records: 257 records get four looks, which is nothing beside the time that sorting them takes.
	static constexpr u32 kLooks = 16;
	static constexpr u32 kMinDistanceOfLooks = 64;

	// Up to how many top digits the last pass moves records to both ends of each digit's range away from the core.
	// There each end of a range is one more page that is written to, and a first-level TLB has some 64 to 96 entries.
	// Of 4 million records with 1,024 top digits, moving to one end takes 0.92 of the time.
	// Distances have far fewer top digits; records of many top digits seldom wait for each other's positions anyway.
	static constexpr u32 kMaxDigitsFromBothEnds = 256;

	// How the lowest _KeyBits of keys are cut into digits, and a layout of histograms: in which slot a digit's counter
	// lies, how counts are summed up to positions, and where the positions of each top digit end. Here the counters lie
	// in the order of digits.
	template<typename _Counter, u32 _DigitBits, u32 _KeyBits = 32>
	struct _TInARow
	{
		typedef _Counter Counter;
		static constexpr u32 kBits = _KeyBits;
		static constexpr u32 kLastPass = (_KeyBits - 1) / _DigitBits;
		static constexpr u32 kLastBits = _KeyBits - kLastPass * _DigitBits; // the last pass takes what bits are left

		template<u32 _Pass>
		static VX_INLINE u32 Digit(u32 key)
		{
			constexpr u32 kDigitBits = _Pass == kLastPass ? kLastBits : _DigitBits;
			return (key >> _Pass * _DigitBits) & ((1u << kDigitBits) - 1);
		}

		template<u32 _Pass>
		static VX_INLINE u32 Slot(u32 key)
		{
			return Digit<_Pass>(key);
		}

		static void Sum(Counter *histogram) { SumCounters<_DigitBits>(histogram); }

		// Whether the order of records is looked at before they are counted.
		static constexpr bool kLooksForRuns = sizeof(Counter) > 1;

		// The top digits of distances, sign, exponent and a few bits, are close together: most counters are zero.
		static void SumLast(Counter *histogram, const Counter *others)
		{
			SortLanes::SumSparseCounters(histogram, others, 1u << kLastBits);
		}

		// A digit's positions end where those of the next digit begin, and the last digit's with the last record. Of
		// five records:
		//
		//   digit        0   1   2   3
		//   positions    0   2   3   5
		//   ends         2   3   5   5
		static void CopyEnds(Counter *ends, const Counter *positions, u32 elementCount)
		{
			constexpr u32 kLastDigit = (1u << kLastBits) - 1;
			std::memcpy(ends, positions + 1, kLastDigit * sizeof(Counter));
			ends[kLastDigit] = Counter(elementCount);
		}
	};

	// Keys without their lowest bits.
	template<typename _KeyExtractor>
	struct _TTopBits
	{
		const _KeyExtractor &m_KeyExtractor;
		u32 m_DroppedBits;

		template<typename _Record>
		VX_INLINE u32 ExtractKey(const _Record &record) const
		{
			return m_KeyExtractor.ExtractKey(record) >> m_DroppedBits;
		}
	};

	// In this layout, of 8-bit counters, digits follow each other down columns. A column is a lane of a register, so
	// sums need no shuffles. That takes a third of the time in 128-bit registers, and with so few records most of the
	// time goes into sums. In wider registers, where sums are faster anyway, finding the slots costs what the sums
	// save. The slots of a histogram of 11-bit digits, 64 rows:
	//
	//             column 0   column 1   ...   column 31
	//   row 0     digit 0    digit 64         digit 1984
	//   row 1     digit 1    digit 65         digit 1985
	//   ...
	//   row 63    digit 63   digit 127        digit 2047
	struct _SInColumns : _TInARow<u8, _BaseBits>
	{
		static constexpr u32 kColumns = SortLanes::kColumns;
		static constexpr u32 kColumnBits = 5;
		static_assert(1u << kColumnBits == kColumns, "the high 5 bits of a digit are its column");

		// A slot is a digit rotated: the row, its low bits, becomes the high ones. One multiplication is two shifts, of
		// the row to the top of 32 bits and of the column to right below it. For bits 0 to 10:
		//
		//   digit                 ccccc rrrrrr
		//   digit << 26   rrrrrr                             the column is shifted out
		//   digit << 15          ccccc rrrrrr
		//   sum >> 21     slot = rrrrrr ccccc
		template<u32 _Pass>
		VX_WRAPS static VX_INLINE u32 Slot(u32 key)
		{
			constexpr u32 kBits = _Pass == 2 ? _LastBits : _BaseBits;
			constexpr u32 kRowBits = kBits - kColumnBits;
			constexpr u32 kShifts = 1u << (32 - kRowBits) | 1u << (32 - kRowBits - kBits);
			constexpr u32 kFirstBit = _Pass * _BaseBits;
			if constexpr (_Pass == 2)
				return (key >> kFirstBit) * kShifts >> (32 - kBits);
			else
				return (key & (_BaseSize - 1) << kFirstBit) * (kShifts >> kFirstBit) >> (32 - kBits);
		}

		static void Sum(u8 *histogram) { SortLanes::SumColumns(histogram, nullptr, _BaseSize / kColumns); }

		static void SumLast(u8 *histogram, const u8 *others)
		{
			SortLanes::SumColumns(histogram, others, (1u << _LastBits) / kColumns);
		}

		// The next digit is one row further down, or in the first row of the next column.
		static void CopyEnds(u8 *ends, const u8 *positions, u32 elementCount)
		{
			constexpr u32 kLastRow = (1u << _LastBits) - kColumns;
			std::memcpy(ends, positions + kColumns, kLastRow);
			std::memcpy(ends + kLastRow, positions + 1, kColumns - 1);
			ends[kLastRow + kColumns - 1] = u8(elementCount);
		}
	};

	// Sorts up to kMaxCountIn8Bits records: two words each by networks where registers are wide, and with 8-bit
	// counters otherwise. For 110 to 256 records networks take 0.24 to 0.63 of the time that counters take, on an Intel
	// Xeon with AVX-512, with its registers of 256 bits.
	template<typename _Record, typename _KeyExtractor>
	static VX_INLINE void _SortFew(
		_Record *records, _Record *sorted, u32 elementCount, const _KeyExtractor &keyExtractor)
	{
		if constexpr (kKeyIsFirstOfTwoWords<_KeyExtractor>)
		{
			if (!SortLanes::SortByNetwork(records, elementCount, records, sorted))
				_SortWith<_SInColumns, kNear>(records, sorted, elementCount, keyExtractor);
		}
		else if (SortLanes::SumsFasterInColumns())
			_SortWith<_SInColumns, kNear>(records, sorted, elementCount, keyExtractor);
		else
			_SortWith<_TInARow<u8, _BaseBits>, kNear>(records, sorted, elementCount, keyExtractor);
	}

	// Where the records are taken to lie, see kMaxCountNear.
	enum EPlace
	{
		kNear,        // lines are fetched in order
		kInCaches,    // in order, and a digit's next line with every record
		kBeyondCaches // a digit's next line with every record
	};

	// How a pass moves records to their digits' positions.
	enum EScatter
	{
		kSingly,           // one by one
		kFetchingNextLine, // one by one, and each record fetches the line that the next one of its digit needs
		kStepsOfOneDigit   // a step at once if its records share their digit, and otherwise one by one
	};

	// Sorts with counters of one width. The records go to sorted, back to records, and to sorted:
	//
	//   pass   source    destination   order afterwards
	//   0      records   sorted        key bits 0 to 10
	//   1      sorted    records       key bits 0 to 21: what the caller finds in records
	//   2      records   sorted        the whole key
	template<typename _Layout, EPlace _Place, typename _Record, typename _KeyExtractor>
	static void _SortWith(_Record *records, _Record *sorted, u32 elementCount, const _KeyExtractor &keyExtractor)
	{
		typedef typename _Layout::Counter Counter;
		constexpr u32 kCountersPerPlace = 4 / sizeof(Counter);
		alignas(64) Counter rawHistograms[_CounterCount * kCountersPerPlace];
		Counter *const histogram0 = rawHistograms;
		Counter *const histogram1 = rawHistograms + _HistogramStride * kCountersPerPlace;
		Counter *const histogram2 = rawHistograms + 2 * _HistogramStride * kCountersPerPlace;
		Counter *const histograms[] = {histogram0, histogram1, histogram2};
		std::memset(histogram0, 0, sizeof(Counter) << _BaseBits);
		std::memset(histogram1, 0, sizeof(Counter) << _BaseBits);

		// Neighbouring particles have similar distances, so consecutive records increment the same counter of the top
		// digit, and each increment waits for the store before it (store-to-load forwarding). With a second histogram,
		// in which every other record counts, only every other increment waits:
		//
		//   record          0   1   2   3   4   5   6   7
		//   histogram2      +1      +1      +1      +1
		//   oddHistogram2       +1      +1      +1      +1
		//
		// Narrow counters leave room for it behind the first histogram. That of 32-bit counters lies at the start of
		// the output, where there is nothing yet. It is summed up before pass 0 writes there.
		constexpr bool kHasRoomForOdd = kCountersPerPlace > 1;
		Counter *oddHistogram2;
		if constexpr (kHasRoomForOdd)
		{
			oddHistogram2 = histogram2 + (1u << _LastBits);
			std::memset(histogram2, 0, 2 * sizeof(Counter) << _LastBits);
		}
		else
		{
			oddHistogram2 = _ClearedCountersAt<Counter>(sorted);
			std::memset(histogram2, 0, sizeof(Counter) << _LastBits);
		}

		// The first sweep. The memory that it counts in fits a first-level cache, and records are read in order.
		const bool inRuns =
			_Count<_Layout, _Place>(records, sorted, elementCount, histograms, oddHistogram2, keyExtractor);

		// If all records have one digit, the counter of the first record's digit has counted all of them. Such a pass
		// leaves every record in its place and is a copy, which needs no positions:
		//
		//   digit        0   1   2   3
		//   histogram    0   0   5   0        5 records
		const u32 key = keyExtractor.ExtractKey(*records);
		const bool oneDigit0 = histogram0[_Layout::template Slot<0>(key)] == Counter(elementCount);
		const bool oneDigit1 = histogram1[_Layout::template Slot<1>(key)] == Counter(elementCount);
		const u32 slot2 = _Layout::template Slot<2>(key);
		const bool oneDigit2 = Counter(histogram2[slot2] + oddHistogram2[slot2]) == Counter(elementCount);
		if (!oneDigit0)
			_Layout::Sum(histogram0);
		if (!oneDigit1)
			_Layout::Sum(histogram1);
		if (!oneDigit2)
			_Layout::SumLast(histogram2, oddHistogram2);

		// The other three sweeps. The last pass comes from both ends, because distances have few top digits, and then
		// most records wait for the position that the record before them has stored.
		constexpr EScatter kNotInRuns = _Place != kNear ? kFetchingNextLine : kSingly;
		if (!_MovedInBlocks<_Layout, 0>(records, sorted, elementCount, histogram0, oneDigit0, inRuns, keyExtractor))
			_Scatter<_Layout, 0, kNotInRuns>(records, sorted, elementCount, histogram0, keyExtractor);
		if (!_MovedInBlocks<_Layout, 1>(sorted, records, elementCount, histogram1, oneDigit1, inRuns, keyExtractor))
			_Scatter<_Layout, 1, kNotInRuns>(sorted, records, elementCount, histogram1, keyExtractor);
		if (_MovedInBlocks<_Layout, 2>(records, sorted, elementCount, histogram2, oneDigit2, inRuns, keyExtractor))
			return;
		if (_Place != kNear && _UsedDigits(histogram2, elementCount) > kMaxDigitsFromBothEnds)
			_Scatter<_Layout, 2, kSingly>(records, sorted, elementCount, histogram2, keyExtractor);
		else
			_ScatterFromBothEnds<_Layout>(records, sorted, elementCount, histogram2, histogram0, keyExtractor);
	}

	// Makes cleared counters of a top digit at the first aligned address of an output without records.
	template<typename _Counter, typename _Record>
	static _Counter *_ClearedCountersAt(_Record *output)
	{
		constexpr ureg kSize = ureg(sizeof(_Counter)) << _LastBits;
		static_assert(kSize + alignof(_Counter) <= kMaxCountIn16Bits, "fits beside more records than 16 bits count");
		const ureg address = reinterpret_cast<ureg>(output);
		const ureg aligned = (address + alignof(_Counter) - 1) & ~ureg(alignof(_Counter) - 1);
		_Counter *const counters = reinterpret_cast<_Counter *>(aligned);
		std::uninitialized_fill_n(counters, 1u << _LastBits, _Counter(0));
		return counters;
	}

	// Ranges that overlap are a broken rule, which is reported, and copied all the same. It is not inlined, since its
	// caller promises the compiler that they do not overlap.
	template<typename _Record>
	static VX_NOINLINE void _CopyAll(const _Record *source, _Record *destination, u32 elementCount)
	{
		std::memmove(destination, source, elementCount * sizeof(_Record));
	}

	// Moves the records of a pass in blocks, where their digits allow it, and returns whether they did: all records in
	// one block if they share one digit, and in blocks of a step if they come in runs.
	// positions  the first position of each digit; not read if the records share one digit
	// It is not inlined, so that the loops of its caller get all registers.
	template<typename _Layout, u32 _Pass, typename _Record, typename _Counter, typename _KeyExtractor>
	static VX_NOINLINE bool _MovedInBlocks(const _Record *__restrict source,
		_Record *__restrict destination,
		u32 elementCount,
		_Counter *positions,
		bool oneDigit,
		bool inRuns,
		const _KeyExtractor &keyExtractor)
	{
		if (oneDigit)
		{
			_CopyAll(source, destination, elementCount);
			VX_ASSERT(_AscendsByDigit<_Layout, _Pass>(destination, elementCount, keyExtractor));
			return true;
		}
		if constexpr (_Layout::kLooksForRuns)
		{
			if (inRuns)
			{
				_Scatter<_Layout, _Pass, kStepsOfOneDigit>(source, destination, elementCount, positions, keyExtractor);
				return true;
			}
		}
		return false;
	}

	// The bits in which any two keys of a step differ: 0 if all are equal.
	template<typename _Record, typename _KeyExtractor>
	static VX_INLINE u32 _DifferingBits(const _Record *step, const _KeyExtractor &keyExtractor)
	{
		const u32 key = keyExtractor.ExtractKey(*step);
		u32 bits = 0;
		for (u32 k = 1; k < kRecordsPerStep; ++k)
			bits |= key ^ keyExtractor.ExtractKey(step[k]);
		return bits;
	}

	// Looks at a few steps, spread evenly over the records, and returns whether it pays to look at every step: if keys
	// come in runs, or if consecutive records nearly always share their top digit. The first is so for values that a
	// whole page shares, the second for emitters that are far away and for records in nearly sorted order.
	//
	//   three of a step's keys     counts as
	//   equal                      2
	//   equal in the top digit     1
	//   different                  0
	//
	// It pays if the sum is the number of steps or more: with half of the steps in runs, or with one top digit in every
	// step. A step of three keys and not two is looked at, because two of few values are often equal by chance.
	template<typename _Layout, typename _Record, typename _KeyExtractor>
	static bool _NeighboursAreAlike(const _Record *records, u32 elementCount, const _KeyExtractor &keyExtractor)
	{
		const u32 distance = std::max(kMinDistanceOfLooks, elementCount / kLooks);
		u32 looks = 0;
		u32 alike = 0;
		for (u32 i = 0; i + kRecordsPerStep <= elementCount; i += distance)
		{
			const u32 key = keyExtractor.ExtractKey(records[i]);
			const u32 differing = (key ^ keyExtractor.ExtractKey(records[i + kRecordsPerStep / 2 - 1])) |
			                      (key ^ keyExtractor.ExtractKey(records[i + kRecordsPerStep - 1]));
			alike += u32(differing == 0) + u32(_Layout::template Digit<_Layout::kLastPass>(differing) == 0);
			++looks;
		}
		return alike >= looks;
	}

	// Counts the digits of all records. Returns whether records with equal keys come in runs: whether a quarter of the
	// steps have equal keys. Then moving whole steps saves more time than looking at every step costs.
	template<typename _Layout, EPlace _Place, typename _Record, typename _Counter, typename _KeyExtractor>
	static VX_INLINE bool _Count(const _Record *records,
		const _Record *sorted,
		u32 elementCount,
		_Counter *const (&histograms)[_Layout::kLastPass + 1],
		_Counter *oddHistogram,
		const _KeyExtractor &keyExtractor)
	{
		if constexpr (_Layout::kLooksForRuns)
		{
			if (_NeighboursAreAlike<_Layout>(records, elementCount, keyExtractor))
			{
				const u32 equalSteps = _CountDigits<_Layout, _Place, true>(
					records, sorted, elementCount, histograms, oddHistogram, keyExtractor);
				return equalSteps >= elementCount / kRecordsPerStep / 4;
			}
		}
		// Beyond the caches all records count in one histogram of the top digit. With two, 2.2 to 4 million records of
		// a ball take 1.02 to 1.03 times as long on an Intel Xeon with AVX-512.
		_Counter *const otherHistogram = _Place == kBeyondCaches ? histograms[_Layout::kLastPass] : oddHistogram;
		_CountDigits<_Layout, _Place, false>(records, sorted, elementCount, histograms, otherHistogram, keyExtractor);
		return false;
	}

	// True if no record has a lower digit than the record before it.
	template<typename _Layout, u32 _Pass, typename _Record, typename _KeyExtractor>
	static bool _AscendsByDigit(const _Record *records, u32 elementCount, const _KeyExtractor &keyExtractor)
	{
		u32 previous = 0;
		for (u32 i = 0; i < elementCount; ++i)
		{
			_Record record;
			std::memcpy(&record, records + i, sizeof(record));
			const u32 digit = _Layout::template Digit<_Pass>(keyExtractor.ExtractKey(record));
			if (digit < previous)
				return false;
			previous = digit;
		}
		return true;
	}

	// Counts all digits of all records. With _AlikeSteps it looks at the keys of each step first, and returns how many
	// steps have equal keys; without, it returns 0. What a step of 8 records adds to the counters:
	//
	//   its keys                 top digit             each lower digit
	//   are equal                8 at once             8 at once
	//   share their top digit    8 at once             1 for each record
	//   differ                   1 for each record     1 for each record
	template<typename _Layout,
		EPlace _Place,
		bool _AlikeSteps,
		typename _Record,
		typename _Counter,
		typename _KeyExtractor>
	static VX_INLINE u32 _CountDigits(const _Record *records,
		const _Record *sorted,
		u32 elementCount,
		_Counter *const (&histograms)[_Layout::kLastPass + 1],
		_Counter *oddHistogram,
		const _KeyExtractor &keyExtractor)
	{
		constexpr u32 kLastPass = _Layout::kLastPass;
		_Counter *const lastHistogram = histograms[kLastPass];
		const u32 inWholeSteps = elementCount - elementCount % kRecordsPerStep;
		u32 equalSteps = 0;
		for (u32 i = 0; i < inWholeSteps; i += kRecordsPerStep)
		{
			for (u32 k = 0; k < kRecordsPerStep; ++k)
			{
				if (_Place != kBeyondCaches && (i + k) % kRecordsPerLine<_Record> == 0)
					VX_FETCH_TO_WRITE(sorted + i + k);
			}
			if constexpr (_AlikeSteps)
			{
				const u32 key = keyExtractor.ExtractKey(records[i]);
				const u32 differing = _DifferingBits(records + i, keyExtractor);
				if (_Layout::template Digit<kLastPass>(differing) == 0)
				{
					_Add(lastHistogram[_Layout::template Slot<kLastPass>(key)], kRecordsPerStep);
					if (differing == 0)
					{
						_AddToLower<_Layout>(key, kRecordsPerStep, histograms);
						++equalSteps;
						continue;
					}
					for (u32 k = 0; k < kRecordsPerStep; ++k)
						_AddToLower<_Layout>(keyExtractor.ExtractKey(records[i + k]), 1, histograms);
					continue;
				}
			}
			for (u32 k = 0; k < kRecordsPerStep; ++k)
				_CountOne<_Layout>(
					keyExtractor.ExtractKey(records[i + k]), histograms, k % 2 != 0 ? oddHistogram : lastHistogram);
		}
		for (u32 i = inWholeSteps; i < elementCount; ++i)
			_CountOne<_Layout>(keyExtractor.ExtractKey(records[i]), histograms, lastHistogram);
		return equalSteps;
	}

	// Counts one record: its top digit in lastHistogram, which is one of two, and the others in their own histograms.
	template<typename _Layout, typename _Counter>
	static VX_INLINE void _CountOne(
		u32 key, _Counter *const (&histograms)[_Layout::kLastPass + 1], _Counter *lastHistogram)
	{
		_AddToLower<_Layout>(key, 1, histograms);
		_Add(lastHistogram[_Layout::template Slot<_Layout::kLastPass>(key)], 1);
	}

	// Counts a number of records with one key in all digits but the top one.
	template<typename _Layout, typename _Counter>
	static VX_INLINE void _AddToLower(u32 key, u32 count, _Counter *const (&histograms)[_Layout::kLastPass + 1])
	{
		_AddToEach<_Layout>(key, count, histograms, std::make_index_sequence<_Layout::kLastPass>());
	}

	// _AddToLower's loop over passes, which have to be constants.
	template<typename _Layout, typename _Counter, std::size_t... _Passes>
	static VX_INLINE void _AddToEach(
		u32 key, u32 count, _Counter *const (&histograms)[_Layout::kLastPass + 1], std::index_sequence<_Passes...>)
	{
		(_Add(histograms[_Passes][_Layout::template Slot<_Passes>(key)], count), ...);
	}

	template<typename _Counter>
	static VX_INLINE void _Add(_Counter &counter, u32 count)
	{
		counter = _Counter(counter + count);
	}

	// A record on its way, and the slot of the counter that says where to. g++ moves a structure of two numbers number
	// by number, unless told that it is one word.
	template<typename _Layout, u32 _Pass, typename _Record>
	struct _SMoving
	{
		static_assert(std::is_trivially_copyable_v<_Record>, "records are moved as bytes");
		typedef std::conditional_t<sizeof(_Record) == sizeof(u64), u64, _Record> Word;

		template<typename _KeyExtractor>
		VX_INLINE _SMoving(const _Record *from, const _KeyExtractor &keyExtractor)
		{
			std::memcpy(&m_Word, from, sizeof(_Record));
			_Record record;
			std::memcpy(&record, &m_Word, sizeof(_Record));
			m_Slot = _Layout::template Slot<_Pass>(keyExtractor.ExtractKey(record));
		}
		VX_INLINE void StoreTo(_Record *to) const { std::memcpy(to, &m_Word, sizeof(_Record)); }

		Word m_Word;
		u32 m_Slot;
	};

	// How many top digits have a record. Positions are the digits' first ones, in the order of digits: a digit without
	// records begins where the next one does. The last digit has records if it begins before the end.
	template<typename _Counter>
	static u32 _UsedDigits(const _Counter *positions, u32 elementCount)
	{
		u32 used = positions[(1u << _LastBits) - 1] != elementCount;
		for (u32 digit = 1; digit < 1u << _LastBits; ++digit)
			used += positions[digit] != positions[digit - 1];
		return used;
	}

	// Moves the records to their digits' positions. Reading in order and advancing a position with every record keeps
	// equal digits in order.
	template<typename _Layout, u32 _Pass, EScatter _How, typename _Record, typename _Counter, typename _KeyExtractor>
	static void _Scatter(const _Record *__restrict source,
		_Record *__restrict destination,
		u32 elementCount,
		_Counter *__restrict positions,
		const _KeyExtractor &keyExtractor)
	{
		const _Record *const end = source + elementCount;
		for (const _Record *const last = end - elementCount % kRecordsPerStep; source != last;
			 source += kRecordsPerStep)
		{
			if constexpr (_How == kStepsOfOneDigit)
			{
				if (_Layout::template Digit<_Pass>(_DifferingBits(source, keyExtractor)) == 0)
				{
					_MoveStep<_Layout, _Pass>(source, destination, elementCount, positions, keyExtractor);
					continue;
				}
			}
			for (u32 k = 0; k < kRecordsPerStep; ++k)
				_Move<_Layout, _Pass, _How>(source + k, destination, elementCount, positions, keyExtractor);
		}
		for (; source != end; ++source)
			_Move<_Layout, _Pass, kSingly>(source, destination, elementCount, positions, keyExtractor);

		// The position behind the last digit's records is the sum of all counters. Sums behind one that has wrapped are
		// unspecified.
		VX_ASSERT(
			_Counter(elementCount) == 0 || positions[_Layout::template Slot<_Pass>(~0u)] == _Counter(elementCount));
		VX_ASSERT(_AscendsByDigit<_Layout, _Pass>(destination, elementCount, keyExtractor));
	}

	// Moves a step whose records share their digit: their places follow each other, as the records do, so one load and
	// one store of the position do for eight records.
	//
	//   source         | a  b  c  d  e  f  g  h |
	//   destination    ... | a  b  c  d  e  f  g  h | ...
	//                  place ^                       ^ positions[digit] afterwards
	template<typename _Layout, u32 _Pass, typename _Record, typename _Counter, typename _KeyExtractor>
	static VX_INLINE void _MoveStep(const _Record *__restrict source,
		_Record *__restrict destination,
		[[maybe_unused]] u32 elementCount,
		_Counter *__restrict positions,
		const _KeyExtractor &keyExtractor)
	{
		const u32 slot = _Layout::template Slot<_Pass>(keyExtractor.ExtractKey(*source));
		const u32 place = positions[slot];
		VX_ASSERT(place + kRecordsPerStep <= elementCount);
		positions[slot] = _Counter(place + kRecordsPerStep);
		std::memcpy(destination + place, source, kRecordsPerStep * sizeof(_Record));
	}

	// Moves one record to the position of its digit, and the position on to the next place. The line that is fetched is
	// the one that this digit's eighth next 8-byte record goes to.
	template<typename _Layout, u32 _Pass, EScatter _How, typename _Record, typename _Counter, typename _KeyExtractor>
	static VX_INLINE void _Move(const _Record *__restrict source,
		_Record *__restrict destination,
		[[maybe_unused]] u32 elementCount,
		_Counter *__restrict positions,
		const _KeyExtractor &keyExtractor)
	{
		const _SMoving<_Layout, _Pass, _Record> moving(source, keyExtractor);
		const u32 place = positions[moving.m_Slot];
		VX_ASSERT(place < elementCount);
		positions[moving.m_Slot] = _Counter(place + 1);
		if constexpr (_How == kFetchingNextLine)
			VX_PREFETCH_TO_WRITE(destination + place + kRecordsPerLine<_Record>);
		moving.StoreTo(destination + place);
	}

	// Moves the records to their top digits' positions, from both ends of the source at once. Where few top digits are
	// in use, the load of a position waits for the store of the record before it. Two series of positions, which never
	// wait for each other, halve that wait. Two records of a series take their positions together, which halves it
	// again:
	//
	//   source       | first half, read upwards ->  | <- second half, read downwards |
	//   destination  | digit a        -> | <-       | digit b   -> | <-              |
	//                positions[a] moves up ^ ^ ends[a] moves down
	//
	// A digit's records of the first half fill its range from the front and those of the second half from the back, so
	// equal digits keep their order. Ends, 2^_LastBits counters in memory of the caller's, holds one past each range.
	template<typename _Layout, typename _Record, typename _Counter, typename _KeyExtractor>
	static void _ScatterFromBothEnds(const _Record *__restrict source,
		_Record *__restrict destination,
		u32 elementCount,
		_Counter *__restrict positions,
		_Counter *__restrict ends,
		const _KeyExtractor &keyExtractor)
	{
		_Layout::CopyEnds(ends, positions, elementCount);
		const _Record *end = source + elementCount;
		for (u32 steps = elementCount / kRecordsPerStep; steps != 0; --steps)
		{
			for (u32 k = 0; k < kRecordsPerStep / 2; k += 2)
			{
				_MoveTwoUp<_Layout>(source + k, destination, elementCount, positions, keyExtractor);
				_MoveTwoDown<_Layout>(end - k, destination, elementCount, ends, keyExtractor);
			}
			source += kRecordsPerStep / 2;
			end -= kRecordsPerStep / 2;
		}
		for (; source != end; ++source)
			_Move<_Layout, _Layout::kLastPass, kSingly>(source, destination, elementCount, positions, keyExtractor);
		// Every range is full: what has moved up meets what has moved down.
		VX_ASSERT(_Counter(elementCount) == 0 || std::equal(positions, positions + (1u << _Layout::kLastBits), ends));
		VX_ASSERT(_AscendsByDigit<_Layout, _Layout::kLastPass>(destination, elementCount, keyExtractor));
	}

	// Moves the two records from source on, which take their places together.
	template<typename _Layout, typename _Record, typename _Counter, typename _KeyExtractor>
	static VX_INLINE void _MoveTwoUp(const _Record *__restrict source,
		_Record *__restrict destination,
		[[maybe_unused]] u32 elementCount,
		_Counter *__restrict positions,
		const _KeyExtractor &keyExtractor)
	{
		const _SMoving<_Layout, _Layout::kLastPass, _Record> first(source, keyExtractor);
		const _SMoving<_Layout, _Layout::kLastPass, _Record> second(source + 1, keyExtractor);
		const auto [firstPlace, secondPlace] = TakeTwoPlaces(positions, first.m_Slot, second.m_Slot);
		VX_ASSERT(firstPlace < elementCount && secondPlace < elementCount);
		first.StoreTo(destination + firstPlace);
		second.StoreTo(destination + secondPlace);
	}

	// Moves the two records before source, the nearer one first, in the way of _MoveTwoUp. An end is one past the place
	// that is taken next. The end of all of 2^8 or 2^16 records has wrapped to 0 in a counter so narrow, so one less is
	// computed in 64 bits and cut.
	template<typename _Layout, typename _Record, typename _Counter, typename _KeyExtractor>
	static VX_INLINE void _MoveTwoDown(const _Record *__restrict source,
		_Record *__restrict destination,
		[[maybe_unused]] u32 elementCount,
		_Counter *__restrict ends,
		const _KeyExtractor &keyExtractor)
	{
		const _SMoving<_Layout, _Layout::kLastPass, _Record> first(source - 1, keyExtractor);
		const _SMoving<_Layout, _Layout::kLastPass, _Record> second(source - 2, keyExtractor);
		const _Counter firstPlace = _Counter(s64(ends[first.m_Slot]) - 1);
		const _Counter secondPlace = _Counter(s64(ends[second.m_Slot]) - 1 - s64(first.m_Slot == second.m_Slot));
		VX_ASSERT(firstPlace < elementCount && secondPlace < elementCount);
		ends[first.m_Slot] = firstPlace;
		ends[second.m_Slot] = secondPlace;
		first.StoreTo(destination + firstPlace);
		second.StoreTo(destination + secondPlace);
	}
};
} // namespace Vexmoor
