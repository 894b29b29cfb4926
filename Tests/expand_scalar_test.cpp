// Expansion of sorted records into indices: which worker a call reaches, and the workers of width 1, width 3 and any
// other width, for both index types. Inputs are read-only, and buffers lie flush against memory that is not there.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "expand_calls.h"
#include "index_types.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using namespace Vexmoor;
using namespace Support;

namespace
{
using Support::Expand;

const char *const kSource = "../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp";
const char *const kMisalignedRecords = "Mem::IsAligned<0x10>(it)";

std::vector<u32> Expand(bool u16Output, const SPattern &pattern, const SRecords &records, std::size_t dstAddress)
{
	return u16Output ? Expand<u16>(pattern, records, dstAddress) : Expand<u32>(pattern, records, dstAddress);
}

// Width 1 is legal with entry 0 alone.
SPattern MakePattern(u32 width)
{
	SPattern pattern;
	for (u32 j = 0; j < width; ++j)
		pattern.push_back(width == 1 ? 0 : (width - j) * 7 % 101);
	return pattern;
}

bool Untouched(const CGuardedMemory &memory)
{
	const auto isInitial = [](unsigned char byte) { return byte == CGuardedMemory::kInitialByte; };
	return std::all_of(memory.Data(), memory.Data() + memory.Size(), isInitial) && memory.SurroundingsIntact();
}

u32 Bits(float value)
{
	u32 bits;
	std::memcpy(&bits, &value, sizeof(bits));
	return bits;
}

template<typename _Index>
class ExpandScalar : public testing::Test
{
protected:
	CWarningRecorder m_Warnings;
};

TYPED_TEST_SUITE(ExpandScalar, SIndexTypes, SIndexName);
} // namespace

TYPED_TEST(ExpandScalar, EveryWidthCountAndAddress_WritesPatternPlusBaseAlone)
{
	const CExpectReports none;
	for (const u32 width : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 9u, 10u, 11u, 13u, 40u})
	{
		const SPattern pattern = MakePattern(width);
		const u32 maxCount = width == 1 || width == 3 ? 40 : 5; // blocks of four or eight records, or no blocks
		for (u32 count = 0; count <= maxCount; ++count)
		{
			const SRecords records = MakeRecords(count);
			const std::vector<u32> expected = PatternPlusBase(pattern, records);
			for (std::size_t address = 0; address < 16; address += sizeof(TypeParam))
			{
				for (const auto flush : {CGuardedMemory::FlushEnd, CGuardedMemory::FlushStart})
					ASSERT_EQ(Expand<TypeParam>(pattern, records, address, flush), expected)
						<< "width " << width << ", " << count << " records, output at " << address
						<< " modulo 16, flush " << flush;
			}
		}
	}
}

TYPED_TEST(ExpandScalar, LongLists_WritePatternPlusBase)
{
	const CExpectReports none;
	for (const u32 width : {1u, 3u, 5u})
	{
		const SRecords records = MakeRecords(4099);
		EXPECT_EQ(Expand<TypeParam>(MakePattern(width), records), PatternPlusBase(MakePattern(width), records));
	}
}

TYPED_TEST(ExpandScalar, Width1_WritesBasesInRecordOrder)
{
	const CExpectReports none;
	const std::vector<u32> bases = {5, 0, 65534, 32768, 32767, 1, 5, 40000, 3, 2};
	EXPECT_EQ(Expand<TypeParam>({0}, RecordsOf(bases)), bases);
	EXPECT_EQ(Expand<TypeParam>({0}, RecordsOf(bases), sizeof(TypeParam)), bases);
}

TYPED_TEST(ExpandScalar, Width3With5RecordsAligned_VectorStepAndTailAgree)
{
	// Of 32-bit indices, four records fill a block and one is left over.
	const CExpectReports none;
	EXPECT_EQ(Expand<TypeParam>({2, 0, 1}, RecordsOf({10, 40, 20, 50, 30})),
		(std::vector<u32>{12, 10, 11, 42, 40, 41, 22, 20, 21, 52, 50, 51, 32, 30, 31}));
	EXPECT_TRUE(this->m_Warnings.Entries().empty());
}

TYPED_TEST(ExpandScalar, RecordsAt8Mod16_ReportedOnceAndRunOn)
{
	// A width whose worker reads records one by one; the others go on to aligned loads.
	CExpectReports reports({kMisalignedRecords});
	const SRecords records = MakeRecords(3);
	const SPattern pattern = MakePattern(5);
	EXPECT_EQ(Expand<TypeParam>(pattern, records, 0, CGuardedMemory::FlushEnd, 8), PatternPlusBase(pattern, records));
	for (const Support::SRecordedReport &report : reports.Reports())
	{
		EXPECT_EQ(report.m_File, kSource);
		EXPECT_NE(report.m_Function.find("ExpandIndices"), std::string::npos) << report.m_Function;
		EXPECT_EQ(report.m_ExpandedConditionText, report.m_ConditionText);
		EXPECT_EQ(report.m_Message, report.m_ConditionText);
	}
}

TYPED_TEST(ExpandScalar, Call_OpensItsScope)
{
	const bool u16Output = std::is_same_v<TypeParam, u16>;
	const std::string name = u16Output ? "ExpandIndices<u16>" : "ExpandIndices<u32>";
	// The scope stands before every early return.
	for (const u32 recordCount : {0u, 4u})
	{
		const CScopeRecorder scopes;
		Expand<TypeParam>({0, 1, 2}, MakeRecords(recordCount));
		ASSERT_EQ(scopes.Events(), (std::vector<std::string>{"+" + name, "-" + name}));

		const Profiler::SNodeDescriptor &node = *scopes.Nodes().front();
		EXPECT_EQ(Bits(node.m_Color.x()), Bits(0.1f));
		EXPECT_EQ(Bits(node.m_Color.y()), Bits(0.5f));
		EXPECT_EQ(Bits(node.m_Color.z()), Bits(0.9f));
		EXPECT_EQ(node.m_Flags, 0u);
	}
}

TYPED_TEST(ExpandScalar, SeveralThreads_EachFillItsOwnOutput)
{
	// They share the records, and with them the sites' flags, the scope and the warnings.
	const SRecords records = MakeRecords(37);
	std::vector<std::vector<u32>> outputs(4);
	std::vector<std::thread> threads;
	for (u32 t = 0; t < outputs.size(); ++t)
	{
		threads.emplace_back(
			[&records, &output = outputs[t], t]
			{
				for (u32 turn = 0; turn < 20; ++turn)
					output = Expand<TypeParam>(MakePattern(1 + t), records, turn % 2 * sizeof(TypeParam));
			});
	}
	for (std::thread &thread : threads)
		thread.join();
	for (u32 t = 0; t < outputs.size(); ++t)
		EXPECT_EQ(outputs[t], PatternPlusBase(MakePattern(1 + t), records));
}

// Warnings.

namespace
{
struct SSite
{
	const char *m_Name;
	bool m_U16;
	u32 m_Width;
	const char *m_Key;
	const char *m_Path; // the end of the text, from the type on
	bool m_WarnsWhenAligned;
};
void PrintTo(const SSite &site, std::ostream *out)
{
	*out << site.m_Name;
}

// Both workers of width 3 say "(U32)" and "[6]": only their keys tell them apart.
const SSite kSites[] = {
	{"U32Width1",  false, 1,  "[l.556]",  "(U32): sub-optimal path [1]: Unaligned dst memory", false},
	{"U32Width3",  false, 3,  "[l.328]",  "(U32): sub-optimal path [6]: Unaligned dst memory", false},
	{"U32Width2",  false, 2,  "[l.579]",  "(U32): sub-optimal path [2]",                       true },
	{"U32Width5",  false, 5,  "[l.579]",  "(U32): sub-optimal path [5]",                       true },
	{"U32Width13", false, 13, "[l.579]",  "(U32): sub-optimal path [13]",                      true },
	{"U16Width1",  true,  1,  "[l.1148]", "(U16): sub-optimal path [1]: Unaligned dst memory", false},
	{"U16Width3",  true,  3,  "[l.925]",  "(U32): sub-optimal path [6]: Unaligned dst memory", false},
	{"U16Width4",  true,  4,  "[l.1200]", "(U16): sub-optimal path [4]",                       true },
	{"U16Width11", true,  11, "[l.1200]", "(U16): sub-optimal path [11]",                      true },
};

class ExpandScalarWarning : public testing::TestWithParam<SSite>
{
};
} // namespace

INSTANTIATE_TEST_SUITE_P(Sites,
	ExpandScalarWarning,
	testing::ValuesIn(kSites),
	[](const testing::TestParamInfo<SSite> &site) { return std::string(site.param.m_Name); });

TEST_P(ExpandScalarWarning, SlowPath_IsCountedEachTimeAndRecordedOnce)
{
	const SSite &site = GetParam();
	const SRecords records = MakeRecords(9);
	const SPattern pattern = MakePattern(site.m_Width);
	for (std::size_t address = 0; address < 16; address += site.m_U16 ? 2 : 4)
	{
		SCOPED_TRACE(address);
		const CWarningRecorder warnings;
		for (u32 frame = 0; frame < 3; ++frame)
			EXPECT_EQ(Expand(site.m_U16, pattern, records, address), PatternPlusBase(pattern, records));

		const auto entries = warnings.Entries();
		const bool warns = site.m_WarnsWhenAligned || address != 0; // the generic workers warn on every call
		ASSERT_EQ(entries.size(), warns ? 1u : 0u);
		EXPECT_EQ(warnings.Hazards(), warns ? 3u : 0u);
		if (warns)
		{
			EXPECT_EQ(entries[0].m_Key, std::string(site.m_Key) + " @ " + kSource);
			EXPECT_EQ(entries[0].m_Message, std::string("Render sort: Index stream expansion ") + site.m_Path);
			EXPECT_EQ(entries[0].m_TouchCount, 3u);
		}
	}
}

TEST(ExpandScalarWarnings, SameTextAtThreeSites_ThreeEntries)
{
	const CWarningRecorder warnings;
	const SRecords records = MakeRecords(2);
	Expand<u32>({0, 1, 2}, records, 4);
	Expand<u16>({0, 1, 2}, records, 2);
	Expand<u32>({0, 1, 2, 0, 2, 3}, records, 4);

	EXPECT_EQ(warnings.Sites(), (std::vector<int>{328, 925, 248}));
	const std::string text = "Render sort: Index stream expansion (U32): sub-optimal path [6]: Unaligned dst memory";
	EXPECT_EQ(warnings.Messages(), std::vector<std::string>(3, text));
}

TEST(ExpandScalarWarnings, GenericWidthsOneAfterAnother_TheFirstTextStays)
{
	// One site, one key: the collection keeps what it heard first, and counts the rest.
	const CWarningRecorder warnings;
	for (const u32 width : {5u, 7u, 2u})
		Expand<u32>(MakePattern(width), MakeRecords(1));
	EXPECT_EQ(warnings.Messages(),
		std::vector<std::string>{"Render sort: Index stream expansion (U32): sub-optimal path [5]"});
	EXPECT_EQ(warnings.Hazards(), 3u);
}

TEST(ExpandScalarWarnings, NoRecords_OnlyThe32BitGenericWorkerWarns)
{
	// It warns before it looks at the count. Whether widths 1 and 3 do so of an unaligned output is not laid down.
	for (const u32 width : {1u, 2u, 3u, 5u, 13u})
	{
		SCOPED_TRACE(width);
		const bool generic = width != 1 && width != 3;
		const CWarningRecorder warnings;
		Expand<u32>(MakePattern(width), {});
		EXPECT_EQ(warnings.Sites(), generic ? std::vector<int>{579} : std::vector<int>());
		EXPECT_EQ(warnings.Hazards(), generic ? 1u : 0u);
	}

	// 16-bit calls return before they pick a worker.
	const CWarningRecorder warnings;
	for (const u32 width : {1u, 2u, 3u, 5u, 13u})
		Expand<u16>(MakePattern(width), {}, 2);
	EXPECT_EQ(warnings.Hazards(), 0u);
	EXPECT_TRUE(warnings.Entries().empty());
}

// Counts and patterns at the limits.

TYPED_TEST(ExpandScalar, Width0_NothingIsWrittenAndOnly32BitsReport)
{
	// The records' alignment is asserted first, by both.
	const std::vector<std::string> verify(std::is_same_v<TypeParam, u32> ? 1 : 0, "patternWidth > 0");
	std::vector<std::string> verifyBehindAlignment = verify;
	verifyBehindAlignment.insert(verifyBehindAlignment.begin(), kMisalignedRecords);

	const CGuardedMemory dst(64);
	for (const u32 recordAddress : {0u, 8u})
	{
		const CExpectReports reports(recordAddress == 0 ? verify : verifyBehindAlignment);
		const CGuardedMemory records = ReadOnly(MakeRecords(4), recordAddress);
		CTriangleSorter::ExpandIndices({}, records.As<SIndexAndDepth>(), dst.As<TypeParam>(), 4);
	}
	EXPECT_TRUE(Untouched(dst));
	EXPECT_EQ(this->m_Warnings.Hazards(), 0u);
}

TEST(ExpandScalarCounts, ProductWrapsTo0_NothingIsWritten)
{
	// 2 * 0x80000000 is 0 in 32 bits: there are no indices to write, and no record is looked at.
	const CExpectReports none;
	const CWarningRecorder warnings;
	const CGuardedMemory pattern = ReadOnly(SPattern{0, 1}, 8);
	const CGuardedMemory records(0);
	const CGuardedMemory dst(0);
	const TMemoryView<const u32> view(pattern.As<u32>(), 2);
	CTriangleSorter::ExpandIndices(view, records.As<SIndexAndDepth>(), dst.As<u16>(), 0x80000000u);
	EXPECT_EQ(warnings.Hazards(), 0u);
	CTriangleSorter::ExpandIndices(view, records.As<SIndexAndDepth>(), dst.As<u32>(), 0x80000000u);
	EXPECT_EQ(warnings.Sites(), std::vector<int>{579});
	EXPECT_TRUE(dst.SurroundingsIntact());
}

TEST(ExpandU32, Width1WithAnotherEntry_ReportsAndWritesBases)
{
	const CWarningRecorder warnings;
	const std::vector<u32> bases = {4, 1, 9, 2, 7};
	CExpectReports reports({"indexPattern[0] == 0"});
	EXPECT_EQ(Expand<u32>({7}, RecordsOf(bases)), bases);
	for (const Support::SRecordedReport &report : reports.Reports())
		EXPECT_EQ(report.m_Message, "An index pattern of width 1 should have its indexPattern[0] to 0");
}

TEST(ExpandU16, Width1WithAnotherEntry_ReportsAndWritesBases)
{
	const CWarningRecorder warnings;
	const std::vector<u32> bases = {4, 1, 9, 2, 7, 8, 3, 5, 6, 0};
	const CExpectReports reports({"indexPattern.Count() == 1 && indexPattern[0] == 0"});
	EXPECT_EQ(Expand<u16>({7}, RecordsOf(bases)), bases);
}

TEST(ExpandU32, SumsBeyond32Bits_WrapInEveryLoop)
{
	const CWarningRecorder warnings;
	// At address 0 a block of four and a single record, at 4 one by one.
	const SPattern pattern3 = {2, 0, 0xFFFFFFFFu};
	const SPattern pattern5 = {1, 0, 2, 0x80000000u, 0xFFFFFFFFu};
	const SRecords records = RecordsOf({0xFFFFFFFFu, 0xFFFFFFFEu, 0x80000000u, 0, 0xFFFFFFFFu});
	for (const std::size_t address : {0u, 4u})
	{
		EXPECT_EQ(Expand<u32>({0}, records, address), PatternPlusBase({0}, records));
		EXPECT_EQ(Expand<u32>(pattern3, records, address), PatternPlusBase(pattern3, records));
		EXPECT_EQ(Expand<u32>(pattern5, records, address), PatternPlusBase(pattern5, records));
	}
}

// Narrowing to 16 bits: exact up to 0xFFFF. Nobody may rely on what comes beyond, but it stays as it is.

TEST(ExpandU16, Index0xFFFF_IsWrittenByEveryLoop)
{
	const CWarningRecorder warnings;
	// At address 0 from eight records on there are blocks, at 2 there are none.
	for (const std::size_t address : {0u, 2u})
	{
		for (const u32 count : {1u, 2u, 3u, 8u, 9u, 24u})
		{
			EXPECT_EQ(
				Expand<u16>({0}, RecordsOf(std::vector<u32>(count, 0xFFFF)), address), std::vector<u32>(count, 0xFFFF));
			EXPECT_EQ(Expand<u16>({5, 5, 5}, RecordsOf(std::vector<u32>(count, 0xFFFA)), address),
				std::vector<u32>(count * 3, 0xFFFF));
			EXPECT_EQ(Expand<u16>({9, 9, 9, 9}, RecordsOf(std::vector<u32>(count, 0xFFF6)), address),
				std::vector<u32>(count * 4, 0xFFFF));
		}
	}
}

TEST(ExpandU16, Width1BasesBeyond0xFFFF_SaturateInTheVectorLoopAlone)
{
	const CWarningRecorder warnings;
	// Bases above 0x7FFF go through the saturating pack as negative numbers: their low halves come out if they are
	// negative ones too, else the lowest there is. One by one, all low halves come out.
	const struct
	{
		u32 m_Base, m_Vector, m_Scalar;
	} rows[] = {
		{0x7FFF,     0x7FFF, 0x7FFF},
		{0x8000,     0x8000, 0x8000},
		{0x10000,    0x8000, 0x0000},
		{0x12345,    0x8000, 0x2345},
		{0x17FFF,    0x8000, 0x7FFF},
		{0x18000,    0x8000, 0x8000},
		{0x1ABCD,    0xABCD, 0xABCD},
		{0x7FFFFFFF, 0xFFFF, 0xFFFF},
	};
	for (const auto &row : rows)
	{
		SCOPED_TRACE(row.m_Base);
		for (u32 lane = 0; lane < 8; ++lane)
		{
			std::vector<u32> bases = {1, 2, 3, 4, 5, 6, 7, 8};
			bases[lane] = row.m_Base;
			std::vector<u32> expected = bases;
			expected[lane] = row.m_Vector;
			EXPECT_EQ(Expand<u16>({0}, RecordsOf(bases), 0), expected);
			expected[lane] = row.m_Scalar;
			EXPECT_EQ(Expand<u16>({0}, RecordsOf(bases), 2), expected);
		}
	}
}

TEST(ExpandU16, Width3BasesBeyond0xFFFF_LeakIntoOddOutputsOfTheVectorLoopAlone)
{
	const CWarningRecorder warnings;
	const SPattern pattern = {0, 1, 2};
	const SRecords records = RecordsOf({16, 32, 0x40030, 64, 80, 96, 112, 128});
	std::vector<u32> expected = PatternPlusBase(pattern, records);
	for (u32 &index : expected)
		index &= 0xFFFF;
	EXPECT_EQ(Expand<u16>(pattern, records, 2), expected);

	// Outputs are packed by twos. The base of record 2 is the even one of pairs 6, 7 and 8, 9, the latter with record
	// 3.
	expected[7] = (0x30 | 4) + 1;
	expected[9] = 64 | 4;
	EXPECT_EQ(Expand<u16>(pattern, records, 0), expected);
}

TEST(ExpandU16, ScalarLoopsBeyond0xFFFF_KeepTheLow16Bits)
{
	const CWarningRecorder warnings;
	const SRecords records = RecordsOf({0x1FFFF, 0xFFFFFFFFu, 0xABCD1234u, 0x10000});
	for (const SPattern &pattern : {
			 SPattern{0x10001, 2,       0xFFFF},
             SPattern{ 1,      2, 0x20003, 0xFFFF}
    })
	{
		std::vector<u32> expected = PatternPlusBase(pattern, records);
		for (u32 &index : expected)
			index &= 0xFFFF;
		for (const std::size_t address : {0u, 6u}) // four records are too few for a block of width 3
			EXPECT_EQ(Expand<u16>(pattern, records, address), expected);
	}
}
