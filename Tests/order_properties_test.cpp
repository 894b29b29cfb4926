// What the order promises, stated as properties of the particles that are drawn: what equal keys do, that a NaN moves
// nothing but its own particle, what too small an output loses, and that a count that goes up and down across the
// sorts' threshold shows in the order of equal keys alone. Every particle draws its own number.

#include "diagnostics.h"
#include "random_scene.h"
#include "scene_memory.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <numeric>

using namespace Support;
using namespace Model;

namespace
{
typedef std::vector<u32> CNumbers;

constexpr u32 kMaxQuickSortCount = 109;

// Sixty in a hundred floats are one of four: most keys are shared, some are not.
SSceneOptions OptionsOfTies()
{
	SSceneOptions options;
	options.m_PageCount = {1, 5};
	options.m_ParticlesPerPage = {0, 100};
	options.m_EqualPercent = 60;
	options.m_HostilePercent = options.m_VertexCutPercent = options.m_SmallOutputPercent = 0;
	options.m_InvalidEntryPercent = 0;
	options.m_IndexType = Model::EIndexType::U32;
	options.m_Width = options.m_VerticesPerParticle = {1, 1};
	return options;
}

// All sort types and the two geometries whose particles differ in where their records come to lie.
SScene SceneOfTies(std::uint64_t seed, SSceneOptions options = OptionsOfTies())
{
	options.m_SortType = kSortTypes[seed % 2];
	options.m_Geometry = kPointGeometries[seed / 2 % 2];
	SScene scene = RandomPointScene(seed, options);
	std::iota(scene.m_IndexList.begin(), scene.m_IndexList.end(), 0);
	scene.m_VertexCount = scene.m_IndexCapacity = scene.m_ParticleCount;
	return scene;
}

// The particles' numbers in drawing order.
CNumbers Drawn(const SScene &scene, const SSceneLayout &layout = SSceneLayout())
{
	const CReportRecorder ofNoParticles;
	const CWarningRecorder ofStrides;
	CSceneMemory memory(scene, layout);
	memory.Sort();
	return memory.Output();
}

float Float(u32 bits)
{
	float value;
	std::memcpy(&value, &bits, sizeof(value));
	return value;
}

// A rendered particle: what it is ordered by, and where its record lies before the sort.
struct SParticle
{
	bool m_Direct; // sorted by distance, pages without disabled particles come after those with them
	float m_Value; // ascending; a distance counts as its negative
	u32 m_Record;
	u32 m_Page;
	u32 m_InPage;

	bool SortsBefore(const SParticle &other) const
	{
		return m_Direct != other.m_Direct ? other.m_Direct : m_Value < other.m_Value;
	}
};
typedef std::vector<SParticle> CParticles;

// Particle k of a page with n records from record first on: groups of four lie in the order 2, 3, 0, 1.
u32 RecordOf(u32 k, u32 n, u32 first, u32 beforeGroups)
{
	constexpr u32 kPlaceInGroup[] = {2, 3, 0, 1};
	const u32 inGroups = k - beforeGroups;
	if (k < beforeGroups || inGroups / 4 >= (n - beforeGroups) / 4)
		return first + k;
	return first + beforeGroups + inGroups / 4 * 4 + kPlaceInGroup[inGroups % 4];
}

CParticles RenderedParticles(const SScene &scene)
{
	const bool byPosition = scene.m_SortType == Model::ESortType::ByPosition;
	CParticles particles;
	for (u32 pageId = 0; pageId < scene.m_Pages.size(); ++pageId)
	{
		const SPage &page = scene.m_Pages[pageId];
		const u32 first = u32(particles.size());
		const u32 inViews = u32(byPosition ? page.m_Positions.m_Elements.size() : page.m_Values.m_Elements.size());
		const bool compacted = !page.m_Enabled.empty() && page.m_RenderedCount < inViews;
		const bool grouped = byPosition || compacted || page.m_Values.m_Stride == 4;
		for (u32 i = 0; particles.size() < first + page.m_RenderedCount; ++i)
		{
			if (!page.m_Enabled.empty() && page.m_Enabled[i] == 0)
				continue;
			const u32 k = u32(particles.size()) - first;
			u32 record = first + k;
			if (scene.m_Geometry == EGeometry::Constant && grouped)
				record = RecordOf(k, page.m_RenderedCount, first, byPosition && !compacted ? first % 2 : 0);
			const float value = byPosition ? -Float(SquaredDistance(page.m_Positions.m_Elements[i], scene.m_Camera))
			                               : Float(page.m_Values.m_Elements[i]);
			particles.push_back({byPosition && !compacted, value, record, pageId, i});
		}
	}
	return particles;
}

testing::AssertionResult IsPermutation(CNumbers numbers, std::size_t count)
{
	std::sort(numbers.begin(), numbers.end());
	CNumbers all(count);
	std::iota(all.begin(), all.end(), 0);
	if (numbers != all)
		return testing::AssertionFailure() << "a particle is missing or drawn twice";
	return testing::AssertionSuccess();
}

// Back to front, whatever equal keys do.
testing::AssertionResult IsInOrder(const CNumbers &drawn, const CParticles &particles)
{
	for (std::size_t i = 1; i < drawn.size(); ++i)
	{
		if (particles[drawn[i]].SortsBefore(particles[drawn[i - 1]]))
			return testing::AssertionFailure() << drawn[i] << " is drawn after " << drawn[i - 1];
	}
	return testing::AssertionSuccess();
}

// And records of equal keys where they lay.
testing::AssertionResult IsStable(const CNumbers &drawn, const CParticles &particles)
{
	for (std::size_t i = 1; i < drawn.size(); ++i)
	{
		const SParticle &before = particles[drawn[i - 1]];
		const SParticle &after = particles[drawn[i]];
		if (!before.SortsBefore(after) && before.m_Record > after.m_Record)
			return testing::AssertionFailure() << drawn[i - 1] << " is drawn before " << drawn[i] << ", its equal";
	}
	return testing::AssertionSuccess();
}

// The quick sort of the model, on records that stand for the particles' order and places.
CNumbers QuickSorted(const CParticles &particles)
{
	std::vector<SRecord> records(particles.size());
	for (u32 i = 0; i < particles.size(); ++i)
	{
		const auto isBefore = [&](const SParticle &other) { return other.SortsBefore(particles[i]); };
		const u32 rank = u32(std::count_if(particles.begin(), particles.end(), isBefore));
		records[particles[i].m_Record] = {rank, i};
	}
	Model::QuickSort(records);
	CNumbers numbers;
	for (const SRecord &record : records)
		numbers.push_back(record.m_Index);
	return numbers;
}

// Back to front, and equal keys as the sort of that many records leaves them.
void ExpectInOrder(const CNumbers &drawn, const CParticles &particles)
{
	EXPECT_TRUE(IsPermutation(drawn, particles.size()));
	EXPECT_TRUE(IsInOrder(drawn, particles));
	if (particles.size() > kMaxQuickSortCount)
	{
		EXPECT_TRUE(IsStable(drawn, particles));
	}
	else
	{
		EXPECT_EQ(drawn, QuickSorted(particles));
	}
}

CNumbers Without(const CNumbers &drawn, const std::vector<bool> &left)
{
	CNumbers rest;
	std::copy_if(drawn.begin(), drawn.end(), std::back_inserter(rest), [&left](u32 id) { return !left[id]; });
	return rest;
}

// Test bodies say what seed they are at.
template<typename _Case>
void ForEachSeed(u32 count, const _Case &body)
{
	for (u32 seed = 1; seed <= count && !testing::Test::HasFailure(); ++seed)
	{
		SCOPED_TRACE(testing::Message() << "seed " << seed);
		body(seed);
	}
}
} // namespace

// Equal keys.

TEST(Order, EqualKeys_LieAsRecordsDoOrAsTheQuickSortLeavesThem)
{
	ForEachSeed(2000,
		[](u32 seed)
		{
			const SScene scene = SceneOfTies(seed);
			ExpectInOrder(Drawn(scene), RenderedParticles(scene));
		});
}

// The order does not depend on the addresses of views and output, on who provides the working buffer, or on what lay in
// it.
TEST(Order, OneInput_HasOneOrder)
{
	ForEachSeed(500,
		[](u32 seed)
		{
			SScene scene = SceneOfTies(seed);
			const CNumbers drawn = Drawn(scene);
			EXPECT_EQ(Drawn(scene), drawn);
			EXPECT_EQ(Drawn(scene, WithoutWorkingBuffer()), drawn);
			CRandom random(seed);
			for (SPage &page : scene.m_Pages)
			{
				page.m_Positions.m_AddressMod16 = 4 * random.Below(4);
				page.m_Values.m_AddressMod16 = 4 * random.Below(4);
				page.m_EnabledAddressMod16 = random.Below(16);
			}
			scene.m_OutputAddressMod16 = 4 * random.Below(4);
			scene.m_IndexListAddressMod16 = 4 * random.Below(4);
			EXPECT_EQ(Drawn(scene), drawn);
		});
}

// Twice as large, in every coordinate and value, the scene is drawn alike to the last of its equal keys.
TEST(Order, HowFarApartKeysAre_NeverShows)
{
	const auto doubled = [](u32 bits) { return bits == 0 ? 0 : bits + (1u << 23); };
	const auto doubled3 = [&doubled](const SFloat3 &v) -> SFloat3 {
		return {doubled(v.m_X), doubled(v.m_Y), doubled(v.m_Z)};
	};
	ForEachSeed(500,
		[&](u32 seed)
		{
			SScene scene = SceneOfTies(seed);
			const CNumbers drawn = Drawn(scene);
			scene.m_Camera = doubled3(scene.m_Camera);
			for (SPage &page : scene.m_Pages)
			{
				for (SFloat3 &position : page.m_Positions.m_Elements)
					position = doubled3(position);
				for (u32 &value : page.m_Values.m_Elements)
					value = doubled(value);
			}
			EXPECT_EQ(Drawn(scene), drawn);
		});
}

// NaNs.

// Some particles get a NaN as their value or in a coordinate. The others are drawn in the order they had: exactly above
// the quick sort's counts, and up to equal keys below. Those with the NaN stand before or after all others of their
// kind.
TEST(Order, NaNs_LeaveTheOtherParticlesInOrder)
{
	SSceneOptions options = OptionsOfTies();
	options.m_PositionStrides = {12, 16};
	options.m_ValueStrides = {4, 8};
	ForEachSeed(2000,
		[&options](u32 seed)
		{
			SScene scene = SceneOfTies(seed, options);
			const CParticles particles = RenderedParticles(scene);
			const CNumbers before = Drawn(scene);

			CRandom random(seed);
			const u32 percent = random.Below(101);
			std::vector<bool> isNaN(particles.size()), isDrawnFirst(particles.size());
			for (u32 i = 0; i < particles.size(); ++i)
			{
				if (!random.Chance(percent))
					continue;
				const u32 sign = random.Below(2) << 31;
				const u32 nan = sign | 0x7F800000u | random.Between(1, 0x007FFFFF);
				SPage &page = scene.m_Pages[particles[i].m_Page];
				SFloat3 &position = page.m_Positions.m_Elements[particles[i].m_InPage];
				u32 *const targets[] = {&position.m_X, &position.m_Y, &position.m_Z};
				*targets[random.Below(3)] = nan;
				page.m_Values.m_Elements[particles[i].m_InPage] = nan;
				isNaN[i] = true;
				// Farther than infinitely far, or a value beyond the infinity of its sign.
				isDrawnFirst[i] = particles[i].m_Direct || sign != 0;
			}

			const CNumbers after = Drawn(scene);
			ASSERT_TRUE(IsPermutation(after, particles.size()));
			const CNumbers others = Without(after, isNaN);
			if (particles.size() > kMaxQuickSortCount)
			{
				ASSERT_EQ(others, Without(before, isNaN));
			}
			else
			{
				ASSERT_TRUE(IsInOrder(others, particles));
			}

			for (const bool direct : {false, true})
			{
				// First those that are drawn first, then the others, then the rest of the NaNs.
				u32 stage = 0;
				for (const u32 id : after)
				{
					if (particles[id].m_Direct != direct)
						continue;
					const u32 ofParticle = !isNaN[id] ? 1 : isDrawnFirst[id] ? 0 : 2;
					ASSERT_GE(ofParticle, stage) << id;
					stage = ofParticle;
				}
			}
		});
}

// Every distance to such a camera is the same NaN, and so every particle of a page has the same key. A NaN with its
// sign set keys pages with disabled particles like those without; one without the sign is beyond all distances in
// these, and beyond all values in those, which are then drawn last.
TEST(Order, CameraOfNaN_LeavesRecordsInOrder)
{
	ForEachSeed(300,
		[](u32 seed)
		{
			SScene scene = SceneOfTies(2 * seed); // an even seed sorts by position
			const u32 sign = seed % 2 << 31;
			u32 *const coordinates[] = {&scene.m_Camera.m_X, &scene.m_Camera.m_Y, &scene.m_Camera.m_Z};
			*coordinates[seed % 3] = sign | 0x7F800001u;
			CParticles particles = RenderedParticles(scene);
			for (SParticle &particle : particles)
			{
				particle.m_Value = 0;
				particle.m_Direct = sign == 0 && !particle.m_Direct;
			}
			ExpectInOrder(Drawn(scene), particles);
		});
}

// Too small an output.

// Of a sort with room for all, it holds a piece: an even number of particles is missing at the far end and, where an
// odd number has no room, the very nearest is missing too. What the last whole pattern leaves is not written.
TEST(Order, TooSmallAnOutput_LosesAnEvenNumberOfTheFarthestAndPerhapsTheNearest)
{
	ForEachSeed(2000,
		[](u32 seed)
		{
			constexpr u32 kUntouched = 0xCDCDCDCD;
			CRandom random(seed);
			const u32 widths[] = {1, 3, 5, 6, 12};
			const u32 width = widths[random.Below(5)];
			SScene scene = SceneOfTies(seed);
			if (scene.m_Geometry == EGeometry::IndexList && width % 6 == 0 && random.Chance(50))
			{
				scene.m_Geometry = EGeometry::IndexListAndQuadCenters;
				scene.m_QuadCenters.resize((scene.m_ParticleCount + 1) * 16);
			}
			scene.m_Pattern.assign(width, 0);
			scene.m_IndexCapacity = scene.m_ParticleCount * width;
			const CNumbers all = Drawn(scene);

			const u32 lost = random.Chance(50) ? random.Below(scene.m_ParticleCount + 1)
		                                       : std::min(random.Below(5), scene.m_ParticleCount);
			const u32 writable = scene.m_ParticleCount - lost;
			const u32 rest = lost != 0 ? random.Below(width) : 0;
			scene.m_IndexCapacity = writable * width + rest;
			const CNumbers some = Drawn(scene);

			const u32 first = lost - lost % 2;
			CNumbers expected(all.begin() + first * width, all.begin() + (first + writable) * width);
			expected.resize(scene.m_IndexCapacity, kUntouched);
			ASSERT_EQ(some, expected) << lost << " of " << scene.m_ParticleCount << " lost, width " << width;
		});
}

// Triangles.

// With a key of its own for every particle, its triangles are drawn one after the other, and above the quick sort's
// counts in the order of the pattern. Too small an output holds the last of them: an odd number may be missing too.
TEST(Order, TrianglesOfOneParticle_StayTogether)
{
	ForEachSeed(500,
		[](u32 seed)
		{
			CRandom random(seed);
			SScene scene = OnePage(random.Between(1, 80));
			const u32 perParticle = random.Between(1, 6);
			std::vector<u32> &values = scene.m_Pages[0].m_Values.m_Elements;
			for (u32 i = 0; i + 1 < values.size(); ++i)
				std::swap(values[i], values[random.Between(i, u32(values.size()) - 1)]);

			// Triangle t of a particle has the corners t, t, t, of as many vertices as there are triangles.
			scene.m_Geometry = EGeometry::PerPage;
			SPage &page = scene.m_Pages[0];
			page.m_VerticesPerParticle = perParticle;
			for (u32 i = 0; i < 3 * perParticle; ++i)
				page.m_Pattern.push_back(i / 3);
			const u32 count = scene.m_ParticleCount * perParticle;
			scene.m_VertexCount = count;
			scene.m_TriangleIndexCount = scene.m_IndexCapacity = 3 * count;
			const CNumbers all = Drawn(scene);

			CNumbers inPattern;
			for (u32 i = 0; i < count; ++i)
			{
				const u32 vertex = all[3 * i];
				ASSERT_EQ(all[3 * i + 1], vertex);
				ASSERT_EQ(all[3 * i + 2], vertex);
				ASSERT_EQ(Float(values[vertex / perParticle]), float(i / perParticle));
				inPattern.push_back(vertex % perParticle);
			}
			for (u32 i = 0; i < count; ++i)
			{
				if (count > kMaxQuickSortCount)
				{
					ASSERT_EQ(inPattern[i], i % perParticle);
				}
				else
				{
					ASSERT_EQ(std::count(inPattern.begin() + i / perParticle * perParticle,
								  inPattern.begin() + (i / perParticle + 1) * perParticle, i % perParticle),
						1);
				}
			}

			const u32 lost = random.Below(count + 1);
			scene.m_IndexCapacity -= 3 * lost;
			ASSERT_EQ(Drawn(scene), CNumbers(all.begin() + 3 * lost, all.end()));
		});
}

// Frames.

// The count of particles goes up and down between 108 and 111. Particles that are there in two frames are drawn in the
// same order in both, equal ones apart; and equal ones too while the count stays above the threshold.
TEST(Order, FramesAroundTheThreshold_DifferInEqualKeysAlone)
{
	ForEachSeed(60,
		[](u32 seed)
		{
			CRandom random(seed);
			SScene whole = OnePage(111, 1, kPointGeometries[seed / 2 % 2]);
			whole.m_SortType = kSortTypes[seed % 2];
			whole.m_VerticesPerParticle = 1;
			whole.m_Pattern = {0};
			std::iota(whole.m_IndexList.begin(), whole.m_IndexList.end(), 0);
			SPage &page = whole.m_Pages[0];
			const u32 kinds = seed % 3 == 0 ? 1000000 : random.Between(1, 60);
			for (u32 i = 0; i < 111; ++i)
			{
				const float value = float(random.Below(kinds));
				page.m_Values.m_Elements[i] = FloatBits(value);
				page.m_Positions.m_Elements[i] = {0, FloatBits(value), 0};
			}

			CNumbers earlier;
			u32 count = random.Between(108, 111);
			for (u32 frame = 0; frame < 24; ++frame)
			{
				SScene scene = whole;
				scene.m_ParticleCount = scene.m_VertexCount = scene.m_IndexCapacity = count;
				scene.m_Pages[0].m_RenderedCount = count;
				scene.m_Pages[0].m_Positions.m_Elements.resize(count);
				scene.m_Pages[0].m_Values.m_Elements.resize(count);
				scene.m_IndexList.resize(std::min<std::size_t>(scene.m_IndexList.size(), count));
				const CParticles particles = RenderedParticles(scene);
				const CNumbers drawn = Drawn(scene);
				ExpectInOrder(drawn, particles);

				// Of the particles that both frames have, as many are before each one that are not its equals.
				const u32 common = u32(std::min(earlier.size(), drawn.size()));
				std::vector<bool> isNew(111);
				std::fill(isNew.begin() + common, isNew.end(), true);
				const CNumbers then = Without(earlier, isNew);
				const CNumbers now = Without(drawn, isNew);
				for (u32 i = 0; i < common; ++i)
				{
					const SParticle &particle = particles[now[i]];
					ASSERT_FALSE(particle.SortsBefore(particles[then[i]]) || particles[then[i]].SortsBefore(particle));
				}
				const bool bothStable = std::min(earlier.size(), drawn.size()) > kMaxQuickSortCount;
				if (bothStable && whole.m_Geometry == EGeometry::IndexList)
				{
					ASSERT_EQ(now, then);
				}

				earlier = drawn;
				count = count == 108 ? 109 : count == 111 ? 110 : random.Chance(50) ? count + 1 : count - 1;
			}
		});
}
