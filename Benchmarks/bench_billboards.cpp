// Whole sorts of billboards by position: from positions to the index buffer, for the library and for everybody else.

#include "bench_pairs.h"
#include "bench_registry.h"
#include "billboards.h"
#include <algorithm>
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
	constexpr u32 kMostInTurns = 10000;            // longer sorts differ by more than machines drift
	constexpr u32 kFramesPerTurn = 8;              // the other's turn is out of the caches after the first

	// One competitor and what it draws into.
	template<typename _Index, typename _Competitor>
	class CRenderer
	{
	public:
		explicit CRenderer(const SBatch &batch)
			: m_Batch(batch)
			, m_Indices(size_t(batch.m_Count) * kIndicesPerQuad)
		{
			m_Competitor.Prepare(batch);
		}

		// Between frames, outside the time.
		void Restore() { m_Competitor.Restore(m_Batch); }

		void Draw(const CFloat3 &camera)
		{
			for (u32 i = 0; i < m_Batch.m_Calls.size(); ++i)
			{
				const SDrawCall &call = m_Batch.m_Calls[i];
				m_Competitor.Draw(i, call, camera, m_Indices.Data() + size_t(call.m_First) * kIndicesPerQuad);
			}
		}

		bool HasDrawn(const CFloat3 &camera) const
		{
			return std::all_of(m_Batch.m_Calls.begin(), m_Batch.m_Calls.end(),
				[&](const SDrawCall &call)
				{
					const _Index *const drawn = m_Indices.Data() + size_t(call.m_First) * kIndicesPerQuad;
					return IsDrawnBackToFront(call, camera, drawn, _Competitor::kExact);
				});
		}

	private:
		const SBatch &m_Batch;
		CBuffer<_Index> m_Indices;
		_Competitor m_Competitor;
	};

	template<typename _Index, typename _Competitor>
	void RunBillboards(benchmark::State &state, EShape shape, u32 count)
	{
		const SBatch batch(shape, count, kMaxParticlesPerCall<_Index>);
		CRenderer<_Index, _Competitor> renderer(batch);
		u32 frame = 0;
		CFloat3 camera;
		for (auto _ : state)
		{
			renderer.Restore();
			camera = CameraOfFrame(++frame);
			TimeIteration(state, [&] { renderer.Draw(camera); });
		}
		if (!renderer.HasDrawn(camera))
			return state.SkipWithError("not sorted");
		DescribeIteration(state, batch.m_InputCount, count);
	}

	// The library and a peer in turns of a few frames, each in indices of its own.
	template<typename _Own, typename _Peer>
	void RunBillboardsInTurns(benchmark::State &state, EShape shape, u32 count)
	{
		const SBatch batch(shape, count, kMaxParticlesPerCall<u32>);
		CRenderer<u32, _Own> own(batch);
		CRenderer<u32, _Peer> peer(batch);
		u32 frame = 0;
		const auto turn = [&frame](auto &renderer)
		{
			double seconds = 0.0;
			for (u32 i = 0; i < kFramesPerTurn; ++i)
			{
				renderer.Restore();
				const CFloat3 camera = CameraOfFrame(++frame);
				seconds += Seconds([&] { renderer.Draw(camera); });
			}
			return seconds;
		};
		RunTimedPairs(
			state, [&] { return turn(own); }, [&] { return turn(peer); });

		const CFloat3 camera = CameraOfFrame(0);
		own.Draw(camera);
		peer.Restore();
		peer.Draw(camera);
		if (!own.HasDrawn(camera) || !peer.HasDrawn(camera))
			return state.SkipWithError("not sorted");
		DescribeIteration(state, u64(kPairsPerIteration) * 2 * kFramesPerTurn * batch.m_InputCount, count);
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

	template<typename _Own, typename _Peer>
	void RegisterPair(EShape shape, u32 count)
	{
		const std::string what = std::string(Name(shape)) + "_" + _Own::kName;
		benchmark::RegisterBenchmark(CaseName({"whole_pairs", what, _Peer::kName, std::to_string(count)}).c_str(),
			[=](benchmark::State &state) { RunBillboardsInTurns<_Own, _Peer>(state, shape, count); });
	}

	template<typename _Own>
	void RegisterPairs(EShape shape, u32 count)
	{
		RegisterPair<_Own, CUserBillboards<u32>>(shape, count);
		RegisterPair<_Own, COgreBillboards<u32>>(shape, count);
		RegisterPair<_Own, CBillboardsBySort<u32, CVqsort<EVqsortTarget::Best>>>(shape, count);
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
			if (count <= kMostInTurns)
			{
				RegisterPairs<CVexmoorBillboards<u32, 1024>>(shape, count);
				RegisterPairs<CVexmoorBillboards<u32, 65536>>(shape, count);
			}
		}
	}
}
} // namespace VexmoorBench
