// A frame sorted without a renderer: the same indices on any number of threads.

#include "deterministic.h"
#include "sort_frame.h"
#include <algorithm>
#include <gtest/gtest.h>

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
