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

	//   value       -inf         -1.0         -0.0         +0.0         1.0          +inf
	//   bits        0xFF800000   0xBF800000   0x80000000   0x00000000   0x3F800000   0x7F800000
	//   key         0x007FFFFF   0x407FFFFF   0x7FFFFFFF   0x80000000   0xBF800000   0xFF800000
	template<typename _Lanes>
	static VX_INLINE typename _Lanes::Register FromLanes(typename _Lanes::Register bits)
	{
		const typename _Lanes::Register negative = _Lanes::template ShiftRightSigned<31>(bits);
		return _Lanes::Xor(_Lanes::Or(bits, _Lanes::Splat(kSignBit)), negative);
	}
	static VX_INLINE u32 FromBits(u32 bits) { return SRadixSortExtractorSignedFP<float>::ExtractKeyFromBits(bits); }
};
} // namespace Vexmoor
