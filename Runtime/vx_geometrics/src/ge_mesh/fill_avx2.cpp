// The fill stage's loops, with AVX2.

#include "vx_compiler.h"

#if VX_X86
	#include "simd/lanes_avx2.h"

	#include "kr_sort.h"

	#include "include/pv_fill.h"

VX_BEGIN_TARGET_AVX2

	#include "include/pv_fill_compaction.h"

namespace Vexmoor
{
const SFillKernels kFillKernels_Avx2 = kFillKernelsInLanes<SLanesAvx2, SLanesAvx>;
} // namespace Vexmoor

VX_END_TARGET
#endif
