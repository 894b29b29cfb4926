#pragma once

// A sort of few records with distinct keys: a record's place in the order is the number of lower keys, its rank.

#include "vx_assert.h"
#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_sort_lanes.h"
#include "kr_sort_records.h"

#include <type_traits>

namespace Vexmoor
{
/// Sorts records of a key and 32 bits more into output and returns true if their keys are distinct. With equal keys
/// among them, or more than SortLanes::kMaxRankedCount records, nothing is written and false returned. Every key is
/// compared with every other one, without a branch to mispredict. That is quadratic, and still the fastest way up to
/// SortLanes::MaxCountWorthRanking() records; with equal keys little is lost beside the quick sort that follows.
///
///   keys      5    2    9    4
///   ranks     2    0    3    1         how many keys are lower
///   output    2    4    5    9         record k goes to place ranks[k]
template<typename _Iterator>
VX_INLINE bool CountingRankSort(_Iterator first, u32 count, _Iterator output)
{
	typedef std::decay_t<decltype(*output)> Record;
	static_assert(sizeof(Record) == SortLanes::kRankedSize, "a key and as many bytes");
	// Room for whole steps of ranks: what fills up the last step gets ranks as well, which nobody reads. Kernels load
	// ranks that they have just stored. If a register of them lay in two cache lines, such a load would wait until the
	// store has left the store buffer: 13 to 20 records then took up to twice as long on an AMD EPYC (family 26).
	alignas(64) u32 ranks[SortLanes::kMaxRankedCount];
	if (VX_UNLIKELY(count == 0))
		return true;
	if (VX_UNLIKELY(count > SortLanes::kMaxRankedCount))
		return false;

	// The output has lain idle since the last frame. Stores wait for their lines in the processor's store buffer, which
	// has some 56 to 72 entries; when it is full, everything waits. With more records their lines are fetched early.
	constexpr u32 kMaxWaitingStores = 64;
	if (count > kMaxWaitingStores)
	{
		for (u32 i = 0; i < count; i += kRecordsPerLine<Record>)
			VX_PREFETCH_TO_WRITE(&*(output + s32(i)));
	}

	SortLanes::CountLowerKeys(&*first, count, ranks);

	// Every pair of distinct keys adds 1 to one of its records' ranks; a pair of equal keys adds nothing.
	u32 rankSum = 0;
	for (u32 i = 0; i < count; ++i)
		rankSum += ranks[i]; // cppcheck-suppress uninitvar ; counted above
	// With all keys distinct, the ranks are 0 to count - 1 in some order, whose sum is count * (count - 1) / 2.
	if (VX_UNLIKELY(2 * rankSum + count != count * count))
		return false;

	constexpr u32 kMovesPerStep = 4; // a loop of one would depend on where it lies in the instruction cache's lines
	const u32 inWholeSteps = count - count % kMovesPerStep;
	for (u32 i = 0; i < inWholeSteps; i += kMovesPerStep)
	{
		for (u32 k = i; k < i + kMovesPerStep; ++k)
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
} // namespace Vexmoor
