#pragma once

// vqsort as its package was built: code for several instruction sets, chosen at run time. The choice can be held to
// AVX2, so one process measures both.

#include "vx_defs.h"

namespace VexmoorBench
{
using namespace Vexmoor;

enum class EVqsortTarget
{
	Best, ///< What the package picks on this processor.
	Avx2  ///< Nothing wider than AVX2.
};

/// Applies to all later sorts. Not while one runs.
void SelectVqsortTarget(EVqsortTarget target);

/// The name of the instruction set that a sort uses under a choice.
const char *VqsortTargetName(EVqsortTarget target);

/// Sorts words in ascending order.
void VqsortWords(u64 *words, size_t count);
} // namespace VexmoorBench
