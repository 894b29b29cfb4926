// Memory views and their iterators: what they cover, how they are cut and converted, and what is reported before an
// access that lies outside. Addresses are computed modulo 2^32, and what is reported is computed all the same.

#include "vx_defs.h"
#include "vx_maths_vector.h"

#include "kr_iterators.h"
#include "kr_memoryviews.h"

#include "diagnostics.h"
#include "guarded_memory.h"
#include <cstring>
#include <gtest/gtest.h>
#include <numeric>

using namespace Vexmoor;
using namespace Support;

namespace
{
constexpr const char *kStrideText = "stride >= ValueFootprintInBytes || stride == 0";
constexpr const char *kSliceText = "begin + count <= m_Count";
constexpr const char *kStridedSliceText = "begin + count <= BaseType::m_Storage.m_Count";

struct SAccessReported
{
};

// Leaves an access at its last expected report, before it touches memory that is not there.
class CLeaveAtReport
{
public:
	explicit CLeaveAtReport(u32 last)
		: m_Last(last)
	{
		Assert::SetReportHandler(
			[](const Assert::SReport &report, void *self) -> int
			{
				CLeaveAtReport *const leave = static_cast<CLeaveAtReport *>(self);
				leave->m_Texts.push_back(report.m_ConditionText);
				if (leave->m_Texts.size() == leave->m_Last)
					throw SAccessReported();
				return Assert::Decision_Continue;
			},
			this);
	}
	~CLeaveAtReport() { FailAtReports(); }

	const std::vector<std::string> &Texts() const { return m_Texts; }

private:
	u32 m_Last;
	std::vector<std::string> m_Texts;
};

template<u32 _Count>
void FillWithOwnIndex(u32 (&elements)[_Count])
{
	std::iota(elements, elements + _Count, 0u);
}

u8 *Address(const volatile void *p)
{
	return reinterpret_cast<u8 *>(reinterpret_cast<ureg>(p));
}

// A slice outside is reported and made all the same: pointer and count are as asked for. The view is of eight elements.
template<typename _View>
void ExpectSlices(const _View &view, const char *text, u32 stepsPerElement)
{
	const struct
	{
		u32 m_Begin, m_Count;
		bool m_Reports;
	} cases[] = {
		{0, 0,           false},
        {0, 8,           false},
        {3, 5,           false},
        {8, 0,           false},
        {0, 9,           true },
        {8, 1,           true },
        {9, 0,           true },
		{4, 0xFFFFFFFEu, false}, // the sum is taken in 32 bits: 2
		{4, 0xFFFFFFFBu, true }, // 0xFFFFFFFF
	};
	for (const auto &row : cases)
	{
		SCOPED_TRACE(testing::Message() << "Slice(" << row.m_Begin << ", " << row.m_Count << ")");
		CExpectReports reports(row.m_Reports ? std::vector<std::string>{text} : std::vector<std::string>{});
		const _View slice = view.Slice(row.m_Begin, row.m_Count);
		EXPECT_EQ(slice.Data(), view.Data() + row.m_Begin * stepsPerElement);
		EXPECT_EQ(slice.Count(), row.m_Count);
	}

	CExpectReports reports{text};
	EXPECT_EQ(view.SliceIFP(3, 4).Data(), view.Data() + 3 * stepsPerElement);
	EXPECT_EQ(view.SliceIFP(3, 4).Count(), 4u);
	EXPECT_EQ(view.SliceIFP(8, 1).Count(), 1u); // outside like any slice
}

// What both kinds of view say of nothing.
template<typename _View>
void ExpectEmpty(const _View &view)
{
	CExpectReports noReports;
	EXPECT_TRUE(view.Empty());
	EXPECT_EQ(view.Data(), nullptr);
	EXPECT_EQ(view.DataEnd(), nullptr);
	EXPECT_EQ(view.Count(), 0u);
	EXPECT_EQ(view.CoveredBytes(), 0u);
	EXPECT_TRUE(view.Slice(0, 0).Empty());
	EXPECT_TRUE(view.SliceIFP(3, 4).Empty());
	EXPECT_EQ(view.SliceIFP(3, 4).Data(), nullptr);
}

template<typename _View>
void ExpectOneElement()
{
	u32 element = 7;
	const _View view(element);
	EXPECT_EQ(view.Data(), &element);
	EXPECT_EQ(view.Count(), 1u);
	EXPECT_EQ(&view[0], &element);
}
} // namespace

TEST(MemoryView, DefaultConstructed_IsEmpty)
{
	const TMemoryView<u32> view;
	ExpectEmpty(view);
	EXPECT_EQ(view.Begin(), view.End());
	EXPECT_EQ(sizeof(view), 2 * sizeof(void *));
}

TEST(StridedMemoryView, DefaultConstructed_IsEmpty)
{
	ExpectEmpty(TStridedMemoryView<const u32>());
	EXPECT_EQ(TStridedMemoryView<const u32>().Stride(), 0u);
}

TEST(MemoryView, OneElement_HasCountOne)
{
	ExpectOneElement<TMemoryView<u32>>();
	ExpectOneElement<TStridedMemoryView<u32>>();
}

TEST(MemoryView, Empty_IsNoDataOrNoCount)
{
	u32 element = 0;
	EXPECT_TRUE(TMemoryView<u32>(null, 3).Empty());
	EXPECT_TRUE(TMemoryView<u32>(&element, 0).Empty());
	EXPECT_FALSE(TMemoryView<u32>(&element, 1).Empty());
	EXPECT_TRUE(TMemoryView<u32>(&element, 0).SliceIFP(3, 4).Empty());
	EXPECT_EQ(TStridedMemoryView<u32>(&element, 0, 4).SliceIFP(3, 4).Data(), nullptr);
}

TEST(MemoryView, EmptyAndNull_SliceOfNothingIsValidAndEmpty)
{
	CExpectReports noReports;
	const TMemoryView<u32> slice = TMemoryView<u32>(null, 0).Slice(0, 0);
	EXPECT_TRUE(slice.Empty());
	EXPECT_EQ(slice.Data(), nullptr);
	EXPECT_EQ(slice.Count(), 0u);
}

TEST(MemoryView, PointerAndCount_CoverTheElements)
{
	CExpectReports noReports;
	u32 elements[8];
	FillWithOwnIndex(elements);
	const TMemoryView<u32> view(elements, 8);
	EXPECT_FALSE(view.Empty());
	EXPECT_EQ(view.Count(), 8u);
	EXPECT_EQ(view.Data(), elements);
	EXPECT_EQ(view.DataEnd(), elements + 8);
	EXPECT_EQ(view.ElementSizeInBytes(), 4u);
	EXPECT_EQ(view.CoveredBytes(), 32u);
	EXPECT_EQ(view.First(), 0u);
	EXPECT_EQ(view.Last(), 7u);
	for (u32 i = 0; i < 8; ++i)
		EXPECT_EQ(&view[i], elements + i);
}

TEST(MemoryView, CoveredBytes_WrapAt32Bits)
{
	u32 element = 0;
	EXPECT_EQ(TMemoryView<u32>(&element, 0x40000001u).CoveredBytes(), 4u);
}

TEST(MemoryView, Copies_AreShallow)
{
	u32 elements[2] = {1, 2};
	const TMemoryView<u32> view(elements, 2);
	const TMemoryView<u32> copy = view;
	copy[1] = 5;
	EXPECT_EQ(view[1], 5u);
	EXPECT_EQ(copy.Data(), elements);
}

// What only reads takes views of const elements, and is called with whatever view there is.
TEST(MemoryView, MutableView_ConvertsToConstAndNotBack)
{
	static_assert(std::is_convertible_v<TMemoryView<u32>, TMemoryView<const u32>>);
	static_assert(!std::is_convertible_v<TMemoryView<const u32>, TMemoryView<u32>>);
	static_assert(!std::is_convertible_v<TMemoryView<u32>, TMemoryView<const u16>>);
	u32 elements[3] = {};
	const TMemoryView<const u32> view = TMemoryView<u32>(elements, 3);
	EXPECT_EQ(view.Data(), elements);
	EXPECT_EQ(view.Count(), 3u);
}

TEST(MemoryView, Slice_ReportsWhatLeavesTheView)
{
	u32 elements[9];
	ExpectSlices(TMemoryView<u32>(elements, 8), kSliceText, 1);
}

TEST(MemoryView, SliceWithoutCount_RunsToTheEnd)
{
	CExpectReports noReports;
	u32 elements[8];
	for (u32 begin = 0; begin <= 8; ++begin)
	{
		const TMemoryView<u32> slice = TMemoryView<u32>(elements, 8).Slice(begin);
		EXPECT_EQ(slice.Data(), elements + begin);
		EXPECT_EQ(slice.DataEnd(), elements + 8);
	}
}

// The views are narrower than the array behind them, so the reported accesses have an element to reach.
TEST(MemoryView, AccessFromTheCountOn_ReportsAndReachesTheElement)
{
	CExpectReports reports{"index < m_Count", "index < m_Count", "index < m_Count"};
	u32 elements[8];
	FillWithOwnIndex(elements);
	const TMemoryView<u32> view(elements, 4);
	EXPECT_EQ(view[3], 3u);
	EXPECT_EQ(view[4], 4u);
	EXPECT_EQ(view[7], 7u);
	EXPECT_EQ((TMemoryView<const u32>(elements, 0)[0]), 0u);
}

// A view of null has no element to reach: these leave the access where it would be made. Two reports come before it,
// of two sites.
#if VX_ASSERTIONS
template<typename _Access>
static void ExpectReportsOfAnEmptyView(const _Access &access, const std::vector<std::string> &texts)
{
	CLeaveAtReport leave(2);
	EXPECT_THROW(access(), SAccessReported);
	EXPECT_EQ(leave.Texts(), texts);
}

TEST(MemoryView, AccessToAnEmptyView_ReportsDataBeforeIndex)
{
	const std::vector<std::string> texts = {"m_Data != null", "index < m_Count"};
	ExpectReportsOfAnEmptyView([] { return TMemoryView<u32>()[0]; }, texts);
	ExpectReportsOfAnEmptyView([] { return TMemoryView<u32>().Last(); }, texts);
}

TEST(StridedMemoryView, AccessToAnEmptyView_ReportsDataBeforeIndex)
{
	ExpectReportsOfAnEmptyView(
		[] { return TStridedMemoryView<u32>()[0]; }, {"m_Storage.m_RawDataPtr != null", "index < m_Storage.m_Count"});
}
#endif

TEST(StridedMemoryView, ValueFootprint_IsTheElementSize)
{
	EXPECT_EQ(+TStridedMemoryView<const CFloat3>::ValueFootprintInBytes, 12u);
	EXPECT_EQ(+TStridedMemoryView<const float>::ValueFootprintInBytes, 4u);
	EXPECT_EQ(+TStridedMemoryView<const u32>::ValueFootprintInBytes, 4u);
	EXPECT_EQ(+TStridedMemoryView<const u8>::ValueFootprintInBytes, 1u);
	EXPECT_EQ((+TStridedMemoryView<const TStridedMemoryView<const CFloat3, -1>, -1>::ValueFootprintInBytes), 16u);
	EXPECT_EQ(TStridedMemoryView<const CFloat3>::ElementFootprintInBytes(), 12u);
	static_assert(std::is_same_v<TStridedMemoryView<u32>, TStridedMemoryView<u32, -1>>);
}

// Page-cache views are strided views of strided views, so their elements are 16 bytes apart.
TEST(StridedMemoryView, Storage_IsAddressCountStride)
{
	SStridedMemoryViewRawStorage storage;
	EXPECT_EQ(storage.m_RawDataPtr, nullptr);
	EXPECT_EQ(storage.m_Count, 0u);
	EXPECT_EQ(storage.m_Stride, 0u);
	EXPECT_EQ(offsetof(SStridedMemoryViewRawStorage, m_RawDataPtr), 0u);
	EXPECT_EQ(offsetof(SStridedMemoryViewRawStorage, m_Count), 8u);
	EXPECT_EQ(offsetof(SStridedMemoryViewRawStorage, m_Stride), 12u);
	EXPECT_EQ(sizeof(TStridedMemoryView<u32>), 16u);
}

TEST(StridedMemoryView, Empty_IsNoDataOrNoCount)
{
	u32 element = 0;
	EXPECT_TRUE(TStridedMemoryView<u32>(null, 3, 4).Empty());
	EXPECT_TRUE(TStridedMemoryView<u32>(&element, 0, 4).Empty());
	EXPECT_FALSE(TStridedMemoryView<u32>(&element, 1, 4).Empty());
	EXPECT_FALSE(TStridedMemoryView<u32>(&element, 1, 0).Empty());
}

template<typename _Type>
static void ExpectStrideCheck()
{
	alignas(16) u8 memory[sizeof(_Type)] = {};
	for (u32 stride = 0; stride <= sizeof(_Type) + 4; ++stride)
	{
		SCOPED_TRACE(testing::Message() << "stride " << stride << " of " << sizeof(_Type) << "-byte elements");
		const bool tooSmall = stride != 0 && stride < sizeof(_Type);
		CExpectReports reports(tooSmall ? std::vector<std::string>{kStrideText} : std::vector<std::string>{});
		const TStridedMemoryView<_Type> view(reinterpret_cast<_Type *>(memory), 1, stride);
		EXPECT_EQ(view.Stride(), stride);
		EXPECT_EQ(view.Virtual(), stride == 0);
		EXPECT_EQ(view.Contiguous(), stride == sizeof(_Type));
		EXPECT_EQ(view.ContiguousFootprint(), stride == sizeof(_Type));
	}
}

// Elements would overlap. Stride 0 is no mistake but a virtual view.
TEST(StridedMemoryView, StrideBelowTheElementSize_Reports)
{
	ExpectStrideCheck<const u8>();
	ExpectStrideCheck<u16>();
	ExpectStrideCheck<u32>();
	ExpectStrideCheck<const CFloat3>();
	ExpectStrideCheck<const TStridedMemoryView<const float>>();
}

TEST(StridedMemoryView, ContiguousView_KeepsDataCountAndElementSize)
{
	CExpectReports noReports;
	u32 elements[5];
	FillWithOwnIndex(elements);
	const TStridedMemoryView<u32> view = TMemoryView<u32>(elements, 5);
	EXPECT_EQ(view.Data(), elements);
	EXPECT_EQ(view.Count(), 5u);
	EXPECT_EQ(view.Stride(), 4u);
	EXPECT_EQ(view.CoveredBytes(), 20u);
	EXPECT_EQ(view.DataEnd(), elements + 5);
	for (u32 i = 0; i < 5; ++i)
		EXPECT_EQ(view[i], i);
}

TEST(StridedMemoryView, MutableViews_ConvertToConstAndNotBack)
{
	static_assert(std::is_convertible_v<TMemoryView<u32>, TStridedMemoryView<const u32>>);
	static_assert(std::is_convertible_v<TStridedMemoryView<u32>, TStridedMemoryView<const u32>>);
	static_assert(!std::is_convertible_v<TStridedMemoryView<const u32>, TStridedMemoryView<u32>>);
	u32 elements[6] = {};
	const TStridedMemoryView<const u32> view = TStridedMemoryView<u32>(elements, 3, 8);
	EXPECT_EQ(view.Data(), elements);
	EXPECT_EQ(view.Count(), 3u);
	EXPECT_EQ(view.Stride(), 8u);
}

TEST(StridedMemoryView, VirtualView_RepeatsOneElement)
{
	CExpectReports noReports;
	u32 element = 7;
	const TStridedMemoryView<u32> view(&element, 1000, 0);
	EXPECT_TRUE(view.Virtual());
	EXPECT_FALSE(view.Contiguous());
	EXPECT_EQ(view.CoveredBytes(), 0u);
	EXPECT_EQ(view.DataEnd(), view.Data());
	for (u32 i = 0; i < 1000; ++i)
		ASSERT_EQ(&view[i], &element);
	EXPECT_EQ(view.Slice(999, 1).Data(), &element);
	EXPECT_TRUE(view.Slice(999, 1).Virtual());
}

TEST(StridedMemoryView, Access_StepsByTheStrideInBytes)
{
	CExpectReports noReports;
	for (const u32 stride : {4u, 8u, 12u, 20u, 36u})
	{
		SCOPED_TRACE(stride);
		// The last element ends where memory ends: a whole stride does not fit behind it.
		const CGuardedMemory memory(9 * stride + 4);
		const TStridedMemoryView<u32> view(memory.As<u32>(), 10, stride);
		for (u32 i = 0; i < 10; ++i)
		{
			ASSERT_EQ(Address(&view[i]), memory.Data() + i * stride);
			view[i] = i;
		}
		u32 position = 0;
		for (auto it = view.Begin(); it.Position() != it.Count(); ++it)
			EXPECT_EQ(*it, position++);
		EXPECT_EQ(position, 10u);
	}
}

// Strides this large have no memory behind them; products that come round to small offsets show their width.
TEST(StridedMemoryView, ByteOffsets_WrapAt32Bits)
{
	CExpectReports noReports;
	u32 elements[4] = {};
	const TStridedMemoryView<u32> quarters(elements, 8, 0x40000000u);
	EXPECT_EQ(&quarters[4], elements);
	EXPECT_EQ(quarters.CoveredBytes(), 0u);
	EXPECT_EQ(quarters.DataEnd(), elements);
	const TStridedMemoryView<u32> beyond(elements, 8, 0x40000001u);
	EXPECT_EQ(&beyond[4], elements + 1);
	EXPECT_EQ(beyond.Slice(4, 2).Data(), elements + 1);
	EXPECT_EQ(beyond.CoveredBytes(), 8u);
	EXPECT_EQ(beyond.DataEnd(), elements + 2);
}

// An address alone: nothing lies there.
TEST(StridedMemoryView, ElementsBehindHalfTheOffsets_LieBehindTheFirst)
{
	float element = 0;
	const TStridedMemoryView<float> view(&element, 2, 0x80000000u);
	EXPECT_EQ(reinterpret_cast<ureg>(view.AddressOf(1)) - reinterpret_cast<ureg>(&element), ureg(0x80000000u));
}

TEST(StridedMemoryView, Slice_ReportsWhatLeavesTheView)
{
	u32 elements[27];
	const TStridedMemoryView<u32> view(elements, 8, 12);
	ExpectSlices(view, kStridedSliceText, 3);
	EXPECT_EQ(view.Slice(3, 5).Stride(), 12u);
}

// Slices are built like any view: the stride is looked at again.
TEST(StridedMemoryView, SliceOfABadStride_ReportsRangeThenStride)
{
	u32 element = 0;
	CExpectReports reports{kStrideText, kStridedSliceText, kStrideText};
	const TStridedMemoryView<u32> view(&element, 2, 3);
	EXPECT_EQ(view.Slice(0, 3).Stride(), 3u);
}

TEST(StridedMemoryView, AccessFromTheCountOn_ReportsAndReachesTheElement)
{
	CExpectReports reports{"index < m_Storage.m_Count", "index < m_Storage.m_Count"};
	u32 elements[8];
	FillWithOwnIndex(elements);
	const TStridedMemoryView<u32> view(elements, 2, 8);
	EXPECT_EQ(view[1], 2u);
	EXPECT_EQ(view[2], 4u);
	EXPECT_EQ(view[3], 6u);
}

TEST(StridedMemoryView, ViewOfViews_ReachesTheElementsOfEachPage)
{
	CExpectReports noReports;
	u32 elements[4] = {10, 11, 12, 13};
	const TStridedMemoryView<const u32> pages[2] = {
		{elements,     2, 4},
        {elements + 2, 2, 0}
    };
	const TStridedMemoryView<const TStridedMemoryView<const u32, -1>, -1> view(pages, 2, sizeof(pages[0]));
	EXPECT_EQ(view[0][1], 11u);
	EXPECT_EQ(view[1][1], 12u);
}

TEST(ContiguousIterator, StepsAndCompares_LikeAPointer)
{
	u32 elements[4];
	FillWithOwnIndex(elements);
	const TMemoryView<u32> view(elements, 4);
	const TContiguousBaseIterator<u32> begin = view.Begin();
	EXPECT_EQ(sizeof(begin), sizeof(void *));
	EXPECT_EQ(&*begin, elements);
	EXPECT_EQ(*(begin + 3), 3u);
	EXPECT_EQ(begin + 4, view.End());
	EXPECT_NE(begin + 3, view.End());
	EXPECT_LT(begin, begin + 1);
	EXPECT_LE(begin, begin);
	EXPECT_GT(view.End(), begin);
	EXPECT_GE(view.End(), begin + 4);
	EXPECT_EQ(view.End() + -4, begin);
	u32 sum = 0;
	for (TContiguousBaseIterator<u32> it = begin; it != view.End(); ++it)
		sum += *it;
	EXPECT_EQ(sum, 6u);
}

// The position decides, not the address: the elements beyond the count are there.
TEST(StridedIterator, DereferencedAtItsEnd_ReportsAndReachesTheElement)
{
	CExpectReports reports{"_CanAccess(0)", "_CanAccess(0)"};
	u32 elements[8];
	FillWithOwnIndex(elements);
	auto it = TStridedMemoryView<u32>(elements, 2, 8).Begin();
	static_assert(std::is_same_v<decltype(it), TStridedBaseIterator<u32>>);
	EXPECT_EQ(sizeof(it), 24u);
	EXPECT_EQ(*it, 0u);
	EXPECT_EQ(*++it, 2u);
	EXPECT_EQ(*++it, 4u);
	EXPECT_EQ(*++it, 6u);
}

TEST(StridedIterator, OfAnEmptyView_IsAtItsEnd)
{
	CExpectReports reports{"_CanAccess(0)"};
	u32 element = 7;
	EXPECT_EQ(*(TStridedMemoryView<u32>(&element, 0, 4).Begin()), 7u);
}

// A virtual view has an end too, although its address never changes.
TEST(StridedIterator, OfAVirtualView_StaysOnOneElement)
{
	CExpectReports reports{"_CanAccess(0)"};
	u32 element = 7;
	const auto first = TStridedMemoryView<u32>(&element, 3, 0).Begin();
	auto it = first;
	for (u32 i = 0; i < 3; ++i, ++it)
	{
		EXPECT_EQ(&*it, &element);
		EXPECT_EQ(it == first, i == 0) << "positions decide, not addresses";
		EXPECT_EQ(it != first, i != 0);
	}
	EXPECT_EQ(&*it, &element); // the fourth of three
}

TEST(Vector, DefaultConstructed_IsZeroOnEveryAxis)
{
	for (u32 axis = 0; axis < 3; ++axis)
		EXPECT_EQ(CFloat3()[axis], 0.0f) << axis;
	for (u32 axis = 0; axis < 4; ++axis)
		EXPECT_EQ(CFloat4()[axis], 0.0f) << axis;
}

TEST(Vector, Axes_AreReadAndWrittenByNameAndNumber)
{
	CFloat4 vector;
	vector.x() = 1;
	vector.y() = 2;
	vector.z() = 3;
	vector.w() = 4;
	const CFloat4 copy = vector;
	for (u32 axis = 0; axis < 4; ++axis)
	{
		EXPECT_EQ(copy[axis], float(axis + 1));
		EXPECT_EQ(copy.Data()[axis], float(axis + 1));
	}
	EXPECT_EQ(copy.x(), 1.0f);
	EXPECT_EQ(copy.y(), 2.0f);
	EXPECT_EQ(copy.z(), 3.0f);
	EXPECT_EQ(copy.w(), 4.0f);
	vector[1] = 5;
	EXPECT_EQ(vector.y(), 5.0f);
	EXPECT_EQ(CFloat3(6, 7, 8).z(), 8.0f);
}
