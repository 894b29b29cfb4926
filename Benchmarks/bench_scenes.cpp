// Whole sorts of the draw calls that renderers have, each in turns with the loop that is written without the library.

#include "bench_pairs.h"
#include "bench_registry.h"
#include "scenes.h"
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace VexmoorBench
{
namespace
{
	constexpr u32 kCounts[] = {100, 1000, 10000, 100000, 1000000};
	constexpr u32 kMostParticles = 4000000;     // of the kinds that are sorted in any number
	constexpr u32 kMostInOrdinaryMemory = 1000; // above it, the kind of memory changes times little
	constexpr u32 kDisabledPercents[] = {1, 30, 50, 99};
	constexpr u32 kMostInSmallPage = 300;
	constexpr u32 kManyPages = 10000;
	constexpr u32 kParticlesPerIteration = 1u << 18; // what one iteration sorts by either side, one pair at the least
	constexpr u32 kFrameCalls = 500;
	constexpr u32 kFewestInCall = 100;
	constexpr u32 kMostInCall = 2000;

	// One frame of all calls is one turn. The report divides the time by calls and itemsPerCall.
	void RunScene(benchmark::State &state,
		const SSceneKind &kind,
		const std::vector<u32> &counts,
		u32 calls,
		u32 itemsPerCall,
		CTriangleSorter::EOutputMemory outputMemory = CTriangleSorter::OutputMemory_WriteCombined)
	{
		const CScene scene(kind, counts);
		CFrames<CSceneByLibrary> library(scene, outputMemory);
		CFrames<CSceneByUser> user(scene);
		const u32 pairs = std::clamp(kParticlesPerIteration / scene.ParticleCount(), 1u, kPairsPerIteration);
		u32 frame = 0;
		const auto turn = [&](auto &frames)
		{
			const CFloat3 camera = kind.Camera(++frame);
			return Seconds([&] { frames.Draw(camera); });
		};
		turn(library); // first touches of caches and predictors
		turn(user);
		RunTimedPairs(
			state, [&] { return turn(library); }, [&] { return turn(user); }, pairs);

		const CFloat3 camera = kind.Camera(0);
		library.Draw(camera);
		user.Draw(camera);
		if (!library.HasDrawn(camera) || !user.HasDrawn(camera))
			state.SkipWithError("not sorted");
		state.counters["plain_ns"] = state.counters["plain_ns"] / calls;
		DescribeIteration(state, u64(pairs) * 2 * calls, itemsPerCall);
	}

	void Register(const SSceneKind &kind, u32 count)
	{
		// As many calls as the second cache holds well, each of other particles.
		const std::vector<u32> counts(BatchInputCount(count), count);
		for (const SOutputMemory &memory : kOutputMemories)
		{
			if (memory.m_Kind == CTriangleSorter::OutputMemory_Cached && count > kMostInOrdinaryMemory)
				continue;
			benchmark::RegisterBenchmark(CaseName({"scenes", kind.m_Name, memory.m_Who, std::to_string(count)}).c_str(),
				[=](benchmark::State &state)
				{ RunScene(state, kind, counts, u32(counts.size()), count, memory.m_Kind); })
				->Iterations(1);
		}
	}

	void RegisterSizes(const SSceneKind &kind)
	{
		for (const u32 count : kCounts)
			Register(kind, count);
	}

	// Five hundred draw calls of different sizes, each with pages of its own.
	void RegisterFrame(SSceneKind kind)
	{
		kind.m_Name += "_frame";
		std::vector<u32> counts;
		u32 total = 0;
		for (u32 i = 0; i < kFrameCalls; ++i)
		{
			counts.push_back(kFewestInCall + i * 211 % kFrameCalls * (kMostInCall - kFewestInCall) / (kFrameCalls - 1));
			total += counts.back();
		}
		benchmark::RegisterBenchmark(CaseName({"scenes", kind.m_Name, "user", std::to_string(kFrameCalls)}).c_str(),
			[=](benchmark::State &state) { RunScene(state, kind, counts, 1, total); })
			->Iterations(1);
	}

	// What both sorts by position and sorts by value are made for: layouts, disabled particles, small pages.
	void RegisterLayouts(const SSceneKind &plain)
	{
		RegisterSizes(plain);
		Register(plain, kMostParticles);

		SSceneKind kind = plain;
		kind.m_StrideInBytes = 16;
		kind.m_Name += "_stride_16";
		RegisterSizes(kind);

		for (const u32 percent : kDisabledPercents)
		{
			kind = plain;
			kind.m_DisabledPercent = percent;
			kind.m_Name += "_disabled_" + std::to_string(percent);
			RegisterSizes(kind);
		}

		kind = plain;
		kind.m_HasList = true;
		kind.m_Name += "_list";
		RegisterSizes(kind);
		Register(kind, kMostParticles);

		kind = plain;
		kind.m_FewestInPage = 1;
		kind.m_MostInPage = kMostInSmallPage;
		kind.m_Name += "_pages_1_to_300";
		RegisterSizes(kind);
		kind.m_DisabledPercent = 30;
		kind.m_Name += "_disabled_30";
		RegisterSizes(kind);
		Register(kind, kMostParticles);
		RegisterFrame(kind);

		kind = plain;
		kind.m_FewestInPage = kind.m_MostInPage = 1;
		kind.m_Name += "_pages_of_1";
		Register(kind, kManyPages);
		kind.m_StrideInBytes = 16;
		kind.m_Name += "_stride_16";
		Register(kind, kManyPages);
	}

	// Other cameras and particles, by position.
	void RegisterViews(const SSceneKind &plain)
	{
		SSceneKind kind = plain;
		kind.m_CameraDistance = 4.0f;
		kind.m_Name += "_camera_inside";
		RegisterSizes(kind);

		kind = plain;
		kind.m_BallRadius = 1.5f;
		kind.m_CameraDistance = 50.0f;
		kind.m_Name += "_emitter_50_m_away";
		RegisterSizes(kind);

		kind = plain;
		kind.m_Shape = EShape::Curve;
		kind.m_Name += "_plume";
		RegisterSizes(kind);
	}

	// Keys with runs, in order, or nearly so.
	void RegisterValues(const SSceneKind &plain)
	{
		const std::pair<ESceneKeys, const char *> kValues[] = {
			{ESceneKeys::Ages,         "_ages"         },
			{ESceneKeys::PagesValues,  "_per_page"     },
			{ESceneKeys::OneValue,     "_all_equal"    },
			{ESceneKeys::NearlySorted, "_nearly_sorted"},
		};
		for (const auto &[keys, name] : kValues)
		{
			SSceneKind kind = plain;
			kind.m_Keys = keys;
			kind.m_Name += name;
			RegisterSizes(kind);
		}
	}
} // namespace

void RegisterScenes()
{
	SSceneKind positions;
	positions.m_Name = "positions";
	RegisterLayouts(positions);
	RegisterViews(positions);

	SSceneKind values;
	values.m_Name = "values";
	values.m_Keys = ESceneKeys::Distances;
	values.m_StrideInBytes = u32(sizeof(float));
	RegisterLayouts(values);
	RegisterValues(values);
}
} // namespace VexmoorBench
