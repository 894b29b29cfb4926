#pragma once

// What every billboard writes: the six indices of a quad.

#include "vx_defs.h"

namespace VexmoorBench
{
using namespace Vexmoor;

constexpr u32 kQuad[6] = {0, 1, 2, 0, 2, 3};
constexpr u32 kIndicesPerQuad = 6;
constexpr u32 kVerticesPerQuad = 4;

template<typename _Index>
inline void WriteQuad(_Index *out, u32 firstVertex)
{
	for (u32 i = 0; i < kIndicesPerQuad; ++i)
		out[i] = _Index(firstVertex + kQuad[i]);
}
} // namespace VexmoorBench
