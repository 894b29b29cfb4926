// Captured calls as they are looked at: which primitive of the call each one of an output is, against a search through
// all of them; where it is drawn; and that calls that break rules, and numbers that make no sense, do no harm.

#include "ge_mesh_sort_capture.h"

#include "capture_words.h"
#include "captured_call.h"
#include "deterministic.h"
#include "failure.h"
#include "library_reports.h"
#include "output_file.h"
#include "scene_capture.h"
#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <map>

using namespace Viewer;

namespace
{
constexpr float kInfinity = std::numeric_limits<float>::infinity();

typedef CTriangleSorter::CIndexPattern CPattern;

// A call of the sorter whose parts a test may change, and what it draws: the indices of each primitive.
class CTestCall
{
public:
	CTestCall(CTriangleSorter::EGeometryType geometry, bool byPosition, u64 seed)
		: m_Geometry(geometry)
		, m_ByPosition(byPosition)
		, m_Random(seed)
	{
		m_IsFirstFull = m_Random.Below(2) == 0;
		for (u32 page = 0; page < kPageCount; ++page)
			AddPage(page);
		m_VerticesPerParticle = geometry == CTriangleSorter::GeometryConstantAndIndexListAndQuadCenters ? 8 : 4;
		m_Pattern = {0, 1, 2, 0, 2, 3};
		if (geometry == CTriangleSorter::GeometryConstantAndIndexListAndQuadCenters)
			m_Pattern = {0, 1, 2, 0, 2, 3, 4, 5, 6, 4, 6, 7};
		if (geometry == CTriangleSorter::GeometryConstantAndIndexList && m_Random.Below(2) == 0)
			m_Pattern = {3, 0, 0, 3, 3}; // neither triangles nor in order
		for (u32 i = 0; i < m_ParticleCount; ++i)
			m_List.push_back((m_ParticleCount - 1 - i) * m_VerticesPerParticle);
		m_Centres.resize(u64(m_ParticleCount) * 16);
		for (CFloat4 &centre : m_Centres)
			centre = CFloat4(Coordinate(), Coordinate(), Coordinate(), 0.0f);
		m_OutputCount = IndexCount();
	}

	u32 IndexCount() const
	{
		if (m_Geometry != CTriangleSorter::GeometryPerPage)
			return m_ParticleCount * u32(m_Pattern.size());
		u32 count = 0;
		for (u32 page = 0; page < kPageCount; ++page)
			count += m_Counts[page] * m_PagePatterns[page].Count();
		return count;
	}

	u32 PrimitiveWidth() const
	{
		return m_Geometry == CTriangleSorter::GeometryPerPage                              ? 3
		       : m_Geometry == CTriangleSorter::GeometryConstantAndIndexListAndQuadCenters ? 6
		                                                                                   : u32(m_Pattern.size());
	}

	// The indices of every primitive, as particles lie in pages.
	std::vector<std::vector<u32>> Primitives() const
	{
		std::vector<std::vector<u32>> primitives;
		u32 vertex = 0;
		u32 particle = 0;
		for (u32 page = 0; page < kPageCount; ++page)
			for (u32 i = 0; i < m_Counts[page]; ++i, ++particle)
			{
				const bool perPage = m_Geometry == CTriangleSorter::GeometryPerPage;
				const std::vector<u32> pattern = perPage ? std::vector<u32>(&m_PagePatterns[page][0],
															   &m_PagePatterns[page][0] + m_PagePatterns[page].Count())
				                                         : m_Pattern;
				const u32 first =
					m_Geometry == CTriangleSorter::GeometryConstant || perPage ? vertex : m_List[particle];
				for (size_t start = 0; start < pattern.size(); start += PrimitiveWidth())
				{
					primitives.emplace_back();
					for (u32 k = 0; k < PrimitiveWidth(); ++k)
						primitives.back().push_back(first + pattern[start + k]);
				}
				vertex += perPage ? m_PageVertices[page] : m_VerticesPerParticle;
			}
		return primitives;
	}

	void Sort()
	{
		const u64 indexSize = m_Has16Bits ? 2 : 4;
		m_Output.assign(m_OutputCount * indexSize + 16, 0xEE);
		if (m_Has16Bits)
			m_Sorter.Setup_OutputIndexBuffer(
				TMemoryView<u16>(reinterpret_cast<u16 *>(m_Output.data()), m_OutputCount), m_VertexCount);
		else
			m_Sorter.Setup_OutputIndexBuffer(
				TMemoryView<u32>(reinterpret_cast<u32 *>(m_Output.data()), m_OutputCount), m_VertexCount);
		for (u32 page = 0; page < kPageCount; ++page)
		{
			m_PositionPages[page] = TMemoryView<const CFloat3>(m_Positions[page].data(), u32(m_Positions[page].size()));
			m_ValuePages[page] = TMemoryView<const float>(m_Values[page].data(), u32(m_Values[page].size()));
			m_EnabledPages[page] = TMemoryView<const u8>(m_Enableds[page].data(), u32(m_Enableds[page].size()));
		}
		const CTriangleSorter::CEnabledPages enableds(
			TMemoryView<const TStridedMemoryView<const u8>>(m_EnabledPages, kPageCount));
		const CTriangleSorter::CRenderedCounts counts(TMemoryView<const u32>(m_Counts, kPageCount));
		if (m_ByPosition)
			m_Sorter.Setup_InputPageCache(
				CTriangleSorter::CPositionPages(
					TMemoryView<const TStridedMemoryView<const CFloat3>>(m_PositionPages, kPageCount)),
				enableds, counts, m_ParticleCount, m_Camera);
		else
			m_Sorter.Setup_InputPageCache(
				CTriangleSorter::CSortKeyPages(
					TMemoryView<const TStridedMemoryView<const float>>(m_ValuePages, kPageCount)),
				enableds, counts, m_ParticleCount, m_Camera);
		SetGeometry();
		if (m_SortsNothing)
			return;
		if (m_Geometry == CTriangleSorter::GeometryPerPage)
			m_Sorter.SortTriangles_AutogenIndices(nullptr);
		else
			m_Sorter.SortPoints_AutogenIndices(nullptr);
	}

	u32 IndexAt(u32 place) const
	{
		u32 index = 0;
		std::memcpy(&index, &m_Output[u64(place) * (m_Has16Bits ? 2 : 4)], m_Has16Bits ? 2 : 4);
		return index;
	}
	void SetIndex(u32 place, u32 index)
	{
		std::memcpy(&m_Output[u64(place) * (m_Has16Bits ? 2 : 4)], &index, m_Has16Bits ? 2 : 4);
	}

	std::string Capture(ESortCapture content = SortCapture_InputAndOutput)
	{
		std::vector<u8> file;
		EXPECT_TRUE(WriteSortCapture(m_Sorter, nullptr, 0, content, AppendTo, &file));
		return std::string(file.begin(), file.end());
	}

	static constexpr u32 kPageCount = 4;

	CTriangleSorter::EGeometryType m_Geometry;
	bool m_ByPosition;
	bool m_Has16Bits = false;
	bool m_SortsNothing = false;
	u32 m_OutputCount = 0;
	u32 m_VertexCount = 60000;
	u32 m_ParticleCount = 0;
	CFloat3 m_Camera = CFloat3(0.5f, 3.0f, 7.0f);
	u32 m_Counts[kPageCount] = {};
	std::vector<CFloat3> m_Positions[kPageCount];
	std::vector<float> m_Values[kPageCount];
	std::vector<u8> m_Enableds[kPageCount];
	std::vector<u32> m_Pattern;
	u32 m_VerticesPerParticle;
	std::vector<u32> m_List;
	std::vector<CFloat4> m_Centres;

private:
	float Coordinate() { return m_Random.Between(-1.0f, 1.0f); }

	// The second page renders nothing; the others have disabled particles or none.
	void AddPage(u32 page)
	{
		const u32 size = 5 + m_Random.Below(40);
		const bool isFull = (page % 2 == 0) == m_IsFirstFull;
		for (u32 i = 0; i < size; ++i)
		{
			m_Positions[page].push_back(CFloat3(Coordinate(), Coordinate(), Coordinate()));
			m_Values[page].push_back(Coordinate());
			if (!isFull)
				m_Enableds[page].push_back(page == 1 || i == 2 ? 0 : u8(m_Random.Below(3)));
		}
		m_Counts[page] =
			isFull ? page == 1 ? 0 : size : size - u32(std::count(m_Enableds[page].begin(), m_Enableds[page].end(), 0));
		m_ParticleCount += m_Counts[page];
		std::vector<u32> pattern = {0, 1, 2, 2, 1, 3};
		pattern.resize(page == 2 ? 3 : 6);
		m_PagePatterns[page] = TMemoryView<const u32>(pattern.data(), u32(pattern.size()));
		m_PageVertices[page] = 4 + page;
	}

	void SetGeometry()
	{
		const TMemoryView<u32> pattern(m_Pattern.data(), u32(m_Pattern.size()));
		const TMemoryView<const u32> list(m_List.data(), u32(m_List.size()));
		switch (m_Geometry)
		{
		case CTriangleSorter::GeometryConstant:
			m_Sorter.Setup_Geometry(pattern, m_VerticesPerParticle);
			break;
		case CTriangleSorter::GeometryConstantAndIndexList:
			m_Sorter.Setup_Geometry(pattern, list);
			break;
		case CTriangleSorter::GeometryConstantAndIndexListAndQuadCenters:
			m_Sorter.Setup_Geometry(pattern, list, TMemoryView<const CFloat4>(m_Centres.data(), u32(m_Centres.size())),
				m_VerticesPerParticle);
			break;
		default:
			m_Sorter.Setup_Geometry(TMemoryView<const CPattern>(m_PagePatterns, kPageCount),
				TMemoryView<const u32>(m_PageVertices, kPageCount), IndexCount());
		}
	}

	CRandom m_Random;
	bool m_IsFirstFull;
	CPattern m_PagePatterns[kPageCount];
	u32 m_PageVertices[kPageCount];
	TStridedMemoryView<const CFloat3> m_PositionPages[kPageCount];
	TStridedMemoryView<const float> m_ValuePages[kPageCount];
	TStridedMemoryView<const u8> m_EnabledPages[kPageCount];
	std::vector<u8> m_Output;
	CTriangleSorter m_Sorter;
};

constexpr CTriangleSorter::EGeometryType kGeometries[] = {CTriangleSorter::GeometryConstant,
	CTriangleSorter::GeometryConstantAndIndexList, CTriangleSorter::GeometryConstantAndIndexListAndQuadCenters,
	CTriangleSorter::GeometryPerPage};

std::shared_ptr<CCapturedCall> Replayed(const std::string &file)
{
	const std::shared_ptr<CCapturedCall> call = std::make_shared<CCapturedCall>(file);
	call->Replay();
	return call;
}

// Each primitive of an output has been found: one of the call that has its indices, each as often as there is one.
void ExpectAreFound(const CCapturedCall &found, const CTestCall &call, const SDrawnOutput &drawn, u32 drawnCount)
{
	const std::vector<std::vector<u32>> primitives = call.Primitives();
	ASSERT_EQ(found.Primitives().size(), primitives.size());
	ASSERT_EQ(drawn.m_Primitives.size(), drawnCount);
	std::vector<u32> drawnTimes(primitives.size());
	u32 lostCount = 0;
	for (u32 number = 0; number < drawnCount; ++number)
	{
		std::vector<u32> indices;
		for (u32 i = 0; i < call.PrimitiveWidth(); ++i)
			indices.push_back(call.IndexAt(number * call.PrimitiveWidth() + i));
		const u32 primitive = drawn.m_Primitives[number].m_Primitive;
		EXPECT_EQ(drawn.m_Primitives[number].m_FirstIndex, number * call.PrimitiveWidth());
		if (primitive == kNoPrimitive)
		{
			++lostCount;
			EXPECT_EQ(std::count(primitives.begin(), primitives.end(), indices), 0) << number;
			continue;
		}
		ASSERT_LT(primitive, primitives.size());
		EXPECT_EQ(primitives[primitive], indices) << number;
		++drawnTimes[primitive];
	}
	EXPECT_EQ(drawn.m_LostCount, lostCount);
	EXPECT_EQ(drawn.m_MissingCount, u32(std::count(drawnTimes.begin(), drawnTimes.end(), 0u)));
	u32 againCount = 0;
	for (const u32 times : drawnTimes)
		againCount += times > 1 ? times - 1 : 0;
	EXPECT_EQ(drawn.m_AgainCount, againCount);
}
} // namespace

TEST(CapturedCall, Particles_AreThoseThatThePagesRender)
{
	for (const CTriangleSorter::EGeometryType geometry : kGeometries)
		for (const bool byPosition : {false, true})
		{
			const CLibraryReports reports;
			CTestCall call(geometry, byPosition, 7);
			call.Sort();
			const CCapturedCall found(call.Capture());
			u32 particle = 0;
			for (u32 page = 0; page < CTestCall::kPageCount; ++page)
			{
				const bool hasDisabled = call.m_Counts[page] < call.m_Values[page].size();
				for (u32 i = 0; i < call.m_Values[page].size() && call.m_Counts[page] != 0; ++i)
				{
					if (hasDisabled && call.m_Enableds[page][i] == 0)
						continue;
					ASSERT_LT(particle, found.Particles().size());
					const SCapturedParticle &each = found.Particles()[particle++];
					EXPECT_EQ(each.m_Page, page);
					EXPECT_EQ(each.m_Number, i);
					if (byPosition)
					{
						EXPECT_EQ(each.m_Position.y(), call.m_Positions[page][i].y());
					}
					else
					{
						EXPECT_EQ(each.m_Value, call.m_Values[page][i]);
					}
				}
			}
			EXPECT_EQ(particle, found.Particles().size());
			EXPECT_EQ(particle, call.m_ParticleCount);
		}
}

TEST(CapturedCall, Primitives_AreFoundByTheirIndices)
{
	for (u64 seed = 0; seed < 40 && !testing::Test::HasFailure(); ++seed)
		for (const CTriangleSorter::EGeometryType geometry : kGeometries)
		{
			SCOPED_TRACE("seed " + std::to_string(seed) + ", geometry " + std::to_string(geometry));
			const CLibraryReports reports;
			CTestCall call(geometry, seed % 2 == 0, seed);
			call.m_Has16Bits = seed % 3 == 0;
			const u32 width = call.PrimitiveWidth();
			const u32 all = call.IndexCount();
			if (seed % 4 == 1)
				call.m_OutputCount += 5; // room for more
			if (seed % 4 == 2)
				call.m_OutputCount -= all / 3;
			call.Sort();
			const u32 patternWidth = geometry == CTriangleSorter::GeometryPerPage ? 3 : u32(call.m_Pattern.size());
			const u32 drawnCount = std::min(call.m_OutputCount, all) / patternWidth * (patternWidth / width);
			const std::shared_ptr<CCapturedCall> found = Replayed(call.Capture());
			ASSERT_TRUE(found->Result().Good());
			ExpectAreFound(*found, call, found->Replayed(), drawnCount);
			ExpectAreFound(*found, call, found->Recorded(), drawnCount);

			// A host that overwrites some of its indices: with other primitives', with nonsense, and beyond all
			// vertices.
			CRandom random(seed);
			std::vector<bool> differs(drawnCount);
			for (u32 change = 0; change < 20; ++change)
			{
				const u32 to = random.Below(drawnCount);
				const u32 from = random.Below(drawnCount);
				for (u32 i = 0; i < width; ++i)
				{
					const u32 index = change % 3 == 0   ? call.IndexAt(from * width + i)
					                  : change % 3 == 1 ? random.Below(60000)
					                                    : 0xFFFFu - i;
					call.SetIndex(to * width + i, index);
				}
			}
			const std::shared_ptr<CCapturedCall> changed = Replayed(call.Capture());
			ASSERT_TRUE(changed->Result().m_Sorted);
			ExpectAreFound(*changed, call, changed->Recorded(), drawnCount);
			u32 differentCount = 0;
			for (u32 number = 0; number < drawnCount; ++number)
			{
				bool isDifferent = false;
				for (u32 i = 0; i < width; ++i)
				{
					u32 replayed = 0;
					ASSERT_TRUE(changed->Sort().ReplayedIndex(number * width + i, replayed));
					isDifferent = isDifferent || replayed != call.IndexAt(number * width + i);
				}
				EXPECT_EQ(changed->Recorded().m_Primitives[number].m_Differs, isDifferent);
				EXPECT_EQ(changed->Replayed().m_Primitives[number].m_Differs, isDifferent);
				differentCount += isDifferent ? 1 : 0;
			}
			EXPECT_EQ(changed->Recorded().m_DifferentCount, differentCount);
			EXPECT_GT(changed->Recorded().m_LostCount, 0u);
		}
}

// Two particles may draw the same vertices: each of them is drawn once, and then none is missing.
TEST(CapturedCall, ParticlesWithTheSameVertices_AreFoundInTurn)
{
	const CLibraryReports reports;
	CTestCall call(CTriangleSorter::GeometryConstantAndIndexList, true, 3);
	std::fill(call.m_List.begin(), call.m_List.end(), 40u);
	call.Sort();
	const std::shared_ptr<CCapturedCall> found = Replayed(call.Capture());
	EXPECT_EQ(found->Replayed().m_MissingCount, 0u);
	EXPECT_EQ(found->Replayed().m_AgainCount, 0u);
	EXPECT_EQ(found->Replayed().m_LostCount, 0u);
	EXPECT_EQ(found->Replayed().m_Primitives.size(), call.m_ParticleCount);
}

// Their patterns are those of vertex 0, which is no other particle's here.
TEST(CapturedCall, ParticlesBeyondTheVertexCount_AreFoundAtVertex0)
{
	const CLibraryReports reports;
	CTestCall listed(CTriangleSorter::GeometryConstantAndIndexList, true, 3);
	for (u32 &entry : listed.m_List)
		entry += 4;
	listed.m_List[1] = listed.m_List[7] = listed.m_VertexCount;
	listed.Sort();
	CTestCall inSequence(CTriangleSorter::GeometryConstant, false, 3);
	inSequence.m_VertexCount = (inSequence.m_ParticleCount - 5) * 4 + 3; // room for all but the last five
	inSequence.Sort();
	for (CTestCall *const call : {&listed, &inSequence})
	{
		const std::shared_ptr<CCapturedCall> found = Replayed(call->Capture());
		EXPECT_EQ(found->Replayed().m_Primitives.size(), call->m_ParticleCount);
		EXPECT_EQ(found->Replayed().m_LostCount, 0u);
		EXPECT_EQ(found->Replayed().m_AgainCount, 0u);
		EXPECT_EQ(found->Replayed().m_MissingCount, 0u);
	}
}

TEST(CapturedCall, DamagedFile_IsRefusedInASentence)
{
	const CLibraryReports reports;
	CTestCall call(CTriangleSorter::GeometryConstant, true, 1);
	call.Sort();
	std::string file = call.Capture();
	EXPECT_TRUE(CCapturedCall::IsCapture(file));
	EXPECT_FALSE(CCapturedCall::IsCapture("VXSORT"));
	EXPECT_FALSE(CCapturedCall::IsCapture(""));
	EXPECT_THROW(CCapturedCall(file.substr(0, file.size() - 1)), CFailure);
	EXPECT_THROW(CCapturedCall(file.substr(0, 20)), CFailure);
	file[60] = char(file[60] ^ 1);
	EXPECT_THROW(CCapturedCall{file}, CFailure);
}

// A page of a small file may claim any number of elements.
TEST(CapturedCall, MoreParticlesThanCanBeLookedAt_AreRefused)
{
	const CFloat3 place;
	const TStridedMemoryView<const CFloat3> positions(&place, 3000000000u, 0);
	const TStridedMemoryView<const u8> none;
	const u32 count = 3000000000u;
	u32 pattern[] = {0};
	CTriangleSorter sorter;
	u32 output[4];
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(output, 4), 4);
	sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(positions), CTriangleSorter::CEnabledPages(none),
		CTriangleSorter::CRenderedCounts(count), 5, CFloat3());
	sorter.Setup_Geometry(TMemoryView<u32>(pattern, 1), 1);
	std::vector<u8> file;
	ASSERT_TRUE(WriteSortCapture(sorter, nullptr, 0, SortCapture_Input, AppendTo, &file));
	try
	{
		const CCapturedCall found(std::string_view(reinterpret_cast<const char *>(file.data()), file.size()));
		ADD_FAILURE() << "it is looked at";
	}
	catch (const CFailure &failure)
	{
		EXPECT_NE(std::string(failure.what()).find("--replay"), std::string::npos) << failure.what();
	}
}

TEST(CaptureScene, BrokenCall_ShowsItsParticlesUnsorted)
{
	for (const CTriangleSorter::EGeometryType geometry : kGeometries)
	{
		const CLibraryReports reports;
		CTestCall call(geometry, true, 5);
		call.m_SortsNothing = true;
		call.m_ParticleCount += 1; // not what the pages render
		call.Sort();
		const std::string file = call.Capture();
		CCaptureScene scene(std::make_shared<CCapturedCall>(file));
		ASSERT_TRUE(scene.IsBroken());
		EXPECT_FALSE(scene.Call().Findings().Of(true).empty());
		ASSERT_EQ(scene.Pictures().size(), 1u);
		EXPECT_EQ(scene.Count(EOrder::Storage), call.m_ParticleCount - 1);
		scene.SetLook({EOrder::Storage, EShape::Triangles, 100, kAllPrimitives, true});
		EXPECT_EQ(scene.Indices().size(), (call.m_ParticleCount - 1) * 6);
		EXPECT_FALSE(OutputWords(scene, EOrder::Storage)[0].m_IsGood);
		EXPECT_NE(PrimitiveWords(scene, EOrder::Storage, 0), "");
	}
}

// Views for fewer particles than are rendered, no pages, no geometry, vertex counts and widths of 0: nothing is read
// that is not there, and sanitizers agree.
TEST(CaptureScene, CallsOfNonsense_AreShownAsFarAsTheyGo)
{
	const auto show = [](CTestCall &call)
	{
		const CLibraryReports reports;
		call.m_SortsNothing = true;
		call.Sort();
		CCaptureScene scene(std::make_shared<CCapturedCall>(call.Capture(SortCapture_Input)));
		for (const SPictureOfOrder &picture : scene.Pictures())
			for (const EShape shape : {EShape::Triangles, EShape::Quads, EShape::Points})
			{
				scene.SetLook({picture.m_Order, shape, 100, kAllPrimitives, true});
				for (const u32 index : scene.Indices())
					EXPECT_LT(index, scene.Frame().m_Marks.Count());
				OutputWords(scene, picture.m_Order);
				PlaceWords(scene, picture.m_Order);
				CallLines(scene.Call().Sort());
				PrimitiveWords(scene, picture.m_Order, 0);
			}
		return scene.Count(EOrder::Storage);
	};
	for (const CTriangleSorter::EGeometryType geometry : kGeometries)
		for (const bool byPosition : {false, true})
		{
			CTestCall shortViews(geometry, byPosition, 11);
			shortViews.m_Positions[0].resize(2);
			shortViews.m_Values[0].resize(2);
			const u32 missing = shortViews.m_Counts[0] - 2;
			if (shortViews.m_Enableds[0].empty())
			{
				EXPECT_EQ(show(shortViews), shortViews.m_ParticleCount - missing);
			}

			CTestCall noVertices(geometry, byPosition, 12);
			noVertices.m_VerticesPerParticle = 0;
			noVertices.m_VertexCount = 0;
			show(noVertices);

			CTestCall noPattern(geometry, byPosition, 13);
			noPattern.m_Pattern.clear();
			show(noPattern);

			CTestCall shortList(geometry, byPosition, 14);
			shortList.m_List.resize(3);
			shortList.m_Centres.resize(3);
			show(shortList);

			CTestCall farVertices(geometry, byPosition, 15);
			std::fill(farVertices.m_List.begin(), farVertices.m_List.end(), 0xFFFFFFFFu);
			show(farVertices);

			CTestCall nothing(geometry, byPosition, 16);
			std::fill(nothing.m_Counts, nothing.m_Counts + CTestCall::kPageCount, 0u);
			nothing.m_ParticleCount = 0;
			nothing.m_OutputCount = 0;
			EXPECT_EQ(show(nothing), 0u);
		}
}

TEST(CaptureScene, PositionsThatAreNotFinite_AreNotShownButCounted)
{
	const CLibraryReports reports;
	CTestCall call(CTriangleSorter::GeometryConstant, true, 2);
	const u32 page = call.m_Enableds[0].empty() ? 0 : 1;
	const u32 full = call.m_Enableds[page].empty() && call.m_Counts[page] != 0 ? page : 2;
	const u32 shown = call.m_Enableds[full].empty() ? full : 3;
	call.m_Positions[shown][0] = CFloat3(kInfinity, 0.0f, 0.0f);
	call.m_Positions[shown][1] = CFloat3(0.0f, std::numeric_limits<float>::quiet_NaN(), 0.0f);
	call.m_Camera = CFloat3(0.0f, kInfinity, 0.0f);
	call.Sort();
	CCaptureScene scene(std::make_shared<CCapturedCall>(call.Capture()));
	EXPECT_FALSE(scene.HasCamera());
	EXPECT_EQ(scene.UnplacedCount(EOrder::Replayed), 2u);
	scene.SetLook({EOrder::Replayed, EShape::Quads, 100, kAllPrimitives, true});
	EXPECT_EQ(scene.Indices().size(), (call.m_ParticleCount - 2) * 6);
	EXPECT_NE(PlaceWords(scene, EOrder::Replayed).find("not shown: 2 primitives"), std::string::npos);
}

// The camera stays where it was, seen from the body of the particles, however far away it is.
TEST(CaptureScene, Camera_KeepsItsDirection)
{
	for (const float distance : {0.0f, 0.5f, 4.0f, 50.0f, 1e5f, 1e30f})
	{
		const CLibraryReports reports;
		CTestCall call(CTriangleSorter::GeometryConstant, true, 4);
		for (std::vector<CFloat3> &positions : call.m_Positions)
			for (CFloat3 &position : positions)
				position = CFloat3(position.x() + 100.0f, position.y(), position.z());
		call.m_Camera = CFloat3(100.0f + 0.6f * distance, 0.0f, 0.8f * distance);
		call.Sort();
		CCaptureScene scene(std::make_shared<CCapturedCall>(call.Capture()));
		const SCamera camera = scene.Frame().m_Camera;
		EXPECT_TRUE(camera.m_IsPlaced);
		const float length = std::sqrt(Dot(camera.m_Position, camera.m_Position));
		EXPECT_LT(length, 31.0f);
		if (distance >= 50.0f)
		{
			EXPECT_NEAR(camera.m_Position.x() / length, 0.6f, 0.03f) << distance;
		}
		const SViewTransform view = ViewTransform(camera, 1.5f);
		u32 insideCount = 0;
		for (u32 number = 0; number < scene.Count(EOrder::Replayed); ++number)
		{
			const SClipPoint point = Projected(view, *scene.PlaceOf(EOrder::Replayed, number));
			ASSERT_TRUE(std::isfinite(point.m_X) && std::isfinite(point.m_W));
			insideCount += point.m_W > 0.0f && std::abs(point.m_X) <= point.m_W && std::abs(point.m_Y) <= point.m_W;
		}
		if (distance >= 4.0f)
		{
			EXPECT_GE(insideCount, scene.Count(EOrder::Replayed) * 9 / 10) << distance;
		}
	}
}

// From the first primitive on, each draws as many indices as it has, and colours stay as they are.
TEST(CaptureScene, First_IsABeginningOfTheDrawingOrder)
{
	const CLibraryReports reports;
	CTestCall call(CTriangleSorter::GeometryConstantAndIndexListAndQuadCenters, false, 6);
	call.Sort();
	CCaptureScene scene(std::make_shared<CCapturedCall>(call.Capture()));
	EXPECT_FALSE(scene.IsChart()); // quad centres are positions
	SCaptureLook look = {EOrder::Recorded, EShape::Triangles, 100, kAllPrimitives, true};
	scene.SetLook(look);
	const std::vector<u32> all = scene.Indices();
	const u32 count = scene.Count(EOrder::Recorded);
	ASSERT_EQ(all.size(), count * 6);
	for (const u32 first : {0u, 1u, count / 2, count, kAllPrimitives})
	{
		look.m_FirstCount = first;
		scene.SetLook(look);
		const std::vector<u32> some = scene.Indices();
		ASSERT_EQ(some.size(), std::min(first, count) * 6);
		EXPECT_TRUE(std::equal(some.begin(), some.end(), all.begin()));
	}
	EXPECT_EQ(FirstWords(20, 1000), "the first 20 of 1,000");
	EXPECT_EQ(FirstWords(kAllPrimitives, 1000), "all 1,000");
	EXPECT_EQ(PrimitiveWords(scene, EOrder::Recorded, count), "");
}

// A million squares are as many as there is room for: of more, the last ones of those that are asked for.
TEST(CaptureScene, MorePrimitivesThanCanBeDrawn_ShowsTheLast)
{
	const CLibraryReports reports;
	constexpr u32 kCount = 1000100;
	std::vector<float> values(kCount);
	for (u32 i = 0; i < kCount; ++i)
		values[i] = float(i);
	const TStridedMemoryView<const float> page(TMemoryView<const float>(values.data(), kCount));
	const TStridedMemoryView<const u8> allEnabled;
	const u32 count = kCount;
	u32 pattern[] = {0};
	std::vector<u32> output(kCount);
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(output.data(), kCount), kCount);
	sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(page), CTriangleSorter::CEnabledPages(allEnabled),
		CTriangleSorter::CRenderedCounts(count), kCount);
	sorter.Setup_Geometry(TMemoryView<u32>(pattern, 1), 1);
	std::vector<u8> file;
	ASSERT_TRUE(WriteSortCapture(sorter, nullptr, 0, SortCapture_Input, AppendTo, &file));
	CCaptureScene scene(
		std::make_shared<CCapturedCall>(std::string_view(reinterpret_cast<const char *>(file.data()), file.size())));
	SCaptureLook look = {EOrder::Replayed, EShape::Quads, 100, kAllPrimitives, true};
	scene.SetLook(look);
	EXPECT_EQ(scene.Count(EOrder::Replayed), kCount);
	EXPECT_EQ(scene.FirstDrawn(), 100u);
	EXPECT_EQ(scene.Indices().size(), 1000000u * 6);
	EXPECT_NE(PlaceWords(scene, EOrder::Replayed).find("numbers below 100 are left out"), std::string::npos);
	for (const u32 first : {50u, 1000050u})
	{
		look.m_FirstCount = first;
		scene.SetLook(look);
		EXPECT_EQ(scene.FirstDrawn(), first == 50 ? 0u : 50u);
		EXPECT_EQ(scene.Indices().size(), std::min(first, 1000000u) * 6);
	}
}

// In a chart, what is drawn later lies higher, as far as values are numbers.
TEST(CaptureScene, SortByValues_IsAChart)
{
	const CLibraryReports reports;
	CTestCall call(CTriangleSorter::GeometryConstant, false, 8);
	for (std::vector<float> &values : call.m_Values)
	{
		values[3] = kInfinity;
		values[4] = -kInfinity;
	}
	call.Sort();
	CCaptureScene scene(std::make_shared<CCapturedCall>(call.Capture()));
	ASSERT_TRUE(scene.IsChart());
	EXPECT_EQ(scene.UnplacedCount(EOrder::Replayed), 0u);
	float last = -10.0f;
	for (u32 number = 0; number < scene.Count(EOrder::Replayed); ++number)
	{
		const CFloat3 place = *scene.PlaceOf(EOrder::Replayed, number);
		EXPECT_GE(place.y(), last) << number;
		EXPECT_LE(std::abs(place.x()), 1.5f);
		last = place.y();
	}
	EXPECT_NE(PlaceWords(scene, EOrder::Replayed).find("no positions"), std::string::npos);
}

TEST(CaptureScene, Words_SayWhatDiffers)
{
	const CLibraryReports reports;
	CTestCall call(CTriangleSorter::GeometryPerPage, true, 9);
	call.Sort();
	EXPECT_EQ(OutputWords(CCaptureScene(std::make_shared<CCapturedCall>(call.Capture())), EOrder::Recorded).size(), 1u);
	EXPECT_TRUE(OutputWords(
		CCaptureScene(std::make_shared<CCapturedCall>(call.Capture(SortCapture_Input))), EOrder::Replayed)[0]
					.m_IsGood);
	const u32 replayed = call.IndexAt(9);
	for (u32 i = 0; i < 3; ++i)
		call.SetIndex(9 + i, call.IndexAt(i)); // the first triangle again
	call.SetIndex(12, 0xFFFFFFFFu);
	const CCaptureScene scene(std::make_shared<CCapturedCall>(call.Capture()));
	const std::vector<SOutputSentence> recorded = OutputWords(scene, EOrder::Recorded);
	ASSERT_EQ(recorded.size(), 4u);
	EXPECT_NE(recorded[0].m_Sentence.find(", in 2 primitives, lit. The first is at place "), std::string::npos)
		<< recorded[0].m_Sentence;
	EXPECT_NE(recorded[0].m_Sentence.find(": " + std::to_string(replayed) + " here, "), std::string::npos);
	EXPECT_EQ(recorded[1].m_Sentence,
		"1 primitive has indices that none of the call has, lit white, where this machine draws another.");
	EXPECT_EQ(recorded[2].m_Sentence, "1 of the primitives has been drawn before.");
	EXPECT_EQ(recorded[3].m_Sentence, "2 primitives of the call are not drawn.");
	EXPECT_EQ(
		PrimitiveWords(scene, EOrder::Recorded, 4), "Number 4: indices of no primitive of the call, from place 12 on");
	EXPECT_NE(PrimitiveWords(scene, EOrder::Replayed, 4).find(" of page "), std::string::npos);
	EXPECT_NE(PrimitiveWords(scene, EOrder::Replayed, 4).find(", squared distance "), std::string::npos);
	// A lost one is drawn where this machine draws another.
	EXPECT_EQ(scene.PlaceOf(EOrder::Recorded, 4)->x(), scene.PlaceOf(EOrder::Replayed, 4)->x());
}
