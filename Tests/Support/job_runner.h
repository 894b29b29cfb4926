#pragma once

// Hosts' ways to run jobs: in any order, on one thread or on many. Each checks that the sorter keeps what it promises
// of its calls.

#include "ge_mesh_triangle_sorter.h"

#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace Support
{
using Vexmoor::u32;

enum EJobOrder
{
	JobOrder_Natural,
	JobOrder_Reversed,
	JobOrder_Shuffled, // another order for each run
	JobOrder_Threads   // whichever of four threads comes first
};

class CJobRunner
{
public:
	CJobRunner(u32 maxJobCount, EJobOrder order);
	~CJobRunner();
	CJobRunner(const CJobRunner &) = delete;
	CJobRunner &operator=(const CJobRunner &) = delete;

	// For the thread that has made the runner.
	Vexmoor::SSortJobs Jobs();
	u32 RunCount() const { return m_RunCount; }
	// Of one run.
	u32 LargestJobCount() const { return m_LargestJobCount; }
	// What the other threads have counted.
	u32 HazardsOfThreads() const { return m_HazardsOfThreads; }

private:
	struct SRun
	{
		Vexmoor::SSortJobs::CbJob m_Job;
		void *m_Context;
		u32 m_JobCount;
	};

	void _Run(const SRun &run);
	void _RunOnThreads(const SRun &run);
	void _Work();

	const u32 m_MaxJobCount;
	const EJobOrder m_Order;
	const std::thread::id m_SortingThread = std::this_thread::get_id();
	u32 m_RunCount = 0;
	u32 m_LargestJobCount = 0;
	bool m_IsRunning = false;

	std::vector<std::thread> m_Threads;
	std::mutex m_Lock;
	std::condition_variable m_Changed;
	SRun m_Current = {};
	u32 m_NextJob = 0;
	u32 m_JobsLeft = 0;
	bool m_IsEnding = false;
	u32 m_HazardsOfThreads = 0;
};

const char *NameOf(EJobOrder order);
} // namespace Support
