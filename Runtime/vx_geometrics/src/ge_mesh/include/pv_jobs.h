#pragma once

// Running the pieces of a sort as jobs of the host. A run of jobs is one call of the host's function: it hands out jobs
// 0 to n - 1, and returns when all of them have ended. The sort of many particles takes four runs:
//
//   the host's threads   | fill | count | move | sort and write |
//                               ^       ^      ^         no job begins before all of the run before have ended

#include "ge_mesh_triangle_sorter.h"

#include "vx_compiler.h"
#include "vx_defs.h"

#include <algorithm>

// The counts from which a sort takes another shape. Each was measured; sort_jobs.cpp and pv_split_sort.h say why it is
// no smaller. Tests make them small, so that small scenes are shared out and split too, and are too many for one job.

// Each job has at least this many records.
#if !defined(VEXMOOR_MIN_RECORDS_PER_JOB)
	#define VEXMOOR_MIN_RECORDS_PER_JOB 16384
#endif
// One job alone takes two passes in place of the radix sort's three from this many records on, if pages have this many
// particles on average.
#if !defined(VEXMOOR_MIN_RECORDS_OF_ONE_JOB)
	#define VEXMOOR_MIN_RECORDS_OF_ONE_JOB 3000
#endif
#if !defined(VEXMOOR_MIN_PAGE_SIZE_OF_ONE_JOB)
	#define VEXMOOR_MIN_PAGE_SIZE_OF_ONE_JOB 200
#endif
// Counters have 16 bits up to this many records.
#if !defined(VEXMOOR_MAX_IN_SHORT_COUNTERS)
	#define VEXMOOR_MAX_IN_SHORT_COUNTERS 65536
#endif
// One job alone splits records into parts from the first count on, or from the second one if their keys are too wide
// for two passes.
#if !defined(VEXMOOR_MIN_SPLIT_BY_ONE_JOB)
	#define VEXMOOR_MIN_SPLIT_BY_ONE_JOB 1048576
#endif
#if !defined(VEXMOOR_MIN_SPLIT_OF_WIDE_KEYS)
	#define VEXMOOR_MIN_SPLIT_OF_WIDE_KEYS 800000
#endif
// A page is filled in pieces of up to this many particles.
#if !defined(VEXMOOR_MAX_FILLED_AT_ONCE)
	#define VEXMOOR_MAX_FILLED_AT_ONCE 2048
#endif
// A part has about this many records, or more if there are very many.
#if !defined(VEXMOOR_MIN_PART_SIZE)
	#define VEXMOOR_MIN_PART_SIZE 2048
#endif

namespace Vexmoor
{
// The host's way to run jobs, or, without one, the thread that sorts.
class CJobs
{
public:
	// More jobs than this are not asked for, whatever the host allows: what one thread does between two runs grows with
	// them.
	static constexpr u32 kMaxCount = 128;

	explicit CJobs(const SSortJobs &jobs)
		: m_Jobs(jobs)
	{
	}

	// How many jobs share units of work, if each has unitsPerJob of them or more: at least one, and at most maxJobCount
	// and kMaxCount. 50,000 records with 16,384 for each job, for example, make three jobs.
	static u32 CountFor(u32 units, u32 unitsPerJob, u32 maxJobCount)
	{
		return std::max(std::min({units / unitsPerJob, maxJobCount, kMaxCount}), 1u);
	}
	u32 CountFor(u32 units, u32 unitsPerJob) const
	{
		return CountFor(units, unitsPerJob, m_Jobs.m_Run != null ? m_Jobs.m_MaxJobCount : 1);
	}

	// Calls body(job) once for each job of [0, count), in any order and on any threads, and returns when all have
	// returned. A single one runs here.
	template<typename _Body>
	void Run(u32 count, const _Body &body) const
	{
		if (count == 1)
			return body(0u);
		const auto job = [](void *context, u32 jobIndex) { (*static_cast<const _Body *>(context))(jobIndex); };
		m_Jobs.m_Run(m_Jobs.m_UserData, count, job, const_cast<_Body *>(&body));
	}

private:
	const SSortJobs &m_Jobs;
};

// The first unit of a job's share. The share ends where the next job's begins. Shares differ by one unit at most:
//
//   units    | 0  1  2 | 3  4  5 | 6  7  8  9 |      ten units, three jobs
//              job 0     job 1     job 2
static inline u32 FirstUnitOfJob(u32 units, u32 job, u32 jobCount)
{
	return u32(u64(units) * job / jobCount);
}
} // namespace Vexmoor
