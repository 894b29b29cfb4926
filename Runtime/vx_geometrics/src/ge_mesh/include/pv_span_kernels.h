#pragma once

// The lowest and the highest key of some records, for lanes of any width. Nothing here reports. A file that includes
// this has said before what it is compiled for.

#include "simd/lanes_shared.h"

#include "pv_depth_keys.h"
#include "pv_fill.h"

namespace Vexmoor
{
// Widens a span by the keys of records. Each lane keeps the lowest and the highest of its own keys, and in the end the
// lanes are compared with each other:
//
//                     lane 0   lane 1   lane 2   lane 3
//   keys              7        3        9        4          of the records' first step
//                     5        8        9        6          and of their second
//   lowestOfLanes     5        3        9        4          the lowest is 3
//   highestOfLanes    7        8        9        6          the highest is 9
//
// Lanes are compared as signed numbers, which with flipped sign bits have the order of unsigned ones.
template<typename _Lanes>
static void WidenSpanInLanes(const SIndexAndDepth *records, u32 count, u32 &lowest, u32 &highest)
{
	typedef typename _Lanes::Register Register;
	constexpr u32 kLanes = _Lanes::kLanes;
	const Register signs = _Lanes::Splat(kSignBit);
	Register lowestOfLanes = _Lanes::Splat(lowest ^ kSignBit);
	Register highestOfLanes = _Lanes::Splat(highest ^ kSignBit);
	for (; count >= kLanes; count -= kLanes)
	{
		Register keys = _Lanes::Xor(_Lanes::LoadEvenLanes(reinterpret_cast<const u8 *>(records)), signs);
		// Of two registers, SortTwo leaves the lower lanes in the first and the higher ones in the second. The other
		// half of each result is not read.
		Register keysAgain = keys;
		_Lanes::SortTwo(lowestOfLanes, keysAgain);
		_Lanes::SortTwo(keys, highestOfLanes);
		records += kLanes;
	}
	lowestOfLanes = _Lanes::Xor(lowestOfLanes, signs);
	highestOfLanes = _Lanes::Xor(highestOfLanes, signs);
	u32 lows[kLanes], highs[kLanes];
	_Lanes::Store(lows, lowestOfLanes);
	_Lanes::Store(highs, highestOfLanes);
	for (u32 lane = 0; lane < kLanes; ++lane)
	{
		lowest = lows[lane] < lowest ? lows[lane] : lowest;
		highest = highs[lane] > highest ? highs[lane] : highest;
	}
	for (; count != 0; --count) // fewer than there are lanes
	{
		const u32 key = (records++)->m_Depth;
		lowest = key < lowest ? key : lowest;
		highest = key > highest ? key : highest;
	}
}
} // namespace Vexmoor
