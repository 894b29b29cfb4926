#pragma once

// The processor's floating-point mode for the time of a call: the one that keys are defined by.

#include "vx_compiler.h"
#include "vx_defs.h"

namespace Vexmoor
{
// The bits of the mode that change results or stop the program, and what they are in the default mode. All other bits
// stay as they are. Where vx_compiler.h knows no way to a mode, there are no such bits.
#if VX_X86
constexpr u32 kFloatModeBits = 0xFFC0;    // flush to zero, rounding, exception masks, denormals are zero
constexpr u32 kDefaultFloatMode = 0x1F80; // all exceptions masked, nothing else
#elif VX_ARM64 || VX_ARM32
constexpr u32 kFloatModeBits = 0x03C89F00; // default NaN, flush to zero, rounding, exceptions that trap
constexpr u32 kDefaultFloatMode = 0;
#elif VX_RISCV
constexpr u32 kFloatModeBits = 0x7; // rounding: there are no others
constexpr u32 kDefaultFloatMode = 0;
#else
constexpr u32 kFloatModeBits = 0;
constexpr u32 kDefaultFloatMode = 0;
#endif

// Float arithmetic as the keys are defined by: round to nearest, denormals kept, no traps. A host may run with other
// modes (linking with -ffast-math flushes denormals in the whole process), so they are put aside for a call. Memory is
// not touched across the switch, and with it no arithmetic on what is loaded or stored.
class CFloatModeScope
{
public:
	VX_INLINE CFloatModeScope()
		: m_HostMode(_Get())
	{
		if (VX_UNLIKELY((m_HostMode & kFloatModeBits) != kDefaultFloatMode))
			_Set(kDefaultFloatMode | (m_HostMode & ~kFloatModeBits));
	}
	VX_INLINE ~CFloatModeScope()
	{
		if (VX_UNLIKELY((m_HostMode & kFloatModeBits) != kDefaultFloatMode))
			_Set(m_HostMode);
	}

private:
	static VX_INLINE u32 _Get()
	{
		u32 mode = kDefaultFloatMode;
#if defined(VX_GET_FLOAT_MODE)
		VX_GET_FLOAT_MODE(mode);
#endif
		return mode;
	}
#if defined(VX_SET_FLOAT_MODE)
	static VX_INLINE void _Set(u32 mode)
	{
		VX_SET_FLOAT_MODE(mode);
	}
#else
	static VX_INLINE void _Set(u32) {}
#endif

	CFloatModeScope(const CFloatModeScope &) = delete;
	CFloatModeScope &operator=(const CFloatModeScope &) = delete;

	u32 m_HostMode;
};
} // namespace Vexmoor
