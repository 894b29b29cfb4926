#pragma once

// Random numbers for inputs. The distributions of the standard library differ from one implementation to the next;
// these numbers are the same everywhere.

#include "bench_inputs.h"

namespace VexmoorBench
{
/// SplitMix64: one multiply-xorshift chain per number, good enough for inputs.
class CRandom
{
public:
	explicit CRandom(u64 seed)
		: m_State(seed)
	{
	}
	u64 Next64()
	{
		m_State += 0x9E3779B97F4A7C15ull;
		u64 z = m_State;
		z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
		z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
		return z ^ (z >> 31);
	}
	u32 Next32() { return u32(Next64() >> 32); }
	/// In [lowest, highest].
	u32 NextBetween(u32 lowest, u32 highest) { return lowest + u32((u64(Next32()) * (highest - lowest + 1)) >> 32); }
	/// In [-1, 1).
	float NextSigned() { return float(s32(Next32())) * (1.0f / 2147483648.0f); }
	CFloat3 NextInBall()
	{
		for (;;)
		{
			const CFloat3 point(NextSigned(), NextSigned(), NextSigned());
			if (SquaredDistance(point, CFloat3()) <= 1.0f)
				return point;
		}
	}

private:
	u64 m_State;
};
} // namespace VexmoorBench
