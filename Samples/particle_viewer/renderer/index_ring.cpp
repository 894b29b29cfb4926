// A persistently mapped, coherent buffer: what the CPU writes before a draw call is seen by it, without a flush.

#include "index_ring.h"

#include "failure.h"
#include <algorithm>
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
	if (sizeInBytes > m_PartSize)
	{
		const u64 size = std::max(sizeInBytes, m_PartSize + m_PartSize / 2);
		Destroy();
		Create((size + kPartAlignment - 1) / kPartAlignment * kPartAlignment);
	}
	m_Part = (m_Part + 1) % kPartCount;
	if (!WaitFor(m_Part))
		throw CFailure("The graphics driver does not say when it has done with the index buffer.");
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

// The driver keeps a deleted buffer until the draws that read it are done, so a wait that fails does no harm here.
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

bool CIndexRing::WaitFor(u32 part)
{
	const GLsync fence = static_cast<GLsync>(m_Fences[part]);
	if (fence == nullptr)
		return true;
	GLenum result = GL_TIMEOUT_EXPIRED;
	while (result == GL_TIMEOUT_EXPIRED) // a software driver may take longer for a large picture
		result = glClientWaitSync(fence, GL_SYNC_FLUSH_COMMANDS_BIT, kWaitInNanoseconds);
	glDeleteSync(fence);
	m_Fences[part] = null;
	return result != GL_WAIT_FAILED;
}
} // namespace Viewer
