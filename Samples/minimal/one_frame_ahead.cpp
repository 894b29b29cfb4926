// Sorting one frame ahead: while a frame is drawn, a worker thread sorts the next one, and the main thread does not
// wait if a sort takes less than a frame. Two slots take turns; a GPU that still reads the frame before needs a third.
// A slot holds its particles together with its indices, because the indices number these particles and no later ones.
// So the picture is whole and in order, one frame late.

#include "ge_mesh_pages.h"

#include "minimal.h"
#include <cmath>
#include <future>

using namespace Vexmoor;

constexpr u32 kCount = 500;

struct SSlot
{
	std::vector<CFloat3> m_Positions;
	CFloat3 m_Camera;
	std::vector<u32> m_Indices = std::vector<u32>(kCount * 6);
	std::vector<u8> m_Scratch = std::vector<u8>(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kCount));
	CTriangleSorter m_Sorter;
	std::future<void> m_Sorted;
};

static void Sort(SSlot &slot)
{
	const CPositionPage pages[] = {ViewOf(slot.m_Positions)};
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter &sorter = slot.m_Sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(slot.m_Indices), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages), slot.m_Camera);
	sorter.Setup_Geometry(ViewOf(quad), 4);
	Minimal::RequireValid(sorter, slot.m_Scratch);
	sorter.SortPoints_AutogenIndices(slot.m_Scratch.data());
}

static void Simulate(SSlot &slot, const SSlot &previous, u32 frame)
{
	slot.m_Positions = previous.m_Positions;
	for (CFloat3 &position : slot.m_Positions)
		position.y() += 0.01f * position.x();
	slot.m_Camera = CFloat3(30 * std::cos(0.1f * float(frame)), 0, 30 * std::sin(0.1f * float(frame)));
}

static void Draw(const SSlot &slot)
{
	const std::vector<u32> drawn = Minimal::DrawnParticles(slot.m_Indices, 6, 4);
	Minimal::Require(Minimal::IsFarthestFirst(drawn, slot.m_Positions, slot.m_Camera),
		"a frame is not drawn in the order of its own particles.");
}

int main()
{
	constexpr u32 kFrameCount = 20;
	SSlot slots[2];
	slots[1].m_Positions = Minimal::ScatteredPoints(kCount, 1);
	for (u32 frame = 0; frame <= kFrameCount; ++frame)
	{
		SSlot &next = slots[frame % 2];
		SSlot &current = slots[(frame + 1) % 2];
		Simulate(next, current, frame);
		next.m_Sorted = std::async(std::launch::async, Sort, std::ref(next));
		if (frame == 0)
			continue; // nothing to draw yet
		current.m_Sorted.get();
		Draw(current); // while the worker sorts what comes next
	}
	slots[kFrameCount % 2].m_Sorted.get();
	std::printf("%u frames drawn, each while a worker sorted the next.\n", kFrameCount);
	return 0;
}
