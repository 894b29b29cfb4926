// Warnings and memory: a sort's warnings, first touches included, take nothing from the heap, and are there when it has
// nothing left.

#include "ge_mesh_triangle_sorter.h"

#include "kr_log_unique.h"
#include "kr_mem.h"
#include "kr_profiler.h"
#include "kr_string.h"

#include "diagnostics.h"
#include "heap.h"
#include "sort_call.h"
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <gtest/gtest.h>
#include <new>

using namespace Vexmoor;
using namespace Support;

namespace
{
constexpr u32 kSitesOfTheSorter = 15;

// Takes every slow path of the sorter once, over memory that is there already.
void TakeEverySlowPath()
{
	static u32 s_Zeros[12] = {};
	static const CFloat4 s_Vectors[32];
	alignas(16) static SIndexAndDepth s_Records[2] = {
		{0, 0},
        {0, 4}
    };
	alignas(16) static u8 s_Output[2 * 12 * sizeof(u32) + sizeof(u32)];

	u32 *const out32 = reinterpret_cast<u32 *>(s_Output + sizeof(u32));
	u16 *const out16 = reinterpret_cast<u16 *>(s_Output + sizeof(u16));
	for (const u32 width : {1u, 3u, 6u, 12u, 7u})
	{
		CTriangleSorter::ExpandIndices(TMemoryView<const u32>(s_Zeros, width), s_Records, out32, 2);
		CTriangleSorter::ExpandIndices(TMemoryView<const u32>(s_Zeros, width), s_Records, out16, 2);
	}
	const TMemoryView<const CFloat4> quadCenters(s_Vectors, 32);
	const TMemoryView<const u32> quad(s_Zeros, 6);
	CTriangleSorter::ExpandAndSortIndices(quad, quadCenters, CFloat3(), s_Records, out32, 2, 4);
	CTriangleSorter::ExpandAndSortIndices(quad, quadCenters, CFloat3(), s_Records, out16, 2, 4);

	const TMemoryView<SIndexAndDepth> records(s_Records, 2);
	const TStridedMemoryView<const CFloat3> positions(reinterpret_cast<const CFloat3 *>(s_Vectors), 2, 16);
	const TStridedMemoryView<const float> values(reinterpret_cast<const float *>(s_Vectors), 2, 16);
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(records, positions, CFloat3(), {}, 0, 4);
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(records, values, {}, 0, 4);
	CTriangleSorter::FillSortingIndirectionsListPoint_Indices(records, positions, CFloat3(), {}, s_Zeros, 8);
	CTriangleSorter::FillSortingIndirectionsListPoint_Indices(records, values, {}, s_Zeros, 8);
}

void CountFirstTouch(const CLogUniqueCollection::SEntry &, void *count)
{
	++*static_cast<u32 *>(count);
}

// Blocks for scratch memory, from beside the heap that runs dry.
struct SScratchBlocks
{
	u32 m_Taken = 0;
	u32 m_GivenBack = 0;

	SScratchBlocks()
	{
		const Mem::SAllocator allocator = {&_Alloc, &_Free, this};
		Mem::SetAllocator(&allocator);
	}
	~SScratchBlocks() { Mem::SetAllocator(null); }
	SScratchBlocks(const SScratchBlocks &) = delete;
	SScratchBlocks &operator=(const SScratchBlocks &) = delete;

private:
	static void *_Alloc(void *self,
		u64 size,
		u32 alignment,
		Mem::EAllocType,
		Mem::EOrigin,
		const char *,
		const char *,
		int,
		const char *)
	{
		++static_cast<SScratchBlocks *>(self)->m_Taken;
		return std::aligned_alloc(alignment, std::size_t((size / alignment + 1) * alignment));
	}
	static void _Free(
		void *self, void *block, Mem::EAllocType, Mem::EOrigin, const char *, const char *, int, const char *)
	{
		++static_cast<SScratchBlocks *>(self)->m_GivenBack;
		std::free(block);
	}
};

std::vector<u8> OutputOf(const CCall &call)
{
	const u8 *const bytes = static_cast<const u8 *>(call.m_Output);
	return {bytes, bytes + call.m_OutputCount * (call.m_16Bit ? sizeof(u16) : sizeof(u32))};
}
} // namespace

// Built anew each time, and then cut: nothing else can be in the way of a sort.
TEST(ShortString, Format_BuildsATextOnTheStack)
{
	const u64 before = HeapAllocationCount();
	const CShortString string = CShortString::Format("Render sort: %d of %s", 3, "them");
	EXPECT_EQ(HeapAllocationCount(), before);
	EXPECT_STREQ(string.Data(), "Render sort: 3 of them");
	EXPECT_STREQ(CShortString().Data(), "");
	EXPECT_STREQ(CShortString::Format("%lc", std::wint_t(0x7FFFFFFF)).Data(), ""); // no character, says libc
	const std::string text(CShortString::kMaxLength, 'x');
	EXPECT_EQ(CShortString::Format("%s", text.c_str()).Data(), text);
	EXPECT_EQ(CShortString::Format("%sy", text.c_str()).Data(), text);
}

TEST(PerformanceWarning, FirstTouchOfEverySite_AllocatesNothing)
{
	for (const bool hasHandler : {false, true})
	{
		SCOPED_TRACE(hasHandler);
		CLogUniqueCollection own;
		u32 firstTouches = 0;
		if (hasHandler)
			own.SetFirstTouchHandler(&CountFirstTouch, &firstTouches);
		const CReplacedRegistry replaced(own);
		testing::internal::CaptureStderr();
		const u64 before = HeapAllocationCount();
		TakeEverySlowPath();
		const u64 atFirstTouches = HeapAllocationCount() - before;
		TakeEverySlowPath();
		const u64 afterwards = HeapAllocationCount() - before - atFirstTouches;
		const std::string printed = testing::internal::GetCapturedStderr();
		EXPECT_EQ(atFirstTouches, 0u);
		EXPECT_EQ(afterwards, 0u);
		EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), hasHandler ? 0 : kSitesOfTheSorter) << printed;
		EXPECT_EQ(firstTouches, hasHandler ? kSitesOfTheSorter : 0);
		ASSERT_EQ(own.Snapshot().size(), kSitesOfTheSorter);
		for (const CLogUniqueCollection::SEntry &entry : own.Snapshot())
			EXPECT_EQ(entry.m_TouchCount, 2u) << entry.m_Key;
	}
}

// A host clears the collection as often as it likes, and has keys of its own: the sorter's find room all the same.
TEST(PerformanceWarning, FirstTouchesAfterClearAndHostsKeys_AllocateNothing)
{
	CLogUniqueCollection own;
	u32 firstTouches = 0;
	own.SetFirstTouchHandler(&CountFirstTouch, &firstTouches);
	const CReplacedRegistry replaced(own);
	for (u32 round = 0; round < 3; ++round)
	{
		own.Clear();
		for (u32 key = 0; key < 100; ++key)
			own.Touch(("a host's own key " + std::to_string(key)).c_str(), "a host's own message");
		const u64 before = HeapAllocationCount();
		TakeEverySlowPath();
		EXPECT_EQ(HeapAllocationCount(), before);
		ASSERT_EQ(own.Snapshot().size(), 100u + kSitesOfTheSorter);
		EXPECT_EQ(own.Snapshot()[99].m_Key, "a host's own key 99");
		EXPECT_EQ(own.Snapshot()[100 + kSitesOfTheSorter - 1].m_TouchCount, 1u);
	}
}

// Warnings with and without a number in them, first touches, and scratch memory of the sort's own.
TEST(PerformanceWarning, SortOnADryHeap_WritesAndWarnsAsEver)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		for (const bool output16 : {false, true})
		{
			SCOPED_TRACE(testing::Message() << "geometry " << geometry << (output16 ? ", 16 bits" : ", 32 bits"));
			const CWarningRecorder warnings;
			CCall call(geometry);
			if (geometry == Constant || geometry == List)
				call.m_Pattern.push_back(1); // of seven entries, for which there is no fast path
			if (output16)
				call.Output16();
			call.m_WorkingBuffer = null;
			call.m_WorkingBufferSize = 0;
			call.SetUp();
			const SScratchBlocks scratch;
			std::memset(call.m_Output, 0xAB, OutputOf(call).size());
			call.Sort();
			const std::vector<u8> expected = OutputOf(call);
			const std::vector<std::string> expectedMessages = warnings.Messages();
			std::memset(call.m_Output, 0xAB, expected.size());
			CPerfHotspotsRegistry::Registry()->Clear();

			const u64 before = HeapAllocationCount();
			{
				const CDryHeap dry;
				call.Sort();
			}
			EXPECT_EQ(HeapAllocationCount(), before);
			EXPECT_EQ(OutputOf(call), expected);
			EXPECT_EQ(warnings.Messages(), expectedMessages);
			EXPECT_FALSE(expectedMessages.empty());
			EXPECT_EQ(scratch.m_Taken, 2u);
			EXPECT_EQ(scratch.m_GivenBack, 2u);
		}
	}
}

#if TEST_LIBRARY_CATCHES
// With a handler, an entry that stays and one that is shown are taken for each key: 16 of the 32 that are set aside.
TEST(PerformanceWarning, MoreSitesThanRoomOnADryHeap_AreLeftOutAndComeLater)
{
	static const char *const s_Keys[] = {
		"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "13", "14", "15", "16", "17", "18", "19"};
	CLogUniqueCollection own;
	u32 firstTouches = 0;
	own.SetFirstTouchHandler(&CountFirstTouch, &firstTouches);
	const CReplacedRegistry replaced(own);
	const u32 hazardsBefore = Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards;
	{
		const CDryHeap dry;
		for (u32 round = 0; round < 2; ++round)
		{
			for (const char *const key : s_Keys)
				WarnAtSite(key, "message");
		}
	}
	EXPECT_EQ(Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards - hazardsBefore, 40u);
	EXPECT_EQ(firstTouches, 16u);
	ASSERT_EQ(own.Snapshot().size(), 16u);
	for (u32 i = 0; i < 16; ++i)
	{
		EXPECT_EQ(own.Snapshot()[i].m_Key, s_Keys[i]);
		EXPECT_EQ(own.Snapshot()[i].m_TouchCount, 2u);
	}

	for (const char *const key : s_Keys)
		WarnAtSite(key, "message");
	EXPECT_EQ(firstTouches, 20u);
	ASSERT_EQ(own.Snapshot().size(), 20u);
	EXPECT_EQ(own.Snapshot()[15].m_TouchCount, 3u);
	EXPECT_EQ(own.Snapshot()[19].m_TouchCount, 1u);
}

// Long texts fit no entry that is set aside. What had been begun with them is undone.
TEST(LogUnique, TouchOnADryHeap_CountsKnownKeysAndLeavesOutLongNewOnes)
{
	const std::string longKey(1000, 'k'), longMessage(1000, 'm');
	CLogUniqueCollection collection;
	u32 firstTouches = 0;
	collection.SetFirstTouchHandler(&CountFirstTouch, &firstTouches);
	collection.Touch("known", "message");
	{
		const CDryHeap dry;
		collection.Touch("known", "message");
		collection.Touch(longKey.c_str(), "message");
		collection.Touch("new", longMessage.c_str());
		collection.Touch("short", "message");
	}
	EXPECT_EQ(Contents(collection), (std::vector<std::string>{"known: message x 2", "short: message x 1"}));
	EXPECT_EQ(firstTouches, 2u);
	collection.Touch(longKey.c_str(), longMessage.c_str());
	EXPECT_EQ(Contents(collection)[2], longKey + ": " + longMessage + " x 1");
	EXPECT_EQ(firstTouches, 3u);
}

TEST(LogUnique, CollectionMadeAndClearedOnADryHeap_TakesRoomLater)
{
	testing::internal::CaptureStderr();
	std::vector<u8> memory(sizeof(CLogUniqueCollection));
	CLogUniqueCollection *collection;
	{
		const CDryHeap dry;
		collection = new (memory.data()) CLogUniqueCollection;
		collection->Touch("a", "message");
		collection->Clear();
		collection->SetFirstTouchHandler(null, null);
	}
	EXPECT_TRUE(collection->Snapshot().empty());
	collection->Touch("a", "message");
	EXPECT_EQ(Contents(*collection), (std::vector<std::string>{"a: message x 1"}));
	collection->~CLogUniqueCollection();
	testing::internal::GetCapturedStderr();
}

TEST(String, FormatOnADryHeap_IsEmpty)
{
	CString string;
	{
		const CDryHeap dry;
		string = CString::Format("Render sort: %d of them", 3);
	}
	EXPECT_STREQ(string.Data(), "");
	const CString longer = CString::Format("Render sort: %d of them", 3);
	EXPECT_STREQ(longer.Data(), "Render sort: 3 of them");
}
#endif

// A source path may be as long as a file system allows. Sites stay apart, as their numbers come first.
TEST(PerformanceWarning, LongKeysAndMessages_AreCut)
{
	const CWarningRecorder recorder;
	const std::string path(1000, 'p'), message(1000, 'm');
	const std::string keys[] = {"[l.1] @ " + path, "[l.2] @ " + path};
	const u64 before = HeapAllocationCount();
	for (const std::string &key : keys)
	{
		WarnAtSite(key.c_str(), message.c_str());
		WarnAtSite(key.c_str(), message.c_str());
	}
	EXPECT_EQ(HeapAllocationCount(), before);
	ASSERT_EQ(recorder.Entries().size(), 2u);
	EXPECT_EQ(recorder.Entries()[0].m_Key, keys[0].substr(0, 288));
	EXPECT_EQ(recorder.Entries()[1].m_Key, keys[1].substr(0, 288));
	EXPECT_EQ(recorder.Entries()[1].m_Message, message.substr(0, 127));
	EXPECT_EQ(recorder.Entries()[1].m_TouchCount, 2u);
}
