#pragma once

// What the sorts do in lanes, as a table of functions for each instruction set. The contracts are those of the
// functions of the same names in kr_sort_lanes.h, which call the table of the processor.

#include "vx_compiler.h"
#include "vx_defs.h"

namespace Vexmoor
{
namespace SortLanes
{
	struct SKernels
	{
		void (*m_SumCounters8)(u8 *counters, u32 count);
		void (*m_SumCounters16)(u16 *counters, u32 count);
		void (*m_SumCounters32)(u32 *counters, u32 count);
		void (*m_SumSparseCounters8)(u8 *counters, const u8 *others, u32 count);
		void (*m_SumSparseCounters16)(u16 *counters, const u16 *others, u32 count);
		void (*m_SumSparseCounters32)(u32 *counters, const u32 *others, u32 count);
		void (*m_SumColumns)(u8 *counters, const u8 *others, u32 rowCount);
		bool m_SumsFasterInColumns;
		void (*m_CountLowerKeys)(const u8 *records, u32 count, u32 *ranks);
		u32 m_MaxCountWorthRanking;
	};

	extern const SKernels kKernels_Baseline;
#if VX_X86
	extern const SKernels kKernels_Avx2;
	extern const SKernels kKernels_Avx512;
#endif
} // namespace SortLanes
} // namespace Vexmoor
