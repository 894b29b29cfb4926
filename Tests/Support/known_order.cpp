#include "known_order.h"

#include "ge_mesh_sort_validation.h"

#include "kr_mem.h"

#include "diagnostics.h"
#include <algorithm>
#include <cstring>
#include <numeric>
#include <sys/mman.h>
#include <unistd.h>

using namespace Vexmoor;

namespace Support
{
constexpr u32 kPointPartCount = 8; // of the scratch that a point sort asks for, it needs one

CKnownOrder::CKnownOrder(u32 count)
	: m_Count(count)
	, m_Step(u64(count) * 618 / 1000 + 1)
	, m_InverseStep(0)
	, m_Shift(count / 3)
{
	while (std::gcd(m_Step, m_Count) != 1)
		++m_Step;
	// Euclid's algorithm: inverse * step = remainder, modulo count, in every round.
	s64 remainder = s64(m_Step % m_Count), inverse = 1, nextRemainder = s64(m_Count), nextInverse = 0;
	while (nextRemainder != 0)
	{
		const s64 quotient = remainder / nextRemainder;
		remainder -= quotient * nextRemainder;
		inverse -= quotient * nextInverse;
		std::swap(remainder, nextRemainder);
		std::swap(inverse, nextInverse);
	}
	m_InverseStep = u64(inverse < 0 ? inverse + s64(m_Count) : inverse);
}

std::string SKnownCall::Name() const
{
	const char *const geometries[] = {"constant", "list", "quads", "triangles"};
	const u64 particleCount = std::accumulate(m_PageCounts.begin(), m_PageCounts.end(), u64(0));
	return std::to_string(particleCount) + " particles in " + std::to_string(m_PageCounts.size()) + " pages, " +
	       geometries[m_Geometry] + (m_Geometry == Triangles ? " x " + std::to_string(m_TrianglesPerParticle) : "") +
	       (m_ByPosition ? ", by position" : ", by value") + (m_16Bit ? ", 16 bits" : ", 32 bits") +
	       (m_HasDisabled ? ", some disabled" : ", none disabled");
}

CKnownSort::CKnownSort(const SKnownCall &call)
	: m_Call(call)
{
	m_ParticleCount = std::accumulate(call.m_PageCounts.begin(), call.m_PageCounts.end(), 0u);
	m_WrittenCount = std::min(m_ParticleCount, call.m_RoomCount);
	_ChooseGeometry();
	m_Order = CKnownOrder(m_DrawnCount);
	_FillPages();

	const u32 indexCount = m_WrittenCount * u32(m_Pattern.size());
	m_Output = CGuardedMemory(std::size_t(indexCount) * (call.m_16Bit ? sizeof(u16) : sizeof(u32)));
	if (call.m_16Bit)
		m_Sorter.Setup_OutputIndexBuffer(TMemoryView<u16>(m_Output.As<u16>(), indexCount), m_VertexCount);
	else
		m_Sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(m_Output.As<u32>(), indexCount), m_VertexCount);

	const u32 pageCount = u32(call.m_PageCounts.size());
	const CTriangleSorter::CEnabledPages enableds(m_Enableds.data(), pageCount, sizeof(CEnabledView));
	const CTriangleSorter::CRenderedCounts counts(m_Call.m_PageCounts.data(), pageCount, sizeof(u32));
	if (call.m_ByPosition)
		m_Sorter.Setup_InputPageCache(
			CTriangleSorter::CPositionPages(m_Positions.data(), pageCount, sizeof(CPositionView)), enableds, counts,
			m_ParticleCount, CFloat3(0, 0, 0));
	else
		m_Sorter.Setup_InputPageCache(
			CTriangleSorter::CSortKeyPages(m_SortValues.data(), pageCount, sizeof(CValueView)), enableds, counts,
			m_ParticleCount, CFloat3(0, 0, 0));

	const TMemoryView<u32> pattern(m_Pattern.data(), u32(m_Pattern.size()));
	const TMemoryView<const u32> indexList(m_IndexList.data(), u32(m_IndexList.size()));
	if (call.m_Geometry == Constant)
		m_Sorter.Setup_Geometry(pattern, m_VerticesPerParticle);
	else if (call.m_Geometry == List)
		m_Sorter.Setup_Geometry(pattern, indexList);
	else if (call.m_Geometry == Quads)
		m_Sorter.Setup_Geometry(pattern, indexList,
			TMemoryView<const CFloat4>(m_QuadCenters.data(), u32(m_QuadCenters.size())), m_VerticesPerParticle);
	else
		m_Sorter.Setup_Geometry(TMemoryView<const CPattern>(m_PagePatterns.data(), pageCount),
			TMemoryView<const u32>(m_PageVertexCounts.data(), pageCount), m_ParticleCount * u32(m_Pattern.size()));
}

// Every width of pattern that has a loop of its own is somebody's.
void CKnownSort::_ChooseGeometry()
{
	constexpr u32 kMostVerticesOf16Bits = 0xFFFF;
	m_DrawnCount = m_ParticleCount;
	if (m_Call.m_Geometry == Constant)
	{
		m_Pattern = m_Call.m_16Bit ? std::vector<u32>{0} : std::vector<u32>{0, 1, 2, 0, 2, 3};
		m_VerticesPerParticle = m_Call.m_16Bit ? 1 : 4;
	}
	else if (m_Call.m_Geometry == List)
	{
		m_Pattern = m_Call.m_16Bit ? std::vector<u32>{0, 1, 2, 0, 2, 3} : std::vector<u32>{2, 1, 0};
	}
	else if (m_Call.m_Geometry == Quads)
	{
		m_Pattern = {0, 1, 2, 0, 2, 3, 3, 2, 1, 3, 1, 0};
	}
	else
	{
		const bool isOne = m_Call.m_TrianglesPerParticle == 1;
		m_Pattern = isOne ? std::vector<u32>{0, 1, 2} : std::vector<u32>{0, 1, 2, 0, 2, 3};
		m_VerticesPerParticle = isOne ? 3 : 4;
	}
	m_DrawnPattern = m_Pattern;

	m_VertexCount = m_ParticleCount * m_VerticesPerParticle;
	if (m_Call.m_Geometry == Quads)
	{
		constexpr u32 kParticlesWithCentres = 1000; // which the particles share
		constexpr u32 kSlots = 16;
		m_VertexCount = kParticlesWithCentres * m_VerticesPerParticle;
		m_QuadCenters.assign(kParticlesWithCentres * kSlots, CFloat4(1, 0, 0, 0));
		for (u32 particle = 0; particle < kParticlesWithCentres; ++particle)
			m_QuadCenters[particle * kSlots + 1] = CFloat4(2, 0, 0, 0); // farther than quad 0
		std::rotate(m_DrawnPattern.begin(), m_DrawnPattern.begin() + 6, m_DrawnPattern.end());
	}
	else if (m_Call.m_16Bit)
	{
		m_VertexCount = std::min(m_VertexCount, kMostVerticesOf16Bits);
		if (m_Call.m_Geometry != List)
			m_DrawnCount = std::min(m_ParticleCount, m_VertexCount / m_VerticesPerParticle);
	}

	if (m_Call.m_Geometry == List || m_Call.m_Geometry == Quads)
	{
		m_IndexList.resize(m_ParticleCount);
		for (u32 particle = 0; particle < m_ParticleCount; ++particle)
			m_IndexList[particle] = _FirstVertex(particle);
	}
	if (m_Call.m_Geometry == Triangles)
	{
		const TMemoryView<u32> pattern(m_Pattern.data(), u32(m_Pattern.size()));
		m_PagePatterns.assign(m_Call.m_PageCounts.size(), CPattern(pattern));
		m_PageVertexCounts.assign(m_Call.m_PageCounts.size(), m_VerticesPerParticle);
	}
}

// A list lets particles share vertices, so it stays in reach of 16 bits and of the quad centres.
u32 CKnownSort::_FirstVertex(u32 particle) const
{
	const bool hasList = m_Call.m_Geometry == List || m_Call.m_Geometry == Quads;
	return (hasList ? particle % (m_VertexCount / m_VerticesPerParticle) : particle) * m_VerticesPerParticle;
}

// The float, as bits, that gives a particle its rank. Values spread over all finite ones, so that many digits of a
// radix sort have few records each. Distances are squares of neighbouring floats from 1 on, so that few digits have
// many. Squares of neighbours differ: in [1, 2), floats lie one unit in the last place apart, and their squares more
// than one of the result's.
u32 CKnownSort::_KeyBits(u32 particle) const
{
	const u32 rank = particle < m_DrawnCount ? m_Order.RankOf(particle) : 0;
	if (m_Call.m_ByPosition)
	{
		constexpr u32 kOne = 0x3F800000;
		return kOne + (m_DrawnCount - 1 - rank); // the farthest first
	}
	constexpr u32 kLowestKey = 0x00800000, kHighestKey = 0xFF7FFFFF, kSign = 0x80000000;
	const u32 key = kLowestKey + rank * ((kHighestKey - kLowestKey) / m_DrawnCount);
	return (key & kSign) != 0 ? key ^ kSign : ~key;
}

// With disabled particles, a page has one before each of its rendered particles and one behind: each would be drawn
// first. A page that renders nothing has no memory, or a disabled particle.
void CKnownSort::_FillPages()
{
	const u32 pageCount = u32(m_Call.m_PageCounts.size());
	const auto elementCount = [this](u32 page)
	{ return m_Call.m_HasDisabled ? 2 * m_Call.m_PageCounts[page] + 1 : m_Call.m_PageCounts[page]; };
	u64 total = 0;
	for (u32 page = 0; page < pageCount; ++page)
		total += elementCount(page);
	if (m_Call.m_ByPosition)
		m_Points.resize(total);
	else
		m_Values.resize(total);
	m_Bytes.resize(m_Call.m_HasDisabled ? total : 0);

	u64 element = 0;
	u32 particle = 0;
	m_Enableds.resize(pageCount);
	for (u32 page = 0; page < pageCount; ++page)
	{
		const u32 count = elementCount(page);
		if (count != 0 && m_Call.m_HasDisabled)
			m_Enableds[page] = CEnabledView(&m_Bytes[element], count, 1);
		if (m_Call.m_ByPosition)
			m_Positions.push_back(count != 0 ? CPositionView(&m_Points[element], count, 12) : CPositionView());
		else
			m_SortValues.push_back(count != 0 ? CValueView(&m_Values[element], count, 4) : CValueView());
		for (u32 i = 0; i < count; ++i, ++element)
		{
			const bool isRendered = !m_Call.m_HasDisabled || i % 2 == 1;
			if (m_Call.m_HasDisabled)
				m_Bytes[element] = isRendered ? 1 : 0;
			u32 bits = m_Call.m_ByPosition ? 0x7F000000u : 0xFF7FFFFFu;
			if (isRendered)
				bits = _KeyBits(particle++);
			// As bytes, so that no flag of a compiler's changes a bit. Of a position, they are its x.
			void *const number = m_Call.m_ByPosition ? static_cast<void *>(&m_Points[element]) : &m_Values[element];
			std::memcpy(number, &bits, sizeof(bits));
		}
	}
}

u64 CKnownSort::AskedBytes() const
{
	const auto roundedUpToEven = [](u64 count) { return (count + 1) / 2 * 2; };
	if (m_Call.m_Geometry != Triangles)
		return roundedUpToEven(m_ParticleCount) * 2 * sizeof(SIndexAndDepth) * kPointPartCount;
	const u64 indexCount = u64(m_ParticleCount) * m_Pattern.size();
	return roundedUpToEven(indexCount / 3) * 2 * sizeof(SIndexAndDepth) + roundedUpToEven(indexCount) * sizeof(u32);
}

void CKnownSort::Sort()
{
	if (m_Call.m_Geometry == Triangles)
		m_Sorter.SortTriangles_AutogenIndices(null);
	else
		m_Sorter.SortPoints_AutogenIndices(null);
}

template<typename _Index>
testing::AssertionResult CKnownSort::_IsInOrder() const
{
	const u32 width = u32(m_Pattern.size());
	const u32 beyondCount = m_ParticleCount - m_DrawnCount; // of minus infinity, before all others
	const u32 missingCount = m_ParticleCount - m_WrittenCount;
	const u32 firstPlace = m_Call.m_Geometry == Triangles ? missingCount : missingCount / 2 * 2;
	const _Index *index = m_Output.As<_Index>();
	for (u32 place = firstPlace; place < firstPlace + m_WrittenCount; ++place)
	{
		const bool isDrawn = place >= beyondCount;
		const u32 particle = isDrawn ? m_Order.NumberAt(place - beyondCount) : 0;
		const u32 firstVertex = isDrawn ? _FirstVertex(particle) : 0;
		for (u32 i = 0; i < width; ++i, ++index)
		{
			const u32 patternEntry = isDrawn || m_Call.m_Geometry != Triangles ? m_DrawnPattern[i] : 0;
			if (*index != firstVertex + patternEntry)
				return testing::AssertionFailure() << "index " << i << " of place " << place << " is " << *index
				                                   << ", and not " << firstVertex + patternEntry;
		}
	}
	if (!m_Output.SurroundingsIntact())
		return testing::AssertionFailure() << "a byte beside the output has changed";
	return testing::AssertionSuccess();
}

testing::AssertionResult CKnownSort::OutputIsInOrder() const
{
	return m_Call.m_16Bit ? _IsInOrder<u16>() : _IsInOrder<u32>();
}

testing::AssertionResult CKnownSort::OutputIsUntouched() const
{
	unsigned char *const end = m_Output.Data() + m_Output.Size();
	const unsigned char *const changed =
		std::find_if(m_Output.Data(), end, [](unsigned char byte) { return byte != CGuardedMemory::kInitialByte; });
	if (changed != end)
		return testing::AssertionFailure() << "byte " << changed - m_Output.Data() << " of the output has changed";
	return testing::AssertionSuccess();
}

CScratchHost::CScratchHost(EAnswer answer, u32 partCount)
	: m_Answer(answer)
	, m_PartCount(partCount)
{
	const Mem::SAllocator allocator = {
		[](void *self, u64 size, u32, Mem::EAllocType, Mem::EOrigin, const char *, const char *, int, const char *)
		{ return static_cast<CScratchHost *>(self)->_HandOut(size); },
		[](void *self, void *block, Mem::EAllocType, Mem::EOrigin, const char *, const char *, int, const char *)
		{ static_cast<CScratchHost *>(self)->_TakeBack(block); },
		this};
	Mem::SetAllocator(&allocator);
}

CScratchHost::~CScratchHost()
{
	Mem::SetAllocator(null);
	if (m_Pages != nullptr)
		munmap(m_Pages, m_PagesSize);
}

// The pages are no memory before they are touched, and those of the other parts never: they cannot be touched.
void *CScratchHost::_HandOut(u64 size)
{
	m_Sizes.push_back(size);
	if (m_Answer == Refuses || m_Pages != nullptr)
		return null;
	const u64 pageSize = u64(sysconf(_SC_PAGESIZE));
	const u64 usableSize = size / m_PartCount;
	const u64 usablePagesSize = (usableSize + pageSize - 1) / pageSize * pageSize;
	m_PagesSize = usablePagesSize + (size - usableSize + pageSize - 1) / pageSize * pageSize + pageSize;
	void *const pages = mmap(nullptr, m_PagesSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
	if (pages == MAP_FAILED || mprotect(pages, usablePagesSize, PROT_READ | PROT_WRITE) != 0)
	{
		ADD_FAILURE() << "no address space for " << size << " bytes of scratch";
		return null;
	}
	m_Pages = static_cast<unsigned char *>(pages);
	m_Block = m_Pages + (usablePagesSize - usableSize) / 16 * 16;
	return m_Block;
}

void CScratchHost::_TakeBack(void *block)
{
	++m_FreeCount;
	EXPECT_EQ(block, m_Block);
}

void ExpectSortsAsKnown(const SKnownCall &call)
{
	SCOPED_TRACE(call.Name());
	const CExpectReports noReports;
	const CWarningRecorder warnings;
	CKnownSort sort(call);
	const u32 violationCount = ValidateSort(
		sort.Sorter(), null, 0,
		[](const SSortFinding &finding, void *)
		{ EXPECT_EQ(finding.m_Kind, SortFinding_Advice) << finding.m_Sentence; },
		null);
	EXPECT_EQ(violationCount, 0u);

	const CScratchHost host(CScratchHost::HandsOut, call.m_Geometry == Triangles ? 1 : kPointPartCount);
	sort.Sort();
	EXPECT_EQ(host.Sizes(), std::vector<u64>{sort.AskedBytes()});
	EXPECT_EQ(host.FreeCount(), 1u);
	EXPECT_TRUE(sort.OutputIsInOrder());
}
} // namespace Support
