#pragma once

// The parts of the sorts that work on many counters or keys at a time, in registers as wide as kr_cpu.h allows.

#include "vx_compiler.h"
#include "vx_defs.h"

namespace Vexmoor
{
/// The parts of the sorts that work in lanes. Every lane width gives the same numbers.
namespace SortLanes
{
	constexpr u32 kStepInBytes = 32;      ///< Of prefix sums: a histogram's size is a multiple of it.
	constexpr u32 kColumns = 32;          ///< 8-bit counters in a row of SumColumns: two registers of 128 bits.
	constexpr u32 kRanksPerStep = 8;      ///< Of CountLowerKeys: room for ranks is a multiple of it.
	constexpr u32 kRankedSize = 8;        ///< Bytes of a record that is ranked, or sorted by a network.
	constexpr u32 kMaxRankedCount = 112;  ///< Room for ranks: kMaxQuickSortCount (kr_sort.h) in whole steps.
	constexpr u32 kMaxNetworkCount = 256; ///< A record's place takes 8 bits.

	///@{
	/// Replaces counters by their exclusive prefix sums. Counters of 8 and 16 bits count up to 2^8 and 2^16 records: a
	/// sum of that many is 0, and the sums after it are unspecified.
	/// counters  at any address; count * sizeof(counter) is a multiple of kStepInBytes
	VX_API void SumCounters(u8 *counters, u32 count);
	VX_API void SumCounters(u16 *counters, u32 count);
	VX_API void SumCounters(u32 *counters, u32 count);
	///@}

	///@{
	/// Exclusive prefix sums, in place, of counters[i] + others[i]; others may be null. Fast where most counters are
	/// zero. Counts and limits are those of SumCounters.
	VX_API void SumSparseCounters(u8 *counters, const u8 *others, u32 count);
	VX_API void SumSparseCounters(u16 *counters, const u16 *others, u32 count);
	VX_API void SumSparseCounters(u32 *counters, const u32 *others, u32 count);
	///@}

	/// Exclusive prefix sums, in place, of counters[i] + others[i], down one column after the other: counters[0],
	/// counters[kColumns], counters[2 * kColumns] and so on to the last row, then counters[1], counters[1 + kColumns].
	/// counters  rowCount rows of kColumns counters, 16-byte aligned; limits are those of SumCounters
	/// others    as many, 16-byte aligned; or null
	VX_API void SumColumns(u8 *counters, const u8 *others, u32 rowCount);

	/// True where the radix sort of up to 256 records gains more from SumColumns than the slots of its counters cost.
	VX_API bool SumsFasterInColumns();

	/// Counts for every record how many of them have a lower key.
	/// records  up to kMaxRankedCount, at any address: a 32-bit key, compared as unsigned, and 32 bits that do not
	///          count. A higher count is reported, and nothing is read or written
	/// ranks    the counts, 16-byte aligned, with room for whole steps: what fills up the last one is written as well
	VX_API void CountLowerKeys(const void *records, u32 count, u32 *ranks);

	/// Up to how many records ranking takes less time than other sorts, in registers as wide as are in use.
	VX_API u32 MaxCountWorthRanking();

	/// Sorts up to kMaxNetworkCount records by sorting networks, which take the same time whatever the keys. Returns
	/// false, and does nothing, in registers of 128 bits, where the radix sort is faster.
	/// records    as for CountLowerKeys; apart from sorted. A higher count is reported, and nothing is read or written
	/// byLowBits  is given the records in stable ascending order of their keys' low 22 bits; may be the records
	///            themselves, and is apart from sorted
	/// sorted     is given the records in stable ascending order of their keys
	VX_API bool SortByNetwork(const void *records, u32 count, void *byLowBits, void *sorted);

	/// Sorts up to kMaxRankedCount records by sorting networks, and finds out whether their keys are distinct. Returns
	/// false, and does nothing, in registers of 128 bits.
	/// records      as for CountLowerKeys; apart from sorted. A higher count is reported, and nothing is read or
	///              written
	/// sorted       is given the records in stable ascending order of their keys
	/// areDistinct  is set to whether no two keys are equal; to false if the count is too high
	VX_API bool SortDistinctByNetwork(const void *records, u32 count, void *sorted, bool &areDistinct);
} // namespace SortLanes
} // namespace Vexmoor
