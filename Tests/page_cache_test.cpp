// The walk over the page cache, seen through a point sort: up to 109 records the second record array of the working
// buffer keeps what the walk filled in, and above that the output shows it.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include "fill_calls.h"
#include "scene_memory.h"
#include <algorithm>
#include <bitset>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
typedef std::vector<Model::SRecord> CRecords;
typedef std::vector<Model::SPage> CPages;

constexpr u32 kVerticesPerParticle = 4;
constexpr Model::SRecord kFiller = {0x007FFFFFu, 0};

// Particle i of a page lies at distance i + first from the origin, on the x axis, and has that as its value.
Model::SPage Page(u32 particleCount, u32 renderedCount, const std::vector<u8> &enabled = {}, u32 first = 1)
{
	Model::SPage page;
	for (u32 i = 0; i < particleCount; ++i)
	{
		const float distance = float(i + first);
		u32 bits;
		std::memcpy(&bits, &distance, sizeof(bits));
		page.m_Positions.m_Elements.push_back({bits, 0, 0});
		page.m_Values.m_Elements.push_back(bits);
	}
	page.m_Enabled = enabled;
	page.m_RenderedCount = renderedCount;
	return page;
}
Model::SPage FullPage(u32 count, u32 first = 1)
{
	return Page(count, count, {}, first);
}
Model::SPage PageWithBytes(const std::vector<u8> &enabled, u32 first = 1)
{
	const auto disabled = std::count(enabled.begin(), enabled.end(), u8(0));
	return Page(u32(enabled.size()), u32(enabled.size()) - u32(disabled), enabled, first);
}

struct SWalker
{
	const char *m_Name;
	Model::ESortType m_SortType;
	Model::EGeometry m_Geometry;
};
const SWalker kWalkers[] = {
	{"PositionsConstant",  Model::ESortType::ByPosition, Model::EGeometry::Constant },
	{"ValuesConstant",     Model::ESortType::ByValue,    Model::EGeometry::Constant },
	{"PositionsIndexList", Model::ESortType::ByPosition, Model::EGeometry::IndexList},
	{"ValuesIndexList",    Model::ESortType::ByValue,    Model::EGeometry::IndexList},
};

// All particles inside the vertex buffer and the output. The list, which ends where memory ends, goes down in threes.
Model::SScene Scene(const SWalker &walker, const CPages &pages)
{
	Model::SScene scene;
	scene.m_SortType = walker.m_SortType;
	scene.m_Geometry = walker.m_Geometry;
	scene.m_Pages = pages;
	for (const Model::SPage &page : pages)
		scene.m_ParticleCount += page.m_RenderedCount;
	scene.m_VerticesPerParticle = kVerticesPerParticle;
	scene.m_VertexCount = scene.m_ParticleCount * kVerticesPerParticle;
	scene.m_Pattern = {0};
	scene.m_IndexCapacity = scene.m_ParticleCount;
	if (scene.m_Geometry == Model::EGeometry::IndexList)
	{
		for (u32 i = scene.m_ParticleCount; i-- > 0;)
			scene.m_IndexList.push_back(3 * i);
		scene.m_IndexListAddressMod16 = FlushAddressMod16(4, scene.m_ParticleCount, 4);
	}
	return scene;
}

// What the walk fills in, without a report.
CRecords Filled(const Model::SScene &scene)
{
	EXPECT_GT(scene.m_ParticleCount, 0u);
	EXPECT_LE(scene.m_ParticleCount, 109u);
	CSceneMemory memory(scene);
	const CWarningRecorder quiet;
	const CExpectReports none;
	memory.Sort();
	const u32 paddedCount = (scene.m_ParticleCount + 1) / 2 * 2;
	const SIndexAndDepth *const records = static_cast<const SIndexAndDepth *>(memory.WorkingBuffer());
	return ReadRecords(records + paddedCount, scene.m_ParticleCount);
}

// Keys of a value, or of the distance from the origin on either path.
u32 ValueKey(float value)
{
	u32 bits;
	std::memcpy(&bits, &value, sizeof(bits));
	return bits | 0x80000000u;
}
u32 DirectKey(float distance)
{
	const float len2 = distance * distance;
	u32 bits;
	std::memcpy(&bits, &len2, sizeof(bits));
	return ~bits;
}
u32 CompactedKey(float distance)
{
	return DirectKey(distance) & 0x7FFFFFFFu;
}

// Pages of every kind that a cache holds.
CPages EveryKindOfPage()
{
	CPages pages = {
		Page(0, 0),                                 // no memory behind its views
		Page(5, 0),                                 // inaccessible memory
		Page(3, 0, {0, 0, 0}),                      // all disabled, and inaccessible
		FullPage(3),                                // packed
		FullPage(6),                                // at a stride
		PageWithBytes({1, 1, 1, 1, 1}),             // none disabled
		PageWithBytes({0, 1, 1, 0, 0, 1, 1, 1, 0}), // some disabled
		Page(7, 2),                                 // its first two, as nothing says otherwise
		Page(5, 2, {0, 1, 1, 1, 0}),                // the first two of three
	};
	pages[4].m_Positions.m_Stride = 16;
	pages[4].m_Values.m_Stride = 8;
	return pages;
}

class PageCache : public testing::TestWithParam<SWalker>
{
};
INSTANTIATE_TEST_SUITE_P(AllWalkers,
	PageCache,
	testing::ValuesIn(kWalkers),
	[](const testing::TestParamInfo<SWalker> &walker) { return walker.param.m_Name; });
} // namespace

// A page of disabled particles counts those that are drawn; its distances are keyed apart.
TEST(PageCacheFill, RenderedParticles_AreNumberedThroughAllPages)
{
	const CPages pages = {
		FullPage(2), Page(4, 0), PageWithBytes({0, 1, 1, 0}, 10), Page(0, 0), FullPage(3, 20), Page(2, 0, {0, 0})};
	const CRecords ofValues = {
		{ValueKey(1),  0 },
		{ValueKey(2),  4 },
		{ValueKey(11), 8 },
		{ValueKey(12), 12},
		{ValueKey(20), 16},
		{ValueKey(21), 20},
		{ValueKey(22), 24},
	};
	EXPECT_TRUE(SameRecords(ofValues, Filled(Scene(kWalkers[1], pages))));
	const CRecords ofPositions = {
		{DirectKey(1),     0 },
		{DirectKey(2),     4 },
		{CompactedKey(11), 8 },
		{CompactedKey(12), 12},
		{DirectKey(20),    16},
		{DirectKey(21),    20},
		{DirectKey(22),    24},
	};
	EXPECT_TRUE(SameRecords(ofPositions, Filled(Scene(kWalkers[0], pages))));
}

TEST(PageCacheFill, IndexList_PairsWithRenderedParticles)
{
	const CPages pages = {Page(3, 0), FullPage(2), PageWithBytes({0, 1, 1, 0}, 10), FullPage(1, 20)};
	Model::SScene scene = Scene(kWalkers[3], pages);
	scene.m_IndexList = {30, 7, 100, 0, 99};
	scene.m_VertexCount = 100;
	const CRecords ofValues = {
		{ValueKey(1),  30},
		{ValueKey(2),  7 },
		{0x007FFFFFu,  0 },
		{ValueKey(12), 0 },
		{ValueKey(20), 99},
	};
	EXPECT_TRUE(SameRecords(ofValues, Filled(scene)));

	scene.m_SortType = Model::ESortType::ByPosition;
	scene.m_IndexList = {30, 0xFFFFFFFFu, 100, 0, 99};
	const CRecords ofPositions = {
		{DirectKey(1),     30},
		{0x807FFFFFu,      0 }, // far as the direct path has it,
		{0x007FFFFFu,      0 }, // and as compaction has it
		{CompactedKey(12), 0 },
		{DirectKey(20),    99},
	};
	EXPECT_TRUE(SameRecords(ofPositions, Filled(scene)));
}

// More particles in the views than drawn, and nothing that says which: no report, and no compaction.
TEST(PageCacheFill, PageWithoutBytes_GivesItsFirstParticlesOnTheDirectPath)
{
	const CPages pages = {Page(6, 2), Page(9, 3, {}, 10)};
	const CRecords expected = {
		{DirectKey(1),  0 },
		{DirectKey(2),  4 },
		{DirectKey(10), 8 },
		{DirectKey(11), 12},
		{DirectKey(12), 16},
	};
	EXPECT_TRUE(SameRecords(expected, Filled(Scene(kWalkers[0], pages))));
}

// Where the vertex budget cuts a page with disabled particles, its particles are offered up to the last one drawn.
TEST(PageCacheFill, CutInAPageWithDisabledParticles_EndsAfterTheLastDrawn)
{
	Model::SScene scene = Scene(kWalkers[0], {PageWithBytes({0, 1, 1, 0, 1})});
	scene.m_VertexCount = 2 * kVerticesPerParticle;
	const CRecords compacted = {
		{CompactedKey(2), 0},
		{CompactedKey(3), 4},
		{0x007FFFFFu,     0},
	};
	EXPECT_TRUE(SameRecords(compacted, Filled(scene)));

	// All that is offered is drawn: nothing to compact.
	scene = Scene(kWalkers[0], {PageWithBytes({1, 1, 0, 1})});
	scene.m_VertexCount = 2 * kVerticesPerParticle;
	const CRecords direct = {
		{DirectKey(1), 0},
		{DirectKey(2), 4},
		{0x007FFFFFu,  0},
	};
	EXPECT_TRUE(SameRecords(direct, Filled(scene)));
}

// Cut anywhere, such a page stays on the direct path.
TEST(PageCacheFill, PageWithEveryByteSet_MapsOneToOne)
{
	for (const u32 drawn : {1u, 2u, 3u})
	{
		Model::SScene scene = Scene(kWalkers[0], {FullPage(1), PageWithBytes({1, 2, 255}, 10)});
		scene.m_VertexCount = (1 + drawn) * kVerticesPerParticle;
		CRecords expected = {
			{DirectKey(1),  0 },
			{DirectKey(10), 4 },
			{DirectKey(11), 8 },
			{DirectKey(12), 12},
		};
		std::fill(expected.begin() + 1 + std::ptrdiff_t(drawn), expected.end(), kFiller);
		EXPECT_TRUE(SameRecords(expected, Filled(scene))) << drawn;
	}
}

// More pages than 16 bits count, of two particles each. Which one is enabled follows from the bits of the page's
// number, so a number cut to 8 or 16 bits finds bytes that enable the other one.
TEST(PageCacheFill, MorePagesThan16BitsCount_HaveEnabledBytesOfTheirOwn)
{
	constexpr u32 kPageCount = 65'537;
	const u8 bytes[2][2] = {
		{1, 0},
        {0, 1}
    };
	std::vector<float> values(2 * kPageCount, -1.0f);
	std::vector<TStridedMemoryView<const float>> valuePages;
	std::vector<TStridedMemoryView<const u8>> enabledPages;
	const std::vector<u32> renderedCounts(kPageCount, 1);
	for (u32 page = 0; page < kPageCount; ++page)
	{
		const u32 enabled = std::bitset<32>(page).count() % 2;
		values[2 * page + enabled] = float(page); // the disabled one's is lower
		valuePages.emplace_back(&values[2 * page], 2, u32(sizeof(float)));
		enabledPages.emplace_back(bytes[enabled], 2, 1);
	}
	u32 pattern[1] = {0};
	std::vector<u32> output(kPageCount);
	const CGuardedMemory workingBuffer(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kPageCount));

	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer({output.data(), kPageCount}, kPageCount);
	sorter.Setup_InputPageCache({valuePages.data(), kPageCount, sizeof(valuePages[0])},
		{enabledPages.data(), kPageCount, sizeof(enabledPages[0])}, {renderedCounts.data(), kPageCount, sizeof(u32)},
		kPageCount);
	sorter.Setup_Geometry(TMemoryView<u32>(pattern, 1), 1);
	const CExpectReports none;
	sorter.SortPoints_AutogenIndices(workingBuffer.Data());
	for (u32 i = 0; i < kPageCount; ++i)
		ASSERT_EQ(output[i], i);
}

// Counts decide, not bytes: a page that draws as many particles as it has bytes is taken as it lies.
TEST(PageCacheFill, PageThatDrawsAsManyAsItHasBytes_IsNotSearched)
{
	Model::SScene scene = Scene(kWalkers[0], {Page(3, 3, {1, 0, 1})});
	scene.m_VertexCount = 2 * kVerticesPerParticle;
	const CRecords expected = {
		{DirectKey(1), 0},
		{DirectKey(2), 4},
		{0x007FFFFFu,  0},
	};
	EXPECT_TRUE(SameRecords(expected, Filled(scene)));
}

// A vertex short of a particle's last is a particle short.
TEST(PageCacheFill, EveryVertexBudget_CutsWholeParticles)
{
	const CPages pages = EveryKindOfPage();
	for (const SWalker *walker : {&kWalkers[0], &kWalkers[1]})
	{
		Model::SScene scene = Scene(*walker, pages);
		const CRecords uncut = Filled(scene);
		const u32 vertexCount = scene.m_VertexCount;
		for (u32 budget = 0; budget <= vertexCount + 5; ++budget)
		{
			SCOPED_TRACE(testing::Message() << walker->m_Name << ", " << budget << " vertices");
			scene.m_VertexCount = budget;
			EXPECT_TRUE(SortsLikeTheModel(scene));
			const u32 drawn = std::min(budget / kVerticesPerParticle, scene.m_ParticleCount);
			const CRecords records = Filled(scene);
			std::vector<u32> bases;
			for (u32 i = 0; i < scene.m_ParticleCount; ++i)
			{
				EXPECT_TRUE(i < drawn || records[i] == kFiller) << i;
				if (i < drawn)
					bases.push_back(records[i].m_Index);
			}
			std::sort(bases.begin(), bases.end()); // groups of four lie 2, 3, 0, 1
			for (u32 i = 0; i < drawn; ++i)
				EXPECT_EQ(bases[i], i * kVerticesPerParticle);
			EXPECT_TRUE(budget < vertexCount || SameRecords(uncut, records));
			if (HasFailure())
				return;
		}
	}
}

// Views of inaccessible memory: without a vertex for the first particle, no page is looked at.
TEST(PageCacheFill, NoVertexForAnyParticle_FillsWithoutAccess)
{
	const CGuardedMemory nothing(0);
	const TStridedMemoryView<const CFloat3> positions(nothing.As<const CFloat3>(), 9, 12);
	const TStridedMemoryView<const float> values(nothing.As<const float>(), 9, 4);
	const TStridedMemoryView<const u8> enableds(nothing.Data(), 9, 1);
	const u32 renderedCount = 7;
	const CTriangleSorter::CRenderedCounts counts(&renderedCount, 1, 4);
	for (const u32 vertexCount : {0u, 1u, 3u})
	{
		for (const bool byPosition : {false, true})
		{
			std::vector<u32> output(7, 77);
			u32 pattern = 0;
			CTriangleSorter sorter;
			sorter.Setup_OutputIndexBuffer({output.data(), 7}, vertexCount);
			if (byPosition)
				sorter.Setup_InputPageCache({&positions, 1, 16}, {&enableds, 1, 16}, counts, 7, CFloat3());
			else
				sorter.Setup_InputPageCache({&values, 1, 16}, {&enableds, 1, 16}, counts, 7);
			sorter.Setup_Geometry({&pattern, 1}, kVerticesPerParticle);

			const CGuardedMemory workingBuffer(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(7));
			const CWarningRecorder quiet;
			const CExpectReports none;
			sorter.SortPoints_AutogenIndices(workingBuffer.Data());
			EXPECT_TRUE(SameRecords(CRecords(7, kFiller), ReadRecords(workingBuffer.Data(), 7)));
			EXPECT_TRUE(SameRecords(CRecords(7, kFiller), ReadRecords(workingBuffer.As<SIndexAndDepth>() + 8, 7)));
			EXPECT_EQ(output, std::vector<u32>(7, 0));
		}
	}
}

TEST_P(PageCache, EverySequenceOfThreePages_MatchesTheModel)
{
	const CPages kinds = EveryKindOfPage();
	for (std::size_t a = 0; a < kinds.size(); ++a)
	{
		for (std::size_t b = 0; b < kinds.size(); ++b)
		{
			for (std::size_t c = 0; c < kinds.size(); ++c)
			{
				ASSERT_TRUE(SortsLikeTheModel(Scene(GetParam(), {kinds[a], kinds[b], kinds[c]})))
					<< "pages " << a << ", " << b << ", " << c;
			}
		}
	}
}

// A range that ends where a page ends stops at the next page that draws something, or behind the last one.
TEST_P(PageCache, EmptyPagesAnywhere_GiveNoRecordAndNoReport)
{
	const CPages empty = {Page(0, 0), Page(4, 0), Page(2, 0, {0, 0})};
	for (u32 before = 0; before <= 3; ++before)
	{
		for (u32 between = 0; between <= 3; ++between)
		{
			for (u32 behind = 0; behind <= 3; ++behind)
			{
				CPages pages(empty.begin(), empty.begin() + before);
				pages.push_back(FullPage(3));
				pages.insert(pages.end(), empty.begin(), empty.begin() + between);
				pages.push_back(PageWithBytes({1, 0, 1, 1}));
				pages.insert(pages.end(), empty.begin(), empty.begin() + behind);
				Model::SScene scene = Scene(GetParam(), pages);
				for (const u32 vertexCount : {24u, 12u, 16u})
				{
					scene.m_VertexCount = vertexCount;
					ASSERT_TRUE(SortsLikeTheModel(scene)) << before << ", " << between << ", " << behind << " empty";
				}
			}
		}
	}
}

// No particle at all, in views of inaccessible memory.
TEST_P(PageCache, PagesThatDrawNothing_AreNotAccessed)
{
	for (u32 pageCount = 1; pageCount <= 5; ++pageCount)
	{
		CPages pages;
		for (u32 i = 0; i < pageCount; ++i)
			pages.push_back(Page(i, 0, std::vector<u8>(i / 2 * 2 == i ? i : 0, 0)));
		EXPECT_TRUE(SortsLikeTheModel(Scene(GetParam(), pages))) << pageCount; // its report is that of no particles
	}
}

TEST(PageCacheIndexList, EveryAddress_IsFollowed)
{
	for (const SWalker &walker : kWalkers)
	{
		if (walker.m_Geometry != Model::EGeometry::IndexList)
			continue;
		Model::SScene scene = Scene(walker, EveryKindOfPage());
		for (u32 address = 0; address < 16; ++address)
		{
			scene.m_IndexListAddressMod16 = address;
			EXPECT_TRUE(SortsLikeTheModel(scene)) << walker.m_Name << ", " << address;
		}
	}
}

// Counts and views may lie inside structures of the host.
TEST_P(PageCache, CountsAndViewsAtAStride_AreFollowed)
{
	SSceneLayout layout;
	layout.m_RenderedCountStride = 12;
	layout.m_PageViewStride = 40;
	EXPECT_TRUE(SortsLikeTheModel(Scene(GetParam(), EveryKindOfPage()), layout));
	layout.m_Flush = CGuardedMemory::FlushStart;
	EXPECT_TRUE(SortsLikeTheModel(Scene(GetParam(), EveryKindOfPage()), layout));
}

// From 110 particles on only the output and the orders by key are left to see, with keys that are equal across pages.
TEST_P(PageCache, AroundTheSortsThreshold_MatchesTheModel)
{
	for (u32 last = 105; last <= 113; ++last)
	{
		CPages pages = {FullPage(40), Page(2, 0), PageWithBytes({1, 0, 1, 1, 1, 0, 0, 1}), FullPage(last - 45)};
		EXPECT_TRUE(SortsLikeTheModel(Scene(GetParam(), pages))) << last;
		pages.insert(pages.begin() + 1, Page(9, 3));
		EXPECT_TRUE(SortsLikeTheModel(Scene(GetParam(), pages))) << last;
	}
}

// VEXMOOR_TEST_SEED=n runs case n alone.
TEST_P(PageCache, ManySmallPages_MatchTheModel)
{
	Model::SSceneOptions options;
	options.m_SortType = GetParam().m_SortType;
	options.m_Geometry = GetParam().m_Geometry;
	options.m_PageCount = {1, 30};
	options.m_ParticlesPerPage = {0, 7};
	options.m_WeightEmpty = 5;
	options.m_VertexCutPercent = 50;
	options.m_Width = {1, 1};
	const char *const alone = std::getenv("VEXMOOR_TEST_SEED");
	const std::uint64_t first = alone != nullptr ? std::strtoull(alone, nullptr, 0) : 1;
	const std::uint64_t last = alone != nullptr ? first : 300;
	for (std::uint64_t seed = first; seed <= last; ++seed)
	{
		const Model::SScene scene = Model::RandomPointScene(seed, options);
		ASSERT_TRUE(SortsLikeTheModel(scene))
			<< "seed " << seed << ", " << Model::Describe(scene) << "; run alone with VEXMOOR_TEST_SEED=" << seed
			<< " --gtest_filter='*PageCache.ManySmallPages_MatchTheModel/" << GetParam().m_Name << "'";
	}
}

// A sort whose views of pages end where memory ends, and the records that it fills in. Every page has one virtual
// element.
struct SBrokenCall
{
	static constexpr u32 kParticleCount = 3;
	static constexpr u32 kListStep = 5;

	explicit SBrokenCall(const SWalker &walker, const std::vector<u32> &renderedCounts)
		: m_Walker(walker)
		, m_Counts(ReadOnly(renderedCounts, FlushAddressMod16(4, u32(renderedCounts.size()), 4)))
		, m_CountPages(u32(renderedCounts.size()))
		, m_SourcePages(m_CountPages)
		, m_EnabledPages(m_CountPages)
	{
	}

	CRecords FilledRecords() const
	{
		const CFloat3 position(2, 0, 0);
		const float value = 2;
		const auto atTheEnd = [](const auto &views) { return ReadOnly(views, 0); }; // each of 16 bytes
		const CGuardedMemory positions =
			atTheEnd(std::vector<TStridedMemoryView<const CFloat3>>(m_SourcePages, {&position, kParticleCount, 0}));
		const CGuardedMemory values =
			atTheEnd(std::vector<TStridedMemoryView<const float>>(m_SourcePages, {&value, kParticleCount, 0}));
		const CGuardedMemory enableds = atTheEnd(std::vector<TStridedMemoryView<const u8>>(m_EnabledPages));
		const CTriangleSorter::CRenderedCounts counts(m_Counts.As<u32>(), m_CountPages, 4);
		const CTriangleSorter::CEnabledPages enabledPages(
			enableds.As<TStridedMemoryView<const u8>>(), m_EnabledPages, 16);
		const std::vector<u32> list = {0, kListStep, 2 * kListStep};
		u32 pattern = 0;
		std::vector<u32> output(kParticleCount);

		// The sorter has had an input before, with a view of enabled bytes for every page.
		const std::vector<TStridedMemoryView<const u8>> earlierEnableds(m_CountPages);
		const CTriangleSorter::CEnabledPages earlierPages(earlierEnableds.data(), m_CountPages, 16);
		CTriangleSorter sorter;
		sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(), earlierPages, counts, 1, CFloat3());
		sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(), earlierPages, counts, 1);
		sorter.Setup_OutputIndexBuffer({output.data(), kParticleCount}, 100);
		if (m_Walker.m_SortType == Model::ESortType::ByPosition)
			sorter.Setup_InputPageCache({positions.As<TStridedMemoryView<const CFloat3>>(), m_SourcePages, 16},
				enabledPages, counts, kParticleCount, CFloat3());
		else
			sorter.Setup_InputPageCache({values.As<TStridedMemoryView<const float>>(), m_SourcePages, 16}, enabledPages,
				counts, kParticleCount);
		if (m_Walker.m_Geometry == Model::EGeometry::Constant)
			sorter.Setup_Geometry({&pattern, 1}, kListStep);
		else
			sorter.Setup_Geometry({&pattern, 1}, TMemoryView<const u32>(list.data(), kParticleCount));

		const CGuardedMemory workingBuffer(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kParticleCount));
		const CWarningRecorder quiet;
		sorter.SortPoints_AutogenIndices(workingBuffer.Data());
		return ReadRecords(workingBuffer.As<SIndexAndDepth>() + 4, kParticleCount);
	}

	// The records of the first particles, and far ones for those that no page has.
	CRecords Expected(u32 filledCount) const
	{
		CRecords expected(kParticleCount, kFiller);
		const bool byPosition = m_Walker.m_SortType == Model::ESortType::ByPosition;
		for (u32 i = 0; i < filledCount; ++i)
			expected[i] = {byPosition ? DirectKey(2) : ValueKey(2), i * kListStep};
		return expected;
	}

	const SWalker m_Walker;
	const CGuardedMemory m_Counts;
	const u32 m_CountPages;
	u32 m_SourcePages;
	u32 m_EnabledPages;
};

TEST_P(PageCache, CountsThatDoNotAddUp_AreReportedAndEndTheWalkAtTheLastPage)
{
	const bool totalsPages = std::string(GetParam().m_Name) == "ValuesIndexList";
	const bool constant = GetParam().m_Geometry == Model::EGeometry::Constant;
	const char *const kBeyond = totalsPages ? "pagei < totalPageCount && pagei <= pageStop"
	                                        : "pagei < m_InRenderedParticleCounts.Count() && pagei <= pageStop";
	const char *const kTotal = "outOffset == renderedParticleId";
	const char *const kStart = "offsetOut < m_InRenderedParticleCounts[pagei]";
	const struct
	{
		std::vector<u32> m_Counts;
		u32 m_FilledCount;
		std::vector<std::string> m_Reports;
	} cases[] = {
		{{2, 1},       3, {}                       },
		{{2},          2, {kTotal, kBeyond}        },
		{{1, 1},       2, {kTotal, kBeyond}        },
		{{0, 1, 0, 0}, 1, {kTotal, kBeyond}        },
		{{0},          0, {kStart, kTotal, kBeyond}},
		{{0, 0, 0},    0, {kStart, kTotal, kBeyond}},
	};
	for (const auto &row : cases)
	{
		SCOPED_TRACE(&row - cases);
		std::vector<std::string> reports = row.m_Reports;
		if (constant && !reports.empty())
			reports.emplace_back("i == validCount");
		const SBrokenCall call(GetParam(), row.m_Counts);
		const CExpectReports expected(reports);
		EXPECT_TRUE(SameRecords(call.Expected(row.m_FilledCount), call.FilledRecords()));
	}
}

// 2^32 - 1 particles and one more: the sum of the counts does not fit in 32 bits.
TEST_P(PageCache, CountsWhoseSumWraps_AreWalkedAsFarAsAsked)
{
	const SBrokenCall call(GetParam(), {1, ~0u, 1, ~0u});
	const CReportRecorder reports; // of views that are shorter than their pages' counts
	EXPECT_TRUE(SameRecords(call.Expected(SBrokenCall::kParticleCount), call.FilledRecords()));
}

TEST_P(PageCache, NoViewsOfEnabledBytes_AreReportedAndDisableNothing)
{
	SBrokenCall call(GetParam(), {2, 0, 1});
	for (const u32 pageCount : {0u, 1u})
	{
		call.m_EnabledPages = pageCount;
		const CReportRecorder reports;
		EXPECT_TRUE(SameRecords(call.Expected(SBrokenCall::kParticleCount), call.FilledRecords()));
		const std::vector<std::string> texts = reports.Texts();
		const auto count = std::count(texts.begin(), texts.end(), "index < m_Storage.m_Count");
		EXPECT_EQ(count, VX_ASSERTIONS ? 2 - pageCount : 0) << testing::PrintToString(texts);
	}
}

TEST_P(PageCache, FewerViewsOfElementsThanPages_AreReportedAndEndTheWalk)
{
	const bool constant = GetParam().m_Geometry == Model::EGeometry::Constant;
	SBrokenCall call(GetParam(), {2, 0, 1});
	call.m_SourcePages = 1;
	std::vector<std::string> reports = {"index < m_Storage.m_Count"};
	if (constant)
		reports.emplace_back("i == validCount");
	const CExpectReports expected(reports);
	EXPECT_TRUE(SameRecords(call.Expected(2), call.FilledRecords()));
}
