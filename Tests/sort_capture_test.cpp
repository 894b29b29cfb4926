// Captures: a sort that is written, read and sorted again gives the same bytes, whatever it sorts; the file is what its
// page in Docs says; and a file that is not whole is refused.

#include "ge_mesh_sort_capture.h"

#include "captured_sort.h"
#include "diagnostics.h"
#include "failure.h"
#include "random_scene.h"
#include "scene_memory.h"
#include "sort_call.h"
#include "sort_replay.h"
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

// The sentence with which a file is refused, or "" where it is read.
std::string Refusal(const CFile &file, u64 memoryLimit = kMemoryLimit)
{
	try
	{
		Viewer::CCapturedSort capture(file, memoryLimit);
	}
	catch (const Viewer::CFailure &failure)
	{
		return failure.what();
	}
	return "";
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

	Viewer::CCapturedSort capture(file, kMemoryLimit);
	EXPECT_EQ(capture.OutputCount(), scene.m_IndexCapacity);
	EXPECT_EQ(reinterpret_cast<ureg>(capture.Output()) % 16, scene.m_OutputAddressMod16);
	const Viewer::SReplay replay = Viewer::Replay(capture);
	EXPECT_EQ(replay.m_Violations, std::vector<std::string>());
	EXPECT_TRUE(replay.m_Compared);
	EXPECT_EQ(replay.m_DifferenceCount, 0u) << "output " << replay.m_FirstDifference << ": " << replay.m_ReplayedIndex
											<< ", not " << replay.m_RecordedIndex;

	const Model::SSortResult result =
		scene.m_Geometry == Model::EGeometry::PerPage ? Model::TriangleSort(scene) : Model::PointSort(scene);
	const auto isWritten = [](const std::optional<u32> &index) { return index.has_value(); };
	EXPECT_EQ(replay.m_WrittenCount, std::count_if(result.m_Output.begin(), result.m_Output.end(), isWritten));

	// What is captured of the replayed sort is the same file.
	CFile again;
	EXPECT_TRUE(WriteSortCapture(
		capture.Sorter(), capture.WorkingBuffer(), capture.WorkingBufferSize(), SortCapture_Input, Append, &again));
	EXPECT_TRUE(again == CaptureOf(memory, scene, SortCapture_Input)) << "the replayed sort gives another capture";
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
				Viewer::CCapturedSort capture(CaptureOf(call, SortCapture_InputAndOutput), kMemoryLimit);
				EXPECT_EQ(
					capture.SortType(), byPosition ? CTriangleSorter::SortByPosition : CTriangleSorter::SortByFloat);
				EXPECT_EQ(capture.IndexSize(), with16Bits ? 2u : 4u);
				EXPECT_EQ(capture.ParticleCount(), CCall::kParticleCount);
				EXPECT_EQ(capture.PageCount(), CCall::kPageCount);
				EXPECT_EQ(capture.EmptyPageCount(), 1u);
				EXPECT_EQ(capture.PageCountWithEnableds(), 1u);
				const Viewer::SReplay replay = Viewer::Replay(capture);
				EXPECT_TRUE(replay.Good());
				EXPECT_TRUE(replay.m_Compared);
				EXPECT_EQ(replay.m_WrittenCount, call.m_OutputCount);
			}
		}
	}
}

// Byte by byte what the page in Docs says, for a call with something in every section that a sort of points has.
TEST(SortCapture, File_IsAsDocumented)
{
	CCall call(Quads);
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
	expectWords({1, 0});
	expectWords({2, call.m_OutputCount, u32(reinterpret_cast<ureg>(call.m_Output) % 16), call.m_VertexCount});
	expectWords({2, 9, 0, 0, 0});
	expectWords({3, 4, 0});
	expectWords({1, 0, u32(call.m_WorkingBufferSize), 0});
	EXPECT_EQ(offset, 80u);
	expectWords({4, 4, 0, 3, 2});

	const auto address = [](const void *data) { return u32(reinterpret_cast<ureg>(data) % 16); };
	expectWords({4});
	expectWords({0, 0, 0, 0});
	expectWords({0, 0, 0, 0});
	expectWords({5, 1, address(call.m_EnabledBytes), 5, 0x00FF0001, 7});
	expectWords({0, 0, 0, 0});

	expectWords({4});
	expectWords({4, 4, address(call.m_Values[0].Data()), 4, one, one, one, one});
	expectWords({0, 0, 0, 0});
	expectWords({5, 4, address(call.m_Values[2].Data()), 5, one, one, one, one, one});
	expectWords({2, 4, address(call.m_Values[3].Data()), 2, one, one});

	expectWords({12, 0, 1, 2, 0, 2, 3, 3, 2, 1, 3, 1, 0});
	expectWords({address(call.m_Entries), 9, 0, 4, 8, 12, 16, 20, 24, 28, 32});
	expectWords({address(call.m_QuadCenters.Data()), 9 * 16});
	for (u32 i = 0; i < 9 * 16 * 4; ++i)
		expectWords({0});
	expectWords({0, 0});
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
	const std::vector<u32> words = {0, 0, 0, 0, 0,         // no pattern, index list or quad centres
		4, 3, 0, 1, 2, 0, 6, 0, 1, 2, 0, 2, 3, 3, 2, 1, 0, // patterns
		4, 3, 0, 4, 3};                                    // vertex counts
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
	EXPECT_LT(file.size(), 300u);
	EXPECT_EQ(std::count(file.begin(), file.end(), 0xEE), 2 * 12);
	Viewer::CCapturedSort capture(file, kMemoryLimit);
	const Viewer::SReplay replay = Viewer::Replay(capture);
	EXPECT_TRUE(replay.Good());
	EXPECT_FALSE(replay.m_Compared);
}

// A call that breaks rules is captured as it is: who replays it reads what its host would have read.
TEST(SortCapture, BrokenCalls_KeepTheirFindingsAndAreNotSorted)
{
	const SBrokenCall brokenCalls[] = {
		{"NoOutput",           Constant,  {}, [](CCall &call) { call.m_HasOutput = false; }     },
		{"NoInput",            Constant,  {}, [](CCall &call) { call.m_HasInput = false; }      },
		{"NoGeometry",         Constant,  {}, [](CCall &call) { call.m_HasGeometry = false; }   },
		{"ParticleCount",      Constant,  {}, [](CCall &call) { call.m_ParticleCount = 10; }    },
		{"EnabledBytes",       List,      {}, [](CCall &call) { call.m_EnabledBytes[0] = 0; }   },
		{"RenderedCount",      Quads,     {}, [](CCall &call) { call.m_Counts[0] = 5; }         },
		{"Pattern",            Constant,  {}, [](CCall &call) { call.m_Pattern[2] = 4; }        },
		{"ListCount",          List,      {},
         [](CCall &call) {
				call.m_IndexList = {call.m_Entries, 8};
			}																				   },
		{"PagePattern",        Triangles, {},
         [](CCall &call) {
				SetPattern(call.m_Patterns[2], {0, 1});
			}																				   },
		{"PageVertexCount",    Triangles, {}, [](CCall &call) { call.m_VertexCounts[0] = 2; }   },
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
		Viewer::CCapturedSort capture(CaptureOf(call), kMemoryLimit);
		SFindings replayed;
		ValidateSort(capture.Sorter(), capture.WorkingBuffer(), capture.WorkingBufferSize(), &Collect, &replayed);
		EXPECT_EQ(replayed.m_Sentences, findings.m_Sentences);
		const Viewer::SReplay replay = Viewer::Replay(capture);
		EXPECT_EQ(replay.m_Violations.size(), findings.m_ViolationCount);
		EXPECT_FALSE(replay.m_Sorted);
		EXPECT_FALSE(replay.Good());
	}
}

TEST(SortCapture, ViewsThatCannotBeRead_AreRefusedBeforeAnythingIsWritten)
{
	const SBrokenCall brokenCalls[] = {
		{"NullCounts",   Constant,  {},
         [](CCall &call) {
				call.m_RenderedCounts = {null, 4, 4};
			}																	},
		{"CountsStride", Constant,  {},
         [](CCall &call) {
				call.m_RenderedCounts = {call.m_Counts, 2, 6};
			}																	},
		{"NullValues",   Constant,  {},
         [](CCall &call) {
				call.m_Values[0] = {null, 4, 4};
			}																	},
		{"ValueStride",  Constant,  {},
         [](CCall &call) {
				call.m_Values[3] = {call.m_Values[3].Data(), 2, 3};
			}																	},
		{"ValueSize",    List,      {},
         [](CCall &call) {
				call.m_Values[3] = {call.m_Values[3].Data(), 0x10000, 0x10000};
			}																	},
		{"NullPages",    Quads,     {},
         [](CCall &call) {
				call.m_ValuePages = {null, 4, 16};
			}																	},
		{"NullEnableds", Triangles, {},
         [](CCall &call) {
				call.m_Enableds[2] = {null, 5, 1};
			}																	},
		{"NullList",     List,      {},
         [](CCall &call) {
				call.m_IndexList = {null, 9};
			}																	},
		{"NullCenters",  Quads,     {},
         [](CCall &call) {
				call.m_QuadCenters = {null, 144};
			}																	},
		{"NullPatterns", Triangles, {},
         [](CCall &call) {
				call.m_PatternPages = {null, 4};
			}																	},
		{"NullVertices", Triangles, {},
         [](CCall &call) {
				call.m_VertexCountPages = {null, 4};
			}																	},
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
	Viewer::CCapturedSort capture(Mended(file), kMemoryLimit);
	const Viewer::SReplay replay = Viewer::Replay(capture);
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
			const std::string refusal = Refusal(CFile(file.begin(), file.begin() + s64(length)));
			ASSERT_NE(refusal, "") << length;
			ASSERT_NE(refusal.find("byte"), std::string::npos) << refusal;
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
			try
			{
				Viewer::CCapturedSort capture(Mended(flipped), u64(1) << 20);
				Viewer::Replay(capture);
			}
			catch (const Viewer::CFailure &)
			{
			}
		}
	}
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
	const u64 enabledBytes = 80 + 5 * 4 + 4 + 2 * 16; // of page 2

	EXPECT_EQ(
		Refusal({}), "The file is damaged or cut short: the first bytes take 8 bytes from byte 0 on, but it has 0.");
	EXPECT_EQ(Refusal(with(0, 0)), "The file is no capture of a sort: it does not begin with VXSORT and a line's end.");
	EXPECT_EQ(Refusal(with(8, 2)), "The file is a capture of version 2, but only version 1 can be read.");
	EXPECT_EQ(Refusal(with(16, 3)),
		"The file is damaged: at byte 16, in the numbers of the output, stands 3, but at most 2 makes sense.");
	EXPECT_EQ(Refusal(with(80, 100000)),
		"The file is damaged or cut short: the rendered counts take 400000 bytes from byte 84 on, but it has " + size +
			".");
	EXPECT_EQ(Refusal(with(enabledBytes + 8, 16)), "The file is damaged: at byte " + std::to_string(enabledBytes + 8) +
													   ", in the enabled bytes of page 2, stands 16, but at most 15 "
													   "makes sense.");
	EXPECT_EQ(Refusal(with(enabledBytes + 12, 6)), "The file is damaged: at byte " + std::to_string(enabledBytes + 12) +
													   ", in the enabled bytes of page 2, stands 6, but at most 5 "
													   "makes sense.");
	EXPECT_EQ(Refusal(with(enabledBytes + 20, 0x107)), "The file is damaged: byte " +
														   std::to_string(enabledBytes + 21) +
														   ", after the enabled bytes of page 2, is not 0.");
	EXPECT_EQ(Refusal(with(20, 0x40000000))
				  .find("The capture takes too much memory: 4294967296 bytes for the indices of "
						"the output, where "),
		0u);

	CFile wrongSize = good;
	SetWord(wrongSize, good.size() - 16, 4);
	EXPECT_EQ(Refusal(wrongSize), "The file is damaged or cut short: byte " + std::to_string(good.size() - 16) +
									  " says that it has 4 bytes, but it has " + size + ".");
	CFile wrongChecksum = good;
	wrongChecksum[40] ^= 1; // the camera
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
