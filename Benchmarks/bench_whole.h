#pragma once

// Whole sorts of one scene, a frame after the other: what the benchmarks of triangles and of tubes have in common. A
// scene has m_Count particles and m_IndexCount indices, and says by IsDrawnBackToFront whether indices draw it. A
// competitor is made of a scene; it has a name, says whether it sorts, and draws a frame.

#include "bench_inputs.h"
#include "bench_registry.h"
#include <string>

namespace VexmoorBench
{
constexpr u32 kWholeCounts[] = {100, 1000, 10000, 100000, 1000000};

template<typename _Competitor, typename _Scene>
void RunWhole(benchmark::State &state, _Scene &scene)
{
	CBuffer<u32> indices(scene.m_IndexCount);
	_Competitor competitor(scene);
	u32 frame = 0;
	CFloat3 camera;
	for (auto _ : state)
	{
		camera = CameraOfFrame(++frame);
		competitor.Draw(camera, indices.Data());
		benchmark::ClobberMemory();
	}
	if (_Competitor::kSorts && !IsDrawnBackToFront(scene, camera, indices.Data()))
		state.SkipWithError("not sorted");
	DescribeIteration(state, 1, scene.m_Count);
}

/// One case for each competitor, in order. The arguments make the scene, its number of particles first.
template<typename _Scene, typename... _Competitors, typename... _Arguments>
void RegisterWhole(const std::string &shape, u32 count, _Arguments... arguments)
{
	const auto add = [&](const char *name, auto run) {
		benchmark::RegisterBenchmark(CaseName({"whole", shape, name, std::to_string(count)}).c_str(), run);
	};
	(add(_Competitors::kName,
		 [=](benchmark::State &state)
		 {
			 _Scene scene(count, arguments...);
			 RunWhole<_Competitors>(state, scene);
		 }),
		...);
}
} // namespace VexmoorBench
