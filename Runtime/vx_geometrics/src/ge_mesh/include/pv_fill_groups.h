#pragma once

// What the fill of a page is made of, and reports nothing but the views that it indexes: a page's views, the compaction
// of enabled particles, and the way of whole groups of four to the processor's functions.

#include "ge_mesh_triangle_sorter.h"

#include "kr_cpu.h"

#include "pv_camera.h"
#include "pv_depth_keys.h"
#include "pv_fill.h"
#include "pv_mesh_triangle_sorter.h"

namespace Vexmoor
{
// A page's view. A page that the collection lacks is reported, and has an empty one.
template<typename _Element>
static TStridedMemoryView<const _Element> ViewOfPage(
	const TStridedMemoryView<const TStridedMemoryView<const _Element>> &pages, u32 pageId)
{
	const TStridedMemoryView<const _Element> *const view = pages.AddressOf(pageId);
	return pages.Data() != null && pageId < pages.Count() ? *view : TStridedMemoryView<const _Element>();
}

// The first elements of a page that has no enabled bytes are its rendered ones; a page that has them offers them all.
template<typename _Element>
static TStridedMemoryView<const _Element> OfferedElements(
	const TStridedMemoryView<const _Element> &elements, const CEnableds &enableds, u32 recordCount)
{
	return enableds.Empty() ? elements.Slice(0, std::min(recordCount, elements.Count())) : elements;
}

// The table for the registers in use. The order is that of Cpu::EInstructionSet (kr_cpu.h).
static VX_INLINE const SFillKernels &FillKernels()
{
	static constexpr const SFillKernels *kKernels[] = {
		&kFillKernels_Baseline,
#if VX_X86
		&kFillKernels_Avx2,
		&kFillKernels_Avx512,
#endif
	};
	return *kKernels[Cpu::InstructionSet()];
}

// The sort values of particles, one by one and in lanes: values as they are, or 0.0f - the squared distance to the
// camera.

struct SSortValues_Given
{
	typedef float Element;

	static VX_INLINE u32 Bits(const float *value) { return LoadU32(value); }

	static VX_INLINE bool GoInLanes(u32 strideInBytes) { return strideInBytes == sizeof(float); }
	static VX_INLINE u32 CompactInLanes(const SCompaction &page) { return FillKernels().m_Compaction.m_ByValue(page); }
};

struct SSortValues_Distance
{
	typedef CFloat3 Element;

	CCamera m_Camera;

	VX_INLINE u32 Bits(const CFloat3 *position) const { return m_Camera.NegatedSquaredDistanceBits(position); }

	static VX_INLINE bool GoInLanes(u32 strideInBytes) { return strideInBytes >= kMinGatheredStride; }
	VX_INLINE u32 CompactInLanes(const SCompaction &page) const
	{
		// A copy: a camera whose address somebody else has would be loaded again after each store.
		float position[3];
		std::memcpy(position, m_Camera.Position(), sizeof(position));
		return FillKernels().m_Compaction.m_ByDistance(page, position);
	}
};

// The particles that a page with disabled ones offers. These are the numbers of its views, and not views: made for one
// call, and in no register or memory of a walk over pages that have no disabled particles.
struct SOfferedParticles
{
	template<typename _Element>
	VX_INLINE SOfferedParticles(const TStridedMemoryView<const _Element> &source, const CEnableds &enableds)
		: m_Elements(reinterpret_cast<const u8 *>(source.Data()))
		, m_StrideInBytes(source.Stride())
		, m_Count(source.Count())
		, m_Enableds(enableds.Data())
		, m_EnabledCount(enableds.Count())
		, m_EnabledStride(enableds.Stride())
	{
	}

	const u8 *m_Elements;
	u32 m_StrideInBytes;
	u32 m_Count;
	const u8 *m_Enableds; // a byte each
	u32 m_EnabledCount;
	u32 m_EnabledStride;
};

// Where compacted values go: see below.
static VX_INLINE u8 *SortKeysIn(const CRecordList &outList)
{
	return reinterpret_cast<u8 *>(outList.Data() + outList.Count() / 2);
}

// Compaction puts the sort values of enabled particles into the upper half of the record list that they become. Of n
// records, value k is at byte 8 * (n / 2) + 4 * k. Registers of w lanes read values k to k + w - 1 and then write
// records up to byte 8 * (k + w), below which no value lies that is still to be read: value k + w is at byte 8 * (n /
// 2) + 4 * (k + w) or, if n is odd, 4 bytes before 4 * (n + k + w), and there k + w is below n. Values and records
// share bytes under two types, so both are moved as bytes or lanes.
//
// For n = 4 records and the enabled bytes 1 0 1 1 0 1, with values v0 to v5:
//
//   byte      0      4      8      12     16     20     24     28
//   before    -      -      -      -      v0     v2     v3     v5       the upper half of 4 records
//   after     r0            r1            r2            r3              each a key and a base

// Compacts one by one, from a particle on, behind count values. If too few particles are enabled, the iterator reports
// it.
template<typename _SortValues>
static VX_INLINE CSortValues CompactSortValues(const CRecordList &outList,
	const SOfferedParticles &source,
	const _SortValues &sharedSortValues,
	u32 particle,
	u32 count)
{
	typedef const typename _SortValues::Element CElement;
	const _SortValues sortValues = sharedSortValues; // a copy, which stores to records cannot change
	const u32 primCount = outList.Count();
	const u32 stride = source.m_StrideInBytes;
	u8 *const sortKeys = SortKeysIn(outList);
	const ureg address = reinterpret_cast<ureg>(source.m_Elements) + ureg(particle) * stride;
	TStridedBaseIterator<CElement> element(reinterpret_cast<CElement *>(address), stride, source.m_Count - particle);
	const u8 *enabled = source.m_Enableds + particle;
	for (; count < primCount; ++element)
	{
		// Written before it is known to stay: a branch on the byte would be a guess.
		StoreU32(sortKeys + count * sizeof(float), sortValues.Bits(element.Ptr()));
		// A page without enabled bytes is not compacted: the walk offers no more elements of it than there are records.
		// NOLINTNEXTLINE(clang-analyzer-core.NullDereference)
		count += *enabled++ != 0;
	}
	// cppcheck-suppress invalidPointerCast ; an address for loads of bytes and lanes, never read as a float
	return {reinterpret_cast<const float *>(sortKeys), primCount, sizeof(float)};
}

// How many particles of a page are compacted in lanes: all, or none if the page is small or has an uncommon stride.
template<typename _SortValues>
static VX_INLINE u32 ParticlesInLanes(const SOfferedParticles &source)
{
	const u32 particleCount =
		source.m_EnabledStride == sizeof(u8) ? std::min(source.m_Count, source.m_EnabledCount) : 0;
	return particleCount >= kMinCompactedInLanes && _SortValues::GoInLanes(source.m_StrideInBytes) ? particleCount : 0;
}

// Compacts in lanes. One by one, only what the enabled bytes lack is looked for.
template<typename _SortValues>
static VX_INLINE CSortValues CompactSortValuesInLanes(
	const CRecordList &outList, const SOfferedParticles &source, const _SortValues &sortValues)
{
	const u32 particleCount = ParticlesInLanes<_SortValues>(source);
	const u32 count = sortValues.CompactInLanes({SortKeysIn(outList), outList.Count(), source.m_Elements,
		source.m_StrideInBytes, source.m_Enableds, particleCount});
	return CompactSortValues(outList, source, sortValues, particleCount, count);
}

// One record from one position, the same to the bit as the kernels would make it.
template<typename _VertexBases>
static VX_INLINE void FillOneByDistance(
	SIndexAndDepth *packedPtr, const u8 *srcPos, const CCamera &camera, _VertexBases &vertexBases)
{
	u32 key = SDistanceKey::FromBits(camera.SquaredDistanceBits(srcPos));
	const u32 base = vertexBases.template Next<SDistanceKey>(key);
	*packedPtr = {key, base};
}

// Fills the records [first, stop) of particles that lie beyond the vertex buffer or in no page. They are drawn before
// all particles with a finite key, with the first vertices. Most sorts have no such particles.
static VX_INLINE void FillFarRecords(const CRecordList &out, u32 first, u32 stop)
{
	if (VX_LIKELY(first >= stop))
		return;
	const u32 count = stop - first;
	float valueFar;
	std::memcpy(&valueFar, &kMinusInfinityBits, sizeof(valueFar)); // -ffast-math does not know an infinity
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(
		out.Slice(first, count), CSortValues(&valueFar, count, 0), {}, 0, 0);
}
} // namespace Vexmoor
