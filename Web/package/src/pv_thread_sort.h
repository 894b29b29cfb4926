#pragma once

// One sort on several threads, with the result of the library's sort. Jobs fill the records of a share each; then the
// records are split into parts, as in the library's sort with jobs (pv_split_sort.h), and each job sorts parts and
// writes their indices at once. That sort itself is not used, because all that a host may set up comes with it: it
// would make the module half as large again.

#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

#include "kr_memoryviews.h"
#include "kr_sort.h"

#include "pv_jobs.h"
#include "pv_span_sort.h"
#include "pv_split_sort.h"
#include "pv_two_digit_sort.h"

#include <algorithm>

namespace Vexmoor
{
class CThreadSort
{
public:
	// Below this many records, another thread takes about as long to be told as it saves.
	static constexpr u32 kMinRecordCount = 32768;

	static constexpr u32 kMaxThreadCount = 32;

	// Bytes of memory for sorts of up to as many particles.
	static u64 MemorySize(u32 capacity, u32 threadCount)
	{
		if (capacity < kMinRecordCount || threadCount == 1)
			return 0;
		return CSplitSort::MemorySize(u64(threadCount) * CSplitSort::kCountersPerJob);
	}

	// filled, sorted  as many records as are drawn, at multiples of 16 bytes
	// memory          MemorySize bytes
	CThreadSort(const SSortJobs &jobs, SIndexAndDepth *filled, SIndexAndDepth *sorted, u32 recordCount, void *memory)
		: m_Jobs(jobs)
		, m_JobCount(jobs.m_MaxJobCount)
		, m_Filled(filled)
		, m_Sorted(sorted)
		, m_RecordCount(recordCount)
		, m_Split(m_Jobs, m_JobCount, filled, sorted, recordCount, *static_cast<CSplitSort::SMemory *>(memory))
	{
	}

	// enableds  a byte for each of particleCount particles; looked at if there are fewer records than particles
	// fill      fill(firstParticle, particleCount, firstRecord, records) writes the records of particles
	// expand    expand(first, records, count) writes the indices of sorted records, of which first ones come before
	template<typename _Fill, typename _Expand>
	void Run(const u8 *enableds, u32 particleCount, const _Fill &fill, const _Expand &expand)
	{
		_SplitRecords(_FillAll(enableds, particleCount, fill));
		const auto enter = [](u32) { return 0; };
		const auto write = [&](u32 first, u32 count) { expand(first, m_Split.Sorted() + first, count); };
		m_Split.SortAndWrite(0, m_RecordCount, enter, write);
	}

private:
	// Particles of one job, and the place of its first record.
	struct SFillShare
	{
		u32 m_FirstParticle;
		u32 m_ParticleCount;
		u32 m_FirstRecord;
		u32 m_RecordCount;
		SKeySpan m_Span; // of the records' keys, when they are filled
	};

	u32 _SeamBefore(u32 record) const { return record == m_RecordCount ? record : record - record % kRecordsPerSeam; }

	// Returns the span of all keys.
	template<typename _Fill>
	SKeySpan _FillAll(const u8 *enableds, u32 particleCount, const _Fill &fill) const
	{
		SFillShare shares[kMaxThreadCount];
		const u32 shareCount =
			particleCount == m_RecordCount ? _ShareAll(shares) : _ShareEnabled(enableds, particleCount, shares);
		m_Jobs.Run(shareCount,
			[&](u32 job)
			{
				SFillShare &share = shares[job];
				const TMemoryView<SIndexAndDepth> records(m_Filled + share.m_FirstRecord, share.m_RecordCount);
				fill(share.m_FirstParticle, share.m_ParticleCount, share.m_FirstRecord, records);
				share.m_Span = SpanOf(records.Data(), records.Count());
			});
		SKeySpan span;
		for (u32 job = 0; job < shareCount; ++job)
			span = span.With(shares[job].m_Span);
		return span;
	}

	// Shares out particles that are all drawn.
	u32 _ShareAll(SFillShare *shares) const
	{
		for (u32 job = 0; job < m_JobCount; ++job)
		{
			const u32 first = _SeamBefore(FirstUnitOfJob(m_RecordCount, job, m_JobCount));
			const u32 count = _SeamBefore(FirstUnitOfJob(m_RecordCount, job + 1, m_JobCount)) - first;
			shares[job] = {first, count, first, count, {}};
		}
		return m_JobCount;
	}

	// Shares out particles of which some are disabled. Where some are, keys differ from those of particles that are all
	// drawn, so each share has a disabled particle: a share without one goes together with the next one, or, the last
	// one, with that before. Returns the number of shares.
	u32 _ShareEnabled(const u8 *enableds, u32 particleCount, SFillShare *shares) const
	{
		u32 shareCount = 0;
		u32 first = 0;
		u32 firstRecord = 0;
		for (u32 job = 0; job < m_JobCount && first < particleCount; ++job)
		{
			u32 end = std::max(FirstUnitOfJob(particleCount, job + 1, m_JobCount), first);
			u32 drawnCount = end - first - u32(std::count(enableds + first, enableds + end, u8(0)));
			for (; end < particleCount && (drawnCount % kRecordsPerSeam != 0 || drawnCount == end - first); ++end)
				drawnCount += enableds[end] != 0;
			if (drawnCount != end - first)
			{
				shares[shareCount++] = {first, end - first, firstRecord, drawnCount, {}};
			}
			else
			{
				shares[shareCount - 1].m_ParticleCount += end - first;
				shares[shareCount - 1].m_RecordCount += drawnCount;
			}
			first = end;
			firstRecord += drawnCount;
		}
		return shareCount;
	}

	// Moves the records to parts. Many equal keys are sorted by this thread, and all write.
	void _SplitRecords(const SKeySpan &span)
	{
		if (span.BitCount() == 0)
			return m_Split.TakeSorted(true);
		if (m_JobCount > kMaxJobsForRuns || !SKeySample::Of(m_Filled, m_RecordCount).HasEqualKeys())
			return m_Split.Split(span);
		Sort<SSortKeyExtractor_TriangleIndexAndDepth>(m_Filled, m_Filled + m_RecordCount, m_Sorted);
		m_Split.TakeSorted(false);
	}

	const CJobs m_Jobs;
	const u32 m_JobCount;
	SIndexAndDepth *const m_Filled;
	SIndexAndDepth *const m_Sorted;
	const u32 m_RecordCount;
	CSplitSort m_Split;
};
} // namespace Vexmoor
