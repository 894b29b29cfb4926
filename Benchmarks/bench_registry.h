#pragma once

// How cases are named, registered and timed. A name is "stage/what/who/size": the report finds competitors of a case by
// it. Cases that restore their input between runs time themselves, because pausing the library's clock costs as much as
// a small sort.

#include "vx_defs.h"

#include "bench_clock.h"
#include <benchmark/benchmark.h>
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

/// Says how many calls one iteration makes, and how many items each call has. The report divides by both.
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
void RegisterScenes();
void RegisterCold();
void RegisterSmallPages();
void RegisterDrawCalls();
void RegisterJobs();
void RegisterDiagnostics();
} // namespace VexmoorBench
