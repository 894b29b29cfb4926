// Threads that sort together. JavaScript makes them: each is a worker with an instance of this module and a stack of
// its own, in one shared memory. A worker calls work() and stays there. A sort hands out its jobs by a ticket:
//
//   ticket     | run number | count of jobs | next job |
//   to take    a thread exchanges the ticket for that of the next job, which fails if another thread was faster, or
//              if the run has ended
//   to end     the sorting thread takes jobs too, until none is left, and then waits for those that others have taken
//
// So a worker is waited for only while it has a job. One that wakes up late, or is stopped while it has none, costs
// nothing but its help. Workers spin between the runs of a sort, because it takes tens of microseconds to wake up, and
// sleep between sorts.

#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

#include "pv_export.h"
#include "pv_threads.h"

#include <atomic>
#include <cstdlib>

using namespace Vexmoor;

namespace
{
constexpr u32 kCacheLine = 64;

// A thread that waits looks as often as this before it sleeps: for some 100 microseconds.
constexpr u32 kLooksBeforeSleep = 100000;

// The sorting thread asks JavaScript whether to go on waiting: after so many looks, or after so many nanoseconds
// asleep.
constexpr u32 kLooksBetweenQuestions = 1000000;
constexpr s64 kLongestSleep = 50000000;

// A job uses up to 64 KiB of it, and what calls the job some hundred bytes.
constexpr u32 kStackSize = 96 * 1024;

struct STicket
{
	u64 m_Bits;

	static STicket OfRun(u32 runNumber, u32 jobCount) { return {u64(runNumber) << 32 | jobCount << 16}; }
	bool HasJob() const { return NextJob() < u16(m_Bits >> 16); }
	u32 NextJob() const { return u16(m_Bits); }
};

u32 s_ThreadCount = 1;
bool s_SorterMaySleep = false; // not the main thread of a page

// Of the run. They are written before its ticket, and stay until all jobs that were taken have returned.
SSortJobs::CbJob s_Job;
void *s_Context;

// Each has a cache line of its own, because threads look at one of them while others change another one.
alignas(kCacheLine) std::atomic<u64> s_Ticket;
alignas(kCacheLine) std::atomic<u32> s_UnfinishedCount; // of the run's jobs
alignas(kCacheLine) std::atomic<u32> s_RunNumber;       // what workers look at and sleep on
alignas(kCacheLine) std::atomic<u32> s_SleeperCount;    // of workers
alignas(kCacheLine) std::atomic<bool> s_SorterSleeps;   // on the count of unfinished jobs

// The address of a number, as instructions that sleep and wake up take it.
int *AddressOf(std::atomic<u32> &number)
{
	return reinterpret_cast<int *>(&number);
}

// Takes the next job and runs it. Returns false if there is none.
bool RunNextJob()
{
	STicket ticket = {s_Ticket.load(std::memory_order_acquire)};
	while (ticket.HasJob())
	{
		if (!s_Ticket.compare_exchange_weak(ticket.m_Bits, ticket.m_Bits + 1, std::memory_order_acq_rel))
			continue;
		s_Job(s_Context, ticket.NextJob());
		if (s_UnfinishedCount.fetch_sub(1, std::memory_order_seq_cst) == 1 &&
			s_SorterSleeps.load(std::memory_order_seq_cst))
			__builtin_wasm_memory_atomic_notify(AddressOf(s_UnfinishedCount), 1);
		return true;
	}
	return false;
}

// Sleeps while the number of the run is the one given. A worker counts itself before it looks at the number for the
// last time, so either it sees the next run's number, or the sorting thread sees that it sleeps.
void SleepUntilNextRun(u32 runNumber)
{
	s_SleeperCount.fetch_add(1, std::memory_order_seq_cst);
	__builtin_wasm_memory_atomic_wait32(AddressOf(s_RunNumber), int(runNumber), -1);
	s_SleeperCount.fetch_sub(1, std::memory_order_seq_cst);
}

void StartRun(u32 jobCount, SSortJobs::CbJob job, void *context)
{
	s_Job = job;
	s_Context = context;
	s_UnfinishedCount.store(jobCount, std::memory_order_relaxed);
	const u32 runNumber = s_RunNumber.load(std::memory_order_relaxed) + 1;
	s_Ticket.store(STicket::OfRun(runNumber, jobCount).m_Bits, std::memory_order_release);
	s_RunNumber.store(runNumber, std::memory_order_seq_cst);
	if (s_SleeperCount.load(std::memory_order_seq_cst) != 0)
		__builtin_wasm_memory_atomic_notify(AddressOf(s_RunNumber), ~0u);
}
} // namespace

// JavaScript's. Throws, which ends the sort, if it has been asked for seconds on end: then a worker was stopped inside
// a job.
extern "C" __attribute__((import_module("env"), import_name("go_on_waiting"))) void go_on_waiting(bool isFirstQuestion);

// Looks whether all jobs have returned, as often as lookCount says.
static bool SeesEndOfRun(u32 lookCount)
{
	for (; lookCount != 0; --lookCount)
	{
		if (s_UnfinishedCount.load(std::memory_order_acquire) == 0)
			return true;
	}
	return false;
}

// Sleeps until all jobs have returned, but not for long. It says so before it looks for the last time.
static void SleepUntilEndOfRun()
{
	s_SorterSleeps.store(true, std::memory_order_seq_cst);
	const u32 unfinishedCount = s_UnfinishedCount.load(std::memory_order_seq_cst);
	if (unfinishedCount != 0)
		__builtin_wasm_memory_atomic_wait32(AddressOf(s_UnfinishedCount), int(unfinishedCount), kLongestSleep);
	s_SorterSleeps.store(false, std::memory_order_relaxed);
}

// On a busy machine, a worker may need the core on which this thread looks, so this thread sleeps if it may.
static void WaitForJobsOfOthers()
{
	if (SeesEndOfRun(kLooksBeforeSleep))
		return;
	for (bool isFirstQuestion = true;; isFirstQuestion = false)
	{
		if (s_SorterMaySleep)
			SleepUntilEndOfRun();
		if (SeesEndOfRun(s_SorterMaySleep ? 1 : kLooksBetweenQuestions))
			return;
		go_on_waiting(isFirstQuestion);
	}
}

static void RunJobs(void *, u32 jobCount, SSortJobs::CbJob job, void *context)
{
	StartRun(jobCount, job, context);
	while (RunNextJob())
	{
	}
	WaitForJobsOfOthers();
}

u32 Vexmoor::ThreadCount()
{
	return s_ThreadCount;
}

SSortJobs Vexmoor::JobsOfThreads()
{
	return {RunJobs, null, s_ThreadCount};
}

// How many threads sort from now on, with the one that calls, and whether that one may sleep.
VX_WEB_EXPORT(set_threads) void set_threads(u32 threadCount, bool sorterMaySleep)
{
	s_ThreadCount = threadCount;
	s_SorterMaySleep = sorterMaySleep;
}

// Takes memory for a worker, and returns where its stack begins, which grows down; the worker's thread-local variables
// lie above. Returns null where there is no memory.
VX_WEB_EXPORT(create_stack) void *create_stack()
{
	const u32 size = (kStackSize + u32(__builtin_wasm_tls_size()) + kCacheLine - 1) / kCacheLine * kCacheLine;
	void *const block = std::aligned_alloc(kCacheLine, size);
	return block == null ? null : static_cast<u8 *>(block) + kStackSize;
}

// What a worker does: it runs jobs of one run after the other, and does not return.
VX_WEB_EXPORT(work) void work()
{
	for (;;)
	{
		const u32 runNumber = s_RunNumber.load(std::memory_order_seq_cst);
		while (RunNextJob())
		{
		}
		u32 lookCount = 0;
		while (lookCount < kLooksBeforeSleep && s_RunNumber.load(std::memory_order_relaxed) == runNumber)
			++lookCount;
		if (lookCount == kLooksBeforeSleep)
			SleepUntilNextRun(runNumber);
	}
}
