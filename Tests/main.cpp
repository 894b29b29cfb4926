// Runs the tests; with --no-avx2 on the 128-bit paths that processors without AVX2 take.

#include "kr_cpu.h"

#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>

int main(int argc, char **argv)
{
	testing::InitGoogleTest(&argc, argv);
	for (int i = 1; i < argc; ++i)
	{
		if (std::strcmp(argv[i], "--no-avx2") != 0)
		{
			std::fprintf(stderr, "vexmoor_tests: There is no option '%s'.\n", argv[i]);
			return 2;
		}
		Vexmoor::Cpu::AllowAvx2(false);
	}
	return RUN_ALL_TESTS();
}
