// Records of one page whose vertex bases come from a list: valid and invalid entries in every loop, their pairing with
// the enabled particles, and source order.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "fill_calls.h"
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
typedef std::vector<Model::SRecord> CRecords;

constexpr EFill kBoth[] = {EFill::PositionsByList, EFill::ValuesByList};

// A call of each loop and of compaction, twelve records each: a head where the list is off 16 bytes, groups, a tail.
struct SPath
{
	EFill m_Fill;
	Model::SFillCall m_Call;
	u32 m_KeyFar;
};
std::vector<SPath> EveryPath()
{
	std::vector<SPath> paths;
	for (const EFill fill : kBoth)
	{
		const u32 keyFar = IsByPosition(fill) ? 0x807FFFFFu : 0x007FFFFFu;
		const u32 packed = IsByPosition(fill) ? 12 : 4;
		for (const u32 stride : {packed, packed + 4, 0u})
		{
			for (const u32 address : {0u, 8u})
			{
				for (const u32 sourceAddress : {0u, 4u})
				{
					Model::SFillCall call = WithStride(MakeFillCall(12), stride);
					call.m_RecordsAddressMod16 = address;
					call.m_Page.m_Positions.m_AddressMod16 = call.m_Page.m_Values.m_AddressMod16 = sourceAddress;
					paths.push_back({fill, call, keyFar});
				}
				Model::SFillCall call =
					WithStride(MakeCompactingCall({1, 1, 0, 1, 1, 1, 1, 0, 0, 1, 1, 1, 1, 1, 1, 0}), stride);
				call.m_RecordsAddressMod16 = address;
				paths.push_back({fill, call, 0x007FFFFFu}); // compaction ends in values
			}
		}
	}
	return paths;
}
} // namespace

// Every path in turn meets the entry in each of its records; the records around it keep their own entries.
TEST(FillIndexList, Entry_IsValidBelowTheVertexCountAlone)
{
	const struct
	{
		u32 m_Entry, m_MaxVertexId;
		bool m_Valid;
	} cases[] = {
		{0,           1,           true },
		{999,         1000,        true },
		{1000,        1000,        false},
		{1001,        1000,        false},
		{0xFFFFFFFFu, 1000,        false},
		{0x80000000u, 0x7FFFFFFFu, false}, // unsigned: the sign bit is a bit like any other
		{0x80000000u, 0x80000000u, false},
		{0x7FFFFFFFu, 0x80000000u, true },
		{0x80000000u, 0x80000001u, true },
		{0xFFFFFFFEu, 0xFFFFFFFFu, true },
		{0xFFFFFFFFu, 0xFFFFFFFFu, false},
	};
	const CWarningRecorder quiet;
	const CExpectReports none;
	for (const auto &row : cases)
	{
		for (SPath path : EveryPath())
		{
			path.m_Call.m_MaxVertexId = 0xFFFFFFFFu; // every entry of the call is valid: the keys themselves
			const CRecords keyed = Filled(path.m_Fill, path.m_Call);
			path.m_Call.m_MaxVertexId = row.m_MaxVertexId;
			for (u32 at = 0; at < path.m_Call.m_RecordCount; ++at)
			{
				CRecords expected = keyed;
				for (u32 i = 0; i < path.m_Call.m_RecordCount; ++i)
				{
					path.m_Call.m_IndexList[i] = i == at ? row.m_Entry : 0;
					expected[i].m_Index = i == at ? row.m_Entry : 0;
				}
				if (!row.m_Valid)
					expected[at] = {path.m_KeyFar, 0};
				ASSERT_TRUE(SameRecords(expected, Filled(path.m_Fill, path.m_Call)))
					<< "entry " << row.m_Entry << " of " << row.m_MaxVertexId << " in record " << at << ", function "
					<< int(path.m_Fill);
			}
		}
	}
}

// No entry is below 0.
TEST(FillIndexList, NoVertices_MakesEveryRecordFar)
{
	const CWarningRecorder quiet;
	for (SPath path : EveryPath())
	{
		path.m_Call.m_MaxVertexId = 0;
		path.m_Call.m_IndexList.assign(path.m_Call.m_RecordCount, 0);
		const CRecords far(path.m_Call.m_RecordCount, Model::SRecord{path.m_KeyFar, 0});
		EXPECT_TRUE(SameRecords(far, Filled(path.m_Fill, path.m_Call)));
	}
}

// Where a sequence is stored as 2, 3, 0, 1, a list is not.
TEST(FillIndexList, Records_LieInSourceOrder)
{
	const CWarningRecorder quiet;
	for (SPath path : EveryPath())
	{
		for (u32 i = 0; i < path.m_Call.m_RecordCount; ++i)
			path.m_Call.m_IndexList[i] = 3 * i;
		const CRecords records = Filled(path.m_Fill, path.m_Call);
		for (u32 i = 0; i < records.size(); ++i)
			EXPECT_EQ(records[i].m_Index, 3 * i) << "of function " << int(path.m_Fill);
	}
}

// Entry k belongs to record k, the k-th enabled particle, and says nothing of the disabled ones.
TEST(FillIndexList, DisabledParticles_TakeNoEntry)
{
	Model::SFillCall call = MakeCompactingCall({0, 1, 0, 0xFF, 2});
	call.m_Page.m_Values.m_Elements = {0x7F800000u, 0x40000000u, 0xFF800000u, 0xBF800000u, 0x00000000u};
	call.m_IndexList = {70, 90, 10};
	call.m_MaxVertexId = 90;
	const CExpectReports none;
	const CRecords expected = {
		{0xC0000000u, 70},
		{0x007FFFFFu, 0 },
		{0x80000000u, 10},
	};
	EXPECT_TRUE(SameRecords(expected, Filled(EFill::ValuesByList, call)));
}

TEST(FillIndexList, FivePackedPositions_KeepTheirOrder)
{
	Model::SFillCall call = MakeFillCall(5);
	call.m_Camera = {0, 0, 0};
	// At the origin, and 1, 2, 3 and 5 away from it.
	call.m_Page.m_Positions.m_Elements = {
		{0,           0,           0          },
		{0x3F800000u, 0,           0          },
		{0,           0x40000000u, 0          },
		{0,           0,           0x40400000u},
		{0x40400000u, 0xC0800000u, 0          },
	};
	call.m_IndexList = {40, 7, 50, 49, 0};
	call.m_MaxVertexId = 50;
	const CExpectReports none;
	const CRecords expected = {
		{0xFFFFFFFFu,  40},
		{~0x3F800000u, 7 },
		{0x807FFFFFu,  0 },
		{~0x41100000u, 49},
		{~0x41C80000u, 0 },
	};
	EXPECT_TRUE(SameRecords(expected, Filled(EFill::PositionsByList, call)));
}
