// The interface for C: versions of its structures, what a 0 stands for, every error, the checks, and the hooks. What it
// writes is compared with the model in sort_differential_test.cpp, and a program in C uses it in CInterface/.

#include "vx_assert.h"
#include "vx_defs.h"

#include "kr_mem.h"

#include "damaged_call.h"
#include "diagnostics.h"
#include "guarded_memory.h"
#include "heap.h"
#include "random_scene.h"
#include "sort_call.h"
#include "vexmoor.h"
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

using namespace Vexmoor;
using namespace Support;

namespace
{
constexpr u32 kUntouched = 0xCDCDCDCDu;

// Three particles of one page: particle 1 is the farthest, then 0, then 2.
struct SThree
{
	float m_Positions[9] = {0, 0, 5, 0, 0, 9, 0, 0, 1};
	float m_Values[3] = {-25, -81, -1};
	u8 m_Enabled[3] = {1, 1, 1};
	vexmoor_view m_PositionPage = {m_Positions, 3, 12};
	vexmoor_view m_ValuePage = {m_Values, 3, 4};
	vexmoor_view m_EnabledPage = {m_Enabled, 3, 1};
	u32 m_RenderedCount = 3;
	u32 m_Quad[6] = {0, 1, 2, 0, 2, 3};
	u32 m_Entries[3] = {0, 4, 8};
	float m_QuadCenters[3 * 16 * 4] = {};
	vexmoor_pattern m_PagePattern = {m_Quad, 6, 0};
	u32 m_PageVertexCount = 4;
	alignas(16) u8 m_Scratch[1024];
	alignas(16) u32 m_Output[18];

	SThree() { std::fill(std::begin(m_Output), std::end(m_Output), kUntouched); }

	// The least that sorts: their numbers come out.
	vexmoor_call Numbers()
	{
		vexmoor_call call = {};
		call.struct_size = sizeof(call);
		call.indices = m_Output;
		call.index_capacity = 18;
		call.positions = &m_PositionPage;
		call.page_count = 1;
		return call;
	}
	vexmoor_call Quads()
	{
		vexmoor_call call = Numbers();
		call.pattern = m_Quad;
		call.pattern_count = 6;
		return call;
	}
	vexmoor_call Triangles()
	{
		vexmoor_call call = Numbers();
		call.page_patterns = &m_PagePattern;
		call.page_vertex_counts = &m_PageVertexCount;
		return call;
	}

	std::vector<u32> Written() const
	{
		return {m_Output, std::find(std::begin(m_Output), std::end(m_Output), kUntouched)};
	}
	bool IsUntouched() const { return Written().empty() && m_Output[17] == kUntouched; }
};

const std::vector<u32> kNumbers = {1, 0, 2};
const std::vector<u32> kQuads = {4, 5, 6, 4, 6, 7, 0, 1, 2, 0, 2, 3, 8, 9, 10, 8, 10, 11};

// What a check has told, advice marked as such.
typedef std::vector<std::string> CSentences;
void VEXMOOR_CALL CollectSentence(void *sentences, vexmoor_finding_kind kind, const char *sentence)
{
	static_cast<CSentences *>(sentences)->push_back((kind == VEXMOOR_ADVICE ? "Advice: " : "") + std::string(sentence));
}

bool HasWords(const CSentences &sentences, const char *words)
{
	return std::any_of(sentences.begin(), sentences.end(),
		[words](const std::string &sentence) { return sentence.find(words) != std::string::npos; });
}

u32 WithoutAdvice(const CSentences &sentences)
{
	return u32(std::count_if(sentences.begin(), sentences.end(),
		[](const std::string &sentence) { return sentence.rfind("Advice: ", 0) != 0; }));
}
} // namespace

// Sorts.

TEST(CInterface, CallWithoutAPattern_WritesNumbersFarthestFirst)
{
	SThree three;
	const vexmoor_call call = three.Numbers();
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.Written(), kNumbers);
}

TEST(CInterface, Points_WritePatterns)
{
	SThree three;
	const vexmoor_call call = three.Quads();
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.Written(), kQuads);
}

TEST(CInterface, Triangles_WriteTrianglesUnderTheirParticlesKey)
{
	SThree three;
	const vexmoor_call call = three.Triangles();
	EXPECT_EQ(vexmoor_sort_triangles(&call), VEXMOOR_OK);
	const std::vector<u32> written = three.Written();
	ASSERT_EQ(written.size(), 18u);
	EXPECT_EQ(written[0] / 4, 1u);
	EXPECT_EQ(written[3] / 4, 1u);
	EXPECT_EQ(written[6] / 4, 0u);
	EXPECT_EQ(written[12] / 4, 2u);
}

TEST(CInterface, Values_AreSortedLowestFirst)
{
	SThree three;
	vexmoor_call call = three.Numbers();
	call.positions = nullptr;
	call.values = &three.m_ValuePage;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.Written(), kNumbers);
}

TEST(CInterface, Indices16_HaveTwoBytes)
{
	SThree three;
	vexmoor_call call = three.Numbers();
	call.index_size = 2;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	u16 indices[4];
	std::memcpy(indices, three.m_Output, sizeof(indices));
	EXPECT_EQ(std::vector<u32>(indices, indices + 4), std::vector<u32>({1, 0, 2, kUntouched & 0xFFFF}));
}

TEST(CInterface, GivenWorkingBuffer_IsUsedAndNothingIsAllocated)
{
	const CAllocationRecorder allocations;
	SThree three;
	vexmoor_call call = three.Quads();
	call.working_buffer = three.m_Scratch;
	call.working_buffer_size = sizeof(three.m_Scratch);
	const u64 before = HeapAllocationCount();
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(vexmoor_sort_checked(&call, nullptr, nullptr), VEXMOOR_OK);
	EXPECT_EQ(HeapAllocationCount(), before);
	EXPECT_TRUE(allocations.Allocations().empty());
}

TEST(CInterface, MissingWorkingBuffer_IsTakenAndGivenBack)
{
	const CAllocationRecorder allocations;
	SThree three;
	for (const vexmoor_call &call : {three.Quads(), three.Triangles()})
	{
		size_t size = 0;
		ASSERT_EQ(vexmoor_working_buffer_size(&call, &size), VEXMOOR_OK);
		EXPECT_EQ(vexmoor_sort_checked(&call, nullptr, nullptr), VEXMOOR_OK);
		EXPECT_EQ(allocations.Allocations().back().m_Size, size);
		EXPECT_EQ(allocations.Allocations().back().m_Alignment, 16u);
		EXPECT_TRUE(allocations.Allocations().back().m_Freed);
	}
	EXPECT_EQ(allocations.Allocations().size(), 2u);
}

TEST(CInterface, NoMemoryForTheWorkingBuffer_IsAnErrorAndNothingIsWritten)
{
	const CAllocationRecorder allocations(true);
	SThree three;
	const vexmoor_call points = three.Quads();
	EXPECT_EQ(vexmoor_sort_points(&points), VEXMOOR_ERROR_OUT_OF_MEMORY);
	EXPECT_EQ(vexmoor_sort_checked(&points, nullptr, nullptr), VEXMOOR_ERROR_OUT_OF_MEMORY);
	const vexmoor_call triangles = three.Triangles();
	EXPECT_EQ(vexmoor_sort_triangles(&triangles), VEXMOOR_ERROR_OUT_OF_MEMORY);
	EXPECT_TRUE(three.IsUntouched());
}

TEST(CInterface, NoParticles_AreNoErrorAndNoReport)
{
	const CExpectReports noReports;
	SThree three;
	three.m_PositionPage.count = 0;
	for (const vexmoor_call &call : {three.Numbers(), three.Triangles()})
	{
		EXPECT_EQ(vexmoor_sort_checked(&call, nullptr, nullptr), VEXMOOR_OK);
		EXPECT_EQ((call.page_patterns != nullptr ? vexmoor_sort_triangles : vexmoor_sort_points)(&call), VEXMOOR_OK);
	}
	EXPECT_TRUE(three.IsUntouched());
}

// The pattern that a sort borrows is the caller's: nobody writes to it or frees it.
TEST(CInterface, BorrowedPattern_StaysAsItIs)
{
	SThree three;
	const CGuardedMemory pattern = ReadOnly(std::vector<u32>{0, 1, 2, 0, 2, 3}, 8);
	vexmoor_call call = three.Quads();
	call.pattern = pattern.As<u32>();
	call.working_buffer = three.m_Scratch;
	call.working_buffer_size = sizeof(three.m_Scratch);
	const s64 blocks = HeapBlockCount();
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(HeapBlockCount(), blocks);
	EXPECT_EQ(three.Written(), kQuads);
}

// What a 0 stands for.

TEST(CInterface, ZeroVertexCount_IsAllThatIndicesCanAddress)
{
	SThree three;
	vexmoor_call call = three.Numbers();
	three.m_Entries[1] = 0xFFFFFFFEu;
	call.index_list = three.m_Entries;
	call.index_list_count = 3;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.Written(), std::vector<u32>({0xFFFFFFFEu, 0, 8}));

	call.index_size = 2;
	three.m_Entries[1] = 0xFFFEu;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.m_Output[0], 0x0000FFFEu);
	three.m_Entries[1] = 0xFFFFu; // one too many: vertex 0's, as if infinitely far
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.m_Output[0], 0u);
}

TEST(CInterface, VertexCount_BoundsTheParticlesDrawn)
{
	SThree three;
	vexmoor_call call = three.Numbers();
	call.vertex_count = 2; // particle 2 has no vertex
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.Written(), std::vector<u32>({0, 1, 0}));
}

TEST(CInterface, ZeroVerticesPerParticle_AreThePatternsLargestIndexAndOne)
{
	SThree three;
	vexmoor_call call = three.Quads();
	three.m_Quad[1] = 9;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.m_Output[0], 10u);
	call.vertices_per_particle = 16;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.m_Output[0], 16u);
}

TEST(CInterface, NullRenderedCounts_AreThePagesElements)
{
	SThree three;
	const float others[] = {0, 0, 7, 0, 0, 0};
	const vexmoor_view pages[] = {
		three.m_PositionPage, {nullptr, 0, 0 },
         {others,  1, 12}
    };
	vexmoor_call call = three.Numbers();
	call.positions = pages;
	call.page_count = 3;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.Written(), std::vector<u32>({1, 3, 0, 2}));
}

TEST(CInterface, RenderedCounts_TakeThePagesFirstParticles)
{
	SThree three;
	three.m_RenderedCount = 2;
	vexmoor_call call = three.Numbers();
	call.rendered_counts = &three.m_RenderedCount;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.Written(), std::vector<u32>({1, 0}));
}

TEST(CInterface, EnabledBytes_LeaveOutTheDisabled)
{
	SThree three;
	three.m_Enabled[0] = 0;
	three.m_RenderedCount = 2;
	vexmoor_call call = three.Numbers();
	call.enabled = &three.m_EnabledPage;
	call.rendered_counts = &three.m_RenderedCount;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.Written(), std::vector<u32>({0, 1}));
}

// A count that is given is the caller's word: the check holds it against the pages.
TEST(CInterface, GivenParticleCount_IsNotReplaced)
{
	SThree three;
	vexmoor_call call = three.Numbers();
	call.particle_count = 2;
	CSentences sentences;
	EXPECT_EQ(vexmoor_sort_checked(&call, CollectSentence, &sentences), VEXMOOR_ERROR_VIOLATION);
	EXPECT_TRUE(HasWords(sentences, "The pages render 3 particles, but the particle count is 2."));
	EXPECT_TRUE(three.IsUntouched());
}

TEST(CInterface, ZeroTriangleIndexCount_IsThePagesSum)
{
	SThree three;
	const vexmoor_view pages[] = {
		{three.m_Positions,     1, 12},
        {three.m_Positions + 3, 2, 12}
    };
	const vexmoor_pattern patterns[] = {
		{three.m_Quad, 3, 0},
        {three.m_Quad, 6, 0}
    };
	const u32 vertexCounts[] = {3, 4};
	vexmoor_call call = three.Triangles();
	call.positions = pages;
	call.page_count = 2;
	call.page_patterns = patterns;
	call.page_vertex_counts = vertexCounts;
	size_t size = 0;
	EXPECT_EQ(vexmoor_working_buffer_size(&call, &size), VEXMOOR_OK);
	EXPECT_EQ(size, CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(1 * 3 + 2 * 6));
	const CReportRecorder oddTriangles;
	const CWarningRecorder oddTrianglesAgain;
	EXPECT_EQ(vexmoor_sort_triangles(&call), VEXMOOR_OK);
	EXPECT_EQ(three.Written().size(), 15u);
}

TEST(CInterface, GivenTriangleIndexCount_IsNotReplaced)
{
	SThree three;
	vexmoor_call call = three.Triangles();
	call.triangle_index_count = 15;
	CSentences sentences;
	EXPECT_EQ(vexmoor_sort_checked(&call, CollectSentence, &sentences), VEXMOOR_ERROR_VIOLATION);
	EXPECT_TRUE(HasWords(sentences, "The pages draw 18 indices, but the index count is 15."));
}

TEST(CInterface, Camera_IsInPlace)
{
	SThree three;
	vexmoor_call call = three.Numbers();
	call.camera_position[2] = 9;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.Written(), std::vector<u32>({2, 0, 1}));
}

TEST(CInterface, QuadCentres_OrderTheQuadsOfAParticle)
{
	const CWarningRecorder slowOnPurpose;
	SThree three;
	const u32 twoQuads[12] = {0, 1, 2, 0, 2, 3, 4, 5, 6, 4, 6, 7};
	u32 output[36];
	three.m_QuadCenters[4 * 1 + 2] = 50; // the second quad of the first particle is the farther one
	vexmoor_call call = three.Numbers();
	call.indices = output;
	call.index_capacity = 36;
	call.pattern = twoQuads;
	call.pattern_count = 12;
	for (u32 &entry : three.m_Entries)
		entry *= 2;
	call.index_list = three.m_Entries;
	call.index_list_count = 3;
	call.quad_centers = three.m_QuadCenters;
	call.quad_center_count = 3 * 16;
	EXPECT_EQ(vexmoor_sort_checked(&call, nullptr, nullptr), VEXMOOR_OK);
	EXPECT_EQ(output[12], 4u);
	EXPECT_EQ(output[18], 0u);
}

// Versions.

TEST(CInterface, Version_IsTheLibrarys)
{
	EXPECT_EQ(vexmoor_version(), u32(VX_VERSION));
	EXPECT_EQ(u32(VEXMOOR_VERSION), u32(VX_VERSION));
}

// A structure that ends early lies right before memory where any access faults. It means what the whole one means with
// zeros behind.
TEST(CInterface, SmallerStructure_ReadsAsZerosBehindItsEnd)
{
	SThree three;
	vexmoor_call whole = three.Triangles();
	whole.working_buffer = three.m_Scratch;
	whole.working_buffer_size = sizeof(three.m_Scratch);
	std::set<vexmoor_result> results;
	for (u32 size = sizeof(void *); size <= sizeof(whole); size += sizeof(void *))
	{
		SCOPED_TRACE(size);
		const CGuardedMemory memory(size);
		std::memcpy(memory.Data(), &whole, size);
		std::memcpy(memory.Data(), &size, sizeof(size));
		vexmoor_call zeros = {};
		std::memcpy(&zeros, &whole, size);

		const vexmoor_call *const smaller = memory.As<vexmoor_call>();
		size_t sizeOfSmaller = 1, sizeOfZeros = 2;
		const vexmoor_result result = vexmoor_working_buffer_size(&zeros, &sizeOfZeros);
		EXPECT_EQ(vexmoor_working_buffer_size(smaller, &sizeOfSmaller), result);
		EXPECT_EQ(sizeOfSmaller, sizeOfZeros);
		EXPECT_EQ(vexmoor_check(smaller, nullptr, nullptr), vexmoor_check(&zeros, nullptr, nullptr));
		results.insert(result);
	}
	EXPECT_EQ(results, std::set<vexmoor_result>({VEXMOOR_OK, VEXMOOR_ERROR_PAGES, VEXMOOR_ERROR_GEOMETRY}));
}

TEST(CInterface, StructureUpToThePattern_SortsNumbers)
{
	SThree three;
	const vexmoor_call whole = three.Numbers();
	const u32 size = offsetof(vexmoor_call, pattern);
	const CGuardedMemory memory(size);
	std::memcpy(memory.Data(), &whole, size);
	std::memcpy(memory.Data(), &size, sizeof(size));
	EXPECT_EQ(vexmoor_sort_points(memory.As<vexmoor_call>()), VEXMOOR_OK);
	EXPECT_EQ(three.Written(), kNumbers);
}

TEST(CInterface, LargerStructure_IsTakenWhereItsUnknownBytesAreZero)
{
	constexpr u32 kMore = 24;
	for (u32 more = sizeof(void *); more <= kMore; more += sizeof(void *))
	{
		for (u32 set = 0; set <= more; ++set)
		{
			SThree three;
			const vexmoor_call whole = three.Numbers();
			const u32 size = sizeof(whole) + more;
			CGuardedMemory memory(size);
			std::memset(memory.Data(), 0, size);
			std::memcpy(memory.Data(), &whole, sizeof(whole));
			std::memcpy(memory.Data(), &size, sizeof(size));
			if (set < more)
				memory.Data()[sizeof(whole) + set] = 1;
			const vexmoor_call *const larger = memory.As<vexmoor_call>();
			EXPECT_EQ(vexmoor_sort_points(larger), set < more ? VEXMOOR_ERROR_UNKNOWN_FIELD : VEXMOOR_OK) << set;
			EXPECT_EQ(three.Written(), set < more ? std::vector<u32>() : kNumbers);
		}
	}
}

TEST(CInterface, SizeOfNoVersion_IsRefused)
{
	SThree three;
	for (const u32 size :
		{0u, 1u, u32(sizeof(void *)) - 1, u32(sizeof(vexmoor_call)) + 1, u32(sizeof(vexmoor_call)) - 1,
			u32(offsetof(vexmoor_call, positions)) + 1, 4096 + u32(sizeof(void *)), 0xCDCDCDC8u, 0xFFFFFFFFu})
	{
		vexmoor_call call = three.Numbers();
		call.struct_size = size;
		size_t bytes = 1;
		EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_ERROR_STRUCT_SIZE) << size;
		EXPECT_EQ(vexmoor_sort_triangles(&call), VEXMOOR_ERROR_STRUCT_SIZE) << size;
		EXPECT_EQ(vexmoor_sort_checked(&call, nullptr, nullptr), VEXMOOR_ERROR_STRUCT_SIZE) << size;
		EXPECT_EQ(vexmoor_check(&call, nullptr, nullptr), VEXMOOR_ERROR_STRUCT_SIZE) << size;
		EXPECT_EQ(vexmoor_working_buffer_size(&call, &bytes), VEXMOOR_ERROR_STRUCT_SIZE) << size;
		EXPECT_EQ(bytes, 0u);
	}
	EXPECT_TRUE(three.IsUntouched());
}

TEST(CInterface, LargestStructure_IsRead)
{
	SThree three;
	const vexmoor_call whole = three.Numbers();
	std::vector<std::uintptr_t> memory(4096 / sizeof(void *));
	std::memcpy(memory.data(), &whole, sizeof(whole));
	vexmoor_call &call = *reinterpret_cast<vexmoor_call *>(memory.data());
	call.struct_size = 4096;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	memory.back() = 1;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_ERROR_UNKNOWN_FIELD);
}

// Results.

namespace
{
struct SError
{
	const char *m_Name;
	vexmoor_result m_Result;
	void (*m_Break)(SThree &three, vexmoor_call &call);
};
void PrintTo(const SError &error, std::ostream *stream)
{
	*stream << error.m_Name;
}

void MakeTriangles(SThree &three, vexmoor_call &call)
{
	call.page_patterns = &three.m_PagePattern;
	call.page_vertex_counts = &three.m_PageVertexCount;
	call.pattern = nullptr;
	call.pattern_count = 0;
}

const SError kErrors[] = {
	{"Reserved",                   VEXMOOR_ERROR_UNKNOWN_FIELD,   [](SThree &,      vexmoor_call &call) { call.reserved = 1; }                                 },
	{"IndexSize1",                 VEXMOOR_ERROR_INDEX_SIZE,      [](SThree &,      vexmoor_call &call) { call.index_size = 1; }                               },
	{"IndexSize3",                 VEXMOOR_ERROR_INDEX_SIZE,      [](SThree &,      vexmoor_call &call) { call.index_size = 3; }                               },
	{"IndexSize8",                 VEXMOOR_ERROR_INDEX_SIZE,      [](SThree &,      vexmoor_call &call) { call.index_size = 8; }                               },
	{"NoPages",                    VEXMOOR_ERROR_PAGES,           [](SThree &,      vexmoor_call &call) { call.page_count = 0; }                               },
	{"NoKeys",                     VEXMOOR_ERROR_KEYS,            [](SThree &,      vexmoor_call &call) { call.positions = nullptr; }                          },
	{"TwoKeys",                    VEXMOOR_ERROR_KEYS,            [](SThree &three, vexmoor_call &call) { call.values = &three.m_ValuePage; }                  },
	{"EnabledWithoutCounts",       VEXMOOR_ERROR_RENDERED_COUNTS,
     [](SThree &three,                                                              vexmoor_call &call) { call.enabled = &three.m_EnabledPage; }               },
	{"PatternAndPagePatterns",     VEXMOOR_ERROR_GEOMETRY,
     [](SThree &three,                                                              vexmoor_call &call)
		{
			MakeTriangles(three, call);
			call.pattern = three.m_Quad;
		}                                                                                                                                },
	{"IndexListAndPagePatterns",   VEXMOOR_ERROR_GEOMETRY,
     [](SThree &three,                                                              vexmoor_call &call)
		{
			MakeTriangles(three, call);
			call.index_list = three.m_Entries;
		}                                                                                                                                },
	{"CentresAndPagePatterns",     VEXMOOR_ERROR_GEOMETRY,
     [](SThree &three,                                                              vexmoor_call &call)
		{
			MakeTriangles(three, call);
			call.quad_centers = three.m_QuadCenters;
		}                                                                                                                                },
	{"NoPageVertexCounts",         VEXMOOR_ERROR_GEOMETRY,
     [](SThree &three,                                                              vexmoor_call &call)
		{
			MakeTriangles(three, call);
			call.page_vertex_counts = nullptr;
		}                                                                                                                                },
	{"PageVertexCountsAlone",      VEXMOOR_ERROR_GEOMETRY,
     [](SThree &three,                                                              vexmoor_call &call) { call.page_vertex_counts = &three.m_PageVertexCount; }},
	{"TriangleIndexCountAlone",    VEXMOOR_ERROR_GEOMETRY,
     [](SThree &,                                                                   vexmoor_call &call) { call.triangle_index_count = 3; }                     },
	{"NullPatternWithACount",      VEXMOOR_ERROR_GEOMETRY,        [](SThree &,      vexmoor_call &call) { call.pattern = nullptr; }                            },
	{"CentresWithoutList",         VEXMOOR_ERROR_GEOMETRY,
     [](SThree &three,                                                              vexmoor_call &call) { call.quad_centers = three.m_QuadCenters; }           },
	{"LargestEntry",               VEXMOOR_ERROR_TOO_LARGE,       [](SThree &three, vexmoor_call &) { three.m_Quad[5] = 0xFFFFFFFFu; }                         },
	{"IndicesBeyond32Bits",        VEXMOOR_ERROR_TOO_LARGE,
     [](SThree &three,                                                              vexmoor_call &call)
		{
			MakeTriangles(three, call);
			three.m_PagePattern.count = 0x55555556; // times 3: 2 modulo 2^32
		}                                                                                                                                },
	{"TriangleBufferBeyond32Bits", VEXMOOR_ERROR_TOO_LARGE,
     [](SThree &three,                                                              vexmoor_call &call)
		{
			MakeTriangles(three, call);
			call.triangle_index_count = 0x60000000;
		}                                                                                                                                },
	{"PointBufferBeyond32Bits",    VEXMOOR_ERROR_TOO_LARGE,
     [](SThree &,                                                                   vexmoor_call &call) { call.particle_count = 0x0FFFFFFF; }                  },
};
class CErrorTest : public testing::TestWithParam<SError>
{
};
} // namespace

TEST_P(CErrorTest, IsReturnedByEveryFunctionAndWritesNothing)
{
	const CExpectReports noReports;
	SThree three;
	vexmoor_call call = three.Quads();
	GetParam().m_Break(three, call);
	size_t size = 1;
	EXPECT_EQ(vexmoor_working_buffer_size(&call, &size), GetParam().m_Result);
	EXPECT_EQ(size, 0u);
	EXPECT_EQ(
		(call.page_patterns != nullptr ? vexmoor_sort_triangles : vexmoor_sort_points)(&call), GetParam().m_Result);
	const bool isFound = GetParam().m_Result == VEXMOOR_ERROR_TOO_LARGE; // a check has a sentence for some of them
	const vexmoor_result result = vexmoor_sort_checked(&call, nullptr, nullptr);
	EXPECT_TRUE(result == GetParam().m_Result || (isFound && result == VEXMOOR_ERROR_VIOLATION));
	EXPECT_TRUE(three.IsUntouched());
}
INSTANTIATE_TEST_SUITE_P(CInterface,
	CErrorTest,
	testing::ValuesIn(kErrors),
	[](const testing::TestParamInfo<SError> &row) { return std::string(row.param.m_Name); });

TEST(CInterface, SumOfCountsBeyond32Bits_IsTooLarge)
{
	SThree three;
	const u32 counts[] = {0xFFFFFFFFu, 1};
	const vexmoor_view pages[] = {three.m_PositionPage, three.m_PositionPage};
	vexmoor_call call = three.Numbers();
	call.positions = pages;
	call.rendered_counts = counts;
	call.page_count = 2;
	size_t size;
	EXPECT_EQ(vexmoor_working_buffer_size(&call, &size), VEXMOOR_ERROR_TOO_LARGE);
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_ERROR_TOO_LARGE);
}

// Any number is taken by a sort, and a check knows two of them.
TEST(CInterface, OutputMemory_ChangesNoIndex)
{
	for (const u32 memory : {u32(VEXMOOR_OUTPUT_WRITE_COMBINED), u32(VEXMOOR_OUTPUT_CACHED), 2u, 0xFFFFFFFFu})
	{
		SThree three;
		vexmoor_call call = three.Numbers();
		call.output_memory = memory;
		EXPECT_EQ(vexmoor_check(&call, nullptr, nullptr), memory < 2 ? VEXMOOR_OK : VEXMOOR_ERROR_VIOLATION);
		EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
		EXPECT_EQ(three.Written(), kNumbers);
	}
}

TEST(CInterface, SortOfOtherGeometry_IsRefused)
{
	SThree three;
	const vexmoor_call points = three.Quads();
	EXPECT_EQ(vexmoor_sort_triangles(&points), VEXMOOR_ERROR_GEOMETRY);
	const vexmoor_call triangles = three.Triangles();
	EXPECT_EQ(vexmoor_sort_points(&triangles), VEXMOOR_ERROR_GEOMETRY);
	EXPECT_TRUE(three.IsUntouched());
}

TEST(CInterface, NullPointers_AreErrors)
{
	SThree three;
	const vexmoor_call call = three.Numbers();
	size_t size = 1;
	EXPECT_EQ(vexmoor_sort_points(nullptr), VEXMOOR_ERROR_NULL);
	EXPECT_EQ(vexmoor_sort_triangles(nullptr), VEXMOOR_ERROR_NULL);
	EXPECT_EQ(vexmoor_sort_checked(nullptr, nullptr, nullptr), VEXMOOR_ERROR_NULL);
	EXPECT_EQ(vexmoor_check(nullptr, nullptr, nullptr), VEXMOOR_ERROR_NULL);
	EXPECT_EQ(vexmoor_working_buffer_size(nullptr, &size), VEXMOOR_ERROR_NULL);
	EXPECT_EQ(size, 0u);
	EXPECT_EQ(vexmoor_working_buffer_size(&call, nullptr), VEXMOOR_ERROR_NULL);
}

TEST(CInterface, WorkingBufferThatDoesNotFit_IsRefused)
{
	SThree three;
	vexmoor_call call = three.Quads();
	size_t size;
	ASSERT_EQ(vexmoor_working_buffer_size(&call, &size), VEXMOOR_OK);
	EXPECT_EQ(size, 64u);
	struct
	{
		void *m_Buffer;
		size_t m_Size;
		const char *m_Words;
	} const rows[] = {
		{three.m_Scratch,     size - 1, "The working buffer has 63 bytes, but the sort needs 64."},
		{three.m_Scratch,     0,        "The working buffer has 0 bytes, but the sort needs 64." },
		{three.m_Scratch + 8, 1000,     "The working buffer starts at 8 modulo 16, but needs 0." },
		{nullptr,             64,       "The working buffer is null, but has 64 bytes."          },
	};
	for (const auto &row : rows)
	{
		call.working_buffer = row.m_Buffer;
		call.working_buffer_size = row.m_Size;
		EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_ERROR_WORKING_BUFFER) << row.m_Words;
		CSentences sentences;
		EXPECT_EQ(vexmoor_sort_checked(&call, CollectSentence, &sentences), VEXMOOR_ERROR_VIOLATION);
		EXPECT_TRUE(HasWords(sentences, row.m_Words)) << testing::PrintToString(sentences);
	}
	EXPECT_TRUE(three.IsUntouched());
	call.working_buffer = three.m_Scratch;
	call.working_buffer_size = size;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
}

TEST(CInterface, EveryResult_HasASentenceOfItsOwn)
{
	std::set<std::string> texts;
	for (vexmoor_result result = VEXMOOR_OK; result <= VEXMOOR_ERROR_JOBS; ++result)
		texts.insert(vexmoor_result_text(result));
	EXPECT_EQ(texts.size(), 14u);
	const std::string unknown = vexmoor_result_text(VEXMOOR_ERROR_JOBS + 1);
	EXPECT_EQ(texts.count(unknown), 0u);
	EXPECT_EQ(vexmoor_result_text(-1), unknown);
	texts.insert(unknown);
	for (const std::string &text : texts)
		EXPECT_EQ(text.back(), '.') << text;
}

// Jobs.

namespace
{
// Runs jobs in reverse, and counts them.
void VEXMOOR_CALL RunJobs(void *jobCounts, uint32_t jobCount, vexmoor_job job, void *context)
{
	static_cast<std::vector<u32> *>(jobCounts)->push_back(jobCount);
	while (jobCount-- != 0)
		job(context, jobCount);
}
} // namespace

TEST(CInterface, Jobs_SortManyParticlesTogether)
{
	constexpr u32 kCount = 100000;
	std::vector<float> values(kCount);
	for (u32 i = 0; i < kCount; ++i)
		values[i] = float(i * 7919u % kCount);
	const vexmoor_view page = {values.data(), kCount, 4};
	std::vector<u32> alone(kCount, kUntouched), together(kCount, kUntouched);
	vexmoor_call call = {};
	call.struct_size = sizeof(call);
	call.index_capacity = kCount;
	call.values = &page;
	call.page_count = 1;
	call.indices = alone.data();
	size_t sizeAlone, sizeTogether;
	ASSERT_EQ(vexmoor_working_buffer_size(&call, &sizeAlone), VEXMOOR_OK);
	ASSERT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);

	std::vector<u32> jobCounts;
	const vexmoor_jobs jobs = {sizeof(jobs), 4, &RunJobs, &jobCounts};
	call.jobs = &jobs;
	call.indices = together.data();
	ASSERT_EQ(vexmoor_working_buffer_size(&call, &sizeTogether), VEXMOOR_OK);
	EXPECT_GT(sizeTogether, sizeAlone);
	ASSERT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(together, alone);
	EXPECT_EQ(jobCounts, std::vector<u32>(4, 4u));

	std::vector<u64> workingBuffer(sizeTogether / 8);
	call.working_buffer = workingBuffer.data();
	call.working_buffer_size = sizeTogether - 1;
	std::fill(together.begin(), together.end(), kUntouched);
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_ERROR_WORKING_BUFFER);
	EXPECT_EQ(vexmoor_sort_checked(&call, nullptr, nullptr), VEXMOOR_ERROR_VIOLATION);
	EXPECT_EQ(together, std::vector<u32>(kCount, kUntouched));
	call.working_buffer_size = sizeTogether;
	EXPECT_EQ(vexmoor_sort_checked(&call, nullptr, nullptr), VEXMOOR_OK);
	EXPECT_EQ(together, alone);
	EXPECT_EQ(jobCounts.size(), 8u);
}

TEST(CInterface, JobsThatCannotRun_AreRefused)
{
	SThree three;
	vexmoor_call call = three.Numbers();
	vexmoor_jobs jobs = {sizeof(jobs), 0, &RunJobs, nullptr};
	call.jobs = &jobs;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_ERROR_JOBS);
	jobs = {sizeof(jobs), 1, nullptr, nullptr};
	EXPECT_EQ(vexmoor_sort_checked(&call, nullptr, nullptr), VEXMOOR_ERROR_JOBS);
	jobs = {sizeof(jobs) - 1, 1, &RunJobs, nullptr};
	size_t size;
	EXPECT_EQ(vexmoor_working_buffer_size(&call, &size), VEXMOOR_ERROR_STRUCT_SIZE);
	EXPECT_TRUE(three.IsUntouched());
}

// Checks.

TEST(CInterface, Check_FindsAndDoesNotSort)
{
	SThree three;
	three.m_RenderedCount = 4;
	vexmoor_call call = three.Numbers();
	EXPECT_EQ(vexmoor_check(&call, nullptr, nullptr), VEXMOOR_OK);
	EXPECT_TRUE(three.IsUntouched());
	call.rendered_counts = &three.m_RenderedCount;
	CSentences sentences;
	EXPECT_EQ(vexmoor_check(&call, CollectSentence, &sentences), VEXMOOR_ERROR_VIOLATION);
	EXPECT_TRUE(HasWords(sentences, "Page 0 renders 4 particles, but has positions for 3."));
	EXPECT_EQ(vexmoor_check(&call, nullptr, nullptr), VEXMOOR_ERROR_VIOLATION);
}

// A stride that somebody forgot sorts nothing and faults nowhere, so it is spoken of.
TEST(CInterface, StrideOf0_IsAdvisedOnce)
{
	SThree three;
	vexmoor_view pages[] = {three.m_PositionPage, three.m_PositionPage, three.m_PositionPage};
	pages[0].stride = 0;
	pages[0].count = 1; // one element needs no stride
	vexmoor_call call = three.Numbers();
	call.positions = pages;
	call.page_count = 3;
	CSentences sentences;
	EXPECT_EQ(vexmoor_check(&call, CollectSentence, &sentences), VEXMOOR_OK);
	EXPECT_FALSE(HasWords(sentences, "stride"));

	pages[1].stride = pages[2].stride = 0;
	EXPECT_EQ(vexmoor_check(&call, CollectSentence, &sentences), VEXMOOR_OK);
	const std::string advice =
		"Advice: Page 1 has a stride of 0, so all its positions are the first one: packed ones have 12.";
	EXPECT_EQ(std::count(sentences.begin(), sentences.end(), advice), 1);

	three.m_ValuePage.stride = 0;
	call = three.Numbers();
	call.positions = nullptr;
	call.values = &three.m_ValuePage;
	EXPECT_EQ(vexmoor_check(&call, CollectSentence, &sentences), VEXMOOR_OK);
	EXPECT_EQ(sentences.back(),
		"Advice: Page 0 has a stride of 0, so all its sort values are the first one: packed ones have 4.");
}

// Patterns of C++ are copies; those of C are views like any other.
TEST(CInterface, UnsoundPattern_IsAViolation)
{
	SThree three;
	vexmoor_call call = three.Quads();
	call.pattern = BytesPast<const u32>(three.m_Quad, 1);
	call.pattern_count = 5;
	call.vertices_per_particle = 4;
	CSentences sentences;
	EXPECT_EQ(vexmoor_sort_checked(&call, CollectSentence, &sentences), VEXMOOR_ERROR_VIOLATION);
	EXPECT_TRUE(HasWords(sentences, "The view of the index pattern starts at 1 modulo 4, but needs 0."));
	EXPECT_EQ(WithoutAdvice(sentences), 1u) << testing::PrintToString(sentences);

	call.pattern = BytesBeforeTheEnd<const u32>(4);
	call.pattern_count = 6;
	EXPECT_EQ(vexmoor_sort_checked(&call, CollectSentence, &sentences), VEXMOOR_ERROR_VIOLATION);
	EXPECT_TRUE(HasWords(sentences, "of the index pattern, but the address space ends after"));
	EXPECT_TRUE(three.IsUntouched());
}

TEST(CInterface, UnsoundPatternOfOneEntry_IsAViolation)
{
	SThree three;
	vexmoor_call call = three.Numbers();
	call.pattern = BytesPast<const u32>(three.m_Quad, 2);
	call.pattern_count = 1;
	CSentences sentences;
	EXPECT_EQ(vexmoor_sort_checked(&call, CollectSentence, &sentences), VEXMOOR_ERROR_VIOLATION);
	EXPECT_TRUE(HasWords(sentences, "The view of the index pattern starts at 2 modulo 4, but needs 0."));
}

TEST(CInterface, UnsoundPagePattern_IsAViolation)
{
	SThree three;
	const vexmoor_call call = three.Triangles();
	CSentences sentences;
	three.m_PagePattern.indices = nullptr;
	EXPECT_EQ(vexmoor_sort_checked(&call, CollectSentence, &sentences), VEXMOOR_ERROR_VIOLATION);
	EXPECT_TRUE(HasWords(sentences, "The view of the index pattern of page 0 has a null pointer, but a count of 6."));
	EXPECT_EQ(WithoutAdvice(sentences), 1u) << testing::PrintToString(sentences);

	three.m_PagePattern.indices = BytesPast<const u32>(three.m_Quad, 3);
	three.m_PagePattern.count = 3;
	EXPECT_EQ(vexmoor_sort_checked(&call, CollectSentence, &sentences), VEXMOOR_ERROR_VIOLATION);
	EXPECT_TRUE(HasWords(sentences, "The view of the index pattern of page 0 starts at 3 modulo 4, but needs 0."));
	EXPECT_TRUE(three.IsUntouched());
}

// Arrays at odd addresses are found wrong, and read by nothing that needs them to be right.
TEST(CInterface, MisalignedArraysOfPages_AreViolations)
{
	SThree three;
	alignas(16) u8 memory[64] = {};
	std::memcpy(memory + 1, &three.m_PositionPage, sizeof(vexmoor_view));
	vexmoor_call call = three.Numbers();
	call.positions = BytesPast<const vexmoor_view>(memory, 1);
	CSentences sentences;
	EXPECT_EQ(vexmoor_sort_checked(&call, CollectSentence, &sentences), VEXMOOR_ERROR_VIOLATION);
	EXPECT_TRUE(HasWords(sentences, "pages' positions starts at 1 modulo"));

	call = three.Triangles();
	std::memcpy(memory + 1, &three.m_PagePattern, sizeof(vexmoor_pattern));
	call.page_patterns = BytesPast<const vexmoor_pattern>(memory, 1);
	EXPECT_EQ(vexmoor_sort_checked(&call, CollectSentence, &sentences), VEXMOOR_ERROR_VIOLATION);
	EXPECT_TRUE(HasWords(sentences, "pages' index patterns starts at 1 modulo"));

	call = three.Numbers();
	std::memcpy(memory + 1, &three.m_RenderedCount, sizeof(u32));
	call.rendered_counts = BytesPast<const u32>(memory, 1);
	EXPECT_EQ(vexmoor_sort_checked(&call, CollectSentence, &sentences), VEXMOOR_ERROR_VIOLATION);
	EXPECT_TRUE(HasWords(sentences, "rendered counts starts at 1 modulo 4"));
	EXPECT_TRUE(three.IsUntouched());
}

// Whether a call can be put in C: one page count, packed arrays, and nothing that is 0 and would mean something else.
static bool CanBePutInC(const CCall &call)
{
	constexpr u32 kPages = CCall::kPageCount;
	const bool hasPages = call.m_ByPosition
	                          ? call.m_PositionPages.Count() == kPages && call.m_PositionPages.Stride() == 16
	                          : call.m_ValuePages.Count() == kPages && call.m_ValuePages.Stride() == 16;
	const bool hasSource =
		(call.m_ByPosition ? call.m_PositionPages.Data() != nullptr : call.m_ValuePages.Data() != nullptr);
	const bool hasRest = call.m_EnabledPages.Count() == kPages && call.m_EnabledPages.Stride() == 16 &&
	                     call.m_EnabledPages.Data() != nullptr && call.m_RenderedCounts.Count() == kPages &&
	                     call.m_RenderedCounts.Stride() == 4 && call.m_RenderedCounts.Data() != nullptr;
	const bool hasNumbers = call.m_VertexCount != 0 && call.m_ParticleCount != 0 && call.m_VerticesPerParticle != 0 &&
	                        call.m_IndexCount != 0;
	const bool hasGeometry = call.m_Geometry != Triangles
	                             ? true
	                             : call.m_PatternPages.Count() == kPages && call.m_PatternPages.Data() != nullptr &&
	                                   call.m_VertexCountPages.Count() == kPages &&
	                                   call.m_VertexCountPages.Data() != nullptr;
	const bool hasLists = (call.m_Geometry != List && call.m_Geometry != Quads) || call.m_IndexList.Data() != nullptr;
	const bool hasCenters = call.m_Geometry != Quads || call.m_QuadCenters.Data() != nullptr;
	return hasPages && hasSource && hasRest && hasNumbers && hasGeometry && hasLists && hasCenters;
}

static vexmoor_call InC(const CCall &call)
{
	vexmoor_call inC = {};
	inC.struct_size = sizeof(inC);
	inC.index_size = call.m_16Bit ? 2 : 4;
	inC.indices = call.m_Output;
	inC.index_capacity = call.m_OutputCount;
	inC.vertex_count = call.m_VertexCount;
	if (call.m_ByPosition)
		inC.positions = reinterpret_cast<const vexmoor_view *>(call.m_PositionPages.Data());
	else
		inC.values = reinterpret_cast<const vexmoor_view *>(call.m_ValuePages.Data());
	inC.enabled = reinterpret_cast<const vexmoor_view *>(call.m_EnabledPages.Data());
	inC.rendered_counts = call.m_RenderedCounts.Data();
	inC.page_count = CCall::kPageCount;
	inC.particle_count = call.m_ParticleCount;
	inC.working_buffer = call.m_WorkingBuffer;
	inC.working_buffer_size = size_t(call.m_WorkingBufferSize);
	if (call.m_Geometry == Triangles)
	{
		inC.page_patterns = reinterpret_cast<const vexmoor_pattern *>(call.m_PatternPages.Data());
		inC.page_vertex_counts = call.m_VertexCountPages.Data();
		inC.triangle_index_count = call.m_IndexCount;
		return inC;
	}
	inC.pattern = call.m_Pattern.data();
	inC.pattern_count = u32(call.m_Pattern.size());
	inC.vertices_per_particle = call.m_VerticesPerParticle;
	if (call.m_Geometry != Constant)
	{
		inC.index_list = call.m_IndexList.Data();
		inC.index_list_count = call.m_IndexList.Count();
	}
	if (call.m_Geometry == Quads)
	{
		inC.quad_centers = reinterpret_cast<const float *>(call.m_QuadCenters.Data());
		inC.quad_center_count = call.m_QuadCenters.Count();
	}
	return inC;
}

// Random damage: C is told what C++ is told, and the same is written.
TEST(CInterface, DamagedCalls_AreFoundOutLikeThoseOfCpp)
{
	u32 refused = 0, sorted = 0;
	for (u32 seed = 0; seed < 4000; ++seed)
	{
		SCOPED_TRACE(seed);
		Model::CRandom random(seed);
		const CReportRecorder viewsOfWrongStrides;
		const CWarningRecorder warnings;
		CCall call(kCallGeometries[seed % 4]);
		call.m_ByPosition = random.Chance(50);
		if (random.Chance(50))
			call.Output16();
		for (u32 damages = random.Below(3); damages != 0; --damages)
			Damage(call, random);
		call.SetUp();
		if (!CanBePutInC(call))
			continue;
		const vexmoor_call inC = InC(call);
		SFindings told;
		CSentences sentences;
		const u32 violationCount = call.Validate(&Collect, &told);
		const std::vector<unsigned char> before = call.Contents();
		const vexmoor_result result = vexmoor_sort_checked(&inC, CollectSentence, &sentences);
		sentences.erase(
			std::remove_if(sentences.begin(), sentences.end(),
				[](const std::string &each) { return each.find("are the first one") != std::string::npos; }),
			sentences.end());
		ASSERT_EQ(sentences, told.m_Sentences);
		ASSERT_EQ(result, violationCount != 0 ? VEXMOOR_ERROR_VIOLATION : VEXMOOR_OK);
		ASSERT_TRUE(call.SurroundingsIntact());
		const std::vector<unsigned char> after = call.Contents();
		if (violationCount != 0)
		{
			++refused;
			ASSERT_EQ(after, before);
			continue;
		}
		++sorted;
		call.Sort();
		ASSERT_EQ(call.Contents(), after);
	}
	EXPECT_GT(refused, 500u);
	EXPECT_GT(sorted, 500u);
}

// Hooks.

namespace
{
// Brings back what the test program had.
struct SHooksBack
{
	~SHooksBack()
	{
		vexmoor_set_warning_handler(nullptr, nullptr);
		vexmoor_set_scope_handler(nullptr, nullptr);
		vexmoor_set_allocator(nullptr);
		FailAtReports();
	}
};

void CallWithABrokenRule()
{
	SThree three;
	vexmoor_call call = three.Numbers();
	call.pattern = three.m_Quad;
	call.pattern_count = 0;
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_TRUE(three.IsUntouched());
}
} // namespace

TEST(CInterface, ReportHandler_HearsAndDecides)
{
	const SHooksBack hooksBack;
	struct SHeard
	{
		std::vector<std::string> m_Conditions;
		vexmoor_decision m_Answer = VEXMOOR_CONTINUE;
	} heard;
	const vexmoor_report_handler hear = [](void *userData, const vexmoor_report *report) -> vexmoor_decision
	{
		SHeard &self = *static_cast<SHeard *>(userData);
		self.m_Conditions.push_back(report->condition);
		EXPECT_EQ(report->struct_size, sizeof(vexmoor_report));
		EXPECT_GT(report->line, 0);
		EXPECT_STREQ(report->file, "../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp");
		EXPECT_NE(std::string(report->function).find("SortPoints_AutogenIndices"), std::string::npos);
		EXPECT_STREQ(report->message, report->condition);
		EXPECT_STREQ(report->expanded_condition, report->condition);
		return self.m_Answer;
	};
	vexmoor_set_report_handler(hear, &heard);
	CallWithABrokenRule();
	CallWithABrokenRule();
	const std::vector<std::string> twice(VX_ASSERTIONS ? 2 : 0, "!m_IndexPattern.Empty()");
	EXPECT_EQ(heard.m_Conditions, twice);

#if VX_ASSERTIONS
	const CTrapCounter traps;
	heard.m_Answer = VEXMOOR_BREAK;
	CallWithABrokenRule();
	EXPECT_EQ(traps.Count(), 1);
#endif
}

TEST(CInterface, NullReportHandler_IsTheLineOnStderr)
{
	const SHooksBack hooksBack;
	const vexmoor_report_handler never = [](void *, const vexmoor_report *) -> vexmoor_decision
	{
		ADD_FAILURE();
		return VEXMOOR_CONTINUE;
	};
	vexmoor_set_report_handler(never, nullptr);
	vexmoor_set_report_handler(nullptr, nullptr);
	testing::internal::CaptureStderr();
	EXPECT_EQ(Assert::EvalAssert("file", "function", 1, "condition", "expanded", "message"), Assert::Decision_Ignore);
	EXPECT_EQ(testing::internal::GetCapturedStderr(), "file:1: assertion \"condition\" failed in function: message\n");
}

TEST(CInterface, WarningHandler_HearsOfSlowPaths)
{
	CLogUniqueCollection collection;
	const CReplacedRegistry registry(collection);
	const SHooksBack hooksBack;
	CSentences heard;
	const vexmoor_warning_handler hear = [](void *userData, const char *site, const char *message)
	{ static_cast<CSentences *>(userData)->push_back(std::string(site) + ": " + message); };
	vexmoor_set_warning_handler(hear, &heard);
	SThree three;
	three.m_PositionPage = {three.m_Positions, 2, 16};
	const vexmoor_call call = three.Numbers();
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	ASSERT_EQ(heard.size(), 1u);
	EXPECT_EQ(heard[0].rfind("[l.", 0), 0u);
	EXPECT_NE(heard[0].find("mesh_triangle_sorter.cpp: "), std::string::npos);
}

TEST(CInterface, ScopeHandler_HearsStagesBeginAndEnd)
{
	const SHooksBack hooksBack;
	CSentences heard;
	const vexmoor_scope_handler hear = [](void *userData, const vexmoor_scope *scope, int32_t entering)
	{
		EXPECT_EQ(scope->struct_size, sizeof(vexmoor_scope));
		EXPECT_NE(scope->color_rgba8, 0u);
		EXPECT_NE(std::string(scope->file).find("mesh_triangle_sorter.cpp"), std::string::npos);
		static_cast<CSentences *>(userData)->push_back((entering != 0 ? "+" : "-") + std::string(scope->name));
	};
	SThree three;
	const vexmoor_call call = three.Numbers();
	vexmoor_set_scope_handler(hear, &heard);
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	ASSERT_GE(heard.size(), 4u);
	EXPECT_EQ(heard[0], "+CTriangleSorter::FillSource");
	EXPECT_EQ(std::count_if(heard.begin(), heard.end(), [](const std::string &each) { return each[0] == '+'; }),
		std::ptrdiff_t(heard.size() / 2));

	vexmoor_set_scope_handler(nullptr, nullptr);
	const std::size_t count = heard.size();
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(heard.size(), count);
}

namespace
{
struct SHostMemory
{
	alignas(64) u8 m_Block[1024];
	u64 m_Size = 0;
	u32 m_Alignment = 0;
	u32 m_FreeCount = 0;

	static void *VEXMOOR_CALL Alloc(void *self, uint64_t size, uint32_t alignment)
	{
		SHostMemory &memory = *static_cast<SHostMemory *>(self);
		memory.m_Size = size;
		memory.m_Alignment = alignment;
		return memory.m_Block;
	}
	static void VEXMOOR_CALL Free(void *self, void *block)
	{
		SHostMemory &memory = *static_cast<SHostMemory *>(self);
		EXPECT_EQ(block, memory.m_Block);
		++memory.m_FreeCount;
	}
};
} // namespace

TEST(CInterface, Allocator_GivesTheWorkingBuffer)
{
	const SHooksBack hooksBack;
	SHostMemory memory;
	vexmoor_allocator allocator = {sizeof(allocator), 0, &SHostMemory::Alloc, &SHostMemory::Free, &memory};
	ASSERT_EQ(vexmoor_set_allocator(&allocator), VEXMOOR_OK);
	allocator = {}; // a copy is kept
	SThree three;
	const vexmoor_call call = three.Numbers();
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(three.Written(), kNumbers);
	EXPECT_EQ(memory.m_Size, 64u);
	EXPECT_EQ(memory.m_Alignment, 16u);
	EXPECT_EQ(memory.m_FreeCount, 1u);

	EXPECT_EQ(vexmoor_set_allocator(nullptr), VEXMOOR_OK);
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK);
	EXPECT_EQ(memory.m_FreeCount, 1u);
}

TEST(CInterface, AllocatorThatIsIncomplete_IsRefused)
{
	const SHooksBack hooksBack;
	const vexmoor_allocator sound = {sizeof(sound), 0, &SHostMemory::Alloc, &SHostMemory::Free, nullptr};
	vexmoor_allocator allocator = sound;
	allocator.struct_size = 1;
	EXPECT_EQ(vexmoor_set_allocator(&allocator), VEXMOOR_ERROR_STRUCT_SIZE);
	allocator = sound;
	allocator.allocate = nullptr;
	EXPECT_EQ(vexmoor_set_allocator(&allocator), VEXMOOR_ERROR_NULL);
	allocator = sound;
	allocator.release = nullptr;
	EXPECT_EQ(vexmoor_set_allocator(&allocator), VEXMOOR_ERROR_NULL);
	allocator = sound;
	allocator.reserved = 1;
	EXPECT_EQ(vexmoor_set_allocator(&allocator), VEXMOOR_ERROR_UNKNOWN_FIELD);
	SThree three;
	const vexmoor_call call = three.Numbers();
	EXPECT_EQ(vexmoor_sort_points(&call), VEXMOOR_OK); // from the heap, as before
}
