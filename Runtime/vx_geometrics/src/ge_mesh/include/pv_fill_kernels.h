#pragma once

// The bodies behind pv_fill.h, for any target of simd/lanes.h: positions and values from memory into lanes, keys,
// vertex bases, and both interleaved into records. Nothing here reports. A file that includes this has said before what
// it is compiled for, and includes what is not lanes before that.

#include "simd/exact_floats.h"
#include "simd/lanes_shared.h"

#include "pv_depth_keys.h"
#include "pv_fill.h"
#include "pv_quad_kernels.h"

namespace Vexmoor
{
// Ways to bring the next positions into lanes, one for each lane.

// Positions this far behind those that are loaded are prefetched, because they are seldom in a cache: other work has
// run since a frame's positions were written. A processor prefetches by itself only after some misses, and begins anew
// at each page of the virtual memory. An address behind the last position is prefetched as well, which reads nothing;
// often the next page's positions lie there.
constexpr u32 kPrefetchDistanceInBytes = 1024;

// At a stride of 12.
//
//   lane     0    1    2    3   ...  one position to a lane
//   x        x0   x1   x2   x3
//   y        y0   y1   y2   y3
//   z        z0   z1   z2   z3
//
// The other ways below give the same three registers.
struct SPositions_Packed
{
	template<typename _Lanes, typename _Register>
	static VX_INLINE void Load(const u8 *src, u32, _Register &x, _Register &y, _Register &z)
	{
		for (u32 byte = 0; byte < _Lanes::kLanes * sizeof(CFloat3); byte += kCacheLineInBytes)
			VX_PREFETCH_TO_READ(src + kPrefetchDistanceInBytes + byte);
		_Lanes::LoadTriples(src, x, y, z);
	}
};

// At any stride from 4 on. In each group, the first three loads read 4 bytes beyond their position, and end before the
// fourth position does. The fourth load starts 4 bytes before its position, because memory may end after it.
//
//   lane       0    1    2    3
//   p0         x0   y0   z0   ?
//   p1         x1   y1   z1   ?
//   p2         x2   y2   z2   ?
//   _p3        ?    x3   y3   z3
//   x0x1y0y1   x0   x1   y0   y1     p0 and p1 interleaved
//   x2x2x3x3   x2   x2   x3   x3     p2 and _p3 side by side; any two equal lanes would do
//   x          x0   x1   x2   x3
//
// With registers of several groups, each load takes one position of every group: p0 is positions 0, 4, 8 and 12.
// One line is prefetched for a group, which is all of it at a stride of 16.
struct SPositions_Gathered
{
	static constexpr u32 kMinStride = kMinGatheredStride;

	template<typename _Lanes, typename _Register>
	static VX_INLINE void Load(const u8 *src, u32 stride, _Register &x, _Register &y, _Register &z)
	{
		const ureg nextGroup = kRecordsPerGroup * ureg(stride);
		for (u32 group = 0; group < _Lanes::kGroups; ++group)
			VX_PREFETCH_TO_READ(src + kPrefetchDistanceInBytes + group * nextGroup);
		const _Register p0 = _Lanes::LoadGroups(src, nextGroup);
		const _Register p1 = _Lanes::LoadGroups(src + stride, nextGroup);
		const _Register p2 = _Lanes::LoadGroups(src + 2 * ureg(stride), nextGroup);
		const _Register _p3 = _Lanes::LoadGroups(src + 3 * ureg(stride) - 4, nextGroup);
		const _Register x0x1y0y1 = _Lanes::InterleaveLow(p0, p1);
		const _Register z0z1____ = _Lanes::InterleaveHigh(p0, p1);
		const _Register x2x2x3x3 = _Lanes::template Shuffle2<0, 0, 1, 1>(p2, _p3);
		const _Register y2y2y3y3 = _Lanes::template Shuffle2<1, 1, 2, 2>(p2, _p3);
		const _Register z2z2z3z3 = _Lanes::template Shuffle2<2, 2, 3, 3>(p2, _p3);
		x = _Lanes::template Shuffle2<0, 1, 0, 2>(x0x1y0y1, x2x2x3x3);
		y = _Lanes::template Shuffle2<2, 3, 0, 2>(x0x1y0y1, y2y2y3y3);
		z = _Lanes::template Shuffle2<0, 1, 0, 2>(z0z1____, z2z2z3z3);
	}
};

// At strides of 1 to 3, where 16 bytes from a position on may reach beyond all others. Rare enough to be packed first.
//
// With a stride of 2, for example, position 1 begins at byte 2, inside position 0. Each position's 12 bytes are copied,
// and nothing behind them is read.
struct SPositions_Overlapping
{
	template<typename _Lanes, typename _Register>
	static VX_INLINE void Load(const u8 *src, u32 stride, _Register &x, _Register &y, _Register &z)
	{
		u8 packed[_Lanes::kLanes * sizeof(CFloat3)];
		for (u32 lane = 0; lane < _Lanes::kLanes; ++lane)
			std::memcpy(packed + lane * sizeof(CFloat3), src + lane * stride, sizeof(CFloat3));
		_Lanes::LoadTriples(packed, x, y, z);
	}
};

// A virtual view: one position for all lanes and all registers.
// Nothing is read behind the position, because its 12 bytes may be the end of memory.
struct SPositions_Repeated
{
	template<typename _Lanes, typename _Register>
	static VX_INLINE void Load(const u8 *src, u32, _Register &x, _Register &y, _Register &z)
	{
		x = _Lanes::Splat(LoadU32(src));
		y = _Lanes::Splat(LoadU32(src + 4));
		z = _Lanes::Splat(LoadU32(src + 8));
	}
};

// The next bases, one for each lane.

// Of a sequence, with start s, increment i and w lanes:
//
//   lane       0        1              2               ...
//   bases      s        s + i          s + 2 i         now
//              s + w i  s + (w + 1) i  s + (w + 2) i   at the next call
template<typename _Lanes>
class TVertexBases_Sequence
{
public:
	typedef typename _Lanes::Register Register;

	// The increment is multiplied once. From then on each call is an addition.
	VX_WRAPS explicit VX_INLINE TVertexBases_Sequence(const CVertexBases_Sequence &bases)
		: m_Bases(_Lanes::template Add<u32>(_Lanes::Splat(bases.Start()), _Lanes::Multiples(bases.Increment())))
		, m_Step(_Lanes::Splat(_Lanes::kLanes * bases.Increment()))
	{
	}

	template<typename _Key>
	VX_INLINE Register Next(Register &)
	{
		const Register bases = m_Bases;
		m_Bases = _Lanes::template Add<u32>(m_Bases, m_Step);
		return bases;
	}

private:
	Register m_Bases;
	Register m_Step;
};

// Of a list, with entries e and a vertex count between e0 and e1, for example:
//
//   lane       0    1    2    3
//   entries    e0   e1   e2   e3
//   valid      yes  no   yes  yes     e < vertex count, as unsigned numbers
//   keys       k0   far  k2   k3
//   bases      e0   0    e2   e3
template<typename _Lanes>
class TVertexBases_List
{
public:
	typedef typename _Lanes::Register Register;

	// Entries may lie at any address, so they are loaded as bytes.
	explicit VX_INLINE TVertexBases_List(const CVertexBases_List &bases)
		: m_Entries(bases.Entries())
		, m_MaxVertexId(_Lanes::Splat(bases.MaxVertexId()))
	{
	}

	// Loads the next entries and replaces the keys of invalid ones. Entries are compared as unsigned numbers, so one of
	// 0x80000000 or more is not taken for a negative, valid one.
	template<typename _Key>
	VX_INLINE Register Next(Register &keys)
	{
		const Register entries = _Lanes::Load(m_Entries);
		m_Entries += _Lanes::kLanes;
		const typename _Lanes::Mask valid = _Lanes::LessUnsigned(entries, m_MaxVertexId);
		keys = _Lanes::Select(valid, keys, _Lanes::Splat(_Key::kFar));
		return _Lanes::Where(valid, entries);
	}

private:
	const u32 *m_Entries;
	Register m_MaxVertexId;
};

// What is left to be filled. A loop for each width takes as many groups as fill whole registers, and leaves the others
// to the next narrower one.
template<typename _VertexBases>
struct TFillCursor
{
	SIndexAndDepth *m_Records;
	const u8 *m_Source;
	ureg m_StrideInBytes;
	u32 m_GroupCount;
	_VertexBases m_VertexBases;

	// Moves on behind groups that are filled: 4 records, 4 elements and 4 vertex bases for each.
	VX_INLINE void Pass(u32 groupCount)
	{
		const u32 recordCount = groupCount * kRecordsPerGroup;
		m_Records += recordCount;
		m_Source += recordCount * m_StrideInBytes;
		m_GroupCount -= groupCount;
		m_VertexBases.Skip(recordCount);
	}
};

// Squared distances of a register of positions to the camera.

// Squared distances with their NaNs put right. Positions are loaded once more, so that nothing but their address has to
// be kept for this rare path. It is static so that each file has one of its own: a linker keeps one body of other
// functions, perhaps that of a file compiled for wider registers.
template<typename _Lanes, typename _Positions>
static VX_NOINLINE typename _Lanes::Register WithNaNsOf(
	const u8 *positions, u32 strideInBytes, typename _Lanes::Register len2, const float *camera)
{
	typename _Lanes::Register x, y, z;
	_Positions::template Load<_Lanes>(positions, strideInBytes, x, y, z);
	return WithNaNs<_Lanes>(x, y, z, len2, camera);
}

// _Positions is one of the ways above to load positions.
template<typename _Lanes, typename _Positions>
class TDistances
{
public:
	typedef typename _Lanes::Register Register;

	explicit VX_INLINE TDistances(const float *camera)
		: m_Distances(camera)
		, m_Camera(camera)
	{
	}
	VX_INLINE Register At(const u8 *positions, u32 strideInBytes) const
	{
		Register x, y, z;
		_Positions::template Load<_Lanes>(positions, strideInBytes, x, y, z);
		Register len2 = m_Distances.To(x, y, z);
		if constexpr (!_Lanes::kAddsInOrder)
		{
			if (VX_UNLIKELY(m_Distances.HaveNaN(len2)))
				len2 = WithNaNsOf<_Lanes, _Positions>(positions, strideInBytes, len2, m_Camera);
		}
		return len2;
	}

private:
	TSquaredDistances<_Lanes> m_Distances;
	const float *m_Camera;
};

// The keys of a register of particles: by their distance to the camera, or by their values.

template<typename _Lanes, typename _Positions>
class TDistanceKeys
{
public:
	typedef SDistanceKey Key;
	typedef typename _Lanes::Register Register;

	explicit VX_INLINE TDistanceKeys(const float *camera)
		: m_Distances(camera)
	{
	}
	VX_INLINE Register At(const u8 *positions, u32 strideInBytes) const
	{
		return SDistanceKey::FromLanes<_Lanes>(m_Distances.At(positions, strideInBytes));
	}

private:
	TDistances<_Lanes, _Positions> m_Distances;
};

// Keys by value. Values are packed: compaction and the caller see to that.
template<typename _Lanes>
struct TValueKeys
{
	typedef SValueKey Key;
	typedef typename _Lanes::Register Register;

	explicit VX_INLINE TValueKeys(const float *) {}
	VX_INLINE Register At(const u8 *values, u32) const { return SValueKey::FromLanes<_Lanes>(_Lanes::Load(values)); }
};

// The loop.
//
//   lane        0    1    2    3
//   keys        k0   k1   k2   k3       of the next particles
//   bases       n0   n1   n2   n3       of the next vertex bases
//
//   records     0       1       2       3
//   of a list   k0 n0   k1 n1   k2 n2   k3 n3
//   sequence    k2 n2   k3 n3   k0 n0   k1 n1
template<typename _Lanes, typename _Keys, typename _VertexBases>
static VX_INLINE void FillRegisters(TFillCursor<_VertexBases> &cursor, const float *camera)
{
	typedef typename _Lanes::Register Register;
	// Groups that do not fill a register stay in the cursor for a narrower target.
	const u32 registerCount = cursor.m_GroupCount / _Lanes::kGroups;
	if (registerCount == 0)
		return;
	const _Keys keysOfLanes(camera);
	typename _VertexBases::template InLanes<_Lanes> basesOfLanes(cursor.m_VertexBases);
	u8 *records = reinterpret_cast<u8 *>(cursor.m_Records);
	const u8 *source = cursor.m_Source;
	for (u32 i = 0; i < registerCount; ++i)
	{
		Register keys = keysOfLanes.At(source, u32(cursor.m_StrideInBytes));
		const Register bases = basesOfLanes.template Next<typename _Keys::Key>(keys);
		_Lanes::template StorePairs<_VertexBases::kUpperPairFirst>(records, keys, bases);
		records += _Lanes::kLanes * sizeof(SIndexAndDepth);
		source += _Lanes::kLanes * cursor.m_StrideInBytes;
	}
	cursor.Pass(registerCount * _Lanes::kGroups);
}

// The target and the way to load are chosen outside the loop, so that the loop has no branch for them.
template<typename _Lanes, typename _Positions, typename _VertexBases>
static VX_INLINE void FillRegistersByDistance(TFillCursor<_VertexBases> &cursor, const float *camera)
{
	FillRegisters<_Lanes, TDistanceKeys<_Lanes, _Positions>>(cursor, camera);
}

// The functions of the table. _Lanes are targets from the widest to one of one group; each fills what the one before it
// has left: of eleven groups, SLanesAvx512 fills eight, SLanesAvx2 two, and SLanesAvx one.

// By distance there are four ways to load, each for some strides: 12, 0, 4 and more, and 1 to 3. Positions that are
// gathered may go through a narrower target, if that is faster (Gathering in simd/lanes.h).
template<typename _VertexBases, typename... _Lanes>
static VX_HOT_CODE void FillByDistanceInLanes(SIndexAndDepth *records,
	const u8 *positions,
	u32 strideInBytes,
	u32 groupCount,
	const float *camera,
	const _VertexBases &vertexBases)
{
	TFillCursor<_VertexBases> cursor = {records, positions, strideInBytes, groupCount, vertexBases};
	if (VX_LIKELY(strideInBytes == sizeof(CFloat3)))
		(FillRegistersByDistance<_Lanes, SPositions_Packed>(cursor, camera), ...);
	else if (strideInBytes == 0)
		(FillRegistersByDistance<_Lanes, SPositions_Repeated>(cursor, camera), ...);
	else if (strideInBytes >= SPositions_Gathered::kMinStride)
		(FillRegistersByDistance<typename _Lanes::Gathering, SPositions_Gathered>(cursor, camera), ...);
	else
		(FillRegistersByDistance<_Lanes, SPositions_Overlapping>(cursor, camera), ...);
}

// By value there is one way to load, because other strides than 4 do not come here.
template<typename _VertexBases, typename... _Lanes>
static VX_HOT_CODE void FillByValueInLanes(
	SIndexAndDepth *records, const u8 *values, u32 groupCount, const _VertexBases &vertexBases)
{
	TFillCursor<_VertexBases> cursor = {records, values, sizeof(float), groupCount, vertexBases};
	(FillRegisters<_Lanes, TValueKeys<_Lanes>>(cursor, nullptr), ...);
}

template<typename _VertexBases, typename... _Lanes>
constexpr TFillKernels<_VertexBases> kFillKernelsFor = {
	&FillByDistanceInLanes<_VertexBases, _Lanes...>, &FillByValueInLanes<_VertexBases, _Lanes...>};
} // namespace Vexmoor
