// Pages as a range of structures: a sort that is set up with them writes what a sort writes that is set up with a view
// per page.

#include "ge_mesh_pages.h"
#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"
#include "vx_maths_vector.h"

#include "kr_views.h"

#include "diagnostics.h"
#include <gtest/gtest.h>
#include <vector>

using namespace Vexmoor;
using namespace Support;

namespace
{
constexpr u32 kPageCount = 3;
constexpr u32 kRenderedCount = 3 + 2 + 1;

const CFloat3 kCamera(1, 2, 3);
const CFloat3 kPositions[kPageCount][3] = {
	{{0, 0, 1}, {0, 0, 7}, {0, 0, 4}},
	{{0, 0, 2}, {0, 0, 9}, {0, 0, 3}},
	{{0, 0, 6}, {0, 0, 5}, {0, 0, 8}},
};
const float kValues[kPageCount][3] = {
	{3, 1, 9},
	{2, 8, 4},
	{5, 6, 0},
};
// Of the second page two are drawn by their bytes, of the third the first one.
const u8 kEnableds[3] = {1, 0, 1};

u32 s_Quad[] = {0, 1, 2, 0, 2, 3};

template<typename _Element>
std::vector<TParticlePage<_Element>> MakePages(const _Element (&elements)[kPageCount][3])
{
	return {
		TParticlePage<_Element>(ViewOf(elements[0])),
		TParticlePage<_Element>(ViewOf(elements[1]), ViewOf(kEnableds), 2),
		TParticlePage<_Element>(ViewOf(elements[2]), {}, 1),
	};
}

// The same page cache, a view at a time.
template<typename _Element, typename... _Camera>
void SetUpByHand(CTriangleSorter &sorter, const _Element (&elements)[kPageCount][3], const _Camera &...camera)
{
	typedef TStridedMemoryView<const _Element> CElements;
	static CElements s_Elements[kPageCount];
	static TStridedMemoryView<const u8> s_Enableds[kPageCount];
	static const u32 s_RenderedCounts[kPageCount] = {3, 2, 1};
	for (u32 i = 0; i < kPageCount; ++i)
		s_Elements[i] = CElements(elements[i], 3, sizeof(_Element));
	s_Enableds[1] = TStridedMemoryView<const u8>(kEnableds, 3, 1);
	sorter.Setup_InputPageCache(TStridedMemoryView<const CElements>(s_Elements, kPageCount, sizeof(CElements)),
		CTriangleSorter::CEnabledPages(s_Enableds, kPageCount, sizeof(s_Enableds[0])),
		CTriangleSorter::CRenderedCounts(s_RenderedCounts, kPageCount, sizeof(u32)), kRenderedCount, camera...);
}

std::vector<u16> Sorted(CTriangleSorter &sorter)
{
	std::vector<u16> indices(kRenderedCount * 6, u16(0xFFFF));
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kRenderedCount * 4);
	sorter.Setup_Geometry(ViewOf(s_Quad), 4);
	sorter.SortPoints_AutogenIndices(null);
	return indices;
}
} // namespace

TEST(ParticlePage, OfElementsAlone_DrawsAll)
{
	EXPECT_EQ(CPositionPage().m_RenderedCount, 0u);
	EXPECT_TRUE(CPositionPage().m_Elements.Empty());
	const CPositionPage page(ViewOf(kPositions[0]));
	EXPECT_EQ(page.m_Elements.Data(), kPositions[0]);
	EXPECT_TRUE(page.m_Enableds.Empty());
	EXPECT_EQ(page.m_RenderedCount, 3u);
}

TEST(ParticlePages, RenderedParticleCount_IsTheSumAndDoesNotWrap)
{
	std::vector<CSortKeyPage> pages = MakePages(kValues);
	const TMemoryView<const CSortKeyPage> view = ViewOf(pages);
	EXPECT_EQ(RenderedParticleCount(view), kRenderedCount);
	EXPECT_EQ(RenderedParticleCount(view.Slice(0, 0)), 0u);
	pages[0].m_RenderedCount = 0xFFFFFFFCu;
	EXPECT_EQ(RenderedParticleCount(view), 0xFFFFFFFFu);
	pages[0].m_RenderedCount = 0xFFFFFFFDu;
	EXPECT_EQ(RenderedParticleCount(view), 0xFFFFFFFFu);
}

TEST(ParticlePages, OfPositions_SortLikeAViewPerPage)
{
	CExpectReports noReports;
	const std::vector<CPositionPage> pages = MakePages(kPositions);
	CTriangleSorter byPages, byHand;
	EXPECT_EQ(SetupInputPages(byPages, ViewOf(pages), kCamera), kRenderedCount);
	SetUpByHand(byHand, kPositions, kCamera);
	EXPECT_EQ(Sorted(byPages), Sorted(byHand));
}

TEST(ParticlePages, OfValues_SortLikeAViewPerPage)
{
	CExpectReports noReports;
	const std::vector<CSortKeyPage> pages = MakePages(kValues);
	CTriangleSorter byPages, byHand;
	EXPECT_EQ(SetupInputPages(byPages, ViewOf(pages)), kRenderedCount);
	SetUpByHand(byHand, kValues);
	EXPECT_EQ(Sorted(byPages), Sorted(byHand));
	EXPECT_EQ(Sorted(byPages)[0], 1 * 4) << "the lowest value is the second particle's";
}

// The camera orders quads inside particles, which are sorted by value all the same. Each particle's two quads lie at
// different distances from it.
TEST(ParticlePages, OfValuesWithACamera_OrderQuadsByIt)
{
	CExpectReports noReports;
	const std::vector<CSortKeyPage> pages = MakePages(kValues);
	u32 twoQuads[] = {0, 1, 2, 0, 2, 3, 4, 5, 6, 4, 6, 7};
	const u32 firstVertices[kRenderedCount] = {0, 8, 16, 24, 32, 40};
	std::vector<CFloat4> centres(kRenderedCount * 16);
	for (u32 i = 0; i < kRenderedCount; ++i)
		centres[i * 16] = CFloat4(0, 0, 10, 0);
	for (const float z : {-20.0f, 20.0f}) // in front of the one quad's side, and of the other's
	{
		CTriangleSorter sorter;
		EXPECT_EQ(SetupInputPages(sorter, ViewOf(pages), CFloat3(0, 0, z)), kRenderedCount);
		std::vector<u32> indices(kRenderedCount * 12);
		sorter.Setup_OutputIndexBuffer(ViewOf(indices), kRenderedCount * 8);
		sorter.Setup_Geometry(ViewOf(twoQuads), ViewOf(firstVertices), ViewOf(centres), 8);
		sorter.SortPoints_AutogenIndices(null);
		EXPECT_EQ(indices[0], z < 0 ? 8u : 12u) << "the farther quad of the second particle comes first";
	}
}
