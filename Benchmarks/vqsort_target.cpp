// The one place that sees vqsort's own headers.

#include "vqsort_target.h"

#include <hwy/contrib/sort/vqsort.h>
#include <hwy/targets.h>

namespace VexmoorBench
{
namespace
{
	constexpr s64 kUpToAvx2 = HWY_AVX2 | HWY_SSE4 | HWY_SSSE3;
	// What the package is compiled for. A wider set that the processor has is not in it.
	constexpr s64 kPackaged = kUpToAvx2 | HWY_AVX3;
} // namespace

void SelectVqsortTarget(EVqsortTarget target)
{
	hwy::SetSupportedTargetsForTest(0); // back to what the processor has
	if (target == EVqsortTarget::Avx2)
		hwy::SetSupportedTargetsForTest(hwy::SupportedTargets() & kUpToAvx2);
	hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

const char *VqsortTargetName(EVqsortTarget target)
{
	SelectVqsortTarget(target);
	const s64 usable = hwy::SupportedTargets() & kPackaged;
	SelectVqsortTarget(EVqsortTarget::Best);
	return usable == 0 ? "none" : hwy::TargetName(usable & -usable); // better targets have lower bits
}

void VqsortWords(u64 *words, size_t count)
{
	static const hwy::Sorter sorter;
	sorter(words, count, hwy::SortAscending());
}
} // namespace VexmoorBench
