#pragma once

// Ordering of keyed records: Sort, which chooses between the sorts of the headers below. None allocates. Records are
// moved whole; only their keys count.

#include "vx_assert.h"
#include "vx_compiler.h"
#include "vx_defs.h"

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
static_assert(kMaxQuickSortCount <= TRadixSort<Sort_InBuffer>::kMaxCountIn8Bits, "Sort8 takes all");

/// True if two neighbours of the records, which are in the order of their keys, have equal keys. Leaves at the first
/// such pair, which also keeps compilers from loading several records at once: after a scatter, such a load would wait
/// until the stores of all its records have reached the cache.
template<typename _KeyExtractor, typename _Iterator>
bool HasEqualNeighbours(_Iterator first, u32 count)
{
	const _KeyExtractor keyExtractor{};
	for (u32 i = 1; i < count; ++i)
	{
		if (keyExtractor.ExtractKey(first[s32(i - 1)]) == keyExtractor.ExtractKey(first[s32(i)]))
			return true;
	}
	return false;
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

/// Sorts up to kMaxQuickSortCount records of two words into output and returns true if their keys are distinct. With
/// equal keys it returns false, and what output holds is unspecified. Distinct keys have one order whoever finds it,
/// and both ways here find it several times as fast as the quick sort.
template<typename _KeyExtractor, typename _Iterator>
bool SortDistinct(_Iterator first, u32 count, _Iterator output)
{
	if (LooksLikeRuns<_KeyExtractor>(first, count))
		return false;
	constexpr u32 kAlwaysRanked =
		64; // below what any registers say: for few records asking takes a nanosecond too much
	if (count <= kAlwaysRanked || count <= SortLanes::MaxCountWorthRanking())
		return CountingRankSort(first, count, output);
	TRadixSort<Sort_InBuffer>::Sort8(first, count, output, _KeyExtractor{});
	return !HasEqualNeighbours<_KeyExtractor>(output, count);
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
		if (SortDistinct<_KeyExtractor>(first, count, output))
			return;
	}
	for (u32 i = 0; i < count; ++i)
		output[s32(i)] = first[s32(i)];
	QuickSort<TSortKeyCompare<_Iterator, _KeyExtractor>>(output, output + int(count));
}
} // namespace Vexmoor
