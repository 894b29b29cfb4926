// Reads a capture front to back, then gives its regions memory, fills them and sets up the sorter. Nothing in the file
// is believed before it is checked: a count against what is left of the file, what it takes in memory against the
// limit, and what regions that overlap are filled with against each other.

#include "ge_mesh_sort_capture.h"
#include "ge_mesh_sort_replay.h"

#include "include/pv_captured_memory.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace Vexmoor
{
constexpr u64 kLargestSize = 0xFFFFFFFFu;

static unsigned long long Long(u64 value)
{
	return value;
}

// What is read, and the memory that it lies in.
class CCapturedSort::CContents
{
public:
	explicit CContents(CRefusal &refusal)
		: m_Refusal(refusal)
		, m_Memory(refusal)
	{
	}

	// Whether the file is read; otherwise the refusal says why not.
	bool Read(const void *file, u64 size, u64 memoryLimit);

	const CTriangleSorter &Sorter() const { return *m_Sorter; }
	const void *WorkingBuffer() const { return m_HasWorkingBuffer ? m_Memory.Data(m_WorkingBufferRegion) : null; }
	u64 WorkingBufferSize() const { return m_WorkingBufferSize; }

	void Sort();

	u8 *Output() const { return m_Memory.Data(m_OutputRegion); }
	u8 *SpareOutput() { return m_SpareOutput.data(); }
	u64 OutputSize() const { return u64(m_OutputCount) * IndexSize(); }
	u32 OutputCount() const { return m_OutputCount; }
	u32 IndexSize() const { return m_IndexType == CTriangleSorter::IndexTypeUint16 ? sizeof(u16) : sizeof(u32); }
	bool HasRecordedOutput() const { return m_HasRecordedOutput; }
	const u8 *RecordedOutput() const { return m_RecordedOutput.data(); }

	CTriangleSorter::EIndexType IndexType() const { return m_IndexType; }
	CTriangleSorter::ESortType SortType() const { return m_SortType; }
	CTriangleSorter::EGeometryType GeometryType() const { return m_GeometryType; }
	u32 ParticleCount() const { return m_ParticleCount; }
	u32 VertexCount() const { return m_VertexCount; }
	u32 PageCount() const { return u32(m_RenderedCounts.size()); }
	u32 EmptyPageCount() const;
	u32 PageCountWithEnableds() const;

	template<typename _Element>
	using TView = TStridedMemoryView<const _Element, -1>;
	CFloat3 CameraPosition() const { return m_Camera; }
	u32 RenderedCount(u32 pageId) const { return pageId < m_RenderedCounts.size() ? m_RenderedCounts[pageId] : 0; }
	TView<CFloat3> Positions(u32 pageId) const { return _ViewOfPage(m_Positions, pageId); }
	TView<float> SortValues(u32 pageId) const { return _ViewOfPage(m_Values, pageId); }
	TView<u8> Enableds(u32 pageId) const { return _ViewOfPage(m_Enableds, pageId); }
	TMemoryView<const u32> IndexPattern(u32 pageId) const;
	u32 VerticesPerParticle(u32 pageId) const;
	TMemoryView<const u32> IndexList() const { return _ArrayOf<const u32>(m_IndexList); }
	TMemoryView<const CFloat4> QuadCenters() const { return _ArrayOf<const CFloat4>(m_QuadCenters); }

private:
	class CCursor;
	// Elements of the call, and the region that they lie in. Pages without elements have no region.
	struct SElements
	{
		u32 m_Count = 0;
		u32 m_Stride = 0;
		u32 m_Region = 0;
	};
	// A view for each page, the array that has the views, and, once there are addresses, the array's entries.
	template<typename _Element>
	struct TPages
	{
		SElements m_Array;
		std::vector<SElements> m_Pages;
		std::vector<TView<_Element>> m_Views;
	};
	// Ends the life of an object that lies in captured memory.
	struct SDestroy
	{
		template<typename _Object>
		void operator()(_Object *object) const
		{
			object->~_Object();
		}
	};

	void _ReadNumbers(CCursor &cursor);
	void _ReadPages(CCursor &cursor);
	template<typename _Element>
	void _ReadPages(CCursor &cursor, const char *name, const char *viewsName, TPages<_Element> &pages);
	SElements _ReadPage(CCursor &cursor, u32 elementSize);
	void _ReadGeometry(CCursor &cursor);
	SElements _ReadList(CCursor &cursor, u64 place, u32 elementSize, u32 alignment);
	void _ReadOutput(CCursor &cursor);
	void _AddWorkingBuffer();
	u32 _AddRegion(const std::string &name, u64 place, u64 size);
	SElements _AddElements(const CCursor &cursor, u64 place, u32 count, u32 stride, u32 size, u32 alignment);
	template<typename _Object>
	SElements _AddObjects(CCursor &cursor, const char *name, u64 place, u32 count, u32 stride);

	void _FillWithViews();
	template<typename _Element>
	void _FillWithViews(TPages<_Element> &pages);
	void _MakePatterns();
	bool _MakeSorter();
	void _SetUp();
	template<typename _Element>
	TView<_Element> _ViewOf(const SElements &elements) const;
	template<typename _Element>
	TMemoryView<_Element> _ArrayOf(const SElements &elements) const;
	// Not the entry of the call's array of views, which has none for a page that renders nothing.
	template<typename _Element>
	static TView<_Element> _ViewOfPage(const TPages<_Element> &pages, u32 pageId)
	{
		return pageId < pages.m_Views.size() ? pages.m_Views[pageId] : TView<_Element>();
	}
	bool _IsRendered(u64 pageId) const { return pageId < m_RenderedCounts.size() && m_RenderedCounts[pageId] != 0; }

	CRefusal &m_Refusal; // there while Read runs
	CCapturedMemory m_Memory;
	u32 m_Version = 0;

	CTriangleSorter::EIndexType m_IndexType = CTriangleSorter::IndexTypeUnknown;
	u32 m_OutputCount = 0;
	u32 m_OutputRegion = 0;
	u64 m_OutputPlace = 0;
	std::vector<u8> m_SpareOutput; // for a copy of the output
	std::vector<u8> m_RecordedOutput;
	u32 m_VertexCount = 0;

	CTriangleSorter::ESortType m_SortType = CTriangleSorter::SortUnknown;
	u32 m_ParticleCount = 0;
	CFloat3 m_Camera;
	std::vector<u32> m_RenderedCounts;
	SElements m_RenderedCountArray;
	TPages<u8> m_Enableds;
	TPages<CFloat3> m_Positions;
	TPages<float> m_Values;

	CTriangleSorter::EGeometryType m_GeometryType = CTriangleSorter::GeometryUnknown;
	u32 m_VerticesPerParticle = 0;
	u32 m_TriangleIndexCount = 0;
	std::vector<u32> m_Pattern;
	SElements m_IndexList;
	SElements m_QuadCenters;
	SElements m_PagePatternArray;
	std::vector<std::vector<u32>> m_PagePatterns;
	SElements m_PageVertexCounts;

	u64 m_WorkingBufferPlace = 0;
	u64 m_WorkingBufferSize = 0;
	u32 m_WorkingBufferRegion = 0;
	bool m_HasWorkingBuffer = false;
	bool m_HasRecordedOutput = false;

	bool m_HasObjectsOfOtherSize = false;
	u32 m_SorterRegion = 0;
	std::vector<std::unique_ptr<CTriangleSorter::CIndexPattern, SDestroy>> m_PatternObjects;
	std::unique_ptr<CTriangleSorter, SDestroy> m_Sorter;
};

// Where the reading is, and what it is called there: "the positions of page 3".
class CCapturedSort::CContents::CCursor
{
public:
	CCursor(const void *file, u64 size, CRefusal &refusal)
		: m_File(static_cast<const u8 *>(file))
		, m_Size(size)
		, m_Refusal(refusal)
	{
	}

	// After a refusal nothing more is read: there are no more bytes, and numbers are 0.
	bool HasRefused() const { return m_Refusal.IsSaid(); }

	void Name(const char *name) { std::snprintf(m_Name, sizeof(m_Name), "the %s", name); }
	void Name(const char *name, u32 pageId)
	{
		std::snprintf(m_Name, sizeof(m_Name), "the %s of page %u", name, pageId);
	}
	const char *Name() const { return m_Name; }

	const u8 *Bytes(u64 size)
	{
		if (size > m_Size - m_Offset)
			m_Refusal.Say("The file is damaged or cut short: %s take %llu bytes from byte %llu on, but it has %llu.",
				m_Name, Long(size), Long(m_Offset), Long(m_Size));
		if (HasRefused())
			return null;
		const u8 *const bytes = m_File + m_Offset;
		m_Offset += size;
		return bytes;
	}
	template<typename _Value>
	_Value Value()
	{
		_Value value = _Value();
		if (const u8 *const bytes = Bytes(sizeof(value)))
			std::memcpy(static_cast<void *>(&value), bytes, sizeof(value));
		return value;
	}
	u32 Word() { return Value<u32>(); }
	u32 WordUpTo(u32 largest)
	{
		const u32 word = Word();
		if (word <= largest)
			return word;
		m_Refusal.Say("The file is damaged: at byte %llu, in %s, stands %u, but at most %u makes sense.",
			Long(m_Offset - sizeof(word)), m_Name, word, largest);
		return 0;
	}
	// Where a region lies. Of version 1, all that is known is the address modulo 16.
	u64 Place() { return m_HasPlaces ? Value<u64>() : WordUpTo(15); }
	// Where a region lies of which version 1 says nothing.
	u64 PlaceIfAny() { return m_HasPlaces ? Value<u64>() : 0; }
	void ExpectPlaces() { m_HasPlaces = true; }
	// A list: a count, and as many words.
	std::vector<u32> Words()
	{
		const u32 count = Word();
		return Words(count);
	}
	std::vector<u32> Words(u32 count)
	{
		const u8 *const bytes = Bytes(u64(count) * sizeof(u32));
		if (bytes == null || count == 0)
			return {};
		std::vector<u32> words(count);
		std::memcpy(words.data(), bytes, count * sizeof(u32));
		return words;
	}
	void SkipPadding()
	{
		while (m_Offset % sizeof(u32) != 0)
		{
			const u8 *const byte = Bytes(1);
			if (byte == null)
				return;
			if (*byte != 0)
				m_Refusal.Say("The file is damaged: byte %llu, after %s, is not 0.", Long(m_Offset - 1), m_Name);
		}
	}

	// The end has to be here.
	void ReadTrailer()
	{
		Name("size and the checksum");
		const u64 size = Value<u64>();
		if (HasRefused()) // where it stands, there may be no whole word
			return;
		if (size != m_Size)
			m_Refusal.Say("The file is damaged or cut short: byte %llu says that it has %llu bytes, but it has %llu.",
				Long(m_Offset - sizeof(size)), Long(size), Long(m_Size));
		const u64 computed = SortCaptureChecksum(kSortCaptureChecksumStart, m_File, m_Offset);
		const u64 checksum = Value<u64>();
		if (m_Offset != m_Size)
			m_Refusal.Say("The file is damaged: %llu bytes follow its checksum at byte %llu.", Long(m_Size - m_Offset),
				Long(m_Offset - sizeof(checksum)));
		if (checksum != computed)
			m_Refusal.Say(
				"The file is damaged: the checksum at byte %llu is %016llx, but that of the bytes before it is "
				"%016llx.",
				Long(m_Offset - sizeof(checksum)), Long(checksum), Long(computed));
	}

private:
	const u8 *m_File;
	u64 m_Size;
	CRefusal &m_Refusal;
	u64 m_Offset = 0;
	bool m_HasPlaces = false;
	char m_Name[64] = "";
};

bool CCapturedSort::CContents::Read(const void *file, u64 size, u64 memoryLimit)
{
	CCursor cursor(file, size, m_Refusal);
	_ReadNumbers(cursor);
	_ReadPages(cursor);
	_ReadGeometry(cursor);
	_ReadOutput(cursor);
	cursor.ReadTrailer();
	if (m_Refusal.IsSaid())
		return false;

	_AddWorkingBuffer();
	if (!m_Memory.LayOut(memoryLimit))
		return false;
	m_SpareOutput.resize(OutputSize());
	_FillWithViews();
	m_Memory.Write();
	_MakePatterns();
	if (!_MakeSorter())
		return false;
	_SetUp();
	return m_Memory.Check();
}

void CCapturedSort::CContents::_ReadNumbers(CCursor &cursor)
{
	cursor.Name("first bytes");
	const u8 *const magic = cursor.Bytes(8);
	if (magic != null && std::memcmp(magic, kSortCaptureMagic, 8) != 0)
		m_Refusal.Say("The file is no capture of a sort: it does not begin with VXSORT and a line's end.");
	m_Version = cursor.Word();
	if (m_Version < 1 || m_Version > kSortCaptureVersion)
		m_Refusal.Say("The file is a capture of version %u, but only versions 1 to %u can be read.", m_Version,
			kSortCaptureVersion);
	if (m_Version > 1)
		cursor.ExpectPlaces();
	m_HasRecordedOutput = cursor.WordUpTo(SortCapture_InputAndOutput) != 0;

	cursor.Name("numbers of the host");
	const u32 addressSize = m_Version > 1 ? cursor.WordUpTo(8) : sizeof(void *);
	const u64 sorterPlace = cursor.PlaceIfAny();
	if (addressSize != 4 && addressSize != 8)
		m_Refusal.Say("The file is damaged: addresses have 4 or 8 bytes, not %u.", addressSize);
	m_HasObjectsOfOtherSize = addressSize != sizeof(void *);
	m_SorterRegion =
		_AddObjects<CTriangleSorter>(cursor, "bytes of the sorter", sorterPlace, 1, sizeof(CTriangleSorter)).m_Region;

	cursor.Name("numbers of the output");
	m_IndexType = CTriangleSorter::EIndexType(cursor.WordUpTo(CTriangleSorter::IndexTypeUint32));
	m_OutputCount = cursor.Word();
	m_OutputPlace = cursor.Place();
	m_VertexCount = cursor.Word();

	cursor.Name("numbers of the input");
	m_SortType = CTriangleSorter::ESortType(cursor.WordUpTo(CTriangleSorter::SortByFloat));
	m_ParticleCount = cursor.Word();
	m_Camera = cursor.Value<CFloat3>();

	cursor.Name("numbers of the geometry");
	m_GeometryType = CTriangleSorter::EGeometryType(cursor.WordUpTo(CTriangleSorter::GeometryPerPage));
	m_VerticesPerParticle = cursor.Word();
	m_TriangleIndexCount = cursor.Word();

	cursor.Name("numbers of the working buffer");
	m_HasWorkingBuffer = cursor.WordUpTo(1) != 0;
	m_WorkingBufferPlace = cursor.Place();
	if (!m_HasWorkingBuffer && m_WorkingBufferPlace != 0)
		m_Refusal.Say("The file is damaged: no working buffer is given, but it has a place.");
	m_WorkingBufferSize = cursor.Value<u64>();
}

void CCapturedSort::CContents::_ReadPages(CCursor &cursor)
{
	cursor.Name("rendered counts");
	const u32 count = cursor.Word();
	const u32 stride = m_Version > 1 ? cursor.Word() : sizeof(u32);
	const u64 place = cursor.PlaceIfAny();
	m_RenderedCounts = cursor.Words(count);
	m_RenderedCountArray = _AddElements(cursor, place, count, stride, sizeof(u32), alignof(u32));
	m_Memory.Fill(m_RenderedCountArray.m_Region, 0, m_RenderedCounts.data(), count, sizeof(u32), stride);

	_ReadPages(cursor, "enabled bytes", "views of enabled bytes", m_Enableds);
	if (m_SortType == CTriangleSorter::SortByPosition)
		_ReadPages(cursor, "positions", "views of positions", m_Positions);
	else
		_ReadPages(cursor, "sort values", "views of sort values", m_Values);
}

template<typename _Element>
void CCapturedSort::CContents::_ReadPages(
	CCursor &cursor, const char *name, const char *viewsName, TPages<_Element> &pages)
{
	cursor.Name(viewsName);
	const u32 pageCount = cursor.Word();
	const u32 stride = m_Version > 1 ? cursor.Word() : sizeof(TView<_Element>);
	const u64 place = cursor.PlaceIfAny();
	pages.m_Array = _AddObjects<TView<_Element>>(cursor, viewsName, place, pageCount, stride);
	for (u32 pageId = 0; pageId < pageCount && !cursor.HasRefused(); ++pageId)
	{
		cursor.Name(name, pageId);
		pages.m_Pages.push_back(_ReadPage(cursor, sizeof(_Element)));
	}
}

CCapturedSort::CContents::SElements CCapturedSort::CContents::_ReadPage(CCursor &cursor, u32 elementSize)
{
	const u32 count = cursor.Word();
	const u32 stride = cursor.Word();
	const u64 place = cursor.Place();
	const u32 storedCount = cursor.WordUpTo(stride == 0 ? std::min(count, 1u) : count);
	const u8 *const stored = cursor.Bytes(u64(storedCount) * elementSize);
	cursor.SkipPadding();
	if (count == 0)
		return SElements();
	const SElements elements = _AddElements(cursor, place, count, stride, elementSize, 1);
	m_Memory.Fill(elements.m_Region, 0, stored, storedCount, elementSize, stride);
	return elements;
}

void CCapturedSort::CContents::_ReadGeometry(CCursor &cursor)
{
	cursor.Name("index pattern");
	m_Pattern = cursor.Words();

	cursor.Name("entries of the index list");
	m_IndexList = _ReadList(cursor, cursor.Place(), sizeof(u32), 1);
	cursor.Name("quad centres");
	m_QuadCenters = _ReadList(cursor, cursor.Place(), sizeof(CFloat4), 1);

	typedef CTriangleSorter::CIndexPattern CPattern;
	cursor.Name("index patterns");
	const u64 patternsPlace = cursor.PlaceIfAny();
	const u32 patternCount = cursor.Word();
	for (u32 pageId = 0; pageId < patternCount && !cursor.HasRefused(); ++pageId)
	{
		cursor.Name("index pattern", pageId);
		m_PagePatterns.push_back(cursor.Words());
	}
	m_PagePatternArray = _AddObjects<CPattern>(cursor, "index patterns", patternsPlace, patternCount, sizeof(CPattern));

	cursor.Name("vertex counts of the pages");
	m_PageVertexCounts = _ReadList(cursor, cursor.PlaceIfAny(), sizeof(u32), alignof(u32));
}

CCapturedSort::CContents::SElements CCapturedSort::CContents::_ReadList(
	CCursor &cursor, u64 place, u32 elementSize, u32 alignment)
{
	const u32 count = cursor.Word();
	const u8 *const stored = cursor.Bytes(u64(count) * elementSize);
	const SElements elements = _AddElements(cursor, place, count, elementSize, elementSize, alignment);
	m_Memory.Fill(elements.m_Region, 0, stored, count, elementSize, elementSize);
	return elements;
}

void CCapturedSort::CContents::_ReadOutput(CCursor &cursor)
{
	if (m_IndexType == CTriangleSorter::IndexTypeUnknown)
		m_OutputCount = 0;
	cursor.Name("indices of the output");
	if (m_HasRecordedOutput)
	{
		if (const u8 *const bytes = cursor.Bytes(OutputSize()))
			m_RecordedOutput.assign(bytes, bytes + OutputSize());
		cursor.SkipPadding();
	}
	m_OutputRegion = _AddRegion(cursor.Name(), m_OutputPlace, OutputSize());
}

// As much as the sort uses, of as much as it was given.
void CCapturedSort::CContents::_AddWorkingBuffer()
{
	const auto evenCount = [](u64 count) { return (count + 1) & ~u64(1); };
	const bool perPage = m_GeometryType == CTriangleSorter::GeometryPerPage;
	const u64 recordCount = perPage ? m_TriangleIndexCount / 3 : m_ParticleCount;
	u64 needed = evenCount(recordCount) * 2 * sizeof(SIndexAndDepth);
	if (perPage)
		needed += evenCount(m_TriangleIndexCount) * sizeof(u32);

	if (m_HasWorkingBuffer)
		m_WorkingBufferRegion =
			_AddRegion("the bytes of the working buffer", m_WorkingBufferPlace, std::min(needed, m_WorkingBufferSize));
	else // room for what the sort will take
		m_Memory.AddApart("the working buffer", 0, needed * (perPage ? 1 : sizeof(SIndexAndDepth)));
}

u32 CCapturedSort::CContents::_AddRegion(const std::string &name, u64 place, u64 size)
{
	return m_Version > 1 ? m_Memory.Add(name, place, size) : m_Memory.AddApart(name, place, size);
}

CCapturedSort::CContents::SElements CCapturedSort::CContents::_AddElements(
	const CCursor &cursor, u64 place, u32 count, u32 stride, u32 size, u32 alignment)
{
	if (count == 0)
		return {0, size, _AddRegion(cursor.Name(), place, 0)};
	if ((stride != 0 && stride < size) || u64(count) * stride > kLargestSize)
		m_Refusal.Say("The file is damaged: %s have a stride of %u and a count of %u.", cursor.Name(), stride, count);
	if (stride % alignment != 0 || place % alignment != 0)
		m_Refusal.Say("The file is damaged: %s have a stride of %u and start at %u modulo %u.", cursor.Name(), stride,
			u32(place % alignment), alignment);
	return {count, stride, _AddRegion(cursor.Name(), place, u64(count - 1) * stride + size)};
}

// Objects that have addresses in them are as large as at the host only if addresses are. If not, the array overlaps
// nothing.
template<typename _Object>
CCapturedSort::CContents::SElements CCapturedSort::CContents::_AddObjects(
	CCursor &cursor, const char *name, u64 place, u32 count, u32 stride)
{
	cursor.Name(name);
	if (!m_HasObjectsOfOtherSize)
		return _AddElements(cursor, place, count, stride, sizeof(_Object), alignof(_Object));
	const u64 size = stride == 0 ? sizeof(_Object) : u64(count) * sizeof(_Object);
	return {count, stride == 0 ? 0 : u32(sizeof(_Object)), m_Memory.AddApart(cursor.Name(), 0, size)};
}

void CCapturedSort::CContents::_FillWithViews()
{
	_FillWithViews(m_Enableds);
	_FillWithViews(m_Positions);
	_FillWithViews(m_Values);
}

// Entries of pages that render nothing are left: the file has nothing of them, and another page may have the same
// entry.
template<typename _Element>
void CCapturedSort::CContents::_FillWithViews(TPages<_Element> &pages)
{
	for (const SElements &page : pages.m_Pages)
		pages.m_Views.push_back(_ViewOf<_Element>(page));
	for (u64 pageId = 0; pageId < pages.m_Views.size(); ++pageId)
	{
		const TView<_Element> &view = pages.m_Views[pageId];
		if (_IsRendered(pageId))
			m_Memory.Fill(
				pages.m_Array.m_Region, pageId * pages.m_Array.m_Stride, &view, 1, sizeof(view), sizeof(view));
	}
}

void CCapturedSort::CContents::_MakePatterns()
{
	typedef CTriangleSorter::CIndexPattern CPattern;
	u8 *memory = m_Memory.Data(m_PagePatternArray.m_Region);
	for (const std::vector<u32> &indices : m_PagePatterns)
	{
		m_PatternObjects.emplace_back(new (memory) CPattern());
		*m_PatternObjects.back() = TMemoryView<const u32>(indices.data(), u32(indices.size()));
		memory += sizeof(CPattern);
	}
}

// Neither the sorter nor a pattern survives that the other is made over it. No sorter is set up with its own bytes.
bool CCapturedSort::CContents::_MakeSorter()
{
	if (m_Memory.Overlap(m_SorterRegion, m_PagePatternArray.m_Region))
		return m_Refusal.Say("The file is damaged: the index patterns overlap the sorter.");
	m_Sorter.reset(new (m_Memory.Data(m_SorterRegion)) CTriangleSorter());
	return true;
}

template<typename _Element>
CCapturedSort::CContents::TView<_Element> CCapturedSort::CContents::_ViewOf(const SElements &elements) const
{
	if (elements.m_Count == 0)
		return TView<_Element>();
	const u8 *const data = m_Memory.Data(elements.m_Region);
	return TView<_Element>(reinterpret_cast<const _Element *>(data), elements.m_Count, elements.m_Stride);
}

template<typename _Element>
TMemoryView<_Element> CCapturedSort::CContents::_ArrayOf(const SElements &elements) const
{
	return TMemoryView<_Element>(reinterpret_cast<_Element *>(m_Memory.Data(elements.m_Region)), elements.m_Count);
}

void CCapturedSort::CContents::_SetUp()
{
	if (m_IndexType == CTriangleSorter::IndexTypeUint16)
		m_Sorter->Setup_OutputIndexBuffer({reinterpret_cast<u16 *>(Output()), m_OutputCount}, m_VertexCount);
	else if (m_IndexType == CTriangleSorter::IndexTypeUint32)
		m_Sorter->Setup_OutputIndexBuffer({reinterpret_cast<u32 *>(Output()), m_OutputCount}, m_VertexCount);

	const CTriangleSorter::CEnabledPages enableds = _ViewOf<TView<u8>>(m_Enableds.m_Array);
	const CTriangleSorter::CRenderedCounts renderedCounts = _ViewOf<u32>(m_RenderedCountArray);
	if (m_SortType == CTriangleSorter::SortByPosition)
		m_Sorter->Setup_InputPageCache(
			_ViewOf<TView<CFloat3>>(m_Positions.m_Array), enableds, renderedCounts, m_ParticleCount, m_Camera);
	else if (m_SortType == CTriangleSorter::SortByFloat)
		m_Sorter->Setup_InputPageCache(
			_ViewOf<TView<float>>(m_Values.m_Array), enableds, renderedCounts, m_ParticleCount, m_Camera);

	const TMemoryView<u32> pattern(m_Pattern.data(), u32(m_Pattern.size()));
	const TMemoryView<const u32> indexList = _ArrayOf<const u32>(m_IndexList);
	switch (m_GeometryType)
	{
	case CTriangleSorter::GeometryConstant:
		m_Sorter->Setup_Geometry(pattern, m_VerticesPerParticle);
		break;
	case CTriangleSorter::GeometryConstantAndIndexList:
		m_Sorter->Setup_Geometry(pattern, indexList);
		break;
	case CTriangleSorter::GeometryConstantAndIndexListAndQuadCenters:
		m_Sorter->Setup_Geometry(pattern, indexList, _ArrayOf<const CFloat4>(m_QuadCenters), m_VerticesPerParticle);
		break;
	case CTriangleSorter::GeometryPerPage:
		m_Sorter->Setup_Geometry(_ArrayOf<const CTriangleSorter::CIndexPattern>(m_PagePatternArray),
			_ArrayOf<const u32>(m_PageVertexCounts), m_TriangleIndexCount);
		break;
	case CTriangleSorter::GeometryUnknown:
		break;
	}
}

void CCapturedSort::CContents::Sort()
{
	void *const workingBuffer = m_HasWorkingBuffer ? m_Memory.Data(m_WorkingBufferRegion) : null;
	if (m_GeometryType == CTriangleSorter::GeometryPerPage)
		m_Sorter->SortTriangles_AutogenIndices(workingBuffer);
	else
		m_Sorter->SortPoints_AutogenIndices(workingBuffer);
}

u32 CCapturedSort::CContents::EmptyPageCount() const
{
	return u32(std::count(m_RenderedCounts.begin(), m_RenderedCounts.end(), 0u));
}

u32 CCapturedSort::CContents::PageCountWithEnableds() const
{
	return u32(std::count_if(
		m_Enableds.m_Pages.begin(), m_Enableds.m_Pages.end(), [](const SElements &page) { return page.m_Count != 0; }));
}

TMemoryView<const u32> CCapturedSort::CContents::IndexPattern(u32 pageId) const
{
	const bool perPage = m_GeometryType == CTriangleSorter::GeometryPerPage;
	if (perPage && pageId >= m_PagePatterns.size())
		return {};
	const std::vector<u32> &pattern = perPage ? m_PagePatterns[pageId] : m_Pattern;
	return TMemoryView<const u32>(pattern.data(), u32(pattern.size()));
}

u32 CCapturedSort::CContents::VerticesPerParticle(u32 pageId) const
{
	if (m_GeometryType != CTriangleSorter::GeometryPerPage)
		return m_VerticesPerParticle;
	const TMemoryView<const u32> counts = _ArrayOf<const u32>(m_PageVertexCounts);
	return pageId < counts.Count() ? counts[pageId] : 0;
}

CCapturedSort::CCapturedSort() = default;

CCapturedSort::~CCapturedSort()
{
	delete m_Contents;
}

bool CCapturedSort::Read(const void *file, u64 sizeInBytes, u64 memoryLimit)
{
	delete m_Contents;
	m_Contents = null;
	m_WrittenEnd = 0;
	m_Refusal[0] = '\0';
	CRefusal refusal(m_Refusal, sizeof(m_Refusal));
	VX_TRY
	{
		std::unique_ptr<CContents> contents(new CContents(refusal));
		if (contents->Read(file, sizeInBytes, memoryLimit))
			m_Contents = contents.release();
	}
	VX_CATCH // std::bad_alloc, whatever was being read
	{
		refusal.Say("The memory ran out while the capture was read.");
	}
	return m_Contents != null;
}

const CTriangleSorter &CCapturedSort::Sorter() const
{
	return m_Contents->Sorter();
}

const void *CCapturedSort::WorkingBuffer() const
{
	return m_Contents->WorkingBuffer();
}

u64 CCapturedSort::WorkingBufferSize() const
{
	return m_Contents->WorkingBufferSize();
}

u8 *CCapturedSort::Output() const
{
	return m_Contents->Output();
}

u32 CCapturedSort::OutputCount() const
{
	return m_Contents->OutputCount();
}

bool CCapturedSort::HasRecordedOutput() const
{
	return m_Contents->HasRecordedOutput();
}

const u8 *CCapturedSort::RecordedOutput() const
{
	return m_Contents->RecordedOutput();
}

CTriangleSorter::EIndexType CCapturedSort::IndexType() const
{
	return m_Contents->IndexType();
}

CTriangleSorter::ESortType CCapturedSort::SortType() const
{
	return m_Contents->SortType();
}

CTriangleSorter::EGeometryType CCapturedSort::GeometryType() const
{
	return m_Contents->GeometryType();
}

u32 CCapturedSort::ParticleCount() const
{
	return m_Contents->ParticleCount();
}

u32 CCapturedSort::VertexCount() const
{
	return m_Contents->VertexCount();
}

u32 CCapturedSort::PageCount() const
{
	return m_Contents->PageCount();
}

u32 CCapturedSort::EmptyPageCount() const
{
	return m_Contents->EmptyPageCount();
}

u32 CCapturedSort::PageCountWithEnableds() const
{
	return m_Contents->PageCountWithEnableds();
}

CFloat3 CCapturedSort::CameraPosition() const
{
	return m_Contents->CameraPosition();
}

u32 CCapturedSort::RenderedCount(u32 pageId) const
{
	return m_Contents->RenderedCount(pageId);
}

TStridedMemoryView<const CFloat3, -1> CCapturedSort::Positions(u32 pageId) const
{
	return m_Contents->Positions(pageId);
}

TStridedMemoryView<const float, -1> CCapturedSort::SortValues(u32 pageId) const
{
	return m_Contents->SortValues(pageId);
}

TStridedMemoryView<const u8, -1> CCapturedSort::Enableds(u32 pageId) const
{
	return m_Contents->Enableds(pageId);
}

TMemoryView<const u32> CCapturedSort::IndexPattern(u32 pageId) const
{
	return m_Contents->IndexPattern(pageId);
}

u32 CCapturedSort::VerticesPerParticle(u32 pageId) const
{
	return m_Contents->VerticesPerParticle(pageId);
}

TMemoryView<const u32> CCapturedSort::IndexList() const
{
	return m_Contents->IndexList();
}

TMemoryView<const CFloat4> CCapturedSort::QuadCenters() const
{
	return m_Contents->QuadCenters();
}

void CCapturedSort::Sort()
{
	m_Contents->Sort();
}

u8 *CCapturedSort::_SpareOutput() const
{
	return m_Contents->SpareOutput();
}
} // namespace Vexmoor
