// Sorts on both sides of the numbers at which something changes width or wraps: of particles, of pages, of bytes. The
// order is known in closed form, the working buffer comes from the allocator. Sizes that take seconds or gigabytes are
// in limits_deep_test.cpp.

#include "diagnostics.h"
#include "known_order.h"
#include <algorithm>
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
// Pages of one particle each, or of one and of none in turns.
std::vector<u32> PagesOfOne(u32 pageCount)
{
	return std::vector<u32>(pageCount, 1);
}

std::vector<u32> PagesOfOneAndNone(u32 pageCount)
{
	std::vector<u32> counts(pageCount, 0);
	for (u32 page = 0; page < pageCount; page += 2)
		counts[page] = 1;
	return counts;
}

// Calls body(call) for every geometry, kind of key and width of indices, with disabled particles and without.
template<typename _Body>
void ForEveryKind(const _Body &body)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		for (const bool byPosition : {false, true})
		{
			for (const bool is16Bit : {false, true})
			{
				for (const bool hasDisabled : {false, true})
				{
					SKnownCall call;
					call.m_Geometry = geometry;
					call.m_ByPosition = byPosition;
					call.m_16Bit = is16Bit;
					call.m_HasDisabled = hasDisabled;
					body(call);
				}
			}
		}
	}
}

class ParticleCountTest : public testing::TestWithParam<u32>
{
};

class PageCountTest : public testing::TestWithParam<u32>
{
};

TEST_P(ParticleCountTest, EveryKindOfSort_WritesTheKnownOrder)
{
	constexpr u32 kMostWithDisabled = 1u << 17; // more would take long, and nothing but the fill sees them
	ForEveryKind(
		[](SKnownCall &call)
		{
			if (call.m_HasDisabled && GetParam() > kMostWithDisabled)
				return;
			call.m_PageCounts = {GetParam()};
			ExpectSortsAsKnown(call);
		});
}

TEST_P(PageCountTest, PagesOfOne_WriteTheKnownOrder)
{
	ForEveryKind(
		[](SKnownCall &call)
		{
			call.m_TrianglesPerParticle = 2; // an even number lies before every page, which keeps records aligned
			call.m_PageCounts = PagesOfOne(GetParam());
			ExpectSortsAsKnown(call);
		});
}

TEST_P(PageCountTest, PagesOfOneAndNone_WriteTheKnownOrder)
{
	ForEveryKind(
		[](SKnownCall &call)
		{
			call.m_TrianglesPerParticle = 2;
			call.m_PageCounts = PagesOfOneAndNone(GetParam());
			ExpectSortsAsKnown(call);
		});
}

// A sort of any number of particles that all lie in one place, and so need no memory; its output has room for few. It
// is never run to its end.
class CVirtualSort
{
public:
	CVirtualSort() { m_PagePattern = TMemoryView<const u32>(m_Pattern, 3); }

	void SortPoints(u32 particleCount, void *workingBuffer)
	{
		_SetUp(particleCount);
		m_Sorter.Setup_Geometry(TMemoryView<u32>(m_Pattern, 3), 3);
		m_Sorter.SortPoints_AutogenIndices(workingBuffer);
	}
	void SortTriangles(u32 indexCount, void *workingBuffer)
	{
		_SetUp(indexCount / 3);
		m_Sorter.Setup_Geometry(
			TMemoryView<const CPattern>(m_PagePattern), TMemoryView<const u32>(m_VertexCount), indexCount);
		m_Sorter.SortTriangles_AutogenIndices(workingBuffer);
	}

	bool OutputIsUntouched() const
	{
		return m_Output.SurroundingsIntact() && std::all_of(m_Output.Data(), m_Output.Data() + m_Output.Size(),
													[](u8 byte) { return byte == CGuardedMemory::kInitialByte; });
	}

private:
	void _SetUp(u32 particleCount)
	{
		m_Count = particleCount;
		m_Values = CValueView(&m_Value, particleCount, 0);
		m_Sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(m_Output.As<u32>(), 30), 0xFFFFFFFFu);
		m_Sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(m_Values), CTriangleSorter::CEnabledPages(m_None),
			CTriangleSorter::CRenderedCounts(m_Count), particleCount);
	}

	const float m_Value = 1.0f;
	u32 m_Count = 0;
	u32 m_VertexCount = 3;
	u32 m_Pattern[3] = {0, 1, 2};
	CPattern m_PagePattern;
	CValueView m_Values;
	const CEnabledView m_None;
	CGuardedMemory m_Output{30 * sizeof(u32)};
	CTriangleSorter m_Sorter;
};

constexpr u32 kMostPoints = (1u << 28) - 2;
constexpr u32 kMostTriangleIndices = 460'175'066;

constexpr const char *kPointSizeText = "_PointWorkingBufferSize(m_ParticleCount) <= kLargestWorkingBufferSize";
constexpr const char *kTriangleSizeText =
	"_TriangleWorkingBufferSize(m_IndexCount_fromBB) <= kLargestWorkingBufferSize";

// That a sort without a buffer asks for just these bytes, and where it gets none, writes nothing. Of a point sort's
// block an eighth is needed.
template<typename _Sort>
void ExpectAsksFor(u64 size, u32 partCount, const _Sort &runSort)
{
	const CExpectReports noReports;
	const CScratchHost host(CScratchHost::Refuses, partCount);
	CVirtualSort sort;
	runSort(sort, null);
	EXPECT_EQ(host.Sizes(), std::vector<u64>{size});
	EXPECT_EQ(host.FreeCount(), 0u);
	EXPECT_TRUE(sort.OutputIsUntouched());
}

// That a sort reports the text and does nothing, without a buffer and with one that has an address and not a byte.
template<typename _Sort>
void ExpectIsRefused(const char *text, u32 partCount, const _Sort &runSort)
{
	const CExpectReports reports{text, text};
	const CScratchHost host(CScratchHost::HandsOut, partCount);
	const CScopeRecorder scopes;
	const CGuardedMemory noByte(0);
	CVirtualSort sort;
	runSort(sort, null);
	runSort(sort, noByte.Data());
	EXPECT_EQ(host.Sizes(), std::vector<u64>());
	EXPECT_TRUE(scopes.Events().empty());
	EXPECT_TRUE(sort.OutputIsUntouched());
	EXPECT_TRUE(noByte.SurroundingsIntact());
}

// From 2^25 - 1 particles on, eight times the size needs more than 32 bits.
TEST(Limits, PointSortWithoutBuffer_AsksForEightTimesTheSizeIn64Bits)
{
	struct SCase
	{
		u32 m_ParticleCount;
		u64 m_Size;
	};
	const SCase cases[] = {
		{0,               0             },
		{1,               256           },
		{2,               256           },
		{3,               512           },
		{(1u << 25) - 2,  0x0'FFFF'FF00u},
		{(1u << 25) - 1,  0x1'0000'0000u}, // the first that 32 bits do not hold
		{1u << 25,        0x1'0000'0000u},
		{(1u << 25) + 1,  0x1'0000'0100u},
		{(1u << 27),      0x4'0000'0000u},
		{kMostPoints - 1, 0x7'FFFF'FF00u},
		{kMostPoints,     0x7'FFFF'FF00u},
	};
	for (const SCase &row : cases)
	{
		SCOPED_TRACE(row.m_ParticleCount);
		ExpectAsksFor(row.m_Size, 8,
			[&row](CVirtualSort &sort, void *workingBuffer) { sort.SortPoints(row.m_ParticleCount, workingBuffer); });
	}
}

TEST(Limits, TriangleSortWithoutBuffer_AsksForItsSize)
{
	struct SCase
	{
		u32 m_IndexCount;
		u64 m_Size;
	};
	const SCase cases[] = {
		{0,                        0            },
		{3,                        48           },
		{3 * ((1u << 25) - 1),     0x37FF'FFF8u }, // as many records as the next one has, and two indices fewer
		{3 * (1u << 25),           0x3800'0000u },
		{3 * ((1u << 25) + 1),     0x3800'0030u },
		{kMostTriangleIndices - 5, 4'294'967'256},
		{kMostTriangleIndices - 2, 4'294'967'264},
	};
	for (const SCase &row : cases)
	{
		SCOPED_TRACE(row.m_IndexCount);
		ExpectAsksFor(row.m_Size, 1,
			[&row](CVirtualSort &sort, void *workingBuffer) { sort.SortTriangles(row.m_IndexCount, workingBuffer); });
	}
}

// Sizes end at 32 bits.
TEST(Limits, PointSortsWhoseSizePasses32Bits_ReportAndWriteNothing)
{
	for (const u32 particleCount : {kMostPoints + 1, 1u << 28, (1u << 28) + 1, 1u << 29, 0x80000000u, 0xFFFFFFFFu})
	{
		SCOPED_TRACE(particleCount);
		ExpectIsRefused(kPointSizeText, 8,
			[particleCount](CVirtualSort &sort, void *buffer) { sort.SortPoints(particleCount, buffer); });
	}
}

// In 32 bits, the size of 460,175,073 indices is 72 bytes, and that of 920,350,146 is 104.
TEST(Limits, TriangleSortsWhoseSizePasses32Bits_ReportAndWriteNothing)
{
	for (const u32 indexCount : {kMostTriangleIndices + 1, kMostTriangleIndices + 7, 460'175'073u, 1u << 29,
			 3 * (1u << 28), 920'350'146u, 0xFFFFFFFFu})
	{
		SCOPED_TRACE(indexCount);
		ExpectIsRefused(kTriangleSizeText, 1,
			[indexCount](CVirtualSort &sort, void *buffer) { sort.SortTriangles(indexCount, buffer); });
	}
}

const auto NameOfCount = [](const testing::TestParamInfo<u32> &count) { return std::to_string(count.param); };

INSTANTIATE_TEST_SUITE_P(Limits,
	ParticleCountTest,
	testing::Values((1u << 8) - 1,
		1u << 8,
		(1u << 8) + 1,
		(1u << 16) - 1,
		1u << 16,
		(1u << 16) + 1,
		(1u << 19) - 1,
		1u << 19,
		(1u << 19) + 1),
	NameOfCount);

INSTANTIATE_TEST_SUITE_P(
	Limits, PageCountTest, testing::Values(255u, 256u, 257u, 65'535u, 65'536u, 65'537u), NameOfCount);
} // namespace
