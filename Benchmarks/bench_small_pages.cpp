// Small pages: sorts of thousands of pages of a few particles each, in turns with sorts of the same particles in pages of
// 1,000. Both write the same indices, so the ratio is what small pages cost. Strides that warn do so once per page.

#include "kr_log_unique.h"

#include "bench_pairs.h"
#include "bench_registry.h"
#include "billboards.h"
#include <algorithm>
#include <type_traits>
#include <vector>

namespace VexmoorBench
{
namespace
{
	constexpr u32 kPageCounts[] = {1000, 10000};
	constexpr u32 kPageSizes[] = {1, 3, 10, 100};
	constexpr u32 kLargePageSize = 1000;
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

	// A ball's particles, as positions or as values of 0 - squared distance, at a stride.
	template<typename _Element>
	class CParticles
	{
	public:
		CParticles(u32 count, u32 stride)
			: m_Positions(Positions(EShape::Ball, count).Data())
			, m_Count(count)
			, m_Stride(stride)
			, m_Bytes(size_t(count) * stride)
		{
			for (u32 i = 0; i < count; ++i)
			{
				if constexpr (std::is_same_v<_Element, CFloat3>)
				{
					std::memcpy(m_Bytes.Data() + size_t(i) * stride, m_Positions + i, sizeof(CFloat3));
				}
				else
				{
					const float value = 0.0f - SquaredDistance(m_Positions[i], Camera());
					std::memcpy(m_Bytes.Data() + size_t(i) * stride, &value, sizeof(value));
				}
			}
		}

		u32 Count() const { return m_Count; }
		TStridedMemoryView<const _Element> View() const
		{
			return {reinterpret_cast<const _Element *>(m_Bytes.Data()), m_Count, m_Stride};
		}
		bool IsDrawn(const std::vector<u32> &indices) const
		{
			return IsDrawnBackToFront({m_Positions, 0, m_Count}, Camera(), indices.data(), true);
		}

	private:
		const CFloat3 *m_Positions;
		u32 m_Count;
		u32 m_Stride;
		CBuffer<u8> m_Bytes;
	};

	template<typename _Element>
	class CPagedSort
	{
	public:
		CPagedSort(const CParticles<_Element> &particles, u32 pageSize)
			: m_ParticleCount(particles.Count())
			, m_Indices(size_t(m_ParticleCount) * kIndicesPerQuad)
			, m_Scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(m_ParticleCount))
		{
			for (u32 first = 0; first < m_ParticleCount; first += pageSize)
			{
				m_RenderedCounts.push_back(std::min(pageSize, m_ParticleCount - first));
				m_Pages.push_back(particles.View().Slice(first, m_RenderedCounts.back()));
			}
			m_Enableds.resize(m_Pages.size());
		}

		void Run()
		{
			const TMemoryView<const TStridedMemoryView<const _Element>> pages(m_Pages.data(), u32(m_Pages.size()));
			const TMemoryView<const TStridedMemoryView<const u8>> enableds(m_Enableds.data(), pages.Count());
			const TMemoryView<const u32> counts(m_RenderedCounts.data(), pages.Count());
			m_Sorter.Setup_OutputIndexBuffer(
				TMemoryView<u32>(m_Indices.data(), u32(m_Indices.size())), m_ParticleCount * kVerticesPerQuad);
			if constexpr (std::is_same_v<_Element, CFloat3>)
				m_Sorter.Setup_InputPageCache(pages, enableds, counts, m_ParticleCount, Camera());
			else
				m_Sorter.Setup_InputPageCache(pages, enableds, counts, m_ParticleCount);
			m_Sorter.Setup_Geometry(TMemoryView<u32>(m_Pattern, kIndicesPerQuad), kVerticesPerQuad);
			m_Sorter.SortPoints_AutogenIndices(m_Scratch.Data());
		}
		const std::vector<u32> &Indices() const { return m_Indices; }

	private:
		u32 m_ParticleCount;
		std::vector<TStridedMemoryView<const _Element>> m_Pages;
		std::vector<TStridedMemoryView<const u8>> m_Enableds;
		std::vector<u32> m_RenderedCounts;
		std::vector<u32> m_Indices;
		CBuffer<u8> m_Scratch;
		u32 m_Pattern[kIndicesPerQuad] = {0, 1, 2, 0, 2, 3};
		CTriangleSorter m_Sorter;
	};

	template<typename _Element>
	void RunSmallPages(benchmark::State &state, u32 stride, u32 pageSize, u32 pageCount, u32 otherWarnings)
	{
		const CQuietWarnings warnings(otherWarnings);
		const CParticles<_Element> particles(pageSize * pageCount, stride);
		CPagedSort<_Element> largePages(particles, kLargePageSize);
		CPagedSort<_Element> smallPages(particles, pageSize);
		const u32 sorts = std::max(1u, kParticlesPerTurn / particles.Count());
		const auto turn = [sorts](CPagedSort<_Element> &sort)
		{
			for (u32 i = 0; i < sorts; ++i)
				sort.Run();
		};
		RunPairs(
			state, [&] { turn(largePages); }, [&] { turn(smallPages); });
		if (!particles.IsDrawn(largePages.Indices()) || !particles.IsDrawn(smallPages.Indices()))
			state.SkipWithError("not sorted");
		state.counters["plain_ns"] = state.counters["plain_ns"] / sorts;
		DescribeIteration(state, u64(kPairsPerIteration) * 2 * sorts, particles.Count());
	}

	template<typename _Element>
	void Register(const char *what, u32 stride)
	{
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
						{ RunSmallPages<_Element>(state, stride, pageSize, pageCount, otherWarnings); });
				}
			}
		}
	}
} // namespace

void RegisterSmallPages()
{
	Register<CFloat3>("positions_stride_12", 12);
	Register<CFloat3>("positions_stride_16", 16);
	Register<float>("values_stride_4", 4);
	Register<float>("values_stride_16", 16);
}
} // namespace VexmoorBench
