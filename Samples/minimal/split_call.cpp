// One large draw call on many cores, with a thread pool that the host has anyway (thread_pool.h). Any pool will do that
// runs a function a number of times and waits until all calls have returned. The indices are the same whatever the
// number of threads. A sort of few particles runs no jobs.

#include "ge_mesh_pages.h"

#include "minimal.h"
#include "thread_pool.h"
#include <algorithm>

using namespace Vexmoor;

int main()
{
	const u32 threadCount = std::max(std::thread::hardware_concurrency(), 2u);
	Minimal::CThreadPool pool(threadCount);

	// What the sorter is told of the pool: a function, and how many jobs it may ask for at once.
	SSortJobs jobs;
	jobs.m_UserData = &pool;
	jobs.m_MaxJobCount = threadCount;
	jobs.m_Run = [](void *userData, u32 jobCount, SSortJobs::CbJob job, void *context)
	{ static_cast<Minimal::CThreadPool *>(userData)->Run(jobCount, job, context); };

	constexpr u32 kCount = 300000;
	const std::vector<CFloat3> positions = Minimal::ScatteredPoints(kCount, 1);
	const CFloat3 camera(0, 0, -30);
	const CPositionPage pages[] = {ViewOf(positions)};
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	std::vector<u32> indices(kCount * 6);

	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages), camera);
	sorter.Setup_Geometry(ViewOf(quad), 4);

	// Jobs take a little more scratch memory.
	std::vector<u8> scratch(CTriangleSorter::GetJobsWorkingBufferSize(kCount, jobs.m_MaxJobCount));
	sorter.SortPoints_AutogenIndices(scratch.data(), scratch.size(), jobs);
	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 6, 4);
	Minimal::Require(Minimal::IsFarthestFirst(drawn, positions, camera), "a draw call of many jobs is out of order.");

	const std::vector<u32> indicesOfJobs = indices;
	sorter.SortPoints_AutogenIndices(scratch.data());
	Minimal::Require(indices == indicesOfJobs, "the sort without jobs writes other indices.");
	std::printf("%u particles, sorted by %u threads as by one.\n", kCount, threadCount);
	return 0;
}
