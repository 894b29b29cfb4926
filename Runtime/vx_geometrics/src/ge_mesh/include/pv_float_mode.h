#pragma once

// The processor's floating-point mode for the time of a call: the one that keys are defined by.

#include "vx_compiler.h"
#include "vx_defs.h"

namespace Vexmoor
{
// The bits of the mode that change results or stop the program, and what they are in the default mode. All other bits
// stay as they are. Where vx_compiler.h knows no way to a mode, there are no such bits.
#if VX_X86
// MXCSR. Bits 0 to 5 are flags of what has happened, which stay the host's:
//
//   bit   15                14-13      12-7              6                     5-0
//         flush to zero     rounding   exception masks   denormals are zero    flags
constexpr u32 kFloatModeBits = 0xFFC0;    // flush to zero, rounding, exception masks, denormals are zero
constexpr u32 kDefaultFloatMode = 0x1F80; // all exceptions masked, nothing else
#elif VX_ARM64 || VX_ARM32
// FPCR on AArch64, FPSCR on 32-bit ARM: bits 25 to 22, 19, 15 and 12 to 8.
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
	// Reading the mode is cheap, and changing it is not: a host in the default mode pays for the reading alone.
	VX_INLINE CFloatModeScope()
		: m_HostMode(_Get())
	{
		if (VX_UNLIKELY((m_HostMode & kFloatModeBits) != kDefaultFloatMode))
			_Set(kDefaultFloatMode | (m_HostMode & ~kFloatModeBits));
	}
	// Gives a host of another mode its own back, with the flags as they were before the call.
	VX_INLINE ~CFloatModeScope()
	{
		if (VX_UNLIKELY((m_HostMode & kFloatModeBits) != kDefaultFloatMode))
			_Set(m_HostMode);
	}

private:
	// Returns the default mode if the processor has none, or if no way to it is known. The scope then changes nothing,
	// and compilers leave it out.
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
	// Never called, because no mode differs from the default one.
	static VX_INLINE void _Set(u32) {}
#endif

	// A copy would set the host's mode back twice.
	CFloatModeScope(const CFloatModeScope &) = delete;
	CFloatModeScope &operator=(const CFloatModeScope &) = delete;

	// The whole mode before the call: besides the bits above, it has flags that the host may not have read yet.
	u32 m_HostMode;
};
} // namespace Vexmoor
