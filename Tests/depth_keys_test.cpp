// The keys themselves, bit for bit: which key each float and each distance has, that every loop of every fill function
// makes the same key, and that the calling thread's floating-point mode does not change it.

#include "kr_sort.h"

#include "diagnostics.h"
#include "fill_calls.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <xmmintrin.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
struct SFloatKey
{
	const char *m_Name;
	u32 m_Value; // float bits
	u32 m_Key;
};

// Ascending.
const SFloatKey kFloatKeys[] = {
	{"AllOnesNaN",           0xFFFFFFFFu, 0x00000000u},
	{"NegativeQuietNaN",     0xFFC12345u, 0x003EDCBAu},
	{"NegativeSignalingNaN", 0xFF800001u, 0x007FFFFEu},
	{"MinusInfinity",        0xFF800000u, 0x007FFFFFu},
	{"Lowest",               0xFF7FFFFFu, 0x00800000u},
	{"MinusTwo",             0xC0000000u, 0x3FFFFFFFu},
	{"MinusOne",             0xBF800000u, 0x407FFFFFu},
	{"NegativeSmallest",     0x80800000u, 0x7F7FFFFFu},
	{"NegativeDenormal",     0x80000001u, 0x7FFFFFFEu},
	{"MinusZero",            0x80000000u, 0x7FFFFFFFu}, // just below
	{"PlusZero",             0x00000000u, 0x80000000u},
	{"Denormal",             0x00000001u, 0x80000001u},
	{"LargestDenormal",      0x007FFFFFu, 0x807FFFFFu},
	{"Smallest",             0x00800000u, 0x80800000u},
	{"One",                  0x3F800000u, 0xBF800000u},
	{"Two",                  0x40000000u, 0xC0000000u},
	{"Largest",              0x7F7FFFFFu, 0xFF7FFFFFu},
	{"PlusInfinity",         0x7F800000u, 0xFF800000u},
	{"SignalingNaN",         0x7FA00001u, 0xFFA00001u}, // its payload stays, and it is not quieted
	{"QuietNaN",             0x7FC00000u, 0xFFC00000u},
};

u32 ExtractKey(u32 bits)
{
	float value;
	std::memcpy(&value, &bits, sizeof(value));
	return SRadixSortExtractorSignedFP<float>::ExtractKey(value);
}

struct SDistanceKey
{
	const char *m_Name;
	Model::SFloat3 m_Position;
	Model::SFloat3 m_Camera;
	u32 m_Key;
	u32 m_CompactedKey;
};

constexpr Model::SFloat3 kOrigin = {0, 0, 0};
constexpr u32 kOne = 0x3F800000;
constexpr u32 kEps = 0x39800000;       // 2^-12: its square is half a unit in the last place of 1
constexpr u32 kOneEps = 0x3F800800;    // 1 + 2^-12: its square is halfway between two floats,
constexpr u32 kOneEpsSqr = 0x3F801000; // and this one is even
constexpr u32 kTiny = 0x1C800000;      // 2^-70: its square, 2^-140, is a denormal
constexpr u32 kInf = 0x7F800000;

// Fused products and sums, or sums in another order, end in other bits. A NaN keeps its sign and payload and is
// quieted; of two, the first in x, y, z wins.
const SDistanceKey kDistanceKeys[] = {
	{"AtTheCamera",          {kOne, kOne, kOne},             {kOne, kOne, kOne},          0xFFFFFFFF,  0x80000000},
	{"AtTheOrigin",          kOrigin,                        {0x80000000, 0, 0x80000000}, 0xFFFFFFFF,  0x80000000},
	{"ThreeFourZero",        {0x40400000, 0xC0800000, 0},    kOrigin,                     0xBE37FFFF,  0x3E37FFFF},
	{"FiveMinusMinusTwo",    {0x40A00000, 0, 0},             {0xC0000000, 0, 0},          0xBDBBFFFF,  0x3DBBFFFF},
	{"FirstProductAlone",    {kOneEps, kEps, 0},             kOrigin,                     ~kOneEpsSqr, 0x407FEFFF},
	{"SecondProductAlone",   {kEps, kOneEps, 0},             kOrigin,                     ~kOneEpsSqr, 0x407FEFFF},
	{"LastProductAlone",     {kEps, 0, kOneEps},             kOrigin,                     ~kOneEpsSqr, 0x407FEFFF},
	{"XAndYAddFirst",        {kEps, kEps, kOne},             kOrigin,                     ~(kOne + 1), 0x407FFFFE},
	{"YAndZDoNot",           {kOne, kEps, kEps},             kOrigin,                     ~kOne,       0x407FFFFF},
	{"XAndZDoNot",           {kEps, kOne, kEps},             kOrigin,                     ~kOne,       0x407FFFFF},
	{"OnePlusTwoToMinus26",  {kOne, 0, 0},                   {0xB2800000, 0, 0},          ~kOne,       0x407FFFFF},
	{"DenormalSquare",       {kTiny, 0, 0},                  kOrigin,                     0xFFFFFDFF,  0x7FFFFDFF},
	{"DenormalSum",          {kTiny, kTiny, kTiny},          kOrigin,                     0xFFFFF9FF,  0x7FFFF9FF},
	{"DenormalDifference",   {0, 0x00800001, 0},             {0, 0x00800000, 0},          0xFFFFFFFF,  0x80000000},
	{"SquareOverflows",      {0x7F000000, 0, 0},             kOrigin,                     0x807FFFFF,  0x007FFFFF},
	{"SumOverflows",         {0x5F7FFFFF, 0x5F7FFFFF, 0},    kOrigin,                     0x807FFFFF,  0x007FFFFF},
	{"Infinity",             {0, 0xFF800000, 0},             kOrigin,                     0x807FFFFF,  0x007FFFFF},
	{"CameraAtInfinity",     {kOne, kOne, kOne},             {kInf, 0, 0},                0x807FFFFF,  0x007FFFFF},
	{"InfMinusInf",          {0, kInf, 0},                   {0, kInf, 0},                0x003FFFFF,  0x003FFFFF},
	{"MinusInfMinusSame",    {kOne, 0, 0xFF800000},          {kOne, 0, 0xFF800000},       0x003FFFFF,  0x003FFFFF},
	{"QuietNaN",             {0x7FC12345, 0, 0},             kOrigin,                     0x803EDCBA,  0xFFC12345},
	{"NegativeNaN",          {0, 0xFFC12345, 0},             kOrigin,                     0x003EDCBA,  0x003EDCBA},
	{"SignalingNaN",         {0, 0, 0x7FA00001},             kOrigin,                     0x801FFFFE,  0xFFE00001},
	{"NaNInXBeforeY",        {0x7FC00011, 0x7FC00022, 0},    kOrigin,                     0x803FFFEE,  0xFFC00011},
	{"NaNInYBeforeZ",        {kInf, 0x7FC00022, 0xFFC00033}, kOrigin,                     0x803FFFDD,  0xFFC00022},
	{"NaNInXBeforeZ",        {0xFFC00011, kInf, 0x7FC00033}, kOrigin,                     0x003FFFEE,  0x003FFFEE},
	{"InfMinusInfBeforeNaN", {kInf, 0x7FC00022, 0},          {kInf, 0, 0},                0x003FFFFF,  0x003FFFFF},
};

// Nine records: with the list 8 bytes off, a head, two groups; else two groups and a tail.
constexpr u32 kRecordCount = 9;

struct SPath
{
	u32 m_Stride;
	u32 m_AddressMod16;
	u32 m_RecordsAddressMod16;
	bool m_Compacted;
};
const SPath kPositionPaths[] = {
	{12, 0, 0, false},
	{12, 4, 0, false},
	{12, 4, 8, false},
	{12, 0, 8, false},
	{16, 0, 0, false},
	{20, 4, 8, false},
	{0,  8, 0, false},
	{0,  8, 8, false},
	{12, 0, 0, true },
	{12, 4, 8, true },
	{16, 0, 0, true },
	{0,  0, 8, true },
};
const SPath kValuePaths[] = {
	{4, 0, 0, false},
	{4, 4, 0, false},
	{4, 0, 8, false},
	{8, 0, 0, false},
	{0, 4, 0, false},
	{4, 0, 0, true },
	{8, 4, 8, true },
	{0, 0, 0, true },
};

// The same particle over and over; compacting, there is a disabled one between any two.
CFillMemory LayOutPath(
	EFill fill, const SPath &path, const Model::SFloat3 &position, const Model::SFloat3 &camera, u32 value)
{
	Model::SFillCall call = {};
	call.m_RecordCount = kRecordCount;
	call.m_RecordsAddressMod16 = path.m_RecordsAddressMod16;
	for (u32 i = 0; i < kRecordCount; ++i)
	{
		call.m_Page.m_Positions.m_Elements.push_back(position);
		call.m_Page.m_Values.m_Elements.push_back(value);
		if (path.m_Compacted)
		{
			call.m_Page.m_Positions.m_Elements.push_back(path.m_Stride == 0 ? position : Model::SFloat3{kOne, 0, 0});
			call.m_Page.m_Values.m_Elements.push_back(path.m_Stride == 0 ? value : kOne);
			call.m_Page.m_Enabled.insert(call.m_Page.m_Enabled.end(), {1, 0});
		}
		call.m_IndexList.push_back(i);
	}
	call.m_Page.m_Positions.m_Stride = call.m_Page.m_Values.m_Stride = path.m_Stride;
	call.m_Page.m_Positions.m_AddressMod16 = call.m_Page.m_Values.m_AddressMod16 = path.m_AddressMod16;
	call.m_Camera = camera;
	call.m_IndexIncrement = 1;
	call.m_MaxVertexId = kRecordCount;
	return CFillMemory(fill, call);
}

void ExpectKeyOfAllRecords(const CFillMemory &memory, u32 key)
{
	std::vector<bool> seen(kRecordCount);
	for (const Model::SRecord &record : memory.Records())
	{
		EXPECT_EQ(record.m_Key, key) << "of record " << record.m_Index;
		ASSERT_LT(record.m_Index, kRecordCount);
		seen[record.m_Index] = true;
	}
	EXPECT_EQ(std::count(seen.begin(), seen.end(), true), std::ptrdiff_t(kRecordCount));
}

// The control bits of MXCSR; the six lowest are flags that any arithmetic raises.
constexpr u32 kModeMask = 0xFFC0;

struct SHostMode
{
	const char *m_Name;
	u32 m_Mode;
};
const SHostMode kHostModes[] = {
	{"Default",            0x1F80          },
	{"DenormalsFlushed",   0x1F80 | 0x8040 },
	{"ResultsFlushed",     0x1F80 | 0x8000 },
	{"RoundDown",          0x1F80 | 0x2000 },
	{"RoundUp",            0x1F80 | 0x4000 },
	{"RoundTowardZero",    0x1F80 | 0x6000 },
	{"ExceptionsUnmasked", 0x0000          },
	{"InvalidUnmasked",    0x1F80 & ~0x0080},
	{"EverythingAtOnce",   0x8040 | 0x4000 },
};

// Runs under the mode and returns the mode that the call leaves.
u32 RunInMode(const CFillMemory &memory, u32 mode)
{
	const u32 before = _mm_getcsr();
	_mm_setcsr(mode);
	memory.Run();
	const u32 after = _mm_getcsr();
	_mm_setcsr(before);
	return after & kModeMask;
}
} // namespace

TEST(DepthKeys, FloatExtractor_MapsToOrderedUnsigned)
{
	for (const SFloatKey &row : kFloatKeys)
		EXPECT_EQ(ExtractKey(row.m_Value), row.m_Key) << row.m_Name;
}

TEST(DepthKeys, FloatTable_Ascends)
{
	for (std::size_t i = 1; i < std::size(kFloatKeys); ++i)
		EXPECT_LT(kFloatKeys[i - 1].m_Key, kFloatKeys[i].m_Key) << kFloatKeys[i].m_Name;
}

// The order of floats by sign and magnitude, NaNs beyond the infinities of their sign.
TEST(DepthKeys, HostileFloats_KeepTheirOrder)
{
	std::vector<u32> values;
	for (const SFloatKey &row : kFloatKeys)
		values.insert(values.end(), {row.m_Value, row.m_Value + 1, row.m_Value - 1});
	Model::CRandom random(1);
	for (u32 i = 0; i < 1000; ++i)
		values.push_back(random.Next());

	const auto rank = [](u32 bits)
	{
		const s64 magnitude = bits & 0x7FFFFFFFu;
		return bits >> 31 != 0 ? -1 - magnitude : magnitude;
	};
	for (const u32 a : values)
	{
		for (const u32 b : values)
			ASSERT_EQ(ExtractKey(a) < ExtractKey(b), rank(a) < rank(b)) << std::hex << a << ", " << b;
	}
}

TEST(DepthKeys, ValuesOnEveryPath_HaveTheFloatKey)
{
	const CWarningRecorder quiet;
	const CExpectReports none;
	for (const SFloatKey &row : kFloatKeys)
	{
		for (const EFill fill : {EFill::ValuesInSequence, EFill::ValuesByList})
		{
			for (const SPath &path : kValuePaths)
			{
				SCOPED_TRACE(
					testing::Message() << row.m_Name << ", function " << int(fill) << ", path " << &path - kValuePaths);
				const CFillMemory memory = LayOutPath(fill, path, kOrigin, kOrigin, row.m_Value);
				memory.Run();
				ExpectKeyOfAllRecords(memory, row.m_Key);
			}
		}
	}
}

TEST(DepthKeys, PositionsOnEveryPath_HaveTheDistanceKey)
{
	const CWarningRecorder quiet;
	const CExpectReports none;
	for (const SDistanceKey &row : kDistanceKeys)
	{
		for (const EFill fill : {EFill::PositionsInSequence, EFill::PositionsByList})
		{
			for (const SPath &path : kPositionPaths)
			{
				SCOPED_TRACE(testing::Message()
							 << row.m_Name << ", function " << int(fill) << ", path " << &path - kPositionPaths);
				const CFillMemory memory = LayOutPath(fill, path, row.m_Position, row.m_Camera, 0);
				memory.Run();
				ExpectKeyOfAllRecords(memory, path.m_Compacted ? row.m_CompactedKey : row.m_Key);
			}
		}
	}
}

TEST(DepthKeys, HostsFloatModes_ChangeNoBitAndComeBack)
{
	const CWarningRecorder quiet;
	const CExpectReports none;
	for (const SHostMode &mode : kHostModes)
	{
		for (const SDistanceKey &row : kDistanceKeys)
		{
			for (const SPath &path : kPositionPaths)
			{
				const bool byList = (&path - kPositionPaths) % 2 != 0;
				const EFill fill = byList ? EFill::PositionsByList : EFill::PositionsInSequence;
				SCOPED_TRACE(
					testing::Message() << mode.m_Name << ", " << row.m_Name << ", path " << &path - kPositionPaths);
				const CFillMemory memory = LayOutPath(fill, path, row.m_Position, row.m_Camera, 0);
				EXPECT_EQ(RunInMode(memory, mode.m_Mode), mode.m_Mode);
				ExpectKeyOfAllRecords(memory, path.m_Compacted ? row.m_CompactedKey : row.m_Key);
			}
		}
		for (const SFloatKey &row : kFloatKeys)
		{
			for (const SPath &path : kValuePaths)
			{
				SCOPED_TRACE(
					testing::Message() << mode.m_Name << ", " << row.m_Name << ", path " << &path - kValuePaths);
				const CFillMemory memory = LayOutPath(EFill::ValuesInSequence, path, kOrigin, kOrigin, row.m_Value);
				EXPECT_EQ(RunInMode(memory, mode.m_Mode), mode.m_Mode);
				ExpectKeyOfAllRecords(memory, row.m_Key);
			}
		}
	}
}

// The compacted key is the distance key without its top bit, so its records all come first.
TEST(DepthKeys, CompactedDistances_SortFarthestFirstBelowAllOthers)
{
	std::vector<u32> keys, compactedKeys;
	for (u32 exponent = 70; exponent < 250; ++exponent)
	{
		const Model::SFloat3 position = {0, exponent << 23, 0};
		for (const bool compacted : {false, true})
		{
			const CFillMemory memory =
				LayOutPath(EFill::PositionsInSequence, {12, 0, 0, compacted}, position, kOrigin, 0);
			memory.Run();
			(compacted ? compactedKeys : keys).push_back(memory.Records()[0].m_Key);
		}
	}
	for (std::size_t i = 0; i < keys.size(); ++i)
		EXPECT_EQ(compactedKeys[i], keys[i] & 0x7FFFFFFFu) << i;
	EXPECT_TRUE(std::is_sorted(keys.rbegin(), keys.rend()));
	EXPECT_TRUE(std::is_sorted(compactedKeys.rbegin(), compactedKeys.rend()));
	EXPECT_LT(compactedKeys.front(), keys.back());
}
