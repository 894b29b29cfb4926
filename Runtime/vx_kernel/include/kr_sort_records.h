#pragma once

// What the sorts know of records: the keys that an extractor makes of them, how they lie in memory, and the key of a
// float.

#include "vx_compiler.h"
#include "vx_defs.h"

#include <cstring>
#include <type_traits>
#include <utility>

namespace Vexmoor
{
/// Records in a cache line, at least one.
template<typename _Record>
constexpr u32 kRecordsPerLine = sizeof(_Record) < kCacheLineInBytes ? kCacheLineInBytes / sizeof(_Record) : 1;

/// Calls body(i) for each record, from the first to the last. Each _RecordsPerStep of these calls follow each other
/// without a test in between, so that the processor sees more of the independent ones ahead.
template<u32 _RecordsPerStep = 8, typename _Body>
VX_INLINE void ForEachRecord(u32 count, const _Body &body)
{
	const u32 inWholeSteps = count - count % _RecordsPerStep;
	for (u32 i = 0; i < inWholeSteps; i += _RecordsPerStep)
	{
		for (u32 k = 0; k < _RecordsPerStep; ++k)
			body(i + k);
	}
	for (u32 i = inWholeSteps; i < count; ++i)
		body(i);
}

/// Where two records go.
struct STwoPlaces
{
	u32 m_First;  ///< The place of the first record.
	u32 m_Second; ///< The place of the second record.
};

/// Takes the positions of the digits of two records in a row, and moves each on to the next place of its digit. Both
/// positions are loaded before one is stored, so that neither load waits for a store of this pair. If the digits are
/// equal, the second record goes behind the first one, and of the two stores to the one position the second is right:
///
///   digits       places             positions afterwards
///   a, b         p[a], p[b]         p[a] + 1, p[b] + 1
///   a, a         p[a], p[a] + 1     p[a] + 1, then p[a] + 2
template<typename _Counter>
VX_INLINE STwoPlaces TakeTwoPlaces(_Counter *positions, u32 firstDigit, u32 secondDigit)
{
	const u32 first = positions[firstDigit];
	const u32 second = positions[secondDigit] + u32(firstDigit == secondDigit);
	positions[firstDigit] = _Counter(first + 1);
	positions[secondDigit] = _Counter(second + 1);
	return {first, second};
}

/// True if the ranges [a, a + count) and [b, b + count) have no byte in common.
/// Addresses are compared as numbers, since the two may belong to different objects.
template<typename _Type>
bool AreApart(const _Type *a, const _Type *b, u32 count)
{
	const ureg first = reinterpret_cast<ureg>(a);
	const ureg second = reinterpret_cast<ureg>(b);
	return (first < second ? second - first : first - second) >= count * ureg(sizeof(_Type));
}

/// The type of the keys that an extractor makes of records.
template<typename _KeyExtractor, typename _Record>
using TExtractedKey =
	std::decay_t<decltype(std::declval<const _KeyExtractor &>().ExtractKey(std::declval<const _Record &>()))>;

/// True for extractors that the sorts can use: their keys are u32, and their SortKeyType says so.
template<typename _KeyExtractor, typename _Record>
constexpr bool kExtractsU32 = std::is_same_v<TExtractedKey<_KeyExtractor, _Record>, u32>
	&&std::is_same_v<typename _KeyExtractor::SortKeyType, u32>;

/// True for extractors whose key is the first 32-bit word, unchanged, of a record of two such words. An extractor says
/// so in a constant of this name; without the constant it is false.
template<typename _KeyExtractor, typename = void>
constexpr bool kKeyIsFirstOfTwoWords = false;
/// The value for extractors that have the constant.
template<typename _KeyExtractor>
constexpr bool kKeyIsFirstOfTwoWords<_KeyExtractor, std::enable_if_t<_KeyExtractor::kKeyIsFirstOfTwoWords>> = true;

/// Makes 32-bit keys whose unsigned order is the order of signed floats.
template<typename _Scalar>
struct SRadixSortExtractorSignedFP;

/// Keys of single-precision floats.
template<>
struct SRadixSortExtractorSignedFP<float>
{
	typedef u32 SortKeyType; ///< Compared as unsigned.

	/// Sets the sign bit of a float without sign, and inverts all bits of one with it (M. Herf, "Radix Tricks", 2001).
	/// Negative zero comes just below positive zero, NaNs beyond the infinities on the side of their sign.
	static VX_INLINE u32 ExtractKey(const float &value)
	{
		u32 bits;
		std::memcpy(&bits, &value, sizeof(bits));
		return ExtractKeyFromBits(bits);
	}

	/// The key of the float that has these bits.
	static VX_INLINE u32 ExtractKeyFromBits(u32 bits)
	{
		// cppcheck-suppress shiftTooManyBitsSigned ; arithmetic with both compilers
		const u32 negative = u32(s32(bits) >> 31);
		return bits ^ (negative | 0x80000000u);
	}
};
} // namespace Vexmoor
