// Several views of the same pages, for split screens, mirrors and shadow maps: a call for each view, side by side.
// Sorts only read the particles, so all views share the pages. Each view has a sorter, a working buffer and an index
// buffer of its own.

#include "ge_mesh_pages.h"

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

static void Sort(SView &view, const TMemoryView<const CPositionPage> &pages)
{
	const u32 count = SetupInputPages(view.m_Sorter, pages, view.m_Camera);
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	view.m_Indices.resize(count * 6);
	view.m_Scratch.resize(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count));
	view.m_Sorter.Setup_OutputIndexBuffer(ViewOf(view.m_Indices), count * 4);
	view.m_Sorter.Setup_Geometry(ViewOf(quad), 4);
	Minimal::RequireValid(view.m_Sorter, view.m_Scratch);
	view.m_Sorter.SortPoints_AutogenIndices(view.m_Scratch.data());
}

int main()
{
	constexpr u32 kPageCount = 3;
	constexpr u32 kPerPage = 300;
	const std::vector<CFloat3> points = Minimal::ScatteredPoints(kPageCount * kPerPage, 1);
	CPositionPage pages[kPageCount];
	for (u32 page = 0; page < kPageCount; ++page)
		pages[page] = ViewOf(&points[page * kPerPage], kPerPage);

	SView views[4];
	const CFloat3 cameras[] = {CFloat3(0, 0, -30), CFloat3(0, 0, 30), CFloat3(30, 0, 0), CFloat3(0, 30, 0)};
	std::vector<std::thread> threads;
	for (u32 i = 0; i < 4; ++i)
	{
		views[i].m_Camera = cameras[i];
		threads.emplace_back([&, i] { Sort(views[i], ViewOf(pages)); });
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
