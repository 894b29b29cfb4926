// The scope recorder: what it keeps, what it drops, and that its traces are JSON that says so.

#include "kr_profiler_recorder.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace Vexmoor;
using nlohmann::json;
using Profiler::CTraceRecorder;
using Profiler::SNodeDescriptor;

namespace
{
const SNodeDescriptor kOuter("outer", "outer.cpp", CFloat3(), SNodeDescriptor::None);
const SNodeDescriptor kInner("inner", "inner.cpp", CFloat3(), SNodeDescriptor::None);

constexpr u32 kScopesPerBlock = 170;

class CMemory
{
public:
	explicit CMemory(u64 blockCount, u64 offset = 0)
		: m_Bytes(blockCount * CTraceRecorder::kBlockSize + 64 + 64, 0xCD)
	{
		const ureg address = reinterpret_cast<ureg>(m_Bytes.data());
		m_Start = m_Bytes.data() + (0 - address) % 64 + offset;
	}
	u8 *Start() const { return m_Start; }

private:
	std::vector<u8> m_Bytes;
	u8 *m_Start;
};

// A recorder with room for a number of blocks, and a profiler that feeds it.
class CRecording
{
public:
	explicit CRecording(u64 blockCount)
		: m_Memory(blockCount)
		, m_Recorder(m_Memory.Start(), blockCount * CTraceRecorder::kBlockSize)
	{
		m_Profiler.SetScopeHandler(CTraceRecorder::OnScope, &m_Recorder);
	}

	void Enter(const SNodeDescriptor &node) { m_Profiler.Enter(node); }
	void Leave(const SNodeDescriptor &node) { m_Profiler.Leave(node); }
	void Scopes(u32 count)
	{
		for (u32 i = 0; i < count; ++i)
			const Profiler::CScopedNode scope(&m_Profiler, kOuter);
	}
	Profiler::CProfiler *Profiler() { return &m_Profiler; }
	CTraceRecorder &Recorder() { return m_Recorder; }

	std::string Text() const
	{
		std::string text;
		const auto append = [](const void *bytes, u64 size, void *to)
		{
			static_cast<std::string *>(to)->append(static_cast<const char *>(bytes), size);
			return true;
		};
		EXPECT_TRUE(m_Recorder.WriteChromeTrace(append, &text));
		return text;
	}
	json Trace() const { return json::parse(Text()); }
	// Without the threads' names.
	std::vector<json> Events() const
	{
		const json trace = Trace();
		std::vector<json> events;
		for (const json &event : trace["traceEvents"])
		{
			if (event["ph"] != "M")
				events.push_back(event);
		}
		return events;
	}

private:
	CMemory m_Memory;
	CTraceRecorder m_Recorder;
	Profiler::CProfiler m_Profiler;
};

double End(const json &event)
{
	return event["ts"].get<double>() + event["dur"].get<double>();
}
} // namespace

TEST(TraceRecorder, WithoutScopes_WritesATraceOfNone)
{
	const CRecording recording(2);
	EXPECT_EQ(recording.Trace(),
		json({
			{"displayTimeUnit", "ns"                  },
            {"otherData",       {{"droppedScopes", 0}}},
            {"traceEvents",     json::array()         }
    }));
}

// Parents come before their children, so that viewers nest scopes that begin in the same nanosecond.
TEST(TraceRecorder, NestedScopes_AreWholeAndInOrderOfEntering)
{
	CRecording recording(3);
	recording.Enter(kOuter);
	recording.Enter(kInner);
	recording.Leave(kInner);
	recording.Enter(kInner);
	recording.Leave(kInner);
	recording.Leave(kOuter);

	const std::vector<json> events = recording.Events();
	ASSERT_EQ(events.size(), 3u);
	EXPECT_EQ(events[0]["name"], "outer");
	EXPECT_EQ(events[1]["name"], "inner");
	EXPECT_EQ(events[2]["name"], "inner");
	EXPECT_EQ(events[0]["args"]["file"], "outer.cpp");
	for (const json &event : events)
	{
		EXPECT_EQ(event["ph"], "X");
		EXPECT_EQ(event["pid"], 1);
		EXPECT_EQ(event["tid"], 1);
	}
	EXPECT_LE(events[0]["ts"], events[1]["ts"]);
	EXPECT_LE(End(events[1]), events[2]["ts"].get<double>() + 0.0005);
	EXPECT_LE(End(events[2]), End(events[0]) + 0.0005);
	EXPECT_EQ(recording.Recorder().DroppedCount(), 0u);
}

TEST(TraceRecorder, Times_AreMicrosecondsWithAFraction)
{
	CRecording recording(2);
	const auto before = std::chrono::steady_clock::now();
	recording.Enter(kOuter);
	std::this_thread::sleep_for(std::chrono::milliseconds(2));
	recording.Leave(kOuter);
	const std::chrono::duration<double, std::micro> elapsed = std::chrono::steady_clock::now() - before;

	const double length = recording.Events().at(0)["dur"];
	EXPECT_GE(length, 2000.0);
	EXPECT_LE(length, elapsed.count());
	const std::string text = recording.Text();
	const std::size_t duration = text.find("\"dur\":");
	const std::size_t point = text.find('.', duration);
	ASSERT_NE(point, std::string::npos);
	EXPECT_EQ(text.find_first_not_of("0123456789", point + 1), point + 4);
}

TEST(TraceRecorder, OpenScope_BeginsAndDoesNotEnd)
{
	CRecording recording(2);
	recording.Enter(kOuter);
	recording.Enter(kInner);
	recording.Leave(kInner);
	const std::vector<json> events = recording.Events();
	ASSERT_EQ(events.size(), 2u);
	EXPECT_EQ(events[0]["ph"], "B");
	EXPECT_FALSE(events[0].contains("dur"));
	EXPECT_EQ(events[1]["ph"], "X");
}

// What a hook hears that is set while scopes are open, or taken away.
TEST(TraceRecorder, UnmatchedScopes_DoNotDisturbTheRest)
{
	CRecording recording(2);
	recording.Leave(kInner);
	recording.Enter(kOuter);
	recording.Leave(kInner);
	recording.Enter(kInner); // never left
	recording.Leave(kOuter);
	recording.Leave(kOuter);
	recording.Enter(kInner);
	recording.Leave(kInner);

	const std::vector<json> events = recording.Events();
	ASSERT_EQ(events.size(), 3u);
	EXPECT_EQ(events[0]["name"], "outer");
	EXPECT_EQ(events[0]["ph"], "X");
	EXPECT_EQ(events[1]["name"], "inner");
	EXPECT_EQ(events[1]["ph"], "B");
	EXPECT_EQ(events[2]["name"], "inner");
	EXPECT_EQ(events[2]["ph"], "X");
	EXPECT_EQ(recording.Recorder().DroppedCount(), 0u);
}

// One block for the thread, the others for its scopes.
TEST(TraceRecorder, FullMemory_KeepsTheFirstScopesAndCountsTheRest)
{
	CRecording recording(3);
	recording.Scopes(2 * kScopesPerBlock);
	EXPECT_EQ(recording.Recorder().DroppedCount(), 0u);
	recording.Enter(kInner);
	recording.Scopes(6);
	recording.Leave(kInner);

	EXPECT_EQ(recording.Recorder().DroppedCount(), 7u);
	EXPECT_EQ(recording.Trace()["otherData"]["droppedScopes"], 7);
	const std::vector<json> events = recording.Events();
	ASSERT_EQ(events.size(), 2 * kScopesPerBlock);
	for (const json &event : events)
	{
		EXPECT_EQ(event["name"], "outer");
		EXPECT_EQ(event["ph"], "X");
	}
}

// A scope that was recorded before the memory was used up gets its end.
TEST(TraceRecorder, FullMemory_StillEndsWhatItHolds)
{
	CRecording recording(2);
	recording.Enter(kInner);
	recording.Scopes(kScopesPerBlock + 5);
	recording.Leave(kInner);
	EXPECT_EQ(recording.Recorder().DroppedCount(), 6u);
	EXPECT_EQ(recording.Events().at(0)["name"], "inner");
	EXPECT_EQ(recording.Events().at(0)["ph"], "X");
}

TEST(TraceRecorder, TooLittleMemory_DropsEverything)
{
	for (const u64 sizeInBytes : {u64(0), u64(63), u64(CTraceRecorder::kBlockSize - 1)})
	{
		CMemory memory(1);
		CTraceRecorder recorder(memory.Start(), sizeInBytes);
		recorder.NameThread("nobody");
		CTraceRecorder::OnScope(kOuter, true, &recorder);
		CTraceRecorder::OnScope(kOuter, false, &recorder);
		EXPECT_EQ(recorder.DroppedCount(), 1u);
	}
	CTraceRecorder none(null, 0);
	CTraceRecorder::OnScope(kOuter, true, &none);
	EXPECT_EQ(none.DroppedCount(), 1u);
}

// The bytes around it are somebody else's.
TEST(TraceRecorder, MemoryOfAnyAddress_IsUsedWithinItsBounds)
{
	// As many bytes as skipping to a multiple of 64 may take, and none: then there is room for one block less.
	for (const u64 spareBytes : {63u, 0u})
	{
		const u64 size = 3 * CTraceRecorder::kBlockSize + spareBytes;
		for (u64 offset = 0; offset < 64; ++offset)
		{
			std::vector<u8> bytes(size + 128, 0xCD);
			u8 *const start = bytes.data() + offset;
			const u64 skipped = (0 - reinterpret_cast<ureg>(start)) % 64;
			{
				CTraceRecorder recorder(start, size);
				for (u32 i = 0; i < 3 * kScopesPerBlock; ++i)
				{
					CTraceRecorder::OnScope(kOuter, true, &recorder);
					CTraceRecorder::OnScope(kOuter, false, &recorder);
				}
				EXPECT_EQ(recorder.DroppedCount(), (skipped <= spareBytes ? 1 : 2) * kScopesPerBlock);
			}
			const auto isUntouched = [](u8 byte) { return byte == 0xCD; };
			EXPECT_TRUE(std::all_of(bytes.data(), start + skipped, isUntouched));
			EXPECT_TRUE(std::all_of(start + size, bytes.data() + bytes.size(), isUntouched));
		}
	}
}

TEST(TraceRecorder, ScopesNestedTooDeep_AreDroppedAndTheRestIsWhole)
{
	CRecording recording(3);
	constexpr u32 kDepth = CTraceRecorder::kMaxDepth + 3;
	for (u32 i = 0; i < kDepth; ++i)
		recording.Enter(kOuter);
	for (u32 i = CTraceRecorder::kMaxDepth; i < kDepth; ++i)
		recording.Leave(kOuter);
	for (const json &event : recording.Events())
		EXPECT_EQ(event["ph"], "B") << "the end of a dropped scope ends no other";
	for (u32 i = 0; i < CTraceRecorder::kMaxDepth; ++i)
		recording.Leave(kOuter);
	EXPECT_EQ(recording.Recorder().DroppedCount(), 3u);
	const std::vector<json> events = recording.Events();
	ASSERT_EQ(events.size(), CTraceRecorder::kMaxDepth);
	EXPECT_EQ(events[0]["ph"], "X");
	for (u32 i = 1; i < events.size(); ++i)
	{
		ASSERT_EQ(events[i]["ph"], "X") << i;
		EXPECT_LE(End(events[i]), End(events[i - 1]) + 0.0005);
	}
}

// A scope for which there is no memory, inside one of the same site that was recorded before the memory ran out.
TEST(TraceRecorder, EndOfADroppedScope_EndsNoneAroundIt)
{
	CRecording recording(2);
	recording.Scopes(kScopesPerBlock - 1);
	recording.Enter(kInner);
	recording.Enter(kInner);
	EXPECT_EQ(recording.Recorder().DroppedCount(), 1u);
	recording.Leave(kInner);
	EXPECT_EQ(recording.Events().back()["ph"], "B") << "the outer one is open";
	recording.Leave(kInner);
	EXPECT_EQ(recording.Events().back()["ph"], "X");
}

// As where a hook is taken away and set again in the middle of things.
TEST(TraceRecorder, ScopeLeftWithOthersInside_IsTheInnermostOfItsSiteNoMore)
{
	CRecording recording(6);
	for (u32 i = 0; i < 2 * CTraceRecorder::kMaxDepth; ++i)
	{
		recording.Enter(kOuter);
		recording.Enter(kInner);
		recording.Leave(kOuter);
	}
	EXPECT_EQ(recording.Recorder().DroppedCount(), 0u) << "what nobody ends takes no room among the open ones";
	for (const json &event : recording.Events())
		EXPECT_EQ(event["ph"], event["name"] == "outer" ? "X" : "B");
}

TEST(TraceRecorder, Texts_AreEscaped)
{
	const struct
	{
		const char *m_Text;
		const char *m_Read; // by a JSON parser
	} rows[] = {
		{"",                                                            ""                                                   },
		{"\"quotes\" and \\backslashes\\",                              "\"quotes\" and \\backslashes\\"                     },
		{"tab\t, line\n, bell\a, delete\x7F",                           "tab\t, line\n, bell\a, delete\x7F"                  },
		{"\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\x86 \xEF\xBF\xBF",         "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\x86 \xEF\xBF\xBF"},
		{"\xF4\x8F\xBF\xBF \xED\x9F\xBF \xE0\xA0\x80 \xF0\x90\x80\x80",
         "\xF4\x8F\xBF\xBF \xED\x9F\xBF \xE0\xA0\x80 \xF0\x90\x80\x80"                                                       },
		{"\x80",                                                        "\xEF\xBF\xBD"                                       }, // not UTF-8
		{"a\xC3",                                                       "a\xEF\xBF\xBD"                                      },
		{"\xE2\x82",                                                    "\xEF\xBF\xBD\xEF\xBF\xBD"                           },
		{"\xC0\xAF",                                                    "\xEF\xBF\xBD\xEF\xBF\xBD"                           }, // overlong
		{"\xE0\x9F\xBF",                                                "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"               },
		{"\xED\xA0\x80",                                                "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"               }, // a surrogate
		{"\xF4\x90\x80\x80",                                            "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"   },
		{"\xFF",                                                        "\xEF\xBF\xBD"                                       },
		{"\xC2\x80 \xDF\xBF \xE1\x80\x80 \xEE\x80\x80",                 "\xC2\x80 \xDF\xBF \xE1\x80\x80 \xEE\x80\x80"        },
		{"\xF1\x80\x80\x80 \xF3\xBF\xBF\xBF",                           "\xF1\x80\x80\x80 \xF3\xBF\xBF\xBF"                  },
		{"\x80\x80\x80\x80",                                            "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"   }, // begins no character
		{"\xC1\xBF",                                                    "\xEF\xBF\xBD\xEF\xBF\xBD"                           },
		{"\xF5\x80\x80\x80",                                            "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"   },
	};
	for (const auto &row : rows)
	{
		CRecording recording(2);
		const SNodeDescriptor node(row.m_Text, row.m_Text, CFloat3(), SNodeDescriptor::None);
		recording.Recorder().NameThread(row.m_Text);
		recording.Enter(node);
		recording.Leave(node);
		const json trace = recording.Trace();
		EXPECT_EQ(trace["traceEvents"][0]["args"]["name"], row.m_Read);
		EXPECT_EQ(trace["traceEvents"][1]["name"], row.m_Read);
		EXPECT_EQ(trace["traceEvents"][1]["args"]["file"], row.m_Read);
	}
}

// Longer than what is handed over at a time.
TEST(TraceRecorder, LongTexts_AreWhole)
{
	const std::string name(20000, 'n');
	const SNodeDescriptor node(name.c_str(), "path", CFloat3(), SNodeDescriptor::None);
	CRecording recording(2);
	recording.Enter(node);
	recording.Leave(node);
	EXPECT_EQ(recording.Events().at(0)["name"], name);
}

TEST(TraceRecorder, Threads_HaveNumbersAndNames)
{
	CRecording recording(8);
	recording.Recorder().NameThread("render");
	recording.Scopes(1);
	std::thread([&] { recording.Scopes(2); }).join();
	std::thread(
		[&]
		{
			recording.Scopes(3);
			recording.Recorder().NameThread("worker");
		})
		.join();

	const json trace = recording.Trace();
	std::map<int, std::string> names;
	for (const json &event : trace["traceEvents"])
	{
		if (event["ph"] == "M")
			names[event["tid"]] = event["args"]["name"];
	}
	EXPECT_EQ(names, (std::map<int, std::string>{
						 {1, "render"  },
                         {2, "thread 2"},
                         {3, "worker"  }
    }));
	std::map<int, int> scopes;
	for (const json &event : recording.Events())
		++scopes[event["tid"]];
	EXPECT_EQ(scopes, (std::map<int, int>{
						  {1, 1},
                          {2, 2},
                          {3, 3}
    }));
}

// One thread, several recorders: also one that comes where another has been.
TEST(TraceRecorder, SeveralRecorders_KeepTheirScopes)
{
	CRecording first(3);
	CRecording second(3);
	for (u32 i = 0; i < 3; ++i)
	{
		first.Scopes(1);
		second.Scopes(2);
	}
	EXPECT_EQ(first.Events().size(), 3u);
	EXPECT_EQ(second.Events().size(), 6u);

	CMemory memory(2);
	for (u32 i = 0; i < 3; ++i)
	{
		CTraceRecorder recorder(memory.Start(), 2 * CTraceRecorder::kBlockSize);
		for (u32 scope = 0; scope < kScopesPerBlock; ++scope)
		{
			CTraceRecorder::OnScope(kOuter, true, &recorder);
			CTraceRecorder::OnScope(kOuter, false, &recorder);
		}
		EXPECT_EQ(recorder.DroppedCount(), 0u);
	}
}

// A trace is written while a thread that has recorded is still there, and nothing but the recorder itself has told this
// thread of it: under a thread sanitizer, a scope that is counted before it is filled in, or a block or a thread that
// is linked before, is a race whatever the timing.
TEST(TraceRecorder, TraceOfAThreadThatStays_SeesWholeScopes)
{
	constexpr u32 kRounds = kScopesPerBlock;
	CRecording recording(4);
	std::atomic<bool> recorded = false, written = false; // relaxed: they order nothing
	std::thread thread(
		[&]
		{
			for (u32 round = 0; round < kRounds; ++round)
			{
				const Profiler::CScopedNode outer(recording.Profiler(), kOuter);
				const Profiler::CScopedNode inner(recording.Profiler(), kInner);
			}
			recorded.store(true, std::memory_order_relaxed);
			while (!written.load(std::memory_order_relaxed))
				std::this_thread::yield();
		});
	while (!recorded.load(std::memory_order_relaxed))
		std::this_thread::yield();
	const std::size_t count = recording.Events().size();
	written.store(true, std::memory_order_relaxed);
	thread.join();
	EXPECT_EQ(count, 2 * kRounds);
}

// Traces are written while the threads record: each is whole, and the last has everything.
TEST(TraceRecorder, ManyThreadsAtOnce_LoseNothing)
{
	constexpr u32 kThreads = 4;
	constexpr u32 kRounds = 3000;
	CRecording recording(kThreads * (1 + 2 * kRounds / kScopesPerBlock + 1));
	std::atomic<u32> running = kThreads;
	std::vector<std::thread> threads;
	for (u32 i = 0; i < kThreads; ++i)
	{
		threads.emplace_back(
			[&recording, &running]
			{
				for (u32 round = 0; round < kRounds; ++round)
				{
					const Profiler::CScopedNode outer(recording.Profiler(), kOuter);
					const Profiler::CScopedNode inner(recording.Profiler(), kInner);
				}
				--running;
			});
	}
	std::size_t lastCount = 0;
	do
	{
		const std::size_t count = recording.Events().size();
		EXPECT_GE(count, lastCount);
		lastCount = count;
	} while (running != 0);
	for (std::thread &thread : threads)
		thread.join();

	EXPECT_EQ(recording.Recorder().DroppedCount(), 0u);
	std::map<int, std::map<std::string, u32>> counts;
	for (const json &event : recording.Events())
	{
		EXPECT_EQ(event["ph"], "X");
		++counts[event["tid"]][event["name"]];
	}
	ASSERT_EQ(counts.size(), kThreads);
	for (const auto &thread : counts)
		EXPECT_EQ(thread.second, (std::map<std::string, u32>{
									 {"outer", kRounds},
                                     {"inner", kRounds}
        }));
}

// The recorded and the dropped scopes add up, whichever threads get the last blocks.
TEST(TraceRecorder, ManyThreadsInLittleMemory_CountWhatTheyDrop)
{
	constexpr u32 kThreads = 6;
	constexpr u32 kScopes = 1000;
	CRecording recording(8);
	std::vector<std::thread> threads;
	for (u32 i = 0; i < kThreads; ++i)
		threads.emplace_back([&recording] { recording.Scopes(kScopes); });
	for (std::thread &thread : threads)
		thread.join();
	EXPECT_EQ(recording.Events().size() + recording.Recorder().DroppedCount(), u64(kThreads) * kScopes);
	EXPECT_LE(recording.Events().size(), 7 * kScopesPerBlock);
	EXPECT_GE(recording.Events().size(), kScopesPerBlock);
}

TEST(TraceRecorder, FailedWrite_IsTheLast)
{
	CRecording recording(30);
	recording.Scopes(4000);
	for (const u32 failAt : {1u, 2u, 5u})
	{
		struct SWrites
		{
			u32 m_Count;
			u32 m_FailAt;
		} writes = {0, failAt};
		const auto fail = [](const void *, u64, void *userData)
		{
			SWrites &counted = *static_cast<SWrites *>(userData);
			return ++counted.m_Count != counted.m_FailAt;
		};
		EXPECT_FALSE(recording.Recorder().WriteChromeTrace(fail, &writes));
		EXPECT_EQ(writes.m_Count, failAt);
	}
}

// A disk that is full takes bytes into the standard library's buffer all the same.
TEST(TraceRecorder, FullDisk_IsNoticed)
{
	CRecording recording(2);
	recording.Scopes(2);
	std::FILE *const file = std::fopen("/dev/full", "wb");
	ASSERT_NE(file, nullptr);
	EXPECT_FALSE(recording.Recorder().WriteChromeTrace(WriteToFile, file));
	std::fclose(file);
}

TEST(TraceRecorder, File_HoldsTheTrace)
{
	CRecording recording(2);
	recording.Scopes(10);
	std::FILE *const file = std::tmpfile();
	ASSERT_NE(file, nullptr);
	EXPECT_TRUE(recording.Recorder().WriteChromeTrace(WriteToFile, file));
	std::rewind(file);
	EXPECT_EQ(json::parse(file), recording.Trace());
	std::fclose(file);

	std::FILE *const readOnly = std::fopen("/dev/null", "rb");
	ASSERT_NE(readOnly, nullptr);
	EXPECT_FALSE(recording.Recorder().WriteChromeTrace(WriteToFile, readOnly));
	std::fclose(readOnly);
}
