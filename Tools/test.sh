#!/usr/bin/env bash
# Installs what is missing, builds the library, and runs all sections of tests, or the sections that are named.
#
#   ./Tools/test.sh                 runs everything; a new machine needs no preparation
#   ./Tools/test.sh debug           runs one section
#   ./Tools/test.sh --verbose ...   shows the output of compilers and tests, which otherwise goes to build/test-logs
#   ./Tools/test.sh --list          prints the names of the sections
#
# First, the script says what it will do and how long that takes. At the end it prints a line for each section, and how
# many sections have passed and failed. The first section that fails ends the run, and its output is shown.
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"
cd "$(dirname "$0")/.."

# Each section and what it looks at.
sectionTable='
format            formats, columns, words, and the messages of commits
analysis          clang-tidy and cppcheck
docs              the reference, and that nothing public is undocumented
same-bits         one hash from a row of each compiler, in short
instructions      instructions of fixed calls against recorded counts
package           archives and Debian packages, and what built programs count on
c                 vexmoor.h as C, and programs in C
bindings          Python and Rust through vexmoor.h
web               the WebAssembly package and its page, in node and in a browser
fuzz              every target for some seconds, from its corpus
bugs              that hand-written bugs apply, and that tests notice five
debug             the suite with g++ and assertions, and every kind of consumer
release           the suite with g++ without assertions, and all samples
clang-debug       the suite with clang, assertions and shared libraries
sanitize          the suite under the address, undefined-behaviour and integer sanitizers
threads           tests of threads and jobs under the thread sanitizer
memcheck          tests of scratch memory under valgrind
host-flags        the suite with the flags of a host in a hurry, g++
clang-host-flags  the same with clang, without assertions
'
mapfile -t sections < <(awk 'NF { print $1 }' <<<"$sectionTable")

verbose=false
while [[ ${1:-} == --* ]]; do
	case $1 in
	--list)
		printf '%s\n' "${sections[@]}"
		exit 0
		;;
	--verbose) verbose=true ;;
	*)
		fail "there is no option \"$1\"; the options are: --verbose, --list"
		;;
	esac
	shift
done
for section in "$@"; do
	printf '%s\n' "${sections[@]}" | grep -qx -- "$section" ||
		fail "there is no section \"$section\"; the sections are: ${sections[*]}"
done
[ $# -gt 0 ] || set -- "${sections[@]}"

Tools/install_packages.sh g++ clang clang-format clang-tidy cppcheck valgrind libclang-rt-14-dev cmake ninja-build \
	pkg-config libgtest-dev nlohmann-json3-dev python3 python3-matplotlib gdb libepoxy-dev libegl-dev libegl-mesa0 \
	libgl1-mesa-dri libstb-dev libcli11-dev libtbb-dev libvulkan-dev mesa-vulkan-drivers vulkan-validationlayers \
	glslang-tools assimp-testmodels libglfw3-dev libimgui-dev libglx-mesa0 xvfb xdotool python3-xlib netpbm qemu-user \
	zlib1g-dev libzip-dev libwebp-dev

check_format()
{
	Tools/format.sh --check
	Tools/check_text.py
	Tools/check_text.py --commits
	printf 'every source file is formatted\n'
}

# What only some compilers know has a name in vx_compiler.h, and intrinsics stand behind the lanes of simd/, so that the
# library compiles for other compilers and processors.
compilerWords='__(attribute|asm|declspec|forceinline|pragma|debugbreak|cpuid)|__(builtin|atomic)_'
compilerWords+='|\<asm[ \t]*(volatile|\()|__(PRETTY_FUNCTION|FUNCSIG)__|__GNUC|__clang|_MSC_|\<_M_[A-Z]|__ELF__'
compilerWords+='|__(x86_64|amd64|i386|aarch64|arm|wasm|riscv|SSE|AVX|FMA|ARM)|__(BYTE_ORDER|ORDER)_|_ReadWriteBarrier'
compilerWords+='|#[ \t]*pragma[ \t]+(GCC|clang|float_control|fp_contract)'
intrinsics='\<_mm[0-9]*_|\<__m(64|128|256|512)|mmintrin\.h|arm_neon\.h|\<intrin\.h|cpuid\.h'

check_words()
{
	local source found=0
	while IFS= read -r source; do
		! grep -nHE "$compilerWords" "$source" || found=1
		[[ $source == Runtime/vx_maths/include/simd/* ]] || ! grep -nHE "$intrinsics" "$source" || found=1
	done < <(find Runtime \( -name '*.h' -o -name '*.cpp' \) ! -path Runtime/include/vx_compiler.h)
	if [ $found != 0 ]; then
		printf 'these words belong in vx_compiler.h, and intrinsics in simd/\n' >&2
		return 1
	fi
	printf 'no word of one compiler, and no intrinsic, stands outside its place\n'
}

# What clang-tidy looks for, and why not for more, is said in .clang-tidy. Tests are left out: what they do on purpose
# would need a word at every place.
analyse()
{
	cmake --preset analysis -DVEXMOOR_BUILD_SAMPLES=OFF >/dev/null
	find Runtime Tests/Model Tests/SameBits -name '*.cpp' -print0 |
		xargs -0 -n 1 -P "$(nproc)" clang-tidy -p build/analysis --quiet 2>/dev/null
	# -j: the samples are programs of their own, whose structures may share a name. It shares out little of the work, so
	# the two runs go side by side.
	local assertions runs=() run
	for assertions in 0 1; do
		cppcheck -j "$(nproc)" --enable=warning,performance,portability --inline-suppr --error-exitcode=1 --quiet \
			--std=c++17 --platform=unix64 -D__GNUC__=12 -D__x86_64__ -D__SSE2__ -DVX_ASSERTIONS=$assertions \
			-I Runtime/include -I Runtime/vx_maths/include -I Runtime/vx_kernel/include \
			-I Runtime/vx_geometrics/include -I Runtime/vx_geometrics/src/ge_mesh \
			-i Samples/particle_viewer/tests Runtime Tests/Model Tests/SameBits Tests/Support Tests/Fuzz Samples &
		runs+=($!)
	done
	for run in "${runs[@]}"; do
		wait "$run"
	done
	printf 'neither clang-tidy nor cppcheck has anything to say\n'
}

test_preset()
{
	# The viewer draws the same pictures whatever the sorter is built with: one preset builds it. The small examples
	# also run where rules and memory are watched, and here none is left out.
	local samples=(-DVEXMOOR_BUILD_SAMPLES=OFF)
	local allExamples=(-DCMAKE_REQUIRE_FIND_PACKAGE_TBB=ON -DCMAKE_REQUIRE_FIND_PACKAGE_Vulkan=ON)
	case $1 in
	release) samples=(-DVEXMOOR_BUILD_SAMPLES=ON "${allExamples[@]}") ;;
	sanitize) samples=(-DVEXMOOR_BUILD_SAMPLES=minimal "${allExamples[@]}") ;;
	esac
	cmake --preset "$1" "${samples[@]}"
	cmake --build --preset "$1"
	ctest --preset "$1" --parallel "$(nproc)" --progress
}

# Everything that happens once happens in a fresh process, so the first sorts on many threads meet in twenty of them.
test_threads()
{
	cmake --preset threads -DVEXMOOR_BUILD_SAMPLES=OFF
	cmake --build --preset threads
	local tests=build/threads/Tests/vexmoor_thread_tests run
	$tests --gtest_brief=1
	for run in {1..20}; do
		$tests --gtest_brief=1 --gtest_filter='Threads.First*' >/dev/null || $tests --gtest_filter='Threads.First*'
	done
	VEXMOOR_TEST_CASES=100 build/threads/Tests/vexmoor_job_tests --gtest_brief=1
	printf 'no race in the tests of threads and jobs, nor in 20 processes whose first sorts are on 16 threads at once\n'
}

# What was never written, followed to where it decides something: the tests whose buffers come from the heap, and of the
# others those that are quick.
test_memcheck()
{
	cmake --preset debug -DVEXMOOR_BUILD_SAMPLES=OFF
	cmake --build --preset debug --target vexmoor_tests
	# The tests have an operator new of their own, which counts and fails: it is not replaced by valgrind's.
	valgrind --quiet --error-exitcode=1 --leak-check=full --num-callers=30 \
		--soname-synonyms=somalloc=nouserintercepts build/debug/Tests/vexmoor_tests \
		--gtest_brief=1 --gtest_filter="$memcheckTests"
	printf 'valgrind has nothing to say\n'
}
memcheckTests='ScratchMemory.*:FailingAllocation.*:LogUnique.*:Array.*:RefPtr.*:String.*:PointSort.*:TriangleSort.*'

# For each target. At a desk, a look at the corpus and a little more. From one seed, so that what is found comes from
# the change at hand: what has long been there is looked for by longer runs, from other seeds.
fuzzSeconds=3
fuzzSeed=1
[ "${CI:-}" != true ] || fuzzSeconds=10

run_section()
{
	case $1 in
	format)
		check_format
		check_words
		;;
	analysis) analyse ;;
	docs) Tools/docs.sh ;;
	same-bits) Tools/matrix.sh --short ;;
	instructions) Tools/instruction_counts.sh ;;
	threads) test_threads ;;
	memcheck) test_memcheck ;;
	package)
		Tools/package.sh
		Tests/Abi/run.sh build/abi-test
		Tools/abi.sh
		;;
	c) Tests/CInterface/run.sh build/c ;;
	bindings)
		Tools/install_packages.sh rustc python3-numpy
		Tests/Bindings/run.sh build/bindings
		;;
	web) Tools/web.sh --test ;;
	fuzz) Tools/fuzz.sh "$fuzzSeconds" "$fuzzSeed" ;;
	bugs)
		Tools/bugs.py --check
		Tools/bugs.py --short --jobs "$(nproc)"
		;;
	*) test_preset "$1" ;;
	esac
}

# How long each section took on this machine when it last passed: lines of a name and seconds. For a section that has
# not passed here yet, what it takes of two cores that do nothing else.
times=build/test-times
timesOfTwoCores=Tools/test_times.txt
logs=build/test-logs
mkdir -p "$logs"
touch "$times"

seconds_of()
{
	awk -v name="$1" '$1 == name { seconds = $2 } END { print seconds }' "$timesOfTwoCores" "$times"
}

keep_seconds()
{
	{ awk -v name="$1" '$1 != name' "$times" && printf '%s %d\n' "$1" "$2"; } >"$times.new"
	mv "$times.new" "$times"
}

clock()
{
	printf '%d:%02d' $(($1 / 60)) $(($1 % 60))
}

say_plan()
{
	local section seconds sum=0 unknown=0 elsewhere=0
	for section in "$@"; do
		seconds=$(seconds_of "$section")
		[ -n "$seconds" ] && sum=$((sum + seconds)) || unknown=$((unknown + 1))
		grep -q "^$section " "$times" || elsewhere=$((elsewhere + 1))
	done
	printf 'Sections: %d, which take some %s' $# "$(clock $sum)"
	if [ $elsewhere -eq 0 ]; then
		printf ', as when they last passed on this machine.\n'
	else
		printf '. %d have not passed on this machine yet; their time is that of two idle cores' $elsewhere
		[ $unknown -eq 0 ] || printf ', which is not known of %d' $unknown
		printf '.\n'
	fi
	for section in "$@"; do
		seconds=$(seconds_of "$section")
		printf '  %-17s %6s  %s\n' "$section" "${seconds:+$(clock "$seconds")}" \
			"$(awk -v name="$section" '$1 == name { $1 = ""; print substr($0, 2) }' <<<"$sectionTable")"
	done
}

# On a terminal, a line that tells every second how far the run is.
watch_section()
{
	local start=$SECONDS expected
	expected=$(seconds_of "$1")
	while sleep 1; do
		printf '\r\033[K%s, %d of %d: %s%s' "$1" "$2" "$3" "$(clock $((SECONDS - start)))" \
			"${expected:+ of some $(clock "$expected")}" >&2
	done
}

results=()
passed=0
failed=0
say_results()
{
	printf '\n'
	printf '%s\n' "${results[@]}"
}

watcher=
stop_watching()
{
	[ -n "$watcher" ] || return 0
	kill "$watcher" 2>/dev/null || true
	wait "$watcher" 2>/dev/null || true
	watcher=
	printf '\r\033[K' >&2
}
trap stop_watching EXIT

say_plan "$@"
for section in "$@"; do
	start=$SECONDS
	if ! $verbose && [ -t 2 ]; then
		watch_section "$section" $((passed + 1)) $# &
		watcher=$!
	fi
	# Not in a condition, where a failing command would not end the section.
	set +e
	if $verbose; then
		printf '\n== %s\n' "$section"
		(set -e && run_section "$section") 2>&1 | tee "$logs/$section"
		status=${PIPESTATUS[0]}
	else
		(set -e && run_section "$section") >"$logs/$section" 2>&1
		status=$?
	fi
	set -e
	stop_watching
	seconds=$((SECONDS - start))
	if [ "$status" = 0 ]; then
		passed=$((passed + 1))
		keep_seconds "$section" $seconds
		results+=("$(printf '%-17s passed  %6s' "$section" "$(clock $seconds)")")
		$verbose || printf '%s\n' "${results[-1]}"
		continue
	fi
	failed=1
	results+=("$(printf '%-17s FAILED  %6s  %s' "$section" "$(clock $seconds)" "$logs/$section")")
	$verbose || tail -n 200 "$logs/$section"
	for section in "${@:passed + 2}"; do
		results+=("$(printf '%-17s not run' "$section")")
	done
	break
done
if $verbose || [ $failed != 0 ]; then
	say_results
fi
printf '%d passed, %d failed\n' $passed $failed
exit $failed
