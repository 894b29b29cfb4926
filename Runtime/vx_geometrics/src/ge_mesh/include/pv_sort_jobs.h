#pragma once

// One sort on a host's jobs. Only the entry points report, of the memory and the jobs that they are given. What a sort
// itself has to report and to warn of stands with the sort without jobs, in mesh_triangle_sorter.cpp.

#include "ge_mesh_triangle_sorter.h"

#include "vx_compiler.h"
#include "vx_defs.h"

#include "pv_fill.h"
#include "pv_jobs.h"
#include "pv_span_sort.h"
#include "pv_split_sort.h"
#include "pv_two_digit_sort.h"

namespace Vexmoor
{
template<typename _Element>
struct TPageSource;

// Sorts what a sorter is set up for. A sort is shared out only where it has nothing to report, so no job ever reports,
// and only where sharing pays. Jobs do not warn either: this thread tells of whole pages, in the order of pages, and
// the hazard of a slow page is counted for the thread that works on its first particle.
class CSortJobs
{
public:
	// Bytes behind the working buffer of the sort without jobs.
	static u64 MemorySize(u32 recordCount, u32 maxJobCount);

	// Whether there are enough records for jobs, and whether the buffer is aligned. It is asked first, because a small
	// sort should not pay for the set-up of an object.
	static bool MayShare(const void *workingBuffer, u32 recordCount);

	// For a sort of recordCount records of which MayShare is true. The arrays of records lie in the working buffer as
	// in the sort without jobs, which needs the first sizeWithoutJobs bytes.
	CSortJobs(const CTriangleSorter &sorter,
		void *workingBuffer,
		u64 sizeWithoutJobs,
		u32 recordCount,
		const SSortJobs &jobs);

	// Return false, with nothing written or told, where the sort without jobs has to run.
	bool SortPoints();
	bool SortTriangles();

private:
	typedef CTriangleSorter CSorter;
	template<typename _Element>
	using TPages = TStridedMemoryView<const TStridedMemoryView<const _Element>>;

	// A page, in a walk over all pages.
	struct SPage
	{
		u32 m_Id;
		u32 m_FirstRecord; // behind those of the pages before
		u32 m_FirstVertex;
		u32 m_ParticleCount; // that are drawn
	};

	enum EPageState
	{
		PageState_Entered,
		PageState_NoRoom, // for a single particle: the walk ends
		PageState_Unsound // and reported
	};

	// What a job fills: from a particle of a page to where the next share begins. Nothing here has an initial value,
	// because few of the shares that there is room for are used.
	struct SShare
	{
		SPage m_Page;
		u32 m_FirstParticle; // of those that are drawn
		u32 m_OffsetInPage;
		u32 m_HazardCount; // of the slow pages that begin here
		u32 m_LowestKey;
		u32 m_HighestKey;
	};

	bool _PaysForOneJob() const;
	bool _IsNotSplit() const;
	CbSortOfSpan _TwoPassesFor(const SKeySpan &span) const;
	u32 _IndexEnd() const;
	u32 _IndexStep() const;
	SKeySpan _LookAt(const SIndexAndDepth *particles, u32 count);

	bool _PointsAreSound() const;
	bool _QuadsAreSound() const;
	bool _PagesAgree(u32 pageCount) const;

	u32 _RecordsPerParticle(const SPage &page) const;
	u32 _VerticesPerParticle(const SPage &page) const;
	void _Enter(SPage &page) const;
	void _Leave(SPage &page) const;

	bool _IsCut(const SPage &page) const;
	template<typename _Element>
	TPageSource<_Element> _SourceOf(const TPages<_Element> &pages, const SPage &page) const;
	template<typename _Element>
	bool _IsSound(const TPages<_Element> &pages, const SPage &page);
	EPageState _EnterTriangles(SPage &page, bool sourceIsEmpty) const;

	template<typename _Element>
	bool _SharePages(const TPages<_Element> &pages);
	template<typename _FillPart>
	void _FillShare(u32 job, const _FillPart &fillPart);
	template<typename _Element, typename... _Camera>
	void _FillPoints(const TPages<_Element> &pages, const _Camera &...camera);
	template<typename _Index>
	void _WritePoints(_Index *indices);
	template<typename _Index>
	bool _SortTriangles(_Index *indices);
	template<typename _Index, typename _Element, typename... _Camera>
	void _FillTriangles(_Index *triangles, const TPages<_Element> &pages, const _Camera &...camera);
	template<typename _Index, typename _Element>
	void _TellOfPages(_Index *triangles, const TPages<_Element> &pages);

	void _Split();
	void _SortHere(CbSortOfSpan twoPasses, const SKeySpan &span);

	const CSorter &m_Sorter;
	const CJobs m_Jobs;
	const u32 m_JobCount;
	const u32 m_RecordCount;
	SIndexAndDepth *const m_Sorted;
	SIndexAndDepth *const m_Filled;
	CSplitSort::SMemory *const m_Memory; // behind the records
	const bool m_SortsTriangles;
	bool m_CutPageIsCompacted = false;
	bool m_SortsInTwoPasses = false; // so far: known when all keys are
	u32 m_FilledCount;               // records that pages fill; those behind them are far ones
	SShare m_Shares[CJobs::kMaxCount + 1];
	CSplitSort m_Split;
};
} // namespace Vexmoor
