// Runs jobs in every order that a host may.

#include "job_runner.h"

#include "kr_profiler.h"

#include "random_scene.h"
#include <algorithm>
#include <numeric>
#include <utility>

using namespace Vexmoor;

namespace Support
{
constexpr u32 kThreadCount = 4;

const char *NameOf(EJobOrder order)
{
	constexpr const char *kNames[] = {"in order", "in reverse", "shuffled", "on threads"};
	return kNames[order];
}

CJobRunner::CJobRunner(u32 maxJobCount, EJobOrder order)
	: m_MaxJobCount(maxJobCount)
	, m_Order(order)
{
	for (u32 i = 0; order == JobOrder_Threads && i < kThreadCount; ++i)
		m_Threads.emplace_back([this] { _Work(); });
}

CJobRunner::~CJobRunner()
{
	{
		const std::lock_guard<std::mutex> lock(m_Lock);
		m_IsEnding = true;
	}
	m_Changed.notify_all();
	for (std::thread &thread : m_Threads)
		thread.join();
}

SSortJobs CJobRunner::Jobs()
{
	SSortJobs jobs;
	jobs.m_Run = [](void *userData, u32 jobCount, SSortJobs::CbJob job, void *context) {
		static_cast<CJobRunner *>(userData)->_Run({job, context, jobCount});
	};
	jobs.m_UserData = this;
	jobs.m_MaxJobCount = m_MaxJobCount;
	return jobs;
}

void CJobRunner::_Run(const SRun &run)
{
	EXPECT_EQ(std::this_thread::get_id(), m_SortingThread);
	EXPECT_FALSE(std::exchange(m_IsRunning, true)) << "a job runs jobs";
	EXPECT_GE(run.m_JobCount, 1u);
	EXPECT_LE(run.m_JobCount, m_MaxJobCount);
	++m_RunCount;
	m_LargestJobCount = std::max(m_LargestJobCount, run.m_JobCount);

	std::vector<u32> order(run.m_JobCount);
	std::iota(order.begin(), order.end(), 0u);
	if (m_Order == JobOrder_Reversed)
		std::reverse(order.begin(), order.end());
	Model::CRandom random(m_RunCount);
	for (u32 i = run.m_JobCount; m_Order == JobOrder_Shuffled && i > 1; --i)
		std::swap(order[i - 1], order[random.Below(i)]);
	if (m_Order == JobOrder_Threads)
		_RunOnThreads(run);
	else
		for (const u32 job : order)
			run.m_Job(run.m_Context, job);
	m_IsRunning = false;
}

void CJobRunner::_RunOnThreads(const SRun &run)
{
	std::unique_lock<std::mutex> lock(m_Lock);
	m_Current = run;
	m_NextJob = 0;
	m_JobsLeft = run.m_JobCount;
	m_Changed.notify_all();
	m_Changed.wait(lock, [this] { return m_JobsLeft == 0; });
	m_Current = {};
}

void CJobRunner::_Work()
{
	std::unique_lock<std::mutex> lock(m_Lock);
	for (;;)
	{
		m_Changed.wait(lock, [this] { return m_IsEnding || m_NextJob < m_Current.m_JobCount; });
		if (m_IsEnding)
			return;
		const SRun run = m_Current;
		const u32 job = m_NextJob++;
		lock.unlock();
		u32 &hazards = Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards;
		const u32 before = hazards;
		run.m_Job(run.m_Context, job);
		lock.lock();
		m_HazardsOfThreads += hazards - before;
		if (--m_JobsLeft == 0)
			m_Changed.notify_all();
	}
}
} // namespace Support
