// Records of one page whose vertex bases are a sequence: memory order, bases, compaction, warnings and reports of both
// overloads, and the bytes that no loop may touch.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "fill_calls.h"
#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
typedef std::vector<Model::SRecord> CRecords;
typedef std::vector<std::string> CTexts;

constexpr EFill kBoth[] = {EFill::PositionsInSequence, EFill::ValuesInSequence};

// Which particle each record stands for, counted among the enabled ones.
std::vector<u32> Ranks(const CRecords &records, const Model::SFillCall &call)
{
	std::vector<u32> ranks;
	for (const Model::SRecord &record : records)
		ranks.push_back((record.m_Index - call.m_IndexStart) / call.m_IndexIncrement);
	return ranks;
}

void ExpectReports(const CReportRecorder &reports, const CTexts &texts)
{
	EXPECT_EQ(reports.Texts(), VX_ASSERTIONS ? texts : CTexts());
	for (const SRecordedReport &report : reports.Reports())
		EXPECT_EQ(report.m_ExpandedConditionText, report.m_ConditionText);
}

Model::SFillCall WithStride(Model::SFillCall call, u32 stride)
{
	call.m_Page.m_Positions.m_Stride = call.m_Page.m_Values.m_Stride = stride;
	return call;
}
} // namespace

TEST(FillNoIndexList, EmptyListOfEmptySource_WritesNothing)
{
	const CExpectReports none;
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(
		TMemoryView<SIndexAndDepth>(), TStridedMemoryView<const CFloat3>(), CFloat3(), {}, 5, 6);
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(
		TMemoryView<SIndexAndDepth>(), TStridedMemoryView<const float>(), {}, 5, 6);
	for (const EFill fill : kBoth)
	{
		for (const u32 address : {0u, 8u}) // off 16 bytes there is no head step either
		{
			Model::SFillCall call = MakeFillCall(0);
			call.m_RecordsAddressMod16 = address;
			ExpectAsModel(fill, call, CGuardedMemory::FlushEnd);
			ExpectAsModel(fill, call, CGuardedMemory::FlushStart);
		}
	}
}

// More particles than records, and no record: the compaction that this is has nothing to look for.
TEST(FillNoIndexList, AllDisabled_TouchesNothing)
{
	const CExpectReports none;
	for (const EFill fill : kBoth)
	{
		for (const u32 address : {0u, 8u})
		{
			Model::SFillCall call = MakeFillCall(0);
			call.m_RecordsAddressMod16 = address;
			CFillMemory memory(fill, call);
			memory.m_SourceCount = memory.m_EnabledCount = 5; // of inaccessible memory
			memory.Run();
			EXPECT_TRUE(memory.SurroundingsIntact());
		}
	}
}

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

TEST(FillNoIndexList, EveryLoop_MatchesTheModel)
{
	for (const EFill fill : kBoth)
		ExpectEveryLoopAsModel(fill);
}

TEST(FillNoIndexList, EveryCompaction_MatchesTheModel)
{
	for (const EFill fill : kBoth)
		ExpectEveryCompactionAsModel(fill);
}

TEST(FillNoIndexList, SourceAtTheEdgesOfMemory_IsNotReadPast)
{
	for (const EFill fill : kBoth)
		ExpectNothingReadOutside(fill);
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

TEST(FillNoIndexList, UncommonStride_WarnsOncePerSiteWithEqualOutput)
{
	const struct
	{
		EFill m_Fill;
		u32 m_Stride;
		int m_Site;
		const char *m_Message;
	} cases[] = {
		{EFill::PositionsInSequence, 12, 0,    ""                                                   },
		{EFill::PositionsInSequence, 0,  0,    ""                                                   },
		{EFill::PositionsInSequence, 16, 1776, "Render sort: input positions have uncommon stride"  },
		{EFill::PositionsInSequence, 20, 1776, "Render sort: input positions have uncommon stride"  },
		{EFill::ValuesInSequence,    4,  0,    ""                                                   },
		{EFill::ValuesInSequence,    0,  0,    ""                                                   },
		{EFill::ValuesInSequence,    8,  1950, "Render sort: input sort-values have uncommon stride"},
		{EFill::ValuesInSequence,    12, 1950, "Render sort: input sort-values have uncommon stride"},
	};
	for (const auto &row : cases)
	{
		SCOPED_TRACE(testing::Message() << "function " << int(row.m_Fill) << ", stride " << row.m_Stride);
		const CWarningRecorder warnings;
		const Model::SFillCall call = MakeFillCall(7);
		for (u32 i = 0; i < 3; ++i)
			Filled(row.m_Fill, WithStride(call, row.m_Stride));

		if (row.m_Site == 0)
		{
			EXPECT_TRUE(warnings.Entries().empty());
			EXPECT_EQ(warnings.Hazards(), 0u);
			continue;
		}
		ASSERT_EQ(warnings.Entries().size(), 1u);
		EXPECT_EQ(
			warnings.Entries()[0].m_Key, "[l." + std::to_string(row.m_Site) +
											 "] @ ../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp");
		EXPECT_EQ(warnings.Entries()[0].m_Message, row.m_Message);
		EXPECT_EQ(warnings.Entries()[0].m_TouchCount, 3u);
		EXPECT_EQ(warnings.Hazards(), 3u);
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

// The report changes nothing: bytes are read one by one, whatever count and stride the view claims.
TEST(FillNoIndexList, EnabledBytes_AreReportedWhereTheyDoNotFit)
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
	for (const auto &row : cases)
	{
		for (const EFill fill : kBoth)
		{
			SCOPED_TRACE(testing::Message() << row.m_Count << " bytes, stride " << row.m_Stride);
			const Model::SFillCall call = MakeCompactingCall({1, 0, 1, 1, 0, 1});
			CFillMemory memory(fill, call);
			memory.m_EnabledCount = row.m_Count;
			memory.m_EnabledStride = row.m_Stride;
			CReportRecorder reports;
			memory.Run();

			CTexts texts;
			if (row.m_ReportsCount)
				texts.push_back(IsByPosition(fill) ? "enableds.Count() == positions.Count()"
												   : "enableds.Count() == sortValues.Count()");
			if (row.m_ReportsStride)
				texts.push_back("enableds.Contiguous()");
			ExpectReports(reports, texts);
			EXPECT_TRUE(SameRecords(ModelRecords(fill, call), memory.Records()));
		}
	}
}

// With fewer enabled particles than records the walk goes on behind the view, where there is memory here.
TEST(FillNoIndexList, TooFewEnabled_ReportsTheAccessPastTheView)
{
	for (const EFill fill : kBoth)
	{
		const Model::SFillCall call = MakeCompactingCall({0, 1, 0, 0, 0, 1});
		CFillMemory memory(fill, call);
		memory.m_SourceCount = memory.m_EnabledCount = 5;
		CReportRecorder reports;
		memory.Run();
		ExpectReports(reports, {"_CanAccess(0)"});
		EXPECT_TRUE(SameRecords(ModelRecords(fill, call), memory.Records()));
	}
}

// Broken input that stays inside memory: the records come out as if the view had been long enough.
TEST(FillNoIndexList, MoreRecordsThanPositions_IsReportedUnlessVirtual)
{
	const struct
	{
		EFill m_Fill;
		u32 m_Stride;
		CTexts m_Reports;
	} cases[] = {
		{EFill::PositionsInSequence, 12, {"positions.Virtual() || srcPos == positions.DataEnd()"}},
		{EFill::PositionsInSequence, 16, {"positions.Virtual() || srcPos == positions.DataEnd()"}},
		{EFill::PositionsInSequence, 0,  {}                                                      },
		{EFill::ValuesInSequence,    4,  {}                                                      },
	};
	const CWarningRecorder quiet;
	for (const auto &row : cases)
	{
		SCOPED_TRACE(testing::Message() << "function " << int(row.m_Fill) << ", stride " << row.m_Stride);
		const Model::SFillCall call = WithStride(MakeFillCall(9), row.m_Stride);
		CFillMemory memory(row.m_Fill, call);
		memory.m_SourceCount = 7; // of nine in memory
		CReportRecorder reports;
		memory.Run();
		ExpectReports(reports, row.m_Reports);
		EXPECT_TRUE(SameRecords(ModelRecords(row.m_Fill, call), memory.Records()));
	}
}

// At 4 modulo 16 the head step does not reach a 16-byte boundary. Up to four records no aligned store follows.
TEST(FillNoIndexList, ListAt4Modulo16_IsReportedTwice)
{
	for (u32 count = 1; count <= 4; ++count)
	{
		SCOPED_TRACE(count);
		Model::SFillCall call = MakeFillCall(count);
		call.m_RecordsAddressMod16 = 4;
		const CFillMemory memory(EFill::PositionsInSequence, call);
		CReportRecorder reports;
		memory.Run();
		ExpectReports(reports, {"Mem::IsAligned<0x8>(packedPtr)", "Mem::IsAligned<0x10>(packedPtr)"});
		if (reports.Reports().size() == 2)
		{
			char message[100];
			const u8 *const packedPtr = static_cast<const u8 *>(memory.RecordsAddress()) + sizeof(SIndexAndDepth);
			std::snprintf(message, sizeof(message), "Unaligned memory! %p should be 16-bytes aligned.",
				static_cast<const void *>(packedPtr));
			EXPECT_EQ(reports.Reports()[1].m_Message, message);
		}
		call.m_RecordsAddressMod16 = 8; // the same order: a head, and no group
		EXPECT_TRUE(SameRecords(ModelRecords(EFill::PositionsInSequence, call), memory.Records()));
		EXPECT_TRUE(memory.SurroundingsIntact());
	}
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

#if VX_ASSERTIONS
TEST(FillNoIndexList, Reports_NameTheSorter)
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
