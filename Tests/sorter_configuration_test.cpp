// The set-up calls of a sorter, seen through small sorts: what each call sets, what it leaves, and what a sort reports
// when one of them is missing.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "guarded_memory.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>

using namespace Vexmoor;
using namespace Support;

namespace
{
typedef std::vector<u32> CIndices;

// Members that no sort shows: the arguments of an explicit instantiation are free of access checks.
template<typename _Tag, typename _Tag::Member _Member>
struct TGiveAccess
{
	friend typename _Tag::Member Access(_Tag) { return _Member; }
};
struct SVertexCountTag
{
	typedef u32 CTriangleSorter::*Member;
	friend Member Access(SVertexCountTag);
};
struct SSortTypeTag
{
	typedef CTriangleSorter::ESortType CTriangleSorter::*Member;
	friend Member Access(SSortTypeTag);
};
template struct TGiveAccess<SVertexCountTag, &CTriangleSorter::m_PrimiteVertexCount>;
template struct TGiveAccess<SSortTypeTag, &CTriangleSorter::m_SortType>;

// Four particles in two pages. By value they go 3, 1, 2, 0; seen from the origin, farthest first, 1, 0, 3, 2; seen
// from x = 10 the other way round. Vertices in particle order: three per particle, the pattern is one triangle.
struct SScene
{
	const float m_Values[4] = {3.0f, 1.0f, 2.0f, 0.0f};
	const CFloat3 m_Positions[4] = {
		CFloat3(4.0f, 0.0f, 0.0f), CFloat3(5.0f, 0.0f, 0.0f), CFloat3(1.0f, 0.0f, 0.0f), CFloat3(2.0f, 0.0f, 0.0f)};
	const TStridedMemoryView<const float> m_ValuePages[2] = {
		{m_Values,     3, 4},
        {m_Values + 3, 1, 4}
    };
	const TStridedMemoryView<const CFloat3> m_PositionPages[2] = {
		{m_Positions,     3, 12},
        {m_Positions + 3, 1, 12}
    };
	const TStridedMemoryView<const u8> m_EnabledPages[2] = {};
	const u32 m_RenderedCounts[2] = {3, 1};
	u32 m_Pattern[3] = {0, 1, 2};
	alignas(16) u32 m_Output[12];
	CGuardedMemory m_WorkingBuffer = CGuardedMemory(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(4));

	SScene() { std::fill(m_Output, m_Output + 12, 777u); }

	CTriangleSorter::CSortKeyPages Values() const { return {m_ValuePages, 2, sizeof(m_ValuePages[0])}; }
	CTriangleSorter::CPositionPages Positions() const { return {m_PositionPages, 2, sizeof(m_PositionPages[0])}; }
	CTriangleSorter::CEnabledPages Enableds() const { return {m_EnabledPages, 2, sizeof(m_EnabledPages[0])}; }
	CTriangleSorter::CRenderedCounts RenderedCounts() const { return {m_RenderedCounts, 2, 4}; }

	void SetOutput(CTriangleSorter &sorter) { sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(m_Output, 12), 1000); }
	void SetValues(CTriangleSorter &sorter) const
	{
		sorter.Setup_InputPageCache(Values(), Enableds(), RenderedCounts(), 4);
	}
	void SetPositions(CTriangleSorter &sorter, const CFloat3 &camera) const
	{
		sorter.Setup_InputPageCache(Positions(), Enableds(), RenderedCounts(), 4, camera);
	}
	void SetGeometry(CTriangleSorter &sorter) { sorter.Setup_Geometry(TMemoryView<u32>(m_Pattern, 3), 3); }

	CIndices Sort(const CTriangleSorter &configured)
	{
		CTriangleSorter sorter = configured;
		sorter.SortPoints_AutogenIndices(m_WorkingBuffer.Data());
		EXPECT_TRUE(m_WorkingBuffer.SurroundingsIntact());
		return CIndices(m_Output, m_Output + 12);
	}
};

CIndices Triangles(std::initializer_list<u32> firstVertices)
{
	CIndices indices;
	for (const u32 vertex : firstVertices)
		indices.insert(indices.end(), {vertex, vertex + 1, vertex + 2});
	return indices;
}

const CIndices kUnwritten(12, 777u);
const CIndices kByValue = Triangles({9, 3, 6, 0});
const CIndices kFromOrigin = Triangles({3, 0, 9, 6});
const CIndices kFromTen = Triangles({6, 9, 0, 3});
} // namespace

TEST(SorterConfiguration, Enumerators_Have32BitsAndTheirValues)
{
	EXPECT_EQ(sizeof(CTriangleSorter::EIndexType), 4u);
	EXPECT_EQ(sizeof(CTriangleSorter::ESortType), 4u);
	EXPECT_EQ(sizeof(CTriangleSorter::EGeometryType), 4u);
	EXPECT_EQ(sizeof(CTriangleSorter::EOutputMemory), 4u);
	EXPECT_EQ(u32(CTriangleSorter::OutputMemory_WriteCombined), 0u);
	EXPECT_EQ(u32(CTriangleSorter::OutputMemory_Cached), 1u);
	EXPECT_EQ(u32(CTriangleSorter::IndexTypeUnknown), 0u);
	EXPECT_EQ(u32(CTriangleSorter::IndexTypeUint16), 1u);
	EXPECT_EQ(u32(CTriangleSorter::IndexTypeUint32), 2u);
	EXPECT_EQ(u32(CTriangleSorter::SortUnknown), 0u);
	EXPECT_EQ(u32(CTriangleSorter::SortByPosition), 1u);
	EXPECT_EQ(u32(CTriangleSorter::SortByFloat), 2u);
	EXPECT_EQ(u32(CTriangleSorter::GeometryUnknown), 0u);
	EXPECT_EQ(u32(CTriangleSorter::GeometryConstant), 1u);
	EXPECT_EQ(u32(CTriangleSorter::GeometryConstantAndIndexList), 2u);
	EXPECT_EQ(u32(CTriangleSorter::GeometryConstantAndIndexListAndQuadCenters), 3u);
	EXPECT_EQ(u32(CTriangleSorter::GeometryPerPage), 4u);
}

TEST(SorterConfiguration, DefaultConstructed_ReportsTheEmptyRenderedCounts)
{
	CExpectReports reports{"!m_InRenderedParticleCounts.Empty()"};
	const CGuardedMemory workingBuffer(0); // no bytes: nothing may be written
	CTriangleSorter().SortPoints_AutogenIndices(workingBuffer.Data());
	EXPECT_TRUE(workingBuffer.SurroundingsIntact());
}

TEST(SorterConfiguration, DefaultConstructedWithoutBuffer_TakesABlockOfNoBytesAndKeepsIt)
{
	CExpectReports reports{"!m_InRenderedParticleCounts.Empty()"};
	const CAllocationRecorder recorder;
	CTriangleSorter().SortPoints_AutogenIndices(null);
	ASSERT_EQ(recorder.Allocations().size(), 1u);
	EXPECT_EQ(recorder.Allocations()[0].m_Size, 0u);
	EXPECT_NE(recorder.Allocations()[0].m_Block, nullptr);
	EXPECT_FALSE(recorder.Allocations()[0].m_Freed);
}

TEST(SorterConfiguration, DefaultConstructedTriangleSort_ReportsGeometryAndIndexType)
{
	CExpectReports reports{"m_GeometryType == GeometryPerPage", "Uninitialized or invalid indice type"};
	const CGuardedMemory workingBuffer(0);
	CTriangleSorter().SortTriangles_AutogenIndices(workingBuffer.Data());
}

TEST(SorterConfiguration, Groups_AreSetUpInAnyOrder)
{
	CExpectReports noReports;
	SScene scene;
	int order[3] = {0, 1, 2};
	do
	{
		CTriangleSorter sorter;
		for (const int group : order)
		{
			if (group == 0)
				scene.SetOutput(sorter);
			else if (group == 1)
				scene.SetValues(sorter);
			else
				scene.SetGeometry(sorter);
		}
		EXPECT_EQ(scene.Sort(sorter), kByValue) << order[0] << order[1] << order[2];
	} while (std::next_permutation(order, order + 3));
}

TEST(SorterConfiguration, MissingOutput_IsReportedAndNothingIsWritten)
{
	CExpectReports reports{"Uninitialized or invalid indice type", "Uninitialized or invalid indice type"};
	SScene scene;
	CTriangleSorter sorter;
	scene.SetValues(sorter);
	scene.SetGeometry(sorter);
	EXPECT_EQ(scene.Sort(sorter), kUnwritten);

	const u32 indexList[4] = {0, 3, 6, 9};
	sorter.Setup_Geometry(TMemoryView<u32>(scene.m_Pattern, 3), TMemoryView<const u32>(indexList, 4), {}, 3);
	EXPECT_EQ(scene.Sort(sorter), kUnwritten);
}

TEST(SorterConfiguration, MissingInput_IsReportedAndNothingIsWritten)
{
	CExpectReports reports{"!m_InRenderedParticleCounts.Empty()"};
	SScene scene;
	CTriangleSorter sorter;
	scene.SetOutput(sorter);
	scene.SetGeometry(sorter);
	EXPECT_EQ(scene.Sort(sorter), kUnwritten);
}

TEST(SorterConfiguration, MissingGeometry_IsReportedAndNothingIsWritten)
{
	CExpectReports reports{"Uninitialized or invalid geometry type"};
	SScene scene;
	CTriangleSorter sorter;
	scene.SetOutput(sorter);
	scene.SetValues(sorter);
	EXPECT_EQ(scene.Sort(sorter), kUnwritten);
}

// No set-up call leaves the sort type unknown once there are rendered counts. The sort goes on with the records that
// the working buffer happens to hold, which is the 0xCD bytes that the test's memory starts with.
TEST(SorterConfiguration, UnknownSortType_IsReportedForEveryGeometryOfAPointSort)
{
	CExpectReports reports{"Uninitialized or invalid sort type", "Uninitialized or invalid sort type"};
	SScene scene;
	CTriangleSorter sorter;
	scene.SetOutput(sorter);
	scene.SetValues(sorter);
	scene.SetGeometry(sorter);
	sorter.*Access(SSortTypeTag()) = CTriangleSorter::SortUnknown;
	const CIndices unfilled = Triangles({0xCDCDCDCDu, 0xCDCDCDCDu, 0xCDCDCDCDu, 0xCDCDCDCDu});
	EXPECT_EQ(scene.Sort(sorter), unfilled);

	const u32 indexList[4] = {0, 3, 6, 9};
	sorter.Setup_Geometry(TMemoryView<u32>(scene.m_Pattern, 3), TMemoryView<const u32>(indexList, 4));
	EXPECT_EQ(scene.Sort(sorter), unfilled);
}

TEST(SorterConfiguration, GeometryPerPage_IsNotForPointSorts)
{
	CExpectReports reports{"<Not implemented>", "<Not implemented>"};
	SScene scene;
	const CTriangleSorter::CIndexPattern patterns[2] = {
		TMemoryView<u32>(scene.m_Pattern, 3), TMemoryView<u32>(scene.m_Pattern, 3)};
	const u32 vertexCounts[2] = {3, 3};
	CTriangleSorter sorter;
	scene.SetOutput(sorter);
	scene.SetValues(sorter);
	sorter.Setup_Geometry(
		TMemoryView<const CTriangleSorter::CIndexPattern>(patterns, 2), TMemoryView<const u32>(vertexCounts, 2), 12);
	EXPECT_EQ(scene.Sort(sorter), kUnwritten);
}

TEST(SorterConfiguration, GeometryPerPage_SetsPatternsVertexCountsAndIndexCount)
{
	CExpectReports noReports;
	CWarningRecorder warnings;
	SScene scene;
	// Each of the first page's three particles owns 4 vertices and draws one triangle twice, since triangles of one
	// particle have equal keys and no order of their own. Room is left for one triangle more than there are.
	u32 twice[6] = {0, 1, 3, 0, 1, 3};
	const CTriangleSorter::CIndexPattern patterns[2] = {
		TMemoryView<u32>(twice, 6), TMemoryView<u32>(scene.m_Pattern, 3)};
	const u32 vertexCounts[2] = {4, 3};
	constexpr u32 kIndexCount = 3 * 6 + 1 * 3 + 3;
	alignas(16) u32 output[kIndexCount] = {};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(output, kIndexCount), 1000);
	scene.SetValues(sorter);
	sorter.Setup_Geometry(TMemoryView<const CTriangleSorter::CIndexPattern>(patterns, 2),
		TMemoryView<const u32>(vertexCounts, 2), kIndexCount);
	const CGuardedMemory workingBuffer(CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(kIndexCount));
	sorter.SortTriangles_AutogenIndices(workingBuffer.Data());
	EXPECT_EQ(CIndices(output, output + kIndexCount),
		(CIndices{0, 0, 0, 12, 13, 14, 4, 5, 7, 4, 5, 7, 8, 9, 11, 8, 9, 11, 0, 1, 3, 0, 1, 3}));
	EXPECT_TRUE(workingBuffer.SurroundingsIntact());
}

// Both output views stay in the sorter; the last call says which of them is live.
TEST(SorterConfiguration, SixteenBitOutputAfter32Bit_IgnoresTheStaleView)
{
	CExpectReports noReports;
	SScene scene;
	CTriangleSorter sorter;
	scene.SetOutput(sorter);
	scene.SetValues(sorter);
	scene.SetGeometry(sorter);
	CGuardedMemory output(12 * sizeof(u16));
	sorter.Setup_OutputIndexBuffer(TMemoryView<u16>(output.As<u16>(), 12), 1000);
	EXPECT_EQ(scene.Sort(sorter), kUnwritten);
	EXPECT_EQ(CIndices(output.As<u16>(), output.As<u16>() + 12), kByValue);
	EXPECT_TRUE(output.SurroundingsIntact());
}

TEST(SorterConfiguration, ThirtyTwoBitOutputAfter16Bit_IgnoresTheStaleView)
{
	CExpectReports noReports;
	SScene scene;
	CGuardedMemory stale(12 * sizeof(u16));
	stale.Protect();
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u16>(stale.As<u16>(), 12), 1000);
	scene.SetOutput(sorter);
	scene.SetValues(sorter);
	scene.SetGeometry(sorter);
	EXPECT_EQ(scene.Sort(sorter), kByValue);
}

TEST(SorterConfiguration, OutputBuffer_SetsCapacityAndVertexCount)
{
	CExpectReports noReports;
	SScene scene;
	CTriangleSorter sorter;
	scene.SetValues(sorter);
	scene.SetGeometry(sorter);
	// Room for two of four patterns: the two highest keys.
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(scene.m_Output, 8), 1000);
	CIndices expected = Triangles({6, 0});
	expected.resize(12, 777u);
	EXPECT_EQ(scene.Sort(sorter), expected);
	// Vertices for two of four particles: the others are drawn first, at vertex 0.
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(scene.m_Output, 12), 6);
	EXPECT_EQ(scene.Sort(sorter), Triangles({0, 0, 3, 0}));
	// The same for 16 bits: room for three patterns, vertices for three particles.
	CGuardedMemory output16(9 * sizeof(u16));
	sorter.Setup_OutputIndexBuffer(TMemoryView<u16>(output16.As<u16>(), 9), 9);
	scene.Sort(sorter); // one pattern does not fit: the read starts at an even record all the same
	EXPECT_EQ(CIndices(output16.As<u16>(), output16.As<u16>() + 9), Triangles({0, 3, 6}));
	EXPECT_TRUE(output16.SurroundingsIntact());
}

TEST(SorterConfiguration, InputByPosition_SetsPagesAndCamera)
{
	CExpectReports noReports;
	SScene scene;
	CTriangleSorter sorter;
	scene.SetOutput(sorter);
	scene.SetGeometry(sorter);
	scene.SetPositions(sorter, CFloat3());
	EXPECT_EQ(scene.Sort(sorter), kFromOrigin);
	scene.SetPositions(sorter, CFloat3(10.0f, 0.0f, 0.0f));
	EXPECT_EQ(scene.Sort(sorter), kFromTen);
}

TEST(SorterConfiguration, LastInputCall_DecidesTheSortType)
{
	CExpectReports noReports;
	SScene scene;
	CTriangleSorter sorter;
	scene.SetOutput(sorter);
	scene.SetGeometry(sorter);
	scene.SetPositions(sorter, CFloat3());
	scene.SetValues(sorter);
	EXPECT_EQ(scene.Sort(sorter), kByValue);
	scene.SetPositions(sorter, CFloat3());
	EXPECT_EQ(scene.Sort(sorter), kFromOrigin);
	sorter.Setup_InputPageCache(scene.Values(), scene.Enableds(), scene.RenderedCounts(), 4, CFloat3());
	EXPECT_EQ(scene.Sort(sorter), kByValue);
}

TEST(SorterConfiguration, InputPageCache_SetsEnabledsRenderedCountsAndParticleCount)
{
	CExpectReports noReports;
	SScene scene;
	CTriangleSorter sorter;
	scene.SetOutput(sorter);
	scene.SetGeometry(sorter);
	// The first page's middle particle is disabled: vertices are numbered by what is rendered.
	const u8 bytes[3] = {1, 0, 1};
	const TStridedMemoryView<const u8> enabledPages[2] = {
		{bytes, 3, 1},
        { }
    };
	const u32 renderedCounts[2] = {2, 1};
	sorter.Setup_InputPageCache(scene.Values(),
		CTriangleSorter::CEnabledPages(enabledPages, 2, sizeof(enabledPages[0])),
		CTriangleSorter::CRenderedCounts(renderedCounts, 2, 4), 3);
	CIndices expected = Triangles({6, 3, 0});
	expected.resize(12, 777u);
	EXPECT_EQ(scene.Sort(sorter), expected);
	// The count is used as it is: here it ends inside the first page.
	std::fill(scene.m_Output, scene.m_Output + 12, 777u);
	sorter.Setup_InputPageCache(scene.Values(), scene.Enableds(), scene.RenderedCounts(), 2);
	expected = Triangles({3, 0});
	expected.resize(12, 777u);
	EXPECT_EQ(scene.Sort(sorter), expected);
}

// Two quads per particle, at x = 1 and x = 2: which of them comes first tells where the camera is.
TEST(SorterConfiguration, InputByValueWithCamera_OrdersTheQuadsByIt)
{
	CExpectReports noReports;
	CWarningRecorder warnings;
	const float value = 0.0f;
	const TStridedMemoryView<const float> pages[1] = {
		{&value, 1, 4}
    };
	const CFloat3 position(1.0f, 2.0f, 3.0f);
	const TStridedMemoryView<const CFloat3> positionPages[1] = {
		{&position, 1, 12}
    };
	const TStridedMemoryView<const u8> enableds[1];
	const u32 renderedCounts[1] = {1}, indexList[1] = {8};
	const CTriangleSorter::CSortKeyPages values(pages, 1, sizeof(pages[0]));
	const CTriangleSorter::CPositionPages positions(positionPages, 1, sizeof(positionPages[0]));
	const CTriangleSorter::CEnabledPages enabledPages(enableds, 1, sizeof(enableds[0]));
	const CTriangleSorter::CRenderedCounts counts(renderedCounts, 1, 4);
	u32 pattern[12] = {0, 1, 2, 0, 2, 3, 4, 5, 6, 4, 6, 7};
	CFloat4 centers[32];
	centers[16] = CFloat4(1.0f, 0.0f, 0.0f, 0.0f); // of the particle at vertex 8, the second of 8 vertices each
	centers[17] = CFloat4(2.0f, 0.0f, 0.0f, 0.0f);
	const CIndices farQuadFirst = {12, 13, 14, 12, 14, 15, 8, 9, 10, 8, 10, 11};
	const CIndices nearQuadFirst = {8, 9, 10, 8, 10, 11, 12, 13, 14, 12, 14, 15};
	u32 output[12];
	CGuardedMemory workingBuffer(32);
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(output, 12), 1000);
	sorter.Setup_Geometry(TMemoryView<u32>(pattern, 12), TMemoryView<const u32>(indexList, 1),
		TMemoryView<const CFloat4>(centers, 32), 8);
	const auto sorted = [&]
	{
		sorter.SortPoints_AutogenIndices(workingBuffer.Data());
		return CIndices(output, output + 12);
	};

	sorter.Setup_InputPageCache(values, enabledPages, counts, 1); // a camera at the origin, as constructed
	EXPECT_EQ(sorted(), farQuadFirst);
	sorter.Setup_InputPageCache(values, enabledPages, counts, 1, CFloat3(9.0f, 0.0f, 0.0f));
	EXPECT_EQ(sorted(), nearQuadFirst);
	sorter.Setup_InputPageCache(values, enabledPages, counts, 1); // names no camera, and leaves it
	EXPECT_EQ(sorted(), nearQuadFirst);
	sorter.Setup_InputPageCache(positions, enabledPages, counts, 1, CFloat3());
	EXPECT_EQ(sorted(), farQuadFirst);
}

TEST(SorterConfiguration, GeometryWithIndexList_TakesVertexBasesFromIt)
{
	CExpectReports noReports;
	SScene scene;
	const u32 indexList[4] = {100, 50, 70, 20};
	CTriangleSorter sorter;
	scene.SetOutput(sorter);
	scene.SetValues(sorter);
	scene.SetGeometry(sorter);
	sorter.Setup_Geometry(TMemoryView<u32>(scene.m_Pattern, 3), TMemoryView<const u32>(indexList, 4));
	EXPECT_EQ(scene.Sort(sorter), Triangles({20, 50, 70, 100}));
	scene.SetGeometry(sorter);
	EXPECT_EQ(scene.Sort(sorter), kByValue);
}

// No sort reads it under this geometry, and no set-up call brings the earlier geometry back without naming it anew.
TEST(SorterConfiguration, GeometryWithIndexListAlone_LeavesTheVertexCountPerParticle)
{
	SScene scene;
	const u32 indexList[4] = {};
	u32 CTriangleSorter::*const vertexCount = Access(SVertexCountTag());
	CTriangleSorter sorter;
	EXPECT_EQ(sorter.*vertexCount, 0u);
	sorter.Setup_Geometry(TMemoryView<u32>(scene.m_Pattern, 3), 7);
	EXPECT_EQ(sorter.*vertexCount, 7u);
	sorter.Setup_Geometry(TMemoryView<u32>(scene.m_Pattern, 3), TMemoryView<const u32>(indexList, 4));
	EXPECT_EQ(sorter.*vertexCount, 7u);
	sorter.Setup_Geometry(TMemoryView<u32>(scene.m_Pattern, 3), TMemoryView<const u32>(indexList, 4), {}, 9);
	EXPECT_EQ(sorter.*vertexCount, 9u);
}

TEST(SorterConfiguration, Pattern_IsCopied)
{
	CExpectReports noReports;
	SScene scene;
	CTriangleSorter sorter;
	scene.SetOutput(sorter);
	scene.SetValues(sorter);
	scene.SetGeometry(sorter);
	std::fill(scene.m_Pattern, scene.m_Pattern + 3, 0xCDCDCDCDu);
	sorter.SortPoints_AutogenIndices(scene.m_WorkingBuffer.Data());
	EXPECT_EQ(CIndices(scene.m_Output, scene.m_Output + 12), kByValue);
}

// A sorter is set up once and sorts many frames.
TEST(SorterConfiguration, Sort_LeavesEveryMemberAsItIs)
{
	SScene scene;
	CTriangleSorter sorter;
	scene.SetOutput(sorter);
	scene.SetPositions(sorter, CFloat3(10.0f, 0.0f, 0.0f));
	scene.SetGeometry(sorter);
	u8 before[sizeof(CTriangleSorter)];
	std::memcpy(before, static_cast<const void *>(&sorter), sizeof(before));
	for (u32 frame = 0; frame < 3; ++frame)
	{
		sorter.SortPoints_AutogenIndices(scene.m_WorkingBuffer.Data());
		EXPECT_EQ(std::memcmp(before, static_cast<const void *>(&sorter), sizeof(before)), 0);
		EXPECT_EQ(CIndices(scene.m_Output, scene.m_Output + 12), kFromTen);
		std::fill(scene.m_Output, scene.m_Output + 12, 777u);
	}
}

TEST(SorterConfiguration, ReconfiguredGroup_LeavesTheOthers)
{
	CExpectReports noReports;
	SScene scene;
	CTriangleSorter sorter;
	scene.SetOutput(sorter);
	scene.SetValues(sorter);
	scene.SetGeometry(sorter);
	EXPECT_EQ(scene.Sort(sorter), kByValue);
	alignas(16) u32 elsewhere[12] = {};
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(elsewhere, 12), 1000);
	scene.Sort(sorter);
	EXPECT_EQ(CIndices(elsewhere, elsewhere + 12), kByValue);
	u32 points[1] = {0};
	sorter.Setup_Geometry(TMemoryView<u32>(points, 1), 5);
	scene.Sort(sorter);
	EXPECT_EQ(CIndices(elsewhere, elsewhere + 4), (CIndices{15, 5, 10, 0}));
	scene.SetPositions(sorter, CFloat3());
	scene.Sort(sorter);
	EXPECT_EQ(CIndices(elsewhere, elsewhere + 4), (CIndices{5, 0, 15, 10}));
}

// They share sites, descriptors and the services behind them, and nothing else.
TEST(SorterConfiguration, SortersOnTwoThreads_DoNotMeet)
{
	CExpectReports noReports;
	const auto sortManyTimes = [](bool byValue)
	{
		SScene scene;
		CTriangleSorter sorter;
		scene.SetOutput(sorter);
		scene.SetGeometry(sorter);
		if (byValue)
			scene.SetValues(sorter);
		else
			scene.SetPositions(sorter, CFloat3());
		bool right = true;
		for (u32 frame = 0; frame < 500; ++frame)
		{
			sorter.SortPoints_AutogenIndices(scene.m_WorkingBuffer.Data());
			right = right && CIndices(scene.m_Output, scene.m_Output + 12) == (byValue ? kByValue : kFromOrigin);
			std::fill(scene.m_Output, scene.m_Output + 12, 777u);
		}
		return right;
	};
	bool right[2] = {};
	std::thread other([&] { right[0] = sortManyTimes(true); });
	right[1] = sortManyTimes(false);
	other.join();
	EXPECT_TRUE(right[0]);
	EXPECT_TRUE(right[1]);
}
