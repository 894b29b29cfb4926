// The point sort's driver: which particles it writes, what it leaves in the working buffer, its scratch memory and its
// scopes, and that nothing but the output carries over from one sort to the next.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "random_scene.h"
#include "scene_memory.h"
#include "sort_drivers.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

using namespace Vexmoor;
using namespace Support;

// The particles whose patterns the output starts with, told by their first index.
static std::vector<u32> WrittenParticles(const Model::SScene &scene)
{
	const Model::SSortResult result = Model::PointSort(scene);
	CSceneMemory memory(scene);
	memory.Sort();
	EXPECT_TRUE(memory.Holds(result));
	std::vector<u32> particles;
	for (std::size_t i = 0; i < result.m_Output.size() && result.m_Output[i]; i += scene.m_Pattern.size())
		particles.push_back((*result.m_Output[i] - scene.m_Pattern[0]) / scene.m_VerticesPerParticle);
	return particles;
}

static std::vector<u32> Sequence(u32 first, u32 count)
{
	std::vector<u32> sequence;
	for (u32 i = 0; i < count; ++i)
		sequence.push_back(first + i);
	return sequence;
}

// Which particles are written.

TEST(PointSort, ExactCapacity_WritesEveryRecordFromTheFirst)
{
	CExpectReports reports{};
	EXPECT_EQ(WrittenParticles(OnePage(10)), Sequence(0, 10));

	Model::SScene byPosition = OnePage(10);
	byPosition.m_SortType = Model::ESortType::ByPosition;
	std::vector<u32> backToFront = Sequence(0, 10);
	std::reverse(backToFront.begin(), backToFront.end());
	EXPECT_EQ(WrittenParticles(byPosition), backToFront);
}

namespace
{
struct SCapacityCase
{
	const char *m_Name;
	u32 m_ParticleCount;
	u32 m_IndexCapacity;
	u32 m_FirstWritten;
	u32 m_WrittenCount;
};
} // namespace

static const SCapacityCase kCapacityCases[] = {
	{"Exact",             10, 60,   0, 10},
	{"RoomToSpare",       10, 1000, 0, 10},
	{"PartOfAPatternOff", 10, 59,   0, 9 }, // a shortfall of one: the highest key goes, not the lowest
	{"EvenShortfall",     10, 48,   2, 8 },
	{"OddShortfall",      10, 42,   2, 7 }, // record 9 is not written
	{"RoomForOne",        10, 6,    8, 1 },
	{"RoomForOneOfOdd",   9,  11,   8, 1 },
	{"NoRoomOfOdd",       9,  5,    8, 0 },
};

TEST(PointSort, SmallOutput_DropsAnEvenNumberOfTheLowestKeys)
{
	for (const SCapacityCase &capacityCase : kCapacityCases)
	{
		for (const Model::EGeometry geometry : kPointGeometries)
		{
			SCOPED_TRACE(capacityCase.m_Name);
			CExpectReports reports{};
			CWarningRecorder warnings;
			Model::SScene scene = OnePage(capacityCase.m_ParticleCount, 6, geometry);
			scene.m_IndexCapacity = capacityCase.m_IndexCapacity;
			EXPECT_EQ(WrittenParticles(scene), Sequence(capacityCase.m_FirstWritten, capacityCase.m_WrittenCount));
		}
	}
}

TEST(PointSort, NoRoomForOnePattern_ReportsTheRecordBehindTheLast)
{
	Model::SScene scene = OnePage(10);
	scene.m_IndexCapacity = 5;
	CExpectReports reports{"index < m_Count"};
	CSceneMemory memory(scene);
	memory.Sort();
	EXPECT_TRUE(memory.OutputUntouched());
}

TEST(PointSort, AllGeometriesAndTypes_MatchTheModel)
{
	for (const Model::EGeometry geometry : kPointGeometries)
	{
		for (const Model::EIndexType indexType : kIndexTypes)
		{
			for (const Model::ESortType sortType : kSortTypes)
			{
				Model::SScene scene = OnePage(50, 12, geometry);
				scene.m_IndexType = indexType;
				scene.m_SortType = sortType;
				EXPECT_TRUE(SortsLikeTheModel(scene)) << Model::Describe(scene);
			}
		}
	}
}

// Ordinary memory gets the same bytes, with the same reports and warnings, at every address.
TEST(PointSort, OutputInOrdinaryMemory_MatchesTheModel)
{
	for (const Model::EIndexType indexType : kIndexTypes)
	{
		const u32 indexSize = indexType == Model::EIndexType::U16 ? sizeof(u16) : sizeof(u32);
		for (const u32 width : {1u, 3u, 5u, 6u, 12u})
		{
			for (u32 address = 0; address < 16; address += indexSize)
			{
				const auto check = [&](u32 count)
				{
					Model::SScene scene = OnePage(count, width);
					scene.m_IndexType = indexType;
					scene.m_OutputAddressMod16 = address;
					EXPECT_TRUE(SortsLikeTheModel(scene, WithCachedOutput())) << Model::Describe(scene);
				};
				const u32 step = address == 0 || (width == 12 && address == 8) ? 1 : 13;
				for (u32 count = 0; count <= 130; count += step)
					check(count);
				check(1001);
			}
		}
	}
}

TEST(PointSort, AllGeometriesInOrdinaryMemory_MatchTheModel)
{
	for (const Model::EGeometry geometry : kPointGeometries)
	{
		for (const Model::EIndexType indexType : kIndexTypes)
		{
			for (const Model::ESortType sortType : kSortTypes)
			{
				Model::SScene scene = OnePage(57, 12, geometry);
				scene.m_IndexType = indexType;
				scene.m_SortType = sortType;
				EXPECT_TRUE(SortsLikeTheModel(scene, WithCachedOutput())) << Model::Describe(scene);
				scene.m_IndexCapacity = 12 * 40 + 5;
				EXPECT_TRUE(SortsLikeTheModel(scene, WithCachedOutput())) << Model::Describe(scene);
			}
		}
	}
}

// The working buffer.

// A list keeps the records in particle order, so that what the fill wrote is plain: keys of falling values.
static Model::SScene FallingValues(u32 particleCount)
{
	Model::SScene scene = OnePage(particleCount, 6, Model::EGeometry::IndexList);
	std::reverse(scene.m_Pages[0].m_Values.m_Elements.begin(), scene.m_Pages[0].m_Values.m_Elements.end());
	return scene;
}

static bool HigherDepth(const SIndexAndDepth &a, const SIndexAndDepth &b)
{
	return a.m_Depth > b.m_Depth;
}

TEST(PointSort, UpTo109Records_LeaveTheSecondArrayAsFilled)
{
	for (const u32 count : {1u, 2u, 13u, 108u, 109u})
	{
		CSceneMemory memory(FallingValues(count));
		memory.Sort();
		const SIndexAndDepth *const records = static_cast<const SIndexAndDepth *>(memory.WorkingBuffer());
		const SIndexAndDepth *const filled = records + (count + 1) / 2 * 2;
		EXPECT_TRUE(std::is_sorted(records, records + count)) << count;
		EXPECT_TRUE(std::is_sorted(filled, filled + count, HigherDepth)) << count;
	}
}

TEST(PointSort, From110Records_LeaveTheSecondArrayByTheLow22Bits)
{
	const auto lowerDigits = [](const SIndexAndDepth &a, const SIndexAndDepth &b)
	{ return (a.m_Depth & 0x3FFFFF) < (b.m_Depth & 0x3FFFFF); };
	for (const u32 count : {110u, 111u, 500u})
	{
		CSceneMemory memory(FallingValues(count));
		memory.Sort();
		const SIndexAndDepth *const records = static_cast<const SIndexAndDepth *>(memory.WorkingBuffer());
		const SIndexAndDepth *const scratch = records + (count + 1) / 2 * 2;
		EXPECT_TRUE(std::is_sorted(records, records + count)) << count;
		EXPECT_TRUE(std::is_sorted(scratch, scratch + count, lowerDigits)) << count;
		EXPECT_FALSE(std::is_sorted(scratch, scratch + count)) << count;
	}
}

TEST(PointSort, BothSidesOf109Records_MatchTheModel)
{
	for (u32 count = 100; count <= 120; ++count)
		EXPECT_TRUE(SortsLikeTheModel(FallingValues(count))) << count;
}

// Eight bytes off, a generic width reads record by record: the report is all that happens.
TEST(PointSort, WorkingBufferAt8Mod16_IsReportedAndTheSortGoesOn)
{
	for (const Model::ESortType sortType : kSortTypes)
	{
		Model::SScene scene = OnePage(21, 5);
		scene.m_SortType = sortType;
		CSceneMemory memory(scene, WithoutWorkingBuffer());
		const CGuardedMemory workingBuffer(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(21), 8);
		CWarningRecorder warnings;
		CExpectReports reports{"Mem::IsAligned<0x10>(_workingBuffer)", "Mem::IsAligned<0x10>(it)"};
		memory.Sorter().SortPoints_AutogenIndices(workingBuffer.Data());
		EXPECT_TRUE(memory.Holds(Model::PointSort(scene)));
		EXPECT_TRUE(workingBuffer.SurroundingsIntact());
	}
}

TEST(PointSort, WorkingBufferAt8Mod16WithOrdinaryOutput_IsReportedAlike)
{
	const Model::SScene scene = OnePage(21, 5);
	SSceneLayout layout = WithCachedOutput();
	layout.m_SorterAllocates = true;
	CSceneMemory memory(scene, layout);
	const CGuardedMemory workingBuffer(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(21), 8);
	CWarningRecorder warnings;
	CReportRecorder reports;
	memory.Sorter().SortPoints_AutogenIndices(workingBuffer.Data());
	EXPECT_TRUE(memory.Holds(Model::PointSort(scene)));
	ASSERT_EQ(reports.Reports().size(), VX_ASSERTIONS ? 2u : 0u);
	if (VX_ASSERTIONS)
	{
		EXPECT_EQ(reports.Reports()[1].m_ConditionText, "Mem::IsAligned<0x10>(it)");
		EXPECT_NE(reports.Reports()[1].m_Function.find("CTriangleSorter::ExpandIndices("), std::string::npos);
	}
}

// Scratch memory.

TEST(PointSort, NullWorkingBuffer_TakesEightTimesTheSizeAndGivesItBack)
{
	for (const auto &[particleCount, size] : {std::pair(1000u, 128000u), std::pair(1001u, 128256u)})
	{
		const Model::SScene scene = OnePage(particleCount);
		ExpectScratchOfSize(scene, size, Model::PointSort(scene));
	}
}

TEST(PointSort, GivenWorkingBuffer_AllocatesNothing)
{
	for (const Model::EGeometry geometry : kPointGeometries)
		ExpectNothingAllocated(OnePage(1000, 6, geometry));
}

TEST(PointSort, RefusedAllocation_ReturnsInSilence)
{
	ExpectSilenceWithoutMemory(OnePage(1000));
}

TEST(PointSort, EmptyRenderedCounts_EndTheCallAndKeepTheBlock)
{
	const u32 count = 0;
	const CTriangleSorter::CRenderedCounts emptyViews[] = {
		CTriangleSorter::CRenderedCounts(), CTriangleSorter::CRenderedCounts(&count, 0, 4)};
	for (const CTriangleSorter::CRenderedCounts &renderedCounts : emptyViews)
	{
		CSceneMemory memory(OnePage(1000), WithoutWorkingBuffer());
		memory.Sorter().Setup_InputPageCache(
			CTriangleSorter::CSortKeyPages(), CTriangleSorter::CEnabledPages(), renderedCounts, 1000);
		CExpectReports reports{"!m_InRenderedParticleCounts.Empty()"};
		CScopeRecorder scopes;
		CAllocationRecorder allocator;
		memory.Sort();
		EXPECT_TRUE(memory.OutputUntouched());
		const std::vector<std::string> events = {"+CTriangleSorter::FillSource", "-CTriangleSorter::FillSource"};
		EXPECT_EQ(scopes.Events(), events);
		ASSERT_EQ(allocator.Allocations().size(), 1u);
		EXPECT_EQ(allocator.Allocations()[0].m_Size, 128000u);
		EXPECT_FALSE(allocator.Allocations()[0].m_Freed);
	}
}

TEST(PointSort, NothingSetUp_AsksForABlockOfNoBytesAndReportsTheCounts)
{
	CTriangleSorter sorter;
	{
		CExpectReports reports{"!m_InRenderedParticleCounts.Empty()"};
		CAllocationRecorder allocator;
		sorter.SortPoints_AutogenIndices(null);
		ASSERT_EQ(allocator.Allocations().size(), 1u);
		EXPECT_EQ(allocator.Allocations()[0].m_Size, 0u);
	}
	const CGuardedMemory workingBuffer(0);
	CExpectReports reports{"!m_InRenderedParticleCounts.Empty()"};
	sorter.SortPoints_AutogenIndices(workingBuffer.Data());
}

// Scopes.

TEST(PointSort, Scopes_FollowEachOtherWithTheirColours)
{
	for (const Model::EGeometry geometry : kPointGeometries)
	{
		for (const Model::EIndexType indexType : kIndexTypes)
		{
			Model::SScene scene = OnePage(10, 6, geometry);
			scene.m_IndexType = indexType;
			CSceneMemory memory(scene);
			CWarningRecorder warnings;
			CScopeRecorder scopes;
			memory.Sort();

			const bool quads = geometry == Model::EGeometry::IndexListAndQuadCenters;
			std::string expand = quads ? "ExpandAndSortIndices" : "ExpandIndices";
			expand += indexType == Model::EIndexType::U16 ? "<u16>" : "<u32>";
			const std::vector<std::string> events = {"+CTriangleSorter::FillSource", "-CTriangleSorter::FillSource",
				"+CTriangleSorter::Sort", "-CTriangleSorter::Sort", "+" + expand, "-" + expand};
			EXPECT_EQ(scopes.Events(), events);
			ASSERT_EQ(scopes.Nodes().size(), 3u);
			ExpectNode(*scopes.Nodes()[0], "CTriangleSorter::FillSource", 0.5f, 0.08f, 0.9f);
			ExpectNode(*scopes.Nodes()[1], "CTriangleSorter::Sort", 0.2f, 0.08f, 0.9f);
			ExpectNode(*scopes.Nodes()[2], expand.c_str(), 0.1f, quads ? 0.6f : 0.5f, 0.9f);
		}
	}
}

// Reuse and threads.

// While it sorts, a scene's sorter lies in read-only memory, and so does all it reads.
TEST(PointSort, SortedAgain_GivesTheSameFromAnUnchangedSorter)
{
	for (const Model::EGeometry geometry : kPointGeometries)
	{
		const Model::SScene scene = OnePage(200, 6, geometry);
		const Model::SSortResult result = Model::PointSort(scene);
		CSceneMemory memory(scene);
		CWarningRecorder warnings;
		CExpectReports reports{};
		unsigned char before[sizeof(CTriangleSorter)];
		std::memcpy(before, static_cast<const void *>(&memory.Sorter()), sizeof(before));
		for (u32 i = 0; i < 3; ++i)
		{
			memory.Sort();
			EXPECT_TRUE(memory.Holds(result));
			EXPECT_EQ(std::memcmp(before, static_cast<const void *>(&memory.Sorter()), sizeof(before)), 0);
		}
	}
}

TEST(PointSort, TwoSortersOnTwoThreads_DoNotDisturbEachOther)
{
	CWarningRecorder warnings;
	CExpectReports reports{};
	bool holds[2] = {true, true};
	const auto sortOften = [&holds](u32 thread)
	{
		Model::SSceneOptions options;
		options.m_VertexCutPercent = options.m_SmallOutputPercent = 0;
		options.m_ParticlesPerPage = {10, 60};
		options.m_WeightEmpty = 0;
		for (u32 seed = 1; seed <= 60; ++seed)
		{
			const Model::SScene scene = Model::RandomPointScene(seed * 2 + thread, options);
			CSceneMemory memory(scene);
			memory.Sort();
			holds[thread] = holds[thread] && memory.Holds(Model::PointSort(scene));
		}
	};
	std::thread other(sortOften, 1);
	sortOften(0);
	other.join();
	EXPECT_TRUE(holds[0]);
	EXPECT_TRUE(holds[1]);
}
