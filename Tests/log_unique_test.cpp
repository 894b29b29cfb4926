// Log-once warnings: the collection behind them, the process-wide registry, and the hazards that each thread counts.

#include "ge_mesh_triangle_sorter.h"

#include "kr_log_unique.h"
#include "kr_profiler.h"

#include "diagnostics.h"
#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <iterator>
#include <thread>

using namespace Vexmoor;
using namespace Support;

namespace
{
void KeepQuiet(const CLogUniqueCollection::SEntry &, void *) {}

void NoteMessage(const CLogUniqueCollection::SEntry &entry, void *messages)
{
	static_cast<std::vector<std::string> *>(messages)->push_back(entry.m_Key + ": " + entry.m_Message);
}
} // namespace

// Entries stay in the order of their first touch, not of their keys or counts.
TEST(LogUnique, TouchesOfAKey_CountAndKeepTheFirstMessage)
{
	CLogUniqueCollection collection;
	collection.SetFirstTouchHandler(&KeepQuiet, null);
	EXPECT_TRUE(collection.Snapshot().empty());
	collection.Touch("b", "first of b");
	collection.Touch("a", "first of a");
	collection.Touch("b", "second of b");
	collection.Touch("B", "another key");
	collection.Touch("bb", "one that begins like another");
	collection.Touch("b", "third of b");
	collection.Touch("", "that all begin with");
	EXPECT_EQ(
		Contents(collection), (std::vector<std::string>{"b: first of b x 3", "a: first of a x 1", "B: another key x 1",
								  "bb: one that begins like another x 1", ": that all begin with x 1"}));
}

TEST(LogUnique, Keys_AreComparedAsText)
{
	CLogUniqueCollection collection;
	collection.SetFirstTouchHandler(&KeepQuiet, null);
	const std::string key = "[l.1] @ file.cpp";
	const std::string sameKey = key; // at another address
	collection.Touch(key.c_str(), "message");
	collection.Touch(sameKey.c_str(), "message");
	EXPECT_EQ(Contents(collection), (std::vector<std::string>{key + ": message x 2"}));
}

TEST(LogUnique, Clear_MakesTheNextTouchAFirstOne)
{
	std::vector<std::string> firstTouches;
	CLogUniqueCollection collection;
	collection.SetFirstTouchHandler(&NoteMessage, &firstTouches);
	collection.Touch("a", "first");
	collection.Touch("a", "second");
	collection.Clear();
	EXPECT_TRUE(collection.Snapshot().empty());
	collection.Touch("a", "third");
	EXPECT_EQ(Contents(collection), (std::vector<std::string>{"a: third x 1"}));
	EXPECT_EQ(firstTouches, (std::vector<std::string>{"a: first", "a: third"}));
}

// The handler takes the place of the line, and gives it back.
TEST(LogUnique, FirstTouch_PrintsOneLineByDefault)
{
	CLogUniqueCollection collection;
	testing::internal::CaptureStderr();
	collection.Touch("a", "Render sort: slow");
	collection.Touch("a", "Render sort: slow");
	const std::string once = testing::internal::GetCapturedStderr();
	EXPECT_EQ(std::count(once.begin(), once.end(), '\n'), 1) << once;
	EXPECT_NE(once.find("Render sort: slow"), std::string::npos) << once;

	std::vector<std::string> firstTouches;
	testing::internal::CaptureStderr();
	collection.SetFirstTouchHandler(&NoteMessage, &firstTouches);
	collection.Touch("b", "replaced");
	collection.SetFirstTouchHandler(null, null);
	collection.Touch("c", "printed again");
	const std::string twice = testing::internal::GetCapturedStderr();
	EXPECT_EQ(std::count(twice.begin(), twice.end(), '\n'), 1) << twice;
	EXPECT_NE(twice.find("printed again"), std::string::npos) << twice;
	EXPECT_EQ(firstTouches, (std::vector<std::string>{"b: replaced"}));
}

// It is called outside the lock: a handler that looks at all warnings does not wait for itself.
TEST(LogUnique, FirstTouchHandler_MayUseTheCollection)
{
	CLogUniqueCollection collection;
	collection.SetFirstTouchHandler(
		[](const CLogUniqueCollection::SEntry &entry, void *self)
		{
			EXPECT_EQ(entry.m_TouchCount, 1u);
			CLogUniqueCollection *const touched = static_cast<CLogUniqueCollection *>(self);
			EXPECT_EQ(touched->Snapshot().size(), 1u);
			touched->Touch(entry.m_Key.c_str(), "from the handler");
		},
		&collection);
	collection.Touch("a", "first");
	EXPECT_EQ(Contents(collection), (std::vector<std::string>{"a: first x 2"}));
}

// Most of the trouble is at first touches, so there are many keys and many fresh collections.
TEST(LogUnique, ThreadsTouchingAtOnce_LoseNoTouch)
{
	constexpr u32 kThreads = 4, kCollections = 200, kKeys = 40, kTouchesPerThread = 3;
	for (u32 i = 0; i < kCollections; ++i)
	{
		CLogUniqueCollection collection;
		std::atomic<u32> firstTouches = 0, ready = 0;
		collection.SetFirstTouchHandler([](const CLogUniqueCollection::SEntry &, void *count)
			{ ++*static_cast<std::atomic<u32> *>(count); },
			&firstTouches);
		std::thread threads[kThreads];
		for (std::thread &thread : threads)
		{
			thread = std::thread(
				[&collection, &ready]
				{
					for (++ready; ready != kThreads;) // all at the starting line
						std::this_thread::yield();
					for (u32 touch = 0; touch < kTouchesPerThread * kKeys; ++touch)
						collection.Touch(std::to_string(touch % kKeys).c_str(), "message");
				});
		}
		for (std::thread &thread : threads)
			thread.join();
		const std::vector<CLogUniqueCollection::SEntry> entries = collection.Snapshot();
		ASSERT_EQ(entries.size(), kKeys);
		for (const CLogUniqueCollection::SEntry &entry : entries)
			ASSERT_EQ(entry.m_TouchCount, kThreads * kTouchesPerThread);
		ASSERT_EQ(firstTouches, kKeys);
	}
}

TEST(LogUnique, SnapshotsWhileAThreadTouches_HoldWholeEntries)
{
	constexpr std::size_t kKeyCount = 200;
	CLogUniqueCollection collection;
	collection.SetFirstTouchHandler([](const CLogUniqueCollection::SEntry &, void *) {}, null);
	std::thread thread(
		[&collection]
		{
			for (std::size_t i = 0; i < kKeyCount; ++i)
				collection.Touch(std::to_string(i).c_str(), "a message");
		});
	for (std::size_t count = 0; count < kKeyCount;)
	{
		const std::vector<CLogUniqueCollection::SEntry> entries = collection.Snapshot();
		EXPECT_GE(entries.size(), count);
		count = entries.size();
		for (std::size_t i = 0; i < count; ++i)
			EXPECT_EQ(entries[i].m_Key, std::to_string(i));
	}
	thread.join();
}

TEST(PerformanceWarning, Registry_IsTheProcessWideCollection)
{
	ASSERT_NE(CPerfHotspotsRegistry::Registry(), nullptr);
	EXPECT_EQ(CPerfHotspotsRegistry::Registry(), CPerfHotspotsRegistry::m_Registry);
	CLogUniqueCollection own;
	own.SetFirstTouchHandler(&KeepQuiet, null);
	CLogUniqueCollection *const before = CPerfHotspotsRegistry::m_Registry;
	CPerfHotspotsRegistry::m_Registry = &own;
	VX_WARN_ONCE("[l.1]", "Render sort: to a host's own collection");
	CPerfHotspotsRegistry::m_Registry = before;
	EXPECT_EQ(own.Snapshot().size(), 1u);
}

// No flag at the site remembers an earlier warning: every slow path that is taken counts.
TEST(PerformanceWarning, EveryFrame_OneEntryAndAHazardEachTime)
{
	const CWarningRecorder recorder;
	for (u32 frame = 1; frame <= 5; ++frame)
	{
		VX_WARN_ONCE("[l.12]", "Render sort: slow path");
		EXPECT_EQ(recorder.Hazards(), frame);
		ASSERT_EQ(recorder.Entries().size(), 1u);
		EXPECT_EQ(recorder.Entries()[0].m_TouchCount, frame);
	}
	EXPECT_EQ(recorder.Entries()[0].m_Key, "[l.12] @ " __FILE__);
	EXPECT_EQ(recorder.Entries()[0].m_Message, "Render sort: slow path");
}

// The number in the key is the site's name for hosts that filter. It does not follow the line.
TEST(PerformanceWarning, OfTheSorter_CarriesSiteAndPath)
{
	const CWarningRecorder recorder;
	CExpectReports noReports;
	const u32 pattern[6] = {0, 1, 2, 0, 2, 3};
	alignas(16) const SIndexAndDepth records[2] = {
		{0, 0},
        {0, 4}
    };
	const CFloat4 quadCenters[32];
	u16 output[12];
	for (u32 frame = 0; frame < 3; ++frame)
	{
		CTriangleSorter::ExpandAndSortIndices(TMemoryView<const u32>(pattern, 6),
			TMemoryView<const CFloat4>(quadCenters, 32), CFloat3(), records, output, 2, 4);
	}
	ASSERT_EQ(recorder.Entries().size(), 1u);
	EXPECT_EQ(
		recorder.Entries()[0].m_Key, "[l.1277] @ ../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp");
	EXPECT_EQ(recorder.Entries()[0].m_Message, "Render sort: Very slow tube quad sorter");
	EXPECT_EQ(recorder.Entries()[0].m_TouchCount, 3u);
	EXPECT_EQ(recorder.Hazards(), 3u);
}

TEST(Hazards, EachThread_CountsItsOwn)
{
	const CWarningRecorder recorder;
	Profiler::CHazards *const ours = &Profiler::CHazards::CurrentThreadHazards();
	EXPECT_EQ(ours, &Profiler::CHazards::CurrentThreadHazards());
	VX_WARN_ONCE("[l.1]", "here");
	u32 atStart = 1, atEnd = 0;
	const void *theirs = ours;
	std::thread thread(
		[&]
		{
			theirs = &Profiler::CHazards::CurrentThreadHazards();
			atStart = Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards;
			VX_WARN_ONCE("[l.2]", "there");
			VX_WARN_ONCE("[l.2]", "there");
			atEnd = Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards;
		});
	thread.join();
	EXPECT_NE(theirs, ours);
	EXPECT_EQ(atStart, 0u);
	EXPECT_EQ(atEnd, 2u);
	EXPECT_EQ(recorder.Hazards(), 1u);
}

// Static objects of a host sort before this library's own static members are set.
// What jobs do is told by the thread that shares them out.
TEST(LogUnique, SilentBatches_DropWhatIsWarnedOf)
{
	const CWarningRecorder warnings;
	constexpr const char *kKnown = "known";
	constexpr const char *kNew = "new";
	WarnAtSite(kKnown, "a warning");
	{
		const CWarningBatch silent(CWarningBatch::Mode_Silent);
		WarnAtSite(kKnown, "a warning");
		{
			const CWarningBatch inner;
			WarnAtSite(kKnown, "a warning");
			WarnAtSite(kNew, "another");
		}
		WarnAtSite(kNew, "another");
	}
	EXPECT_EQ(Contents(*CPerfHotspotsRegistry::Registry()), (std::vector<std::string>{"known: a warning x 1"}));
	EXPECT_EQ(warnings.Hazards(), 1u);
	WarnAtSite(kKnown, "a warning");
	EXPECT_EQ(Contents(*CPerfHotspotsRegistry::Registry()), (std::vector<std::string>{"known: a warning x 2"}));
	EXPECT_EQ(warnings.Hazards(), 2u);
}

TEST(LogUnique, RegistryBeforeItsPointerIsSet_IsTheSame)
{
	CLogUniqueCollection *const registry = CPerfHotspotsRegistry::Registry();
	ASSERT_EQ(CPerfHotspotsRegistry::m_Registry, registry);
	CPerfHotspotsRegistry::m_Registry = null;
	EXPECT_EQ(CPerfHotspotsRegistry::Registry(), registry);
	CPerfHotspotsRegistry::m_Registry = registry;
}

// First touches are told at once, in their order; what comes after them, when the batch ends.
TEST(WarningBatch, TouchesOfKnownSites_ReachTheCollectionAtItsEnd)
{
	CLogUniqueCollection own;
	std::vector<std::string> firstTouches;
	own.SetFirstTouchHandler(&NoteMessage, &firstTouches);
	const CReplacedRegistry replaced(own);
	const u32 hazardsBefore = Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards;
	{
		const CWarningBatch batch;
		for (u32 page = 0; page < 10; ++page)
		{
			WarnAtSite("b", "first of b");
			EXPECT_EQ(firstTouches.size(), page == 0 ? 1 : 2u);
			WarnAtSite("a", "first of a");
			EXPECT_EQ(Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards - hazardsBefore, 2 * (page + 1));
		}
		own.Touch("c", "a host's own, meanwhile");
	}
	EXPECT_EQ(Contents(own),
		(std::vector<std::string>{"b: first of b x 10", "a: first of a x 10", "c: a host's own, meanwhile x 1"}));
	EXPECT_EQ(firstTouches, (std::vector<std::string>{"b: first of b", "a: first of a", "c: a host's own, meanwhile"}));
	{
		const CWarningBatch batch;
		WarnAtSite("a", "again");
		const CWarningBatch inner;
		WarnAtSite("a", "again");
		WarnAtSite("a", "again");
	}
	WarnAtSite("a", "again");
	EXPECT_EQ(Contents(own)[1], "a: first of a x 14");
}

TEST(WarningBatch, MoreSitesThanItHolds_AllCount)
{
	static const char *const s_Keys[] = {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11"};
	const CWarningRecorder recorder;
	{
		const CWarningBatch batch;
		for (u32 page = 0; page < 10; ++page)
		{
			for (const char *const key : s_Keys)
				WarnAtSite(key, "message");
		}
	}
	ASSERT_EQ(recorder.Entries().size(), std::size(s_Keys));
	for (const CLogUniqueCollection::SEntry &entry : recorder.Entries())
		EXPECT_EQ(entry.m_TouchCount, 10u) << entry.m_Key;
}

// The message that comes with the late first touch is not the caller's any more.
TEST(WarningBatch, CollectionClearedMeanwhile_HasAFirstTouchAtTheEnd)
{
	std::vector<std::string> firstTouches;
	CLogUniqueCollection own;
	own.SetFirstTouchHandler(&NoteMessage, &firstTouches);
	const CReplacedRegistry replaced(own);
	{
		const CWarningBatch batch;
		for (u32 page = 0; page < 10; ++page)
		{
			const CShortString message = CShortString::Format("page %u", page);
			WarnAtSite("a", message.Data());
			if (page == 6)
				own.Clear();
		}
	}
	EXPECT_EQ(Contents(own), (std::vector<std::string>{"a: page 1 x 8"}));
	EXPECT_EQ(firstTouches, (std::vector<std::string>{"a: page 0", "a: page 1"}));
}

// A handler is where a host may do anything.
TEST(WarningBatch, HandlerThatClearsOrReplacesTheCollection_SeesTheNextTouchAtOnce)
{
	struct SHost
	{
		CLogUniqueCollection m_First, m_Second;
		std::vector<std::string> m_FirstTouches;
	} host;
	const CReplacedRegistry replaced(host.m_First);
	host.m_First.SetFirstTouchHandler(
		[](const CLogUniqueCollection::SEntry &entry, void *userData)
		{
			SHost &seen = *static_cast<SHost *>(userData);
			seen.m_FirstTouches.push_back("first, " + entry.m_Message);
			if (seen.m_FirstTouches.size() < 3)
				seen.m_First.Clear();
			else
				CPerfHotspotsRegistry::m_Registry = &seen.m_Second;
		},
		&host);
	host.m_Second.SetFirstTouchHandler([](const CLogUniqueCollection::SEntry &entry, void *userData)
		{ static_cast<SHost *>(userData)->m_FirstTouches.push_back("second, " + entry.m_Message); },
		&host);
	{
		const CWarningBatch batch;
		for (u32 page = 0; page < 10; ++page)
		{
			const CShortString message = CShortString::Format("page %u", page);
			WarnAtSite("a", message.Data());
		}
	}
	EXPECT_EQ(host.m_FirstTouches,
		(std::vector<std::string>{"first, page 0", "first, page 1", "first, page 2", "second, page 3"}));
	EXPECT_EQ(Contents(host.m_First), (std::vector<std::string>{"a: page 2 x 1"}));
	EXPECT_EQ(Contents(host.m_Second), (std::vector<std::string>{"a: page 3 x 7"}));
}
