// Runs the tests; with --baseline or --avx2 on the paths that processors with no wider registers take.

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
		const bool isBaseline = std::strcmp(argv[i], "--baseline") == 0;
		if (!isBaseline && std::strcmp(argv[i], "--avx2") != 0)
		{
			std::fprintf(stderr, "vexmoor_tests: There is no option '%s'.\n", argv[i]);
			return 2;
		}
		Vexmoor::Cpu::SetMaxInstructionSet(
			isBaseline ? Vexmoor::Cpu::InstructionSet_Baseline : Vexmoor::Cpu::InstructionSet_Avx2);
	}
	testing::UnitTest::GetInstance()->listeners().Append(new CNoReportUnasked);
	return RUN_ALL_TESTS();
}
