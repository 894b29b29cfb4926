#pragma once

// Running the pieces of a sort as jobs of the host.

#include "ge_mesh_triangle_sorter.h"

#include "vx_compiler.h"
#include "vx_defs.h"

#include <algorithm>

// Tests make these small, so that small scenes are shared out and split too, and are too many for one job.
#if !defined(VEXMOOR_MIN_RECORDS_PER_JOB)
	#define VEXMOOR_MIN_RECORDS_PER_JOB 16384
#endif
#if !defined(VEXMOOR_MIN_RECORDS_OF_ONE_JOB)
	#define VEXMOOR_MIN_RECORDS_OF_ONE_JOB 3000
#endif
#if !defined(VEXMOOR_MIN_PAGE_SIZE_OF_ONE_JOB)
	#define VEXMOOR_MIN_PAGE_SIZE_OF_ONE_JOB 200
#endif
#if !defined(VEXMOOR_MAX_IN_SHORT_COUNTERS)
	#define VEXMOOR_MAX_IN_SHORT_COUNTERS 65536
#endif
#if !defined(VEXMOOR_MIN_SPLIT_BY_ONE_JOB)
	#define VEXMOOR_MIN_SPLIT_BY_ONE_JOB 1000000
#endif
#if !defined(VEXMOOR_MIN_SPLIT_OF_WIDE_KEYS)
	#define VEXMOOR_MIN_SPLIT_OF_WIDE_KEYS 400000
#endif
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

	// How many jobs a run of these many units of work is worth, when each has at least unitsPerJob.
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

// The first unit of a job's share, which ends where the next job's begins. Jobs share units as evenly as they can.
static inline u32 FirstUnitOfJob(u32 units, u32 job, u32 jobCount)
{
	return u32(u64(units) * job / jobCount);
}
} // namespace Vexmoor
