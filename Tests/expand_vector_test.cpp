// Expansion of patterns of 6 and 12 entries: the workers that stream, the loops they fall back to, and where the two
// part company. Inputs are read-only, and buffers lie flush against memory that is not there.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "expand_calls.h"
#include <algorithm>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

using namespace Vexmoor;
using namespace Support;

namespace
{
// Two triangles of four vertices, and twice that.
const SPattern kQuad = {0, 1, 2, 0, 2, 3};
const SPattern kTwoQuads = {0, 1, 2, 0, 2, 3, 4, 5, 6, 4, 6, 7};

// All entries differ, so that each lane has to be in its place.
SPattern MakePattern(u32 width)
{
	SPattern pattern;
	for (u32 j = 0; j < width; ++j)
		pattern.push_back(11 + (width - j) * 17);
	return pattern;
}

// Over all counts, addresses and both ends of a page.
template<typename _Index>
void ExpectPatternPlusBaseEverywhere(const SPattern &pattern)
{
	const CWarningRecorder silent;
	const CExpectReports none;
	for (u32 count = 0; count <= 40; ++count)
	{
		const SRecords records = MakeRecords(count);
		const std::vector<u32> expected = PatternPlusBase(pattern, records);
		for (std::size_t address = 0; address < 16; address += sizeof(_Index))
		{
			// Here the worker of width 12 takes its first record for granted.
			if (sizeof(_Index) == 4 && pattern.size() == 12 && count == 0 && address == 8)
				continue;
			for (const auto flush : {CGuardedMemory::FlushEnd, CGuardedMemory::FlushStart})
				ASSERT_EQ(Expand<_Index>(pattern, records, address, flush), expected)
					<< count << " records, output at " << address << " modulo 16, flush " << flush;
		}
	}
}
} // namespace

TEST(ExpandVectorU32, Width6AtEveryCountAndAddress_WritesPatternPlusBase)
{
	ExpectPatternPlusBaseEverywhere<u32>(MakePattern(6));
}

TEST(ExpandVectorU32, Width12AtEveryCountAndAddress_WritesPatternPlusBase)
{
	ExpectPatternPlusBaseEverywhere<u32>(MakePattern(12));
}

TEST(ExpandVectorU16, Width6AtEveryCountAndAddress_WritesPatternPlusBase)
{
	ExpectPatternPlusBaseEverywhere<u16>(MakePattern(6));
}

TEST(ExpandVectorU16, Width12AtEveryCountAndAddress_WritesPatternPlusBase)
{
	ExpectPatternPlusBaseEverywhere<u16>(MakePattern(12));
}

TEST(ExpandVector, LongLists_WritePatternPlusBase)
{
	const CWarningRecorder silent;
	const CExpectReports none;
	const SRecords records = MakeRecords(4099);
	for (const u32 width : {6u, 12u})
	{
		const SPattern pattern = MakePattern(width);
		const std::vector<u32> expected = PatternPlusBase(pattern, records);
		EXPECT_EQ(Expand<u32>(pattern, records, 0), expected);
		EXPECT_EQ(Expand<u32>(pattern, records, 8), expected);
		EXPECT_EQ(Expand<u16>(pattern, records, 0), expected);
	}
}

TEST(ExpandVectorU32, Width12AlignedWith3Records_VectorStepAndSingleRecord)
{
	const CWarningRecorder warnings;
	const CExpectReports none;
	EXPECT_EQ(Expand<u32>(kTwoQuads, RecordsOf({100, 8, 0xFFFF0000u})),
		(std::vector<u32>{100, 101, 102, 100, 102, 103, 104, 105, 106, 104, 106, 107,     //
			8, 9, 10, 8, 10, 11, 12, 13, 14, 12, 14, 15,                                  //
			0xFFFF0000u, 0xFFFF0001u, 0xFFFF0002u, 0xFFFF0000u, 0xFFFF0002u, 0xFFFF0003u, //
			0xFFFF0004u, 0xFFFF0005u, 0xFFFF0006u, 0xFFFF0004u, 0xFFFF0006u, 0xFFFF0007u}));
	EXPECT_EQ(warnings.Hazards(), 0u);
}

TEST(ExpandVectorU32, Width6AlignedWithOddCount_LastRecordAfterTheVectorLoop)
{
	const CWarningRecorder warnings;
	const CExpectReports none;
	EXPECT_EQ(Expand<u32>(kQuad, RecordsOf({100, 8, 0xFFFF0000u})),
		(std::vector<u32>{100, 101, 102, 100, 102, 103, 8, 9, 10, 8, 10, 11, //
			0xFFFF0000u, 0xFFFF0001u, 0xFFFF0002u, 0xFFFF0000u, 0xFFFF0002u, 0xFFFF0003u}));
	EXPECT_EQ(warnings.Hazards(), 0u);
}

TEST(ExpandVectorU32, Width12At8Mod16With1Record_StartAndEndMeet)
{
	const CWarningRecorder warnings;
	const CExpectReports none; // the worker asserts that it ends where the output does
	for (const auto flush : {CGuardedMemory::FlushEnd, CGuardedMemory::FlushStart})
		EXPECT_EQ(Expand<u32>(kTwoQuads, RecordsOf({20}), 8, flush),
			(std::vector<u32>{20, 21, 22, 20, 22, 23, 24, 25, 26, 24, 26, 27}));
	EXPECT_EQ(warnings.Hazards(), 0u);
}

TEST(ExpandVectorU32, Width12At8Mod16_CarriesTwoLanesAcrossRecords)
{
	// Each record's last two outputs leave together with the next one's first two, under bases far apart.
	const CWarningRecorder warnings;
	const CExpectReports none;
	const SRecords records = RecordsOf({0xFFFFFFFFu, 5, 0x80000000u, 0});
	EXPECT_EQ(Expand<u32>(MakePattern(12), records, 8), PatternPlusBase(MakePattern(12), records));
	EXPECT_EQ(warnings.Hazards(), 0u);
}

TEST(ExpandVectorU32, Width12At4Mod8_WarnsAndWritesTheSame)
{
	const SRecords records = MakeRecords(7);
	for (const std::size_t address : {4u, 12u})
	{
		const CWarningRecorder warnings;
		const CExpectReports none;
		EXPECT_EQ(Expand<u32>(kTwoQuads, records, address), Expand<u32>(kTwoQuads, records, 0));
		EXPECT_EQ(warnings.Messages(),
			std::vector<std::string>{
				"Render sort: Index stream expansion (U32): sub-optimal path [16]: Unaligned dst memory"});
	}
}

// Memory for neither records nor output, whatever the width and the alignment. An output that is not aligned for the
// width's loop is warned of all the same.
TEST(ExpandVectorU32, WithoutRecords_TouchesNoMemoryAndWarnsByAlignment)
{
	const CGuardedMemory none(0);
	for (u32 width = 1; width <= 24; ++width)
	{
		const std::vector<u32> pattern(width, 0);
		for (std::size_t address = 0; address < 16; address += sizeof(u32))
		{
			SCOPED_TRACE(testing::Message() << "width " << width << " at " << address);
			const CWarningRecorder warnings;
			const CExpectReports noReports;
			const CGuardedMemory dst(0, address, CGuardedMemory::FlushStart);
			CTriangleSorter::ExpandIndices(
				TMemoryView<const u32>(pattern.data(), width), none.As<SIndexAndDepth>(), dst.As<u32>(), 0);
			EXPECT_TRUE(dst.SurroundingsIntact());

			const bool hasLoop = width == 1 || width == 3 || width == 6 || width == 12;
			const std::size_t wanted = width == 12 ? 8 : 16;
			EXPECT_EQ(warnings.Hazards(), !hasLoop || address % wanted != 0 ? 1u : 0u);
		}
	}
}

TEST(ExpandVectorU16, WithoutRecords_ReturnsBeforeAnyWorker)
{
	const CWarningRecorder warnings;
	const CExpectReports none;
	for (std::size_t address = 0; address < 16; address += sizeof(u16))
	{
		EXPECT_TRUE(Expand<u16>(kQuad, {}, address).empty());
		EXPECT_TRUE(Expand<u16>(kTwoQuads, {}, address).empty());
	}
	EXPECT_EQ(warnings.Hazards(), 0u);
}

TEST(ExpandVectorU16, Width12AtEvenAddresses_WritesPatternPlusBaseWithoutWarning)
{
	const SRecords records = MakeRecords(5);
	for (std::size_t address = 0; address < 16; address += sizeof(u16))
	{
		const CWarningRecorder warnings;
		EXPECT_EQ(Expand<u16>(kTwoQuads, records, address), PatternPlusBase(kTwoQuads, records));
		EXPECT_EQ(warnings.Hazards(), 0u);
		EXPECT_TRUE(warnings.Entries().empty());
	}
}

TEST(ExpandVector, Call_OpensTheScopeOfItsIndexType)
{
	const CWarningRecorder silent;
	const CScopeRecorder scopes;
	Expand<u32>(kQuad, MakeRecords(2));
	Expand<u16>(kTwoQuads, MakeRecords(2));
	EXPECT_EQ(scopes.Events(), (std::vector<std::string>{"+ExpandIndices<u32>", "-ExpandIndices<u32>",
								   "+ExpandIndices<u16>", "-ExpandIndices<u16>"}));
}

// Warnings.

namespace
{
struct SSite
{
	const char *m_Name;
	bool m_U16;
	const SPattern *m_Pattern;
	std::size_t m_FastAddresses; // the worker streams to their multiples
	const char *m_Key;
	const char *m_Message;
};
void PrintTo(const SSite &site, std::ostream *out)
{
	*out << site.m_Name;
}

const SSite kSites[] = {
	{"U32Width6",  false, &kQuad,     16, "[l.248] @ ../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp",
     "Render sort: Index stream expansion (U32): sub-optimal path [6]: Unaligned dst memory" },
 // 16 is what the text says.
	{"U32Width12", false, &kTwoQuads, 8,  "[l.477] @ ../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp",
     "Render sort: Index stream expansion (U32): sub-optimal path [16]: Unaligned dst memory"},
	{"U16Width6",  true,  &kQuad,     16, "[l.840] @ ../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp",
     "Render sort: Index stream expansion (U16): sub-optimal path [6]: Unaligned dst memory" },
};

class ExpandVectorWarning : public testing::TestWithParam<SSite>
{
};
} // namespace

INSTANTIATE_TEST_SUITE_P(Sites,
	ExpandVectorWarning,
	testing::ValuesIn(kSites),
	[](const testing::TestParamInfo<SSite> &site) { return std::string(site.param.m_Name); });

TEST_P(ExpandVectorWarning, UnalignedOutput_IsCountedEachTimeAndRecordedOnce)
{
	const SSite &site = GetParam();
	const SRecords records = MakeRecords(9);
	const std::vector<u32> expected = PatternPlusBase(*site.m_Pattern, records);
	for (std::size_t address = 0; address < 16; address += site.m_U16 ? 2 : 4)
	{
		SCOPED_TRACE(address);
		const CWarningRecorder warnings;
		for (u32 frame = 0; frame < 2; ++frame)
		{
			EXPECT_EQ(site.m_U16 ? Expand<u16>(*site.m_Pattern, records, address)
								 : Expand<u32>(*site.m_Pattern, records, address),
				expected);
		}

		const auto entries = warnings.Entries();
		const bool warns = address % site.m_FastAddresses != 0;
		ASSERT_EQ(entries.size(), warns ? 1u : 0u);
		EXPECT_EQ(warnings.Hazards(), warns ? 2u : 0u);
		if (warns)
		{
			EXPECT_EQ(entries[0].m_Key, site.m_Key);
			EXPECT_EQ(entries[0].m_Message, site.m_Message);
			EXPECT_EQ(entries[0].m_TouchCount, 2u);
		}
	}
}

// The 16-bit worker of width 6 streams up to index 0xFFFE. At 0xFFFF its pack saturates and lowers the record by one,
// where its other loop is exact.

TEST(ExpandVectorU16, Width6UpToIndex0xFFFE_IsExactInBothLoops)
{
	const CWarningRecorder silent;
	for (u32 largestAt = 0; largestAt < 6; ++largestAt)
	{
		for (const u32 largest : {3u, 0x7FFEu, 0x7FFFu, 0x8000u, 0xFFFEu})
		{
			// The bias comes from the largest entry, wherever it is; the fifth record is behind the last block.
			SPattern pattern = {1, 0, 2, 1, 0, 2};
			pattern[largestAt] = largest;
			const SRecords records = RecordsOf({0, 0xFFFE - largest, 0, (0xFFFE - largest) / 2, 0xFFFE - largest});
			const std::vector<u32> expected = PatternPlusBase(pattern, records);
			EXPECT_EQ(Expand<u16>(pattern, records, 0), expected) << largest << " at " << largestAt;
			EXPECT_EQ(Expand<u16>(pattern, records, 2), expected) << largest << " at " << largestAt;
		}
	}
}

TEST(ExpandVectorU16, Width6AtIndex0xFFFF_VectorLoopWritesTheRecordOneLower)
{
	const CWarningRecorder silent;
	constexpr u32 kTooHigh = 0xFFFF - 3; // with the largest entry of the quad
	for (u32 lane = 0; lane < 4; ++lane)
	{
		SCOPED_TRACE(lane);
		std::vector<u32> bases = {40, 0, 0xFFFE - 3, 7};
		bases[lane] = kTooHigh;
		const std::vector<u32> exact = PatternPlusBase(kQuad, RecordsOf(bases));
		std::vector<u32> lowered = exact;
		for (u32 j = 0; j < 6; ++j)
			--lowered[lane * 6 + j];
		EXPECT_EQ(Expand<u16>(kQuad, RecordsOf(bases), 0), lowered);
		EXPECT_EQ(Expand<u16>(kQuad, RecordsOf(bases), 2), exact);
	}
}

TEST(ExpandVectorU16, Width6AtIndex0xFFFFBehindTheLastBlock_IsExact)
{
	const CWarningRecorder silent;
	const SRecords records = RecordsOf({0, 4, 8, 12, 0xFFFF - 3});
	EXPECT_EQ(Expand<u16>(kQuad, records, 0), PatternPlusBase(kQuad, records));
}

TEST(ExpandVectorU16, Width12AtIndex0xFFFF_IsExact)
{
	const SRecords records = RecordsOf({0xFFFF - 7, 0, 0xFFFF - 7});
	EXPECT_EQ(Expand<u16>(kTwoQuads, records, 0), PatternPlusBase(kTwoQuads, records));
}

// Loops that add packed entries carry between them where a sum leaves its index type. Nobody may rely on it.

TEST(ExpandVectorU32, PackedLoopBeyond32Bits_CarriesIntoTheUpperIndexOfAPair)
{
	const CWarningRecorder silent;
	// Pairs 0 1, 2 0 and 2 3 under the base 0xFFFFFFFE: the last two carry.
	const std::vector<u32> carried = {0xFFFFFFFEu, 0xFFFFFFFFu, 0, 0xFFFFFFFFu, 0, 2};
	const SRecords record = RecordsOf({0xFFFFFFFEu});
	EXPECT_EQ(Expand<u32>(kQuad, record, 0), carried);
	EXPECT_EQ(Expand<u32>(kQuad, record, 4), carried);

	// In the vector loops lanes wrap alone.
	const SRecords records = RecordsOf({0xFFFFFFFEu, 0xFFFFFFFFu});
	EXPECT_EQ(Expand<u32>(kQuad, records, 0), PatternPlusBase(kQuad, records));
	EXPECT_EQ(Expand<u32>(kTwoQuads, records, 0), PatternPlusBase(kTwoQuads, records));
	EXPECT_EQ(Expand<u32>(kTwoQuads, records, 8), PatternPlusBase(kTwoQuads, records));

	std::vector<u32> carriedTwice = carried; // pairs 4 5, 6 4 and 6 7 carry
	for (const u32 index : {2u, 4u, 4u, 3u, 4u, 6u})
		carriedTwice.push_back(index);
	EXPECT_EQ(Expand<u32>(kTwoQuads, record, 4), carriedTwice);
}

TEST(ExpandVectorU16, PackedLoopsBeyond16Bits_CarryIntoTheNextIndexOfAWord)
{
	const CWarningRecorder silent;
	const SRecords record = RecordsOf({0xFFFE});
	// Words of two: 0 1, 2 0, 2 3.
	EXPECT_EQ(Expand<u16>(kQuad, record, 2), (std::vector<u32>{0xFFFE, 0xFFFF, 0, 0xFFFF, 0, 2}));
	// Words of four: 0 1 2 0, 2 3 4 5, 6 4 6 7.
	EXPECT_EQ(Expand<u16>(kTwoQuads, record, 0), (std::vector<u32>{0xFFFE, 0xFFFF, 0, 0xFFFF, 0, 2, 3, 4, 4, 3, 5, 6}));
}
