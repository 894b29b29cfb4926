#pragma once

// Operations of the vocabulary (simd/lanes.h) that several targets make of others.

#include "vx_compiler.h"
#include "vx_defs.h"

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
} // namespace Vexmoor
