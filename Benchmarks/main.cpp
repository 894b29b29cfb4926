// One process measures everything, so that ratios compare what ran on the same machine in the same minutes. The options
// are those of Google Benchmark; Tools/bench.sh gives the usual ones.

#include "kr_log_unique.h"

#include "bench_registry.h"
#include "vqsort_target.h"
#include <malloc.h>
#include <string>

int main(int argc, char **argv)
{
	using namespace VexmoorBench;

	// What one case frees stays for the next, as an engine's memory stays. Pages that the system has taken back and given out
	// again lie scattered, and large sorts would measure how it looks them up: 25 ns a particle instead of 8 at 4M.
	mallopt(M_MMAP_MAX, 0);
	mallopt(M_TRIM_THRESHOLD, -1);

	// Slow paths are measured as well; what they say about themselves belongs to no table.
	CPerfHotspotsRegistry::Registry()->SetFirstTouchHandler(
		[](const CLogUniqueCollection::SEntry &, void *) {}, nullptr);

	benchmark::AddCustomContext("compiler", VEXMOOR_BENCH_COMPILER);
	benchmark::AddCustomContext("flags", VEXMOOR_BENCH_FLAGS);
	benchmark::AddCustomContext("vqsort_best_target", VqsortTargetName(EVqsortTarget::Best));
	benchmark::AddCustomContext("vqsort_avx2_target", VqsortTargetName(EVqsortTarget::Avx2));

	RegisterSortStage();
	RegisterSortCounts();
	RegisterSortParts();
	RegisterFill();
	RegisterExpansion();
	RegisterBillboards();
	RegisterTriangles();
	RegisterTubes();
	RegisterSmallPages();
	RegisterDrawCalls();
	RegisterDiagnostics();

	benchmark::Initialize(&argc, argv);
	if (benchmark::ReportUnrecognizedArguments(argc, argv))
		return 1;
	const size_t run = benchmark::RunSpecifiedBenchmarks();
	benchmark::Shutdown();
	return run != 0 ? 0 : 1;
}
