// The triangle sort's driver: pages at every parity, pages of nothing, vertex budgets, fillers, outputs too small, its
// scratch memory and its scopes.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "random_scene.h"
#include "scene_memory.h"
#include "sort_drivers.h"
#include <algorithm>
#include <bitset>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace Vexmoor;
using namespace Support;

// Scenes.

namespace
{
struct SPageOf
{
	u32 m_ParticleCount;
	u32 m_TrianglesPerParticle = 1;
	u32 m_VerticesPerParticle = 3;
};
} // namespace

// Keys that interleave the pages, some of them equal.
static Model::SScene Pages(const std::vector<SPageOf> &pages)
{
	Model::SScene scene;
	scene.m_Geometry = Model::EGeometry::PerPage;
	scene.m_SortType = Model::ESortType::ByValue;
	for (const SPageOf &pageOf : pages)
	{
		Model::SPage page;
		page.m_RenderedCount = pageOf.m_ParticleCount;
		page.m_VerticesPerParticle = pageOf.m_VerticesPerParticle;
		for (u32 i = 0; i < pageOf.m_TrianglesPerParticle * 3; ++i)
			page.m_Pattern.push_back(i % pageOf.m_VerticesPerParticle);
		for (u32 i = 0; i < pageOf.m_ParticleCount; ++i)
		{
			const u32 number = (scene.m_ParticleCount + i) * 7 % 23;
			page.m_Values.m_Elements.push_back(FloatBits(float(number) - 8));
			page.m_Positions.m_Elements.push_back({FloatBits(float(number)), 0, FloatBits(float(i))});
		}
		scene.m_ParticleCount += pageOf.m_ParticleCount;
		scene.m_VertexCount += pageOf.m_ParticleCount * pageOf.m_VerticesPerParticle;
		scene.m_TriangleIndexCount += pageOf.m_ParticleCount * pageOf.m_TrianglesPerParticle * 3;
		scene.m_Pages.push_back(page);
	}
	scene.m_IndexCapacity = scene.m_TriangleIndexCount;
	return scene;
}

// Pages of one triangle per particle and three vertices, sorted by the values, which go on from page to page.
static Model::SScene PagesOfValues(const std::vector<u32> &particleCounts, const std::vector<float> &values)
{
	std::vector<SPageOf> pages;
	for (const u32 particleCount : particleCounts)
		pages.push_back({particleCount, 1, 3});
	Model::SScene scene = Pages(pages);
	std::size_t at = 0;
	for (Model::SPage &page : scene.m_Pages)
	{
		for (u32 &element : page.m_Values.m_Elements)
			element = FloatBits(values.at(at++));
	}
	return scene;
}

static void ExpectLikeTheModelForAllTypes(Model::SScene scene)
{
	for (const Model::EIndexType indexType : kIndexTypes)
	{
		for (const Model::ESortType sortType : kSortTypes)
		{
			scene.m_IndexType = indexType;
			scene.m_SortType = sortType;
			EXPECT_TRUE(SortsLikeTheModel(scene)) << Model::Describe(scene);
			EXPECT_TRUE(SortsLikeTheModel(scene, WithCachedOutput())) << Model::Describe(scene);
		}
	}
}

// Sorts without a report and returns the output's triangles by their first vertex, which must be in step with the rest.
static std::vector<u32> SortedFirstVertices(const Model::SScene &scene)
{
	CExpectReports reports{};
	CWarningRecorder warnings;
	CSceneMemory memory(scene);
	memory.Sort();
	const Model::SSortResult result = Model::TriangleSort(scene);
	EXPECT_TRUE(memory.Holds(result));
	std::vector<u32> firstVertices;
	for (std::size_t i = 0; i + 3 <= result.m_Output.size() && result.m_Output[i]; i += 3)
		firstVertices.push_back(*result.m_Output[i]);
	return firstVertices;
}

typedef std::vector<u32> CIndices;

// Order.

TEST(TriangleSort, PagesOfValues_InterleaveByValue)
{
	// Particle k of all pages has the vertices from 3k on.
	const Model::SScene scene = PagesOfValues({2, 4}, {4, -2, 3, 5, 0, -1});
	EXPECT_EQ(SortedFirstVertices(scene), CIndices({3, 15, 12, 6, 0, 9}));
}

TEST(TriangleSort, PagesOfPositions_InterleaveBackToFront)
{
	Model::SScene scene = PagesOfValues({2, 2}, {0, 0, 0, 0});
	scene.m_SortType = Model::ESortType::ByPosition;
	const float distances[] = {2, 4, 3, 1};
	for (u32 i = 0; i < 4; ++i)
		scene.m_Pages[i / 2].m_Positions.m_Elements[i % 2] = {0, FloatBits(distances[i]), 0};
	EXPECT_EQ(SortedFirstVertices(scene), CIndices({3, 6, 0, 9}));
}

TEST(TriangleSort, TrianglesOfAParticle_AllCarryItsKey)
{
	const Model::SScene scene = Pages({
		{4, 3, 5},
        {2, 1, 3}
    }); // vertices 0 to 19 and 20 to 25
	const Model::SSortResult result = Model::TriangleSort(scene);
	CWarningRecorder warnings;
	CSceneMemory memory(scene);
	memory.Sort();
	ASSERT_TRUE(memory.Holds(result));

	const SIndexAndDepth *const sorted = static_cast<const SIndexAndDepth *>(memory.WorkingBuffer());
	CIndices trianglesOfParticle(6);
	for (u32 i = 0; i < 14; ++i)
	{
		const u32 vertex = *result.m_Output[i * 3];
		const u32 page = vertex < 20 ? 0 : 1;
		const u32 particle = page == 0 ? vertex / 5 : (vertex - 20) / 3;
		EXPECT_EQ(sorted[i].m_Depth, Model::FloatKey(scene.m_Pages[page].m_Values.m_Elements[particle])) << i;
		++trianglesOfParticle[page * 4 + particle];
	}
	EXPECT_EQ(trianglesOfParticle, CIndices({3, 3, 3, 3, 1, 1}));
}

TEST(TriangleSort, BothSidesOf109Triangles_MatchTheModel)
{
	for (u32 count = 100; count <= 120; ++count)
		ExpectLikeTheModelForAllTypes(Pages({
			{count - 20, 1},
            {10,         2}
        }));
}

// The unsorted indices of up to 8 MB are stored through the caches, and those of more past them.
TEST(TriangleSort, BothSidesOfTheIndicesThatAreCached_MatchTheModel)
{
	constexpr u32 kMaxCachedIndices = (8u << 20) / sizeof(u32);
	constexpr u32 kTriangles = 4; // a particle: 48 bytes of indices, so page after page starts aligned
	const u32 particleCount = kMaxCachedIndices / (kTriangles * 3);
	for (const u32 count : {particleCount, particleCount + 1})
	{
		const Model::SScene scene = Pages({
			{count - 12, kTriangles},
            {12,         kTriangles}
        });
		EXPECT_TRUE(SortsLikeTheModel(scene)) << count << " particles";
	}
}

// Parity.

TEST(TriangleSort, OddPage_ReportsItsRecordsOnceEach)
{
	const Model::SScene scene = Pages({
		{1, 1},
        {5, 1},
        {2, 1},
        {7, 2}
    }); // from triangles 0, 1, 6 and 8 on
	CSceneMemory memory(scene);
	CWarningRecorder warnings;
	CExpectReports reports{"Mem::IsAligned<0x10>(it)", "Mem::IsAligned<0x10>(inoutList.Data())"};
	memory.Sort();
	EXPECT_TRUE(memory.Holds(Model::TriangleSort(scene)));
}

// Every sequence of odd and even pages up to six, so that every page meets every parity of every page before it.
TEST(TriangleSort, EverySequenceOfParities_MatchesTheModel)
{
	constexpr SPageOf kOdd[] = {
		{1, 1},
        {3, 3},
        {5, 1},
        {7, 5}
    };
	constexpr SPageOf kEven[] = {
		{2, 1},
        {3, 2},
        {9, 4},
        {4, 3}
    };
	for (u32 pageCount = 1; pageCount <= 6; ++pageCount)
	{
		for (u32 oddPages = 0; oddPages < 1u << pageCount; ++oddPages)
		{
			std::vector<SPageOf> pages;
			for (u32 i = 0; i < pageCount; ++i)
				pages.push_back((oddPages >> i & 1) != 0 ? kOdd[(oddPages + i) % 4] : kEven[(oddPages + i) % 4]);
			Model::SScene scene = Pages(pages);
			ExpectLikeTheModelForAllTypes(scene);

			// The same with a disabled particle in front of every other page.
			for (u32 i = oddPages % 2; i < pageCount; i += 2)
			{
				Model::SPage &page = scene.m_Pages[i];
				page.m_Values.m_Elements.insert(page.m_Values.m_Elements.begin(), FloatBits(100));
				page.m_Positions.m_Elements.insert(page.m_Positions.m_Elements.begin(), Model::SFloat3{0, 0, 0});
				page.m_Enabled.assign(page.m_RenderedCount + 1, 1);
				page.m_Enabled[0] = 0;
			}
			ExpectLikeTheModelForAllTypes(scene);
		}
	}
}

// Pages of nothing.

// Without views, with views of memory that faults, and with every particle disabled.
static Model::SPage EmptyPage(u32 kind, u32 width)
{
	Model::SPage page;
	page.m_VerticesPerParticle = 3;
	page.m_Pattern.assign(width, 2);
	page.m_Positions.m_Elements.resize(kind == 0 ? 0 : 5);
	page.m_Values.m_Elements.resize(kind == 0 ? 0 : 5);
	page.m_Enabled.resize(kind == 2 ? 5 : 0);
	return page;
}

// The triangles before an empty page give its destination every alignment, in the list of unsorted triangles.
TEST(TriangleSort, EmptyPageOfWidth12_TouchesNothingAnywhere)
{
	for (u32 trianglesBefore = 0; trianglesBefore <= 8; ++trianglesBefore)
	{
		for (u32 kind = 0; kind < 3; ++kind)
		{
			const Model::SPage emptyPage = EmptyPage(kind, 12);
			Model::SScene scene = Pages({
				{trianglesBefore, 1},
                {3,               4}
            });
			scene.m_VertexCount += 3; // what an empty page asks for as well
			scene.m_OutputAddressMod16 = trianglesBefore % 4 * 4;

			const Model::SScene pagesOnly = scene;
			for (const u32 place : {0u, 1u, 2u}) // first, in between, last
			{
				scene.m_Pages = pagesOnly.m_Pages;
				scene.m_Pages.insert(scene.m_Pages.begin() + place, emptyPage);
				ExpectLikeTheModelForAllTypes(scene);
				EXPECT_EQ(Model::TriangleSort(scene).m_Output, Model::TriangleSort(pagesOnly).m_Output);
			}
			scene.m_Pages = {emptyPage, emptyPage, pagesOnly.m_Pages[0], emptyPage, pagesOnly.m_Pages[1], emptyPage};
			ExpectLikeTheModelForAllTypes(scene);
		}
	}
}

TEST(TriangleSort, EmptyPage_OpensNoScopeAndRunsNoAssertion)
{
	Model::SScene scene = Pages({{2}, {2}});
	scene.m_Pages.insert(scene.m_Pages.begin() + 1, EmptyPage(0, 0)); // no views and no pattern
	CSceneMemory memory(scene);
	CExpectReports reports{};
	CWarningRecorder warnings;
	CScopeRecorder scopes;
	memory.Sort();
	EXPECT_TRUE(memory.Holds(Model::TriangleSort(scene)));
	EXPECT_EQ(std::count(scopes.Events().begin(), scopes.Events().end(), "+ExpandIndices<u32>"), 2);
	EXPECT_EQ(std::count(scopes.Events().begin(), scopes.Events().end(), "+ExpandSortToTriangles"), 2);
}

TEST(TriangleSort, NoTriangles_WriteNothing)
{
	for (const u32 pageCount : {0u, 1u, 4u})
	{
		Model::SScene scene = Pages({});
		scene.m_Pages.assign(pageCount, EmptyPage(1, 12));
		scene.m_VertexCount = 100;
		scene.m_IndexCapacity = 12;
		ExpectLikeTheModelForAllTypes(scene);
	}
}

// Vertex budget.

TEST(TriangleSort, EveryVertexBudget_MatchesTheModel)
{
	Model::SScene scene = Pages({
		{2, 1, 4},
        {5, 3, 3},
        {0, 4, 9},
        {3, 2, 1},
        {1, 1, 7},
        {6, 1, 2}
    });
	const u32 needed = scene.m_VertexCount;
	for (u32 vertexCount = 0; vertexCount <= needed + 10; ++vertexCount)
	{
		scene.m_VertexCount = vertexCount;
		for (const bool enabledBytes : {false, true})
		{
			for (Model::SPage &page : scene.m_Pages)
				page.m_Enabled.assign(enabledBytes ? page.m_RenderedCount : 0, 1);
			ExpectLikeTheModelForAllTypes(scene);
		}
	}
}

// Values rise through the pages, so that fillers, which come first, stand apart from what is drawn.
static Model::SScene ThreePagesOfTwo()
{
	return PagesOfValues({2, 2, 2}, {1, 2, 3, 4, 5, 6});
}

TEST(TriangleSort, PageThatDoesNotFit_DropsTheLaterOnesEvenIfSmaller)
{
	Model::SScene scene = ThreePagesOfTwo();
	scene.m_Pages[1].m_VerticesPerParticle = 5;
	scene.m_VertexCount = 10; // six for the first page; four are one too few for the second
	EXPECT_EQ(SortedFirstVertices(scene), CIndices({0, 0, 0, 0, 0, 3}));
	scene.m_VertexCount = 11; // one particle of the second, and nothing is left for the third
	EXPECT_EQ(SortedFirstVertices(scene), CIndices({0, 0, 0, 0, 3, 6}));
}

TEST(TriangleSort, EmptyPageThatDoesNotFit_EndsThePagesToo)
{
	Model::SScene scene = PagesOfValues({2, 0, 2}, {1, 2, 5, 6});
	scene.m_VertexCount = 12;
	scene.m_Pages[1].m_VerticesPerParticle = 6;
	EXPECT_EQ(SortedFirstVertices(scene), CIndices({0, 3, 6, 9}));
	scene.m_Pages[1].m_VerticesPerParticle = 7;
	EXPECT_EQ(SortedFirstVertices(scene), CIndices({0, 0, 0, 3}));
}

// A page that is cut takes its first particles. Its enabled bytes, although none is 0, send it through compaction,
// which has keys of its own.
TEST(TriangleSort, CutPage_TakesTheDirectPathUnlessItHasEnabledBytes)
{
	for (const bool enabledBytes : {false, true})
	{
		Model::SScene scene = Pages({{5}});
		scene.m_SortType = Model::ESortType::ByPosition;
		scene.m_VertexCount = 6;
		scene.m_Pages[0].m_Enabled.assign(enabledBytes ? 5 : 0, 1);
		CExpectReports reports{};
		CSceneMemory memory(scene);
		memory.Sort();

		const SIndexAndDepth *const sorted = static_cast<const SIndexAndDepth *>(memory.WorkingBuffer());
		std::vector<u32> keys;
		for (u32 i = 0; i < 2; ++i)
		{
			const Model::SFloat3 &position = scene.m_Pages[0].m_Positions.m_Elements[i];
			keys.push_back(enabledBytes ? Model::CompactedDistanceKey(position, scene.m_Camera)
										: Model::DistanceKey(position, scene.m_Camera));
		}
		std::sort(keys.begin(), keys.end());
		EXPECT_EQ(sorted[2].m_Depth, Model::kFloatKeyFar); // after two more fillers
		EXPECT_EQ(sorted[3].m_Depth, keys[0]);
		EXPECT_EQ(sorted[4].m_Depth, keys[1]);
	}
}

// Fillers and small outputs.

TEST(TriangleSort, RoomForMoreTriangles_IsFilledWithTrianglesOfVertex0)
{
	Model::SScene scene = PagesOfValues({2}, {1, 2});
	scene.m_TriangleIndexCount += 9;
	scene.m_IndexCapacity += 12; // three triangles more than there are stay untouched
	const Model::SSortResult result = Model::TriangleSort(scene);
	CSceneMemory memory(scene);
	memory.Sort();
	EXPECT_TRUE(memory.Holds(result));
	EXPECT_EQ(SortedFirstVertices(scene), CIndices({0, 0, 0, 0, 3}));

	const SIndexAndDepth *const sorted = static_cast<const SIndexAndDepth *>(memory.WorkingBuffer());
	for (u32 i = 0; i < 3; ++i)
		EXPECT_EQ(sorted[i].m_Depth, 0x007FFFFFu);
}

TEST(TriangleSort, ValuesAtAndBelowTheFillers_SortLikeAnyOthers)
{
	Model::SScene scene = PagesOfValues({4, 2}, {1, 0, 0, 2, 0, 3});
	scene.m_Pages[0].m_Values.m_Elements[1] = 0xFF800000; // -infinity: the key of the fillers
	scene.m_Pages[0].m_Values.m_Elements[2] = 0xFFC00000; // a NaN with its sign: below
	scene.m_Pages[1].m_Values.m_Elements[0] = 0xFF800000;
	scene.m_TriangleIndexCount += 12;
	scene.m_IndexCapacity += 12;
	ExpectLikeTheModelForAllTypes(scene);
	EXPECT_EQ(SortedFirstVertices(scene)[0], 6u);
}

TEST(TriangleSort, SmallOutput_KeepsTheHighestKeys)
{
	Model::SScene scene = Pages({
		{7, 2, 4},
        {4, 3, 5}
    });
	const std::vector<u32> all = SortedFirstVertices(scene);
	for (u32 capacity = 0; capacity <= scene.m_TriangleIndexCount + 4; ++capacity)
	{
		scene.m_IndexCapacity = capacity;
		const std::size_t written = std::min<std::size_t>(capacity / 3, all.size());
		EXPECT_EQ(SortedFirstVertices(scene), std::vector<u32>(all.end() - std::ptrdiff_t(written), all.end()));
		ExpectLikeTheModelForAllTypes(scene);
	}
}

// The working buffer.

TEST(TriangleSort, Indices16_LeaveTheUpperHalfOfTheIndicesAsItWas)
{
	Model::SScene scene = Pages({
		{9, 2},
        {3, 4}
    });
	scene.m_IndexType = Model::EIndexType::U16;
	CSceneMemory memory(scene);
	CWarningRecorder warnings;
	memory.Sort();
	const u32 size = CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(scene.m_TriangleIndexCount);
	const unsigned char *const end = static_cast<const unsigned char *>(memory.WorkingBuffer()) + size;
	const unsigned char *const upperHalf = end - scene.m_TriangleIndexCount * 2;
	EXPECT_EQ(std::count(upperHalf, end, CGuardedMemory::kInitialByte), end - upperHalf);
}

TEST(TriangleSort, NullWorkingBuffer_TakesTheExactSizeAndGivesItBack)
{
	for (const auto &[triangleCount, size] : {std::pair(333u, 9344u), std::pair(1u, 48u), std::pair(0u, 0u)})
	{
		for (const Model::EIndexType indexType : kIndexTypes)
		{
			Model::SScene scene = Pages({{triangleCount}});
			scene.m_IndexType = indexType;
			ExpectScratchOfSize(scene, size, Model::TriangleSort(scene));
		}
	}
}

TEST(TriangleSort, GivenWorkingBuffer_AllocatesNothing)
{
	ExpectNothingAllocated(Pages({
		{50, 2},
        {90, 1}
    }));
}

TEST(TriangleSort, RefusedAllocation_ReturnsInSilence)
{
	ExpectSilenceWithoutMemory(Pages({{10}}));
}

// Scopes.

TEST(TriangleSort, Scopes_FollowEachOtherWithTheirColours)
{
	for (const Model::ESortType sortType : kSortTypes)
	{
		for (const Model::EIndexType indexType : kIndexTypes)
		{
			Model::SScene scene = Pages({
				{2, 1},
                {3, 2}
            });
			scene.m_SortType = sortType;
			scene.m_IndexType = indexType;
			CSceneMemory memory(scene);
			CWarningRecorder warnings;
			CScopeRecorder scopes;
			memory.Sort();

			const std::string expand =
				indexType == Model::EIndexType::U16 ? "ExpandIndices<u16>" : "ExpandIndices<u32>";
			const char *const fill = "FillSortingIndirectionsListPoint_NoIndices_And_Expand";
			const std::vector<std::string> events = {std::string("+") + fill, "+" + expand, "-" + expand,
				"+ExpandSortToTriangles", "-ExpandSortToTriangles", "+" + expand, "-" + expand,
				"+ExpandSortToTriangles", "-ExpandSortToTriangles", std::string("-") + fill, "+Sort", "-Sort",
				"+ApplySortingToIndices", "-ApplySortingToIndices"};
			EXPECT_EQ(scopes.Events(), events);
			ASSERT_EQ(scopes.Nodes().size(), 7u);
			ExpectNode(*scopes.Nodes()[0], fill, 0.5f, 0.08f, 0.9f);
			ExpectNode(*scopes.Nodes()[1], expand.c_str(), 0.1f, 0.5f, 0.9f);
			ExpectNode(*scopes.Nodes()[5], "Sort", 0.2f, 0.08f, 0.9f);
			ExpectNode(*scopes.Nodes()[6], "ApplySortingToIndices", 0.0f, 0.08f, 0.9f);
		}
	}
}

// More pages than 16 bits count. Which way round a page's triangles go follows from the bits of the page's number, so a
// number cut to 8 or 16 bits finds a pattern that goes the other way. Two of them per page keep records aligned.
TEST(TriangleSort, MorePagesThan16BitsCount_HavePatternsOfTheirOwn)
{
	constexpr u32 kPageCount = 65'537;
	u32 entries[2][6] = {
		{0, 1, 2, 0, 1, 2},
        {2, 1, 0, 2, 1, 0}
    };
	std::vector<float> values(kPageCount);
	std::vector<TStridedMemoryView<const float>> valuePages;
	std::vector<CTriangleSorter::CIndexPattern> patterns;
	std::vector<u32> expected;
	for (u32 page = 0; page < kPageCount; ++page)
	{
		const u32(&pagesEntries)[6] = entries[std::bitset<32>(page).count() % 2];
		values[page] = float(page);
		valuePages.emplace_back(&values[page], 1, u32(sizeof(float)));
		patterns.emplace_back(TMemoryView<const u32>(pagesEntries, 6));
		for (const u32 entry : pagesEntries)
			expected.push_back(3 * page + entry);
	}
	const std::vector<TStridedMemoryView<const u8>> enabledPages(kPageCount);
	const std::vector<u32> renderedCounts(kPageCount, 1);
	const std::vector<u32> vertexCounts(kPageCount, 3);
	const u32 indexCount = u32(expected.size());
	std::vector<u32> output(indexCount);
	const CGuardedMemory workingBuffer(CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(indexCount));

	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer({output.data(), indexCount}, 3 * kPageCount);
	sorter.Setup_InputPageCache({valuePages.data(), kPageCount, sizeof(valuePages[0])},
		{enabledPages.data(), kPageCount, sizeof(enabledPages[0])}, {renderedCounts.data(), kPageCount, sizeof(u32)},
		kPageCount);
	sorter.Setup_Geometry(TMemoryView<const CTriangleSorter::CIndexPattern>(patterns.data(), kPageCount),
		TMemoryView<const u32>(vertexCounts.data(), kPageCount), indexCount);
	const CWarningRecorder quiet;
	const CExpectReports none;
	sorter.SortTriangles_AutogenIndices(workingBuffer.Data());
	EXPECT_TRUE(output == expected);
}
