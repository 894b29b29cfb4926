#pragma once

// The index memory of a renderer: one buffer, mapped for its whole life, in three parts. The sorter writes into one
// part while the GPU may still read the others; a fence says when a part is free again.

#include "vx_defs.h"

namespace Viewer
{
using namespace Vexmoor;

class CIndexRing
{
public:
	CIndexRing() = default;
	~CIndexRing();
	CIndexRing(const CIndexRing &) = delete;
	CIndexRing &operator=(const CIndexRing &) = delete;

	/// Write-only memory for the next draw, 256-byte aligned, after the GPU has done with it. Grows if need be, by half
	/// at least: growing waits for all draws, so it has to be seldom. A driver that fails is a CFailure.
	u8 *Begin(u64 sizeInBytes);
	/// After the draws that read the part.
	void End();

	u32 Buffer() const { return m_Buffer; }
	/// Where in the buffer the current part starts.
	u64 Offset() const { return m_Part * m_PartSize; }

private:
	static constexpr u32 kPartCount = 3; // one that is written, one that is queued, one that is drawn

	void Create(u64 partSize);
	void Destroy();
	/// False if the driver fails to wait: the GPU may still read the part then.
	bool WaitFor(u32 part);

	u32 m_Buffer = 0;
	u8 *m_Memory = null;
	u64 m_PartSize = 0;
	u32 m_Part = 0;
	void *m_Fences[kPartCount] = {};
};
} // namespace Viewer
