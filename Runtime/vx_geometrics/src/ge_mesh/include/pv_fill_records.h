#pragma once

// The records of one page, from positions or from values. Whole groups of four go to the processor's kernels, and the
// one to three records that are left are written one by one. Nothing here reports.
//
// With ten particles, two groups are filled at once:
//
//   record       0  1  2  3    4  5  6  7    8  9
//   written by   the kernel    the kernel    one by one
//
// Records are written in ascending order of memory, but for the order inside a group (pv_fill.h).
//
// This is inlined into the walk over pages, because with one particle to a page a call per page would take much of the
// time. Groups of four and compaction are not inlined: pages that small have no use for them.

#include "ge_mesh_triangle_sorter.h"

#include "pv_camera.h"
#include "pv_depth_keys.h"
#include "pv_fill.h"
#include "pv_fill_groups.h"
#include "pv_mesh_triangle_sorter.h"

namespace Vexmoor
{
// The part of one page that becomes records, and those records: its elements, their enabled bytes, and where they go.
template<typename _Element>
struct TPagePart
{
	const CRecordList &m_Records;
	const TStridedMemoryView<const _Element> &m_Elements;
	const CEnableds &m_Enableds;
};

// Whether a page of such elements is slow to fill. Elements at a stride of 0 are one for the whole page.
template<typename _Element>
static VX_INLINE bool HasUncommonStride(const TStridedMemoryView<const _Element> &elements)
{
	return elements.Stride() != sizeof(_Element) && elements.Stride() != 0;
}

// Writes a record for each value of a view. The values may lie in the upper half of the records, as compaction leaves
// them.
template<typename _VertexBases>
static VX_INLINE void WriteRecordsByValue(
	const CRecordList &outList, const CSortValues &sortValues, _VertexBases vertexBases)
{
	// Locals, which compilers keep in registers: a stored record might change a view that lies in memory.
	SIndexAndDepth *packedPtr = outList.Data();
	const u8 *valuePtr = reinterpret_cast<const u8 *>(sortValues.Data());
	const u32 valueStride = sortValues.Stride();
	u32 remaining = outList.Count();
	// At other strides all values are written one by one: they are one value for the whole page, at a stride of 0, or
	// uncommon, which has been warned of.
	const u32 groupCount = valueStride == sizeof(float) ? remaining / kRecordsPerGroup : 0;
	if (groupCount != 0)
	{
		const _VertexBases groupBases = vertexBases; // a copy, so that the loop below has its own in registers
		FillKernels().For(vertexBases).m_ByValue(packedPtr, valuePtr, groupCount, groupBases);
		vertexBases.Skip(groupCount * kRecordsPerGroup);
		packedPtr += groupCount * kRecordsPerGroup;
		valuePtr += groupCount * kRecordsPerGroup * sizeof(float);
		remaining -= groupCount * kRecordsPerGroup;
	}

	// A value is loaded before its record is stored: they may be the same bytes.
	for (; remaining != 0; --remaining)
	{
		u32 key = SValueKey::FromBits(LoadU32(valuePtr));
		const u32 base = vertexBases.template Next<SValueKey>(key);
		*packedPtr++ = {key, base};
		valuePtr += valueStride;
	}
}

// Writes a record for each enabled element, by one of two functions: a small page does not pay for what only a larger
// one needs.
template<typename _SortValues, typename _VertexBases>
static VX_NOINLINE void WriteRecordsOfFewEnabled(const CRecordList &outList,
	const SOfferedParticles &source,
	const _SortValues &sortValues,
	_VertexBases vertexBases)
{
	WriteRecordsByValue(outList, CompactSortValues(outList, source, sortValues, 0, 0), vertexBases);
}

template<typename _SortValues, typename _VertexBases>
static VX_NOINLINE void WriteRecordsOfManyEnabled(const CRecordList &outList,
	const SOfferedParticles &source,
	const _SortValues &sortValues,
	_VertexBases vertexBases)
{
	WriteRecordsByValue(outList, CompactSortValuesInLanes(outList, source, sortValues), vertexBases);
}

// The choice is made in the walk over pages. What is passed on is copied for the call alone, number by number:
// compilers keep a view whose address is passed on in memory, for pages without disabled particles as well. For the
// same reason there is one call, by a chosen address, and not two.
template<typename _SortValues, typename _VertexBases>
static VX_INLINE void WriteRecordsOfEnabled(const CRecordList &outList,
	const TStridedMemoryView<const typename _SortValues::Element> &source,
	const CEnableds &enableds,
	const _SortValues &sortValues,
	const _VertexBases &vertexBases)
{
	const CRecordList records(outList.Data(), outList.Count());
	const SOfferedParticles particles(source, enableds);
	const auto write = source.Count() < kMinCompactedInLanes ? &WriteRecordsOfFewEnabled<_SortValues, _VertexBases>
	                                                         : &WriteRecordsOfManyEnabled<_SortValues, _VertexBases>;
	write(records, particles, sortValues, vertexBases);
}

// Writes a record for each of the remaining positions of a page, and returns the address behind the last one.
// The stride may be any: 12 for packed positions, 0 for one position that all records share. The vertex bases are those
// of the first remaining record. The records may lie at any multiple of 8.
template<typename _VertexBases>
static VX_INLINE const u8 *WriteRecordsByDistance(SIndexAndDepth *packedPtr,
	const u8 *srcBytes,
	u32 srcStride,
	u32 remaining,
	const CCamera &camera,
	_VertexBases vertexBases)
{
	const u32 groupCount = remaining / kRecordsPerGroup;
	if (groupCount != 0)
	{
		const _VertexBases groupBases = vertexBases; // a copy, so that the loop below has its own in registers
		const auto &kernels = FillKernels().For(vertexBases);
		kernels.m_ByDistance(packedPtr, srcBytes, srcStride, groupCount, camera.Position(), groupBases);
		vertexBases.Skip(groupCount * kRecordsPerGroup);
		packedPtr += groupCount * kRecordsPerGroup;
		srcBytes += groupCount * kRecordsPerGroup * ureg(srcStride);
		remaining -= groupCount * kRecordsPerGroup;
	}

	for (; remaining != 0; --remaining)
	{
		FillOneByDistance(packedPtr++, srcBytes, camera, vertexBases);
		srcBytes += srcStride;
	}
	return srcBytes;
}
} // namespace Vexmoor
