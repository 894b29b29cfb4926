// One lock, which is held while jobs are handed out and not while they run.

#include "thread_pool.h"

#include <algorithm>

namespace Viewer
{
u32 MostThreads()
{
	return std::max(std::thread::hardware_concurrency(), 1u);
}

CThreadPool::CThreadPool(u32 threadCount)
{
	for (u32 i = 1; i < threadCount; ++i)
		m_Threads.emplace_back([this] { Work(); });
}

CThreadPool::~CThreadPool()
{
	{
		const std::lock_guard<std::mutex> lock(m_Lock);
		m_IsEnding = true;
	}
	m_HasJobs.notify_all();
	for (std::thread &thread : m_Threads)
		thread.join();
}

SSortJobs CThreadPool::Jobs()
{
	SSortJobs jobs;
	jobs.m_UserData = this;
	jobs.m_MaxJobCount = ThreadCount();
	jobs.m_Run = [](void *pool, u32 jobCount, SSortJobs::CbJob job, void *context)
	{ static_cast<CThreadPool *>(pool)->Run(jobCount, job, context); };
	return jobs;
}

void CThreadPool::Run(u32 jobCount, SSortJobs::CbJob job, void *context)
{
	std::unique_lock<std::mutex> lock(m_Lock);
	m_Job = job;
	m_Context = context;
	m_JobCount = m_JobsLeft = jobCount;
	m_NextJob = 0;
	m_HasJobs.notify_all();
	while (m_NextJob != m_JobCount)
		RunOne(lock);
	m_IsDone.wait(lock, [this] { return m_JobsLeft == 0; });
}

void CThreadPool::Work()
{
	std::unique_lock<std::mutex> lock(m_Lock);
	for (;;)
	{
		m_HasJobs.wait(lock, [this] { return m_IsEnding || m_NextJob != m_JobCount; });
		if (m_IsEnding)
			return;
		RunOne(lock);
	}
}

void CThreadPool::RunOne(std::unique_lock<std::mutex> &lock)
{
	const SSortJobs::CbJob job = m_Job;
	void *const context = m_Context;
	const u32 jobIndex = m_NextJob++;
	lock.unlock();
	job(context, jobIndex);
	lock.lock();
	if (--m_JobsLeft == 0)
		m_IsDone.notify_one();
}
} // namespace Viewer
