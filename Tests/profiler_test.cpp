// Profiler scopes: what a descriptor holds, when the hook hears of a scope, and that descriptors are built once.

#include "ge_mesh_triangle_sorter.h"

#include "kr_profiler.h"

#include "diagnostics.h"
#include <atomic>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <mutex>
#include <new>
#include <set>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

using namespace Vexmoor;
using namespace Support;
using Profiler::SNodeDescriptor;

namespace
{
std::vector<u32> Bits(const CFloat4 &color)
{
	std::vector<u32> bits(4);
	std::memcpy(bits.data(), &color, sizeof(color));
	return bits;
}

std::atomic<u32> s_ColorsMade = 0;

CFloat3 MadeColor()
{
	++s_ColorsMade;
	return CFloat3(0.25f, 0.5f, 1.0f);
}

void ScopeOfManyThreads()
{
	VX_PROFILE_SCOPE_COLOR("ScopeOfManyThreads", MadeColor());
}

// A profiler that lies across the end of a page: the handler is its last bytes, and a store to it faults once.
class CProfilerAcrossPages
{
public:
	CProfilerAcrossPages()
		: m_PageSize(std::size_t(sysconf(_SC_PAGESIZE)))
		, m_Pages(static_cast<u8 *>(
			  mmap(nullptr, 2 * m_PageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
		, m_Profiler(new (m_Pages + m_PageSize - sizeof(void *)) Profiler::CProfiler())
	{
		s_Watched = this;
		struct sigaction action = {};
		action.sa_sigaction = &OnFault;
		action.sa_flags = SA_SIGINFO;
		sigaction(SIGSEGV, &action, &m_PreviousAction);
		mprotect(m_Pages, m_PageSize, PROT_READ);
	}
	~CProfilerAcrossPages()
	{
		sigaction(SIGSEGV, &m_PreviousAction, nullptr);
		munmap(m_Pages, 2 * m_PageSize);
	}
	CProfilerAcrossPages(const CProfilerAcrossPages &) = delete;
	CProfilerAcrossPages &operator=(const CProfilerAcrossPages &) = delete;

	Profiler::CProfiler &Profiler() { return *m_Profiler; }
	u32 FaultCount() const { return m_FaultCount; }
	// What lay in the profiler behind the handler when the handler was stored.
	void *BehindTheHandler() const { return m_BehindTheHandler; }

private:
	static void OnFault(int, siginfo_t *, void *)
	{
		++s_Watched->m_FaultCount;
		std::memcpy(&s_Watched->m_BehindTheHandler, s_Watched->m_Pages + s_Watched->m_PageSize, sizeof(void *));
		mprotect(s_Watched->m_Pages, s_Watched->m_PageSize, PROT_READ | PROT_WRITE); // the store is tried again
	}

	static inline CProfilerAcrossPages *s_Watched = nullptr;

	const std::size_t m_PageSize;
	u8 *const m_Pages;
	Profiler::CProfiler *const m_Profiler;
	struct sigaction m_PreviousAction = {};
	volatile u32 m_FaultCount = 0;
	void *m_BehindTheHandler = nullptr;
};
} // namespace

// Hosts read descriptors through the hook, and their tools know the layout.
TEST(Profiler, Descriptor_HoldsItsMembersInOrder)
{
	EXPECT_EQ(offsetof(SNodeDescriptor, m_Color), 0u);
	EXPECT_EQ(offsetof(SNodeDescriptor, m_ColorRGBA8), 16u);
	EXPECT_EQ(offsetof(SNodeDescriptor, m_ColorBGRA8), 20u);
	EXPECT_EQ(offsetof(SNodeDescriptor, m_Name), 24u);
	EXPECT_EQ(offsetof(SNodeDescriptor, m_FileAndFunction), 32u);
	EXPECT_EQ(offsetof(SNodeDescriptor, m_Flags), 40u);

	const char *const name = "name", *const path = "path";
	const SNodeDescriptor node(name, path, CFloat3(0.5f, 0.08f, 0.9f), SNodeDescriptor::Update);
	EXPECT_EQ(Bits(node.m_Color), Bits(CFloat4(0.5f, 0.08f, 0.9f, 1.0f)));
	EXPECT_EQ(node.m_Name, name);
	EXPECT_EQ(node.m_FileAndFunction, path);
	EXPECT_EQ(node.m_Flags, 0x20000000u);

	const SNodeDescriptor withAlpha(name, path, CFloat4(0.5f, 0.08f, 0.9f, 0.25f), SNodeDescriptor::None);
	EXPECT_EQ(Bits(withAlpha.m_Color), Bits(CFloat4(0.5f, 0.08f, 0.9f, 0.25f)));
	EXPECT_EQ(withAlpha.m_Flags, 0u);
}

TEST(Profiler, Flags_HaveTheirValues)
{
	EXPECT_EQ(u32(SNodeDescriptor::None), 0u);
	EXPECT_EQ(u32(SNodeDescriptor::Idle), 0x10000000u);
	EXPECT_EQ(u32(SNodeDescriptor::Update), 0x20000000u);
	EXPECT_EQ(u32(SNodeDescriptor::Frame), 0x40000000u);
	EXPECT_EQ(u32(SNodeDescriptor::Mask_User), 0xFFFFu);
	EXPECT_EQ(u32(SNodeDescriptor::Mask_Reserved), 0x0FFF0000u);
}

// Channels are fifths where they are not 0 or 1: multiples of 51, so that no rounding is in question.
TEST(Profiler, Colors_ArePackedLowByteFirst)
{
	struct SCase
	{
		CFloat4 m_Color;
		u32 m_RGBA8;
		u32 m_BGRA8;
	};
	const SCase cases[] = {
		{CFloat4(0.0f, 0.0f,  0.0f, 0.0f), 0x00000000u, 0x00000000u},
		{CFloat4(1.0f, 0.0f,  0.0f, 0.0f), 0x000000FFu, 0x00FF0000u},
		{CFloat4(0.0f, 1.0f,  0.0f, 0.0f), 0x0000FF00u, 0x0000FF00u},
		{CFloat4(0.0f, 0.0f,  1.0f, 0.0f), 0x00FF0000u, 0x000000FFu},
		{CFloat4(0.0f, 0.0f,  0.0f, 1.0f), 0xFF000000u, 0xFF000000u},
		{CFloat4(0.2f, 0.4f,  0.6f, 0.8f), 0xCC996633u, 0xCC336699u},
		{CFloat4(0.5f, 0.1f,  0.3f, 0.7f), 0xB34D1A80u, 0xB3801A4Du}, // 127.5, 25.5, 76.5 and 178.5, as floats have them
		{CFloat4(2.0f, -1.0f, 0.0f, 9.0f), 0xFF0000FFu, 0xFFFF0000u}, // clamped
	};
	for (const SCase &row : cases)
	{
		const SNodeDescriptor node("name", "path", row.m_Color, SNodeDescriptor::None);
		EXPECT_EQ(node.m_ColorRGBA8, row.m_RGBA8);
		EXPECT_EQ(node.m_ColorBGRA8, row.m_BGRA8);
	}
	const SNodeDescriptor opaque("name", "path", CFloat3(1.0f, 0.0f, 0.0f), SNodeDescriptor::None);
	EXPECT_EQ(opaque.m_ColorRGBA8, 0xFF0000FFu);
	EXPECT_EQ(opaque.m_ColorBGRA8, 0xFFFF0000u);
}

// Names are compared as text, wherever they lie.
TEST(Profiler, AutogenColor_DependsOnTheNameAlone)
{
	std::set<std::vector<u32>> colors;
	for (const char *const name : {"", "a", "b", "Sort", "CTriangleSorter::Sort", "CTriangleSorter::FillSource"})
	{
		const CFloat4 color = SNodeDescriptor::AutogenColor(name);
		const std::string sameName = name; // at another address
		EXPECT_EQ(Bits(SNodeDescriptor::AutogenColor(sameName.c_str())), Bits(color));
		for (u32 channel = 0; channel < 4; ++channel)
			EXPECT_TRUE(color[channel] >= 0.0f && color[channel] <= 1.0f) << name;
		colors.insert(Bits(color));
	}
	EXPECT_EQ(colors.size(), 6u);
}

// Left in the reverse of the order in which they were entered, at the end of their blocks.
TEST(Profiler, Scopes_AreEnteredAndLeftAndNest)
{
	const CScopeRecorder recorder;
	{
		VX_PROFILE_SCOPE("outer");
		{
			VX_PROFILE_SCOPE_COLOR("first", CFloat3(1.0f, 0.0f, 0.0f));
		}
		VX_PROFILE_SCOPE_COLOR("second", CFloat4(0.0f, 1.0f, 0.0f, 0.5f));
		VX_PROFILE_SCOPE("third");
		EXPECT_EQ(recorder.Events().size(), 5u);
	}
	EXPECT_EQ(recorder.Events(),
		(std::vector<std::string>{"+outer", "+first", "-first", "+second", "+third", "-third", "-second", "-outer"}));
	const SNodeDescriptor &outer = *recorder.Nodes()[0], &second = *recorder.Nodes()[2];
	EXPECT_EQ(Bits(outer.m_Color), Bits(SNodeDescriptor::AutogenColor("outer")));
	EXPECT_STREQ(outer.m_FileAndFunction, __FILE__);
	EXPECT_EQ(outer.m_Flags, 0u);
	EXPECT_EQ(Bits(second.m_Color), Bits(CFloat4(0.0f, 1.0f, 0.0f, 0.5f)));
}

TEST(Profiler, DisabledNode_IsNotRecorded)
{
	const SNodeDescriptor node("node", "path", CFloat3(), SNodeDescriptor::None);
	const CScopeRecorder recorder;
	{
		const Profiler::CScopedNode disabled(Profiler::MainEngineProfiler(), node, false);
		EXPECT_TRUE(recorder.Events().empty());
		const Profiler::CScopedNode enabled(Profiler::MainEngineProfiler(), node, true);
		EXPECT_EQ(recorder.Nodes().at(0), &node);
	}
	EXPECT_EQ(recorder.Events(), (std::vector<std::string>{"+node", "-node"}));
}

// The last handler is not called again once it has been taken away.
TEST(Profiler, WithoutHandler_NothingIsRecorded)
{
	ASSERT_NE(Profiler::MainEngineProfiler(), nullptr);
	EXPECT_EQ(Profiler::MainEngineProfiler(), Profiler::MainEngineProfiler());
	static u32 s_Calls;
	s_Calls = 0;
	Profiler::MainEngineProfiler()->SetScopeHandler([](const SNodeDescriptor &, bool, void *) { ++s_Calls; }, null);
	{
		VX_PROFILE_SCOPE("recorded");
	}
	Profiler::MainEngineProfiler()->SetScopeHandler(null, null);
	{
		VX_PROFILE_SCOPE("dropped");
	}
	EXPECT_EQ(s_Calls, 2u);
}

// A thread that sees the new handler calls it with the user data that it finds.
TEST(Profiler, SetScopeHandler_StoresTheHandlerLast)
{
	CProfilerAcrossPages watched;
	u32 userData = 0;
	watched.Profiler().SetScopeHandler(
		[](const SNodeDescriptor &, bool, void *count) { ++*static_cast<u32 *>(count); }, &userData);
	EXPECT_EQ(watched.FaultCount(), 1u);
	EXPECT_EQ(watched.BehindTheHandler(), &userData);
	const SNodeDescriptor node("node", "path", CFloat3(), SNodeDescriptor::None);
	watched.Profiler().Enter(node);
	EXPECT_EQ(userData, 1u);
}

// A scope belongs to the profiler that it was given.
TEST(Profiler, SeveralProfilers_KeepTheirHandlers)
{
	Profiler::CProfiler own;
	std::vector<std::string> events;
	own.SetScopeHandler(
		[](const SNodeDescriptor &node, bool entering, void *list) {
			static_cast<std::vector<std::string> *>(list)->push_back((entering ? "+" : "-") + std::string(node.m_Name));
		},
		&events);
	const CScopeRecorder mainRecorder;
	const SNodeDescriptor node("node", "path", CFloat3(), SNodeDescriptor::None);
	{
		const Profiler::CScopedNode scope(&own, node, true);
	}
	EXPECT_EQ(events, (std::vector<std::string>{"+node", "-node"}));
	EXPECT_TRUE(mainRecorder.Events().empty());
}

// The colour is made when the descriptor is, so counting colours counts descriptors.
TEST(Profiler, FirstUseByManyThreads_BuildsOneDescriptor)
{
	struct SSeen
	{
		std::mutex m_Lock;
		std::set<const SNodeDescriptor *> m_Nodes;
		u32 m_Entered = 0;
		u32 m_Left = 0;
	} seen;
	Profiler::MainEngineProfiler()->SetScopeHandler(
		[](const SNodeDescriptor &node, bool entering, void *userData)
		{
			SSeen &all = *static_cast<SSeen *>(userData);
			const std::lock_guard<std::mutex> lock(all.m_Lock);
			all.m_Nodes.insert(&node);
			++(entering ? all.m_Entered : all.m_Left);
		},
		&seen);
	std::atomic<u32> ready = 0;
	std::thread threads[4];
	for (std::thread &thread : threads)
	{
		thread = std::thread(
			[&ready]
			{
				for (++ready; ready != 4;) // all at the starting line
					std::this_thread::yield();
				ScopeOfManyThreads();
			});
	}
	for (std::thread &thread : threads)
		thread.join();
	Profiler::MainEngineProfiler()->SetScopeHandler(null, null);
	ASSERT_EQ(seen.m_Nodes.size(), 1u);
	EXPECT_EQ(seen.m_Entered, 4u);
	EXPECT_EQ(seen.m_Left, 4u);
	EXPECT_EQ(s_ColorsMade, 1u);
	EXPECT_EQ(Bits((*seen.m_Nodes.begin())->m_Color), Bits(CFloat4(0.25f, 0.5f, 1.0f, 1.0f)));
}

// The colours tell the stages of a sort apart in a host's timeline.
TEST(Profiler, ScopesOfTheSorter_CarryColourPathAndNoFlags)
{
	const float values[1] = {1.0f};
	const u32 renderedCounts[1] = {1};
	const TStridedMemoryView<const float> pages[1] = {
		{values, 1, 4}
    };
	const TStridedMemoryView<const u8> enableds[1];
	u32 pattern[1] = {0};
	alignas(16) u32 output[1];
	alignas(16) u8 workingBuffer[32];

	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(output, 1), 100);
	sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(pages, 1, sizeof(pages[0])),
		CTriangleSorter::CEnabledPages(enableds, 1, sizeof(enableds[0])),
		CTriangleSorter::CRenderedCounts(renderedCounts, 1, 4), 1);
	sorter.Setup_Geometry(TMemoryView<u32>(pattern, 1), 1);
	const CScopeRecorder recorder;
	sorter.SortPoints_AutogenIndices(workingBuffer);

	const struct
	{
		const char *m_Name;
		CFloat4 m_Color;
	} expected[] = {
		{"CTriangleSorter::FillSource", CFloat4(0.5f, 0.08f, 0.9f, 1.0f)},
		{"CTriangleSorter::Sort",       CFloat4(0.2f, 0.08f, 0.9f, 1.0f)},
	};
	for (const auto &row : expected)
	{
		SCOPED_TRACE(row.m_Name);
		const SNodeDescriptor *found = null;
		for (const SNodeDescriptor *const node : recorder.Nodes())
		{
			if (std::strcmp(node->m_Name, row.m_Name) == 0)
				found = node;
		}
		ASSERT_NE(found, nullptr);
		EXPECT_EQ(Bits(found->m_Color), Bits(row.m_Color));
		EXPECT_EQ(found->m_Flags, 0u);
		EXPECT_STREQ(found->m_FileAndFunction, "../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp");
	}
}
