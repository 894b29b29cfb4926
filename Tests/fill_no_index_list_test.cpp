// Records of one page whose vertex bases are a sequence: memory order, bases, and which particles are left out.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "fill_calls.h"
#include <algorithm>
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
typedef std::vector<Model::SRecord> CRecords;

constexpr EFill kBoth[] = {EFill::PositionsInSequence, EFill::ValuesInSequence};

// Which particle each record stands for, counted among the enabled ones.
std::vector<u32> Ranks(const CRecords &records, const Model::SFillCall &call)
{
	std::vector<u32> ranks;
	for (const Model::SRecord &record : records)
		ranks.push_back((record.m_Index - call.m_IndexStart) / call.m_IndexIncrement);
	return ranks;
}
} // namespace

// -1, -0, +0, 2 and -1 again.
TEST(FillNoIndexList, FivePackedValues_LieAs2301And4)
{
	Model::SFillCall call = MakeFillCall(5);
	call.m_Page.m_Values.m_Elements = {0xBF800000u, 0x80000000u, 0x00000000u, 0x40000000u, 0xBF800000u};
	call.m_IndexStart = 100;
	call.m_IndexIncrement = 3;
	const CExpectReports none;
	const CRecords expected = {
		{0x80000000u, 106},
		{0xC0000000u, 109},
		{0x407FFFFFu, 100},
		{0x7FFFFFFFu, 103},
		{0x407FFFFFu, 112},
	};
	EXPECT_TRUE(SameRecords(expected, Filled(EFill::ValuesInSequence, call)));
}

TEST(FillNoIndexList, Records_LieInGroupsOf2301)
{
	struct SOrderCase
	{
		EFill m_Fill;
		u32 m_Stride;
		u32 m_AddressMod16;
		bool m_Compacted;
		std::vector<u32> m_Ranks;
	};
	const std::vector<u32> inOrder = {0, 1, 2, 3, 4, 5};
	const std::vector<u32> grouped = {2, 3, 0, 1, 4, 5};
	const std::vector<u32> afterHead = {0, 3, 4, 1, 2, 5};
	// Compaction ends in packed values, which are grouped from the first record on.
	const SOrderCase cases[] = {
		{EFill::PositionsInSequence, 12, 0, false, grouped  },
		{EFill::PositionsInSequence, 12, 8, false, afterHead},
		{EFill::PositionsInSequence, 16, 0, false, grouped  },
		{EFill::PositionsInSequence, 0,  8, false, afterHead},
		{EFill::PositionsInSequence, 16, 8, true,  grouped  },
		{EFill::ValuesInSequence,    4,  0, false, grouped  },
		{EFill::ValuesInSequence,    4,  8, false, grouped  },
		{EFill::ValuesInSequence,    8,  0, false, inOrder  },
		{EFill::ValuesInSequence,    0,  0, false, inOrder  },
		{EFill::ValuesInSequence,    8,  0, true,  grouped  },
	};
	const CWarningRecorder quiet;
	for (const SOrderCase &row : cases)
	{
		Model::SFillCall call = row.m_Compacted ? MakeCompactingCall({0, 1, 1, 1, 0, 1, 1, 1}) : MakeFillCall(6);
		call.m_RecordsAddressMod16 = row.m_AddressMod16;
		EXPECT_EQ(Ranks(Filled(row.m_Fill, WithStride(call, row.m_Stride)), call), row.m_Ranks) << &row - cases;
	}
}

TEST(FillNoIndexList, Bases_AreAWrappingSequenceOverRecords)
{
	const struct
	{
		u32 m_Start, m_Increment;
	} cases[] = {
		{0,           0          },
		{77,          0          },
		{0xFFFFFFF0u, 4          },
		{5,           0x40000001u},
		{0x80000000u, 0xFFFFFFFFu},
	};
	for (const auto &row : cases)
	{
		for (const EFill fill : kBoth)
		{
			for (Model::SFillCall call : {MakeFillCall(14), MakeCompactingCall({1, 0, 0, 1, 1, 1, 0, 1, 1, 1, 1, 1})})
			{
				SCOPED_TRACE(testing::Message() << row.m_Start << " + k * " << row.m_Increment);
				call.m_IndexStart = row.m_Start;
				call.m_IndexIncrement = row.m_Increment;
				ExpectAsModel(fill, call);
				if (row.m_Increment == 0)
				{
					for (const Model::SRecord &record : Filled(fill, call))
						EXPECT_EQ(record.m_Index, row.m_Start);
				}
			}
		}
	}
}

// Bases count enabled particles, and each record carries its own particle's key.
TEST(FillNoIndexList, DisabledParticles_AreLeftOut)
{
	Model::SFillCall call = MakeCompactingCall({0, 1, 0, 0xFF, 2});
	call.m_Page.m_Values.m_Elements = {0x7F800000u, 0x40000000u, 0xFF800000u, 0xBF800000u, 0x00000000u};
	call.m_IndexStart = 8;
	const CExpectReports none;
	const CRecords expected = {
		{0xC0000000u, 8 },
		{0x407FFFFFu, 12},
		{0x80000000u, 16},
	};
	EXPECT_TRUE(SameRecords(expected, Filled(EFill::ValuesInSequence, call)));
}

// Compaction has what it needs after the last enabled particle, and looks no further.
TEST(FillNoIndexList, ParticlesAfterTheLastEnabled_AreNotLookedAt)
{
	const CExpectReports none;
	for (const EFill fill : kBoth)
	{
		for (const u32 stride : IsByPosition(fill) ? std::vector<u32>{12, 20} : std::vector<u32>{4, 8})
		{
			Model::SFillCall call = WithStride(MakeCompactingCall({1, 1, 0, 1, 0, 0, 1}), stride);
			call.m_Page.m_Positions.m_AddressMod16 = FlushAddressMod16(12, 7, stride);
			call.m_Page.m_Values.m_AddressMod16 = FlushAddressMod16(4, 7, stride);
			call.m_Page.m_EnabledAddressMod16 = FlushAddressMod16(1, 7, 1);
			CFillMemory memory(fill, call);
			memory.m_SourceCount = memory.m_EnabledCount = 20;
			memory.Run();
			EXPECT_TRUE(SameRecords(ModelRecords(fill, call), memory.Records()));
		}
	}
}

// The compacted values are packed, whatever the source was.
TEST(FillNoIndexList, CompactingUncommonStride_IsSilent)
{
	const CWarningRecorder warnings;
	Filled(EFill::PositionsInSequence, WithStride(MakeCompactingCall({1, 0, 1}), 16));
	Filled(EFill::ValuesInSequence, WithStride(MakeCompactingCall({1, 0, 1}), 8));
	EXPECT_TRUE(warnings.Entries().empty());
}

// A set of records; only the packed ones lie in groups of 2, 3, 0, 1.
TEST(FillNoIndexList, StridedValues_GiveTheRecordsOfPackedOnes)
{
	const CWarningRecorder quiet;
	const Model::SFillCall call = MakeFillCall(11);
	CRecords packed = Filled(EFill::ValuesInSequence, call);
	CRecords strided = Filled(EFill::ValuesInSequence, WithStride(call, 8));
	const auto byIndex = [](const Model::SRecord &a, const Model::SRecord &b) { return a.m_Index < b.m_Index; };
	std::sort(packed.begin(), packed.end(), byIndex);
	EXPECT_TRUE(std::is_sorted(strided.begin(), strided.end(), byIndex));
	EXPECT_TRUE(SameRecords(packed, strided));
}

// Values need no more than the alignment of a record: their loop stores unaligned.
TEST(FillNoIndexList, ListOfValuesAt4Modulo16_IsServed)
{
	for (u32 count = 0; count <= 12; ++count)
	{
		Model::SFillCall call = MakeFillCall(count);
		call.m_RecordsAddressMod16 = 4;
		ExpectAsModel(EFill::ValuesInSequence, call);
	}
}
