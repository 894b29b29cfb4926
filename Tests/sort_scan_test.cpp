// What a check reads of every particle, 16 bytes at a time, against loops that look at one thing after the other. Bytes
// and numbers end where memory ends.

#include "ge_mesh_triangle_sorter.h"

#include "pv_sort_scan.h"

#include "guarded_memory.h"
#include "random_scene.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

// Up to more than a byte lane counts, with every byte a 0, none, and some.
TEST(SortScan, NonZeroBytes_AreCounted)
{
	Model::CRandom random(1);
	std::vector<u32> counts;
	for (u32 count = 0; count <= 70; ++count)
		counts.push_back(count);
	counts.insert(counts.end(), {4079, 4080, 4081, 4095, 4096, 4097, 9000});
	for (const u32 count : counts)
	{
		for (const u32 zeroPercent : {0u, 30u, 100u})
		{
			const CGuardedMemory memory(count, (16 - count % 16) % 16);
			for (u32 i = 0; i < count; ++i)
				memory.Data()[i] = random.Below(100) < zeroPercent ? u8(0) : u8(random.Between(1, 255));
			const auto expected = count - std::count(memory.Data(), memory.Data() + count, u8(0));
			EXPECT_EQ(CountNonZero(memory.Data(), count), expected) << count << ", " << zeroPercent;
		}
	}
}

static bool IsIn(const SNumberRange &range, u32 number)
{
	return range.m_First <= number && number <= range.m_Last;
}

const SNumberRange kRanges[] = {
	{          },
	{  0,          0},
	{ 0,        ~0u},
	{ 5,          5},
	{ 3,          9},
	{ 0x7FFFFFFF, 0x80000000},
	{ 0x80000000, 0x80000000},
	{ 0xFFFFFFF0,        ~0u},
	{ ~0u,        ~0u},
	{ 9,          3},
};

TEST(SortScan, Ranges_ContainWhatLiesBetweenTheirEnds)
{
	for (const SNumberRange &range : kRanges)
	{
		EXPECT_EQ(range.Empty(), range.m_First > range.m_Last);
		for (const u32 number : {0u, 2u, 3u, 5u, 9u, 10u, 0x7FFFFFFEu, 0x7FFFFFFFu, 0x80000000u, 0x80000001u,
				 0xFFFFFFEFu, 0xFFFFFFF0u, ~0u})
			EXPECT_EQ(range.Contains(number), IsIn(range, number)) << range.m_First << ", " << range.m_Last;
		for (const SNumberRange &other : kRanges)
		{
			const SNumberRange both = range.With(other);
			const bool empty = range.Empty() && other.Empty();
			ASSERT_EQ(both.Empty(), empty);
			if (empty)
				continue;
			const u32 first = std::min(range.Empty() ? ~0u : range.m_First, other.Empty() ? ~0u : other.m_First);
			const u32 last = std::max(range.Empty() ? 0 : range.m_Last, other.Empty() ? 0 : other.m_Last);
			EXPECT_EQ(both.m_First, first);
			EXPECT_EQ(both.m_Last, last);
		}
	}
}

// One number in the range at every place of lists of every length up to three blocks, from every beginning.
TEST(SortScan, FirstNumberInARange_IsFoundWhereverItLies)
{
	for (const SNumberRange &range : kRanges)
	{
		if (range.Empty() || IsIn(range, 1))
			continue;
		for (u32 count = 0; count <= 50; ++count)
		{
			const CGuardedMemory memory(count * sizeof(u32), (16 - count * 4 % 16) % 16);
			for (u32 place = 0; place <= count; ++place)
			{
				for (u32 i = 0; i < count; ++i)
					memory.As<u32>()[i] = i == place ? (place % 2 != 0 ? range.m_First : range.m_Last) : 1;
				for (const u32 begin : {0u, 1u, place, count})
				{
					if (begin > count)
						continue;
					const u64 expected = begin <= place ? place : count;
					ASSERT_EQ(FindInRange(memory.As<u32>(), begin, count, range), expected)
						<< place << " of " << count << " from " << begin << " on, " << range.m_First;
				}
			}
		}
	}
}

TEST(SortScan, NumbersAtAnyAddress_AreCompared)
{
	for (u32 address = 0; address < 16; ++address)
	{
		const CGuardedMemory memory(40 * sizeof(u32), address);
		for (u32 i = 0; i < 40; ++i)
			std::memcpy(memory.Data() + i * sizeof(u32), &i, sizeof(i));
		EXPECT_EQ(FindInRange(memory.As<u32>(), 0, 40, {27, 90}), 27u);
		EXPECT_EQ(FindInRange(memory.As<u32>(), 0, 40, {40, 90}), 40u);
		EXPECT_EQ(FindInRange(memory.As<u32>(), 0, 40, {}), 40u);
	}
}
