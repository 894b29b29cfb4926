// The validation call as a whole: good calls and scenes, of which it has nothing bad to say, and what it touches and
// takes. Guarded memory throughout.

#include "ge_mesh_sort_validation.h"

#include "diagnostics.h"
#include "heap.h"
#include "random_scene.h"
#include "scene_memory.h"
#include "sort_call.h"
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace Vexmoor;
using namespace Support;

TEST(SortValidation, GoodCalls_GiveNoFindings)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		CCall call(geometry);
		EXPECT_EQ(call.Findings(), std::vector<std::string>()) << geometry;
		call.Output16();
		EXPECT_EQ(call.Findings(), std::vector<std::string>()) << geometry << ", 16-bit";
	}
}

TEST(SortValidation, WithoutAnEntry_TheOneOfTheGeometryIsMeant)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		CCall call(geometry);
		call.m_ParticleCount = 8;
		call.SetUp();
		SFindings told, meant;
		EXPECT_EQ(call.Validate(&Collect, &told), 1u) << geometry;
		EXPECT_EQ(ValidateSort(call.m_Sorter, call.m_WorkingBuffer, call.m_WorkingBufferSize, &Collect, &meant), 1u);
		EXPECT_EQ(meant.m_Sentences, told.m_Sentences) << geometry;
	}
}

TEST(SortValidation, SorterThatIsNotSetUp_GivesAFindingPerGroup)
{
	SFindings collected;
	EXPECT_EQ(ValidateSort(CTriangleSorter(), null, 0, &Collect, &collected), 3u);
	EXPECT_EQ(collected.m_Sentences,
		(std::vector<std::string>{"No output is set up.", "No input is set up.", "No geometry is set up.",
			"Advice: No working buffer is given: the sort takes one from the allocator and gives it back."}));
	for (const ESortEntry entry : {SortEntry_Points, SortEntry_Triangles})
	{
		SFindings ofEntry;
		EXPECT_EQ(ValidateSort(CTriangleSorter(), entry, null, 0, &Collect, &ofEntry), 3u);
		EXPECT_EQ(ofEntry.m_Sentences, collected.m_Sentences);
	}
}

// What the sort would write, and what it would read without a rule for it, may lie where every access faults.
TEST(SortValidation, OutputWorkingBufferAndFloats_AreNotTouched)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		CCall call(geometry);
		call.m_Output = BytesBeforeTheEnd<void>(0x10000);
		call.m_WorkingBuffer = BytesBeforeTheEnd<void>(0x20000);
		for (const u32 page : {0u, 2u, 3u})
			call.m_Values[page] = {BytesBeforeTheEnd<float>(0x1000), call.m_Values[page].Count(), 4};
		call.m_QuadCenters = {BytesBeforeTheEnd<const CFloat4>(0x8000), call.m_QuadCenters.Count()};
		EXPECT_EQ(call.Findings(), std::vector<std::string>()) << geometry;
	}
}

TEST(SortValidation, Validation_TakesNoMemory)
{
	const CAllocationRecorder hook;
	for (const ECallGeometry geometry : kCallGeometries)
	{
		CCall call(geometry);
		call.m_ByPosition = true;
		call.m_Counts[0] = 5;
		call.m_Entries[0] = 0xFFFFFFFFu;
		call.m_WorkingBufferSize = 0;
		call.SetUp();
		u32 findingCount = 0;
		const auto count = [](const SSortFinding &, void *userData) { ++*static_cast<u32 *>(userData); };
		const u64 before = HeapAllocationCount();
		call.Validate(count, &findingCount);
		call.SortChecked(count, &findingCount);
		EXPECT_EQ(HeapAllocationCount(), before) << geometry;
		EXPECT_GE(findingCount, 8u) << geometry;
	}
	EXPECT_TRUE(hook.Allocations().empty());
}

// Pages with more enabled bytes than rendered particles sort, but break a rule.
static void ExpectNoViolations(const Model::SScene &scene, u64 seed)
{
	CSceneMemory memory(scene);
	memory.Protect();
	const CExpectReports noReports;
	SFindings collected;
	const u32 bufferSize = scene.m_Geometry == Model::EGeometry::PerPage
	                           ? CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(scene.m_TriangleIndexCount)
	                           : CTriangleSorter::GetAutogenIndicesWorkingBufferSize(scene.m_ParticleCount);
	ASSERT_EQ(ValidateSort(memory.Sorter(), memory.WorkingBuffer(), bufferSize, &Collect, &collected), 0u)
		<< "seed " << seed << ": " << Model::Describe(scene) << "\n"
		<< testing::PrintToString(collected.m_Sentences);
}

TEST(SortValidation, GoodPointScenes_GiveNoViolation)
{
	Model::SSceneOptions options;
	options.m_WeightPartlyRenderedWithBytes = 0;
	options.m_HostileCamera = true;
	for (u64 seed = 1; seed <= 1000 && !testing::Test::HasFailure(); ++seed)
		ExpectNoViolations(Model::RandomPointScene(seed, options), seed);
}

TEST(SortValidation, GoodTriangleScenes_GiveNoViolation)
{
	Model::SSceneOptions options;
	options.m_WeightPartlyRenderedWithBytes = 0;
	options.m_ParticlesPerPage = {0, 20};
	for (u64 seed = 1; seed <= 1000 && !testing::Test::HasFailure(); ++seed)
		ExpectNoViolations(Model::RandomTriangleScene(seed, options), seed);
}
