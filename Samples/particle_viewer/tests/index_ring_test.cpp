// The ring of index memory, over a graphics driver that is made up: how often buffers are made, and what comes of a
// fence.

#include "failure.h"
#include "index_ring.h"
#include <epoxy/gl.h>
#include <gtest/gtest.h>
#include <vector>

using namespace Viewer;

namespace
{
// Stands in for the functions that the ring calls.
struct SDriver
{
	static inline u32 s_BufferCount, s_LiveBufferCount, s_LiveFenceCount, s_WaitCount;
	static inline std::vector<u8> s_Memory;
	static inline std::vector<GLenum> s_WaitResults; // the next one last; then every fence is signalled

	SDriver()
	{
		s_BufferCount = s_LiveBufferCount = s_LiveFenceCount = s_WaitCount = 0;
		s_WaitResults.clear();
		epoxy_glCreateBuffers = [](GLsizei, GLuint *buffer)
		{
			*buffer = ++s_BufferCount;
			++s_LiveBufferCount;
		};
		epoxy_glNamedBufferStorage = [](GLuint, GLsizeiptr size, const void *, GLbitfield)
		{ s_Memory.assign(size_t(size), 0); };
		epoxy_glMapNamedBufferRange = [](GLuint, GLintptr, GLsizeiptr, GLbitfield) -> void *
		{ return s_Memory.data(); };
		epoxy_glUnmapNamedBuffer = [](GLuint) -> GLboolean { return GL_TRUE; };
		epoxy_glDeleteBuffers = [](GLsizei, const GLuint *) { --s_LiveBufferCount; };
		epoxy_glFenceSync = [](GLenum, GLbitfield) -> GLsync
		{
			++s_LiveFenceCount;
			return reinterpret_cast<GLsync>(&s_LiveFenceCount);
		};
		epoxy_glDeleteSync = [](GLsync) { --s_LiveFenceCount; };
		epoxy_glClientWaitSync = [](GLsync, GLbitfield, GLuint64) -> GLenum
		{
			++s_WaitCount;
			if (s_WaitResults.empty())
				return GL_ALREADY_SIGNALED;
			const GLenum result = s_WaitResults.back();
			s_WaitResults.pop_back();
			return result;
		};
	}
};

void DrawFrames(CIndexRing &ring, u32 count)
{
	for (u32 frame = 0; frame < count; ++frame)
	{
		ring.Begin(100);
		ring.End();
	}
}
} // namespace

// An emitter that grows a little in every frame would make a buffer in every frame, and wait for all draws each time.
TEST(IndexRing, SlowlyGrowingFrames_MakeFewBuffers)
{
	const SDriver driver;
	{
		CIndexRing ring;
		for (u32 frame = 0; frame < 600; ++frame)
		{
			const u64 size = 24000 + u64(frame) * 240;
			u8 *const memory = ring.Begin(size);
			ASSERT_GE(memory, SDriver::s_Memory.data());
			ASSERT_LE(memory + size, SDriver::s_Memory.data() + SDriver::s_Memory.size());
			EXPECT_EQ(ring.Offset() % 256, 0u);
			ring.End();
		}
		EXPECT_LE(SDriver::s_BufferCount, 7u); // 24,000 bytes times 1.5 to the power of 5 are 182,250
		EXPECT_EQ(SDriver::s_LiveBufferCount, 1u);
	}
	EXPECT_EQ(SDriver::s_LiveBufferCount, 0u);
	EXPECT_EQ(SDriver::s_LiveFenceCount, 0u);
}

TEST(IndexRing, FirstAndLargerFrames_FitAsTheyAre)
{
	const SDriver driver;
	CIndexRing ring;
	ring.Begin(1000);
	EXPECT_EQ(SDriver::s_Memory.size(), 3 * 1024u);
	ring.End();
	ring.Begin(100000);
	EXPECT_EQ(SDriver::s_Memory.size(), 3 * 100096u);
	ring.End();
}

TEST(IndexRing, Parts_AreReusedAfterTheirFence)
{
	const SDriver driver;
	CIndexRing ring;
	DrawFrames(ring, 3);
	EXPECT_EQ(SDriver::s_WaitCount, 0u);
	ring.Begin(100);
	EXPECT_EQ(SDriver::s_WaitCount, 1u);
	ring.End();
}

TEST(IndexRing, FenceThatTakesLong_IsWaitedForAgain)
{
	const SDriver driver;
	CIndexRing ring;
	DrawFrames(ring, 3);
	SDriver::s_WaitResults = {GL_CONDITION_SATISFIED, GL_TIMEOUT_EXPIRED, GL_TIMEOUT_EXPIRED};
	ring.Begin(100);
	EXPECT_EQ(SDriver::s_WaitCount, 3u);
	ring.End();
}

// To write now could be to write what the GPU still reads.
TEST(IndexRing, FailedWait_IsAFailure)
{
	const SDriver driver;
	CIndexRing ring;
	DrawFrames(ring, 3);
	SDriver::s_WaitResults = {GL_WAIT_FAILED};
	EXPECT_THROW(ring.Begin(100), CFailure);
	EXPECT_EQ(SDriver::s_LiveFenceCount, 2u);
}
