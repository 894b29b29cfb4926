// The work that every radix sort of three passes has to do, each part in the fastest loop known: clearing and summing
// the counters, the sweep that counts all digits, and a scatter that is told every destination beforehand. These parts
// leave out one thing: while records move, positions are counted up. So there is also a scatter with the stores of
// positions, and a loop with all nine stores that a record takes and nothing else.

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
	constexpr u32 kMostCountedToSum = 1000; // more make hardly a difference to summing
	constexpr u32 kPasses = 3;
	constexpr u32 kShifts[kPasses] = {0, 11, 22};
	constexpr u32 kDigits[kPasses] = {2048, 2048, 1024};
	constexpr u32 kHistogramStride = 2240;
	constexpr u32 kCounters = 2 * kHistogramStride + 1024;

	u32 Digit(u32 key, u32 pass)
	{
		return (key >> kShifts[pass]) & (kDigits[pass] - 1);
	}

	// The histograms of three digits. Records take turns at two of the top digit.
	template<typename _Counter>
	class CHistograms
	{
	public:
		void Clear() { std::memset(m_Counters.Data(), 0, m_Counters.Count() * sizeof(_Counter)); }

		void Count(const SIndexAndDepth *records, u32 count)
		{
			_Counter *const counters = m_Counters.Data();
			_Counter *const oddCounters = counters + kCounters;
			ForEachRecord(count,
				[=](u32 i)
				{
					const u32 key = records[i].m_Depth;
					CountOne(counters[Digit(key, 0)]);
					CountOne(counters[kHistogramStride + Digit(key, 1)]);
					CountOne((i % 2 != 0 ? oddCounters : counters + 2 * kHistogramStride)[Digit(key, 2)]);
				});
		}

		void Sum()
		{
			_Counter *const counters = m_Counters.Data();
			_Counter *const topCounters = counters + 2 * kHistogramStride;
			CSort::SumCounters<11>(counters);
			CSort::SumCounters<11>(counters + kHistogramStride);
			SortLanes::SumSparseCounters(topCounters, counters + kCounters, kDigits[2]);
		}

		_Counter *OfPass(u32 pass) { return m_Counters.Data() + pass * kHistogramStride; }

	private:
		typedef TRadixSort<Sort_InBuffer> CSort;

		static void CountOne(_Counter &counter) { counter = _Counter(counter + 1); }

		CBuffer<_Counter> m_Counters{kCounters + kDigits[2]};
	};

	// One call at a time, since counters that have been summed are no histogram any more, and in the first cache, where
	// counting leaves them. The two looks at the clock are in the time: some 3 per cent.
	template<typename _Counter>
	void RunClearAndSum(benchmark::State &state, EKeys keys, u32 count)
	{
		const CBuffer<SIndexAndDepth> &records = Records(keys, count);
		const u32 counted = std::min(count, kMostCountedToSum);
		CHistograms<_Counter> histograms;
		for (auto _ : state)
		{
			histograms.Clear();
			histograms.Count(records.Data(), counted);
			TimeIteration<WallTime>(state,
				[&]
				{
					histograms.Sum();
					benchmark::ClobberMemory();
					histograms.Clear();
				});
		}
		DescribeIteration(state, 1, count);
	}

	template<typename _Counter>
	void RunCounting(benchmark::State &state, EKeys keys, u32 count)
	{
		const CBuffer<SIndexAndDepth> &records = Records(keys, count);
		const u32 batch = std::min(PoolInputCount(count), std::max(1u, kBatchRecords / count));
		CHistograms<_Counter> histograms;
		for (auto _ : state)
		{
			for (u32 i = 0; i < batch; ++i)
				histograms.Count(records.Data() + size_t(i) * count, count);
			benchmark::ClobberMemory();
		}
		DescribeIteration(state, batch, count);
	}

	// One pass, whose destinations are known. With the positions, the next one of its digit is stored with every
	// record, which nothing waits for.
	template<u32 _Pass, bool _StoresPositions, bool _FetchesNextLine, typename _Counter>
	void Move(const SIndexAndDepth *from,
		SIndexAndDepth *to,
		const CBuffer<u32> &destinations,
		_Counter *positions) // NOLINT(readability-non-const-parameter): written where a position is stored
	{
		const u32 *const destination = destinations.Data();
		ForEachRecord(u32(destinations.Count()),
			[=](u32 i)
			{
				if constexpr (_FetchesNextLine)
					VX_PREFETCH_TO_WRITE(to + destination[i] + kRecordsPerLine<SIndexAndDepth>);
				if constexpr (_StoresPositions)
					positions[Digit(from[i].m_Depth, _Pass)] = _Counter(destination[i] + 1);
				u64 word; // a record moves as one word
				std::memcpy(&word, from + i, sizeof(word));
				std::memcpy(to + destination[i], &word, sizeof(word));
			});
	}

	// All three passes, each with its own destinations: those that the passes of a sort of this input have.
	template<typename _Counter, bool _FetchesNextLine, bool _StoresPositions>
	void RunScatter(benchmark::State &state, EKeys keys, u32 count)
	{
		const CBuffer<SIndexAndDepth> &input = Records(keys, count);
		CBuffer<SIndexAndDepth> records(count);
		CBuffer<SIndexAndDepth> out(count);
		CHistograms<_Counter> histograms;
		CBuffer<u32> destinations[kPasses] = {CBuffer<u32>(count), CBuffer<u32>(count), CBuffer<u32>(count)};

		histograms.Count(input.Data(), count);
		histograms.Sum();
		std::copy_n(input.Data(), count, records.Data());
		for (u32 pass = 0; pass < kPasses; ++pass)
		{
			for (u32 i = 0; i < count; ++i)
				destinations[pass][i] = histograms.OfPass(pass)[Digit(records[i].m_Depth, pass)]++;
			for (u32 i = 0; i < count; ++i)
				out[destinations[pass][i]] = records[i];
			std::swap(out, records);
		}
		if (!std::is_sorted(records.Data(), records.Data() + count))
			state.SkipWithError("not sorted");

		for (auto _ : state)
		{
			Move<0, _StoresPositions, _FetchesNextLine>(
				records.Data(), out.Data(), destinations[0], histograms.OfPass(0));
			Move<1, _StoresPositions, _FetchesNextLine>(
				out.Data(), records.Data(), destinations[1], histograms.OfPass(1));
			Move<2, _StoresPositions, _FetchesNextLine>(
				records.Data(), out.Data(), destinations[2], histograms.OfPass(2));
			benchmark::ClobberMemory();
		}
		DescribeIteration(state, 1, count);
	}

	// A counter of each digit when they are counted, and in each pass the position that has been used and the record,
	// all in lines of the first cache.
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

	// Counters are as wide as those of the sort for this count, and lines are fetched where the sort fetches them.
	template<typename _Counter, bool _FetchesNextLine>
	void RegisterParts(EKeys keys, u32 count)
	{
		Register(keys, "clear_and_sum", count, true,
			[=](benchmark::State &state) { RunClearAndSum<_Counter>(state, keys, count); });
		Register(
			keys, "count", count, false, [=](benchmark::State &state) { RunCounting<_Counter>(state, keys, count); });
		Register(keys, "scatter", count, false,
			[=](benchmark::State &state) { RunScatter<_Counter, _FetchesNextLine, false>(state, keys, count); });
		Register(keys, "scatter_and_positions", count, false,
			[=](benchmark::State &state) { RunScatter<_Counter, _FetchesNextLine, true>(state, keys, count); });
		Register(keys, "stores", count, false, [=](benchmark::State &state) { RunStores(state, keys, count); });
	}
} // namespace

void RegisterSortParts()
{
	typedef TRadixSort<Sort_InBuffer> CSort;
	for (const EKeys keys : {EKeys::Uniform, EKeys::Ball, EKeys::Curve})
	{
		for (const u32 count : kCounts)
		{
			if (count <= CSort::kMaxCountIn8Bits)
				RegisterParts<u8, false>(keys, count);
			else if (count <= CSort::kMaxCountIn16Bits)
				RegisterParts<u16, false>(keys, count);
			else if (count <= CSort::kMaxCountNear)
				RegisterParts<u32, false>(keys, count);
			else
				RegisterParts<u32, true>(keys, count);
		}
	}
}
} // namespace VexmoorBench
