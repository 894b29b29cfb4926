// Runs the tests; with --lanes=4 or --lanes=8 on the paths that processors with narrower registers take.

#include "kr_cpu.h"

#include "diagnostics.h"
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>

namespace
{
class CNoReportUnasked : public testing::EmptyTestEventListener
{
	void OnTestStart(const testing::TestInfo &) override { Support::FailAtReports(); }
};
} // namespace

int main(int argc, char **argv)
{
	testing::InitGoogleTest(&argc, argv);
	for (int i = 1; i < argc; ++i)
	{
		const bool isFour = std::strcmp(argv[i], "--lanes=4") == 0;
		if (!isFour && std::strcmp(argv[i], "--lanes=8") != 0)
		{
			std::fprintf(stderr, "vexmoor_tests: There is no option '%s'.\n", argv[i]);
			return 2;
		}
		Vexmoor::Cpu::SetMaxLaneCount(isFour ? 4 : 8);
	}
	testing::UnitTest::GetInstance()->listeners().Append(new CNoReportUnasked);
	return RUN_ALL_TESTS();
}
