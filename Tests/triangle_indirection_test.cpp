// The two steps around the sort of triangles: particle records widened in place into triangle records, and whole
// triangles gathered in the order of sorted ones. Buffers lie flush against memory that is not there.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "guarded_memory.h"
#include "index_types.h"
#include "random_scene.h"
#include "reference_model.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <type_traits>
#include <vector>

using namespace Vexmoor;
using Model::SRecord;
using Support::CExpectReports;
using Support::CGuardedMemory;
using Support::CScopeRecorder;
using Support::CWarningRecorder;

namespace
{
const char *const kMisalignedList = "Mem::IsAligned<0x10>(inoutList.Data())";
const char *const kWrongCount = "inoutList.Count() == primCount * trianglePerPrimitive";
const char *const kOutOfBounds = "index < m_Count";

// What lies in the m_Index of particle records: nobody reads it.
constexpr u32 kStaleIndex = 0x5EA1ED00u;

std::vector<SRecord> MakeParticles(u32 count)
{
	std::vector<SRecord> particles;
	for (u32 p = 0; p < count; ++p)
		particles.push_back({p * 0x9E3779B1u ^ 0x80000000u, kStaleIndex + p});
	return particles;
}

std::vector<SRecord> Records(const CGuardedMemory &memory, std::size_t count)
{
	std::vector<SRecord> records(count);
	std::copy(memory.As<SRecord>(), memory.As<SRecord>() + count, records.begin());
	return records;
}

// Where a list lies.
struct SListLayout
{
	std::size_t m_Address = 0; // modulo 16
	CGuardedMemory::EFlush m_Flush = CGuardedMemory::FlushEnd;
};

// Widens particles in a list that has room for exactly their triangles.
std::vector<SRecord> Widen(const std::vector<SRecord> &particles,
	u32 trianglePerPrimitive,
	u32 primOffset,
	const SListLayout &layout = SListLayout())
{
	const u32 count = u32(particles.size()) * trianglePerPrimitive;
	const CGuardedMemory list(count * sizeof(SRecord), layout.m_Address, layout.m_Flush);
	std::copy(particles.begin(), particles.end(), list.As<SRecord>());
	CTriangleSorter::ExpandSortingIndirectionsListPoints_Triangles(
		{list.As<SIndexAndDepth>(), count}, u32(particles.size()), trianglePerPrimitive, primOffset);
	EXPECT_TRUE(list.SurroundingsIntact());
	return Records(list, count);
}

// Over particle counts with every rest of a group of four, and blocks at either 8 or 0 modulo 16.
void ExpectModelsRecordsEverywhere(std::size_t address, const std::vector<std::string> &reports)
{
	for (u32 trianglePerPrimitive = 1; trianglePerPrimitive <= 16; ++trianglePerPrimitive)
	{
		for (u32 primCount = 0; primCount <= 40; ++primCount)
		{
			const std::vector<SRecord> particles = MakeParticles(primCount);
			const u32 primOffset = primCount * 3 + trianglePerPrimitive;
			for (const auto flush : {CGuardedMemory::FlushEnd, CGuardedMemory::FlushStart})
			{
				const CExpectReports expected(reports);
				ASSERT_EQ(Widen(particles, trianglePerPrimitive, primOffset, {address, flush}),
					Model::WidenToTriangles(particles, trianglePerPrimitive, primOffset))
					<< primCount << " particles of " << trianglePerPrimitive << " triangles, flush " << flush;
			}
		}
	}
}
} // namespace

// Widening.

TEST(WidenToTriangles, EveryCount_EqualsTheModel)
{
	ExpectModelsRecordsEverywhere(0, {});
}

TEST(WidenToTriangles, ListAt8Mod16_ReportedOnceWithTheSameRecords)
{
	ExpectModelsRecordsEverywhere(8, {kMisalignedList});
}

TEST(WidenToTriangles, TwoTrianglesEach_BlockOfFirstThenBlockOfSecondOnes)
{
	const CExpectReports none;
	EXPECT_EQ(Widen(
				  {
					  {70, 1},
                      {50, 1},
                      {60, 1}
    },
				  2, 100),
		(std::vector<SRecord>{{70, 100}, {50, 102}, {60, 104}, {70, 101}, {50, 103}, {60, 105}}));
}

TEST(WidenToTriangles, OneTriangleEach_ParticleRecordsAreNumberedOn)
{
	const CExpectReports none;
	EXPECT_EQ(Widen(
				  {
					  {9, 0},
                      {8, 0},
                      {7, 0},
                      {6, 0},
                      {5, 0}
    },
				  1, 30),
		(std::vector<SRecord>{{9, 30}, {8, 31}, {7, 32}, {6, 33}, {5, 34}}));
}

TEST(WidenToTriangles, NoParticles_NothingIsReadOrWritten)
{
	const CExpectReports none;
	CTriangleSorter::ExpandSortingIndirectionsListPoints_Triangles({}, 0, 4, 7);
	const CGuardedMemory list(0);
	CTriangleSorter::ExpandSortingIndirectionsListPoints_Triangles({list.As<SIndexAndDepth>(), 0}, 0, 16, 7);
	EXPECT_TRUE(list.SurroundingsIntact());
}

TEST(WidenToTriangles, LongLists_EqualTheModel)
{
	const CExpectReports none;
	for (const u32 trianglePerPrimitive : {1u, 3u})
		EXPECT_EQ(Widen(MakeParticles(4099), trianglePerPrimitive, 5),
			Model::WidenToTriangles(MakeParticles(4099), trianglePerPrimitive, 5));
}

TEST(WidenToTriangles, NumbersBeyond32Bits_Wrap)
{
	const CExpectReports none;
	// Past the largest unsigned number, and past the largest signed one, which means nothing here.
	for (const u32 primOffset : {0xFFFFFFF0u, 0x7FFFFFFEu})
		EXPECT_EQ(Widen(MakeParticles(11), 5, primOffset), Model::WidenToTriangles(MakeParticles(11), 5, primOffset));
}

TEST(WidenToTriangles, ListLongerThanItsTriangles_ReportedAndTheRestStays)
{
	const std::vector<SRecord> particles = MakeParticles(5);
	const CGuardedMemory list(18 * sizeof(SRecord));
	std::copy(particles.begin(), particles.end(), list.As<SRecord>());
	const std::vector<SRecord> before = Records(list, 18);
	{
		const CExpectReports reports({kWrongCount});
		CTriangleSorter::ExpandSortingIndirectionsListPoints_Triangles({list.As<SIndexAndDepth>(), 18}, 5, 3, 0);
	}
	std::vector<SRecord> expected = Model::WidenToTriangles(particles, 3, 0);
	expected.insert(expected.end(), before.begin() + 15, before.end());
	EXPECT_EQ(Records(list, 18), expected);
}

TEST(WidenToTriangles, WrongCountAndAlignment_ReportedInThisOrder)
{
	// Ten records for three times three.
	const CGuardedMemory list(10 * sizeof(SRecord), 8);
	const CExpectReports reports({kWrongCount, kMisalignedList});
	CTriangleSorter::ExpandSortingIndirectionsListPoints_Triangles({list.As<SIndexAndDepth>(), 10}, 3, 3, 0);
}

TEST(WidenToTriangles, MisalignedList_IsReportedBeforeItIsWidened)
{
	// The handler looks at the list when the report comes in.
	struct SObserver
	{
		const CGuardedMemory m_List{4 * sizeof(SRecord), 8};
		std::vector<SRecord> m_AtReport;

		static int Report(const Assert::SReport &, void *self)
		{
			SObserver &observer = *static_cast<SObserver *>(self);
			observer.m_AtReport = Records(observer.m_List, 4);
			return Assert::Decision_Continue;
		}
	} observer;
	const std::vector<SRecord> particles = MakeParticles(4);
	std::copy(particles.begin(), particles.end(), observer.m_List.As<SRecord>());

	Assert::SetReportHandler(&SObserver::Report, &observer);
	CTriangleSorter::ExpandSortingIndirectionsListPoints_Triangles({observer.m_List.As<SIndexAndDepth>(), 4}, 4, 1, 0);
	Support::FailAtReports();

	EXPECT_EQ(observer.m_AtReport, VX_ASSERTIONS ? particles : std::vector<SRecord>());
	EXPECT_EQ(Records(observer.m_List, 4), Model::WidenToTriangles(particles, 1, 0));
}

TEST(WidenToTriangles, Call_OpensItsScopeInAColourOfItsName)
{
	for (const u32 primCount : {0u, 3u})
	{
		const CScopeRecorder scopes;
		Widen(MakeParticles(primCount), 2, 0);
		ASSERT_EQ(scopes.Events(), (std::vector<std::string>{"+ExpandSortToTriangles", "-ExpandSortToTriangles"}));

		const Profiler::SNodeDescriptor &node = *scopes.Nodes().front();
		const CFloat4 color = Profiler::SNodeDescriptor::AutogenColor("ExpandSortToTriangles");
		EXPECT_EQ(std::memcmp(&node.m_Color[0], &color[0], sizeof(color)), 0);
		EXPECT_EQ(node.m_Flags, 0u);
	}
}

TEST(WidenToTriangles, Call_WarnsOfNothing)
{
	const CWarningRecorder warnings;
	Widen(MakeParticles(9), 3, 0);
	EXPECT_EQ(warnings.Hazards(), 0u);
}

// Gathering.

namespace
{
template<typename _Index>
class GatherTriangles : public testing::Test
{
};

TYPED_TEST_SUITE(GatherTriangles, Support::SIndexTypes, Support::SIndexName);

// The arguments of a call: by default, all of the list from all of the source.
struct SGather
{
	std::vector<SRecord> m_List;
	std::vector<u32> m_Source; // indices
	u32 m_TriCount;
	u32 m_ListViewCount; // not necessarily what lies in memory
	u32 m_SourceViewCount;
	std::size_t m_SourceAddress = 0; // modulo 16
	std::size_t m_DstAddress = 0;
	CGuardedMemory::EFlush m_Flush = CGuardedMemory::FlushEnd;

	SGather(const std::vector<SRecord> &list, const std::vector<u32> &source)
		: m_List(list)
		, m_Source(source)
		, m_TriCount(u32(list.size()))
		, m_ListViewCount(u32(list.size()))
		, m_SourceViewCount(u32(source.size()))
	{
	}
};

// The indices that one call writes into a buffer of exactly their size.
template<typename _Index>
std::vector<u32> Gather(const SGather &gather)
{
	CGuardedMemory list(gather.m_List.size() * sizeof(SRecord));
	std::copy(gather.m_List.begin(), gather.m_List.end(), list.As<SRecord>());
	list.Protect();
	CGuardedMemory source(gather.m_Source.size() * sizeof(_Index), gather.m_SourceAddress, gather.m_Flush);
	std::transform(gather.m_Source.begin(), gather.m_Source.end(), source.As<_Index>(),
		[](u32 index) { return static_cast<_Index>(index); });
	source.Protect();
	const CGuardedMemory dst(3 * gather.m_TriCount * sizeof(_Index), gather.m_DstAddress, gather.m_Flush);

	CTriangleSorter::ApplySortingIndirectionsListTriangles({list.As<SIndexAndDepth>(), gather.m_ListViewCount},
		{source.As<_Index>(), gather.m_SourceViewCount}, dst.As<_Index>(), gather.m_TriCount);
	EXPECT_TRUE(dst.SurroundingsIntact());
	return {dst.As<_Index>(), dst.As<_Index>() + 3 * gather.m_TriCount};
}

// Triangle t has the indices 3t, 3t + 1 and 3t + 2, plus 1000.
std::vector<u32> MakeSource(u32 triangleCount)
{
	std::vector<u32> source;
	for (u32 i = 0; i < triangleCount * 3; ++i)
		source.push_back(1000 + i);
	return source;
}
} // namespace

TYPED_TEST(GatherTriangles, RandomOrder_EqualsTheModel)
{
	const CExpectReports none;
	Model::CRandom random(4711);
	for (u32 triangleCount = 1; triangleCount <= 40; ++triangleCount)
	{
		std::vector<u32> source;
		for (u32 i = 0; i < triangleCount * 3; ++i)
			source.push_back(random.Below(0x10000));
		std::vector<SRecord> list;
		for (u32 i = 0; i < triangleCount; ++i)
			list.push_back({random.Next(), random.Below(triangleCount)});
		for (std::size_t address = 0; address < 16; address += sizeof(TypeParam))
		{
			SGather gather(list, source);
			gather.m_SourceAddress = address;
			gather.m_DstAddress = (address + triangleCount * sizeof(TypeParam)) % 16;
			gather.m_Flush = triangleCount % 2 == 0 ? CGuardedMemory::FlushEnd : CGuardedMemory::FlushStart;
			ASSERT_EQ(Gather<TypeParam>(gather), Model::GatherTriangles(list, source))
				<< triangleCount << " triangles, source at " << address << " modulo 16";
		}
	}
}

TYPED_TEST(GatherTriangles, ThreeRecords_CopyWholeTrianglesInTheirOrder)
{
	const CExpectReports none;
	EXPECT_EQ(Gather<TypeParam>({
				  {{3, 2}, {1, 0}, {2, 2}},
                  MakeSource(3)
    }),
		(std::vector<u32>{1006, 1007, 1008, 1000, 1001, 1002, 1006, 1007, 1008}));
}

TYPED_TEST(GatherTriangles, FewerTrianglesThanRecords_TheFirstRecordsOnly)
{
	const CExpectReports none;
	SGather gather(
		{
			{0, 1},
            {0, 0},
            {0, 7}
    },
		MakeSource(2)); // the last record is not looked at
	gather.m_TriCount = 2;
	EXPECT_EQ(Gather<TypeParam>(gather), (std::vector<u32>{1003, 1004, 1005, 1000, 1001, 1002}));
}

TYPED_TEST(GatherTriangles, NoTriangles_NothingIsReadOrWritten)
{
	// Neither where there are records nor where there is no memory at all.
	const CExpectReports none;
	SGather gather(
		{
			{0, 1},
            {0, 0}
    },
		MakeSource(2));
	gather.m_TriCount = 0;
	EXPECT_TRUE(Gather<TypeParam>(gather).empty());
	CTriangleSorter::ApplySortingIndirectionsListTriangles({}, {}, static_cast<TypeParam *>(null), 0);
}

TYPED_TEST(GatherTriangles, TriangleOutsideTheSource_ReportedAndRunOn)
{
	// In memory there are three triangles; the view holds eight indices, which are two.
	const CExpectReports reports({kOutOfBounds});
	SGather gather(
		{
			{0, 2},
            {0, 1}
    },
		MakeSource(3));
	gather.m_SourceViewCount = 8;
	EXPECT_EQ(Gather<TypeParam>(gather), (std::vector<u32>{1006, 1007, 1008, 1003, 1004, 1005}));
}

TYPED_TEST(GatherTriangles, MoreTrianglesThanRecords_ReportedOncePerRecordAndRunOn)
{
	// The view ends after the first of three records.
	const CExpectReports reports({kOutOfBounds, kOutOfBounds});
	SGather gather(
		{
			{0, 0},
            {0, 1},
            {0, 0}
    },
		MakeSource(2));
	gather.m_ListViewCount = 1;
	EXPECT_EQ(Gather<TypeParam>(gather), (std::vector<u32>{1000, 1001, 1002, 1003, 1004, 1005, 1000, 1001, 1002}));
}
