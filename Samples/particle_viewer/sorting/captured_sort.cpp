// Reads a capture front to back, then gives its regions memory, fills them and sets up the sorter. Nothing in the file is
// believed before it is checked: a count against what is left of the file, what it takes in memory against the limit, and
// what regions that overlap are filled with against each other.

#include "captured_sort.h"

#include "failure.h"
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace Viewer
{
namespace
{
	constexpr u64 kLargestSize = 0xFFFFFFFFu;

	[[noreturn]] void Refuse(const char *format, ...) VX_PRINTF_LIKE(1, 2);
	void Refuse(const char *format, ...)
	{
		char sentence[256];
		va_list arguments;
		va_start(arguments, format);
		std::vsnprintf(sentence, sizeof(sentence), format, arguments);
		va_end(arguments);
		throw CFailure(sentence);
	}

	unsigned long long Long(u64 value)
	{
		return value;
	}
} // namespace

// Where the reading is, and what it is called there: "the positions of page 3".
class CCapturedSort::CCursor
{
public:
	explicit CCursor(const std::vector<u8> &file)
		: m_File(file)
	{
	}

	void Name(const char *name) { std::snprintf(m_Name, sizeof(m_Name), "the %s", name); }
	void Name(const char *name, u32 pageId)
	{
		std::snprintf(m_Name, sizeof(m_Name), "the %s of page %u", name, pageId);
	}
	const char *Name() const { return m_Name; }

	const u8 *Bytes(u64 size)
	{
		if (size > Left())
			Refuse("The file is damaged or cut short: %s take %llu bytes from byte %llu on, but it has %llu.", m_Name,
				Long(size), Long(m_Offset), Long(m_File.size()));
		const u8 *const bytes = m_File.data() + m_Offset;
		m_Offset += size;
		return bytes;
	}
	template<typename _Value>
	_Value Value()
	{
		_Value value;
		std::memcpy(&value, Bytes(sizeof(value)), sizeof(value));
		return value;
	}
	u32 Word() { return Value<u32>(); }
	u32 WordUpTo(u32 largest)
	{
		const u32 word = Word();
		if (word > largest)
			Refuse("The file is damaged: at byte %llu, in %s, stands %u, but at most %u makes sense.",
				Long(m_Offset - sizeof(word)), m_Name, word, largest);
		return word;
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
		std::vector<u32> words(count);
		if (count != 0)
			std::memcpy(words.data(), bytes, count * sizeof(u32));
		return words;
	}
	void SkipPadding()
	{
		while (m_Offset % sizeof(u32) != 0)
		{
			if (*Bytes(1) != 0)
				Refuse("The file is damaged: byte %llu, after %s, is not 0.", Long(m_Offset - 1), m_Name);
		}
	}

	// The end has to be here.
	void ReadTrailer()
	{
		Name("size and the checksum");
		const u64 size = Value<u64>();
		if (size != m_File.size())
			Refuse("The file is damaged or cut short: byte %llu says that it has %llu bytes, but it has %llu.",
				Long(m_Offset - sizeof(size)), Long(size), Long(m_File.size()));
		const u64 computed = SortCaptureChecksum(kSortCaptureChecksumStart, m_File.data(), m_Offset);
		const u64 checksum = Value<u64>();
		if (m_Offset != m_File.size())
			Refuse("The file is damaged: %llu bytes follow its checksum at byte %llu.", Long(m_File.size() - m_Offset),
				Long(m_Offset - sizeof(checksum)));
		if (checksum != computed)
			Refuse("The file is damaged: the checksum at byte %llu is %016llx, but that of the bytes before it is "
				   "%016llx.",
				Long(m_Offset - sizeof(checksum)), Long(checksum), Long(computed));
	}

private:
	u64 Left() const { return m_File.size() - m_Offset; }

	const std::vector<u8> &m_File;
	u64 m_Offset = 0;
	bool m_HasPlaces = false;
	char m_Name[64] = "";
};

CCapturedSort::CCapturedSort(const std::vector<u8> &file, u64 memoryLimit)
{
	CCursor cursor(file);
	ReadNumbers(cursor);
	ReadPages(cursor);
	ReadGeometry(cursor);
	ReadOutput(cursor);
	cursor.ReadTrailer();
	AddWorkingBuffer();

	m_Memory.LayOut(memoryLimit);
	FillWithViews();
	m_Memory.Write();
	MakePatterns();
	MakeSorter();
	SetUp();
	m_Memory.Check();
}

void CCapturedSort::ReadNumbers(CCursor &cursor)
{
	cursor.Name("first bytes");
	if (std::memcmp(cursor.Bytes(8), kSortCaptureMagic, 8) != 0)
		Refuse("The file is no capture of a sort: it does not begin with VXSORT and a line's end.");
	m_Version = cursor.Word();
	if (m_Version < 1 || m_Version > kSortCaptureVersion)
		Refuse("The file is a capture of version %u, but only versions 1 to %u can be read.", m_Version,
			kSortCaptureVersion);
	if (m_Version > 1)
		cursor.ExpectPlaces();
	m_HasRecordedOutput = cursor.WordUpTo(SortCapture_InputAndOutput) != 0;

	cursor.Name("numbers of the host");
	const u32 addressSize = m_Version > 1 ? cursor.WordUpTo(8) : sizeof(void *);
	const u64 sorterPlace = cursor.PlaceIfAny();
	if (addressSize != 4 && addressSize != 8)
		Refuse("The file is damaged: addresses have 4 or 8 bytes, not %u.", addressSize);
	m_HasObjectsOfOtherSize = addressSize != sizeof(void *);
	m_SorterRegion =
		AddObjects<CTriangleSorter>(cursor, "bytes of the sorter", sorterPlace, 1, sizeof(CTriangleSorter)).m_Region;

	cursor.Name("numbers of the output");
	m_IndexType = CTriangleSorter::EIndexType(cursor.WordUpTo(CTriangleSorter::IndexTypeUint32));
	m_OutputCount = cursor.Word();
	m_OutputPlace = cursor.Place();
	m_VertexCount = cursor.Word();

	cursor.Name("numbers of the input");
	m_SortType = CTriangleSorter::ESortType(cursor.WordUpTo(CTriangleSorter::SortByFloat));
	m_ParticleCount = cursor.Word();
	std::memcpy(static_cast<void *>(&m_Camera), cursor.Bytes(sizeof(m_Camera)), sizeof(m_Camera));

	cursor.Name("numbers of the geometry");
	m_GeometryType = CTriangleSorter::EGeometryType(cursor.WordUpTo(CTriangleSorter::GeometryPerPage));
	m_VerticesPerParticle = cursor.Word();
	m_TriangleIndexCount = cursor.Word();

	cursor.Name("numbers of the working buffer");
	m_HasWorkingBuffer = cursor.WordUpTo(1) != 0;
	m_WorkingBufferPlace = cursor.Place();
	if (!m_HasWorkingBuffer && m_WorkingBufferPlace != 0)
		Refuse("The file is damaged: no working buffer is given, but it has a place.");
	m_WorkingBufferSize = cursor.Value<u64>();
}

void CCapturedSort::ReadPages(CCursor &cursor)
{
	cursor.Name("rendered counts");
	const u32 count = cursor.Word();
	const u32 stride = m_Version > 1 ? cursor.Word() : sizeof(u32);
	const u64 place = cursor.PlaceIfAny();
	m_RenderedCounts = cursor.Words(count);
	m_RenderedCountArray = AddElements(cursor, place, count, stride, sizeof(u32), alignof(u32));
	m_Memory.Fill(m_RenderedCountArray.m_Region, 0, m_RenderedCounts.data(), count, sizeof(u32), stride);

	ReadPages(cursor, "enabled bytes", "views of enabled bytes", m_Enableds);
	if (m_SortType == CTriangleSorter::SortByPosition)
		ReadPages(cursor, "positions", "views of positions", m_Positions);
	else
		ReadPages(cursor, "sort values", "views of sort values", m_Values);
}

template<typename _Element>
void CCapturedSort::ReadPages(CCursor &cursor, const char *name, const char *viewsName, TPages<_Element> &pages)
{
	cursor.Name(viewsName);
	const u32 pageCount = cursor.Word();
	const u32 stride = m_Version > 1 ? cursor.Word() : sizeof(TView<_Element>);
	const u64 place = cursor.PlaceIfAny();
	pages.m_Array = AddObjects<TView<_Element>>(cursor, viewsName, place, pageCount, stride);
	for (u32 pageId = 0; pageId < pageCount; ++pageId)
	{
		cursor.Name(name, pageId);
		pages.m_Pages.push_back(ReadPage(cursor, sizeof(_Element)));
	}
}

CCapturedSort::SElements CCapturedSort::ReadPage(CCursor &cursor, u32 elementSize)
{
	const u32 count = cursor.Word();
	const u32 stride = cursor.Word();
	const u64 place = cursor.Place();
	const u32 storedCount = cursor.WordUpTo(stride == 0 ? std::min(count, 1u) : count);
	const u8 *const stored = cursor.Bytes(u64(storedCount) * elementSize);
	cursor.SkipPadding();
	if (count == 0)
		return SElements();
	const SElements elements = AddElements(cursor, place, count, stride, elementSize, 1);
	m_Memory.Fill(elements.m_Region, 0, stored, storedCount, elementSize, stride);
	return elements;
}

void CCapturedSort::ReadGeometry(CCursor &cursor)
{
	cursor.Name("index pattern");
	m_Pattern = cursor.Words();

	cursor.Name("entries of the index list");
	m_IndexList = ReadList(cursor, cursor.Place(), sizeof(u32), 1);
	cursor.Name("quad centres");
	m_QuadCenters = ReadList(cursor, cursor.Place(), sizeof(CFloat4), 1);

	typedef CTriangleSorter::CIndexPattern CPattern;
	cursor.Name("index patterns");
	const u64 patternsPlace = cursor.PlaceIfAny();
	const u32 patternCount = cursor.Word();
	for (u32 pageId = 0; pageId < patternCount; ++pageId)
	{
		cursor.Name("index pattern", pageId);
		m_PagePatterns.push_back(cursor.Words());
	}
	m_PagePatternArray = AddObjects<CPattern>(cursor, "index patterns", patternsPlace, patternCount, sizeof(CPattern));

	cursor.Name("vertex counts of the pages");
	m_PageVertexCounts = ReadList(cursor, cursor.PlaceIfAny(), sizeof(u32), alignof(u32));
}

CCapturedSort::SElements CCapturedSort::ReadList(CCursor &cursor, u64 place, u32 elementSize, u32 alignment)
{
	const u32 count = cursor.Word();
	const u8 *const stored = cursor.Bytes(u64(count) * elementSize);
	const SElements elements = AddElements(cursor, place, count, elementSize, elementSize, alignment);
	m_Memory.Fill(elements.m_Region, 0, stored, count, elementSize, elementSize);
	return elements;
}

void CCapturedSort::ReadOutput(CCursor &cursor)
{
	if (m_IndexType == CTriangleSorter::IndexTypeUnknown)
		m_OutputCount = 0;
	cursor.Name("indices of the output");
	if (m_HasRecordedOutput)
	{
		const u8 *const bytes = cursor.Bytes(OutputSize());
		m_RecordedOutput.assign(bytes, bytes + OutputSize());
		cursor.SkipPadding();
	}
	m_OutputRegion = AddRegion(cursor.Name(), m_OutputPlace, OutputSize());
}

// As much as the sort uses, of as much as it was given.
void CCapturedSort::AddWorkingBuffer()
{
	const auto evenCount = [](u64 count) { return (count + 1) & ~u64(1); };
	const bool perPage = m_GeometryType == CTriangleSorter::GeometryPerPage;
	const u64 recordCount = perPage ? m_TriangleIndexCount / 3 : m_ParticleCount;
	u64 needed = evenCount(recordCount) * 2 * sizeof(SIndexAndDepth);
	if (perPage)
		needed += evenCount(m_TriangleIndexCount) * sizeof(u32);

	if (m_HasWorkingBuffer)
		m_WorkingBufferRegion =
			AddRegion("the bytes of the working buffer", m_WorkingBufferPlace, std::min(needed, m_WorkingBufferSize));
	else // room for what the sort will take
		m_Memory.AddApart("the working buffer", 0, needed * (perPage ? 1 : sizeof(SIndexAndDepth)));
}

u32 CCapturedSort::AddRegion(const std::string &name, u64 place, u64 size)
{
	return m_Version > 1 ? m_Memory.Add(name, place, size) : m_Memory.AddApart(name, place, size);
}

CCapturedSort::SElements CCapturedSort::AddElements(
	const CCursor &cursor, u64 place, u32 count, u32 stride, u32 size, u32 alignment)
{
	if (count == 0)
		return {0, size, AddRegion(cursor.Name(), place, 0)};
	if ((stride != 0 && stride < size) || u64(count) * stride > kLargestSize)
		Refuse("The file is damaged: %s have a stride of %u and a count of %u.", cursor.Name(), stride, count);
	if (stride % alignment != 0 || place % alignment != 0)
		Refuse("The file is damaged: %s have a stride of %u and start at %u modulo %u.", cursor.Name(), stride,
			u32(place % alignment), alignment);
	return {count, stride, AddRegion(cursor.Name(), place, u64(count - 1) * stride + size)};
}

// Objects that have addresses in them are as large as at the host only if addresses are. If not, the array overlaps nothing.
template<typename _Object>
CCapturedSort::SElements CCapturedSort::AddObjects(CCursor &cursor, const char *name, u64 place, u32 count, u32 stride)
{
	cursor.Name(name);
	if (!m_HasObjectsOfOtherSize)
		return AddElements(cursor, place, count, stride, sizeof(_Object), alignof(_Object));
	const u64 size = stride == 0 ? sizeof(_Object) : u64(count) * sizeof(_Object);
	return {count, stride == 0 ? 0 : u32(sizeof(_Object)), m_Memory.AddApart(cursor.Name(), 0, size)};
}

void CCapturedSort::FillWithViews()
{
	FillWithViews(m_Enableds);
	FillWithViews(m_Positions);
	FillWithViews(m_Values);
}

// Entries of pages that render nothing are left: the file has nothing of them, and another page may have the same entry.
template<typename _Element>
void CCapturedSort::FillWithViews(TPages<_Element> &pages)
{
	for (const SElements &page : pages.m_Pages)
		pages.m_Views.push_back(ViewOf<_Element>(page));
	for (u64 pageId = 0; pageId < pages.m_Views.size(); ++pageId)
	{
		const TView<_Element> &view = pages.m_Views[pageId];
		if (IsRendered(pageId))
			m_Memory.Fill(
				pages.m_Array.m_Region, pageId * pages.m_Array.m_Stride, &view, 1, sizeof(view), sizeof(view));
	}
}

void CCapturedSort::MakePatterns()
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
void CCapturedSort::MakeSorter()
{
	if (m_Memory.Overlap(m_SorterRegion, m_PagePatternArray.m_Region))
		Refuse("The file is damaged: the index patterns overlap the sorter.");
	m_Sorter.reset(new (m_Memory.Data(m_SorterRegion)) CTriangleSorter());
}

template<typename _Element>
CCapturedSort::TView<_Element> CCapturedSort::ViewOf(const SElements &elements) const
{
	if (elements.m_Count == 0)
		return TView<_Element>();
	const u8 *const data = m_Memory.Data(elements.m_Region);
	return TView<_Element>(reinterpret_cast<const _Element *>(data), elements.m_Count, elements.m_Stride);
}

template<typename _Element>
TMemoryView<_Element> CCapturedSort::ArrayOf(const SElements &elements) const
{
	return TMemoryView<_Element>(reinterpret_cast<_Element *>(m_Memory.Data(elements.m_Region)), elements.m_Count);
}

void CCapturedSort::SetUp()
{
	if (m_IndexType == CTriangleSorter::IndexTypeUint16)
		m_Sorter->Setup_OutputIndexBuffer({reinterpret_cast<u16 *>(Output()), m_OutputCount}, m_VertexCount);
	else if (m_IndexType == CTriangleSorter::IndexTypeUint32)
		m_Sorter->Setup_OutputIndexBuffer({reinterpret_cast<u32 *>(Output()), m_OutputCount}, m_VertexCount);

	const CTriangleSorter::CEnabledPages enableds = ViewOf<TView<u8>>(m_Enableds.m_Array);
	const CTriangleSorter::CRenderedCounts renderedCounts = ViewOf<u32>(m_RenderedCountArray);
	if (m_SortType == CTriangleSorter::SortByPosition)
		m_Sorter->Setup_InputPageCache(
			ViewOf<TView<CFloat3>>(m_Positions.m_Array), enableds, renderedCounts, m_ParticleCount, m_Camera);
	else if (m_SortType == CTriangleSorter::SortByFloat)
		m_Sorter->Setup_InputPageCache(
			ViewOf<TView<float>>(m_Values.m_Array), enableds, renderedCounts, m_ParticleCount, m_Camera);

	const TMemoryView<u32> pattern(m_Pattern.data(), u32(m_Pattern.size()));
	const TMemoryView<const u32> indexList = ArrayOf<const u32>(m_IndexList);
	switch (m_GeometryType)
	{
	case CTriangleSorter::GeometryConstant:
		m_Sorter->Setup_Geometry(pattern, m_VerticesPerParticle);
		break;
	case CTriangleSorter::GeometryConstantAndIndexList:
		m_Sorter->Setup_Geometry(pattern, indexList);
		break;
	case CTriangleSorter::GeometryConstantAndIndexListAndQuadCenters:
		m_Sorter->Setup_Geometry(pattern, indexList, ArrayOf<const CFloat4>(m_QuadCenters), m_VerticesPerParticle);
		break;
	case CTriangleSorter::GeometryPerPage:
		m_Sorter->Setup_Geometry(ArrayOf<const CTriangleSorter::CIndexPattern>(m_PagePatternArray),
			ArrayOf<const u32>(m_PageVertexCounts), m_TriangleIndexCount);
		break;
	case CTriangleSorter::GeometryUnknown:
		break;
	}
}

void CCapturedSort::Sort()
{
	void *const workingBuffer = m_HasWorkingBuffer ? m_Memory.Data(m_WorkingBufferRegion) : null;
	if (m_GeometryType == CTriangleSorter::GeometryPerPage)
		m_Sorter->SortTriangles_AutogenIndices(workingBuffer);
	else
		m_Sorter->SortPoints_AutogenIndices(workingBuffer);
}

u32 CCapturedSort::EmptyPageCount() const
{
	return u32(std::count(m_RenderedCounts.begin(), m_RenderedCounts.end(), 0u));
}

u32 CCapturedSort::PageCountWithEnableds() const
{
	return u32(std::count_if(
		m_Enableds.m_Pages.begin(), m_Enableds.m_Pages.end(), [](const SElements &page) { return page.m_Count != 0; }));
}
} // namespace Viewer
