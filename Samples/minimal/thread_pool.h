#pragma once

// A host's pool of threads, as engines have one: it runs jobs by number and waits until all have returned. A thread
// without a job looks for one for a while before it sleeps, because runs of jobs follow each other within microseconds,
// and to wake a thread up takes tens of them.

#include "vx_defs.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace Minimal
{
using Vexmoor::u32;

class CThreadPool
{
public:
	typedef void (*CbJob)(void *context, u32 jobIndex);

	/// The calling thread works too, so one thread fewer is started.
	explicit CThreadPool(u32 threadCount)
	{
		for (u32 i = 1; i < threadCount; ++i)
			m_Threads.emplace_back([this] { _Work(); });
	}
	~CThreadPool()
	{
		m_IsEnding = true;
		_WakeUp();
		for (std::thread &thread : m_Threads)
			thread.join();
	}
	CThreadPool(const CThreadPool &) = delete;
	CThreadPool &operator=(const CThreadPool &) = delete;

	/// Calls job(context, 0) to job(context, jobCount - 1), in any order and on any threads, and returns when all have
	/// returned. One thread at a time calls it, and never from inside a job.
	void Run(u32 jobCount, CbJob job, void *context)
	{
		m_Job = job;
		m_Context = context;
		m_JobsLeft = jobCount;
		m_JobsToTake = jobCount; // from here on, other threads take jobs
		_WakeUp();
		while (_RunOne())
		{
		}
		_WaitUntil([this] { return m_JobsLeft == 0; });
	}

private:
	// A thread that looks keeps its core busy, so other work and the processor's turbo suffer while it does: this is
	// longer than what a sort does between two runs of jobs, and short beside a frame.
	static constexpr std::chrono::microseconds kLookFor{100};
	static constexpr u32 kLooksPerTime = 64; // between two looks at the clock

	void _Work()
	{
		while (!m_IsEnding)
		{
			while (_RunOne())
			{
			}
			_WaitUntil([this] { return m_JobsToTake != 0 || m_IsEnding; });
		}
	}

	// Takes a job and runs it. Returns false if none is left to take. Whoever has taken a job can read which run it
	// belongs to, since that run does not end before the job has returned.
	bool _RunOne()
	{
		u32 left = m_JobsToTake;
		do
		{
			if (left == 0)
				return false;
		} while (!m_JobsToTake.compare_exchange_weak(left, left - 1));
		m_Job(m_Context, left - 1);
		if (--m_JobsLeft == 0)
			_WakeUp();
		return true;
	}

	// A thread counts itself as sleeping before it looks for the last time, and what it looks for is stored before
	// sleeping threads are counted. So either the thread sees what it waits for, or it is seen and woken up. It has the
	// lock from counting itself until it sleeps.
	template<typename _Condition>
	void _WaitUntil(const _Condition &condition)
	{
		const auto end = std::chrono::steady_clock::now() + kLookFor;
		do
		{
			for (u32 look = 0; look < kLooksPerTime; ++look)
			{
				if (condition())
					return;
			}
			std::this_thread::yield(); // to whoever has work for this core
		} while (std::chrono::steady_clock::now() < end);

		std::unique_lock<std::mutex> lock(m_Lock);
		++m_SleepingCount;
		m_Changed.wait(lock, condition);
		--m_SleepingCount;
	}
	void _WakeUp()
	{
		if (m_SleepingCount == 0)
			return;
		{
			const std::lock_guard<std::mutex> lock(m_Lock);
		}
		m_Changed.notify_all();
	}

	std::vector<std::thread> m_Threads;
	CbJob m_Job = nullptr;
	void *m_Context = nullptr;
	std::atomic<u32> m_JobsToTake{0}; // of the current run; jobs are taken from the last to the first
	std::atomic<u32> m_JobsLeft{0};   // that have not returned
	std::atomic<u32> m_SleepingCount{0};
	std::atomic<bool> m_IsEnding{false};
	std::mutex m_Lock;
	std::condition_variable m_Changed;
};
} // namespace Minimal
