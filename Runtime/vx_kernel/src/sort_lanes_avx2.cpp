// What the sorts do in lanes, with AVX2.

#include "vx_compiler.h"

#if VX_X86
	#include "simd/lanes_avx2.h"

	#include "kr_sort_few.h"
	#include "kr_sort_lanes.h"

	#include "include/pv_sort_lanes.h"

VX_BEGIN_TARGET_AVX2

	#include "include/pv_sort_kernels.h"

namespace Vexmoor
{
const SortLanes::SKernels SortLanes::kKernels_Avx2 = kKernelsInLanes<SLanesAvx2>;
} // namespace Vexmoor

VX_END_TARGET
#endif
