// The wide paths and the 128-bit ones, by themselves: each against plain loops, and the host's word on which is taken.

#include "kr_cpu.h"
#include "kr_sort.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <vector>

using namespace Vexmoor;

namespace
{
class WideLanesTest : public testing::TestWithParam<bool>
{
protected:
	WideLanesTest() { Cpu::AllowAvx2(m_Wide); }
	~WideLanesTest() override { Cpu::AllowAvx2(m_UsedBefore); }

	void SetUp() override
	{
		if (m_Wide && !Cpu::UsesAvx2())
			GTEST_SKIP() << "this processor has no AVX2";
	}

	std::mt19937 m_Random{20261};

private:
	const bool m_UsedBefore = Cpu::UsesAvx2();
	const bool m_Wide = GetParam();
};

TEST_P(WideLanesTest, SumCountersGivesExclusivePrefixSums)
{
	for (u32 count = 8; count <= 2048; count += 8 * (1 + count / 64))
	{
		std::vector<u32> counters(count + 2);
		for (u32 &counter : counters)
			counter = u32(m_Random()) >> (m_Random() % 32); // sums wrap around
		std::vector<u32> expected = counters;
		u32 sum = 0;
		for (u32 i = 1; i <= count; ++i)
		{
			expected[i] = sum;
			sum += counters[i];
		}
		SortLanes::SumCounters(counters.data() + 1, count); // at any address, and no counter beside them
		ASSERT_EQ(counters, expected) << count << " counters";
	}
}

TEST_P(WideLanesTest, CountLowerKeysRanksEveryCountAndTies)
{
	alignas(16) s32 keys[112];
	alignas(16) u32 ranks[112];
	for (u32 count = 1; count <= 109; ++count)
	{
		for (const u32 range : {3u, 100u, 0xFFFFFFFFu})
		{
			for (s32 &key : keys)
				key = s32(u32(m_Random()) % range - range / 2);
			SortLanes::CountLowerKeys(keys, count, ranks);
			for (u32 i = 0; i < count; ++i)
			{
				const auto lower = std::count_if(keys, keys + count, [&](s32 key) { return key < keys[i]; });
				ASSERT_EQ(ranks[i], u32(lower)) << "key " << i << " of " << count;
			}
		}
	}
}

INSTANTIATE_TEST_SUITE_P(Lanes,
	WideLanesTest,
	testing::Bool(),
	[](const testing::TestParamInfo<bool> &lanes) { return lanes.param ? "Avx2" : "Sse2"; });

TEST(Cpu, AHostThatDoesWithoutAvx2IsObeyed)
{
	const bool usedBefore = Cpu::UsesAvx2();
	Cpu::AllowAvx2(false);
	EXPECT_FALSE(Cpu::UsesAvx2());
	Cpu::AllowAvx2(true);
	const bool processorHasIt = __builtin_cpu_supports("avx2") != 0;
	EXPECT_EQ(Cpu::UsesAvx2(), processorHasIt);
	Cpu::AllowAvx2(usedBefore);
}
} // namespace
