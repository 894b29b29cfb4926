// Sorts on a host's jobs: what is particular to them. That they write what the model writes is shown by the
// differential suite (sort_differential_test.cpp), which a build with small limits runs with jobs.

#include "ge_mesh_sort_validation.h"

#include "kr_profiler.h"

#include "pv_jobs.h"

#include "diagnostics.h"
#include "job_runner.h"
#include "random_scene.h"
#include "scene_memory.h"
#include <cstring>
#include <gtest/gtest.h>
#include <pthread.h>
#include <xmmintrin.h>

using namespace Vexmoor;
using namespace Support;
using Model::SScene;

// Enough for several jobs and for parts of each.
constexpr u32 kManyParticles = 6 * VEXMOOR_MIN_RECORDS_PER_JOB + 101;

constexpr Model::EGeometry kGeometries[] = {Model::EGeometry::Constant, Model::EGeometry::IndexList,
	Model::EGeometry::IndexListAndQuadCenters, Model::EGeometry::PerPage};

// One page whose keys and order say nothing of each other.
static SScene ManyParticles(Model::EGeometry geometry, u32 count = kManyParticles)
{
	SScene scene = OnePage(count, geometry == Model::EGeometry::IndexListAndQuadCenters ? 12 : 6, geometry);
	Model::SPage &page = scene.m_Pages[0];
	for (u32 i = 0; i < count; ++i)
	{
		const float value = float(i * 48271u % count);
		page.m_Values.m_Elements[i] = FloatBits(value);
		page.m_Positions.m_Elements[i] = {FloatBits(value), 0, 0};
	}
	if (geometry == Model::EGeometry::PerPage)
	{
		page.m_Pattern = {0, 1, 2, 0, 2, 3};
		page.m_VerticesPerParticle = 4;
		scene.m_TriangleIndexCount = count * 6;
	}
	return scene;
}

static SSceneLayout WithJobs(u32 maxJobCount, EJobOrder order = JobOrder_Shuffled)
{
	SSceneLayout layout;
	layout.m_MaxJobCount = maxJobCount;
	layout.m_JobOrder = order;
	return layout;
}

static Model::SSortResult ResultOf(const SScene &scene)
{
	return scene.m_Geometry == Model::EGeometry::PerPage ? Model::TriangleSort(scene) : Model::PointSort(scene);
}

// That a scene comes out as the model has it, on jobs of a host that the scene's memory knows nothing of.
static testing::AssertionResult SortsOn(const SSortJobs &jobs, const SScene &scene)
{
	const CWarningRecorder quiet;
	SSceneLayout layout;
	layout.m_SorterAllocates = true;
	CSceneMemory memory(scene, layout);
	memory.Protect();
	if (scene.m_Geometry == Model::EGeometry::PerPage)
		memory.Sorter().SortTriangles_AutogenIndices(null, 0, jobs);
	else
		memory.Sorter().SortPoints_AutogenIndices(null, 0, jobs);
	return memory.Holds(ResultOf(scene));
}

TEST(SortJobs, EveryKindOfSort_RunsJobs)
{
	for (const Model::EGeometry geometry : kGeometries)
	{
		for (const Model::ESortType sortType : {Model::ESortType::ByPosition, Model::ESortType::ByValue})
		{
			for (const Model::EIndexType indexType : {Model::EIndexType::U16, Model::EIndexType::U32})
			{
				SScene scene = ManyParticles(geometry);
				scene.m_SortType = sortType;
				scene.m_IndexType = indexType;
				const CWarningRecorder quiet;
				SSceneLayout layout = WithJobs(5);
				for (const auto outputMemory :
					{CTriangleSorter::OutputMemory_WriteCombined, CTriangleSorter::OutputMemory_Cached})
				{
					layout.m_OutputMemory = outputMemory;
					CSceneMemory memory(scene, layout);
					memory.Sort();
					EXPECT_TRUE(memory.Holds(ResultOf(scene))) << Describe(scene);
					EXPECT_GT(memory.Jobs()->RunCount(), 0u) << Describe(scene);
					EXPECT_EQ(memory.Jobs()->LargestJobCount(), 5u) << Describe(scene);
				}
			}
		}
	}
}

TEST(SortJobs, FewParticles_RunNone)
{
	for (const Model::EGeometry geometry : kGeometries)
	{
		const u32 triangles = geometry == Model::EGeometry::PerPage ? 2 : 1;
		const SScene scene = ManyParticles(geometry, std::max(VEXMOOR_MIN_RECORDS_PER_JOB, 54) / triangles);
		const CWarningRecorder quiet;
		CSceneMemory memory(scene, WithJobs(5));
		memory.Sort();
		EXPECT_TRUE(memory.Holds(ResultOf(scene)));
		EXPECT_EQ(memory.Jobs()->RunCount(), 0u);
	}
}

TEST(SortJobs, AnyNumberOfJobsInAnyOrder_MatchesTheModel)
{
	for (const Model::EGeometry geometry : kGeometries)
	{
		for (const u32 jobCount : {1u, 2u, 3u, 7u, 16u, 64u, 1000u, ~0u})
		{
			for (const EJobOrder order : {JobOrder_Natural, JobOrder_Reversed, JobOrder_Shuffled, JobOrder_Threads})
				EXPECT_TRUE(SortsLikeTheModel(ManyParticles(geometry), WithJobs(jobCount, order)))
					<< jobCount << " jobs " << NameOf(order);
		}
	}
}

// Keys.

// Values that draw in the order of these keys: floats above 0, by their bits.
static SScene WithKeys(const std::vector<u32> &keys)
{
	SScene scene = ManyParticles(Model::EGeometry::IndexList, u32(keys.size()));
	scene.m_Pages[0].m_Values.m_Elements.assign(keys.begin(), keys.end());
	return scene;
}

// What jobs split by leading digits may share them all, or all but a few, or differ in each of them.
TEST(SortJobs, KeysThatShareTheirLeadingDigits_MatchTheModel)
{
	constexpr u32 kCount = 10 * kManyParticles;
	struct SShape
	{
		const char *m_Name;
		u32 (*m_Key)(u32 i, Model::CRandom &random);
	};
	constexpr SShape kShapes[] = {
		{"all equal",                [](u32,   Model::CRandom &) { return 7u; }                                                           },
		{"two keys",                 [](u32,   Model::CRandom &random) { return random.Below(2) << 30; }                                  },
		{"neighbours",               [](u32,   Model::CRandom &random) { return 0x3F800000u + random.Below(2); }                          },
		{"ascending",                [](u32 i, Model::CRandom &) { return i; }                                                            },
		{"descending",               [](u32 i, Model::CRandom &) { return kCount - i; }                                                   },
		{"dense with one far below",
         [](u32 i,                             Model::CRandom &random) { return i == kCount / 2 ? 0u : 0x3F800000u + random.Below(5000); }},
		{"dense with one far above",
         [](u32 i,                             Model::CRandom &random) { return i == 0 ? 0x7F000000u : random.Below(5000); }              },
		{"equal with one far above", [](u32 i, Model::CRandom &) { return i == kCount - 1 ? 0x7F000000u : 5u; }                           },
		{"clusters in clusters",     [](u32,   Model::CRandom &random)
			{ return random.Below(3) << 24 | random.Below(3) << 12 | random.Below(3); }       },
		{"every bit",                [](u32,   Model::CRandom &random) { return random.Below(0x7F800001u); }                              },
		{"runs",                     [](u32 i, Model::CRandom &) { return i / 1000 * 48271u % 1024; }                                     },
	};
	for (const SShape &shape : kShapes)
	{
		Model::CRandom random(1);
		std::vector<u32> keys;
		for (u32 i = 0; i < kCount; ++i)
			keys.push_back(shape.m_Key(i, random));
		for (const u32 jobCount : {1u, 3u, 16u})
			EXPECT_TRUE(SortsLikeTheModel(WithKeys(keys), WithJobs(jobCount))) << shape.m_Name << ", " << jobCount;
	}
}

// Counts of one job alone, whose counters have 16 bits for the first one and 32 for the other one.
constexpr u32 kCountsOfOneJob[] = {500, 1400};
static_assert(kCountsOfOneJob[0] <= VEXMOOR_MAX_IN_SHORT_COUNTERS);

// One job alone takes two passes where the upper digit of keys allows it, and three where it does not.
TEST(SortJobs, KeysOfEverySpan_MatchTheModelOnOneJob)
{
	for (const u32 count : kCountsOfOneJob)
	{
		for (u32 bits = 12; bits <= 31; ++bits)
		{
			for (const u32 lowest : {0u, 0x1FFFu, 0x3FF12345u})
			{
				Model::CRandom random(bits);
				std::vector<u32> keys;
				for (u32 i = 0; i < count; ++i)
					keys.push_back(std::min(lowest + random.Below(1u << bits), 0x7F800000u));
				EXPECT_TRUE(SortsLikeTheModel(WithKeys(keys), WithJobs(1)))
					<< count << " of " << bits << " bits above " << lowest;
				for (u32 i = 0; i < count; ++i)
					keys[i] = keys[i - i % 20];
				EXPECT_TRUE(SortsLikeTheModel(WithKeys(keys), WithJobs(1)))
					<< count << " in runs, " << bits << " bits above " << lowest;
			}
		}
	}
}

// One job alone packs an index with a digit where both fit a word.
TEST(SortJobs, IndicesOfEveryHeight_MatchTheModelOnOneJob)
{
	for (const u32 count : kCountsOfOneJob)
	{
		for (u32 bits = 16; bits <= 23; ++bits)
		{
			for (const u32 indexEnd : {(1u << bits) - 1, 1u << bits, (1u << bits) + 1})
			{
				Model::CRandom random(bits);
				std::vector<u32> keys;
				const u32 keyBits = 25 + random.Below(2); // of which the upper digit has 12 or 13
				for (u32 i = 0; i < count; ++i)
					keys.push_back(0x3F800000u + random.Below(1u << keyBits));
				SScene scene = WithKeys(keys);
				scene.m_VertexCount = indexEnd;
				for (u32 &entry : scene.m_IndexList)
					entry = indexEnd - 1 - random.Below(count);
				EXPECT_TRUE(SortsLikeTheModel(scene, WithJobs(1))) << count << " indices below " << indexEnd;

				scene.m_Geometry = Model::EGeometry::Constant;
				for (const u32 step : {1u, 2u, 3u, 4u, 6u, 12u})
				{
					scene.m_VerticesPerParticle = step;
					EXPECT_TRUE(SortsLikeTheModel(scene, WithJobs(1)))
						<< count << " indices below " << indexEnd << " in steps of " << step << ", " << keyBits
						<< " bits";
				}
			}
		}
	}
}

// Records whose indices are too high for words are sorted by leading bits. Those of two clusters have only two of them.
TEST(SortJobs, ClustersWithHighIndices_MatchTheModelOnOneJob)
{
	Model::CRandom random(1);
	std::vector<u32> keys;
	for (u32 i = 0; i < kCountsOfOneJob[0]; ++i)
		keys.push_back(0x38000000u + (random.Below(2) << 26) + random.Below(200));
	SScene scene = WithKeys(keys);
	scene.m_VertexCount = 1u << 24;
	for (u32 &entry : scene.m_IndexList)
		entry = scene.m_VertexCount - 1 - random.Below(kCountsOfOneJob[0]);
	EXPECT_TRUE(SortsLikeTheModel(scene, WithJobs(1)));
}

// Few bits are one digit, and after one pass records lie in the other array. One job sorts those whose indices are too
// high for words like that, and several jobs sort parts of about 2,000 records.
TEST(SortJobs, KeysOfFewBits_MatchTheModel)
{
	Model::CRandom random(1);
	std::vector<u32> keys;
	for (u32 i = 0; i < kCountsOfOneJob[0]; ++i)
		keys.push_back(0x3F801000u + random.Below(1u << 13));
	SScene scene = WithKeys(keys);
	scene.m_VertexCount = 1u << 24;
	for (u32 &entry : scene.m_IndexList)
		entry = scene.m_VertexCount - 1 - random.Below(kCountsOfOneJob[0]);
	EXPECT_TRUE(SortsLikeTheModel(scene, WithJobs(1)));

	keys.clear();
	for (u32 i = 0; i < 40000; ++i)
		keys.push_back(0x3F801000u + random.Below(1u << 17));
	EXPECT_TRUE(SortsLikeTheModel(WithKeys(keys), WithJobs(2)));
}

// With more records than 16 bits count, indices are as high as words hold them, and multiples of 4. With 800,001, lines
// are fetched ahead.
TEST(SortJobs, ManyParticlesOnOneJob_MatchTheModel)
{
	for (const Model::EGeometry geometry : {Model::EGeometry::Constant, Model::EGeometry::PerPage})
	{
		for (const u32 count : {65536u, 65537u, 131072u, 262144u, 262145u, 800001u})
		{
			const u32 particleCount = geometry == Model::EGeometry::PerPage ? count / 2 : count;
			SScene scene = ManyParticles(geometry, particleCount);
			scene.m_SortType = Model::ESortType::ByValue;
			scene.m_VertexCount = particleCount * 4;
			scene.m_VerticesPerParticle = 4;
			Model::CRandom random(count);
			for (u32 &bits : scene.m_Pages[0].m_Values.m_Elements)
				bits = 0x3F800000u + random.Below(count > 262144 ? 1u << 25 : 1u << 26);
			EXPECT_TRUE(SortsLikeTheModel(scene, WithJobs(1))) << count << " records";
		}
	}
}

// The first page says how many passes there are, until all keys are known.
TEST(SortJobs, PagesOfOtherSpansThanTheFirst_MatchTheModelOnOneJob)
{
	constexpr u32 kPages = 5;
	constexpr u32 kBits[] = {3, 20, 24, 31};
	for (const Model::EGeometry geometry : kGeometries)
	{
		for (const u32 bitsOfFirst : kBits)
		{
			for (const u32 bitsOfOthers : kBits)
			{
				Model::CRandom random(bitsOfFirst);
				SScene scene = ManyParticles(geometry);
				scene.m_SortType = Model::ESortType::ByValue;
				const Model::SPage whole = scene.m_Pages[0];
				scene.m_Pages.clear();
				for (u32 page = 0; page < kPages; ++page)
				{
					Model::SPage part = whole;
					const u32 first = kManyParticles * page / kPages;
					part.m_RenderedCount = kManyParticles * (page + 1) / kPages - first;
					part.m_Values.m_Elements.resize(part.m_RenderedCount);
					part.m_Positions.m_Elements.resize(part.m_RenderedCount);
					if (!part.m_Enabled.empty())
						part.m_Enabled.resize(part.m_RenderedCount);
					for (u32 &bits : part.m_Values.m_Elements)
					{
						const u32 above = random.Below(1u << (page == 0 ? bitsOfFirst : bitsOfOthers) % 31);
						bits =
							bitsOfOthers == 24 ? 0xFF7FFFFFu - above : 0x20000000u + above; // next to far keys, or not
					}
					scene.m_Pages.push_back(part);
				}
				EXPECT_TRUE(SortsLikeTheModel(scene, WithJobs(1)))
					<< Describe(scene) << bitsOfFirst << " and " << bitsOfOthers << " bits";
				scene.m_VertexCount = scene.m_VertexCount / 4 * 3; // and far records
				EXPECT_TRUE(SortsLikeTheModel(scene, WithJobs(1)))
					<< Describe(scene) << bitsOfFirst << " and " << bitsOfOthers << " bits, cut";
			}
		}
	}
}

// Pages.

static void Disable(Model::SPage &page, u32 particle)
{
	page.m_Enabled[particle] = 0;
	--page.m_RenderedCount;
}

static SScene WithDisabled(Model::EGeometry geometry, Model::ESortType sortType, const std::vector<u32> &disabled)
{
	SScene scene = ManyParticles(geometry);
	scene.m_SortType = sortType;
	Model::SPage &page = scene.m_Pages[0];
	page.m_Enabled.assign(kManyParticles, 0x80);
	for (const u32 particle : disabled)
		Disable(page, particle);
	scene.m_ParticleCount = page.m_RenderedCount;
	if (geometry == Model::EGeometry::PerPage)
		scene.m_TriangleIndexCount = scene.m_ParticleCount * 6;
	else if (geometry == Model::EGeometry::IndexList)
		scene.m_IndexList.resize(scene.m_ParticleCount);
	return scene;
}

// A page with a single disabled particle has other keys than a page with none, also where a job's part of it has none.
TEST(SortJobs, PagesWithFewDisabledParticles_AreCompactedAsAWhole)
{
	for (const Model::EGeometry geometry :
		{Model::EGeometry::Constant, Model::EGeometry::IndexList, Model::EGeometry::PerPage})
	{
		for (const Model::ESortType sortType : {Model::ESortType::ByPosition, Model::ESortType::ByValue})
		{
			for (const std::vector<u32> &disabled : std::vector<std::vector<u32>>{
					 {0                  },
                     {                  1                  },
                     { kManyParticles / 2 },
                     {  kManyParticles - 1                 },
                     {                 0,                  1, 2, 3, 4},
                     {                                   5, kManyParticles - 2}
            })
			{
				const SScene scene = WithDisabled(geometry, sortType, disabled);
				EXPECT_TRUE(SortsLikeTheModel(scene, WithJobs(4)))
					<< Describe(scene) << ", first disabled: " << disabled[0];
			}
		}
	}
}

// A vertex buffer that ends inside a page with disabled particles: what is left of the page may have none of them.
TEST(SortJobs, CutPagesWithDisabledParticles_MatchTheModel)
{
	for (const Model::ESortType sortType : {Model::ESortType::ByPosition, Model::ESortType::ByValue})
	{
		for (const u32 disabled : {3u, kManyParticles / 3, kManyParticles - 1})
		{
			for (const u32 drawn : {1u, 3u, kManyParticles / 4, kManyParticles / 2, kManyParticles - 2})
			{
				for (const Model::EGeometry geometry : {Model::EGeometry::Constant, Model::EGeometry::PerPage})
				{
					SScene scene = WithDisabled(geometry, sortType, {disabled});
					scene.m_VertexCount = drawn * 4 + 1;
					EXPECT_TRUE(SortsLikeTheModel(scene, WithJobs(4))) << Describe(scene) << ", " << disabled;
				}
			}
		}
	}
}

// What a host hears.

namespace
{
struct SHeard
{
	std::vector<std::string> m_Reports;
	std::vector<std::string> m_Warnings;
	std::vector<std::string> m_Scopes;
	u32 m_Hazards = 0;
	std::vector<u32> m_Output;
	u32 m_RunCount = 0;
};

// Sorts as the layout says, with the sorter changed before.
template<typename _Break>
SHeard Hear(const SScene &scene, const SSceneLayout &layout, const _Break &change)
{
	SHeard heard;
	CSceneMemory memory(scene, layout);
	CReportRecorder reports;
	CWarningRecorder warnings;
	change(memory.Sorter());
	reports.Clear();
	{
		const CScopeRecorder scopes;
		memory.Sort();
		heard.m_Scopes = scopes.Events();
	}
	heard.m_Reports = reports.Texts();
	for (const CLogUniqueCollection::SEntry &entry : warnings.Entries())
		heard.m_Warnings.push_back(entry.m_Key + entry.m_Message + " x " + std::to_string(entry.m_TouchCount));
	heard.m_Hazards = warnings.Hazards();
	heard.m_Output = memory.Output();
	if (memory.Jobs() != nullptr)
	{
		heard.m_Hazards += memory.Jobs()->HazardsOfThreads();
		heard.m_RunCount = memory.Jobs()->RunCount();
	}
	return heard;
}

template<typename _Break>
void ExpectHeardAlike(const SScene &scene, bool runsJobs, const _Break &change)
{
	const SHeard without = Hear(scene, SSceneLayout(), change);
	const auto expectAlike = [&](const SSceneLayout &layout)
	{
		const SHeard heard = Hear(scene, layout, change);
		EXPECT_EQ(heard.m_Reports, without.m_Reports);
		EXPECT_EQ(heard.m_Warnings, without.m_Warnings);
		EXPECT_EQ(heard.m_Scopes, without.m_Scopes);
		EXPECT_EQ(heard.m_Hazards, without.m_Hazards);
		EXPECT_EQ(heard.m_Output, without.m_Output);
		EXPECT_EQ(heard.m_RunCount != 0, layout.m_MaxJobCount != 0 && runsJobs);
	};
	expectAlike(WithCachedOutput());
	expectAlike(WithJobs(4, JobOrder_Reversed));
	SSceneLayout layout = WithJobs(4, JobOrder_Threads);
	expectAlike(layout);
	layout.m_OutputMemory = CTriangleSorter::OutputMemory_Cached;
	expectAlike(layout);
}

void ExpectHeardAlike(const SScene &scene, bool runsJobs = true)
{
	ExpectHeardAlike(scene, runsJobs, [](CTriangleSorter &) {});
}

// Many pages, every other one slow.
SScene SlowPages(Model::EGeometry geometry, Model::ESortType sortType)
{
	constexpr u32 kPageCount = 20;
	SScene scene = ManyParticles(geometry);
	scene.m_SortType = sortType;
	const Model::SPage whole = scene.m_Pages[0];
	scene.m_Pages.clear();
	const u32 perPage = kManyParticles / kPageCount / 2 * 2;
	for (u32 i = 0; i < kPageCount; ++i)
	{
		Model::SPage page = whole;
		page.m_RenderedCount = perPage;
		page.m_Values.m_Elements.resize(perPage);
		page.m_Positions.m_Elements.resize(perPage);
		page.m_Values.m_Stride = i % 2 == 0 ? 8 : 4;
		page.m_Positions.m_Stride = i % 2 == 0 ? 16 : 12;
		if (i % 3 == 0)
			page.m_Pattern = {0, 1, 2};
		scene.m_Pages.push_back(page);
	}
	scene.m_ParticleCount = kPageCount * perPage;
	if (geometry == Model::EGeometry::PerPage)
		scene.m_TriangleIndexCount = (7 * 1 + 13 * 2) * 3 * perPage;
	else if (geometry == Model::EGeometry::IndexList)
		scene.m_IndexList.resize(scene.m_ParticleCount);
	return scene;
}
} // namespace

TEST(SortJobs, ScopesAndWarnings_AreThoseOfTheSortWithoutJobs)
{
	for (const Model::EIndexType indexType : {Model::EIndexType::U16, Model::EIndexType::U32})
	{
		for (const Model::EGeometry geometry : kGeometries)
		{
			SCOPED_TRACE(int(geometry));
			SScene scene = ManyParticles(geometry);
			scene.m_IndexType = indexType;
			ExpectHeardAlike(scene);
			scene.m_OutputAddressMod16 = 4; // the expansion of points warns
			ExpectHeardAlike(scene);
			scene.m_IndexCapacity = 6;
			ExpectHeardAlike(scene);
			if (geometry == Model::EGeometry::IndexListAndQuadCenters)
				continue;
			for (const Model::ESortType sortType : {Model::ESortType::ByPosition, Model::ESortType::ByValue})
			{
				scene = SlowPages(geometry, sortType);
				scene.m_IndexType = indexType;
				ExpectHeardAlike(scene);
			}
		}
	}
}

TEST(SortJobs, HazardsOfSlowPages_CountForTheThreadsThatFillThem)
{
	const CWarningRecorder warnings;
	const SScene scene = SlowPages(Model::EGeometry::Constant, Model::ESortType::ByPosition);
	CSceneMemory memory(scene, WithJobs(4, JobOrder_Threads));
	memory.Sort();
	EXPECT_EQ(warnings.Hazards(), 0u);
	EXPECT_EQ(memory.Jobs()->HazardsOfThreads(), 10u);
	ASSERT_EQ(warnings.Entries().size(), 1u);
	EXPECT_EQ(warnings.Entries()[0].m_TouchCount, 10u);
}

// What breaks a rule is reported as without jobs, since it runs without them.
TEST(SortJobs, BrokenRules_AreReportedAsWithoutJobs)
{
	for (const Model::EGeometry geometry : kGeometries)
	{
		SCOPED_TRACE(int(geometry));
		const bool isTriangles = geometry == Model::EGeometry::PerPage;
		SScene scene = SlowPages(isTriangles ? geometry : Model::EGeometry::Constant, Model::ESortType::ByValue);
		scene.m_ParticleCount += 2; // more than the pages render
		ExpectHeardAlike(scene, isTriangles);

		scene = ManyParticles(geometry, kManyParticles + 1);
		ASSERT_EQ(scene.m_ParticleCount % 2, 0u);
		scene.m_IndexCapacity = 0; // and so a first record behind the last one
		ExpectHeardAlike(scene, isTriangles);

		scene = ManyParticles(geometry);
		if (isTriangles)
		{
			++scene.m_TriangleIndexCount;
			ExpectHeardAlike(scene, false);
			scene = ManyParticles(geometry);
			scene.m_TriangleIndexCount -= 6; // fewer than the page draws
			ExpectHeardAlike(scene, false);
		}
		else
		{
			scene.m_Pattern = {1};
			ExpectHeardAlike(scene, false);
		}

		scene = ManyParticles(geometry);
		ExpectHeardAlike(scene, false, [](CTriangleSorter &sorter) { sorter = CTriangleSorter(); });
	}
}

// A page that starts on an odd triangle has records off a multiple of 16, which is reported.
TEST(SortJobs, PagesOnOddTriangles_AreReportedAsWithoutJobs)
{
	SScene scene = ManyParticles(Model::EGeometry::PerPage);
	Model::SPage first = scene.m_Pages[0];
	first.m_RenderedCount = 1;
	first.m_Values.m_Elements.resize(1);
	first.m_Positions.m_Elements.resize(1);
	first.m_Pattern = {0, 1, 2};
	scene.m_Pages.insert(scene.m_Pages.begin(), first);
	++scene.m_ParticleCount;
	scene.m_VertexCount += 4;
	scene.m_TriangleIndexCount += 3;
	for (const Model::ESortType sortType : {Model::ESortType::ByPosition, Model::ESortType::ByValue})
	{
		scene.m_SortType = sortType;
		ExpectHeardAlike(scene, !VX_ASSERTIONS);
	}
}

TEST(SortJobs, JobsThatCannotRun_AreReportedAndRunHere)
{
	for (const bool hasFunction : {false, true})
	{
		CJobRunner runner(4, JobOrder_Natural);
		SSortJobs jobs = runner.Jobs();
		if (hasFunction)
			jobs.m_MaxJobCount = 0;
		else
			jobs.m_Run = null;
		const SScene scene = ManyParticles(Model::EGeometry::Constant);
		const CExpectReports reports{"jobs.m_Run != null && jobs.m_MaxJobCount != 0"};
		EXPECT_TRUE(SortsOn(jobs, scene));
		EXPECT_EQ(runner.RunCount(), 0u);
	}
}

// Working buffers.

TEST(SortJobs, SizesNeverFall)
{
	constexpr u32 kCounts[] = {0, 1, 2, 109, 110, 1000, 8191, 8192, 16383, 16384, 16385, 24576, 100000, 268435455,
		268435456, 0x7FFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFFu};
	constexpr u32 kJobCounts[] = {0, 1, 2, 3, 7, 16, 64, 127, 128, 129, 1000, 0xFFFFFFFFu};
	u64 lastOfFewerJobs[2][std::size(kCounts)] = {};
	for (const u32 jobCount : kJobCounts)
	{
		u64 last[2] = {};
		for (u32 i = 0; i < std::size(kCounts); ++i)
		{
			const u64 sizes[] = {CTriangleSorter::GetJobsWorkingBufferSize(kCounts[i], jobCount),
				CTriangleSorter::GetJobsWorkingBufferSize_tri(kCounts[i], jobCount)};
			for (u32 entry = 0; entry < 2; ++entry)
			{
				EXPECT_GE(sizes[entry], std::exchange(last[entry], sizes[entry]));
				EXPECT_GE(sizes[entry], std::exchange(lastOfFewerJobs[entry][i], sizes[entry]));
			}
			EXPECT_GE(sizes[0], u64(kCounts[i]) * 16);
			EXPECT_GE(sizes[1], u64(kCounts[i] / 3) * 16 + u64(kCounts[i]) * 4);
		}
	}
}

TEST(SortJobs, BuffersThatAreTooSmall_AreReportedAndNothingIsWritten)
{
	for (const Model::EGeometry geometry : {Model::EGeometry::Constant, Model::EGeometry::PerPage})
	{
		const SScene scene = ManyParticles(geometry);
		CSceneMemory memory(scene, WithJobs(4));
		const bool isTriangles = geometry == Model::EGeometry::PerPage;
		const u64 size = isTriangles ? CTriangleSorter::GetJobsWorkingBufferSize_tri(scene.m_TriangleIndexCount, 4)
		                             : CTriangleSorter::GetJobsWorkingBufferSize(scene.m_ParticleCount, 4);
		const CExpectReports reports{"workingBufferSize >= neededSize"};
		CJobRunner runner(4, JobOrder_Natural);
		if (isTriangles)
			memory.Sorter().SortTriangles_AutogenIndices(memory.WorkingBuffer(), size - 1, runner.Jobs());
		else
			memory.Sorter().SortPoints_AutogenIndices(memory.WorkingBuffer(), size - 1, runner.Jobs());
		EXPECT_TRUE(memory.OutputUntouched());
		EXPECT_EQ(runner.RunCount(), 0u);
	}
}

TEST(SortJobs, OneBlockOfTheNamedSizeIsTaken_AndGivenBack)
{
	for (const Model::EGeometry geometry : kGeometries)
	{
		for (const u32 count : {2u, 100u, kManyParticles})
		{
			for (const bool refuses : {false, true})
			{
				const SScene scene = ManyParticles(geometry, count);
				SSceneLayout layout = WithJobs(4);
				layout.m_SorterAllocates = true;
				const CWarningRecorder quiet;
				CSceneMemory memory(scene, layout);
				const CAllocationRecorder allocations(refuses);
				memory.Sort();
				ASSERT_EQ(allocations.Allocations().size(), 1u);
				const SRecordedAllocation &allocation = allocations.Allocations()[0];
				EXPECT_EQ(allocation.m_Size,
					geometry == Model::EGeometry::PerPage
						? CTriangleSorter::GetJobsWorkingBufferSize_tri(scene.m_TriangleIndexCount, 4)
						: CTriangleSorter::GetJobsWorkingBufferSize(count, 4));
				EXPECT_EQ(allocation.m_Alignment, 16u);
				EXPECT_EQ(allocation.m_Freed, !refuses);
				EXPECT_TRUE(refuses ? memory.OutputUntouched() : memory.Holds(ResultOf(scene)));
			}
		}
	}
}

// Checks.

static std::vector<std::string> FindingsOf(
	const CSceneMemory &memory, const CTriangleSorter &sorter, u64 size, const SSortJobs &jobs)
{
	std::vector<std::string> sentences;
	const auto collect = [](const SSortFinding &finding, void *userData)
	{ static_cast<std::vector<std::string> *>(userData)->push_back(finding.m_Sentence); };
	const u32 violationCount =
		ValidateSort(sorter, SortEntry_Points, memory.WorkingBuffer(), size, collect, &sentences, &jobs);
	EXPECT_EQ(violationCount, u32(sentences.size()));
	return sentences;
}

TEST(SortJobs, Checks_SpeakOfJobsAndOfTheirBuffer)
{
	const SScene scene = ManyParticles(Model::EGeometry::Constant);
	CSceneMemory memory(scene, WithJobs(4));
	CJobRunner runner(4, JobOrder_Natural);
	const u64 size = CTriangleSorter::GetJobsWorkingBufferSize(kManyParticles, 4);
	SSortJobs jobs = runner.Jobs();
	EXPECT_EQ(FindingsOf(memory, memory.Sorter(), size, jobs), std::vector<std::string>());
	EXPECT_EQ(FindingsOf(memory, memory.Sorter(), size - 1, jobs),
		(std::vector<std::string>{"The working buffer has " + std::to_string(size - 1) + " bytes, but the sort needs " +
								  std::to_string(size) + "."}));
	jobs.m_Run = null;
	jobs.m_MaxJobCount = 0;
	EXPECT_EQ(FindingsOf(memory, memory.Sorter(), size, jobs),
		(std::vector<std::string>{
			"The jobs have no function that runs them.", "The largest count of jobs is 0, but needs 1 or more."}));

	const CExpectReports noReports{};
	EXPECT_EQ(SortPointsChecked(memory.Sorter(), memory.WorkingBuffer(), size, null, null, &jobs), 2u);
	EXPECT_TRUE(memory.OutputUntouched());
	jobs = runner.Jobs();
	EXPECT_EQ(SortPointsChecked(memory.Sorter(), memory.WorkingBuffer(), size, null, null, &jobs), 0u);
	EXPECT_TRUE(memory.Holds(ResultOf(scene)));
	EXPECT_GT(runner.RunCount(), 0u);
}

// Without jobs, sizes of working buffers end at 32 bits.
TEST(SortJobs, LargeWorkingBuffers_AreNoViolation)
{
	constexpr u32 kCount = 1u << 28;
	const SScene scene = ManyParticles(Model::EGeometry::Constant);
	CSceneMemory memory(scene, WithJobs(4));
	CTriangleSorter &sorter = memory.Sorter();
	const CFloat3 position;
	const TStridedMemoryView<const CFloat3> positions(&position, kCount, 0);
	const TStridedMemoryView<const u8> noneDisabled;
	const u32 renderedCount = kCount;
	sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(positions),
		CTriangleSorter::CEnabledPages(noneDisabled), CTriangleSorter::CRenderedCounts(renderedCount), kCount,
		position);
	u32 pattern[] = {0};
	sorter.Setup_Geometry(TMemoryView<u32>(pattern, 1), 4);
	CJobRunner runner(4, JobOrder_Natural);
	const SSortJobs jobs = runner.Jobs();
	const u64 size = CTriangleSorter::GetJobsWorkingBufferSize(kCount, 4);
	void *const buffer = reinterpret_cast<void *>(ureg(1) << 44); // looked at as an address alone
	EXPECT_EQ(ValidateSort(sorter, SortEntry_Points, buffer, size, null, null, &jobs), 0u);
	EXPECT_EQ(ValidateSort(sorter, SortEntry_Points, buffer, size, null, null), 1u);

	// The end of such a buffer counts, too.
	sorter.Setup_OutputIndexBuffer(
		TMemoryView<u32>(reinterpret_cast<u32 *>(reinterpret_cast<ureg>(buffer) + size) - 4, 4), 4);
	EXPECT_EQ(ValidateSort(sorter, SortEntry_Points, buffer, size, null, null, &jobs), 1u);
}

// Threads.

// Hosts' threads flush denormals, round as they like and trap: jobs write the same bits, and leave modes as they were.
TEST(SortJobs, FloatingPointModesOfThreads_ChangeNothing)
{
	constexpr u32 kModes[] = {0x1F80, 0x9FC0, 0x3F80, 0x7F80, 0};
	for (const u32 mode : kModes)
	{
		for (const Model::EGeometry geometry : kGeometries)
		{
			SScene scene = ManyParticles(geometry);
			scene.m_SortType = Model::ESortType::ByPosition;
			for (u32 i = 0; i < kManyParticles; i += 3)
				scene.m_Pages[0].m_Positions.m_Elements[i] = {i, 0x7F7FFFFFu, 0x00800000u + i};
			static u32 s_Mode;
			s_Mode = mode;
			SSortJobs jobs = {};
			jobs.m_Run = [](void *, u32 jobCount, SSortJobs::CbJob job, void *context)
			{
				const u32 before = _mm_getcsr();
				for (u32 i = 0; i < jobCount; ++i)
				{
					_mm_setcsr(s_Mode);
					job(context, i);
					const u32 after = _mm_getcsr();
					_mm_setcsr(before);
					EXPECT_EQ(after & 0xFFC0u, s_Mode);
				}
			};
			jobs.m_MaxJobCount = 3;
			EXPECT_TRUE(SortsOn(jobs, scene)) << Describe(scene);
		}
	}
}

// Each job on a stack of 64 KiB, behind which memory ends.
TEST(SortJobs, JobsFitSmallStacks)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
	GTEST_SKIP() << "a sanitizer needs more stack";
#elif defined(__has_feature)
	#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
	GTEST_SKIP() << "a sanitizer needs more stack";
	#endif
#endif
	struct SJob
	{
		SSortJobs::CbJob m_Job;
		void *m_Context;
		u32 m_Index;
	};
	SSortJobs jobs = {};
	jobs.m_Run = [](void *, u32 jobCount, SSortJobs::CbJob job, void *context)
	{
		for (u32 i = 0; i < jobCount; ++i)
		{
			SJob run = {job, context, i};
			pthread_attr_t attributes;
			pthread_attr_init(&attributes);
			ASSERT_EQ(pthread_attr_setstacksize(&attributes, 64 * 1024), 0);
			pthread_t thread;
			const auto body = [](void *argument) -> void *
			{
				const SJob &self = *static_cast<const SJob *>(argument);
				self.m_Job(self.m_Context, self.m_Index);
				return nullptr;
			};
			ASSERT_EQ(pthread_create(&thread, &attributes, body, &run), 0);
			pthread_join(thread, nullptr);
			pthread_attr_destroy(&attributes);
		}
	};
	jobs.m_MaxJobCount = 3;
	for (const Model::EGeometry geometry : kGeometries)
	{
		const SScene scene = ManyParticles(geometry);
		EXPECT_TRUE(SortsOn(jobs, scene)) << Describe(scene);
	}
}
