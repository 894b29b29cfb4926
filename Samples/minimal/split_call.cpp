// One large draw call on many cores, with a thread pool that the host has anyway. The sorter hands jobs to a function
// of the host's, and the indices are the same whatever the number of threads. A sort of few particles runs no jobs.

#include "ge_mesh_pages.h"

#include "minimal.h"
#include <condition_variable>
#include <mutex>
#include <thread>

using namespace Vexmoor;

// Any pool will do that runs a function a number of times and waits until all have returned. The calling thread works
// too.
class CThreadPool
{
public:
	explicit CThreadPool(u32 threadCount)
	{
		for (u32 i = 1; i < threadCount; ++i)
			m_Threads.emplace_back([this] { Work(); });
	}
	~CThreadPool()
	{
		{
			const std::lock_guard<std::mutex> lock(m_Lock);
			m_IsEnding = true;
		}
		m_HasJobs.notify_all();
		for (std::thread &thread : m_Threads)
			thread.join();
	}

	void Run(u32 jobCount, SSortJobs::CbJob job, void *context)
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

private:
	void Work()
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

	void RunOne(std::unique_lock<std::mutex> &lock)
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

	std::vector<std::thread> m_Threads;
	std::mutex m_Lock;
	std::condition_variable m_HasJobs, m_IsDone;
	SSortJobs::CbJob m_Job = nullptr;
	void *m_Context = nullptr;
	u32 m_JobCount = 0, m_NextJob = 0, m_JobsLeft = 0;
	bool m_IsEnding = false;
};

int main()
{
	const u32 threadCount = std::max(std::thread::hardware_concurrency(), 2u);
	CThreadPool pool(threadCount);

	// What the sorter is told of the pool: a function, and how many jobs it may ask for at once.
	SSortJobs jobs;
	jobs.m_UserData = &pool;
	jobs.m_MaxJobCount = threadCount;
	jobs.m_Run = [](void *userData, u32 jobCount, SSortJobs::CbJob job, void *context)
	{ static_cast<CThreadPool *>(userData)->Run(jobCount, job, context); };

	constexpr u32 kCount = 300000;
	const std::vector<CFloat3> positions = Minimal::ScatteredPoints(kCount, 1);
	const CFloat3 camera(0, 0, -30);
	const CPositionPage pages[] = {ViewOf(positions)};
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	std::vector<u32> indices(kCount * 6);

	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages), camera);
	sorter.Setup_Geometry(ViewOf(quad), 4);

	// Jobs take a little more scratch memory.
	std::vector<u8> scratch(CTriangleSorter::GetJobsWorkingBufferSize(kCount, jobs.m_MaxJobCount));
	sorter.SortPoints_AutogenIndices(scratch.data(), scratch.size(), jobs);
	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 6, 4);
	Minimal::Require(Minimal::IsFarthestFirst(drawn, positions, camera), "a draw call of many jobs is out of order.");

	const std::vector<u32> indicesOfJobs = indices;
	sorter.SortPoints_AutogenIndices(scratch.data());
	Minimal::Require(indices == indicesOfJobs, "the sort without jobs writes other indices.");
	std::printf("%u particles, sorted by %u threads as by one.\n", kCount, threadCount);
	return 0;
}
