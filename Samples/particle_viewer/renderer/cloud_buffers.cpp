#include "cloud_buffers.h"

#include "failure.h"
#include <epoxy/gl.h>

namespace Viewer
{
namespace
{
	template<typename _Element>
	void Store(u32 buffer, const std::vector<_Element> &elements)
	{
		GLint64 largestBlock = 0;
		glGetInteger64v(GL_MAX_SHADER_STORAGE_BLOCK_SIZE, &largestBlock);
		const u64 size = elements.size() * sizeof(_Element);
		if (size > u64(largestBlock))
			throw CFailure("The graphics driver has no room for so many points.");
		if (size != 0)
			glNamedBufferStorage(buffer, GLsizeiptr(size), elements.data(), 0);
	}
} // namespace

CCloudBuffers::~CCloudBuffers()
{
	glDeleteBuffers(kBufferCount, m_Buffers);
}

void CCloudBuffers::Set(const SPointCloud *cloud)
{
	if (cloud == m_Cloud)
		return;
	glDeleteBuffers(kBufferCount, m_Buffers);
	glCreateBuffers(kBufferCount, m_Buffers);
	Store(m_Buffers[0], cloud->m_Positions);
	Store(m_Buffers[1], cloud->m_Colours);
	Store(m_Buffers[2], cloud->m_Shapes);
	for (u32 channel = 0; channel < 3; ++channel)
		Store(m_Buffers[3 + channel], cloud->m_Harmonics[channel]);
	m_Cloud = cloud;
}

void CCloudBuffers::Bind() const
{
	for (u32 i = 0; i < kBufferCount; ++i)
		glBindBufferBase(GL_SHADER_STORAGE_BUFFER, i, m_Buffers[i]);
}
} // namespace Viewer
