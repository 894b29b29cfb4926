#pragma once

// What is expected of the point sort and of the triangle sort alike: their scratch memory, their scopes, and the
// reports of their drivers.

#include "kr_profiler.h"

#include "diagnostics.h"
#include "scene_memory.h"
#include <gtest/gtest.h>

namespace Support
{
/// A scene sorted without a working buffer takes one block of this size, and gives it back.
inline void ExpectScratchOfSize(const Model::SScene &scene, Vexmoor::u64 size, const Model::SSortResult &result)
{
	const char *const function = scene.m_Geometry == Model::EGeometry::PerPage
	                                 ? "CTriangleSorter::SortTriangles_AutogenIndices("
	                                 : "CTriangleSorter::SortPoints_AutogenIndices(";
	CSceneMemory memory(scene, WithoutWorkingBuffer());
	CExpectReports reports{};
	CAllocationRecorder allocator;
	memory.Sort();
	EXPECT_TRUE(memory.Holds(result));

	ASSERT_EQ(allocator.Allocations().size(), 1u);
	const SRecordedAllocation &allocation = allocator.Allocations()[0];
	EXPECT_EQ(allocation.m_Size, size);
	EXPECT_EQ(allocation.m_Alignment, 16u);
	EXPECT_EQ(allocation.m_Type, Vexmoor::Mem::AllocType_Generic);
	EXPECT_EQ(allocation.m_Origin, Vexmoor::Mem::Origin_Alloc);
	EXPECT_EQ(allocation.m_Module, "Kernel|Mem|Default");
	EXPECT_EQ(allocation.m_File, kSorterFile);
	EXPECT_NE(allocation.m_Function.find(function), std::string::npos);
	EXPECT_TRUE(allocation.m_Freed);
	EXPECT_NE(allocation.m_FreedByFile.find("kr_mem"), std::string::npos);
}

/// A scene sorted with a working buffer takes nothing.
inline void ExpectNothingAllocated(const Model::SScene &scene)
{
	CSceneMemory memory(scene);
	CWarningRecorder warnings;
	CAllocationRecorder allocator;
	memory.Sort();
	EXPECT_TRUE(allocator.Allocations().empty());
}

/// A scene whose block is refused ends in silence, before its first scope.
inline void ExpectSilenceWithoutMemory(const Model::SScene &scene)
{
	CSceneMemory memory(scene, WithoutWorkingBuffer());
	CExpectReports reports{};
	CWarningRecorder warnings;
	CScopeRecorder scopes;
	CAllocationRecorder allocator(true);
	memory.Sort();
	EXPECT_EQ(allocator.Allocations().size(), 1u);
	EXPECT_TRUE(memory.OutputUntouched());
	EXPECT_TRUE(scopes.Events().empty());
	EXPECT_EQ(warnings.Hazards(), 0u);
}

inline void ExpectNode(
	const Vexmoor::Profiler::SNodeDescriptor &node, const char *name, float red, float green, float blue)
{
	EXPECT_STREQ(node.m_Name, name);
	EXPECT_FLOAT_EQ(node.m_Color.x(), red) << name;
	EXPECT_FLOAT_EQ(node.m_Color.y(), green) << name;
	EXPECT_FLOAT_EQ(node.m_Color.z(), blue) << name;
	EXPECT_EQ(node.m_Flags, 0u) << name;
}

/// So many reports, where there are assertions, all of them with this text of their own and from this driver.
inline void ExpectReportsOfDriver(
	const CReportRecorder &reports, std::size_t count, const char *message, const char *function)
{
	ASSERT_EQ(reports.Reports().size(), VX_ASSERTIONS ? count : 0u);
	for (const SRecordedReport &report : reports.Reports())
	{
		EXPECT_EQ(report.m_Message, message);
		EXPECT_EQ(report.m_ConditionText, "false");
		EXPECT_EQ(report.m_File, kSorterFile);
		EXPECT_NE(report.m_Function.find(function), std::string::npos);
	}
}
} // namespace Support
