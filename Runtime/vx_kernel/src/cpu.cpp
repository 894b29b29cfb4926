// Finds out once what the processor has.

#include "kr_cpu.h"

#include <algorithm>

namespace Vexmoor
{
namespace Cpu
{
	CFirstAnswer s_InstructionSet;

	EInstructionSet InstructionSetOfProcessor()
	{
#if VX_X86
		if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
			__builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl"))
			return InstructionSet_Avx512;
		if (__builtin_cpu_supports("avx2"))
			return InstructionSet_Avx2;
#endif
		return InstructionSet_Baseline;
	}

	void SetMaxInstructionSet(EInstructionSet instructionSet)
	{
		s_InstructionSet.Set(std::min(instructionSet, InstructionSetOfProcessor()));
	}

	u32 LaneCount()
	{
		return 4u << InstructionSet();
	}

	void SetMaxLaneCount(u32 laneCount)
	{
		SetMaxInstructionSet(laneCount >= 16  ? InstructionSet_Avx512
							 : laneCount >= 8 ? InstructionSet_Avx2
											  : InstructionSet_Baseline);
	}
} // namespace Cpu
} // namespace Vexmoor
