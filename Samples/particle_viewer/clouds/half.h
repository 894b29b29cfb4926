#pragma once

// Half floats: 1 sign bit, 5 of exponent, 10 of fraction.

#include "vx_defs.h"

#include <cmath>
#include <cstring>

namespace Viewer
{
using namespace Vexmoor;

constexpr float kLargestHalf = 65504.0f;

/// The nearest half, the even one of two; beyond the largest half, infinity.
inline u16 ToHalf(float number)
{
	u32 bits = 0;
	std::memcpy(&bits, &number, sizeof(bits));
	const u32 sign = bits >> 16 & 0x8000;
	const float size = std::abs(number);
	if (std::isnan(number))
		return u16(sign | 0x7E00);
	if (size >= 65520.0f) // halfway to what would be the next one
		return u16(sign | 0x7C00);
	if (size < 0x1p-14f) // halves have steps of 2^-24 from here down
		return u16(sign | u32(std::nearbyint(size * 0x1p24f)));
	const u32 rebiased = (bits & 0x7FFFFFFF) - ((127 - 15) << 23);
	const u32 lowestKept = rebiased >> 13 & 1;
	return u16(sign | (rebiased + 0xFFF + lowestKept) >> 13);
}

inline float FromHalf(u16 half)
{
	const int exponent = half >> 10 & 0x1F;
	const float fraction = float(half & 0x3FF);
	float size = std::ldexp(1024.0f + fraction, exponent - 25);
	if (exponent == 0)
		size = std::ldexp(fraction, -24);
	if (exponent == 31)
		size = (half & 0x3FF) == 0 ? INFINITY : NAN;
	return (half & 0x8000) != 0 ? -size : size;
}
} // namespace Viewer
