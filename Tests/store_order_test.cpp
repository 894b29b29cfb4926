// The output is written front to back, each byte once, and never read, by every build: each store of every worker is
// watched, over widths, counts and addresses, and so are whole sorts.

#include "ge_mesh_triangle_sorter.h"

#include "simd/lanes.h"

#include "diagnostics.h"
#include "guarded_memory.h"
#include "index_types.h"
#include "random_scene.h"
#include "reference_model.h"
#include "scene_memory.h"
#include "store_watch.h"
#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

using namespace Vexmoor;
using namespace Support;
using Model::SRecord;

namespace
{
typedef std::vector<std::optional<u32>> SIndices; // those without a value are left alone

template<typename _Index>
constexpr Model::EIndexType kIndexType = std::is_same_v<_Index, u16> ? Model::EIndexType::U16 : Model::EIndexType::U32;

static_assert(sizeof(SRecord) == sizeof(SIndexAndDepth), "records of the model are handed to the library");

// Bases in no order, small enough for 16 bits.
std::vector<SRecord> MakeRecords(u32 count)
{
	std::vector<SRecord> records;
	for (u32 r = 0; r < count; ++r)
		records.push_back({r * 0x9E3779B1u, r * 25173 % 0xFC00});
	return records;
}

// All from the first to the last, and one more.
std::vector<u32> Counts(u32 first, u32 last, u32 more)
{
	std::vector<u32> counts;
	for (u32 count = first; count <= last; ++count)
		counts.push_back(count);
	counts.push_back(more);
	return counts;
}

template<typename _Index>
class StoreOrder : public testing::Test
{
protected:
	void SetUp() override
	{
		if (const char *const reason = WhyStoresGoUnseen())
			GTEST_SKIP() << reason;
	}

	const CWarningRecorder m_Silent;
};

TYPED_TEST_SUITE(StoreOrder, SIndexTypes, SIndexName);

// One width, with an output at an address modulo 16.
template<typename _Index>
void ExpectExpansionInOrder(u32 width, std::size_t address, const std::vector<u32> &counts)
{
	// Width 1 has no entry but 0.
	std::vector<u32> pattern;
	for (u32 j = 0; j < width; ++j)
		pattern.push_back(width == 1 ? 0 : 11 + (width - j) * 7);
	const CGuardedMemory patternMemory = ReadOnly(pattern, 0);

	for (const u32 count : counts)
	{
		// Without a record the 32-bit worker of width 12 writes one, and none is there.
		if (std::is_same_v<_Index, u32> && width == 12 && count == 0 && address == 8)
			continue;
		const std::vector<SRecord> records = MakeRecords(count);
		const CGuardedMemory recordMemory = ReadOnly(records, 0);
		Model::SWarnings warnings;
		const std::vector<u32> expected =
			Model::ExpandIndices(kIndexType<_Index>, pattern, records, u32(address), warnings);
		ASSERT_TRUE(WritesIndicesFrontToBack<_Index>(SIndices(expected.begin(), expected.end()), address,
			[&](_Index *output)
			{
				CTriangleSorter::ExpandIndices({patternMemory.As<u32>(), width}, recordMemory.As<SIndexAndDepth>(),
					static_cast<volatile _Index *>(output), count);
			}))
			<< "width " << width << ", " << count << " records, output at " << address << " modulo 16";
	}
}
} // namespace

// Loops that stream take up to eight records a turn, and compilers unroll the others.
TYPED_TEST(StoreOrder, WidthsWithLoopsOfTheirOwn_FrontToBackOnce)
{
	for (const u32 width : {1u, 3u, 6u, 12u})
	{
		for (std::size_t address = 0; address < 16; address += sizeof(TypeParam))
		{
			const bool streams = address == 0 || (width == 12 && address == 8);
			ExpectExpansionInOrder<TypeParam>(width, address, streams ? Counts(0, 40, 67) : Counts(0, 18, 33));
		}
	}
}

TYPED_TEST(StoreOrder, OtherWidths_FrontToBackOnce)
{
	for (const u32 width : {2u, 5u, 7u, 24u})
	{
		for (std::size_t address = 0; address < 16; address += sizeof(TypeParam))
			ExpectExpansionInOrder<TypeParam>(width, address, Counts(0, 3, 9));
	}
}

TYPED_TEST(StoreOrder, QuadsInOrder_FrontToBackOnce)
{
	// Widths that are no multiple of a quad leave what is over alone, and widths below one everything.
	for (const u32 width : {1u, 5u, 6u, 8u, 12u, 18u, 90u})
	{
		std::vector<u32> pattern;
		for (u32 j = 0; j < width; ++j)
			pattern.push_back(j * 5 % 19);
		const CGuardedMemory patternMemory = ReadOnly(pattern, 0);
		for (u32 count = 0; count <= 3; ++count)
		{
			constexpr u32 kVerticesPerParticle = 20, kSlots = 16;
			std::vector<SRecord> records;
			for (u32 r = 0; r < count; ++r)
				records.push_back({0, (count - 1 - r) * kVerticesPerParticle});
			std::vector<Model::SFloat4> centers;
			for (u32 i = 0; i < count * kSlots; ++i)
				centers.push_back({FloatBits(float(i * 37 % 23)), FloatBits(float(i * 11 % 29)), FloatBits(1.0f), 0});
			const CGuardedMemory recordMemory = ReadOnly(records, 0);
			const CGuardedMemory centerMemory = ReadOnly(centers, 0);

			Model::SWarnings warnings;
			const SIndices expected = Model::ExpandAndSortIndices(
				kIndexType<TypeParam>, pattern, centers, {0, 0, 0}, records, kVerticesPerParticle, warnings);
			for (const std::size_t address : {std::size_t(0), sizeof(TypeParam)})
			{
				ASSERT_TRUE(WritesIndicesFrontToBack<TypeParam>(expected, address,
					[&](TypeParam *output)
					{
						CTriangleSorter::ExpandAndSortIndices({patternMemory.As<u32>(), width},
							{centerMemory.As<CFloat4>(), count * kSlots}, CFloat3(0, 0, 0),
							recordMemory.As<SIndexAndDepth>(), static_cast<volatile TypeParam *>(output), count,
							kVerticesPerParticle);
					}))
					<< "width " << width << ", " << count << " records, output at " << address << " modulo 16";
			}
		}
	}
}

TYPED_TEST(StoreOrder, GatheredTriangles_FrontToBackOnce)
{
	for (const u32 count : Counts(0, 18, 67))
	{
		std::vector<SRecord> records;
		std::vector<u32> source;
		for (u32 i = 0; i < count; ++i)
		{
			records.push_back({0, count - 1 - i});
			source.insert(source.end(), {i * 3, i * 7 + 1, i * 11 + 2});
		}
		CGuardedMemory recordMemory(records.size() * sizeof(SRecord)); // of a view that is not const
		std::copy(records.begin(), records.end(), recordMemory.As<SRecord>());
		const CGuardedMemory sourceMemory = ReadOnly(std::vector<TypeParam>(source.begin(), source.end()), 0);
		const std::vector<u32> expected = Model::GatherTriangles(records, source);
		for (std::size_t address = 0; address < 16; address += sizeof(TypeParam))
		{
			ASSERT_TRUE(WritesIndicesFrontToBack<TypeParam>(SIndices(expected.begin(), expected.end()), address,
				[&](TypeParam *output)
				{
					CTriangleSorter::ApplySortingIndirectionsListTriangles({recordMemory.As<SIndexAndDepth>(), count},
						TMemoryView<const TypeParam>(sourceMemory.As<TypeParam>(), count * 3), output, count);
				}))
				<< count << " triangles, output at " << address << " modulo 16";
		}
	}
}

// Whole sorts: of random scenes, with too small outputs and too large ones among them.

typedef CTriangleSorter::EOutputMemory EOutputMemory;

template<typename _Index>
static testing::AssertionResult SortsFrontToBack(
	const Model::SScene &scene, const SSceneLayout &layout, std::size_t &streamedByteCount)
{
	const bool triangles = scene.m_Geometry == Model::EGeometry::PerPage;
	const Model::SSortResult result = triangles ? Model::TriangleSort(scene) : Model::PointSort(scene);
	CSceneMemory memory(scene, layout);
	return WritesIndicesFrontToBack<_Index>(
		result.m_Output, scene.m_OutputAddressMod16,
		[&](_Index *output)
		{
			memory.Sorter().Setup_OutputIndexBuffer(
				TMemoryView<_Index>(output, scene.m_IndexCapacity), scene.m_VertexCount);
			memory.Sort();
		},
		&streamedByteCount);
}

// As the default says, and through the caches, where nothing is streamed.
template<typename _Index>
static testing::AssertionResult SortsFrontToBack(const Model::SScene &scene)
{
	std::size_t streamedByteCount = 0;
	if (const auto result = SortsFrontToBack<_Index>(scene, SSceneLayout(), streamedByteCount); !result)
		return result;
	const testing::AssertionResult result = SortsFrontToBack<_Index>(scene, WithCachedOutput(), streamedByteCount);
	if (result && streamedByteCount != 0)
		return testing::AssertionFailure() << streamedByteCount << " bytes are streamed";
	return result;
}

TYPED_TEST(StoreOrder, PointSorts_FrontToBackOnce)
{
	const CReportRecorder reports;
	Model::SSceneOptions options;
	options.m_PageCount = {1, 3};
	options.m_ParticlesPerPage = {0, 30};
	options.m_IndexType = kIndexType<TypeParam>;
	for (std::uint64_t seed = 1; seed <= 20; ++seed)
	{
		const Model::SScene scene = Model::RandomPointScene(seed, options);
		ASSERT_TRUE(SortsFrontToBack<TypeParam>(scene)) << "seed " << seed << ": " << Model::Describe(scene);
	}

	// So many that the radix sort orders them.
	Model::SScene many = OnePage(301);
	many.m_IndexType = kIndexType<TypeParam>;
	ASSERT_TRUE(SortsFrontToBack<TypeParam>(many));
}

// Whole blocks of an output at a multiple of 16 are streamed, unless the output is said to be ordinary memory.
TYPED_TEST(StoreOrder, KindOfMemory_SaysWhatIsStreamed)
{
	struct SWidth
	{
		u32 m_Width;
		u32 m_BlockIn16, m_BlockIn32; // particles; 0: never streamed
	};
	constexpr SWidth kWidths[] = {
		{1,  8, 4},
        {3,  8, 4},
        {5,  0, 0},
        {6,  4, 2},
        {12, 0, 1}
    };
	const bool is16 = sizeof(TypeParam) == sizeof(u16);
	for (const SWidth &width : kWidths)
	{
		for (const u32 count : {1u, 2u, 7u, 8u, 9u, 130u})
		{
			SCOPED_TRACE(testing::Message() << "width " << width.m_Width << ", " << count << " particles");
			Model::SScene scene = OnePage(count, width.m_Width);
			scene.m_IndexType = kIndexType<TypeParam>;
			const u32 block = is16 ? width.m_BlockIn16 : width.m_BlockIn32;
			const u32 streamedCount = block == 0 ? 0 : count / block * block;
			std::size_t streamedByteCount = 0;
			SSceneLayout layout; // nothing is said of the output's memory
			EXPECT_TRUE(SortsFrontToBack<TypeParam>(scene, layout, streamedByteCount));
			EXPECT_EQ(streamedByteCount, std::size_t(streamedCount) * width.m_Width * sizeof(TypeParam));
			constexpr EOutputMemory kNoKind = EOutputMemory(2);
			for (const EOutputMemory outputMemory : {CTriangleSorter::OutputMemory_WriteCombined, kNoKind})
			{
				layout.m_OutputMemory = outputMemory;
				EXPECT_TRUE(SortsFrontToBack<TypeParam>(scene, layout, streamedByteCount));
				EXPECT_EQ(streamedByteCount, std::size_t(streamedCount) * width.m_Width * sizeof(TypeParam));
			}
			EXPECT_TRUE(SortsFrontToBack<TypeParam>(scene, WithCachedOutput(), streamedByteCount));
			EXPECT_EQ(streamedByteCount, 0u);
		}
	}
}

TYPED_TEST(StoreOrder, TriangleSorts_FrontToBackOnce)
{
	const CReportRecorder reports;
	Model::SSceneOptions options;
	options.m_PageCount = {1, 3};
	options.m_ParticlesPerPage = {0, 30};
	options.m_TrianglesPerParticle = {1, 4};
	options.m_IndexType = kIndexType<TypeParam>;
	for (std::uint64_t seed = 1; seed <= 15; ++seed)
	{
		const Model::SScene scene = Model::RandomTriangleScene(seed, options);
		ASSERT_TRUE(SortsFrontToBack<TypeParam>(scene)) << "seed " << seed << ": " << Model::Describe(scene);
	}
}

// The watch itself. Whatever a function does wrong on its way, it leaves the right indices behind unless said
// otherwise.

namespace
{
class StoreWatch : public testing::Test
{
protected:
	void SetUp() override
	{
		if (const char *const reason = WhyStoresGoUnseen())
			GTEST_SKIP() << reason;
	}

	static constexpr u32 kIndexCount = 8;

	static void Write(volatile u32 *output, u32 first, u32 stop)
	{
		for (u32 i = first; i < stop; ++i)
			output[i] = 100 + i;
	}

	// What is said of a function that has eight indices to write.
	template<typename _Write>
	static std::string Watched(const _Write &write, u32 untouched = kIndexCount)
	{
		SIndices expected;
		for (u32 i = 0; i < kIndexCount; ++i)
			expected.push_back(i == untouched ? std::nullopt : std::optional<u32>(100 + i));
		return WritesIndicesFrontToBack<u32>(expected, 4, [&](u32 *output) { write(output); }).message();
	}
};
} // namespace

TEST_F(StoreWatch, InOrder_NothingToSay)
{
	EXPECT_EQ(Watched([](volatile u32 *output) { Write(output, 0, kIndexCount); }), "");
	// In wide stores as well.
	EXPECT_EQ(Watched(
				  [](u32 *output)
				  {
					  _mm_storeu_si128(reinterpret_cast<__m128i *>(output), _mm_setr_epi32(100, 101, 102, 103));
					  std::atomic_signal_fence(std::memory_order_seq_cst);
					  Write(output, 4, kIndexCount);
				  }),
		"");
	EXPECT_EQ(Watched(
				  [](volatile u32 *output)
				  {
					  Write(output, 0, 3);
					  Write(output, 4, kIndexCount);
				  },
				  3),
		"");
}

TEST_F(StoreWatch, StreamedBytes_AreCounted)
{
	const std::vector<std::optional<u32>> expected = {100, 101, 102, 103, 104, 105, 106, 107};
	std::size_t streamedByteCount = 99;
	EXPECT_TRUE(WritesIndicesFrontToBack<u32>(
		expected, 0, [](volatile u32 *output) { Write(output, 0, kIndexCount); }, &streamedByteCount));
	EXPECT_EQ(streamedByteCount, 0u);
	EXPECT_TRUE(WritesIndicesFrontToBack<u32>(
		expected, 0,
		[](u32 *output)
		{
			_mm_stream_si128(reinterpret_cast<__m128i *>(output), _mm_setr_epi32(100, 101, 102, 103));
			std::atomic_signal_fence(std::memory_order_seq_cst);
			_mm_stream_si32(reinterpret_cast<int *>(output + 4), 104);
			std::atomic_signal_fence(std::memory_order_seq_cst);
			Write(output, 5, kIndexCount);
		},
		&streamedByteCount));
	EXPECT_EQ(streamedByteCount, 20u);
}

TEST_F(StoreWatch, ReadBack_Told)
{
	EXPECT_EQ(Watched(
				  [](volatile u32 *output)
				  {
					  Write(output, 0, 5);
					  static_cast<void>(output[2]);
					  Write(output, 5, kIndexCount);
				  }),
		"Access 5 reads at byte 8 of 32.");
	// The last place before it is written, and one behind the end.
	EXPECT_EQ(Watched(
				  [](volatile u32 *output)
				  {
					  static_cast<void>(output[7]);
					  Write(output, 0, kIndexCount);
				  }),
		"Access 0 reads at byte 28 of 32.");
	EXPECT_EQ(Watched(
				  [](volatile u32 *output)
				  {
					  Write(output, 0, kIndexCount);
					  static_cast<void>(output[8]);
				  }),
		"Access 8 reads at byte 32 of 32.");
}

TEST_F(StoreWatch, ReadAndWrittenByOneInstruction_Told)
{
	// An exchange stores the right index, whatever it has read.
	EXPECT_EQ(Watched(
				  [](u32 *output)
				  {
					  Write(output, 0, 1);
					  __atomic_exchange_n(output + 1, 101u, __ATOMIC_SEQ_CST);
					  Write(output, 2, kIndexCount);
				  }),
		"Access 1 reads at byte 4 of 32.");
	// As an addition, or as a load, a sum and a store.
	EXPECT_EQ(Watched(
				  [](u32 *output)
				  {
					  Write(output, 0, 3);
					  std::atomic_signal_fence(std::memory_order_seq_cst);
					  output[3] |= 103;
					  std::atomic_signal_fence(std::memory_order_seq_cst);
					  Write(output, 4, kIndexCount);
				  }),
		"Access 3 reads at byte 12 of 32.");
}

TEST_F(StoreWatch, WrittenTwice_Told)
{
	EXPECT_EQ(Watched(
				  [](volatile u32 *output)
				  {
					  Write(output, 0, 4);
					  Write(output, 3, kIndexCount);
				  }),
		"Access 4 writes at byte 12 of 32 when byte 16 is next.");
	EXPECT_EQ(Watched(
				  [](volatile u32 *output)
				  {
					  Write(output, 0, kIndexCount);
					  Write(output, 0, 1);
				  }),
		"Access 8 writes at byte 0 of 32 when byte 32 is next.");
}

TEST_F(StoreWatch, OutOfOrder_Told)
{
	EXPECT_EQ(Watched(
				  [](volatile u32 *output)
				  {
					  Write(output, 0, 2);
					  Write(output, 3, 4);
					  Write(output, 2, 3);
					  Write(output, 4, kIndexCount);
				  }),
		"Access 2 writes at byte 12 of 32 when byte 8 is next.");
}

TEST_F(StoreWatch, NotWritten_Told)
{
	EXPECT_EQ(Watched([](volatile u32 *output) { Write(output, 0, 7); }), "Byte 28 of 32 is never written.");
	EXPECT_EQ(Watched([](volatile u32 *) {}), "Byte 0 of 32 is never written.");
}

TEST_F(StoreWatch, WrittenOutside_Told)
{
	EXPECT_EQ(Watched([](volatile u32 *output) { Write(output, 0, kIndexCount + 1); }),
		"Access 8 writes outside: bytes 32 to 35 of 32.");
	EXPECT_EQ(Watched(
				  [](volatile u32 *output)
				  {
					  *(output - 1) = 1;
					  Write(output, 0, kIndexCount);
				  }),
		"Access 0 writes outside: bytes -4 to -1 of 32.");
	EXPECT_EQ(Watched([](volatile u32 *output) { Write(output, 0, kIndexCount); }, 3),
		"Access 3 writes at byte 12 of 32 when byte 16 is next.");
	EXPECT_EQ(Watched([](u32 *output)
				  { _mm_storeu_si128(reinterpret_cast<__m128i *>(output), _mm_setr_epi32(100, 101, 102, 103)); },
				  3),
		"Access 0 writes byte 12 of 32, which is to be left alone.");
}

TEST_F(StoreWatch, WrongValue_Told)
{
	EXPECT_EQ(Watched(
				  [](volatile u32 *output)
				  {
					  Write(output, 0, 2);
					  output[2] = 103;
					  Write(output, 3, kIndexCount);
				  }),
		"Access 2 writes a wrong value to byte 8 of 32.");
}
