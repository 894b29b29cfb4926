// The triangle sort's driver in states that a caller has to avoid: what it reports, in which order, and how it goes on.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "scene_memory.h"
#include "sort_drivers.h"
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace Vexmoor;
using namespace Support;

namespace
{
// Two pages of one particle and one triangle each. All views may be changed before they are set up.
struct STwoPages
{
	float m_Values[2] = {-2, -1};
	CFloat3 m_Positions[2] = {CFloat3(0, 0, 2), CFloat3(0, 0, 1)};
	u32 m_Triangle[3] = {0, 1, 2};

	TStridedMemoryView<const float> m_ValueViews[2];
	TStridedMemoryView<const CFloat3> m_PositionViews[2];
	TStridedMemoryView<const u8> m_EnabledViews[2];
	u32 m_RenderedCounts[2] = {1, 1};
	CTriangleSorter::CIndexPattern m_Patterns[2];
	u32 m_VertexCounts[2] = {3, 3};

	u32 m_PageCount = 2;
	u32 m_EnabledPageCount = 2;
	u32 m_PatternCount = 2;
	u32 m_RenderedCountCount = 2;
	u32 m_VertexCountCount = 2;
	u32 m_IndexCount = 6;

	CGuardedMemory m_Output = CGuardedMemory(6 * sizeof(u32));
	CGuardedMemory m_WorkingBuffer = CGuardedMemory(1024); // more than needed, for what goes astray
	CTriangleSorter m_Sorter;

	STwoPages()
	{
		for (u32 i = 0; i < 2; ++i)
		{
			m_ValueViews[i] = {&m_Values[i], 1, 4};
			m_PositionViews[i] = {&m_Positions[i], 1, 12};
			m_Patterns[i] = TMemoryView<u32>(m_Triangle, 3);
		}
		m_Sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(m_Output.As<u32>(), 6), 100);
	}

	void SetUp(Model::ESortType sortType)
	{
		const CTriangleSorter::CEnabledPages enableds(m_EnabledViews, m_EnabledPageCount, 16);
		const CTriangleSorter::CRenderedCounts renderedCounts(m_RenderedCounts, m_RenderedCountCount, 4);
		if (sortType == Model::ESortType::ByPosition)
			m_Sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(m_PositionViews, m_PageCount, 16), enableds,
				renderedCounts, 2, CFloat3());
		else
			m_Sorter.Setup_InputPageCache(
				CTriangleSorter::CSortKeyPages(m_ValueViews, m_PageCount, 16), enableds, renderedCounts, 2);
		SetUpGeometry();
	}

	void SetUpGeometry()
	{
		m_Sorter.Setup_Geometry(TMemoryView<const CTriangleSorter::CIndexPattern>(m_Patterns, m_PatternCount),
			TMemoryView<const u32>(m_VertexCounts, m_VertexCountCount), m_IndexCount);
	}

	void Sort() { m_Sorter.SortTriangles_AutogenIndices(m_WorkingBuffer.Data()); }

	std::vector<u32> Output() const { return {m_Output.As<u32>(), m_Output.As<u32>() + 6}; }
};
} // namespace

typedef std::vector<u32> CIndices;
constexpr u32 kUntouched = 0xCDCDCDCD;

// The entry.

TEST(TriangleSortReports, NoFault_ReportsTheOddPageAlone)
{
	for (const Model::ESortType sortType : kSortTypes)
	{
		STwoPages pages;
		pages.SetUp(sortType);
		CExpectReports reports{"Mem::IsAligned<0x10>(it)", "Mem::IsAligned<0x10>(inoutList.Data())"};
		CWarningRecorder warnings;
		pages.Sort();
		EXPECT_EQ(pages.Output(), CIndices({0, 1, 2, 3, 4, 5}));
	}
}

TEST(TriangleSortReports, OtherGeometry_IsReported)
{
	STwoPages pages;
	pages.m_Sorter.Setup_Geometry(TMemoryView<u32>(pages.m_Triangle, 3), 3);
	CExpectReports reports{"m_GeometryType == GeometryPerPage", "Uninitialized or invalid sort mode"};
	pages.Sort();
	EXPECT_EQ(pages.Output(), CIndices(6, kUntouched));
}

TEST(TriangleSortReports, NothingSetUp_ReportsGeometryBufferAndIndexTypeInOrder)
{
	STwoPages pages;
	CTriangleSorter sorter;
	CExpectReports reports{"m_GeometryType == GeometryPerPage", "Mem::IsAligned<0x10>(workingBuffer)",
		"Uninitialized or invalid indice type"};
	sorter.SortTriangles_AutogenIndices(pages.m_WorkingBuffer.Data() + 8);
}

TEST(TriangleSortReports, UnknownIndexType_SortsNothingAndFreesTheBlock)
{
	STwoPages pages;
	CTriangleSorter sorter;
	sorter.Setup_Geometry(TMemoryView<const CTriangleSorter::CIndexPattern>(pages.m_Patterns, 2),
		TMemoryView<const u32>(pages.m_VertexCounts, 2), 6);
	CReportRecorder reports;
	CScopeRecorder scopes;
	CAllocationRecorder allocator;
	sorter.SortTriangles_AutogenIndices(null);
	EXPECT_TRUE(scopes.Events().empty());
	ASSERT_EQ(allocator.Allocations().size(), 1u);
	EXPECT_TRUE(allocator.Allocations()[0].m_Freed);
	ExpectReportsOfDriver(
		reports, 1, "Uninitialized or invalid indice type", "CTriangleSorter::SortTriangles_AutogenIndices(");
}

// Eight bytes off, every page starts on the other parity.
TEST(TriangleSortReports, WorkingBufferAt8Mod16_IsReportedAndTheSortGoesOn)
{
	for (const Model::ESortType sortType : kSortTypes)
	{
		STwoPages pages;
		pages.m_PageCount = pages.m_EnabledPageCount = pages.m_PatternCount = 1;
		pages.m_RenderedCountCount = pages.m_VertexCountCount = 1;
		pages.m_IndexCount = 3;
		pages.SetUp(sortType);
		CExpectReports reports{"Mem::IsAligned<0x10>(workingBuffer)", "Mem::IsAligned<0x10>(it)",
			"Mem::IsAligned<0x10>(inoutList.Data())"};
		CWarningRecorder warnings;
		pages.m_Sorter.SortTriangles_AutogenIndices(pages.m_WorkingBuffer.Data() + 8);
		EXPECT_EQ(pages.Output(), CIndices({0, 1, 2, kUntouched, kUntouched, kUntouched}));
	}
}

// The worker.

TEST(TriangleSortReports, PartOfATriangle_IsReportedAndLeftOut)
{
	STwoPages pages;
	pages.m_IndexCount = 8;
	pages.SetUp(Model::ESortType::ByValue);
	CExpectReports reports{
		"m_IndexCount_fromBB % 3 == 0", "Mem::IsAligned<0x10>(it)", "Mem::IsAligned<0x10>(inoutList.Data())"};
	CWarningRecorder warnings;
	pages.Sort();
	EXPECT_EQ(pages.Output(), CIndices({0, 1, 2, 3, 4, 5}));
}

TEST(TriangleSortReports, UnknownSortType_WritesFillersAlone)
{
	STwoPages pages;
	pages.m_IndexCount = 7;
	pages.SetUpGeometry(); // but no input
	CExpectReports reports{"m_IndexCount_fromBB % 3 == 0", "Uninitialized or invalid sort mode"};
	CScopeRecorder scopes;
	pages.Sort();
	EXPECT_EQ(pages.Output(), CIndices(6, 0));
	const std::vector<std::string> events = {"+Sort", "-Sort", "+ApplySortingToIndices", "-ApplySortingToIndices"};
	EXPECT_EQ(scopes.Events(), events);
}

TEST(TriangleSortReports, PageCountsThatDiffer_AreReportedInOrder)
{
	for (const Model::ESortType sortType : kSortTypes)
	{
		STwoPages pages;
		pages.m_PageCount = 1; // while all others have two
		pages.m_IndexCount = 3;
		pages.SetUp(sortType);
		CExpectReports reports{"m_InEnableds.Count() == pageCount", "m_IndexPatternCollection.Count() == pageCount",
			"m_InRenderedParticleCounts.Count() == pageCount", "m_PrimiteVertexCountCollection.Count() == pageCount"};
		pages.Sort();
		EXPECT_EQ(pages.Output(), CIndices({0, 1, 2, kUntouched, kUntouched, kUntouched}));
	}
}

namespace
{
struct SPageCountCase
{
	u32 STwoPages::*m_Count;
	const char *m_Report;
};
} // namespace

static const SPageCountCase kPageCountCases[] = {
	{&STwoPages::m_EnabledPageCount,   "m_InEnableds.Count() == pageCount"                  },
	{&STwoPages::m_PatternCount,       "m_IndexPatternCollection.Count() == pageCount"      },
	{&STwoPages::m_RenderedCountCount, "m_InRenderedParticleCounts.Count() == pageCount"    },
	{&STwoPages::m_VertexCountCount,   "m_PrimiteVertexCountCollection.Count() == pageCount"},
};

TEST(TriangleSortReports, OnePageCountThatDiffers_IsReportedAlone)
{
	for (const SPageCountCase &pageCountCase : kPageCountCases)
	{
		STwoPages pages;
		pages.m_PageCount = pages.m_EnabledPageCount = pages.m_PatternCount = 1;
		pages.m_RenderedCountCount = pages.m_VertexCountCount = 1;
		pages.*pageCountCase.m_Count = 2;
		pages.m_IndexCount = 3;
		pages.SetUp(Model::ESortType::ByValue);
		CExpectReports reports{pageCountCase.m_Report};
		pages.Sort();
		EXPECT_EQ(pages.Output()[0], 0u);
	}
}

// A view that says it has no element, although there is one: the page's particle is read all the same.
TEST(TriangleSortReports, EmptyViewOfAPageThatRenders_IsReported)
{
	{
		STwoPages pages;
		pages.m_PositionViews[0] = {&pages.m_Positions[0], 0, 0};
		pages.SetUp(Model::ESortType::ByPosition);
		CExpectReports reports{
			"!m_InPositions[pageId].Empty()", "Mem::IsAligned<0x10>(it)", "Mem::IsAligned<0x10>(inoutList.Data())"};
		CWarningRecorder warnings;
		pages.Sort();
		EXPECT_EQ(pages.Output(), CIndices({0, 1, 2, 3, 4, 5}));
	}
	STwoPages pages;
	pages.m_ValueViews[1] = {&pages.m_Values[1], 0, 0};
	pages.SetUp(Model::ESortType::ByValue);
	CExpectReports reports{
		"!m_InSortKeys[pageId].Empty()", "Mem::IsAligned<0x10>(it)", "Mem::IsAligned<0x10>(inoutList.Data())"};
	CWarningRecorder warnings;
	pages.Sort();
	EXPECT_EQ(pages.Output(), CIndices({0, 1, 2, 3, 4, 5}));
}

// After its triangle, a pattern of four entries writes one index more, which the next page's triangle replaces. A
// pattern of two makes no triangle: the next page takes its place.
TEST(TriangleSortReports, PatternThatIsNotOfTriangles_IsReported)
{
	u32 entries[] = {0, 1, 2, 0};
	const char *const report = "m_IndexPatternCollection[pageId].Count() % 3 == 0 && "
							   "m_IndexPatternCollection[pageId].Count() >= 3";
	{
		STwoPages pages;
		pages.m_Patterns[0] = TMemoryView<u32>(entries, 4);
		pages.SetUp(Model::ESortType::ByValue);
		CExpectReports reports{report, "Mem::IsAligned<0x10>(it)", "Mem::IsAligned<0x10>(inoutList.Data())"};
		CWarningRecorder warnings;
		pages.Sort();
		EXPECT_EQ(pages.Output(), CIndices({0, 1, 2, 3, 4, 5}));
	}
	STwoPages pages;
	pages.m_Patterns[0] = TMemoryView<u32>(entries, 2);
	pages.SetUp(Model::ESortType::ByValue);
	CExpectReports reports{report};
	CWarningRecorder warnings;
	pages.Sort();
	EXPECT_EQ(pages.Output(), CIndices({0, 0, 0, 3, 4, 5}));
}

// Its particles have no triangle either, and the expansion reports that its width is 0.
TEST(TriangleSortReports, PatternWithoutEntries_IsReportedTwice)
{
	u32 entries[] = {0, 1, 2};
	STwoPages pages;
	pages.m_Patterns[0] = TMemoryView<u32>(entries, 0);
	pages.SetUp(Model::ESortType::ByValue);
	CExpectReports reports{"m_IndexPatternCollection[pageId].Count() % 3 == 0 && "
						   "m_IndexPatternCollection[pageId].Count() >= 3",
		"patternWidth > 0"};
	CWarningRecorder warnings;
	pages.Sort();
	EXPECT_EQ(pages.Output(), CIndices({0, 0, 0, 3, 4, 5}));
}

TEST(TriangleSortReports, MoreTrianglesThanTheListHolds_AreReportedByTheViews)
{
	STwoPages pages;
	pages.m_IndexCount = 3;
	pages.SetUp(Model::ESortType::ByValue);
	pages.m_WorkingBuffer = CGuardedMemory(CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(3));
	CExpectReports reports{"begin + count <= m_Count"};
	CWarningRecorder warnings;
	pages.Sort();
	EXPECT_EQ(pages.Output(), CIndices({0, 1, 2, kUntouched, kUntouched, kUntouched}));
	EXPECT_TRUE(pages.m_WorkingBuffer.SurroundingsIntact());
}

// The page that does not fit draws nothing, nor do those after it: triangles without area take their places.
TEST(TriangleSortReports, PatternsWiderThanTheListHolds_StayInsideTheWorkingBuffer)
{
	std::vector<u32> wide(9);
	for (u32 width = 1; width <= 9; ++width)
	{
		for (u32 indexCount = 3; indexCount <= 12; indexCount += 3)
		{
			SCOPED_TRACE(testing::Message() << "width " << width << ", index count " << indexCount);
			STwoPages pages;
			pages.m_Patterns[1] = TMemoryView<u32>(wide.data(), width);
			pages.m_IndexCount = indexCount;
			pages.m_WorkingBuffer = CGuardedMemory(CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(indexCount));
			pages.SetUp(Model::ESortType::ByPosition);
			const CReportRecorder reports;
			const CWarningRecorder warnings;
			pages.Sort();
			EXPECT_TRUE(pages.m_WorkingBuffer.SurroundingsIntact());
			const std::vector<std::string> texts = reports.Texts();
			const auto slices = std::count(texts.begin(), texts.end(), "begin + count <= m_Count");
			const bool tooWide = 3 + width / 3 * 3 > indexCount || indexCount == 3;
			EXPECT_EQ(slices, VX_ASSERTIONS && tooWide ? 1 : 0);
		}
	}
}

// 65,536 particles of 65,538 indices are 2^32 and 131,072 more, for which there would be room.
TEST(TriangleSortReports, PageOfMoreIndicesThan32BitsCount_IsReportedAndNotDrawn)
{
	STwoPages pages;
	std::vector<u32> wide(0x10002);
	pages.m_Patterns[0] = TMemoryView<u32>(wide.data(), u32(wide.size()));
	pages.m_RenderedCounts[0] = 0x10000;
	pages.m_ValueViews[0] = {&pages.m_Values[0], 0x10000, 0};
	pages.m_VertexCounts[0] = 1;
	pages.m_IndexCount = 3 * 0x10000;
	pages.m_WorkingBuffer = CGuardedMemory(CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(pages.m_IndexCount));
	pages.m_Sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(pages.m_Output.As<u32>(), 6), ~0u);
	pages.SetUp(Model::ESortType::ByValue);
	CExpectReports reports{"begin + count <= m_Count"};
	const CWarningRecorder warnings;
	pages.Sort();
	EXPECT_EQ(pages.Output(), CIndices(6, 0));
}

// Collections shorter than the pages, each ending where memory ends: the walk ends with the shortest.
TEST(TriangleSortReports, CollectionsThatEndEarly_EndTheWalk)
{
	for (u32 STwoPages::*const countOfCollection :
		{&STwoPages::m_PatternCount, &STwoPages::m_RenderedCountCount, &STwoPages::m_VertexCountCount})
	{
		for (const u32 count : {0u, 1u})
		{
			STwoPages pages;
			pages.*countOfCollection = count;
			pages.SetUp(Model::ESortType::ByValue);
			const CReportRecorder reports;
			const CWarningRecorder warnings;
			pages.Sort();
			EXPECT_EQ(reports.Reports().size(), VX_ASSERTIONS ? 1u : 0u);
			EXPECT_EQ(pages.Output(), count == 0 ? CIndices(6, 0) : CIndices({0, 0, 0, 0, 1, 2}));
		}
	}
}

TEST(TriangleSortReports, NoViewsOfEnabledBytes_AreReportedAndDisableNothing)
{
	for (const Model::ESortType sortType : kSortTypes)
	{
		STwoPages pages;
		pages.SetUp(sortType);
		if (sortType == Model::ESortType::ByPosition)
			pages.m_Sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(pages.m_PositionViews, 2, 16), {},
				CTriangleSorter::CRenderedCounts(pages.m_RenderedCounts, 2, 4), 2, CFloat3());
		else
			pages.m_Sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(pages.m_ValueViews, 2, 16), {},
				CTriangleSorter::CRenderedCounts(pages.m_RenderedCounts, 2, 4), 2);
		CExpectReports reports{"m_InEnableds.Count() == pageCount", "m_Storage.m_RawDataPtr != null",
			"index < m_Storage.m_Count", "m_Storage.m_RawDataPtr != null", "index < m_Storage.m_Count",
			"Mem::IsAligned<0x10>(it)", "Mem::IsAligned<0x10>(inoutList.Data())"};
		CWarningRecorder warnings;
		pages.Sort();
		EXPECT_EQ(pages.Output(), CIndices({0, 1, 2, 3, 4, 5}));
	}
}

#if VX_ASSERTIONS
// In a process of its own, where a silenced site harms no other test. The second page starts on an odd triangle, which
// two sites report; a host that breaks at them is trapped as often.
TEST(TriangleSortReports, Decisions_ChangeWhatIsReportedAndNotTheResult)
{
	const auto sortTwice = [](int decision)
	{
		const CTrapCounter traps;
		const CReportRecorder reports(decision);
		const CWarningRecorder warnings;
		for (u32 i = 0; i < 2; ++i)
		{
			STwoPages pages;
			pages.SetUp(Model::ESortType::ByValue);
			pages.Sort();
			if (pages.Output() != CIndices({0, 1, 2, 3, 4, 5}))
				std::_Exit(1);
		}
		std::_Exit(10 * int(reports.Reports().size()) + traps.Count());
	};
	EXPECT_EXIT(sortTwice(Assert::Decision_Break), testing::ExitedWithCode(44), "");
	EXPECT_EXIT(sortTwice(Assert::Decision_Ignore), testing::ExitedWithCode(20), "");
	EXPECT_EXIT(sortTwice(Assert::Decision_Continue), testing::ExitedWithCode(40), "");
}

// A host's report handler sets the sorter up anew. The views of the working buffer are then longer than the number of
// triangles that was taken before.
TEST(TriangleSortReports, IndexCountChangedMeanwhile_IsReportedAfterTheFill)
{
	STwoPages pages;
	pages.m_IndexCount = 7;
	pages.SetUp(Model::ESortType::ByValue);
	std::memset(pages.m_WorkingBuffer.Data(), 0xFF, 1024); // what no page fills sorts last

	struct SHost
	{
		STwoPages &m_Pages;
		std::vector<std::string> m_Conditions;
	} host = {pages, {}};
	const auto changeAtTheFirst = [](const Assert::SReport &report, void *userData) -> int
	{
		SHost &self = *static_cast<SHost *>(userData);
		self.m_Conditions.push_back(report.m_ConditionText);
		if (self.m_Conditions.size() == 1)
		{
			self.m_Pages.m_IndexCount = 9;
			self.m_Pages.SetUpGeometry();
		}
		return Assert::Decision_Continue;
	};
	CWarningRecorder warnings;
	Assert::SetReportHandler(changeAtTheFirst, &host);
	pages.Sort();
	FailAtReports();

	const std::vector<std::string> conditions = {"m_IndexCount_fromBB % 3 == 0", "Mem::IsAligned<0x10>(it)",
		"Mem::IsAligned<0x10>(inoutList.Data())", "workingBufferSorter.Count() == primCount_fromBB",
		"workingBufferSorter2.Count() == primCount_fromBB"};
	EXPECT_EQ(host.m_Conditions, conditions);
	EXPECT_EQ(pages.Output(), CIndices({0, 1, 2, 3, 4, 5}));
}
#endif
