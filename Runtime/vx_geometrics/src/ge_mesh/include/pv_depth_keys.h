#pragma once

// The depth-key encodings, four lanes at a time, and the lane arithmetic that leads to them. Ascending keys, compared
// as unsigned, are the drawing order. Nothing here reports.
//
// Keys are exact to the bit whatever flags this is compiled with: sums are taken by an instruction that no compiler
// fuses with the product before it, reassociates or commutes, and signs and NaNs are handled as integers.

#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_sort.h"

#include "pv_mesh_triangle_sorter.h"

namespace Vexmoor
{
constexpr u32 kSignBit = 0x80000000u;
constexpr u32 kMinusInfinityBits = 0xFF800000u;

// x, y, z, 0 from 12 bytes at any address.
static VX_INLINE __m128 LoadFloat3(const void *p)
{
	const __m128i xy = _mm_loadl_epi64(static_cast<const __m128i *>(p));
	const __m128i z = _mm_cvtsi32_si128(s32(LoadU32(static_cast<const u8 *>(p) + 8)));
	return _mm_castsi128_ps(_mm_unpacklo_epi64(xy, z));
}

template<u32 _Lane>
static VX_INLINE __m128 SplatLane(__m128 lanes)
{
	return _mm_shuffle_ps(lanes, lanes, _MM_SHUFFLE(_Lane, _Lane, _Lane, _Lane));
}

// The arithmetic of keys: each result rounded once, and NaNs as x86 has them, the first operand's before the second's,
// and a negative one where there was none.
#if defined(__SSE2__)
// The instruction is spelled out because compilers fuse an add intrinsic with the multiplication before it where they
// may use FMA, and swap its operands where it suits them. Its long prefix is spelled out because assemblers swap the
// operands where that makes a short prefix do, as if no NaN told them apart; clang's does so from 19 on. A 512-bit
// addition has one prefix only.
static VX_INLINE __m128 AddInOrder(__m128 a, __m128 b)
{
	#if defined(__AVX__)
	__asm__("%{vex3%} vaddps %2, %1, %0" : "=x"(a) : "x"(a), "x"(b));
	#else
	__asm__("addps %1, %0" : "+x"(a) : "x"(b));
	#endif
	return a;
}
static VX_INLINE __m128 Subtract(__m128 a, __m128 b)
{
	return _mm_sub_ps(a, b);
}
static VX_INLINE __m128 Square(__m128 a)
{
	return _mm_mul_ps(a, a);
}
#elif defined(__aarch64__)
// mask ? a : b, in integers, which no fast arithmetic sees through.
static VX_INLINE __m128i Select(__m128i mask, __m128i a, __m128i b)
{
	return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b));
}

// Full lanes where the bits are a NaN's.
static VX_INLINE __m128i NaNs(__m128i bits)
{
	return _mm_cmpgt_epi32(_mm_and_si128(bits, Splat(0x7FFFFFFFu)), Splat(0x7F800000u));
}

// This processor's own choice of a NaN, a signalling one before a quiet one, made x86's.
static VX_INLINE __m128 WithNaNsOf(__m128 a, __m128 b, __m128 result)
{
	constexpr u32 kQuietBit = 0x00400000u, kNewNaN = 0xFFC00000u;
	const __m128i aBits = _mm_castps_si128(a), bBits = _mm_castps_si128(b), resultBits = _mm_castps_si128(result);
	__m128i bits = Select(NaNs(resultBits), Splat(kNewNaN), resultBits);
	bits = Select(NaNs(bBits), _mm_or_si128(bBits, Splat(kQuietBit)), bits);
	bits = Select(NaNs(aBits), _mm_or_si128(aBits, Splat(kQuietBit)), bits);
	return _mm_castsi128_ps(bits);
}

static VX_INLINE __m128 AddInOrder(__m128 a, __m128 b)
{
	__m128 sum;
	__asm__("fadd %0.4s, %1.4s, %2.4s" : "=w"(sum) : "w"(a), "w"(b));
	return WithNaNsOf(a, b, sum);
}
static VX_INLINE __m128 Subtract(__m128 a, __m128 b)
{
	__m128 difference;
	__asm__("fsub %0.4s, %1.4s, %2.4s" : "=w"(difference) : "w"(a), "w"(b));
	return WithNaNsOf(a, b, difference);
}
static VX_INLINE __m128 Square(__m128 a)
{
	__m128 square;
	__asm__("fmul %0.4s, %1.4s, %1.4s" : "=w"(square) : "w"(a));
	return WithNaNsOf(a, a, square);
}
#else
	#error "keys are exact on x86 with SSE2 and on AArch64: other processors need their arithmetic spelled out here"
#endif

// 0 - a: +0.0 for both zeros. The zero is opaque, or -ffast-math makes it a flip of the sign.
static VX_INLINE __m128 SubtractFromZero(__m128 a)
{
	__m128 zero = _mm_setzero_ps();
#if defined(__SSE2__)
	__asm__("" : "+x"(zero));
#endif
	return Subtract(zero, a);
}

// (x * x + y * y) + z * z, each product and sum rounded on its own, in this order on every path.
static VX_INLINE __m128 SquaredLength(__m128 x, __m128 y, __m128 z)
{
	return AddInOrder(AddInOrder(Square(x), Square(y)), Square(z));
}

// The squared length of one vector x, y, z, ?, in lane 0.
static VX_INLINE __m128 SquaredLengthOfOne(__m128 xyz)
{
	return SquaredLength(xyz, SplatLane<1>(xyz), SplatLane<2>(xyz));
}

static VX_INLINE u32 BitsOfLane0(__m128 lanes)
{
	return u32(_mm_cvtsi128_si32(_mm_castps_si128(lanes)));
}

// The key of a squared distance: its bits inverted, so that the farthest comes first. A square has no sign: keys run
// from 0x807FFFFF, infinitely far, to 0xFFFFFFFF, at the camera. A NaN falls below, or between, by its sign.
struct SDistanceKey
{
	static constexpr u32 kFar = 0x807FFFFFu;

	static VX_INLINE __m128i FromLanes(__m128 len2)
	{
		return _mm_xor_si128(_mm_castps_si128(len2), _mm_set1_epi32(-1));
	}
	static VX_INLINE u32 FromBits(u32 len2Bits) { return ~len2Bits; }
	static VX_INLINE __m128i FarWhere(__m128i mask) { return _mm_and_si128(mask, Splat(kFar)); }
};

// The key of a value: a float without sign gets the sign bit, one with it is inverted whole (M. Herf, "Radix Tricks",
// 2001), so that the lowest value comes first.
struct SValueKey
{
	static constexpr u32 kFar = 0x007FFFFFu; // of minus infinity

	static VX_INLINE __m128i FromLanes(__m128i bits)
	{
		const __m128i negative = _mm_srai_epi32(bits, 31);
		return _mm_xor_si128(_mm_or_si128(bits, Splat(kSignBit)), negative);
	}
	static VX_INLINE u32 FromBits(u32 bits) { return SRadixSortExtractorSignedFP<float>::ExtractKeyFromBits(bits); }
	// A full mask shifted by sign and exponent is the key itself: no constant to load.
	static VX_INLINE __m128i FarWhere(__m128i mask) { return _mm_srli_epi32(mask, 9); }
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
