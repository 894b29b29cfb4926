// A persistently mapped, coherent buffer: what the CPU writes before a draw call is seen by it, without a flush.

#include "index_ring.h"

#include "failure.h"
#include <epoxy/gl.h>

namespace Viewer
{
namespace
{
	// Keeps every part's start on whole cache lines and above any offset alignment that a driver asks for.
	constexpr u64 kPartAlignment = 256;
	constexpr GLuint64 kWaitInNanoseconds = 1000000000ull;
} // namespace

CIndexRing::~CIndexRing()
{
	Destroy();
}

u8 *CIndexRing::Begin(u64 sizeInBytes)
{
	const u64 partSize = (sizeInBytes + kPartAlignment - 1) / kPartAlignment * kPartAlignment;
	if (partSize > m_PartSize)
	{
		Destroy();
		Create(partSize);
	}
	m_Part = (m_Part + 1) % kPartCount;
	WaitFor(m_Part);
	return m_Memory + Offset();
}

void CIndexRing::End()
{
	m_Fences[m_Part] = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
}

void CIndexRing::Create(u64 partSize)
{
	const GLbitfield access = GL_MAP_WRITE_BIT | GL_MAP_PERSISTENT_BIT | GL_MAP_COHERENT_BIT;
	const GLsizeiptr size = GLsizeiptr(partSize * kPartCount);
	glCreateBuffers(1, &m_Buffer);
	glNamedBufferStorage(m_Buffer, size, nullptr, access);
	m_Memory = static_cast<u8 *>(glMapNamedBufferRange(m_Buffer, 0, size, access));
	if (m_Memory == null)
		throw CFailure("The graphics driver has no memory for the index buffer.");
	m_PartSize = partSize;
	m_Part = 0;
}

void CIndexRing::Destroy()
{
	for (u32 part = 0; part < kPartCount; ++part)
		WaitFor(part);
	if (m_Buffer != 0)
	{
		glUnmapNamedBuffer(m_Buffer);
		glDeleteBuffers(1, &m_Buffer);
	}
	m_Buffer = 0;
	m_Memory = null;
	m_PartSize = 0;
}

void CIndexRing::WaitFor(u32 part)
{
	const GLsync fence = static_cast<GLsync>(m_Fences[part]);
	if (fence == nullptr)
		return;
	while (glClientWaitSync(fence, GL_SYNC_FLUSH_COMMANDS_BIT, kWaitInNanoseconds) == GL_TIMEOUT_EXPIRED)
	{
		// A software driver may take longer than that for a large picture.
	}
	glDeleteSync(fence);
	m_Fences[part] = null;
}
} // namespace Viewer
