#pragma once

// The sort of one draw call by one job, in two passes over records that fit the caches. Nothing here reports.
//
//   key     | what all keys share | upper digit, less the lowest one | lower digit |
//                                   up to 14 bits                     13 bits
//
// The lower digit is the low bits of keys as they are, so that it can be counted page by page, while the filled records
// are in a first-level cache. The upper digit is counted by the pass that moves records by the lower one: there the
// records are loaded anyway. With 12 and 11 bits for the lower digit the sort took 1.01 to 1.05 and 1.1 times as long.

#include "ge_mesh_triangle_sorter.h"

#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_sort_lanes.h"
#include "kr_sort_records.h"

#include "pv_jobs.h"
#include "pv_span_sort.h"

#include <cstring>

namespace Vexmoor
{
class CTwoDigitSort
{
public:
	static constexpr u32 kLowerBits = 13;
	static constexpr u32 kMinUpperBits = VEXMOOR_MIN_UPPER_BITS_OF_ONE_JOB;
	static constexpr u32 kMaxUpperBits = 14;
	static constexpr u32 kWordCount =
		((1u << kLowerBits) + (1u << kMaxUpperBits)) / 2; // two counters to a word of memory

	// Counters of 16 bits count no more. A position behind the last of so many records wraps to 0, and is not read.
	static constexpr u32 kMaxCount = 1u << 16;

	// counters  memory of kWordCount words
	explicit CTwoDigitSort(u32 *counters)
		: m_Lower(reinterpret_cast<u16 *>(counters))
		, m_Upper(m_Lower + (1u << kLowerBits))
	{
	}

	// Comes before all calls of Count.
	void Begin() const { std::memset(m_Lower, 0, sizeof(u16) << kLowerBits); }

	// Counts the lower digits of records, each of which stands for a number of records with its key. Fetches as many
	// records' lines from others on, which have lain idle since the last frame.
	void Count(const SIndexAndDepth *__restrict records, const SIndexAndDepth *others, u32 count, u32 weight) const
	{
		u16 *__restrict const lower = m_Lower;
		ForEachRecord(count,
			[=](u32 i)
			{
				if (i % kRecordsPerLine<SIndexAndDepth> == 0)
					VX_PREFETCH_TO_WRITE(others + i);
				u16 &counter = lower[records[i].m_Depth & kLowerMask];
				counter = u16(counter + weight);
			});
	}

	// Whether two passes do for these keys, and are faster than the sort of three passes: that one moves runs of equal
	// keys at once, and copies where keys share their top bits.
	static bool IsFor(const SKeySpan &span, const SIndexAndDepth *records, u32 count)
	{
		const u32 upperBits = _UpperBitsOf(span);
		return upperBits >= kMinUpperBits && upperBits <= kMaxUpperBits && !ComeInRuns(records, count);
	}

	// Looks at places spread evenly over the records: whether at an eighth of them eight keys in a row are equal.
	static bool ComeInRuns(const SIndexAndDepth *records, u32 count)
	{
		constexpr u32 kLooks = 16;
		constexpr u32 kRecordsPerLook = 8;
		const u32 distance = count / kLooks;
		u32 runs = 0;
		for (u32 look = 0; look < kLooks && distance >= kRecordsPerLook; ++look)
		{
			const SIndexAndDepth *const first = records + look * distance;
			runs += first[0] == first[kRecordsPerLook / 2 - 1] && first[0] == first[kRecordsPerLook - 1];
		}
		return runs >= kLooks / 8;
	}

	// Sorts all records in ascending order of their keys, equal keys in the order that they come in, through the other
	// array and back. All of them have been counted. The span contains their keys.
	void Sort(
		SIndexAndDepth *__restrict records, SIndexAndDepth *__restrict others, u32 count, const SKeySpan &span) const
	{
		u16 *__restrict const lower = m_Lower;
		u16 *__restrict const upper = m_Upper;
		const u32 upperCount = 1u << _UpperBitsOf(span);
		const u32 lowestUpper = span.m_Lowest >> kLowerBits;
		std::memset(upper, 0, upperCount * sizeof(u16));
		SortLanes::SumCounters(lower, 1u << kLowerBits);
		ForEachRecord(count,
			[=](u32 i)
			{
				const u64 record = LoadRecord(records + i);
				u16 &counter = upper[(KeyOf(record) >> kLowerBits) - lowestUpper];
				counter = u16(counter + 1);
				_Move(record, others, lower[KeyOf(record) & kLowerMask]);
			});
		SortLanes::SumCounters(upper, upperCount);
		ForEachRecord(count,
			[=](u32 i)
			{
				const u64 record = LoadRecord(others + i);
				_Move(record, records, upper[(KeyOf(record) >> kLowerBits) - lowestUpper]);
			});
	}

private:
	static constexpr u32 kLowerMask = (1u << kLowerBits) - 1;

	static u32 _UpperBitsOf(const SKeySpan &span)
	{
		return SKeySpan{span.m_Lowest >> kLowerBits, span.m_Highest >> kLowerBits}.BitCount();
	}

	static VX_INLINE void _Move(u64 record, SIndexAndDepth *destination, u16 &position)
	{
		const u32 place = position;
		position = u16(place + 1);
		StoreRecord(destination + place, record);
	}

	u16 *m_Lower;
	u16 *m_Upper;
};
} // namespace Vexmoor
