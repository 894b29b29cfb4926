// The first question for the registers, while the host limits them: it is the first in a fresh process alone, so this
// comes before the other tests of threads, and in no program whose tests have to keep to the registers of a command line.

#include "kr_cpu.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

using namespace Vexmoor;

TEST(Threads, FirstLaneCount_YieldsToTheHostsLimit)
{
	std::atomic<u32> ready = 0;
	const auto meet = [&ready]
	{
		for (++ready; ready != 2;)
			std::this_thread::yield();
	};
	std::thread asker(
		[&]
		{
			meet();
			const u32 laneCount = Cpu::LaneCount();
			EXPECT_TRUE(laneCount == 4 || laneCount == 8 || laneCount == 16) << laneCount;
		});
	meet();
	Cpu::SetMaxLaneCount(4);
	asker.join();
	EXPECT_EQ(Cpu::LaneCount(), 4u);
	Cpu::SetMaxLaneCount(16);
}
