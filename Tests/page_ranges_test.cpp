// Ranges of rendered particles that a sort of all of them never asks for: any start, any count, from every page. The
// walkers are private, so an explicit instantiation, which may name them, hands them out.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "fill_calls.h"
#include "scene_memory.h"
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace PageRanges
{
template<typename _Tag, typename _Tag::Type _Member>
struct TPrivateMember
{
	friend typename _Tag::Type Get(_Tag) { return _Member; }
};

struct SLocate
{
	typedef void (CTriangleSorter::*Type)(u32, u32 &, u32 &, u32 &) const;
	friend Type Get(SLocate);
};
template struct TPrivateMember<SLocate, &CTriangleSorter::_GetParticleIdxInPageCache>;

typedef void (CTriangleSorter::*FillSource)(u32, u32, const TMemoryView<SIndexAndDepth> &) const;
template<int _Walker>
struct SFill
{
	typedef FillSource Type;
};
struct SPositionsConstant : SFill<0>
{
	friend FillSource Get(SPositionsConstant);
};
struct SValuesConstant : SFill<1>
{
	friend FillSource Get(SValuesConstant);
};
struct SPositionsIndexList : SFill<2>
{
	friend FillSource Get(SPositionsIndexList);
};
struct SValuesIndexList : SFill<3>
{
	friend FillSource Get(SValuesIndexList);
};
template struct TPrivateMember<SPositionsConstant, &CTriangleSorter::_FillSource_SortByPosition_GeomConst>;
template struct TPrivateMember<SValuesConstant, &CTriangleSorter::_FillSource_SortByValues_GeomConst>;
template struct TPrivateMember<SPositionsIndexList, &CTriangleSorter::_FillSource_SortByPosition_GeomConstAndIndexList>;
template struct TPrivateMember<SValuesIndexList, &CTriangleSorter::_FillSource_SortByValues_GeomConstAndIndexList>;
} // namespace PageRanges

namespace
{
typedef std::vector<Model::SRecord> CRecords;
typedef std::vector<Model::SPage> CPages;

struct SWalker
{
	const char *m_Name;
	Model::ESortType m_SortType;
	Model::EGeometry m_Geometry;
	PageRanges::FillSource m_FillSource;
};
std::vector<SWalker> Walkers()
{
	using Model::EGeometry;
	using Model::ESortType;
	return {
		{"PositionsConstant",  ESortType::ByPosition, EGeometry::Constant,  Get(PageRanges::SPositionsConstant()) },
		{"ValuesConstant",     ESortType::ByValue,    EGeometry::Constant,  Get(PageRanges::SValuesConstant())    },
		{"PositionsIndexList", ESortType::ByPosition, EGeometry::IndexList, Get(PageRanges::SPositionsIndexList())},
		{"ValuesIndexList",    ESortType::ByValue,    EGeometry::IndexList, Get(PageRanges::SValuesIndexList())   },
	};
}

// A page with the elements of a fill call.
Model::SPage Page(u32 particleCount, u32 renderedCount, const std::vector<u8> &enabled = {})
{
	Model::SPage page = MakeFillCall(particleCount).m_Page;
	page.m_Enabled = enabled;
	page.m_RenderedCount = renderedCount;
	return page;
}

// Sixteen rendered particles, among them 0 and 8 with nothing but empty pages before their own.
CPages Pages()
{
	return {
		Page(4, 0),
		Page(3, 3),
		Page(5, 3, {0, 1, 1, 0, 1}),
		Page(2, 0, {0, 0}),
		Page(7, 2),
		Page(0, 0),
		Page(4, 4, {1, 1, 1, 1}),
		Page(6, 4, {1, 0, 1, 1, 1, 0}),
		Page(1, 0),
	};
}

Model::SScene Scene(const SWalker &walker)
{
	Model::SScene scene;
	scene.m_SortType = walker.m_SortType;
	scene.m_Geometry = walker.m_Geometry;
	scene.m_Pages = Pages();
	scene.m_ParticleCount = 16;
	scene.m_VerticesPerParticle = 5;
	scene.m_VertexCount = 80;
	scene.m_Pattern = {0};
	if (scene.m_Geometry == Model::EGeometry::IndexList)
	{
		for (u32 i = 0; i < scene.m_ParticleCount; ++i)
			scene.m_IndexList.push_back(i * 7 % 85); // the entries 84 and 83 are invalid
	}
	return scene;
}

Model::SLocation Located(const CTriangleSorter &sorter, u32 renderedId)
{
	Model::SLocation at = {77, 77, 77};
	(sorter.*Get(PageRanges::SLocate()))(renderedId, at.m_Page, at.m_OffsetInPage, at.m_OffsetInRendered);
	return at;
}
} // namespace

TEST(PageRanges, EveryRenderedParticle_HasItsPlace)
{
	// In a page with disabled particles the offset is the one behind the enabled particle before, and the first enabled
	// one from there on is meant. The last row is the end of all pages.
	const Model::SLocation expected[] = {
		{1, 0, 0},
		{1, 1, 1},
		{1, 2, 2},
		{2, 0, 0},
		{2, 2, 1},
		{2, 3, 2},
		{4, 0, 0},
		{4, 1, 1},
		{6, 0, 0},
		{6, 1, 1},
		{6, 2, 2},
		{6, 3, 3},
		{7, 0, 0},
		{7, 1, 1},
		{7, 3, 2},
		{7, 4, 3},
		{9, 0, 0},
	};
	const CExpectReports none;
	for (const SWalker &walker : Walkers())
	{
		CSceneMemory memory(Scene(walker));
		for (u32 id = 0; id < std::size(expected); ++id)
		{
			const Model::SLocation at = Located(memory.Sorter(), id);
			EXPECT_EQ(at.m_Page, expected[id].m_Page) << id;
			EXPECT_EQ(at.m_OffsetInPage, expected[id].m_OffsetInPage) << id;
			EXPECT_EQ(at.m_OffsetInRendered, expected[id].m_OffsetInRendered) << id;
		}
	}
}

TEST(PageRanges, ParticleBeyondTheTotal_IsReported)
{
	CSceneMemory memory(Scene(Walkers()[0]));
	CExpectReports expected({"outOffset == renderedParticleId"});
	const Model::SLocation at = Located(memory.Sorter(), 17);
	EXPECT_EQ(at.m_Page, 9u);
	EXPECT_EQ(at.m_OffsetInPage, 0u);
	EXPECT_EQ(at.m_OffsetInRendered, 0u);
}

TEST(PageRanges, CountsThatAddUpBeyond32Bits_AreFollowed)
{
	const CExpectReports none;
	const u32 counts[] = {0xFFFFFFFFu, 5};
	const TStridedMemoryView<const u8> enableds[2];
	CTriangleSorter sorter;
	sorter.Setup_InputPageCache({}, {enableds, 2, sizeof(enableds[0])}, {counts, 2, sizeof(u32)}, 0);
	const Model::SLocation at = Located(sorter, 0xFFFFFFFFu);
	EXPECT_EQ(at.m_Page, 1u);
	EXPECT_EQ(at.m_OffsetInPage, 0u);
	EXPECT_EQ(at.m_OffsetInRendered, 0u);
}

TEST(PageRanges, NoPages_HoldOneEnd)
{
	const CExpectReports none;
	const Model::SLocation at = Located(CTriangleSorter(), 0);
	EXPECT_EQ(at.m_Page, 0u);
	EXPECT_EQ(at.m_OffsetInPage, 0u);
	EXPECT_EQ(at.m_OffsetInRendered, 0u);
}

// With every vertex budget: records before it are the page's, those beyond it fillers, in the list by their entries.
TEST(PageRanges, EveryRange_MatchesTheModel)
{
	for (const SWalker &walker : Walkers())
	{
		Model::SScene scene = Scene(walker);
		for (const u32 vertexCount : {80u, 79u, 60u, 41u, 40u, 24u, 4u, 0u})
		{
			scene.m_VertexCount = vertexCount;
			CSceneMemory memory(scene);
			memory.Protect();
			for (u32 start = 0; start < scene.m_ParticleCount; ++start)
			{
				for (u32 count = 0; start + count <= scene.m_ParticleCount; ++count)
				{
					SCOPED_TRACE(testing::Message() << walker.m_Name << ", " << vertexCount << " vertices, " << count
													<< " particles from " << start << " on");
					const CGuardedMemory records(count * sizeof(SIndexAndDepth));
					Model::SWarnings warnings;
					{
						const CWarningRecorder quiet;
						const CExpectReports none;
						(memory.Sorter().*walker.m_FillSource)(
							start, count, TMemoryView<SIndexAndDepth>(records.As<SIndexAndDepth>(), count));
					}
					EXPECT_TRUE(SameRecords(
						Model::FillSource(scene, start, count, warnings), ReadRecords(records.Data(), count)));
					EXPECT_TRUE(records.SurroundingsIntact());
					if (HasFailure())
						return;
				}
			}
		}
	}
}

TEST(PageRanges, RangeBeyondTheVertices_IsFillersAlone)
{
	for (const u32 vertexCount : {50u, 49u, 0u})
	{
		Model::SScene scene = Scene(Walkers()[1]);
		scene.m_VertexCount = vertexCount;
		CSceneMemory memory(scene);
		const CExpectReports none;
		const CGuardedMemory records(6 * sizeof(SIndexAndDepth));
		(memory.Sorter().*Walkers()[1].m_FillSource)(
			10, 6, TMemoryView<SIndexAndDepth>(records.As<SIndexAndDepth>(), 6));
		EXPECT_TRUE(SameRecords(CRecords(6, Model::SRecord{0x007FFFFFu, 0}), ReadRecords(records.Data(), 6)));
	}
}

// Records too few by one, and enabled bytes too few by two, both with memory behind them: told in this order whatever a
// compiler makes of the order of a call's arguments.
TEST(PageRanges, BrokenSlices_AreReportedRecordsFirst)
{
	const CFloat3 positions[5];
	const float values[5] = {};
	const u8 enabledBytes[5] = {1, 0, 1, 0, 1};
	const u32 indexList[3] = {};
	const TStridedMemoryView<const CFloat3> positionPage(positions, 5, sizeof(CFloat3));
	const TStridedMemoryView<const float> valuePage(values, 5, sizeof(float));
	const TStridedMemoryView<const u8> enabledPage(enabledBytes, 3, 1);
	const u32 renderedCount = 3;
	u32 pattern = 0;
	for (const SWalker &walker : Walkers())
	{
		SCOPED_TRACE(walker.m_Name);
		CTriangleSorter sorter;
		sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(), 100);
		if (walker.m_SortType == Model::ESortType::ByPosition)
			sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(positionPage),
				CTriangleSorter::CEnabledPages(enabledPage), CTriangleSorter::CRenderedCounts(renderedCount), 3,
				CFloat3());
		else
			sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(valuePage),
				CTriangleSorter::CEnabledPages(enabledPage), CTriangleSorter::CRenderedCounts(renderedCount), 3);
		if (walker.m_Geometry == Model::EGeometry::Constant)
			sorter.Setup_Geometry({&pattern, 1}, 4);
		else
			sorter.Setup_Geometry({&pattern, 1}, TMemoryView<const u32>(indexList, 3));

		const CGuardedMemory records(3 * sizeof(SIndexAndDepth));
		CExpectReports expected{"begin + count <= m_Count", "begin + count <= BaseType::m_Storage.m_Count"};
		(sorter.*walker.m_FillSource)(0, 3, TMemoryView<SIndexAndDepth>(records.As<SIndexAndDepth>(), 2));
	}
}
