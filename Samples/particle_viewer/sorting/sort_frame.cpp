// Read from CFrameSorter::Sort down: plan the draw calls, describe each to the sorter, let it write.

#include "sort_frame.h"

#include "ge_mesh_sort_capture.h"

#include "kr_profiler.h"

#include "failure.h"
#include "output_file.h"
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace Viewer
{
u32 BytesPerIndex(CTriangleSorter::EIndexType indexType)
{
	return indexType == CTriangleSorter::IndexTypeUint16 ? sizeof(u16) : sizeof(u32);
}

namespace
{
	constexpr u32 kMaxVertices16 = 0xFFFF; // indices stay below 0xFFFF
	constexpr u32 kCallAlignment = 16;     // an index buffer that starts here takes the sorter's streaming stores

	static_assert(__STDCPP_DEFAULT_NEW_ALIGNMENT__ >= 16, "vectors start where the sorter's scratch memory has to");

	u32 MaxVertices(CTriangleSorter::EIndexType indexType)
	{
		return indexType == CTriangleSorter::IndexTypeUint16 ? kMaxVertices16 : 0xFFFFFFFFu;
	}

	bool IsGeometryPerPage(const SFrame &frame)
	{
		return frame.m_IndexPattern.Empty();
	}

	// An index list says where vertices lie, so that no page has some of its own: one draw call draws all.
	SDrawCall PlanListDrawCall(const SFrame &frame, CTriangleSorter::EIndexType indexType)
	{
		if (frame.m_VertexCount > MaxVertices(indexType))
			throw CFailure("The index list of this scene goes further than 16-bit indices do; use --index-type 32.");
		SDrawCall drawCall;
		drawCall.m_IndexType = indexType;
		drawCall.m_PageCount = frame.m_RenderedCounts.Count();
		drawCall.m_ParticleCount = frame.m_ParticleCount;
		drawCall.m_VertexCount = frame.m_VertexCount;
		drawCall.m_IndicesPerPrimitive = frame.m_IndexPattern.Count();
		drawCall.m_IndexCount = frame.m_ParticleCount * drawCall.m_IndicesPerPrimitive;
		drawCall.m_GeometryIndexCount = drawCall.m_IndexCount;
		return drawCall;
	}

	u64 ScratchSize(ESortEntry entry, const SDrawCall &drawCall)
	{
		return entry == SortEntry_Triangles
		           ? CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(drawCall.m_GeometryIndexCount)
		           : CTriangleSorter::GetAutogenIndicesWorkingBufferSize(drawCall.m_ParticleCount);
	}

	// Jobs take a little more.
	u64 ScratchSize(ESortEntry entry, const SDrawCall &drawCall, const SSortJobs &jobs)
	{
		return entry == SortEntry_Triangles
		           ? CTriangleSorter::GetJobsWorkingBufferSize_tri(drawCall.m_GeometryIndexCount, jobs.m_MaxJobCount)
		           : CTriangleSorter::GetJobsWorkingBufferSize(drawCall.m_ParticleCount, jobs.m_MaxJobCount);
	}

	float DistanceOf(float value)
	{
		return std::sqrt(0.0f - value);
	}

	bool IsRendered(const SFrame &frame, u32 page, u32 i)
	{
		const bool hasDisabled = frame.m_RenderedCounts[page] < frame.m_Positions[page].Count();
		return !hasDisabled || frame.m_Enableds[page].Empty() || frame.m_Enableds[page][i] != 0;
	}

	// A draw call starts where the one before it ends.
	SDrawCall Following(const SDrawCall &previous)
	{
		const u64 end = previous.m_OffsetInBytes + u64(previous.m_IndexCount) * BytesPerIndex(previous.m_IndexType);
		SDrawCall next;
		next.m_IndexType = previous.m_IndexType;
		next.m_OffsetInBytes = (end + kCallAlignment - 1) / kCallAlignment * kCallAlignment;
		next.m_BaseVertex = previous.m_BaseVertex + previous.m_VertexCount;
		next.m_FirstPage = previous.m_FirstPage + previous.m_PageCount;
		return next;
	}
} // namespace

std::vector<SDrawCall> PlanDrawCalls(const SFrame &frame, CTriangleSorter::EIndexType indexType)
{
	if (!frame.m_IndexList.Empty())
		return {PlanListDrawCall(frame, indexType)};

	std::vector<SDrawCall> drawCalls(1);
	drawCalls.back().m_IndexType = indexType;
	for (u32 page = 0; page < frame.m_RenderedCounts.Count(); ++page)
	{
		const bool perPage = IsGeometryPerPage(frame);
		const u32 particleCount = frame.m_RenderedCounts[page];
		const u32 verticesPerParticle = perPage ? frame.m_PageVerticesPerParticle[page] : frame.m_VerticesPerParticle;
		const u32 indicesPerParticle = perPage ? frame.m_PagePatterns[page].Count() : frame.m_IndexPattern.Count();
		const u32 vertexCount = particleCount * verticesPerParticle;
		if (vertexCount > MaxVertices(indexType))
			throw CFailure("A page of this scene has more vertices than 16-bit indices reach; use --index-type 32.");
		if (drawCalls.back().m_VertexCount + vertexCount > MaxVertices(indexType))
			drawCalls.push_back(Following(drawCalls.back()));

		SDrawCall &drawCall = drawCalls.back();
		drawCall.m_PageCount += 1;
		drawCall.m_ParticleCount += particleCount;
		drawCall.m_VertexCount += vertexCount;
		drawCall.m_IndexCount += particleCount * indicesPerParticle;
		drawCall.m_GeometryIndexCount = drawCall.m_IndexCount;
		drawCall.m_IndicesPerPrimitive = perPage ? 3 : indicesPerParticle;
	}
	return drawCalls;
}

std::vector<SDrawCall> PlanTriangleDrawCalls(const SFrame &frame, CTriangleSorter::EIndexType indexType)
{
	SDrawCall drawCall;
	drawCall.m_IndexType = indexType;
	drawCall.m_PageCount = 1;
	drawCall.m_ParticleCount = frame.m_TriangleCentres.Count();
	drawCall.m_VertexCount = frame.m_TriangleCentres.Count() * 3;
	drawCall.m_IndexCount = frame.m_TriangleCentres.Count() * 3;
	drawCall.m_GeometryIndexCount = drawCall.m_IndexCount;
	drawCall.m_IndicesPerPrimitive = 3;
	if (drawCall.m_VertexCount > MaxVertices(indexType))
		throw CFailure("This scene has more triangles than 16-bit indices reach; use --index-type 32.");
	return {drawCall};
}

SDrawCall PlanReadyDrawCall(const SFrame &frame, u32 indexCount)
{
	SDrawCall drawCall;
	drawCall.m_IndexCount = indexCount;
	drawCall.m_GeometryIndexCount = indexCount;
	drawCall.m_IndicesPerPrimitive = IsGeometryPerPage(frame) ? 3 : frame.m_IndexPattern.Count();
	return drawCall;
}

SPrimitiveCounts CountPrimitives(const std::vector<SDrawCall> &drawCalls)
{
	SPrimitiveCounts counts;
	for (const SDrawCall &drawCall : drawCalls)
	{
		const u32 indicesPerPrimitive = std::max(drawCall.m_IndicesPerPrimitive, 1u);
		counts.m_All += drawCall.m_GeometryIndexCount / indicesPerPrimitive;
		counts.m_Drawn += drawCall.m_IndexCount / indicesPerPrimitive;
	}
	return counts;
}

u64 IndexMemorySize(const std::vector<SDrawCall> &drawCalls)
{
	return Following(drawCalls.back()).m_OffsetInBytes;
}

void ComputeSortValues(
	TMemoryView<float> values, const TStridedMemoryView<const CFloat3> &positions, const CFloat3 &eye)
{
	for (u32 i = 0; i < values.Count(); ++i)
	{
		const CFloat3 offset = Subtract(positions[i], eye);
		const float squared = (offset.x() * offset.x() + offset.y() * offset.y()) + offset.z() * offset.z();
		values[i] = 0.0f - squared;
	}
}

void CFrameSorter::Sort(const SFrame &frame, EOrder order, const std::vector<SDrawCall> &drawCalls, u8 *mappedIndices)
{
	if (m_KeyBits < 32 && order == EOrder::ByPosition)
		order = EOrder::ByValue; // only values can be shortened
	if (order == EOrder::ByValue || order == EOrder::WholeTubes)
		UpdateSortValues(frame);
	for (const SDrawCall &drawCall : drawCalls)
	{
		if (order == EOrder::ByTriangle)
			SortTriangleCentres(frame, drawCall, mappedIndices);
		else
			SortPages(frame, order, drawCall, mappedIndices);
	}
}

void CFrameSorter::SortPages(const SFrame &frame, EOrder order, const SDrawCall &drawCall, u8 *mappedIndices)
{
	SetOutput(drawCall, mappedIndices + drawCall.m_OffsetInBytes);
	SetPages(frame, order, drawCall);
	if (IsGeometryPerPage(frame))
	{
		m_Sorter.Setup_Geometry(frame.m_PagePatterns.Slice(drawCall.m_FirstPage, drawCall.m_PageCount),
			frame.m_PageVerticesPerParticle.Slice(drawCall.m_FirstPage, drawCall.m_PageCount),
			drawCall.m_GeometryIndexCount);
		Run(SortEntry_Triangles, drawCall, mappedIndices);
	}
	else
	{
		SetGeometry(frame, order);
		Run(SortEntry_Points, drawCall, mappedIndices);
	}
}

void CFrameSorter::SetGeometry(const SFrame &frame, EOrder order)
{
	if (frame.m_IndexList.Empty())
		m_Sorter.Setup_Geometry(frame.m_IndexPattern, frame.m_VerticesPerParticle);
	else if (frame.m_QuadCentres.Empty() || order == EOrder::WholeTubes)
		m_Sorter.Setup_Geometry(frame.m_IndexPattern, frame.m_IndexList);
	else
		m_Sorter.Setup_Geometry(
			frame.m_IndexPattern, frame.m_IndexList, frame.m_QuadCentres, frame.m_VerticesPerParticle);
}

// Every triangle is a particle of one page, none of them disabled: positions order them, and are the cheaper choice.
void CFrameSorter::SortTriangleCentres(const SFrame &frame, const SDrawCall &drawCall, u8 *mappedIndices)
{
	u32 triangle[] = {0, 1, 2};
	const u32 count = frame.m_TriangleCentres.Count();
	const TStridedMemoryView<const CFloat3> page(frame.m_TriangleCentres);
	const TStridedMemoryView<const u8> allEnabled;

	SetOutput(drawCall, mappedIndices + drawCall.m_OffsetInBytes);
	m_Sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(page), CTriangleSorter::CEnabledPages(allEnabled),
		CTriangleSorter::CRenderedCounts(count), count, frame.m_Camera.m_Position);
	m_Sorter.Setup_Geometry(TMemoryView<u32>(triangle, 3), 3);
	Run(SortEntry_Points, drawCall, mappedIndices);
}

void CFrameSorter::Run(ESortEntry entry, const SDrawCall &drawCall, u8 *mappedIndices)
{
	const bool hasJobs = m_ThreadCount > 1;
	const SSortJobs jobs = hasJobs ? m_Threads->Jobs() : SSortJobs();
	const u64 scratchSize = hasJobs ? ScratchSize(entry, drawCall, jobs) : ScratchSize(entry, drawCall);
	u8 *const scratch = Scratch(scratchSize);
	if (m_OnFinding != null)
	{
		VX_PROFILE_SCOPE("Check the call");
		ValidateSort(m_Sorter, entry, scratch, scratchSize, m_OnFinding, m_FindingUserData, hasJobs ? &jobs : null);
	}
	if (hasJobs)
		RunSortInJobs(entry, scratch, scratchSize, jobs);
	else
		RunSort(entry, scratch);
	if (m_Capture != null)
		Capture(entry, drawCall, mappedIndices);
}

void CFrameSorter::RunSort(ESortEntry entry, u8 *scratch)
{
	if (entry == SortEntry_Triangles)
		m_Sorter.SortTriangles_AutogenIndices(scratch);
	else
		m_Sorter.SortPoints_AutogenIndices(scratch);
}

void CFrameSorter::RunSortInJobs(ESortEntry entry, u8 *scratch, u64 scratchSize, const SSortJobs &jobs)
{
	if (entry == SortEntry_Triangles)
		m_Sorter.SortTriangles_AutogenIndices(scratch, scratchSize, jobs);
	else
		m_Sorter.SortPoints_AutogenIndices(scratch, scratchSize, jobs);
}

// Mapped indices are not for reading: the same sort once more, on one thread, into ordinary memory at the same address
// modulo 16.
void CFrameSorter::Capture(ESortEntry entry, const SDrawCall &drawCall, u8 *mappedIndices)
{
	const u64 addressMod16 = reinterpret_cast<ureg>(mappedIndices + drawCall.m_OffsetInBytes) % kCallAlignment;
	std::vector<u8> output(addressMod16 + u64(drawCall.m_IndexCount) * BytesPerIndex(drawCall.m_IndexType));
	SetOutput(drawCall, output.data() + addressMod16);
	const u64 scratchSize = ScratchSize(entry, drawCall);
	RunSort(entry, Scratch(scratchSize));
	WriteSortCapture(m_Sorter, Scratch(scratchSize), scratchSize, SortCapture_InputAndOutput, AppendTo, m_Capture);
	m_Capture = null;
}

void CFrameSorter::SetOutput(const SDrawCall &drawCall, u8 *start)
{
	if (drawCall.m_IndexType == CTriangleSorter::IndexTypeUint16)
		m_Sorter.Setup_OutputIndexBuffer(
			TMemoryView<u16>(reinterpret_cast<u16 *>(start), drawCall.m_IndexCount), drawCall.m_VertexCount);
	else
		m_Sorter.Setup_OutputIndexBuffer(
			TMemoryView<u32>(reinterpret_cast<u32 *>(start), drawCall.m_IndexCount), drawCall.m_VertexCount);
}

void CFrameSorter::SetPages(const SFrame &frame, EOrder order, const SDrawCall &drawCall)
{
	const u32 first = drawCall.m_FirstPage;
	const u32 count = drawCall.m_PageCount;
	const CTriangleSorter::CEnabledPages enableds = frame.m_Enableds.Slice(first, count);
	const CTriangleSorter::CRenderedCounts rendered = frame.m_RenderedCounts.Slice(first, count);
	if (order == EOrder::ByPosition)
	{
		m_Sorter.Setup_InputPageCache(frame.m_Positions.Slice(first, count), enableds, rendered,
			drawCall.m_ParticleCount, frame.m_Camera.m_Position);
		return;
	}
	if (order == EOrder::ByProperty)
	{
		m_Sorter.Setup_InputPageCache(
			frame.m_SortValues.Slice(first, count), enableds, rendered, drawCall.m_ParticleCount);
		return;
	}
	const TMemoryView<const TStridedMemoryView<const float>> pages(m_ValuePages.data(), u32(m_ValuePages.size()));
	m_Sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(pages).Slice(first, count), enableds, rendered,
		drawCall.m_ParticleCount, frame.m_Camera.m_Position);
}

// Pages with and without disabled particles lie side by side here: values give all of them one order, positions do not.
void CFrameSorter::UpdateSortValues(const SFrame &frame)
{
	VX_PROFILE_SCOPE("Compute sort values");
	constexpr u32 kLanes = 4; // pages of values start at multiples of 16 bytes

	u32 size = 0;
	for (u32 page = 0; page < frame.m_Positions.Count(); ++page)
		size += (frame.m_Positions[page].Count() + kLanes - 1) / kLanes * kLanes;
	if (size > m_Values.size())
		m_Values.resize(size);
	m_ValuePages.resize(frame.m_Positions.Count());

	float *next = m_Values.data();
	for (u32 page = 0; page < frame.m_Positions.Count(); ++page)
	{
		const u32 count = frame.m_Positions[page].Count();
		const TMemoryView<float> values(next, count);
		ComputeSortValues(values, frame.m_Positions[page], frame.m_Camera.m_Position);
		m_ValuePages[page] = TStridedMemoryView<const float>(values);
		next += (count + kLanes - 1) / kLanes * kLanes;
	}
	if (m_KeyBits < 32)
		ShortenSortValues(frame);
}

// As common viewers of splats shorten their keys: the distances between the nearest and the farthest particle are cut
// into equal steps, and the numbers of the steps are the values. Step 0 is the farthest.
void CFrameSorter::ShortenSortValues(const SFrame &frame)
{
	float least = std::numeric_limits<float>::max();
	float greatest = 0.0f;
	for (u32 page = 0; page < m_ValuePages.size(); ++page)
		for (u32 i = 0; i < m_ValuePages[page].Count(); ++i)
			if (IsRendered(frame, page, i))
			{
				least = std::min(least, DistanceOf(m_ValuePages[page][i]));
				greatest = std::max(greatest, DistanceOf(m_ValuePages[page][i]));
			}
	const double mostStep = double((u64(1) << m_KeyBits) - 1);
	const double stepsPerUnit = greatest > least ? mostStep / (double(greatest) - double(least)) : 0.0;
	for (float &value : m_Values)
		value =
			std::floor(float(std::clamp((double(greatest) - double(DistanceOf(value))) * stepsPerUnit, 0.0, mostStep)));
}

void CFrameSorter::SetThreadCount(u32 threadCount)
{
	m_ThreadCount = threadCount;
	const bool isAtHand = m_Threads != null && m_Threads->ThreadCount() == threadCount;
	if (threadCount > 1 && !isAtHand)
		m_Threads = std::make_unique<CThreadPool>(threadCount);
}

void CFrameSorter::SetFindingHandler(CbSortFinding handler, void *userData)
{
	m_OnFinding = handler;
	m_FindingUserData = userData;
}

CbSortFinding CFrameSorter::DefaultFindingHandler()
{
#if VX_ASSERTIONS
	return [](const SSortFinding &finding, void *)
	{
		if (finding.m_Kind == SortFinding_Violation)
			std::fprintf(stderr, "sort: %s\n", finding.m_Sentence);
	};
#else
	return null;
#endif
}

u8 *CFrameSorter::Scratch(u64 sizeInBytes)
{
	if (sizeInBytes > m_Scratch.size())
		m_Scratch.resize(sizeInBytes);
	return m_Scratch.data();
}
} // namespace Viewer
