// Threads that ask for the instruction set for the first time while the host limits it. Only a fresh process has a
// first time, so this test comes before the other tests of threads, and it is not in a program whose command line
// chooses the instruction set.

#include "kr_cpu.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

using namespace Vexmoor;

TEST(Threads, FirstInstructionSet_YieldsToTheHostsLimit)
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
			const u32 set = Cpu::InstructionSet();
			EXPECT_LE(set, Cpu::InstructionSet_Avx512);
		});
	meet();
	Cpu::SetMaxInstructionSet(Cpu::InstructionSet_Baseline);
	asker.join();
	EXPECT_EQ(Cpu::InstructionSet(), Cpu::InstructionSet_Baseline);
	Cpu::SetMaxInstructionSet(Cpu::InstructionSet_Avx512);
}
