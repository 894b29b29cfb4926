// Small draw calls whose code and data have left the caches, as between two passes of a renderer: twenty sorters of a
// few particles each in rotation, and the caches swept before every draw call. The library and the loop that is written
// without it take turns.

#include "bench_pairs.h"
#include "bench_registry.h"
#include "scenes.h"
#include <algorithm>
#include <array>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>
#include <x86intrin.h>

extern char __executable_start;
extern char etext;

namespace VexmoorBench
{
namespace
{
	constexpr u32 kCounts[] = {30, 100, 300, 1000};
	constexpr u32 kCalls = 20; // of as many sorters; flushing everything before each takes milliseconds

	// What is swept before each draw call.
	struct SSwept
	{
		const char *m_Name;
		bool m_SecondCache; // data, and code where the first cache has lost it, come from the last cache
		bool m_Branches;    // the first cache of instructions and the predictors know other code
		bool m_AllCaches;   // data and code come from memory
	};
	constexpr SSwept kSwept[] = {
		{"nothing",    false, false, false},
		{"data",       true,  false, false},
		{"code",       false, true,  false},
		{"all_caches", false, true,  true },
	};

	// Reads twice as much memory as the second cache holds.
	class CSecondCacheSweep
	{
	public:
		void Sweep()
		{
			u32 sum = 0;
			for (size_t i = 0; i < m_Bytes.Count(); i += kCacheLineInBytes)
				sum += m_Bytes[i];
			benchmark::DoNotOptimize(sum);
		}

	private:
		static size_t _SecondCacheInBytes()
		{
			constexpr long kUnknown = 2l << 20; // of today's processors
			const long size = sysconf(_SC_LEVEL2_CACHE_SIZE);
			return size_t(size > 0 ? size : kUnknown);
		}
		CBuffer<u8> m_Bytes{2 * _SecondCacheInBytes()};
	};

	// Functions of a cache line each, 256 KB together: more than a first cache of instructions holds, and more calls
	// than the processor has targets of branches in its tables, without which it cannot fetch code ahead.
	constexpr u32 kFunctions = 4096;

	template<u32 _Number>
	__attribute__((noinline, aligned(kCacheLineInBytes))) u32 CodeLine(u32 x)
	{
		return (x ^ _Number) * (2 * _Number + 1) + 1;
	}

	template<u32... _Numbers>
	constexpr std::array<u32 (*)(u32), sizeof...(_Numbers)> CodeLines(std::integer_sequence<u32, _Numbers...>)
	{
		return {CodeLine<_Numbers>...};
	}

	void SweepCode()
	{
		static constexpr std::array kLines = CodeLines(std::make_integer_sequence<u32, kFunctions>());
		u32 x = 0;
		for (const auto &line : kLines)
			x = line(x);
		benchmark::DoNotOptimize(x);
	}

	void Flush(const void *bytes, size_t sizeInBytes)
	{
		for (size_t i = 0; i < sizeInBytes; i += kCacheLineInBytes)
			_mm_clflush(static_cast<const u8 *>(bytes) + i);
	}

	// One side's draw calls of a frame, each timed by itself after a sweep: the median of their seconds.
	template<typename _Side>
	double SecondsSwept(const SSwept &swept,
		CSecondCacheSweep &secondCache,
		const CScene &scene,
		_Side &side,
		CBuffer<u32> &indices,
		const CFloat3 &camera)
	{
		std::vector<double> seconds;
		for (u32 i = 0; i < scene.Calls().size(); ++i)
		{
			if (swept.m_SecondCache)
				secondCache.Sweep();
			if (swept.m_Branches)
				SweepCode();
			if (swept.m_AllCaches)
			{
				scene.VisitMemory(Flush);
				side.VisitMemory(Flush);
				Flush(indices.Data(), indices.Count() * sizeof(u32));
				Flush(&__executable_start, size_t(&etext - &__executable_start)); // the library is linked in
				_mm_mfence();
			}
			Seconds<WallTime>([] {}); // the clock's own code and data are warm
			seconds.push_back(Seconds<WallTime>([&] { side.Draw(i, camera, indices.Data()); }));
		}
		return Median(seconds);
	}

	void RunCold(benchmark::State &state,
		const SSceneKind &kind,
		const SSwept &swept,
		u32 count,
		CTriangleSorter::EOutputMemory outputMemory)
	{
		const CScene scene(kind, std::vector<u32>(kCalls, count));
		CSceneByLibrary library(scene, outputMemory);
		CSceneByUser user(scene);
		CBuffer<u32> libraryIndices(scene.IndexCount());
		CBuffer<u32> userIndices(scene.IndexCount());
		CSecondCacheSweep secondCache;
		u32 frame = 0;
		const auto turn = [&](auto &side, CBuffer<u32> &indices)
		{ return SecondsSwept(swept, secondCache, scene, side, indices, kind.Camera(++frame)); };
		turn(library, libraryIndices); // first touches
		turn(user, userIndices);
		RunTimedPairs(
			state, [&] { return turn(library, libraryIndices); }, [&] { return turn(user, userIndices); }, 1);

		const CFloat3 camera = kind.Camera(0);
		bool drawn = true;
		for (u32 i = 0; i < kCalls; ++i)
		{
			library.Draw(i, camera, libraryIndices.Data());
			user.Draw(i, camera, userIndices.Data());
			const CScene::SCall &call = scene.Calls()[i];
			drawn = drawn && scene.IsDrawn(call, camera, libraryIndices.Data() + call.m_FirstIndex, true) &&
			        scene.IsDrawn(call, camera, userIndices.Data() + call.m_FirstIndex, false);
		}
		if (!drawn)
			state.SkipWithError("not sorted");
		DescribeIteration(state, 2 * kCalls, count);
	}
} // namespace

void RegisterCold()
{
	SSceneKind positions;
	positions.m_Name = "positions";
	SSceneKind values;
	values.m_Name = "values";
	values.m_Keys = ESceneKeys::Distances;
	values.m_StrideInBytes = u32(sizeof(float));
	for (const SSceneKind &kind : {positions, values})
	{
		for (const SSwept &swept : kSwept)
		{
			for (const u32 count : kCounts)
			{
				for (const SOutputMemory &memory : kOutputMemories)
				{
					const std::string what = kind.m_Name + "_swept_" + swept.m_Name;
					benchmark::RegisterBenchmark(CaseName({"cold", what, memory.m_Who, std::to_string(count)}).c_str(),
						[=](benchmark::State &state) { RunCold(state, kind, swept, count, memory.m_Kind); })
						->Iterations(1);
				}
			}
		}
	}
}
} // namespace VexmoorBench
