#!/usr/bin/env bash
# Builds the fuzz targets in build/fuzz and runs each for a while, as many at a time as there are processors, starting
# with the committed corpus and the inputs that earlier runs found.
#
#   ./Tools/fuzz.sh            runs each target for 60 seconds
#   ./Tools/fuzz.sh 600        runs each target for ten minutes
#   ./Tools/fuzz.sh 15 1       runs each for 15 seconds, with the random numbers of seed 1: the same inputs in every run
#   ./Tools/fuzz.sh --keep     replaces each committed corpus by the fewest inputs, of all that there are, that together
#                              reach every edge that any of them reaches
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"
cd "$(dirname "$0")/.."

seconds=60
seed=0 # another one in every run
keep=false
case "${1:-}" in
"") ;;
--keep) keep=true ;;
*[!0-9]*)
	fail "\"$1\" is no number of seconds, and the one option is --keep"
	;;
*) seconds=$1 ;;
esac
case "${2:-}" in
"") ;;
*[!0-9]*)
	fail "\"$2\" is no seed, which is a number"
	;;
*) seed=$2 ;;
esac
# What is found also depends on addresses. If the system lets a process have the same ones in every run, a seed's inputs
# are the same too.
fixedAddresses=()
if [ $seed != 0 ] && setarch -R true 2>/dev/null; then
	fixedAddresses=(setarch -R)
fi

Tools/install_packages.sh clang libclang-rt-14-dev cmake ninja-build libgtest-dev nlohmann-json3-dev python3 \
	pkg-config zlib1g-dev libzip-dev libwebp-dev

build=build/fuzz
cmake -S . -B $build -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	-DVEXMOOR_BUILD_FUZZERS=ON -DVEXMOOR_BUILD_SAMPLES=OFF -DVEXMOOR_WARNINGS_AS_ERRORS=ON >/dev/null
cmake --build $build --target vexmoor_fuzzers

committed=Tests/Fuzz/corpus
maxLength=1000

# An input is worth keeping for an edge, not for how often it is taken; of several with the same the shortest stays.
keep_corpus()
{
	local target=$1 kept=$build/kept/$1
	rm -rf "$kept"
	mkdir -p "$kept" "$committed/$target" "$build/corpus/$target"
	"$build/Tests/Fuzz/fuzz_$target" -merge=1 -use_counters=0 -max_len=$maxLength "$kept" "$committed/$target" \
		"$build/corpus/$target" >"$build/merge_$target.log" 2>&1
	rm -f "$committed/$target"/*
	cp "$kept"/* "$committed/$target/"
	printf '%s: %d inputs kept\n' "$target" "$(find "$committed/$target" -type f | wc -l)"
}

statistic()
{
	sed -n "s/^stat::$1: *//p" "$2"
}

# The first corpus receives what is found; the committed one is only read.
fuzz()
{
	local target=$1 log=$build/$1.log executable=$build/Tests/Fuzz/fuzz_$1 finding=$build/finding_$1
	local dictionary=Tests/Fuzz/$1.dict words=()
	[ ! -e "$dictionary" ] || words=(-dict="$dictionary")
	mkdir -p "$build/corpus/$target" "$committed/$target"
	rm -f "$finding"
	if ! "${fixedAddresses[@]}" "$executable" "${words[@]}" -seed="$seed" -max_total_time="$seconds" \
		-max_len=$maxLength -timeout=10 -rss_limit_mb=4096 -print_final_stats=1 -exact_artifact_path="$finding" \
		"$build/corpus/$target" "$committed/$target" >"$log" 2>&1; then
		tail -n 60 "$log"
		if [ ! -e "$finding" ]; then
			printf '\n%s: did not run\n' "$target" >&2
			return 1
		fi
		printf '\n%s: a finding. The same again: VEXMOOR_FUZZ_DESCRIBE=1 %s %s\n' "$target" "$executable" \
			"$finding" >&2
		return 1
	fi
	local last
	last=$(grep -o 'cov: [0-9]* .*corp: [0-9]*' "$log" | tail -n 1)
	last=${last#cov: }
	printf '%-16s %10s executions, %s a second; %s edges; corpus of %s inputs\n' "$target" \
		"$(statistic number_of_executed_units "$log")" "$(statistic average_exec_per_sec "$log")" \
		"${last%% *}" "${last##* }"
}

job=fuzz
! $keep || job=keep_corpus
failed=0
running=0
for target in sort jobs building_blocks checked capture clouds; do
	if [ $running = "$(nproc)" ]; then
		wait -n || failed=1
		running=$((running - 1))
	fi
	$job $target &
	running=$((running + 1))
done
while [ $running != 0 ]; do
	wait -n || failed=1
	running=$((running - 1))
done
exit $failed
