#pragma once

// What the expansion of quads in order is made of: counts, keys, and the function for each instruction set. Its body is
// in pv_quad_kernels.h.

#include "vx_defs.h"

namespace Vexmoor
{
constexpr u32 kIndicesPerQuad = 6;
constexpr u32 kQuadSlotsPerParticle = 16; // a key carries its quad's number in 4 bits
constexpr u32 kQuadNumberMask = kQuadSlotsPerParticle - 1;
constexpr u32 kQuadCenterInBytes = 16; // x, y, z, and a float that is not for reading

// Particles whose quads are put in order together: a multiple of the lanes of every register. While one block is put in
// order, the cache lines of the next one are on their way.
constexpr u32 kQuadBlockCount = 16;

// Pairs of rows of keys. Comparing the pairs one after the other, and exchanging each that is in the wrong order, sorts
// the rows, whatever the keys.
struct SQuadNetwork
{
	static constexpr u32 kMaxPairCount = 63; // of sixteen rows

	struct SPair
	{
		u8 m_Lower, m_Upper;
	};
	SPair m_Pairs[kMaxPairCount];
	u32 m_PairCount;
	u32 m_QuadCount;
};

// A row for each quad, a column for each particle of a block.
struct SQuadKeyRows
{
	alignas(64) u32 m_Keys[kQuadSlotsPerParticle][kQuadBlockCount];
};

struct SQuadKernels
{
	// Makes the keys of a block's quads, and sorts each particle's: row r of its column gets the key of its r-th quad
	// to draw, of which the lowest four bits are the quad's number. The farthest quad comes first. Quads whose
	// distances agree in all but the lowest four bits come in the order of their numbers.
	// centers  for each particle, the address of its first quad's centre; the others follow. Addresses behind the
	//          last particle fill up a register, and repeat some particle's
	// camera   x, y and z
	// rows     columns behind the last particle are unspecified afterwards
	void (*m_Sort)(const u8 *const *centers,
		u32 particleCount,
		const SQuadNetwork &network,
		const float *camera,
		SQuadKeyRows &rows);
};
} // namespace Vexmoor
