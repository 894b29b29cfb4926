#pragma once

// How long something takes: in time of the thread, or, where that is read too slowly, by the wall clock.

#include "vx_defs.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <time.h>

namespace VexmoorBench
{
/// The processor time of the calling thread, in seconds. What other processes take meanwhile is not in it. Reading it
/// is a call into the system, 0.2 to 0.4 microseconds.
inline double ThreadTime()
{
	timespec time;
	clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
	return double(time.tv_sec) + 1e-9 * double(time.tv_nsec);
}

/// Seconds that pass whatever runs: for work on several threads, and for work that takes less than a microsecond.
inline double WallTime()
{
	return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// The seconds that one call takes.
template<double (*_Now)() = ThreadTime, typename _Run>
double Seconds(const _Run &run)
{
	const double start = _Now();
	run();
	benchmark::ClobberMemory();
	return _Now() - start;
}

/// Calls run, and gives its time to the benchmark as that of one iteration.
template<double (*_Now)() = ThreadTime, typename _Run>
void TimeIteration(benchmark::State &state, const _Run &run)
{
	state.SetIterationTime(Seconds<_Now>(run));
}
} // namespace VexmoorBench
