// The fill stage's loops, with AVX-512.

#include "vx_compiler.h"

#if VX_X86
	#include "simd/lanes_avx512.h"

	#include "kr_sort.h"

	#include "include/pv_fill.h"

VX_BEGIN_TARGET_AVX512

	#include "include/pv_fill_compaction.h"

namespace Vexmoor
{
const SFillKernels kFillKernels_Avx512 = kFillKernelsInLanes<SLanesAvx512, SLanesAvx2, SLanesAvx>;
} // namespace Vexmoor

VX_END_TARGET
#endif
