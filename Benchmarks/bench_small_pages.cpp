// Small pages: sorts of thousands of pages of a few particles each, in turns with sorts of the same particles in pages
// of 1,000. Both write the same indices, so the ratio is what small pages cost. Strides that warn do so once per page.

#include "kr_log_unique.h"

#include "bench_pairs.h"
#include "bench_registry.h"
#include "scenes.h"
#include <algorithm>
#include <string>

namespace VexmoorBench
{
namespace
{
	constexpr u32 kPageCounts[] = {1000, 10000};
	constexpr u32 kPageSizes[] = {1, 3, 10, 100};
	constexpr u32 kMostParticles = 100000;
	constexpr u32 kOtherWarnings = 15;
	constexpr u32 kParticlesPerTurn = 20000; // as many sorts as it takes, so that one look at the clock is nothing

	// While it lives, warnings go to a collection that is quiet and already knows otherWarnings other keys.
	class CQuietWarnings
	{
	public:
		explicit CQuietWarnings(u32 otherWarnings)
			: m_Before(CPerfHotspotsRegistry::m_Registry)
		{
			m_Warnings.SetFirstTouchHandler([](const CLogUniqueCollection::SEntry &, void *) {}, nullptr);
			for (u32 i = 0; i < otherWarnings; ++i)
				m_Warnings.Touch((VX_SITE_KEY("[l.other ") + std::to_string(i)).c_str(), "another warning");
			CPerfHotspotsRegistry::m_Registry = &m_Warnings;
		}
		~CQuietWarnings() { CPerfHotspotsRegistry::m_Registry = m_Before; }
		CQuietWarnings(const CQuietWarnings &) = delete;
		CQuietWarnings &operator=(const CQuietWarnings &) = delete;

	private:
		CLogUniqueCollection *m_Before;
		CLogUniqueCollection m_Warnings;
	};

	void RunSmallPages(benchmark::State &state, const SSceneKind &kind, u32 pageSize, u32 pageCount, u32 otherWarnings)
	{
		const CQuietWarnings warnings(otherWarnings);
		SSceneKind smallPagesKind = kind;
		smallPagesKind.m_FewestInPage = smallPagesKind.m_MostInPage = pageSize;
		const u32 count = pageSize * pageCount;
		const CScene largePagesScene(kind, {count});
		const CScene smallPagesScene(smallPagesKind, {count});
		CFrames<CSceneByLibrary> largePages(largePagesScene);
		CFrames<CSceneByLibrary> smallPages(smallPagesScene);
		const u32 sorts = std::max(1u, kParticlesPerTurn / count);
		const CFloat3 camera = kind.Camera(0);
		const auto turn = [&](CFrames<CSceneByLibrary> &frames)
		{
			for (u32 i = 0; i < sorts; ++i)
				frames.Draw(camera);
		};
		RunPairs(
			state, [&] { turn(largePages); }, [&] { turn(smallPages); });
		if (!largePages.HasDrawn(camera) || !smallPages.HasDrawn(camera))
			state.SkipWithError("not sorted");
		state.counters["plain_ns"] = state.counters["plain_ns"] / sorts;
		DescribeIteration(state, u64(kPairsPerIteration) * 2 * sorts, count);
	}

	void Register(const char *what, ESceneKeys keys, u32 strideInBytes)
	{
		SSceneKind kind;
		kind.m_Keys = keys;
		kind.m_StrideInBytes = strideInBytes;
		for (const u32 otherWarnings : {0u, kOtherWarnings})
		{
			for (const u32 pageSize : kPageSizes)
			{
				const std::string who =
					"pages_of_" + std::to_string(pageSize) +
					(otherWarnings != 0 ? "_and_" + std::to_string(otherWarnings) + "_warnings" : "");
				for (const u32 pageCount : kPageCounts)
				{
					if (pageCount * pageSize > kMostParticles)
						continue;
					benchmark::RegisterBenchmark(
						CaseName({"small_pages", what, who, std::to_string(pageCount)}).c_str(),
						[=](benchmark::State &state)
						{ RunSmallPages(state, kind, pageSize, pageCount, otherWarnings); });
				}
			}
		}
	}
} // namespace

void RegisterSmallPages()
{
	Register("positions_stride_12", ESceneKeys::Positions, 12);
	Register("positions_stride_16", ESceneKeys::Positions, 16);
	Register("values_stride_4", ESceneKeys::Distances, 4);
	Register("values_stride_16", ESceneKeys::Distances, 16);
}
} // namespace VexmoorBench
