#pragma once

// Calls of ExpandIndices over memory that ends where memory ends, and the records and plain answers that they are tried
// with.

#include "ge_mesh_triangle_sorter.h"

#include "guarded_memory.h"
#include <gtest/gtest.h>
#include <vector>

namespace Support
{
using SRecords = std::vector<Vexmoor::SIndexAndDepth>;
using SPattern = std::vector<Vexmoor::u32>;

/// The indices that one call writes into a buffer of exactly their size, dstAddress modulo 16. The pattern ends with
/// its page.
template<typename _Index>
std::vector<Vexmoor::u32> Expand(const SPattern &pattern,
	const SRecords &records,
	std::size_t dstAddress = 0,
	CGuardedMemory::EFlush flush = CGuardedMemory::FlushEnd,
	std::size_t recordAddress = 0)
{
	using namespace Vexmoor;
	const std::size_t patternAddress = (16 - pattern.size() * sizeof(u32) % 16) % 16;
	const CGuardedMemory patternMemory = ReadOnly(pattern, patternAddress);
	const CGuardedMemory recordMemory = ReadOnly(records, recordAddress);
	const std::size_t count = pattern.size() * records.size();
	const CGuardedMemory dst(count * sizeof(_Index), dstAddress, flush);

	CTriangleSorter::ExpandIndices(TMemoryView<const u32>(patternMemory.As<u32>(), u32(pattern.size())),
		recordMemory.As<SIndexAndDepth>(), static_cast<volatile _Index *>(dst.As<_Index>()), u32(records.size()));
	EXPECT_TRUE(dst.SurroundingsIntact());
	return {dst.As<_Index>(), dst.As<_Index>() + count};
}

/// What every worker has to write, while indices fit their type.
inline std::vector<Vexmoor::u32> PatternPlusBase(const SPattern &pattern, const SRecords &records)
{
	std::vector<Vexmoor::u32> out;
	for (const Vexmoor::SIndexAndDepth &record : records)
	{
		for (const Vexmoor::u32 entry : pattern)
			out.push_back(entry + record.m_Index);
	}
	return out;
}

/// Bases in no order, small enough for 16 bits; depths that would show if they were taken for bases.
inline SRecords MakeRecords(std::size_t count)
{
	SRecords records;
	for (Vexmoor::u32 r = 0; r < count; ++r)
		records.push_back({0x80000000u + r * 0x9E3779B1u, r * 25173 % 0xFC00});
	return records;
}

inline SRecords RecordsOf(const std::vector<Vexmoor::u32> &bases)
{
	SRecords records;
	for (const Vexmoor::u32 base : bases)
		records.push_back({0xDEADBEEFu, base});
	return records;
}
} // namespace Support
