// The thread pool of the examples and of the benchmarks: each job runs once, whether the pool's threads look for work
// or sleep. A thread that is not woken up leaves a test waiting for ever.

#include "thread_pool.h"
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace Vexmoor;
using Minimal::CThreadPool;
using std::chrono::microseconds;

template<typename _Job>
static void RunJobs(CThreadPool &pool, u32 jobCount, const _Job &job)
{
	pool.Run(
		jobCount, [](void *context, u32 jobIndex) { (*static_cast<const _Job *>(context))(jobIndex); },
		const_cast<_Job *>(&job));
}

TEST(ThreadPool, RunsThatFollowEachOther_RunEachJobOnce)
{
	for (const u32 threadCount : {1u, 2u, 3u, 5u})
	{
		CThreadPool pool(threadCount);
		for (u32 run = 0; run < 300; ++run)
		{
			std::vector<u32> calls(1 + run % 20); // written by jobs without a lock, and read when all have returned
			RunJobs(pool, u32(calls.size()), [&](u32 job) { ++calls[job]; });
			ASSERT_EQ(calls, std::vector<u32>(calls.size(), 1)) << "run " << run << " on " << threadCount << " threads";
		}
	}
}

// As many jobs as threads, each of which waits for the others: no thread may be left out. Pauses end before threads
// sleep, while they fall asleep, and after that.
TEST(ThreadPool, JobsThatWaitForEachOther_FindAThreadEach)
{
	constexpr u32 kThreadCount = 3;
	CThreadPool pool(kThreadCount);
	for (u32 run = 0; run < 200; ++run)
	{
		std::this_thread::sleep_for(microseconds(run % 2 == 0 ? 0 : run));
		std::atomic<u32> arrived{0};
		RunJobs(pool, kThreadCount,
			[&](u32)
			{
				++arrived;
				while (arrived != kThreadCount)
					std::this_thread::yield();
			});
		ASSERT_EQ(arrived, kThreadCount);
	}
}

// The calling thread has long gone to sleep when the last job returns.
TEST(ThreadPool, LongJob_WakesTheCaller)
{
	CThreadPool pool(2);
	const std::thread::id caller = std::this_thread::get_id();
	for (u32 run = 0; run < 20; ++run)
	{
		std::atomic<u32> arrived{0};
		RunJobs(pool, 2,
			[&](u32)
			{
				++arrived;
				while (arrived != 2)
					std::this_thread::yield();
				if (std::this_thread::get_id() != caller)
					std::this_thread::sleep_for(microseconds(1000));
			});
		ASSERT_EQ(arrived, 2u);
	}
}

TEST(ThreadPool, NothingToDo_Ends)
{
	for (u32 i = 0; i < 50; ++i)
	{
		const CThreadPool pool(4);
		std::this_thread::sleep_for(microseconds(i * 5));
	}
}
