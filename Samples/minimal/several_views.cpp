// Several views of the same pages, for split screens, mirrors and shadow maps: a call for each view, side by side.
// Sorts only read the particles, so all views share the pages. Each view has a sorter, a working buffer and an index
// buffer of its own.

#include "ge_mesh_triangle_sorter.h"

#include "minimal.h"
#include <thread>

using namespace Vexmoor;

struct SView
{
	CFloat3 m_Camera;
	std::vector<u32> m_Indices;
	std::vector<u8> m_Scratch;
	CTriangleSorter m_Sorter;
};

static void Sort(SView &view,
	const CTriangleSorter::CPositionPages &positions,
	const CTriangleSorter::CEnabledPages &enableds,
	const CTriangleSorter::CRenderedCounts &counts,
	u32 count)
{
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	view.m_Indices.resize(count * 6);
	view.m_Scratch.resize(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count));
	view.m_Sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(view.m_Indices.data(), count * 6), count * 4);
	view.m_Sorter.Setup_InputPageCache(positions, enableds, counts, count, view.m_Camera);
	view.m_Sorter.Setup_Geometry(TMemoryView<u32>(quad, 6), 4);
	Minimal::RequireValid(view.m_Sorter, view.m_Scratch);
	view.m_Sorter.SortPoints_AutogenIndices(view.m_Scratch.data());
}

int main()
{
	constexpr u32 kPageCount = 3;
	constexpr u32 kPerPage = 300;
	const std::vector<CFloat3> points = Minimal::ScatteredPoints(kPageCount * kPerPage, 1);
	TStridedMemoryView<const CFloat3> pages[kPageCount];
	for (u32 page = 0; page < kPageCount; ++page)
		pages[page] = TStridedMemoryView<const CFloat3>(&points[page * kPerPage], kPerPage, sizeof(CFloat3));
	const TStridedMemoryView<const u8> noneDisabled[kPageCount];
	const u32 renderedCounts[kPageCount] = {kPerPage, kPerPage, kPerPage};
	const CTriangleSorter::CPositionPages positions(pages, kPageCount, sizeof(pages[0]));
	const CTriangleSorter::CEnabledPages enableds(noneDisabled, kPageCount, sizeof(noneDisabled[0]));
	const CTriangleSorter::CRenderedCounts counts(renderedCounts, kPageCount, sizeof(u32));

	SView views[4];
	const CFloat3 cameras[] = {CFloat3(0, 0, -30), CFloat3(0, 0, 30), CFloat3(30, 0, 0), CFloat3(0, 30, 0)};
	std::vector<std::thread> threads;
	for (u32 i = 0; i < 4; ++i)
	{
		views[i].m_Camera = cameras[i];
		threads.emplace_back([&, i] { Sort(views[i], positions, enableds, counts, kPageCount * kPerPage); });
	}
	for (std::thread &thread : threads)
		thread.join();

	for (const SView &view : views)
	{
		const std::vector<u32> drawn = Minimal::DrawnParticles(view.m_Indices, 6, 4);
		std::printf("This view draws particle %u first and particle %u last.\n", drawn.front(), drawn.back());
		Minimal::Require(Minimal::IsFarthestFirst(drawn, points, view.m_Camera),
			"a view is not drawn by distance to its own camera.");
	}
	return 0;
}
