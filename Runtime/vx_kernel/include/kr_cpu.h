#pragma once

// What the processor has beyond the baseline. Paths that use it give the same bits as those that do not.

#include "vx_compiler.h"

namespace Vexmoor
{
namespace Cpu
{
	/// Whether 256-bit integer and float lanes (AVX2) are used: where the processor and the operating system have them,
	/// unless the host does without. Found out at the first call. Any thread.
	VX_API bool UsesAvx2();

	/// Called with false at start-up, keeps to 128-bit lanes: for tests, for measurements, for a host that shares a core
	/// with code that wide lanes would slow down. With true, the default again.
	VX_API void AllowAvx2(bool allowed);
} // namespace Cpu
} // namespace Vexmoor
