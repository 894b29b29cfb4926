// The expansion stage: sorted records in, indices out, for every width, index type and alignment; and what its memory
// traffic alone costs.

#include "bench_inputs.h"
#include "bench_registry.h"
#include <emmintrin.h>
#include <immintrin.h>
#include <numeric>
#include <string>
#include <vector>

namespace VexmoorBench
{
namespace
{
	constexpr u32 kWidths[] = {1, 3, 6, 12, 5, 24};
	constexpr u32 kQuadWidth = 6;
	constexpr u32 kCounts[] = {1000, 10000, 100000, 1000000, 4000000};
	constexpr u32 kOffsetCount = 100000; // where other alignments and other widths are measured
	constexpr u32 kCountsOfOtherWidths[] = {1000, kOffsetCount, 1000000};

	template<typename _Index>
	const char *IndexName()
	{
		return sizeof(_Index) == sizeof(u16) ? "u16" : "u32";
	}

	// Largest entry 3, as in a quad, and 0 for the pattern of one entry.
	std::vector<u32> Pattern(u32 width)
	{
		std::vector<u32> pattern(width);
		for (u32 i = 0; i < width; ++i)
			pattern[i] = i % kQuadWidth < 3 ? i % kQuadWidth : (i % kQuadWidth - 2) % 4;
		return pattern;
	}

	// Sorted records point anywhere. 16-bit indices stay below their limit.
	template<typename _Index>
	CBuffer<SIndexAndDepth> SortedRecords(u32 count)
	{
		const u32 particleLimit = sizeof(_Index) == sizeof(u16) ? 16000 : count;
		const CBuffer<SIndexAndDepth> &random = Records(EKeys::Uniform, count);
		CBuffer<SIndexAndDepth> records(count);
		for (u32 i = 0; i < count; ++i)
			records[i] = {i, random[i].m_Depth % particleLimit * 4};
		return records;
	}

	template<typename _Index>
	void RunExpansion(benchmark::State &state, u32 width, u32 offsetInBytes, u32 count)
	{
		const std::vector<u32> pattern = Pattern(width);
		const CBuffer<SIndexAndDepth> records = SortedRecords<_Index>(count);
		CBuffer<_Index> indices(size_t(count) * width, offsetInBytes);
		for (auto _ : state)
		{
			CTriangleSorter::ExpandIndices(
				TMemoryView<const u32>(pattern.data(), width), records.Data(), indices.Data(), count);
			benchmark::ClobberMemory();
		}
		for (u32 i = 0; i < count * width; ++i)
		{
			if (indices[i] != _Index(records[i / width].m_Index + pattern[i % width]))
				return state.SkipWithError("wrong indices");
		}
		DescribeIteration(state, 1, count);
	}

	// The traffic of the expansion and nothing else: 8 bytes read per record, as many bytes streamed as its indices
	// take. kLoads lanes are read for kStores streamed, and each load has a part in what is written.
	template<u32 _Loads, u32 _Stores>
	void StreamSameTraffic16(const u8 *in, u8 *out, size_t outBytes)
	{
		for (const u8 *const stop = out + outBytes; out < stop; out += 16 * _Stores)
		{
			__m128i lanes = _mm_load_si128(reinterpret_cast<const __m128i *>(in));
			for (u32 load = 1; load < _Loads; ++load)
				lanes = _mm_or_si128(lanes, _mm_load_si128(reinterpret_cast<const __m128i *>(in + 16 * load)));
			for (u32 store = 0; store < _Stores; ++store)
				_mm_stream_si128(reinterpret_cast<__m128i *>(out + 16 * store), lanes);
			in += 16 * _Loads;
		}
		_mm_sfence();
	}

	// Streaming stores of one value, nothing read.
	void StreamFill(const u8 *, u8 *out, size_t outBytes)
	{
		const __m128i lanes = _mm_set1_epi32(1);
		for (const u8 *const stop = out + outBytes / 64 * 64; out < stop; out += 64)
		{
			for (u32 store = 0; store < 4; ++store)
				_mm_stream_si128(reinterpret_cast<__m128i *>(out + 16 * store), lanes);
		}
		_mm_sfence();
	}

	typedef void (*FStream)(const u8 *in, u8 *out, size_t outBytes);

	// The smallest whole numbers of loads and stores for a width.
	template<typename _Index>
	FStream SameTraffic(u32 width)
	{
		constexpr bool kShort = sizeof(_Index) == sizeof(u16);
		switch (width)
		{
		case 1:
			return kShort ? StreamSameTraffic16<4, 1> : StreamSameTraffic16<2, 1>;
		case 3:
			return kShort ? StreamSameTraffic16<4, 3> : StreamSameTraffic16<2, 3>;
		case 5:
			return kShort ? StreamSameTraffic16<4, 5> : StreamSameTraffic16<2, 5>;
		case 6:
			return kShort ? StreamSameTraffic16<2, 3> : StreamSameTraffic16<1, 3>;
		case 12:
			return kShort ? StreamSameTraffic16<1, 3> : StreamSameTraffic16<1, 6>;
		default:
			return kShort ? StreamSameTraffic16<1, 6> : StreamSameTraffic16<1, 12>;
		}
	}

	template<typename _Index>
	void RunBaseline(benchmark::State &state, FStream stream, u32 width, u32 count)
	{
		const CBuffer<SIndexAndDepth> records = SortedRecords<_Index>(count);
		CBuffer<_Index> indices(size_t(count) * width);
		for (auto _ : state)
		{
			stream(reinterpret_cast<const u8 *>(records.Data()), reinterpret_cast<u8 *>(indices.Data()),
				indices.Count() * sizeof(_Index));
			benchmark::ClobberMemory();
		}
		DescribeIteration(state, 1, count);
	}

	template<typename _Index, typename _Run>
	void Register(u32 width, const std::string &who, u32 count, const _Run &run)
	{
		benchmark::RegisterBenchmark(
			CaseName({"expand", std::string(IndexName<_Index>()) + "_width_" + std::to_string(width), who,
						 std::to_string(count)})
				.c_str(),
			run);
	}

	template<typename _Index>
	void RegisterExpansionOf(u32 width, u32 offsetInBytes, u32 count)
	{
		Register<_Index>(width, "vexmoor_at_" + std::to_string(offsetInBytes), count,
			[=](benchmark::State &state) { RunExpansion<_Index>(state, width, offsetInBytes, count); });
	}

	template<typename _Index>
	void RegisterAligned(u32 width, u32 count)
	{
		RegisterExpansionOf<_Index>(width, 0, count);
		Register<_Index>(width, "same_traffic", count,
			[=](benchmark::State &state) { RunBaseline<_Index>(state, SameTraffic<_Index>(width), width, count); });
		Register<_Index>(width, "stream_fill", count,
			[=](benchmark::State &state) { RunBaseline<_Index>(state, StreamFill, width, count); });
	}

	template<typename _Index>
	void RegisterWidths()
	{
		for (const u32 width : kWidths)
		{
			if (width == kQuadWidth)
			{
				for (const u32 count : kCounts)
					RegisterAligned<_Index>(width, count);
			}
			else
			{
				for (const u32 count : kCountsOfOtherWidths)
					RegisterAligned<_Index>(width, count);
			}
			// Offsets from 16 bytes that whole indices can have.
			for (u32 offsetInBytes = 8; offsetInBytes >= sizeof(_Index); offsetInBytes /= 2)
				RegisterExpansionOf<_Index>(width, offsetInBytes, kOffsetCount);
		}
	}
} // namespace

void RegisterExpansion()
{
	RegisterWidths<u32>();
	RegisterWidths<u16>();
}
} // namespace VexmoorBench
