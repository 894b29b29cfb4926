// A frame of many draw calls: 500 sorters of 50 to 5,000 particles, on one thread and fanned out over a job system on
// two, with every allocation counted.

#include "kr_mem.h"

#include "bench_pairs.h"
#include "bench_registry.h"
#include "billboards.h"
#include "two_cores.h"
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <new>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <vector>

namespace
{
std::atomic<size_t> s_Allocations{0};
} // namespace

// Every allocation of the process passes here or through the library's own allocator, which is hooked below.
void *operator new(std::size_t size)
{
	s_Allocations.fetch_add(1, std::memory_order_relaxed);
	if (void *const block = std::malloc(size != 0 ? size : 1))
		return block;
	throw std::bad_alloc();
}
void operator delete(void *block) noexcept
{
	std::free(block);
}
void operator delete(void *block, std::size_t) noexcept
{
	std::free(block);
}

namespace VexmoorBench
{
namespace
{
	constexpr u32 kDrawCalls = 500;
	constexpr u32 kFramesPerTurn = 32;
	constexpr double kFewestParticles = 50;
	constexpr double kMostParticles = 5000;
	constexpr size_t kDrawCallsPerTask = 4; // so little that no core waits long for the other at the end

	void *CountedAlloc(
		void *, u64 size, u32 alignment, Mem::EAllocType, Mem::EOrigin, const char *, const char *, int, const char *)
	{
		s_Allocations.fetch_add(1, std::memory_order_relaxed);
		return std::aligned_alloc(alignment, size_t((size + alignment - 1) / alignment * alignment));
	}
	void CountedFree(void *, void *block, Mem::EAllocType, Mem::EOrigin, const char *, const char *, int, const char *)
	{
		std::free(block);
	}

	class CCountAllocations
	{
	public:
		CCountAllocations()
		{
			const Mem::SAllocator counted = {CountedAlloc, CountedFree, nullptr};
			Mem::SetAllocator(&counted);
		}
		~CCountAllocations() { Mem::SetAllocator(nullptr); }
		CCountAllocations(const CCountAllocations &) = delete;
		CCountAllocations &operator=(const CCountAllocations &) = delete;

		static size_t Count() { return s_Allocations.load(std::memory_order_relaxed); }
	};

	struct SFrame
	{
		SFrame()
		{
			m_Sorters.reserve(kDrawCalls); // sorters view their own members
			const CBuffer<CFloat3> &positions = Positions(EShape::Ball, 1000000);
			size_t first = 0;
			for (u32 i = 0; i < kDrawCalls; ++i)
			{
				// As many small ones as large ones on a logarithmic scale, in an order that jumps about.
				const double place = double(i * 211 % kDrawCalls) / double(kDrawCalls - 1);
				const u32 count =
					u32(std::lround(kFewestParticles * std::pow(kMostParticles / kFewestParticles, place)));
				m_Sorters.emplace_back(
					positions.Data() + first, count, CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count));
				first += (count + 3) & ~3u; // pages start at multiples of 16 bytes
				m_ParticleCount += count;
			}
		}

		bool IsDrawn(const CFloat3 &camera) const
		{
			for (const SOnePage &sorter : m_Sorters)
			{
				if (!IsDrawnBackToFront(sorter.Call(), camera, sorter.m_Indices.Data(), true))
					return false;
			}
			return true;
		}

		std::vector<SOnePage> m_Sorters;
		u32 m_ParticleCount = 0;
	};

	void Draw(SOnePage &sorter, const CFloat3 &camera)
	{
		sorter.SetUp(camera);
		sorter.Sort();
	}

	void DrawOnOneThread(SFrame &frame, const CFloat3 &camera)
	{
		for (SOnePage &sorter : frame.m_Sorters)
			Draw(sorter, camera);
	}

	void DrawOnTwoThreads(CTwoCores &cores, SFrame &frame, const CFloat3 &camera)
	{
		cores.Execute(
			[&]
			{
				tbb::parallel_for(
					tbb::blocked_range<size_t>(0, frame.m_Sorters.size(), kDrawCallsPerTask),
					[&](const tbb::blocked_range<size_t> &range)
					{
						for (size_t i = range.begin(); i < range.end(); ++i)
							Draw(frame.m_Sorters[i], camera);
					},
					tbb::simple_partitioner());
			});
	}

	void RunOneThread(benchmark::State &state)
	{
		const CCountAllocations counting;
		SFrame frame;
		u32 frameId = 0;
		size_t allocations = 0;
		CFloat3 camera = CameraOfFrame(frameId);
		DrawOnOneThread(frame, camera); // the first frame takes the memory of patterns
		for (auto _ : state)
		{
			camera = CameraOfFrame(++frameId);
			const size_t before = CCountAllocations::Count();
			DrawOnOneThread(frame, camera);
			benchmark::ClobberMemory();
			allocations += CCountAllocations::Count() - before;
		}
		if (!frame.IsDrawn(camera))
			state.SkipWithError("not sorted");
		if (allocations != 0)
			state.SkipWithError("a frame allocated memory");
		state.counters["allocations"] = double(allocations);
		DescribeIteration(state, 1, frame.m_ParticleCount);
	}

	void RunTwoThreads(benchmark::State &state)
	{
		const CCountAllocations counting;
		SFrame frame;
		u32 frameId = 0;
		CFloat3 camera = CameraOfFrame(frameId);
		CTwoCores cores;
		DrawOnTwoThreads(cores, frame, camera);
		for (auto _ : state)
		{
			camera = CameraOfFrame(++frameId);
			DrawOnTwoThreads(cores, frame, camera);
			benchmark::ClobberMemory();
		}
		if (!frame.IsDrawn(camera))
			state.SkipWithError("not sorted");
		DescribeIteration(state, 1, frame.m_ParticleCount);
	}

	// The same memory for both, and other cases' memory never between them. A turn is of several frames, so that a
	// second thread that slept meanwhile is awake for most of its own.
	void RunTwoThreadsInTurns(benchmark::State &state)
	{
		const CCountAllocations counting;
		SFrame frame;
		u32 frameId = 0;
		CFloat3 camera;
		CTwoCores cores;
		const auto turn = [&](const auto &draw)
		{
			for (u32 i = 0; i < kFramesPerTurn; ++i)
			{
				camera = CameraOfFrame(++frameId);
				draw();
			}
		};
		const auto drawOnOneThread = [&] { DrawOnOneThread(frame, camera); };
		const auto drawOnTwoThreads = [&] { DrawOnTwoThreads(cores, frame, camera); };
		turn(drawOnTwoThreads);
		RunPairs<WallTime>(
			state, [&] { turn(drawOnOneThread); }, [&] { turn(drawOnTwoThreads); });
		if (!frame.IsDrawn(camera))
			state.SkipWithError("not sorted");
		DescribeIteration(state, u64(kPairsPerIteration) * 2 * kFramesPerTurn, frame.m_ParticleCount);
	}

	// The same frame as it is written without the library, memory kept from call to call.
	void RunUser(benchmark::State &state)
	{
		SFrame frame;
		const SBatch largest(EShape::Ball, u32(kMostParticles), ~0u);
		CUserBillboards<u32> user;
		user.Prepare(largest);
		u32 frameId = 0;
		CFloat3 camera;
		for (auto _ : state)
		{
			camera = CameraOfFrame(++frameId);
			for (SOnePage &sorter : frame.m_Sorters)
				user.Draw(0, sorter.Call(), camera, sorter.m_Indices.Data());
			benchmark::ClobberMemory();
		}
		if (!frame.IsDrawn(camera))
			state.SkipWithError("not sorted");
		DescribeIteration(state, 1, frame.m_ParticleCount);
	}

	benchmark::internal::Benchmark *Register(const char *what, const char *who, void (*run)(benchmark::State &))
	{
		return benchmark::RegisterBenchmark(
			CaseName({"draw_calls", what, who, std::to_string(kDrawCalls)}).c_str(), run);
	}
} // namespace

void RegisterDrawCalls()
{
	Register("frame", "vexmoor_one_thread", RunOneThread);
	// Real time: the processor time of the calling thread says nothing about a frame on two.
	Register("frame", "vexmoor_two_threads", RunTwoThreads)->UseRealTime();
	Register("frame", "user_one_thread", RunUser);
	Register("pairs", "vexmoor_two_threads", RunTwoThreadsInTurns);
}
} // namespace VexmoorBench
