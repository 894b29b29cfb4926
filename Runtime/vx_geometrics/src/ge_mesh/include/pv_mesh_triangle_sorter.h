#pragma once

// What all stages of the sort share: scalars at addresses that promise no alignment, and the counts of records that go
// together.

#include "vx_compiler.h"
#include "vx_defs.h"

#include <cstring>

namespace Vexmoor
{
constexpr u32 kRecordsPerAccess = 2; // 8-byte records, 16-byte aligned accesses
constexpr u32 kRecordsPerGroup = 4;  // one record per 32-bit lane

// Loads and stores at any address, whatever type the bytes have been written as.
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

// Stores of outputs, at any address. They are volatile: compilers keep them whole and in their order.
static VX_INLINE void StoreU32(volatile void *p, u32 value)
{
	VX_STORE_IN_PLACE(u32, p, value);
}
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
