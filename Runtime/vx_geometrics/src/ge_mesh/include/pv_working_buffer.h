#pragma once

// How a working buffer is divided. Nothing here reports.
//
//   points       sorted records | filled records
//   triangles    sorted records | filled records | unsorted indices, 4 bytes each whatever their type
//
// Each array of records has an even number of them, so that the next one starts at a multiple of 16.

#include "ge_mesh_triangle_sorter.h"

namespace Vexmoor
{
// Elements of the buffer behind skippedCount others. The address is computed as an integer: a carving of null is a
// caller's fault that shows where it is used, not here.
template<typename _Type>
static VX_INLINE TMemoryView<_Type> Carve(const void *base, u32 skippedCount, u32 count)
{
	return {reinterpret_cast<_Type *>(reinterpret_cast<ureg>(base) + ureg(skippedCount) * sizeof(_Type)), count};
}

template<typename _Index>
TMemoryView<_Index> CTriangleSorter::WorkingBuffer_TriangleIndices(void *wb, u32 indexCount)
{
	return Carve<_Index>(wb, 2 * GetSortedTrisWorkingBufferSize(indexCount) / u32(sizeof(_Index)), indexCount);
}

template<typename _Index>
TMemoryView<const _Index> CTriangleSorter::WorkingBuffer_TriangleIndices(const void *wb, u32 indexCount)
{
	return Carve<const _Index>(wb, 2 * GetSortedTrisWorkingBufferSize(indexCount) / u32(sizeof(_Index)), indexCount);
}
} // namespace Vexmoor
