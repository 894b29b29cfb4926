// A frame sorted without a renderer: the same indices on any number of threads.

#include "deterministic.h"
#include "order_pairs.h"
#include "sort_frame.h"
#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <set>

using namespace Viewer;

namespace
{
// Billboards in two pages, of which one has disabled particles.
class CTwoPages
{
public:
	explicit CTwoPages(u32 particlesPerPage)
		: m_Enableds(particlesPerPage)
	{
		CRandom random(1);
		for (u32 i = 0; i < 2 * particlesPerPage; ++i)
			m_Points.push_back(
				CFloat3(random.Between(-1.0f, 1.0f), random.Between(-1.0f, 1.0f), random.Between(-1.0f, 1.0f)));
		for (u32 i = 0; i < particlesPerPage; ++i)
			m_Enableds[i] = i % 3 != 0;
		m_Counts[0] = u32(std::count(m_Enableds.begin(), m_Enableds.end(), 1));
		m_Counts[1] = particlesPerPage;
		m_EnabledPages[0] = TMemoryView<const u8>(m_Enableds.data(), particlesPerPage);
		for (u32 page = 0; page < 2; ++page)
			m_Pages[page] = TMemoryView<const CFloat3>(&m_Points[page * particlesPerPage], particlesPerPage);
	}

	SFrame Frame()
	{
		SFrame frame;
		frame.m_Camera.m_Position = CFloat3(0.0f, 0.0f, 5.0f);
		frame.m_Positions = TMemoryView<const TStridedMemoryView<const CFloat3>>(m_Pages, 2);
		frame.m_Enableds = TMemoryView<const TStridedMemoryView<const u8>>(m_EnabledPages, 2);
		frame.m_RenderedCounts = TMemoryView<const u32>(m_Counts, 2);
		frame.m_ParticleCount = m_Counts[0] + m_Counts[1];
		frame.m_IndexPattern = TMemoryView<u32>(m_Quad, 6);
		frame.m_VerticesPerParticle = 4;
		frame.m_VertexCount = frame.m_ParticleCount * 4;
		return frame;
	}

private:
	std::vector<CFloat3> m_Points;
	std::vector<u8> m_Enableds;
	TStridedMemoryView<const CFloat3> m_Pages[2];
	TStridedMemoryView<const u8> m_EnabledPages[2];
	u32 m_Counts[2];
	u32 m_Quad[6] = {0, 1, 2, 0, 2, 3};
};

std::vector<u8> Sorted(CFrameSorter &sorter, const SFrame &frame, EOrder order)
{
	const std::vector<SDrawCall> drawCalls = PlanDrawCalls(frame, CTriangleSorter::IndexTypeUint32);
	std::vector<u8> indices(IndexMemorySize(drawCalls));
	sorter.Sort(frame, order, drawCalls, indices.data());
	return indices;
}
} // namespace

TEST(SortFrame, AnyNumberOfThreads_GivesTheSameIndices)
{
	CTwoPages pages(60000);
	const SFrame frame = pages.Frame();
	CFrameSorter sorter;
	std::vector<std::string> violations;
	sorter.SetFindingHandler(
		[](const SSortFinding &finding, void *sentences)
		{
			if (finding.m_Kind == SortFinding_Violation)
				static_cast<std::vector<std::string> *>(sentences)->push_back(finding.m_Sentence);
		},
		&violations);
	for (const EOrder order : {EOrder::ByValue, EOrder::ByPosition})
	{
		sorter.SetThreadCount(1);
		const std::vector<u8> onOneThread = Sorted(sorter, frame, order);
		for (const u32 threadCount : {2u, 5u, 2u, 1u})
		{
			sorter.SetThreadCount(threadCount);
			EXPECT_EQ(Sorted(sorter, frame, order), onOneThread) << threadCount << " threads";
		}
	}
	EXPECT_EQ(violations, std::vector<std::string>());
}

// Keys of few bits are numbers of equal steps of distance, step 0 at the farthest rendered particle.
TEST(SortFrame, FewKeyBits_SortByEqualStepsOfDistance)
{
	CTwoPages pages(3000);
	const SFrame frame = pages.Frame();
	CFrameSorter sorter;
	for (const u32 keyBits : {4u, 16u})
	{
		sorter.SetKeyBits(keyBits);
		const std::vector<u8> bytes = Sorted(sorter, frame, EOrder::ByPosition);
		std::vector<float> distances; // of the rendered particles
		for (u32 page = 0; page < 2; ++page)
			for (u32 i = 0; i < frame.m_Positions[page].Count(); ++i)
			{
				if (page == 0 && frame.m_Enableds[0][i] == 0)
					continue;
				float value = 0.0f;
				ComputeSortValues(TMemoryView<float>(value),
					TStridedMemoryView<const CFloat3>(frame.m_Positions[page][i]), frame.m_Camera.m_Position);
				distances.push_back(std::sqrt(-value));
			}
		const auto [least, greatest] = std::minmax_element(distances.begin(), distances.end());
		const double steps = std::exp2(double(keyBits)) - 1.0;
		std::set<u32> distinct;
		u32 last = 0;
		for (u32 place = 0; place < frame.m_ParticleCount; ++place)
		{
			u32 index = 0;
			std::memcpy(&index, &bytes[place * 6 * sizeof(u32)], sizeof(index));
			const double share =
				(double(*greatest) - double(distances[index / 4])) / (double(*greatest) - double(*least));
			const u32 step = u32(std::floor(share * steps + 1e-9));
			EXPECT_GE(step + (share * steps - step > 1.0 - 1e-6 ? 1 : 0), last) << place;
			last = std::max(last, step);
			distinct.insert(step);
		}
		EXPECT_EQ(last, u32(steps));
		EXPECT_EQ(distinct.size() <= 16, keyBits == 4);
	}
}

TEST(OrderPairs, AreThoseOfASearchThroughAllPairs)
{
	for (u64 seed = 0; seed < 60; ++seed)
	{
		CRandom random(seed);
		std::vector<float> distances(1 + random.Below(300));
		for (float &distance : distances)
			distance = float(random.Below(seed % 2 == 0 ? 10 : 100000));
		u64 outOfOrder = 0;
		float worst = 0.0f;
		for (size_t i = 0; i < distances.size(); ++i)
			for (size_t j = i + 1; j < distances.size(); ++j)
			{
				outOfOrder += distances[j] > distances[i] ? 1 : 0;
				worst = std::max(worst, distances[j] - distances[i]);
			}
		const SPairFigures figures = MeasurePairs(distances);
		EXPECT_EQ(figures.m_PairCount, u64(distances.size()) * (distances.size() - 1) / 2);
		EXPECT_EQ(figures.m_OutOfOrder, outOfOrder);
		std::sort(distances.rbegin(), distances.rend());
		const size_t tail = (distances.size() - 1) / 100;
		const float range = distances[tail] - distances[distances.size() - 1 - tail];
		EXPECT_NEAR(figures.m_WorstBacktrack, range > 0.0f ? double(worst / range) : 0.0, 1e-6);
	}
	EXPECT_EQ(MeasurePairs({}).m_PairCount, 0u);
}

// All of them run, on any number of threads, and all have returned when the call does.
TEST(ThreadPool, Jobs_RunOnceEach)
{
	for (const u32 threadCount : {1u, 2u, 7u})
	{
		CThreadPool pool(threadCount);
		EXPECT_EQ(pool.ThreadCount(), threadCount);
		const SSortJobs jobs = pool.Jobs();
		EXPECT_EQ(jobs.m_MaxJobCount, threadCount);
		for (u32 round = 0; round < 200; ++round)
		{
			std::vector<u32> runs(1 + round % 20);
			jobs.m_Run(
				jobs.m_UserData, u32(runs.size()),
				[](void *context, u32 job) { ++(*static_cast<std::vector<u32> *>(context))[job]; }, &runs);
			ASSERT_EQ(std::count(runs.begin(), runs.end(), 1u), s64(runs.size()));
		}
	}
}
