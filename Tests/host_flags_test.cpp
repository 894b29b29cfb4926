// A host's thread has floating-point modes of its own: denormals flushed, another rounding, exceptions that trap. The
// drivers write the same bits under all of them, trap under none, and leave the thread's mode as it was.

#include "diagnostics.h"
#include "random_scene.h"
#include "scene_memory.h"
#include <gtest/gtest.h>
#include <thread>
#include <xmmintrin.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
struct SModeCase
{
	const char *m_Name;
	u32 m_Mode; // of MXCSR
};
} // namespace

constexpr u32 kStickyFlags = 0x3F;
constexpr u32 kDefault = 0x1F80; // every exception masked
constexpr u32 kFlushToZero = 0x8000;
constexpr u32 kDenormalsAreZero = 0x0040;

static const SModeCase kModeCases[] = {
	{"Default",               kDefault                                   },
	{"FlushToZero",           kDefault | kFlushToZero                    },
	{"DenormalsAreZero",      kDefault | kDenormalsAreZero               },
	{"BothFlushed",           kDefault | kFlushToZero | kDenormalsAreZero},
	{"RoundDown",             kDefault | 0x2000                          },
	{"RoundUp",               kDefault | 0x4000                          },
	{"RoundToZero",           kDefault | 0x6000                          },
	{"AllExceptionsTrap",     0                                          },
	{"InvalidOperationTraps", kDefault & ~0x0080u                        },
	{"EverythingAtOnce",      kFlushToZero | kDenormalsAreZero | 0x6000  },
};

// Sorts the scene on a thread of its own in the given mode, and returns the mode that the sort left behind.
static u32 SortInMode(CSceneMemory &memory, u32 mode)
{
	u32 modeAfter = 0;
	const auto sort = [&memory, &modeAfter, mode]
	{
		_mm_setcsr(mode);
		memory.Sort();
		modeAfter = _mm_getcsr();
		_mm_setcsr(kDefault);
	};
	std::thread thread(sort);
	thread.join();
	return modeAfter;
}

template<typename TMakeScene, typename TModelSort>
static void ExpectSameBitsInEveryMode(const TMakeScene &makeScene, const TModelSort &modelSort)
{
	for (const SModeCase &modeCase : kModeCases)
	{
		for (u32 seed = 1; seed <= 30; ++seed)
		{
			const Model::SScene scene = makeScene(seed);
			CSceneMemory memory(scene);
			CReportRecorder reports;
			CWarningRecorder warnings;
			const u32 modeAfter = SortInMode(memory, modeCase.m_Mode);
			ASSERT_TRUE(memory.Holds(modelSort(scene))) << modeCase.m_Name << ", seed " << seed;
			ASSERT_EQ(modeAfter & ~kStickyFlags, modeCase.m_Mode) << modeCase.m_Name << ", seed " << seed;
		}
	}
}

// Denormals among the coordinates, and differences whose squares are denormal: all that a mode could change.
static Model::SSceneOptions HostileOptions()
{
	Model::SSceneOptions options;
	options.m_HostilePercent = 40;
	options.m_HostileCamera = true;
	options.m_PageCount = {1, 4};
	options.m_ParticlesPerPage = {0, 40};
	return options;
}

TEST(HostFlags, PointSortsInEveryMode_WriteTheSameBits)
{
	ExpectSameBitsInEveryMode(
		[](u32 seed) { return Model::RandomPointScene(seed, HostileOptions()); }, Model::PointSort);
}

TEST(HostFlags, TriangleSortsInEveryMode_WriteTheSameBits)
{
	ExpectSameBitsInEveryMode(
		[](u32 seed) { return Model::RandomTriangleScene(seed, HostileOptions()); }, Model::TriangleSort);
}

// Particles from 2^-87 to 2^-64 away: their squares are denormals or 0, and flushing would make all of them equal.
static Model::SScene TinyDistances()
{
	Model::SScene scene = OnePage(24);
	scene.m_SortType = Model::ESortType::ByPosition;
	for (u32 i = 0; i < 24; ++i)
		scene.m_Pages[0].m_Positions.m_Elements[i] = {(40 + i) << 23, 0, 1u << (i % 23)};
	return scene;
}

TEST(HostFlags, DenormalSquaresWithDenormalsFlushed_KeepTheirOrder)
{
	const Model::SScene scene = TinyDistances();
	const Model::SSortResult result = Model::PointSort(scene);
	CSceneMemory memory(scene);
	SortInMode(memory, kDefault | kFlushToZero | kDenormalsAreZero);
	EXPECT_TRUE(memory.Holds(result));
	EXPECT_EQ(*result.m_Output[0], 23u * 4); // the farthest, whose square is 2^-128
	EXPECT_NE(result.m_Sorted[0].m_Key, result.m_Sorted[1].m_Key);
}

// One operand of every kind that raises an exception: a signalling NaN, infinities whose difference is invalid, squares
// that overflow, squares that underflow, sums that are inexact.
TEST(HostFlags, HostileFloatsWithTrappingExceptions_DontTrap)
{
	constexpr u32 kHostile[] = {0x7F800001, 0xFFA00000, 0x7FC00000, 0x7F800000, 0xFF800000, 0x7F7FFFFF, 0x00000001,
		0x00800000, 0x1F000000, 0x3F800001, 0x80000000};
	Model::SScene scene = OnePage(44);
	scene.m_Camera = {0x7F800000, 0x3F800000, 0x3DCCCCCD};
	for (const bool disabledParticle : {false, true})
	{
		for (const Model::ESortType sortType : kSortTypes)
		{
			Model::SPage &page = scene.m_Pages[0];
			for (u32 i = 0; i < 44; ++i)
			{
				page.m_Positions.m_Elements[i] = {kHostile[i % 11], kHostile[i / 4], kHostile[i * 5 % 11]};
				page.m_Values.m_Elements[i] = kHostile[i % 11];
			}
			page.m_Enabled.assign(disabledParticle ? 44 : 0, 1);
			page.m_RenderedCount = scene.m_ParticleCount = disabledParticle ? 43 : 44;
			if (disabledParticle)
				page.m_Enabled[7] = 0;
			scene.m_SortType = sortType;

			CSceneMemory memory(scene);
			CExpectReports reports{};
			CWarningRecorder warnings;
			EXPECT_EQ(SortInMode(memory, 0) & ~kStickyFlags, 0u);
			EXPECT_TRUE(memory.Holds(Model::PointSort(scene)));
		}
	}
}
