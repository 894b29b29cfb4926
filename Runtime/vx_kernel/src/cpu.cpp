// Finds out once what the processor has.

#include "kr_cpu.h"

#include <algorithm>

namespace Vexmoor
{
namespace Cpu
{
	CFirstAnswer s_InstructionSet;

#if VX_X86
	// Leaves of CPUID, and what their registers say.
	constexpr u32 kLeafOfBasics = 1, kLeafOfExtensions = 7;
	constexpr u32 kPopcntInEcx = 1u << 23, kXcr0InEcx = 1u << 27, kAvxInEcx = 1u << 28;
	constexpr u32 kAvx2InEbx = 1u << 5;
	constexpr u32 kAvx512InEbx = 1u << 16 | 1u << 17 | 1u << 30 | 1u << 31; // F, DQ, BW, VL

	// Registers that the operating system saves, in XCR0.
	constexpr u32 kYmmSaved = 1u << 1 | 1u << 2;                       // the halves of 256-bit registers
	constexpr u32 kZmmSaved = kYmmSaved | 1u << 5 | 1u << 6 | 1u << 7; // masks, upper halves, registers 16 to 31

	static bool HasAll(int bits, u32 wanted)
	{
		return (u32(bits) & wanted) == wanted;
	}

	EInstructionSet InstructionSetOfProcessor()
	{
		int eaxToEdx[4];
		VX_CPUID(eaxToEdx, 0, 0);
		if (u32(eaxToEdx[0]) < kLeafOfExtensions)
			return InstructionSet_Baseline;
		VX_CPUID(eaxToEdx, kLeafOfBasics, 0);
		if (!HasAll(eaxToEdx[2], kPopcntInEcx | kXcr0InEcx | kAvxInEcx))
			return InstructionSet_Baseline;
		VX_CPUID(eaxToEdx, kLeafOfExtensions, 0);
		const int extensions = eaxToEdx[1];
		int saved;
		VX_XCR0(saved);
		if (HasAll(extensions, kAvx512InEbx) && HasAll(saved, kZmmSaved))
			return InstructionSet_Avx512;
		return HasAll(extensions, kAvx2InEbx) && HasAll(saved, kYmmSaved) ? InstructionSet_Avx2
		                                                                  : InstructionSet_Baseline;
	}
#else
	EInstructionSet InstructionSetOfProcessor()
	{
		return InstructionSet_Baseline;
	}
#endif

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
