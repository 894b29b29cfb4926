#pragma once

// How a working buffer is divided. Nothing here reports.
//
//   points       sorted records | filled records
//   triangles    sorted records | filled records | unsorted indices
//
// Each array has room for an even number of records, so the next one starts at a multiple of 16 as well. Unsorted
// indices have room for 4 bytes each; 16-bit indices use the first half of it.

#include "ge_mesh_triangle_sorter.h"

namespace Vexmoor
{
// A view of count elements, behind skippedCount others of the same size. The address is computed as an integer, since
// the buffer may be null: that is the caller's fault, which shows where the view is used, and not here.
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
