// Expansion with the quads of every particle in back-to-front order, for both index types. Inputs are read-only, and
// buffers lie flush against memory that is not there.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "guarded_memory.h"
#include "index_types.h"
#include "random_scene.h"
#include "reference_model.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

using namespace Vexmoor;
using Model::SFloat3;
using Model::SFloat4;
using Model::SRecord;
using Support::CExpectReports;
using Support::CGuardedMemory;
using Support::CReportRecorder;
using Support::CScopeRecorder;
using Support::CWarningRecorder;
using Support::ReadOnly;

namespace
{
constexpr u32 kInfinity = 0x7F800000u;
constexpr u32 kOne = 0x3F800000u;

u32 Bits(float value)
{
	u32 bits;
	std::memcpy(&bits, &value, sizeof(bits));
	return bits;
}

// The arguments of a call as bits, so that no float is touched on its way.
struct SQuadCall
{
	std::vector<u32> m_Pattern;
	std::vector<SFloat4> m_Centers; // w is not for reading
	std::vector<SRecord> m_Records;
	u32 m_Vpp = 4;
	SFloat3 m_Camera = {0, 0, 0};

	// What is not an argument.
	std::size_t m_CentersAddress = 0;
	std::size_t m_RecordAddress = 0;
	std::size_t m_DstAddress = 0;
	CGuardedMemory::EFlush m_Flush = CGuardedMemory::FlushEnd;
	u32 m_CentersOutOfView = 0; // the last ones are in memory, but the view does not say so
};

// The indices of one call, in a buffer of exactly their size. What is not written stays kUntouched.
template<typename _Index>
std::vector<u32> ExpandQuads(const SQuadCall &call)
{
	const std::size_t patternSize = call.m_Pattern.size() * sizeof(u32);
	const CGuardedMemory pattern = ReadOnly(call.m_Pattern, (16 - patternSize % 16) % 16);
	const CGuardedMemory centers = ReadOnly(call.m_Centers, call.m_CentersAddress);
	const CGuardedMemory records = ReadOnly(call.m_Records, call.m_RecordAddress);
	const std::size_t count = call.m_Pattern.size() * call.m_Records.size();
	const CGuardedMemory dst(count * sizeof(_Index), call.m_DstAddress, call.m_Flush);
	CFloat3 camera;
	std::memcpy(&camera[0], &call.m_Camera, sizeof(camera));

	CTriangleSorter::ExpandAndSortIndices({pattern.As<u32>(), u32(call.m_Pattern.size())},
		{centers.As<CFloat4>(), u32(call.m_Centers.size()) - call.m_CentersOutOfView}, camera,
		records.As<SIndexAndDepth>(), dst.As<_Index>(), u32(call.m_Records.size()), call.m_Vpp);
	EXPECT_TRUE(dst.SurroundingsIntact());
	return {dst.As<_Index>(), dst.As<_Index>() + count};
}

template<typename _Index>
constexpr u32 kUntouched = _Index(0xCDCDCDCDu);

// What the model writes into such a buffer.
template<typename _Index>
std::vector<u32> FromModel(const SQuadCall &call)
{
	Model::SWarnings warnings;
	std::vector<u32> out;
	for (const std::optional<u32> &index :
		Model::ExpandAndSortIndices(std::is_same_v<_Index, u16> ? Model::EIndexType::U16 : Model::EIndexType::U32,
			call.m_Pattern, call.m_Centers, call.m_Camera, call.m_Records, call.m_Vpp, warnings))
		out.push_back(index.value_or(kUntouched<_Index>));
	return out;
}

// A quad's centre, with no number for w.
SFloat4 At(float x, float y = 0.0f, float z = 0.0f)
{
	return {Bits(x), Bits(y), Bits(z), 0x7FC00000u};
}

std::vector<u32> Iota(u32 first, u32 count)
{
	std::vector<u32> values;
	for (u32 i = 0; i < count; ++i)
		values.push_back(first + i);
	return values;
}

// One particle at vertex 0: its pattern counts from 0, so that index / 6 tells which quad it is of.
SQuadCall OneParticle(const std::vector<SFloat4> &centers)
{
	SQuadCall call;
	call.m_Pattern = Iota(0, u32(centers.size()) * 6);
	call.m_Centers = centers;
	call.m_Records = {
		{0xDEADBEEFu, 0}
    };
	return call;
}

// The output of that particle when its quads are drawn in this order.
std::vector<u32> QuadsInOrder(const std::vector<u32> &quads)
{
	std::vector<u32> out;
	for (const u32 quad : quads)
	{
		for (u32 vertex = 0; vertex < 6; ++vertex)
			out.push_back(quad * 6 + vertex);
	}
	return out;
}

// Particles in no order, vertices that are not a particle's first among them, and as many centres as are read.
SQuadCall RandomCall(u32 quadCount, u32 rest, u32 recordCount, u32 seed)
{
	Model::CRandom random(seed);
	const u32 particleCount = recordCount + 2;
	SQuadCall call;
	call.m_Vpp = random.Between(1, 30);
	for (u32 j = 0; j < quadCount * 6 + rest; ++j)
		call.m_Pattern.push_back(random.Below(200));
	for (u32 i = 0; i < (particleCount - 1) * 16 + quadCount; ++i)
	{
		const u32 x = Bits(float(random.Below(9)) - 4.0f);
		const u32 y = Bits(float(random.Below(9)) - 4.0f);
		const u32 z = Bits(float(random.Below(900)) * 0.0625f);
		call.m_Centers.push_back({x, y, z, random.Next()});
	}
	for (u32 r = 0; r < recordCount; ++r)
		call.m_Records.push_back({random.Next(), random.Below(particleCount * call.m_Vpp)});
	call.m_Camera = {Bits(0.5f), Bits(-1.0f), Bits(2.0f)};
	return call;
}

// The same with any bits for centres and camera: NaNs of both signs, infinities and denormals among them.
SQuadCall RandomCallOfAnyBits(u32 quadCount, u32 recordCount, u32 seed)
{
	SQuadCall call = RandomCall(quadCount, 0, recordCount, seed);
	Model::CRandom random(seed);
	const auto anyBits = [&random]
	{
		constexpr u32 kExponentBits = 0x7F800000u;
		const u32 bits = random.Next();
		return random.Below(4) != 0 ? bits : random.Below(2) != 0 ? bits | kExponentBits : bits & ~kExponentBits;
	};
	for (SFloat4 &center : call.m_Centers)
		center = {anyBits(), anyBits(), anyBits(), anyBits()};
	if (seed % 2 != 0)
		call.m_Camera = {anyBits(), anyBits(), anyBits()};
	return call;
}

template<typename _Index>
class ExpandQuadsTest : public testing::Test
{
protected:
	static constexpr bool kU16 = std::is_same_v<_Index, u16>;
	CWarningRecorder m_Warnings;
};

TYPED_TEST_SUITE(ExpandQuadsTest, Support::SIndexTypes, Support::SIndexName);
} // namespace

TYPED_TEST(ExpandQuadsTest, 1To16QuadsEveryRest_WritesLikeTheModel)
{
	u32 seed = 1;
	for (u32 quadCount = 1; quadCount <= 16; ++quadCount)
	{
		for (u32 rest = 0; rest < 6; ++rest, ++seed)
		{
			const bool tooMany = this->kU16 && quadCount == 16; // for the report, though sixteen numbers fit in 4 bits
			const CExpectReports reports(std::vector<std::string>(tooMany ? 1 : 0, "quadCount < 16"));
			SQuadCall call = RandomCall(quadCount, rest, 1 + seed % 7, seed);
			call.m_CentersAddress = seed * 4 % 16;
			call.m_DstAddress = seed * sizeof(TypeParam) % 16;
			call.m_Flush = seed % 5 == 0 ? CGuardedMemory::FlushStart : CGuardedMemory::FlushEnd;
			EXPECT_EQ(ExpandQuads<TypeParam>(call), FromModel<TypeParam>(call))
				<< quadCount << " quads and " << rest << " entries, seed " << seed;
		}
	}
}

// Particles are put in order sixteen at a time, or as many as a register has lanes.
TYPED_TEST(ExpandQuadsTest, EveryCountOfRecordsUpTo50_WritesLikeTheModel)
{
	const CExpectReports none;
	for (const u32 quadCount : {1u, 2u, 3u, 4u, 7u, 15u})
	{
		for (u32 recordCount = 1; recordCount <= 50; ++recordCount)
		{
			SQuadCall call = RandomCall(quadCount, recordCount % 3, recordCount, recordCount);
			call.m_DstAddress = recordCount * sizeof(TypeParam) % 16;
			EXPECT_EQ(ExpandQuads<TypeParam>(call), FromModel<TypeParam>(call))
				<< quadCount << " quads, " << recordCount << " records";
		}
	}
}

TYPED_TEST(ExpandQuadsTest, CentersOfAnyBits_WritesLikeTheModel)
{
	const CExpectReports none;
	for (u32 seed = 1; seed <= 150; ++seed)
	{
		const SQuadCall call = RandomCallOfAnyBits(1 + seed % 15, 1 + seed % 40, seed);
		EXPECT_EQ(ExpandQuads<TypeParam>(call), FromModel<TypeParam>(call)) << "seed " << seed;
	}
}

TYPED_TEST(ExpandQuadsTest, OneQuad_EqualsExpandIndices)
{
	const CExpectReports none;
	SQuadCall call = RandomCall(1, 0, 23, 99);
	std::vector<SIndexAndDepth> records;
	for (const SRecord &record : call.m_Records)
		records.push_back({record.m_Key, record.m_Index});
	const CGuardedMemory recordMemory = ReadOnly(records, 0);
	std::vector<TypeParam> expected(records.size() * 6);
	CTriangleSorter::ExpandIndices({call.m_Pattern.data(), 6}, recordMemory.As<SIndexAndDepth>(), expected.data(), 23);
	EXPECT_EQ(ExpandQuads<TypeParam>(call), std::vector<u32>(expected.begin(), expected.end()));
}

TYPED_TEST(ExpandQuadsTest, TwoQuadsTheSecondFarther_EveryParticleStartsWithTheSecond)
{
	const CExpectReports none;
	// Sixteen slots per particle, of which two are used; the camera is at 0.
	SQuadCall call = OneParticle({At(1), At(2)});
	call.m_Centers.resize(3 * 16, At(0));
	call.m_Centers[16] = At(0, -3, 0);
	call.m_Centers[17] = At(0, 0, 4);
	call.m_Centers[32] = At(5);
	call.m_Centers[33] = At(5, 1);
	call.m_Records = {
		{1, 8},
        {2, 0},
        {3, 4}
    };
	std::vector<u32> expected;
	for (const u32 base : {8u, 0u, 4u})
	{
		for (const u32 first : {6u, 0u})
		{
			for (const u32 index : Iota(first + base, 6))
				expected.push_back(index);
		}
	}
	EXPECT_EQ(ExpandQuads<TypeParam>(call), expected);
}

TYPED_TEST(ExpandQuadsTest, FifteenQuads_FarthestFirst)
{
	const CExpectReports none;
	// As many quads as may be, at distances 0 to 14 in no order.
	std::vector<SFloat4> centers;
	for (u32 quad = 0; quad < 15; ++quad)
		centers.push_back(At(0, 0, float(quad * 7 % 15)));
	std::vector<u32> order = Iota(0, 15);
	std::sort(order.begin(), order.end(), [](u32 a, u32 b) { return a * 7 % 15 > b * 7 % 15; });
	EXPECT_EQ(ExpandQuads<TypeParam>(OneParticle(centers)), QuadsInOrder(order));
}

TYPED_TEST(ExpandQuadsTest, CameraOnTheOtherSide_OrderTurnsRound)
{
	SQuadCall call = OneParticle({At(1), At(2), At(3)});
	EXPECT_EQ(ExpandQuads<TypeParam>(call), QuadsInOrder({2, 1, 0}));
	call.m_Camera.m_X = Bits(10.0f);
	EXPECT_EQ(ExpandQuads<TypeParam>(call), QuadsInOrder({0, 1, 2}));
}

TYPED_TEST(ExpandQuadsTest, EqualDistances_KeepQuadOrder)
{
	const CExpectReports none;
	EXPECT_EQ(ExpandQuads<TypeParam>(OneParticle(std::vector<SFloat4>(15, At(3)))), QuadsInOrder(Iota(0, 15)));
	// Apart from each other, but at one distance, with a farther one among them.
	EXPECT_EQ(ExpandQuads<TypeParam>(OneParticle({At(5), At(0, -5), At(6), At(-3, 0, 4), At(0, 3, -4)})),
		QuadsInOrder({2, 0, 1, 3, 4}));
}

TYPED_TEST(ExpandQuadsTest, DistancesThatAgreeAboveTheLowFourBits_KeepQuadOrder)
{
	const CExpectReports none;
	// (1 + n ulp)^2 rounds to 1 + 2n ulp. Inverted, the bits of 1 to 1 + 15 ulp differ in the low four alone.
	const SFloat4 at0 = {kOne, 0, 0, 0};
	const SFloat4 at7 = {kOne + 7, 0, 0, 0};
	const SFloat4 at8 = {kOne + 8, 0, 0, 0};
	EXPECT_EQ(ExpandQuads<TypeParam>(OneParticle({at0, at7})), QuadsInOrder({0, 1}));
	EXPECT_EQ(ExpandQuads<TypeParam>(OneParticle({at7, at0})), QuadsInOrder({0, 1}));
	EXPECT_EQ(ExpandQuads<TypeParam>(OneParticle({at0, at8})), QuadsInOrder({1, 0}));
	EXPECT_EQ(ExpandQuads<TypeParam>(OneParticle({at8, at0})), QuadsInOrder({0, 1}));
	EXPECT_EQ(ExpandQuads<TypeParam>(OneParticle({at7, at0, at8})), QuadsInOrder({2, 0, 1}));
}

TYPED_TEST(ExpandQuadsTest, NoDistance_ComesBeforeInfiniteAndFiniteOnes)
{
	const CExpectReports none;
	// The camera and quad 2 are infinitely far out on the same axis: their distance is no number.
	SQuadCall call = OneParticle({
		At(1), At(-7), {kInfinity, 0, 0, 0}
    });
	EXPECT_EQ(ExpandQuads<TypeParam>(call), QuadsInOrder({2, 1, 0})); // infinite, not yet undefined
	call.m_Camera.m_X = kInfinity;
	EXPECT_EQ(ExpandQuads<TypeParam>(call), QuadsInOrder({2, 0, 1}));
}

TYPED_TEST(ExpandQuadsTest, Width8_LastTwoSlotsOfEveryParticleStayUntouched)
{
	const CExpectReports none;
	SQuadCall call = OneParticle({At(1)});
	call.m_Pattern = Iota(0, 8);
	call.m_Centers.resize(2 * 16, At(2));
	call.m_Records = {
		{1, 4},
        {2, 0}
    };
	constexpr u32 kNone = kUntouched<TypeParam>;
	EXPECT_EQ(ExpandQuads<TypeParam>(call),
		(std::vector<u32>{4, 5, 6, 7, 8, 9, kNone, kNone, 0, 1, 2, 3, 4, 5, kNone, kNone}));
}

TYPED_TEST(ExpandQuadsTest, Widths1To5_WarnAndWriteNothingWithoutDividing)
{
	const CExpectReports none;
	for (u32 width = 1; width <= 5; ++width)
	{
		// Neither centres nor vertices per particle are there to be used.
		SQuadCall call = OneParticle({});
		call.m_Pattern = Iota(0, width);
		call.m_Records = {
			{1, 70         },
            {2, 0xFFFFFFFFu},
            {3, 0          }
        };
		call.m_Vpp = 0;
		EXPECT_EQ(ExpandQuads<TypeParam>(call), std::vector<u32>(width * 3, kUntouched<TypeParam>));
		EXPECT_EQ(this->m_Warnings.Hazards(), width);
	}
	EXPECT_EQ(this->m_Warnings.Messages(), std::vector<std::string>{"Render sort: Very slow tube quad sorter"});
}

TYPED_TEST(ExpandQuadsTest, NoRecords_ReturnsBeforeTheWarning)
{
	const CExpectReports none;
	// No record first, then no pattern.
	SQuadCall call = OneParticle({At(1), At(2)});
	call.m_Records.clear();
	call.m_Vpp = 0;
	EXPECT_TRUE(ExpandQuads<TypeParam>(call).empty());
	call.m_Pattern.clear();
	call.m_Records = {
		{1, 0}
    };
	EXPECT_TRUE(ExpandQuads<TypeParam>(call).empty());
	EXPECT_EQ(this->m_Warnings.Hazards(), 0u);
	EXPECT_TRUE(this->m_Warnings.Entries().empty());
}

TYPED_TEST(ExpandQuadsTest, ProductWrapsTo0_ReturnsBeforeTheWarning)
{
	const CExpectReports none;
	const CGuardedMemory nothing(0);
	const std::vector<u32> pattern = Iota(0, 8); // 8 * 0x20000000 is 0 in 32 bits
	CTriangleSorter::ExpandAndSortIndices(
		{pattern.data(), 8}, {}, CFloat3(), nothing.As<SIndexAndDepth>(), nothing.As<TypeParam>(), 0x20000000u, 1);
	EXPECT_EQ(this->m_Warnings.Hazards(), 0u);
}

TYPED_TEST(ExpandQuadsTest, EveryCall_WarnsAtItsSite)
{
	const SQuadCall call = RandomCall(3, 0, 4, 5);
	for (u32 frame = 0; frame < 3; ++frame)
		ExpandQuads<TypeParam>(call);
	const auto entries = this->m_Warnings.Entries();
	ASSERT_EQ(entries.size(), 1u);
	EXPECT_EQ(entries[0].m_Key, std::string(this->kU16 ? "[l.1277]" : "[l.1346]") +
									" @ ../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp");
	EXPECT_EQ(entries[0].m_Message, "Render sort: Very slow tube quad sorter");
	EXPECT_EQ(entries[0].m_TouchCount, 3u);
	EXPECT_EQ(this->m_Warnings.Hazards(), 3u);
}

TYPED_TEST(ExpandQuadsTest, Call_OpensItsScope)
{
	const std::string name = this->kU16 ? "ExpandAndSortIndices<u16>" : "ExpandAndSortIndices<u32>";
	// The scope stands before the early return.
	for (const u32 recordCount : {0u, 2u})
	{
		const CScopeRecorder scopes;
		ExpandQuads<TypeParam>(RandomCall(2, 0, recordCount, 6));
		ASSERT_EQ(scopes.Events(), (std::vector<std::string>{"+" + name, "-" + name}));

		const Profiler::SNodeDescriptor &node = *scopes.Nodes().front();
		EXPECT_EQ(Bits(node.m_Color.x()), Bits(0.1f));
		EXPECT_EQ(Bits(node.m_Color.y()), Bits(0.6f));
		EXPECT_EQ(Bits(node.m_Color.z()), Bits(0.9f));
		EXPECT_EQ(node.m_Flags, 0u);
	}
}

TYPED_TEST(ExpandQuadsTest, RecordsAt8Mod16_ReportedOnceAndRunOn)
{
	const CExpectReports reports({"Mem::IsAligned<0x10>(it)"});
	SQuadCall call = RandomCall(4, 0, 5, 7);
	call.m_RecordAddress = 8;
	EXPECT_EQ(ExpandQuads<TypeParam>(call), FromModel<TypeParam>(call));
}

TYPED_TEST(ExpandQuadsTest, CenterOutOfView_ReportedAndRunOn)
{
	// One report per access; the centres are used all the same.
	const CExpectReports reports({"index < m_Count", "index < m_Count"});
	SQuadCall call = OneParticle({At(1), At(2), At(3)});
	call.m_CentersOutOfView = 2;
	EXPECT_EQ(ExpandQuads<TypeParam>(call), QuadsInOrder({2, 1, 0}));
}

TYPED_TEST(ExpandQuadsTest, CentersOutOfViewOfManyRecords_EachReportedOnce)
{
	// Particle 9 is in view but for its last two quads, and the ten after it are not.
	constexpr u32 kInView = 10;
	constexpr u32 kRecords = 40;
	SQuadCall call = RandomCall(3, 0, kRecords, 11);
	call.m_Vpp = 4;
	call.m_CentersOutOfView = u32(call.m_Centers.size()) - ((kInView - 1) * 16 + 1);
	for (u32 r = 0; r < kRecords; ++r)
		call.m_Records[r].m_Index = r * 7 % 20 * 4;
	const u32 outOfView = 2 * (2 + 10 * 3); // every particle has two records
	const CExpectReports reports(std::vector<std::string>(outOfView, "index < m_Count"));
	EXPECT_EQ(ExpandQuads<TypeParam>(call), FromModel<TypeParam>(call));
}

TYPED_TEST(ExpandQuadsTest, MoreThan16Quads_ReportedAndNothingOutsideIsTouched)
{
	// With 128 quads, a key written beyond its array would not fall into unused stack, but would overwrite the return
	// address.
	for (const u32 quadCount : {17u, 32u, 128u})
	{
		CReportRecorder reports;
		SQuadCall call = RandomCall(quadCount, 0, 3, 8);
		call.m_Centers.resize(call.m_Centers.size() + quadCount, At(1));
		call.m_Pattern = Iota(0, quadCount * 6);
		const std::vector<u32> indices = ExpandQuads<TypeParam>(call);

		// The order means nothing any more, but quads they are.
		for (std::size_t i = 0; i < indices.size(); ++i)
		{
			const u32 base = call.m_Records[i / call.m_Pattern.size()].m_Index;
			EXPECT_LT(indices[i] - base, quadCount * 6);
			EXPECT_EQ((indices[i] - base) % 6, i % 6);
		}

		// How often the keys' bounds are checked is open; that they are is not.
		std::vector<std::string> texts = reports.Texts();
#if VX_ASSERTIONS
		ASSERT_GE(texts.size(), this->kU16 ? 2u : 1u);
		if (this->kU16)
		{
			EXPECT_EQ(texts.front(), "quadCount < 16");
			texts.erase(texts.begin());
		}
#else
		EXPECT_TRUE(texts.empty());
#endif
		EXPECT_EQ(texts, std::vector<std::string>(texts.size(), "index < m_Count"));
	}
}

TEST(ExpandQuadsU16, Width96_ReportedOnceAndRunOn)
{
	// The sixteenth quad still has a slot and a number of its own.
	const CWarningRecorder silent;
	const CExpectReports reports({"quadCount < 16"});
	std::vector<SFloat4> centers;
	for (u32 quad = 0; quad < 16; ++quad)
		centers.push_back(At(0, float(quad)));
	std::vector<u32> order = Iota(0, 16);
	std::reverse(order.begin(), order.end());
	EXPECT_EQ(ExpandQuads<u16>(OneParticle(centers)), QuadsInOrder(order));
}

TEST(ExpandQuadsU16, Width96WithoutRecords_IsReportedToo)
{
	// Asserted before the early return.
	const CWarningRecorder warnings;
	const CExpectReports reports({"quadCount < 16"});
	SQuadCall call = OneParticle(std::vector<SFloat4>(16, At(0)));
	call.m_Records.clear();
	EXPECT_TRUE(ExpandQuads<u16>(call).empty());
	EXPECT_EQ(warnings.Hazards(), 0u);
}

TEST(ExpandQuads, IndexFrom0x10000On_16BitsTakeTheParticleOfItsLowBits)
{
	const CWarningRecorder silent;
	const CExpectReports none;
	SQuadCall call = OneParticle({At(1), At(2)});
	call.m_Centers.resize(6 * 16, At(0));
	call.m_Vpp = 0x4000;
	call.m_Records = {
		{0, 0x14002}
    };
	call.m_Centers[1 * 16] = At(9);     // particle 1, of 0x4002: quad 0 is the farther one
	call.m_Centers[5 * 16 + 1] = At(9); // particle 5, of 0x14002: quad 1 is
	std::vector<u32> quads01 = QuadsInOrder({0, 1});
	for (u32 &index : quads01)
		index += 0x4002;
	EXPECT_EQ(ExpandQuads<u16>(call), quads01);
	std::vector<u32> quads10 = QuadsInOrder({1, 0});
	for (u32 &index : quads10)
		index += 0x14002;
	EXPECT_EQ(ExpandQuads<u32>(call), quads10);
}

TEST(ExpandQuads, SumsBeyondTheIndexType_Wrap)
{
	const CWarningRecorder silent;
	SQuadCall call = OneParticle({At(1)});
	call.m_Vpp = 0x10000; // more than a 16-bit index can reach: everything is particle 0
	call.m_Records = {
		{0, 0xFFFE}
    };
	EXPECT_EQ(ExpandQuads<u16>(call), (std::vector<u32>{0xFFFE, 0xFFFF, 0, 1, 2, 3}));
	call.m_Vpp = 0xFFFFFFFFu;
	call.m_Records = {
		{0, 0xFFFFFFFEu}
    };
	EXPECT_EQ(ExpandQuads<u32>(call), (std::vector<u32>{0xFFFFFFFEu, 0xFFFFFFFFu, 0, 1, 2, 3}));
}
