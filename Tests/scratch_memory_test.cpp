// Scratch memory: what the allocator hook is told, what the default allocator promises, and how the sorts use both.

#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

#include "kr_mem.h"

#include "diagnostics.h"
#include "random_scene.h"
#include "scene_memory.h"
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__)
	#define TEST_HEAP_STOPS_AT_HUGE_SIZES 1
#elif defined(__has_feature)
	#if __has_feature(address_sanitizer)
		#define TEST_HEAP_STOPS_AT_HUGE_SIZES 1
	#endif
#endif

using namespace Vexmoor;
using namespace Support;

namespace
{
constexpr const char *kModule = "Kernel|Mem|Default";
constexpr const char *kSorterPath = "../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp";
constexpr const char *kMemPath = "../../Runtime/vx_kernel/include/kr_mem.h";

// Every argument of the last call of either function. The one block that there is comes from here.
struct SHost
{
	u32 m_Allocs = 0;
	u32 m_Frees = 0;
	u64 m_Size = 0;
	u32 m_Alignment = 0;
	void *m_Ptr = null;
	Mem::EAllocType m_Type = Mem::AllocType_Debug;
	Mem::EOrigin m_Origin = Mem::Origin_New;
	std::string m_Module;
	std::string m_File;
	int m_Line = 0;
	std::string m_Function;
	alignas(16) u8 m_Block[1024] = {};

	Mem::SAllocator Allocator() { return {&_Alloc, &_Free, this}; }

private:
	void _Note(
		Mem::EAllocType type, Mem::EOrigin origin, const char *module, const char *file, int line, const char *function)
	{
		m_Type = type;
		m_Origin = origin;
		m_Module = module;
		m_File = file;
		m_Line = line;
		m_Function = function;
	}
	static void *_Alloc(void *self,
		u64 size,
		u32 alignment,
		Mem::EAllocType type,
		Mem::EOrigin origin,
		const char *module,
		const char *file,
		int line,
		const char *function)
	{
		SHost *const host = static_cast<SHost *>(self);
		++host->m_Allocs;
		host->m_Size = size;
		host->m_Alignment = alignment;
		host->_Note(type, origin, module, file, line, function);
		return host->m_Block;
	}
	static void _Free(void *self,
		void *ptr,
		Mem::EAllocType type,
		Mem::EOrigin origin,
		const char *module,
		const char *file,
		int line,
		const char *function)
	{
		SHost *const host = static_cast<SHost *>(self);
		++host->m_Frees;
		host->m_Ptr = ptr;
		host->_Note(type, origin, module, file, line, function);
	}
};

void *Alloc(u64 size, u32 alignment)
{
	return Mem::_RawAlloc(
		size, alignment, Mem::AllocType_Generic, Mem::Origin_Alloc, kModule, __FILE__, __LINE__, __func__);
}

void Free(void *block)
{
	Mem::_RawFree(block, Mem::AllocType_Generic, Mem::Origin_Alloc, kModule, __FILE__, __LINE__, __func__);
}
} // namespace

TEST(ScratchMemory, Enumerators_HaveTheirValues)
{
	EXPECT_EQ(u32(Mem::AllocType_Generic), 0u);
	EXPECT_EQ(u32(Mem::AllocType_Particle), 1u);
	EXPECT_EQ(u32(Mem::AllocType_Scratch), 2u);
	EXPECT_EQ(u32(Mem::AllocType_Debug), 3u);
	EXPECT_EQ(u32(Mem::Origin_Alloc), 0u);
	EXPECT_EQ(u32(Mem::Origin_New), 0x80000000u);
}

TEST(ScratchMemory, IsAligned_LooksAtTheBitsBelowTheAlignment)
{
	for (ureg address = 0; address < 64; ++address)
	{
		const void *const p = reinterpret_cast<const void *>(address);
		EXPECT_TRUE(Mem::IsAligned<1>(p));
		EXPECT_EQ(Mem::IsAligned<0x04>(p), address % 4 == 0) << address;
		EXPECT_EQ(Mem::IsAligned<0x10>(p), address % 16 == 0) << address;
		EXPECT_EQ(Mem::IsAligned<0x20>(p), address % 32 == 0) << address;
	}
}

// Values that no default has, one of them beyond 32 bits.
TEST(ScratchMemory, Hook_GetsEveryArgument)
{
	SHost host;
	{
		const Mem::SAllocator allocator = host.Allocator();
		Mem::SetAllocator(&allocator); // which takes a copy
	}
	void *const block = Mem::_RawAlloc(
		0x1'0000'0001u, 64, Mem::AllocType_Scratch, Mem::Origin_New, "module", "file.cpp", 123, "function()");
	EXPECT_EQ(block, host.m_Block);
	EXPECT_EQ(host.m_Allocs, 1u);
	EXPECT_EQ(host.m_Size, 0x1'0000'0001u);
	EXPECT_EQ(host.m_Alignment, 64u);
	EXPECT_EQ(host.m_Type, Mem::AllocType_Scratch);
	EXPECT_EQ(host.m_Origin, Mem::Origin_New);
	EXPECT_EQ(host.m_Module, "module");
	EXPECT_EQ(host.m_File, "file.cpp");
	EXPECT_EQ(host.m_Line, 123);
	EXPECT_EQ(host.m_Function, "function()");

	Mem::_RawFree(block, Mem::AllocType_Debug, Mem::Origin_Alloc, "other", "elsewhere.cpp", 7, "release()");
	Mem::SetAllocator(null);
	EXPECT_EQ(host.m_Frees, 1u);
	EXPECT_EQ(host.m_Ptr, block);
	EXPECT_EQ(host.m_Type, Mem::AllocType_Debug);
	EXPECT_EQ(host.m_Origin, Mem::Origin_Alloc);
	EXPECT_EQ(host.m_Module, "other");
	EXPECT_EQ(host.m_File, "elsewhere.cpp");
	EXPECT_EQ(host.m_Line, 7);
	EXPECT_EQ(host.m_Function, "release()");
}

// The default takes null as well.
TEST(ScratchMemory, FreeOfNull_DoesNotReachTheHook)
{
	Free(null);
	SHost host;
	const Mem::SAllocator allocator = host.Allocator();
	Mem::SetAllocator(&allocator);
	Free(null);
	Mem::SetAllocator(null);
	EXPECT_EQ(host.m_Frees, 0u);
}

TEST(ScratchMemory, NullAllocator_BringsBackTheDefault)
{
	SHost host;
	const Mem::SAllocator allocator = host.Allocator();
	Mem::SetAllocator(&allocator);
	Mem::SetAllocator(null);
	void *const block = Alloc(16, 16);
	EXPECT_NE(block, nullptr);
	EXPECT_NE(block, host.m_Block);
	Free(block);
	EXPECT_EQ(host.m_Allocs + host.m_Frees, 0u);
}

// Alignments below a pointer's are none that the heap knows, sizes between alignments neither.
TEST(ScratchMemory, Default_KeepsSizeAndAlignment)
{
	for (u32 alignment = 1; alignment <= 4096; alignment *= 2)
	{
		for (const u32 size : {0u, 1u, 15u, 16u, 17u, 1000u, 65'537u})
		{
			SCOPED_TRACE(testing::Message() << size << " bytes at " << alignment);
			void *const block = Alloc(size, alignment);
			ASSERT_NE(block, nullptr); // of 0 bytes, a block too
			EXPECT_EQ(reinterpret_cast<ureg>(block) % alignment, 0u);
			std::memset(block, 0xCD, size);
			Free(block);
		}
	}
}

// A sanitizer's heap ends the process at sizes that it knows to be impossible, so it sees those alone that are refused
// before the heap is asked.
TEST(ScratchMemory, Default_GivesNullForAnImpossibleSize)
{
	EXPECT_EQ(Alloc(0xFFFFFFFFFFFFFFFFu, 16), nullptr);
	EXPECT_EQ(Alloc(0xFFFFFFFFFFFFFFF0u, 16), nullptr); // rounding up must not come round to 0
	EXPECT_EQ(Alloc(0xFFFFFFFFFFFFF000u, 4096), nullptr);
#if !defined(TEST_HEAP_STOPS_AT_HUGE_SIZES)
	EXPECT_EQ(Alloc(0x7000000000000000u, 16), nullptr);
#endif
}

// Three particles: two arrays of four records are 64 bytes, taken for a number of records. The release names the
// runtime's helper, not the sorter.
TEST(ScratchMemory, PointSortWithoutBuffer_AllocatesEightTimesTheSizeAndFrees)
{
	CAllocationRecorder recorder;
	CExpectReports noReports;
	const float values[3] = {1.0f, 0.0f, 2.0f};
	const u32 renderedCounts[1] = {3};
	const TStridedMemoryView<const float> pages[1] = {
		{values, 3, 4}
    };
	const TStridedMemoryView<const u8> enableds[1];
	u32 pattern[3] = {0, 1, 2};
	alignas(16) u32 output[9] = {};

	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(output, 9), 100);
	sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(pages, 1, sizeof(pages[0])),
		CTriangleSorter::CEnabledPages(enableds, 1, sizeof(enableds[0])),
		CTriangleSorter::CRenderedCounts(renderedCounts, 1, 4), 3);
	sorter.Setup_Geometry(TMemoryView<u32>(pattern, 3), 3);
	const std::size_t before = recorder.Allocations().size(); // the pattern's block
	sorter.SortPoints_AutogenIndices(null);

	ASSERT_EQ(recorder.Allocations().size(), before + 1);
	const SRecordedAllocation &allocation = recorder.Allocations()[before];
	EXPECT_EQ(allocation.m_Size, 64u * 8);
	EXPECT_EQ(allocation.m_Alignment, 16u);
	EXPECT_EQ(allocation.m_Type, Mem::AllocType_Generic);
	EXPECT_EQ(allocation.m_Origin, Mem::Origin_Alloc);
	EXPECT_EQ(allocation.m_Module, kModule);
	EXPECT_EQ(allocation.m_File, kSorterPath);
	EXPECT_NE(allocation.m_Function.find("CTriangleSorter::SortPoints_AutogenIndices("), std::string::npos);
	EXPECT_TRUE(allocation.m_Freed);
	EXPECT_EQ(allocation.m_FreedByFile, kMemPath);
	const u32 expected[9] = {3, 4, 5, 0, 1, 2, 6, 7, 8};
	EXPECT_EQ(std::memcmp(output, expected, sizeof(output)), 0);
}

// 2^26 particles: eight times two arrays of half a gigabyte each. The call ends where such a block is refused.
TEST(ScratchMemory, PointSortWithoutBuffer_AsksForMoreThan32BitsCount)
{
	constexpr u32 kParticleCount = 1u << 26;
	CAllocationRecorder refusing(true);
	CTriangleSorter sorter;
	sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(), {}, {}, kParticleCount);
	sorter.SortPoints_AutogenIndices(null);
	ASSERT_EQ(refusing.Allocations().size(), 1u);
	EXPECT_EQ(refusing.Allocations()[0].m_Size, u64(8) * 2 * kParticleCount * sizeof(SIndexAndDepth));
}

// No report, no warning, no scope, no index: a refused block ends the call before anything else.
TEST(ScratchMemory, SortsWithoutBufferOrMemory_ReturnInSilence)
{
	CExpectReports noReports;
	CWarningRecorder warnings;
	CScopeRecorder scopes;
	const float values[3] = {1.0f, 0.0f, 2.0f};
	const u32 renderedCounts[1] = {3};
	const TStridedMemoryView<const float> pages[1] = {
		{values, 3, 4}
    };
	const TStridedMemoryView<const u8> enableds[1];
	u32 pattern[3] = {0, 1, 2};
	u32 output[9] = {};
	CTriangleSorter::CIndexPattern pagePattern;
	pagePattern = TMemoryView<u32>(pattern, 3);
	const u32 vertexCounts[1] = {3};

	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(output, 9), 100);
	sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(pages, 1, sizeof(pages[0])),
		CTriangleSorter::CEnabledPages(enableds, 1, sizeof(enableds[0])),
		CTriangleSorter::CRenderedCounts(renderedCounts, 1, 4), 3);
	sorter.Setup_Geometry(TMemoryView<u32>(pattern, 3), 3);
	{
		CAllocationRecorder refusing(true);
		sorter.SortPoints_AutogenIndices(null);
		EXPECT_EQ(refusing.Allocations().size(), 1u);
		sorter.Setup_Geometry(TMemoryView<const CTriangleSorter::CIndexPattern>(&pagePattern, 1),
			TMemoryView<const u32>(vertexCounts, 1), 9);
		sorter.SortTriangles_AutogenIndices(null);
		EXPECT_EQ(refusing.Allocations().size(), 2u);
	}
	for (const u32 index : output)
		EXPECT_EQ(index, 0u);
	EXPECT_TRUE(scopes.Events().empty());
	EXPECT_TRUE(warnings.Entries().empty());
}

// Heap memory holds nothing yet: a checker that follows what was never written, into the comparison with the model,
// sees whether a sort reads what it has not filled.
TEST(ScratchMemory, SortsInFreshHeapMemory_MatchTheModel)
{
	const Model::SSceneOptions options; // scenes of less and of more than 109 records, where another sort takes over
	for (u64 seed = 1; seed <= 40; ++seed)
	{
		ASSERT_TRUE(SortsLikeTheModel(Model::RandomPointScene(seed, options), WithoutWorkingBuffer())) << seed;
		ASSERT_TRUE(SortsLikeTheModel(Model::RandomTriangleScene(seed, options), WithoutWorkingBuffer())) << seed;
	}
}
