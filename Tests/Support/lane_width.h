#pragma once

// Tests that run once with each instruction set, whatever the process was told at its start.

#include "vx_defs.h"

#include "kr_cpu.h"

#include <gtest/gtest.h>
#include <string>

namespace Support
{
/// The parameter is the instruction set. Skips where the processor has not got it.
class LaneWidthTest : public testing::TestWithParam<Vexmoor::Cpu::EInstructionSet>
{
protected:
	LaneWidthTest() { Vexmoor::Cpu::SetMaxInstructionSet(GetParam()); }
	~LaneWidthTest() override { Vexmoor::Cpu::SetMaxInstructionSet(m_Before); }

	void SetUp() override
	{
		if (Vexmoor::Cpu::InstructionSet() != GetParam())
			GTEST_SKIP() << "this processor has narrower registers";
	}

private:
	const Vexmoor::Cpu::EInstructionSet m_Before = Vexmoor::Cpu::InstructionSet();
};

inline const auto kLaneWidths = testing::Values(
	Vexmoor::Cpu::InstructionSet_Baseline, Vexmoor::Cpu::InstructionSet_Avx2, Vexmoor::Cpu::InstructionSet_Avx512);

inline std::string LaneWidthName(const testing::TestParamInfo<Vexmoor::Cpu::EInstructionSet> &set)
{
	static const char *const kNames[] = {"Baseline", "Avx2", "Avx512"};
	return kNames[set.param];
}
} // namespace Support
