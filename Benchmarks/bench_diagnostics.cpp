// What diagnostics cost: assertions compiled in against compiled out, and a profiler handler against none.

#include "kr_profiler.h"

#include "bench_pairs.h"
#include "bench_registry.h"
#include "billboards.h"
#include "diagnostics_build.h"
#include <algorithm>
#include <x86intrin.h>

namespace VexmoorBench
{
namespace
{
	constexpr u32 kCounts[] = {100, 1000, 10000, 100000};
	constexpr u32 kParticlesPerTurn = 20000; // as many sorts as it takes, so that one look at the clock is nothing

	template<typename _Plain, typename _Instrumented>
	void RunPairsOfTurns(benchmark::State &state, u32 count, const _Plain &plain, const _Instrumented &instrumented)
	{
		const u32 sorts = std::max(1u, kParticlesPerTurn / count);
		const auto turn = [sorts](const auto &sort)
		{
			for (u32 i = 0; i < sorts; ++i)
				sort(i);
		};
		RunPairs(
			state, [&] { turn(plain); }, [&] { turn(instrumented); });
		state.counters["plain_ns"] = state.counters["plain_ns"] / sorts;
		DescribeIteration(state, u64(kPairsPerIteration) * 2 * sorts, count);
	}

	class CSort
	{
	public:
		explicit CSort(u32 count)
			: m_Positions(Positions(EShape::Ball, count))
			, m_Count(count)
			, m_Indices(size_t(count) * kIndicesPerQuad)
			, m_Scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count))
		{
		}

		// Each sort of a turn has another camera.
		void Run(u32 i, void (*sortBillboards)(const SBillboardSort *))
		{
			const CFloat3 camera = CameraOfFrame(i);
			const SBillboardSort sort = {
				m_Positions.Data()->Data(), m_Count, {camera.x(), camera.y(), camera.z()},
                  m_Indices.Data(),
				m_Scratch.Data(), u32(m_Scratch.Count())
            };
			sortBillboards(&sort);
			m_Drawn = camera;
		}
		bool IsDrawn() const
		{
			return IsDrawnBackToFront({m_Positions.Data(), 0, m_Count}, m_Drawn, m_Indices.Data(), true);
		}

	private:
		const CBuffer<CFloat3> &m_Positions;
		u32 m_Count;
		CBuffer<u32> m_Indices;
		CBuffer<u8> m_Scratch;
		CFloat3 m_Drawn;
	};

	void RunAssertions(benchmark::State &state, u32 count)
	{
		CSort sort(count);
		RunPairsOfTurns(
			state, count, [&](u32 i) { sort.Run(i, SortBillboards_AssertionsOff); },
			[&](u32 i) { sort.Run(i, SortBillboards_AssertionsOn); });
		if (!sort.IsDrawn())
			state.SkipWithError("not sorted");
	}

	// What a profiler's handler does at the least: the time and the scope go into a ring. Profilers read the processor's
	// counter, which waits for nothing; the C library's clocks wait for what the stage before has loaded.
	struct SRing
	{
		struct SEvent
		{
			const Profiler::SNodeDescriptor *m_Node;
			u64 m_Time;
			bool m_Entering;
		};
		SEvent m_Events[256];
		u32 m_Count = 0;
	};

	void RecordScope(const Profiler::SNodeDescriptor &node, bool entering, void *userData)
	{
		SRing *const ring = static_cast<SRing *>(userData);
		ring->m_Events[ring->m_Count++ % 256] = {&node, __rdtsc(), entering};
	}

	void RunProfiler(benchmark::State &state, u32 count)
	{
		const SBatch batch(EShape::Ball, count, ~0u);
		const SDrawCall &call = batch.m_Calls.front();
		CBuffer<u32> indices(size_t(count) * kIndicesPerQuad);
		CVexmoorBillboards<u32, 65536> billboards;
		billboards.Prepare(batch);
		SRing ring;
		CFloat3 drawn;
		const auto draw = [&](u32 i)
		{
			drawn = CameraOfFrame(i);
			billboards.Draw(0, call, drawn, indices.Data());
		};
		RunPairsOfTurns(state, count, draw,
			[&](u32 i)
			{
				Profiler::MainEngineProfiler()->SetScopeHandler(RecordScope, &ring);
				draw(i);
				Profiler::MainEngineProfiler()->SetScopeHandler(nullptr, nullptr);
			});
		if (ring.m_Count == 0)
			state.SkipWithError("the handler was never called");
		if (!IsDrawnBackToFront(call, drawn, indices.Data(), true))
			state.SkipWithError("not sorted");
	}

	void Register(const char *what, u32 count, void (*run)(benchmark::State &, u32))
	{
		benchmark::RegisterBenchmark(CaseName({"diagnostics", what, "pairs", std::to_string(count)}).c_str(),
			[run, count](benchmark::State &state) { run(state, count); });
	}
} // namespace

void RegisterDiagnostics()
{
	for (const u32 count : kCounts)
	{
		Register("assertions_on", count, RunAssertions);
		Register("profiler_handler", count, RunProfiler);
	}
}
} // namespace VexmoorBench
