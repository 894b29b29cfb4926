#pragma once

// How cases are named, registered and timed. A name is "stage/what/who/size": the report finds competitors of a case by
// it. Cases that restore their input between runs time themselves, because pausing the library's clock costs as much as
// a small sort.

#include "vx_defs.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <initializer_list>
#include <string>

namespace VexmoorBench
{
using namespace Vexmoor;

/// "a/b/c".
inline std::string CaseName(std::initializer_list<std::string> parts)
{
	std::string name;
	for (const std::string &part : parts)
		name += name.empty() ? part : "/" + part;
	return name;
}

/// Calls run, and gives its time to the benchmark as that of one iteration.
template<typename _Run>
void TimeIteration(benchmark::State &state, const _Run &run)
{
	const auto start = std::chrono::steady_clock::now();
	run();
	benchmark::ClobberMemory();
	const auto stop = std::chrono::steady_clock::now();
	state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
}

/// Says what one iteration holds: that many calls, each of so many items. The report divides by them.
inline void DescribeIteration(benchmark::State &state, u64 calls, u64 items)
{
	state.counters["calls"] = double(calls);
	state.counters["items"] = double(items);
}

void RegisterSortStage();
void RegisterSortCounts();
void RegisterSortParts();
void RegisterFill();
void RegisterExpansion();
void RegisterBillboards();
void RegisterTriangles();
void RegisterTubes();
void RegisterSmallPages();
void RegisterDrawCalls();
void RegisterDiagnostics();
} // namespace VexmoorBench
