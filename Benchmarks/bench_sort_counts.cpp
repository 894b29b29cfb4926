// How evenly the time of a sort grows with the number of records: every count from 2 to 256, at every lane width, and
// how much more a record costs than in a sort of one record more or less.

#include "kr_cpu.h"

#include "bench_inputs.h"
#include "bench_pairs.h"
#include "bench_registry.h"
#include "sort_competitors.h"
#include <numeric>
#include <random>
#include <vector>

namespace VexmoorBench
{
namespace
{
	constexpr u32 kLowestCount = 2;
	constexpr u32 kHighestCount = 256;
	constexpr u32 kBatchRecords = 1u << 12; // between two looks at the clock: 64 KB of records and output
	constexpr u32 kWindowRecords = 2 * kBatchRecords;
	constexpr u32 kRounds = 41;
	constexpr double kEvenRatio = 1.25; // neighbours beyond it are counted as uneven steps
	constexpr EKeys kKeys[] = {EKeys::Uniform, EKeys::Ball, EKeys::Curve, EKeys::NearlySorted};

	// Sorts inputs of one count and one kind of keys, and returns the seconds that a record takes. Each input is the
	// beginning of another one of the pool; the caller goes on with the next ones. It lies right behind its output, as
	// in a working buffer.
	double SecondsPerRecord(const CBuffer<SIndexAndDepth> &pool, u32 &nextInput, u32 count, SIndexAndDepth *window)
	{
		const u32 stride = (count + 1) & ~1u; // record arrays start at multiples of 16 bytes
		const u32 inputs = kBatchRecords / stride;
		const auto outOf = [=](u32 i) { return window + size_t(i) * 2 * stride; };
		const auto inOf = [=](u32 i) { return outOf(i) + stride; };
		for (u32 i = 0; i < inputs; ++i)
		{
			const u32 input = nextInput++ % PoolInputCount(kHighestCount);
			std::copy_n(pool.Data() + size_t(input) * kHighestCount, count, inOf(i));
		}
		CVexmoorSort sort;
		const double seconds = Seconds(
			[&]
			{
				for (u32 i = 0; i < inputs; ++i)
					sort.Run(inOf(i), count, outOf(i));
			});
		return seconds / (double(inputs) * count);
	}

	// One iteration takes every count once, in another order each time, and in memory that no other one uses: on some
	// processors a sort takes several times as long where pages of memory happen to lie so that loads are taken for
	// depending on stores (tried.md). A count's time is the median over the iterations, of the mean over the kinds of
	// keys.
	void RunCounts(benchmark::State &state, Cpu::EInstructionSet instructionSet)
	{
		Cpu::SetMaxInstructionSet(instructionSet);
		CBuffer<SIndexAndDepth> windows(size_t(kRounds) * kWindowRecords);
		SIndexAndDepth *window = windows.Data();
		std::vector<std::vector<double>> times(kHighestCount + 1);
		std::vector<u32> counts(kHighestCount + 1 - kLowestCount);
		std::iota(counts.begin(), counts.end(), kLowestCount);
		std::mt19937 random(instructionSet);
		u32 nextInput = 0;
		for (auto _ : state)
		{
			std::shuffle(counts.begin(), counts.end(), random);
			for (const u32 count : counts)
			{
				double sum = 0;
				for (const EKeys keys : kKeys)
					sum += SecondsPerRecord(Records(keys, kHighestCount), nextInput, count, window);
				times[count].push_back(sum / double(std::size(kKeys)));
			}
			window += kWindowRecords;
		}
		Cpu::SetMaxInstructionSet(Cpu::InstructionSet_Avx512);
		DescribeIteration(state, 1, counts.size());

		std::vector<double> medians(kHighestCount + 1);
		for (const u32 count : counts)
			medians[count] = Median(times[count]);
		double worstRatio = 1;
		u32 worstCount = kLowestCount; // the higher one of the two neighbours
		u32 stepCount = 0;
		for (u32 count = kLowestCount + 1; count <= kHighestCount; ++count)
		{
			const double ratio = std::max(medians[count] / medians[count - 1], medians[count - 1] / medians[count]);
			stepCount += ratio > kEvenRatio;
			if (ratio > worstRatio)
			{
				worstRatio = ratio;
				worstCount = count;
			}
		}
		state.counters["worst_ratio"] = worstRatio;
		state.counters["worst_count"] = worstCount;
		state.counters["uneven_steps"] = stepCount;
		state.counters["ratio_109_over_110"] = medians[109] / medians[110];
		for (const u32 count : {2u, 8u, 9u, 64u, 109u, 110u, 256u})
			state.counters["ns_at_" + std::to_string(count)] = medians[count] * 1e9;
	}
} // namespace

void RegisterSortCounts()
{
	for (u32 set = Cpu::InstructionSet_Baseline; set <= u32(Cpu::InstructionSet()); ++set)
	{
		benchmark::RegisterBenchmark(
			CaseName({"sort_counts", "neighbours", std::to_string(4u << set) + "_lanes", "256"}).c_str(),
			[set](benchmark::State &state) { RunCounts(state, Cpu::EInstructionSet(set)); })
			->Iterations(kRounds);
	}
}
} // namespace VexmoorBench
