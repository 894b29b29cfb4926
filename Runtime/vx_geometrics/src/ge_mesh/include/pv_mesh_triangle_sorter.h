#pragma once

// What all stages of the sort share: scalars at addresses that promise no alignment, and the counts of records that go
// together.

#include "vx_compiler.h"
#include "vx_defs.h"

#include <cstring>

namespace Vexmoor
{
// A record is a 32-bit key and a 32-bit vertex base:
//
//   bytes     0      4      8      12
//             k0     b0     k1     b1       one access of 16 bytes
constexpr u32 kRecordsPerAccess = 2; // 8-byte records, 16-byte aligned accesses
// A group of four records has its keys in the four lanes of one register and its bases in those of another.
//
//   lane      0    1    2    3
//   keys      k0   k1   k2   k3
//   bases     b0   b1   b2   b3
constexpr u32 kRecordsPerGroup = 4; // one record per 32-bit lane

// Loads and stores at any address, whatever type the bytes have been written as. Compilers turn the
// copy into one load. A cast reference would let them assume that the bytes were written as its type.
static VX_INLINE u32 LoadU32(const void *p)
{
	u32 value;
	std::memcpy(&value, p, sizeof(value));
	return value;
}
static VX_INLINE u64 LoadU64(const void *p)
{
	u64 value;
	std::memcpy(&value, p, sizeof(value));
	return value;
}

// Stores of outputs, at any address. They are volatile, so compilers keep each one whole, in its order, and once: the
// output may be write-combined memory of a graphics processor, which is slow to fill out of order.
static VX_INLINE void StoreU32(volatile void *p, u32 value)
{
	VX_STORE_IN_PLACE(u32, p, value);
}
// One store of eight bytes on 64-bit processors. On others the lower half comes first, as addresses ascend.
static VX_INLINE void StoreU64(volatile void *p, u64 value)
{
	if constexpr (sizeof(void *) == sizeof(u64))
	{
		VX_STORE_IN_PLACE(u64, p, value);
	}
	else // a 32-bit processor needs two stores in any case, and clang would do the upper one first
	{
		StoreU32(p, u32(value));
		StoreU32(static_cast<volatile u8 *>(p) + sizeof(u32), u32(value >> 32));
	}
}
} // namespace Vexmoor
