// Captures: a sort that is written, read and sorted again gives the same bytes, whatever it sorts; the file is what its
// page in Docs says; and a file that is not whole is refused.

#include "ge_mesh_sort_capture.h"

#include "capture_places.h"
#include "diagnostics.h"
#include "random_scene.h"
#include "read_capture.h"
#include "scene_memory.h"
#include "sort_call.h"
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
typedef std::vector<u8> CFile;

constexpr u64 kMemoryLimit = u64(1) << 30;

bool Append(const void *bytes, u64 size, void *file)
{
	EXPECT_NE(size, 0u);
	const u8 *const first = static_cast<const u8 *>(bytes);
	CFile &to = *static_cast<CFile *>(file);
	to.insert(to.end(), first, first + size);
	return true;
}

u64 WorkingBufferSize(const Model::SScene &scene)
{
	return scene.m_Geometry == Model::EGeometry::PerPage
	           ? CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(scene.m_TriangleIndexCount)
	           : CTriangleSorter::GetAutogenIndicesWorkingBufferSize(scene.m_ParticleCount);
}

CFile CaptureOf(CSceneMemory &memory, const Model::SScene &scene, ESortCapture content)
{
	CFile file;
	const u64 size = memory.WorkingBuffer() != null ? WorkingBufferSize(scene) : 0;
	EXPECT_TRUE(WriteSortCapture(memory.Sorter(), memory.WorkingBuffer(), size, content, Append, &file));
	return file;
}

CFile CaptureOf(CCall &call, ESortCapture content = SortCapture_Input)
{
	CFile file;
	EXPECT_TRUE(
		WriteSortCapture(call.m_Sorter, call.m_WorkingBuffer, call.m_WorkingBufferSize, content, Append, &file));
	return file;
}

void *Past(const void *address, s64 byteCount)
{
	return reinterpret_cast<void *>(reinterpret_cast<ureg>(address) + ureg(byteCount));
}

// Calls action with the name and the address of each array that a call reads, the sorter among them.
template<typename _Action>
void ForEachArray(CCall &call, const _Action &action)
{
	action("sorter", &call.m_Sorter);
	action("rendered counts", call.m_Counts);
	action("views of the source", call.m_ByPosition ? static_cast<void *>(call.m_Positions) : call.m_Values);
	for (const u32 page : {0u, 2u})
		action(page == 0 ? "source of page 0" : "source of page 2",
			call.m_ByPosition ? static_cast<const void *>(call.m_Positions[page].Data()) : call.m_Values[page].Data());
	action("views of enabled bytes", call.m_Enableds);
	action("enabled bytes", call.m_EnabledBytes);
	if (call.m_Geometry == List || call.m_Geometry == Quads)
		action("index list", call.m_Entries);
	if (call.m_Geometry == Quads)
		action("quad centres", call.m_QuadCenters.Data());
	if (call.m_Geometry == Triangles)
	{
		action("index patterns", call.m_Patterns);
		action("vertex counts", call.m_VertexCounts);
	}
}

// The sentence with which a file is refused, or "" where it is read.
std::string Refusal(const CFile &file, u64 memoryLimit = kMemoryLimit)
{
	const CReadCapture capture(file, memoryLimit);
	EXPECT_EQ(capture.IsRead(), capture.Refusal()[0] == '\0');
	return capture.Refusal();
}

// With a size and a checksum that are right, whatever else is wrong.
CFile Mended(CFile file)
{
	const u64 size = file.size();
	std::memcpy(&file[size - 16], &size, sizeof(size));
	const u64 checksum = SortCaptureChecksum(kSortCaptureChecksumStart, file.data(), size - 8);
	std::memcpy(&file[size - 8], &checksum, sizeof(checksum));
	return file;
}

u32 WordAt(const CFile &file, u64 offset)
{
	u32 word;
	std::memcpy(&word, &file[offset], sizeof(word));
	return word;
}

void SetWord(CFile &file, u64 offset, u32 word)
{
	std::memcpy(&file[offset], &word, sizeof(word));
}

// Sorts the scene, captures it, replays the file: the rules are kept, and the outputs equal each other.
void ExpectReplays(const Model::SScene &scene, const SSceneLayout &layout)
{
	const CReportRecorder reports;
	const CWarningRecorder warnings;
	CSceneMemory memory(scene, layout);
	memory.Sort();
	const CFile file = CaptureOf(memory, scene, SortCapture_InputAndOutput);
	ASSERT_EQ(file.size() % 4, 0u);

	CReadCapture capture(file, kMemoryLimit);
	ASSERT_STREQ(capture.Refusal(), "");
	EXPECT_EQ(capture.OutputCount(), scene.m_IndexCapacity);
	EXPECT_EQ(reinterpret_cast<ureg>(capture.Output()) % 16, scene.m_OutputAddressMod16);
	const SReplay replay = Replay(capture);
	EXPECT_EQ(replay.m_Violations, std::vector<std::string>());
	EXPECT_TRUE(replay.m_Compared);
	EXPECT_EQ(replay.m_DifferenceCount, 0u) << "output " << replay.m_FirstDifference << ": " << replay.m_ReplayedIndex
											<< ", not " << replay.m_RecordedIndex;

	const Model::SSortResult result =
		scene.m_Geometry == Model::EGeometry::PerPage ? Model::TriangleSort(scene) : Model::PointSort(scene);
	const auto isWritten = [](const std::optional<u32> &index) { return index.has_value(); };
	EXPECT_EQ(replay.m_WrittenCount, std::count_if(result.m_Output.begin(), result.m_Output.end(), isWritten));

	// What is captured of the replayed sort is the same file, but for how far apart its memory is.
	CFile again;
	EXPECT_TRUE(WriteSortCapture(
		capture.Sorter(), capture.WorkingBuffer(), capture.WorkingBufferSize(), SortCapture_Input, Append, &again));
	EXPECT_TRUE(WithoutPlaces(again) == WithoutPlaces(CaptureOf(memory, scene, SortCapture_Input)))
		<< "the replayed sort gives another capture";
}

Model::SSceneOptions Options()
{
	Model::SSceneOptions options;
	options.m_HostileCamera = true;
	options.m_PositionStrides = {0, 12, 12, 13, 16, 20, 31};
	options.m_ValueStrides = {0, 4, 4, 5, 8, 11};
	options.m_WeightPartlyRenderedWithBytes = 0; // breaks a rule
	return options;
}

constexpr std::uint64_t kSceneCount = 300;
constexpr u64 kRenderedCounts = 100; // where their section starts
} // namespace

TEST(SortCapture, RandomPointScenes_ReplayToTheSameBytes)
{
	for (std::uint64_t seed = 0; seed < kSceneCount && !testing::Test::HasFailure(); ++seed)
	{
		const Model::SScene scene = Model::RandomPointScene(seed, Options());
		SCOPED_TRACE("seed " + std::to_string(seed) + ": " + Model::Describe(scene));
		SSceneLayout layout;
		layout.m_PageViewStride = seed % 3 == 0 ? 24 : 16;
		layout.m_RenderedCountStride = seed % 4 == 0 ? 12 : 4;
		layout.m_SorterAllocates = seed % 5 == 0;
		ExpectReplays(scene, layout);
	}
}

TEST(SortCapture, RandomTriangleScenes_ReplayToTheSameBytes)
{
	for (std::uint64_t seed = 0; seed < kSceneCount && !testing::Test::HasFailure(); ++seed)
	{
		const Model::SScene scene = Model::RandomTriangleScene(seed, Options());
		SCOPED_TRACE("seed " + std::to_string(seed) + ": " + Model::Describe(scene));
		SSceneLayout layout;
		layout.m_SorterAllocates = seed % 5 == 0;
		ExpectReplays(scene, layout);
	}
}

// Above 109 records another algorithm sorts, and pages span more than what is handed over at a time.
TEST(SortCapture, LargeScenes_ReplayToTheSameBytes)
{
	Model::SSceneOptions options = Options();
	options.m_ParticlesPerPage = {500, 3000};
	for (std::uint64_t seed = 0; seed < 12 && !testing::Test::HasFailure(); ++seed)
	{
		const Model::SScene scene =
			seed % 3 == 0 ? Model::RandomTriangleScene(seed, options) : Model::RandomPointScene(seed, options);
		SCOPED_TRACE("seed " + std::to_string(seed) + ": " + Model::Describe(scene));
		ExpectReplays(scene, SSceneLayout());
	}
}

TEST(SortCapture, EveryGeometryAndSortType_ReplaysACallWithoutFindings)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		for (const bool byPosition : {false, true})
		{
			for (const bool with16Bits : {false, true})
			{
				CCall call(geometry);
				if (byPosition)
					call.SortByPosition();
				if (with16Bits)
					call.Output16();
				call.SetUp();
				const CReportRecorder reports;
				const CWarningRecorder warnings;
				call.Sort();
				CReadCapture capture(CaptureOf(call, SortCapture_InputAndOutput), kMemoryLimit);
				ASSERT_STREQ(capture.Refusal(), "");
				EXPECT_EQ(
					capture.SortType(), byPosition ? CTriangleSorter::SortByPosition : CTriangleSorter::SortByFloat);
				EXPECT_EQ(capture.IndexSize(), with16Bits ? 2u : 4u);
				EXPECT_EQ(capture.ParticleCount(), CCall::kParticleCount);
				EXPECT_EQ(capture.PageCount(), CCall::kPageCount);
				EXPECT_EQ(capture.EmptyPageCount(), 1u);
				EXPECT_EQ(capture.PageCountWithEnableds(), 1u);
				const SReplay replay = Replay(capture);
				EXPECT_TRUE(replay.Good());
				EXPECT_TRUE(replay.m_Compared);
				EXPECT_EQ(replay.m_WrittenCount, call.m_OutputCount);
			}
		}
	}
}

// Every element that the call reads, through the views of what was read, and no element of what it does not have.
TEST(SortCapture, WhatACallReads_CanBeAskedFor)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		for (const bool byPosition : {false, true})
		{
			CCall call(geometry);
			call.m_Camera = CFloat3(1.0f, 2.0f, 3.0f);
			if (byPosition)
				call.SortByPosition();
			call.SetUp();
			const CReadCapture capture(CaptureOf(call), kMemoryLimit);
			ASSERT_STREQ(capture.Refusal(), "");
			EXPECT_EQ(capture.CameraPosition().z(), 3.0f);
			for (u32 page = 0; page < CCall::kPageCount; ++page)
			{
				const bool perPage = geometry == Triangles;
				EXPECT_EQ(capture.RenderedCount(page), call.m_Counts[page]);
				EXPECT_EQ(capture.VerticesPerParticle(page), perPage            ? call.m_VertexCounts[page]
															 : geometry == List ? 0
																				: call.m_VerticesPerParticle);
				const TMemoryView<const u32> found = capture.IndexPattern(page);
				const TMemoryView<const u32> expected =
					perPage ? TMemoryView<const u32>(call.m_Patterns[page])
							: TMemoryView<const u32>(call.m_Pattern.data(), u32(call.m_Pattern.size()));
				EXPECT_TRUE(std::equal(found.Data(), found.DataEnd(), expected.Data(), expected.DataEnd()));
				if (call.m_Counts[page] == 0) // whose views may be anything
					continue;
				EXPECT_EQ(capture.Positions(page).Count(), byPosition ? call.m_Positions[page].Count() : 0);
				EXPECT_EQ(capture.SortValues(page).Count(), byPosition ? 0 : call.m_Values[page].Count());
				EXPECT_EQ(capture.Enableds(page).Count(), call.m_Enableds[page].Count());
				for (u32 i = 0; i < capture.Enableds(page).Count(); ++i)
					EXPECT_EQ(capture.Enableds(page)[i], call.m_Enableds[page][i]);
				for (u32 i = 0; i < capture.Positions(page).Count(); ++i)
					EXPECT_EQ(std::memcmp(capture.Positions(page).AddressOf(i), call.m_Positions[page].AddressOf(i),
								  sizeof(CFloat3)),
						0);
				for (u32 i = 0; i < capture.SortValues(page).Count(); ++i)
					EXPECT_EQ(std::memcmp(capture.SortValues(page).AddressOf(i), call.m_Values[page].AddressOf(i),
								  sizeof(float)),
						0);
			}
			const bool hasList = geometry == List || geometry == Quads;
			ASSERT_EQ(capture.IndexList().Count(), hasList ? CCall::kParticleCount : 0);
			for (u32 i = 0; i < capture.IndexList().Count(); ++i)
				EXPECT_EQ(std::memcmp(capture.IndexList().AddressOf(i), &call.m_Entries[i], sizeof(u32)), 0);
			EXPECT_EQ(capture.QuadCenters().Count(), geometry == Quads ? call.m_QuadCenters.Count() : 0);

			EXPECT_EQ(capture.RenderedCount(CCall::kPageCount), 0u);
			EXPECT_TRUE(capture.Positions(CCall::kPageCount).Empty());
			EXPECT_TRUE(capture.SortValues(CCall::kPageCount).Empty());
			EXPECT_TRUE(capture.Enableds(CCall::kPageCount).Empty());
			if (geometry == Triangles)
			{
				EXPECT_TRUE(capture.IndexPattern(CCall::kPageCount).Empty());
				EXPECT_EQ(capture.VerticesPerParticle(CCall::kPageCount), 0u);
			}
		}
	}
}

// Room for more than the sort writes: where it writes nothing, there is no index.
TEST(SortCapture, IndicesOfBothOutputs_AreThoseAtTheirPlaces)
{
	for (const bool with16Bits : {false, true})
	{
		CCall call(Constant);
		if (with16Bits)
			call.Output16();
		call.m_ParticleCount -= 2; // those of the last page
		call.m_Counts[3] = 0;
		call.SetUp();
		const CReportRecorder reports;
		const CWarningRecorder warnings;
		call.Sort();
		CReadCapture capture(CaptureOf(call, SortCapture_InputAndOutput), kMemoryLimit);
		ASSERT_STREQ(capture.Refusal(), "");
		const SReplay replay = Replay(capture);
		ASSERT_TRUE(replay.m_Sorted);
		u32 writtenCount = 0;
		for (u32 place = 0; place < capture.OutputCount(); ++place)
		{
			u32 recorded = 0;
			std::memcpy(
				&recorded, static_cast<const u8 *>(call.m_Output) + place * capture.IndexSize(), capture.IndexSize());
			EXPECT_EQ(capture.RecordedIndex(place), recorded);
			u32 index = 0;
			if (!capture.ReplayedIndex(place, index))
				continue;
			EXPECT_EQ(index, recorded);
			EXPECT_EQ(place, writtenCount);
			++writtenCount;
		}
		EXPECT_EQ(writtenCount, replay.m_WrittenCount);
		EXPECT_LT(writtenCount, capture.OutputCount());
	}
}

// Byte by byte what the page in Docs says, for a call with something in every section that a sort of points has.
TEST(SortCapture, File_IsAsDocumented)
{
	CCall call(Quads);
	call.m_WorkingBufferSize += u64(7) << 32;
	call.SetUp();
	const CFile file = CaptureOf(call);
	u64 offset = 0;
	const auto word = [&] { return WordAt(file, (offset += 4) - 4); };
	const auto expectWords = [&](const std::vector<u32> &words)
	{
		for (const u32 expected : words)
			EXPECT_EQ(word(), expected) << "at byte " << offset - 4;
	};
	const u32 one = FloatBits(1.0f);

	EXPECT_EQ(std::memcmp(file.data(), "\x56\x58\x53\x4F\x52\x54\x0D\x0A", 8), 0);
	offset = 8;
	const u64 origin = reinterpret_cast<ureg>(&call.m_Sorter) / 16 * 16;
	const auto expectPlace = [&](const void *data)
	{
		EXPECT_EQ(PlaceAt(file, offset), reinterpret_cast<ureg>(data) - origin) << "at byte " << offset;
		offset += 8;
	};
	const auto expectNoPlace = [&] { expectWords({0, 0}); };
	const auto expectView = [&](u32 count, u32 stride, const void *data)
	{
		expectWords({count, stride});
		expectPlace(data);
	};
	const auto expectEmptyPage = [&] { expectWords({0, 0, 0, 0, 0}); };

	expectWords({2, 0, sizeof(void *)});
	expectPlace(&call.m_Sorter);
	expectWords({2, call.m_OutputCount});
	expectPlace(call.m_Output);
	expectWords({call.m_VertexCount});
	expectWords({2, 9, 0, 0, 0});
	expectWords({3, 4, 0});
	expectWords({1});
	expectPlace(call.m_WorkingBuffer);
	expectWords({u32(call.m_WorkingBufferSize), 7});
	EXPECT_EQ(offset, kRenderedCounts);
	expectView(4, 4, call.m_Counts);
	expectWords({4, 0, 3, 2});

	expectView(4, 16, call.m_Enableds);
	expectEmptyPage();
	expectEmptyPage();
	expectView(5, 1, call.m_EnabledBytes);
	expectWords({5, 0x00FF0001, 7});
	expectEmptyPage();

	expectView(4, 16, call.m_Values);
	expectView(4, 4, call.m_Values[0].Data());
	expectWords({4, one, one, one, one});
	expectEmptyPage();
	expectView(5, 4, call.m_Values[2].Data());
	expectWords({5, one, one, one, one, one});
	expectView(2, 4, call.m_Values[3].Data());
	expectWords({2, one, one});

	expectWords({12, 0, 1, 2, 0, 2, 3, 3, 2, 1, 3, 1, 0});
	expectPlace(call.m_Entries);
	expectWords({9, 0, 4, 8, 12, 16, 20, 24, 28, 32});
	expectPlace(call.m_QuadCenters.Data());
	expectWords({9 * 16});
	for (u32 i = 0; i < 9 * 16 * 4; ++i)
		expectWords({0});
	expectNoPlace();
	expectWords({0});
	expectNoPlace();
	expectWords({0});
	EXPECT_EQ(offset + 16, file.size());
	expectWords({u32(file.size()), 0});

	u64 checksum = 0xCBF29CE484222325u;
	for (u64 i = 0; i < offset; i += 4)
		checksum = (checksum ^ WordAt(file, i)) * 0x100000001B3u;
	expectWords({u32(checksum), u32(checksum >> 32)});
}

TEST(SortCapture, TriangleSections_AreAsDocumented)
{
	CCall call(Triangles);
	call.Output16();
	call.SetUp();
	const CReportRecorder reports;
	const CWarningRecorder warnings;
	call.Sort();
	const CFile file = CaptureOf(call, SortCapture_InputAndOutput);
	const auto place = [&call](const void *data)
	{
		const u64 origin = reinterpret_cast<ureg>(&call.m_Sorter) / 16 * 16;
		return reinterpret_cast<ureg>(data) - origin;
	};
	const u64 patterns = place(call.m_Patterns), vertexCounts = place(call.m_VertexCounts);
	const std::vector<u32> words = {0, 0, 0, 0, 0, 0, 0,   // no pattern, index list or quad centres
		u32(patterns), u32(patterns >> 32),                // the array of patterns
		4, 3, 0, 1, 2, 0, 6, 0, 1, 2, 0, 2, 3, 3, 2, 1, 0, // patterns
		u32(vertexCounts), u32(vertexCounts >> 32), 4, 3, 0, 4, 3};
	const u64 outputSize = call.m_OutputCount * sizeof(u16);
	u64 offset = file.size() - 16 - outputSize;
	EXPECT_EQ(std::memcmp(&file[offset], call.m_Output, outputSize), 0);
	offset -= words.size() * 4;
	for (u64 i = 0; i < words.size(); ++i)
		EXPECT_EQ(WordAt(file, offset + i * 4), words[i]) << i;
}

TEST(SortCapture, WhatASortDoesNotRead_IsNotWritten)
{
	// Two particles of a page of 1000 at a stride of 32, and a page that renders nothing whose view leads nowhere.
	std::vector<u8> bytes(32 * 2, 0xEE);
	const TStridedMemoryView<const CFloat3, -1> pages[] = {
		{reinterpret_cast<const CFloat3 *>(bytes.data()), 1000, 32},
        {BytesBeforeTheEnd<const CFloat3>(16),            1000, 12}
    };
	const TStridedMemoryView<const u8, -1> enableds[2];
	const u32 renderedCounts[] = {2, 0};
	u32 pattern[] = {0, 1, 2};
	u32 output[6];
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(output, 6), 6);
	sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(pages, 2, 16),
		CTriangleSorter::CEnabledPages(enableds, 2, 16), CTriangleSorter::CRenderedCounts(renderedCounts, 2, 4), 2,
		CFloat3());
	sorter.Setup_Geometry(TMemoryView<u32>(pattern, 3), 3);
	CFile file;
	ASSERT_TRUE(WriteSortCapture(sorter, null, 0, SortCapture_Input, Append, &file));
	EXPECT_LT(file.size(), 350u);
	const CFile inEveryRun = WithoutPlaces(file);
	EXPECT_EQ(std::count(inEveryRun.begin(), inEveryRun.end(), 0xEE), 2 * 12);
	CReadCapture capture(file, kMemoryLimit);
	ASSERT_STREQ(capture.Refusal(), "");
	const SReplay replay = Replay(capture);
	EXPECT_TRUE(replay.Good());
	EXPECT_FALSE(replay.m_Compared);
}

// A call that breaks rules is captured as it is, so a replay reads what its host would have read.
TEST(SortCapture, BrokenCalls_KeepTheirFindingsAndAreNotSorted)
{
	const SBrokenCall brokenCalls[] = {
		{"NoOutput",           Constant,  {}, [](CCall &call) { call.m_HasOutput = false; }     },
		{"NoInput",            Constant,  {}, [](CCall &call) { call.m_HasInput = false; }      },
		{"NoGeometry",         Constant,  {}, [](CCall &call) { call.m_HasGeometry = false; }   },
		{"ParticleCount",      Constant,  {}, [](CCall &call) { call.m_ParticleCount = 10; }    },
		{"EnabledBytes",       List,      {}, [](CCall &call) { call.m_EnabledBytes[0] = 0; }   },
		{"RenderedCount",      Quads,     {}, [](CCall &call) { call.m_Counts[0] = 5; }         },
		{"Pattern",            Constant,  {}, [](CCall &call) { call.m_Pattern = {4}; }         },
		{"ListCount",          List,      {},
         [](CCall &call) {
				call.m_IndexList = {call.m_Entries, 8};
			}                                                                                   },
		{"PagePattern",        Triangles, {},
         [](CCall &call) {
				SetPattern(call.m_Patterns[2], {0, 1});
			}                                                                                   },
		{"PageVertexCount",    Triangles, {}, [](CCall &call) { call.m_VertexCounts[0] = 0; }   },
		{"IndexCount",         Triangles, {}, [](CCall &call) { call.m_IndexCount = 33; }       },
		{"WorkingBufferSize",  Constant,  {}, [](CCall &call) { call.m_WorkingBufferSize -= 1; }},
		{"WorkingBufferStart", Triangles, {},
         [](CCall &call) { call.m_WorkingBuffer = BytesPast<void>(call.m_WorkingBuffer, 8); }   },
	};
	for (const SBrokenCall &broken : brokenCalls)
	{
		SCOPED_TRACE(broken.m_Name);
		CCall call(broken.m_Geometry);
		broken.m_Break(call);
		call.SetUp();
		SFindings findings;
		ASSERT_NE(call.Validate(&Collect, &findings), 0u);
		CReadCapture capture(CaptureOf(call), kMemoryLimit);
		ASSERT_STREQ(capture.Refusal(), "");
		SFindings replayed;
		ValidateSort(capture.Sorter(), capture.WorkingBuffer(), capture.WorkingBufferSize(), &Collect, &replayed);
		EXPECT_EQ(replayed.m_Sentences, findings.m_Sentences);
		const SReplay replay = Replay(capture);
		EXPECT_EQ(replay.m_Violations.size(), findings.m_ViolationCount);
		EXPECT_FALSE(replay.m_Sorted);
		EXPECT_FALSE(replay.Good());
	}
}

// Any two arrays of a call may overlap by mistake. Laid out apart, such a call would keep the rules, and sort to other
// bytes than at its host.
TEST(SortCapture, OverlapsWithOutputAndWorkingBuffer_AreNamedAsAtTheHost)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		for (const bool byPosition : {false, true})
		{
			u32 arrayCount = 0;
			{
				CCall call(geometry);
				ForEachArray(call, [&arrayCount](const char *, const void *) { ++arrayCount; });
			}
			// The output and the working buffer, each over every array, and over each other: before it, at it, inside
			// it.
			for (u32 array = 0; array <= arrayCount; ++array)
			{
				for (const s64 distance : {-16, 0, 4})
				{
					for (const bool isOutput : {true, false})
					{
						CCall call(geometry);
						if (byPosition)
							call.SortByPosition();
						const char *name = "working buffer";
						const void *start = call.m_WorkingBuffer;
						u32 left = array;
						ForEachArray(call,
							[&](const char *arrayName, const void *arrayStart)
							{
								if (left-- == 0)
								{
									name = arrayName;
									start = arrayStart;
								}
							});
						if (isOutput)
							call.m_Output = Past(start, distance);
						else if (array != arrayCount)
							call.m_WorkingBuffer = Past(start, distance);
						else
							continue;
						call.SetUp();
						SCOPED_TRACE(std::string(isOutput ? "the output" : "the working buffer") + " at " +
									 std::to_string(distance) + " of the " + name);
						SFindings findings;
						ASSERT_NE(call.Validate(&Collect, &findings), 0u);
						ASSERT_TRUE(std::any_of(findings.m_Sentences.begin(), findings.m_Sentences.end(),
							[](const std::string &sentence)
							{ return sentence.find(" overlaps ") != std::string::npos; }));

						CReadCapture capture(CaptureOf(call), kMemoryLimit);
						ASSERT_STREQ(capture.Refusal(), "");
						SFindings replayed;
						ValidateSort(capture.Sorter(), capture.WorkingBuffer(), capture.WorkingBufferSize(), &Collect,
							&replayed);
						ASSERT_EQ(replayed.m_Sentences, findings.m_Sentences);
						ASSERT_FALSE(Replay(capture).m_Sorted);
					}
				}
			}
		}
	}
}

// Behind the last index that a sort writes, the output may lie over what the sort reads: nothing there is changed.
TEST(SortCapture, OutputThatEndsOverTheInput_LeavesTheInput)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		for (const bool byPosition : {false, true})
		{
			const auto replayed = [&](u32 array, const char *&name)
			{
				CCall call(geometry);
				if (byPosition)
					call.SortByPosition();
				const u32 writtenSize = call.m_OutputCount * sizeof(u32);
				name = "end of the input";
				u32 left = array;
				ForEachArray(call,
					[&](const char *arrayName, const void *start)
					{
						if (left-- != 0)
							return;
						name = arrayName;
						call.m_Output = Past(start, -s64(writtenSize + reinterpret_cast<ureg>(start) % 16));
						call.m_OutputCount += 100;
					});
				call.SetUp();
				CReadCapture capture(CaptureOf(call), kMemoryLimit);
				EXPECT_STREQ(capture.Refusal(), "");
				return Replay(capture);
			};
			const char *name = "";
			const SReplay apart = replayed(~0u, name);
			ASSERT_TRUE(apart.m_Sorted);
			ASSERT_NE(apart.m_WrittenCount, 0u);
			for (u32 array = 0;; ++array)
			{
				const SReplay replay = replayed(array, name);
				if (std::strcmp(name, "end of the input") == 0)
					break;
				SCOPED_TRACE(name);
				ASSERT_EQ(replay.m_Violations, std::vector<std::string>());
				EXPECT_EQ(replay.m_WrittenCount, apart.m_WrittenCount);
				EXPECT_EQ(replay.m_OutputHash, apart.m_OutputHash);
			}
		}
	}
}

// What becomes of values that the sort itself writes over is the same in both places.
TEST(SortCapture, SortOverItsOwnInput_ReplaysToTheSameBytes)
{
	constexpr u32 kCount = 200;
	constexpr u64 kWorkingBufferSize = 2 * kCount * sizeof(SIndexAndDepth);
	struct SCase
	{
		const char *m_Name;
		u64 m_Output, m_WorkingBuffer, m_Values; // bytes from the start of one block
	};
	const SCase cases[] = {
		{"ValuesUnderTheOutput",        0,    6400, 400 },
		{"ValuesUnderTheRecords",       0,    4800, 6000},
		{"ValuesAcrossBoth",            4000, 6400, 6200},
		{"WorkingBufferUnderTheOutput", 0,    2000, 8000},
		{"EverythingOverEverything",    16,   0,    32  },
	};
	for (const SCase &shared : cases)
	{
		SCOPED_TRACE(shared.m_Name);
		CGuardedMemory memory(12800);
		std::memset(memory.Data(), 0, memory.Size());
		float *const values = reinterpret_cast<float *>(memory.Data() + shared.m_Values);
		for (u32 i = 0; i < kCount; ++i)
			values[i] = float(i * 37 % kCount);
		const TStridedMemoryView<const float, -1> page(values, kCount, 4);
		const TStridedMemoryView<const u8, -1> noEnableds;
		const u32 renderedCount = kCount;
		u32 pattern[] = {0, 1, 2, 0, 2, 3};
		CTriangleSorter sorter;
		u8 *const output = memory.Data() + shared.m_Output;
		u8 *const workingBuffer = memory.Data() + shared.m_WorkingBuffer;
		sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(reinterpret_cast<u32 *>(output), kCount * 6), kCount * 4);
		sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(&page, 1, 16),
			CTriangleSorter::CEnabledPages(&noEnableds, 1, 16), CTriangleSorter::CRenderedCounts(&renderedCount, 1, 4),
			kCount);
		sorter.Setup_Geometry(TMemoryView<u32>(pattern, 6), 4);
		CFile file;
		ASSERT_TRUE(WriteSortCapture(sorter, workingBuffer, kWorkingBufferSize, SortCapture_Input, Append, &file));
		CReadCapture capture(file, kMemoryLimit);
		ASSERT_STREQ(capture.Refusal(), "");

		// Twice: the first time, the output is written when all has been read.
		const CReportRecorder reports;
		for (u32 i = 0; i < 2; ++i)
		{
			sorter.SortPoints_AutogenIndices(workingBuffer);
			capture.Sort();
			EXPECT_EQ(std::memcmp(capture.Output(), output, kCount * 6 * sizeof(u32)), 0) << "sort " << i;
		}
	}
}

// Legal ways to share memory: particles and pages as structures, pages that share a view, arrays with one entry for
// all.
TEST(SortCapture, InterleavedAndSharedViews_KeepTheirDistances)
{
	struct SParticle
	{
		CFloat3 m_Position;
		float m_Value;
		u32 m_Rest[2];
	};
	struct SPage
	{
		TStridedMemoryView<const float, -1> m_Values;
		u32 m_RenderedCount;
		TStridedMemoryView<const u8, -1> m_Enableds;
	};
	struct SFrame
	{
		SPage m_Pages[4];
		SParticle m_Particles[12];
		u8 m_Enabled[4];
	} frame;
	std::memset(static_cast<void *>(&frame), 0, sizeof(frame));
	for (u32 i = 0; i < 12; ++i)
		frame.m_Particles[i].m_Value = float(i * 5 % 12);
	frame.m_Enabled[1] = frame.m_Enabled[3] = 1;
	const auto values = [&frame](u32 first, u32 count, u32 every)
	{
		return TStridedMemoryView<const float, -1>(
			&frame.m_Particles[first].m_Value, count, u32(sizeof(SParticle)) * every);
	};
	frame.m_Pages[0] = {values(0, 6, 2), 6, {}}; // every other particle
	frame.m_Pages[1] = {values(1, 6, 2), 6, {}}; // those between them
	frame.m_Pages[2] = {
		values(4, 4, 1), 2, {frame.m_Enabled, 4, 1}
    };
	frame.m_Pages[3] = {
		values(4, 4, 1), 2, {frame.m_Enabled, 4, 1}
    }; // the same again

	u32 pattern[] = {0, 1, 2};
	CGuardedMemory output(16 * 3 * sizeof(u32));
	CGuardedMemory workingBuffer(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(16));
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(output.As<u32>(), 16 * 3), 16 * 4);
	sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(&frame.m_Pages[0].m_Values, 4, sizeof(SPage)),
		CTriangleSorter::CEnabledPages(&frame.m_Pages[0].m_Enableds, 4, sizeof(SPage)),
		CTriangleSorter::CRenderedCounts(&frame.m_Pages[0].m_RenderedCount, 4, sizeof(SPage)), 16);
	sorter.Setup_Geometry(TMemoryView<u32>(pattern, 3), 4);
	const CReportRecorder reports;
	const CWarningRecorder warnings;
	sorter.SortPoints_AutogenIndices(workingBuffer.Data());
	CFile file;
	ASSERT_TRUE(WriteSortCapture(
		sorter, workingBuffer.Data(), workingBuffer.Size(), SortCapture_InputAndOutput, Append, &file));

	CReadCapture capture(file, kMemoryLimit);
	ASSERT_STREQ(capture.Refusal(), "");
	const SReplay replay = Replay(capture);
	EXPECT_EQ(replay.m_Violations, std::vector<std::string>());
	EXPECT_TRUE(replay.Good());
	EXPECT_EQ(replay.m_WrittenCount, 16u * 3);

	// Sections: sorter, output, working buffer; counts; views of enabled bytes and four pages, two of them empty; views
	// of values and four pages. Of these, what overlaps is as far apart as it was.
	CFile again;
	ASSERT_TRUE(WriteSortCapture(
		capture.Sorter(), capture.WorkingBuffer(), capture.WorkingBufferSize(), SortCapture_Input, Append, &again));
	const std::vector<u64> places = PlaceOffsets(file);
	ASSERT_EQ(places, PlaceOffsets(again));
	const auto distance = [&places](const CFile &from, u32 place, u32 other)
	{ return PlaceAt(from, places[place]) - PlaceAt(from, places[other]); };
	constexpr u32 kCounts = 3, kEnabledViews = 4, kEnableds2 = 7, kEnableds3 = 8, kValueViews = 9, kValues0 = 10;
	EXPECT_EQ(distance(again, kEnabledViews, kCounts), distance(file, kEnabledViews, kCounts));
	EXPECT_EQ(distance(again, kValueViews, kCounts), distance(file, kValueViews, kCounts));
	EXPECT_EQ(distance(again, kEnableds3, kEnableds2), 0u);
	for (u32 page = 1; page < 4; ++page)
		EXPECT_EQ(distance(again, kValues0 + page, kValues0), distance(file, kValues0 + page, kValues0)) << page;
}

// An array with a stride of 0 has one entry for all pages. It is one entry here too, even where the first page, which
// renders nothing, makes no use of it.
TEST(SortCapture, ArraysOfOneEntry_StayOne)
{
	CCall call(Constant);
	call.m_Values[0] = CValueView(call.m_Values[2].Data(), 5, 4);
	call.m_Counts[0] = 0;
	call.m_Counts[1] = call.m_Counts[2] = call.m_Counts[3] = 3;
	call.m_ValuePages = CTriangleSorter::CSortKeyPages(call.m_Values, 4, 0);
	call.m_EnabledPages = CTriangleSorter::CEnabledPages(call.m_Enableds + 2, 4, 0);
	call.SetUp();
	const CReportRecorder reports;
	call.Sort();
	CReadCapture capture(CaptureOf(call, SortCapture_InputAndOutput), kMemoryLimit);
	ASSERT_STREQ(capture.Refusal(), "");
	const SReplay replay = Replay(capture);
	EXPECT_EQ(replay.m_Violations, std::vector<std::string>());
	EXPECT_TRUE(replay.Good());
	CFile again;
	ASSERT_TRUE(WriteSortCapture(
		capture.Sorter(), capture.WorkingBuffer(), capture.WorkingBufferSize(), SortCapture_Input, Append, &again));
	EXPECT_EQ(WithoutPlaces(again), WithoutPlaces(CaptureOf(call)));
}

TEST(SortCapture, IndexListAddress_IsKeptModulo16)
{
	for (u32 remainder = 0; remainder < 16; ++remainder)
	{
		SCOPED_TRACE(remainder);
		CCall call(List);
		CGuardedMemory list(CCall::kParticleCount * sizeof(u32), remainder);
		std::memcpy(list.Data(), call.m_Entries, list.Size());
		call.m_IndexList = TMemoryView<const u32>(list.As<const u32>(), CCall::kParticleCount);
		call.SetUp();
		const CFile file = CaptureOf(call);
		CReadCapture capture(file, kMemoryLimit);
		ASSERT_STREQ(capture.Refusal(), "");
		CFile again;
		ASSERT_TRUE(WriteSortCapture(
			capture.Sorter(), capture.WorkingBuffer(), capture.WorkingBufferSize(), SortCapture_Input, Append, &again));
		const std::vector<u64> places = PlaceOffsets(again);
		const u64 ofList = places[places.size() - 4];
		EXPECT_EQ(PlaceAt(file, ofList) % 16, remainder);
		EXPECT_EQ(PlaceAt(again, ofList) % 16, remainder);
		EXPECT_TRUE(Replay(capture).m_Violations.empty());
	}
}

// Overlapping elements that differ are no memory's contents; a sorter or a pattern written over would not survive.
TEST(SortCapture, RegionsThatContradictEachOther_AreRefused)
{
	CCall call(Triangles);
	call.SetUp();
	const CFile good = CaptureOf(call);
	const std::vector<u64> places = PlaceOffsets(good);
	const u32 kSorter = 0, kCounts = 3, kEnabledViews = 4, kEnableds2 = 7, kValueViews = 9, kValues0 = 10,
			  kValues2 = 12;
	const u32 kPatterns = 16, kVertexCounts = 17;
	ASSERT_EQ(places.size(), 18u);
	const auto over = [&](u32 region, u32 other, u64 distance)
	{
		CFile file = good;
		const u64 place = PlaceAt(file, places[other]) + distance;
		std::memcpy(&file[places[region]], &place, sizeof(place));
		return Refusal(Mended(file));
	};
	const auto disagreement = [](const std::string &name) {
		return "The file is damaged: the " + name +
		       " and what overlaps them do not agree on the bytes that they share.";
	};
	EXPECT_EQ(over(kValues2, kValues0, 0), "");
	EXPECT_EQ(over(kValues2, kValues0, 1), disagreement("sort values of page 0"));
	EXPECT_EQ(over(kCounts, kValues0, 0), disagreement("rendered counts"));
	EXPECT_EQ(over(kEnableds2, kCounts, 0), disagreement("rendered counts"));
	EXPECT_EQ(over(kEnabledViews, kValueViews, 0), disagreement("views of enabled bytes"));
	EXPECT_EQ(over(kVertexCounts, kCounts, 4), disagreement("rendered counts"));
	EXPECT_EQ(over(kValues0, kSorter, 0), disagreement("sort values of page 0"));
	EXPECT_EQ(over(kValues0, kPatterns, 0), disagreement("sort values of page 0"));
	EXPECT_EQ(over(kPatterns, kSorter, 16), "The file is damaged: the index patterns overlap the sorter.");
	EXPECT_EQ(over(kPatterns, kSorter, 0 - u64(16)), "The file is damaged: the index patterns overlap the sorter.");
	EXPECT_EQ(over(kVertexCounts, kCounts, u64(1) << 63), "");

	CFile file = good;
	const u64 lastPlace = (u64(1) << 63) - 8;
	std::memcpy(&file[places[kCounts]], &lastPlace, sizeof(lastPlace));
	EXPECT_EQ(Refusal(Mended(file)), "The file is damaged: the rendered counts pass the end of all addresses.");
}

// At a host whose addresses have another size, views take 12 bytes, say. Here they take what they take.
TEST(SortCapture, HostWithAddressesOfAnotherSize_IsReplayedWithViewsApart)
{
	CCall call(Constant);
	call.SetUp();
	const CReportRecorder reports;
	call.Sort();
	CFile file = CaptureOf(call, SortCapture_InputAndOutput);
	constexpr u64 kAddressSize = 16, kEnabledViews = kRenderedCounts + 16 + 16;
	ASSERT_EQ(WordAt(file, kAddressSize), sizeof(void *));
	ASSERT_EQ(WordAt(file, kEnabledViews + 4), sizeof(CEnabledView));
	SetWord(file, kAddressSize, 12 - sizeof(void *));
	SetWord(file, kEnabledViews + 4, 28 - sizeof(CEnabledView));
	CReadCapture capture(Mended(file), kMemoryLimit);
	ASSERT_STREQ(capture.Refusal(), "");
	EXPECT_TRUE(Replay(capture).Good());
}

// Captures that were written before places were: three particles on two pages, their list and their output.
TEST(SortCapture, Version1_IsReadWithItsRegionsApart)
{
	const u32 words[] = {0x4F535856, 0x0A0D5452, 1, 1, // first bytes, version, with output
		2, 9, 0, 16,                                   // output
		2, 3, 0, 0, 0,                                 // input
		2, 0, 0,                                       // geometry
		1, 0, 64, 0,                                   // working buffer
		2, 2, 1,                                       // rendered counts
		2, 0, 0, 0, 0, 2, 1, 4, 2, 1,                  // enabled bytes
		2, 2, 4, 12, 2, 0x40400000, 0x3F800000,        // values 3 and 1
		2, 4, 8, 2, 0x40000000, 0,                     // values 2 and 0
		3, 0, 1, 2, 4, 3, 0, 8, 4, 0, 0, 0, 0,         // pattern, list, no quad centres or patterns
		8, 9, 10, 4, 5, 6, 0, 1, 2, 0x120, 0, 0, 0};
	CFile file(sizeof(words));
	std::memcpy(file.data(), words, sizeof(words));
	CReadCapture capture(Mended(file), kMemoryLimit);
	ASSERT_STREQ(capture.Refusal(), "");
	const CWarningRecorder warnings;
	const SReplay replay = Replay(capture);
	EXPECT_EQ(replay.m_Violations, std::vector<std::string>());
	EXPECT_TRUE(replay.Good());
	EXPECT_TRUE(replay.m_Compared);
	EXPECT_EQ(replay.m_WrittenCount, 9u);

	CFile again;
	ASSERT_TRUE(WriteSortCapture(
		capture.Sorter(), capture.WorkingBuffer(), capture.WorkingBufferSize(), SortCapture_Input, Append, &again));
	std::vector<u64> remainders;
	for (const u64 offset : PlaceOffsets(again))
		remainders.push_back(PlaceAt(again, offset) % 16);
	const std::vector<u64> ofPages(remainders.begin() + 5, remainders.end() - 4);
	EXPECT_EQ(ofPages, (std::vector<u64>{0, 4, 0, 12, 8})); // enabled bytes, the views of values, values
	EXPECT_EQ(remainders[remainders.size() - 4], 4u);       // index list
}

TEST(SortCapture, ViewsThatCannotBeRead_AreRefusedBeforeAnythingIsWritten)
{
	const SBrokenCall brokenCalls[] = {
		{"NullCounts",   Constant,  {},
         [](CCall &call) {
				call.m_RenderedCounts = {null, 4, 4};
			}                                                                    },
		{"CountsStride", Constant,  {},
         [](CCall &call) {
				call.m_RenderedCounts = {call.m_Counts, 2, 6};
			}                                                                    },
		{"NullValues",   Constant,  {},
         [](CCall &call) {
				call.m_Values[0] = {null, 4, 4};
			}                                                                    },
		{"ValueStride",  Constant,  {},
         [](CCall &call) {
				call.m_Values[3] = {call.m_Values[3].Data(), 2, 3};
			}                                                                    },
		{"ValueSize",    List,      {},
         [](CCall &call) {
				call.m_Values[3] = {call.m_Values[3].Data(), 2, 0x80000000u};
			}                                                                    },
		{"NullPages",    Quads,     {},
         [](CCall &call) {
				call.m_ValuePages = {null, 4, 16};
			}                                                                    },
		{"NullEnableds", Triangles, {},
         [](CCall &call) {
				call.m_Enableds[2] = {null, 5, 1};
			}                                                                    },
		{"NullList",     List,      {},
         [](CCall &call) {
				call.m_IndexList = {null, 9};
			}                                                                    },
		{"NullCenters",  Quads,     {},
         [](CCall &call) {
				call.m_QuadCenters = {null, 144};
			}                                                                    },
		{"NullPatterns", Triangles, {},
         [](CCall &call) {
				call.m_PatternPages = {null, 4};
			}                                                                    },
		{"NullVertices", Triangles, {},
         [](CCall &call) {
				call.m_VertexCountPages = {null, 4};
			}                                                                    },
		{"NullOutput",   Constant,  {}, [](CCall &call) { call.m_Output = null; }},
	};
	for (const SBrokenCall &broken : brokenCalls)
	{
		SCOPED_TRACE(broken.m_Name);
		CCall call(broken.m_Geometry);
		{
			const CReportRecorder viewsOfWrongStrides;
			broken.m_Break(call);
			call.SetUp();
		}
		EXPECT_NE(call.Validate(null, null), 0u);
		const auto fail = [](const void *, u64, void *)
		{
			ADD_FAILURE() << "something is written";
			return true;
		};
		const CExpectReports noReports;
		EXPECT_FALSE(WriteSortCapture(
			call.m_Sorter, call.m_WorkingBuffer, call.m_WorkingBufferSize, SortCapture_Input, fail, null));
	}
}

TEST(SortCapture, StridesOfNoPages_AreNotWritten)
{
	CTriangleSorter sorter;
	CFile files[2];
	for (const u32 i : {0u, 1u})
	{
		const u32 stride = 16 * (i + 1);
		sorter.Setup_InputPageCache({null, 0, stride}, {null, 0, stride}, {null, 0, stride}, 0);
		EXPECT_TRUE(WriteSortCapture(sorter, null, 0, SortCapture_Input, Append, &files[i]));
	}
	EXPECT_TRUE(files[0] == files[1]);
}

TEST(SortCapture, SorterInsideALine_LiesInsideIt)
{
	alignas(16) u8 memory[8 + sizeof(CTriangleSorter)];
	CTriangleSorter *const sorter = new (memory + 8) CTriangleSorter;
	CFile file;
	EXPECT_TRUE(WriteSortCapture(*sorter, null, 0, SortCapture_Input, Append, &file));
	sorter->~CTriangleSorter();
	EXPECT_EQ(PlaceAt(file, 20), 8u);
}

// The list is long enough to be handed over from where it lies. How much waits before it is up to the pattern, and may
// be nothing.
TEST(SortCapture, LongPieceAfterAnyNumberOfWords_LeavesNoEmptyPiece)
{
	CCall call(List);
	const std::vector<u32> entries(2'000, 0);
	call.m_IndexList = TMemoryView<const u32>(entries.data(), u32(entries.size()));
	for (u32 width = 0; width < 1'024; ++width)
	{
		call.m_Pattern.assign(width, 0);
		call.SetUp();
		EXPECT_GT(CaptureOf(call).size(), 4 * entries.size()); // Append expects a byte in every piece
	}
}

TEST(SortCapture, FailedWrite_IsTheLast)
{
	CCall call(Quads);
	call.SetUp();
	for (u32 failAt = 1; failAt <= 2; ++failAt)
	{
		std::pair<u32, u32> writes = {0, failAt};
		const auto fail = [](const void *, u64, void *userData)
		{
			auto &[count, last] = *static_cast<std::pair<u32, u32> *>(userData);
			return ++count != last;
		};
		EXPECT_FALSE(WriteSortCapture(
			call.m_Sorter, call.m_WorkingBuffer, call.m_WorkingBufferSize, SortCapture_Input, fail, &writes));
		EXPECT_EQ(writes.first, failAt);
	}
}

TEST(SortCapture, Sort_ReportsAndAllocatesNothingWhileItIsCaptured)
{
	CCall call(Quads);
	call.SetUp();
	CFile file;
	file.reserve(1 << 16);
	const CExpectReports noReports;
	const CWarningRecorder warnings;
	const CAllocationRecorder allocations;
	EXPECT_TRUE(WriteSortCapture(
		call.m_Sorter, call.m_WorkingBuffer, call.m_WorkingBufferSize, SortCapture_InputAndOutput, Append, &file));
	EXPECT_TRUE(warnings.Entries().empty());
	EXPECT_TRUE(allocations.Allocations().empty());
	EXPECT_TRUE(call.SurroundingsIntact());
}

// Where an output was recorded that the sort does not give.
TEST(SortCapture, ChangedOutput_IsFoundAtItsFirstIndex)
{
	CCall call(Constant);
	call.SetUp();
	const CReportRecorder reports;
	call.Sort();
	CFile file = CaptureOf(call, SortCapture_InputAndOutput);
	const u64 output = file.size() - 16 - call.m_OutputCount * 4;
	const u32 recorded = WordAt(file, output + 7 * 4);
	SetWord(file, output + 7 * 4, recorded + 100);
	SetWord(file, output + 20 * 4, 0xFFFFFFFF);
	CReadCapture capture(Mended(file), kMemoryLimit);
	ASSERT_STREQ(capture.Refusal(), "");
	const SReplay replay = Replay(capture);
	EXPECT_EQ(replay.m_DifferenceCount, 2u);
	EXPECT_EQ(replay.m_FirstDifference, 7u);
	EXPECT_EQ(replay.m_ReplayedIndex, recorded);
	EXPECT_EQ(replay.m_RecordedIndex, recorded + 100);
	EXPECT_FALSE(replay.Good());
}

TEST(SortCapture, FileCutAtAnyLength_IsRefused)
{
	for (const ECallGeometry geometry : {List, Triangles})
	{
		CCall call(geometry);
		call.SetUp();
		const CFile file = CaptureOf(call, SortCapture_InputAndOutput);
		ASSERT_EQ(Refusal(file), "");
		for (u64 length = 0; length < file.size(); ++length)
		{
			CFile cut(file.begin(), file.begin() + s64(length));
			const std::string refusal = Refusal(cut);
			ASSERT_NE(refusal, "") << length;
			ASSERT_NE(refusal.find("byte"), std::string::npos) << refusal;
			if (length != 0) // what is refused first may end anywhere
			{
				cut.back() = u8(~cut.back());
				ASSERT_NE(Refusal(cut), "") << length;
			}
		}
		CFile longer = file;
		longer.resize(file.size() + 4);
		EXPECT_NE(Refusal(longer), "");
	}
}

// With the checksum as it was, every changed bit is found out. With one that fits, whatever the file says is read or
// refused, and what is read is checked before it is sorted.
TEST(SortCapture, FileWithAnyBitFlipped_IsRefused)
{
	const CReportRecorder reports;
	const CWarningRecorder warnings;
	for (const ECallGeometry geometry : {List, Triangles})
	{
		CCall call(geometry);
		call.SetUp();
		const CFile file = CaptureOf(call, SortCapture_InputAndOutput);
		for (u64 bit = 0; bit < file.size() * 8; ++bit)
		{
			CFile flipped = file;
			flipped[bit / 8] = u8(flipped[bit / 8] ^ 1 << bit % 8);
			ASSERT_NE(Refusal(flipped), "") << bit;
			CReadCapture capture(Mended(flipped), u64(1) << 20);
			if (capture.IsRead())
				Replay(capture);
		}
	}
}

// One object reads one file after another, and has of each what it would have of the only one.
TEST(SortCapture, ReadAgain_ForgetsWhatWasRead)
{
	CCall call(List);
	call.SetUp();
	const CFile good = CaptureOf(call);
	CCapturedSort capture;
	EXPECT_FALSE(capture.Read(good.data(), good.size() - 4, kMemoryLimit));
	EXPECT_STRNE(capture.Refusal(), "");
	EXPECT_TRUE(capture.Read(good.data(), good.size(), kMemoryLimit));
	EXPECT_STREQ(capture.Refusal(), "");
	EXPECT_EQ(capture.ParticleCount(), CCall::kParticleCount);
	EXPECT_TRUE(capture.Read(good.data(), good.size(), kMemoryLimit));
	EXPECT_FALSE(capture.Read(null, 0, kMemoryLimit));
	EXPECT_STREQ(capture.Refusal(),
		"The file is damaged or cut short: the first bytes take 8 bytes from byte 0 on, but it has 0.");
}

TEST(SortCapture, MemoryLimit_IsThatOfAllRegions)
{
	CCall call(List);
	call.SetUp();
	const CFile file = CaptureOf(call);
	u64 tooLittle = 0, enough = kMemoryLimit;
	while (enough - tooLittle > 1)
	{
		const u64 limit = tooLittle + (enough - tooLittle) / 2;
		(Refusal(file, limit).empty() ? enough : tooLittle) = limit;
	}
	EXPECT_GT(enough, call.m_OutputCount * sizeof(u32) + call.m_WorkingBufferSize);
	EXPECT_NE(Refusal(file, tooLittle).find("too much memory"), std::string::npos);
}

TEST(SortCapture, Refusals_SayWhatAndWhere)
{
	CCall call(List);
	call.SetUp();
	const CFile good = CaptureOf(call);
	const auto with = [&good](u64 offset, u32 word)
	{
		CFile file = good;
		SetWord(file, offset, word);
		return Mended(file);
	};
	const std::string size = std::to_string(good.size());
	const u64 enabledBytes = kRenderedCounts + 16 + 4 * 4 + 16 + 2 * 20; // of page 2

	EXPECT_EQ(
		Refusal({}), "The file is damaged or cut short: the first bytes take 8 bytes from byte 0 on, but it has 0.");
	EXPECT_EQ(Refusal(with(0, 0)), "The file is no capture of a sort: it does not begin with VXSORT and a line's end.");
	EXPECT_EQ(Refusal(with(8, 3)), "The file is a capture of version 3, but only versions 1 to 2 can be read.");
	EXPECT_EQ(Refusal(with(16, 5)), "The file is damaged: addresses have 4 or 8 bytes, not 5.");
	EXPECT_EQ(Refusal(with(16, 16)),
		"The file is damaged: at byte 16, in the numbers of the host, stands 16, but at most 8 makes sense.");
	EXPECT_EQ(Refusal(with(20, 4)), "The file is damaged: the bytes of the sorter have a stride of " +
										std::to_string(sizeof(CTriangleSorter)) + " and start at 4 modulo 8.");
	EXPECT_EQ(Refusal(with(28, 3)),
		"The file is damaged: at byte 28, in the numbers of the output, stands 3, but at most 2 makes sense.");
	EXPECT_EQ(Refusal(with(kRenderedCounts, 100000)),
		"The file is damaged or cut short: the rendered counts take 400000 bytes from byte 116 on, but it has " + size +
			".");
	EXPECT_EQ(Refusal(with(kRenderedCounts + 4, 3)),
		"The file is damaged: the rendered counts have a stride of 3 and a count of 4.");
	EXPECT_EQ(Refusal(with(kRenderedCounts + 4, 6)),
		"The file is damaged: the rendered counts have a stride of 6 and start at 0 modulo 4.");
	EXPECT_EQ(Refusal(with(kRenderedCounts + 4, 0)),
		"The file is damaged: the rendered counts and what overlaps them do "
		"not agree on the bytes that they share.");
	EXPECT_EQ(Refusal(with(enabledBytes + 16, 6)),
		"The file is damaged: at byte " + std::to_string(enabledBytes + 16) +
			", in the enabled bytes of page 2, stands 6, but at most 5 makes sense.");
	EXPECT_EQ(Refusal(with(enabledBytes + 24, 0x107)), "The file is damaged: byte " +
														   std::to_string(enabledBytes + 25) +
														   ", after the enabled bytes of page 2, is not 0.");
	const std::string tooLarge = Refusal(with(32, 0x40000000));
	EXPECT_EQ(tooLarge.find("The capture takes too much memory: "), 0u) << tooLarge;
	EXPECT_NE(tooLarge.find(" bytes for the indices of the output"), std::string::npos) << tooLarge;

	CFile wrongSize = good;
	SetWord(wrongSize, good.size() - 16, 4);
	EXPECT_EQ(Refusal(wrongSize), "The file is damaged or cut short: byte " + std::to_string(good.size() - 16) +
									  " says that it has 4 bytes, but it has " + size + ".");
	CFile wrongChecksum = good;
	wrongChecksum[56] ^= 1; // the camera
	EXPECT_EQ(Refusal(wrongChecksum)
				  .find("The file is damaged: the checksum at byte " + std::to_string(good.size() - 8) + " is "),
		0u);
}

// A disk that is full takes bytes into the standard library's buffer all the same.
TEST(SortCapture, FullDisk_IsNoticed)
{
	CCall call(Constant);
	call.SetUp();
	std::FILE *const file = std::fopen("/dev/full", "wb");
	ASSERT_NE(file, nullptr);
	EXPECT_LT(CaptureOf(call).size(), size_t(BUFSIZ));
	EXPECT_FALSE(WriteSortCapture(
		call.m_Sorter, call.m_WorkingBuffer, call.m_WorkingBufferSize, SortCapture_Input, WriteToFile, file));
	std::fclose(file);
}

TEST(SortCapture, File_HoldsTheCapture)
{
	CCall call(Constant);
	call.SetUp();
	std::FILE *const file = std::tmpfile();
	ASSERT_NE(file, nullptr);
	EXPECT_TRUE(WriteSortCapture(
		call.m_Sorter, call.m_WorkingBuffer, call.m_WorkingBufferSize, SortCapture_Input, WriteToFile, file));
	const CFile expected = CaptureOf(call);
	CFile read(expected.size() + 1);
	std::rewind(file);
	read.resize(std::fread(read.data(), 1, read.size(), file));
	std::fclose(file);
	EXPECT_EQ(read, expected);
}
