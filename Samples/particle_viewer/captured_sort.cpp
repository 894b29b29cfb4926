// Reads a capture front to back. Nothing in the file is believed before it is checked: a count against what is left of
// the file, and what it takes in memory against the limit.

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
	u32 AddressMod16() { return WordUpTo(15); }
	template<typename _Element>
	std::vector<_Element> Elements()
	{
		const u32 count = Word();
		const u8 *const bytes = Bytes(u64(count) * sizeof(_Element));
		std::vector<_Element> elements(count);
		if (count != 0)
			std::memcpy(static_cast<void *>(elements.data()), bytes, count * sizeof(_Element));
		return elements;
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
	char m_Name[64] = "";
};

CCapturedSort::CCapturedSort(const std::vector<u8> &file, u64 memoryLimit)
	: m_MemoryLeft(memoryLimit)
{
	CCursor cursor(file);
	ReadNumbers(cursor);
	ReadPages(cursor);
	ReadGeometry(cursor);
	ReadOutput(cursor);
	cursor.ReadTrailer();
	MakeWorkingBuffer(cursor);
	SetUp();
}

void CCapturedSort::ReadNumbers(CCursor &cursor)
{
	cursor.Name("first bytes");
	if (std::memcmp(cursor.Bytes(8), kSortCaptureMagic, 8) != 0)
		Refuse("The file is no capture of a sort: it does not begin with VXSORT and a line's end.");
	const u32 version = cursor.Word();
	if (version != kSortCaptureVersion)
		Refuse("The file is a capture of version %u, but only version %u can be read.", version, kSortCaptureVersion);
	m_HasRecordedOutput = cursor.WordUpTo(SortCapture_InputAndOutput) != 0;

	cursor.Name("numbers of the output");
	m_IndexType = CTriangleSorter::EIndexType(cursor.WordUpTo(CTriangleSorter::IndexTypeUint32));
	m_OutputCount = cursor.Word();
	m_OutputAddressMod16 = cursor.AddressMod16();
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
	m_WorkingBufferAddressMod16 = cursor.WordUpTo(m_HasWorkingBuffer ? 15 : 0);
	m_WorkingBufferSize = cursor.Value<u64>();
}

void CCapturedSort::ReadPages(CCursor &cursor)
{
	cursor.Name("rendered counts");
	m_RenderedCounts = cursor.Elements<u32>();
	ReadPages(cursor, "enabled bytes", m_Enableds);
	if (m_SortType == CTriangleSorter::SortByPosition)
		ReadPages(cursor, "positions", m_Positions);
	else
		ReadPages(cursor, "sort values", m_Values);
}

template<typename _Element>
void CCapturedSort::ReadPages(CCursor &cursor, const char *name, TPages<_Element> &pages)
{
	cursor.Name(name);
	const u32 pageCount = cursor.Word();
	for (u32 pageId = 0; pageId < pageCount; ++pageId)
		pages.push_back(ReadPage<_Element>(cursor, name, pageId));
}

template<typename _Element>
CCapturedSort::TView<_Element> CCapturedSort::ReadPage(CCursor &cursor, const char *name, u32 pageId)
{
	constexpr u32 kSize = sizeof(_Element);
	cursor.Name(name, pageId);
	const u32 count = cursor.Word();
	const u32 stride = cursor.Word();
	const u32 addressMod16 = cursor.AddressMod16();
	const u32 storedCount = cursor.WordUpTo(stride == 0 ? std::min(count, 1u) : count);
	if (count != 0 && ((stride != 0 && stride < kSize) || u64(count) * stride > kLargestSize))
		Refuse("The file is damaged: %s have a stride of %u and a count of %u.", cursor.Name(), stride, count);
	const u8 *const stored = cursor.Bytes(u64(storedCount) * kSize);
	cursor.SkipPadding();
	if (count == 0)
		return TView<_Element>();

	u8 *const data = Allocate(cursor, u64(count - 1) * stride + kSize, addressMod16);
	for (u32 i = 0; i < storedCount; ++i)
		std::memcpy(data + u64(i) * stride, stored + u64(i) * kSize, kSize);
	return TView<_Element>(reinterpret_cast<const _Element *>(data), count, stride);
}

void CCapturedSort::ReadGeometry(CCursor &cursor)
{
	cursor.Name("index pattern");
	m_Pattern = cursor.Elements<u32>();

	const auto readArray = [&](const char *name, auto &view, u32 remaindersKept)
	{
		typedef std::remove_reference_t<decltype(view[0])> CElement;
		cursor.Name(name);
		const u32 addressMod16 = cursor.AddressMod16();
		const u32 count = cursor.Word();
		const u64 size = u64(count) * sizeof(CElement);
		const u8 *const bytes = cursor.Bytes(size);
		u8 *const data = Allocate(cursor, size, addressMod16 & remaindersKept);
		std::memcpy(data, bytes, size);
		view = TMemoryView<CElement>(reinterpret_cast<CElement *>(data), count);
	};
	// A list is the same from any address, but as a view of integers it starts at a multiple of 4.
	readArray("entries of the index list", m_IndexList, 0xC);
	readArray("quad centres", m_QuadCenters, 0xF);

	cursor.Name("index patterns");
	const u32 patternCount = cursor.Word();
	for (u32 pageId = 0; pageId < patternCount; ++pageId)
	{
		cursor.Name("index pattern", pageId);
		const std::vector<u32> pattern = cursor.Elements<u32>();
		m_PagePatterns.emplace_back(TMemoryView<const u32>(pattern.data(), u32(pattern.size())));
	}
	cursor.Name("vertex counts of the pages");
	m_PageVertexCounts = cursor.Elements<u32>();
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
	m_Output = Allocate(cursor, OutputSize(), m_OutputAddressMod16);
}

// As much as the sort uses, of as much as it was given.
void CCapturedSort::MakeWorkingBuffer(CCursor &cursor)
{
	const auto evenCount = [](u64 count) { return (count + 1) & ~u64(1); };
	const bool perPage = m_GeometryType == CTriangleSorter::GeometryPerPage;
	const u64 recordCount = perPage ? m_TriangleIndexCount / 3 : m_ParticleCount;
	u64 needed = evenCount(recordCount) * 2 * sizeof(SIndexAndDepth);
	if (perPage)
		needed += evenCount(m_TriangleIndexCount) * sizeof(u32);

	cursor.Name("working buffer");
	if (m_HasWorkingBuffer)
		m_WorkingBuffer = Allocate(cursor, std::min(needed, m_WorkingBufferSize), m_WorkingBufferAddressMod16);
	else
		Allocate(cursor, needed * (perPage ? 1 : sizeof(SIndexAndDepth)), 0); // room for what the sort will take
}

void CCapturedSort::SetUp()
{
	if (m_IndexType == CTriangleSorter::IndexTypeUint16)
		m_Sorter.Setup_OutputIndexBuffer({reinterpret_cast<u16 *>(m_Output), m_OutputCount}, m_VertexCount);
	else if (m_IndexType == CTriangleSorter::IndexTypeUint32)
		m_Sorter.Setup_OutputIndexBuffer({reinterpret_cast<u32 *>(m_Output), m_OutputCount}, m_VertexCount);

	const auto view = [](const auto &elements)
	{
		typedef std::remove_reference_t<decltype(elements[0])> CElement;
		return TMemoryView<CElement>(elements.data(), u32(elements.size()));
	};
	if (m_SortType == CTriangleSorter::SortByPosition)
		m_Sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(view(m_Positions)), view(m_Enableds),
			view(m_RenderedCounts), m_ParticleCount, m_Camera);
	else if (m_SortType == CTriangleSorter::SortByFloat)
		m_Sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(view(m_Values)), view(m_Enableds),
			view(m_RenderedCounts), m_ParticleCount, m_Camera);

	const TMemoryView<u32> pattern(m_Pattern.data(), u32(m_Pattern.size()));
	switch (m_GeometryType)
	{
	case CTriangleSorter::GeometryConstant:
		m_Sorter.Setup_Geometry(pattern, m_VerticesPerParticle);
		break;
	case CTriangleSorter::GeometryConstantAndIndexList:
		m_Sorter.Setup_Geometry(pattern, m_IndexList);
		break;
	case CTriangleSorter::GeometryConstantAndIndexListAndQuadCenters:
		m_Sorter.Setup_Geometry(pattern, m_IndexList, m_QuadCenters, m_VerticesPerParticle);
		break;
	case CTriangleSorter::GeometryPerPage:
		m_Sorter.Setup_Geometry(view(m_PagePatterns), view(m_PageVertexCounts), m_TriangleIndexCount);
		break;
	case CTriangleSorter::GeometryUnknown:
		break;
	}
}

// Zeros, which the system hands out without touching them: a page's memory may be far larger than what is read of it.
u8 *CCapturedSort::Allocate(CCursor &cursor, u64 size, u32 addressMod16)
{
	if (size > m_MemoryLeft)
		Refuse("The capture takes too much memory: %llu bytes for %s, where %llu are left.", Long(size), cursor.Name(),
			Long(m_MemoryLeft));
	m_MemoryLeft -= size;
	m_Memory.emplace_back(static_cast<u8 *>(std::calloc(1, std::max<u64>(size + addressMod16, 1))));
	if (m_Memory.back() == null)
		throw std::bad_alloc();
	return m_Memory.back().get() + addressMod16; // blocks start at multiples of 16
}

void CCapturedSort::Sort()
{
	if (m_GeometryType == CTriangleSorter::GeometryPerPage)
		m_Sorter.SortTriangles_AutogenIndices(m_WorkingBuffer);
	else
		m_Sorter.SortPoints_AutogenIndices(m_WorkingBuffer);
}

u32 CCapturedSort::EmptyPageCount() const
{
	return u32(std::count(m_RenderedCounts.begin(), m_RenderedCounts.end(), 0u));
}

u32 CCapturedSort::PageCountWithEnableds() const
{
	return u32(std::count_if(m_Enableds.begin(), m_Enableds.end(), [](const auto &page) { return !page.Empty(); }));
}
} // namespace Viewer
