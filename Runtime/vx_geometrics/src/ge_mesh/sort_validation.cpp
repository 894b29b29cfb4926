// The rules of one sort, top down: the output, the input and its pages, the geometry of points or of triangles, the
// working buffer, and what may not share memory. A view is checked before its elements are read; a check that would
// need an unsound view is left out, since that view has been spoken of.

#include "ge_mesh_sort_validation.h"

#include "include/pv_sort_elements.h"
#include "include/pv_sort_scan.h"
#include "include/pv_sort_validation.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace Vexmoor
{
constexpr u64 kLargestIndex16 = 0xFFFE; // a streaming loop writes 0xFFFF one too low
constexpr u64 kLargestIndex32 = 0xFFFFFFFFu;
constexpr u32 kLargestEntry = 0xFFFFFFFFu; // of an index list
constexpr u32 kQuadWidth = 6;
constexpr u32 kLargestQuadCount = 15;
constexpr u32 kQuadSlots = 16; // per particle
constexpr u32 kTriangleWidth = 3;
constexpr u32 kWorkingBufferAlignment = 16;

// A page as the sort comes by it.
struct SPage
{
	u32 m_Id = 0;
	u32 m_RenderedCount = 0;
	u32 m_DrawnCount = 0;          // rendered particles that the vertex count has room for
	u32 m_VerticesPerParticle = 0; // 0 where an index list says where vertices lie
	u64 m_FirstRendered = 0;       // the number of its first rendered particle
	u64 m_FirstVertex = 0;         // of its first particle
	u64 m_FirstTriangle = 0;       // in a triangle sort
	bool m_IsReached = true;       // false where an earlier page has ended a triangle sort's walk over the pages
	bool m_EndsWalk = false;       // the vertex count has no room for a single particle
};

// By their bits: under -ffast-math no float is a NaN or an infinity.
enum EFloatKind
{
	FloatKind_Finite,
	FloatKind_Infinite,
	FloatKind_NaN
};

static EFloatKind KindOf(float value)
{
	constexpr u32 kInfinity = 0x7F800000u;
	u32 bits;
	std::memcpy(&bits, &value, sizeof(bits));
	bits &= 0x7FFFFFFFu;
	return bits > kInfinity ? FloatKind_NaN : bits == kInfinity ? FloatKind_Infinite : FloatKind_Finite;
}

static const char *PluralOf(u64 count)
{
	return count == 1 ? "" : "s";
}

static SElements ElementsOfPattern(u32 page, const TMemoryView<const u32> &pattern)
{
	return {"index pattern", page, pattern, alignof(u32)};
}

// A pattern that is borrowed from C may be unsound, like any other view: then it has no entries that can be read.
static TMemoryView<const u32> ReadableEntries(const TMemoryView<const u32> &pattern)
{
	return {pattern.Data(), ReadableCount(ElementsOfPattern(kNoPage, pattern))};
}

static u32 LargestEntry(const TMemoryView<const u32> &patternOfCall)
{
	const TMemoryView<const u32> pattern = ReadableEntries(patternOfCall);
	u32 largest = 0;
	for (u32 i = 0; i < pattern.Count(); ++i)
		largest = std::max(largest, pattern.Data()[i]);
	return largest;
}

class CSortValidation
{
public:
	CSortValidation(const CTriangleSorter &sorter,
		ESortEntry entry,
		const void *workingBuffer,
		u64 workingBufferSize,
		CbSortFinding handler,
		void *userData,
		const SSortJobs *jobs)
		: m_Sorter(sorter)
		, m_Entry(entry)
		, m_WorkingBuffer(workingBuffer)
		, m_WorkingBufferSize(workingBufferSize)
		, m_Handler(handler)
		, m_UserData(userData)
		, m_Jobs(jobs)
	{
	}

	u32 Run();
	u64 WrittenIndexCount() const;

	static ESortEntry EntryOf(const CTriangleSorter &sorter)
	{
		return sorter.m_GeometryType == CTriangleSorter::GeometryPerPage ? SortEntry_Triangles : SortEntry_Points;
	}

private:
	typedef CTriangleSorter CSorter;
	typedef CSorter::CIndexPattern CIndexPattern;

	void _Violation(const char *format, ...) VX_PRINTF_LIKE(2, 3);
	void _Advice(const char *format, ...) VX_PRINTF_LIKE(2, 3);
	void _Tell(ESortFinding kind, const char *format, va_list arguments) const VX_PRINTF_LIKE(3, 0);

	bool _CheckView(const SElements &elements);
	void _CheckPageViews(const SElements &views, const char *plural);

	bool _ByPosition() const { return m_Sorter.m_SortType == CSorter::SortByPosition; }
	bool _Has16BitIndices() const { return m_Sorter.m_IndexType == CSorter::IndexTypeUint16; }
	bool _SortsTriangles() const { return m_Entry == SortEntry_Triangles; }
	bool _IsGeometry(CSorter::EGeometryType type) const { return m_GeometryFits && m_Sorter.m_GeometryType == type; }
	bool _HasConstantVertices() const { return _IsGeometry(CSorter::GeometryConstant); }
	bool _HasQuadCenters() const { return _IsGeometry(CSorter::GeometryConstantAndIndexListAndQuadCenters); }
	bool _HasIndexList() const { return _IsGeometry(CSorter::GeometryConstantAndIndexList) || _HasQuadCenters(); }
	u32 _QuadCount() const { return m_Sorter.m_IndexPattern.Count() / kQuadWidth; }
	bool _ReadsQuadCenters() const { return _HasQuadCenters() && _QuadCount() != 0; }

	SElements _Output() const;
	SElements _RenderedCounts() const;
	bool _HasRenderedCounts() const;
	SElements _SourcePages() const;
	SElements _Source(u32 pageId) const;
	SElements _UsedSource(const SPage &page) const;
	bool _IsLookedAt(const SPage &page) const { return _SortsTriangles() && page.m_IsReached; }
	SElements _EnabledPages() const;
	SElements _Enableds(u32 pageId) const;
	SElements _IndexList() const;
	SElements _QuadCenters() const;
	SElements _PagePatterns() const;
	SElements _PageVertexCounts() const;
	TMemoryView<const u32> _PagePattern(u32 pageId) const { return m_Sorter.m_IndexPatternCollection[pageId]; }

	void _CountReadablePages();
	template<typename _Check>
	void _ForEachPage(const _Check &check) const;
	template<typename _Check>
	void _ForEachRenderedPage(const _Check &check) const;
	u32 _VerticesPerParticle(u32 pageId) const;
	void _ShareVertices(SPage &page) const;

	void _CheckOutput();
	void _CheckInput();
	void _CheckParticleCount();
	void _CheckEnabledPages();
	void _CheckCamera();
	void _CheckSource(const SPage &page);
	void _CheckEnableds(const SPage &page);
	bool _HasDisabled(const SPage &page) const;
	void _CheckMixedPages();

	void _CheckGeometry();
	void _CheckPointGeometry();
	void _CheckPointPattern();
	void _CheckQuadPattern();
	void _CheckPatternEntries(const char *ofPage, const TMemoryView<const u32> &pattern, u32 verticesPerParticle);
	void _CheckExpansionSpeed();
	void _CheckPointRoom();
	void _CheckConstantVertices();
	u64 _LargestIndex() const { return _Has16BitIndices() ? kLargestIndex16 : kLargestIndex32; }
	void _TellLargestIndex(u32 pageId, u64 particle, u64 index);
	void _AdviseVertexCount(u32 pageId, u64 particle, u64 index);
	void _CheckLargestIndex(const SPage &page, u32 largestEntry);

	void _CheckIndexList();
	SNumberRange _EntriesFromBase(u64 firstBase) const;
	void _CheckListEntries(bool checksCenters);
	template<typename _Report>
	void _ForEachEntryIn(const SNumberRange &range, const _Report &report);
	u32 _VertexBase(u32 entry) const { return entry < m_Sorter.m_VertexCount ? entry : 0; }

	void _CheckPagePatterns();
	void _CheckPagePattern(const SPage &page);
	void _CheckTriangleIndexCount();
	void _CheckTriangleVertices(const SPage &page);
	void _CheckTriangleAlignment();

	void _CheckJobs();
	u64 _NeededWorkingBufferSize() const;
	void _CheckWorkingBuffer();
	void _CheckSharedMemory();
	void _CheckApart(const SElements &written, const SElements &other);

	const CTriangleSorter &m_Sorter;
	const ESortEntry m_Entry;
	const void *const m_WorkingBuffer;
	const u64 m_WorkingBufferSize;
	const CbSortFinding m_Handler;
	void *const m_UserData;
	const SSortJobs *const m_Jobs; // or null
	u32 m_ViolationCount = 0;

	// That the geometry is set up, and for this entry.
	const bool m_GeometryFits = m_Sorter.m_GeometryType != CSorter::GeometryUnknown && EntryOf(m_Sorter) == m_Entry;

	// Pages that every sound view of pages has, and whether these views have equally many.
	u32 m_PageCount = 0;
	bool m_PagesAgree = true;
	// Pages whose entry can be read; 0 where a view of pages is unsound.
	u32 m_SourcePageCount = 0;
	u32 m_EnabledPageCount = 0;
	u32 m_PatternPageCount = 0;
	u32 m_VertexCountPageCount = 0;
};

u32 CSortValidation::Run()
{
	_CountReadablePages();
	_CheckOutput();
	_CheckInput();
	_CheckGeometry();
	_CheckJobs();
	_CheckWorkingBuffer();
	_CheckSharedMemory();
	return m_ViolationCount;
}

// Findings.

void CSortValidation::_Tell(ESortFinding kind, const char *format, va_list arguments) const
{
	if (m_Handler == null)
		return;
	char sentence[256];
	std::vsnprintf(sentence, sizeof(sentence), format, arguments);
	m_Handler({kind, sentence}, m_UserData);
}

void CSortValidation::_Violation(const char *format, ...)
{
	++m_ViolationCount;
	va_list arguments;
	va_start(arguments, format);
	_Tell(SortFinding_Violation, format, arguments);
	va_end(arguments);
}

void CSortValidation::_Advice(const char *format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	_Tell(SortFinding_Advice, format, arguments);
	va_end(arguments);
}

// Views.

// True when the elements can be read.
bool CSortValidation::_CheckView(const SElements &elements)
{
	const EViewFault fault = FaultOf(elements);
	if (fault == ViewFault_None)
		return true;
	const SNameText name(elements);
	switch (fault)
	{
	case ViewFault_Null:
		_Violation("The view of %s has a null pointer, but a count of %u.", name.m_Text, elements.m_ViewCount);
		break;
	case ViewFault_Stride:
		_Violation("The view of %s has a stride of %u, but elements of %u bytes.", name.m_Text, elements.m_Stride,
			elements.m_ElementSize);
		break;
	case ViewFault_StrideAlignment:
		_Violation("The view of %s has a stride of %u, but needs a multiple of %u.", name.m_Text, elements.m_Stride,
			elements.m_Alignment);
		break;
	case ViewFault_Size:
		_Violation("The sort uses %" PRIu64 " bytes of %s, but sizes end at %" PRIu64 ".", elements.CoveredBytes(),
			name.m_Text, kLargestSize);
		break;
	case ViewFault_AddressSpace:
		_Violation("The sort uses %" PRIu64 " bytes of %s, but the address space ends after %" PRIu64 ".",
			elements.Span(), name.m_Text, elements.AddressableBytes());
		break;
	default:
		_Violation("The view of %s starts at %u modulo %u, but needs 0.", name.m_Text,
			u32(elements.Misalignment(elements.m_Address)), elements.m_Alignment);
		break;
	}
	return false;
}

// A view with an element per page.
void CSortValidation::_CheckPageViews(const SElements &views, const char *plural)
{
	const u32 renderedCountCount = m_Sorter.m_InRenderedParticleCounts.Count();
	if (_CheckView(views) && _HasRenderedCounts() && views.m_Count != renderedCountCount)
		_Violation(
			"The count of %s is %u, but that of rendered counts is %u.", plural, views.m_Count, renderedCountCount);
}

SElements CSortValidation::_Output() const
{
	if (_Has16BitIndices())
		return SElements("output", kNoPage, m_Sorter.m_OutIndices16, sizeof(u16)).First(WrittenIndexCount());
	if (m_Sorter.m_IndexType == CSorter::IndexTypeUint32)
		return SElements("output", kNoPage, m_Sorter.m_OutIndices32, sizeof(u32)).First(WrittenIndexCount());
	return {"output", kNoPage, null, 0, 0, 0, 1};
}

u64 CSortValidation::WrittenIndexCount() const
{
	const u32 indexCount = m_Sorter.m_IndexCount;
	const u32 width = m_Sorter.m_IndexPattern.Count();
	if (!m_GeometryFits || (!_SortsTriangles() && width == 0))
		return indexCount;
	if (_SortsTriangles())
		return u64(std::min(m_Sorter.m_IndexCount_fromBB, indexCount) / kTriangleWidth) * kTriangleWidth;
	const u64 writtenCount = u64(std::min(m_Sorter.m_ParticleCount, indexCount / width)) * width;
	if (!_HasQuadCenters() || writtenCount == 0)
		return writtenCount;
	return _ReadsQuadCenters() ? writtenCount - width % kQuadWidth : 0; // the rest of whole quads is left as it is
}

SElements CSortValidation::_RenderedCounts() const
{
	return {"rendered counts", kNoPage, m_Sorter.m_InRenderedParticleCounts, alignof(u32)};
}

// Whether there are rendered counts, whose number is that of the pages.
bool CSortValidation::_HasRenderedCounts() const
{
	return m_Sorter.m_SortType != CSorter::SortUnknown && FaultOf(_RenderedCounts()) == ViewFault_None;
}

SElements CSortValidation::_SourcePages() const
{
	constexpr u32 kAlignment = alignof(TStridedMemoryView<const float, -1>);
	if (_ByPosition())
		return {"pages' positions", kNoPage, m_Sorter.m_InPositions, kAlignment};
	return {"pages' sort values", kNoPage, m_Sorter.m_InSortKeys, kAlignment};
}

SElements CSortValidation::_Source(u32 pageId) const
{
	if (_ByPosition())
		return {"positions", pageId, m_Sorter.m_InPositions[pageId], 1};
	return {"sort values", pageId, m_Sorter.m_InSortKeys[pageId], 1};
}

// The elements of a page's source that the sort reads. With enabled bytes, any of them may be read. Of a page for which
// no vertices are left, a triangle sort only looks whether its source is empty.
SElements CSortValidation::_UsedSource(const SPage &page) const
{
	const SElements source = _Source(page.m_Id);
	const bool hasEnableds = page.m_Id < m_EnabledPageCount && _Enableds(page.m_Id).m_Count != 0;
	if (page.m_DrawnCount == 0)
		return source.First(_IsLookedAt(page) ? 1 : 0);
	return hasEnableds ? source : source.First(page.m_DrawnCount);
}

SElements CSortValidation::_EnabledPages() const
{
	return {"pages' enabled bytes", kNoPage, m_Sorter.m_InEnableds, alignof(TStridedMemoryView<const u8, -1>)};
}

SElements CSortValidation::_Enableds(u32 pageId) const
{
	return {"enabled bytes", pageId, m_Sorter.m_InEnableds[pageId], 1};
}

SElements CSortValidation::_IndexList() const
{
	return SElements("index list", kNoPage, m_Sorter.m_IndexList, 1).First(m_Sorter.m_ParticleCount);
}

// The quad centres that the sort may read: those of the vertices. A list entry beyond them stands for vertex 0.
SElements CSortValidation::_QuadCenters() const
{
	const SElements centers("quad centres", kNoPage, m_Sorter.m_QuadCenters, alignof(CFloat4));
	const u32 verticesPerParticle = m_Sorter.m_PrimiteVertexCount;
	if (verticesPerParticle == 0)
		return centers;
	const u32 lastVertex = std::max(m_Sorter.m_VertexCount, 1u) - 1;
	return centers.First((u64(lastVertex / verticesPerParticle) + 1) * kQuadSlots);
}

SElements CSortValidation::_PagePatterns() const
{
	return {"pages' index patterns", kNoPage, m_Sorter.m_IndexPatternCollection, alignof(CIndexPattern)};
}

SElements CSortValidation::_PageVertexCounts() const
{
	return {"pages' vertex counts", kNoPage, m_Sorter.m_PrimiteVertexCountCollection, alignof(u32)};
}

void CSortValidation::_CountReadablePages()
{
	if (!_HasRenderedCounts())
		return;
	const u32 renderedCountCount = m_Sorter.m_InRenderedParticleCounts.Count();
	m_PageCount = renderedCountCount;
	const auto countOf = [this, renderedCountCount](const SElements &views)
	{
		const bool canBeRead = FaultOf(views) == ViewFault_None;
		m_PagesAgree = m_PagesAgree && (!canBeRead || views.m_Count == renderedCountCount);
		m_PageCount = canBeRead ? std::min(m_PageCount, views.m_Count) : m_PageCount;
		return canBeRead ? views.m_Count : 0;
	};
	m_SourcePageCount = countOf(_SourcePages());
	m_EnabledPageCount = countOf(_EnabledPages());
	if (_IsGeometry(CSorter::GeometryPerPage))
	{
		m_PatternPageCount = countOf(_PagePatterns());
		m_VertexCountPageCount = countOf(_PageVertexCounts());
	}
}

u32 CSortValidation::_VerticesPerParticle(u32 pageId) const
{
	if (_IsGeometry(CSorter::GeometryConstant))
		return m_Sorter.m_PrimiteVertexCount;
	return pageId < m_VertexCountPageCount ? m_Sorter.m_PrimiteVertexCountCollection[pageId] : 0;
}

// Pages take their vertices in turn. A triangle sort ends with the first page of which no particle has room, also if
// that page renders nothing.
void CSortValidation::_ShareVertices(SPage &page) const
{
	page.m_DrawnCount = page.m_IsReached ? page.m_RenderedCount : 0;
	page.m_EndsWalk = false;
	if (!page.m_IsReached || page.m_VerticesPerParticle == 0)
		return;
	const u64 room = m_Sorter.m_VertexCount - page.m_FirstVertex;
	if (u64(page.m_RenderedCount) * page.m_VerticesPerParticle > room)
		page.m_DrawnCount = u32(room / page.m_VerticesPerParticle);
	page.m_EndsWalk = _SortsTriangles() && room < page.m_VerticesPerParticle;
}

template<typename _Check>
void CSortValidation::_ForEachPage(const _Check &check) const
{
	SPage page;
	for (; page.m_Id < m_PageCount; ++page.m_Id)
	{
		page.m_RenderedCount = m_Sorter.m_InRenderedParticleCounts[page.m_Id];
		page.m_VerticesPerParticle = _VerticesPerParticle(page.m_Id);
		_ShareVertices(page);
		check(page);
		page.m_FirstRendered += page.m_RenderedCount;
		page.m_FirstVertex += u64(page.m_DrawnCount) * page.m_VerticesPerParticle;
		if (page.m_Id < m_PatternPageCount)
			page.m_FirstTriangle += u64(page.m_DrawnCount) * (_PagePattern(page.m_Id).Count() / kTriangleWidth);
		page.m_IsReached = page.m_IsReached && !page.m_EndsWalk;
	}
}

template<typename _Check>
void CSortValidation::_ForEachRenderedPage(const _Check &check) const
{
	_ForEachPage(
		[&check](const SPage &page)
		{
			if (page.m_RenderedCount != 0)
				check(page);
		});
}

// Output and input.

void CSortValidation::_CheckOutput()
{
	if (m_Sorter.m_IndexType == CSorter::IndexTypeUnknown)
		_Violation("No output is set up.");
	else
		_CheckView(_Output());
	if (m_Sorter.m_OutputMemory > CSorter::OutputMemory_Cached)
		_Violation("The kind of output memory is %u, but the kinds are 0 and 1.", u32(m_Sorter.m_OutputMemory));
}

void CSortValidation::_CheckInput()
{
	if (m_Sorter.m_SortType == CSorter::SortUnknown)
	{
		_Violation("No input is set up.");
		return;
	}
	if (_CheckView(_RenderedCounts()))
		_CheckParticleCount();
	_CheckPageViews(_SourcePages(), _ByPosition() ? "position views" : "sort value views");
	_CheckEnabledPages();
	_ForEachRenderedPage(
		[this](const SPage &page)
		{
			_CheckSource(page);
			_CheckEnableds(page);
		});
	_CheckMixedPages();
	_CheckCamera();
}

void CSortValidation::_CheckParticleCount()
{
	if (m_Sorter.m_InRenderedParticleCounts.Count() == 0 && !_SortsTriangles())
	{
		_Violation("The count of rendered counts is 0, but a sort of points needs at least 1.");
		return;
	}
	if (!m_PagesAgree)
		return;
	u64 renderedCount = 0;
	_ForEachRenderedPage([&renderedCount](const SPage &page) { renderedCount += page.m_RenderedCount; });
	if (renderedCount != m_Sorter.m_ParticleCount)
		_Violation("The pages render %" PRIu64 " particle%s, but the particle count is %u.", renderedCount,
			PluralOf(renderedCount), m_Sorter.m_ParticleCount);
	else if (renderedCount == 0 && !_SortsTriangles())
		_Advice("The pages render 0 particles: the sort draws nothing, and reports that it has no first record.");
}

// The view of a page may be empty, but every page has one.
void CSortValidation::_CheckEnabledPages()
{
	const SElements views = _EnabledPages();
	const u32 pageCount = _HasRenderedCounts() ? m_Sorter.m_InRenderedParticleCounts.Count() : 0;
	if (views.m_ViewCount == 0 && pageCount != 0)
		_Violation(
			"There is no enabled view, but %u page%s: each needs one, an empty view where no particle is disabled.",
			pageCount, PluralOf(pageCount));
	else
		_CheckPageViews(views, "enabled views");
}

void CSortValidation::_CheckCamera()
{
	if (!_ByPosition() && !_ReadsQuadCenters())
		return;
	EFloatKind worst = FloatKind_Finite;
	for (u32 axis = 0; axis < 3; ++axis)
		worst = std::max(worst, KindOf(m_Sorter.m_CameraPosition[axis]));
	for (u32 axis = 0; axis < 3; ++axis)
	{
		const EFloatKind kind = KindOf(m_Sorter.m_CameraPosition[axis]);
		if (kind == FloatKind_NaN)
			_Advice("The camera's %c is not a number, and so is every distance to it.", "xyz"[axis]);
		else if (kind == FloatKind_Infinite && worst == kind)
			_Advice("The camera's %c is infinite, and so is every distance to it.", "xyz"[axis]);
	}
}

void CSortValidation::_CheckSource(const SPage &page)
{
	if (page.m_Id >= m_SourcePageCount)
		return;
	const SElements source = _UsedSource(page);
	const u32 needed = page.m_DrawnCount != 0 ? page.m_DrawnCount : _IsLookedAt(page);
	if (needed == 0 || !_CheckView(source))
		return;
	if (source.m_ViewCount < needed)
		_Violation("Page %u renders %u particle%s, but has %s for %u.", page.m_Id, page.m_RenderedCount,
			PluralOf(page.m_RenderedCount), source.m_Name, source.m_ViewCount);
	else if (source.m_Stride != 0 && source.m_Stride != source.m_ElementSize)
		_Advice("The %s of page %u have a stride of %u: %u is faster.", source.m_Name, page.m_Id, source.m_Stride,
			source.m_ElementSize);
}

void CSortValidation::_CheckEnableds(const SPage &page)
{
	if (page.m_Id >= m_EnabledPageCount || page.m_DrawnCount == 0)
		return;
	const SElements enableds = _Enableds(page.m_Id);
	if (!_CheckView(enableds) || enableds.m_Count == 0)
		return;
	if (enableds.m_Stride != 1)
	{
		_Violation("The enabled bytes of page %u have a stride of %u, but need 1.", page.m_Id, enableds.m_Stride);
		return;
	}
	if (page.m_Id < m_SourcePageCount && _Source(page.m_Id).m_ViewCount != enableds.m_Count)
	{
		const SElements source = _Source(page.m_Id);
		_Violation("Page %u has enabled bytes for %u, but %s for %u.", page.m_Id, enableds.m_Count, source.m_Name,
			source.m_ViewCount);
		return;
	}
	const u32 enabledCount = CountNonZero(m_Sorter.m_InEnableds[page.m_Id].Data(), enableds.m_Count);
	if (enabledCount != page.m_RenderedCount)
		_Violation("Page %u renders %u particle%s, but %u of its enabled bytes are not 0.", page.m_Id,
			page.m_RenderedCount, PluralOf(page.m_RenderedCount), enabledCount);
}

bool CSortValidation::_HasDisabled(const SPage &page) const
{
	return !m_Sorter.m_InEnableds[page.m_Id].Empty() && page.m_RenderedCount < _Source(page.m_Id).m_ViewCount;
}

// The trap that the sorter's class comment tells of.
void CSortValidation::_CheckMixedPages()
{
	if (!_ByPosition())
		return;
	u32 pageWithDisabled = kNoPage;
	u32 pageWithout = kNoPage;
	_ForEachRenderedPage(
		[&](const SPage &page)
		{
			if (page.m_Id >= std::min(m_SourcePageCount, m_EnabledPageCount) || page.m_DrawnCount == 0)
				return;
			u32 &first = _HasDisabled(page) ? pageWithDisabled : pageWithout;
			first = std::min(first, page.m_Id);
		});
	if (pageWithDisabled != kNoPage && pageWithout != kNoPage)
		_Advice("Page %u has disabled particles and page %u has none: sorted by position, the former is drawn first, "
				"however near it is.",
			pageWithDisabled, pageWithout);
}

// Geometry of points.

void CSortValidation::_CheckGeometry()
{
	if (m_Sorter.m_GeometryType == CSorter::GeometryUnknown)
		_Violation("No geometry is set up.");
	else if (_IsGeometry(CSorter::GeometryPerPage))
		_CheckPagePatterns();
	else if (_SortsTriangles())
		_Violation(
			"The geometry is one pattern for all particles, but a sort of triangles needs one pattern per page.");
	else if (!m_GeometryFits)
		_Violation("The geometry is one pattern per page, but a sort of points needs one pattern for all particles.");
	else
		_CheckPointGeometry();
}

void CSortValidation::_CheckPointGeometry()
{
	_CheckView(ElementsOfPattern(kNoPage, m_Sorter.m_IndexPattern));
	if (_HasQuadCenters())
		_CheckQuadPattern();
	else
		_CheckPointPattern();
	if (_HasConstantVertices() || _ReadsQuadCenters())
		_CheckPatternEntries("", m_Sorter.m_IndexPattern, m_Sorter.m_PrimiteVertexCount);
	if (_HasConstantVertices())
		_CheckConstantVertices();
	if (_HasIndexList())
		_CheckIndexList();
}

void CSortValidation::_CheckPointPattern()
{
	const TMemoryView<const u32> pattern = m_Sorter.m_IndexPattern;
	if (pattern.Count() == 0)
		_Violation("The index pattern has 0 entries, but needs at least 1.");
	else if (pattern.Count() == 1 && LargestEntry(pattern) != 0)
		_Violation("The index pattern's only entry is %u, but has to be 0.", LargestEntry(pattern));
	_CheckExpansionSpeed();
	_CheckPointRoom();
}

void CSortValidation::_CheckQuadPattern()
{
	const u32 width = m_Sorter.m_IndexPattern.Count();
	const u32 quadCount = _QuadCount();
	if (width == 0)
		_Violation("The index pattern has 0 entries, but needs at least 1.");
	else if (quadCount > kLargestQuadCount)
		_Violation("The index pattern has %u quads, but at most %u can be sorted.", quadCount, kLargestQuadCount);
	if (width % kQuadWidth != 0)
		_Advice("The width of the index pattern is %u, %u more than whole quads: the rest is not drawn, and its place "
				"in the output is left as it is.",
			width, width % kQuadWidth);
	_CheckPointRoom();
}

void CSortValidation::_CheckPatternEntries(
	const char *ofPage, const TMemoryView<const u32> &patternOfCall, u32 verticesPerParticle)
{
	const TMemoryView<const u32> pattern = ReadableEntries(patternOfCall);
	if (verticesPerParticle == 0)
	{
		_Violation("The particles%s have 0 vertices each, but need at least 1.", ofPage);
		return;
	}
	const u32 *const end = pattern.Data() + pattern.Count();
	const u32 *const bad =
		std::find_if(pattern.Data(), end, [verticesPerParticle](u32 entry) { return entry >= verticesPerParticle; });
	if (bad != end)
		_Advice("Entry %u of the index pattern%s is %u, but the vertices per particle are %u: it draws a vertex of a "
				"later particle.",
			u32(bad - pattern.Data()), ofPage, *bad, verticesPerParticle);
}

// Which output addresses and pattern widths have streaming loops.
void CSortValidation::_CheckExpansionSpeed()
{
	const u32 width = m_Sorter.m_IndexPattern.Count();
	u32 alignment = 1;
	switch (width)
	{
	case 0:
		return;
	case 1:
	case 3:
	case 6:
		alignment = 16;
		break;
	case 12:
		alignment = _Has16BitIndices() ? 1 : 8;
		break;
	default:
		_Advice("The width of the index pattern is %u: 1, 3, 6 and 12 are faster.", width);
		break;
	}
	const SElements output = _Output();
	if (FaultOf(output) == ViewFault_None && output.m_Count != 0 && output.m_Address % alignment != 0)
		_Advice("The output starts at %u modulo %u: 0 is faster.", u32(output.m_Address % alignment), alignment);
}

void CSortValidation::_CheckPointRoom()
{
	const u32 width = m_Sorter.m_IndexPattern.Count();
	const u32 particleCount = m_Sorter.m_ParticleCount;
	if (width == 0 || m_Sorter.m_IndexType == CSorter::IndexTypeUnknown)
		return;
	const u32 room = m_Sorter.m_IndexCount / width;
	if (room >= particleCount)
		return;
	const bool losesLast = (particleCount - room) % kRecordsPerAccess != 0;
	const char *const further = losesLast   ? ", nor is the highest"
	                            : room == 0 ? ", and the sort reports that it has no record to read"
	                                        : "";
	_Advice("The output has room for %u of %u particle%s: the lowest keys are not drawn%s.", room, particleCount,
		PluralOf(particleCount), further);
}

// Particles of constant geometry have their vertices in order.
void CSortValidation::_CheckConstantVertices()
{
	const u32 verticesPerParticle = m_Sorter.m_PrimiteVertexCount;
	if (verticesPerParticle == 0 || m_Sorter.m_IndexType == CSorter::IndexTypeUnknown)
		return;
	const u64 validCount = m_Sorter.m_VertexCount / verticesPerParticle;
	if (validCount < m_Sorter.m_ParticleCount)
		_Advice("The vertex count of %u has room for %" PRIu64 " of %u particle%s: the rest draws vertex 0's.",
			m_Sorter.m_VertexCount, validCount, m_Sorter.m_ParticleCount, PluralOf(m_Sorter.m_ParticleCount));

	const u32 largestEntry = LargestEntry(m_Sorter.m_IndexPattern);
	_ForEachRenderedPage([this, largestEntry](const SPage &page) { _CheckLargestIndex(page, largestEntry); });
}

// The first particle of a page that has an index beyond the index type, or beyond the vertices, among those drawn.
void CSortValidation::_CheckLargestIndex(const SPage &page, u32 largestEntry)
{
	if (page.m_VerticesPerParticle == 0)
		return;
	const u64 firstIndex = page.m_FirstVertex + largestEntry;
	const auto indexOf = [&](u64 particle) { return firstIndex + particle * page.m_VerticesPerParticle; };
	const auto firstBeyond = [&](u64 limit)
	{ return firstIndex > limit ? 0 : (limit - firstIndex) / page.m_VerticesPerParticle + 1; };

	const u64 beyondVertices = m_Sorter.m_VertexCount == 0 ? 0 : firstBeyond(u64(m_Sorter.m_VertexCount) - 1);
	if (beyondVertices < page.m_DrawnCount)
		_AdviseVertexCount(page.m_Id, page.m_FirstRendered + beyondVertices, indexOf(beyondVertices));
	const u64 beyondType = firstBeyond(_LargestIndex());
	if (beyondType < page.m_DrawnCount)
		_TellLargestIndex(page.m_Id, page.m_FirstRendered + beyondType, indexOf(beyondType));
}

void CSortValidation::_TellLargestIndex(u32 pageId, u64 particle, u64 index)
{
	_Violation("Page %u, particle %" PRIu64 ": its largest index is %" PRIu64 ", but indices of %u bits end at %" PRIu64
			   ".",
		pageId, particle, index, _Has16BitIndices() ? 16 : 32, _LargestIndex());
}

void CSortValidation::_AdviseVertexCount(u32 pageId, u64 particle, u64 index)
{
	_Advice("Page %u, particle %" PRIu64 ": its largest index is %" PRIu64 ", but the vertex count is %u.", pageId,
		particle, index, m_Sorter.m_VertexCount);
}

// Index list.

void CSortValidation::_CheckIndexList()
{
	const SElements list = _IndexList();
	const bool canBeRead = _CheckView(list);
	if (canBeRead && list.m_ViewCount < m_Sorter.m_ParticleCount)
		_Violation("The count of the index list is %u, but the particle count is %u.", list.m_ViewCount,
			m_Sorter.m_ParticleCount);
	const bool checksCenters = _ReadsQuadCenters() && _CheckView(_QuadCenters());
	if (canBeRead)
		_CheckListEntries(checksCenters);
}

// The list entries whose particles start at vertex firstBase or behind it. An entry beyond the vertex count stands for
// vertex 0.
SNumberRange CSortValidation::_EntriesFromBase(u64 firstBase) const
{
	if (firstBase == 0)
		return {0, kLargestEntry};
	if (firstBase >= m_Sorter.m_VertexCount)
		return {};
	return {u32(firstBase), m_Sorter.m_VertexCount - 1};
}

// What each rule refuses is a range of entries. One pass over the list tells whether any rule has something to say.
void CSortValidation::_CheckListEntries(bool checksCenters)
{
	const u32 vertexCount = m_Sorter.m_VertexCount;
	const u64 largestEntry = LargestEntry(m_Sorter.m_IndexPattern);
	const u64 limit = _LargestIndex();
	const u32 verticesPerParticle = m_Sorter.m_PrimiteVertexCount;
	const u64 slotCount = m_Sorter.m_QuadCenters.Count();

	const SNumberRange beyondType = _EntriesFromBase(limit + 1 - std::min(limit + 1, largestEntry));
	SNumberRange beyondCenters, beyondVertices, sticksOut;
	if (checksCenters && verticesPerParticle != 0)
		beyondCenters = _EntriesFromBase(slotCount / kQuadSlots * verticesPerParticle);
	if (m_Handler != null) // advice alone
	{
		beyondVertices = {vertexCount, kLargestEntry};
		if (vertexCount != 0 && largestEntry != 0)
			sticksOut = {u32(vertexCount - std::min<u64>(vertexCount, largestEntry)), vertexCount - 1};
	}
	const SNumberRange refused = beyondType.With(beyondCenters).With(beyondVertices).With(sticksOut);
	const u64 listCount = _IndexList().m_Count;
	if (FindInRange(m_Sorter.m_IndexList.Data(), 0, listCount, refused) == listCount)
		return;

	_ForEachEntryIn(beyondVertices,
		[this](u32 pageId, u64 particle, u32 entry)
		{
			_Advice("Page %u, particle %" PRIu64
					": its list entry is %u, but the vertex count is %u: it draws vertex 0's, as if infinitely far.",
				pageId, particle, entry, m_Sorter.m_VertexCount);
		});
	_ForEachEntryIn(sticksOut, [this, largestEntry](u32 pageId, u64 particle, u32 entry)
		{ _AdviseVertexCount(pageId, particle, entry + largestEntry); });
	_ForEachEntryIn(beyondType, [this, largestEntry](u32 pageId, u64 particle, u32 entry)
		{ _TellLargestIndex(pageId, particle, _VertexBase(entry) + largestEntry); });
	_ForEachEntryIn(beyondCenters,
		[this, verticesPerParticle, slotCount](u32 pageId, u64 particle, u32 entry)
		{
			const u64 needed = (u64(_VertexBase(entry) / verticesPerParticle) + 1) * kQuadSlots;
			_Violation("Page %u, particle %" PRIu64 ": its quads need %" PRIu64 " centre slots, but there are %" PRIu64
					   ".",
				pageId, particle, needed, slotCount);
		});
}

// Calls report with the first entry of each page that lies in the range.
template<typename _Report>
void CSortValidation::_ForEachEntryIn(const SNumberRange &range, const _Report &report)
{
	const u32 *const list = m_Sorter.m_IndexList.Data();
	const u64 listCount = _IndexList().m_Count;
	_ForEachRenderedPage(
		[&](const SPage &page)
		{
			const u64 begin = std::min(page.m_FirstRendered, listCount);
			const u64 end = std::min(begin + page.m_RenderedCount, listCount);
			const u64 particle = FindInRange(list, begin, end, range);
			if (particle != end)
				report(page.m_Id, particle, LoadU32(reinterpret_cast<const u8 *>(list) + particle * sizeof(u32)));
		});
}

// Geometry of triangles.

void CSortValidation::_CheckPagePatterns()
{
	_CheckPageViews(_PagePatterns(), "index patterns");
	_CheckPageViews(_PageVertexCounts(), "vertex counts");
	_ForEachRenderedPage([this](const SPage &page) { _CheckPagePattern(page); });
	_CheckTriangleIndexCount();
	_ForEachPage([this](const SPage &page) { _CheckTriangleVertices(page); });
	_CheckTriangleAlignment();
}

void CSortValidation::_CheckPagePattern(const SPage &page)
{
	if (!page.m_IsReached || page.m_Id >= m_PatternPageCount)
		return;
	const TMemoryView<const u32> pattern = _PagePattern(page.m_Id);
	_CheckView(ElementsOfPattern(page.m_Id, pattern));
	if (pattern.Count() == 0 || pattern.Count() % kTriangleWidth != 0)
		_Violation("The width of the index pattern of page %u is %u, but has to be a multiple of %u above 0.",
			page.m_Id, pattern.Count(), kTriangleWidth);
	if (page.m_Id >= m_VertexCountPageCount)
		return;
	char ofPage[32];
	std::snprintf(ofPage, sizeof(ofPage), " of page %u", page.m_Id);
	_CheckPatternEntries(ofPage, pattern, page.m_VerticesPerParticle);
}

void CSortValidation::_CheckTriangleIndexCount()
{
	const u32 given = m_Sorter.m_IndexCount_fromBB;
	if (given % kTriangleWidth != 0)
		_Violation("The index count is %u, but needs to be a multiple of %u.", given, kTriangleWidth);

	u64 needed = 0;
	_ForEachRenderedPage(
		[&](const SPage &page)
		{
			if (page.m_Id < m_PatternPageCount)
				needed += u64(page.m_RenderedCount) * _PagePattern(page.m_Id).Count();
		});
	if (needed > given)
		_Violation("The pages draw %" PRIu64 " indices, but the index count is %u.", needed, given);
	else if (needed < given && _HasRenderedCounts() && m_PagesAgree && m_PatternPageCount == m_PageCount)
		_Advice(
			"The pages draw %" PRIu64 " indices, but the index count is %u: vertex 0 fills the rest.", needed, given);

	const u32 room = m_Sorter.m_IndexCount / kTriangleWidth;
	if (m_Sorter.m_IndexType != CSorter::IndexTypeUnknown && room < given / kTriangleWidth)
		_Advice(
			"The output has room for %u of %u triangles: the lowest keys are not drawn.", room, given / kTriangleWidth);
}

void CSortValidation::_CheckTriangleVertices(const SPage &page)
{
	const u32 vertexCount = m_Sorter.m_VertexCount;
	if (!page.m_IsReached)
		return;
	if (page.m_EndsWalk)
	{
		if (page.m_FirstRendered < m_Sorter.m_ParticleCount)
			_Advice("The first particle of page %u ends at vertex %" PRIu64
					", but the vertex count is %u: pages from there on are not drawn.",
				page.m_Id, page.m_FirstVertex + page.m_VerticesPerParticle, vertexCount);
		return;
	}
	if (page.m_DrawnCount < page.m_RenderedCount)
		_Advice("The vertex count of %u has room for %u of the %u particles of page %u.", vertexCount,
			page.m_DrawnCount, page.m_RenderedCount, page.m_Id);
	if (page.m_Id < m_PatternPageCount)
		_CheckLargestIndex(page, LargestEntry(_PagePattern(page.m_Id)));
}

// If an odd number of triangles lies before a page, its records start at 8 modulo 16, and two assertions say so. The
// result is right all the same, but a host whose handler answers break stops there.
void CSortValidation::_CheckTriangleAlignment()
{
	u32 firstPage = kNoPage;
	u64 firstTriangle = 0;
	_ForEachRenderedPage(
		[&](const SPage &page)
		{
			if (firstPage != kNoPage || page.m_DrawnCount == 0 || page.m_FirstTriangle % kRecordsPerAccess == 0)
				return;
			firstPage = page.m_Id;
			firstTriangle = page.m_FirstTriangle;
		});
	if (firstPage != kNoPage)
		_Advice("Page %u starts at triangle %" PRIu64
				", an odd number: assertions report that its records are not aligned, though they come out right.",
			firstPage, firstTriangle);
}

// Memory.

void CSortValidation::_CheckJobs()
{
	if (m_Jobs == null)
		return;
	if (m_Jobs->m_Run == null)
		_Violation("The jobs have no function that runs them.");
	if (m_Jobs->m_MaxJobCount == 0)
		_Violation("The largest count of jobs is 0, but needs 1 or more.");
}

u64 CSortValidation::_NeededWorkingBufferSize() const
{
	if (m_Jobs != null)
		return _SortsTriangles()
		           ? CSorter::GetJobsWorkingBufferSize_tri(m_Sorter.m_IndexCount_fromBB, m_Jobs->m_MaxJobCount)
		           : CSorter::GetJobsWorkingBufferSize(m_Sorter.m_ParticleCount, m_Jobs->m_MaxJobCount);
	return _SortsTriangles() ? CSorter::_TriangleWorkingBufferSize(m_Sorter.m_IndexCount_fromBB)
	                         : CSorter::_PointWorkingBufferSize(m_Sorter.m_ParticleCount);
}

void CSortValidation::_CheckWorkingBuffer()
{
	const u64 needed = _NeededWorkingBufferSize();
	if (needed > kLargestSize && m_Jobs == null)
	{
		_Violation(
			"The sort needs %" PRIu64 " bytes of working buffer, but sizes end at %" PRIu64 ".", needed, kLargestSize);
		return;
	}
	if (m_WorkingBuffer == null)
	{
		if (m_WorkingBufferSize != 0)
			_Violation("The working buffer is null, but has %" PRIu64 " bytes.", m_WorkingBufferSize);
		else
			_Advice("No working buffer is given: the sort takes one from the allocator and gives it back.");
		return;
	}
	const ureg address = reinterpret_cast<ureg>(m_WorkingBuffer);
	if (address % kWorkingBufferAlignment != 0)
		_Violation("The working buffer starts at %u modulo %u, but needs 0.", u32(address % kWorkingBufferAlignment),
			kWorkingBufferAlignment);
	if (m_WorkingBufferSize < needed)
		_Violation(
			"The working buffer has %" PRIu64 " bytes, but the sort needs %" PRIu64 ".", m_WorkingBufferSize, needed);
	const u64 addressable = u64(~ureg(0) - address) + 1;
	if (m_WorkingBufferSize > addressable)
		_Violation("The working buffer has %" PRIu64 " bytes, but the address space ends after %" PRIu64 ".",
			m_WorkingBufferSize, addressable);
}

// What the sort writes lies apart from all that it reads. Of a working buffer, as much counts as the sort uses.
void CSortValidation::_CheckSharedMemory()
{
	// With jobs it may have more bytes than a count can say: it is looked at in pieces.
	const u64 used = std::min(_NeededWorkingBufferSize(), m_WorkingBufferSize);
	const auto checkWorkingBuffer = [&](const SElements &other)
	{
		constexpr u64 kPiece = 1u << 31;
		for (u64 first = 0; first < used; first += kPiece)
		{
			const void *const piece =
				reinterpret_cast<const void *>(reinterpret_cast<ureg>(m_WorkingBuffer) + ureg(first));
			_CheckApart({"working buffer", kNoPage, piece, u32(std::min(used - first, kPiece)), 1, 1, 1}, other);
		}
	};
	const SElements output = _Output();
	checkWorkingBuffer(output);
	const auto checkInput = [&](const SElements &input)
	{
		_CheckApart(output, input);
		checkWorkingBuffer(input);
	};

	checkInput({"sorter", kNoPage, &m_Sorter, 1, sizeof(m_Sorter), sizeof(m_Sorter), 1});
	checkInput(_RenderedCounts());
	if (m_Sorter.m_SortType != CSorter::SortUnknown)
		checkInput(_SourcePages());
	checkInput(_EnabledPages());
	_ForEachRenderedPage(
		[&](const SPage &page)
		{
			if (page.m_Id < m_SourcePageCount)
				checkInput(_UsedSource(page));
			if (page.m_Id < m_EnabledPageCount && page.m_DrawnCount != 0)
				checkInput(_Enableds(page.m_Id));
			if (page.m_Id < m_PatternPageCount && page.m_IsReached)
				checkInput(ElementsOfPattern(page.m_Id, _PagePattern(page.m_Id)));
		});
	if (_IsGeometry(CSorter::GeometryPerPage))
	{
		checkInput(_PagePatterns());
		checkInput(_PageVertexCounts());
		return;
	}
	checkInput(ElementsOfPattern(kNoPage, m_Sorter.m_IndexPattern));
	if (_HasIndexList())
		checkInput(_IndexList());
	if (_ReadsQuadCenters())
		checkInput(_QuadCenters());
}

void CSortValidation::_CheckApart(const SElements &written, const SElements &other)
{
	if (FaultOf(written) != ViewFault_None || FaultOf(other) != ViewFault_None)
		return;
	const u64 shared = SharedBytes(written, other);
	if (shared != 0)
		_Violation("The %s overlaps %s by %" PRIu64 " byte%s.", written.m_Name, SNameText(other).m_Text, shared,
			PluralOf(shared));
}

// Entry points.

u32 ValidateSort(const CTriangleSorter &sorter,
	ESortEntry entry,
	const void *workingBuffer,
	u64 workingBufferSize,
	CbSortFinding handler,
	void *userData,
	const SSortJobs *jobs)
{
	return CSortValidation(sorter, entry, workingBuffer, workingBufferSize, handler, userData, jobs).Run();
}

u64 WrittenIndexCount(const CTriangleSorter &sorter)
{
	return CSortValidation(sorter, CSortValidation::EntryOf(sorter), null, 0, null, null, null).WrittenIndexCount();
}

u32 ValidateSort(const CTriangleSorter &sorter,
	const void *workingBuffer,
	u64 workingBufferSize,
	CbSortFinding handler,
	void *userData)
{
	return ValidateSort(sorter, CSortValidation::EntryOf(sorter), workingBuffer, workingBufferSize, handler, userData);
}

static u32 SortChecked(CTriangleSorter &sorter,
	ESortEntry entry,
	void *workingBuffer,
	u64 workingBufferSize,
	CbSortFinding handler,
	void *userData,
	const SSortJobs *jobs)
{
	const u32 violationCount = ValidateSort(sorter, entry, workingBuffer, workingBufferSize, handler, userData, jobs);
	if (violationCount != 0)
		return violationCount;
	if (entry == SortEntry_Points && jobs != null)
		sorter.SortPoints_AutogenIndices(workingBuffer, workingBufferSize, *jobs);
	else if (entry == SortEntry_Points)
		sorter.SortPoints_AutogenIndices(workingBuffer);
	else if (jobs != null)
		sorter.SortTriangles_AutogenIndices(workingBuffer, workingBufferSize, *jobs);
	else
		sorter.SortTriangles_AutogenIndices(workingBuffer);
	return 0;
}

u32 SortPointsChecked(CTriangleSorter &sorter,
	void *workingBuffer,
	u64 workingBufferSize,
	CbSortFinding handler,
	void *userData,
	const SSortJobs *jobs)
{
	return SortChecked(sorter, SortEntry_Points, workingBuffer, workingBufferSize, handler, userData, jobs);
}

u32 SortTrianglesChecked(CTriangleSorter &sorter,
	void *workingBuffer,
	u64 workingBufferSize,
	CbSortFinding handler,
	void *userData,
	const SSortJobs *jobs)
{
	return SortChecked(sorter, SortEntry_Triangles, workingBuffer, workingBufferSize, handler, userData, jobs);
}
} // namespace Vexmoor
