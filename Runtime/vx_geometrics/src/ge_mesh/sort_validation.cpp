// The rules of one sort, top down: the output, the input and its pages, the geometry of points or of triangles, the
// working buffer, and what may not share memory. A view is checked before its elements are read; a check that would
// need an unsound view is left out, since that view has been spoken of.

#include "ge_mesh_sort_validation.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace Vexmoor
{
constexpr u64 kLargestSize = 0xFFFFFFFFu; // counts and sizes are 32-bit
constexpr u64 kLargestIndex16 = 0xFFFE;   // a streaming loop writes 0xFFFF one too low
constexpr u64 kLargestIndex32 = 0xFFFFFFFFu;
constexpr u32 kQuadWidth = 6;
constexpr u32 kLargestQuadCount = 15;
constexpr u32 kQuadSlots = 16; // per particle
constexpr u32 kTriangleWidth = 3;
constexpr u32 kWorkingBufferAlignment = 16;
constexpr u32 kNoPage = TGuid<u32>::INVALID.m_Guid;

// Elements that a caller points to, and what a sentence calls them.
struct SElements
{
	const char *m_Name;
	u32 m_Page; // or kNoPage
	ureg m_Address;
	u32 m_Count;
	u32 m_Stride;
	u32 m_ElementSize;
	u32 m_Alignment; // of elements that are read through references; 1 where bytes or lanes are loaded

	SElements(const char *name, u32 page, const void *data, u32 count, u32 stride, u32 elementSize, u32 alignment)
		: m_Name(name)
		, m_Page(page)
		, m_Address(reinterpret_cast<ureg>(data))
		, m_Count(count)
		, m_Stride(stride)
		, m_ElementSize(elementSize)
		, m_Alignment(alignment)
	{
	}
	template<typename _Type>
	SElements(const char *name, u32 page, const TStridedMemoryView<_Type, -1> &view, u32 alignment)
		: SElements(name, page, view.Data(), view.Count(), view.Stride(), sizeof(_Type), alignment)
	{
	}
	template<typename _Type>
	SElements(const char *name, u32 page, const TMemoryView<_Type> &view, u32 alignment)
		: SElements(name, page, view.Data(), view.Count(), sizeof(_Type), sizeof(_Type), alignment)
	{
	}

	u64 CoveredBytes() const { return u64(m_Count) * m_Stride; }
	// From the first byte of the first element to the last byte of the last one.
	u64 Span() const { return m_Count == 0 ? 0 : u64(m_Count - 1) * m_Stride + m_ElementSize; }
	// From an address that is not null to the end of all addresses.
	u64 AddressableBytes() const { return u64(~ureg(0) - m_Address) + 1; }
};

enum EViewFault
{
	ViewFault_None,
	ViewFault_Null,
	ViewFault_Stride,
	ViewFault_StrideAlignment,
	ViewFault_Size,
	ViewFault_AddressSpace,
	ViewFault_Alignment
};

// A view without elements is sound whatever else it says: nothing is read through it.
static EViewFault FaultOf(const SElements &elements)
{
	if (elements.m_Count == 0)
		return ViewFault_None;
	if (elements.m_Address == 0)
		return ViewFault_Null;
	if (elements.m_Stride != 0 && elements.m_Stride < elements.m_ElementSize)
		return ViewFault_Stride;
	if (elements.m_Stride % elements.m_Alignment != 0)
		return ViewFault_StrideAlignment;
	if (elements.CoveredBytes() > kLargestSize)
		return ViewFault_Size;
	if (elements.Span() > elements.AddressableBytes())
		return ViewFault_AddressSpace;
	if (elements.m_Address % elements.m_Alignment != 0)
		return ViewFault_Alignment;
	return ViewFault_None;
}

// "the positions of page 3"
struct SNameText
{
	char m_Text[64];

	explicit SNameText(const SElements &elements)
	{
		if (elements.m_Page == kNoPage)
			std::snprintf(m_Text, sizeof(m_Text), "the %s", elements.m_Name);
		else
			std::snprintf(m_Text, sizeof(m_Text), "the %s of page %u", elements.m_Name, elements.m_Page);
	}
};

// A page that renders particles.
struct SRenderedPage
{
	u32 m_Id;
	u32 m_RenderedCount;
	u64 m_FirstRendered; // the number of its first rendered particle
};

// By its bits: under -ffast-math no float is a NaN.
static bool IsNaN(float value)
{
	u32 bits;
	std::memcpy(&bits, &value, sizeof(bits));
	return (bits & 0x7FFFFFFFu) > 0x7F800000u;
}

static const char *PluralOf(u64 count)
{
	return count == 1 ? "" : "s";
}

static u32 LargestEntry(const TMemoryView<const u32> &pattern)
{
	u32 largest = 0;
	for (u32 i = 0; i < pattern.Count(); ++i)
		largest = std::max(largest, pattern.Data()[i]);
	return largest;
}

class CSortValidation
{
public:
	CSortValidation(const CTriangleSorter &sorter,
		const void *workingBuffer,
		u64 workingBufferSize,
		CbSortFinding handler,
		void *userData)
		: m_Sorter(sorter)
		, m_WorkingBuffer(workingBuffer)
		, m_WorkingBufferSize(workingBufferSize)
		, m_Handler(handler)
		, m_UserData(userData)
	{
	}

	u32 Run();

private:
	typedef CTriangleSorter CSorter;
	typedef CSorter::CIndexPattern CIndexPattern;

	void _Violation(const char *format, ...) VX_PRINTF_LIKE(2, 3);
	void _Advice(const char *format, ...) VX_PRINTF_LIKE(2, 3);
	void _Tell(ESortFinding kind, const char *format, va_list arguments) const VX_PRINTF_LIKE(3, 0);

	bool _CheckView(const SElements &elements);
	u32 _CheckPageViews(const SElements &views, const char *plural);

	bool _ByPosition() const { return m_Sorter.m_SortType == CSorter::SortByPosition; }
	bool _Has16BitIndices() const { return m_Sorter.m_IndexType == CSorter::IndexTypeUint16; }
	bool _SortsTriangles() const { return m_Sorter.m_GeometryType == CSorter::GeometryPerPage; }
	bool _HasIndexList() const;

	SElements _Output() const;
	SElements _RenderedCounts() const;
	SElements _SourcePages() const;
	SElements _Source(u32 pageId) const;
	SElements _EnabledPages() const;
	SElements _Enableds(u32 pageId) const;
	SElements _IndexList() const;
	SElements _QuadCenters() const;
	SElements _PagePatterns() const;
	SElements _PageVertexCounts() const;
	template<typename _Check>
	void _ForEachRenderedPage(const _Check &check) const;

	void _CheckOutput();
	void _CheckInput();
	void _CheckParticleCount();
	void _CheckCamera();
	void _CheckSource(const SRenderedPage &page);
	void _CheckEnableds(const SRenderedPage &page);
	bool _HasDisabled(const SRenderedPage &page) const;
	void _CheckMixedPages();

	void _CheckGeometry();
	void _CheckPointPattern();
	void _CheckQuadPattern();
	void _CheckPatternEntries(const char *ofPage, const TMemoryView<const u32> &pattern, u32 verticesPerParticle);
	void _CheckExpansionSpeed();
	void _CheckPointRoom();
	void _CheckConstantVertices();
	u64 _LargestIndex() const { return _Has16BitIndices() ? kLargestIndex16 : kLargestIndex32; }
	void _TellLargestIndex(u32 pageId, u64 particle, u64 index);
	void _CheckLargestIndex(
		const SRenderedPage &page, u64 firstVertex, u32 verticesPerParticle, u64 drawnCount, u32 largestEntry);

	void _CheckIndexList();
	u32 _VertexBase(u32 entry) const { return entry < m_Sorter.m_VertexCount ? entry : 0; }
	template<typename _Accepts, typename _Report>
	void _CheckListEntries(const _Accepts &accepts, const _Report &report);
	void _CheckListVertices();
	void _CheckListIndices();
	void _CheckQuadCenters();

	void _CheckPagePatterns();
	void _CheckPagePattern(const SRenderedPage &page);
	void _CheckTriangleIndexCount();
	void _CheckTriangleVertices();

	u64 _NeededWorkingBufferSize() const;
	void _CheckWorkingBuffer();
	void _CheckSharedMemory();
	void _CheckApart(const SElements &written, const SElements &other);

	const CTriangleSorter &m_Sorter;
	const void *const m_WorkingBuffer;
	const u64 m_WorkingBufferSize;
	const CbSortFinding m_Handler;
	void *const m_UserData;
	u32 m_ViolationCount = 0;

	// Pages whose entry can be read; 0 where a view of pages is unsound.
	u32 m_PageCount = 0;
	u32 m_SourcePageCount = 0;
	u32 m_EnabledPageCount = 0;
	u32 m_PatternPageCount = 0;
	u32 m_VertexCountPageCount = 0;
};

u32 CSortValidation::Run()
{
	_CheckOutput();
	_CheckInput();
	_CheckGeometry();
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
		_Violation("The view of %s has a null pointer, but a count of %u.", name.m_Text, elements.m_Count);
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
		_Violation("The view of %s covers %" PRIu64 " bytes, but sizes end at %" PRIu64 ".", name.m_Text,
			elements.CoveredBytes(), kLargestSize);
		break;
	case ViewFault_AddressSpace:
		_Violation("The view of %s covers %" PRIu64 " bytes, but the address space ends after %" PRIu64 ".",
			name.m_Text, elements.Span(), elements.AddressableBytes());
		break;
	default:
		_Violation("The view of %s starts at %u modulo %u, but needs 0.", name.m_Text,
			u32(elements.m_Address % elements.m_Alignment), elements.m_Alignment);
		break;
	}
	return false;
}

// A view with an element per page: returns how many of them can be read.
u32 CSortValidation::_CheckPageViews(const SElements &views, const char *plural)
{
	if (!_CheckView(views))
		return 0;
	const bool hasRenderedCounts =
		m_Sorter.m_SortType != CSorter::SortUnknown && FaultOf(_RenderedCounts()) == ViewFault_None;
	if (hasRenderedCounts && views.m_Count != m_PageCount)
		_Violation("The count of %s is %u, but that of rendered counts is %u.", plural, views.m_Count, m_PageCount);
	return views.m_Count;
}

bool CSortValidation::_HasIndexList() const
{
	return m_Sorter.m_GeometryType == CSorter::GeometryConstantAndIndexList ||
	       m_Sorter.m_GeometryType == CSorter::GeometryConstantAndIndexListAndQuadCenters;
}

SElements CSortValidation::_Output() const
{
	if (_Has16BitIndices())
		return {"output", kNoPage, m_Sorter.m_OutIndices16, sizeof(u16)};
	if (m_Sorter.m_IndexType == CSorter::IndexTypeUint32)
		return {"output", kNoPage, m_Sorter.m_OutIndices32, sizeof(u32)};
	return {"output", kNoPage, null, 0, 0, 0, 1};
}

SElements CSortValidation::_RenderedCounts() const
{
	return {"rendered counts", kNoPage, m_Sorter.m_InRenderedParticleCounts, alignof(u32)};
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
	return {"index list", kNoPage, m_Sorter.m_IndexList, 1};
}

SElements CSortValidation::_QuadCenters() const
{
	return {"quad centres", kNoPage, m_Sorter.m_QuadCenters, alignof(CFloat4)};
}

SElements CSortValidation::_PagePatterns() const
{
	return {"pages' index patterns", kNoPage, m_Sorter.m_IndexPatternCollection, alignof(CIndexPattern)};
}

SElements CSortValidation::_PageVertexCounts() const
{
	return {"pages' vertex counts", kNoPage, m_Sorter.m_PrimiteVertexCountCollection, alignof(u32)};
}

template<typename _Check>
void CSortValidation::_ForEachRenderedPage(const _Check &check) const
{
	u64 firstRendered = 0;
	for (u32 pageId = 0; pageId < m_PageCount; ++pageId)
	{
		const u32 renderedCount = m_Sorter.m_InRenderedParticleCounts[pageId];
		if (renderedCount != 0)
			check(SRenderedPage{pageId, renderedCount, firstRendered});
		firstRendered += renderedCount;
	}
}

// Output and input.

void CSortValidation::_CheckOutput()
{
	if (m_Sorter.m_IndexType == CSorter::IndexTypeUnknown)
		_Violation("No output is set up.");
	else
		_CheckView(_Output());
}

void CSortValidation::_CheckInput()
{
	if (m_Sorter.m_SortType == CSorter::SortUnknown)
	{
		_Violation("No input is set up.");
		return;
	}
	if (_CheckView(_RenderedCounts()))
	{
		m_PageCount = m_Sorter.m_InRenderedParticleCounts.Count();
		_CheckParticleCount();
	}
	m_SourcePageCount = _CheckPageViews(_SourcePages(), _ByPosition() ? "position views" : "sort value views");
	m_EnabledPageCount = _CheckPageViews(_EnabledPages(), "enabled views");
	_ForEachRenderedPage(
		[this](const SRenderedPage &page)
		{
			_CheckSource(page);
			_CheckEnableds(page);
		});
	_CheckMixedPages();
	_CheckCamera();
}

void CSortValidation::_CheckParticleCount()
{
	if (m_PageCount == 0 && !_SortsTriangles())
	{
		_Violation("The count of rendered counts is 0, but a sort of points needs at least 1.");
		return;
	}
	u64 renderedCount = 0;
	_ForEachRenderedPage([&renderedCount](const SRenderedPage &page) { renderedCount += page.m_RenderedCount; });
	if (renderedCount != m_Sorter.m_ParticleCount)
		_Violation("The pages render %" PRIu64 " particle%s, but the particle count is %u.", renderedCount,
			PluralOf(renderedCount), m_Sorter.m_ParticleCount);
	else if (renderedCount == 0 && !_SortsTriangles())
		_Advice("The pages render 0 particles: the sort draws nothing, and reports that it has no first record.");
}

void CSortValidation::_CheckCamera()
{
	const bool isUsed = _ByPosition() || m_Sorter.m_GeometryType == CSorter::GeometryConstantAndIndexListAndQuadCenters;
	for (u32 axis = 0; isUsed && axis < 3; ++axis)
	{
		if (IsNaN(m_Sorter.m_CameraPosition[axis]))
			_Advice("The camera's %c is not a number, and so is every distance to it.", "xyz"[axis]);
	}
}

void CSortValidation::_CheckSource(const SRenderedPage &page)
{
	if (page.m_Id >= m_SourcePageCount)
		return;
	const SElements source = _Source(page.m_Id);
	if (!_CheckView(source))
		return;
	if (source.m_Count < page.m_RenderedCount)
		_Violation("Page %u renders %u particle%s, but has %s for %u.", page.m_Id, page.m_RenderedCount,
			PluralOf(page.m_RenderedCount), source.m_Name, source.m_Count);
	else if (source.m_Stride != 0 && source.m_Stride != source.m_ElementSize)
		_Advice("The %s of page %u have a stride of %u: %u is faster.", source.m_Name, page.m_Id, source.m_Stride,
			source.m_ElementSize);
}

void CSortValidation::_CheckEnableds(const SRenderedPage &page)
{
	if (page.m_Id >= m_EnabledPageCount)
		return;
	const SElements enableds = _Enableds(page.m_Id);
	if (!_CheckView(enableds) || enableds.m_Count == 0)
		return;
	if (enableds.m_Stride != 1)
	{
		_Violation("The enabled bytes of page %u have a stride of %u, but need 1.", page.m_Id, enableds.m_Stride);
		return;
	}
	if (page.m_Id < m_SourcePageCount && _Source(page.m_Id).m_Count != enableds.m_Count)
	{
		const SElements source = _Source(page.m_Id);
		_Violation("Page %u has enabled bytes for %u, but %s for %u.", page.m_Id, enableds.m_Count, source.m_Name,
			source.m_Count);
		return;
	}
	const u8 *const bytes = m_Sorter.m_InEnableds[page.m_Id].Data();
	const u32 enabledCount = enableds.m_Count - u32(std::count(bytes, bytes + enableds.m_Count, u8(0)));
	if (enabledCount != page.m_RenderedCount)
		_Violation("Page %u renders %u particle%s, but %u of its enabled bytes are not 0.", page.m_Id,
			page.m_RenderedCount, PluralOf(page.m_RenderedCount), enabledCount);
}

bool CSortValidation::_HasDisabled(const SRenderedPage &page) const
{
	return !m_Sorter.m_InEnableds[page.m_Id].Empty() && page.m_RenderedCount < _Source(page.m_Id).m_Count;
}

// The trap that the sorter's class comment tells of.
void CSortValidation::_CheckMixedPages()
{
	if (!_ByPosition())
		return;
	u32 pageWithDisabled = kNoPage;
	u32 pageWithout = kNoPage;
	_ForEachRenderedPage(
		[&](const SRenderedPage &page)
		{
			if (page.m_Id >= std::min(m_SourcePageCount, m_EnabledPageCount))
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
	switch (m_Sorter.m_GeometryType)
	{
	case CSorter::GeometryConstant:
		_CheckPointPattern();
		_CheckPatternEntries("", m_Sorter.m_IndexPattern, m_Sorter.m_PrimiteVertexCount);
		_CheckConstantVertices();
		break;
	case CSorter::GeometryConstantAndIndexList:
		_CheckPointPattern();
		_CheckIndexList();
		break;
	case CSorter::GeometryConstantAndIndexListAndQuadCenters:
		_CheckQuadPattern();
		_CheckPatternEntries("", m_Sorter.m_IndexPattern, m_Sorter.m_PrimiteVertexCount);
		_CheckIndexList();
		break;
	case CSorter::GeometryPerPage:
		_CheckPagePatterns();
		break;
	default:
		_Violation("No geometry is set up.");
		break;
	}
}

void CSortValidation::_CheckPointPattern()
{
	const TMemoryView<const u32> pattern = m_Sorter.m_IndexPattern;
	if (pattern.Count() == 0)
		_Violation("The index pattern has 0 entries, but needs at least 1.");
	else if (pattern.Count() == 1 && *pattern.Data() != 0)
		_Violation("The index pattern's only entry is %u, but has to be 0.", *pattern.Data());
	_CheckExpansionSpeed();
	_CheckPointRoom();
}

void CSortValidation::_CheckQuadPattern()
{
	const u32 width = m_Sorter.m_IndexPattern.Count();
	const u32 quadCount = width / kQuadWidth;
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
	const char *ofPage, const TMemoryView<const u32> &pattern, u32 verticesPerParticle)
{
	if (verticesPerParticle == 0)
	{
		_Violation("The particles%s have 0 vertices each, but need at least 1.", ofPage);
		return;
	}
	const u32 *const end = pattern.Data() + pattern.Count();
	const u32 *const bad =
		std::find_if(pattern.Data(), end, [verticesPerParticle](u32 entry) { return entry >= verticesPerParticle; });
	if (bad != end)
		_Violation("Entry %u of the index pattern%s is %u, but the vertices per particle are %u.",
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
	const bool losesLast = (particleCount - room) % 2 != 0;
	_Advice("The output has room for %u of %u particle%s: the lowest keys are not drawn%s.", room, particleCount,
		PluralOf(particleCount), losesLast ? ", nor is the highest" : "");
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
	_ForEachRenderedPage(
		[&](const SRenderedPage &page)
		{
			if (page.m_FirstRendered >= validCount)
				return;
			const u64 drawnCount = std::min<u64>(page.m_RenderedCount, validCount - page.m_FirstRendered);
			_CheckLargestIndex(
				page, page.m_FirstRendered * verticesPerParticle, verticesPerParticle, drawnCount, largestEntry);
		});
}

// The first particle of a page whose largest index is beyond the index type, if there is one among those drawn.
void CSortValidation::_CheckLargestIndex(
	const SRenderedPage &page, u64 firstVertex, u32 verticesPerParticle, u64 drawnCount, u32 largestEntry)
{
	const u64 limit = _LargestIndex();
	const u64 first = firstVertex + largestEntry;
	const u64 particle = first > limit ? 0 : (limit - first) / verticesPerParticle + 1;
	if (particle < drawnCount)
		_TellLargestIndex(page.m_Id, page.m_FirstRendered + particle, first + particle * verticesPerParticle);
}

void CSortValidation::_TellLargestIndex(u32 pageId, u64 particle, u64 index)
{
	_Violation("Page %u, particle %" PRIu64 ": its largest index is %" PRIu64 ", but indices of %u bits end at %" PRIu64
			   ".",
		pageId, particle, index, _Has16BitIndices() ? 16 : 32, _LargestIndex());
}

// Index list.

void CSortValidation::_CheckIndexList()
{
	const SElements list = _IndexList();
	if (!_CheckView(list))
		return;
	if (list.m_Count < m_Sorter.m_ParticleCount)
		_Violation(
			"The count of the index list is %u, but the particle count is %u.", list.m_Count, m_Sorter.m_ParticleCount);
	_CheckListVertices();
	_CheckListIndices();
	if (m_Sorter.m_GeometryType == CSorter::GeometryConstantAndIndexListAndQuadCenters)
		_CheckQuadCenters();
}

// Hands report the first entry of each page that accepts refuses.
template<typename _Accepts, typename _Report>
void CSortValidation::_CheckListEntries(const _Accepts &accepts, const _Report &report)
{
	const u8 *const list = reinterpret_cast<const u8 *>(m_Sorter.m_IndexList.Data());
	const u64 listCount = m_Sorter.m_IndexList.Count();
	_ForEachRenderedPage(
		[&](const SRenderedPage &page)
		{
			const u64 end = std::min(page.m_FirstRendered + page.m_RenderedCount, listCount);
			for (u64 particle = page.m_FirstRendered; particle < end; ++particle)
			{
				u32 entry;
				std::memcpy(&entry, list + particle * sizeof(entry), sizeof(entry)); // of any alignment
				if (!accepts(entry))
				{
					report(page.m_Id, particle, entry);
					return;
				}
			}
		});
}

void CSortValidation::_CheckListVertices()
{
	const u32 vertexCount = m_Sorter.m_VertexCount;
	const u64 largestEntry = LargestEntry(m_Sorter.m_IndexPattern);
	_CheckListEntries([vertexCount](u32 entry) { return entry < vertexCount; },
		[this](u32 pageId, u64 particle, u32 entry)
		{
			_Advice("Page %u, particle %" PRIu64
					": its list entry is %u, but the vertex count is %u: it draws vertex 0's, as if infinitely far.",
				pageId, particle, entry, m_Sorter.m_VertexCount);
		});
	_CheckListEntries([vertexCount, largestEntry](u32 entry)
		{ return entry >= vertexCount || entry + largestEntry < vertexCount; },
		[this, largestEntry](u32 pageId, u64 particle, u32 entry)
		{
			_Advice("Page %u, particle %" PRIu64 ": its largest index is %" PRIu64 ", but the vertex count is %u.",
				pageId, particle, entry + largestEntry, m_Sorter.m_VertexCount);
		});
}

void CSortValidation::_CheckListIndices()
{
	const u64 limit = _LargestIndex();
	const u64 largestEntry = LargestEntry(m_Sorter.m_IndexPattern);
	_CheckListEntries([this, largestEntry, limit](u32 entry) { return _VertexBase(entry) + largestEntry <= limit; },
		[this, largestEntry](u32 pageId, u64 particle, u32 entry)
		{ _TellLargestIndex(pageId, particle, _VertexBase(entry) + largestEntry); });
}

void CSortValidation::_CheckQuadCenters()
{
	const u32 verticesPerParticle = m_Sorter.m_PrimiteVertexCount;
	if (!_CheckView(_QuadCenters()) || verticesPerParticle == 0)
		return;
	const u64 slotCount = m_Sorter.m_QuadCenters.Count();
	const auto slotsFor = [this, verticesPerParticle](u32 entry)
	{ return (u64(_VertexBase(entry) / verticesPerParticle) + 1) * kQuadSlots; };
	_CheckListEntries([slotsFor, slotCount](u32 entry) { return slotsFor(entry) <= slotCount; },
		[this, slotsFor, slotCount](u32 pageId, u64 particle, u32 entry)
		{
			_Violation("Page %u, particle %" PRIu64 ": its quads need %" PRIu64 " centre slots, but there are %" PRIu64
					   ".",
				pageId, particle, slotsFor(entry), slotCount);
		});
}

// Geometry of triangles.

void CSortValidation::_CheckPagePatterns()
{
	m_PatternPageCount = _CheckPageViews(_PagePatterns(), "index patterns");
	m_VertexCountPageCount = _CheckPageViews(_PageVertexCounts(), "vertex counts");
	_ForEachRenderedPage([this](const SRenderedPage &page) { _CheckPagePattern(page); });
	_CheckTriangleIndexCount();
	_CheckTriangleVertices();
}

void CSortValidation::_CheckPagePattern(const SRenderedPage &page)
{
	if (page.m_Id >= m_PatternPageCount)
		return;
	const TMemoryView<const u32> pattern = m_Sorter.m_IndexPatternCollection[page.m_Id];
	if (pattern.Count() == 0 || pattern.Count() % kTriangleWidth != 0)
		_Violation("The width of the index pattern of page %u is %u, but has to be a multiple of %u above 0.",
			page.m_Id, pattern.Count(), kTriangleWidth);
	if (page.m_Id >= m_VertexCountPageCount)
		return;
	char ofPage[32];
	std::snprintf(ofPage, sizeof(ofPage), " of page %u", page.m_Id);
	_CheckPatternEntries(ofPage, pattern, m_Sorter.m_PrimiteVertexCountCollection[page.m_Id]);
}

void CSortValidation::_CheckTriangleIndexCount()
{
	const u32 given = m_Sorter.m_IndexCount_fromBB;
	if (given % kTriangleWidth != 0)
		_Violation("The index count is %u, but needs to be a multiple of %u.", given, kTriangleWidth);

	u64 needed = 0;
	_ForEachRenderedPage(
		[&](const SRenderedPage &page)
		{
			if (page.m_Id < m_PatternPageCount)
				needed += u64(page.m_RenderedCount) * m_Sorter.m_IndexPatternCollection[page.m_Id].Count();
		});
	if (needed > given)
		_Violation("The pages draw %" PRIu64 " indices, but the index count is %u.", needed, given);
	else if (needed < given && m_PatternPageCount == m_PageCount)
		_Advice(
			"The pages draw %" PRIu64 " indices, but the index count is %u: vertex 0 fills the rest.", needed, given);

	const u32 room = m_Sorter.m_IndexCount / kTriangleWidth;
	if (m_Sorter.m_IndexType != CSorter::IndexTypeUnknown && room < given / kTriangleWidth)
		_Advice(
			"The output has room for %u of %u triangles: the lowest keys are not drawn.", room, given / kTriangleWidth);
}

// Pages share out the vertices in turn; even one that renders nothing ends that where a particle of it has no room.
void CSortValidation::_CheckTriangleVertices()
{
	const u64 vertexCount = m_Sorter.m_VertexCount;
	const u32 pageCount = std::min({m_PageCount, m_PatternPageCount, m_VertexCountPageCount});
	u64 firstVertex = 0;
	u64 firstRendered = 0;
	for (u32 pageId = 0; pageId < pageCount; ++pageId)
	{
		const u32 renderedCount = m_Sorter.m_InRenderedParticleCounts[pageId];
		const u32 verticesPerParticle = m_Sorter.m_PrimiteVertexCountCollection[pageId];
		if (firstVertex + verticesPerParticle > kLargestSize)
		{
			_Violation("The first particle of page %u ends at vertex %" PRIu64 ", but counts end at %" PRIu64 ".",
				pageId, firstVertex + verticesPerParticle, kLargestSize);
			return;
		}
		if (firstVertex + verticesPerParticle > vertexCount)
		{
			if (firstRendered < m_Sorter.m_ParticleCount)
				_Advice("The first particle of page %u ends at vertex %" PRIu64 ", but the vertex count is %" PRIu64
						": pages from there on are not drawn.",
					pageId, firstVertex + verticesPerParticle, vertexCount);
			return;
		}
		if (renderedCount != 0 && verticesPerParticle != 0)
		{
			const u64 drawnCount = std::min<u64>(renderedCount, (vertexCount - firstVertex) / verticesPerParticle);
			if (drawnCount < renderedCount)
				_Advice("The vertex count of %" PRIu64 " has room for %" PRIu64 " of the %u particles of page %u.",
					vertexCount, drawnCount, renderedCount, pageId);
			_CheckLargestIndex({pageId, renderedCount, firstRendered}, firstVertex, verticesPerParticle, drawnCount,
				LargestEntry(m_Sorter.m_IndexPatternCollection[pageId]));
			firstVertex += drawnCount * verticesPerParticle;
		}
		firstRendered += renderedCount;
	}
}

// Memory.

// As the sorter's own functions say, without their end at 32 bits.
u64 CSortValidation::_NeededWorkingBufferSize() const
{
	const auto recordArrays = [](u64 recordCount)
	{ return ((recordCount + 1) & ~u64(1)) * sizeof(SIndexAndDepth) * 2; };
	if (m_Sorter.m_GeometryType == CSorter::GeometryUnknown)
		return 0;
	if (!_SortsTriangles())
		return recordArrays(m_Sorter.m_ParticleCount);
	const u64 indexCount = m_Sorter.m_IndexCount_fromBB;
	return recordArrays(indexCount / kTriangleWidth) + ((indexCount + 1) & ~u64(1)) * sizeof(u32);
}

void CSortValidation::_CheckWorkingBuffer()
{
	const u64 needed = _NeededWorkingBufferSize();
	if (needed > kLargestSize)
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
	const u64 used = std::min({_NeededWorkingBufferSize(), m_WorkingBufferSize, kLargestSize});
	const SElements workingBuffer("working buffer", kNoPage, m_WorkingBuffer, u32(used), 1, 1, 1);
	const SElements output = _Output();
	_CheckApart(workingBuffer, output);
	const auto checkInput = [&](const SElements &input)
	{
		_CheckApart(output, input);
		_CheckApart(workingBuffer, input);
	};

	checkInput({"sorter", kNoPage, &m_Sorter, 1, sizeof(m_Sorter), sizeof(m_Sorter), 1});
	checkInput(_RenderedCounts());
	if (m_Sorter.m_SortType != CSorter::SortUnknown)
		checkInput(_SourcePages());
	checkInput(_EnabledPages());
	_ForEachRenderedPage(
		[&](const SRenderedPage &page)
		{
			if (page.m_Id < m_SourcePageCount)
				checkInput(_Source(page.m_Id));
			if (page.m_Id < m_EnabledPageCount)
				checkInput(_Enableds(page.m_Id));
			if (page.m_Id < m_PatternPageCount)
				checkInput({"index pattern", page.m_Id,
					TMemoryView<const u32>(m_Sorter.m_IndexPatternCollection[page.m_Id]), 1});
		});
	if (_SortsTriangles())
	{
		checkInput(_PagePatterns());
		checkInput(_PageVertexCounts());
		return;
	}
	checkInput({"index pattern", kNoPage, TMemoryView<const u32>(m_Sorter.m_IndexPattern), 1});
	if (_HasIndexList())
		checkInput(_IndexList());
	if (m_Sorter.m_GeometryType == CSorter::GeometryConstantAndIndexListAndQuadCenters)
		checkInput(_QuadCenters());
}

void CSortValidation::_CheckApart(const SElements &written, const SElements &other)
{
	if (FaultOf(written) != ViewFault_None || FaultOf(other) != ViewFault_None)
		return;
	const u64 begin = std::max(written.m_Address, other.m_Address);
	const u64 writtenBytes = written.Span() - std::min(written.Span(), begin - written.m_Address);
	const u64 otherBytes = other.Span() - std::min(other.Span(), begin - other.m_Address);
	const u64 shared = std::min(writtenBytes, otherBytes);
	if (shared != 0)
		_Violation("The %s overlaps %s by %" PRIu64 " byte%s.", written.m_Name, SNameText(other).m_Text, shared,
			PluralOf(shared));
}

u32 ValidateSort(const CTriangleSorter &sorter,
	const void *workingBuffer,
	u64 workingBufferSize,
	CbSortFinding handler,
	void *userData)
{
	return CSortValidation(sorter, workingBuffer, workingBufferSize, handler, userData).Run();
}
} // namespace Vexmoor
