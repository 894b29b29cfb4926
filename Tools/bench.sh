#!/usr/bin/env bash
# Installs the peers, builds Release, measures, writes the pages, and prints a table of goals, kept and missed. Nothing
# else should run on the machine meanwhile.
#
#   ./Tools/bench.sh                       measures everything, for some 15 minutes, and writes Benchmarks/results,
#                                          Docs/performance.md and the README's figures
#   ./Tools/bench.sh --filter '^sort/'     measures some cases, into build/bench/partial
#   ./Tools/bench.sh --quick               tries for a minute whether everything works, into build/bench/quick
#   ./Tools/bench.sh --pages               measures nothing, and makes the pages and the table from Benchmarks/results
#   ./Tools/bench.sh --repetitions 5       takes medians of 5 repetitions instead of 11; goes with any other option
#   ./Tools/bench.sh --lock FILE           locks the file while it measures, for two minutes at a time at most, so that
#                                          others who lock it take turns on the machine; goes with any other option
#
# The exit code is 0 if all goals are kept, 1 if one is missed or a check failed, and 2 for a bad argument. --quick
# checks no goals.
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"
cd "$(dirname "$0")/.."

build=build/bench
mode=all
filter=
measuring=()
while [ $# -gt 0 ]; do
	case $1 in
	--filter)
		[ $# -gt 1 ] || fail "--filter takes a regular expression over names, as in --filter '^sort/uniform/'"
		[ $mode = all ] || fail "--filter, --quick and --pages exclude each other"
		mode=partial filter=$2
		shift
		;;
	--quick | --pages)
		[ $mode = all ] || fail "--filter, --quick and --pages exclude each other"
		mode=${1#--}
		;;
	--lock)
		[ $# -gt 1 ] || fail "--lock takes the name of a file"
		measuring+=(--lock "$2")
		shift
		;;
	--repetitions)
		[[ ${2:-} =~ ^[1-9][0-9]?$ ]] || fail "--repetitions takes a number from 1 to 99"
		measuring+=(--repetitions "$2")
		shift
		;;
	*) fail "there is no option \"$1\"; the options are: --filter, --quick, --pages, --repetitions, --lock" ;;
	esac
	shift
done

results=Benchmarks/results
page=(--page Docs/performance.md --readme README.md --web Web/bench/results/*.json)
case $mode in
partial) measuring+=("--filter=$filter") ;;
quick) measuring+=(--repetitions 2 --min-time 0.001 '--filter=-/(1000000|4000000)(/|$)') ;;
esac
if [ $mode = partial ] || [ $mode = quick ]; then
	results=$build/$mode/results
	page=(--page $build/$mode/performance.md)
	rm -rf $build/$mode
fi
mkdir -p $build $results

# The distribution's interpreter: another one does not see its packages.
python=/usr/bin/python3
Tools/install_packages.sh g++ cmake ninja-build pkg-config libbenchmark-dev libboost-dev libhwy-dev libogre-1.12-dev \
	libtbb-dev python3-matplotlib

if [ $mode != pages ]; then
	log=$build.log
	if ! { cmake -S . -B $build -G Ninja -DCMAKE_CXX_COMPILER=g++ -DCMAKE_BUILD_TYPE=Release \
		-DVEXMOOR_BUILD_BENCHMARKS=ON -DVEXMOOR_BUILD_SAMPLES=OFF -DBUILD_TESTING=OFF &&
		cmake --build $build --target vexmoor_benchmarks; } >$log 2>&1; then
		cat $log >&2
		exit 1
	fi
	$python Benchmarks/measure.py $build/Benchmarks/vexmoor_benchmarks $results "${measuring[@]}"
fi

$python Benchmarks/report.py $results/*.json "${page[@]}"
if [ $mode = all ] || [ $mode = pages ]; then
	Tools/check_text.py --wrap >/dev/null
fi
printf 'the page is %s\n' "${page[1]}"
[ $mode = quick ] || $python Benchmarks/goals.py $results/*.json
