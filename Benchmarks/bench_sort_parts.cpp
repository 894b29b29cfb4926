// What a radix sort of three passes cannot do without, part by part and each as fast as known: clearing and summing the
// counters, the sweep that counts all digits, and a scatter that is told every destination beforehand. Their sum is a
// floor for the sort on the machine of the run.

#include "bench_inputs.h"
#include "bench_registry.h"
#include "sort_competitors.h"
#include <cstring>
#include <emmintrin.h>

namespace VexmoorBench
{
namespace
{
	constexpr u32 kCounts[] = {110, 256, 1000, 10000, 100000, 1000000, 4000000};
	constexpr u32 kBatchRecords = 1u << 15;
	constexpr u32 kPasses = 3;
	constexpr u32 kShifts[kPasses] = {0, 11, 22};
	constexpr u32 kDigits[kPasses] = {2048, 2048, 1024};
	constexpr u32 kHistogramStride = 2240;
	constexpr u32 kCounters = 2 * kHistogramStride + 1024;

	u32 Digit(u32 key, u32 pass)
	{
		return (key >> kShifts[pass]) & (kDigits[pass] - 1);
	}

	void Count(const SIndexAndDepth *records, u32 count, u32 *counters)
	{
		for (u32 i = 0; i < count; ++i)
		{
			const u32 key = records[i].m_Depth;
			++counters[key & 2047];
			++counters[kHistogramStride + ((key >> 11) & 2047)];
			++counters[2 * kHistogramStride + (key >> 22)];
		}
	}

	// Exclusive sums of four counters at a time; only the running sum is carried from step to step. Counters that are all
	// zero are left as they are, since no record asks for them.
	//
	//   lane      0        1          2              3
	//   counts    a        b          c              d
	//   scan      a        a + b      a + b + c      a + b + c + d
	//   sums      s        s + a      s + a + b      s + a + b + c     scan - counts + s
	void SumCounters(u32 *counters)
	{
		for (u32 pass = 0; pass < kPasses; ++pass)
		{
			__m128i *const histogram = reinterpret_cast<__m128i *>(counters + pass * kHistogramStride);
			__m128i sum = _mm_setzero_si128();
			for (u32 i = 0; i < kDigits[pass] / 4; ++i)
			{
				const __m128i counts = _mm_load_si128(histogram + i);
				if (_mm_movemask_epi8(_mm_cmpeq_epi32(counts, _mm_setzero_si128())) == 0xFFFF)
					continue;
				__m128i scan = _mm_add_epi32(counts, _mm_slli_si128(counts, 4));
				scan = _mm_add_epi32(scan, _mm_slli_si128(scan, 8));
				_mm_store_si128(histogram + i, _mm_add_epi32(_mm_sub_epi32(scan, counts), sum));
				sum = _mm_add_epi32(sum, _mm_shuffle_epi32(scan, _MM_SHUFFLE(3, 3, 3, 3)));
			}
		}
	}

	// One call at a time, since counters that have been summed are no histogram any more, and in the first cache, where
	// counting leaves them. The two looks at the clock are in the time: some 3 per cent.
	void RunClearAndSum(benchmark::State &state, u32 count)
	{
		const CBuffer<SIndexAndDepth> &records = Records(EKeys::Uniform, count);
		CBuffer<u32> counters(kCounters);
		for (auto _ : state)
		{
			std::memset(counters.Data(), 0, kCounters * sizeof(u32));
			Count(records.Data(), count, counters.Data());
			TimeIteration(state,
				[&]
				{
					SumCounters(counters.Data());
					benchmark::ClobberMemory();
					std::memset(counters.Data(), 0, kCounters * sizeof(u32));
				});
		}
		DescribeIteration(state, 1, count);
	}

	void RunCounting(benchmark::State &state, u32 count)
	{
		const CBuffer<SIndexAndDepth> &records = Records(EKeys::Uniform, count);
		const u32 batch = std::min(PoolInputCount(count), std::max(1u, kBatchRecords / count));
		CBuffer<u32> counters(kCounters);
		for (auto _ : state)
		{
			for (u32 i = 0; i < batch; ++i)
				Count(records.Data() + size_t(i) * count, count, counters.Data());
			benchmark::ClobberMemory();
		}
		DescribeIteration(state, batch, count);
	}

	// All three passes, each with its own destinations: those that the passes of a sort of this input have.
	void RunScatter(benchmark::State &state, u32 count)
	{
		const CBuffer<SIndexAndDepth> &input = Records(EKeys::Uniform, count);
		CBuffer<SIndexAndDepth> records(count);
		CBuffer<SIndexAndDepth> out(count);
		CBuffer<u32> counters(kCounters);
		CBuffer<u32> destinations[kPasses] = {CBuffer<u32>(count), CBuffer<u32>(count), CBuffer<u32>(count)};

		Count(input.Data(), count, counters.Data());
		SumCounters(counters.Data());
		std::copy_n(input.Data(), count, records.Data());
		for (u32 pass = 0; pass < kPasses; ++pass)
		{
			for (u32 i = 0; i < count; ++i)
			{
				const u32 digit = Digit(records[i].m_Depth, pass);
				destinations[pass][i] = counters[pass * kHistogramStride + digit]++;
			}
			for (u32 i = 0; i < count; ++i)
				out[destinations[pass][i]] = records[i];
			std::swap(out, records);
		}
		if (!std::is_sorted(records.Data(), records.Data() + count))
			state.SkipWithError("not sorted");

		const auto move = [count](const SIndexAndDepth *from, SIndexAndDepth *to, const u32 *destination)
		{
			for (u32 i = 0; i < count; ++i)
			{
				u64 word; // a record moves as one word
				std::memcpy(&word, from + i, sizeof(word));
				std::memcpy(to + destination[i], &word, sizeof(word));
			}
		};
		for (auto _ : state)
		{
			move(records.Data(), out.Data(), destinations[0].Data());
			move(out.Data(), records.Data(), destinations[1].Data());
			move(records.Data(), out.Data(), destinations[2].Data());
			benchmark::ClobberMemory();
		}
		DescribeIteration(state, 1, count);
	}

	void Register(const char *part, u32 count, void (*run)(benchmark::State &, u32), bool manualTime)
	{
		auto *const registered =
			benchmark::RegisterBenchmark(CaseName({"sort_parts", "uniform", part, std::to_string(count)}).c_str(),
				[run, count](benchmark::State &state) { run(state, count); });
		if (manualTime)
			registered->UseManualTime();
	}
} // namespace

void RegisterSortParts()
{
	for (const u32 count : kCounts)
	{
		Register("clear_and_sum", count, RunClearAndSum, true);
		Register("count", count, RunCounting, false);
		Register("scatter", count, RunScatter, false);
	}
}
} // namespace VexmoorBench
