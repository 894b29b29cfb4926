// The point sort's driver in states that a caller has to avoid, and without particles: what it reports, and how it goes
// on.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "random_scene.h"
#include "scene_memory.h"
#include "sort_drivers.h"
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <vector>

using namespace Vexmoor;
using namespace Support;

// Explicit instantiations may name private members: they reach states that no set-up call leaves a sorter in.
namespace
{
CTriangleSorter::ESortType &SortTypeOf(CTriangleSorter &sorter);
u32 &ParticleCountOf(CTriangleSorter &sorter);

template<CTriangleSorter::ESortType CTriangleSorter::*_SortType, u32 CTriangleSorter::*_ParticleCount>
struct SPrivateMembers
{
	friend CTriangleSorter::ESortType &SortTypeOf(CTriangleSorter &sorter) { return sorter.*_SortType; }
	friend u32 &ParticleCountOf(CTriangleSorter &sorter) { return sorter.*_ParticleCount; }
};
template struct SPrivateMembers<&CTriangleSorter::m_SortType, &CTriangleSorter::m_ParticleCount>;
} // namespace

// Failures.

// No index fits: of ten records none would be left to look at, so looking at the first one written would be reported.
TEST(PointSortReports, UnknownIndexType_ReportsItsTextAloneAndFreesTheBlock)
{
	for (const Model::EGeometry geometry : kPointGeometries)
	{
		CSceneMemory memory(OnePage(10, 6, geometry), WithoutWorkingBuffer());
		CTriangleSorter sorter;
		memory.SetUpInput(sorter);
		memory.SetUpGeometry(sorter);
		CExpectReports reports{"Uninitialized or invalid indice type"};
		CAllocationRecorder allocator;
		sorter.SortPoints_AutogenIndices(null);
		ASSERT_EQ(allocator.Allocations().size(), 1u);
		EXPECT_TRUE(allocator.Allocations()[0].m_Freed);
	}
}

TEST(PointSortReports, UnknownSortType_SortsTheRecordsAsTheyAre)
{
	for (const Model::EGeometry geometry : kPointGeometries)
	{
		for (const u32 sortType : {0u, 3u})
		{
			CSceneMemory memory(OnePage(10, 6, geometry));
			std::memset(memory.WorkingBuffer(), 0, CTriangleSorter::GetAutogenIndicesWorkingBufferSize(10));
			SortTypeOf(memory.Sorter()) = CTriangleSorter::ESortType(sortType);
			CWarningRecorder warnings;
			CExpectReports reports{"Uninitialized or invalid sort type"};
			memory.Sort();

			Model::SSortResult result; // ten times the first vertices
			for (u32 i = 0; i < 60; ++i)
				result.m_Output.push_back(i % 6 % 4);
			EXPECT_TRUE(memory.Holds(result));
		}
	}
}

TEST(PointSortReports, UnknownGeometry_IsReportedOnceAndWritesNothing)
{
	CSceneMemory memory(OnePage(10), WithoutWorkingBuffer());
	CTriangleSorter sorter;
	memory.SetUpInput(sorter);
	memory.SetUpOutput(sorter);
	CExpectReports reports{"Uninitialized or invalid geometry type"};
	CAllocationRecorder allocator;
	sorter.SortPoints_AutogenIndices(null);
	EXPECT_TRUE(memory.OutputUntouched());
	ASSERT_EQ(allocator.Allocations().size(), 1u);
	EXPECT_TRUE(allocator.Allocations()[0].m_Freed);
}

static void SetUpGeometryPerPage(CTriangleSorter &sorter)
{
	sorter.Setup_Geometry(TMemoryView<const CTriangleSorter::CIndexPattern>(), TMemoryView<const u32>(), 0);
}

TEST(PointSortReports, GeometryPerPage_IsReportedTwiceAndWritesNothing)
{
	CSceneMemory memory(OnePage(10));
	SetUpGeometryPerPage(memory.Sorter());
	CReportRecorder reports;
	CScopeRecorder scopes;
	memory.Sort();
	EXPECT_TRUE(memory.OutputUntouched());
	const std::vector<std::string> events = {"+CTriangleSorter::FillSource", "-CTriangleSorter::FillSource",
		"+CTriangleSorter::Sort", "-CTriangleSorter::Sort"};
	EXPECT_EQ(scopes.Events(), events);
	ExpectReportsOfDriver(reports, 2, "<Not implemented>", "CTriangleSorter::SortPoints_AutogenIndices(");
}

#if VX_ASSERTIONS
// In a process of its own, where a silenced site harms no other test.
TEST(PointSortReports, IgnoredSite_LeavesTheOthersReporting)
{
	const auto sortTwice = []
	{
		CSceneMemory memory(OnePage(10));
		SetUpGeometryPerPage(memory.Sorter());
		const auto ignoreTheFirst = [](const Assert::SReport &, void *count)
		{ return ++*static_cast<int *>(count) == 1 ? int(Assert::Decision_Ignore) : int(Assert::Decision_Continue); };
		int count = 0;
		Assert::SetReportHandler(ignoreTheFirst, &count);
		memory.Sort();
		memory.Sort();
		std::_Exit(count);
	};
	EXPECT_EXIT(sortTwice(), testing::ExitedWithCode(3), ""); // two reports, then the second site's alone
}

// A verify takes its exit whatever the answer is: silenced, it is the early return that is left of it.
TEST(PointSortReports, NoRenderedCounts_EndTheSortWhateverIsDecided)
{
	const auto sortTwice = [](int decision)
	{
		const CTrapCounter traps;
		const CReportRecorder reports(decision);
		CSceneMemory memory(OnePage(10));
		memory.Sorter().Setup_InputPageCache(
			CTriangleSorter::CSortKeyPages(), CTriangleSorter::CEnabledPages(), CTriangleSorter::CRenderedCounts(), 10);
		memory.Sort();
		memory.Sort();
		std::_Exit(memory.OutputUntouched() ? 10 * int(reports.Reports().size()) + traps.Count() : 1);
	};
	EXPECT_EXIT(sortTwice(Assert::Decision_Break), testing::ExitedWithCode(22), "");
	EXPECT_EXIT(sortTwice(Assert::Decision_Ignore), testing::ExitedWithCode(10), "");
	EXPECT_EXIT(sortTwice(Assert::Decision_Continue), testing::ExitedWithCode(20), "");
}
#endif

// A width that nothing may be divided by. Geometry with quad centres says nothing, as it always has.
TEST(PointSortReports, EmptyPattern_IsReportedForTheFirstTwoGeometriesAndWritesNothing)
{
	for (const Model::EGeometry geometry :
		{Model::EGeometry::Constant, Model::EGeometry::IndexList, Model::EGeometry::IndexListAndQuadCenters})
	{
		CSceneMemory memory(OnePage(10, 0, geometry));
		const bool reports = geometry != Model::EGeometry::IndexListAndQuadCenters;
		CExpectReports expected(
			reports ? std::vector<std::string>{"!m_IndexPattern.Empty()"} : std::vector<std::string>());
		memory.Sort();
		EXPECT_TRUE(memory.OutputUntouched());
	}
}

// A host's scope handler changes the sorter after its records have been sorted.
TEST(PointSortReports, ParticleCountChangedMeanwhile_IsReportedAndTheNewOneExpanded)
{
	const Model::SScene scene = OnePage(10);
	CSceneMemory memory(scene);
	const auto changeAfterSort = [](const Profiler::SNodeDescriptor &node, bool entering, void *sorter)
	{
		if (!entering && std::strcmp(node.m_Name, "CTriangleSorter::Sort") == 0)
			ParticleCountOf(*static_cast<CTriangleSorter *>(sorter)) = 4;
	};
	Profiler::MainEngineProfiler()->SetScopeHandler(changeAfterSort, &memory.Sorter());
	{
		CExpectReports reports{"workingBufferSorter2.Count() == m_ParticleCount"};
		memory.Sorter().SortPoints_AutogenIndices(memory.WorkingBuffer());
	}
	Profiler::MainEngineProfiler()->SetScopeHandler(null, null);

	Model::SSortResult result = Model::PointSort(scene);
	for (u32 i = 4 * 6; i < 10 * 6; ++i)
		result.m_Output[i].reset();
	EXPECT_TRUE(memory.Holds(result));
}

// No particles.

// Pages that render nothing: without views, with views of memory that faults, and with every particle disabled.
static std::vector<Model::SPage> EmptyPages()
{
	std::vector<Model::SPage> pages(6);
	for (u32 i = 2; i < 6; ++i)
	{
		pages[i].m_Positions.m_Elements.resize(5);
		pages[i].m_Values.m_Elements.resize(5);
		pages[i].m_Enabled.resize(i < 4 ? 0 : 5);
	}
	return pages;
}

// Calls check(scene) for each geometry, width, index type and address of the output.
template<typename TCheck>
static void ForEachWidthAndAddress(u32 particleCount, const TCheck &check)
{
	for (const Model::EGeometry geometry : kPointGeometries)
	{
		for (u32 width = 1; width <= 40; ++width)
		{
			Model::SScene scene = OnePage(particleCount, width, geometry);
			scene.m_SortType = kSortTypes[width / 2 % 2];
			for (const Model::EIndexType indexType : kIndexTypes)
			{
				scene.m_IndexType = indexType;
				const u32 step = indexType == Model::EIndexType::U16 ? 2 : 4;
				for (scene.m_OutputAddressMod16 = 0; scene.m_OutputAddressMod16 < 16;
					 scene.m_OutputAddressMod16 += step)
					check(scene);
			}
		}
	}
}

TEST(PointSortReports, NoParticles_WriteNothingAtAnyWidthAndAddress)
{
	const auto check = [](Model::SScene &scene)
	{
		scene.m_Pages = EmptyPages();
		scene.m_IndexCapacity = 50;
		EXPECT_TRUE(SortsLikeTheModel(scene)) << Model::Describe(scene);
	};
	ForEachWidthAndAddress(0, check);
}

TEST(PointSortReports, NoRoomForOnePattern_WritesNothingAtAnyWidthAndAddress)
{
	const auto check = [](Model::SScene &scene)
	{
		scene.m_IndexCapacity = u32(scene.m_Pattern.size()) - 1;
		EXPECT_TRUE(SortsLikeTheModel(scene)) << Model::Describe(scene);
	};
	ForEachWidthAndAddress(8, check);
}

TEST(PointSortReports, NoParticles_ReportTheFirstRecordAloneAndLeaveTheWorkingBuffer)
{
	for (const Model::EGeometry geometry : kPointGeometries)
	{
		Model::SScene scene = OnePage(0, 12, geometry);
		scene.m_Pages = EmptyPages();
		scene.m_IndexCapacity = 24;
		scene.m_OutputAddressMod16 = 8;
		CSceneMemory memory(scene);
		const CGuardedMemory workingBuffer(64);
		CExpectReports reports{"index < m_Count"};
		CWarningRecorder warnings;
		memory.Sorter().SortPoints_AutogenIndices(workingBuffer.Data());
		EXPECT_TRUE(memory.OutputUntouched());
		EXPECT_EQ(std::count(workingBuffer.Data(), workingBuffer.Data() + 64, CGuardedMemory::kInitialByte), 64);
	}
}
