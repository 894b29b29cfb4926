// Many sorters on many threads, each with buffers of its own, at the moment when everything that happens once happens:
// first scopes, first touches of every warning, first passes of every site. Run alone, in a fresh process, it is the
// first use of all of them; under a thread sanitizer it shows that nothing is shared unguarded.

#include "ge_mesh_triangle_sorter.h"

#include "kr_profiler.h"

#include "diagnostics.h"
#include "expand_calls.h"
#include "sort_call.h"
#include "vexmoor.h"
#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace Vexmoor;
using namespace Support;

namespace
{
constexpr u32 kThreads = 16;

// What one thread has written, and how many hazards it met.
struct SWork
{
	std::vector<u32> m_Written;
	u32 m_Hazards = 0;

	void Add(const std::vector<u32> &indices) { m_Written.insert(m_Written.end(), indices.begin(), indices.end()); }
};

void SortOnce(SWork &work, ECallGeometry geometry, bool byPosition, bool output16)
{
	CCall call(geometry);
	if (byPosition)
		call.SortByPosition();
	if (output16)
		call.Output16();
	call.SetUp();
	call.Sort();
	for (u32 i = 0; i < call.m_OutputCount; ++i)
		work.m_Written.push_back(
			output16 ? static_cast<const u16 *>(call.m_Output)[i] : static_cast<const u32 *>(call.m_Output)[i]);
}

// Strides that no layout has by itself: all four fillers warn.
void FillFromUncommonStrides(SWork &work)
{
	constexpr u32 kCount = 9;
	const float values[2 * kCount] = {3, 0, -1, 0, 7};
	const CFloat4 positions[kCount] = {CFloat4(1, 2, 3, 0)};
	const u32 indexList[kCount] = {0, 8, 4, 1};
	const TStridedMemoryView<const float> valueView(values, kCount, 2 * sizeof(float));
	const TStridedMemoryView<const CFloat3> positionView(
		reinterpret_cast<const CFloat3 *>(positions), kCount, sizeof(CFloat4));

	alignas(16) SIndexAndDepth records[kCount];
	const TMemoryView<SIndexAndDepth> out(records, kCount);
	const auto addRecords = [&]
	{
		for (const SIndexAndDepth &record : records)
			work.Add({record.m_Depth, record.m_Index});
	};
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(out, positionView, CFloat3(), {}, 0, 4);
	addRecords();
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(out, valueView, {}, 0, 4);
	addRecords();
	CTriangleSorter::FillSortingIndirectionsListPoint_Indices(out, positionView, CFloat3(), {}, indexList, 9);
	addRecords();
	CTriangleSorter::FillSortingIndirectionsListPoint_Indices(out, valueView, {}, indexList, 9);
	addRecords();
}

// Every kind of sort, and every path that warns. The sorts come first, so that they are what meets.
SWork SortEverything()
{
	SWork work;
	const u32 hazardsBefore = Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards;
	for (const ECallGeometry geometry : kCallGeometries)
	{
		for (const bool byPosition : {false, true})
		{
			for (const bool output16 : {false, true})
				SortOnce(work, geometry, byPosition, output16);
		}
	}
	for (const u32 width : {1u, 3u, 6u, 12u, 7u})
	{
		const SPattern pattern(width); // of zeros, as a pattern of one has to be
		work.Add(Expand<u32>(pattern, MakeRecords(21), sizeof(u32)));
		work.Add(Expand<u16>(pattern, MakeRecords(21), sizeof(u16)));
	}
	FillFromUncommonStrides(work);
	work.m_Hazards = Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards - hazardsBefore;
	return work;
}

// Runs work(thread) on all threads, which start it at one moment.
template<typename _Work>
void RunAtOnce(const _Work &work)
{
	std::atomic<u32> ready = 0;
	std::vector<std::thread> threads;
	for (u32 thread = 0; thread < kThreads; ++thread)
	{
		threads.emplace_back(
			[&ready, &work, thread]
			{
				for (++ready; ready != kThreads;)
					std::this_thread::yield();
				work(thread);
			});
	}
	for (std::thread &thread : threads)
		thread.join();
}

std::vector<SWork> SortEverythingAtOnce()
{
	std::vector<SWork> works(kThreads);
	RunAtOnce([&works](u32 thread) { works[thread] = SortEverything(); });
	return works;
}

// A site of its own, so that no other test finds it asleep.
void BreakACondition([[maybe_unused]] u32 one)
{
	VX_ASSERT(one == 0);
}
} // namespace

TEST(Threads, FirstSortsAtOnce_WriteWhatOneThreadWrites)
{
	const CWarningRecorder warnings;
	const std::vector<SWork> works = SortEverythingAtOnce();

	u32 touches = 0;
	for (const CLogUniqueCollection::SEntry &entry : warnings.Entries())
	{
		EXPECT_EQ(entry.m_TouchCount % kThreads, 0u) << entry.m_Key;
		touches += entry.m_TouchCount;
	}
	std::vector<int> sites = warnings.Sites();
	std::sort(sites.begin(), sites.end());
	EXPECT_EQ(
		sites, (std::vector<int>{248, 328, 477, 556, 579, 840, 925, 1148, 1200, 1277, 1346, 1776, 1950, 2129, 2315}));

	const SWork alone = SortEverything();
	EXPECT_EQ(alone.m_Hazards * kThreads, touches);
	for (const SWork &work : works)
	{
		EXPECT_EQ(work.m_Written, alone.m_Written);
		EXPECT_EQ(work.m_Hazards, alone.m_Hazards);
	}
}

// Sorts of many pages that warn, at one moment and again: no page's touch is lost on the way to the collection.
TEST(Threads, PagesThatWarn_AllCount)
{
	constexpr u32 kPages = 300, kSorts = 5;
	const CWarningRecorder warnings;
	RunAtOnce(
		[](u32)
		{
			const CFloat4 position;
			const std::vector<TStridedMemoryView<const CFloat3>> positions(kPages,
				TStridedMemoryView<const CFloat3>(reinterpret_cast<const CFloat3 *>(&position), 1, sizeof(CFloat4)));
			const std::vector<TStridedMemoryView<const u8>> enableds(kPages);
			const std::vector<u32> counts(kPages, 1);
			u32 pattern[] = {0};
			std::vector<u32> indices(kPages);
			CTriangleSorter sorter;
			sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(indices.data(), kPages), kPages);
			sorter.Setup_InputPageCache(TMemoryView<const TStridedMemoryView<const CFloat3>>(positions.data(), kPages),
				TMemoryView<const TStridedMemoryView<const u8>>(enableds.data(), kPages),
				TMemoryView<const u32>(counts.data(), kPages), kPages, CFloat3());
			sorter.Setup_Geometry(TMemoryView<u32>(pattern, 1), 1);
			for (u32 i = 0; i < kSorts; ++i)
				sorter.SortPoints_AutogenIndices(null);
		});
	ASSERT_EQ(warnings.Sites(), (std::vector<int>{1776}));
	EXPECT_EQ(warnings.Entries()[0].m_TouchCount, kThreads * kSorts * kPages);
}

// One call in C, but for the output, on all threads at once: bare and checked, with the allocator's working buffers.
TEST(Threads, SortsThroughC_ShareOneCall)
{
	constexpr u32 kCount = 500;
	std::vector<float> values(kCount);
	for (u32 i = 0; i < kCount; ++i)
		values[i] = float(i * 7 % kCount);
	const vexmoor_view page = {values.data(), kCount, sizeof(float)};
	vexmoor_call shared = {};
	shared.struct_size = sizeof(shared);
	shared.index_capacity = kCount;
	shared.values = &page;
	shared.page_count = 1;
	std::vector<std::vector<u32>> outputs(kThreads, std::vector<u32>(kCount));
	RunAtOnce(
		[&shared, &outputs](u32 thread)
		{
			vexmoor_call call = shared;
			call.indices = outputs[thread].data();
			const vexmoor_result result =
				thread % 2 == 0 ? vexmoor_sort_points(&call) : vexmoor_sort_checked(&call, nullptr, nullptr);
			EXPECT_EQ(result, VEXMOOR_OK);
		});
	for (const std::vector<u32> &output : outputs)
	{
		for (u32 rank = 0; rank < kCount; ++rank)
			ASSERT_EQ(values[output[rank]], float(rank));
	}
}

// Scopes of all threads go to one handler, which keeps its own count.
TEST(Threads, ScopesOfManyThreads_AllReachTheHandler)
{
	struct SScopes
	{
		std::atomic<u32> m_Entered = 0, m_Left = 0;
	} scopes;
	const auto count = [](const Profiler::SNodeDescriptor &, bool entering, void *counted)
	{
		SScopes &seen = *static_cast<SScopes *>(counted);
		++(entering ? seen.m_Entered : seen.m_Left);
	};
	const CWarningRecorder warnings;
	Profiler::MainEngineProfiler()->SetScopeHandler(count, &scopes);
	SortEverything();
	const u32 scopesOfOne = scopes.m_Entered;
	SortEverythingAtOnce();
	Profiler::MainEngineProfiler()->SetScopeHandler(null, null);
	EXPECT_GT(scopesOfOne, 0u);
	EXPECT_EQ(scopes.m_Entered, scopesOfOne * (1 + kThreads));
	EXPECT_EQ(scopes.m_Left, scopes.m_Entered);
}

// Each of those that come before the first answer may report; nobody does after it.
TEST(Threads, ConditionBrokenAtOnce_IsIgnoredByAllAfterTheFirstAnswer)
{
	std::atomic<u32> reports = 0;
	Assert::SetReportHandler(
		[](const Assert::SReport &, void *count) -> int
		{
			++*static_cast<std::atomic<u32> *>(count);
			return Assert::Decision_Ignore;
		},
		&reports);
	RunAtOnce(
		[](u32)
		{
			for (u32 i = 0; i < 100; ++i)
				BreakACondition(1);
		});
	const u32 reportsAtOnce = reports;
	BreakACondition(1);
	Assert::SetReportHandler(null, null);
	EXPECT_GE(reportsAtOnce, VX_ASSERTIONS ? 1u : 0u);
	EXPECT_LE(reportsAtOnce, VX_ASSERTIONS ? kThreads : 0u);
	EXPECT_EQ(reports, reportsAtOnce);
}
