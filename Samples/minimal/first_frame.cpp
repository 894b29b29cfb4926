// A renderer's first call: three pages of particles as an engine has them, sorted into mapped 16-bit indices.

#include "ge_mesh_pages.h"

#include "minimal.h"
#include <array>

using namespace Vexmoor;

// The engine's own types.
struct SParticle
{
	float x, y, z;
	float age;
};
struct SPage
{
	std::vector<SParticle> particles;
	std::vector<u8> areAlive; // a byte of every particle: those that died are not drawn
	u32 aliveCount;
	std::vector<float> values; // 0 - squared distance to the camera: the lowest is drawn first
};

// Returns how many indices to draw. The sorter and its scratch memory are kept from frame to frame.
static u32 SortSmoke(
	CTriangleSorter &sorter, std::vector<u8> &scratch, const std::array<SPage, 3> &smoke, u16 *mapped, u32 mappedCount)
{
	CSortKeyPage pages[3];
	for (u32 i = 0; i < 3; ++i)
		pages[i] = {ViewOf(smoke[i].values), ViewOf(smoke[i].areAlive), smoke[i].aliveCount};
	const u32 count = SetupInputPages(sorter, ViewOf(pages));

	u32 quad[] = {0, 1, 2, 0, 2, 3}; // 4 vertices per particle
	sorter.Setup_Geometry(ViewOf(quad), 4);
	sorter.Setup_OutputIndexBuffer(ViewOf(mapped, mappedCount), count * 4);
	scratch.resize(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());
	return count * 6;
}

int main()
{
	std::array<SPage, 3> smoke = {
		SPage{{{0, 0, 3, 0}, {1, 0, 9, 0}, {0, 2, 1, 0}}, {1, 1, 0}, 2, {}},
		SPage{{{0, 0, 7, 0}, {2, 1, 5, 0}},               {1, 1},    2, {}},
		SPage{{{0, 0, 8, 0}, {0, 0, 2, 0}, {0, 1, 6, 0}}, {1, 0, 1}, 2, {}},
	};
	const CFloat3 camera(0, 0, 0);
	for (SPage &page : smoke)
		for (const SParticle &particle : page.particles)
			page.values.push_back(0.0f - Minimal::SquaredDistance(CFloat3(particle.x, particle.y, particle.z), camera));

	std::vector<u16> mapped(6 * 6);
	std::vector<u8> scratch;
	CTriangleSorter sorter;
	const u32 indexCount = SortSmoke(sorter, scratch, smoke, mapped.data(), u32(mapped.size()));
	Minimal::Require(indexCount == 6 * 6, "not all particles that are alive are drawn.");

	// Particles that are alive are numbered through all pages: 0 and 1 are the first page's, 2 and 3 the second's.
	const std::vector<u32> drawn = Minimal::DrawnParticles({mapped.begin(), mapped.end()}, 6, 4);
	Minimal::Print("Drawn of all three pages, the farthest first", drawn);
	Minimal::Require(drawn == std::vector<u32>{1, 4, 2, 5, 3, 0}, "the particles are not drawn by falling distance.");
	return 0;
}
