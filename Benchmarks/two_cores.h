#pragma once

// Two cores: oneTBB's threads for what is measured on both, held to two.

#include "ge_mesh_triangle_sorter.h"

#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

namespace VexmoorBench
{
using namespace Vexmoor;

class CTwoCores
{
public:
	static constexpr u32 kThreads = 2;
	static constexpr u32 kMaxJobCount = kThreads;

	/// Calls run, and what it does in parallel is done by two threads, of which the calling one is one.
	template<typename _Run>
	void Execute(const _Run &run)
	{
		m_Arena.execute(run);
	}

	/// What runs a sort's jobs inside of Execute.
	static SSortJobs Jobs()
	{
		SSortJobs jobs = {};
		jobs.m_MaxJobCount = kMaxJobCount;
		jobs.m_Run = [](void *, u32 jobCount, SSortJobs::CbJob job, void *context)
		{
			tbb::parallel_for(
				0u, jobCount, [=](u32 jobIndex) { job(context, jobIndex); }, tbb::simple_partitioner());
		};
		return jobs;
	}

	/// Both halves of a loop over particles, side by side.
	template<typename _Body>
	static void ForHalves(u32 count, const _Body &body)
	{
		tbb::parallel_for(0u, kThreads,
			[&](u32 half) { body(u32(u64(count) * half / kThreads), u32(u64(count) * (half + 1) / kThreads)); });
	}

private:
	tbb::global_control m_Limit{tbb::global_control::max_allowed_parallelism, kThreads};
	tbb::task_arena m_Arena{int(kThreads)};
};
} // namespace VexmoorBench
