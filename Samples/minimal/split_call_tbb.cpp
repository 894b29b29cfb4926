// One large draw call on a job system, here oneTBB. It needs one function, which runs jobs and returns when all have
// returned. Small draw calls are better sorted side by side (job_system.cpp).

#include "ge_mesh_pages.h"

#include "minimal.h"
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

using namespace Vexmoor;

static SSortJobs JobsOfTbb()
{
	SSortJobs jobs = {};
	jobs.m_MaxJobCount = u32(tbb::this_task_arena::max_concurrency());
	jobs.m_Run = [](void *, u32 jobCount, SSortJobs::CbJob job, void *context)
	{
		tbb::parallel_for(
			0u, jobCount, [job, context](u32 jobIndex) { job(context, jobIndex); }, tbb::simple_partitioner());
	};
	return jobs;
}

int main()
{
	const SSortJobs jobs = JobsOfTbb();
	constexpr u32 kCount = 300000;
	std::vector<float> ages(kCount);
	for (u32 i = 0; i < kCount; ++i)
		ages[i] = float(i * 7919u % kCount);
	const CSortKeyPage pages[] = {ViewOf(ages)};
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	std::vector<u32> indices(kCount * 6);

	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages));
	sorter.Setup_Geometry(ViewOf(quad), 4);

	std::vector<u8> scratch(CTriangleSorter::GetJobsWorkingBufferSize(kCount, jobs.m_MaxJobCount));
	sorter.SortPoints_AutogenIndices(scratch.data(), scratch.size(), jobs);

	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 6, 4);
	for (u32 i = 1; i < kCount; ++i)
		Minimal::Require(ages[drawn[i - 1]] < ages[drawn[i]], "a draw call of many jobs is out of order.");
	std::printf("%u particles, sorted by up to %u of oneTBB's threads.\n", kCount, jobs.m_MaxJobCount);
	return 0;
}
