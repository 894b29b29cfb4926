#pragma once

// What the sorts do in lanes, as a table of functions for each instruction set. The contracts are those of the
// functions of the same names in kr_sort_lanes.h, which call the table of the processor.

#include "vx_compiler.h"
#include "vx_defs.h"

namespace Vexmoor
{
namespace SortLanes
{
	// The functions for one instruction set. All tables give the same numbers.
	struct SKernels
	{
		// Counters of three widths are summed by three functions, of which kr_sort_lanes.h makes overloads.
		void (*m_SumCounters8)(u8 *counters, u32 count);
		void (*m_SumCounters16)(u16 *counters, u32 count);
		void (*m_SumCounters32)(u32 *counters, u32 count);
		void (*m_SumSparseCounters8)(u8 *counters, const u8 *others, u32 count);
		void (*m_SumSparseCounters16)(u16 *counters, const u16 *others, u32 count);
		void (*m_SumSparseCounters32)(u32 *counters, const u32 *others, u32 count);
		void (*m_SumColumns)(u8 *counters, const u8 *others, u32 rowCount);
		// Measured with these registers, as m_MaxCountWorthRanking is: pv_sort_kernels.h has the measurements.
		bool m_SumsFasterInColumns;
		// ranks has room for whole steps of SortLanes::kRanksPerStep.
		void (*m_CountLowerKeys)(const u8 *records, u32 count, u32 *ranks);
		// Above this many records the radix sort takes less time than ranking.
		u32 m_MaxCountWorthRanking;
		// Null if the radix sort takes less time. count is from 1 to SortLanes::kMaxNetworkCount.
		void (*m_SortByNetwork)(const u8 *records, u32 count, u8 *byLowBits, u8 *sorted);
		// Null where m_SortByNetwork is. count is from 1 to SortLanes::kMaxRankedCount.
		bool (*m_SortDistinctByNetwork)(const u8 *records, u32 count, u8 *sorted);
	};

	// A table for each file that is compiled for its own instruction set. A caller of a function of another table than
	// the baseline's has asked kr_cpu.h before whether the processor has these instructions.
	extern const SKernels kKernels_Baseline;
#if VX_X86
	extern const SKernels kKernels_Avx2;
	extern const SKernels kKernels_Avx512;
#endif
} // namespace SortLanes
} // namespace Vexmoor
