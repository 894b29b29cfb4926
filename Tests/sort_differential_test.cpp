// Both drivers against the reference model over seeded random scenes: output, records, surroundings, reports, warnings.
// Checked sorts run through the same comparison, without a broken rule found.
// VEXMOOR_TEST_SEED=n runs the case of seed n alone. VEXMOOR_TEST_CASES=n runs n cases where a thousand are usual, and
// in proportion elsewhere; seeds count from 1, so more cases contain fewer ones.

#include "diagnostics.h"
#include "random_scene.h"
#include "scene_memory.h"
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <unistd.h>

using namespace Support;
using namespace Model;

// There only under a sanitizer, which ends the process without a signal.
extern "C" void __sanitizer_set_death_callback(void (*callback)()) __attribute__((weak));

// Cases.

static std::uint64_t NumberFromEnvironment(const char *name, std::uint64_t fallback)
{
	const char *const text = std::getenv(name);
	return text != nullptr ? std::strtoull(text, nullptr, 10) : fallback;
}

static std::string CommandFor(std::uint64_t seed)
{
	const testing::TestInfo &test = *testing::UnitTest::GetInstance()->current_test_info();
	return "VEXMOOR_TEST_SEED=" + std::to_string(seed) + " " + program_invocation_name +
	       " --gtest_filter=" + test.test_suite_name() + "." + test.name();
}

namespace
{
// A stray access ends the process: while this lives, the command of the current case is printed before that.
class CCommandOnCrash
{
public:
	CCommandOnCrash()
	{
		if (__sanitizer_set_death_callback != nullptr)
			__sanitizer_set_death_callback(&_Print);
		for (std::size_t i = 0; i < std::size(kSignals); ++i)
		{
			struct sigaction action = {};
			action.sa_handler = [](int)
			{
				_Print();
				_RestoreHandlers(); // the access is tried again, and meets the earlier handler
			};
			sigaction(kSignals[i], &action, &s_EarlierHandlers[i]);
		}
	}
	~CCommandOnCrash()
	{
		s_Command.clear();
		_RestoreHandlers();
	}
	CCommandOnCrash(const CCommandOnCrash &) = delete;
	CCommandOnCrash &operator=(const CCommandOnCrash &) = delete;

	void SetSeed(std::uint64_t seed) { s_Command = "alone: " + CommandFor(seed) + "\n"; }

private:
	static constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

	static void _Print() { [[maybe_unused]] const ssize_t written = write(2, s_Command.data(), s_Command.size()); }
	static void _RestoreHandlers()
	{
		for (std::size_t i = 0; i < std::size(kSignals); ++i)
			sigaction(kSignals[i], &s_EarlierHandlers[i], nullptr);
	}

	static inline std::string s_Command;
	static inline struct sigaction s_EarlierHandlers[std::size(kSignals)];
};
} // namespace

// What a scene leaves open about its memory is drawn from the same seed.
static SSceneLayout RandomLayout(std::uint64_t seed)
{
	CRandom random(~seed);
	SSceneLayout layout;
	if (random.Chance(30))
		layout.m_Flush = CGuardedMemory::FlushStart;
	if (random.Chance(30))
		layout.m_RenderedCountStride = 8;
	if (random.Chance(20))
		layout.m_PageViewStride = 48;
	layout.m_SorterAllocates = random.Chance(10);
#if TEST_SORTS_IN_JOBS
	constexpr u32 kJobCounts[] = {1, 2, 3, 7, 16, 64};
	layout.m_MaxJobCount = kJobCounts[random.Below(u32(std::size(kJobCounts)))];
	layout.m_JobOrder = EJobOrder(random.Below(4));
#endif
	if (random.Chance(30))
		layout.m_OutputMemory = Vexmoor::CTriangleSorter::OutputMemory_Cached;
	return layout;
}

// Runs makeScene(seed) for each seed, up to the first one that fails.
template<typename TMakeScene>
static void ForEachCase(
	std::uint64_t caseCount, const TMakeScene &makeScene, bool isChecked = false, bool isThroughC = false)
{
	std::uint64_t first = 1;
	std::uint64_t last = (caseCount * NumberFromEnvironment("VEXMOOR_TEST_CASES", 1000) + 999) / 1000;
	if (const std::uint64_t seed = NumberFromEnvironment("VEXMOOR_TEST_SEED", 0))
		first = last = seed;
	CCommandOnCrash commandOnCrash;
	for (std::uint64_t seed = first; seed <= last; ++seed)
	{
		commandOnCrash.SetSeed(seed);
		const SScene scene = makeScene(seed);
		SSceneLayout layout = RandomLayout(seed);
		layout.m_IsChecked = isChecked;
		if (isThroughC)
		{
			layout.m_IsThroughC = true;
			layout.m_RenderedCountStride = sizeof(u32);
			layout.m_PageViewStride = SSceneLayout().m_PageViewStride;
			layout.m_MaxJobCount = 0; // calls in C have none
		}
		ASSERT_TRUE(SortsLikeTheModel(scene, layout)) << "seed " << seed << ": " << Describe(scene) << "\n"
													  << "alone: " << CommandFor(seed);
	}
}

static void ForEachPointScene(std::uint64_t caseCount, const SSceneOptions &options)
{
	ForEachCase(caseCount, [&options](std::uint64_t seed) { return RandomPointScene(seed, options); });
}

static void ForEachTriangleScene(std::uint64_t caseCount, const SSceneOptions &options)
{
	ForEachCase(caseCount, [&options](std::uint64_t seed) { return RandomTriangleScene(seed, options); });
}

// Points.

// The options of everything at once; what follows takes one of them to its extreme.
static SSceneOptions PointOptions()
{
	SSceneOptions options;
	options.m_Width = {1, 40};
	return options;
}

TEST(SortDifferential, PointsOfMixedPages_MatchTheModel)
{
	ForEachPointScene(800, PointOptions());
}

// One page without disabled particles: its count is the number of records, from 0 to 300 and over again.
TEST(SortDifferential, EveryPointCountUpTo300_MatchesTheModel)
{
	SSceneOptions options = PointOptions();
	options.m_PageCount = {1, 1};
	options.m_WeightEmpty = options.m_WeightPartlyDisabled = 0;
	options.m_WeightPartlyRendered = options.m_WeightPartlyRenderedWithBytes = 0;
	ForEachCase(602,
		[&options](std::uint64_t seed)
		{
			const u32 count = u32((seed - 1) % 301);
			options.m_ParticlesPerPage = {count, count};
			return RandomPointScene(seed, options);
		});
}

// From none to all of the particles are disabled.
TEST(SortDifferential, CompactedPoints_MatchTheModel)
{
	SSceneOptions options = PointOptions();
	options.m_PageCount = {1, 3};
	options.m_ParticlesPerPage = {0, 300};
	options.m_WeightEmpty = options.m_WeightFull = options.m_WeightFullWithBytes = options.m_WeightPartlyRendered = 0;
	ForEachCase(300,
		[&options](std::uint64_t seed)
		{
			options.m_DisabledPercent = u32(seed % 101);
			return RandomPointScene(seed, options);
		});
}

// The widths with workers of their own, at every output address.
TEST(SortDifferential, PointsOfCommonWidths_MatchTheModel)
{
	SSceneOptions options;
	options.m_PageCount = {1, 2};
	options.m_ParticlesPerPage = {0, 20};
	options.m_SmallOutputPercent = 50;
	ForEachCase(1000,
		[&options](std::uint64_t seed)
		{
			constexpr u32 kWidths[] = {1, 3, 6, 12};
			const u32 width = kWidths[seed % 4];
			options.m_Width = {width, width};
			return RandomPointScene(seed, options);
		});
}

TEST(SortDifferential, PointsOfHostileFloats_MatchTheModel)
{
	SSceneOptions options = PointOptions();
	options.m_HostilePercent = 70;
	options.m_HostileCamera = true;
	ForEachPointScene(500, options);
}

TEST(SortDifferential, PointsOfFewKeys_MatchTheModel)
{
	SSceneOptions options = PointOptions();
	options.m_EqualPercent = 100;
	ForEachPointScene(300, options);
}

TEST(SortDifferential, PointsOfCutOutputAndVertices_MatchTheModel)
{
	SSceneOptions options = PointOptions();
	options.m_VertexCutPercent = options.m_SmallOutputPercent = 100;
	options.m_InvalidEntryPercent = 50;
	ForEachPointScene(500, options);
}

TEST(SortDifferential, PointsOfManyPages_MatchTheModel)
{
	SSceneOptions options = PointOptions();
	options.m_PageCount = {20, 60};
	options.m_ParticlesPerPage = {0, 9};
	options.m_WeightEmpty = 8;
	ForEachPointScene(100, options);
}

TEST(SortDifferential, PointsBeyondTheIndexType_MatchTheModel)
{
	SSceneOptions options = PointOptions();
	options.m_IndexType = Model::EIndexType::U16;
	options.m_Overflow = true;
	ForEachPointScene(300, options);
}

TEST(SortDifferential, LargePointScenes_MatchTheModel)
{
	SSceneOptions options;
	options.m_PageCount = {1, 12};
	options.m_ParticlesPerPage = {300, 6000};
	options.m_Quads = {1, 3};
	ForEachPointScene(10, options);
}

TEST(SortDifferential, ThreeHundredThousandPoints_MatchTheModel)
{
	SSceneOptions options;
	options.m_PageCount = {2, 2};
	options.m_ParticlesPerPage = {150000, 150000};
	options.m_WeightEmpty = options.m_WeightPartlyRendered = options.m_WeightPartlyRenderedWithBytes = 0;
	options.m_DisabledPercent = 5;
	options.m_IndexType = Model::EIndexType::U32;
	options.m_Geometry = EGeometry::Constant;
	options.m_Width = {6, 6};
	ForEachPointScene(1, options);
}

// Triangles.

TEST(SortDifferential, TrianglesOfMixedPages_MatchTheModel)
{
	SSceneOptions options;
	options.m_ParticlesPerPage = {0, 20};
	ForEachTriangleScene(700, options);
}

TEST(SortDifferential, TrianglesOfManyPages_MatchTheModel)
{
	SSceneOptions options;
	options.m_PageCount = {1, 40};
	options.m_ParticlesPerPage = {0, 12};
	options.m_TrianglesPerParticle = {1, 5};
	ForEachTriangleScene(150, options);
}

// Few particles of few triangles: quick sort, all parities, and budgets that end anywhere.
TEST(SortDifferential, TrianglesOfSmallPages_MatchTheModel)
{
	SSceneOptions options;
	options.m_PageCount = {1, 6};
	options.m_ParticlesPerPage = {0, 4};
	options.m_TrianglesPerParticle = {1, 4};
	options.m_VertexCutPercent = options.m_SmallOutputPercent = 50;
	options.m_FillerTrianglePercent = 50;
	ForEachTriangleScene(1500, options);
}

TEST(SortDifferential, TrianglesOfHostileFloats_MatchTheModel)
{
	SSceneOptions options;
	options.m_ParticlesPerPage = {0, 20};
	options.m_HostilePercent = 70;
	options.m_HostileCamera = true;
	ForEachTriangleScene(200, options);
}

TEST(SortDifferential, TrianglesBeyondTheIndexType_MatchTheModel)
{
	SSceneOptions options;
	options.m_ParticlesPerPage = {0, 20};
	options.m_IndexType = Model::EIndexType::U16;
	options.m_Overflow = true;
	ForEachTriangleScene(150, options);
}

TEST(SortDifferential, LargeTriangleScenes_MatchTheModel)
{
	SSceneOptions options;
	options.m_PageCount = {1, 40};
	options.m_ParticlesPerPage = {0, 5000};
	options.m_TrianglesPerParticle = {1, 3};
	ForEachTriangleScene(4, options);
}

// Checked sorts: scenes that keep every rule. VEXMOOR_TEST_CASES=200000 makes it a million of them.

// A page with more enabled bytes that are not 0 than rendered particles sorts, but breaks a rule.
static SSceneOptions SoundOptions()
{
	SSceneOptions options;
	options.m_WeightPartlyRenderedWithBytes = 0;
	options.m_HostileCamera = true;
	return options;
}

TEST(SortDifferential, CheckedPoints_MatchTheModel)
{
	const SSceneOptions options = SoundOptions();
	ForEachCase(
		2500, [&options](std::uint64_t seed) { return RandomPointScene(seed, options); }, true);
}

TEST(SortDifferential, CheckedTriangles_MatchTheModel)
{
	SSceneOptions options = SoundOptions();
	options.m_PageCount = {0, 8};
	options.m_ParticlesPerPage = {0, 12};
	options.m_TrianglesPerParticle = {1, 5};
	ForEachCase(
		2500, [&options](std::uint64_t seed) { return RandomTriangleScene(seed, options); }, true);
}

// The interface for C. A vertex count of 0 means another thing there.
static SScene WithVertices(SScene scene)
{
	scene.m_VertexCount = std::max(scene.m_VertexCount, 1u);
	return scene;
}

TEST(SortDifferential, PointsThroughC_MatchTheModel)
{
	const SSceneOptions options = SoundOptions();
	const auto makeScene = [&options](std::uint64_t seed) { return WithVertices(RandomPointScene(seed, options)); };
	ForEachCase(1000, makeScene, false, true);
	ForEachCase(1000, makeScene, true, true);
}

TEST(SortDifferential, TrianglesThroughC_MatchTheModel)
{
	SSceneOptions options = SoundOptions();
	options.m_ParticlesPerPage = {0, 12};
	options.m_TrianglesPerParticle = {1, 5};
	const auto makeScene = [&options](std::uint64_t seed) { return WithVertices(RandomTriangleScene(seed, options)); };
	ForEachCase(1000, makeScene, false, true);
	ForEachCase(1000, makeScene, true, true);
}
