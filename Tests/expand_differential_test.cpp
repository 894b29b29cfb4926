// Random calls of the expansion functions, compared with the reference model: every output, every byte around them, and
// every warning. Inputs are read-only, and buffers lie flush against memory that is not there.
// VEXMOOR_TEST_SEED=n runs the case of seed n alone, VEXMOOR_TEST_CASES=n as many cases of each kind.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "guarded_memory.h"
#include "random_scene.h"
#include "reference_model.h"
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

using namespace Vexmoor;
using Model::CRandom;
using Model::EIndexType;
using Model::SFloat3;
using Model::SFloat4;
using Model::SRecord;
using Support::CGuardedMemory;
using Support::CReportRecorder;
using Support::CWarningRecorder;
using Support::ReadOnly;

namespace
{
u64 NumberFromEnvironment(const char *name, u64 otherwise)
{
	const char *const text = std::getenv(name);
	return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
}

// Runs a case for every seed from first on until one fails, or for the one that the environment names.
template<typename _Case>
void ForEachSeed(u64 first, u64 count, const _Case &runCase)
{
	const u64 alone = NumberFromEnvironment("VEXMOOR_TEST_SEED", 0);
	const u64 begin = alone != 0 ? alone : first;
	const u64 end = alone != 0 ? alone + 1 : first + NumberFromEnvironment("VEXMOOR_TEST_CASES", count);
	const testing::TestInfo &test = *testing::UnitTest::GetInstance()->current_test_info();
	for (u64 seed = begin; seed != end && !testing::Test::HasFailure(); ++seed)
	{
		const std::string number = std::to_string(seed);
		SCOPED_TRACE("seed " + number + "; alone: VEXMOOR_TEST_SEED=" + number +
					 " and --gtest_filter=" + test.test_suite_name() + "." + test.name());
		runCase(seed);
	}
}

std::size_t AddressToEndWithThePage(std::size_t size)
{
	return (16 - size % 16) % 16;
}

// The indices in a buffer, and none where it still is as it was.
template<typename _Index>
std::vector<std::optional<u32>> Indices(const CGuardedMemory &dst)
{
	std::vector<std::optional<u32>> out;
	for (const _Index *index = dst.As<_Index>(); index != dst.As<_Index>() + dst.Size() / sizeof(_Index); ++index)
		out.push_back(*index == _Index(0xCDCDCDCDu) ? std::nullopt : std::optional<u32>(*index));
	return out;
}

// What the filling of the buffer looks like is not told from memory that was left alone.
template<typename _Index>
std::vector<std::optional<u32>> AsRead(std::vector<std::optional<u32>> expected)
{
	for (std::optional<u32> &index : expected)
	{
		if (index == _Index(0xCDCDCDCDu))
			index = std::nullopt;
	}
	return expected;
}

void ExpectWarnings(const CWarningRecorder &recorder, const Model::SWarnings &expected)
{
	std::vector<int> sites;
	std::vector<std::string> messages;
	for (const Model::SWarning &warning : expected)
	{
		sites.push_back(int(warning.m_Line));
		messages.push_back(warning.m_Text);
	}
	EXPECT_EQ(recorder.Sites(), sites);
	EXPECT_EQ(recorder.Messages(), messages);
	EXPECT_EQ(recorder.Hazards(), expected.size());
}

// Expansion of whole patterns.

template<typename _Index>
void CompareExpand(u64 seed, const Model::SExpandCall &call)
{
	const std::size_t width = call.m_Pattern.size();
	const CGuardedMemory pattern = ReadOnly(call.m_Pattern, AddressToEndWithThePage(width * sizeof(u32)));
	const CGuardedMemory records = ReadOnly(call.m_Records, 0);
	const CGuardedMemory dst(width * call.m_Records.size() * sizeof(_Index), call.m_OutputAddressMod16,
		seed % 2 == 0 ? CGuardedMemory::FlushEnd : CGuardedMemory::FlushStart);

	const CReportRecorder reports;
	const CWarningRecorder warnings;
	CTriangleSorter::ExpandIndices(
		{pattern.As<u32>(), u32(width)}, records.As<SIndexAndDepth>(), dst.As<_Index>(), u32(call.m_Records.size()));

	Model::SWarnings expectedWarnings;
	const std::vector<u32> expected = Model::ExpandIndices(
		call.m_IndexType, call.m_Pattern, call.m_Records, call.m_OutputAddressMod16, expectedWarnings);
	EXPECT_EQ(std::vector<u32>(dst.As<_Index>(), dst.As<_Index>() + dst.Size() / sizeof(_Index)), expected);
	EXPECT_TRUE(dst.SurroundingsIntact());
	EXPECT_EQ(reports.Texts(), std::vector<std::string>());
	// Whether a worker without a record warns of its output's address is not laid down.
	if (!call.m_Records.empty() || call.m_IndexType == EIndexType::U16 || call.m_OutputAddressMod16 == 0)
		ExpectWarnings(warnings, expectedWarnings);
}

void CompareExpand(u64 seed, const Model::SSceneOptions &options)
{
	const Model::SExpandCall call = Model::RandomExpandCall(seed, options);
	SCOPED_TRACE("width " + std::to_string(call.m_Pattern.size()) + ", " + std::to_string(call.m_Records.size()) +
				 " records, output at " + std::to_string(call.m_OutputAddressMod16) + " modulo 16");
	if (call.m_IndexType == EIndexType::U16)
		return CompareExpand<u16>(seed, call);
	if (call.m_Pattern.size() == 12 && call.m_Records.empty() && call.m_OutputAddressMod16 == 8)
		return; // needs a record
	CompareExpand<u32>(seed, call);
}

Model::SSceneOptions CallsOfEveryWidth()
{
	Model::SSceneOptions options;
	options.m_Width = {0, 40};
	options.m_ParticlesPerPage = {0, 60};
	return options;
}
} // namespace

TEST(ExpandDifferential, EveryWidth_EqualsTheModel)
{
	ForEachSeed(1, 3000, [](u64 seed) { CompareExpand(seed, CallsOfEveryWidth()); });
}

TEST(ExpandDifferential, WidthsWithTheirOwnWorker_EqualTheModel)
{
	ForEachSeed(100001, 2000,
		[](u64 seed)
		{
			constexpr u32 kWidths[] = {1, 3, 6, 12};
			Model::SSceneOptions options = CallsOfEveryWidth();
			options.m_Width = {kWidths[seed % 4], kWidths[seed % 4]};
			options.m_VerticesPerParticle = {1, 255};
			CompareExpand(seed, options);
		});
}

// Beyond the index type each loop loses the upper bits in its own way.
TEST(ExpandDifferential, IndicesBeyondTheirType_EqualTheModel)
{
	ForEachSeed(200001, 2000,
		[](u64 seed)
		{
			constexpr u32 kWidths[] = {1, 3, 6, 12, 5};
			Model::SSceneOptions options = CallsOfEveryWidth();
			options.m_Width = {kWidths[seed % 5], kWidths[seed % 5]};
			options.m_Overflow = true;
			CompareExpand(seed, options);
		});
}

// For valid 16-bit and 32-bit calls the model itself has to follow the one rule that all workers share.
TEST(ExpandDifferential, ValidCalls_TheModelWritesPatternPlusBase)
{
	ForEachSeed(1, 3000,
		[](u64 seed)
		{
			const Model::SExpandCall call = Model::RandomExpandCall(seed, CallsOfEveryWidth());
			std::vector<u32> expected;
			for (const SRecord &record : call.m_Records)
			{
				for (const u32 entry : call.m_Pattern)
					expected.push_back(entry + record.m_Index);
			}
			Model::SWarnings warnings;
			EXPECT_EQ(Model::ExpandIndices(
						  call.m_IndexType, call.m_Pattern, call.m_Records, call.m_OutputAddressMod16, warnings),
				expected);
		});
}

// Expansion with quads in order.

namespace
{
struct SQuadCall
{
	EIndexType m_IndexType;
	std::vector<u32> m_Pattern;
	std::vector<SFloat4> m_Centers;
	SFloat3 m_Camera;
	std::vector<SRecord> m_Records;
	u32 m_Vpp;
	u32 m_OutputAddressMod16;
};

// Mostly near 1, often one of a few values, so that distances repeat, and now and then hostile.
u32 RandomFloat(CRandom &random)
{
	constexpr u32 kHostile[] = {
		0x7F800000u, 0xFF800000u, 0x7FC12345u, 0xFF812345u, 0x00000001u, 0x80123456u, 0x80000000u, 0x7F7FFFFFu};
	constexpr u32 kFew[] = {0x00000000u, 0x3F800000u, 0xBF800000u, 0x40400000u};
	const u32 kind = random.Below(100);
	const u32 at = random.Next();
	if (kind < 3)
		return kHostile[at % 8];
	if (kind < 30)
		return kFew[at % 4];
	return (at & 0x80000000u) | (0x3E000000u + at % 0x02000000u); // 1/8 to 2, either sign
}

SFloat3 RandomFloat3(CRandom &random)
{
	SFloat3 value;
	value.m_X = RandomFloat(random);
	value.m_Y = RandomFloat(random);
	value.m_Z = RandomFloat(random);
	return value;
}

SQuadCall RandomQuadCall(u64 seed)
{
	CRandom random(seed);
	SQuadCall call;
	const bool u16Output = random.Chance(50);
	call.m_IndexType = u16Output ? EIndexType::U16 : EIndexType::U32;
	const u32 quadCount = random.Below(16);
	const u32 rest = random.Below(2) * random.Below(6);
	const u32 entryBound = random.Chance(10) ? 0xFFFFFFFFu : 250;
	for (u32 j = 0; j < quadCount * 6 + rest; ++j)
		call.m_Pattern.push_back(random.Below(entryBound));

	// As many particles as have centres; bases anywhere in them, beyond 0xFFFF too. Of a 16-bit call the lower half
	// of a base alone says which particle it is.
	const u32 particleCount = random.Between(1, 12);
	const bool manyVertices = random.Chance(25);
	call.m_Vpp = manyVertices ? random.Between(0x1556, 0x10000000u) : random.Between(1, 300);
	const u64 vertexCount = u64(particleCount) * call.m_Vpp;
	const u32 recordCount = random.Below(12);
	for (u32 r = 0; r < recordCount; ++r)
	{
		u32 base = random.Below(u32(std::min<u64>(vertexCount, u16Output ? 0x10000u : 0xFFFFFFFFu)));
		if (u16Output && random.Chance(20))
			base |= random.Next() << 16;
		call.m_Records.push_back({random.Next(), base});
	}

	for (u32 i = 0; i < particleCount * 16; ++i)
	{
		const SFloat3 center = RandomFloat3(random);
		call.m_Centers.push_back({center.m_X, center.m_Y, center.m_Z, random.Next()});
	}
	call.m_Camera = RandomFloat3(random);
	call.m_OutputAddressMod16 = random.Below(16) & (u16Output ? ~1u : ~3u);
	return call;
}

template<typename _Index>
void CompareQuads(u64 seed, const SQuadCall &call)
{
	const std::size_t width = call.m_Pattern.size();
	const CGuardedMemory pattern = ReadOnly(call.m_Pattern, AddressToEndWithThePage(width * sizeof(u32)));
	const CGuardedMemory centers = ReadOnly(call.m_Centers, 0);
	const CGuardedMemory records = ReadOnly(call.m_Records, 0);
	const CGuardedMemory dst(width * call.m_Records.size() * sizeof(_Index), call.m_OutputAddressMod16,
		seed % 2 == 0 ? CGuardedMemory::FlushEnd : CGuardedMemory::FlushStart);
	CFloat3 camera;
	std::memcpy(&camera[0], &call.m_Camera, sizeof(camera));

	const CReportRecorder reports;
	const CWarningRecorder warnings;
	CTriangleSorter::ExpandAndSortIndices({pattern.As<u32>(), u32(width)},
		{centers.As<CFloat4>(), u32(call.m_Centers.size())}, camera, records.As<SIndexAndDepth>(), dst.As<_Index>(),
		u32(call.m_Records.size()), call.m_Vpp);

	Model::SWarnings expectedWarnings;
	EXPECT_EQ(Indices<_Index>(dst), AsRead<_Index>(Model::ExpandAndSortIndices(call.m_IndexType, call.m_Pattern,
										call.m_Centers, call.m_Camera, call.m_Records, call.m_Vpp, expectedWarnings)));
	EXPECT_TRUE(dst.SurroundingsIntact());
	EXPECT_EQ(reports.Texts(), std::vector<std::string>());
	ExpectWarnings(warnings, expectedWarnings);
}
} // namespace

TEST(ExpandDifferential, QuadsInOrder_EqualTheModel)
{
	ForEachSeed(300001, 3000,
		[](u64 seed)
		{
			const SQuadCall call = RandomQuadCall(seed);
			SCOPED_TRACE("width " + std::to_string(call.m_Pattern.size()) + ", " +
						 std::to_string(call.m_Records.size()) + " records, " + std::to_string(call.m_Vpp) +
						 " vertices per particle, output at " + std::to_string(call.m_OutputAddressMod16) +
						 " modulo 16");
			if (call.m_IndexType == EIndexType::U16)
				CompareQuads<u16>(seed, call);
			else
				CompareQuads<u32>(seed, call);
		});
}
