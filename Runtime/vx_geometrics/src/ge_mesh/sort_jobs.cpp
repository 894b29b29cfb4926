// How one sort is shared out among a host's jobs, top down: the entry points, and the memory that they need; the two
// sorts; what they check before they start; shares of the pages; the fill; the sort and the output. A sort by several
// jobs, in the order of time:
//
//   this thread   | share pages |      |       | make parts |         |                | seams |
//   the jobs      |             | fill | count |            | scatter | sort and write |       |
//                                      '-- for each part that is split -'
//
// Between two runs of jobs this thread works alone, so what it does there is kept short: pages are looked at and not
// filled, digits are summed up and not counted.

#include "kr_log_unique.h"
#include "kr_mem.h"
#include "kr_profiler.h"
#include "kr_sort.h"

#include "include/pv_expand_quads.h"
#include "include/pv_fill_groups.h"
#include "include/pv_fill_records.h"
#include "include/pv_float_mode.h"
#include "include/pv_mesh_triangle_sorter.h"
#include "include/pv_sort_jobs.h"
#include "include/pv_sort_scan.h"
#include "include/pv_triangles.h"
#include "include/pv_two_digit_sort.h"

#include <algorithm>
#include <utility>

namespace Vexmoor
{
// A job takes a few microseconds to be handed out and waited for; this many records take some sixty.
constexpr u32 kMinRecordsPerJob = VEXMOOR_MIN_RECORDS_PER_JOB;

// One job alone sorts in two passes what fits its core's caches, where the sort without jobs has three, and splits what
// lies beyond them first. Keys that are too wide for two passes are split earlier. With fewer records or small pages,
// that does not pay for looking at pages and keys before. Records among which equal keys have the quick sort's order
// are sorted without jobs.
constexpr u32 kMinRecordCount = std::max<u32>(VEXMOOR_MIN_RECORDS_OF_ONE_JOB, kMaxQuickSortCount + 1);
constexpr u32 kMinPageSizeOfOneJob = VEXMOOR_MIN_PAGE_SIZE_OF_ONE_JOB;
constexpr u32 kMinSplitByOneJob = VEXMOOR_MIN_SPLIT_BY_ONE_JOB;
constexpr u32 kMinSplitOfWideKeys = VEXMOOR_MIN_SPLIT_OF_WIDE_KEYS;

// If all keys share the radix sort's top digit, that sort has two passes, too. Up to this count it takes 0.95 of the
// time that one job takes with a split.
constexpr u32 kMinSplitOfOneTopDigit = 2 * kMinSplitByOneJob;

// Wider keys crowd in few of a split's leading digits: at 300,000 records, a split took 1.2 times as long as the radix
// sort.
constexpr u32 kMaxBitsToSplit = 28;

// Large pages are filled in pieces of this many particles, whose keys are looked at while they are in a first-level
// cache. Pages with disabled particles are filled at once, since what they compact lies in the records' upper half.
constexpr u32 kMaxFilledAtOnce = VEXMOOR_MAX_FILLED_AT_ONCE;

// The entry points.

// Checks what both are given, hands a working buffer to sort, and gives it back if it was allocated here.
template<typename _Sort>
static void SortWithJobs(void *workingBuffer,
	u64 workingBufferSize,
	u64 neededSize,
	[[maybe_unused]] const SSortJobs &jobs, // that assertions look at
	const _Sort &sort)
{
	VX_ASSERT(jobs.m_Run != null && jobs.m_MaxJobCount != 0);
	void *locallyAllocatedBuffer = null;
	if (workingBuffer == null)
	{
		VX_ASSERT(workingBufferSize == 0);
		locallyAllocatedBuffer = VX_ALLOC_GENERIC(neededSize);
		if (locallyAllocatedBuffer == null)
			return;
		workingBuffer = locallyAllocatedBuffer;
	}
	else if (!VX_VERIFY(workingBufferSize >= neededSize))
	{
		return;
	}

	sort(workingBuffer);

	if (locallyAllocatedBuffer != null)
		Mem::_FreeGeneric(locallyAllocatedBuffer);
}

void CTriangleSorter::SortPoints_AutogenIndices(void *workingBuffer, u64 workingBufferSize, const SSortJobs &jobs)
{
	SortWithJobs(workingBuffer, workingBufferSize, GetJobsWorkingBufferSize(m_ParticleCount, jobs.m_MaxJobCount), jobs,
		[&](void *memory)
		{
			const u64 sizeWithoutJobs = _PointWorkingBufferSize(m_ParticleCount);
			if (!CSortJobs::MayShare(memory, m_ParticleCount) ||
				!CSortJobs(*this, memory, sizeWithoutJobs, m_ParticleCount, jobs).SortPoints())
				SortPoints_AutogenIndices(memory);
		});
}

void CTriangleSorter::SortTriangles_AutogenIndices(void *workingBuffer, u64 workingBufferSize, const SSortJobs &jobs)
{
	const u64 neededSize = GetJobsWorkingBufferSize_tri(m_IndexCount_fromBB, jobs.m_MaxJobCount);
	SortWithJobs(workingBuffer, workingBufferSize, neededSize, jobs,
		[&](void *memory)
		{
			const u64 sizeWithoutJobs = _TriangleWorkingBufferSize(m_IndexCount_fromBB);
			const u32 triangleCount = m_IndexCount_fromBB / 3;
			if (!CSortJobs::MayShare(memory, triangleCount) ||
				!CSortJobs(*this, memory, sizeWithoutJobs, triangleCount, jobs).SortTriangles())
				SortTriangles_AutogenIndices(memory);
		});
}

u64 CTriangleSorter::GetJobsWorkingBufferSize(u32 particleCount, u32 maxJobCount)
{
	return _PointWorkingBufferSize(particleCount) + CSortJobs::MemorySize(particleCount, maxJobCount);
}

u64 CTriangleSorter::GetJobsWorkingBufferSize_tri(u32 indexCount, u32 maxJobCount)
{
	return _TriangleWorkingBufferSize(indexCount) + CSortJobs::MemorySize(indexCount / 3, maxJobCount);
}

// The memory of jobs, and when they are worth it.

u64 CSortJobs::MemorySize(u32 recordCount, u32 maxJobCount)
{
	const u32 jobCount = CJobs::CountFor(recordCount, kMinRecordsPerJob, maxJobCount);
	if (recordCount < kMinRecordCount)
		return 0;
	return CSplitSort::MemorySize(
		std::max<u64>(u64(jobCount) * CSplitSort::kCountersPerJob, TwoDigitWordCount(recordCount)));
}

bool CSortJobs::MayShare(const void *workingBuffer, u32 recordCount)
{
	return recordCount >= kMinRecordCount && Mem::IsAligned<0x10>(workingBuffer);
}

CSortJobs::CSortJobs(
	const CTriangleSorter &sorter, void *workingBuffer, u64 sizeWithoutJobs, u32 recordCount, const SSortJobs &jobs)
	: m_Sorter(sorter)
	, m_Jobs(jobs)
	, m_JobCount(m_Jobs.CountFor(recordCount, kMinRecordsPerJob))
	, m_RecordCount(recordCount)
	, m_Sorted(static_cast<SIndexAndDepth *>(workingBuffer))
	, m_Filled(m_Sorted + (ureg(recordCount) + 1) / 2 * 2)
	, m_Memory(reinterpret_cast<CSplitSort::SMemory *>(static_cast<u8 *>(workingBuffer) + ureg(sizeWithoutJobs)))
	, m_SortsTriangles(sorter.m_GeometryType == CSorter::GeometryPerPage)
	, m_FilledCount(recordCount)
	, m_Split(m_Jobs, m_JobCount, m_Filled, m_Sorted, recordCount, *m_Memory)
{
	std::fill_n(m_Shares, m_JobCount + 1, SShare{});
}

// Runs what warns, and returns how many hazards that has counted. They are taken back from this thread, since they
// belong to those that do the work.
template<typename _Warn>
static u32 HazardsOf(const _Warn &warn)
{
	u32 &hazards = Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards;
	const u32 before = hazards;
	warn();
	return std::exchange(hazards, before) - before;
}

// What a job is while it works: silent, and charged with the hazards that it has been given.
class CJobScope
{
public:
	explicit CJobScope(u32 hazardCount)
	{
		Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards += hazardCount;
	}

private:
	const CWarningBatch m_Silence{CWarningBatch::Mode_Silent};
};

// The scopes of jobs that write. The first one is charged with the hazards of the output.
static auto ScopesOfJobs(u32 hazardCount)
{
	return [=](u32 job) { return CJobScope(job == 0 ? hazardCount : 0); };
}

// Points.

bool CSortJobs::SortPoints()
{
	if (!_PaysForOneJob() || !_PointsAreSound())
		return false;
	if (m_Sorter.m_GeometryType == CSorter::GeometryConstant)
		m_FilledCount = m_Sorter._ValidParticleCount(0, m_RecordCount);
	const bool byPosition = m_Sorter.m_SortType == CSorter::SortByPosition;
	if (m_FilledCount == 0 || !(byPosition ? _SharePages(m_Sorter.m_InPositions) : _SharePages(m_Sorter.m_InSortKeys)))
		return false;

	{
		VX_PROFILE_SCOPE_COLOR("CTriangleSorter::FillSource", CFloat3(0.5f, 0.08f, 0.9f));
		if (byPosition)
			_FillPoints(m_Sorter.m_InPositions, m_Sorter.m_CameraPosition);
		else
			_FillPoints(m_Sorter.m_InSortKeys);
	}
	{
		VX_PROFILE_SCOPE_COLOR("CTriangleSorter::Sort", CFloat3(0.2f, 0.08f, 0.9f));
		_Split();
	}
	if (m_Sorter.m_IndexType == CSorter::IndexTypeUint32)
		_WritePoints(m_Sorter.m_OutIndices32.Data());
	else
		_WritePoints(m_Sorter.m_OutIndices16.Data());
	return true;
}

// Writes the pattern of each sorted record. If the output has room for fewer, the first records, which are the
// farthest, are skipped. Warnings are made before the jobs run, by a call of the same worker for no records: what it
// counts as hazards is charged to the thread of the first job, which writes the first records.
template<typename _Index>
void CSortJobs::_WritePoints(_Index *indices)
{
	constexpr bool k16 = sizeof(_Index) == sizeof(u16);
	const TMemoryView<const u32> pattern = m_Sorter.m_IndexPattern;
	const u32 width = pattern.Count();
	const u32 writeCount = std::min(m_RecordCount, m_Sorter.m_IndexCount / width);
	const u32 skippedCount = CSorter::_FirstWrittenRecord(m_RecordCount, writeCount);
	const SIndexAndDepth *const records = m_Split.Sorted() + skippedCount;
	if (m_Sorter.m_GeometryType == CSorter::GeometryConstantAndIndexListAndQuadCenters)
	{
		VX_PROFILE_SCOPE_COLOR(
			k16 ? "ExpandAndSortIndices<u16>" : "ExpandAndSortIndices<u32>", CFloat3(0.1f, 0.6f, 0.9f));
		const u32 hazardCount = writeCount == 0 ? 0 : HazardsOf([&] { CSorter::_WarnOfQuads(m_Sorter.m_IndexType); });
		m_Split.SortAndWrite(skippedCount, writeCount, ScopesOfJobs(hazardCount),
			[&](u32 first, u32 count)
			{
				ExpandWithSortedQuads<_Index>(pattern, m_Sorter.m_QuadCenters, m_Sorter.m_CameraPosition,
					records + first, indices + u64(first) * width, count, m_Sorter.m_PrimiteVertexCount);
			});
		return;
	}
	VX_PROFILE_SCOPE_COLOR(k16 ? "ExpandIndices<u16>" : "ExpandIndices<u32>", CFloat3(0.1f, 0.5f, 0.9f));
	const bool isSilent = k16 && writeCount == 0;
	const EIndexStores stores = m_Sorter._StoresOfOutput();
	const u32 hazardCount =
		isSilent ? 0 : HazardsOf([&] { CSorter::_ExpandByWidth(pattern, records, indices, 0, stores); });
	m_Split.SortAndWrite(skippedCount, writeCount, ScopesOfJobs(hazardCount),
		[&](u32 first, u32 count)
		{ CSorter::_ExpandByWidth(pattern, records + first, indices + u64(first) * width, count, stores); });
}

// Triangles.

bool CSortJobs::SortTriangles()
{
	if (!_PaysForOneJob() || !m_SortsTriangles || m_Sorter.m_IndexCount_fromBB % 3 != 0)
		return false;
	if (m_Sorter.m_IndexType == CSorter::IndexTypeUint32)
		return _SortTriangles(m_Sorter.m_OutIndices32.Data());
	if (m_Sorter.m_IndexType == CSorter::IndexTypeUint16)
		return _SortTriangles(m_Sorter.m_OutIndices16.Data());
	return false;
}

// The working buffer is that of the sort without jobs: two arrays of records, and behind them the unsorted triangles.
// Jobs fill both by pages, a particle's triangles where its number says, so no job waits for another one's.
template<typename _Index>
bool CSortJobs::_SortTriangles(_Index *indices)
{
	_Index *const triangles = reinterpret_cast<_Index *>(m_Filled + (ureg(m_RecordCount) + 1) / 2 * 2);
	const bool byPosition = m_Sorter.m_SortType == CSorter::SortByPosition;
	if (!byPosition && m_Sorter.m_SortType != CSorter::SortByFloat)
		return false;
	if (!(byPosition ? _SharePages(m_Sorter.m_InPositions) : _SharePages(m_Sorter.m_InSortKeys)))
		return false;

	{
		VX_PROFILE_SCOPE_COLOR("FillSortingIndirectionsListPoint_NoIndices_And_Expand", CFloat3(0.5f, 0.08f, 0.9f));
		if (byPosition)
			_FillTriangles(triangles, m_Sorter.m_InPositions, m_Sorter.m_CameraPosition);
		else
			_FillTriangles(triangles, m_Sorter.m_InSortKeys);
		WriteMissingTriangles(m_Filled, triangles, m_FilledCount, m_RecordCount);
	}
	{
		VX_PROFILE_SCOPE_COLOR("Sort", CFloat3(0.2f, 0.08f, 0.9f));
		_Split();
	}

	VX_PROFILE_SCOPE_COLOR("ApplySortingToIndices", CFloat3(0.0f, 0.08f, 0.9f));
	const TMemoryView<const _Index> unsorted(triangles, m_Sorter.m_IndexCount_fromBB);
	const u32 writeCount = std::min(m_RecordCount, m_Sorter.m_IndexCount / 3);
	const u32 skippedCount = m_RecordCount - writeCount;
	m_Split.SortAndWrite(skippedCount, writeCount, ScopesOfJobs(0),
		[&](u32 first, u32 count)
		{
			const CRecordList records(m_Split.Sorted() + skippedCount + first, count);
			ApplyToTriangles(records, unsorted, indices + u64(first) * 3, count);
		});
	return true;
}

// One job alone.

bool CSortJobs::_PaysForOneJob() const
{
	return m_JobCount != 1 || ((_IsNotSplit() || m_RecordCount >= kMinSplitByOneJob) &&
								  m_Sorter.m_InRenderedParticleCounts.Count() <= m_RecordCount / kMinPageSizeOfOneJob);
}

// Whether one job sorts all records without splitting them, unless their keys turn out to be too wide for two passes.
bool CSortJobs::_IsNotSplit() const
{
	constexpr SKeySpan kNarrowest = {0, 0};
	return m_JobCount == 1 && m_RecordCount < kMinSplitByOneJob && _TwoPassesFor(kNarrowest) != null;
}

CbSortOfSpan CSortJobs::_TwoPassesFor(const SKeySpan &span) const
{
	return TwoPassesFor(span, m_RecordCount, _IndexEnd(), _IndexStep());
}

// What the indices of all records are below, and what they are multiples of.
u32 CSortJobs::_IndexEnd() const
{
	return m_SortsTriangles ? m_RecordCount : m_Sorter.m_VertexCount;
}
u32 CSortJobs::_IndexStep() const
{
	return m_Sorter.m_GeometryType == CSorter::GeometryConstant ? m_Sorter.m_PrimiteVertexCount : 1;
}

// Looks at the keys of particles that have just been filled, and returns their span. One job alone stops looking where
// it sees that they are not for two passes, which the first page tells for all pages.
SKeySpan CSortJobs::_LookAt(const SIndexAndDepth *particles, u32 count)
{
	if (!_IsNotSplit())
		return SpanOf(particles, count);
	if (particles == m_Filled)
	{
		const SKeySample sample = SKeySample::Of(particles, count);
		const bool isWide = sample.m_Span.m_Lowest < sample.m_Span.m_Highest && _TwoPassesFor(sample.m_Span) == null;
		m_SortsInTwoPasses = !isWide && !sample.HasEqualDigits();
	}
	if (!m_SortsInTwoPasses && m_RecordCount < kMinSplitOfWideKeys)
		return {0, ~0u};
	const SKeySpan span = SpanOf(particles, count);
	m_SortsInTwoPasses = m_SortsInTwoPasses && _TwoPassesFor(span) != null;
	return span;
}

// What is checked first: that nothing of the sort has anything to report, nor reads beyond what it is given.

bool CSortJobs::_PointsAreSound() const
{
	const u32 width = m_Sorter.m_IndexPattern.Count();
	const bool hasIndexType =
		m_Sorter.m_IndexType == CSorter::IndexTypeUint16 || m_Sorter.m_IndexType == CSorter::IndexTypeUint32;
	const bool hasSortType =
		m_Sorter.m_SortType == CSorter::SortByPosition || m_Sorter.m_SortType == CSorter::SortByFloat;
	if (!hasIndexType || !hasSortType || m_Sorter.m_InRenderedParticleCounts.Empty() || width == 0 ||
		(width == 1 && m_Sorter.m_IndexPattern[0] != 0))
		return false;
	// Beyond 32 bits the sort without jobs writes nothing, or not all: kept on purpose.
	const u32 writeCount = std::min(m_RecordCount, m_Sorter.m_IndexCount / width);
	if (u64(writeCount) * width > ~0u || CSorter::_FirstWrittenRecord(m_RecordCount, writeCount) >= m_RecordCount)
		return false;

	if (m_Sorter.m_GeometryType == CSorter::GeometryConstant)
		return m_Sorter.m_PrimiteVertexCount != 0;
	if (m_Sorter.m_IndexList.Data() == null || m_Sorter.m_IndexList.Count() < m_RecordCount)
		return false;
	return m_Sorter.m_GeometryType == CSorter::GeometryConstantAndIndexList || _QuadsAreSound();
}

bool CSortJobs::_QuadsAreSound() const
{
	if (m_Sorter.m_GeometryType != CSorter::GeometryConstantAndIndexListAndQuadCenters)
		return false;
	const u32 quadCount = m_Sorter.m_IndexPattern.Count() / kIndicesPerQuad;
	const u32 verticesPerParticle = m_Sorter.m_PrimiteVertexCount;
	if (quadCount == 0)
		return true;
	if (quadCount >= kQuadSlotsPerParticle || verticesPerParticle == 0)
		return false;
	const u32 lastVertex = std::max(m_Sorter.m_VertexCount, 1u) - 1;
	const u64 readCount = u64(lastVertex / verticesPerParticle) * kQuadSlotsPerParticle + quadCount;
	return m_Sorter.m_QuadCenters.Data() != null && readCount <= m_Sorter.m_QuadCenters.Count();
}

// Of a triangle sort.
bool CSortJobs::_PagesAgree(u32 pageCount) const
{
	return m_Sorter.m_InEnableds.Count() == pageCount && m_Sorter.m_IndexPatternCollection.Count() == pageCount &&
	       m_Sorter.m_InRenderedParticleCounts.Count() == pageCount &&
	       m_Sorter.m_PrimiteVertexCountCollection.Count() == pageCount;
}

// Pages, which points and triangles have in common: a particle is one record or several.

u32 CSortJobs::_RecordsPerParticle(const SPage &page) const
{
	return m_SortsTriangles ? m_Sorter.m_IndexPatternCollection[page.m_Id].Count() / 3 : 1;
}

u32 CSortJobs::_VerticesPerParticle(const SPage &page) const
{
	return m_SortsTriangles ? m_Sorter.m_PrimiteVertexCountCollection[page.m_Id] : m_Sorter.m_PrimiteVertexCount;
}

// Counts the particles of the page that are drawn: as far as there are records, or vertices.
void CSortJobs::_Enter(SPage &page) const
{
	const u32 renderedCount = m_Sorter.m_InRenderedParticleCounts[page.m_Id];
	if (renderedCount == 0)
		page.m_ParticleCount = 0;
	else if (m_SortsTriangles)
		page.m_ParticleCount =
			std::min(renderedCount, (m_Sorter.m_VertexCount - page.m_FirstVertex) / _VerticesPerParticle(page));
	else
		page.m_ParticleCount = std::min(renderedCount, m_FilledCount - page.m_FirstRecord);
}

VX_WRAPS void CSortJobs::_Leave(SPage &page) const
{
	if (page.m_ParticleCount != 0)
	{
		page.m_FirstRecord += page.m_ParticleCount * _RecordsPerParticle(page);
		page.m_FirstVertex += page.m_ParticleCount * _VerticesPerParticle(page);
	}
	++page.m_Id;
}

// A page's positions or values, and how the fill takes them.
template<typename _Element>
struct TPageSource
{
	TStridedMemoryView<const _Element> m_Elements;
	CEnableds m_Enableds;
	bool m_IsCompacted;

	// Pages at other strides are warned of, unless compaction packs their values first.
	bool IsSlow() const { return !m_IsCompacted && HasUncommonStride(m_Elements); }

	// Moves an offset on by enabled particles. Returns false where the page ends before.
	bool Skip(u32 enabledCount, u32 &offset) const
	{
		return SkipNonZero(m_Enableds.Data(), m_Enableds.Count(), enabledCount, offset);
	}

	// The last place before a particle where the page may be cut. Groups of four stay whole, since their records are
	// not stored in order. By distance they start at a multiple of 16 bytes, so one record may come before them.
	u32 CutBefore(u32 particle, u32 firstRecord) const
	{
		constexpr bool kByDistance = sizeof(_Element) == sizeof(CFloat3);
		const u32 alone = kByDistance && !m_IsCompacted ? firstRecord % kRecordsPerAccess : 0;
		return particle < alone ? 0 : particle - (particle - alone) % kRecordsPerGroup;
	}
};

// Only the last page of points is cut, by the vertex count. Whether it is compacted depends on where its last drawn
// particle lies: there may be no disabled one before. A triangle sort compacts by the number of particles alone.
bool CSortJobs::_IsCut(const SPage &page) const
{
	return !m_SortsTriangles && page.m_ParticleCount != m_Sorter.m_InRenderedParticleCounts[page.m_Id];
}

template<typename _Element>
TPageSource<_Element> CSortJobs::_SourceOf(const TPages<_Element> &pages, const SPage &page) const
{
	const TStridedMemoryView<const _Element> elements = pages[page.m_Id];
	const CEnableds enableds = m_Sorter.m_InEnableds[page.m_Id];
	const bool hasDisabled = !enableds.Empty() && page.m_ParticleCount < elements.Count();
	return {elements, enableds, _IsCut(page) ? m_CutPageIsCompacted : hasDisabled};
}

// Whether the fill of a page reports nothing, and reads nothing beyond the page.
template<typename _Element>
bool CSortJobs::_IsSound(const TPages<_Element> &pages, const SPage &page)
{
	if (page.m_Id >= pages.Count() || page.m_Id >= m_Sorter.m_InEnableds.Count())
		return false;
	m_CutPageIsCompacted = false;
	const TPageSource<_Element> source = _SourceOf(pages, page);
	const u32 elementCount = source.m_Elements.Count();
	const u32 stride = source.m_Elements.Stride();
	if (source.m_Elements.Data() == null || page.m_ParticleCount > elementCount || u64(stride) * elementCount > ~0u ||
		(HasUncommonStride(source.m_Elements) && stride < sizeof(_Element)))
		return false;
	if (source.m_Enableds.Empty())
		return true;
	const u32 offeredCount = _IsCut(page) ? m_Sorter.m_InRenderedParticleCounts[page.m_Id] : page.m_ParticleCount;
	if (source.m_Enableds.Count() != elementCount || !source.m_Enableds.Contiguous() || offeredCount > elementCount)
		return false;
	if (_IsCut(page) && offeredCount != elementCount)
	{
		u32 behindLast = 0;
		if (!source.Skip(page.m_ParticleCount, behindLast))
			return false;
		m_CutPageIsCompacted = page.m_ParticleCount < behindLast;
	}
	return true;
}

// Goes to a page and counts its particles that are drawn, as a triangle sort does. Geometry of the page that is
// reported makes its pages unsound.
CSortJobs::EPageState CSortJobs::_EnterTriangles(SPage &page, bool sourceIsEmpty) const
{
	const u32 width = m_Sorter.m_IndexPatternCollection[page.m_Id].Count();
	const bool isRendered = m_Sorter.m_InRenderedParticleCounts[page.m_Id] != 0;
	page.m_ParticleCount = 0;
	if (isRendered && (sourceIsEmpty || width % 3 != 0 || width < 3))
		return PageState_Unsound;
	if (u64(page.m_FirstVertex) + _VerticesPerParticle(page) > m_Sorter.m_VertexCount)
		return PageState_NoRoom;
	if (isRendered && _VerticesPerParticle(page) == 0)
		return PageState_Unsound;
	_Enter(page);
	return PageState_Entered;
}

// Shares out the pages among the jobs, by records. Behind the last share stands where the pages end. Returns false
// where the fill has something to report.
template<typename _Element>
bool CSortJobs::_SharePages(const TPages<_Element> &pages)
{
	if (m_SortsTriangles && !_PagesAgree(pages.Count()))
		return false;
	const u32 pageCount = m_Sorter.m_InRenderedParticleCounts.Count();
	u32 job = 0; // the next one whose share has no beginning yet
	const auto nextCut = [&]
	{ return job < m_JobCount ? u64(FirstUnitOfJob(m_FilledCount, job, m_JobCount)) : ~u64(0); };
	SPage page = {};
	for (; m_SortsTriangles ? page.m_Id != pageCount : page.m_FirstRecord < m_FilledCount; _Leave(page))
	{
		if (page.m_Id == pageCount)
			return false;
		if (m_SortsTriangles)
		{
			const EPageState state = _EnterTriangles(page, pages[page.m_Id].Empty());
			if (state == PageState_Unsound)
				return false;
			if (state == PageState_NoRoom)
				break; // this page and all later ones are dropped
		}
		else
		{
			_Enter(page);
		}
		if (page.m_ParticleCount == 0)
			continue;

		const u64 stopRecord = page.m_FirstRecord + u64(page.m_ParticleCount) * _RecordsPerParticle(page);
		if (stopRecord > m_FilledCount || !_IsSound(pages, page))
			return false;
		const TPageSource<_Element> source = _SourceOf(pages, page);
		const bool isOff = m_SortsTriangles && page.m_FirstRecord % kRecordsPerAccess != 0;
		if (VX_ASSERTIONS && isOff)
			return false; // records off a multiple of 16 bytes are reported

		// Shares that begin with the page.
		for (; nextCut() <= page.m_FirstRecord; ++job)
			m_Shares[job].m_Page = page;
		m_Shares[job - 1].m_HazardCount += source.IsSlow();

		// Triangles are cut where the expansion's blocks are. With indices beyond 16 bits, what a block writes depends
		// on where it starts.
		const u32 perCut = !m_SortsTriangles                                           ? 1
		                   : isOff && m_Sorter.m_IndexType == CSorter::IndexTypeUint16 ? ~0u
		                                                                               : kRecordsPerSeam;
		// Shares that begin inside the page. With disabled particles, where the next enabled ones lie is counted up
		// from the cut before.
		u32 cut = 0;
		u32 offset = 0;
		for (; nextCut() < stopRecord; ++job)
		{
			const u32 particle = (u32(nextCut()) - page.m_FirstRecord) / _RecordsPerParticle(page);
			const u32 next = source.CutBefore(particle - particle % perCut, page.m_FirstRecord);
			if (!source.m_IsCompacted)
				offset = next;
			else if (!source.Skip(next - cut, offset))
				return false;
			cut = next;
			SShare &share = m_Shares[job];
			share.m_Page = page;
			share.m_FirstParticle = cut;
			share.m_OffsetInPage = offset;
		}
	}
	page.m_ParticleCount = 0;
	for (; job <= m_JobCount; ++job)
		m_Shares[job].m_Page = page;
	m_FilledCount = page.m_FirstRecord;
	return m_FilledCount != 0;
}

// The fill.

// Writes records of a page, the first one for the particle at an offset. It is the fill of one page (FillByValue and
// FillByDistance in mesh_triangle_sorter.cpp) for a part of the page.
template<typename _VertexBases>
static void FillPart(
	const CRecordList &records, const TPageSource<float> &source, u32 offset, const _VertexBases &vertexBases)
{
	if (source.m_IsCompacted)
		WriteRecordsOfEnabled(records, source.m_Elements.Slice(offset), source.m_Enableds.Slice(offset),
			SSortValues_Given(), vertexBases);
	else
		WriteRecordsByValue(records, source.m_Elements.Slice(offset, records.Count()), vertexBases);
}

template<typename _VertexBases>
static void FillPart(const CRecordList &records,
	const TPageSource<CFloat3> &source,
	u32 offset,
	const CFloat3 &cameraPosition,
	_VertexBases vertexBases)
{
	const CFloatModeScope floatMode;
	const CCamera camera(cameraPosition);
	if (source.m_IsCompacted)
		return WriteRecordsOfEnabled(records, source.m_Elements.Slice(offset), source.m_Enableds.Slice(offset),
			SSortValues_Distance{camera}, vertexBases);
	const u32 stride = source.m_Elements.Stride();
	const u8 *positions = reinterpret_cast<const u8 *>(source.m_Elements.Data()) + ureg(offset) * stride;
	SIndexAndDepth *record = records.Data();
	u32 left = records.Count();
	if (!Mem::IsAligned<0x10>(record))
	{
		FillOneByDistance(record++, positions, camera, vertexBases);
		positions += stride;
		--left;
	}
	WriteRecordsByDistance(record, positions, stride, left, camera, vertexBases);
}

// Calls fillPart(page, first, count, offset) for each page's part of a share, and keeps the span of its keys.
template<typename _FillPart>
void CSortJobs::_FillShare(u32 job, const _FillPart &fillPart)
{
	SShare &share = m_Shares[job];
	const SShare &stop = m_Shares[job + 1];
	const CJobScope scope(share.m_HazardCount);
	SPage page = share.m_Page;
	u32 first = share.m_FirstParticle;
	u32 offset = share.m_OffsetInPage;
	SKeySpan span;
	const auto isLeft = [&]
	{ return page.m_Id < stop.m_Page.m_Id || (page.m_Id == stop.m_Page.m_Id && first < stop.m_FirstParticle); };
	while (isLeft())
	{
		const u32 end = page.m_Id == stop.m_Page.m_Id ? stop.m_FirstParticle : page.m_ParticleCount;
		if (first < end)
			span = span.With(fillPart(page, first, end - first, offset));
		_Leave(page);
		first = offset = 0;
		if (isLeft())
			_Enter(page);
	}
	share.m_LowestKey = span.m_Lowest;
	share.m_HighestKey = span.m_Highest;
}

template<typename _Element, typename... _Camera>
void CSortJobs::_FillPoints(const TPages<_Element> &pages, const _Camera &...camera)
{
	HazardsOf(
		[&]
		{
			const CWarningBatch warnings;
			for (u32 job = 0; job < m_JobCount; ++job)
			{
				for (u32 i = 0; i < m_Shares[job].m_HazardCount; ++i)
					m_Sorter._WarnOfStride();
			}
		});
	const bool hasList = m_Sorter.m_GeometryType != CSorter::GeometryConstant;
	const u32 increment = m_Sorter.m_PrimiteVertexCount;
	const auto fillPart = [&](const SPage &page, u32 first, u32 count, u32 offset)
	{
		const TPageSource<_Element> source = _SourceOf(pages, page);
		const u32 stop = first + count;
		SKeySpan span;
		while (first != stop)
		{
			const u32 end = source.m_IsCompacted || stop - first <= kMaxFilledAtOnce
			                    ? stop
			                    : source.CutBefore(first + kMaxFilledAtOnce, page.m_FirstRecord);
			const u32 record = page.m_FirstRecord + first;
			const CRecordList records(m_Filled + record, end - first);
			if (hasList)
				FillPart(records, source, offset, camera...,
					CVertexBases_List(m_Sorter.m_IndexList.Data() + record, m_Sorter.m_VertexCount));
			else
				FillPart(records, source, offset, camera...,
					CVertexBases_Sequence(page.m_FirstVertex + first * increment, increment));
			span = span.With(_LookAt(records.Data(), records.Count()));
			offset += end - first;
			first = end;
		}
		return span;
	};
	m_Jobs.Run(m_JobCount, [&](u32 job) { _FillShare(job, fillPart); });
	FillFarRecords(CRecordList(m_Filled, m_RecordCount), m_FilledCount, m_RecordCount);
}

// Warns of pages, reports them and enters their scopes, page by page as the sort without jobs does: each step is called
// for no particles.
template<typename _Index, typename _Element>
void CSortJobs::_TellOfPages(_Index *triangles, const TPages<_Element> &pages)
{
	const CWarningBatch warnings;
	const EIndexStores stores = StoresOfUnsorted<_Index>(m_Sorter.m_IndexCount_fromBB);
	const SPage &stop = m_Shares[m_JobCount].m_Page;
	u32 job = 0;
	for (SPage page = {}; page.m_Id < stop.m_Id; _Leave(page))
	{
		_Enter(page);
		if (page.m_ParticleCount == 0)
			continue;
		for (; job + 1 < m_JobCount; ++job)
		{
			const SShare &next = m_Shares[job + 1];
			if (next.m_Page.m_Id > page.m_Id || (next.m_Page.m_Id == page.m_Id && next.m_FirstParticle != 0))
				break;
		}
		if (_SourceOf(pages, page).IsSlow())
			HazardsOf([&] { m_Sorter._WarnOfStride(); }); // counted when pages were shared out
		const CRecordList records(m_Filled + page.m_FirstRecord, 0);
		m_Shares[job].m_HazardCount += HazardsOf(
			[&]
			{
				VX_PROFILE_SCOPE_COLOR(sizeof(_Index) == sizeof(u16) ? "ExpandIndices<u16>" : "ExpandIndices<u32>",
					CFloat3(0.1f, 0.5f, 0.9f));
				CSorter::_ExpandByWidth(m_Sorter.m_IndexPatternCollection[page.m_Id], records.Data(),
					triangles + ureg(page.m_FirstRecord) * 3, 0, stores);
			});
		CSorter::ExpandSortingIndirectionsListPoints_Triangles(
			records, 0, _RecordsPerParticle(page), page.m_FirstRecord);
	}
}

template<typename _Index, typename _Element, typename... _Camera>
void CSortJobs::_FillTriangles(_Index *triangles, const TPages<_Element> &pages, const _Camera &...camera)
{
	_TellOfPages(triangles, pages);
	const EIndexStores stores = StoresOfUnsorted<_Index>(m_Sorter.m_IndexCount_fromBB);
	const auto fillPart = [&](const SPage &page, u32 first, u32 count, u32 offset)
	{
		const TPageSource<_Element> source = _SourceOf(pages, page);
		const u32 vertexCount = _VerticesPerParticle(page);
		const u32 recordsPerParticle = _RecordsPerParticle(page);
		const u32 firstTriangle = page.m_FirstRecord + first * recordsPerParticle;
		SIndexAndDepth *const particles = m_Filled + page.m_FirstRecord + first;
		FillPart(CRecordList(particles, count), source, offset, camera...,
			CVertexBases_Sequence(page.m_FirstVertex + first * vertexCount, vertexCount));
		const SKeySpan span = _LookAt(particles, count);
		CSorter::_ExpandByWidth(m_Sorter.m_IndexPatternCollection[page.m_Id], particles,
			triangles + ureg(firstTriangle) * 3, count, stores);
		for (u32 triangle = 0; triangle < recordsPerParticle; ++triangle)
			WriteTriangleBlock(particles, particles + ureg(triangle) * page.m_ParticleCount, count,
				firstTriangle + triangle, recordsPerParticle);
		return span;
	};
	m_Jobs.Run(m_JobCount, [&](u32 job) { _FillShare(job, fillPart); });
}

// The sort and the output.

// Sorts all records, or splits them into parts that jobs will sort. Chooses by the span of the keys and by a sample of
// them:
//
//   several jobs, or very many records
//      one key                             nothing is left to sort
//      keys in runs, and few jobs          the radix sort
//      one job, and one top digit          the radix sort
//      others                              split
//   one job
//      keys of two passes                  two passes
//      a little wider, of many records     split
//      others                              the radix sort
void CSortJobs::_Split()
{
	SKeySpan span;
	for (u32 job = 0; job < m_JobCount; ++job)
		span = span.With({m_Shares[job].m_LowestKey, m_Shares[job].m_HighestKey});
	if (m_FilledCount != m_RecordCount)
		span = span.With({SValueKey::kFar, SValueKey::kFar});
	if (!_IsNotSplit())
	{
		if (span.BitCount() == 0)
			return m_Split.TakeSorted(true);
		const bool isForRuns = m_JobCount <= kMaxJobsForRuns && SKeySample::Of(m_Filled, m_RecordCount).HasEqualKeys();
		const bool hasOneTopDigit = (span.m_Lowest ^ span.m_Highest) >> 2 * TRadixSort<Sort_InBuffer>::_BaseBits == 0;
		const bool isTwoPasses = m_JobCount == 1 && m_RecordCount < kMinSplitOfOneTopDigit && hasOneTopDigit;
		return isForRuns || isTwoPasses ? _SortHere(null, span) : m_Split.Split(span);
	}
	const bool hasEqualDigits = SKeySample::Of(m_Filled, m_RecordCount).HasEqualDigits();
	const CbSortOfSpan twoPasses = _TwoPassesFor(span);
	const bool isForSplit =
		twoPasses == null && m_RecordCount >= kMinSplitOfWideKeys && span.BitCount() <= kMaxBitsToSplit;
	if (isForSplit && !hasEqualDigits)
		return m_Split.Split(span);
	_SortHere(m_SortsInTwoPasses && !hasEqualDigits ? twoPasses : null, span);
}

// Sorts all records on this thread, in two passes or else by the radix sort.
void CSortJobs::_SortHere(CbSortOfSpan twoPasses, const SKeySpan &span)
{
	const SIndexAndDepth *sorted = m_Sorted;
	if (twoPasses != null)
		sorted = twoPasses(m_Filled, m_Sorted, m_RecordCount, span, m_Memory->m_Counters);
	else
		Sort<SSortKeyExtractor_TriangleIndexAndDepth>(m_Filled, m_Filled + m_RecordCount, m_Sorted);
	m_Split.TakeSorted(sorted == m_Filled);
}
} // namespace Vexmoor
