// Compaction in lanes, with each instruction set: pages around multiples of a register's particles, whose enabled ones
// lie at the borders, in memory that ends where each view does.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "fill_calls.h"
#include "lane_width.h"
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
typedef std::vector<u8> CEnabledBytes;

constexpr EFill kAll[] = {
	EFill::PositionsInSequence, EFill::ValuesInSequence, EFill::PositionsByList, EFill::ValuesByList};

class FillCompaction : public LaneWidthTest
{
};

// Enabled bytes of a page whose enabled particles lie at its borders, or at those of a register of 4, 8 or 16.
std::vector<CEnabledBytes> BorderPatterns(u32 count)
{
	const CEnabledBytes none(count, 0), all(count, 0xFF);
	CEnabledBytes firstAlone = none, lastAlone = none, firstAndLast = none, butFirst = all, butLast = all;
	firstAlone.front() = 0x80;
	lastAlone.back() = 0x80;
	firstAndLast.front() = firstAndLast.back() = 1;
	butFirst.front() = butLast.back() = 0;
	CEnabledBytes firstHalf = none, lastOfEach4 = none, lastOfEach16 = none, otherBits = none;
	for (u32 i = 0; i < count; ++i)
	{
		firstHalf[i] = u8(i < count / 2);
		lastOfEach4[i] = i % 4 == 3 ? 0x40 : 0;
		lastOfEach16[i] = i % 16 == 15 ? 2 : 0;
		otherBits[i] = u8(1u << i % 9); // 0 in every ninth place
	}
	return {
		none, firstAlone, lastAlone, firstAndLast, butFirst, butLast, firstHalf, lastOfEach4, lastOfEach16, otherBits};
}

void SetStride(Model::SFillCall &call, u32 stride)
{
	call.m_Page.m_Positions.m_Stride = call.m_Page.m_Values.m_Stride = stride;
}

// Every block ends where accessible memory does.
void SetFlush(Model::SFillCall &call)
{
	const u32 count = u32(call.m_Page.m_Enabled.size());
	call.m_Page.m_Positions.m_AddressMod16 = FlushAddressMod16(12, count, call.m_Page.m_Positions.m_Stride);
	call.m_Page.m_Values.m_AddressMod16 = FlushAddressMod16(4, count, call.m_Page.m_Values.m_Stride);
	call.m_Page.m_EnabledAddressMod16 = FlushAddressMod16(1, count, 1);
	call.m_IndexListAddressMod16 = FlushAddressMod16(4, call.m_RecordCount, 4);
	call.m_RecordsAddressMod16 = FlushAddressMod16(8, call.m_RecordCount, 8);
}

TEST_P(FillCompaction, EnabledAtBordersOfEveryCount_MatchTheModel)
{
	for (const EFill fill : kAll)
	{
		const u32 packed = IsByPosition(fill) ? 12 : 4;
		for (u32 count = 1; count <= 68; ++count)
		{
			for (const CEnabledBytes &enabled : BorderPatterns(count))
			{
				Model::SFillCall call = MakeCompactingCall(enabled);
				for (const u32 stride : {packed, packed + 4})
				{
					SCOPED_TRACE(testing::Message() << "function " << int(fill) << ", " << call.m_RecordCount << " of "
													<< count << " at stride " << stride);
					SetStride(call, stride);
					ExpectAsModel(fill, call, CGuardedMemory::FlushStart);
					SetFlush(call);
					ExpectAsModel(fill, call);
					ASSERT_FALSE(HasFailure());
				}
			}
		}
	}
}

// Every set of enabled particles in a register of four, and in each half of one of eight, among others and at a page's
// end.
TEST_P(FillCompaction, EverySetOfEight_MatchesTheModel)
{
	for (const EFill fill : kAll)
	{
		for (u32 bits = 0; bits < 256; ++bits)
		{
			CEnabledBytes enabled;
			for (u32 lane = 0; lane < 8; ++lane)
				enabled.push_back(u8((bits >> lane & 1) << 7));
			enabled.insert(enabled.end(), 17, 1);
			for (u32 lane = 0; lane < 8; ++lane)
				enabled.push_back(u8(bits >> lane & 1));
			enabled.push_back(0); // so that the page has a disabled particle
			ExpectAsModel(fill, MakeCompactingCall(enabled));
			ASSERT_FALSE(HasFailure()) << "function " << int(fill) << ", set " << bits;
		}
	}
}

// Strides from the least at which positions are loaded as they lie, and those below it, which go one by one.
TEST_P(FillCompaction, PositionsThatShareBytes_ReadNothingOutside)
{
	for (u32 stride = 1; stride <= 13; ++stride)
	{
		for (u32 count = 24; count <= 42; ++count)
		{
			CEnabledBytes enabled(count, 1);
			enabled[count / 3] = enabled[count - 2] = 0;
			Model::SFillCall call = MakeCompactingCall(enabled);
			SetStride(call, stride);
			std::vector<Model::SFloat3> &positions = call.m_Page.m_Positions.m_Elements;
			std::vector<u8> memory(std::size_t(count) * stride + sizeof(Model::SFloat3));
			for (u32 i = 0; i < count; ++i)
				std::memcpy(memory.data() + i * stride, &positions[i], sizeof(Model::SFloat3));
			for (u32 i = 0; i < count; ++i)
				std::memcpy(&positions[i], memory.data() + i * stride, sizeof(Model::SFloat3));
			SetFlush(call);
			ExpectAsModel(EFill::PositionsInSequence, call);
			ASSERT_FALSE(HasFailure()) << count << " at stride " << stride;
		}
	}
}

// Values that are equal stay in the order of their particles but for the groups' 2, 3, 0, 1, which bases show.
TEST_P(FillCompaction, EqualValues_KeepTheirOrder)
{
	CEnabledBytes enabled;
	for (u32 i = 0; i < 50; ++i)
		enabled.push_back(u8(i % 3 != 0));
	Model::SFillCall call = MakeCompactingCall(enabled);
	for (u32 &value : call.m_Page.m_Values.m_Elements)
		value = 0x3F800000u;
	const std::vector<Model::SRecord> records = Filled(EFill::ValuesInSequence, call);
	ASSERT_EQ(records.size(), 33u);
	for (u32 i = 0; i < records.size(); ++i)
	{
		const u32 rank = i < 32 ? i ^ 2 : i;
		EXPECT_EQ(records[i].m_Index, call.m_IndexStart + rank * call.m_IndexIncrement) << i;
	}
}

// A page may have more enabled particles than are wanted of it: the first ones are taken.
TEST_P(FillCompaction, MoreEnabledThanRecords_TakesTheFirst)
{
	for (const EFill fill : kAll)
	{
		CEnabledBytes enabled(60, 1);
		enabled[1] = enabled[33] = 0;
		for (u32 recordCount = 0; recordCount <= 58; ++recordCount)
		{
			Model::SFillCall call = MakeFillCall(recordCount, enabled);
			ExpectAsModel(fill, call, CGuardedMemory::FlushStart);
			SetFlush(call);
			ExpectAsModel(fill, call);
			ASSERT_FALSE(HasFailure()) << "function " << int(fill) << ", " << recordCount << " records";
		}
	}
}

// What the view lacks lies behind it in memory, and is reported once for each particle.
TEST_P(FillCompaction, TooFewEnabled_ReportsWhatLiesBeyondTheView)
{
	for (const EFill fill : kAll)
	{
		CEnabledBytes enabled(43, 1);
		enabled[0] = enabled[20] = enabled[39] = 0;
		const Model::SFillCall call = MakeCompactingCall(enabled);
		CFillMemory memory(fill, call);
		memory.m_SourceCount = memory.m_EnabledCount = 41;
		const CExpectReports reports(
			VX_ASSERTIONS ? std::vector<std::string>(2, "_CanAccess(0)") : std::vector<std::string>());
		memory.Run();
		EXPECT_TRUE(SameRecords(ModelRecords(fill, call), memory.Records()));
	}
}

// Enabled bytes whose view is too short, or not contiguous, are read one after the other all the same.
TEST_P(FillCompaction, BrokenViewOfEnabledBytes_IsReadAsBytes)
{
	const struct
	{
		u32 m_Count, m_Stride;
	} cases[] = {
		{30, 1},
		{3,  1},
		{41, 0},
		{41, 2},
	};
	for (const EFill fill : kAll)
	{
		for (const auto &row : cases)
		{
			CEnabledBytes enabled(41, 1);
			enabled[7] = enabled[31] = 0;
			const Model::SFillCall call = MakeCompactingCall(enabled);
			CFillMemory memory(fill, call);
			memory.m_EnabledCount = row.m_Count;
			memory.m_EnabledStride = row.m_Stride;
			const CReportRecorder reports;
			memory.Run();
			EXPECT_EQ(reports.Texts().size(), VX_ASSERTIONS ? 1u : 0u);
			EXPECT_TRUE(SameRecords(ModelRecords(fill, call), memory.Records())) << row.m_Count << " " << row.m_Stride;
		}
	}
}

INSTANTIATE_TEST_SUITE_P(Lanes, FillCompaction, kLaneWidths, LaneWidthName);
} // namespace
