// Values instead of distances, for an order that distance alone does not give: the caller makes a float for each
// particle, and the lowest is drawn first. Here sparks fly inside smoke, and are sorted as if they were 2 nearer than
// they are, so that the smoke around them does not cover them.

#include "ge_mesh_pages.h"

#include "minimal.h"
#include <cmath>

using namespace Vexmoor;

struct SParticle
{
	CFloat3 m_Position;
	float m_Nearer; // drawn as if so much nearer to the camera
};

int main()
{
	constexpr u32 kCount = 5;
	const SParticle particles[kCount] = {
		{{0, 0, 9}, 0}, // smoke
		{{0, 0, 6}, 0}, // smoke
		{{0, 0, 3}, 0}, // smoke
		{{0, 0, 7}, 2}, // a spark in the puff at 6
		{{0, 0, 4}, 2}, // a spark in the puff at 3
	};
	const CFloat3 camera(0, 0, 0);

	// The farther, the lower.
	float values[kCount];
	for (u32 i = 0; i < kCount; ++i)
	{
		const float distance = std::sqrt(Minimal::SquaredDistance(particles[i].m_Position, camera));
		values[i] = particles[i].m_Nearer - distance;
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
	Minimal::Print("Drawn, each spark after its puff", drawn);
	Minimal::Require(drawn == std::vector<u32>{0, 1, 3, 2, 4}, "a spark is not drawn right after its puff.");
	return 0;
}
