// The sort, top down: the working buffer's regions, the fill of records from pages, the expansion of sorted records
// into indices, and the two drivers. Every report of the sorter stands here; lane arithmetic stands in the private
// headers.

#include "ge_mesh_triangle_sorter.h"

#include "simd/sse/simd_vector.h"
#include "vx_assert.h"

#include "kr_cpu.h"
#include "kr_log_unique.h"
#include "kr_mem.h"
#include "kr_profiler.h"
#include "kr_sort.h"
#include "kr_string.h"

#include "include/pv_depth_keys.h"
#include "include/pv_expand_lanes.h"
#include "include/pv_fill_lanes.h"
#include "include/pv_fill_lanes_avx2.h"
#include "include/pv_fill_lanes_avx512.h"
#include "include/pv_mesh_triangle_sorter.h"

#include <algorithm>

namespace Vexmoor
{
// Working buffer.

// As integers: a carving of null is a caller's fault that shows where it is used, not here.
template<typename _Type>
static VX_INLINE _Type *AtByte(const void *base, u64 offset)
{
	return reinterpret_cast<_Type *>(reinterpret_cast<ureg>(base) + ureg(offset));
}

VX_WRAPS TMemoryView<SIndexAndDepth> CTriangleSorter::WorkingBuffer_SortedPoints(
	void *wb, u32 elementCount, u32 bufferIndex)
{
	const u32 alignedPrimCount = _AlignedRecordCount(elementCount);
	VX_ASSERT((1 + bufferIndex) * alignedPrimCount * sizeof(SIndexAndDepth) <=
			  GetAutogenIndicesWorkingBufferSize(elementCount));
	const u32 firstRecord = alignedPrimCount * bufferIndex;
	return {AtByte<SIndexAndDepth>(wb, u64(firstRecord) * sizeof(SIndexAndDepth)), elementCount};
}

VX_WRAPS TMemoryView<const SIndexAndDepth> CTriangleSorter::WorkingBuffer_SortedPoints(
	const void *wb, u32 elementCount, u32 bufferIndex)
{
	const u32 alignedPrimCount = _AlignedRecordCount(elementCount);
	VX_ASSERT((1 + bufferIndex) * alignedPrimCount * sizeof(SIndexAndDepth) <=
			  GetAutogenIndicesWorkingBufferSize(elementCount));
	const u32 firstRecord = alignedPrimCount * bufferIndex;
	return {AtByte<const SIndexAndDepth>(wb, u64(firstRecord) * sizeof(SIndexAndDepth)), elementCount};
}

VX_WRAPS TMemoryView<SIndexAndDepth> CTriangleSorter::WorkingBuffer_SortedTris(
	void *wb, u32 indexCount, u32 bufferIndex)
{
	const u32 firstRecord = _AlignedRecordCount(indexCount / 3) * bufferIndex;
	VX_ASSERT(bufferIndex == 0 || bufferIndex == 1);
	return {AtByte<SIndexAndDepth>(wb, u64(firstRecord) * sizeof(SIndexAndDepth)), indexCount / 3};
}

VX_WRAPS TMemoryView<const SIndexAndDepth> CTriangleSorter::WorkingBuffer_SortedTris(
	const void *wb, u32 indexCount, u32 bufferIndex)
{
	const u32 firstRecord = _AlignedRecordCount(indexCount / 3) * bufferIndex;
	VX_ASSERT(bufferIndex == 0 || bufferIndex == 1);
	return {AtByte<const SIndexAndDepth>(wb, u64(firstRecord) * sizeof(SIndexAndDepth)), indexCount / 3};
}

template<typename _Index>
TMemoryView<_Index> CTriangleSorter::WorkingBuffer_TriangleIndices(void *wb, u32 indexCount)
{
	return {AtByte<_Index>(wb, 2 * GetSortedTrisWorkingBufferSize(indexCount)), indexCount};
}

template<typename _Index>
TMemoryView<const _Index> CTriangleSorter::WorkingBuffer_TriangleIndices(const void *wb, u32 indexCount)
{
	return {AtByte<const _Index>(wb, 2 * GetSortedTrisWorkingBufferSize(indexCount)), indexCount};
}

template TMemoryView<u32> CTriangleSorter::WorkingBuffer_TriangleIndices<u32>(void *, u32);
template TMemoryView<u16> CTriangleSorter::WorkingBuffer_TriangleIndices<u16>(void *, u32);
template TMemoryView<const u32> CTriangleSorter::WorkingBuffer_TriangleIndices<u32>(const void *, u32);
template TMemoryView<const u16> CTriangleSorter::WorkingBuffer_TriangleIndices<u16>(const void *, u32);

// Fill: records of one page. By distance or by value, with vertex bases from a sequence or a list: two algorithms and
// two sources. What sets the four apart beyond that is their warnings' sites.

struct SBySequence : CVertexBases_Sequence
{
	using CVertexBases_Sequence::CVertexBases_Sequence;
	static constexpr const char *kPositionStrideSite = VX_SITE_KEY("[l.1776]");
	static constexpr const char *kValueStrideSite = VX_SITE_KEY("[l.1950]");
};

struct SByList : CVertexBases_List
{
	using CVertexBases_List::CVertexBases_List;
	static constexpr const char *kPositionStrideSite = VX_SITE_KEY("[l.2129]");
	static constexpr const char *kValueStrideSite = VX_SITE_KEY("[l.2315]");
};

// Compacts the sort values of enabled particles into the upper half of the record list that they become. Of n records,
// value k is at byte 8 * (n / 2) + 4 * k. A group reads values k to k + 3 and then writes records up to byte 8 * k +
// 32, which no later group's value lies below: k + 4 <= n, and where n is odd, k + 5 <= n. Values and records share
// bytes under two types, so both are moved as bytes or lanes.
template<typename _Element, typename _SortValueBits>
static TStridedMemoryView<const float> CompactSortValues(const TMemoryView<SIndexAndDepth> &outList,
	const TStridedMemoryView<const _Element> &source,
	const TStridedMemoryView<const u8> &enableds,
	_SortValueBits sortValueBits)
{
	const u32 primCount = outList.Count();
	u8 *const sortKeys = reinterpret_cast<u8 *>(outList.Data() + primCount / 2);
	const u8 *enabled = enableds.Data();
	typename TStridedMemoryView<const _Element>::Iterator element = source.Begin();
	for (u32 count = 0; count < primCount; ++element)
	{
		// Written before it is known to stay: a branch on the byte would be a guess.
		StoreU32(sortKeys + count * sizeof(float), sortValueBits(element.Ptr()));
		// A page without enabled bytes is not compacted: the walk offers no more elements of it than there are records.
		// NOLINTNEXTLINE(clang-analyzer-core.NullDereference)
		count += *enabled++ != 0;
	}
	// cppcheck-suppress invalidPointerCast ; an address for loads of bytes and lanes, never read as a float
	return {reinterpret_cast<const float *>(sortKeys), primCount, sizeof(float)};
}

// What fills a page is inlined into the walk over pages, because with one particle to a page a call per page takes much
// of the time. Groups of four and compaction are not inlined: pages that small have no use for them.

template<bool _Aligned, typename _VertexBases>
static VX_NOINLINE void FillGroupsByValue(
	SIndexAndDepth *packedPtr, const u8 *valuePtr, u32 groupCount, _VertexBases vertexBases)
{
	typename _VertexBases::Fours bases4(vertexBases);
	for (u32 group = 0; group < groupCount; ++group)
	{
		const Float4 values = _Aligned ? Float4::LoadAligned16(valuePtr) : Float4::LoadUnaligned(valuePtr);
		__m128i keys = SValueKey::FromLanes(values.Integers());
		const __m128i bases = bases4.template Next<SValueKey>(keys);
		StoreGroup<_VertexBases::kUpperPairFirst, _Aligned>(packedPtr, keys, bases);
		packedPtr += kRecordsPerGroup;
		valuePtr += kRecordsPerGroup * sizeof(float);
	}
}

// A record for each value.
template<typename _VertexBases>
static VX_INLINE void FillFromValues(const TMemoryView<SIndexAndDepth> &outList,
	const TStridedMemoryView<const float> &sortValues,
	_VertexBases vertexBases)
{
	SIndexAndDepth *packedPtr = outList.Data();
	const u8 *valuePtr = reinterpret_cast<const u8 *>(sortValues.Data());
	const u32 valueStride = sortValues.Stride();

	u32 remaining = outList.Count();
	if (valueStride == sizeof(float))
	{
		const u32 groupCount = remaining / kRecordsPerGroup;
		if (groupCount != 0)
		{
			if (Mem::IsAligned<0x10>(valuePtr) && Mem::IsAligned<0x10>(packedPtr))
				FillGroupsByValue<true>(packedPtr, valuePtr, groupCount, vertexBases);
			else
				FillGroupsByValue<false>(packedPtr, valuePtr, groupCount, vertexBases);
			vertexBases.Skip(groupCount * kRecordsPerGroup);
			packedPtr += groupCount * kRecordsPerGroup;
			valuePtr += groupCount * kRecordsPerGroup * sizeof(float);
			remaining -= groupCount * kRecordsPerGroup;
		}
	}
	else if (valueStride != 0)
	{
		WarnAtSite(_VertexBases::kValueStrideSite, "Render sort: input sort-values have uncommon stride");
	}

	for (; remaining != 0; --remaining)
	{
		u32 key = SValueKey::FromBits(LoadU32(valuePtr));
		const u32 base = vertexBases.template Next<SValueKey>(key);
		*packedPtr++ = {key, base};
		valuePtr += valueStride;
	}
}

// A record for each enabled element.
template<typename _Element, typename _SortValueBits, typename _VertexBases>
static VX_NOINLINE void FillFromEnabled(const TMemoryView<SIndexAndDepth> &outList,
	const TStridedMemoryView<const _Element> &source,
	const TStridedMemoryView<const u8> &enableds,
	_SortValueBits sortValueBits,
	_VertexBases vertexBases)
{
	FillFromValues(outList, CompactSortValues(outList, source, enableds, sortValueBits), vertexBases);
}

template<typename _VertexBases>
static VX_INLINE void FillByValue(const TMemoryView<SIndexAndDepth> &outList,
	const TStridedMemoryView<const float> &sortValues,
	[[maybe_unused]] const TStridedMemoryView<const u8> &enableds,
	_VertexBases vertexBases)
{
	if (outList.Count() < sortValues.Count())
	{
		VX_ASSERT(enableds.Count() == sortValues.Count());
		VX_ASSERT(enableds.Contiguous());
		const auto valueBits = [](const float *value) { return LoadU32(value); };
		FillFromEnabled(outList, sortValues, enableds, valueBits, vertexBases);
		return;
	}
	FillFromValues(outList, sortValues, vertexBases);
}

template<typename _Positions, typename _VertexBases>
static void FillFoursByDistance(SIndexAndDepth *packedPtr,
	const u8 *srcPos,
	u32 srcStride,
	u32 groupCount,
	const SCamera &camera,
	const _VertexBases &vertexBases)
{
	typename _VertexBases::Fours bases4(vertexBases);
	for (u32 group = 0; group < groupCount; ++group)
	{
		__m128 x, y, z;
		_Positions::Load4(srcPos, srcStride, x, y, z);
		__m128i keys = SDistanceKey::FromLanes(camera.SquaredDistancesTo(x, y, z));
		const __m128i bases = bases4.template Next<SDistanceKey>(keys);
		StoreGroup<_VertexBases::kUpperPairFirst, true>(packedPtr, keys, bases);
		packedPtr += kRecordsPerGroup;
		srcPos += kRecordsPerGroup * ureg(srcStride);
	}
}

// The same records from whatever registers the processor has, the widest first.
template<typename _Positions, typename _VertexBases>
static VX_INLINE void FillGroups(SIndexAndDepth *packedPtr,
	const u8 *srcPos,
	u32 srcStride,
	u32 groupCount,
	const SCamera &camera,
	_VertexBases vertexBases)
{
#if defined(VX_TARGET_AVX2)
	const auto pass = [&](u32 passedGroupCount)
	{
		const u32 recordCount = passedGroupCount * kRecordsPerGroup;
		packedPtr += recordCount;
		srcPos += recordCount * ureg(srcStride);
		groupCount -= passedGroupCount;
		vertexBases.Skip(recordCount);
	};

	[[maybe_unused]] const u32 laneCount = Cpu::LaneCount();
	if constexpr (_Positions::kPacked)
	{
		const u32 sixteenCount = laneCount >= 16 ? groupCount / 4 : 0;
		if (sixteenCount != 0)
		{
			FillSixteensByDistance(packedPtr, srcPos, sixteenCount, camera, vertexBases);
			pass(sixteenCount * 4);
		}
	}
	if constexpr (_Positions::kHasEights)
	{
		const u32 eightCount = laneCount >= 8 ? groupCount / 2 : 0;
		if (eightCount != 0)
		{
			FillEightsByDistance<typename _Positions::Eights>(
				packedPtr, srcPos, srcStride, eightCount, camera, vertexBases);
			pass(eightCount * 2);
		}
	}
#endif
	FillFoursByDistance<_Positions>(packedPtr, srcPos, srcStride, groupCount, camera, vertexBases);
}

template<typename _VertexBases>
static VX_NOINLINE void FillGroupsByDistance(SIndexAndDepth *packedPtr,
	const u8 *srcPos,
	u32 srcStride,
	u32 groupCount,
	const SCamera &camera,
	_VertexBases vertexBases)
{
	if (srcStride == sizeof(CFloat3) && Mem::IsAligned<0x10>(srcPos))
		FillGroups<SPositions_PackedAligned>(packedPtr, srcPos, srcStride, groupCount, camera, vertexBases);
	else if (srcStride == sizeof(CFloat3))
		FillGroups<SPositions_PackedUnaligned>(packedPtr, srcPos, srcStride, groupCount, camera, vertexBases);
	else if (srcStride == 0)
		FillGroups<SPositions_Repeated>(packedPtr, srcPos, srcStride, groupCount, camera, vertexBases);
	else if (srcStride >= SPositions_Gathered::kMinStride)
		FillGroups<SPositions_Gathered>(packedPtr, srcPos, srcStride, groupCount, camera, vertexBases);
	else
		FillGroups<SPositions_GatheredOneByOne>(packedPtr, srcPos, srcStride, groupCount, camera, vertexBases);
}

template<typename _VertexBases>
static VX_INLINE void FillOneByDistance(
	SIndexAndDepth *packedPtr, const u8 *srcPos, const SCamera &camera, _VertexBases &vertexBases)
{
	u32 key = SDistanceKey::FromBits(BitsOfLane0(camera.SquaredDistanceTo(srcPos)));
	const u32 base = vertexBases.template Next<SDistanceKey>(key);
	*packedPtr = {key, base};
}

template<typename _VertexBases>
static VX_INLINE void FillByDistance(const TMemoryView<SIndexAndDepth> &outList,
	const TStridedMemoryView<const CFloat3> &positions,
	const SCamera &camera,
	[[maybe_unused]] const TStridedMemoryView<const u8> &enableds,
	_VertexBases vertexBases)
{
	const u32 primCount = outList.Count();
	if (primCount < positions.Count())
	{
		VX_ASSERT(enableds.Count() == positions.Count());
		VX_ASSERT(enableds.Contiguous());
		const auto valueBits = [camera](const CFloat3 *position)
		{ return BitsOfLane0(SubtractFromZero(camera.SquaredDistanceTo(position))); };
		FillFromEnabled(outList, positions, enableds, valueBits, vertexBases);
		return;
	}

	SIndexAndDepth *packedPtr = outList.Data();
	const u8 *srcBytes = reinterpret_cast<const u8 *>(positions.Data());
	const u32 srcStride = positions.Stride();

	u32 remaining = primCount;
	if (!Mem::IsAligned<0x10>(packedPtr) && remaining != 0)
	{
		VX_ASSERT(Mem::IsAligned<0x8>(packedPtr));
		FillOneByDistance(packedPtr, srcBytes, camera, vertexBases);
		++packedPtr;
		srcBytes += srcStride;
		--remaining;
	}

	if (primCount != 0)
	{
		VX_ASSERT_MESSAGE(Mem::IsAligned<0x10>(packedPtr), "Unaligned memory! %p should be 16-bytes aligned.",
			static_cast<const void *>(packedPtr));
	}
	if (srcStride != sizeof(CFloat3) && srcStride != 0)
		WarnAtSite(_VertexBases::kPositionStrideSite, "Render sort: input positions have uncommon stride");
	const u32 groupCount = remaining / kRecordsPerGroup;
	if (groupCount != 0)
	{
		FillGroupsByDistance(packedPtr, srcBytes, srcStride, groupCount, camera, vertexBases);
		vertexBases.Skip(groupCount * kRecordsPerGroup);
		packedPtr += groupCount * kRecordsPerGroup;
		srcBytes += groupCount * kRecordsPerGroup * ureg(srcStride);
		remaining -= groupCount * kRecordsPerGroup;
	}

	for (; remaining != 0; --remaining)
	{
		FillOneByDistance(packedPtr, srcBytes, camera, vertexBases);
		++packedPtr;
		srcBytes += srcStride;
	}
	[[maybe_unused]] const void *const srcPos = srcBytes;
	VX_ASSERT(positions.Virtual() || srcPos == positions.DataEnd());
}

void CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(const TMemoryView<SIndexAndDepth> &outList,
	const TStridedMemoryView<const CFloat3> &positions,
	const CFloat3 &cameraPosition,
	const TStridedMemoryView<const u8> &enableds,
	u32 indexStart,
	u32 indexIncrement)
{
	const CFloatModeScope floatMode;
	FillByDistance(outList, positions, SCamera(cameraPosition), enableds, SBySequence(indexStart, indexIncrement));
}

void CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(const TMemoryView<SIndexAndDepth> &outList,
	const TStridedMemoryView<const float> &sortValues,
	const TStridedMemoryView<const u8> &enableds,
	u32 indexStart,
	u32 indexIncrement)
{
	FillByValue(outList, sortValues, enableds, SBySequence(indexStart, indexIncrement));
}

void CTriangleSorter::FillSortingIndirectionsListPoint_Indices(const TMemoryView<SIndexAndDepth> &outList,
	const TStridedMemoryView<const CFloat3> &positions,
	const CFloat3 &cameraPosition,
	const TStridedMemoryView<const u8> &enableds,
	const u32 *indexList,
	u32 maxVertexId)
{
	const CFloatModeScope floatMode;
	FillByDistance(outList, positions, SCamera(cameraPosition), enableds, SByList(indexList, maxVertexId));
}

void CTriangleSorter::FillSortingIndirectionsListPoint_Indices(const TMemoryView<SIndexAndDepth> &outList,
	const TStridedMemoryView<const float> &sortValues,
	const TStridedMemoryView<const u8> &enableds,
	const u32 *indexList,
	u32 maxVertexId)
{
	FillByValue(outList, sortValues, enableds, SByList(indexList, maxVertexId));
}

// Fill: rendered particles, numbered through all pages, to pages and back.

// A page's view. A page that the collection lacks is reported, and has an empty one.
template<typename _Element>
static TStridedMemoryView<const _Element> ViewOfPage(
	const TStridedMemoryView<const TStridedMemoryView<const _Element>> &pages, u32 pageId)
{
	const TStridedMemoryView<const _Element> *const view = pages.AddressOf(pageId);
	return pages.Data() != null && pageId < pages.Count() ? *view : TStridedMemoryView<const _Element>();
}

void CTriangleSorter::_GetParticleIdxInPageCache(
	u32 renderedParticleId, u32 &pageId, u32 &offsetInPage, u32 &offsetInRenderedBuffer) const
{
	const u32 totalPageCount = m_InRenderedParticleCounts.Count();
	u64 outOffset = 0;
	pageId = 0;
	offsetInPage = 0;
	offsetInRenderedBuffer = 0;
	while (pageId < totalPageCount && outOffset + m_InRenderedParticleCounts[pageId] <= renderedParticleId)
		outOffset += m_InRenderedParticleCounts[pageId++];

	if (pageId == totalPageCount) // one past the last particle: the end of every walk
	{
		VX_ASSERT(outOffset == renderedParticleId);
		return;
	}
	VX_ASSERT(pageId < totalPageCount);

	offsetInRenderedBuffer = renderedParticleId - u32(outOffset);
	if (offsetInRenderedBuffer == 0)
		return;

	const TStridedMemoryView<const u8> enableds = ViewOfPage(m_InEnableds, pageId);
	if (enableds.Empty() || m_InRenderedParticleCounts[pageId] == enableds.Count())
	{
		offsetInPage = offsetInRenderedBuffer;
		return;
	}

	// One past the enabled particle before the wanted one, which is then the first enabled one from there on.
	for (u32 pLeft = offsetInRenderedBuffer; pLeft != 0;)
		pLeft -= enableds[offsetInPage++] != 0;
}

// The walk that all fillers share: hands fillPage the records, elements and enabled bytes of each page's part of the
// rendered particles [start, start + count), and the number of records before them. A page that has none to give, or
// none left, is passed over untouched. Returns the number of records handed out: fewer than count where the pages end
// before the particles do.
template<CTriangleSorter::EPageBound _PageBound, typename _Element, typename _FillPage>
VX_INLINE u32 CTriangleSorter::_WalkPages(
	const TStridedMemoryView<const TStridedMemoryView<const _Element, -1>, -1> &pages,
	u32 start,
	u32 count,
	const TMemoryView<SIndexAndDepth> &out,
	const _FillPage &fillPage) const
{
	if (count == 0)
		return 0;
	// Compilers keep these copies in registers. Members they load again and again, since a stored record might change
	// them.
	const CRenderedCounts renderedCounts = m_InRenderedParticleCounts;
	const CEnabledPages enabledPages = m_InEnableds;
	const TStridedMemoryView<const TStridedMemoryView<const _Element, -1>, -1> elementPages = pages;
	const TMemoryView<SIndexAndDepth> records = out;
	const u32 totalPageCount = renderedCounts.Count();

	struct SPlace
	{
		u32 m_Page, m_OffsetInPage, m_OffsetInRenderedBuffer;
	};
	const auto placeOf = [this](u32 renderedParticleId)
	{
		SPlace place;
		_GetParticleIdxInPageCache(
			renderedParticleId, place.m_Page, place.m_OffsetInPage, place.m_OffsetInRenderedBuffer);
		return place;
	};
	const SPlace first = placeOf(start);
	u32 pagei = first.m_Page;
	u32 offsetInPage = first.m_OffsetInPage;
	u32 offsetOut = first.m_OffsetInRenderedBuffer;
	VX_ASSERT_AS(
		"offsetOut < m_InRenderedParticleCounts[pagei]", pagei < totalPageCount && offsetOut < renderedCounts[pagei]);

	const SPlace stop = placeOf(start + count);
	const u32 pageStop = stop.m_Page;

	const CWarningBatch warnings;
	u32 i = 0;
	for (; i < count; ++pagei)
	{
		if constexpr (_PageBound == PageBound_RenderedCounts)
			VX_ASSERT(pagei < m_InRenderedParticleCounts.Count() && pagei <= pageStop);
		else
			VX_ASSERT(pagei < totalPageCount && pagei <= pageStop);
		if (pagei >= totalPageCount)
			break;

		const u32 pcount = renderedCounts[pagei] - offsetOut;
		if (pcount == 0)
			continue;

		const TStridedMemoryView<const _Element> elements = ViewOfPage(elementPages, pagei);
		if (pagei >= elementPages.Count())
			break;
		const TStridedMemoryView<const u8> enableds = ViewOfPage(enabledPages, pagei);
		const u32 pprocess = std::min(pcount, count - i);
		u32 pprocessIn = (pagei == pageStop ? stop.m_OffsetInPage : elements.Count()) - offsetInPage;
		if (enableds.Empty())
			pprocessIn = std::min(pprocessIn, pprocess); // none is disabled: the first ones are the rendered ones

		// A statement for each slice, so that every compiler reports broken slices in this order.
		const TMemoryView<SIndexAndDepth> recordSlice = records.Slice(i, pprocess);
		const TStridedMemoryView<const _Element> elementSlice = elements.Slice(offsetInPage, pprocessIn);
		const TStridedMemoryView<const u8> enabledSlice = enableds.SliceIFP(offsetInPage, pprocessIn);
		fillPage(recordSlice, elementSlice, enabledSlice, i);
		i += pprocess;
		offsetInPage = 0;
		offsetOut = 0;
	}
	return i;
}

// How many particles of [start, start + count) have their vertices inside the vertex buffer.
u32 CTriangleSorter::_ValidParticleCount(u32 start, u32 count) const
{
	const u32 firstVertex = m_PrimiteVertexCount * start;
	return m_VertexCount > firstVertex ? std::min((m_VertexCount - firstVertex) / m_PrimiteVertexCount, count) : 0;
}

// Records of particles beyond the vertex buffer, or of no page: drawn before all others with a finite key, at the first
// vertices.
static void FillFarRecords(const TMemoryView<SIndexAndDepth> &out)
{
	float valueFar;
	std::memcpy(&valueFar, &kMinusInfinityBits, sizeof(valueFar)); // -ffast-math does not know an infinity
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(
		out, TStridedMemoryView<const float>(&valueFar, out.Count(), 0), {}, 0, 0);
}

void CTriangleSorter::_FillSource_SortByPosition_GeomConst(
	u32 start, u32 count, const TMemoryView<SIndexAndDepth> &out) const
{
	const CFloatModeScope floatMode;
	const SCamera camera(m_CameraPosition);
	const u32 validCount = _ValidParticleCount(start, count);
	const u32 increment = m_PrimiteVertexCount;
	const u32 i = _WalkPages<PageBound_RenderedCounts>(m_InPositions, start, validCount, out,
		[&](const TMemoryView<SIndexAndDepth> &records, const TStridedMemoryView<const CFloat3> &positions,
			const TStridedMemoryView<const u8> &enableds, u32 recordsBefore) {
			FillByDistance(
				records, positions, camera, enableds, SBySequence((start + recordsBefore) * increment, increment));
		});
	if (i < count)
	{
		VX_ASSERT(i == validCount);
		FillFarRecords(out.Slice(i, count - i));
	}
}

void CTriangleSorter::_FillSource_SortByValues_GeomConst(
	u32 start, u32 count, const TMemoryView<SIndexAndDepth> &out) const
{
	const u32 validCount = _ValidParticleCount(start, count);
	const u32 increment = m_PrimiteVertexCount;
	const u32 i = _WalkPages<PageBound_RenderedCounts>(m_InSortKeys, start, validCount, out,
		[&](const TMemoryView<SIndexAndDepth> &records, const TStridedMemoryView<const float> &sortValues,
			const TStridedMemoryView<const u8> &enableds, u32 recordsBefore)
		{ FillByValue(records, sortValues, enableds, SBySequence((start + recordsBefore) * increment, increment)); });
	if (i < count)
	{
		VX_ASSERT(i == validCount);
		FillFarRecords(out.Slice(i, count - i));
	}
}

void CTriangleSorter::_FillSource_SortByPosition_GeomConstAndIndexList(
	u32 start, u32 count, const TMemoryView<SIndexAndDepth> &out) const
{
	const CFloatModeScope floatMode;
	const SCamera camera(m_CameraPosition);
	const u32 i = _WalkPages<PageBound_RenderedCounts>(m_InPositions, start, count, out,
		[&](const TMemoryView<SIndexAndDepth> &records, const TStridedMemoryView<const CFloat3> &positions,
			const TStridedMemoryView<const u8> &enableds, u32 recordsBefore)
		{
			const u32 *const indexList = m_IndexList.AddressOf(start + recordsBefore);
			FillByDistance(records, positions, camera, enableds, SByList(indexList, m_VertexCount));
		});
	if (i < count)
		FillFarRecords(out.Slice(i, count - i));
}

void CTriangleSorter::_FillSource_SortByValues_GeomConstAndIndexList(
	u32 start, u32 count, const TMemoryView<SIndexAndDepth> &out) const
{
	const u32 i = _WalkPages<PageBound_TotalPageCount>(m_InSortKeys, start, count, out,
		[&](const TMemoryView<SIndexAndDepth> &records, const TStridedMemoryView<const float> &sortValues,
			const TStridedMemoryView<const u8> &enableds, u32 recordsBefore)
		{
			const u32 *const indexList = m_IndexList.AddressOf(start + recordsBefore);
			FillByValue(records, sortValues, enableds, SByList(indexList, m_VertexCount));
		});
	if (i < count)
		FillFarRecords(out.Slice(i, count - i));
}

// Expand. The rule that every worker follows, for any width and both index types: record after record, the pattern's
// entries plus the record's base.
template<typename _Index>
VX_WRAPS static void ExpandOneByOne(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile _Index *__restrict dstPrims,
	u32 primCount)
{
	const u32 patternWidth = indexPattern.Count();
	for (; primCount != 0; --primCount)
	{
		const u32 id = (it++)->m_Index;
		for (u32 j = 0; j < patternWidth; ++j)
			dstPrims[j] = _Index(indexPattern[j] + id);
		dstPrims += patternWidth;
	}
}

// 32-bit. Workers of the common widths write whole blocks of primitives as streaming stores where the output is aligned
// for them, then a fence, then what is left as ordinary stores: front to back, each index once.

static void ExpandIndicesU32_x1(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u32 *__restrict dstPrims,
	u32 primCount)
{
	VX_ASSERT(indexPattern.Count() == 1);
	VX_ASSERT_MESSAGE(indexPattern[0] == 0, "An index pattern of width 1 should have its indexPattern[0] to 0");
	static_cast<void>(indexPattern);
	constexpr u32 kPrimsPerBlock = 4;

	u32 primsLeft = primCount;
	if (Mem::IsAligned<0x10>(dstPrims))
	{
		for (; primsLeft >= kPrimsPerBlock; primsLeft -= kPrimsPerBlock)
		{
			Float4(LoadBases4(it)).StreamAligned16(dstPrims);
			it += kPrimsPerBlock;
			dstPrims += kPrimsPerBlock;
		}
		Float4::WriteBarrier();
	}
	else
	{
		VX_WARN_AT_SITE(
			"[l.556]", "Render sort: Index stream expansion (U32): sub-optimal path [1]: Unaligned dst memory");
	}

	for (; primsLeft != 0; --primsLeft)
		*dstPrims++ = (it++)->m_Index;
}

// Three entries of the output's own width.
template<typename _Index>
VX_WRAPS static VX_INLINE void ExpandOneByOne3(
	const _Index *pattern, const SIndexAndDepth *__restrict it, volatile _Index *__restrict dstPrims, u32 primCount)
{
	const _Index p0 = pattern[0];
	const _Index p1 = pattern[1];
	const _Index p2 = pattern[2];
	for (; primCount != 0; --primCount)
	{
		const u32 id = (it++)->m_Index;
		dstPrims[0] = _Index(p0 + id);
		dstPrims[1] = _Index(p1 + id);
		dstPrims[2] = _Index(p2 + id);
		dstPrims += 3;
	}
}

static void ExpandIndicesU32_x3(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u32 *__restrict dstPrims,
	u32 primCount)
{
	VX_ASSERT(indexPattern.Count() == 3);
	constexpr u32 kPrimsPerBlock = 4;
	const u32 *const pattern32 = &indexPattern[0];

	u32 primsLeft = primCount;
	if (Mem::IsAligned<0x10>(dstPrims))
	{
		const SPattern3 pattern(pattern32);
		for (; primsLeft >= kPrimsPerBlock; primsLeft -= kPrimsPerBlock)
		{
			const SOffsets3 offsets(it);
			Float4(_mm_add_epi32(offsets.b0b0b0b1, pattern.p0p1p2p0)).StreamAligned16(dstPrims, 0);
			Float4(_mm_add_epi32(offsets.b1b1b2b2, pattern.p1p2p0p1)).StreamAligned16(dstPrims, 16);
			Float4(_mm_add_epi32(offsets.b2b3b3b3, pattern.p2p0p1p2)).StreamAligned16(dstPrims, 32);
			it += kPrimsPerBlock;
			dstPrims += kPrimsPerBlock * 3;
		}
		Float4::WriteBarrier();
	}
	else
	{
		// The text is the six-wide worker's; the site's key tells them apart.
		VX_WARN_AT_SITE(
			"[l.328]", "Render sort: Index stream expansion (U32): sub-optimal path [6]: Unaligned dst memory");
	}

	ExpandOneByOne3(pattern32, it, dstPrims, primsLeft);
}

// Two 32-bit indices per 64-bit word, _WordCount words of pattern per record, at any address. One addition serves both;
// nothing is carried between them while indices fit in 32 bits.
template<u32 _WordCount>
static VX_INLINE void ExpandPacked64(
	const u32 *pattern, const SIndexAndDepth *__restrict it, volatile u32 *__restrict dstPrims, u32 primCount)
{
	static_assert(_WordCount % 2 == 0, "words are stored two by two");
	__m128i pairs[_WordCount / 2];
	for (u32 pair = 0; pair < _WordCount / 2; ++pair)
		pairs[pair] = LoadEntries4(pattern + 4 * pair);

	for (; primCount != 0; --primCount)
	{
		const __m128i offset = Splat((it++)->m_Index);
		for (u32 pair = 0; pair < _WordCount / 2; ++pair)
			StoreLanes(dstPrims + 4 * pair, _mm_add_epi64(offset, pairs[pair]));
		dstPrims += 2 * _WordCount;
	}
}

// Three words of pattern per record, each of two 32-bit or four 16-bit indices, at any address. Two records are three
// stores of two words. One addition serves a word; nothing is carried inside while indices fit their type.
template<typename _Index>
VX_WRAPS static VX_INLINE void ExpandThreeWords(
	const u32 *words, const SIndexAndDepth *__restrict it, volatile _Index *__restrict dstPrims, u32 primCount)
{
	constexpr u32 kIndicesPerRecord = 24 / sizeof(_Index);
	constexpr bool kTwoPerLane = sizeof(_Index) == sizeof(u16);
	const SPattern6 pattern(words);
	for (; primCount >= kRecordsPerAccess; primCount -= kRecordsPerAccess)
	{
		__m128i records = Float4::LoadUnaligned(it).Integers();
		if constexpr (kTwoPerLane)
			records = _mm_or_si128(records, _mm_slli_epi32(records, 16));
		const __m128i off0000 = Shuffle<1, 1, 1, 1>(records);
		const __m128i off0011 = Shuffle<3, 3, 1, 1>(records);
		const __m128i off1111 = Shuffle<3, 3, 3, 3>(records);
		volatile u8 *const dst = reinterpret_cast<volatile u8 *>(dstPrims);
		StoreLanes(dst, _mm_add_epi64(off0000, pattern.i0i1i2i3));
		StoreLanes(dst + 16, _mm_add_epi64(off0011, pattern.i4i5i0i1));
		StoreLanes(dst + 32, _mm_add_epi64(off1111, pattern.i2i3i4i5));
		it += kRecordsPerAccess;
		dstPrims += kRecordsPerAccess * kIndicesPerRecord;
	}
	if (primCount != 0)
	{
		const u32 id = it->m_Index;
		const u32 lane = kTwoPerLane ? id | id << 16 : id;
		const u64 lanes = u64(lane) | u64(lane) << 32;
		for (u32 word = 0; word < 3; ++word)
			StoreU64(dstPrims + word * (kIndicesPerRecord / 3), LoadU64(words + 2 * word) + lanes);
	}
}

static void ExpandIndicesU32_x6(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u32 *__restrict dstPrims,
	u32 primCount)
{
	VX_ASSERT(indexPattern.Count() == 6);
	const u32 *const pattern32 = &indexPattern[0];

	u32 primsLeft = primCount;
	if (Mem::IsAligned<0x10>(dstPrims))
	{
		const SPattern6 pattern(pattern32);
		for (; primsLeft >= kRecordsPerAccess; primsLeft -= kRecordsPerAccess)
		{
			const __m128i records = LoadRecords2(it);
			const __m128i off0000 = Shuffle<1, 1, 1, 1>(records);
			const __m128i off0011 = Shuffle<3, 3, 1, 1>(records);
			const __m128i off1111 = Shuffle<3, 3, 3, 3>(records);
			Float4(_mm_add_epi32(off0000, pattern.i0i1i2i3)).StreamAligned16(dstPrims, 0);
			Float4(_mm_add_epi32(off0011, pattern.i4i5i0i1)).StreamAligned16(dstPrims, 16);
			Float4(_mm_add_epi32(off1111, pattern.i2i3i4i5)).StreamAligned16(dstPrims, 32);
			it += kRecordsPerAccess;
			dstPrims += kRecordsPerAccess * 6;
		}
		Float4::WriteBarrier();
	}
	else
	{
		VX_WARN_AT_SITE(
			"[l.248]", "Render sort: Index stream expansion (U32): sub-optimal path [6]: Unaligned dst memory");
	}

	ExpandThreeWords(pattern32, it, dstPrims, primsLeft);
}

// One primitive of twelve indices, as three streams.
static VX_INLINE void StreamPrimitive12(volatile u32 *dstPrims, const SPattern12 &pattern, __m128i offset)
{
	Float4(_mm_add_epi32(offset, pattern.i0i1i2i3)).StreamAligned16(dstPrims, 0);
	Float4(_mm_add_epi32(offset, pattern.i4i5i6i7)).StreamAligned16(dstPrims, 16);
	Float4(_mm_add_epi32(offset, pattern.i8i9iAiB)).StreamAligned16(dstPrims, 32);
}

static void ExpandIndicesU32_A16_x12(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u32 *__restrict dstPrims,
	u32 primCount)
{
	VX_ASSERT(indexPattern.Count() == 12);
	VX_ASSERT(Mem::IsAligned<0x10>(dstPrims));
	const SPattern12 pattern(&indexPattern[0]);

	u32 primsLeft = primCount;
	for (; primsLeft >= kRecordsPerAccess; primsLeft -= kRecordsPerAccess)
	{
		const __m128i offsets = LoadRecords2(it);
		StreamPrimitive12(dstPrims, pattern, Shuffle<1, 1, 1, 1>(offsets));
		StreamPrimitive12(dstPrims + 12, pattern, Shuffle<3, 3, 3, 3>(offsets));
		it += kRecordsPerAccess;
		dstPrims += kRecordsPerAccess * 12;
	}
	if (primsLeft != 0)
		StreamPrimitive12(dstPrims, pattern, Splat(it->m_Index));
	Float4::WriteBarrier();
}

// An output at 8 modulo 16 stays there from record to record, because twelve indices are 48 bytes. Each record's last
// two indices wait in a register for the next one's first two, and leave with them as one aligned store.
//
//   address mod 16   8      0                 0                 0      8
//   record 0         0 1  | 2  3  4  5      | 6  7  8  9      | A B
//   record 1                                                  |     0 1 | 2 ...
static void ExpandIndicesU32_UA_x12(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u32 *__restrict dstPrims,
	u32 primCount)
{
	VX_ASSERT(indexPattern.Count() == 12);
	VX_ASSERT(!Mem::IsAligned<0x10>(dstPrims));
	const u32 *const pattern32 = &indexPattern[0];
	if (!Mem::IsAligned<0x8>(dstPrims))
	{
		VX_WARN_AT_SITE(
			"[l.477]", "Render sort: Index stream expansion (U32): sub-optimal path [16]: Unaligned dst memory");
		ExpandPacked64<6>(pattern32, it, dstPrims, primCount);
		return;
	}

	if (primCount == 0)
		return;

	[[maybe_unused]] const volatile u32 *const primsStop = dstPrims + u64(primCount) * 12;
	const __m128i i0i1i2i3 = LoadEntries4(pattern32);
	const __m128i i2i3i4i5 = LoadEntries4(pattern32 + 2);
	const __m128i i6i7i8i9 = LoadEntries4(pattern32 + 6);
	const __m128i i8i9iAiB = LoadEntries4(pattern32 + 8);

	__m128i offset = Splat(it->m_Index);
	Float4(_mm_add_epi32(offset, i0i1i2i3)).StreamFloat2(dstPrims);
	dstPrims += 2;
	Float4(_mm_add_epi32(offset, i2i3i4i5)).StreamAligned16(dstPrims, 0);
	Float4(_mm_add_epi32(offset, i6i7i8i9)).StreamAligned16(dstPrims, 16);
	dstPrims += 8;
	VX_ASSERT(Mem::IsAligned<0x10>(dstPrims));
	__m128i v89AB = _mm_add_epi32(offset, i8i9iAiB);

	for (u32 record = 1; record < primCount; ++record)
	{
		offset = Splat((++it)->m_Index);
		const __m128i v0123 = _mm_add_epi32(offset, i0i1i2i3);
		Float4(Shuffle2<1, 0, 3, 2>(v89AB, v0123)).StreamAligned16(dstPrims, 0);
		Float4(_mm_add_epi32(offset, i2i3i4i5)).StreamAligned16(dstPrims, 16);
		Float4(_mm_add_epi32(offset, i6i7i8i9)).StreamAligned16(dstPrims, 32);
		dstPrims += 12;
		v89AB = _mm_add_epi32(offset, i8i9iAiB);
	}

	Float4(Shuffle<3, 2, 3, 2>(v89AB)).StreamFloat2(dstPrims);
	dstPrims += 2; // cppcheck-suppress uselessAssignmentPtrArg ; the assertion looks at it
	Float4::WriteBarrier();
	VX_ASSERT(dstPrims == primsStop);
}

// Any width. The warning's text is built on every call, seen before or not: this path is not meant to be kept.
VX_WRAPS static void ExpandIndicesU32_xN(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u32 *__restrict dstPrims,
	u32 primCount)
{
	const u32 patternWidth = indexPattern.Count();
	const CShortString message =
		CShortString::Format("Render sort: Index stream expansion (U32): sub-optimal path [%d]", s32(patternWidth));
	VX_WARN_AT_SITE("[l.579]", message.Data());
	if (primCount * patternWidth != 0) // in 32 bits: kept on purpose, here and below
		ExpandOneByOne(indexPattern, it, dstPrims, primCount);
}

void CTriangleSorter::ExpandIndices(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u32 *__restrict dstPrims,
	u32 primCount)
{
	VX_PROFILE_SCOPE_COLOR("ExpandIndices<u32>", CFloat3(0.1f, 0.5f, 0.9f));
	VX_ASSERT(Mem::IsAligned<0x10>(it));
	const u32 patternWidth = indexPattern.Count();
	if (!VX_VERIFY(patternWidth > 0))
		return;
	switch (patternWidth)
	{
	case 1:
		return ExpandIndicesU32_x1(indexPattern, it, dstPrims, primCount);
	case 3:
		return ExpandIndicesU32_x3(indexPattern, it, dstPrims, primCount);
	case 6:
		return ExpandIndicesU32_x6(indexPattern, it, dstPrims, primCount);
	case 12:
		if (Mem::IsAligned<0x10>(dstPrims))
			return ExpandIndicesU32_A16_x12(indexPattern, it, dstPrims, primCount);
		return ExpandIndicesU32_UA_x12(indexPattern, it, dstPrims, primCount);
	default:
		return ExpandIndicesU32_xN(indexPattern, it, dstPrims, primCount);
	}
}

// 16-bit. Sums are not checked: what becomes of one beyond 0xFFFF differs from loop to loop, and callers keep
// every index below.

VX_WRAPS static void ExpandIndicesU16_x1(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u16 *__restrict dstPrims,
	u32 primCount)
{
	VX_ASSERT(indexPattern.Count() == 1 && indexPattern[0] == 0);
	static_cast<void>(indexPattern);
	constexpr u32 kPrimsPerBlock = 8;

	u32 primsLeft = primCount;
	if (Mem::IsAligned<0x10>(dstPrims))
	{
		for (; primsLeft >= kPrimsPerBlock; primsLeft -= kPrimsPerBlock)
		{
			Float4(PackIndices16(LoadBases4(it), LoadBases4(it + 4))).StreamAligned16(dstPrims);
			it += kPrimsPerBlock;
			dstPrims += kPrimsPerBlock;
		}
		Float4::WriteBarrier();
	}
	else
	{
		VX_WARN_AT_SITE(
			"[l.1148]", "Render sort: Index stream expansion (U16): sub-optimal path [1]: Unaligned dst memory");
		for (; primsLeft >= kPrimsPerBlock; primsLeft -= kPrimsPerBlock)
		{
			StoreLanes(dstPrims, CutTo16(LoadBases4Unaligned(it), LoadBases4Unaligned(it + 4)));
			it += kPrimsPerBlock;
			dstPrims += kPrimsPerBlock;
		}
	}

	for (; primsLeft >= 2; primsLeft -= 2)
	{
		StoreU32(dstPrims, (it[0].m_Index & 0xFFFF) | it[1].m_Index << 16);
		it += 2;
		dstPrims += 2;
	}
	if (primsLeft != 0)
		*dstPrims = u16(it->m_Index);
}

static void ExpandIndicesU16_x3(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u16 *__restrict dstPrims,
	u32 primCount)
{
	VX_ASSERT(indexPattern.Count() == 3);
	constexpr u32 kPrimsPerBlock = 8;
	const u16 pattern16[] = {u16(indexPattern[0]), u16(indexPattern[1]), u16(indexPattern[2])};

	u32 primsLeft = primCount;
	if (Mem::IsAligned<0x10>(dstPrims))
	{
		const SPackedPattern3 pattern(pattern16);
		for (; primsLeft >= kPrimsPerBlock; primsLeft -= kPrimsPerBlock)
		{
			const SOffsets3 lower(it);
			const SOffsets3 upper(it + 4);
			const __m128i off00011122 = PackOffsets16(lower.b0b0b0b1, lower.b1b1b2b2);
			const __m128i off23334445 = PackOffsets16(lower.b2b3b3b3, upper.b0b0b0b1);
			const __m128i off55667777 = PackOffsets16(upper.b1b1b2b2, upper.b2b3b3b3);
			Float4(_mm_add_epi16(off00011122, pattern.p01201201)).StreamAligned16(dstPrims, 0);
			Float4(_mm_add_epi16(off23334445, pattern.p20120120)).StreamAligned16(dstPrims, 16);
			Float4(_mm_add_epi16(off55667777, pattern.p12012012)).StreamAligned16(dstPrims, 32);
			it += kPrimsPerBlock;
			dstPrims += kPrimsPerBlock * 3;
		}
		Float4::WriteBarrier();
	}
	else
	{
		// The text is the 32-bit six-wide worker's; the site's key tells them apart.
		VX_WARN_AT_SITE(
			"[l.925]", "Render sort: Index stream expansion (U32): sub-optimal path [6]: Unaligned dst memory");
	}

	ExpandOneByOne3(pattern16, it, dstPrims, primsLeft);
}

VX_WRAPS static void ExpandIndicesU16_x6(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u16 *__restrict dstPrims,
	u32 primCount)
{
	VX_ASSERT(indexPattern.Count() == 6);
	constexpr u32 kPrimsPerBlock = 4;
	const u32 *const pattern32 = &indexPattern[0];
	const u32 i0i1 = PackEntries2(pattern32);
	const u32 i2i3 = PackEntries2(pattern32 + 2);
	const u32 i4i5 = PackEntries2(pattern32 + 4);

	u32 primsLeft = primCount;
	if (Mem::IsAligned<0x10>(dstPrims))
	{
		const SBiasedPattern6 pattern(pattern32);
		for (; primsLeft >= kPrimsPerBlock; primsLeft -= kPrimsPerBlock)
		{
			const SBiasedOffsets6 offsets(it, pattern.signedOffsetter);
			Float4(_mm_add_epi16(offsets.off_00000011, pattern.p01234501)).StreamAligned16(dstPrims, 0);
			Float4(_mm_add_epi16(offsets.off_11112222, pattern.p23450123)).StreamAligned16(dstPrims, 16);
			Float4(_mm_add_epi16(offsets.off_22333333, pattern.p45012345)).StreamAligned16(dstPrims, 32);
			it += kPrimsPerBlock;
			dstPrims += kPrimsPerBlock * 6;
		}
		Float4::WriteBarrier();
	}
	else
	{
		VX_WARN_AT_SITE(
			"[l.840]", "Render sort: Index stream expansion (U16): sub-optimal path [6]: Unaligned dst memory");
		const u32 packed[] = {i0i1, i2i3, i4i5};
		const SPattern3 pattern(packed);
		for (; primsLeft >= kPrimsPerBlock; primsLeft -= kPrimsPerBlock)
		{
			const __m128i ids = LoadBases4Unaligned(it);
			const SOffsets3 offsets(_mm_or_si128(ids, _mm_slli_epi32(ids, 16)));
			StoreLanes(dstPrims, _mm_add_epi32(offsets.b0b0b0b1, pattern.p0p1p2p0));
			StoreLanes(dstPrims + 8, _mm_add_epi32(offsets.b1b1b2b2, pattern.p1p2p0p1));
			StoreLanes(dstPrims + 16, _mm_add_epi32(offsets.b2b3b3b3, pattern.p2p0p1p2));
			it += kPrimsPerBlock;
			dstPrims += kPrimsPerBlock * 6;
		}
	}

	for (; primsLeft != 0; --primsLeft)
	{
		const u32 id = (it++)->m_Index;
		const u32 idid = id | id << 16;
		StoreU32(dstPrims, i0i1 + idid);
		StoreU32(dstPrims + 2, i2i3 + idid);
		StoreU32(dstPrims + 4, i4i5 + idid);
		dstPrims += 6;
	}
}

// Four indices to a 64-bit word, at any address: no alignment to warn of, and nothing streamed to fence.
static void ExpandIndicesU16_x12(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u16 *__restrict dstPrims,
	u32 primCount)
{
	VX_ASSERT(indexPattern.Count() == 12);
	const u32 *const pattern32 = &indexPattern[0];
	u32 packed[6];
	for (u32 i = 0; i < 6; ++i)
		packed[i] = PackEntries2(pattern32 + 2 * i);
	ExpandThreeWords(packed, it, dstPrims, primCount);
}

VX_WRAPS static void ExpandIndicesU16_xN(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u16 *__restrict dstPrims,
	u32 primCount)
{
	const u32 patternWidth = indexPattern.Count();
	const CShortString message =
		CShortString::Format("Render sort: Index stream expansion (U16): sub-optimal path [%d]", s32(patternWidth));
	VX_WARN_AT_SITE("[l.1200]", message.Data());
	if (primCount * patternWidth != 0)
		ExpandOneByOne(indexPattern, it, dstPrims, primCount);
}

VX_WRAPS void CTriangleSorter::ExpandIndices(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u16 *__restrict dstPrims,
	u32 primCount)
{
	VX_PROFILE_SCOPE_COLOR("ExpandIndices<u16>", CFloat3(0.1f, 0.5f, 0.9f));
	VX_ASSERT(Mem::IsAligned<0x10>(it));
	const u32 patternWidth = indexPattern.Count();
	if (patternWidth * primCount == 0)
		return;
	switch (patternWidth)
	{
	case 1:
		return ExpandIndicesU16_x1(indexPattern, it, dstPrims, primCount);
	case 3:
		return ExpandIndicesU16_x3(indexPattern, it, dstPrims, primCount);
	case 6:
		return ExpandIndicesU16_x6(indexPattern, it, dstPrims, primCount);
	case 12:
		return ExpandIndicesU16_x12(indexPattern, it, dstPrims, primCount);
	default:
		return ExpandIndicesU16_xN(indexPattern, it, dstPrims, primCount);
	}
}

// Expansion with quads in order.

constexpr u32 kIndicesPerQuad = 6;
constexpr u32 kQuadSlotsPerParticle = 16; // a key carries its quad's number in 4 bits
constexpr u32 kQuadNumberMask = kQuadSlotsPerParticle - 1;

// One key per quad of a particle. More quads than slots are reported, and share slots: their order means nothing, but
// no memory outside is touched.
class CQuadKeys
{
public:
	u32 &operator[](u32 quadId)
	{
		static_cast<void>(TMemoryView<u32>(m_Keys, kQuadSlotsPerParticle)[quadId]);
		return m_Keys[quadId & kQuadNumberMask];
	}

private:
	u32 m_Keys[kQuadSlotsPerParticle];
};

// Ascending keys draw the farthest quad first; quads at equal distance keep their order, as their numbers do.
static void SortQuads(CQuadKeys &cameraDist, u32 quadCount)
{
	for (u32 quadId = 1; quadId < quadCount; ++quadId)
	{
		const u32 temp = cameraDist[quadId];
		u32 j = quadId;
		for (; j > 0 && cameraDist[j - 1] > temp; --j)
			cameraDist[j] = cameraDist[j - 1];
		cameraDist[j] = temp;
	}
}

template<typename _Index>
VX_WRAPS static void ExpandWithSortedQuads(const TMemoryView<const u32> &indexPattern,
	const TMemoryView<const CFloat4> &quadCenters,
	const CFloat3 &cameraPosition,
	const SIndexAndDepth *__restrict it,
	volatile _Index *__restrict dstPrims,
	u32 primCount,
	u32 vpp)
{
	const CFloatModeScope floatMode;
	const __m128 camerPos = LoadFloat3(cameraPosition.Data());
	const u32 patternWidth = indexPattern.Count();
	const u32 quadCount = patternWidth / kIndicesPerQuad;
	CQuadKeys cameraDist;
	for (; primCount != 0; --primCount)
	{
		const _Index id = _Index((it++)->m_Index);
		const u32 firstSlot = quadCount != 0 ? id / vpp * kQuadSlotsPerParticle : 0;
		for (u32 quadId = 0; quadId < quadCount; ++quadId)
		{
			const CFloat4 &quadCenter = quadCenters[firstSlot + quadId];
			const __m128 len2 = SquaredLengthOfOne(Subtract(LoadFloat3(quadCenter.Data()), camerPos));
			cameraDist[quadId] = (SDistanceKey::FromBits(BitsOfLane0(len2)) & ~kQuadNumberMask) | quadId;
		}
		SortQuads(cameraDist, quadCount);

		for (u32 quadId = 0; quadId < quadCount; ++quadId)
		{
			const u32 sortedQuadId = cameraDist[quadId] & kQuadNumberMask;
			for (u32 vId = 0; vId < kIndicesPerQuad; ++vId)
				dstPrims[quadId * kIndicesPerQuad + vId] =
					_Index(indexPattern[sortedQuadId * kIndicesPerQuad + vId] + id);
		}
		dstPrims += patternWidth;
	}
}

VX_WRAPS void CTriangleSorter::ExpandAndSortIndices(const TMemoryView<const u32> &indexPattern,
	const TMemoryView<const CFloat4> &quadCenters,
	const CFloat3 &cameraPosition,
	const SIndexAndDepth *__restrict it,
	volatile u16 *__restrict dstPrims,
	u32 primCount,
	u32 vpp)
{
	VX_PROFILE_SCOPE_COLOR("ExpandAndSortIndices<u16>", CFloat3(0.1f, 0.6f, 0.9f));
	VX_ASSERT(Mem::IsAligned<0x10>(it));
	[[maybe_unused]] const u32 quadCount = indexPattern.Count() / kIndicesPerQuad;
	VX_ASSERT(quadCount < 16); // in the 16-bit entry alone; the 32-bit one leaves it to the keys' bounds
	if (primCount * indexPattern.Count() == 0)
		return;
	const CShortString message = CShortString::Format("Render sort: Very slow tube quad sorter");
	VX_WARN_AT_SITE("[l.1277]", message.Data());
	ExpandWithSortedQuads(indexPattern, quadCenters, cameraPosition, it, dstPrims, primCount, vpp);
}

VX_WRAPS void CTriangleSorter::ExpandAndSortIndices(const TMemoryView<const u32> &indexPattern,
	const TMemoryView<const CFloat4> &quadCenters,
	const CFloat3 &cameraPosition,
	const SIndexAndDepth *__restrict it,
	volatile u32 *__restrict dstPrims,
	u32 primCount,
	u32 vpp)
{
	VX_PROFILE_SCOPE_COLOR("ExpandAndSortIndices<u32>", CFloat3(0.1f, 0.6f, 0.9f));
	VX_ASSERT(Mem::IsAligned<0x10>(it));
	if (primCount * indexPattern.Count() == 0)
		return;
	const CShortString message = CShortString::Format("Render sort: Very slow tube quad sorter");
	VX_WARN_AT_SITE("[l.1346]", message.Data());
	ExpandWithSortedQuads(indexPattern, quadCenters, cameraPosition, it, dstPrims, primCount, vpp);
}

// Point sort.

// Sizes of working buffers end at 32 bits. A sort that needs more says so and writes nothing, whatever memory it is
// given.
constexpr u64 kLargestWorkingBufferSize = 0xFFFFFFFFu;

void CTriangleSorter::SortPoints_AutogenIndices(void *__restrict _workingBuffer)
{
	if (!VX_VERIFY(_PointWorkingBufferSize(m_ParticleCount) <= kLargestWorkingBufferSize))
		return;
	SIndexAndDepth *_locallyAllocatedIDBuffer = null;
	if (_workingBuffer == null)
	{
		// Bytes taken for records: eight times what is needed, which is what hosts budget for.
		const u64 recordCount = GetAutogenIndicesWorkingBufferSize(m_ParticleCount);
		_locallyAllocatedIDBuffer =
			static_cast<SIndexAndDepth *>(VX_ALLOC_GENERIC(recordCount * sizeof(SIndexAndDepth)));
		if (_locallyAllocatedIDBuffer == null)
			return;
		_workingBuffer = _locallyAllocatedIDBuffer;
	}
	VX_ASSERT(Mem::IsAligned<0x10>(_workingBuffer));
	const TMemoryView<SIndexAndDepth> workingBufferSorter =
		WorkingBuffer_SortedPoints(_workingBuffer, m_ParticleCount, 1);
	const TMemoryView<SIndexAndDepth> workingBufferSorter2 =
		WorkingBuffer_SortedPoints(_workingBuffer, m_ParticleCount, 0);

	{
		VX_PROFILE_SCOPE_COLOR("CTriangleSorter::FillSource", CFloat3(0.5f, 0.08f, 0.9f));
		if (!VX_VERIFY(!m_InRenderedParticleCounts.Empty()))
			return; // a block taken above is not given back, as the contract says

		switch (m_GeometryType)
		{
		case GeometryConstant:
			if (m_SortType == SortByPosition)
				_FillSource_SortByPosition_GeomConst(0, m_ParticleCount, workingBufferSorter);
			else if (m_SortType == SortByFloat)
				_FillSource_SortByValues_GeomConst(0, m_ParticleCount, workingBufferSorter);
			else
				VX_ASSERT_NOT_REACHED("Uninitialized or invalid sort type");
			break;
		case GeometryConstantAndIndexList:
		case GeometryConstantAndIndexListAndQuadCenters:
			if (m_SortType == SortByPosition)
				_FillSource_SortByPosition_GeomConstAndIndexList(0, m_ParticleCount, workingBufferSorter);
			else if (m_SortType == SortByFloat)
				_FillSource_SortByValues_GeomConstAndIndexList(0, m_ParticleCount, workingBufferSorter);
			else
				VX_ASSERT_NOT_REACHED("Uninitialized or invalid sort type");
			break;
		case GeometryPerPage:
			VX_ASSERT_NOT_REACHED("<Not implemented>");
			break;
		default:
			VX_ASSERT_NOT_REACHED("Uninitialized or invalid geometry type");
			break;
		}
	}

	{
		VX_PROFILE_SCOPE_COLOR("CTriangleSorter::Sort", CFloat3(0.2f, 0.08f, 0.9f));
		Sort<SSortKeyExtractor_TriangleIndexAndDepth>(
			workingBufferSorter.Begin(), workingBufferSorter.End(), workingBufferSorter2.Begin());
	}
	VX_ASSERT(workingBufferSorter2.Count() == m_ParticleCount);

	switch (m_GeometryType)
	{
	case GeometryConstant:
	case GeometryConstantAndIndexList:
	{
		VX_ASSERT(!m_IndexPattern.Empty());
		if (m_IndexPattern.Empty())
			break;
		const u32 writeCount = std::min(m_ParticleCount, m_IndexCount / m_IndexPattern.Count());
		const u32 readOffset = _FirstWrittenRecord(m_ParticleCount, writeCount);
		if (m_IndexType == IndexTypeUint32)
			ExpandIndices(m_IndexPattern, &workingBufferSorter2[readOffset], m_OutIndices32.Data(), writeCount);
		else if (m_IndexType == IndexTypeUint16)
			ExpandIndices(m_IndexPattern, &workingBufferSorter2[readOffset], m_OutIndices16.Data(), writeCount);
		else
			VX_ASSERT_NOT_REACHED("Uninitialized or invalid indice type");
		break;
	}
	case GeometryConstantAndIndexListAndQuadCenters:
	{
		if (m_IndexPattern.Empty()) // without a report: kept on purpose
			break;
		const u32 writeCount = std::min(m_ParticleCount, m_IndexCount / m_IndexPattern.Count());
		const u32 readOffset = _FirstWrittenRecord(m_ParticleCount, writeCount);
		if (m_IndexType == IndexTypeUint32)
			ExpandAndSortIndices(m_IndexPattern, m_QuadCenters, m_CameraPosition, &workingBufferSorter2[readOffset],
				m_OutIndices32.Data(), writeCount, m_PrimiteVertexCount);
		else if (m_IndexType == IndexTypeUint16)
			ExpandAndSortIndices(m_IndexPattern, m_QuadCenters, m_CameraPosition, &workingBufferSorter2[readOffset],
				m_OutIndices16.Data(), writeCount, m_PrimiteVertexCount);
		else
			VX_ASSERT_NOT_REACHED("Uninitialized or invalid indice type");
		break;
	}
	case GeometryPerPage:
		VX_ASSERT_NOT_REACHED("<Not implemented>");
		break;
	default:
		break; // reported above
	}

	if (_locallyAllocatedIDBuffer != null)
		Mem::_FreeGeneric(_locallyAllocatedIDBuffer);
}

// Triangle sort.

// Four records at a time where the first is 16-byte aligned; one 8 bytes off has been reported, and is served by
// unaligned accesses with the same result.
template<bool _Aligned>
static VX_INLINE void LoadGroup(const SIndexAndDepth *records, Float4 &keys, Float4 &indices)
{
	if constexpr (_Aligned)
	{
		Float4::LoadAligned16_Transpose4x2_Unpack(keys, indices, records);
	}
	else
	{
		const __m128i records01 = Float4::LoadUnaligned(records, 0).Integers();
		const __m128i records23 = Float4::LoadUnaligned(records, 16).Integers();
		keys = Shuffle2<2, 0, 2, 0>(records01, records23);
		indices = Shuffle2<3, 1, 3, 1>(records01, records23);
	}
}

// Writes a block of records, one triangle of every particle, under the particles' keys: dst may be the particles.
template<bool _SourceAligned, bool _DestinationAligned>
static void WriteTriangleBlock(
	const SIndexAndDepth *particles, SIndexAndDepth *dst, u32 primCount, u32 firstTriangle, u32 trianglePerPrimitive)
{
	CVertexBases_Sequence triangles(firstTriangle, trianglePerPrimitive);
	const u32 groupCount = primCount / kRecordsPerGroup;
	CVertexBases_Sequence::Fours triangles4(triangles);
	for (u32 group = 0; group < groupCount; ++group)
	{
		Float4 keys, indices;
		LoadGroup<_SourceAligned>(particles, keys, indices);
		StoreGroup<false, _DestinationAligned>(dst, keys.Integers(), triangles4.Next());
		particles += kRecordsPerGroup;
		dst += kRecordsPerGroup;
	}
	triangles.Skip(groupCount * kRecordsPerGroup);

	for (u32 left = primCount % kRecordsPerGroup; left != 0; --left)
		*dst++ = {(particles++)->m_Depth, triangles.Next()};
}

template<bool _Aligned>
static void WriteTriangleBlocks(SIndexAndDepth *records, u32 primCount, u32 trianglePerPrimitive, u32 primOffset)
{
	WriteTriangleBlock<_Aligned, _Aligned>(records, records, primCount, primOffset, trianglePerPrimitive);
	for (u32 triIdx = 1; triIdx < trianglePerPrimitive; ++triIdx)
		WriteTriangleBlock<_Aligned, false>(
			records, records + triIdx * primCount, primCount, primOffset + triIdx, trianglePerPrimitive);
}

void CTriangleSorter::ExpandSortingIndirectionsListPoints_Triangles(
	const TMemoryView<SIndexAndDepth> &inoutList, u32 primCount, u32 trianglePerPrimitive, u32 primOffset)
{
	VX_PROFILE_SCOPE("ExpandSortToTriangles");
	VX_ASSERT(inoutList.Count() == primCount * trianglePerPrimitive);
	VX_ASSERT(Mem::IsAligned<0x10>(inoutList.Data()));
	if (Mem::IsAligned<0x10>(inoutList.Data()))
		WriteTriangleBlocks<true>(inoutList.Data(), primCount, trianglePerPrimitive, primOffset);
	else
		WriteTriangleBlocks<false>(inoutList.Data(), primCount, trianglePerPrimitive, primOffset);
}

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

void CTriangleSorter::ApplySortingIndirectionsListTriangles(
	const TMemoryView<SIndexAndDepth> &inList, const TMemoryView<const u32> &srcIndices, u32 *dstIndices, u32 triCount)
{
	ApplyToTriangles(inList, srcIndices, dstIndices, triCount);
}

void CTriangleSorter::ApplySortingIndirectionsListTriangles(
	const TMemoryView<SIndexAndDepth> &inList, const TMemoryView<const u16> &srcIndices, u16 *dstIndices, u32 triCount)
{
	ApplyToTriangles(inList, srcIndices, dstIndices, triCount);
}

// The first elements of a page that has no enabled bytes are its rendered ones; a page that has them offers them all.
template<typename _Element>
static TStridedMemoryView<const _Element> OfferedElements(
	const TStridedMemoryView<const _Element> &elements, const TStridedMemoryView<const u8> &enableds, u32 recordCount)
{
	return enableds.Empty() ? elements.Slice(0, std::min(recordCount, elements.Count())) : elements;
}

// Fills the records and the unsorted triangles of every page that the vertex buffer has room for, and returns how many
// triangles that makes. Sites that name a page's views are the caller's: assertPage and fillPage.
template<typename _Index, typename _Pages, typename _AssertPage, typename _FillPage>
u32 CTriangleSorter::_FillTriangles(const _Pages &pages,
	const TMemoryView<SIndexAndDepth> &workingBufferSorter,
	const TMemoryView<_Index> &workingBufferIndex,
	const _AssertPage &assertPage,
	const _FillPage &fillPage) const
{
	VX_PROFILE_SCOPE_COLOR("FillSortingIndirectionsListPoint_NoIndices_And_Expand", CFloat3(0.5f, 0.08f, 0.9f));
	const u32 pageCount = pages.Count();
	VX_ASSERT(m_InEnableds.Count() == pageCount);
	VX_ASSERT(m_IndexPatternCollection.Count() == pageCount);
	VX_ASSERT(m_InRenderedParticleCounts.Count() == pageCount);
	VX_ASSERT(m_PrimiteVertexCountCollection.Count() == pageCount);

	// The walk ends with the shortest collection. A page that has no view of enabled bytes has no disabled particles.
	const u32 walkedPageCount = std::min({pageCount, m_IndexPatternCollection.Count(),
		m_InRenderedParticleCounts.Count(), m_PrimiteVertexCountCollection.Count()});
	const CWarningBatch warnings;
	u32 startPrim = 0;
	u32 startIndex = 0;
	for (u32 pageId = 0; pageId < walkedPageCount; ++pageId)
	{
		const bool emptyPage = m_InRenderedParticleCounts[pageId] == 0;
		if (!emptyPage)
		{
			assertPage(pageId);
			VX_ASSERT(
				m_IndexPatternCollection[pageId].Count() % 3 == 0 && m_IndexPatternCollection[pageId].Count() >= 3);
		}
		const u32 vertexCount = m_PrimiteVertexCountCollection[pageId];
		if (u64(startIndex) + vertexCount > m_VertexCount)
			break; // this page and all later ones are dropped
		const u32 localParticleCount =
			emptyPage ? 0 : std::min(m_InRenderedParticleCounts[pageId], (m_VertexCount - startIndex) / vertexCount);
		if (localParticleCount == 0)
			continue;

		const TMemoryView<const u32> indexPattern = m_IndexPatternCollection[pageId];
		const u32 trianglesPerParticle = indexPattern.Count() / 3;
		const u64 localIndexCount = u64(indexPattern.Count()) * localParticleCount;
		const u64 localPrimitiveCount = localIndexCount / 3;

		// A page that draws more than the index count has left ends the walk. The slice reports it.
		const u64 recordCount = std::max<u64>(localParticleCount, localPrimitiveCount);
		const TMemoryView<SIndexAndDepth> records =
			workingBufferSorter.Slice(startPrim, u32(std::min<u64>(recordCount, ~startPrim)));
		if (recordCount > workingBufferSorter.Count() - startPrim ||
			localIndexCount > workingBufferIndex.Count() - startPrim * 3)
			break;

		const TMemoryView<SIndexAndDepth> particles = records.Slice(0, localParticleCount);
		fillPage(particles, pageId, startIndex, vertexCount);
		ExpandIndices(indexPattern, particles.Data(), &workingBufferIndex[startPrim * 3], localParticleCount);
		ExpandSortingIndirectionsListPoints_Triangles(
			records.Slice(0, u32(localPrimitiveCount)), localParticleCount, trianglesPerParticle, startPrim);

		startPrim += u32(localPrimitiveCount);
		startIndex += localParticleCount * vertexCount;
	}
	return startPrim;
}

template<typename _Index>
void CTriangleSorter::_SortTriangles_AutogenIndices(void *workingBuffer)
{
	const u32 primCount_fromBB = m_IndexCount_fromBB / 3;
	VX_ASSERT(m_IndexCount_fromBB % 3 == 0);
	const TMemoryView<SIndexAndDepth> workingBufferSorter =
		WorkingBuffer_SortedTris(workingBuffer, m_IndexCount_fromBB, 1);
	const TMemoryView<SIndexAndDepth> workingBufferSorter2 =
		WorkingBuffer_SortedTris(workingBuffer, m_IndexCount_fromBB, 0);
	const TMemoryView<_Index> workingBufferIndex =
		WorkingBuffer_TriangleIndices<_Index>(workingBuffer, m_IndexCount_fromBB);

	u32 startPrim = 0;
	if (m_SortType == SortByPosition)
	{
		startPrim = _FillTriangles(
			m_InPositions, workingBufferSorter, workingBufferIndex,
			[&]([[maybe_unused]] u32 pageId) { VX_ASSERT(!m_InPositions[pageId].Empty()); },
			[this](const TMemoryView<SIndexAndDepth> &particles, u32 pageId, u32 startIndex, u32 vertexCount)
			{
				const TStridedMemoryView<const u8> enableds = ViewOfPage(m_InEnableds, pageId);
				FillSortingIndirectionsListPoint_NoIndices(particles,
					OfferedElements(m_InPositions[pageId], enableds, particles.Count()), m_CameraPosition, enableds,
					startIndex, vertexCount);
			});
	}
	else if (m_SortType == SortByFloat)
	{
		startPrim = _FillTriangles(
			m_InSortKeys, workingBufferSorter, workingBufferIndex,
			[&]([[maybe_unused]] u32 pageId) { VX_ASSERT(!m_InSortKeys[pageId].Empty()); },
			[this](const TMemoryView<SIndexAndDepth> &particles, u32 pageId, u32 startIndex, u32 vertexCount)
			{
				const TStridedMemoryView<const u8> enableds = ViewOfPage(m_InEnableds, pageId);
				FillSortingIndirectionsListPoint_NoIndices(particles,
					OfferedElements(m_InSortKeys[pageId], enableds, particles.Count()), enableds, startIndex,
					vertexCount);
			});
	}
	else
	{
		VX_ASSERT_NOT_REACHED("Uninitialized or invalid sort mode");
	}

	// What no page has filled becomes triangles without area, drawn with the farthest.
	constexpr u32 depthKeyFar = SValueKey::kFar;
	for (u32 i = startPrim; i < primCount_fromBB; ++i)
	{
		workingBufferSorter[i] = {depthKeyFar, i};
		workingBufferIndex[3 * i] = 0;
		workingBufferIndex[3 * i + 1] = 0;
		workingBufferIndex[3 * i + 2] = 0;
	}

	{
		VX_PROFILE_SCOPE_COLOR("Sort", CFloat3(0.2f, 0.08f, 0.9f));
		VX_ASSERT(workingBufferSorter.Count() == primCount_fromBB);
		Sort<SSortKeyExtractor_TriangleIndexAndDepth>(
			workingBufferSorter.Begin(), workingBufferSorter.End(), workingBufferSorter2.Begin());
	}

	VX_PROFILE_SCOPE_COLOR("ApplySortingToIndices", CFloat3(0.0f, 0.08f, 0.9f));
	VX_ASSERT(workingBufferSorter2.Count() == primCount_fromBB);
	const u32 writePrimCount = std::min(primCount_fromBB, m_IndexCount / 3);
	const u32 readPrimOffset = primCount_fromBB - writePrimCount;
	_Index *const outData = m_IndexType == IndexTypeUint16 ? reinterpret_cast<_Index *>(m_OutIndices16.Data())
	                                                       : reinterpret_cast<_Index *>(m_OutIndices32.Data());
	ApplySortingIndirectionsListTriangles(workingBufferSorter2.Slice(readPrimOffset, writePrimCount),
		TMemoryView<const _Index>(workingBufferIndex), outData, writePrimCount);
}

void CTriangleSorter::SortTriangles_AutogenIndices(void *workingBuffer)
{
	VX_ASSERT(m_GeometryType == GeometryPerPage);
	if (!VX_VERIFY(_TriangleWorkingBufferSize(m_IndexCount_fromBB) <= kLargestWorkingBufferSize))
		return;
	void *locallyAllocatedBuffer = null;
	if (workingBuffer == null)
	{
		locallyAllocatedBuffer = VX_ALLOC_GENERIC(GetAutogenIndicesWorkingBufferSize_tri(m_IndexCount_fromBB));
		if (locallyAllocatedBuffer == null)
			return;
		workingBuffer = locallyAllocatedBuffer;
	}
	VX_ASSERT(Mem::IsAligned<0x10>(workingBuffer));

	if (m_IndexType == IndexTypeUint32)
		_SortTriangles_AutogenIndices<u32>(workingBuffer);
	else if (m_IndexType == IndexTypeUint16)
		_SortTriangles_AutogenIndices<u16>(workingBuffer);
	else
		VX_ASSERT_NOT_REACHED("Uninitialized or invalid indice type");

	if (locallyAllocatedBuffer != null)
		Mem::_FreeGeneric(locallyAllocatedBuffer);
}
} // namespace Vexmoor
