// What the sorts do in lanes, with what every processor of this kind has.

#include "simd/lanes.h"

#include "include/pv_sort_kernels.h"

namespace Vexmoor
{
const SortLanes::SKernels SortLanes::kKernels_Baseline = kKernelsInLanes<SLanesBase>;
} // namespace Vexmoor
