#pragma once

// Two runs timed in turns: for differences that are smaller than what a machine drifts between one case and another.

#include "vx_defs.h"

#include "bench_clock.h"
#include <algorithm>
#include <benchmark/benchmark.h>
#include <vector>

namespace VexmoorBench
{
using namespace Vexmoor;

constexpr u32 kPairsPerIteration = 15;

/// The value in the middle.
inline double Median(std::vector<double> values)
{
	const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
	std::nth_element(values.begin(), middle, values.end());
	return *middle;
}

/// Lets plain and other, which give the seconds that their turn has taken, take turns, each first as often as the
/// other, and sets two counters: "ratio", the median over the pairs of other's time over plain's, and "plain_ns", the
/// median of plain's time.
template<typename _Plain, typename _Other>
void RunTimedPairs(
	benchmark::State &state, const _Plain &plain, const _Other &other, u32 pairsPerIteration = kPairsPerIteration)
{
	std::vector<double> ratios;
	std::vector<double> plainSeconds;
	for (auto _ : state)
	{
		for (u32 pair = 0; pair < pairsPerIteration; ++pair)
		{
			const bool plainFirst = pair % 2 == 0;
			const double first = plainFirst ? plain() : other();
			const double second = plainFirst ? other() : plain();
			plainSeconds.push_back(plainFirst ? first : second);
			ratios.push_back(plainFirst ? second / first : first / second);
		}
	}
	state.counters["ratio"] = Median(ratios);
	state.counters["plain_ns"] = Median(plainSeconds) * 1e9;
}

/// RunTimedPairs of two functions that do not time themselves.
template<double (*_Now)() = ThreadTime, typename _Plain, typename _Other>
void RunPairs(benchmark::State &state, const _Plain &plain, const _Other &other)
{
	RunTimedPairs(
		state, [&] { return Seconds<_Now>(plain); }, [&] { return Seconds<_Now>(other); });
}
} // namespace VexmoorBench
