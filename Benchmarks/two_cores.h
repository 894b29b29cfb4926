#pragma once

// Two cores: the threads of a job system for what is measured on both. Engines have job systems of two kinds, so there
// are two here: oneTBB's, and a plain pool whose threads look for work before they sleep.

#include "ge_mesh_triangle_sorter.h"

#include "bench_clock.h"
#include "bench_pairs.h"
#include "thread_pool.h"
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

namespace VexmoorBench
{
using namespace Vexmoor;

/// oneTBB's threads, held to two.
class CTwoCores
{
public:
	static constexpr const char *kName = "tbb";
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

/// The thread pool of Samples/minimal, with two threads.
class CPoolOfTwo
{
public:
	static constexpr const char *kName = "thread_pool";

	template<typename _Run>
	void Execute(const _Run &run)
	{
		run();
	}

	SSortJobs Jobs()
	{
		SSortJobs jobs = {};
		jobs.m_MaxJobCount = CTwoCores::kMaxJobCount;
		jobs.m_UserData = &m_Pool;
		jobs.m_Run = [](void *userData, u32 jobCount, SSortJobs::CbJob job, void *context)
		{ static_cast<Minimal::CThreadPool *>(userData)->Run(jobCount, job, context); };
		return jobs;
	}

private:
	Minimal::CThreadPool m_Pool{CTwoCores::kThreads};
};

/// What else a frame does: jobs of 100 microseconds, one for each core.
inline void RunOtherJobs(const SSortJobs &jobs)
{
	const auto beBusy = [](void *, u32)
	{
		for (const double end = WallTime() + 100e-6; WallTime() < end;)
		{
		}
	};
	jobs.m_Run(jobs.m_UserData, CTwoCores::kThreads, beBusy, nullptr);
}

/// Lets onOneCore() and inJobs(jobs) take turns by the wall clock, as RunPairs does. Other jobs run right before each
/// turn: in a frame of a renderer, threads are awake when a sort begins.
template<typename _JobSystem, typename _OnOneCore, typename _InJobs>
void RunPairsOfCores(benchmark::State &state, const _OnOneCore &onOneCore, const _InJobs &inJobs)
{
	_JobSystem cores;
	cores.Execute(
		[&]
		{
			const SSortJobs jobs = cores.Jobs();
			const auto inAFrame = [&](const auto &turn)
			{
				RunOtherJobs(jobs);
				return Seconds<WallTime>(turn);
			};
			RunTimedPairs(
				state, [&] { return inAFrame(onOneCore); }, [&] { return inAFrame([&] { inJobs(jobs); }); });
			inJobs(jobs);
		});
}
} // namespace VexmoorBench
