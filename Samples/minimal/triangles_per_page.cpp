// Triangles per page: meshes as particles, each page with a mesh of its own, drawn in one call. Every triangle is
// sorted by its particle's distance, so particles of all pages are in one order. triangle_depth.cpp shows how to sort
// triangles by their own depth.

#include "ge_mesh_pages.h"

#include "minimal.h"

using namespace Vexmoor;

int main()
{
	constexpr u32 kPageCount = 2;
	const CFloat3 tetrahedra[] = {
		{0, 0, 6},
		{0, 0, 2},
	};
	const CFloat3 quads[] = {
		{0, 0, 4},
		{0, 0, 8},
		{0, 0, 1},
	};
	const CFloat3 camera(0, 0, 0);

	const CPositionPage pages[kPageCount] = {ViewOf(tetrahedra), ViewOf(quads)};

	u32 tetrahedron[] = {0, 1, 2, 0, 2, 3, 0, 3, 1, 1, 3, 2};
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	const CTriangleSorter::CIndexPattern patterns[kPageCount] = {ViewOf(tetrahedron), ViewOf(quad)};
	const u32 verticesPerParticle[kPageCount] = {4, 4};
	constexpr u32 kIndexCount = 2 * 12 + 3 * 6;
	constexpr u32 kVertexCount = 2 * 4 + 3 * 4; // page after page

	std::vector<u32> indices(kIndexCount);
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kVertexCount);
	SetupInputPages(sorter, ViewOf(pages), camera);
	sorter.Setup_Geometry(ViewOf(patterns), ViewOf(verticesPerParticle), kIndexCount);

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(kIndexCount));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortTriangles_AutogenIndices(scratch.data());

	// Particles 0 and 1 are the tetrahedra, 2 to 4 the quads.
	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 3, 4);
	Minimal::Print("The particle of each triangle drawn", drawn);
	Minimal::Require(drawn == std::vector<u32>{3, 3, 0, 0, 0, 0, 2, 2, 1, 1, 1, 1, 4, 4},
		"the triangles are not drawn by the distance of their particles.");
	return 0;
}
