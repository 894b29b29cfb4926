#pragma once

// Ordering of keyed records: Sort, which chooses between the sorts of the headers below. None allocates. Records are
// moved whole; only their keys count.

#include "vx_assert.h"
#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_sort_few.h"
#include "kr_sort_lanes.h"
#include "kr_sort_quick.h"
#include "kr_sort_radix.h"
#include "kr_sort_ranks.h"
#include "kr_sort_records.h"

#include <type_traits>

namespace Vexmoor
{
/// Up to this count equal keys come in the quick sort's order, and above it in input order. Which of the sorts does the
/// work is a matter of speed, but this count is part of the result.
constexpr u32 kMaxQuickSortCount = 109;
static_assert(kMaxQuickSortCount <= SortLanes::kMaxRankedCount, "all can be ranked");
static_assert(kMaxQuickSortCount <= TRadixSort<Sort_InBuffer>::kMaxCountIn8Bits, "SortByTopBits takes all");

/// Puts records in order that nearly are, by insertion: TRadixSort::SortByTopBits leaves keys that differ by little
/// next to each other, the higher one first perhaps. Returns true if all keys are distinct. At two equal keys, or after
/// moving as many records as there are, it gives up and returns false; what the records are then is unspecified.
template<typename _KeyExtractor, typename _Iterator>
bool FinishDistinct(_Iterator first, u32 count)
{
	typedef std::decay_t<decltype(*first)> Record;
	const _KeyExtractor keyExtractor{};
	const auto keyAt = [&](u32 i) { return keyExtractor.ExtractKey(first[s32(i)]); };
	u32 moveCount = 0;
	for (u32 i = 1; i < count; ++i)
	{
		if (keyAt(i - 1) < keyAt(i))
			continue;
		const Record record = first[s32(i)];
		const u32 key = keyExtractor.ExtractKey(record);
		u32 place = i;
		for (; place != 0 && keyAt(place - 1) > key; --place)
		{
			if (moveCount++ == count)
				return false;
			first[s32(place)] = first[s32(place - 1)];
		}
		if (place != 0 && keyAt(place - 1) == key)
			return false;
		first[s32(place)] = record;
	}
	return true;
}

/// Compares the first two keys, and two in the middle, and returns true if either two are equal. Keys that are equal at
/// all often come in runs: a page's particles may share one value, or those that were emitted together.
template<typename _KeyExtractor, typename _Iterator>
VX_INLINE bool LooksLikeRuns(_Iterator first, u32 count)
{
	constexpr u32 kMinCount = 64; // of fewer records with distinct keys, a look takes up to 4 % more
	if (count < kMinCount)
		return false;
	const _KeyExtractor keyExtractor{};
	const auto equalsNext = [&](u32 i)
	{ return keyExtractor.ExtractKey(first[s32(i)]) == keyExtractor.ExtractKey(first[s32(i + 1)]); };
	return equalsNext(0) || equalsNext(count / 2);
}

/// Sorts up to kMaxQuickSortCount records of two words into output and returns true if their keys are distinct.
/// Otherwise it returns false, which it may also do for distinct keys of which many differ by very little, and what
/// output holds is unspecified. Distinct keys have one order whoever finds it, and all ways here find it several times
/// as fast as the quick sort:
///
///   records                           128 bits                     256 bits and more
///   kMaxFewCount, 6                   a network in general-purpose registers
///   MaxCountWorthRanking, 88 or 104   ranking                      ranking
///   kMaxQuickSortCount, 109           radix sort of the top bits   networks in lanes
template<typename _KeyExtractor, typename _Iterator>
VX_INLINE bool SortDistinct(_Iterator first, u32 count, _Iterator output)
{
	if (LooksLikeRuns<_KeyExtractor>(first, count))
		return false;
	// Below what any registers say: for few records, asking takes a nanosecond too much.
	constexpr u32 kAlwaysRanked = 64;
	if (VX_LIKELY(count <= kAlwaysRanked || count <= SortLanes::MaxCountWorthRanking()))
		return CountingRankSort(first, count, output);
	bool areDistinct;
	if (SortLanes::SortDistinctByNetwork(&*first, count, &*output, areDistinct))
		return areDistinct;
	TRadixSort<Sort_InBuffer>::SortByTopBits(first, count, output, _KeyExtractor{});
	return FinishDistinct<_KeyExtractor>(output, count);
}

/// Sorts [first, last) into output in ascending order of the keys that a _KeyExtractor makes of records: u32, compared
/// as unsigned. A record's own operators do not matter.
/// first, last  contiguous records; left as they are up to kMaxQuickSortCount, in an intermediate order above
/// output       as many records, apart from the input
/// Equal keys   in input order above kMaxQuickSortCount, in the quick sort's own order up to it
template<typename _KeyExtractor, typename _Iterator>
VX_HOT_CODE void Sort(_Iterator first, _Iterator last, _Iterator output)
{
	static_assert(kExtractsU32<_KeyExtractor, std::decay_t<decltype(*first)>>, "keys are u32");
	const u32 count = u32(last - first);
	const _KeyExtractor keyExtractor{};
	if (VX_UNLIKELY(count > kMaxQuickSortCount))
	{
		TRadixSort<Sort_InBuffer>::Sort11(first, last, output, keyExtractor);
		return;
	}
	VX_ASSERT(count == 0 || AreApart(&*first, &*output, count));
	if constexpr (kKeyIsFirstOfTwoWords<_KeyExtractor>)
	{
		if (VX_UNLIKELY(count <= kMaxFewCount))
		{
			// For two records, the call would take a fifth of the time.
			const bool isSorted = count == 2 ? SortCountDistinct<2>(&*first, &*output)
			                                 : count == 0 || SortFewDistinct(&*first, count, &*output);
			if (isSorted)
				return;
		}
		else if (VX_LIKELY(SortDistinct<_KeyExtractor>(first, count, output)))
		{
			return;
		}
	}
	for (u32 i = 0; i < count; ++i)
		output[s32(i)] = first[s32(i)];
	QuickSort<TSortKeyCompare<_Iterator, _KeyExtractor>>(output, output + int(count));
}
} // namespace Vexmoor
