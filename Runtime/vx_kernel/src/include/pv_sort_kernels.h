#pragma once

// The bodies behind pv_sort_lanes.h, for any target of simd/lanes.h. A file that includes this has said before what it
// is compiled for, and includes what is not lanes before that.

#include "simd/lanes_shared.h"
#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_sort_lanes.h"

#include "pv_sort_lanes.h"
#include "pv_sort_network.h"

namespace Vexmoor
{
namespace SortLanes
{
	// The register of counters from number first on. Counters that are kept in two histograms are added up on the way:
	// others is the second histogram, or null.
	template<typename _Lanes, typename _Counter>
	static VX_INLINE typename _Lanes::Register LoadCounts(const _Counter *counters, const _Counter *others, ureg first)
	{
		const typename _Lanes::Register counts = _Lanes::Load(counters + first);
		return others == nullptr ? counts : _Lanes::template Add<_Counter>(counts, _Lanes::Load(others + first));
	}

	// Exclusive prefix sums of counters. From one register to the next only the total is carried, so that no more than
	// one addition waits for the one before. Sparse counters have long runs of zeros, which are given the sum so far: a
	// branch that processors predict well, and worth it for them alone. The counts of others are added on the way.
	//
	//   counters   a    b    c    d      e    f    g    h       four to a register
	//   before     0    a    ab   abc    0    e    ef   efg     in the register
	//   sum        0                     abcd
	//   stored     0    a    ab   abc    abcd +e   +ef  +efg
	template<typename _Lanes, bool _Sparse, typename _Counter>
	static VX_INLINE void SumInLanes(_Counter *counters, const _Counter *others, u32 count)
	{
		typedef typename _Lanes::Register Register;
		Register sum = _Lanes::Splat(0);
		for (u32 i = 0; i < count; i += sizeof(Register) / sizeof(_Counter))
		{
			const Register counts = LoadCounts<_Lanes>(counters, others, i);
			if (_Sparse && _Lanes::AllZero(counts))
			{
				_Lanes::Store(counters + i, sum);
				continue;
			}
			Register before, total;
			_Lanes::template PrefixSums<_Counter>(counts, before, total);
			_Lanes::Store(counters + i, _Lanes::template Add<_Counter>(sum, before));
			sum = _Lanes::template Add<_Counter>(sum, total);
		}
	}

	// The bodies behind SumCounters and SumSparseCounters (kr_sort_lanes.h). Most counters of few records are zero;
	// those of many records are not, and then a question for every register would be for nothing.
	template<typename _Lanes, typename _Counter>
	static void SumCountersInLanes(_Counter *counters, u32 count)
	{
		SumInLanes<_Lanes, false, _Counter>(counters, nullptr, count);
	}

	template<typename _Lanes, typename _Counter>
	static void SumSparseCountersInLanes(_Counter *counters, const _Counter *others, u32 count)
	{
		SumInLanes<_Lanes, true>(counters, others, count);
	}

	// Prefix sums down columns. A column is a lane, and only ever adds to itself. The first walk down the rows gives
	// the columns' totals. Their exclusive prefix sums are where the columns start, and the second walk goes on from
	// there. With three rows and columns:
	//
	//   counts       totals           starts           sums
	//   a  d  g      abc def ghi      0  abc abcdef    0    abc    abcdef
	//   b  e  h                                        a    abcd   abcdefg
	//   c  f  i                                        ab   abcde  abcdefgh
	template<typename _Lanes>
	static void SumColumnsInLanes(u8 *counters, const u8 *others, u32 rowCount)
	{
		typedef typename _Lanes::Register Register;
		constexpr u32 kRegisters = kColumns / sizeof(Register); // in a row
		Register sums[kRegisters];
		for (u32 r = 0; r < kRegisters; ++r)
			sums[r] = _Lanes::Splat(0);
		for (u32 row = 0; row < rowCount; ++row)
		{
			for (u32 r = 0; r < kRegisters; ++r)
				sums[r] = _Lanes::template Add<u8>(
					sums[r], LoadCounts<_Lanes>(counters, others, ureg(row) * kColumns + r * sizeof(Register)));
		}
		alignas(kColumns) u8 starts[kColumns];
		for (u32 r = 0; r < kRegisters; ++r)
			_Lanes::Store(starts + r * sizeof(Register), sums[r]);
		SumCountersInLanes<_Lanes, u8>(starts, kColumns);
		for (u32 r = 0; r < kRegisters; ++r)
			sums[r] = _Lanes::Load(starts + r * sizeof(Register));
		for (u32 row = 0; row < rowCount; ++row)
		{
			for (u32 r = 0; r < kRegisters; ++r)
			{
				const ureg i = ureg(row) * kColumns + r * sizeof(Register);
				const Register counts = LoadCounts<_Lanes>(counters, others, i);
				_Lanes::Store(counters + i, sums[r]);
				sums[r] = _Lanes::template Add<u8>(sums[r], counts);
			}
		}
	}

	// Measured on an Intel Xeon with AVX-512 that keeps to narrower registers. Columns against rows, 110 to 256
	// records: 0.67 to 0.92 of the time in registers of one group; 0.84 to 1.10 in wider ones, where it depends on what
	// else the core does.
	template<typename _Lanes>
	constexpr bool kSumsFasterInColumns = _Lanes::kGroups == 1;

	// Measured on the same processor, with keys of a ball. In registers of one group, 88 records take 465 ns ranked and
	// 89 take 460 by the radix sort. In wider ones, 105 records take 365 ns ranked, in one more step of keys than 104,
	// and 340 by networks.
	template<typename _Lanes>
	constexpr u32 kMaxCountWorthRanking = _Lanes::kGroups == 1 ? 88 : 104;

	// Ranks. Keys are compared in blocks of sixteen, each block against all. A comparison's mask is minus one, so
	// subtracting it counts. Lanes compare as signed: sign bits are flipped on the way in. What fills up the last step
	// is lower than no key.
	//
	//   own keys   k0   k1   ...  k15     one or more registers
	//   key        ki   ki   ...  ki      each key in turn, splatted
	//   ranks     +1 in every lane whose own key is higher
	//
	// Keys go on through memory in stores as wide as the loads, since a load that spans two stores waits until both
	// have reached the cache. Several comparisons make a step of the loop, so that a loop so short does not depend on
	// where it lies in the instruction cache's lines.
	constexpr u32 kKeysPerStep = 4;
	static_assert(kRanksPerStep % kKeysPerStep == 0, "the last step is whole");
	constexpr u32 kSignBit = 0x80000000u;
	constexpr u32 kHighest = 0x7FFFFFFFu; // as flipped

	// Of the last records, a record's key gets its sign bit flipped, and a lane without a record, 0, becomes the
	// highest key. As a sign, the bit says where there is a record.
	alignas(64) constexpr u32 kFlips[2 * kRanksPerStep] = {kSignBit, kSignBit, kSignBit, kSignBit, kSignBit, kSignBit,
		kSignBit, kSignBit, kHighest, kHighest, kHighest, kHighest, kHighest, kHighest, kHighest, kHighest};

	// The keys of fewer records than a register has lanes, at least one; other lanes are 0.
	//
	// Nothing is read behind the last record, because memory may end there. With registers of one group, for three
	// records:
	//
	//   lane      0    1    2    3
	//   first     k0   n0   k1   n1
	//   second    k2   n2   0    0
	//   result    k0   k1   k2   0
	template<typename _Lanes>
	static VX_INLINE typename _Lanes::Register LoadLastKeys(
		const u8 *records, u32 count, [[maybe_unused]] typename _Lanes::Register flips)
	{
		if constexpr (_Lanes::kGroups == 2)
		{
			return _Lanes::LoadEvenLanesWhere(records, flips);
		}
		else
		{
			const auto first = count == 1 ? _Lanes::LoadTwo(records) : _Lanes::Load(records);
			const auto second = count == 3 ? _Lanes::LoadTwo(records + 2 * kRankedSize) : _Lanes::Splat(0);
			return _Lanes::template Shuffle2<0, 2, 0, 2>(first, second);
		}
	}

	// Returns how many keys there are, with those that fill up the last step.
	//
	// With registers of one group and five records, k4 being in the second register and kRanksPerStep 8:
	//
	//   keys      0    1    2    3    4    5     6     7
	//   stored    k0   k1   k2   k3   k4   high  high  high     sign bits flipped, high being kHighest
	template<typename _Lanes>
	static VX_INLINE u32 FlipKeys(const u8 *records, u32 count, s32 *keys)
	{
		u32 i = 0;
		for (; i + _Lanes::kLanes <= count; i += _Lanes::kLanes)
		{
			const auto words = _Lanes::LoadEvenLanes(records + i * kRankedSize);
			_Lanes::Store(keys + i, _Lanes::Xor(words, _Lanes::Splat(kSignBit)));
		}
		if (i < count)
		{
			const auto flips = _Lanes::Load(kFlips + kRanksPerStep - (count - i));
			const auto words = LoadLastKeys<_Lanes>(records + i * kRankedSize, count - i, flips);
			_Lanes::Store(keys + i, _Lanes::Xor(words, flips));
			i += _Lanes::kLanes;
		}
		for (; i % kRanksPerStep != 0; i += _Lanes::kLanes)
			_Lanes::Store(keys + i, _Lanes::Splat(kHighest));
		return i;
	}

	// The ranks of _Registers registers of keys. Each key of all records is compared with every lane.
	//
	//   own[0]     5    2    9    4
	//   key        4    4    4    4       splatted
	//   higher     yes  no   yes  no      a mask of -1, 0, -1, 0
	//   ranks[0]   +1   +0   +1   +0
	template<typename _Lanes, u32 _Registers>
	static VX_INLINE void RankBlock(const s32 *keys, u32 count, const s32 *blockKeys, u32 *blockRanks)
	{
		typedef typename _Lanes::Register Register;
		Register own[_Registers];
		Register ranks[_Registers];
		for (u32 r = 0; r < _Registers; ++r)
		{
			own[r] = _Lanes::Load(blockKeys + r * _Lanes::kLanes);
			ranks[r] = _Lanes::Splat(0);
		}
		for (u32 i = 0; i < count; i += kKeysPerStep)
		{
			for (u32 k = 0; k < kKeysPerStep; ++k)
			{
				const Register key = _Lanes::Splat(u32(keys[i + k]));
				for (u32 r = 0; r < _Registers; ++r)
					ranks[r] = _Lanes::template Subtract<u32>(ranks[r], _Lanes::GreaterSigned(own[r], key));
			}
		}
		for (u32 r = 0; r < _Registers; ++r)
			_Lanes::Store(blockRanks + r * _Lanes::kLanes, ranks[r]);
	}

	// Ranks _Count keys more, one or two. Each adds 1 to the ranks of the higher keys before it, and its own rank is
	// the number of lower keys. What fills up the last register is lower than no key. One more key, 4, in a register of
	// one group:
	//
	//   others   5    2    9    7
	//   ranks    +1   +0   +1   +1       others that are higher
	//   lower    0    1    0    0        others that are lower: the sum of all lanes is the rank of 4
	//
	// The lanes of two keys are added up together:
	//
	//   lower                       a0  a1  a2  a3       b0  b1  b2  b3
	//   interleaved, and added      a02 b02 a13 b13
	//   halves added                a   b   a   b
	template<typename _Lanes, u32 _Count>
	static VX_INLINE void RankMore(const s32 *keys, u32 rankedCount, u32 *ranks)
	{
		typedef typename _Lanes::Register Register;
		Register more[_Count], lower[_Count];
		const Register last = _Lanes::Load(keys + rankedCount);
		for (u32 k = 0; k < _Count; ++k)
		{
			more[k] = _Lanes::Splat(u32(keys[rankedCount + k]));
			lower[k] = _Lanes::template Subtract<u32>(_Lanes::Splat(0), _Lanes::GreaterSigned(more[k], last));
		}
		for (u32 i = 0; i < rankedCount; i += _Lanes::kLanes)
		{
			const Register others = _Lanes::Load(keys + i);
			Register othersRanks = _Lanes::Load(ranks + i);
			for (u32 k = 0; k < _Count; ++k)
			{
				lower[k] = _Lanes::template Subtract<u32>(lower[k], _Lanes::GreaterSigned(more[k], others));
				othersRanks = _Lanes::template Subtract<u32>(othersRanks, _Lanes::GreaterSigned(others, more[k]));
			}
			_Lanes::Store(ranks + i, othersRanks);
		}
		const Register a = lower[0], b = lower[_Count - 1];
		Register sums = _Lanes::template Add<u32>(_Lanes::InterleaveLow(a, b), _Lanes::InterleaveHigh(a, b));
		sums = _Lanes::template Add<u32>(sums, _Lanes::template Shuffle2<2, 3, 0, 1>(sums, sums));
		if constexpr (_Lanes::kGroups == 2)
			sums = _Lanes::template Add<u32>(sums, _Lanes::template SwapLanes<4>(sums));
		_Lanes::Store(ranks + rankedCount, sums);
	}

	// Ranks keys in blocks of two steps, and the last block is one step if no more is left. A block of fewer registers
	// would compare each splatted key with fewer lanes. One or two keys beyond whole steps are ranked by themselves,
	// because another step takes as long for them as for eight keys.
	template<typename _Lanes>
	static VX_HOT_CODE void CountLowerKeysInLanes(const u8 *records, u32 count, u32 *ranks)
	{
		constexpr u32 kRegistersPerStep = kRanksPerStep / _Lanes::kLanes;
		constexpr u32 kMaxMore = 2;
		alignas(64) s32 keys[kMaxRankedCount];
		const u32 filledCount = FlipKeys<_Lanes>(records, count, keys);
		const u32 rest = count % kRanksPerStep;
		const u32 more = rest <= kMaxMore && count > kRanksPerStep ? rest : 0;
		const u32 rankedCount = count - more;
		const u32 blocksEnd = more != 0 ? rankedCount : filledCount;
		u32 i = 0;
		for (; i + kRanksPerStep < blocksEnd; i += 2 * kRanksPerStep)
			RankBlock<_Lanes, 2 * kRegistersPerStep>(keys, rankedCount, keys + i, ranks + i);
		if (i < blocksEnd)
			RankBlock<_Lanes, kRegistersPerStep>(keys, rankedCount, keys + i, ranks + i);
		if (more == 1)
			RankMore<_Lanes, 1>(keys, rankedCount, ranks);
		else if (more == 2)
			RankMore<_Lanes, 2>(keys, rankedCount, ranks);
	}

	// The sorts by networks, in registers of two groups.
	template<typename _Lanes>
	constexpr auto NetworkInLanes() -> void (*)(const u8 *, u32, u8 *, u8 *)
	{
		if constexpr (_Lanes::kGroups == 2)
			return &SortByNetworkInLanes<_Lanes>;
		else
			return nullptr;
	}
	template<typename _Lanes>
	constexpr auto DistinctNetworkInLanes() -> bool (*)(const u8 *, u32, u8 *)
	{
		if constexpr (_Lanes::kGroups == 2)
			return &SortDistinctByNetworkInLanes<_Lanes>;
		else
			return nullptr;
	}

	// The table for one target, in the order of SKernels.
	template<typename _Lanes>
	constexpr SKernels kKernelsInLanes = {
		&SumCountersInLanes<_Lanes, u8>,
		&SumCountersInLanes<_Lanes, u16>,
		&SumCountersInLanes<_Lanes, u32>,
		&SumSparseCountersInLanes<_Lanes, u8>,
		&SumSparseCountersInLanes<_Lanes, u16>,
		&SumSparseCountersInLanes<_Lanes, u32>,
		&SumColumnsInLanes<_Lanes>,
		kSumsFasterInColumns<_Lanes>,
		&CountLowerKeysInLanes<_Lanes>,
		kMaxCountWorthRanking<_Lanes>,
		NetworkInLanes<_Lanes>(),
		DistinctNetworkInLanes<_Lanes>(),
	};
} // namespace SortLanes
} // namespace Vexmoor
