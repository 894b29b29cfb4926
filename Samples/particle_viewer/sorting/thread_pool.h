#pragma once

// A host's own pool of threads, and how it is described to the sorter. Any pool will do that runs a function a number
// of times and waits until all calls have returned.

#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// As many threads as the processor runs at once.
u32 MostThreads();

class CThreadPool
{
public:
	/// The calling thread works too, so one thread less is started.
	explicit CThreadPool(u32 threadCount);
	~CThreadPool();
	CThreadPool(const CThreadPool &) = delete;
	CThreadPool &operator=(const CThreadPool &) = delete;

	u32 ThreadCount() const { return u32(m_Threads.size()) + 1; }
	/// For a sort on all threads. Valid as long as the pool.
	SSortJobs Jobs();

private:
	void Run(u32 jobCount, SSortJobs::CbJob job, void *context);
	void Work();
	void RunOne(std::unique_lock<std::mutex> &lock);

	std::mutex m_Lock;
	std::condition_variable m_HasJobs, m_IsDone;
	SSortJobs::CbJob m_Job = null;
	void *m_Context = null;
	u32 m_JobCount = 0, m_NextJob = 0, m_JobsLeft = 0;
	bool m_IsEnding = false;
	std::vector<std::thread> m_Threads; // the last to be made: they use all of the above
};
} // namespace Viewer
