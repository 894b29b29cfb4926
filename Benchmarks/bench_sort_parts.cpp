// What a radix sort of three passes cannot do without, part by part and each as fast as known: clearing and summing the
// counters, the sweep that counts all digits, and a scatter that is told every destination beforehand. Their sum leaves
// out that positions are counted on while records move; so the scatter comes with the stores of positions as well, and
// last there are all nine stores that a record takes, and nothing besides.

#include "bench_inputs.h"
#include "bench_registry.h"
#include "sort_competitors.h"
#include <cstring>
#include <functional>
#include <utility>

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

	template<typename _Counter>
	void Count(const SIndexAndDepth *records, u32 count, _Counter *counters)
	{
		for (u32 i = 0; i < count; ++i)
		{
			for (u32 pass = 0; pass < kPasses; ++pass)
			{
				_Counter &counter = counters[pass * kHistogramStride + Digit(records[i].m_Depth, pass)];
				counter = _Counter(counter + 1);
			}
		}
	}

	typedef TRadixSort<Sort_InBuffer> CSort;

	template<typename _Counter>
	void SumCounters(_Counter *counters)
	{
		CSort::SumCounters<11>(counters);
		CSort::SumCounters<11>(counters + kHistogramStride);
		CSort::SumCounters<10>(counters + 2 * kHistogramStride);
	}

	// One call at a time, since counters that have been summed are no histogram any more, and in the first cache, where
	// counting leaves them. The two looks at the clock are in the time: some 3 per cent.
	template<typename _Counter>
	void RunClearAndSum(benchmark::State &state, u32 count)
	{
		const CBuffer<SIndexAndDepth> &records = Records(EKeys::Uniform, count);
		CBuffer<_Counter> counters(kCounters);
		for (auto _ : state)
		{
			std::memset(counters.Data(), 0, kCounters * sizeof(_Counter));
			Count(records.Data(), count, counters.Data());
			TimeIteration(state,
				[&]
				{
					SumCounters(counters.Data());
					benchmark::ClobberMemory();
					std::memset(counters.Data(), 0, kCounters * sizeof(_Counter));
				});
		}
		DescribeIteration(state, 1, count);
	}

	template<typename _Counter>
	void RunCounting(benchmark::State &state, u32 count)
	{
		const CBuffer<SIndexAndDepth> &records = Records(EKeys::Uniform, count);
		const u32 batch = std::min(PoolInputCount(count), std::max(1u, kBatchRecords / count));
		CBuffer<_Counter> counters(kCounters);
		for (auto _ : state)
		{
			for (u32 i = 0; i < batch; ++i)
				Count(records.Data() + size_t(i) * count, count, counters.Data());
			benchmark::ClobberMemory();
		}
		DescribeIteration(state, batch, count);
	}

	// All three passes, each with its own destinations: those that the passes of a sort of this input have. With the
	// positions, the next one of each digit is stored too, which nothing waits for.
	template<bool _StoresPositions>
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

		const auto move = [&](u32 pass, const SIndexAndDepth *from, SIndexAndDepth *to)
		{
			const u32 *const destination = destinations[pass].Data();
			u32 *const positions = counters.Data() + pass * kHistogramStride;
			for (u32 i = 0; i < count; ++i)
			{
				if (count > CSort::kMaxCountInCaches)
					__builtin_prefetch(to + destination[i] + kRecordsPerLine<SIndexAndDepth>, 1);
				if constexpr (_StoresPositions)
					positions[Digit(from[i].m_Depth, pass)] = destination[i] + 1;
				u64 word; // a record moves as one word
				std::memcpy(&word, from + i, sizeof(word));
				std::memcpy(to + destination[i], &word, sizeof(word));
			}
		};
		for (auto _ : state)
		{
			move(0, records.Data(), out.Data());
			move(1, out.Data(), records.Data());
			move(2, records.Data(), out.Data());
			benchmark::ClobberMemory();
		}
		DescribeIteration(state, 1, count);
	}

	// A counter of each digit when they are counted, and in each pass the position that has been used and the record, all
	// in lines of the first cache.
	void RunStores(benchmark::State &state, EKeys keys, u32 count)
	{
		constexpr u32 kWords = 512;
		const CBuffer<SIndexAndDepth> &records = Records(keys, count);
		const u32 batch = std::min(PoolInputCount(count), std::max(1u, kBatchRecords / count));
		CBuffer<u32> counterBuffer(kCounters);
		CBuffer<u64> wordBuffer(kWords);
		volatile u32 *const counters = counterBuffer.Data(); // every store is made
		volatile u64 *const words = wordBuffer.Data();
		for (auto _ : state)
		{
			for (size_t i = 0; i < size_t(batch) * count; ++i)
			{
				const SIndexAndDepth &record = records[i];
				for (u32 pass = 0; pass < kPasses; ++pass)
					counters[pass * kHistogramStride + Digit(record.m_Depth, pass)] = record.m_Index;
				for (u32 pass = 0; pass < kPasses; ++pass)
				{
					const u32 digit = Digit(record.m_Depth, pass);
					counters[pass * kHistogramStride + digit] = record.m_Depth;
					words[digit % kWords] = record.m_Index;
				}
			}
		}
		DescribeIteration(state, batch, count);
	}

	void Register(EKeys keys, const char *part, u32 count, bool manualTime, std::function<void(benchmark::State &)> run)
	{
		auto *const registered = benchmark::RegisterBenchmark(
			CaseName({"sort_parts", Name(keys), part, std::to_string(count)}).c_str(), std::move(run));
		if (manualTime)
			registered->UseManualTime();
	}

	// Counters are as wide as the sort has them for so many records.
	template<typename _Counter>
	void RegisterCounters(u32 count)
	{
		Register(EKeys::Uniform, "clear_and_sum", count, true,
			[count](benchmark::State &state) { RunClearAndSum<_Counter>(state, count); });
		Register(EKeys::Uniform, "count", count, false,
			[count](benchmark::State &state) { RunCounting<_Counter>(state, count); });
	}
} // namespace

void RegisterSortParts()
{
	for (const u32 count : kCounts)
	{
		if (count <= CSort::kMaxCountIn8Bits)
			RegisterCounters<u8>(count);
		else if (count <= CSort::kMaxCountIn16Bits)
			RegisterCounters<u16>(count);
		else
			RegisterCounters<u32>(count);
		Register(EKeys::Uniform, "scatter", count, false,
			[count](benchmark::State &state) { RunScatter<false>(state, count); });
		Register(EKeys::Uniform, "scatter_and_positions", count, false,
			[count](benchmark::State &state) { RunScatter<true>(state, count); });
		for (const EKeys keys : {EKeys::Uniform, EKeys::Ball, EKeys::Curve})
			Register(keys, "stores", count, false, [=](benchmark::State &state) { RunStores(state, keys, count); });
	}
}
} // namespace VexmoorBench
