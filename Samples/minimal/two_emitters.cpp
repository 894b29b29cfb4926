// Two emitters in one order, for effects such as smoke and sparks that reach into each other. The pages of both go into
// one call, one emitter's after the other's, and their vertices into one buffer in the same order. If the emitters need
// render states of their own, the sorted indices are cut into runs of one emitter, with a draw call for each run.

#include "ge_mesh_triangle_sorter.h"

#include "minimal.h"

using namespace Vexmoor;

struct SEmitter
{
	std::vector<CFloat3> m_Positions;
	const char *m_State;
};

int main()
{
	constexpr u32 kEmitterCount = 2;
	const SEmitter emitters[kEmitterCount] = {
		{{{0, 0, 9}, {0, 0, 8}, {0, 0, 5}, {0, 0, 2}}, "smoke" }, // particles 0 to 3
		{{{0, 0, 7}, {0, 0, 6}, {0, 0, 3}},            "sparks"}, // particles 4 to 6
	};
	const CFloat3 camera(0, 0, 0);

	TStridedMemoryView<const CFloat3> pages[kEmitterCount];
	u32 counts[kEmitterCount];
	u32 count = 0;
	for (u32 i = 0; i < kEmitterCount; ++i)
	{
		counts[i] = u32(emitters[i].m_Positions.size());
		pages[i] = TStridedMemoryView<const CFloat3>(emitters[i].m_Positions.data(), counts[i], sizeof(CFloat3));
		count += counts[i];
	}
	const TStridedMemoryView<const u8> noneDisabled[kEmitterCount];

	std::vector<u32> indices(count * 6);
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(indices.data(), count * 6), count * 4);
	sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(pages, kEmitterCount, sizeof(pages[0])),
		CTriangleSorter::CEnabledPages(noneDisabled, kEmitterCount, sizeof(noneDisabled[0])),
		CTriangleSorter::CRenderedCounts(counts, kEmitterCount, sizeof(u32)), count, camera);
	sorter.Setup_Geometry(TMemoryView<u32>(quad, 6), 4);

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());

	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 6, 4);
	const auto emitterOf = [&counts](u32 particle) { return particle < counts[0] ? 0 : 1; };
	u32 drawCallCount = 0;
	for (u32 first = 0, end; first < count; first = end)
	{
		for (end = first + 1; end < count && emitterOf(drawn[end]) == emitterOf(drawn[first]);)
			++end;
		std::printf("Draw %s: %u indices from %u on.\n", emitters[emitterOf(drawn[first])].m_State, (end - first) * 6,
			first * 6);
		++drawCallCount;
	}
	Minimal::Require(drawn == std::vector<u32>{0, 1, 4, 5, 2, 6, 3}, "the two emitters are not in one order.");
	Minimal::Require(drawCallCount == 5, "the order is not cut into five draw calls.");
	return 0;
}
