#pragma once

// Records of particles widened to records of triangles, and triangles gathered in the order of sorted records. Nothing
// here reports but the views that it indexes.
//
// The P particles of a page, with T triangles each, make T blocks of P records. A record's index is then the number of
// a triangle among all those that are drawn, and the unsorted indices of triangle n are 3 n, 3 n + 1 and 3 n + 2:
//
//   particles    key 0, vertex     | key 1, vertex   | key 2, vertex    | ...
//   block 0      key 0, first      | key 1, first+T  | key 2, first+2T  | ...    in place of the particles
//   block 1      key 0, first+1    | key 1, first+T+1| key 2, first+2T+1| ...    behind it, read from block 0
//   block T-1    key 0, first+T-1  | ...
//
// Triangles of one particle have equal keys. A stable sort leaves them in the order of blocks, which is that of the
// pattern.

#include "ge_mesh_triangle_sorter.h"

#include "simd/lanes.h"

#include "kr_memoryviews.h"

#include "pv_depth_keys.h"
#include "pv_expand_kernels.h"
#include "pv_fill.h"
#include "pv_fill_kernels.h"
#include "pv_mesh_triangle_sorter.h"

namespace Vexmoor
{
// Writes a block of records, one triangle of every particle, under the particles' keys. The first record's triangle is
// firstTriangle, and each next one is trianglePerPrimitive further on. dst may be the particles, because a group of
// four records is read before it is written.
static inline void WriteTriangleBlock(
	const SIndexAndDepth *particles, SIndexAndDepth *dst, u32 primCount, u32 firstTriangle, u32 trianglePerPrimitive)
{
	CVertexBases_Sequence triangles(firstTriangle, trianglePerPrimitive);
	TVertexBases_Sequence<SLanesBase> trianglesInLanes(triangles);
	const u32 groupCount = primCount / kRecordsPerGroup;
	for (u32 group = 0; group < groupCount; ++group)
	{
		SLanesBase::Register keys = SLanesBase::LoadEvenLanes(reinterpret_cast<const u8 *>(particles));
		const SLanesBase::Register numbers = trianglesInLanes.Next<SDistanceKey>(keys);
		SLanesBase::StorePairs<false>(reinterpret_cast<u8 *>(dst), keys, numbers);
		particles += kRecordsPerGroup;
		dst += kRecordsPerGroup;
	}
	triangles.Skip(groupCount * kRecordsPerGroup);

	// The last group may have fewer records.
	for (u32 left = primCount % kRecordsPerGroup; left != 0; --left)
		*dst++ = {(particles++)->m_Depth, triangles.Next()};
}

// How the indices of all triangles are stored in the working buffer, from where they are gathered in the order of
// sorted records: through the caches, so that the gather finds them there, unless there are too many. On an Intel Xeon
// with 2 MB of second-level cache, stores through the caches make whole sorts take 0.75 of the time with 5 and 7 MB of
// indices, 0.94 with 14 MB, and 1.05 with 36 MB.
template<typename _Index>
static inline EIndexStores StoresOfUnsorted(u64 indexCount)
{
	constexpr u64 kMaxCachedInBytes = 8u << 20;
	return indexCount * sizeof(_Index) <= kMaxCachedInBytes ? EIndexStores::Cached : EIndexStores::Streamed;
}

// Makes the triangles [first, end) ones without area, because the host has asked for more than its pages draw. Their
// records have the key of what is farthest, so they are drawn first.
template<typename _Index>
VX_WRAPS static void WriteMissingTriangles(SIndexAndDepth *records, _Index *indices, u32 first, u32 end)
{
	for (u32 i = first; i < end; ++i)
	{
		records[i] = {SValueKey::kFar, i};
		_Index *const triangle = indices + u64(i) * 3;
		triangle[0] = triangle[1] = triangle[2] = 0;
	}
}

// Writes triCount triangles in the order of sorted records: three indices each, front to back, from where the records
// say that they lie. Reads are in no order, so the unsorted indices are best in a cache (StoresOfUnsorted).
//
// The views are passed by value. A view of the caller's might lie in the output, and compilers would load it again for
// every triangle.
template<typename _Index>
static void ApplyToTriangles(const TMemoryView<SIndexAndDepth> inList,
	const TMemoryView<const _Index> srcIndices,
	_Index *dstIndices,
	u32 triCount)
{
	typedef SPrimitive<_Index, 3> STriangle;
	if (triCount == 0)
		return;
	const TMemoryView<const STriangle> inIndices(
		reinterpret_cast<const STriangle *>(srcIndices.Data()), srcIndices.Count() / 3);
	const TMemoryView<STriangle> outIndices(reinterpret_cast<STriangle *>(dstIndices), triCount);
	for (u32 i = 0; i < triCount; ++i)
	{
		// Stores in ascending order. Compilers copy a structure in an order of their own.
		const STriangle &triangle = inIndices[inList[i].m_Index];
		volatile _Index *const dst = outIndices[i].m_IDs;
		if constexpr (sizeof(_Index) == sizeof(u32))
			StoreU64(dst, LoadU64(triangle.m_IDs));
		else
			StoreU32(dst, LoadU32(triangle.m_IDs));
		dst[2] = triangle.m_IDs[2];
	}
}
} // namespace Vexmoor
