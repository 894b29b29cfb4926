"""Small results of a made-up processor, for the tests of what is made of results."""

import results

MACHINE = {
	"vendor": "GenuineIntel", "model_name": "Example Processor", "family": "6", "model": "99", "registers": "AVX2",
	"cores": 2,
	"virtual": "", "caches": "L1 data 32 KiB", "memory": "8 GiB", "kernel": "1.0", "compiler": "GNU 12, -O3",
	"vqsort": "AVX2", "packages": "", "load": "0.1", "date": "2026-01-02", "repetitions": 3,
}


def timed(ns, items):
	return results.Case(items, ns=ns, spread=0.01)


def in_turns(ratio, plain_ns, items):
	ratios = [round(ratio * part, 3) for part in (0.9, 1, 1.1)]
	return results.Case(items, counters={"ratio": ratios, "plain_ns": [plain_ns] * 3})


def example():
	cases = {
		("sort", "uniform", "vexmoor", 8): timed(10.0, 8),
		("sort", "uniform", "vexmoor", 1000): timed(4000.0, 1000),
		("sort", "uniform", "std_sort", 8): timed(30.0, 8),
		("sort", "uniform", "std_sort", 1000): timed(16000.0, 1000),
		("sort", "uniform", "vqsort_best", 1000): timed(3000.0, 1000),
		("expand", "u32_width_6", "vexmoor_at_0", 1000): timed(2000.0, 1000),
		("expand", "u32_width_6", "same_traffic", 1000): timed(1960.0, 1000),
		("expand", "u32_width_6", "stream_fill", 1000): timed(1000.0, 1000),
		("scenes", "positions", "user", 100): in_turns(4.0, 700.0, 100),
		("scenes", "positions", "user", 1000): in_turns(7.0, 6000.0, 1000),
		("scenes", "values_disabled_99", "user", 1000): in_turns(0.5, 1500.0, 1000),
		("scenes", "values_pages_1_to_300_disabled_30_frame", "user", 500): in_turns(5.0, 3e6, 500000),
		("cold", "positions_swept_all_caches", "user", 100): in_turns(1.4, 3500.0, 100),
		("cold", "positions_swept_all_caches", "user_ordinary_memory", 100): in_turns(1.45, 3400.0, 100),
		("draw_calls", "pairs", "vexmoor_two_threads", 500): in_turns(0.5, 1e6, 500000),
		("jobs", "ball", "tbb", 100000): in_turns(0.8, 6e5, 100000),
		("jobs", "ball", "thread_pool", 100000): in_turns(0.5, 6e5, 100000),
		("jobs", "curve", "tbb", 100000): in_turns(0.8, 6e5, 100000),
		("one_job", "ball", "without_jobs", 10000): in_turns(0.8, 6e4, 10000),
		("one_job", "ball", "without_jobs", 100000): in_turns(1.25, 6e5, 100000),
		("one_job", "camera_inside", "without_jobs", 100000): in_turns(0.5, 6e5, 100000),
	}
	return results.Results(dict(MACHINE), cases)
