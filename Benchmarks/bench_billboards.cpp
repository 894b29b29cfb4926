// Whole sorts of billboards by position: from positions to the index buffer, for the library and for everybody else.

#include "bench_registry.h"
#include "billboards.h"
#include <string>

namespace VexmoorBench
{
SBatch::SBatch(EShape shape, u32 count, u32 maxParticlesPerCall)
	: m_Positions(VexmoorBench::Positions(shape, count).Data())
	, m_Count(BatchInputCount(count) * count)
	, m_InputCount(BatchInputCount(count))
{
	for (u32 input = 0; input < m_InputCount; ++input)
	{
		for (u32 first = 0; first < count; first += std::min(maxParticlesPerCall, count - first))
		{
			const u32 inBatch = input * count + first;
			m_Calls.push_back({m_Positions + inBatch, inBatch, std::min(maxParticlesPerCall, count - first)});
		}
	}
}

namespace
{
	constexpr u32 kCounts[] = {1000, 10000, 100000, 1000000, 4000000};
	constexpr u32 kMostOfCommonPractice = 1000000; // beyond it those take seconds and tell nothing new

	template<typename _Index, typename _Competitor>
	void RunBillboards(benchmark::State &state, EShape shape, u32 count)
	{
		const SBatch batch(shape, count, kMaxParticlesPerCall<_Index>);
		CBuffer<_Index> indices(size_t(batch.m_Count) * kIndicesPerQuad);
		_Competitor competitor;
		competitor.Prepare(batch);

		u32 frame = 0;
		CFloat3 camera;
		for (auto _ : state)
		{
			competitor.Restore(batch);
			camera = CameraOfFrame(++frame);
			TimeIteration(state,
				[&]
				{
					for (u32 i = 0; i < batch.m_Calls.size(); ++i)
					{
						const SDrawCall &call = batch.m_Calls[i];
						competitor.Draw(i, call, camera, indices.Data() + size_t(call.m_First) * kIndicesPerQuad);
					}
				});
		}
		for (const SDrawCall &call : batch.m_Calls)
		{
			const _Index *const drawn = indices.Data() + size_t(call.m_First) * kIndicesPerQuad;
			if (!IsDrawnBackToFront(call, camera, drawn, _Competitor::kExact))
				return state.SkipWithError("not sorted");
		}
		DescribeIteration(state, batch.m_InputCount, count);
	}

	template<typename _Index, typename _Competitor>
	void Register(EShape shape, u32 count)
	{
		const std::string what =
			std::string(sizeof(_Index) == sizeof(u16) ? "billboards_u16_" : "billboards_u32_") + Name(shape);
		benchmark::RegisterBenchmark(CaseName({"whole", what, _Competitor::kName, std::to_string(count)}).c_str(),
			[=](benchmark::State &state) { RunBillboards<_Index, _Competitor>(state, shape, count); })
			->UseManualTime();
	}

	template<typename _Index>
	void RegisterFor(EShape shape, u32 count)
	{
		Register<_Index, CVexmoorBillboards<_Index, 1024>>(shape, count);
		Register<_Index, CVexmoorBillboards<_Index, 65536>>(shape, count);
		Register<_Index, CUserBillboards<_Index>>(shape, count);
		Register<_Index, COgreBillboards<_Index>>(shape, count);
		Register<_Index, CBillboardsBySort<_Index, CVqsort<EVqsortTarget::Best>>>(shape, count);
		if constexpr (sizeof(_Index) == sizeof(u32))
		{
			Register<_Index, CBillboardsBySort<_Index, CVqsort<EVqsortTarget::Avx2>>>(shape, count);
			Register<_Index, CBillboardsBySort<_Index, CSpreadsort>>(shape, count);
			Register<_Index, CBillboardsBySort<_Index, CPdqsort>>(shape, count);
			Register<_Index, CBillboardsBySort<_Index, CStdStableSort>>(shape, count);
			if (count <= kMostOfCommonPractice)
			{
				Register<_Index, CComparatorBillboards<_Index>>(shape, count);
				Register<_Index, CStructureBillboards<_Index>>(shape, count);
				Register<_Index, CCountingBillboards<_Index>>(shape, count);
			}
		}
	}
} // namespace

void RegisterBillboards()
{
	for (const EShape shape : {EShape::Ball, EShape::Curve})
	{
		for (const u32 count : kCounts)
		{
			RegisterFor<u32>(shape, count);
			RegisterFor<u16>(shape, count);
		}
	}
}
} // namespace VexmoorBench
