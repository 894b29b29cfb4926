#pragma once

// The instruction set that kernels use: the baseline, or what the processor has beyond it. All give the same bits.

#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_first_answer.h"

namespace Vexmoor
{
namespace Cpu
{
	/// Instruction sets with functions of their own, from narrow registers to wide ones. Each has all that those before
	/// it have.
	enum EInstructionSet : u32
	{
		InstructionSet_Baseline =
			0,                    ///< What every processor of the kind has: SSE2, NEON, or WebAssembly's 128-bit SIMD.
		InstructionSet_Avx2 = 1,  ///< x86 with AVX2.
		InstructionSet_Avx512 = 2 ///< x86 with AVX-512's F, BW, DQ and VL.
	};

	/// The instruction set in use, if it is known.
	VX_API extern CFirstAnswer s_InstructionSet;
	/// The widest instruction set that the processor and the operating system have.
	VX_API EInstructionSet InstructionSetOfProcessor();

	/// The instruction set in use: the widest that the processor has and the host allows. The first call finds it out;
	/// later calls are one load. Any thread.
	VX_INLINE EInstructionSet InstructionSet()
	{
		return EInstructionSet(s_InstructionSet.Get(InstructionSetOfProcessor));
	}

	/// Limits the instruction set: for tests, for measurements, and for a host whose other work would be slowed down by
	/// wide registers. Without a call there is no limit. Call it at start-up. Any thread may call it, also while
	/// another thread asks for the instruction set for the first time. Sorts that run meanwhile may still use the set
	/// that they have found.
	VX_API void SetMaxInstructionSet(EInstructionSet instructionSet);

	///@{
	/// The same in lanes of 32 bits, 4, 8 or 16, for programs written for version 1.0. A limit that is none of these
	/// means the next lower one, and below 4 it means 4.
	VX_API u32 LaneCount();
	VX_API void SetMaxLaneCount(u32 laneCount);
	///@}
} // namespace Cpu
} // namespace Vexmoor
