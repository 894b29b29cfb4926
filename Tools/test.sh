#!/usr/bin/env bash
# Installs what is missing, builds the library, and passes every test: in all sections, or in those named.
#
#   ./Tools/test.sh                 everything, as on a new machine
#   ./Tools/test.sh debug           one section
#   ./Tools/test.sh --list          what sections there are
set -euo pipefail
cd "$(dirname "$0")/.."

sections=(
	format analysis docs same-bits instructions package c bindings web fuzz bugs debug release clang-debug sanitize threads memcheck
	host-flags clang-host-flags
)

if [ "${1:-}" = --list ]; then
	printf '%s\n' "${sections[@]}"
	exit 0
fi
for section in "$@"; do
	if ! printf '%s\n' "${sections[@]}" | grep -qx -- "$section"; then
		printf 'test.sh: there is no section "%s"; the sections are: %s\n' "$section" "${sections[*]}" >&2
		exit 2
	fi
done
[ $# -gt 0 ] || set -- "${sections[@]}"

Tools/install_packages.sh g++ clang clang-format clang-tidy cppcheck valgrind libclang-rt-14-dev cmake ninja-build \
	pkg-config libgtest-dev nlohmann-json3-dev python3 python3-matplotlib gdb libepoxy-dev libegl-dev libegl-mesa0 \
	libgl1-mesa-dri libstb-dev libcli11-dev libtbb-dev libvulkan-dev mesa-vulkan-drivers vulkan-validationlayers \
	glslang-tools assimp-testmodels libglfw3-dev libimgui-dev libglx-mesa0 xvfb xdotool netpbm qemu-user zlib1g-dev \
	libzip-dev libwebp-dev

check_format()
{
	Tools/format.sh --check
	# clang-format leaves comments as long as they are.
	local source longLines=0
	while IFS= read -r -d '' source; do
		expand -t 4 "$source" |
			awk -v source="$source" 'length > 120 { print source ":" NR ": longer than 120 columns"; bad = 1 } END { exit bad }' ||
			longLines=1
	done < <(find Runtime \( -name '*.h' -o -name '*.cpp' \) -print0)
	[ $longLines = 0 ]
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
	local assertions
	for assertions in 0 1; do
		cppcheck -j "$(nproc)" --enable=warning,performance,portability --inline-suppr --error-exitcode=1 --quiet \
			--std=c++17 --platform=unix64 -D__GNUC__=12 -D__x86_64__ -D__SSE2__ -DVX_ASSERTIONS=$assertions \
			-I Runtime/include -I Runtime/vx_maths/include -I Runtime/vx_kernel/include \
			-I Runtime/vx_geometrics/include -I Runtime/vx_geometrics/src/ge_mesh \
			-i Samples/particle_viewer/tests Runtime Tests/Model Tests/SameBits Tests/Support Tests/Fuzz Samples
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

# For each target. At a desk, a look at the corpus and a little more.
fuzzSeconds=3
[ "${CI:-}" != true ] || fuzzSeconds=15

for section in "$@"; do
	printf '\n== %s\n' "$section"
	case $section in
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
	fuzz) Tools/fuzz.sh "$fuzzSeconds" ;;
	bugs)
		Tools/bugs.py --check
		Tools/bugs.py --short --jobs "$(nproc)"
		;;
	*) test_preset "$section" ;;
	esac
done
