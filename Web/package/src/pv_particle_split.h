#pragma once

// The sort of very many particles, which moves records through memory once. Records go to parts of the key range as
// they are filled; then one part after the other is sorted in a second-level cache and written out.
//
//   particles   | group | group | group | ...               filled one group after the other, in a first-level cache
//   blocks      | part 2 | part 0 | part 1 | part 2 | ...   a part takes the next free block when its last one is full
//   one part    | block | block | block |                   its records in the order of particles
//
// A sample of the keys says where parts begin, so that they have about as many records each. There are few parts: with
// hundreds, each store would wait for a cache line that no prefetcher has fetched.
//
// Records are those of a fill of all particles, since groups are whole fours. Every step keeps the order of equal keys,
// so the result is that of the library's sort.

#include "ge_mesh_triangle_sorter.h"

#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_memoryviews.h"
#include "kr_sort.h"
#include "kr_sort_lanes.h"
#include "kr_sort_records.h"

#include "pv_span_sort.h"
#include "pv_two_digit_sort.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace Vexmoor
{
class CParticleSplit
{
public:
	// Fewer particles are sorted by other means. With node on an Intel Xeon and beside other work, splitting a cloud
	// took 1.13 times as long for 100,000 particles, 0.88 times as long for 200,000 and 0.6 times for a million.
	static constexpr u32 kMinCount = 200000;

	// Records that a part takes at a time.
	static constexpr u32 kBlockSize = 1024;

	// With 32 parts, a million took as long, and 4 million 1.03 times as long.
	static constexpr u32 kPartCount = 48;

	// How many records there is room for in the blocks. Each part may leave its last block almost empty.
	static u64 BlocksSize(u64 count) { return count + kPartCount * kBlockSize; }

	// Bytes of other memory.
	static u64 MemorySize(u64 count) { return offsetof(SMemory, m_NextBlocks) + BlocksSize(count) / kBlockSize * 4; }

	// blocks  BlocksSize(count) records
	// sorted  as many records as particles
	// memory  MemorySize(count) bytes, at a multiple of 4
	// step    what an index is of the number of its particle
	CParticleSplit(u32 count, SIndexAndDepth *blocks, SIndexAndDepth *sorted, void *memory, u32 step)
		: m_Count(count)
		, m_Step(step)
		, m_NumberBits(SKeySpan{0, count - 1}.BitCount())
		, m_Blocks(blocks)
		, m_Sorted(sorted)
		, m_Memory(*static_cast<SMemory *>(memory))
	{
	}

	// Sorts the particles and writes their indices. Returns false, with nothing written, if a part would have half of
	// the particles or more: then splitting saves too little.
	// fill      fill(first, records) writes the records of the particles from first on, with their numbers as indices
	// expand    expand(first, records, count) writes the indices of sorted records, of which first ones come before
	template<typename _Fill, typename _Expand>
	bool Run(const _Fill &fill, const _Expand &expand)
	{
		if (!_ShareKeys(fill))
			return false;
		_MoveToParts(fill);
		if (*std::max_element(m_Counts, m_Counts + kPartCount) > _Half())
			return false;
		u32 first = 0;
		for (u32 part = 0; part < kPartCount; first += m_Counts[part++])
		{
			if (m_Counts[part] != 0)
				expand(first, _SortPart(part), m_Counts[part]);
		}
		return true;
	}

private:
	// A digit is a key's sign, exponent and the first bits of its fraction: 64 digits from one power of two to the
	// next. A part is some digits in a row.
	static constexpr u32 kDigitShift = 17;
	static constexpr u32 kDigitCount = 1u << (32 - kDigitShift);

	static constexpr u32 kSampleCount = 1024;

	// Records that are filled at a time. They stay in a first-level cache until they are moved.
	static constexpr u32 kGroupSize = 256;
	static_assert(kGroupSize % kRecordsPerGroup == 0);

	// Digits of the two passes over a part.
	static constexpr u32 kLowerBitsOfPart = 12;
	static constexpr u32 kLowerMaskOfPart = (1u << kLowerBitsOfPart) - 1;
	static constexpr u32 kMaxUpperBitsOfPart = 12;

	static constexpr u32 kNoBlock = ~0u;

	struct SMemory
	{
		u8 m_PartOfDigit[kDigitCount];
		u32 m_Lower[1u << kLowerBitsOfPart];
		u32 m_Upper[1u << kMaxUpperBitsOfPart];
		u32 m_NextBlocks[1]; // of the same part, for each block
	};

	// A part's words, or its records, lie in the first half of the array. Its sorted records lie in the second half, at
	// a multiple of 16 bytes.
	u32 _Half() const { return m_Count / 4 * kRecordsPerAccess; }

	// Chooses where parts begin, by the keys of a sample. Returns false if half of them share a digit.
	template<typename _Fill>
	bool _ShareKeys(const _Fill &fill)
	{
		SIndexAndDepth *const sample = m_Blocks;
		const u32 distance = m_Count / kSampleCount * kRecordsPerGroup;
		for (u32 i = 0; i < kSampleCount; i += kRecordsPerGroup)
			fill(i / kRecordsPerGroup * distance, TMemoryView<SIndexAndDepth>(sample + i, kRecordsPerGroup));
		Sort<SSortKeyExtractor_TriangleIndexAndDepth>(sample, sample + kSampleCount, m_Sorted);

		const auto digitOf = [this](u32 i) { return m_Sorted[i].m_Depth >> kDigitShift; };
		for (u32 i = 0; i < kSampleCount / 2; ++i)
		{
			if (digitOf(i) == digitOf(i + kSampleCount / 2))
				return false;
		}
		u32 digit = 0;
		for (u32 part = 0; part < kPartCount; ++part)
		{
			const bool isLast = part == kPartCount - 1;
			const u32 end = isLast ? kDigitCount : digitOf((part + 1) * kSampleCount / kPartCount);
			std::memset(m_Memory.m_PartOfDigit + digit, int(part), end - digit);
			digit = end;
		}
		return true;
	}

	// Fills all records and moves each to a block of its part.
	template<typename _Fill>
	void _MoveToParts(const _Fill &fill)
	{
		u32 places[kPartCount]; // of each part's next record
		u32 lastBlocks[kPartCount];
		for (u32 part = 0; part < kPartCount; ++part)
		{
			m_FirstBlocks[part] = lastBlocks[part] = part;
			m_Memory.m_NextBlocks[part] = kNoBlock;
			places[part] = part * kBlockSize;
			m_Counts[part] = 0;
		}
		u32 blockCount = kPartCount;
		const auto takeBlock = [&](u32 part)
		{
			m_Memory.m_NextBlocks[lastBlocks[part]] = blockCount;
			m_Memory.m_NextBlocks[blockCount] = kNoBlock;
			lastBlocks[part] = blockCount;
			m_Counts[part] += kBlockSize;
			return blockCount++ * kBlockSize;
		};

		SIndexAndDepth *__restrict const group = m_Sorted; // where nothing is sorted yet
		SIndexAndDepth *__restrict const blocks = m_Blocks;
		const u8 *__restrict const partOfDigit = m_Memory.m_PartOfDigit;
		for (u32 first = 0; first < m_Count; first += kGroupSize)
		{
			const u32 countInGroup = std::min(kGroupSize, m_Count - first);
			fill(first, TMemoryView<SIndexAndDepth>(group, countInGroup));
			ForEachRecord(countInGroup,
				[&](u32 i)
				{
					const u64 record = LoadRecord(group + i);
					const u32 part = partOfDigit[KeyOf(record) >> kDigitShift];
					u32 place = places[part];
					StoreRecord(blocks + place, record);
					if (VX_UNLIKELY(++place % kBlockSize == 0))
						place = takeBlock(part);
					places[part] = place;
				});
		}
		for (u32 part = 0; part < kPartCount; ++part)
			m_Counts[part] += places[part] % kBlockSize;
	}

	// Calls body(records, count) for each block of a part.
	template<typename _Body>
	void _ForEachBlock(u32 part, const _Body &body) const
	{
		u32 left = m_Counts[part];
		for (u32 block = m_FirstBlocks[part]; left != 0; block = m_Memory.m_NextBlocks[block])
		{
			const u32 count = std::min(left, kBlockSize);
			body(m_Blocks + block * kBlockSize, count);
			left -= count;
		}
	}

	// Returns a part's records in the order of their keys, with indices in place of numbers.
	const SIndexAndDepth *_SortPart(u32 part)
	{
		SKeySpan span;
		_ForEachBlock(
			part, [&](const SIndexAndDepth *records, u32 count) { span = span.With(SpanOf(records, count)); });
		const u32 upperBits =
			SKeySpan{span.m_Lowest >> kLowerBitsOfPart, span.m_Highest >> kLowerBitsOfPart}.BitCount();
		const u32 maxUpperBits = std::min(32 - m_NumberBits, kMaxUpperBitsOfPart);
		const SIndexAndDepth *const firstBlock = m_Blocks + m_FirstBlocks[part] * kBlockSize;
		const SKeySample sample = SKeySample::Of(firstBlock, std::min(m_Counts[part], kBlockSize));
		return upperBits <= maxUpperBits && !sample.HasEqualDigits() ? _SortInWords(part, span, upperBits)
		                                                             : _SortRecords(part);
	}

	// In two passes, through words of an upper digit and a number.
	const SIndexAndDepth *_SortInWords(u32 part, const SKeySpan &span, u32 upperBits)
	{
		u32 *__restrict const lower = m_Memory.m_Lower;
		u32 *__restrict const upper = m_Memory.m_Upper;
		u32 *__restrict const words = reinterpret_cast<u32 *>(m_Sorted);
		SIndexAndDepth *__restrict const sorted = m_Sorted + _Half();
		const u32 lowestUpper = span.m_Lowest >> kLowerBitsOfPart;
		const u32 numberBits = m_NumberBits;
		constexpr u32 kMinUpperBits = 4; // a step of the prefix sums
		const u32 upperCount = 1u << std::max(upperBits, kMinUpperBits);
		std::memset(lower, 0, sizeof(u32) << kLowerBitsOfPart);
		std::memset(upper, 0, sizeof(u32) * upperCount);
		_ForEachBlock(part, [=](const SIndexAndDepth *records, u32 count)
			{ ForEachRecord(count, [=](u32 i) { ++lower[records[i].m_Depth & kLowerMaskOfPart]; }); });
		SortLanes::SumCounters(lower, 1u << kLowerBitsOfPart);
		_ForEachBlock(part,
			[=](const SIndexAndDepth *records, u32 count)
			{
				ForEachRecord(count,
					[=](u32 i)
					{
						const u64 record = LoadRecord(records + i);
						const u32 digit = (KeyOf(record) >> kLowerBitsOfPart) - lowestUpper;
						++upper[digit];
						words[lower[KeyOf(record) & kLowerMaskOfPart]++] = digit << numberBits | IndexOf(record);
					});
			});
		SortLanes::SumCounters(upper, upperCount);
		const u32 numberMask = (1u << numberBits) - 1;
		const u32 step = m_Step;
		ForEachRecord(m_Counts[part],
			[=](u32 i)
			{
				const u32 word = words[i];
				sorted[upper[word >> numberBits]++].m_Index = (word & numberMask) * step;
			});
		return sorted;
	}

	// As the library does.
	const SIndexAndDepth *_SortRecords(u32 part)
	{
		SIndexAndDepth *const records = m_Sorted;
		SIndexAndDepth *const sorted = m_Sorted + _Half();
		SIndexAndDepth *end = records;
		_ForEachBlock(part,
			[&](const SIndexAndDepth *block, u32 count)
			{
				std::memcpy(static_cast<void *>(end), block, count * sizeof(SIndexAndDepth));
				end += count;
			});
		TRadixSort<Sort_InBuffer>::Sort11(records, end, sorted, SSortKeyExtractor_TriangleIndexAndDepth{});
		const u32 step = m_Step;
		ForEachRecord(m_Counts[part], [=](u32 i) { sorted[i].m_Index *= step; });
		return sorted;
	}

	const u32 m_Count;
	const u32 m_Step;
	const u32 m_NumberBits;
	SIndexAndDepth *const m_Blocks;
	SIndexAndDepth *const m_Sorted;
	SMemory &m_Memory;
	u32 m_Counts[kPartCount];
	u32 m_FirstBlocks[kPartCount];
};
} // namespace Vexmoor
