// The sort stage on its own: records in, records in key order out, for every sort and every kind of keys.

#include "bench_inputs.h"
#include "bench_registry.h"
#include "sort_competitors.h"
#include <memory>
#include <vector>

namespace VexmoorBench
{
namespace
{
	// Sorted one after another between two looks at the clock: enough for the clock, little enough for the second
	// cache, where the fill stage leaves the records of a sort of this size.
	constexpr u32 kBatchRecords = 1u << 15;

	constexpr u32 kCounts[] = {8, 16, 32, 64, 109, 110, 256, 1000, 10000, 100000, 1000000, 4000000};
	constexpr EKeys kKeys[] = {EKeys::Uniform, EKeys::Ball, EKeys::Curve, EKeys::NearlySorted, EKeys::AllEqual};

	// The same for any order of the same records.
	u64 Fingerprint(u64 fingerprint, const SIndexAndDepth &record)
	{
		u64 z = WordFromRecord(record) + 0x9E3779B97F4A7C15ull;
		z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
		z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
		return fingerprint + (z ^ (z >> 31));
	}

	// Two records in a row, of keys between lowest and highest.
	template<typename _Sort>
	bool InOrder(u32 key, u32 nextKey, u32 range)
	{
		const u32 tolerance = _Sort::kExact ? 0 : range / CCountingSort16::kSteps + 1;
		return nextKey >= key || key - nextKey <= tolerance;
	}

	template<typename _Sort>
	bool IsSorted(const SIndexAndDepth *input, const typename _Sort::Element *output, u32 count)
	{
		u64 expected = 0;
		u64 found = 0;
		u32 lowest = ~0u;
		u32 highest = 0;
		for (u32 i = 0; i < count; ++i)
		{
			expected = Fingerprint(expected, input[i]);
			found = Fingerprint(found, _Sort::ToRecord(output[i]));
			lowest = std::min(lowest, input[i].m_Depth);
			highest = std::max(highest, input[i].m_Depth);
		}
		for (u32 i = 1; i < count; ++i)
		{
			const u32 key = _Sort::ToRecord(output[i - 1]).m_Depth;
			if (!InOrder<_Sort>(key, _Sort::ToRecord(output[i]).m_Depth, highest - lowest))
				return false;
		}
		return found == expected;
	}

	template<typename _Sort>
	void RunSortStage(benchmark::State &state, EKeys keys, u32 count)
	{
		typedef typename _Sort::Element Element;
		const CBuffer<SIndexAndDepth> &pool = Records(keys, count);
		const u32 poolInputs = PoolInputCount(count);
		const u32 batch = std::min(poolInputs, std::max(1u, kBatchRecords / count));
		const u32 stride = (count + 1) & ~1u; // record arrays start at multiples of 16 bytes
		CBuffer<Element> in(size_t(stride) * batch);
		CBuffer<Element> out(size_t(stride) * batch);
		_Sort sort;
		sort.Prepare(count);

		u32 nextInput = 0;
		const auto inputOf = [&](u32 i) { return pool.Data() + size_t((nextInput + i) % poolInputs) * count; };
		bool sorted = true;
		for (auto _ : state)
		{
			for (u32 i = 0; i < batch; ++i)
				std::transform(inputOf(i), inputOf(i) + count, in.Data() + size_t(i) * stride, _Sort::FromRecord);
			TimeIteration(state,
				[&]
				{
					for (u32 i = 0; i < batch; ++i)
						sort.Run(in.Data() + size_t(i) * stride, count, out.Data() + size_t(i) * stride);
				});
			nextInput += batch;
		}
		nextInput -= batch;
		const CBuffer<Element> &result = _Sort::kOutOfPlace ? out : in;
		for (u32 i = 0; i < batch; ++i)
			sorted = sorted && IsSorted<_Sort>(inputOf(i), result.Data() + size_t(i) * stride, count);
		if (!sorted)
			state.SkipWithError("not sorted");
		DescribeIteration(state, batch, count);
	}

	template<typename _Sort>
	void Register(EKeys keys, u32 count)
	{
		benchmark::RegisterBenchmark(CaseName({"sort", Name(keys), _Sort::kName, std::to_string(count)}).c_str(),
			[keys, count](benchmark::State &state) { RunSortStage<_Sort>(state, keys, count); })
			->UseManualTime();
	}
} // namespace

void RegisterSortStage()
{
	for (const EKeys keys : kKeys)
	{
		for (const u32 count : kCounts)
		{
			Register<CVexmoorSort>(keys, count);
			if (count <= 1000 && Cpu::InstructionSet() != Cpu::InstructionSet_Baseline)
				Register<CVexmoorSort4>(keys, count);
			Register<CStdSort>(keys, count);
			Register<CStdStableSort>(keys, count);
			Register<CSpreadsort>(keys, count);
			Register<CPdqsort>(keys, count);
			Register<CVqsort<EVqsortTarget::Avx2>>(keys, count);
			Register<CVqsort<EVqsortTarget::Best>>(keys, count);
			Register<COgreRadixSort>(keys, count);
			Register<CCountingSort16>(keys, count);
		}
	}
}
} // namespace VexmoorBench
