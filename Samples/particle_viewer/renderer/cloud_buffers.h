#pragma once

// A cloud in the GPU's memory.

#include "vx_defs.h"

#include "point_cloud.h"

namespace Viewer
{
using namespace Vexmoor;

class CCloudBuffers
{
public:
	CCloudBuffers() = default;
	~CCloudBuffers();
	CCloudBuffers(const CCloudBuffers &) = delete;
	CCloudBuffers &operator=(const CCloudBuffers &) = delete;

	/// Takes the cloud over, once; as long as it stays the same, there is nothing to do.
	void Set(const SPointCloud *cloud);
	/// For the shaders of clouds.
	void Bind() const;

private:
	static constexpr u32 kBufferCount = 6; // positions, colours, shapes, three of harmonics: as the shaders bind them

	const SPointCloud *m_Cloud = null;
	u32 m_Buffers[kBufferCount] = {};
};
} // namespace Viewer
