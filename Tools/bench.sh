#!/usr/bin/env bash
# Installs the peers, builds Release, measures everything interleaved in one process, and writes Docs/performance.md
# with its plots. Nothing else should run on the machine meanwhile.
#
#   ./Tools/bench.sh                       everything: some 10 minutes
#   ./Tools/bench.sh --filter '^sort/'     some cases, into build/bench/partial/performance.md
#   ./Tools/bench.sh --quick               whether it works: a minute, into build/bench/quick/performance.md
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/bench
page=Docs/performance.md
report=()
arguments=(--benchmark_repetitions=11 --benchmark_min_time=0.02)
case "${1:-}" in
"") ;;
--filter)
	page=$build/partial/performance.md
	arguments+=("--benchmark_filter=${2:?"--filter takes a regular expression over names, as in ^sort/uniform/"}")
	;;
--quick)
	page=$build/quick/performance.md
	report=(--quick)
	arguments=(--benchmark_repetitions=2 --benchmark_min_time=0.001 '--benchmark_filter=-/(1000000|4000000)(/|$)')
	;;
*)
	printf 'bench.sh: there is no option "%s"; the options are: --filter, --quick\n' "$1" >&2
	exit 2
	;;
esac

Tools/install_packages.sh g++ cmake ninja-build pkg-config libbenchmark-dev libboost-dev libhwy-dev libogre-1.12-dev \
	libtbb-dev python3-matplotlib

cmake -S . -B $build -G Ninja -DCMAKE_CXX_COMPILER=g++ -DCMAKE_BUILD_TYPE=Release -DVEXMOOR_BUILD_BENCHMARKS=ON \
	-DVEXMOOR_BUILD_SAMPLES=OFF -DBUILD_TESTING=OFF
cmake --build $build --target vexmoor_benchmarks

mkdir -p "$(dirname "$page")"
$build/Benchmarks/vexmoor_benchmarks "${arguments[@]}" --benchmark_enable_random_interleaving=true \
	--benchmark_display_aggregates_only=true --benchmark_out=$build/results.json --benchmark_out_format=json \
	>$build/results.txt

# The distribution's interpreter: another one does not see its packages.
/usr/bin/python3 Benchmarks/report.py $build/results.json "$page" --tried Benchmarks/tried.md "${report[@]}"
printf 'bench.sh: the results are in %s\n' "$page"
