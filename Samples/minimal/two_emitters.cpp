// Two emitters in one order, for effects such as smoke and sparks that reach into each other. The pages of both go into
// one call, one emitter's after the other's, and their vertices into one buffer in the same order. If the emitters need
// render states of their own, the sorted indices are cut into runs of one emitter, with a draw call for each run.

#include "ge_mesh_pages.h"

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

	const CPositionPage pages[kEmitterCount] = {ViewOf(emitters[0].m_Positions), ViewOf(emitters[1].m_Positions)};

	CTriangleSorter sorter;
	const u32 count = SetupInputPages(sorter, ViewOf(pages), camera);
	std::vector<u32> indices(count * 6);
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), count * 4);
	sorter.Setup_Geometry(ViewOf(quad), 4);

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());

	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 6, 4);
	const auto emitterOf = [&pages](u32 particle) { return particle < pages[0].m_RenderedCount ? 0 : 1; };
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
