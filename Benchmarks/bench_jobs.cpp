// One large draw call on two cores: the sort with jobs, of oneTBB and of a thread pool, beside the sort on one core,
// and beside the packaged parallel sorts with the same loops around them, which run on both cores, too. All take turns
// with the sort with jobs, by the wall clock. What two threads can do at all is measured by a loop that moves the bytes
// of a sort. The sort with one job alone, on one core, takes turns with the sort without jobs.

#include "bench_inputs.h"
#include "bench_pairs.h"
#include "bench_registry.h"
#include "billboards.h"
#include "quads.h"
#include "sort_competitors.h"
#include "two_cores.h"
#include <algorithm>
#include <boost/sort/block_indirect_sort/block_indirect_sort.hpp>
#include <boost/sort/parallel_stable_sort/parallel_stable_sort.hpp>
#include <cstring>
#include <execution>
#include <functional>
#include <string>
#include <tbb/parallel_sort.h>

namespace VexmoorBench
{
namespace
{
	void SortInJobs(SOnePage &page, const SSortJobs &jobs)
	{
		page.m_Sorter.SortPoints_AutogenIndices(page.m_Scratch.Data(), page.m_Scratch.Count(), jobs);
	}

	SOnePage PageForJobs(EShape shape, u32 count)
	{
		return SOnePage(Positions(shape, count).Data(), count,
			CTriangleSorter::GetJobsWorkingBufferSize(count, CTwoCores::kMaxJobCount));
	}

	// So far away that all keys share their leading bits: a ball of 10 m, seen from 330 m.
	CFloat3 FarCamera()
	{
		return CFloat3(330.0f, 4.0f, 0.0f);
	}

	CFloat3 CameraInside()
	{
		return CFloat3(4.0f, 0.0f, 0.0f);
	}

	template<typename _JobSystem>
	void RunPairOfCores(benchmark::State &state, EShape shape, u32 count, const CFloat3 &camera)
	{
		SOnePage page = PageForJobs(shape, count);
		page.SetUp(camera);
		RunPairsOfCores<_JobSystem>(
			state, [&] { page.Sort(); }, [&](const SSortJobs &jobs) { SortInJobs(page, jobs); });
		if (!IsDrawnBackToFront(page.Call(), camera, page.m_Indices.Data(), true))
			state.SkipWithError("not sorted");
		DescribeIteration(state, u64(kPairsPerIteration) * 2, count);
	}

	// The bytes of a sort, moved by nothing but copies: records written and read, and indices written.
	void RunTrafficPair(benchmark::State &state, u32 count)
	{
		CBuffer<u64> records(count), others(count), indices(size_t(count) * kIndicesPerQuad / 2);
		const auto move = [&](u32 first, u32 end)
		{
			const size_t bytes = size_t(end - first) * sizeof(u64);
			for (u32 sweep = 0; sweep < 4; ++sweep)
				std::memcpy(sweep % 2 == 0 ? &others[first] : &records[first],
					sweep % 2 == 0 ? &records[first] : &others[first], bytes);
			std::fill(&indices[size_t(first) * 3], &indices[0] + size_t(end) * 3, u64(first));
		};
		RunPairsOfCores<CTwoCores>(
			state, [&] { move(0, count); }, [&](const SSortJobs &) { CTwoCores::ForHalves(count, move); });
		DescribeIteration(state, u64(kPairsPerIteration) * 2, count);
	}

	// What more cores would take is computed from jobs that run one after the other: the time that no job runs, and of
	// each run the longest job.
	struct SJobTimes
	{
		double m_Jobs = 0;
		double m_Longest = 0;

		SSortJobs OneByOne(u32 maxJobCount)
		{
			SSortJobs jobs = {};
			jobs.m_MaxJobCount = maxJobCount;
			jobs.m_UserData = this;
			jobs.m_Run = [](void *userData, u32 jobCount, SSortJobs::CbJob job, void *context)
			{
				SJobTimes &times = *static_cast<SJobTimes *>(userData);
				double longest = 0;
				for (u32 i = 0; i < jobCount; ++i)
				{
					const double seconds = Seconds([&] { job(context, i); });
					times.m_Jobs += seconds;
					longest = std::max(longest, seconds);
				}
				times.m_Longest += longest;
			};
			return jobs;
		}
	};

	void RunJobTimes(benchmark::State &state, EShape shape, u32 count, u32 jobCount)
	{
		const u64 scratchSize = CTriangleSorter::GetJobsWorkingBufferSize(count, jobCount);
		SOnePage page(Positions(shape, count).Data(), count, scratchSize);
		page.SetUp(Camera());
		SJobTimes times;
		RunTimedPairs(
			state, [&] { return Seconds([&] { page.Sort(); }); },
			[&]
			{
				times = SJobTimes();
				const double all = Seconds(
					[&] {
						page.m_Sorter.SortPoints_AutogenIndices(
							page.m_Scratch.Data(), scratchSize, times.OneByOne(jobCount));
					});
				return all - times.m_Jobs + times.m_Longest;
			});
		if (!IsDrawnBackToFront(page.Call(), Camera(), page.m_Indices.Data(), true))
			state.SkipWithError("not sorted");
		DescribeIteration(state, u64(kPairsPerIteration) * 2, count);
	}

	// One job alone. Small sorts are repeated, so that a turn is long beside a look at the clock.
	void RunOneJob(benchmark::State &state, EShape shape, u32 count, const CFloat3 &camera)
	{
		constexpr u32 kParticlesPerTurn = 100000;
		SJobTimes times;
		const SSortJobs jobs = times.OneByOne(1);
		SOnePage page = PageForJobs(shape, count);
		page.SetUp(camera);
		const auto turnOf = [&](const auto &sort)
		{
			return [&]
			{
				for (u32 done = 0; done < kParticlesPerTurn; done += count)
					sort();
			};
		};
		const auto sortWithoutJobs = [&] { page.Sort(); };
		const auto sortInOneJob = [&] { SortInJobs(page, jobs); };
		RunPairs(state, turnOf(sortWithoutJobs), turnOf(sortInOneJob));
		sortInOneJob();
		if (!IsDrawnBackToFront(page.Call(), camera, page.m_Indices.Data(), true))
			state.SkipWithError("not sorted");
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
			boost::sort::block_indirect_sort(
				records, records + count, std::less<SIndexAndDepth>(), CTwoCores::kThreads);
		}
	};

	struct SParallelStableSort
	{
		static constexpr const char *kName = "parallel_stable_sort";
		static void Run(SIndexAndDepth *records, u32 count)
		{
			boost::sort::parallel_stable_sort(
				records, records + count, std::less<SIndexAndDepth>(), CTwoCores::kThreads);
		}
	};

	// "ratio" is the peer's time over that of the sort with jobs.
	template<typename _Peer>
	void RunPeerPair(benchmark::State &state, EShape shape, u32 count)
	{
		CTwoCores cores;
		SOnePage page = PageForJobs(shape, count);
		const CFloat3 camera = Camera();
		page.SetUp(camera);
		CBuffer<SIndexAndDepth> records(count);
		CBuffer<u32> indices(size_t(count) * kIndicesPerQuad);
		const CFloat3 *const positions = page.m_Page.Data();
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
					state, [&] { SortInJobs(page, CTwoCores::Jobs()); }, drawWithPeer);
			});
		if (!IsDrawnBackToFront({positions, 0, count}, camera, indices.Data(), true))
			state.SkipWithError("not sorted");
		DescribeIteration(state, u64(kPairsPerIteration) * 2, count);
	}

	template<typename _Run>
	void Register(const char *stage, const char *what, const char *who, u32 count, const _Run &run)
	{
		benchmark::RegisterBenchmark(CaseName({stage, what, who, std::to_string(count)}).c_str(), run)
			->UseRealTime()
			->Iterations(1);
	}

	void RegisterOneJob(const char *what, EShape shape, const CFloat3 &camera)
	{
		for (const u32 count : {3000u, 10000u, 30000u, 100000u, 300000u, 1000000u, 4000000u})
			Register("one_job", what, "without_jobs", count,
				[=](benchmark::State &state) { RunOneJob(state, shape, count, camera); });
	}

	void RegisterPairsOfCores(const char *what, EShape shape, u32 count, const CFloat3 &camera)
	{
		Register("jobs", what, CTwoCores::kName, count,
			[=](benchmark::State &state) { RunPairOfCores<CTwoCores>(state, shape, count, camera); });
		Register("jobs", what, CPoolOfTwo::kName, count,
			[=](benchmark::State &state) { RunPairOfCores<CPoolOfTwo>(state, shape, count, camera); });
	}

	template<typename _Peer>
	void RegisterPeer(EShape shape, u32 count)
	{
		Register("jobs", Name(shape), _Peer::kName, count,
			[=](benchmark::State &state) { RunPeerPair<_Peer>(state, shape, count); });
	}
} // namespace

void RegisterJobs()
{
	for (const EShape shape : {EShape::Ball, EShape::Curve})
	{
		for (const u32 count : {1000u, 10000u, 20000u, 50000u, 100000u, 300000u, 1000000u, 4000000u})
			RegisterPairsOfCores(Name(shape), shape, count, Camera());
		RegisterPeer<STbbParallelSort>(shape, 1000000);
		RegisterPeer<SStdParallelSort>(shape, 1000000);
		RegisterPeer<SBlockIndirectSort>(shape, 1000000);
		RegisterPeer<SParallelStableSort>(shape, 1000000);
	}
	for (const u32 count : {10000u, 100000u, 1000000u})
		RegisterPairsOfCores("far_ball", EShape::Ball, count, FarCamera());
	for (const u32 count : {100000u, 1000000u, 4000000u})
	{
		for (const u32 jobCount : {2u, 4u, 8u, 16u})
			Register("job_times", Name(EShape::Ball), (std::to_string(jobCount) + "_jobs").c_str(), count,
				[=](benchmark::State &state) { RunJobTimes(state, EShape::Ball, count, jobCount); });
	}
	for (const u32 count : {100000u, 1000000u, 4000000u})
		Register(
			"jobs", "traffic", CTwoCores::kName, count, [=](benchmark::State &state) { RunTrafficPair(state, count); });
	RegisterOneJob(Name(EShape::Ball), EShape::Ball, Camera());
	RegisterOneJob(Name(EShape::Curve), EShape::Curve, Camera());
	RegisterOneJob("camera_inside", EShape::Ball, CameraInside());
	RegisterOneJob("far_ball", EShape::Ball, FarCamera());
}
} // namespace VexmoorBench
