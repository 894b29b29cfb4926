// One process measures everything, so that ratios compare what ran on the same machine in the same minutes. The options
// are those of Google Benchmark; Tools/bench.sh gives the usual ones.

#include "kr_log_unique.h"

#include "bench_registry.h"
#include "vqsort_target.h"
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <string>

constexpr int kBadArguments = 2;

int main(int argc, char **argv)
{
	using namespace VexmoorBench;

	// What one case frees stays for the next, as an engine's memory stays. Pages that the system has taken back and
	// given out again lie scattered, and large sorts would measure how it looks them up: 25 ns a particle instead of 8
	// at 4M.
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
	RegisterScenes();
	RegisterCold();
	RegisterSmallPages();
	RegisterDrawCalls();
	RegisterJobs();
	RegisterDiagnostics();

	// Google Benchmark shows its help for some bad values too, and calls that a success.
	static bool s_HelpIsAsked;
	s_HelpIsAsked = argc > 1 && std::strcmp(argv[1], "--help") == 0;
	benchmark::Initialize(&argc, argv,
		[]
		{
			if (!s_HelpIsAsked)
			{
				std::fputs("vexmoor_benchmarks: an option has a value that it cannot have; --help lists the options\n",
					stderr);
				std::exit(kBadArguments);
			}
			benchmark::PrintDefaultHelp();
		});
	if (argc > 1)
	{
		std::fprintf(stderr,
			"vexmoor_benchmarks: there is no option, or no such value, \"%s\"; --help lists the options\n", argv[1]);
		return kBadArguments;
	}
	const size_t run = benchmark::RunSpecifiedBenchmarks();
	benchmark::Shutdown();
	if (run == 0)
	{
		std::fprintf(stderr, "vexmoor_benchmarks: no benchmark has a name that matches the filter\n");
		return kBadArguments;
	}
	return 0;
}
