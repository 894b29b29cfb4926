#pragma once

// What a check knows of a sort before the sort runs, for the functions that run it.

#include "vx_defs.h"

namespace Vexmoor
{
class CTriangleSorter;

/// The number of indices from the first one of the output to the last one that a sort writes. If the sort is too broken
/// to tell, that is the whole output. The output behind that index may lie over the input of the same sort.
VX_LOCAL u64 WrittenIndexCount(const CTriangleSorter &sorter);
} // namespace Vexmoor
