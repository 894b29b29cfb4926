#pragma once

// What a radix sort of three passes moves, for loops that move the same bytes and do nothing else.

#include "ge_mesh_triangle_sorter.h"

#include "bench_memory.h"
#include <array>
#include <vector>

namespace VexmoorBench
{
using namespace Vexmoor;

/// The places of records after each pass of a radix sort of 11-bit digits, found out beforehand. A loop that moves
/// records to known places reads a place for each, where a sort reads and writes a counter.
class CKnownMoves
{
public:
	/// squaredDistance(i) is that of record i, of whose bits the sort would make the key.
	template<typename _SquaredDistance>
	CKnownMoves(u32 count, const _SquaredDistance &squaredDistance)
	{
		std::vector<u32> keys;
		for (u32 i = 0; i < count; ++i)
		{
			const float distance = squaredDistance(i);
			u32 bits;
			std::memcpy(&bits, &distance, sizeof(bits));
			keys.push_back(~bits);
		}
		for (u32 pass = 0; pass < kPasses; ++pass)
		{
			constexpr u32 kDigits = 1u << kDigitBits;
			std::array<u32, kDigits + 1> starts = {};
			const auto digitOf = [pass](u32 key) { return key >> pass * kDigitBits & (kDigits - 1); };
			for (const u32 key : keys)
				++starts[digitOf(key) + 1];
			for (u32 digit = 1; digit <= kDigits; ++digit)
				starts[digit] += starts[digit - 1];
			std::vector<u32> moved(count);
			for (const u32 key : keys)
			{
				m_Places[pass].push_back(starts[digitOf(key)]++);
				moved[m_Places[pass].back()] = key;
			}
			keys = moved;
		}
	}

	/// Moves records to and fro, and returns where they are in the end.
	const SIndexAndDepth *Move(CBuffer<SIndexAndDepth> (&records)[2]) const
	{
		for (u32 pass = 0; pass < kPasses; ++pass)
		{
			const SIndexAndDepth *const from = records[pass % 2].Data();
			SIndexAndDepth *const to = records[(pass + 1) % 2].Data();
			const u32 *const places = m_Places[pass].data();
			const size_t count = m_Places[pass].size();
			for (size_t i = 0; i < count; ++i)
				to[places[i]] = from[i];
		}
		return records[kPasses % 2].Data();
	}

private:
	static constexpr u32 kPasses = 3;
	static constexpr u32 kDigitBits = 11;

	std::vector<u32> m_Places[kPasses];
};
} // namespace VexmoorBench
