#pragma once

// Filling groups of four records: where vertex bases come from, and the table of functions for each instruction set.
// The bodies are in pv_fill_kernels.h.

#include "ge_mesh_triangle_sorter.h"

#include "vx_compiler.h"
#include "vx_defs.h"

#include "pv_mesh_triangle_sorter.h"
#include "pv_quads.h"

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

// Where vertex bases come from. The loops that ask for them are written once, for both classes below. A loop over
// records asks by Next. A loop over lanes makes an InLanes of the object, which gives a register of bases at a time,
// and calls Skip with the number of records when it is done. All of them count records: disabled particles have none.
//
// A sequence: record k has the base start + k * increment, modulo 2^32 as lanes count. A group of four is stored in the
// order 2, 3, 0, 1, which shows in the order of equal keys after a stable sort, and is kept for it. With start 100 and
// increment 4:
//
//   record in memory    0          1          2          3
//   particle            2          3          0          1
//   key and base        k2 108     k3 112     k0 100     k1 104
class CVertexBases_Sequence
{
public:
	// Lanes 2 and 3 of each group are stored before lanes 0 and 1.
	static constexpr bool kUpperPairFirst = true;
	template<typename _Lanes>
	using InLanes = TVertexBases_Sequence<_Lanes>;

	VX_INLINE CVertexBases_Sequence(u32 start, u32 increment)
		: m_Next(start)
		, m_Increment(increment)
	{
	}

	// The base of the next record, and the step from one record's base to the next one's.
	VX_INLINE u32 Start() const { return m_Next; }
	VX_INLINE u32 Increment() const { return m_Increment; }

	// Returns the base of the next record.
	VX_WRAPS VX_INLINE u32 Next()
	{
		const u32 base = m_Next;
		m_Next += m_Increment;
		return base;
	}
	// As a list's Next, which may change the key. A sequence has no invalid entries, so the key stays.
	template<typename _Key>
	VX_INLINE u32 Next(u32 &)
	{
		return Next();
	}
	// Passes over the bases of records that a loop over lanes has made.
	VX_WRAPS VX_INLINE void Skip(u32 recordCount) { m_Next += recordCount * m_Increment; }

private:
	u32 m_Next;
	u32 m_Increment;
};

// A list: record k has entry k as its base. An entry at or beyond maxVertexId gives the record base 0 and the far key,
// by which it is drawn first, as the farthest of its kind. With the entries 8, 99, 4, 0 and a maxVertexId of 12:
//
//   record in memory    0          1          2          3
//   key and base        k0 8       far 0      k2 4       k3 0
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

	// Returns the base of the next record, and makes the key far if the entry is not valid. Both are selections, so
	// there is no branch to mispredict: valid and invalid entries may come in any order.
	template<typename _Key>
	VX_INLINE u32 Next(u32 &key)
	{
		const u32 entry = LoadU32(m_Entries++);
		const bool valid = entry < m_MaxVertexId;
		key = valid ? key : _Key::kFar;
		return valid ? entry : 0;
	}
	// Passes over the entries of records that a loop over lanes has made.
	VX_INLINE void Skip(u32 recordCount) { m_Entries += recordCount; }

private:
	const u32 *m_Entries;
	u32 m_MaxVertexId;
};

// The least stride at which positions are loaded as they lie; see SPositions_Gathered.
constexpr u32 kMinGatheredStride = 4;

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

// Pages of fewer particles are compacted one by one. In lanes, the whole sort took 0.94 to 1.04 of the time with pages
// of 20 particles, and 1.05 to 1.14 with pages of 10.
constexpr u32 kMinCompactedInLanes = 24;

// A page's particles, and where the sort values of its enabled ones go.
struct SCompaction
{
	u8 *m_Values;
	u32 m_ValueCount; // no more than this are stored, and nothing behind them is written
	const u8 *m_Source;
	u32 m_StrideInBytes;
	const u8 *m_Enabled;
	u32 m_ParticleCount; // kMinCompactedInLanes or more
};

// Stores the sort values of enabled particles side by side, and returns how many: all that are wanted, or those of all
// particles.
struct SCompactionKernels
{
	// 0.0f - the squared distance, of positions at strides from 4 on.
	u32 (*m_ByDistance)(const SCompaction &page, const float *camera);
	// Contiguous values as they are.
	u32 (*m_ByValue)(const SCompaction &page);
};

// All loops for one instruction set. Which table is used is asked for once a page.
struct SFillKernels
{
	TFillKernels<CVertexBases_Sequence> m_Sequence;
	TFillKernels<CVertexBases_List> m_List;
	SCompactionKernels m_Compaction;
	SQuadKernels m_Quads;
	// Widens a span, from the lowest to the highest key, by the keys of records.
	void (*m_WidenSpan)(const SIndexAndDepth *records, u32 count, u32 &lowest, u32 &highest);

	const TFillKernels<CVertexBases_Sequence> &For(const CVertexBases_Sequence &) const { return m_Sequence; }
	const TFillKernels<CVertexBases_List> &For(const CVertexBases_List &) const { return m_List; }
};

// One table for each file that is compiled for its own instruction set. All give the same records.
extern const SFillKernels kFillKernels_Baseline;
#if VX_X86
extern const SFillKernels kFillKernels_Avx2;
extern const SFillKernels kFillKernels_Avx512;
#endif
} // namespace Vexmoor
