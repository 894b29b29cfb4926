#pragma once

// Arithmetic for simulations that give the same bits on every machine: integers, and floats in an order that is written
// down, without contraction and without the standard library's functions, whose last bits differ between machines.
// Square roots are exact everywhere.

#include "vx_defs.h"

namespace Viewer
{
using namespace Vexmoor;

/// Mixes all bits of its argument (the finaliser of SplitMix64, by S. Vigna).
VX_WRAPS inline u64 Mix(u64 bits)
{
	bits += 0x9E3779B97F4A7C15ull;
	bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9ull;
	bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EBull;
	return bits ^ (bits >> 31);
}

/// A sequence of random numbers.
class CRandom
{
public:
	explicit CRandom(u64 seed)
		: m_State(Mix(seed))
	{
	}

	VX_WRAPS u32 Next() { return u32(Mix(m_State++) >> 32); }
	/// From 0 up to, not including, 1, in steps of 2^-24: exact in a float.
	float Unit() { return float(Next() >> 8) * (1.0f / 16777216.0f); }
	float Between(float low, float high) { return low + (high - low) * Unit(); }
	/// From 0 to count - 1.
	u32 Below(u32 count) { return u32((u64(Next()) * count) >> 32); }

private:
	u64 m_State;
};

/// The sine of an angle in whole turns: a parabola through the zeros and peaks, bent towards the sine; off by 0.001.
inline float SineOfTurns(float turns)
{
	const float floored = float(s32(turns)) - (turns < 0.0f ? 1.0f : 0.0f);
	const float x = (turns - floored) * 2.0f - 1.0f; // -1 to 1 over one turn
	const float parabola = -4.0f * x * (1.0f - (x < 0.0f ? -x : x));
	const float bent = parabola * (parabola < 0.0f ? -parabola : parabola);
	return 0.775f * parabola + 0.225f * bent;
}
inline float CosineOfTurns(float turns)
{
	return SineOfTurns(turns + 0.25f);
}
} // namespace Viewer
