// The sort. Every report of the sort without jobs stands here, because reports carry this file's name and their
// function's signature; lane arithmetic, which reports nothing, stands in the private headers.
//
// From the whole to its parts: the two drivers, which fill records from pages, sort them and expand them into indices;
// the pages; the fill of one page; the expansion; the widening of particles to triangles; the working buffer.

#include "ge_mesh_triangle_sorter.h"

#include "vx_assert.h"

#include "kr_log_unique.h"
#include "kr_mem.h"
#include "kr_profiler.h"
#include "kr_sort.h"
#include "kr_string.h"

#include "include/pv_camera.h"
#include "include/pv_depth_keys.h"
#include "include/pv_expand_kernels.h"
#include "include/pv_expand_quads.h"
#include "include/pv_fill.h"
#include "include/pv_fill_groups.h"
#include "include/pv_fill_records.h"
#include "include/pv_float_mode.h"
#include "include/pv_mesh_triangle_sorter.h"
#include "include/pv_triangles.h"
#include "include/pv_working_buffer.h"

#include <algorithm>
#include <optional>

namespace Vexmoor
{
// The sites of warnings. Hosts filter by these keys, so a key stays as it is when its line moves: the numbers are lines
// of the file that the sites first stood in.
namespace Site
{
	constexpr const char *kPositionStrideOfSequence = VX_SITE_KEY("[l.1776]");
	constexpr const char *kPositionStrideOfList = VX_SITE_KEY("[l.2129]");
	constexpr const char *kValueStrideOfSequence = VX_SITE_KEY("[l.1950]");
	constexpr const char *kValueStrideOfList = VX_SITE_KEY("[l.2315]");
	constexpr const char *kExpandU32_x1 = VX_SITE_KEY("[l.556]");
	constexpr const char *kExpandU32_x3 = VX_SITE_KEY("[l.328]");
	constexpr const char *kExpandU32_x6 = VX_SITE_KEY("[l.248]");
	constexpr const char *kExpandU32_x12 = VX_SITE_KEY("[l.477]");
	constexpr const char *kExpandU32_xN = VX_SITE_KEY("[l.579]");
	constexpr const char *kExpandU16_x1 = VX_SITE_KEY("[l.1148]");
	constexpr const char *kExpandU16_x3 = VX_SITE_KEY("[l.925]");
	constexpr const char *kExpandU16_x6 = VX_SITE_KEY("[l.840]");
	constexpr const char *kExpandU16_xN = VX_SITE_KEY("[l.1200]");
	constexpr const char *kQuadsU16 = VX_SITE_KEY("[l.1277]");
	constexpr const char *kQuadsU32 = VX_SITE_KEY("[l.1346]");
} // namespace Site

// Point sort.

// Sizes of working buffers end at 32 bits. A sort that needs more says so and writes nothing, whatever memory it is
// given.
constexpr u64 kLargestWorkingBufferSize = 0xFFFFFFFFu;

VX_HOT_CODE void CTriangleSorter::SortPoints_AutogenIndices(void *__restrict _workingBuffer)
{
	if (!VX_VERIFY(_PointWorkingBufferSize(m_ParticleCount) <= kLargestWorkingBufferSize))
		return;
	void *_locallyAllocatedIDBuffer = null;
	if (_workingBuffer == null)
	{
		// Bytes taken for records: eight times what is needed, which is what hosts budget for.
		const u64 recordCount = GetAutogenIndicesWorkingBufferSize(m_ParticleCount);
		_locallyAllocatedIDBuffer = VX_ALLOC_GENERIC(recordCount * sizeof(SIndexAndDepth));
		if (_locallyAllocatedIDBuffer == null)
			return;
		_workingBuffer = _locallyAllocatedIDBuffer;
	}
	VX_ASSERT(Mem::IsAligned<0x10>(_workingBuffer));
	const CRecordList workingBufferSorter = WorkingBuffer_SortedPoints(_workingBuffer, m_ParticleCount, 1);  // filled
	const CRecordList workingBufferSorter2 = WorkingBuffer_SortedPoints(_workingBuffer, m_ParticleCount, 0); // sorted

	{
		VX_PROFILE_SCOPE_COLOR("CTriangleSorter::FillSource", CFloat3(0.5f, 0.08f, 0.9f));
		if (!VX_VERIFY(!m_InRenderedParticleCounts.Empty()))
			return; // a block taken above is not given back, as the contract says

		switch (VX_USUALLY(m_GeometryType, GeometryConstant))
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

	switch (VX_USUALLY(m_GeometryType, GeometryConstant))
	{
	case GeometryConstant:
	case GeometryConstantAndIndexList:
		VX_ASSERT(!m_IndexPattern.Empty()); // not reported with quad centres: kept on purpose
		[[fallthrough]];
	case GeometryConstantAndIndexListAndQuadCenters:
	{
		if (VX_UNLIKELY(m_IndexPattern.Empty()))
			break;
		const u32 writeCount = std::min(m_ParticleCount, m_IndexCount / m_IndexPattern.Count());
		const u32 readOffset = _FirstWrittenRecord(m_ParticleCount, writeCount);
		const auto expandTo = [&](auto *indices)
		{
			const SIndexAndDepth *const it = &workingBufferSorter2[readOffset];
			if (VX_UNLIKELY(m_GeometryType == GeometryConstantAndIndexListAndQuadCenters))
				ExpandAndSortIndices(
					m_IndexPattern, m_QuadCenters, m_CameraPosition, it, indices, writeCount, m_PrimiteVertexCount);
			else
				_ExpandWithStores(m_IndexPattern, it, indices, writeCount, _StoresOfOutput());
		};
		if (m_IndexType == IndexTypeUint32)
			expandTo(m_OutIndices32.Data());
		else if (m_IndexType == IndexTypeUint16)
			expandTo(m_OutIndices16.Data());
		else
			VX_ASSERT_NOT_REACHED("Uninitialized or invalid indice type"); // the text is kept on purpose
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
		VX_ASSERT_NOT_REACHED("Uninitialized or invalid indice type"); // the text is kept on purpose

	if (locallyAllocatedBuffer != null)
		Mem::_FreeGeneric(locallyAllocatedBuffer);
}

template<typename _Index>
void CTriangleSorter::_SortTriangles_AutogenIndices(void *workingBuffer)
{
	// Triangles that the pages' geometry may have at most. Hosts filter by conditions with this name: kept on purpose.
	const u32 primCount_fromBB = m_IndexCount_fromBB / 3;
	VX_ASSERT(m_IndexCount_fromBB % 3 == 0);
	const CRecordList workingBufferSorter = WorkingBuffer_SortedTris(workingBuffer, m_IndexCount_fromBB, 1);  // filled
	const CRecordList workingBufferSorter2 = WorkingBuffer_SortedTris(workingBuffer, m_IndexCount_fromBB, 0); // sorted
	const TMemoryView<_Index> workingBufferIndex =
		WorkingBuffer_TriangleIndices<_Index>(workingBuffer, m_IndexCount_fromBB);

	u32 startPrim = 0;
	if (m_SortType == SortByPosition)
		startPrim = _FillTriangles(m_InPositions, workingBufferSorter, workingBufferIndex, m_CameraPosition);
	else if (m_SortType == SortByFloat)
		startPrim = _FillTriangles(m_InSortKeys, workingBufferSorter, workingBufferIndex);
	else
		VX_ASSERT_NOT_REACHED("Uninitialized or invalid sort mode");

	// What no page has filled becomes triangles without area, drawn with the farthest.
	WriteMissingTriangles(workingBufferSorter.Data(), workingBufferIndex.Data(), startPrim, primCount_fromBB);

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

// Fills the records and the unsorted triangles of every page that the vertex buffer has room for, and returns how many
// triangles that makes. The camera is given if the pages have positions.
template<typename _Index, typename _Pages, typename... _Camera>
u32 CTriangleSorter::_FillTriangles(const _Pages &pages,
	const TMemoryView<SIndexAndDepth> &workingBufferSorter,
	const TMemoryView<_Index> &workingBufferIndex,
	const _Camera &...camera) const
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
	const EIndexStores stores = StoresOfUnsorted<_Index>(workingBufferIndex.Count());
	u32 startPrim = 0, startIndex = 0;
	for (u32 pageId = 0; pageId < walkedPageCount; ++pageId)
	{
		const bool emptyPage = m_InRenderedParticleCounts[pageId] == 0;
		if (!emptyPage)
		{
			if constexpr (sizeof...(camera) != 0)
				VX_ASSERT(!m_InPositions[pageId].Empty());
			else
				VX_ASSERT(!m_InSortKeys[pageId].Empty());
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
		const CRecordList records = workingBufferSorter.Slice(startPrim, u32(std::min<u64>(recordCount, ~startPrim)));
		if (recordCount > workingBufferSorter.Count() - startPrim ||
			localIndexCount > workingBufferIndex.Count() - startPrim * 3)
			break;

		const CRecordList particles = records.Slice(0, localParticleCount);
		const CEnableds enableds = ViewOfPage(m_InEnableds, pageId);
		FillSortingIndirectionsListPoint_NoIndices(particles,
			OfferedElements(pages[pageId], enableds, localParticleCount), camera..., enableds, startIndex, vertexCount);
		_ExpandWithStores(
			indexPattern, particles.Data(), &workingBufferIndex[startPrim * 3], localParticleCount, stores);
		ExpandSortingIndirectionsListPoints_Triangles(
			records.Slice(0, u32(localPrimitiveCount)), localParticleCount, trianglesPerParticle, startPrim);

		startPrim += u32(localPrimitiveCount);
		startIndex += localParticleCount * vertexCount;
	}
	return startPrim;
}

// Does what ExpandIndices does, and lets the caller choose the stores. What there is to report is left to
// ExpandIndices, since reports carry its signature.
template<typename _Index>
VX_HOT_CODE void CTriangleSorter::_ExpandWithStores(
	const CPattern &indexPattern, const SIndexAndDepth *it, _Index *dstPrims, u32 primCount, EIndexStores stores)
{
	const bool isReported = (VX_ASSERTIONS && !Mem::IsAligned<0x10>(it)) || indexPattern.Empty() || primCount == 0;
	if (stores == EIndexStores::Streamed || isReported)
		return ExpandIndices(indexPattern, it, dstPrims, primCount);
	VX_PROFILE_SCOPE_COLOR(
		sizeof(_Index) == sizeof(u16) ? "ExpandIndices<u16>" : "ExpandIndices<u32>", CFloat3(0.1f, 0.5f, 0.9f));
	_ExpandByWidth(indexPattern, it, dstPrims, primCount, stores);
}

// Pages: rendered particles, numbered through all of them, to pages and back.

VX_HOT_CODE void CTriangleSorter::_GetParticleIdxInPageCache(
	u32 renderedParticleId, u32 &pageId, u32 &offsetInPage, u32 &offsetInRenderedBuffer) const
{
	const u32 totalPageCount = m_InRenderedParticleCounts.Count();
	u64 outOffset = 0;
	pageId = offsetInPage = offsetInRenderedBuffer = 0;
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

	const CEnableds enableds = ViewOfPage(m_InEnableds, pageId);
	if (enableds.Empty() || m_InRenderedParticleCounts[pageId] == enableds.Count())
	{
		offsetInPage = offsetInRenderedBuffer;
		return;
	}

	// One past the enabled particle before the wanted one, which is then the first enabled one from there on.
	for (u32 pLeft = offsetInRenderedBuffer; pLeft != 0;)
		pLeft -= enableds[offsetInPage++] != 0;
}

// The walk that all fillers share: hands fillPage each page's part of the rendered particles [start, start + count),
// and the number of the part's first particle. A page that has none to give, or none left, is passed over untouched.
// Returns the number of records handed out: fewer than count where the pages end before the particles do.
template<CTriangleSorter::EPageBound _PageBound, typename _Element, typename _FillPage>
VX_INLINE u32 CTriangleSorter::_WalkPages(
	const TStridedMemoryView<const TStridedMemoryView<const _Element, -1>, -1> &pages,
	u32 start,
	u32 count,
	const TMemoryView<SIndexAndDepth> &out,
	const _FillPage &fillPage) const
{
	if (VX_UNLIKELY(count == 0))
		return 0;
	// Compilers keep these copies in registers. Members they load again and again, since a stored record might change
	// them.
	const CRenderedCounts renderedCounts = m_InRenderedParticleCounts;
	const CEnabledPages enabledPages = m_InEnableds;
	const TStridedMemoryView<const TStridedMemoryView<const _Element, -1>, -1> elementPages = pages;
	const CRecordList records = out;
	const u32 totalPageCount = renderedCounts.Count();

	u32 firstPage, firstInPage, firstInRendered;
	_GetParticleIdxInPageCache(start, firstPage, firstInPage, firstInRendered);
	u32 pagei = firstPage, offsetInPage = firstInPage, offsetOut = firstInRendered;
	VX_ASSERT_AS(
		"offsetOut < m_InRenderedParticleCounts[pagei]", pagei < totalPageCount && offsetOut < renderedCounts[pagei]);

	u32 stopPage, stopInPage, stopInRendered; // of the first particle behind
	_GetParticleIdxInPageCache(start + count, stopPage, stopInPage, stopInRendered);
	const u32 pageStop = stopPage;

	std::optional<CWarningBatch> warnings; // begins with the first page that warns: most walks have none to add up
	u32 i = 0;
	for (; i < count; ++pagei)
	{
		if constexpr (_PageBound == PageBound_RenderedCounts)
			VX_ASSERT(pagei < m_InRenderedParticleCounts.Count() && pagei <= pageStop);
		else
			VX_ASSERT(pagei < totalPageCount && pagei <= pageStop);
		if (VX_UNLIKELY(pagei >= totalPageCount))
			break;

		const u32 pcount = renderedCounts[pagei] - offsetOut;
		if (VX_UNLIKELY(pcount == 0))
			continue;

		const TStridedMemoryView<const _Element> elements = ViewOfPage(elementPages, pagei);
		if (VX_UNLIKELY(pagei >= elementPages.Count()))
			break;
		const CEnableds enableds = ViewOfPage(enabledPages, pagei);
		const u32 pprocess = std::min(pcount, count - i);
		u32 pprocessIn = (pagei == pageStop ? stopInPage : elements.Count()) - offsetInPage;
		if (enableds.Empty())
			pprocessIn = std::min(pprocessIn, pprocess); // none is disabled: the first ones are the rendered ones

		// A statement for each slice, so that every compiler reports broken slices in this order.
		const CRecordList recordSlice = records.Slice(i, pprocess);
		const TStridedMemoryView<const _Element> elementSlice = elements.Slice(offsetInPage, pprocessIn);
		const CEnableds enabledSlice = enableds.SliceIFP(offsetInPage, pprocessIn);
		if (VX_UNLIKELY(HasUncommonStride(elementSlice) && !warnings))
			warnings.emplace();
		fillPage(TPagePart<_Element>{recordSlice, elementSlice, enabledSlice}, start + i);
		i += pprocess;
		offsetInPage = 0;
		offsetOut = 0;
	}
	return i;
}

// Where the vertex bases of a page's records come from, with the sites that warn of it.
struct SBySequence : CVertexBases_Sequence
{
	using CVertexBases_Sequence::CVertexBases_Sequence;
	static constexpr const char *kPositionStrideSite = Site::kPositionStrideOfSequence;
	static constexpr const char *kValueStrideSite = Site::kValueStrideOfSequence;
};

struct SByList : CVertexBases_List
{
	using CVertexBases_List::CVertexBases_List;
	static constexpr const char *kPositionStrideSite = Site::kPositionStrideOfList;
	static constexpr const char *kValueStrideSite = Site::kValueStrideOfList;
};

template<typename _VertexBases>
static void FillByDistance(const TPagePart<CFloat3> &page, const CCamera &camera, _VertexBases vertexBases);
template<typename _VertexBases>
static void FillByValue(const TPagePart<float> &page, _VertexBases vertexBases);

// The four fillers are written out, since their reports carry their signatures: kept on purpose.

VX_HOT_CODE void CTriangleSorter::_FillSource_SortByPosition_GeomConst(
	u32 start, u32 count, const TMemoryView<SIndexAndDepth> &out) const
{
	const CFloatModeScope floatMode;
	const CCamera camera(m_CameraPosition);
	const u32 validCount = _ValidParticleCount(start, count);
	const u32 increment = m_PrimiteVertexCount; // the member's name is kept on purpose
	const u32 i = _WalkPages<PageBound_RenderedCounts>(m_InPositions, start, validCount, out,
		[&](const TPagePart<CFloat3> &page, u32 firstParticle)
		{ FillByDistance(page, camera, SBySequence(firstParticle * increment, increment)); });
	VX_ASSERT(i == validCount);
	FillFarRecords(out, i, count);
}

VX_HOT_CODE void CTriangleSorter::_FillSource_SortByValues_GeomConst(
	u32 start, u32 count, const TMemoryView<SIndexAndDepth> &out) const
{
	const u32 validCount = _ValidParticleCount(start, count);
	const u32 increment = m_PrimiteVertexCount;
	const u32 i = _WalkPages<PageBound_RenderedCounts>(m_InSortKeys, start, validCount, out,
		[&](const TPagePart<float> &page, u32 firstParticle)
		{ FillByValue(page, SBySequence(firstParticle * increment, increment)); });
	VX_ASSERT(i == validCount);
	FillFarRecords(out, i, count);
}

VX_HOT_CODE void CTriangleSorter::_FillSource_SortByPosition_GeomConstAndIndexList(
	u32 start, u32 count, const TMemoryView<SIndexAndDepth> &out) const
{
	const CFloatModeScope floatMode;
	const CCamera camera(m_CameraPosition);
	const u32 i = _WalkPages<PageBound_RenderedCounts>(m_InPositions, start, count, out,
		[&](const TPagePart<CFloat3> &page, u32 firstParticle)
		{ FillByDistance(page, camera, SByList(m_IndexList.AddressOf(firstParticle), m_VertexCount)); });
	FillFarRecords(out, i, count);
}

VX_HOT_CODE void CTriangleSorter::_FillSource_SortByValues_GeomConstAndIndexList(
	u32 start, u32 count, const TMemoryView<SIndexAndDepth> &out) const
{
	const u32 i = _WalkPages<PageBound_TotalPageCount>(m_InSortKeys, start, count, out,
		[&](const TPagePart<float> &page, u32 firstParticle)
		{ FillByValue(page, SByList(m_IndexList.AddressOf(firstParticle), m_VertexCount)); });
	FillFarRecords(out, i, count);
}

// Fill: the records of one page. By distance or by value, with vertex bases from a sequence or a list: two algorithms
// and two sources. What sets the four apart beyond that is their warnings' sites.

void CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(const TMemoryView<SIndexAndDepth> &outList,
	const TStridedMemoryView<const CFloat3> &positions,
	const CFloat3 &cameraPosition,
	const TStridedMemoryView<const u8> &enableds,
	u32 indexStart,
	u32 indexIncrement)
{
	const CFloatModeScope floatMode;
	FillByDistance({outList, positions, enableds}, CCamera(cameraPosition), SBySequence(indexStart, indexIncrement));
}

void CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(const TMemoryView<SIndexAndDepth> &outList,
	const TStridedMemoryView<const float> &sortValues,
	const TStridedMemoryView<const u8> &enableds,
	u32 indexStart,
	u32 indexIncrement)
{
	FillByValue({outList, sortValues, enableds}, SBySequence(indexStart, indexIncrement));
}

void CTriangleSorter::FillSortingIndirectionsListPoint_Indices(const TMemoryView<SIndexAndDepth> &outList,
	const TStridedMemoryView<const CFloat3> &positions,
	const CFloat3 &cameraPosition,
	const TStridedMemoryView<const u8> &enableds,
	const u32 *indexList,
	u32 maxVertexId)
{
	const CFloatModeScope floatMode;
	FillByDistance({outList, positions, enableds}, CCamera(cameraPosition), SByList(indexList, maxVertexId));
}

void CTriangleSorter::FillSortingIndirectionsListPoint_Indices(const TMemoryView<SIndexAndDepth> &outList,
	const TStridedMemoryView<const float> &sortValues,
	const TStridedMemoryView<const u8> &enableds,
	const u32 *indexList,
	u32 maxVertexId)
{
	FillByValue({outList, sortValues, enableds}, SByList(indexList, maxVertexId));
}

template<typename _VertexBases>
static void WarnOfPositionStride()
{
	WarnAtSite(_VertexBases::kPositionStrideSite, "Render sort: input positions have uncommon stride");
}
template<typename _VertexBases>
static void WarnOfValueStride()
{
	WarnAtSite(_VertexBases::kValueStrideSite, "Render sort: input sort-values have uncommon stride");
}

// As the fill of a page that is slow: the geometry and what is sorted by say which one.
void CTriangleSorter::_WarnOfStride() const
{
	const bool hasList = m_GeometryType != GeometryConstant && m_GeometryType != GeometryPerPage;
	if (m_SortType == SortByPosition)
		hasList ? WarnOfPositionStride<SByList>() : WarnOfPositionStride<SBySequence>();
	else
		hasList ? WarnOfValueStride<SByList>() : WarnOfValueStride<SBySequence>();
}

template<typename _VertexBases>
static VX_INLINE void FillByValue(const TPagePart<float> &page, _VertexBases vertexBases)
{
	const auto &[outList, sortValues, enableds] = page;
	if (VX_UNLIKELY(outList.Count() < sortValues.Count()))
	{
		VX_ASSERT(enableds.Count() == sortValues.Count());
		VX_ASSERT(enableds.Contiguous());
		return WriteRecordsOfEnabled(outList, sortValues, enableds, SSortValues_Given(), vertexBases);
	}
	if (VX_UNLIKELY(HasUncommonStride(sortValues)))
		WarnOfValueStride<_VertexBases>();
	WriteRecordsByValue(outList, sortValues, vertexBases);
}

template<typename _VertexBases>
static VX_INLINE void FillByDistance(const TPagePart<CFloat3> &page, const CCamera &camera, _VertexBases vertexBases)
{
	const auto &[outList, positions, enableds] = page;
	const u32 primCount = outList.Count();
	if (VX_UNLIKELY(primCount < positions.Count()))
	{
		VX_ASSERT(enableds.Count() == positions.Count());
		VX_ASSERT(enableds.Contiguous());
		return WriteRecordsOfEnabled(outList, positions, enableds, SSortValues_Distance{camera}, vertexBases);
	}

	SIndexAndDepth *packedPtr = outList.Data();
	const u8 *srcBytes = reinterpret_cast<const u8 *>(positions.Data());
	const u32 srcStride = positions.Stride();
	u32 remaining = primCount;
	if (VX_UNLIKELY(!Mem::IsAligned<0x10>(packedPtr)) && remaining != 0)
	{
		VX_ASSERT(Mem::IsAligned<0x8>(packedPtr));
		FillOneByDistance(packedPtr++, srcBytes, camera, vertexBases);
		srcBytes += srcStride;
		--remaining;
	}
	if (primCount != 0)
	{
		VX_ASSERT_MESSAGE(Mem::IsAligned<0x10>(packedPtr), "Unaligned memory! %p should be 16-bytes aligned.",
			static_cast<const void *>(packedPtr));
	}
	if (VX_UNLIKELY(HasUncommonStride(positions)))
		WarnOfPositionStride<_VertexBases>();
	[[maybe_unused]] const void *const srcPos =
		WriteRecordsByDistance(packedPtr, srcBytes, srcStride, remaining, camera, vertexBases);
	VX_ASSERT(positions.Virtual() || srcPos == positions.DataEnd());
}

// Expand. The rule that every worker follows, for any width and both index types: record after record, the pattern's
// entries plus the record's base; front to back, each index once.

// The skeleton of the workers that stream. If the output is aligned, whole blocks of primitives leave as streaming
// stores, followed by a fence. If it is not, the worker warns. All that is left goes out by the other kernels, those
// with the largest blocks first.
template<typename _Streamed, typename... _Stored, typename _Index, typename... _Pattern>
static VX_INLINE void StreamOrWarn(
	const char *siteKey, const char *text, Expand::TOutput<_Index> output, const _Pattern &...pattern)
{
	if (VX_UNLIKELY(!output.template Stream<_Streamed>(pattern...)))
		WarnAtSite(siteKey, text);
	output.template Write<_Stored...>(pattern...);
}

// 32-bit.

static void ExpandIndicesU32_x1(
	[[maybe_unused]] const CPattern &indexPattern, CRecords it, CPrims32 dstPrims, u32 primCount, EIndexStores stores)
{
	VX_ASSERT(indexPattern.Count() == 1);
	VX_ASSERT_MESSAGE(indexPattern[0] == 0, "An index pattern of width 1 should have its indexPattern[0] to 0");
	StreamOrWarn<Expand::SStreamU32_x1, Expand::SU32_x1>(Site::kExpandU32_x1,
		"Render sort: Index stream expansion (U32): sub-optimal path [1]: Unaligned dst memory",
		Expand::TOutput<u32>(it, dstPrims, primCount, stores));
}

// The warning's text is the six-wide worker's: kept on purpose.
static void ExpandIndicesU32_x3(
	const CPattern &indexPattern, CRecords it, CPrims32 dstPrims, u32 primCount, EIndexStores stores)
{
	VX_ASSERT(indexPattern.Count() == 3);
	StreamOrWarn<Expand::SStreamU32_x3, Expand::TExpand_x3<u32>>(Site::kExpandU32_x3,
		"Render sort: Index stream expansion (U32): sub-optimal path [6]: Unaligned dst memory",
		Expand::TOutput<u32>(it, dstPrims, primCount, stores), &indexPattern[0]);
}

static void ExpandIndicesU32_x6(
	const CPattern &indexPattern, CRecords it, CPrims32 dstPrims, u32 primCount, EIndexStores stores)
{
	VX_ASSERT(indexPattern.Count() == 6);
	StreamOrWarn<Expand::SStreamU32_x6, Expand::TThreeWords_Two<u32>, Expand::TThreeWords<u32>>(Site::kExpandU32_x6,
		"Render sort: Index stream expansion (U32): sub-optimal path [6]: Unaligned dst memory",
		Expand::TOutput<u32>(it, dstPrims, primCount, stores), &indexPattern[0]);
}

static void ExpandIndicesU32_A16_x12(
	const CPattern &indexPattern, CRecords it, CPrims32 dstPrims, u32 primCount, EIndexStores stores)
{
	VX_ASSERT(indexPattern.Count() == 12);
	VX_ASSERT(Mem::IsAligned<0x10>(dstPrims));
	Expand::TOutput<u32>(it, dstPrims, primCount, stores)
		.Stream<Expand::SStreamU32_x12_Two, Expand::SStreamU32_x12>(&indexPattern[0]);
}

// An output at 8 modulo 16 stays there from record to record, and streams with two indices carried over.
static void ExpandIndicesU32_UA_x12(
	const CPattern &indexPattern, CRecords it, CPrims32 dstPrims, u32 primCount, EIndexStores stores)
{
	VX_ASSERT(indexPattern.Count() == 12);
	VX_ASSERT(!Mem::IsAligned<0x10>(dstPrims));
	if (!Mem::IsAligned<0x8>(dstPrims))
	{
		WarnAtSite(Site::kExpandU32_x12, // the width in the text is not the pattern's: kept on purpose
			"Render sort: Index stream expansion (U32): sub-optimal path [16]: Unaligned dst memory");
		return Expand::TOutput<u32>(it, dstPrims, primCount).Write<Expand::SU32_x12>(&indexPattern[0]);
	}

	if (stores == EIndexStores::Cached)
		return Expand::TOutput<u32>(it, dstPrims, primCount).WriteCached<Expand::SStreamU32_x12>(&indexPattern[0]);
	if (primCount == 0)
		return;
	[[maybe_unused]] const volatile u32 *const primsStop = dstPrims + u64(primCount) * 12;
	Expand::CStreamU32_x12_Carried pattern(&indexPattern[0]);
	dstPrims = pattern.First(dstPrims, it->m_Index);
	VX_ASSERT(Mem::IsAligned<0x10>(dstPrims));
	dstPrims = pattern.Rest(dstPrims, it + 1, primCount - 1); // cppcheck-suppress uselessAssignmentPtrArg ; asserted
	VX_ASSERT(dstPrims == primsStop);
}

// Any width. The warning's text is built on every call, seen before or not: this path is not meant to be kept.
static void ExpandIndicesU32_xN(const CPattern &indexPattern, CRecords it, CPrims32 dstPrims, u32 primCount)
{
	const CShortString message = CShortString::Format(
		"Render sort: Index stream expansion (U32): sub-optimal path [%d]", s32(indexPattern.Count()));
	WarnAtSite(Site::kExpandU32_xN, message.Data());
	Expand::WriteAnyWidth(indexPattern, it, dstPrims, primCount);
}

VX_HOT_CODE void CTriangleSorter::_ExpandByWidth(
	const CPattern &indexPattern, CRecords it, CPrims32 dstPrims, u32 primCount, EIndexStores stores)
{
	switch (VX_USUALLY(indexPattern.Count(), 6))
	{
	case 1:
		return ExpandIndicesU32_x1(indexPattern, it, dstPrims, primCount, stores);
	case 3:
		return ExpandIndicesU32_x3(indexPattern, it, dstPrims, primCount, stores);
	case 6:
		return ExpandIndicesU32_x6(indexPattern, it, dstPrims, primCount, stores);
	case 12:
		if (Mem::IsAligned<0x10>(dstPrims))
			return ExpandIndicesU32_A16_x12(indexPattern, it, dstPrims, primCount, stores);
		return ExpandIndicesU32_UA_x12(indexPattern, it, dstPrims, primCount, stores);
	default:
		return ExpandIndicesU32_xN(indexPattern, it, dstPrims, primCount);
	}
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
	_ExpandByWidth(indexPattern, it, dstPrims, primCount, EIndexStores::Streamed);
}

// 16-bit. Sums are not checked: what becomes of one beyond 0xFFFF differs from loop to loop, and callers keep
// every index below.

static void ExpandIndicesU16_x1(
	[[maybe_unused]] const CPattern &indexPattern, CRecords it, CPrims16 dstPrims, u32 primCount, EIndexStores stores)
{
	VX_ASSERT(indexPattern.Count() == 1 && indexPattern[0] == 0);
	StreamOrWarn<Expand::SStreamU16_x1, Expand::SU16_x1_Eight, Expand::SU16_x1_Two, Expand::SU16_x1>(
		Site::kExpandU16_x1, "Render sort: Index stream expansion (U16): sub-optimal path [1]: Unaligned dst memory",
		Expand::TOutput<u16>(it, dstPrims, primCount, stores));
}

// The warning's text is the 32-bit six-wide worker's: kept on purpose.
static void ExpandIndicesU16_x3(
	const CPattern &indexPattern, CRecords it, CPrims16 dstPrims, u32 primCount, EIndexStores stores)
{
	VX_ASSERT(indexPattern.Count() == 3);
	StreamOrWarn<Expand::SStreamU16_x3, Expand::TExpand_x3<u16>>(Site::kExpandU16_x3,
		"Render sort: Index stream expansion (U32): sub-optimal path [6]: Unaligned dst memory",
		Expand::TOutput<u16>(it, dstPrims, primCount, stores), &indexPattern[0]);
}

static void ExpandIndicesU16_x6(
	const CPattern &indexPattern, CRecords it, CPrims16 dstPrims, u32 primCount, EIndexStores stores)
{
	VX_ASSERT(indexPattern.Count() == 6);
	StreamOrWarn<Expand::SStreamU16_x6, Expand::SU16_x6_Four, Expand::SU16_x6>(Site::kExpandU16_x6,
		"Render sort: Index stream expansion (U16): sub-optimal path [6]: Unaligned dst memory",
		Expand::TOutput<u16>(it, dstPrims, primCount, stores), &indexPattern[0]);
}

// At any address: no alignment to warn of, and nothing streamed to fence.
static void ExpandIndicesU16_x12(const CPattern &indexPattern, CRecords it, CPrims16 dstPrims, u32 primCount)
{
	VX_ASSERT(indexPattern.Count() == 12);
	const Expand::TPackedPattern<12> packed(&indexPattern[0]);
	Expand::TOutput<u16>(it, dstPrims, primCount)
		.Write<Expand::TThreeWords_Two<u16>, Expand::TThreeWords<u16>>(&packed.m_Words[0]);
}

static void ExpandIndicesU16_xN(const CPattern &indexPattern, CRecords it, CPrims16 dstPrims, u32 primCount)
{
	const CShortString message = CShortString::Format(
		"Render sort: Index stream expansion (U16): sub-optimal path [%d]", s32(indexPattern.Count()));
	WarnAtSite(Site::kExpandU16_xN, message.Data());
	Expand::WriteAnyWidth(indexPattern, it, dstPrims, primCount);
}

VX_HOT_CODE void CTriangleSorter::_ExpandByWidth(
	const CPattern &indexPattern, CRecords it, CPrims16 dstPrims, u32 primCount, EIndexStores stores)
{
	switch (VX_USUALLY(indexPattern.Count(), 6))
	{
	case 1:
		return ExpandIndicesU16_x1(indexPattern, it, dstPrims, primCount, stores);
	case 3:
		return ExpandIndicesU16_x3(indexPattern, it, dstPrims, primCount, stores);
	case 6:
		return ExpandIndicesU16_x6(indexPattern, it, dstPrims, primCount, stores);
	case 12:
		return ExpandIndicesU16_x12(indexPattern, it, dstPrims, primCount);
	default:
		return ExpandIndicesU16_xN(indexPattern, it, dstPrims, primCount);
	}
}

VX_WRAPS void CTriangleSorter::ExpandIndices(const TMemoryView<const u32> &indexPattern,
	const SIndexAndDepth *__restrict it,
	volatile u16 *__restrict dstPrims,
	u32 primCount)
{
	VX_PROFILE_SCOPE_COLOR("ExpandIndices<u16>", CFloat3(0.1f, 0.5f, 0.9f));
	VX_ASSERT(Mem::IsAligned<0x10>(it));
	if (indexPattern.Count() * primCount == 0)
		return;
	_ExpandByWidth(indexPattern, it, dstPrims, primCount, EIndexStores::Streamed);
}

// Expansion with quads in order.

void CTriangleSorter::_WarnOfQuads(EIndexType indexType)
{
	const CShortString message = CShortString::Format("Render sort: Very slow tube quad sorter");
	WarnAtSite(indexType == IndexTypeUint16 ? Site::kQuadsU16 : Site::kQuadsU32, message.Data());
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
	_WarnOfQuads(IndexTypeUint16);
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
	_WarnOfQuads(IndexTypeUint32);
	ExpandWithSortedQuads(indexPattern, quadCenters, cameraPosition, it, dstPrims, primCount, vpp);
}

// Particles widened to triangles, and triangles gathered in the end.

void CTriangleSorter::ExpandSortingIndirectionsListPoints_Triangles(
	const TMemoryView<SIndexAndDepth> &inoutList, u32 primCount, u32 trianglePerPrimitive, u32 primOffset)
{
	VX_PROFILE_SCOPE("ExpandSortToTriangles");
	VX_ASSERT(inoutList.Count() == primCount * trianglePerPrimitive);
	VX_ASSERT(Mem::IsAligned<0x10>(inoutList.Data()));
	SIndexAndDepth *const records = inoutList.Data();
	for (u32 triIdx = 0; triIdx < trianglePerPrimitive; ++triIdx)
		WriteTriangleBlock(records, records + triIdx * primCount, primCount, primOffset + triIdx, trianglePerPrimitive);
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

// Working buffer.

// Overloads of const memory are written out, since reports carry their signatures: kept on purpose.

VX_WRAPS TMemoryView<SIndexAndDepth> CTriangleSorter::WorkingBuffer_SortedPoints(
	void *wb, u32 elementCount, u32 bufferIndex)
{
	const u32 alignedPrimCount = _AlignedRecordCount(elementCount);
	VX_ASSERT((1 + bufferIndex) * alignedPrimCount * sizeof(SIndexAndDepth) <=
			  GetAutogenIndicesWorkingBufferSize(elementCount));
	return Carve<SIndexAndDepth>(wb, alignedPrimCount * bufferIndex, elementCount);
}

VX_WRAPS TMemoryView<const SIndexAndDepth> CTriangleSorter::WorkingBuffer_SortedPoints(
	const void *wb, u32 elementCount, u32 bufferIndex)
{
	const u32 alignedPrimCount = _AlignedRecordCount(elementCount);
	VX_ASSERT((1 + bufferIndex) * alignedPrimCount * sizeof(SIndexAndDepth) <=
			  GetAutogenIndicesWorkingBufferSize(elementCount));
	return Carve<const SIndexAndDepth>(wb, alignedPrimCount * bufferIndex, elementCount);
}

VX_WRAPS TMemoryView<SIndexAndDepth> CTriangleSorter::WorkingBuffer_SortedTris(
	void *wb, u32 indexCount, u32 bufferIndex)
{
	VX_ASSERT(bufferIndex == 0 || bufferIndex == 1);
	return Carve<SIndexAndDepth>(wb, _AlignedRecordCount(indexCount / 3) * bufferIndex, indexCount / 3);
}

VX_WRAPS TMemoryView<const SIndexAndDepth> CTriangleSorter::WorkingBuffer_SortedTris(
	const void *wb, u32 indexCount, u32 bufferIndex)
{
	VX_ASSERT(bufferIndex == 0 || bufferIndex == 1);
	return Carve<const SIndexAndDepth>(wb, _AlignedRecordCount(indexCount / 3) * bufferIndex, indexCount / 3);
}

template VX_GEOMETRICS_API TMemoryView<u32> CTriangleSorter::WorkingBuffer_TriangleIndices(void *, u32);
template VX_GEOMETRICS_API TMemoryView<u16> CTriangleSorter::WorkingBuffer_TriangleIndices(void *, u32);
template VX_GEOMETRICS_API TMemoryView<const u32> CTriangleSorter::WorkingBuffer_TriangleIndices(const void *, u32);
template VX_GEOMETRICS_API TMemoryView<const u16> CTriangleSorter::WorkingBuffer_TriangleIndices(const void *, u32);
} // namespace Vexmoor
