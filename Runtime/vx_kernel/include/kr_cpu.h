#pragma once

// What the processor has beyond the baseline. Paths that use it give the same bits as those that do not.

#include "vx_compiler.h"
#include "vx_defs.h"

namespace Vexmoor
{
namespace Cpu
{
	/// 32-bit lanes of the widest registers in use: 4 (SSE2, the baseline), 8 (AVX2) or 16 (AVX-512 with its F, BW, DQ
	/// and VL), as far as the processor and the operating system have them and the host allows. Found out at the first
	/// call. Any thread.
	VX_API u32 LaneCount();

	/// Called at start-up, keeps to registers of at most so many lanes: for tests, for measurements, for a host whose
	/// other work on a core wide registers would slow down. A number that is not 4, 8 or 16 means the next lower one of
	/// these, and one below 4 means 4. The default is 16. Any thread, and also while another thread asks for the first
	/// time; sorts that run meanwhile may still take the registers that they have found.
	VX_API void SetMaxLaneCount(u32 laneCount);
} // namespace Cpu
} // namespace Vexmoor
