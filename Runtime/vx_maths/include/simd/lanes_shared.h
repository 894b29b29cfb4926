#pragma once

// Operations of the vocabulary (simd/lanes.h) that several targets make of others.

#include "vx_compiler.h"
#include "vx_defs.h"

#include <cstring>

namespace Vexmoor
{
/// Prefix sums in groups. Shifted additions double the run of elements that each element sums up, until it reaches back
/// to the first one. One element further, the runs are the sums before. With 32 bits:
///
///   lane     0    1    2    3
///   counts   a    b    c    d
///            a    ab   bc   cd
///   runs     a    ab   abc  abcd
///   before   0    a    ab   abc
///   total    abcd in all
template<typename _Lanes, typename _Element>
VX_INLINE void PrefixSumsInGroups(
	typename _Lanes::Register counts, typename _Lanes::Register &before, typename _Lanes::Register &total)
{
	typename _Lanes::Register runs = counts;
	if constexpr (sizeof(_Element) == 1)
		runs = _Lanes::template Add<_Element>(runs, _Lanes::template ShiftBytesUp<1>(runs));
	if constexpr (sizeof(_Element) <= 2)
		runs = _Lanes::template Add<_Element>(runs, _Lanes::template ShiftBytesUp<2>(runs));
	runs = _Lanes::template Add<_Element>(runs, _Lanes::template ShiftBytesUp<4>(runs));
	runs = _Lanes::template Add<_Element>(runs, _Lanes::template ShiftBytesUp<8>(runs));
	before = _Lanes::template ShiftBytesUp<sizeof(_Element)>(runs);
	total = _Lanes::template SpreadLast<_Element>(runs);
}

/// Packed triples into their coordinates, group by group.
///
///   lane     0    1    2    3
///   a        x0   y0   z0   x1
///   b        y1   z1   x2   y2
///   c        z2   x3   y3   z3
///   x y z    of triple 0, 1, 2, 3
///
///   y0z0y1z1   y0   z0   y1   z1     b's share follows a's
///   x2y2x3y3   x2   y2   x3   y3
template<typename _Lanes>
VX_INLINE void LoadTriplesInGroups(
	const u8 *p, typename _Lanes::Register &x, typename _Lanes::Register &y, typename _Lanes::Register &z)
{
	typedef typename _Lanes::Register Register;
	constexpr u32 kGroupInBytes = 4 * 3 * sizeof(float);
	const Register a = _Lanes::LoadGroups(p, kGroupInBytes);
	const Register b = _Lanes::LoadGroups(p + 16, kGroupInBytes);
	const Register c = _Lanes::LoadGroups(p + 32, kGroupInBytes);
	const Register y0z0y1z1 = _Lanes::template Shuffle2<1, 2, 0, 1>(a, b);
	const Register x2y2x3y3 = _Lanes::template Shuffle2<2, 3, 1, 2>(b, c);
	x = _Lanes::template Shuffle2<0, 3, 0, 2>(a, x2y2x3y3);
	y = _Lanes::template Shuffle2<0, 2, 1, 3>(y0z0y1z1, x2y2x3y3);
	z = _Lanes::template Shuffle2<1, 3, 0, 3>(y0z0y1z1, c);
}

/// For any bits of _LaneCount lanes: how many are 1, and the numbers of these lanes, or of their bytes, in ascending
/// order. Zeros follow. For four lanes whose bits 0 and 2 are 1, with a number for each lane and for each byte:
///
///   lanes    0  2  0  0
///   bytes    0  1  2  3  8  9 10 11  0  0  0  0  0  0  0  0
template<u32 _LaneCount, u32 _NumbersPerLane>
struct TWantedLanes
{
	u8 m_Numbers[1 << _LaneCount][_LaneCount * _NumbersPerLane] = {};
	u8 m_Counts[1 << _LaneCount] = {};

	constexpr TWantedLanes()
	{
		for (u32 bits = 0; bits < 1 << _LaneCount; ++bits)
		{
			for (u32 lane = 0; lane < _LaneCount; ++lane)
			{
				if ((bits >> lane & 1) == 0)
					continue;
				const u32 count = m_Counts[bits]++;
				for (u32 i = 0; i < _NumbersPerLane; ++i)
					m_Numbers[bits][count * _NumbersPerLane + i] = u8(lane * _NumbersPerLane + i);
			}
		}
	}
};

/// What targets of one group have in common. The target derives from it, with itself as the argument.
template<typename _Lanes>
struct TOneGroup
{
	typedef _Lanes Gathering;
	static constexpr u32 kGroups = 1;
	static constexpr u32 kLanes = 4 * kGroups;

	static VX_INLINE auto LoadGroups(const u8 *p, ureg) { return _Lanes::Load(p); }
	static VX_INLINE auto LoadGroupsFrom(const u8 *const *p, ureg offset) { return _Lanes::Load(*p + offset); }
	template<typename _Register>
	static VX_INLINE void LoadTriples(const u8 *p, _Register &x, _Register &y, _Register &z)
	{
		LoadTriplesInGroups<_Lanes>(p, x, y, z);
	}
	static VX_INLINE auto LoadEvenLanes(const u8 *p)
	{
		return _Lanes::template Shuffle2<0, 2, 0, 2>(_Lanes::Load(p), _Lanes::Load(p + 16));
	}
	template<bool _UpperFirst, typename _Register>
	static VX_INLINE void StorePairs(u8 *p, _Register a, _Register b)
	{
		_Lanes::Store(p, _UpperFirst ? _Lanes::InterleaveHigh(a, b) : _Lanes::InterleaveLow(a, b));
		_Lanes::Store(p + 16, _UpperFirst ? _Lanes::InterleaveLow(a, b) : _Lanes::InterleaveHigh(a, b));
	}
	/// By way of the stack.
	template<typename _Register>
	static VX_INLINE u32 StoreWhere(u8 *p, u32 bits, _Register r, u32 room)
	{
		u8 lanes[kLanes * sizeof(u32)];
		const u32 wantedCount = _Lanes::StoreWhere(lanes, bits, r);
		const u32 storedCount = wantedCount < room ? wantedCount : room;
		for (u32 i = 0; i < storedCount; ++i)
			std::memcpy(p + i * sizeof(u32), lanes + i * sizeof(u32), sizeof(u32));
		return storedCount;
	}
	template<typename _Element, typename _Register>
	static VX_INLINE void PrefixSums(_Register counts, _Register &before, _Register &total)
	{
		PrefixSumsInGroups<_Lanes, _Element>(counts, before, total);
	}
};
} // namespace Vexmoor
