// The fill stage: particles of one page in, records out, for every layout; and what its memory traffic alone costs.

#include "kr_cpu.h"

#include "bench_inputs.h"
#include "bench_pairs.h"
#include "bench_registry.h"
#include <emmintrin.h>
#include <immintrin.h>
#include <string>

namespace VexmoorBench
{
namespace
{
	constexpr u32 kCounts[] = {1000, 10000, 100000, 1000000, 4000000};
	constexpr u32 kVerticesPerParticle = 4;
	constexpr Cpu::EInstructionSet kWidest = Cpu::InstructionSet_Avx512;
	constexpr u32 kFewestInTurns = 100000; // fewer are soon over, and a look at the clock counts

	// The traffic of the fill and as little else as can be: of 12 bytes read and 8 written per particle, every byte
	// read has a part in a byte written, so that no load can be left out. Ordinary stores, as in the fill.
	void MoveSameTraffic16(const u8 *in, u8 *out, u32 count)
	{
		for (u32 i = 0; i < count; i += 4)
		{
			const __m128i a = _mm_load_si128(reinterpret_cast<const __m128i *>(in));
			const __m128i b = _mm_load_si128(reinterpret_cast<const __m128i *>(in + 16));
			const __m128i c = _mm_load_si128(reinterpret_cast<const __m128i *>(in + 32));
			_mm_store_si128(reinterpret_cast<__m128i *>(out), _mm_or_si128(a, b));
			_mm_store_si128(reinterpret_cast<__m128i *>(out + 16), c);
			in += 48;
			out += 32;
		}
	}

	// The same with twice the width, for processors that have it.
	__attribute__((target("avx2"))) void MoveSameTraffic32(const u8 *in, u8 *out, u32 count)
	{
		for (u32 i = 0; i < count; i += 8)
		{
			const __m256i a = _mm256_load_si256(reinterpret_cast<const __m256i *>(in));
			const __m256i b = _mm256_load_si256(reinterpret_cast<const __m256i *>(in + 32));
			const __m256i c = _mm256_load_si256(reinterpret_cast<const __m256i *>(in + 64));
			_mm256_store_si256(reinterpret_cast<__m256i *>(out), _mm256_or_si256(a, b));
			_mm256_store_si256(reinterpret_cast<__m256i *>(out + 32), c);
			in += 96;
			out += 64;
		}
	}

	typedef void (*MoveTraffic)(const u8 *in, u8 *out, u32 count);

	void RunTraffic(benchmark::State &state, u32 count, MoveTraffic move)
	{
		CBuffer<CFloat3> positions(count);
		CBuffer<SIndexAndDepth> records(count);
		for (auto _ : state)
		{
			move(reinterpret_cast<const u8 *>(positions.Data()), reinterpret_cast<u8 *>(records.Data()), count);
			benchmark::ClobberMemory();
		}
		DescribeIteration(state, 1, count);
	}

	// As many bytes read and written together as the fill moves.
	void RunCopy(benchmark::State &state, u32 count)
	{
		CBuffer<u8> in(size_t(count) * 10);
		CBuffer<u8> out(size_t(count) * 10);
		for (auto _ : state)
		{
			std::memcpy(out.Data(), in.Data(), out.Count());
			benchmark::ClobberMemory();
		}
		DescribeIteration(state, 1, count);
	}

	struct SLayout
	{
		const char *m_Name;
		u32 m_StrideInBytes;
		u32 m_OffsetInBytes; // of the first element from a cache line
	};

	constexpr SLayout kPositionLayouts[] = {
		{"positions_12_aligned",   12, 0},
		{"positions_12_unaligned", 12, 4},
		{"positions_16",           16, 0},
		{"positions_0",            0,  0},
	};
	constexpr SLayout kValueLayouts[] = {
		{"values_4_aligned",   4,  0},
		{"values_4_unaligned", 4,  4},
		{"values_16",          16, 0},
		{"values_0",           0,  0},
	};

	// The memory of one page of particles, and a view of it.
	template<typename _Element>
	class CPage
	{
	public:
		template<typename _ElementOf>
		CPage(u32 count, const SLayout &layout, const _ElementOf &elementOf)
			: m_Bytes(size_t(count) * layout.m_StrideInBytes + sizeof(_Element), layout.m_OffsetInBytes)
			, m_View(reinterpret_cast<const _Element *>(m_Bytes.Data()), count, layout.m_StrideInBytes)
		{
			for (u32 i = 0; i < count; ++i)
			{
				const _Element element = elementOf(i);
				std::memcpy(m_Bytes.Data() + size_t(i) * layout.m_StrideInBytes, &element, sizeof(element));
			}
		}
		const TStridedMemoryView<const _Element> &View() const { return m_View; }

	private:
		CBuffer<u8> m_Bytes;
		TStridedMemoryView<const _Element> m_View;
	};

	CPage<CFloat3> PositionPage(u32 count, const SLayout &layout)
	{
		const CBuffer<CFloat3> &positions = Positions(EShape::Ball, count);
		return CPage<CFloat3>(count, layout, [&](u32 i) { return positions[i]; });
	}

	CPage<float> ValuePage(u32 count, const SLayout &layout)
	{
		const CBuffer<CFloat3> &positions = Positions(EShape::Ball, count);
		return CPage<float>(count, layout, [&](u32 i) { return 0.0f - SquaredDistance(positions[i], Camera()); });
	}

	template<typename _Element>
	using TView = TStridedMemoryView<const _Element>;

	void Fill(const TMemoryView<SIndexAndDepth> &out, const TView<CFloat3> &positions, const TView<u8> &enableds)
	{
		CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(
			out, positions, Camera(), enableds, 0, kVerticesPerParticle);
	}
	void Fill(const TMemoryView<SIndexAndDepth> &out, const TView<float> &values, const TView<u8> &enableds)
	{
		CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(out, values, enableds, 0, kVerticesPerParticle);
	}
	void FillByList(const TMemoryView<SIndexAndDepth> &out,
		const TView<CFloat3> &positions,
		const TView<u8> &enableds,
		const u32 *list,
		u32 vertexCount)
	{
		CTriangleSorter::FillSortingIndirectionsListPoint_Indices(
			out, positions, Camera(), enableds, list, vertexCount);
	}
	void FillByList(const TMemoryView<SIndexAndDepth> &out,
		const TView<float> &values,
		const TView<u8> &enableds,
		const u32 *list,
		u32 vertexCount)
	{
		CTriangleSorter::FillSortingIndirectionsListPoint_Indices(out, values, enableds, list, vertexCount);
	}

	u32 ExpectedKey(const CFloat3 &position, bool compacted)
	{
		const u32 key = ~FloatBits(SquaredDistance(position, Camera()));
		return compacted ? key & 0x7FFFFFFFu : key;
	}
	u32 ExpectedKey(const float &value, bool)
	{
		const u32 bits = FloatBits(value);
		return (bits & 0x80000000u) != 0 ? ~bits : bits | 0x80000000u;
	}

	// Whether every rendered particle has its record, wherever in its group of four.
	template<typename _Element>
	bool IsFilled(
		const TMemoryView<SIndexAndDepth> &records, const TView<_Element> &elements, const TView<u8> &enableds)
	{
		u32 record = 0;
		for (u32 i = 0; i < elements.Count(); ++i)
		{
			if (!enableds.Empty() && enableds[i] == 0)
				continue;
			bool found = false;
			const u32 group = record & ~3u;
			for (u32 j = group; j < std::min(group + 4, records.Count()); ++j)
			{
				found = found || (records[j].m_Index == record * kVerticesPerParticle &&
									 records[j].m_Depth == ExpectedKey(elements[i], !enableds.Empty()));
			}
			if (!found)
				return false;
			++record;
		}
		return record == records.Count();
	}

	// Enabled bytes of a page. disabledPercent of the particles, in random places, are disabled.
	CBuffer<u8> Enableds(u32 count, u32 disabledPercent, u32 &enabledCount)
	{
		const CBuffer<SIndexAndDepth> &random = Records(EKeys::Uniform, count);
		CBuffer<u8> enableds(count);
		enabledCount = 0;
		for (u32 i = 0; i < count; ++i)
		{
			enableds[i] = random[i].m_Depth % 100 >= disabledPercent ? 1 : 0;
			enabledCount += enableds[i];
		}
		return enableds;
	}

	template<typename _Element>
	void RunLayout(benchmark::State &state, const CPage<_Element> &page, Cpu::EInstructionSet instructionSet)
	{
		Cpu::SetMaxInstructionSet(instructionSet);
		const u32 count = page.View().Count();
		CBuffer<SIndexAndDepth> records(count);
		const TMemoryView<SIndexAndDepth> out(records.Data(), count);
		for (auto _ : state)
		{
			Fill(out, page.View(), TView<u8>());
			benchmark::ClobberMemory();
		}
		if (!IsFilled(out, page.View(), TView<u8>()))
			state.SkipWithError("wrong records");
		DescribeIteration(state, 1, count);
		Cpu::SetMaxInstructionSet(kWidest);
	}

	// The fill and its traffic in turns, in the same memory.
	void RunFillAndTraffic(benchmark::State &state, u32 count, MoveTraffic move)
	{
		const CPage<CFloat3> page = PositionPage(count, kPositionLayouts[0]);
		const u8 *const in = reinterpret_cast<const u8 *>(&page.View()[0]);
		CBuffer<SIndexAndDepth> records(count);
		const TMemoryView<SIndexAndDepth> out(records.Data(), count);
		RunPairs(
			state, [&] { move(in, reinterpret_cast<u8 *>(records.Data()), count); },
			[&] { Fill(out, page.View(), TView<u8>()); });
		Fill(out, page.View(), TView<u8>()); // the traffic may have come last
		if (!IsFilled(out, page.View(), TView<u8>()))
			state.SkipWithError("wrong records");
		DescribeIteration(state, u64(kPairsPerIteration) * 2, count);
	}

	// Items are source particles, drawn or not: each is looked at.
	template<typename _Element>
	void RunCompaction(benchmark::State &state, const CPage<_Element> &page, u32 disabledPercent)
	{
		const u32 count = page.View().Count();
		u32 enabledCount = 0;
		const CBuffer<u8> bytes = Enableds(count, disabledPercent, enabledCount);
		const TView<u8> enableds(bytes.Data(), count, 1);
		CBuffer<SIndexAndDepth> records(count);
		const TMemoryView<SIndexAndDepth> out(records.Data(), enabledCount);
		for (auto _ : state)
		{
			Fill(out, page.View(), enableds);
			benchmark::ClobberMemory();
		}
		if (!IsFilled(out, page.View(), enableds))
			state.SkipWithError("wrong records");
		DescribeIteration(state, 1, count);
	}

	template<typename _Element>
	void RunIndexList(benchmark::State &state, const CPage<_Element> &page)
	{
		const u32 count = page.View().Count();
		CBuffer<u32> list(count);
		for (u32 i = 0; i < count; ++i)
			list[i] = i * kVerticesPerParticle;
		CBuffer<SIndexAndDepth> records(count);
		const TMemoryView<SIndexAndDepth> out(records.Data(), count);
		for (auto _ : state)
		{
			FillByList(out, page.View(), TView<u8>(), list.Data(), count * kVerticesPerParticle);
			benchmark::ClobberMemory();
		}
		if (!IsFilled(out, page.View(), TView<u8>()))
			state.SkipWithError("wrong records");
		DescribeIteration(state, 1, count);
	}

	template<typename _Run>
	void Register(const std::string &layout, const char *who, u32 count, const _Run &run)
	{
		benchmark::RegisterBenchmark(CaseName({"fill", layout, who, std::to_string(count)}).c_str(), run);
	}

	void RegisterBaselines(u32 count)
	{
		const auto registerTraffic = [count](const char *who, MoveTraffic move)
		{
			Register("baseline", who, count, [=](benchmark::State &state) { RunTraffic(state, count, move); });
			if (count >= kFewestInTurns)
				Register("pairs", who, count, [=](benchmark::State &state) { RunFillAndTraffic(state, count, move); });
		};
		registerTraffic("same_traffic_16", MoveSameTraffic16);
		if (__builtin_cpu_supports("avx2"))
			registerTraffic("same_traffic_32", MoveSameTraffic32);
		Register("baseline", "copy", count, [count](benchmark::State &state) { RunCopy(state, count); });
	}

	template<typename _MakePage>
	void RegisterPages(const SLayout &packed, const char *kind, u32 count, const _MakePage &makePage)
	{
		for (const u32 percent : {1u, 50u, 99u})
		{
			Register(std::string(kind) + "_compacted_" + std::to_string(percent), "vexmoor", count,
				[=](benchmark::State &state) { RunCompaction(state, makePage(count, packed), percent); });
		}
		Register(std::string(kind) + "_index_list", "vexmoor", count,
			[=](benchmark::State &state) { RunIndexList(state, makePage(count, packed)); });
	}
} // namespace

void RegisterFill()
{
	for (const u32 count : kCounts)
	{
		RegisterBaselines(count);
		for (const SLayout &layout : kPositionLayouts)
		{
			Register(layout.m_Name, "vexmoor", count,
				[=](benchmark::State &state) { RunLayout(state, PositionPage(count, layout), kWidest); });
		}
		for (u32 set = Cpu::InstructionSet(); set-- != Cpu::InstructionSet_Baseline;)
		{
			Register(kPositionLayouts[0].m_Name,
				set == Cpu::InstructionSet_Baseline ? "vexmoor_4_lanes" : "vexmoor_8_lanes", count,
				[=](benchmark::State &state)
				{ RunLayout(state, PositionPage(count, kPositionLayouts[0]), Cpu::EInstructionSet(set)); });
		}
		for (const SLayout &layout : kValueLayouts)
		{
			Register(layout.m_Name, "vexmoor", count,
				[=](benchmark::State &state) { RunLayout(state, ValuePage(count, layout), kWidest); });
		}
		RegisterPages(kPositionLayouts[0], "positions", count, PositionPage);
		RegisterPages(kValueLayouts[0], "values", count, ValuePage);
	}
}
} // namespace VexmoorBench
