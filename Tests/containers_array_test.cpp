// The array that keeps a pattern, and the plain records and constants that travel beside it.

#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"
#include "vx_maths_vector.h"

#include "kr_containers_array.h"

#include "diagnostics.h"
#include "heap.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <numeric>
#include <type_traits>

using namespace Vexmoor;
using namespace Support;

namespace
{
typedef TArray<u32, TArrayStaticController<0, 8, 8, 0, 2>> CPattern;

std::vector<u32> Numbers(u32 count, u32 first = 0)
{
	std::vector<u32> numbers(count);
	std::iota(numbers.begin(), numbers.end(), first);
	return numbers;
}

TMemoryView<const u32> View(const std::vector<u32> &numbers)
{
	return {numbers.data(), u32(numbers.size())};
}

std::vector<u32> Contents(const CPattern &array)
{
	const TMemoryView<const u32> view = array;
	return std::vector<u32>(view.Data(), view.Data() + view.Count());
}

template<typename _Type>
u32 FloatBits(const _Type &value)
{
	static_assert(sizeof(value) == sizeof(u32));
	u32 bits;
	std::memcpy(&bits, &value, sizeof(bits));
	return bits;
}
} // namespace

TEST(Array, DefaultConstructed_IsEmpty)
{
	const CPattern array;
	EXPECT_TRUE(array.Empty());
	EXPECT_EQ(array.Count(), 0u);
	EXPECT_EQ(array.MaxCount(), 0u);
	const TMemoryView<const u32> view = array;
	EXPECT_EQ(view.Data(), nullptr);
	EXPECT_EQ(view.Count(), 0u);
}

TEST(Array, Controller_IsThePatternsUnlessNamed)
{
	constexpr bool isThePatterns = std::is_same_v<TArray<u32>, CPattern>;
	EXPECT_TRUE(isThePatterns);
}

// Hosts that look into a sorter with a debugger rely on the order.
TEST(Array, Members_ArePointerCountCapacity)
{
	CPattern array;
	array = View(Numbers(5));
	struct SLayout
	{
		const u32 *m_Data;
		u32 m_Count;
		u32 m_MaxCount;
	} layout;
	static_assert(sizeof(array) == sizeof(layout));
	std::memcpy(&layout, &array, sizeof(layout));
	EXPECT_EQ(layout.m_Data, array.Data());
	EXPECT_EQ(layout.m_Count, 5u);
	EXPECT_EQ(layout.m_MaxCount, array.MaxCount());
	EXPECT_GE(layout.m_MaxCount, 5u);
}

// Around the initial capacity of 8, and far beyond it.
TEST(Array, Assignment_CopiesTheElements)
{
	for (const u32 count : {1u, 6u, 8u, 9u, 12u, 1000u})
	{
		SCOPED_TRACE(count);
		std::vector<u32> source = Numbers(count);
		CPattern fromMutable, fromConst;
		fromMutable = TMemoryView<u32>(source.data(), count);
		fromConst = TMemoryView<const u32>(source.data(), count);
		std::fill(source.begin(), source.end(), 0xCDCDCDCDu);
		EXPECT_EQ(Contents(fromMutable), Numbers(count));
		EXPECT_EQ(Contents(fromConst), Numbers(count));
		EXPECT_EQ(fromConst.Count(), count);
		EXPECT_FALSE(fromConst.Empty());
		EXPECT_GE(fromConst.MaxCount(), count);
	}
}

TEST(Array, AssignmentOfNothing_Empties)
{
	CPattern array;
	array = View(Numbers(6));
	array = TMemoryView<const u32>();
	EXPECT_TRUE(array.Empty());
	EXPECT_EQ(array.Count(), 0u);
}

// A sorter that is set up again every frame takes memory for its first pattern only.
TEST(Array, ContentsThatFit_ReuseTheBlock)
{
	CPattern array;
	array = View(Numbers(12));
	const u32 *const data = array.Data();
	const u32 capacity = array.MaxCount();
	for (const u32 count : {6u, 0u, capacity, 3u})
	{
		array = View(Numbers(count, 100));
		EXPECT_EQ(Contents(array), Numbers(count, 100));
		EXPECT_EQ(array.Data(), data);
		EXPECT_EQ(array.MaxCount(), capacity);
	}
}

TEST(Array, ContentsThatDoNotFit_ReplaceTheBlock)
{
	CPattern array;
	for (const u32 count : {6u, 9u, 500u, 100'000u})
	{
		array = View(Numbers(count, 100));
		EXPECT_EQ(Contents(array), Numbers(count, 100));
		EXPECT_GE(array.MaxCount(), count);
	}
}

TEST(Array, AViewOfItself_IsAValidSource)
{
	CPattern array;
	array = View(Numbers(12));
	ASSERT_EQ(array.Count(), 12u);
	array = TMemoryView<const u32>(array).Slice(4, 8); // source and destination overlap
	EXPECT_EQ(Contents(array), Numbers(8, 4));
	array = TMemoryView<const u32>(array);
	EXPECT_EQ(Contents(array), Numbers(8, 4));
	CPattern &same = array;
	array = same;
	EXPECT_EQ(Contents(array), Numbers(8, 4));
}

// Rounded up to steps of eight. The last counts have no step above them that 32 bits could say.
TEST(Array, Capacity_HoldsTheCountAndDoesNotWrap)
{
	typedef TArrayStaticController<0, 8, 8, 0, 2> CController;
	EXPECT_EQ(CController::Capacity(0), 8u);
	EXPECT_EQ(CController::Capacity(8), 8u);
	EXPECT_EQ(CController::Capacity(9), 16u);
	EXPECT_EQ(CController::Capacity(16), 16u);
	EXPECT_EQ(CController::Capacity(0xFFFFFFF0u), 0xFFFFFFF0u);
	EXPECT_EQ(CController::Capacity(0xFFFFFFF1u), 0xFFFFFFF8u);
	EXPECT_EQ(CController::Capacity(0xFFFFFFF8u), 0xFFFFFFF8u);
	for (u32 count = 0xFFFFFFFFu; count != 0xFFFFFFF8u; --count)
		EXPECT_EQ(CController::Capacity(count), 0xFFFFFFFFu) << count;
}

// Nothing is thrown, nothing is half assigned, and it is said.
TEST(Array, FailedAllocation_ReportsAndLeavesTheArrayEmpty)
{
	const std::vector<u32> small = Numbers(6), large = Numbers(1000);
	CPattern array;
	array = View(small);
	const CExpectReports reports{"data != null"};
	{
		const CFailingAllocation failing(0);
		array = View(large);
	}
#if VX_ASSERTIONS
	ASSERT_EQ(reports.Reports().size(), 1u);
	EXPECT_EQ(reports.Reports()[0].m_Message, "There is no memory for an array of 1000 elements");
#endif
	EXPECT_TRUE(array.Empty());
	EXPECT_EQ(array.Count(), 0u);
	EXPECT_EQ(array.MaxCount(), 0u);
	EXPECT_EQ(array.Data(), nullptr);
	array = View(small);
	EXPECT_EQ(Contents(array), small);
}

// A host may plug its allocator in after the first arrays are filled, and out before the last are emptied.
TEST(Array, Blocks_DoNotComeFromTheAllocatorHook)
{
	CPattern before;
	before = View(Numbers(12));
	const CAllocationRecorder recorder;
	before = View(Numbers(500));
	const CPattern copy = before;
	EXPECT_EQ(Contents(copy), Numbers(500));
	EXPECT_TRUE(recorder.Allocations().empty());
}

TEST(Array, Copies_OwnTheirElements)
{
	CPattern array;
	array = View(Numbers(12));
	const CPattern constructed(array);
	CPattern assigned;
	assigned = View(Numbers(3));
	assigned = array;
	array[0] = 99;
	EXPECT_NE(constructed.Data(), array.Data());
	EXPECT_EQ(Contents(constructed), Numbers(12));
	EXPECT_EQ(Contents(assigned), Numbers(12));
	const CPattern nothing;
	EXPECT_EQ(CPattern(nothing).Count(), 0u);
}

TEST(Array, Moves_TakeTheBlock)
{
	CPattern array;
	array = View(Numbers(12));
	const u32 *const data = array.Data();
	CPattern constructed(std::move(array));
	EXPECT_EQ(constructed.Data(), data);
	CPattern assigned;
	assigned = View(Numbers(3));
	assigned = std::move(constructed);
	EXPECT_EQ(assigned.Data(), data);
	EXPECT_EQ(Contents(assigned), Numbers(12));
}

TEST(Array, AccessFromTheCountOn_Reports)
{
	CPattern array;
	array = View(Numbers(3));
	const CPattern &unchanging = array;
	{
		const CExpectReports noReports;
		EXPECT_EQ(array[2], 2u);
		EXPECT_EQ(unchanging[2], 2u);
	}
	const CExpectReports reports{"index < m_Count", "index < m_Count"};
	static_cast<void>(array[3]); // inside the capacity
	static_cast<void>(unchanging[3]);
}

TEST(Array, Patterns_AreViewedPerPage)
{
	CPattern patterns[2];
	patterns[1] = View(Numbers(6));
	const TMemoryView<const CPattern> view = TMemoryView<CPattern>(patterns, 2);
	EXPECT_TRUE(view[0].Empty());
	EXPECT_EQ(view[1].Count(), 6u);
}

TEST(CoreRecords, InvalidGuid_IsAllOnes)
{
	EXPECT_EQ(TGuid<u32>::INVALID.m_Guid, 0xFFFFFFFFu);
	EXPECT_EQ(CGuid::INVALID.m_Guid, 0xFFFFFFFFu);
}

// Read back through memory: under -ffast-math, infinities are not for comparing.
TEST(CoreRecords, PositiveInfinity_HasItsBits)
{
	static const volatile float s_Infinity = TNumericTraits<float>::kPositiveInfinity;
	u32 bits;
	std::memcpy(&bits, const_cast<const float *>(&s_Infinity), sizeof(bits));
	EXPECT_EQ(bits, 0x7F800000u);
}

TEST(CoreRecords, Integers_HaveTheirWidths)
{
	EXPECT_EQ(sizeof(u8), 1u);
	EXPECT_EQ(sizeof(u16), 2u);
	EXPECT_EQ(sizeof(u32), 4u);
	EXPECT_EQ(sizeof(u64), 8u);
	EXPECT_EQ(sizeof(s32), 4u);
	EXPECT_EQ(sizeof(s64), 8u);
	EXPECT_EQ(sizeof(ureg), sizeof(void *));
	EXPECT_EQ(sizeof(sreg), sizeof(void *));
	static_assert(std::is_unsigned_v<ureg> && std::is_signed_v<sreg>);
}

// The lane code moves records in pairs and takes the first four bytes of each as its key.
TEST(CoreRecords, SortRecord_IsKeyThenIndex)
{
	EXPECT_EQ(sizeof(SIndexAndDepth), 8u);
	EXPECT_EQ(offsetof(SIndexAndDepth, m_Depth), 0u);
	EXPECT_EQ(offsetof(SIndexAndDepth, m_Index), 4u);
}

TEST(CoreRecords, Primitive_IsItsIndices)
{
	EXPECT_EQ(sizeof(SPrimitive<u32, 3>), 12u);
	EXPECT_EQ(sizeof(SPrimitive<u16, 3>), 6u);
	const SPrimitive<u16, 3> primitive = {
		{1, 2, 3}
    };
	EXPECT_EQ(primitive.m_IDs[2], 3u);
}

TEST(CoreRecords, Vectors_AreTightlyPackedInAxisOrder)
{
	EXPECT_EQ(sizeof(CFloat3), 12u);
	EXPECT_EQ(sizeof(CFloat4), 16u);
	static_assert(std::is_same_v<CFloat3, TVector<float, 3>> && std::is_same_v<CFloat4, TVector<float, 4>>);

	const CFloat3 v3(1.0f, 2.0f, 3.0f);
	const CFloat4 v4(1.0f, 2.0f, 3.0f, 4.0f);
	const float axes[4] = {1.0f, 2.0f, 3.0f, 4.0f};
	EXPECT_EQ(std::memcmp(&v3, axes, 12), 0);
	EXPECT_EQ(std::memcmp(&v4, axes, 16), 0);
	EXPECT_EQ(FloatBits(v3.x()), FloatBits(axes[0]));
	EXPECT_EQ(FloatBits(v3.y()), FloatBits(axes[1]));
	EXPECT_EQ(FloatBits(v3.z()), FloatBits(axes[2]));
	EXPECT_EQ(FloatBits(v4.w()), FloatBits(axes[3]));
	for (u32 axis = 0; axis < 4; ++axis)
		EXPECT_EQ(FloatBits(v4[axis]), FloatBits(axes[axis]));

	CFloat4 written;
	written.x() = axes[0];
	written.y() = axes[1];
	written.z() = axes[2];
	written.w() = axes[3];
	EXPECT_EQ(std::memcmp(&written, axes, 16), 0);
	written[3] = axes[0];
	EXPECT_EQ(FloatBits(written.w()), FloatBits(axes[0]));
}
