// A capture, from its first byte to its last: the sorter's numbers, what each page has, the geometry, the output, and
// the checksum. Every field is a 32-bit word or a whole number of them.

#include "ge_mesh_sort_capture.h"

#include <algorithm>
#include <cstring>

namespace Vexmoor
{
static_assert(VX_LITTLE_ENDIAN, "captures are little-endian, and written as memory is");

constexpr u64 kLargestSize = 0xFFFFFFFFu; // counts and sizes are 32-bit
constexpr u32 kWordSize = sizeof(u32);

VX_WRAPS u64 SortCaptureChecksum(u64 checksum, const void *words, u64 sizeInBytes)
{
	const u8 *const bytes = static_cast<const u8 *>(words);
	for (u64 offset = 0; offset < sizeInBytes; offset += kWordSize)
	{
		u32 word;
		std::memcpy(&word, bytes + offset, sizeof(word));
		checksum = (checksum ^ word) * 0x100000001B3u;
	}
	return checksum;
}

// Hands bytes on in pieces of whole words, and counts and sums them up.
class CCaptureStream
{
public:
	CCaptureStream(CbWrite write, void *userData)
		: m_Write(write)
		, m_UserData(userData)
	{
	}

	void Word(u32 word) { Bytes(&word, sizeof(word)); }
	void DoubleWord(u64 value) { Bytes(&value, sizeof(value)); }
	void Bytes(const void *bytes, u64 size)
	{
		const u8 *next = static_cast<const u8 *>(bytes);
		if (size >= sizeof(m_Pending) && m_PendingSize % kWordSize == 0)
		{
			const u64 wholeWords = size / kWordSize * kWordSize;
			_Flush();
			_HandOn(next, wholeWords);
			next += wholeWords;
			size -= wholeWords;
		}
		while (size != 0)
		{
			const u64 taken = std::min<u64>(size, sizeof(m_Pending) - m_PendingSize);
			std::memcpy(m_Pending + m_PendingSize, next, taken);
			m_PendingSize += u32(taken);
			next += taken;
			size -= taken;
			if (m_PendingSize == sizeof(m_Pending))
				_Flush();
		}
	}
	void PadToWord()
	{
		constexpr u8 zeros[kWordSize] = {};
		Bytes(zeros, (kWordSize - m_PendingSize % kWordSize) % kWordSize);
	}

	// The end of the file: its size, and the checksum of all words before the checksum.
	bool Finish()
	{
		constexpr u64 kTrailerSize = 2 * sizeof(u64);
		DoubleWord(m_HandedOn + m_PendingSize + kTrailerSize);
		_Flush();
		DoubleWord(m_Checksum);
		_Flush();
		return m_Good;
	}

private:
	void _Flush()
	{
		_HandOn(m_Pending, m_PendingSize);
		m_PendingSize = 0;
	}
	void _HandOn(const void *bytes, u64 size)
	{
		if (!m_Good || size == 0)
			return;
		m_Checksum = SortCaptureChecksum(m_Checksum, bytes, size);
		m_HandedOn += size;
		m_Good = m_Write(bytes, size, m_UserData);
	}

	const CbWrite m_Write;
	void *const m_UserData;
	bool m_Good = true;
	u64 m_Checksum = kSortCaptureChecksumStart;
	u64 m_HandedOn = 0;
	u32 m_PendingSize = 0;
	u8 m_Pending[4096] = {};
};

class CSortCapture
{
public:
	CSortCapture(const CTriangleSorter &sorter, ESortCapture content, CbWrite write, void *userData)
		: m_Sorter(sorter)
		, m_Content(content)
		, m_Stream(write, userData)
	{
	}

	bool Write(const void *workingBuffer, u64 workingBufferSize)
	{
		if (!_CanRead())
			return false;
		_WriteNumbers(workingBuffer, workingBufferSize);
		_WritePages();
		_WriteGeometry();
		_WriteOutput();
		return m_Stream.Finish();
	}

private:
	typedef CTriangleSorter CSorter;

	bool _HasInput() const { return m_Sorter.m_SortType != CSorter::SortUnknown; }
	bool _ByPosition() const { return m_Sorter.m_SortType == CSorter::SortByPosition; }
	bool _Has16BitIndices() const { return m_Sorter.m_IndexType == CSorter::IndexTypeUint16; }
	bool _HasGeometry(CSorter::EGeometryType type) const { return m_Sorter.m_GeometryType == type; }
	bool _HasQuads() const { return _HasGeometry(CSorter::GeometryConstantAndIndexListAndQuadCenters); }
	bool _HasIndexList() const { return _HasGeometry(CSorter::GeometryConstantAndIndexList) || _HasQuads(); }
	bool _HasPattern() const { return _HasGeometry(CSorter::GeometryConstant) || _HasIndexList(); }
	bool _HasPagePatterns() const { return _HasGeometry(CSorter::GeometryPerPage); }

	const void *_Output() const
	{
		return _Has16BitIndices() ? static_cast<const void *>(m_Sorter.m_OutIndices16.Data())
		                          : m_Sorter.m_OutIndices32.Data();
	}
	u64 _OutputSize() const { return u64(m_Sorter.m_IndexCount) * (_Has16BitIndices() ? sizeof(u16) : sizeof(u32)); }

	bool _CanRead() const;
	template<typename _Element>
	bool _CanReadPages(const TStridedMemoryView<const TStridedMemoryView<const _Element, -1>, -1> &pages) const;

	u32 _RenderedCount(u32 pageId) const
	{
		const CSorter::CRenderedCounts &counts = m_Sorter.m_InRenderedParticleCounts;
		return pageId < counts.Count() ? counts[pageId] : 0;
	}
	template<typename _Element>
	u32 _ElementsRead(const TStridedMemoryView<const _Element, -1> &page, u32 pageId) const;

	u64 _Place(const void *address, bool hasBytes) const;
	template<typename _View>
	void _WritePlace(const _View &view);
	template<typename _Element>
	void _WriteViewHead(const TStridedMemoryView<const _Element, -1> &view);

	void _WriteNumbers(const void *workingBuffer, u64 workingBufferSize);
	void _WritePages();
	template<typename _Element>
	void _WritePages(const TStridedMemoryView<const TStridedMemoryView<const _Element, -1>, -1> &pages);
	template<typename _Element>
	void _WritePage(const TStridedMemoryView<const _Element, -1> &page, u32 pageId);
	void _WriteGeometry();
	template<typename _Element>
	void _WriteElements(const TMemoryView<const _Element> &elements);
	void _WriteOutput();

	const CTriangleSorter &m_Sorter;
	const ESortCapture m_Content;
	CCaptureStream m_Stream;
};

// Views.

constexpr ureg kLineSize = 16; // every alignment that a sort asks for divides it

static bool CanRead(const void *data, u32 count, u32 stride, u32 elementSize, u32 alignment)
{
	return count == 0 || (data != null && reinterpret_cast<ureg>(data) % alignment == 0 && stride % alignment == 0 &&
							 (stride == 0 || stride >= elementSize) && u64(count) * stride <= kLargestSize);
}

// Those of elements that are read as bytes or lanes have no alignment to keep.
template<typename _Type>
static bool CanRead(const TStridedMemoryView<_Type, -1> &view, u32 alignment = 1)
{
	return CanRead(view.Data(), view.Count(), view.Stride(), sizeof(_Type), alignment);
}

template<typename _Type>
static bool CanRead(const TMemoryView<_Type> &view, u32 alignment = 1)
{
	return CanRead(view.Data(), view.Count(), sizeof(_Type), sizeof(_Type), alignment);
}

template<typename _Element>
bool CSortCapture::_CanReadPages(
	const TStridedMemoryView<const TStridedMemoryView<const _Element, -1>, -1> &pages) const
{
	if (!CanRead(pages, alignof(TStridedMemoryView<const _Element, -1>)))
		return false;
	for (u32 pageId = 0; pageId < pages.Count(); ++pageId)
	{
		if (_RenderedCount(pageId) != 0 && !CanRead(pages[pageId]))
			return false;
	}
	return true;
}

bool CSortCapture::_CanRead() const
{
	if (m_Sorter.m_IndexType != CSorter::IndexTypeUnknown && m_Sorter.m_IndexCount != 0 && _Output() == null)
		return false;
	if (_HasInput())
	{
		if (!CanRead(m_Sorter.m_InRenderedParticleCounts, alignof(u32)) || !_CanReadPages(m_Sorter.m_InEnableds))
			return false;
		if (_ByPosition() ? !_CanReadPages(m_Sorter.m_InPositions) : !_CanReadPages(m_Sorter.m_InSortKeys))
			return false;
	}
	if (_HasIndexList() && !CanRead(m_Sorter.m_IndexList))
		return false;
	if (_HasQuads() && !CanRead(m_Sorter.m_QuadCenters))
		return false;
	return !_HasPagePatterns() || (CanRead(m_Sorter.m_IndexPatternCollection, alignof(CSorter::CIndexPattern)) &&
									  CanRead(m_Sorter.m_PrimiteVertexCountCollection, alignof(u32)));
}

// Of a page without enabled bytes a sort reads the first ones; with them, whatever it comes across.
template<typename _Element>
u32 CSortCapture::_ElementsRead(const TStridedMemoryView<const _Element, -1> &page, u32 pageId) const
{
	const bool hasEnableds = pageId < m_Sorter.m_InEnableds.Count() && !m_Sorter.m_InEnableds[pageId].Empty();
	const u32 distinctCount = page.Virtual() ? std::min(page.Count(), 1u) : page.Count();
	return hasEnableds ? distinctCount : std::min(distinctCount, _RenderedCount(pageId));
}

// Where memory lies, in bytes from the 16-byte line that the sorter starts in, modulo 2^64: two places are as far apart
// as the two addresses, and a place modulo 16 is the address modulo 16. Memory without bytes overlaps nothing, so only
// the remainder of its address is written.
VX_WRAPS u64 CSortCapture::_Place(const void *address, bool hasBytes) const
{
	const ureg start = reinterpret_cast<ureg>(address);
	const ureg origin = reinterpret_cast<ureg>(&m_Sorter) / kLineSize * kLineSize;
	return hasBytes ? u64(s64(sreg(start - origin))) : start % kLineSize;
}

template<typename _View>
void CSortCapture::_WritePlace(const _View &view)
{
	m_Stream.DoubleWord(_Place(view.Data(), view.Count() != 0));
}

// What is written of a strided view before its elements.
template<typename _Element>
void CSortCapture::_WriteViewHead(const TStridedMemoryView<const _Element, -1> &view)
{
	m_Stream.Word(view.Count());
	m_Stream.Word(view.Count() != 0 ? view.Stride() : 0);
	_WritePlace(view);
}

// Sections.

void CSortCapture::_WriteNumbers(const void *workingBuffer, u64 workingBufferSize)
{
	m_Stream.Bytes(kSortCaptureMagic, sizeof(kSortCaptureMagic) - 1);
	m_Stream.Word(kSortCaptureVersion);
	m_Stream.Word(m_Content);
	m_Stream.Word(sizeof(void *));
	m_Stream.DoubleWord(_Place(&m_Sorter, true));

	const bool hasOutput = m_Sorter.m_IndexType != CSorter::IndexTypeUnknown;
	m_Stream.Word(m_Sorter.m_IndexType);
	m_Stream.Word(hasOutput ? m_Sorter.m_IndexCount : 0);
	m_Stream.DoubleWord(hasOutput ? _Place(_Output(), m_Sorter.m_IndexCount != 0) : 0);
	m_Stream.Word(hasOutput ? m_Sorter.m_VertexCount : 0);

	m_Stream.Word(m_Sorter.m_SortType);
	m_Stream.Word(_HasInput() ? m_Sorter.m_ParticleCount : 0);
	m_Stream.Bytes(&m_Sorter.m_CameraPosition, sizeof(m_Sorter.m_CameraPosition));

	m_Stream.Word(m_Sorter.m_GeometryType);
	m_Stream.Word(
		_HasPattern() && !_HasGeometry(CSorter::GeometryConstantAndIndexList) ? m_Sorter.m_PrimiteVertexCount : 0);
	m_Stream.Word(_HasPagePatterns() ? m_Sorter.m_IndexCount_fromBB : 0);

	m_Stream.Word(workingBuffer != null ? 1 : 0);
	m_Stream.DoubleWord(_Place(workingBuffer, workingBuffer != null && workingBufferSize != 0));
	m_Stream.DoubleWord(workingBufferSize);
}

void CSortCapture::_WritePages()
{
	if (!_HasInput())
	{
		_WriteViewHead(CSorter::CRenderedCounts());
		_WriteViewHead(CSorter::CEnabledPages());
		_WriteViewHead(CSorter::CSortKeyPages());
		return;
	}
	_WriteViewHead(m_Sorter.m_InRenderedParticleCounts);
	for (u32 pageId = 0; pageId < m_Sorter.m_InRenderedParticleCounts.Count(); ++pageId)
		m_Stream.Word(_RenderedCount(pageId));
	_WritePages(m_Sorter.m_InEnableds);
	if (_ByPosition())
		_WritePages(m_Sorter.m_InPositions);
	else
		_WritePages(m_Sorter.m_InSortKeys);
}

// What a page that renders nothing says of its elements has no effect: it is written as having none. Of an empty view
// neither the address nor the stride has.
template<typename _Element>
void CSortCapture::_WritePages(const TStridedMemoryView<const TStridedMemoryView<const _Element, -1>, -1> &pages)
{
	_WriteViewHead(pages);
	for (u32 pageId = 0; pageId < pages.Count(); ++pageId)
	{
		const bool isRead = _RenderedCount(pageId) != 0 && !pages[pageId].Empty();
		_WritePage(isRead ? pages[pageId] : TStridedMemoryView<const _Element, -1>(), pageId);
	}
}

template<typename _Element>
void CSortCapture::_WritePage(const TStridedMemoryView<const _Element, -1> &page, u32 pageId)
{
	const u32 written = _ElementsRead(page, pageId);
	_WriteViewHead(page);
	m_Stream.Word(written);

	const u8 *element = reinterpret_cast<const u8 *>(page.Data());
	if (page.Contiguous())
		m_Stream.Bytes(element, u64(written) * sizeof(_Element));
	else
	{
		for (u32 i = 0; i < written; ++i, element += page.Stride())
			m_Stream.Bytes(element, sizeof(_Element));
	}
	m_Stream.PadToWord();
}

void CSortCapture::_WriteGeometry()
{
	_WriteElements(_HasPattern() ? TMemoryView<const u32>(m_Sorter.m_IndexPattern) : TMemoryView<const u32>());

	const TMemoryView<const u32> indexList = _HasIndexList() ? m_Sorter.m_IndexList : TMemoryView<const u32>();
	_WritePlace(indexList);
	_WriteElements(indexList);

	const TMemoryView<const CFloat4> centers = _HasQuads() ? m_Sorter.m_QuadCenters : TMemoryView<const CFloat4>();
	_WritePlace(centers);
	_WriteElements(centers);

	const bool perPage = _HasPagePatterns();
	const TMemoryView<const CSorter::CIndexPattern> patterns =
		perPage ? m_Sorter.m_IndexPatternCollection : TMemoryView<const CSorter::CIndexPattern>();
	_WritePlace(patterns);
	m_Stream.Word(patterns.Count());
	for (u32 pageId = 0; pageId < patterns.Count(); ++pageId)
		_WriteElements(
			_RenderedCount(pageId) != 0 ? TMemoryView<const u32>(patterns[pageId]) : TMemoryView<const u32>());

	const TMemoryView<const u32> vertexCounts =
		perPage ? m_Sorter.m_PrimiteVertexCountCollection : TMemoryView<const u32>();
	_WritePlace(vertexCounts);
	_WriteElements(vertexCounts);
}

template<typename _Element>
void CSortCapture::_WriteElements(const TMemoryView<const _Element> &elements)
{
	m_Stream.Word(elements.Count());
	m_Stream.Bytes(elements.Data(), u64(elements.Count()) * sizeof(_Element));
}

void CSortCapture::_WriteOutput()
{
	if (m_Content == SortCapture_InputAndOutput && m_Sorter.m_IndexType != CSorter::IndexTypeUnknown)
		m_Stream.Bytes(_Output(), _OutputSize());
	m_Stream.PadToWord();
}

bool WriteSortCapture(const CTriangleSorter &sorter,
	const void *workingBuffer,
	u64 workingBufferSize,
	ESortCapture content,
	CbWrite write,
	void *userData)
{
	return CSortCapture(sorter, content, write, userData).Write(workingBuffer, workingBufferSize);
}
} // namespace Vexmoor
