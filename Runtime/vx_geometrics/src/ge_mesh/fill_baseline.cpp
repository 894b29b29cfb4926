// The fill stage's loops, with what every processor of this kind has.

#include "simd/lanes.h"

#include "include/pv_fill_compaction.h"

namespace Vexmoor
{
const SFillKernels kFillKernels_Baseline = kFillKernelsInLanes<SLanesBase>;
} // namespace Vexmoor
