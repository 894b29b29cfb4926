#pragma once

// The sort of many records by several jobs: split into parts by leading digits, then each part sorted by one job, in
// its core's own cache. Nothing here reports.
//
//   filled     | job 0's records      | job 1's records      | job 2's records      |    jobs count leading digits,
//   sorted     | part 0 | part 1    | part 2  | part 3 | part 4      | part 5 |         move records to parts,
//              | sorted by job 0    | by job 1         | by job 2             |         and sort parts
//
// Parts lie in the order of keys, and inside a part records keep their order, whoever moved them: job by job, each from
// front to back. So the result is that of any stable sort, for any number of jobs.

#include "ge_mesh_triangle_sorter.h"

#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_sort_records.h"

#include "pv_jobs.h"
#include "pv_span_sort.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace Vexmoor
{
// Outputs of different jobs meet at multiples of this many records. Eight records make a multiple of 16 bytes, however
// many indices a record becomes. So each job's output is aligned as the whole output is, and no job begins or ends
// inside a block that the expansion stores at once.
constexpr u32 kRecordsPerSeam = 8;

// If many keys are equal, a split and the sorts of its parts take up to three times as long as the radix sort, because
// records wait for the position that the record before them has stored. So up to three jobs leave such keys to one
// thread.
constexpr u32 kMaxJobsForRuns = 3;

// A range of records that one job sorts. All its keys are higher than those of the parts before it.
struct SSortPart
{
	u32 m_First;
	u32 m_Count;
	SKeySpan m_Span;
	bool m_IsInFilled; // whether its records are in the array that was filled: after an even number of splits
};

class CSplitSort
{
public:
	// A split goes by a digit: the leading bits of a key, less the lowest key. There are more digits than parts, so
	// that parts can be made of about the same size: neighbouring digits with few records make a part together.
	static constexpr u32 kDigitBits = 11;
	static constexpr u32 kDigitCount = 1u << kDigitBits;
	static constexpr u32 kMaxPartsPerSplit = 512;

	// A part's records and the array that they are sorted through stay in a second-level cache, and its digits'
	// counters in a first-level one.
	static constexpr u32 kMinPartSize = VEXMOOR_MIN_PART_SIZE;

	// A digit is not divided between parts, so a part of one digit may have any number of records. If it has more than
	// this many times the part size, all jobs split it again, by the bits below the digit.
	static constexpr u32 kPartSizesToSplit = 4;

	// Any two neighbouring parts of a split have more than a part size of records together, so all splits of one level
	// make fewer than kMaxPartsPerSplit parts, and one for each of them that cannot be paired.
	static constexpr u32 kMaxPartCount = 2 * kMaxPartsPerSplit;

	// Three splits take 33 bits off a key.
	static constexpr u32 kMaxLevelCount = (32 + kDigitBits - 1) / kDigitBits;

	// Of 32 bits, for each job.
	static constexpr u32 kCountersPerJob = 8192;
	static_assert(kCountersPerJob >= kDigitCount + kMaxPartsPerSplit && kCountersPerJob >= kSpanCounterCount);

	// What one split knows. It is kept until the last of its parts has been split, since parts are split one by one,
	// from the lowest keys to the highest:
	//
	//   level 0   | part 0 | part 1                | part 2 |
	//   level 1            | 1.0 | 1.1       | 1.2 |             part 1 is too large
	//   level 2                  | 1.1.0 |  ...                  and so is its part 1
	struct SLevel
	{
		SSortPart m_Parts[kMaxPartsPerSplit];
		u16 m_EndDigits[kMaxPartsPerSplit]; // one past the highest digit of each part
		u16 m_PartOfDigit[kDigitCount];
	};

	// Each job has kCountersPerJob counters, which lie behind those of the job before it. What a job keeps in them:
	//
	//   split          | records of each digit: kDigitCount | places of each part: kMaxPartsPerSplit |
	//   sort a part    | counters of SortBySpan: kSpanCounterCount              |
	struct SMemory
	{
		SSortPart m_Parts[kMaxPartCount];
		SLevel m_Levels[kMaxLevelCount];
		u32 m_Counters[1];
	};
	static u64 MemorySize(u64 counterCount) { return offsetof(SMemory, m_Counters) + counterCount * sizeof(u32); }

	// filled  the records
	// sorted  where they end; as many
	// memory  with counters for each of jobCount jobs
	CSplitSort(const CJobs &jobs,
		u32 jobCount,
		SIndexAndDepth *filled,
		SIndexAndDepth *sorted,
		u32 recordCount,
		SMemory &memory)
		: m_Jobs(jobs)
		, m_JobCount(jobCount)
		, m_Arrays{sorted, filled}
		, m_RecordCount(recordCount)
		, m_PartSize(std::max(kMinPartSize, recordCount / (kMaxPartsPerSplit / 2 - 1)))
		, m_Parts(memory.m_Parts)
		, m_Levels(memory.m_Levels)
		, m_Counters(memory.m_Counters)
	{
	}

	// Moves all records to their parts. The span contains their keys.
	void Split(const SKeySpan &span) { _Split({0, m_RecordCount, span, true}, 0); }

	// In place of Split: records are sorted already, in either array, and make a part for each job.
	void TakeSorted(bool inFilled)
	{
		for (; m_PartCount < m_JobCount; ++m_PartCount)
		{
			const u32 first = FirstUnitOfJob(m_RecordCount, m_PartCount, m_JobCount);
			const u32 end = FirstUnitOfJob(m_RecordCount, m_PartCount + 1, m_JobCount);
			m_Parts[m_PartCount] = {
				first, end - first, {0, 0},
                    inFilled
            };
		}
		m_EndsInFilled = inFilled;
	}

	// Where the records of sorted parts are.
	SIndexAndDepth *Sorted() const { return m_Arrays[m_EndsInFilled]; }

	// The first part of a job's share. Shares are whole parts with about as many records each, so that what a job makes
	// of its parts lies in one piece.
	u32 FirstPartOfJob(u32 job) const
	{
		const u32 firstRecord = FirstUnitOfJob(m_RecordCount, job, m_JobCount);
		const auto startsBefore = [](const SSortPart &part, u32 record) { return part.m_First < record; };
		return u32(std::lower_bound(m_Parts, m_Parts + m_PartCount, firstRecord, startsBefore) - m_Parts);
	}
	u32 FirstRecordOfPart(u32 partId) const { return partId < m_PartCount ? m_Parts[partId].m_First : m_RecordCount; }

	// Sorts a part, whichever array its records are in.
	void SortPart(u32 partId, u32 job) const
	{
		const SSortPart &part = m_Parts[partId];
		SIndexAndDepth *const records = m_Arrays[part.m_IsInFilled] + part.m_First;
		SIndexAndDepth *const others = m_Arrays[!part.m_IsInFilled] + part.m_First;
		SIndexAndDepth *const sorted = Sorted() + part.m_First;
		const SIndexAndDepth *const result = SortBySpan(records, others, part.m_Count, part.m_Span, _CountersOf(job));
		if (result != sorted)
			std::memcpy(static_cast<void *>(sorted), result, part.m_Count * sizeof(SIndexAndDepth));
	}

	// Sorts the parts, and calls write(first, count) for each stretch of the output as soon as its records are sorted.
	// The output has writeCount records, numbered from 0: the sorted ones without the first skippedCount. Each job
	// writes from front to back. The records around a seam between two jobs are written by this thread, when both jobs
	// have ended.
	// enter  what enter(job) returns lives as long as the job works. enter(number of jobs) is for this thread's writing
	template<typename _Enter, typename _Write>
	void SortAndWrite(u32 skippedCount, u32 writeCount, const _Enter &enter, const _Write &write) const;

private:
	// How a split sees keys.
	struct SDigits
	{
		u32 m_Lowest;
		u32 m_Shift;

		VX_INLINE u32 Of(u32 key) const { return (key - m_Lowest) >> m_Shift; }
		u32 LowestKey(u32 digit) const { return m_Lowest + (digit << m_Shift); }
	};

	u32 *_CountersOf(u32 job) const { return m_Counters + ureg(job) * kCountersPerJob; }

	void _Split(const SSortPart &whole, u32 levelId);
	static void _CountDigits(
		const SIndexAndDepth *__restrict records, u32 count, const SDigits &digits, u32 *__restrict counters);
	static void _ScatterToParts(const SIndexAndDepth *__restrict source,
		SIndexAndDepth *__restrict destination,
		u32 count,
		const SDigits &digits,
		const u16 *__restrict partOfDigit,
		u32 *__restrict positions);
	void _SumUpJobs() const;
	u32 _MakeParts(const SSortPart &whole, const SDigits &digits, SLevel &level) const;
	void _ShareParts(u32 partCount, const SLevel &level) const;

	const CJobs &m_Jobs;
	const u32 m_JobCount;
	SIndexAndDepth *const m_Arrays[2]; // sorted, filled
	const u32 m_RecordCount;
	const u32 m_PartSize;
	SSortPart *const m_Parts;
	SLevel *const m_Levels;
	u32 *const m_Counters;
	u32 m_PartCount = 0;
	bool m_EndsInFilled = false;
};

// Splits a part's records by leading digits, and then each of its parts that is still too large. A part whose keys are
// all equal stays one. In the first run of jobs, each counts the digits of its share of the records; in the second one,
// each moves its share to the parts. This thread makes parts of the digits in between.
inline void CSplitSort::_Split(const SSortPart &whole, u32 levelId)
{
	const u32 bitCount = whole.m_Span.BitCount();
	if (whole.m_Count <= kPartSizesToSplit * m_PartSize || bitCount == 0)
	{
		m_Parts[m_PartCount++] = whole;
		return;
	}
	const SDigits digits = {whole.m_Span.m_Lowest, std::max(bitCount, kDigitBits) - kDigitBits};
	const SIndexAndDepth *const source = m_Arrays[whole.m_IsInFilled] + whole.m_First;
	SIndexAndDepth *const destination = m_Arrays[!whole.m_IsInFilled] + whole.m_First;
	SLevel &level = m_Levels[levelId];

	const auto shareOf = [&](u32 job) { return source + FirstUnitOfJob(whole.m_Count, job, m_JobCount); };
	m_Jobs.Run(m_JobCount,
		[&](u32 job)
		{
			u32 *const counters = _CountersOf(job);
			std::memset(counters, 0, kDigitCount * sizeof(u32));
			_CountDigits(shareOf(job), u32(shareOf(job + 1) - shareOf(job)), digits, counters);
		});
	_SumUpJobs();
	const u32 partCount = _MakeParts(whole, digits, level);
	_ShareParts(partCount, level);
	m_Jobs.Run(m_JobCount,
		[&](u32 job)
		{
			_ScatterToParts(shareOf(job), destination, u32(shareOf(job + 1) - shareOf(job)), digits,
				level.m_PartOfDigit, _CountersOf(job) + kDigitCount);
		});

	for (u32 i = 0; i < partCount; ++i)
	{
		SSortPart part = level.m_Parts[i];
		part.m_First += whole.m_First;
		_Split(part, levelId + 1);
	}
}

// Histogram of the leading digits of a job's share.
inline void CSplitSort::_CountDigits(
	const SIndexAndDepth *__restrict records, u32 count, const SDigits &digits, u32 *__restrict counters)
{
	const SDigits digitsOf = digits; // in registers
	ForEachRecord(count, [=](u32 i) { ++counters[digitsOf.Of(records[i].m_Depth)]; });
}

// Moves a job's share of the records to the places of their parts. Records of a part are stored one behind the other,
// and the destination is seldom in a cache. So with each store goes a prefetch of the cache line behind it, which the
// part's next records need.
//
//   records     | key in part 2 | key in part 0 | key in part 2 |
//   positions   part 0: 17      part 1: 40      part 2: 95            before
//   stored at   95, 17, 96
//   positions   part 0: 18      part 1: 40      part 2: 97            afterwards
inline void CSplitSort::_ScatterToParts(const SIndexAndDepth *__restrict source,
	SIndexAndDepth *__restrict destination,
	u32 count,
	const SDigits &digits,
	const u16 *__restrict partOfDigit,
	u32 *__restrict positions)
{
	const SDigits digitsOf = digits; // in registers
	MoveToPlaces(
		count, positions, [=](u32 i) { return LoadRecord(source + i); },
		[=](u64 record) { return u32(partOfDigit[digitsOf.Of(KeyOf(record))]); },
		[=](u32 place, u64 record)
		{
			VX_PREFETCH_TO_WRITE(destination + place + kRecordsPerLine<SIndexAndDepth>);
			StoreRecord(destination + place, record);
		});
}

// Adds to each job's counters those of the jobs before it. The last job's are then those of all records.
//
//   digit    0   1   2                  0   1   2
//   job 0    3   0   2         job 0    3   0   2
//   job 1    1   4   0    ->   job 1    4   4   2
//   job 2    0   1   5         job 2    4   5   7
inline void CSplitSort::_SumUpJobs() const
{
	for (u32 job = 1; job < m_JobCount; ++job)
	{
		const u32 *__restrict const before = _CountersOf(job - 1);
		u32 *__restrict const counters = _CountersOf(job);
		for (u32 digit = 0; digit < kDigitCount; ++digit)
			counters[digit] += before[digit];
	}
}

// Makes parts of the digits of all records, and returns how many parts there are. Neighbouring digits go together until
// the next one would make their part larger than m_PartSize. For a part size of 10:
//
//   digit      0    1    2    3    4    5
//   records    4    3    6    0    25   2
//   parts      | 7      | 6       | 25 | 2  |
//
// The first record of a part is counted from the beginning of what is split. The span of a part is narrowed to its
// digits that have records.
inline u32 CSplitSort::_MakeParts(const SSortPart &whole, const SDigits &digits, SLevel &level) const
{
	const u32 *const counters = _CountersOf(m_JobCount - 1);
	const u32 highestDigit = digits.Of(whole.m_Span.m_Highest);
	u32 first = 0;
	u32 partCount = 0;
	for (u32 digit = 0; digit <= highestDigit;)
	{
		if (counters[digit] == 0)
		{
			++digit;
			continue;
		}
		SSortPart &part = level.m_Parts[partCount];
		part = {
			first, 0, {digits.LowestKey(digit), 0},
              !whole.m_IsInFilled
        };
		u32 lastDigit = digit;
		do
		{
			part.m_Count += counters[digit];
			level.m_PartOfDigit[digit] = u16(partCount);
			lastDigit = counters[digit] != 0 ? digit : lastDigit;
			++digit;
		} while (digit <= highestDigit && u64(part.m_Count) + counters[digit] <= m_PartSize);
		part.m_Span.m_Highest =
			lastDigit == highestDigit ? whole.m_Span.m_Highest : digits.LowestKey(lastDigit + 1) - 1;
		level.m_EndDigits[partCount] = u16(digit);
		first += part.m_Count;
		++partCount;
	}
	return partCount;
}

// Gives each job its positions of each part, behind those of the jobs before it, so that jobs write side by side and
// equal keys keep their order:
//
//   part       |     part 0     |         part 1         |
//   records    | job 0 | job 1  | job 0 | job 1  | job 2 |
//               ^       ^        ^       ^        ^          where each job's first record of the part goes
inline void CSplitSort::_ShareParts(u32 partCount, const SLevel &level) const
{
	for (u32 job = 0; job < m_JobCount; ++job)
	{
		u32 *const positions = _CountersOf(job) + kDigitCount;
		u32 digit = 0;
		for (u32 part = 0; part < partCount; ++part)
		{
			u32 position = level.m_Parts[part].m_First;
			for (; job != 0 && digit < level.m_EndDigits[part]; ++digit)
				position += _CountersOf(job - 1)[digit];
			positions[part] = position;
		}
	}
}

// What is written by whom, where parts end between two seams, which are eight records apart:
//
//   parts        |  part 0   |  part 1       |  part 2             |
//   shares       | job 0                     | job 1               |
//   seams        |       |       |       |       |       |       | |
//   written by   | job 0                 |   *   | job 1           |     * this thread, when both jobs have ended
//
// A job writes what it has sorted after each of its parts, up to the last seam before the part's end, while the part is
// still in its core's cache.
template<typename _Enter, typename _Write>
void CSplitSort::SortAndWrite(u32 skippedCount, u32 writeCount, const _Enter &enter, const _Write &write) const
{
	// Where the first record of a part is written.
	const auto inOutput = [&](u32 part)
	{
		const u32 record = FirstRecordOfPart(part);
		return record < skippedCount ? 0 : std::min(record - skippedCount, writeCount);
	};
	// The last seam at a place of the output or before it; the end of the output is one. A job's output starts at the
	// first seam of its share, and ends at the last seam before the next job's share.
	const auto seamBefore = [&](u32 place) { return place == writeCount ? place : place - place % kRecordsPerSeam; };
	const auto startOf = [&](u32 job)
	{
		const u64 place = inOutput(FirstPartOfJob(job));
		return u32(std::min<u64>((place + kRecordsPerSeam - 1) / kRecordsPerSeam * kRecordsPerSeam, writeCount));
	};
	const auto endOf = [&](u32 job) { return seamBefore(inOutput(FirstPartOfJob(job + 1))); };

	m_Jobs.Run(m_JobCount,
		[&](u32 job)
		{
			[[maybe_unused]] const auto scope = enter(job);
			const u32 partEnd = FirstPartOfJob(job + 1);
			u32 written = startOf(job);
			for (u32 part = FirstPartOfJob(job); part < partEnd; ++part)
			{
				SortPart(part, job);
				const u32 ready = seamBefore(inOutput(part + 1));
				if (ready > written)
				{
					write(written, ready - written);
					written = ready;
				}
			}
		});

	[[maybe_unused]] const auto scope = enter(m_JobCount);
	u32 written = 0;
	for (u32 job = 0; job < m_JobCount; ++job)
	{
		if (endOf(job) <= startOf(job))
			continue;
		if (startOf(job) > written)
			write(written, startOf(job) - written);
		written = endOf(job);
	}
	if (writeCount > written)
		write(written, writeCount - written);
}
} // namespace Vexmoor
