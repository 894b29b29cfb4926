#pragma once

// The body behind pv_quads.h, for any target of simd/lanes.h: the quads of many particles put in order at once, each
// particle in a lane of its own, so that no branch depends on a distance. Nothing here reports. A file that includes
// this has said before what it is compiled for, and includes what is not lanes before that.

#include "simd/exact_floats.h"
#include "simd/lanes_shared.h"

#include "pv_depth_keys.h"
#include "pv_quads.h"

namespace Vexmoor
{
// The centres of one quad of as many particles as there are lanes. In each group:
//
//   lane       0    1    2    3
//   p0         x0   y0   z0   ?      of particle 0
//   x0x1y0y1   x0   x1   y0   y1     p0 and p1 interleaved
//   x2x3y2y3   x2   x3   y2   y3     p2 and p3 interleaved
//   x          x0   x1   x2   x3
template<typename _Lanes, typename _Register>
static VX_INLINE void LoadQuadCenters(const u8 *const *centers, ureg offset, _Register &x, _Register &y, _Register &z)
{
	const _Register p0 = _Lanes::LoadGroupsFrom(centers, offset);
	const _Register p1 = _Lanes::LoadGroupsFrom(centers + 1, offset);
	const _Register p2 = _Lanes::LoadGroupsFrom(centers + 2, offset);
	const _Register p3 = _Lanes::LoadGroupsFrom(centers + 3, offset);
	const _Register x0x1y0y1 = _Lanes::InterleaveLow(p0, p1);
	const _Register z0z1____ = _Lanes::InterleaveHigh(p0, p1);
	const _Register x2x3y2y3 = _Lanes::InterleaveLow(p2, p3);
	const _Register z2z3____ = _Lanes::InterleaveHigh(p2, p3);
	x = _Lanes::template Shuffle2<0, 1, 0, 1>(x0x1y0y1, x2x3y2y3);
	y = _Lanes::template Shuffle2<2, 3, 2, 3>(x0x1y0y1, x2x3y2y3);
	z = _Lanes::template Shuffle2<0, 1, 0, 1>(z0z1____, z2z3____);
}

// Keys of one quad, one for each particle: a distance key whose lowest four bits are the quad's number. Lanes compare
// as signed, so the sign bit is flipped. Key and mask leave the lowest bits 0, so one Xor flips it and puts the number
// in.
//
//   bit       31                30 to 4   3 to 0
//   key       sign of the key   distance  0
//   with it   flipped           distance  number
template<typename _Lanes>
static VX_INLINE typename _Lanes::Register QuadKeys(const u8 *const *centers,
	u32 quad,
	const TSquaredDistances<_Lanes> &distances,
	[[maybe_unused]] const float *camera)
{
	typedef typename _Lanes::Register Register;
	Register x, y, z;
	LoadQuadCenters<_Lanes>(centers, ureg(quad) * kQuadCenterInBytes, x, y, z);
	Register len2 = distances.To(x, y, z);
	if constexpr (!_Lanes::kAddsInOrder)
	{
		if (VX_UNLIKELY(distances.HaveNaN(len2)))
			len2 = WithNaNs<_Lanes>(x, y, z, len2, camera);
	}
	const Register key = _Lanes::And(SDistanceKey::FromLanes<_Lanes>(len2), _Lanes::Splat(~kQuadNumberMask));
	return _Lanes::Xor(key, _Lanes::Splat(kSignBit | quad));
}

// Sorts as many columns as some registers have lanes. Several registers to a row keep the processor busy while one of
// them waits for the store of the pair before. For three quads, of which the network compares rows 0 and 2, then 0 and
// 1, then 1 and 2, and the particles a, b, c and d:
//
//   lane       a    b    c    d         lane       a    b    c    d
//   row 0      a0   b0   c0   d0        row 0      the lowest key of each
//   row 1      a1   b1   c1   d1   ->   row 1
//   row 2      a2   b2   c2   d2        row 2      the highest one
template<typename _Lanes, u32 _Registers>
static VX_INLINE void SortQuadColumns(const u8 *const *centers,
	const SQuadNetwork &network,
	const TSquaredDistances<_Lanes> &distances,
	const float *camera,
	u32 (*rows)[kQuadBlockCount],
	u32 firstColumn)
{
	typedef typename _Lanes::Register Register;
	for (u32 quad = 0; quad < network.m_QuadCount; ++quad)
	{
		for (u32 r = 0; r < _Registers; ++r)
		{
			const u32 column = firstColumn + r * _Lanes::kLanes;
			_Lanes::Store(rows[quad] + column, QuadKeys<_Lanes>(centers + column, quad, distances, camera));
		}
	}
	for (u32 i = 0; i < network.m_PairCount; ++i)
	{
		u32 *const lower = rows[network.m_Pairs[i].m_Lower] + firstColumn;
		u32 *const upper = rows[network.m_Pairs[i].m_Upper] + firstColumn;
		for (u32 r = 0; r < _Registers; ++r)
		{
			Register a = _Lanes::Load(lower + r * _Lanes::kLanes);
			Register b = _Lanes::Load(upper + r * _Lanes::kLanes);
			_Lanes::SortTwo(a, b);
			_Lanes::Store(lower + r * _Lanes::kLanes, a);
			_Lanes::Store(upper + r * _Lanes::kLanes, b);
		}
	}
}

// A whole block at once; of what is less, a register at a time.
template<typename _Lanes>
static void SortQuadsInLanes(
	const u8 *const *centers, u32 particleCount, const SQuadNetwork &network, const float *camera, SQuadKeyRows &rows)
{
	const TSquaredDistances<_Lanes> distances(camera);
	if (particleCount == kQuadBlockCount)
	{
		constexpr u32 kRegisters = kQuadBlockCount / _Lanes::kLanes;
		return SortQuadColumns<_Lanes, kRegisters>(centers, network, distances, camera, rows.m_Keys, 0);
	}
	for (u32 column = 0; column < particleCount; column += _Lanes::kLanes)
		SortQuadColumns<_Lanes, 1>(centers, network, distances, camera, rows.m_Keys, column);
}

template<typename _Lanes>
constexpr SQuadKernels kQuadKernelsFor = {&SortQuadsInLanes<_Lanes>};
} // namespace Vexmoor
