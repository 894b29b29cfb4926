#pragma once

// What the processor has beyond the baseline. Paths that use it give the same bits as those that do not.

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

	/// The instruction set in use: the widest that there is and the host allows. Found out at the first call, and one
	/// load from then on. Any thread.
	VX_INLINE EInstructionSet InstructionSet()
	{
		return EInstructionSet(s_InstructionSet.Get(InstructionSetOfProcessor));
	}

	/// Called at start-up, keeps to an instruction set and those before it: for tests, for measurements, for a host
	/// whose other work on a core wide registers would slow down. The default is the last one. Any thread, and also
	/// while another thread asks for the first time; sorts that run meanwhile may still use the set that they have
	/// found.
	VX_API void SetMaxInstructionSet(EInstructionSet instructionSet);

	///@{
	/// What version 1.0 had in their place: the set's lanes of 32 bits, 4, 8 or 16. A limit that is none of these means
	/// the next lower one, and below 4 it means 4.
	VX_API u32 LaneCount();
	VX_API void SetMaxLaneCount(u32 laneCount);
	///@}
} // namespace Cpu
} // namespace Vexmoor
