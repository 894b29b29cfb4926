#pragma once

// A sort of up to six records with distinct keys, by a sorting network in general-purpose registers. A sorting network
// compares the same places whatever the keys, so no branch is mispredicted. With so few records, what any other sort
// does before and after comparing keys takes longer than the whole network.

#include "vx_assert.h"
#include "vx_compiler.h"
#include "vx_defs.h"

#include <cstddef>
#include <cstring>
#include <utility>

namespace Vexmoor
{
/// Up to how many records SortFewDistinct sorts. From seven on, ranking (kr_sort_ranks.h) takes less time.
constexpr u32 kMaxFewCount = 6;

/// The comparisons of a sorting network for 2 to 8 numbers. No network with fewer is known. "02 13" compares the
/// numbers at places 0 and 2, then those at 1 and 3. Of two numbers, the lower one goes to the place that is named
/// first. The network of four numbers, comparison by comparison:
///
///   place    before   02   13   01   23   12
///   0        7        7    7    2    2    2
///   1        2        2    2    7    7    4
///   2        9        9    9    9    4    7
///   3        4        4    4    4    9    9
constexpr const char *SortingNetwork(u32 count)
{
	constexpr const char *kNetworks[] = {
		"01",
		"02 01 12",
		"02 13 01 23 12",
		"03 14 02 13 01 24 12 34 23",
		"05 13 24 12 34 03 25 01 23 45 12 34",
		"06 23 45 02 14 36 01 25 34 12 46 23 45 12 34 56",
		"02 13 46 57 04 15 26 37 01 23 45 67 24 35 14 36 12 34 56",
	};
	return kNetworks[count - 2];
}

/// Characters of a comparison: two digits, and a space or the text's end.
constexpr u32 kTextPerComparison = 3;

/// How many comparisons a network has.
constexpr u32 ComparisonCount(const char *network)
{
	u32 count = 1;
	for (; network[kTextPerComparison - 1] != '\0'; network += kTextPerComparison)
		++count;
	return count;
}

/// Loads a record of two words as one number, whose high half is the key and whose low half is the other word. So
/// numbers compare as their keys do.
VX_WRAPS VX_INLINE u64 LoadKeyHigh(const void *record)
{
	u64 words;
	std::memcpy(&words, record, sizeof(words));
	return VX_LITTLE_ENDIAN ? words << 32 | words >> 32 : words;
}

/// Stores a record that LoadKeyHigh has loaded.
VX_WRAPS VX_INLINE void StoreKeyFirst(void *record, u64 number)
{
	const u64 words = VX_LITTLE_ENDIAN ? number << 32 | number >> 32 : number;
	std::memcpy(record, &words, sizeof(words));
}

/// Puts two numbers in order. Compilers recognise a minimum and a maximum in these lines, and make no branch of them.
VX_INLINE void CompareAndExchange(u64 &lower, u64 &higher)
{
	const u64 a = lower, b = higher;
	lower = b < a ? b : a;
	higher = b < a ? a : b;
}

/// SortFewDistinct for one count. The template writes all comparisons out, because an array whose elements a loop
/// chooses would lie in memory.
template<u32 _Count, std::size_t... _Places, std::size_t... _Comparisons>
VX_INLINE bool SortCountDistinct(
	const u8 *records, u8 *sorted, std::index_sequence<_Places...>, std::index_sequence<_Comparisons...>)
{
	constexpr const char *kNetwork = SortingNetwork(_Count);
	u64 numbers[_Count] = {LoadKeyHigh(records + _Places * sizeof(u64))...};
	(CompareAndExchange(numbers[kNetwork[_Comparisons * kTextPerComparison] - '0'],
		 numbers[kNetwork[_Comparisons * kTextPerComparison + 1] - '0']),
		...);
	for (u32 i = 1; i < _Count; ++i)
	{
		if ((numbers[i - 1] ^ numbers[i]) >> 32 == 0)
			return false;
	}
	(StoreKeyFirst(sorted + _Places * sizeof(u64), numbers[_Places]), ...);
	return true;
}
/// The same, with the lists that write out its places and comparisons.
template<u32 _Count>
VX_INLINE bool SortCountDistinct(const void *records, void *sorted)
{
	return SortCountDistinct<_Count>(static_cast<const u8 *>(records), static_cast<u8 *>(sorted),
		std::make_index_sequence<_Count>(), std::make_index_sequence<ComparisonCount(SortingNetwork(_Count))>());
}

/// Sorts up to kMaxFewCount records into sorted and returns true if their keys are distinct. With equal keys among
/// them, nothing is written and false returned.
/// records  at any address: a 32-bit key, compared as unsigned, and 32 bits that do not count. A higher count is
///          reported, and nothing is read or written
/// sorted   as many records; may be the records themselves
VX_NOINLINE inline bool SortFewDistinct(const void *records, u32 count, void *sorted)
{
	switch (count)
	{
	case 0:
		return true;
	case 1:
		std::memmove(sorted, records, sizeof(u64));
		return true;
	case 2:
		return SortCountDistinct<2>(records, sorted);
	case 3:
		return SortCountDistinct<3>(records, sorted);
	case 4:
		return SortCountDistinct<4>(records, sorted);
	case 5:
		return SortCountDistinct<5>(records, sorted);
	case 6:
		return SortCountDistinct<6>(records, sorted);
	default:
		VX_ASSERT(count <= kMaxFewCount);
		return false;
	}
}
} // namespace Vexmoor
