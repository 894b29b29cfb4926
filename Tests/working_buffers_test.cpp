// The sizes and regions of the working buffer. They are computed in 32 bits, from any address: no memory is read.

#include "ge_mesh_triangle_sorter.h"

#include "diagnostics.h"
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
constexpr const char *kSizeText =
	"(1 + bufferIndex) * alignedPrimCount * sizeof(SIndexAndDepth) <= GetAutogenIndicesWorkingBufferSize(elementCount)";
constexpr const char *kBufferIndexText = "bufferIndex == 0 || bufferIndex == 1";

alignas(16) u8 s_Buffer[64];

template<typename _Type>
u64 ByteOffset(const TMemoryView<_Type> &view)
{
	return reinterpret_cast<ureg>(view.Data()) - reinterpret_cast<ureg>(s_Buffer);
}

// Both overloads, as one: what they say of the region has to agree.
void ExpectSortedPoints(u32 elementCount, u32 bufferIndex, u64 offset, bool reports)
{
	SCOPED_TRACE(testing::Message() << elementCount << " elements, array " << bufferIndex);
	const std::vector<std::string> texts(reports ? 2 : 0, kSizeText);
	CExpectReports expected(texts);
	const auto view = CTriangleSorter::WorkingBuffer_SortedPoints(s_Buffer, elementCount, bufferIndex);
	static_assert(std::is_same_v<decltype(view), const TMemoryView<SIndexAndDepth>>);
	EXPECT_EQ(ByteOffset(view), offset);
	EXPECT_EQ(view.Count(), elementCount);
	const void *const constBuffer = s_Buffer;
	const auto constView = CTriangleSorter::WorkingBuffer_SortedPoints(constBuffer, elementCount, bufferIndex);
	static_assert(std::is_same_v<decltype(constView), const TMemoryView<const SIndexAndDepth>>);
	EXPECT_EQ(ByteOffset(constView), offset);
	EXPECT_EQ(constView.Count(), elementCount);
}

void ExpectSortedTris(u32 indexCount, u32 bufferIndex, u64 offset, u32 triCount, bool reports)
{
	SCOPED_TRACE(testing::Message() << indexCount << " indices, array " << bufferIndex);
	const std::vector<std::string> texts(reports ? 2 : 0, kBufferIndexText);
	CExpectReports expected(texts);
	const auto view = CTriangleSorter::WorkingBuffer_SortedTris(s_Buffer, indexCount, bufferIndex);
	static_assert(std::is_same_v<decltype(view), const TMemoryView<SIndexAndDepth>>);
	EXPECT_EQ(ByteOffset(view), offset);
	EXPECT_EQ(view.Count(), triCount);
	const void *const constBuffer = s_Buffer;
	const auto constView = CTriangleSorter::WorkingBuffer_SortedTris(constBuffer, indexCount, bufferIndex);
	static_assert(std::is_same_v<decltype(constView), const TMemoryView<const SIndexAndDepth>>);
	EXPECT_EQ(ByteOffset(constView), offset);
	EXPECT_EQ(constView.Count(), triCount);
}

template<typename _Index>
void ExpectTriangleIndices(u32 indexCount, u64 offset)
{
	SCOPED_TRACE(testing::Message() << indexCount << " indices of " << sizeof(_Index) << " bytes");
	CExpectReports noReports;
	const auto view = CTriangleSorter::WorkingBuffer_TriangleIndices<_Index>(s_Buffer, indexCount);
	static_assert(std::is_same_v<decltype(view), const TMemoryView<_Index>>);
	EXPECT_EQ(ByteOffset(view), offset);
	EXPECT_EQ(view.Count(), indexCount);
	const void *const constBuffer = s_Buffer;
	const auto constView = CTriangleSorter::WorkingBuffer_TriangleIndices<_Index>(constBuffer, indexCount);
	static_assert(std::is_same_v<decltype(constView), const TMemoryView<const _Index>>);
	EXPECT_EQ(ByteOffset(constView), offset);
	EXPECT_EQ(constView.Count(), indexCount);
}
} // namespace

// Array 1 starts where the padding of array 0 ends, which keeps it on a 16-byte boundary.
TEST(WorkingBuffers, PointSort_PadsEachArrayToAnEvenCount)
{
	struct SCase
	{
		u32 m_ElementCount;
		u32 m_Size;
		u64 m_Array1;
	};
	const SCase cases[] = {
		{1,    32,     16   },
		{2,    32,     16   },
		{3,    64,     32   },
		{1000, 16'000, 8'000},
		{1001, 16'032, 8'016},
	};
	for (const SCase &row : cases)
	{
		EXPECT_EQ(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(row.m_ElementCount), row.m_Size);
		ExpectSortedPoints(row.m_ElementCount, 0, 0, false);
		ExpectSortedPoints(row.m_ElementCount, 1, row.m_Array1, false);
	}
}

TEST(WorkingBuffers, PointSortSize_EqualsItsClosedForm)
{
	for (u32 count = 0; count < 5000; ++count)
		ASSERT_EQ(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count), ((count << 4) + 16) & 0xFFFFFFE0u);
	for (u64 wide = 5000; wide <= 0xFFFFFFFFu; wide += 1'234'567)
	{
		const u32 count = u32(wide);
		ASSERT_EQ(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count), ((count << 4) + 16) & 0xFFFFFFE0u);
	}
}

TEST(WorkingBuffers, PointSortSize_WrapsFromTwoToThe28On)
{
	EXPECT_EQ(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(268'435'453u), 0xFFFFFFE0u);
	EXPECT_EQ(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(268'435'454u), 0xFFFFFFE0u);
	EXPECT_EQ(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(268'435'455u), 0u);
	EXPECT_EQ(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(268'435'456u), 0u);
	EXPECT_EQ(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(268'435'457u), 32u);
}

TEST(WorkingBuffers, PointArraysBeyondTheWrap_AreReportedAndStillCarved)
{
	// The record count is in range, so its bytes are taken in 64 bits; the buffer's size has come round to 0.
	ExpectSortedPoints(268'435'455u, 0, 0, true);
	ExpectSortedPoints(268'435'455u, 1, u64(268'435'456u) * 8, true);
}

// Nothing but the buffer's size says how many arrays there are.
TEST(WorkingBuffers, PointArrayTwo_IsReportedAndStillCarved)
{
	ExpectSortedPoints(1, 2, 2 * 2 * 8, true);
	ExpectSortedPoints(1000, 2, 2 * 1000 * 8, true);
	ExpectSortedPoints(1001, 2, 2 * 1002 * 8, true);
	ExpectSortedPoints(1001, 7, 7 * 1002 * 8, true);
}

TEST(WorkingBuffers, PointArrayProducts_WrapBeforeTheyAreWidened)
{
	constexpr u32 kCount = 1u << 27;                                      // a buffer of 2^31 bytes
	ExpectSortedPoints(kCount, 31, u64(31u * kCount) * 8, false);         // 32 * 2^27 comes round to 0
	ExpectSortedPoints(kCount, 32, 0, false);                             // so does the first record of array 32
	ExpectSortedPoints(kCount, 30, u64(30u * kCount) * 8, true);          // 31 * 2^27 records stay beyond it
	ExpectSortedPoints(kCount, 0xFFFFFFFFu, u64(0u - kCount) * 8, false); // 0 * 2^27
}

TEST(WorkingBuffers, NoPoints_NoBytesAndAnyArray)
{
	EXPECT_EQ(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(0), 0u);
	for (const u32 bufferIndex : {0u, 1u, 2u, 77u, 0xFFFFFFFFu})
		ExpectSortedPoints(0, bufferIndex, 0, false);
}

// Indices have four bytes each whatever their type: both types' regions start at the same byte.
TEST(WorkingBuffers, TriangleSort_CarvesTwoArraysAndTheIndices)
{
	struct SCase
	{
		u32 m_IndexCount;
		u32 m_TriCount;
		u32 m_SortedTrisSize;
		u32 m_TriIndicesSize;
		u32 m_Size;
	};
	const SCase cases[] = {
		{0,    0,   0,     0,     0    },
		{1,    0,   0,     8,     8    }, // no triangle, and yet two indices' room
		{2,    0,   0,     8,     8    },
		{3,    1,   16,    16,    48   },
		{4,    1,   16,    16,    48   },
		{5,    1,   16,    24,    56   },
		{6,    2,   16,    24,    56   },
		{9,    3,   32,    40,    104  },
		{1000, 333, 2'672, 4'000, 9'344},
	};
	for (const SCase &row : cases)
	{
		SCOPED_TRACE(testing::Message() << row.m_IndexCount << " indices");
		EXPECT_EQ(CTriangleSorter::GetSortedTrisWorkingBufferSize(row.m_IndexCount), row.m_SortedTrisSize);
		EXPECT_EQ(CTriangleSorter::GetTriIndicesWorkingBufferSize(row.m_IndexCount), row.m_TriIndicesSize);
		EXPECT_EQ(CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(row.m_IndexCount), row.m_Size);
		ExpectSortedTris(row.m_IndexCount, 0, 0, row.m_TriCount, false);
		ExpectSortedTris(row.m_IndexCount, 1, row.m_SortedTrisSize, row.m_TriCount, false);
		ExpectTriangleIndices<u32>(row.m_IndexCount, 2 * row.m_SortedTrisSize);
		ExpectTriangleIndices<u16>(row.m_IndexCount, 2 * row.m_SortedTrisSize);
	}
}

TEST(WorkingBuffers, TriangleRegions_FollowEachOtherOn16ByteBoundaries)
{
	for (u32 indexCount = 0; indexCount < 3000; ++indexCount)
	{
		const u32 triCount = indexCount / 3;
		const u32 sortedTrisSize = CTriangleSorter::GetSortedTrisWorkingBufferSize(indexCount);
		ASSERT_EQ(sortedTrisSize % 16, 0u);
		ASSERT_EQ(sortedTrisSize, (triCount + triCount % 2) * 8);
		ASSERT_EQ(CTriangleSorter::GetTriIndicesWorkingBufferSize(indexCount), (indexCount + indexCount % 2) * 4);
		ASSERT_EQ(CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(indexCount),
			2 * sortedTrisSize + (indexCount + indexCount % 2) * 4);
	}
}

// The number of the array is looked at, not the size: an empty buffer has no third array either.
TEST(WorkingBuffers, TriangleArrayTwo_IsReportedAndStillCarved)
{
	ExpectSortedTris(0, 2, 0, 0, true); // with no triangles, too
	ExpectSortedTris(0, 0xFFFFFFFFu, 0, 0, true);
	ExpectSortedTris(3, 2, 2 * 2 * 8, 1, true);
	ExpectSortedTris(1000, 2, 2 * 334 * 8, 333, true);
	ExpectSortedTris(1000, 3, 3 * 334 * 8, 333, true);
}

TEST(WorkingBuffers, TriangleArrayProducts_WrapBeforeTheyAreWidened)
{
	// 2^30 triangles, padded or not, times array 4 come round to 0.
	ExpectSortedTris(3u << 30, 4, 0, 1u << 30, true);
}

TEST(WorkingBuffers, NullBuffer_IsCarvedUnchecked)
{
	CExpectReports noReports;
	void *const none = null;
	EXPECT_EQ(CTriangleSorter::WorkingBuffer_SortedPoints(none, 0, 0).Data(), nullptr);
	EXPECT_EQ(CTriangleSorter::WorkingBuffer_SortedTris(none, 0, 0).Data(), nullptr);
	EXPECT_EQ(CTriangleSorter::WorkingBuffer_TriangleIndices<u32>(none, 0).Data(), nullptr);
}

#if VX_ASSERTIONS
TEST(WorkingBuffers, Reports_NameTheSorterAndTheCarving)
{
	CReportRecorder recorder;
	const void *const constBuffer = s_Buffer;
	CTriangleSorter::WorkingBuffer_SortedPoints(s_Buffer, 1, 2);
	CTriangleSorter::WorkingBuffer_SortedPoints(constBuffer, 1, 2);
	CTriangleSorter::WorkingBuffer_SortedTris(s_Buffer, 3, 2);
	CTriangleSorter::WorkingBuffer_SortedTris(constBuffer, 3, 2);
	ASSERT_EQ(recorder.Reports().size(), 4u);
	for (std::size_t i = 0; i < 4; ++i)
	{
		const SRecordedReport &report = recorder.Reports()[i];
		const char *const text = i < 2 ? kSizeText : kBufferIndexText;
		EXPECT_EQ(report.m_File, "../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp");
		EXPECT_EQ(report.m_ConditionText, text);
		EXPECT_EQ(report.m_ExpandedConditionText, text);
		EXPECT_EQ(report.m_Message, text);
		EXPECT_NE(report.m_Function.find(i < 2 ? "WorkingBuffer_SortedPoints(" : "WorkingBuffer_SortedTris("),
			std::string::npos);
	}
}

// The flags of the library's sites outlive the test that sets them, so they are set in a process of their own.
TEST(WorkingBuffersDeathTest, EachOverload_HasItsOwnIgnoreFlag)
{
	const auto reportsOfThreeRounds = []
	{
		CReportRecorder recorder(Assert::Decision_Ignore);
		const void *const constBuffer = s_Buffer;
		for (u32 round = 0; round < 3; ++round)
		{
			CTriangleSorter::WorkingBuffer_SortedPoints(s_Buffer, 1, 2);
			CTriangleSorter::WorkingBuffer_SortedPoints(constBuffer, 1, 2);
			CTriangleSorter::WorkingBuffer_SortedTris(s_Buffer, 3, 2);
			CTriangleSorter::WorkingBuffer_SortedTris(constBuffer, 3, 2);
		}
		return int(recorder.Reports().size());
	};
	EXPECT_EXIT(std::_Exit(reportsOfThreeRounds()), testing::ExitedWithCode(4), "");
}
#endif
