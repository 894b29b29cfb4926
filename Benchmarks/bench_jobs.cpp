// One large draw call on two cores: the sort with jobs of oneTBB, beside the sort on one core, and beside the packaged
// parallel sorts with the same loops around them, which run on both cores, too. All take turns with the sort with jobs,
// by the wall clock. What two threads can do at all is measured by a loop that moves the bytes of a sort.

#include "bench_inputs.h"
#include "bench_pairs.h"
#include "bench_registry.h"
#include "billboards.h"
#include "quads.h"
#include "sort_competitors.h"
#include <algorithm>
#include <boost/sort/block_indirect_sort/block_indirect_sort.hpp>
#include <boost/sort/parallel_stable_sort/parallel_stable_sort.hpp>
#include <cstring>
#include <execution>
#include <functional>
#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_sort.h>
#include <tbb/task_arena.h>
#include <vector>

namespace VexmoorBench
{
namespace
{
	constexpr u32 kThreads = 2;
	constexpr u32 kMaxJobCount = kThreads;

	/// Two threads, for everything that is measured here.
	class CTwoCores
	{
	public:
		template<typename _Run>
		void Execute(const _Run &run)
		{
			m_Arena.execute(run);
		}

		static SSortJobs Jobs()
		{
			SSortJobs jobs = {};
			jobs.m_MaxJobCount = kMaxJobCount;
			jobs.m_Run = [](void *, u32 jobCount, SSortJobs::CbJob job, void *context)
			{
				tbb::parallel_for(
					0u, jobCount, [=](u32 jobIndex) { job(context, jobIndex); }, tbb::simple_partitioner());
			};
			return jobs;
		}

		// Both halves of a loop over particles.
		template<typename _Body>
		static void ForHalves(u32 count, const _Body &body)
		{
			tbb::parallel_for(0u, kThreads,
				[&](u32 half) { body(u32(u64(count) * half / kThreads), u32(u64(count) * (half + 1) / kThreads)); });
		}

	private:
		tbb::global_control m_Limit{tbb::global_control::max_allowed_parallelism, kThreads};
		tbb::task_arena m_Arena{int(kThreads)};
	};

	/// A call of billboards or of triangles, set up once.
	struct SCall
	{
		SCall(EShape shape, u32 count)
			: m_Count(count)
			, m_Page(Positions(shape, count).Data(), count, u32(sizeof(CFloat3)))
			, m_Indices(size_t(count) * kIndicesPerQuad)
			, m_Scratch(size_t(CTriangleSorter::GetJobsWorkingBufferSize(count, kMaxJobCount)))
		{
		}

		void SetUp(const CFloat3 &camera)
		{
			m_Sorter.Setup_OutputIndexBuffer(
				TMemoryView<u32>(m_Indices.Data(), u32(m_Indices.Count())), m_Count * kVerticesPerQuad);
			m_Sorter.Setup_InputPageCache(TMemoryView<const TStridedMemoryView<const CFloat3>>(m_Page),
				TMemoryView<const TStridedMemoryView<const u8>>(m_NoEnableds), TMemoryView<const u32>(m_Count), m_Count,
				camera);
			m_Sorter.Setup_Geometry(TMemoryView<u32>(m_Pattern, kIndicesPerQuad), kVerticesPerQuad);
		}
		void SortOnOneCore() { m_Sorter.SortPoints_AutogenIndices(m_Scratch.Data()); }
		void SortInJobs()
		{
			m_Sorter.SortPoints_AutogenIndices(m_Scratch.Data(), m_Scratch.Count(), CTwoCores::Jobs());
		}

		u32 m_Count;
		TStridedMemoryView<const CFloat3> m_Page;
		TStridedMemoryView<const u8> m_NoEnableds;
		CBuffer<u32> m_Indices;
		CBuffer<u8> m_Scratch;
		u32 m_Pattern[kIndicesPerQuad] = {0, 1, 2, 0, 2, 3};
		CTriangleSorter m_Sorter;
	};

	void RunPairOfCores(benchmark::State &state, EShape shape, u32 count)
	{
		CTwoCores cores;
		SCall call(shape, count);
		const CFloat3 camera = Camera();
		call.SetUp(camera);
		cores.Execute(
			[&]
			{
				RunPairs<WallTime>(
					state, [&] { call.SortOnOneCore(); }, [&] { call.SortInJobs(); });
				call.SortInJobs();
			});
		if (!IsDrawnBackToFront({call.m_Page.Data(), 0, count}, camera, call.m_Indices.Data(), true))
			state.SkipWithError("not sorted");
		DescribeIteration(state, u64(kPairsPerIteration) * 2, count);
	}

	// The bytes of a sort, moved by nothing but copies: records written and read, and indices written.
	void RunTrafficPair(benchmark::State &state, u32 count)
	{
		CTwoCores cores;
		CBuffer<u64> records(count), others(count), indices(size_t(count) * kIndicesPerQuad / 2);
		const auto move = [&](u32 first, u32 end)
		{
			const size_t bytes = size_t(end - first) * sizeof(u64);
			for (u32 sweep = 0; sweep < 4; ++sweep)
				std::memcpy(sweep % 2 == 0 ? &others[first] : &records[first],
					sweep % 2 == 0 ? &records[first] : &others[first], bytes);
			std::fill(&indices[size_t(first) * 3], &indices[0] + size_t(end) * 3, u64(first));
		};
		cores.Execute(
			[&]
			{
				RunPairs<WallTime>(
					state, [&] { move(0, count); }, [&] { CTwoCores::ForHalves(count, move); });
			});
		DescribeIteration(state, u64(kPairsPerIteration) * 2, count);
	}

	// Peers, on both cores.

	struct STbbParallelSort
	{
		static constexpr const char *kName = "tbb_parallel_sort";
		static void Run(SIndexAndDepth *records, u32 count) { tbb::parallel_sort(records, records + count); }
	};

	struct SStdParallelSort
	{
		static constexpr const char *kName = "std_sort_par";
		static void Run(SIndexAndDepth *records, u32 count)
		{
			std::sort(std::execution::par, records, records + count);
		}
	};

	struct SBlockIndirectSort
	{
		static constexpr const char *kName = "block_indirect_sort";
		static void Run(SIndexAndDepth *records, u32 count)
		{
			boost::sort::block_indirect_sort(records, records + count, std::less<SIndexAndDepth>(), kThreads);
		}
	};

	struct SParallelStableSort
	{
		static constexpr const char *kName = "parallel_stable_sort";
		static void Run(SIndexAndDepth *records, u32 count)
		{
			boost::sort::parallel_stable_sort(records, records + count, std::less<SIndexAndDepth>(), kThreads);
		}
	};

	// "ratio" is the peer's time over that of the sort with jobs.
	template<typename _Peer>
	void RunPeerPair(benchmark::State &state, EShape shape, u32 count)
	{
		CTwoCores cores;
		SCall call(shape, count);
		const CFloat3 camera = Camera();
		call.SetUp(camera);
		CBuffer<SIndexAndDepth> records(count);
		CBuffer<u32> indices(size_t(count) * kIndicesPerQuad);
		const CFloat3 *const positions = call.m_Page.Data();
		const auto drawWithPeer = [&]
		{
			CTwoCores::ForHalves(count,
				[&](u32 first, u32 end)
				{
					for (u32 i = first; i < end; ++i)
						records[i] = {~FloatBits(SquaredDistance(positions[i], camera)), i * kVerticesPerQuad};
				});
			_Peer::Run(records.Data(), count);
			CTwoCores::ForHalves(count,
				[&](u32 first, u32 end)
				{
					for (u32 i = first; i < end; ++i)
						WriteQuad(indices.Data() + size_t(i) * kIndicesPerQuad, records[i].m_Index);
				});
		};
		cores.Execute(
			[&]
			{
				RunPairs<WallTime>(
					state, [&] { call.SortInJobs(); }, drawWithPeer);
			});
		if (!IsDrawnBackToFront({positions, 0, count}, camera, indices.Data(), true))
			state.SkipWithError("not sorted");
		DescribeIteration(state, u64(kPairsPerIteration) * 2, count);
	}

	template<typename _Run>
	void Register(const char *what, const char *who, u32 count, const _Run &run)
	{
		benchmark::RegisterBenchmark(CaseName({"jobs", what, who, std::to_string(count)}).c_str(), run)
			->UseRealTime()
			->Iterations(1);
	}

	template<typename _Peer>
	void RegisterPeer(EShape shape, u32 count)
	{
		Register(Name(shape), _Peer::kName, count,
			[=](benchmark::State &state) { RunPeerPair<_Peer>(state, shape, count); });
	}
} // namespace

void RegisterJobs()
{
	for (const EShape shape : {EShape::Ball, EShape::Curve})
	{
		for (const u32 count : {1000u, 10000u, 20000u, 50000u, 100000u, 300000u, 1000000u, 4000000u})
			Register(
				Name(shape), "one_core", count, [=](benchmark::State &state) { RunPairOfCores(state, shape, count); });
		RegisterPeer<STbbParallelSort>(shape, 1000000);
		RegisterPeer<SStdParallelSort>(shape, 1000000);
		RegisterPeer<SBlockIndirectSort>(shape, 1000000);
		RegisterPeer<SParallelStableSort>(shape, 1000000);
	}
	for (const u32 count : {100000u, 1000000u, 4000000u})
		Register("traffic", "one_core", count, [=](benchmark::State &state) { RunTrafficPair(state, count); });
}
} // namespace VexmoorBench
