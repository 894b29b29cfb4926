// Depth along the view axis, for orthographic cameras and for renderers that sort by view depth. With such a camera,
// the plane that a particle lies in decides what covers what, and not the distance to a point. The value is 0 - depth.

#include "ge_mesh_pages.h"

#include "minimal.h"

using namespace Vexmoor;

int main()
{
	constexpr u32 kCount = 4;
	const CFloat3 positions[kCount] = {
		{9,  0, 4},
		{0,  0, 6},
		{-5, 5, 5},
		{0,  1, 3},
	}; // 0 is the farthest from the eye
	const CFloat3 eye(0, 0, 0);
	const CFloat3 forward(0, 0, 1); // of length 1, or of any other: it is the same for all

	float values[kCount];
	for (u32 i = 0; i < kCount; ++i)
	{
		const CFloat3 &p = positions[i];
		const float depth =
			(p.x() - eye.x()) * forward.x() + (p.y() - eye.y()) * forward.y() + (p.z() - eye.z()) * forward.z();
		values[i] = 0.0f - depth; // the deepest is the lowest, and drawn first
	}

	std::vector<u32> indices(kCount * 6);
	const CSortKeyPage pages[] = {ViewOf(values)};

	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages));
	sorter.Setup_Geometry(ViewOf(quad), 4);

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kCount));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());

	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 6, 4);
	Minimal::Print("Drawn, the deepest first", drawn);
	Minimal::Require(drawn == std::vector<u32>{1, 2, 0, 3}, "the particles are not drawn by falling depth.");
	return 0;
}
