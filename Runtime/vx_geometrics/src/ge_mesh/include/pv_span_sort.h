#pragma once

// A stable sort of records whose keys lie in a known span, and the split of many records into parts that jobs sort one
// by one. Nothing here reports.
//
// The sort of every draw call (kr_sort_radix.h) cuts whole keys into three digits, since its sweeps are part of what it
// promises. Keys of one draw call differ in far fewer bits: those of distances between d and 2 d in 25. If the lowest
// key is subtracted from them first, fewer or shorter digits are enough:
//
//   key            | 32 bits                        |
//   less lowest    | zeros     | digit 1 | digit 0  |      here two digits, so records move twice

#include "ge_mesh_triangle_sorter.h"

#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_sort_lanes.h"
#include "kr_sort_records.h"

#include "pv_fill_groups.h"

#include <algorithm>
#include <cstring>

namespace Vexmoor
{
// From the lowest to the highest key.
struct SKeySpan
{
	u32 m_Lowest = ~0u;
	u32 m_Highest = 0;

	SKeySpan With(const SKeySpan &other) const
	{
		return {std::min(m_Lowest, other.m_Lowest), std::max(m_Highest, other.m_Highest)};
	}
	// How many bits a key has above the lowest one.
	u32 BitCount() const
	{
		u32 bits = 0;
		for (u32 left = m_Highest - m_Lowest; left != 0; left >>= 1)
			++bits;
		return bits;
	}
};

// The span of the records' keys.
static inline SKeySpan SpanOf(const SIndexAndDepth *records, u32 count)
{
	SKeySpan span;
	FillKernels().m_WidenSpan(records, count, span.m_Lowest, span.m_Highest);
	return span;
}

// A record on its way. Compilers move a structure of two numbers number by number, unless told that it is one word.
static VX_INLINE u64 LoadRecord(const SIndexAndDepth *record)
{
	u64 word;
	std::memcpy(&word, record, sizeof(word));
	return word;
}
static VX_INLINE void StoreRecord(SIndexAndDepth *record, u64 word)
{
	std::memcpy(static_cast<void *>(record), &word, sizeof(word));
}
static VX_INLINE u32 KeyOf(u64 record)
{
	return VX_LITTLE_ENDIAN ? u32(record) : u32(record >> 32);
}
static VX_INLINE u32 IndexOf(u64 record)
{
	return VX_LITTLE_ENDIAN ? u32(record >> 32) : u32(record);
}

// How the bits above the lowest key are cut into digits: passCount of them, the lowest one first, of digitBits each.
struct SSpanDigits
{
	u32 m_PassCount;
	u32 m_DigitBits;

	u32 CounterCount() const { return m_PassCount << m_DigitBits; }
};

constexpr u32 kMaxSpanPasses = 4;

// The cheapest way to cut that room for counters allows. Keys that differ in 20 bits, for example, take three digits of
// 7 bits with 100 records, and two of 10 with 500. A pass moves every record, and clears and sums its counters;
// eight counters take about as long as a record.
static inline SSpanDigits CutSpan(u32 bitCount, u32 recordCount, u32 counterRoom)
{
	constexpr u32 kCountersPerRecord = 8;
	constexpr u32 kMinDigitBits = 4; // a step of the prefix sums
	SSpanDigits best = {kMaxSpanPasses, 8};
	u64 bestCost = ~u64(0);
	for (u32 passCount = 1; passCount <= kMaxSpanPasses; ++passCount)
	{
		const SSpanDigits digits = {passCount, std::max((bitCount + passCount - 1) / passCount, kMinDigitBits)};
		const u64 counters = u64(1) << digits.m_DigitBits;
		const u64 cost = passCount * (u64(recordCount) + counters / kCountersPerRecord);
		if (passCount * counters <= counterRoom && cost < bestCost)
		{
			best = digits;
			bestCost = cost;
		}
	}
	return best;
}

// Counts all digits of all keys in one sweep: the counters of each digit lie behind those of the digit below.
//
//   counters   | digit 0: 2^digitBits | digit 1 | ... one for each pass
template<u32 _PassCount>
static void CountSpanDigits(
	const SIndexAndDepth *__restrict records, u32 count, u32 lowest, u32 digitBits, u32 *__restrict counters)
{
	const u32 mask = (1u << digitBits) - 1;
	u32 *const counters1 = counters + (1u << digitBits);
	u32 *const counters2 = counters + (2u << digitBits);
	u32 *const counters3 = counters + (3u << digitBits);
	ForEachRecord(count,
		[=](u32 i)
		{
			const u32 bits = records[i].m_Depth - lowest;
			++counters[bits & mask];
			if constexpr (_PassCount > 1)
				++counters1[(bits >> digitBits) & mask];
			if constexpr (_PassCount > 2)
				++counters2[(bits >> 2 * digitBits) & mask];
			if constexpr (_PassCount > 3)
				++counters3[(bits >> 3 * digitBits) & mask];
		});
}

// Moves the records to the positions of their digits. A position is then one higher, for the next record of its digit.
//
//   digits of source       2  0  2  1
//   positions before       0: 0   1: 1   2: 2
//   destination            the second record, the fourth, the first, the third
//   positions afterwards   0: 1   1: 2   2: 4
static inline void ScatterBySpanDigit(const SIndexAndDepth *__restrict source,
	SIndexAndDepth *__restrict destination,
	u32 count,
	u32 lowest,
	u32 firstBit,
	u32 mask,
	u32 *__restrict positions)
{
	ForEachRecord(count,
		[=](u32 i)
		{
			const u64 record = LoadRecord(source + i);
			const u32 digit = ((KeyOf(record) - lowest) >> firstBit) & mask;
			const u32 place = positions[digit];
			positions[digit] = place + 1;
			StoreRecord(destination + place, record);
		});
}

// Sorts few records: each one moves down past those of higher keys, and stops behind an equal one, so that equal keys
// keep their order.
static inline void InsertionSortRecords(SIndexAndDepth *records, u32 count)
{
	for (u32 i = 1; i < count; ++i)
	{
		const SIndexAndDepth record = records[i];
		u32 place = i;
		for (; place != 0 && record.m_Depth < records[place - 1].m_Depth; --place)
			records[place] = records[place - 1];
		records[place] = record;
	}
}

// Sorts records in ascending order of their keys, equal keys in the order that they come in. Moves them between the two
// arrays, and returns the one that they end in.
// span         contains all keys; the narrower, the faster
// counters     memory for counterRoom of them, at least 1,024
static inline SIndexAndDepth *SortBySpan(
	SIndexAndDepth *records, SIndexAndDepth *others, u32 count, const SKeySpan &span, u32 *counters, u32 counterRoom)
{
	constexpr u32 kMaxInsertedCount = 16;
	const u32 bitCount = count == 0 ? 0 : span.BitCount();
	if (bitCount == 0)
		return records;
	if (count <= kMaxInsertedCount)
	{
		InsertionSortRecords(records, count);
		return records;
	}

	const SSpanDigits digits = CutSpan(bitCount, count, counterRoom);
	constexpr void (*kCount[])(const SIndexAndDepth *, u32, u32, u32, u32 *) = {
		&CountSpanDigits<1>, &CountSpanDigits<2>, &CountSpanDigits<3>, &CountSpanDigits<4>};
	std::memset(counters, 0, digits.CounterCount() * sizeof(u32));
	kCount[digits.m_PassCount - 1](records, count, span.m_Lowest, digits.m_DigitBits, counters);
	const u32 mask = (1u << digits.m_DigitBits) - 1;
	for (u32 pass = 0; pass < digits.m_PassCount; ++pass)
	{
		u32 *const positions = counters + (pass << digits.m_DigitBits); // once they are summed up
		SortLanes::SumCounters(positions, mask + 1);
		ScatterBySpanDigit(records, others, count, span.m_Lowest, pass * digits.m_DigitBits, mask, positions);
		std::swap(records, others);
	}
	return records;
}
} // namespace Vexmoor
