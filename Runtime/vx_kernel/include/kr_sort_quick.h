#pragma once

// The quick sort, for few records. It is not stable: which of two equal keys comes first follows from every step below,
// and is part of the result. So no step may change, and neither may a constant of it.
//
// In the sorter it takes up to 109 records of which some have equal keys. Distinct keys have one order whoever finds
// it, so kr_sort.h finds it in faster ways.

#include "vx_compiler.h"
#include "vx_defs.h"

#include <type_traits>
#include <utility>

namespace Vexmoor
{
/// Exchanges two values through a temporary.
template<typename _Type>
VX_INLINE void VXSwap(_Type &a, _Type &b)
{
	const _Type temp = a;
	a = b;
	b = temp;
}

/// The order that < and == of the elements give, from low to high.
struct TSortLowToHigh
{
	///@{
	/// By the elements' own operator.
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

/// Compares the elements that two iterators point at.
template<typename _Iterator, typename _Order = TSortLowToHigh>
struct TSortDefaultCompare
{
	///@{
	/// By _Order.
	static VX_INLINE bool Less(const _Iterator &a, const _Iterator &b) { return _Order::Less(*a, *b); }
	static VX_INLINE bool Equal(const _Iterator &a, const _Iterator &b) { return _Order::Equal(*a, *b); }
	///@}
};

/// Compares the keys that an extractor makes of the elements that two iterators point at.
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

/// Removes an overload whose _Compare cannot compare what the iterators point at: InsertionSort<_Iterator>(lo, hi) must
/// not take its iterator for a comparison.
template<typename _Compare, typename _Iterator>
using TEnableIfCompares = std::enable_if_t<
	std::is_same_v<bool, decltype(_Compare::Less(std::declval<_Iterator>(), std::declval<_Iterator>()))>>;

/// Sorts the inclusive range [lo, hi] in place, for up to a dozen elements: swaps the maximum with the last element,
/// then goes on without the last element. Among equal maxima the one at the lowest position is swapped.
///
///   4 2 9 5      9 is the maximum, and changes places with the last element
///   4 2 5 | 9    5 is the maximum of the rest, and stays
///   4 2 | 5 9    4 changes places with 2
///   2 | 4 5 9
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

/// Sorts in the order of the elements' own operators.
template<typename _Iterator>
void InsertionSort(_Iterator lo, _Iterator hi)
{
	InsertionSort<TSortDefaultCompare<_Iterator>>(lo, hi);
}

/// Sorts [first, last) in place: a median-of-three quick sort without recursion or heap. Not stable, but the same input
/// always gives the same order of equal keys.
template<typename _Compare, typename _Iterator, typename = TEnableIfCompares<_Compare, _Iterator>>
void QuickSort(_Iterator first, _Iterator last)
{
	// The larger part of a range is deferred, so the range that goes on at least halves with every part that is
	// pending: 2^31 records are down to 8, which the insertion sort takes, after 28 halvings.
	// kMaxInsertionSortCount is part of the result: with another one, equal keys would come in another order.
	constexpr u32 kMaxInsertionSortCount = 12;
	constexpr u32 kMaxPendingRanges = 28;

	// In an empty range, hi would lie before lo.
	if (s32(last - first) < 2)
		return;

	_Iterator loStack[kMaxPendingRanges] = {};
	_Iterator hiStack[kMaxPendingRanges] = {};
	// lo and hi are the range that is worked on, both ends included. The stacks have the ranges that are pending.
	s32 stackId = 0;
	_Iterator lo = first;
	_Iterator hi = last - 1;

	for (;;)
	{
		const u32 size = u32(hi - lo) + 1;
		if (size > kMaxInsertionSortCount)
		{
			// The pivot is the median of the first, the middle and the last element. It stays in the middle, and the
			// other two are on their sides:
			//
			//   before   lo = 7    mid = 2    hi = 5
			//   after    lo = 2    mid = 5    hi = 7
			_Iterator mid = lo + int(size / 2);
			if (_Compare::Less(mid, lo))
				VXSwap(*lo, *mid);
			if (_Compare::Less(hi, lo))
				VXSwap(*lo, *hi);
			if (_Compare::Less(hi, mid))
				VXSwap(*mid, *hi);

			// Elements lower than the pivot go below it, higher ones above it. A swap can move the pivot; mid follows
			// it.
			//
			//   lo          loElem ->       mid         <- hiElem          hi
			//   | not higher | not looked at | not looked at | not lower   |
			_Iterator loElem = lo;
			_Iterator hiElem = hi;
			for (;;)
			{
				// Up to the next element that is higher than the pivot: first below the pivot, then above it. The pivot
				// itself is passed over, as it is not higher.
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
				// Down to the next element that is not higher than the pivot.
				do
					--hiElem;
				while (hiElem > mid && _Compare::Less(mid, hiElem));

				// Nothing is left between the two. hiElem is in the lower part, loElem in the upper one.
				if (hiElem < loElem)
					break;
				VXSwap(*loElem, *hiElem);
				// The swap has moved the pivot to loElem.
				if (mid == hiElem)
					mid = loElem;
			}

			// Elements equal to the pivot that lie next to it are in place and belong to neither part.
			//
			//   lo                    hiElem    loElem                      hi
			//   | lower part          | equals  | upper part                |
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

			// Defer the larger part, go on with the smaller one. A part of one element is in order, so it is neither
			// deferred nor gone on with.
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

		// The range is in order. The next one is the last that was deferred.
		if (stackId == 0)
			return;
		--stackId;
		lo = loStack[stackId];
		hi = hiStack[stackId];
	}
}

/// Sorts in the order of the elements' own operators.
template<typename _Iterator>
void QuickSort(_Iterator first, _Iterator last)
{
	QuickSort<TSortDefaultCompare<_Iterator>>(first, last);
}
} // namespace Vexmoor
