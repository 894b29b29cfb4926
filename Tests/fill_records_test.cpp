// Records of one page, by all four fill functions: the bytes that no loop may touch, every loop and compaction against
// the model, and what all of them warn of and report. Vertex bases that are a sequence are in
// fill_no_index_list_test.cpp, those from a list in fill_index_list_test.cpp.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "fill_calls.h"
#include <cstdio>
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
typedef std::vector<std::string> CTexts;

class EveryFill : public testing::TestWithParam<EFill>
{
};

std::string NameOf(const testing::TestParamInfo<EFill> &fill)
{
	const char *const names[] = {"PositionsInSequence", "ValuesInSequence", "PositionsByList", "ValuesByList"};
	return names[int(fill.param)];
}

// Of a function that sorts by position, or by value.
u32 PackedStride(EFill fill)
{
	return IsByPosition(fill) ? 12 : 4;
}
} // namespace

INSTANTIATE_TEST_SUITE_P(Fill,
	EveryFill,
	testing::Values(EFill::PositionsInSequence, EFill::ValuesInSequence, EFill::PositionsByList, EFill::ValuesByList),
	NameOf);

TEST(FillRecords, NullViews_WriteNothing)
{
	const CExpectReports none;
	const TMemoryView<SIndexAndDepth> records;
	const TStridedMemoryView<const CFloat3> positions;
	const TStridedMemoryView<const float> values;
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(records, positions, CFloat3(), {}, 5, 6);
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(records, values, {}, 5, 6);
	CTriangleSorter::FillSortingIndirectionsListPoint_Indices(records, positions, CFloat3(), {}, null, 6);
	CTriangleSorter::FillSortingIndirectionsListPoint_Indices(records, values, {}, null, 6);
}

TEST_P(EveryFill, EmptyListOfEmptySource_WritesNothing)
{
	const CExpectReports none;
	for (const u32 address : {0u, 8u}) // off 16 bytes there is no head step either
	{
		Model::SFillCall call = MakeFillCall(0);
		call.m_RecordsAddressMod16 = address;
		ExpectAsModel(GetParam(), call, CGuardedMemory::FlushEnd);
		ExpectAsModel(GetParam(), call, CGuardedMemory::FlushStart);
	}
}

// More particles than records, and no record: the compaction that this is has nothing to look for.
TEST_P(EveryFill, AllDisabled_TouchesNothing)
{
	const CExpectReports none;
	for (const u32 address : {0u, 8u})
	{
		Model::SFillCall call = MakeFillCall(0);
		call.m_RecordsAddressMod16 = address;
		CFillMemory memory(GetParam(), call);
		memory.m_SourceCount = memory.m_EnabledCount = 5; // of inaccessible memory
		memory.Run();
		EXPECT_TRUE(memory.SurroundingsIntact());
	}
}

TEST_P(EveryFill, EveryLoop_MatchesTheModel)
{
	ExpectEveryLoopAsModel(GetParam());
}

TEST_P(EveryFill, EveryCompaction_MatchesTheModel)
{
	ExpectEveryCompactionAsModel(GetParam());
}

TEST_P(EveryFill, SourceAndListAtTheEdgesOfMemory_AreNotReadPast)
{
	ExpectNothingReadOutside(GetParam());
}

// Filters of a host name sites, so each function has its own.
TEST_P(EveryFill, UncommonStride_WarnsOncePerSiteWithEqualOutput)
{
	const int sites[] = {1776, 1950, 2129, 2315};
	const int site = sites[int(GetParam())];
	const char *const message = IsByPosition(GetParam()) ? "Render sort: input positions have uncommon stride"
	                                                     : "Render sort: input sort-values have uncommon stride";
	const u32 packed = PackedStride(GetParam());
	for (const u32 stride : {packed, 0u, packed + 4, packed + 8})
	{
		SCOPED_TRACE(testing::Message() << "stride " << stride);
		const CWarningRecorder warnings;
		for (u32 i = 0; i < 3; ++i)
			Filled(GetParam(), WithStride(MakeFillCall(7), stride));

		if (stride == packed || stride == 0)
		{
			EXPECT_TRUE(warnings.Entries().empty());
			EXPECT_EQ(warnings.Hazards(), 0u);
			continue;
		}
		ASSERT_EQ(warnings.Entries().size(), 1u);
		EXPECT_EQ(warnings.Entries()[0].m_Key,
			"[l." + std::to_string(site) + "] @ ../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp");
		EXPECT_EQ(warnings.Entries()[0].m_Message, message);
		EXPECT_EQ(warnings.Entries()[0].m_TouchCount, 3u);
		EXPECT_EQ(warnings.Hazards(), 3u);
	}
}

// The report changes nothing: bytes are read one by one, whatever count and stride the view claims.
TEST_P(EveryFill, EnabledBytes_AreReportedWhereTheyDoNotFit)
{
	const struct
	{
		u32 m_Count, m_Stride;
		bool m_ReportsCount, m_ReportsStride;
	} cases[] = {
		{6, 1, false, false},
		{5, 1, true,  false},
		{7, 1, true,  false},
		{6, 2, false, true },
		{6, 0, false, true },
		{7, 4, true,  true },
	};
	const char *const counts =
		IsByPosition(GetParam()) ? "enableds.Count() == positions.Count()" : "enableds.Count() == sortValues.Count()";
	for (const auto &row : cases)
	{
		SCOPED_TRACE(testing::Message() << row.m_Count << " bytes, stride " << row.m_Stride);
		CTexts texts;
		if (row.m_ReportsCount)
			texts.push_back(counts);
		if (row.m_ReportsStride)
			texts.push_back("enableds.Contiguous()");
		const CExpectReports reports(texts);
		const Model::SFillCall call = MakeCompactingCall({1, 0, 1, 1, 0, 1});
		CFillMemory memory(GetParam(), call);
		memory.m_EnabledCount = row.m_Count;
		memory.m_EnabledStride = row.m_Stride;
		memory.Run();
		for (const SRecordedReport &report : reports.Reports())
			EXPECT_EQ(report.m_ExpandedConditionText, report.m_ConditionText);
		EXPECT_TRUE(SameRecords(ModelRecords(GetParam(), call), memory.Records()));
	}
}

// With fewer enabled particles than records the walk goes on behind the view, where there is memory here.
TEST_P(EveryFill, TooFewEnabled_ReportsTheAccessPastTheView)
{
	const CExpectReports reports{"_CanAccess(0)"};
	const Model::SFillCall call = MakeCompactingCall({0, 1, 0, 0, 0, 1});
	CFillMemory memory(GetParam(), call);
	memory.m_SourceCount = memory.m_EnabledCount = 5; // of six in memory
	memory.Run();
	EXPECT_TRUE(SameRecords(ModelRecords(GetParam(), call), memory.Records()));
}

// Broken input that stays inside memory: the records come out as if the view had been long enough.
TEST_P(EveryFill, MoreRecordsThanParticles_IsReportedOfPositionsUnlessVirtual)
{
	const u32 packed = PackedStride(GetParam());
	const CWarningRecorder quiet;
	for (const u32 stride : {packed, packed + 4, 0u})
	{
		SCOPED_TRACE(testing::Message() << "stride " << stride);
		const bool isReported = IsByPosition(GetParam()) && stride != 0;
		const CExpectReports reports(
			isReported ? CTexts{"positions.Virtual() || srcPos == positions.DataEnd()"} : CTexts());
		const Model::SFillCall call = WithStride(MakeFillCall(9), stride);
		CFillMemory memory(GetParam(), call);
		memory.m_SourceCount = 7; // of nine in memory
		memory.Run();
		EXPECT_TRUE(SameRecords(ModelRecords(GetParam(), call), memory.Records()));
	}
}

// At 4 modulo 16 the head step of positions does not reach a 16-byte boundary. Up to four records no aligned store
// follows.
TEST(FillRecords, ListOfPositionsAt4Modulo16_IsReportedTwice)
{
	for (const EFill fill : {EFill::PositionsInSequence, EFill::PositionsByList})
	{
		for (u32 count = 1; count <= 4; ++count)
		{
			SCOPED_TRACE(testing::Message() << count << " records, function " << int(fill));
			Model::SFillCall call = MakeFillCall(count);
			call.m_RecordsAddressMod16 = 4;
			const CFillMemory memory(fill, call);
			const CExpectReports reports{"Mem::IsAligned<0x8>(packedPtr)", "Mem::IsAligned<0x10>(packedPtr)"};
			memory.Run();
			if (reports.Reports().size() == 2)
			{
				char message[100];
				const u8 *const packedPtr = static_cast<const u8 *>(memory.RecordsAddress()) + sizeof(SIndexAndDepth);
				std::snprintf(message, sizeof(message), "Unaligned memory! %p should be 16-bytes aligned.",
					static_cast<const void *>(packedPtr));
				EXPECT_EQ(reports.Reports()[1].m_Message, message);
			}
			call.m_RecordsAddressMod16 = 8; // the same order: a head, and no group
			EXPECT_TRUE(SameRecords(ModelRecords(fill, call), memory.Records()));
			EXPECT_TRUE(memory.SurroundingsIntact());
		}
	}
}

#if VX_ASSERTIONS
TEST(FillRecords, Reports_NameTheSorter)
{
	CReportRecorder reports;
	CFillMemory memory(EFill::PositionsInSequence, MakeCompactingCall({1, 0, 1}));
	memory.m_EnabledStride = 2;
	memory.Run();
	ASSERT_EQ(reports.Reports().size(), 1u);
	const SRecordedReport &report = reports.Reports()[0];
	EXPECT_EQ(report.m_File, "../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp");
	EXPECT_EQ(report.m_Message, "enableds.Contiguous()");
	EXPECT_GT(report.m_Line, 0);
	EXPECT_FALSE(report.m_Function.empty());
}
#endif
