#pragma once

// Filling groups of four records: where vertex bases come from, and the table of functions for each instruction set.
// The bodies are in pv_fill_kernels.h.

#include "ge_mesh_triangle_sorter.h"

#include "vx_compiler.h"
#include "vx_defs.h"

#include "pv_mesh_triangle_sorter.h"

namespace Vexmoor
{
typedef TMemoryView<SIndexAndDepth> CRecordList;
typedef TStridedMemoryView<const CFloat3> CPositions;
typedef TStridedMemoryView<const float> CSortValues;
typedef TStridedMemoryView<const u8> CEnableds;

template<typename _Lanes>
class TVertexBases_Sequence;
template<typename _Lanes>
class TVertexBases_List;

// Where vertex bases come from; the loops that ask for them are written once. Records ask one by one, by Next, or a
// register of them at a time, through InLanes, which starts where Next would, and after which Skip catches up. All
// count records, never particles.
//
// A sequence: record k has the base start + k * increment, modulo 2^32 as lanes count. A group of four is stored in the
// order 2, 3, 0, 1, which shows in the order of equal keys after a stable sort, and is kept for it.
class CVertexBases_Sequence
{
public:
	static constexpr bool kUpperPairFirst = true;
	template<typename _Lanes>
	using InLanes = TVertexBases_Sequence<_Lanes>;

	VX_INLINE CVertexBases_Sequence(u32 start, u32 increment)
		: m_Next(start)
		, m_Increment(increment)
	{
	}

	VX_INLINE u32 Start() const { return m_Next; }
	VX_INLINE u32 Increment() const { return m_Increment; }

	VX_WRAPS VX_INLINE u32 Next()
	{
		const u32 base = m_Next;
		m_Next += m_Increment;
		return base;
	}
	template<typename _Key>
	VX_INLINE u32 Next(u32 &)
	{
		return Next();
	}
	VX_WRAPS VX_INLINE void Skip(u32 recordCount) { m_Next += recordCount * m_Increment; }

private:
	u32 m_Next;
	u32 m_Increment;
};

// A list: record k has entry k as its base. An entry at or beyond maxVertexId gives the record base 0 and the far key.
class CVertexBases_List
{
public:
	static constexpr bool kUpperPairFirst = false;
	template<typename _Lanes>
	using InLanes = TVertexBases_List<_Lanes>;

	VX_INLINE CVertexBases_List(const u32 *entries, u32 maxVertexId)
		: m_Entries(entries)
		, m_MaxVertexId(maxVertexId)
	{
	}

	VX_INLINE const u32 *Entries() const { return m_Entries; }
	VX_INLINE u32 MaxVertexId() const { return m_MaxVertexId; }

	template<typename _Key>
	VX_INLINE u32 Next(u32 &key)
	{
		const u32 entry = LoadU32(m_Entries++);
		const bool valid = entry < m_MaxVertexId;
		key = valid ? key : _Key::kFar;
		return valid ? entry : 0;
	}
	VX_INLINE void Skip(u32 recordCount) { m_Entries += recordCount; }

private:
	const u32 *m_Entries;
	u32 m_MaxVertexId;
};

// Fills groups of four records, at any address.
template<typename _VertexBases>
struct TFillKernels
{
	// From positions at any stride, 0 for one that all records share. Of bytes behind a position's 12th, only those of
	// later positions are read.
	void (*m_ByDistance)(SIndexAndDepth *records,
		const u8 *positions,
		u32 strideInBytes,
		u32 groupCount,
		const float *camera,
		const _VertexBases &vertexBases);
	// From contiguous values. They may lie in the upper half of the records, as compaction leaves them.
	void (*m_ByValue)(SIndexAndDepth *records, const u8 *values, u32 groupCount, const _VertexBases &vertexBases);
};

struct SFillKernels
{
	TFillKernels<CVertexBases_Sequence> m_Sequence;
	TFillKernels<CVertexBases_List> m_List;

	const TFillKernels<CVertexBases_Sequence> &For(const CVertexBases_Sequence &) const { return m_Sequence; }
	const TFillKernels<CVertexBases_List> &For(const CVertexBases_List &) const { return m_List; }
};

extern const SFillKernels kFillKernels_Baseline;
#if VX_X86
extern const SFillKernels kFillKernels_Avx2;
extern const SFillKernels kFillKernels_Avx512;
#endif
} // namespace Vexmoor
