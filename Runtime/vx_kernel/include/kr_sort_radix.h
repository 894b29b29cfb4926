#pragma once

// The radix sort: a least-significant-digit sort of 32-bit keys in three passes. It counts all three digits in one
// sweep over the records, turns the counts into positions, and then moves the records three times, once for each digit.

#include "vx_assert.h"
#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_sort_lanes.h"
#include "kr_sort_records.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
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
	/// the last record may wrap to 0. Narrower counters are faster wherever they suffice.
	static constexpr u32 kMaxCountIn8Bits = 1u << 8;
	static constexpr u32 kMaxCountIn16Bits = 1u << 16;
	///@}

	/// Up to how many records the output is taken to fit the caches: 16 MB of 8-byte records. The output has lain idle
	/// since the last frame. Up to this count its lines are fetched in order while the keys are counted. Beyond it, a
	/// record that is moved to a line fetches the line that its digit needs next. Measured on an Intel Xeon with 2 MB
	/// of second-level cache: in order is faster up to 2 million records, the next line from 3 million on.
	static constexpr u32 kMaxCountInCaches = 1u << 21;

	/// Sorts [first, last) into output in ascending order of the keys that keyExtractor makes of records: u32, compared
	/// as unsigned. Records with equal keys keep their order.
	/// first, last  contiguous records, left in the order of their keys' low 22 bits
	/// output       as many records, apart from the input
	/// Four sweeps over the records whatever their keys, 22 KB of stack, no heap. No records: nothing is written.
	template<typename _KeyExtractor, typename _Iterator>
	static void Sort11(_Iterator first, _Iterator last, _Iterator output, const _KeyExtractor &keyExtractor)
	{
		static_assert(kExtractsU32<_KeyExtractor, std::decay_t<decltype(*first)>>, "keys are u32");
		const u32 elementCount = u32(last - first);
		if (elementCount == 0)
			return;
		VX_ASSERT(AreApart(&*first, &*output, elementCount));

		if (elementCount <= kMaxCountIn8Bits && SortLanes::SumsFasterInColumns())
			_SortWith<_SInColumns, false>(&*first, &*output, elementCount, keyExtractor);
		else if (elementCount <= kMaxCountIn8Bits)
			_SortWith<_TInARow<u8, _BaseBits>, false>(&*first, &*output, elementCount, keyExtractor);
		else if (elementCount <= kMaxCountIn16Bits)
			_SortWith<_TInARow<u16, _BaseBits>, false>(&*first, &*output, elementCount, keyExtractor);
		else if (elementCount <= kMaxCountInCaches)
			_SortWith<_TInARow<u32, _BaseBits>, false>(&*first, &*output, elementCount, keyExtractor);
		else
			_SortWith<_TInARow<u32, _BaseBits>, true>(&*first, &*output, elementCount, keyExtractor);
	}

	/// Sorts up to kMaxCountIn8Bits records like Sort11, and leaves the input unchanged. Four passes of 8 bits, whose
	/// 1,024 counters are a fifth of what Sort11 clears and sums up: for few records the faster way.
	/// first, count  contiguous records; more of them are reported, and nothing is written
	/// output        as many records, apart from the input
	/// 3.3 KB of stack for records of 8 bytes, no heap.
	template<typename _KeyExtractor, typename _Iterator>
	static void Sort8(_Iterator first, u32 count, _Iterator output, const _KeyExtractor &keyExtractor)
	{
		typedef std::decay_t<decltype(*first)> Record;
		typedef _TInARow<u8, 8> Layout;
		static_assert(kExtractsU32<_KeyExtractor, Record>, "keys are u32");
		VX_ASSERT(count <= kMaxCountIn8Bits);
		if (count == 0 || count > kMaxCountIn8Bits)
			return;
		const Record *const records = &*first;
		Record *const sorted = &*output;
		VX_ASSERT(AreApart(records, sorted, count));

		constexpr u32 kSize = 1u << 8;
		alignas(64) u8 counters[5 * kSize] = {};
		u8 *const histograms[] = {counters, counters + kSize, counters + 2 * kSize, counters + 3 * kSize};
		u8 *const oddHistogram = counters + 4 * kSize;
		alignas(Record) unsigned char betweenBytes[kMaxCountIn8Bits * sizeof(Record)];
		Record *const between = reinterpret_cast<Record *>(betweenBytes); // stored to and loaded from as bytes alone

		_CountDigits<Layout, false>(records, sorted, count, histograms, oddHistogram, keyExtractor);
		for (u32 pass = 0; pass < Layout::kLastPass; ++pass)
			Layout::Sum(histograms[pass]);
		Layout::SumLast(histograms[3], oddHistogram);
		// A pass over so few records loads the first ones while the stores of the pass before still compute their
		// addresses. Starting over after wrong guesses takes as long as the passes do; so each waits for those
		// addresses.
		_Scatter<Layout, 0, false>(records, between, count, histograms[0], keyExtractor);
		VX_FINISH_STORES_FIRST();
		_Scatter<Layout, 1, false>(between, sorted, count, histograms[1], keyExtractor);
		VX_FINISH_STORES_FIRST();
		_Scatter<Layout, 2, false>(sorted, between, count, histograms[2], keyExtractor);
		VX_FINISH_STORES_FIRST();
		_ScatterFromBothEnds<Layout>(between, sorted, count, histograms[3], histograms[0], keyExtractor);
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
	// Loops over records move 8 of them, a cache line of 8-byte records, without a test in between: then the processor
	// sees more of the independent ones ahead.
	static constexpr u32 kRecordsPerStep = 8;

	// Up to how many top digits the last pass moves records to both ends of each digit's range beyond the caches. There
	// each end of a range is one more page that is written to, and a first-level TLB has some 64 to 96 entries. Of 4
	// million records with 1,024 top digits, moving to one end takes 0.92 of the time.
	// Distances have far fewer top digits; records of many top digits seldom wait for each other's positions anyway.
	static constexpr u32 kMaxDigitsFromBothEnds = 256;

	// How keys are cut into digits, and a layout of histograms: in which slot a digit's counter lies, how counts are
	// summed up to positions, and where the positions of each top digit end. Here the counters lie in the order of
	// digits.
	template<typename _Counter, u32 _DigitBits>
	struct _TInARow
	{
		typedef _Counter Counter;
		static constexpr u32 kLastPass = 31 / _DigitBits;
		static constexpr u32 kLastBits = 32 - kLastPass * _DigitBits; // the last pass takes what bits are left

		template<u32 _Pass>
		static VX_INLINE u32 Digit(u32 key)
		{
			constexpr u32 kFirstBit = _Pass * _DigitBits;
			if constexpr (_Pass == kLastPass)
				return key >> kFirstBit;
			else
				return (key >> kFirstBit) & ((1u << _DigitBits) - 1);
		}

		template<u32 _Pass>
		static VX_INLINE u32 Slot(u32 key)
		{
			return Digit<_Pass>(key);
		}

		static void Sum(Counter *histogram) { SumCounters<_DigitBits>(histogram); }

		// The top digits of distances, sign, exponent and a few bits, are close together: most counters are zero.
		static void SumLast(Counter *histogram, const Counter *others)
		{
			SortLanes::SumSparseCounters(histogram, others, 1u << kLastBits);
		}

		// A digit's positions end where those of the next digit begin.
		static void CopyEnds(Counter *ends, const Counter *positions, u32 elementCount)
		{
			constexpr u32 kLastDigit = (1u << kLastBits) - 1;
			std::memcpy(ends, positions + 1, kLastDigit * sizeof(Counter));
			ends[kLastDigit] = Counter(elementCount);
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

	// Moves the records to sorted, back to records, and to sorted.
	template<typename _Layout, bool _BeyondCaches, typename _Record, typename _KeyExtractor>
	static void _SortWith(_Record *records, _Record *sorted, u32 elementCount, const _KeyExtractor &keyExtractor)
	{
		typedef typename _Layout::Counter Counter;
		constexpr u32 kCountersPerPlace = 4 / sizeof(Counter);
		alignas(64) Counter rawHistograms[_CounterCount * kCountersPerPlace];
		Counter *const histogram0 = rawHistograms;
		Counter *const histogram1 = rawHistograms + _HistogramStride * kCountersPerPlace;
		Counter *const histogram2 = rawHistograms + 2 * _HistogramStride * kCountersPerPlace;
		Counter *const histograms[] = {histogram0, histogram1, histogram2};

		// Neighbouring particles have similar distances, so consecutive records increment the same counter of the top
		// digit, and each increment waits for the store before it. Processors forward a store of 32 bits to the next
		// load faster than a narrower one: with narrower counters every other record counts in a second histogram,
		// which lies in the unused part of the first one's memory.
		constexpr bool kTakesTurns = sizeof(Counter) < 4;
		Counter *const oddHistogram2 = kTakesTurns ? histogram2 + (1u << _LastBits) : nullptr;

		std::memset(histogram0, 0, sizeof(Counter) << _BaseBits);
		std::memset(histogram1, 0, sizeof(Counter) << _BaseBits);
		std::memset(histogram2, 0, (kTakesTurns ? 2 : 1) * sizeof(Counter) << _LastBits);
		_CountDigits<_Layout, _BeyondCaches>(
			records, sorted, elementCount, histograms, kTakesTurns ? oddHistogram2 : histogram2, keyExtractor);

		_Layout::Sum(histogram0);
		_Layout::Sum(histogram1);
		_Layout::SumLast(histogram2, oddHistogram2);

		_Scatter<_Layout, 0, _BeyondCaches>(records, sorted, elementCount, histogram0, keyExtractor);
		_Scatter<_Layout, 1, _BeyondCaches>(sorted, records, elementCount, histogram1, keyExtractor);
		bool fromOneEnd = false;
		if constexpr (_BeyondCaches)
			fromOneEnd = _UsedDigits(histogram2, elementCount) > kMaxDigitsFromBothEnds;
		if (fromOneEnd)
			_Scatter<_Layout, 2, false>(records, sorted, elementCount, histogram2, keyExtractor);
		else
			_ScatterFromBothEnds<_Layout>(records, sorted, elementCount, histogram2, histogram0, keyExtractor);
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

	template<typename _Layout, bool _BeyondCaches, typename _Record, typename _Counter, typename _KeyExtractor>
	static VX_INLINE void _CountDigits(const _Record *records,
		const _Record *sorted,
		u32 elementCount,
		_Counter *const (&histograms)[_Layout::kLastPass + 1],
		_Counter *oddHistogram,
		const _KeyExtractor &keyExtractor)
	{
		constexpr u32 kLastPass = _Layout::kLastPass;
		const u32 inWholeSteps = elementCount - elementCount % kRecordsPerStep;
		for (u32 i = 0; i < inWholeSteps; i += kRecordsPerStep)
		{
			for (u32 k = 0; k < kRecordsPerStep; ++k)
			{
				if (!_BeyondCaches && (i + k) % kRecordsPerLine<_Record> == 0)
					VX_PREFETCH_TO_WRITE(sorted + i + k);
				_CountOne<_Layout>(keyExtractor.ExtractKey(records[i + k]), histograms,
					k % 2 != 0 ? oddHistogram : histograms[kLastPass], std::make_index_sequence<kLastPass>());
			}
		}
		for (u32 i = inWholeSteps; i < elementCount; ++i)
			_CountOne<_Layout>(keyExtractor.ExtractKey(records[i]), histograms, histograms[kLastPass],
				std::make_index_sequence<kLastPass>());
	}

	template<typename _Layout, typename _Counter, std::size_t... _Passes>
	static VX_INLINE void _CountOne(u32 key,
		_Counter *const (&histograms)[_Layout::kLastPass + 1],
		_Counter *lastHistogram,
		std::index_sequence<_Passes...>)
	{
		(_Increment(histograms[_Passes][_Layout::template Slot<_Passes>(key)]), ...);
		_Increment(lastHistogram[_Layout::template Slot<_Layout::kLastPass>(key)]);
	}

	template<typename _Counter>
	static VX_INLINE void _Increment(_Counter &counter)
	{
		counter = _Counter(counter + 1);
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

	// How many top digits have a record. Positions are the digits' first ones, in the order of digits.
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
	template<typename _Layout,
		u32 _Pass,
		bool _FetchesNextLine,
		typename _Record,
		typename _Counter,
		typename _KeyExtractor>
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
			for (u32 k = 0; k < kRecordsPerStep; ++k)
				_Move<_Layout, _Pass, _FetchesNextLine>(source + k, destination, elementCount, positions, keyExtractor);
		}
		for (; source != end; ++source)
			_Move<_Layout, _Pass, false>(source, destination, elementCount, positions, keyExtractor);

		// The position behind the last digit's records is the sum of all counters. Sums behind one that has wrapped are
		// unspecified.
		VX_ASSERT(
			_Counter(elementCount) == 0 || positions[_Layout::template Slot<_Pass>(~0u)] == _Counter(elementCount));
		VX_ASSERT(_AscendsByDigit<_Layout, _Pass>(destination, elementCount, keyExtractor));
	}

	template<typename _Layout,
		u32 _Pass,
		bool _FetchesNextLine,
		typename _Record,
		typename _Counter,
		typename _KeyExtractor>
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
		if constexpr (_FetchesNextLine)
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
			_Move<_Layout, _Layout::kLastPass, false>(source, destination, elementCount, positions, keyExtractor);
		// Every range is full: what has moved up meets what has moved down.
		VX_ASSERT(_Counter(elementCount) == 0 || std::equal(positions, positions + (1u << _Layout::kLastBits), ends));
		VX_ASSERT(_AscendsByDigit<_Layout, _Layout::kLastPass>(destination, elementCount, keyExtractor));
	}

	// Moves the two records from source on, whose digits are equal or not.
	template<typename _Layout, typename _Record, typename _Counter, typename _KeyExtractor>
	static VX_INLINE void _MoveTwoUp(const _Record *__restrict source,
		_Record *__restrict destination,
		[[maybe_unused]] u32 elementCount,
		_Counter *__restrict positions,
		const _KeyExtractor &keyExtractor)
	{
		const _SMoving<_Layout, _Layout::kLastPass, _Record> first(source, keyExtractor);
		const _SMoving<_Layout, _Layout::kLastPass, _Record> second(source + 1, keyExtractor);
		const u32 firstPlace = positions[first.m_Slot];
		const u32 secondPlace = positions[second.m_Slot] + u32(first.m_Slot == second.m_Slot);
		VX_ASSERT(firstPlace < elementCount && secondPlace < elementCount);
		positions[first.m_Slot] = _Counter(firstPlace + 1);
		positions[second.m_Slot] = _Counter(secondPlace + 1);
		first.StoreTo(destination + firstPlace);
		second.StoreTo(destination + secondPlace);
	}

	// Moves the two records before source, the nearer one first. An end may have wrapped to 0.
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
