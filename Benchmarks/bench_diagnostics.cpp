// What diagnostics cost: assertions compiled in against compiled out, a profiler handler against none, and checked
// sorts against bare ones.

#include "ge_mesh_sort_validation.h"

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

	// What a profiler's handler does at the least: the time and the scope go into a ring. Profilers read the
	// processor's counter, which waits for nothing; the C library's clocks wait for what the stage before has loaded.
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

	// What a checked sort has to look at beside the views of pages.
	enum class EChecked
	{
		Pages,    // nothing
		Enableds, // a byte for each particle, every 16th of them disabled
		List,     // a list of first vertices
		Triangles // patterns and vertex counts, a page each
	};

	// Quads in pages of 1,024, by position, drawn from the camera of another frame each time.
	class CCheckedCall
	{
	public:
		CCheckedCall(EChecked checked, u32 count)
			: m_Checked(checked)
			, m_Enableds(count)
			, m_List(count)
			, m_Indices(size_t(count) * kIndicesPerQuad)
		{
			constexpr u32 kParticlesPerPage = 1024;
			constexpr u32 kDisabledEvery = 16;
			const CFloat3 *const positions = Positions(EShape::Ball, count).Data();
			for (u32 i = 0; i < count; ++i)
			{
				m_Enableds[i] = i % kDisabledEvery != 0;
				m_List[i] = i * kVerticesPerQuad;
			}
			for (u32 first = 0; first < count; first += kParticlesPerPage)
			{
				const u32 pageCount = std::min(kParticlesPerPage, count - first);
				const bool hasEnableds = checked == EChecked::Enableds;
				m_Positions.emplace_back(positions + first, pageCount, u32(sizeof(CFloat3)));
				m_EnabledPages.emplace_back(hasEnableds ? &m_Enableds[first] : nullptr, hasEnableds ? pageCount : 0, 1);
				m_RenderedCounts.push_back(
					hasEnableds ? pageCount - (pageCount + kDisabledEvery - 1) / kDisabledEvery : pageCount);
				m_ParticleCount += m_RenderedCounts.back();
			}
			m_Patterns.assign(m_Positions.size(), TMemoryView<u32>(m_Quad, kIndicesPerQuad));
			m_VertexCounts.assign(m_Positions.size(), kVerticesPerQuad);
			const u32 indexCount = m_ParticleCount * kIndicesPerQuad;
			m_Scratch = CBuffer<u8>(checked == EChecked::Triangles
										? CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(indexCount)
										: CTriangleSorter::GetAutogenIndicesWorkingBufferSize(m_ParticleCount));
		}

		void SetUp(u32 frame)
		{
			const u32 indexCount = m_ParticleCount * kIndicesPerQuad;
			m_Sorter.Setup_OutputIndexBuffer(
				TMemoryView<u32>(m_Indices.Data(), indexCount), m_ParticleCount * kVerticesPerQuad);
			m_Sorter.Setup_InputPageCache(
				All(m_Positions), All(m_EnabledPages), All(m_RenderedCounts), m_ParticleCount, CameraOfFrame(frame));
			if (m_Checked == EChecked::Triangles)
				m_Sorter.Setup_Geometry(All(m_Patterns), All(m_VertexCounts), indexCount);
			else if (m_Checked == EChecked::List)
				m_Sorter.Setup_Geometry(
					TMemoryView<u32>(m_Quad, kIndicesPerQuad), TMemoryView<const u32>(m_List.Data(), m_ParticleCount));
			else
				m_Sorter.Setup_Geometry(TMemoryView<u32>(m_Quad, kIndicesPerQuad), kVerticesPerQuad);
		}
		void SortBare()
		{
			if (m_Checked == EChecked::Triangles)
				m_Sorter.SortTriangles_AutogenIndices(m_Scratch.Data());
			else
				m_Sorter.SortPoints_AutogenIndices(m_Scratch.Data());
		}
		void SortChecked()
		{
			const auto sort = m_Checked == EChecked::Triangles ? &SortTrianglesChecked : &SortPointsChecked;
			const auto count = [](const SSortFinding &, void *userData) { ++*static_cast<u32 *>(userData); };
			sort(m_Sorter, m_Scratch.Data(), m_Scratch.Count(), count, &m_FindingCount, null);
		}

		u64 OutputSum() const
		{
			u64 sum = 0;
			for (u32 i = 0; i < m_ParticleCount * kIndicesPerQuad; ++i)
				sum = sum * 31 + m_Indices[i];
			return sum;
		}
		u32 FindingCount() const { return m_FindingCount; }

	private:
		template<typename _Element>
		static TMemoryView<const _Element> All(const std::vector<_Element> &elements)
		{
			return {elements.data(), u32(elements.size())};
		}

		CTriangleSorter m_Sorter;
		EChecked m_Checked;
		std::vector<TStridedMemoryView<const CFloat3>> m_Positions;
		CBuffer<u8> m_Enableds;
		std::vector<TStridedMemoryView<const u8>> m_EnabledPages;
		std::vector<u32> m_RenderedCounts;
		u32 m_ParticleCount = 0;
		u32 m_Quad[kIndicesPerQuad] = {0, 1, 2, 0, 2, 3};
		CBuffer<u32> m_List;
		std::vector<CTriangleSorter::CIndexPattern> m_Patterns;
		std::vector<u32> m_VertexCounts;
		CBuffer<u32> m_Indices;
		CBuffer<u8> m_Scratch;
		u32 m_FindingCount = 0;
	};

	template<EChecked _Checked>
	void RunChecked(benchmark::State &state, u32 count)
	{
		CCheckedCall call(_Checked, count);
		RunPairsOfTurns(
			state, count,
			[&](u32 i)
			{
				call.SetUp(i);
				call.SortBare();
			},
			[&](u32 i)
			{
				call.SetUp(i);
				call.SortChecked();
			});
		call.SetUp(0);
		call.SortBare();
		const u64 bareSum = call.OutputSum();
		call.SetUp(1);
		call.SortBare(); // another frame's indices, to be written over
		call.SetUp(0);
		call.SortChecked();
		if (call.OutputSum() != bareSum)
			state.SkipWithError("the checked sort does not write the same");
		if (call.FindingCount() != 0)
			state.SkipWithError("there is something to find");
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
		Register("checked_pages", count, RunChecked<EChecked::Pages>);
		Register("checked_enableds", count, RunChecked<EChecked::Enableds>);
		Register("checked_list", count, RunChecked<EChecked::List>);
		Register("checked_triangles", count, RunChecked<EChecked::Triangles>);
	}
}
} // namespace VexmoorBench
