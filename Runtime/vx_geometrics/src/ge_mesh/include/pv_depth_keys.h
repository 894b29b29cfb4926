#pragma once

// The depth-key encodings. Ascending keys, compared as unsigned, are the drawing order. Nothing here reports.
//
// Keys are exact to the bit whatever flags this is compiled with: squared distances come from simd/exact_floats.h, and
// signs and NaNs are handled as integers.

#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_sort.h"

namespace Vexmoor
{
constexpr u32 kSignBit = 0x80000000u;
constexpr u32 kMinusInfinityBits = 0xFF800000u;

// The key of a squared distance: its bits inverted, so that the farthest comes first. A square has no sign: keys run
// from 0x807FFFFF, infinitely far, to 0xFFFFFFFF, at the camera. A NaN falls below, or between, by its sign.
struct SDistanceKey
{
	static constexpr u32 kFar = 0x807FFFFFu;

	template<typename _Lanes>
	static VX_INLINE typename _Lanes::Register FromLanes(typename _Lanes::Register len2)
	{
		return _Lanes::Xor(len2, _Lanes::Splat(~0u));
	}
	static VX_INLINE u32 FromBits(u32 len2Bits) { return ~len2Bits; }
};

// The key of a value: a float without sign gets the sign bit, one with it is inverted whole (M. Herf, "Radix Tricks",
// 2001), so that the lowest value comes first.
struct SValueKey
{
	static constexpr u32 kFar = 0x007FFFFFu; // of minus infinity

	template<typename _Lanes>
	static VX_INLINE typename _Lanes::Register FromLanes(typename _Lanes::Register bits)
	{
		const typename _Lanes::Register negative = _Lanes::template ShiftRightSigned<31>(bits);
		return _Lanes::Xor(_Lanes::Or(bits, _Lanes::Splat(kSignBit)), negative);
	}
	static VX_INLINE u32 FromBits(u32 bits) { return SRadixSortExtractorSignedFP<float>::ExtractKeyFromBits(bits); }
};

// Float arithmetic as the keys are defined by: round to nearest, denormals kept, no traps. A host may run with other
// modes (linking with -ffast-math flushes denormals in the whole process), so they are put aside for a call. Memory is
// not touched across the switch, and with it no arithmetic on what is loaded or stored.
class CFloatModeScope
{
public:
	VX_INLINE CFloatModeScope()
		: m_HostMode(_Get())
	{
		if (VX_UNLIKELY((m_HostMode & kModeBits) != kDefaultMode))
			_Set(kDefaultMode | (m_HostMode & ~kModeBits));
	}
	VX_INLINE ~CFloatModeScope()
	{
		if (VX_UNLIKELY((m_HostMode & kModeBits) != kDefaultMode))
			_Set(m_HostMode);
	}

private:
#if defined(__SSE2__)
	static constexpr u32 kModeBits = 0xFFC0;    // flush to zero, rounding, exception masks, denormals are zero
	static constexpr u32 kDefaultMode = 0x1F80; // all exceptions masked, nothing else

	static VX_INLINE u32 _Get()
	{
		return _mm_getcsr();
	}
	static VX_INLINE void _Set(u32 mode)
	{
		__asm__ volatile("ldmxcsr %0" : : "m"(mode) : "memory");
	}
#elif defined(__aarch64__)
	static constexpr u32 kModeBits = 0x03C89F00; // default NaN, flush to zero, rounding, exceptions that trap
	static constexpr u32 kDefaultMode = 0;

	static VX_INLINE u32 _Get()
	{
		u64 mode;
		__asm__ volatile("mrs %0, fpcr" : "=r"(mode));
		return u32(mode);
	}
	static VX_INLINE void _Set(u32 mode)
	{
		__asm__ volatile("msr fpcr, %0" : : "r"(u64(mode)) : "memory");
	}
#endif

	CFloatModeScope(const CFloatModeScope &) = delete;
	CFloatModeScope &operator=(const CFloatModeScope &) = delete;

	u32 m_HostMode;
};
} // namespace Vexmoor
