// The functions that the module exports. vexmoor.js calls them and has checked every argument before. A sorter is one
// block of memory that is taken once, so a sort takes none. A sort is a point sort of one page: its records are filled,
// sorted and expanded, each by the sorter's public function for that stage; millions of them part by part, and, in the
// module that has threads, many of them by all threads together.

#include "ge_mesh_triangle_sorter.h"

#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_memoryviews.h"
#include "kr_sort.h"

#include "pv_export.h"
#include "pv_particle_split.h"
#include "pv_thread_sort.h"
#include "pv_threads.h"
#include "pv_two_digit_sort.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

using namespace Vexmoor;

namespace
{
// The arrays of a block, in the order in which they lie.
enum EArray
{
	Array_Pattern,
	Array_SortKeys, // three floats per particle by position, one by value
	Array_Enableds, // a byte per particle, or nothing
	Array_Indices,
	Array_Sorted,   // records in drawing order
	Array_Records,  // records as they are filled
	Array_Counters, // of digits, and what else a large sort keeps
	Array_Count
};

struct SPointSorter
{
	bool m_ByPosition;
	bool m_HasEnableds;
	bool m_Has16BitIndices;
	u32 m_PatternCount;
	u32 m_VerticesPerParticle;
	u32 m_Offsets[Array_Count]; // of the arrays, in bytes from the sorter, which comes first in the block

	template<typename _Type>
	_Type *Array(EArray array)
	{
		return reinterpret_cast<_Type *>(reinterpret_cast<u8 *>(this) + m_Offsets[array]);
	}
};

constexpr u32 kAlignment = 64; // of every array: a cache line, and more than the 16 bytes that records need

// The heap grows by signed 32-bit numbers of bytes.
constexpr u64 kMaxBlockSize = (u64(1) << 31) - (1u << 20); // with room for the heap's own words

u64 RoundedUp(u64 bytes)
{
	return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

// Below this many records, two passes take longer to clear and sum up their counters than a third pass takes.
constexpr u32 kMinInTwoPasses = VEXMOOR_MIN_RECORDS_OF_ONE_JOB;

// The other modules have no room for two passes: they would be larger than a page should load.
constexpr bool kHasTwoPasses = VX_WASM_SIMD && !kHasThreads;

// Whether so many particles may be split. The module with threads leaves that out: it sorts so many on the calling
// thread alone only after losing the others.
bool MaySplit(u32 count)
{
	return !kHasThreads && count >= CParticleSplit::kMinCount;
}

// Bytes of counters, for all the ways that sorts of up to as many particles take.
u64 CountersSize(u32 capacity)
{
	if constexpr (kHasThreads)
		return CThreadSort::MemorySize(capacity, ThreadCount());
	const u64 inTwoPasses =
		kHasTwoPasses && capacity >= kMinInTwoPasses ? TwoDigitWordCount(capacity) * sizeof(u32) : 0;
	return MaySplit(capacity) ? std::max(inTwoPasses, CParticleSplit::MemorySize(capacity)) : inTwoPasses;
}
} // namespace

// The library's version, 10203 for 1.2.3.
VX_WEB_EXPORT(version) u32 version()
{
	return VX_VERSION;
}

// Whether lanes are those of WebAssembly's 128-bit SIMD.
VX_WEB_EXPORT(has_simd) bool has_simd()
{
	return VX_WASM_SIMD;
}

// Takes a block for a sorter of capacity particles, whose pattern the caller then writes. Positions or values are 0 and
// enabled bytes are 1. Returns null where the memory has no room for the block.
VX_WEB_EXPORT(create)
SPointSorter *create(
	u32 capacity, bool byPosition, bool hasEnableds, bool has16BitIndices, u32 patternCount, u32 verticesPerParticle)
{
	const u64 particleCount = capacity;
	const u64 recordCount = MaySplit(capacity) ? CParticleSplit::BlocksSize(capacity) : capacity;
	const u64 sizes[Array_Count] = {
		RoundedUp(u64(patternCount) * sizeof(u32)),
		RoundedUp(particleCount * (byPosition ? sizeof(CFloat3) : sizeof(float))),
		RoundedUp(hasEnableds ? particleCount : 0),
		RoundedUp(particleCount * patternCount * (has16BitIndices ? sizeof(u16) : sizeof(u32))),
		RoundedUp(particleCount * sizeof(SIndexAndDepth)),
		RoundedUp(recordCount * sizeof(SIndexAndDepth)),
		RoundedUp(CountersSize(capacity)),
	};
	SPointSorter sorter = {byPosition, hasEnableds, has16BitIndices, patternCount, verticesPerParticle, {}};
	u64 size = RoundedUp(sizeof(SPointSorter));
	for (u32 array = 0; array < Array_Count; ++array)
	{
		sorter.m_Offsets[array] = u32(size);
		size += sizes[array];
		if (size > kMaxBlockSize)
			return null;
	}
	void *const block = std::aligned_alloc(kAlignment, std::size_t(size));
	if (block == null)
		return null;
	SPointSorter *const created = static_cast<SPointSorter *>(block);
	*created = sorter;
	std::memset(created->Array<u8>(Array_SortKeys), 0, std::size_t(sizes[Array_SortKeys]));
	std::memset(created->Array<u8>(Array_Enableds), 1, std::size_t(sizes[Array_Enableds]));
	return created;
}

// Gives a sorter's block back.
VX_WEB_EXPORT(release) void release(SPointSorter *sorter)
{
	std::free(sorter);
}

// Where a sorter's arrays lie.
VX_WEB_EXPORT(pattern) u32 *pattern(SPointSorter *sorter)
{
	return sorter->Array<u32>(Array_Pattern);
}
VX_WEB_EXPORT(sort_keys) float *sort_keys(SPointSorter *sorter)
{
	return sorter->Array<float>(Array_SortKeys);
}
VX_WEB_EXPORT(enabled) u8 *enabled(SPointSorter *sorter)
{
	return sorter->Array<u8>(Array_Enableds);
}
VX_WEB_EXPORT(indices) void *indices(SPointSorter *sorter)
{
	return sorter->Array<void>(Array_Indices);
}

namespace
{
// Makes records of as many particles, from the first one on, behind firstRecord others. There are more particles than
// records only where some of them are disabled. A record's index is indexStep times its number.
void Fill(SPointSorter *sorter,
	const CFloat3 &cameraPosition,
	u32 first,
	u32 particleCount,
	u32 firstRecord,
	u32 indexStep,
	const TMemoryView<SIndexAndDepth> &records)
{
	const bool hasDisabled = particleCount != records.Count();
	const TStridedMemoryView<const u8> enableds(
		sorter->Array<u8>(Array_Enableds) + first, hasDisabled ? particleCount : 0, sizeof(u8));
	const u32 firstIndex = firstRecord * indexStep;
	if (sorter->m_ByPosition)
		CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(records,
			TStridedMemoryView<const CFloat3>(
				sorter->Array<CFloat3>(Array_SortKeys) + first, particleCount, sizeof(CFloat3)),
			cameraPosition, enableds, firstIndex, indexStep);
	else
		CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(records,
			TStridedMemoryView<const float>(sorter->Array<float>(Array_SortKeys) + first, particleCount, sizeof(float)),
			enableds, firstIndex, indexStep);
}

// Sorts records, and returns the array that they end in. Two passes give the order of the library's sort, and take less
// time if keys suit them.
SIndexAndDepth *SortRecords(SPointSorter *sorter, SIndexAndDepth *records, SIndexAndDepth *sorted, u32 count)
{
	if (kHasTwoPasses && count >= kMinInTwoPasses)
	{
		const u32 indexStep = sorter->m_VerticesPerParticle;
		const u32 indexEnd = u32(std::min<u64>(u64(count) * indexStep, ~0u));
		const SKeySample sample = SKeySample::Of(records, count);
		if (TwoPassesFor(sample.m_Span, count, indexEnd, indexStep) != null && !sample.HasEqualDigits())
		{
			const SKeySpan span = SpanOf(records, count);
			if (const CbSortOfSpan twoPasses = TwoPassesFor(span, count, indexEnd, indexStep))
				return twoPasses(records, sorted, count, span, sorter->Array<void>(Array_Counters));
		}
	}
	Sort<SSortKeyExtractor_TriangleIndexAndDepth>(records, records + count, sorted);
	return sorted;
}

// Writes the indices of sorted records, behind those of as many records as come before.
void Expand(SPointSorter *sorter, u32 first, const SIndexAndDepth *records, u32 count)
{
	const TMemoryView<const u32> drawnPattern(sorter->Array<u32>(Array_Pattern), sorter->m_PatternCount);
	const ureg firstIndex = ureg(first) * sorter->m_PatternCount;
	if (sorter->m_Has16BitIndices)
		CTriangleSorter::ExpandIndices(drawnPattern, records, sorter->Array<u16>(Array_Indices) + firstIndex, count);
	else
		CTriangleSorter::ExpandIndices(drawnPattern, records, sorter->Array<u32>(Array_Indices) + firstIndex, count);
}
} // namespace

// Sorts the first count particles. Returns how many of them are drawn.
VX_WEB_EXPORT(sort) u32 sort(SPointSorter *sorter, u32 count, float cameraX, float cameraY, float cameraZ)
{
	const u8 *const enableds = sorter->Array<u8>(Array_Enableds);
	const u32 drawnCount = sorter->m_HasEnableds ? count - u32(std::count(enableds, enableds + count, u8(0))) : count;
	SIndexAndDepth *const records = sorter->Array<SIndexAndDepth>(Array_Records);
	SIndexAndDepth *const sorted = sorter->Array<SIndexAndDepth>(Array_Sorted);
	const CFloat3 cameraPosition(cameraX, cameraY, cameraZ);
	const auto expand = [=](u32 first, const SIndexAndDepth *part, u32 partCount)
	{ Expand(sorter, first, part, partCount); };

	const u32 indexStep = sorter->m_VerticesPerParticle;
	if constexpr (kHasThreads)
	{
		if (ThreadCount() > 1 && drawnCount >= CThreadSort::kMinRecordCount)
		{
			const SSortJobs jobs = JobsOfThreads();
			CThreadSort(jobs, records, sorted, drawnCount, sorter->Array<void>(Array_Counters))
				.Run(
					enableds, count,
					[=](u32 first, u32 particleCount, u32 firstRecord, const TMemoryView<SIndexAndDepth> &share)
					{ Fill(sorter, cameraPosition, first, particleCount, firstRecord, indexStep, share); },
					expand);
			return drawnCount;
		}
	}
	if (MaySplit(count) && drawnCount == count)
	{
		const auto fill = [=](u32 first, const TMemoryView<SIndexAndDepth> &group)
		{ Fill(sorter, cameraPosition, first, group.Count(), first, 1, group); };
		if (CParticleSplit(count, records, sorted, sorter->Array<void>(Array_Counters), indexStep).Run(fill, expand))
			return drawnCount;
	}
	Fill(sorter, cameraPosition, 0, count, 0, indexStep, TMemoryView<SIndexAndDepth>(records, drawnCount));
	Expand(sorter, 0, SortRecords(sorter, records, sorted, drawnCount), drawnCount);
	return drawnCount;
}
