#pragma once

// What all stages of the sort share: scalars and packed indices at addresses that promise little alignment, and lanes.
// The stages' own lane work stands in the headers beside this one.

#include "vx_compiler.h"
#include "vx_defs.h"
#include "vx_sse2.h"

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
	typedef u32 VX_ANYWHERE CStored;
	*static_cast<volatile CStored *>(p) = value;
}
static VX_INLINE void StoreU64(volatile void *p, u64 value)
{
	if constexpr (sizeof(void *) == sizeof(u64))
	{
		typedef u64 VX_ANYWHERE CStored;
		*static_cast<volatile CStored *>(p) = value;
	}
	else // a 32-bit processor needs two stores in any case, and clang would do the upper one first
	{
		StoreU32(p, u32(value));
		StoreU32(static_cast<volatile u8 *>(p) + sizeof(u32), u32(value >> 32));
	}
}

static VX_INLINE void StoreLanes(volatile void *p, __m128i lanes)
{
	typedef __m128i VX_ANYWHERE CStored;
	*static_cast<volatile CStored *>(p) = lanes;
}

static VX_INLINE __m128i Splat(u32 value)
{
	return _mm_set1_epi32(s32(value));
}

// Lane arguments count down, as in _MM_SHUFFLE: the last names what becomes lane 0.
template<u32 _Lane3, u32 _Lane2, u32 _Lane1, u32 _Lane0>
static VX_INLINE __m128i Shuffle(__m128i lanes)
{
	return _mm_shuffle_epi32(lanes, _MM_SHUFFLE(_Lane3, _Lane2, _Lane1, _Lane0));
}

// Lanes 0 and 1 from low, lanes 2 and 3 from high.
template<u32 _Lane3, u32 _Lane2, u32 _Lane1, u32 _Lane0>
static VX_INLINE __m128i Shuffle2(__m128i low, __m128i high)
{
	return _mm_castps_si128(
		_mm_shuffle_ps(_mm_castsi128_ps(low), _mm_castsi128_ps(high), _MM_SHUFFLE(_Lane3, _Lane2, _Lane1, _Lane0)));
}
} // namespace Vexmoor
