// Many sorters on a job system: a frame's draw calls are sorted side by side, here with oneTBB. A sort runs on the
// thread that calls it, and sorters share nothing. Each draw call has a sorter, and each thread keeps a working buffer.

#include "ge_mesh_pages.h"

#include "minimal.h"
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

using namespace Vexmoor;

struct SDrawCall
{
	std::vector<CFloat3> m_Positions;
	std::vector<u32> m_Indices; // its part of mapped index memory, in a renderer
	CTriangleSorter m_Sorter;   // kept from frame to frame
};

static void Sort(SDrawCall &drawCall, const CFloat3 &camera, std::vector<u8> &scratch)
{
	const u32 count = u32(drawCall.m_Positions.size());
	const CPositionPage pages[] = {ViewOf(drawCall.m_Positions)};
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter &sorter = drawCall.m_Sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(drawCall.m_Indices), count * 4);
	SetupInputPages(sorter, ViewOf(pages), camera);
	sorter.Setup_Geometry(ViewOf(quad), 4);

	const u32 scratchSize = CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count);
	if (scratch.size() < scratchSize)
		scratch.resize(scratchSize);
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());
}

int main()
{
	constexpr u32 kDrawCallCount = 64;
	const CFloat3 camera(0, 0, -30);
	std::vector<SDrawCall> drawCalls(kDrawCallCount);
	for (u32 i = 0; i < kDrawCallCount; ++i)
	{
		drawCalls[i].m_Positions = Minimal::ScatteredPoints(50 + 40 * i, i);
		drawCalls[i].m_Indices.resize(drawCalls[i].m_Positions.size() * 6);
	}

	tbb::enumerable_thread_specific<std::vector<u8>> scratchOfThread;
	for (u32 frame = 0; frame < 20; ++frame)
		tbb::parallel_for(0u, kDrawCallCount, [&](u32 i) { Sort(drawCalls[i], camera, scratchOfThread.local()); });

	for (const SDrawCall &drawCall : drawCalls)
	{
		const std::vector<u32> drawn = Minimal::DrawnParticles(drawCall.m_Indices, 6, 4);
		Minimal::Require(Minimal::IsFarthestFirst(drawn, drawCall.m_Positions, camera),
			"a draw call that is sorted beside others is out of order.");
	}
	std::printf("%u draw calls, sorted on %zu of the job system's threads.\n", kDrawCallCount, scratchOfThread.size());
	return 0;
}
