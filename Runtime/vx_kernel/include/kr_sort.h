#pragma once

// Ordering of keyed records: a least-significant-digit radix sort for many, a quick sort for few, a shortcut for few
// with distinct keys, and the entry point that chooses. None allocates. Records are moved whole; only their keys count.

#include "vx_assert.h"
#include "vx_compiler.h"
#include "vx_defs.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

namespace Vexmoor
{
/// What the sorts below do in lanes, as wide as the processor has them.
namespace SortLanes
{
	constexpr u32 kStepInBytes = 32;     ///< Counters fill whole ones.
	constexpr u32 kRanksPerStep = 8;     ///< Room for ranks is of whole ones.
	constexpr u32 kRankedSize = 8;       ///< Bytes of a record that is ranked.
	constexpr u32 kMaxRankedCount = 112; ///< Records that are ranked at most.

	///@{
	/// Replaces whole steps of counters by their exclusive prefix sums. Those of 8 and 16 bits count 2^8 and 2^16 at
	/// most: a sum of so many is 0, and the sums after it are unspecified.
	VX_API void SumCounters(u8 *counters, u32 count);
	VX_API void SumCounters(u16 *counters, u32 count);
	VX_API void SumCounters(u32 *counters, u32 count);
	///@}

	///@{
	/// Exclusive prefix sums, in place, of counters[i] + others[i]; others may be null. Fast where most counters are
	/// zero. Counts and limits are those of SumCounters.
	VX_API void SumSparseCounters(u8 *counters, const u8 *others, u32 count);
	VX_API void SumSparseCounters(u16 *counters, const u16 *others, u32 count);
	VX_API void SumSparseCounters(u32 *counters, const u32 *others, u32 count);
	///@}

	/// Counts for every record how many of them have a lower key.
	/// records  up to kMaxRankedCount, at any address: a 32-bit key, compared as unsigned, and 32 bits that do not
	///          count. A higher count is reported, and nothing is read or written
	/// ranks    the counts, 16-byte aligned, with room for whole steps: what fills up the last one is written as well
	VX_API void CountLowerKeys(const void *records, u32 count, u32 *ranks);
} // namespace SortLanes

/// Records that a line of the caches holds, one at least.
template<typename _Record>
constexpr u32 kRecordsPerLine = sizeof(_Record) < 64 ? 64 / sizeof(_Record) : 1;

/// The type of the keys that an extractor makes of records.
template<typename _KeyExtractor, typename _Record>
using TExtractedKey =
	std::decay_t<decltype(std::declval<const _KeyExtractor &>().ExtractKey(std::declval<const _Record &>()))>;

/// True for extractors that the sorts below can use: keys are 32-bit integers without sign, as SortKeyType says.
template<typename _KeyExtractor, typename _Record>
constexpr bool kExtractsU32 = std::is_same_v<TExtractedKey<_KeyExtractor, _Record>, u32>
	&&std::is_same_v<typename _KeyExtractor::SortKeyType, u32>;

/// True when two ranges of as many elements share no byte.
template<typename _Type>
bool AreApart(const _Type *a, const _Type *b, u32 count)
{
	const ureg first = reinterpret_cast<ureg>(a);
	const ureg second = reinterpret_cast<ureg>(b);
	return (first < second ? second - first : first - second) >= count * ureg(sizeof(_Type));
}

/// Exchanges two values through a temporary.
template<typename _Type>
VX_INLINE void VXSwap(_Type &a, _Type &b)
{
	const _Type temp = a;
	a = b;
	b = temp;
}

/// The 32-bit key whose unsigned order is the order of signed floats.
template<typename _Scalar>
struct SRadixSortExtractorSignedFP;

/// The same, for single precision.
template<>
struct SRadixSortExtractorSignedFP<float>
{
	typedef u32 SortKeyType; ///< Compared as unsigned.

	/// A float without sign gets the sign bit, one with it is inverted whole (M. Herf, "Radix Tricks", 2001). Negative
	/// zero comes just below positive zero, NaNs beyond the infinities on the side of their sign.
	static VX_INLINE u32 ExtractKey(const float &value)
	{
		u32 bits;
		std::memcpy(&bits, &value, sizeof(bits));
		return ExtractKeyFromBits(bits);
	}

	/// The same of a float's bits.
	static VX_INLINE u32 ExtractKeyFromBits(u32 bits)
	{
		// cppcheck-suppress shiftTooManyBitsSigned ; arithmetic with both compilers
		const u32 negative = u32(s32(bits) >> 31);
		return bits ^ (negative | 0x80000000u);
	}
};

/// Where a sort leaves its result.
enum ESortOutputMode
{
	Sort_InPlace = 0, ///< In the input range.
	Sort_InBuffer = 1 ///< In a range of its own.
};

/// How keys of a width in bytes are cut into digits.
template<u32 _KeyWidth>
struct SRadixKeyIntegralTranslator;

/// The same, for 32 bits.
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
	///@{
	/// How the counters of three digits lie on the stack.
	static constexpr u32 _BaseBits = SRadixKeyIntegralTranslator<4>::RadixDegree;
	static constexpr u32 _BaseSize = 1u << _BaseBits;
	static constexpr u32 _LastBits = 32 - 2 * _BaseBits;
	static constexpr u32 _AntiAliasOffset = 192; // unused counters that keep histograms apart in the cache
	static constexpr u32 _HistogramStride = _BaseSize + _AntiAliasOffset;
	static constexpr u32 _CounterCount = 2 * _HistogramStride + (1u << _LastBits);
	static_assert(_CounterCount == 5504, "22016 bytes of the stack");
	///@}

	///@{
	/// Up to how many records counters are narrower.
	static constexpr u32 kMaxCountIn8Bits = 1u << 8;
	static constexpr u32 kMaxCountIn16Bits = 1u << 16;
	///@}

	/// The output has lain idle since the last frame. Up to about this many records it fits the caches, and is fetched
	/// in order while the keys are counted. Beyond, a record moved to a line fetches the line that its digit needs
	/// next.
	static constexpr u32 kMaxCountInCaches = 1u << 19;

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

		// With few records, most of the time goes into clearing and summing the counters, so they are as narrow as the
		// count allows. Every position that is asked for lies below the count; the one after the last record may wrap
		// to 0.
		if (elementCount <= kMaxCountIn8Bits)
			_SortWith<u8, false>(&*first, &*output, elementCount, keyExtractor);
		else if (elementCount <= kMaxCountIn16Bits)
			_SortWith<u16, false>(&*first, &*output, elementCount, keyExtractor);
		else if (elementCount <= kMaxCountInCaches)
			_SortWith<u32, false>(&*first, &*output, elementCount, keyExtractor);
		else
			_SortWith<u32, true>(&*first, &*output, elementCount, keyExtractor);
	}

	/// Replaces 2^_Bitcount counters by their exclusive prefix sums: counts of a digit become its first position.
	template<u32 _Bitcount, typename _Counter>
	static void SumCounters(_Counter *counters)
	{
		static_assert((sizeof(_Counter) << _Bitcount) % SortLanes::kStepInBytes == 0, "whole steps");
		SortLanes::SumCounters(counters, 1u << _Bitcount);
	}

private:
	static constexpr u32 kRecordsPerStep = 8; // so many in a row, and the processor looks further ahead

	// Where records do not fit the caches, a page is written to at both ends of every digit, and a processor remembers
	// few. Distances have far fewer digits; with more, records seldom wait for each other's positions anyway.
	static constexpr u32 kMaxDigitsFromBothEnds = 256;

	// A histogram lies in the same place, of 4 bytes a counter, whatever the width of its counters.
	template<typename _Counter, bool _BeyondCaches, typename _Record, typename _KeyExtractor>
	static void _SortWith(_Record *records, _Record *sorted, u32 elementCount, const _KeyExtractor &keyExtractor)
	{
		constexpr u32 kCountersPerPlace = 4 / sizeof(_Counter);
		alignas(64) _Counter rawHistograms[_CounterCount * kCountersPerPlace];
		_Counter *const histogram0 = rawHistograms;
		_Counter *const histogram1 = rawHistograms + _HistogramStride * kCountersPerPlace;
		_Counter *const histogram2 = rawHistograms + 2 * _HistogramStride * kCountersPerPlace;

		// Neighbouring particles have similar distances, so consecutive records increment the same counter of the top
		// digit, and each increment waits for the store before it. Processors forward a store of 32 bits to the next
		// load, but not a narrower one: with narrower counters every other record counts in a second histogram, which
		// lies in the unused part of the first one's memory.
		constexpr bool kTakesTurns = sizeof(_Counter) < 4;
		_Counter *const oddHistogram2 = kTakesTurns ? histogram2 + (1u << _LastBits) : nullptr;

		std::memset(histogram0, 0, sizeof(_Counter) << _BaseBits);
		std::memset(histogram1, 0, sizeof(_Counter) << _BaseBits);
		std::memset(histogram2, 0, (kTakesTurns ? 2 : 1) * sizeof(_Counter) << _LastBits);
		_CountDigits<_BeyondCaches>(records, sorted, elementCount, histogram0, histogram1, histogram2,
			kTakesTurns ? oddHistogram2 : histogram2, keyExtractor);

		// The top digits of distances, sign, exponent and a bit, are few and close together.
		SumCounters<_BaseBits>(histogram0);
		SumCounters<_BaseBits>(histogram1);
		SortLanes::SumSparseCounters(histogram2, oddHistogram2, 1u << _LastBits);

		_Scatter<0, _BeyondCaches>(records, sorted, elementCount, histogram0, keyExtractor);
		VX_ASSERT(_AscendsByDigit<0>(sorted, elementCount, keyExtractor));
		_Scatter<1, _BeyondCaches>(sorted, records, elementCount, histogram1, keyExtractor);
		VX_ASSERT(_AscendsByDigit<1>(records, elementCount, keyExtractor));
		if (_BeyondCaches && _UsedDigits(histogram2, elementCount) > kMaxDigitsFromBothEnds)
			_Scatter<2, false>(records, sorted, elementCount, histogram2, keyExtractor);
		else
			_ScatterFromBothEnds(records, sorted, elementCount, histogram2, histogram0, keyExtractor);
		VX_ASSERT(_AscendsByDigit<2>(sorted, elementCount, keyExtractor));
	}

	// Whether the records of every digit end where those of the next one begin.
	template<u32 _Pass, typename _Record, typename _KeyExtractor>
	static bool _AscendsByDigit(const _Record *records, u32 elementCount, const _KeyExtractor &keyExtractor)
	{
		u32 previous = 0;
		for (u32 i = 0; i < elementCount; ++i)
		{
			const u32 digit = _Digit<_Pass>(keyExtractor.ExtractKey(records[i]));
			if (digit < previous)
				return false;
			previous = digit;
		}
		return true;
	}

	template<bool _BeyondCaches, typename _Record, typename _Counter, typename _KeyExtractor>
	static VX_INLINE void _CountDigits(const _Record *records,
		const _Record *sorted,
		u32 elementCount,
		_Counter *histogram0,
		_Counter *histogram1,
		_Counter *histogram2,
		_Counter *oddHistogram2,
		const _KeyExtractor &keyExtractor)
	{
		const auto countOne = [&](const _Record &record, _Counter *topHistogram)
		{
			const u32 key = keyExtractor.ExtractKey(record);
			_Increment(histogram0[_Digit<0>(key)]);
			_Increment(histogram1[_Digit<1>(key)]);
			_Increment(topHistogram[_Digit<2>(key)]);
		};
		const u32 inWholeSteps = elementCount - elementCount % kRecordsPerStep;
		for (u32 i = 0; i < inWholeSteps; i += kRecordsPerStep)
		{
			for (u32 k = 0; k < kRecordsPerStep; ++k)
			{
				if (!_BeyondCaches && (i + k) % kRecordsPerLine<_Record> == 0)
					__builtin_prefetch(sorted + i + k, 1);
				countOne(records[i + k], k % 2 != 0 ? oddHistogram2 : histogram2);
			}
		}
		for (u32 i = inWholeSteps; i < elementCount; ++i)
			countOne(records[i], histogram2);
	}

	template<typename _Counter>
	static VX_INLINE void _Increment(_Counter &counter)
	{
		counter = _Counter(counter + 1);
	}

	template<u32 _Pass>
	static VX_INLINE u32 _Digit(u32 key)
	{
		constexpr u32 kShift = _Pass * _BaseBits;
		if constexpr (kShift + _BaseBits >= 32)
			return key >> kShift;
		else
			return (key >> kShift) & (_BaseSize - 1);
	}

	// A record on its way, and the digit that says where to. g++ moves a structure of two numbers number by number,
	// unless told that it is one word.
	template<u32 _Pass, typename _Record>
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
			m_Digit = _Digit<_Pass>(keyExtractor.ExtractKey(record));
		}
		VX_INLINE void StoreTo(_Record *to) const { std::memcpy(to, &m_Word, sizeof(_Record)); }

		Word m_Word;
		u32 m_Digit;
	};

	// Of the last digit's first positions.
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
	template<u32 _Pass, bool _FetchesNextLine, typename _Record, typename _Counter, typename _KeyExtractor>
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
				_Move<_Pass, _FetchesNextLine>(source + k, destination, elementCount, positions, keyExtractor);
		}
		for (; source != end; ++source)
			_Move<_Pass, false>(source, destination, elementCount, positions, keyExtractor);

		// The position behind the last digit's records is the sum of all counters. Sums behind one that has wrapped are
		// unspecified.
		VX_ASSERT(_Counter(elementCount) == 0 || positions[_Digit<_Pass>(~0u)] == _Counter(elementCount));
	}

	template<u32 _Pass, bool _FetchesNextLine, typename _Record, typename _Counter, typename _KeyExtractor>
	static VX_INLINE void _Move(const _Record *__restrict source,
		_Record *__restrict destination,
		[[maybe_unused]] u32 elementCount,
		_Counter *__restrict positions,
		const _KeyExtractor &keyExtractor)
	{
		const _SMoving<_Pass, _Record> moving(source, keyExtractor);
		const u32 place = positions[moving.m_Digit];
		VX_ASSERT(place < elementCount);
		positions[moving.m_Digit] = _Counter(place + 1);
		if constexpr (_FetchesNextLine)
			__builtin_prefetch(destination + place + kRecordsPerLine<_Record>, 1);
		moving.StoreTo(destination + place);
	}

	// The same for the last digit. Where few are in use, a position is asked for again before its store has reached the
	// cache. So the first half of the records goes to the digits' first places upwards and the second half to their
	// last places downwards, neither waiting for the other, and two records take their places together. What lies
	// behind a digit's places is kept in ends, 2^_LastBits counters in memory of the caller's.
	template<typename _Record, typename _Counter, typename _KeyExtractor>
	static void _ScatterFromBothEnds(const _Record *__restrict source,
		_Record *__restrict destination,
		u32 elementCount,
		_Counter *__restrict positions,
		_Counter *__restrict ends,
		const _KeyExtractor &keyExtractor)
	{
		constexpr u32 kLastDigit = (1u << _LastBits) - 1;
		std::memcpy(ends, positions + 1, kLastDigit * sizeof(_Counter));
		ends[kLastDigit] = _Counter(elementCount);

		const _Record *end = source + elementCount;
		for (u32 steps = elementCount / kRecordsPerStep; steps != 0; --steps)
		{
			for (u32 k = 0; k < kRecordsPerStep / 2; k += 2)
			{
				_MoveTwoUp(source + k, destination, elementCount, positions, keyExtractor);
				_MoveTwoDown(end - k, destination, elementCount, ends, keyExtractor);
			}
			source += kRecordsPerStep / 2;
			end -= kRecordsPerStep / 2;
		}
		for (; source != end; ++source)
			_Move<2, false>(source, destination, elementCount, positions, keyExtractor);
		// The records placed upwards and those placed downwards have met.
		VX_ASSERT(_Counter(elementCount) == 0 || std::equal(positions, positions + kLastDigit + 1, ends));
	}

	// The two records from source on, whose digits are equal or not.
	template<typename _Record, typename _Counter, typename _KeyExtractor>
	static VX_INLINE void _MoveTwoUp(const _Record *__restrict source,
		_Record *__restrict destination,
		[[maybe_unused]] u32 elementCount,
		_Counter *__restrict positions,
		const _KeyExtractor &keyExtractor)
	{
		const _SMoving<2, _Record> first(source, keyExtractor);
		const _SMoving<2, _Record> second(source + 1, keyExtractor);
		const u32 firstPlace = positions[first.m_Digit];
		const u32 secondPlace = positions[second.m_Digit] + u32(first.m_Digit == second.m_Digit);
		VX_ASSERT(firstPlace < elementCount && secondPlace < elementCount);
		positions[first.m_Digit] = _Counter(firstPlace + 1);
		positions[second.m_Digit] = _Counter(secondPlace + 1);
		first.StoreTo(destination + firstPlace);
		second.StoreTo(destination + secondPlace);
	}

	// The two records before source, the nearer one first. An end may have wrapped to 0.
	template<typename _Record, typename _Counter, typename _KeyExtractor>
	static VX_INLINE void _MoveTwoDown(const _Record *__restrict source,
		_Record *__restrict destination,
		[[maybe_unused]] u32 elementCount,
		_Counter *__restrict ends,
		const _KeyExtractor &keyExtractor)
	{
		const _SMoving<2, _Record> first(source - 1, keyExtractor);
		const _SMoving<2, _Record> second(source - 2, keyExtractor);
		const _Counter firstPlace = _Counter(s64(ends[first.m_Digit]) - 1);
		const _Counter secondPlace = _Counter(s64(ends[second.m_Digit]) - 1 - s64(first.m_Digit == second.m_Digit));
		VX_ASSERT(firstPlace < elementCount && secondPlace < elementCount);
		ends[first.m_Digit] = firstPlace;
		ends[second.m_Digit] = secondPlace;
		first.StoreTo(destination + firstPlace);
		second.StoreTo(destination + secondPlace);
	}
};

/// The order that < and == of the elements give, from low to high.
struct TSortLowToHigh
{
	///@{
	/// What the elements' own operator says.
	template<typename _Type>
	static VX_INLINE bool Less(const _Type &a, const _Type &b)
	{
		return a < b;
	}
	template<typename _Type>
	static VX_INLINE bool Equal(const _Type &a, const _Type &b)
	{
		return a == b;
	}
	///@}
};

/// Compares what two iterators point at.
template<typename _Iterator, typename _Order = TSortLowToHigh>
struct TSortDefaultCompare
{
	///@{
	/// What the order says of the two elements.
	static VX_INLINE bool Less(const _Iterator &a, const _Iterator &b) { return _Order::Less(*a, *b); }
	static VX_INLINE bool Equal(const _Iterator &a, const _Iterator &b) { return _Order::Equal(*a, *b); }
	///@}
};

/// Compares the keys that an extractor makes of what two iterators point at.
template<typename _Iterator, typename _KeyExtractor>
struct TSortKeyCompare
{
	///@{
	/// By key alone, as unsigned.
	static VX_INLINE bool Less(const _Iterator &a, const _Iterator &b) { return _Key(a) < _Key(b); }
	static VX_INLINE bool Equal(const _Iterator &a, const _Iterator &b) { return _Key(a) == _Key(b); }
	///@}

private:
	static VX_INLINE u32 _Key(const _Iterator &iterator) { return _KeyExtractor{}.ExtractKey(*iterator); }
};

/// The comparisons that a _Compare has for the iterators: not every template argument that names a type is one.
template<typename _Compare, typename _Iterator>
using TEnableIfCompares = std::enable_if_t<
	std::is_same_v<bool, decltype(_Compare::Less(std::declval<_Iterator>(), std::declval<_Iterator>()))>>;

/// Sorts the inclusive range [lo, hi] in place by moving its maximum to the end, over and over; among equal maxima the
/// lowest position wins. For ranges of a dozen.
template<typename _Compare, typename _Iterator, typename = TEnableIfCompares<_Compare, _Iterator>>
VX_INLINE void InsertionSort(_Iterator lo, _Iterator hi)
{
	for (; hi > lo; --hi)
	{
		_Iterator max = hi;
		for (_Iterator p = hi; p != lo;)
		{
			--p;
			if (!_Compare::Less(p, max))
				max = p;
		}
		if (max != hi)
			VXSwap(*max, *hi);
	}
}

/// The same in the elements' own order.
template<typename _Iterator>
void InsertionSort(_Iterator lo, _Iterator hi)
{
	InsertionSort<TSortDefaultCompare<_Iterator>>(lo, hi);
}

/// Sorts [first, last) in place: median-of-three quick sort without recursion, the larger part deferred. Not stable;
/// the same input always gives the same order of equal keys, which follows from the exact steps below.
template<typename _Compare, typename _Iterator, typename = TEnableIfCompares<_Compare, _Iterator>>
void QuickSort(_Iterator first, _Iterator last)
{
	constexpr u32 kMaxInsertionSortCount = 12;
	constexpr u32 kMaxPendingRanges = 28; // each deferred part is the larger one, so depth grows with the logarithm

	if (s32(last - first) < 2)
		return;

	_Iterator loStack[kMaxPendingRanges] = {};
	_Iterator hiStack[kMaxPendingRanges] = {};
	s32 stackId = 0;
	_Iterator lo = first;
	_Iterator hi = last - 1;

	for (;;)
	{
		const u32 size = u32(hi - lo) + 1;
		if (size > kMaxInsertionSortCount)
		{
			_Iterator mid = lo + int(size / 2);
			if (_Compare::Less(mid, lo))
				VXSwap(*lo, *mid);
			if (_Compare::Less(hi, lo))
				VXSwap(*lo, *hi);
			if (_Compare::Less(hi, mid))
				VXSwap(*mid, *hi);

			// mid follows the pivot record wherever a swap takes it.
			_Iterator loElem = lo;
			_Iterator hiElem = hi;
			for (;;)
			{
				if (mid > loElem)
				{
					do
						++loElem;
					while (loElem < mid && !_Compare::Less(mid, loElem));
				}
				if (mid <= loElem)
				{
					do
						++loElem;
					while (loElem <= hi && !_Compare::Less(mid, loElem));
				}
				do
					--hiElem;
				while (hiElem > mid && _Compare::Less(mid, hiElem));

				if (hiElem < loElem)
					break;
				VXSwap(*loElem, *hiElem);
				if (mid == hiElem)
					mid = loElem;
			}

			// Records equal to the pivot are in place and belong to neither part.
			++hiElem;
			if (mid < hiElem)
			{
				do
					--hiElem;
				while (hiElem > mid && _Compare::Equal(hiElem, mid));
			}
			if (mid >= hiElem)
			{
				do
					--hiElem;
				while (hiElem > lo && _Compare::Equal(hiElem, mid));
			}

			// Defer the larger part, go on with the smaller one.
			if (s32(hi - loElem) > s32(hiElem - lo))
			{
				if (loElem < hi)
				{
					loStack[stackId] = loElem;
					hiStack[stackId] = hi;
					++stackId;
				}
				if (lo < hiElem)
				{
					hi = hiElem;
					continue;
				}
			}
			else
			{
				if (lo < hiElem)
				{
					loStack[stackId] = lo;
					hiStack[stackId] = hiElem;
					++stackId;
				}
				if (loElem < hi)
				{
					lo = loElem;
					continue;
				}
			}
		}
		else
		{
			InsertionSort<_Compare>(lo, hi);
		}

		if (stackId == 0)
			return;
		--stackId;
		lo = loStack[stackId];
		hi = hiStack[stackId];
	}
}

/// The same in the elements' own order.
template<typename _Iterator>
void QuickSort(_Iterator first, _Iterator last)
{
	QuickSort<TSortDefaultCompare<_Iterator>>(first, last);
}

constexpr u32 kMaxQuickSortCount = 109; ///< Above it the radix sort's fixed cost, clearing 22 KB of counters, pays off.

/// True for extractors whose key is the first 32-bit word of a record of two words, as it stands. They say so in a
/// kKeyIsFirstOfTwoWords.
template<typename _KeyExtractor, typename = void>
constexpr bool kKeyIsFirstOfTwoWords = false;
/// The same, where it is said.
template<typename _KeyExtractor>
constexpr bool kKeyIsFirstOfTwoWords<_KeyExtractor, std::enable_if_t<_KeyExtractor::kKeyIsFirstOfTwoWords>> = true;

/// Sorts records of a key and 32 bits more into output and returns true if their keys are distinct. With equal keys
/// among them, or more than SortLanes::kMaxRankedCount records, nothing is written and false returned. A record's place
/// is the number of lower keys, counted for sixteen records at a time without a branch to mispredict: far faster than
/// the quick sort at these sizes, and cheap beside it where it fails. Distinct keys have but one order, so it is the
/// quick sort's.
template<typename _Iterator>
bool CountingRankSort(_Iterator first, u32 count, _Iterator output)
{
	typedef std::decay_t<decltype(*output)> Record;
	static_assert(sizeof(Record) == SortLanes::kRankedSize, "a key and as many bytes");
	static_assert(kMaxQuickSortCount <= SortLanes::kMaxRankedCount, "all fit");
	alignas(16) u32 ranks[SortLanes::kMaxRankedCount];
	if (count == 0)
		return true;
	if (count > SortLanes::kMaxRankedCount)
		return false;

	// The output has lain idle since the last frame. A few stores wait for their lines aside, more hold everything up.
	constexpr u32 kMaxWaitingStores = 64;
	if (count > kMaxWaitingStores)
	{
		for (u32 i = 0; i < count; i += kRecordsPerLine<Record>)
			__builtin_prefetch(&*(output + s32(i)), 1);
	}

	SortLanes::CountLowerKeys(&*first, count, ranks);

	// Every pair of distinct keys adds to one of its records' ranks; a pair of equal ones adds to none.
	u32 rankSum = 0;
	for (u32 i = 0; i < count; ++i)
		rankSum += ranks[i]; // cppcheck-suppress uninitvar ; counted above
	if (2 * rankSum + count != count * count)
		return false;

	constexpr u32 kStep = 4; // a loop of one would depend on where it lies in the instruction cache's lines
	const u32 inWholeSteps = count - count % kStep;
	for (u32 i = 0; i < inWholeSteps; i += kStep)
	{
		for (u32 k = i; k < i + kStep; ++k)
		{
			VX_ASSERT(ranks[k] < count);
			output[s32(ranks[k])] = first[s32(k)];
		}
	}
	for (u32 i = inWholeSteps; i < count; ++i)
	{
		VX_ASSERT(ranks[i] < count);
		output[s32(ranks[i])] = first[s32(i)];
	}
	return true;
}

/// Sorts [first, last) into output in ascending order of the keys that a _KeyExtractor makes of records: u32, compared
/// as unsigned. A record's own operators do not matter.
/// first, last  contiguous records; left as they are up to kMaxQuickSortCount, in an intermediate order above
/// output       as many records, apart from the input
/// Equal keys   in input order above kMaxQuickSortCount, in the quick sort's own order up to it
template<typename _KeyExtractor, typename _Iterator>
void Sort(_Iterator first, _Iterator last, _Iterator output)
{
	static_assert(kExtractsU32<_KeyExtractor, std::decay_t<decltype(*first)>>, "keys are u32");
	const u32 count = u32(last - first);
	const _KeyExtractor keyExtractor{};
	if (count > kMaxQuickSortCount)
	{
		TRadixSort<Sort_InBuffer>::Sort11(first, last, output, keyExtractor);
		return;
	}
	VX_ASSERT(count == 0 || AreApart(&*first, &*output, count));
	if constexpr (kKeyIsFirstOfTwoWords<_KeyExtractor>)
	{
		if (CountingRankSort(first, count, output))
			return;
	}
	for (u32 i = 0; i < count; ++i)
		output[s32(i)] = first[s32(i)];
	QuickSort<TSortKeyCompare<_Iterator, _KeyExtractor>>(output, output + int(count));
}
} // namespace Vexmoor
