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

// A worker looks for a new run as often as this before it sleeps: for some 100 microseconds.
constexpr u32 kLooksBeforeSleep = 100000;

// The sorting thread asks JavaScript as often as this whether it should go on waiting: every millisecond or so.
constexpr u32 kLooksBetweenQuestions = 1000000;

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

// Of the run. They are written before its ticket, and stay until all jobs that were taken have returned.
SSortJobs::CbJob s_Job;
void *s_Context;

// Each has a cache line of its own, because threads look at one of them while others change another one.
alignas(kCacheLine) std::atomic<u64> s_Ticket;
alignas(kCacheLine) std::atomic<u32> s_UnfinishedCount; // of the run's jobs
alignas(kCacheLine) std::atomic<u32> s_RunNumber;       // what workers look at and sleep on
alignas(kCacheLine) std::atomic<u32> s_SleeperCount;

// Takes the next job and runs it. Returns false if there is none.
bool RunNextJob()
{
	STicket ticket = {s_Ticket.load(std::memory_order_acquire)};
	while (ticket.HasJob())
	{
		if (!s_Ticket.compare_exchange_weak(ticket.m_Bits, ticket.m_Bits + 1, std::memory_order_acq_rel))
			continue;
		s_Job(s_Context, ticket.NextJob());
		s_UnfinishedCount.fetch_sub(1, std::memory_order_release);
		return true;
	}
	return false;
}

// The address of a number, as instructions that sleep and wake up take it.
int *AddressOf(std::atomic<u32> &number)
{
	return reinterpret_cast<int *>(&number);
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

// Waits by looking, since the main thread of a page may not sleep.
static void WaitForJobsOfOthers()
{
	for (u32 lookCount = 1; s_UnfinishedCount.load(std::memory_order_acquire) != 0; ++lookCount)
	{
		if (lookCount % kLooksBetweenQuestions == 0)
			go_on_waiting(lookCount == kLooksBetweenQuestions);
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

// How many threads sort from now on, with the one that calls.
VX_WEB_EXPORT(set_thread_count) void set_thread_count(u32 threadCount)
{
	s_ThreadCount = threadCount;
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
