#!/usr/bin/env bash
# Shows that every build writes the same bits. Builds the library with every compiler and the flags that hosts use, as a
# host does that compiles the sources in a build of its own. The hash of all that each build writes has to be the
# recorded one.
#
#   ./Tools/matrix.sh             builds and runs the whole table, which takes some minutes
#   ./Tools/matrix.sh --short     g++ and clang unoptimised, every clang and g++ at -O3 -march=native -ffast-math, and
#                                 one row of AArch64
#   ./Tools/matrix.sh --only TEXT rows of the table that contain the text, such as aarch64
#   ./Tools/matrix.sh --record    records the hash of an unoptimised g++ build as the expected one
#
# A row's executable is built again only when a source file, this script or the row has changed.
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"
cd "$(dirname "$0")/.."

mode=${1:-}
case "$mode" in
"" | --short | --record | --only) ;;
*)
	fail "there is no option \"$mode\"; the options are: --short, --only TEXT, --record"
	;;
esac
[[ $mode != --only || -n ${2:-} ]] || fail "--only takes a text that rows contain, as in --only aarch64"

newer_clangs=(clang++-19 clang++-22)

packages=(g++ clang clang-19 clang-22 g++-aarch64-linux-gnu qemu-user)
[ "$mode" = --short ] || [ "$mode" = --record ] || packages+=(llvm-14-linker-tools llvm-19-linker-tools \
	llvm-22-linker-tools libc++-19-dev libc++abi-19-dev g++-i686-linux-gnu libc6-i386-cross libsimde-dev \
	g++-mingw-w64-x86-64-posix wine libwine-dev clang-tools-19 lld-19 g++-riscv64-linux-gnu g++-arm-linux-gnueabihf \
	emscripten)
Tools/install_packages.sh "${packages[@]}"

build=build/matrix
expected=Tests/SameBits/expected_hash.txt
mkdir -p "$build"

includes=(-I Runtime/include -I Runtime/vx_maths/include -I Runtime/vx_kernel/include -I Runtime/vx_geometrics/include)
mapfile -t library < <(find Runtime -name '*.cpp' | sort)
program=Tests/SameBits/same_bits.cpp
generator=Tests/Model/random_scene.cpp # makes the scenes from integers alone: one object serves all rows of a compiler

# Rows.

# compiler | level | architecture | more flags | assertions | how the library is linked
# An architecture LEVEL@CPU is compiled for LEVEL and runs on an emulated CPU.
rows=()
add_row()
{
	local IFS='|'
	rows+=("$*")
}

levels=(-O0 -O1 -O2 -O3 -Os)
architectures=(x86-64 x86-64-v2 x86-64-v3 native)
clang_32_bit="clang++ --target=i686-linux-gnu"
clang_aarch64="clang++ --target=aarch64-linux-gnu"
newer_clang_32_bit="clang++-22 --target=i686-linux-gnu"
newer_clang_aarch64="clang++-22 --target=aarch64-linux-gnu"
clang_libcxx="clang++-19 -stdlib=libc++"
clang_msvc="clang++-19 --target=x86_64-pc-windows-msvc"
clang_cl="clang-cl-19 --target=x86_64-pc-windows-msvc"

add_short_rows()
{
	local compiler
	for compiler in g++ clang++; do
		add_row "$compiler" -O0 x86-64 "" 1 sources
		add_row "$compiler" -O3 native -ffast-math 0 sources
	done
	for compiler in "${newer_clangs[@]}"; do
		add_row "$compiler" -O3 native "-ffast-math -std=c++20" 0 sources
	done
	add_row aarch64-linux-gnu-g++ -O2 armv8-a "" 0 sources
}

# Every level with every architecture. Of fast maths and assertions each row has one value, spread so that any two
# values of two columns meet in some row.
add_level_rows()
{
	local compiler=$1 level architecture
	for level in "${!levels[@]}"; do
		for architecture in "${!architectures[@]}"; do
			local math=""
			[ $(((level + architecture) % 2)) = 0 ] || math=-ffast-math
			add_row "$compiler" "${levels[level]}" "${architectures[architecture]}" "$math" \
				$(((level + architecture / 2) % 2)) sources
		done
	done
}

# Where there is an instruction that multiplies and adds, and the optimiser looks for places for it, fast maths on and
# off at both levels: the rows that are not among the above.
add_fusing_rows()
{
	local compiler=$1
	add_row "$compiler" -O2 x86-64-v3 -ffast-math 1 sources
	add_row "$compiler" -O2 native "" 1 sources
	add_row "$compiler" -O3 x86-64-v3 "" 0 sources
	add_row "$compiler" -O3 native -ffast-math 0 sources
	add_row "$compiler" -O3 native "-ffast-math -ffp-contract=fast" 1 sources
}

add_linkage_rows()
{
	local compiler=$1
	add_row "$compiler" -O2 x86-64 -flto 1 sources
	add_row "$compiler" -O2 native "-flto -ffast-math" 0 sources
	add_row "$compiler" -O3 x86-64 "-flto -ffast-math" 0 sources
	add_row "$compiler" -O3 native -flto 1 sources
	add_row "$compiler" -O0 x86-64 "" 1 archive
	add_row "$compiler" -O3 native -ffast-math 0 archive
	add_row "$compiler" -O0 x86-64 -ffast-math 0 shared
	add_row "$compiler" -O3 native "" 1 shared
}

# Newer compilers know more ways to change an instruction, in the assembler too: each level with two architectures, and
# what fuses or links. Hosts that have them are on newer standards.
add_newer_clang_rows()
{
	local compiler=$1
	add_row "$compiler" -O0 x86-64 "" 1 sources
	add_row "$compiler" -O0 x86-64-v3 "-ffast-math -std=c++20" 0 sources
	add_row "$compiler" -O1 x86-64 "-ffast-math -std=c++23" 1 sources
	add_row "$compiler" -O1 native "" 0 sources
	add_row "$compiler" -O2 x86-64 -std=c++20 0 sources
	add_row "$compiler" -O2 x86-64-v2 "-ffast-math -std=c++23" 1 sources
	add_row "$compiler" -O3 x86-64-v2 -std=c++20 1 sources
	add_row "$compiler" -O3 x86-64-v3 -ffast-math 0 sources
	add_row "$compiler" -Os x86-64-v3 -std=c++23 0 sources
	add_row "$compiler" -Os native -ffast-math 1 sources
	add_fusing_rows "$compiler"
	add_row "$compiler" -O2 native "-flto -ffast-math" 0 sources
	add_row "$compiler" -O3 x86-64 "-flto -std=c++20" 1 sources
	add_row "$compiler" -O3 native -std=c++23 1 shared
}

# Other standards than C++17, and another standard library than g++'s.
add_standard_rows()
{
	local compiler
	for compiler in g++ clang++; do
		add_row "$compiler" -O0 x86-64 -std=c++20 1 sources
		add_row "$compiler" -O3 native "-ffast-math -std=c++20" 0 sources
	done
	add_row g++ -O2 x86-64-v3 -std=c++23 1 sources
	add_row "$clang_libcxx" -O0 x86-64 "" 1 sources
	add_row "$clang_libcxx" -O2 x86-64-v3 "-ffast-math -std=c++20" 0 sources
	add_row "$clang_libcxx" -O3 native "-flto -std=c++23" 1 sources
}

# Scalar code of 32-bit x86 computes in SSE registers where it is told to, and else on the x87 stack.
add_32_bit_rows()
{
	local level assertions=0
	for level in "${levels[@]}"; do
		add_row i686-linux-gnu-g++ "$level" pentium4 -mfpmath=sse $assertions sources
		assertions=$((1 - assertions))
		add_row i686-linux-gnu-g++ "$level" pentium4 "-mfpmath=sse -ffast-math" $assertions sources
	done
	add_row i686-linux-gnu-g++ -O2 pentium4 -mfpmath=387 1 sources
	add_row i686-linux-gnu-g++ -O3 native "-mfpmath=387 -ffast-math" 0 sources
	add_row i686-linux-gnu-g++ -O3 native "-mfpmath=sse -ffast-math" 1 shared
	add_row "$clang_32_bit" -O0 pentium4 "" 1 sources
	add_row "$clang_32_bit" -O2 pentium4 -ffast-math 0 sources
	add_row "$clang_32_bit" -O3 native -ffast-math 1 sources
	add_row "$newer_clang_32_bit" -O3 native "-ffast-math -std=c++20" 0 sources
}

# The arithmetic for compilers without GNU's inline assembler.
add_rows_without_assembler()
{
	local compiler
	for compiler in g++ clang++ clang++-22; do
		add_row "$compiler" -O0 x86-64 -DVX_HAS_ASM=0 1 sources
		add_row "$compiler" -O3 native "-ffast-math -DVX_HAS_ASM=0" 0 sources
	done
}

# Processors without AVX-512, and without AVX2: no wider instruction may get in. The emulator adds two NaNs as the x87
# does, which takes the larger one, and not as SSE does. So these rows are without inline assembler, and the library
# applies its rule for NaNs itself.
add_older_processor_rows()
{
	local compiler
	for compiler in g++ clang++; do
		add_row "$compiler" -O0 x86-64@Haswell -DVX_HAS_ASM=0 0 sources
		add_row "$compiler" -O2 x86-64@Nehalem "-ffast-math -DVX_HAS_ASM=0" 1 sources
		add_row "$compiler" -O3 x86-64-v3@Haswell "-ffast-math -DVX_HAS_ASM=0" 0 sources
	done
	add_row g++ -O0 x86-64@Nehalem -DVX_HAS_ASM=0 0 sources
	add_row clang++-22 -O2 x86-64@Nehalem "-std=c++20 -DVX_HAS_ASM=0" 0 sources
}

# Another processor, whose compilers multiply and add in one instruction unless told otherwise, under an emulator. With
# VEXMOOR_SIMDE it goes without the library's own NEON.
add_aarch64_rows()
{
	add_row aarch64-linux-gnu-g++ -O0 armv8-a "" 1 sources
	add_row aarch64-linux-gnu-g++ -O2 armv8-a "" 0 sources
	add_row aarch64-linux-gnu-g++ -O3 armv8-a -ffast-math 1 sources
	add_row aarch64-linux-gnu-g++ -O3 armv8-a "-ffast-math -ffp-contract=fast" 0 sources
	add_row aarch64-linux-gnu-g++ -O3 armv8.2-a "-ffast-math -flto" 0 sources
	add_row aarch64-linux-gnu-g++ -Os armv8-a "-ffast-math -DVX_HAS_ASM=0" 0 sources
	add_row aarch64-linux-gnu-g++ -O2 armv8-a -DVEXMOOR_SIMDE 1 sources
	add_row "$clang_aarch64" -O0 armv8-a "" 1 sources
	add_row "$clang_aarch64" -O3 armv8-a "-ffast-math -ffp-contract=fast" 0 sources
	add_row "$newer_clang_aarch64" -O2 armv8-a -ffp-contract=fast 1 sources
	add_row "$newer_clang_aarch64" -O3 armv8-a "-ffast-math -std=c++20" 1 sources
	add_row "$newer_clang_aarch64" -O3 armv8-a "-ffast-math -DVX_HAS_ASM=0" 0 sources
}

# Processors without lanes of the library's own, under an emulator, through SIMDe. 32-bit ARM has no NEON here, which
# would flush denormals.
add_simde_rows()
{
	local compiler architecture
	for compiler in riscv64-linux-gnu-g++ arm-linux-gnueabihf-g++; do
		architecture=rv64gc
		[[ $compiler != arm-* ]] || architecture=armv7-a+fp
		add_row "$compiler" -O0 $architecture -DVEXMOOR_SIMDE 1 sources
		add_row "$compiler" -O2 $architecture -DVEXMOOR_SIMDE 0 sources
		add_row "$compiler" -O3 $architecture "-DVEXMOOR_SIMDE -ffast-math" 1 sources
	done
}

# WebAssembly under node, with SIMD and without, for which there are scalar lanes. With VEXMOOR_SIMDE it goes without
# these.
add_wasm_rows()
{
	local level
	for level in "${levels[@]}"; do
		add_row em++ "$level" simd128 "" 0 sources
	done
	add_row em++ -O0 simd128 -ffast-math 1 sources
	add_row em++ -O3 simd128 -ffast-math 0 sources
	add_row em++ -O3 simd128 "-ffast-math -DVX_HAS_ASM=0" 1 sources
	add_row em++ -O0 wasm32 "" 1 sources
	add_row em++ -O2 wasm32 "" 0 sources
	add_row em++ -O3 wasm32 -ffast-math 1 sources
	add_row em++ -O3 wasm32 "-ffast-math -DVX_HAS_ASM=0" 0 sources
	add_row em++ -O2 wasm32 -DVEXMOOR_SIMDE 0 sources
}

# Another operating system, as far as wine is one.
add_windows_rows()
{
	add_row x86_64-w64-mingw32-g++-posix -O0 x86-64 -static 1 sources
	add_row x86_64-w64-mingw32-g++-posix -O2 x86-64 "-static -ffast-math" 0 sources
	add_row x86_64-w64-mingw32-g++-posix -O3 native -static 1 dll
}

# Microsoft's ABI, by both of clang's drivers. Microsoft's own compiler is not to be had here: the last row has clang
# compile what is written for it, whose intrinsics for wide registers clang takes only where the processor has them.
add_microsoft_rows()
{
	add_row "$clang_msvc" -O0 x86-64 "" 1 sources
	add_row "$clang_msvc" -O3 native -ffast-math 0 sources
	add_row "$clang_msvc" -O2 x86-64 "" 1 dll
	add_row "$clang_cl" -Od x86-64 "" 1 sources
	add_row "$clang_cl" -O2 AVX2 -fp:fast 0 sources
	add_row "$clang_cl" -O2 AVX2 -fp:fast 0 dll
	add_row "$clang_cl" -O2 AVX512 -DVX_COMPILER_MSVC=1 1 sources
	add_row "$clang_cl" -O2 AVX512 "-DVX_COMPILER_MSVC=1 -fp:fast" 0 sources
}

# One row.

# The loader knows which levels this CPU reaches.
cpu_runs()
{
	local level=$1
	case $level in
	AVX2) level=x86-64-v3 ;;
	AVX512) level=x86-64-v4 ;;
	esac
	case $level in
	*@*) ;;
	x86-64-v*) /lib64/ld-linux-x86-64.so.2 --help | grep -q "^ *$level (supported" ;;
	esac
}

# For Microsoft's ABI: LLVM's standard library, as far as its headers go, on wine's headers of the C library. What both
# leave open is in Tests/Wine.
microsoft_flags()
{
	# Microsoft's own compiler refuses what this warns of.
	printf '%s\n' -Werror=dll-attribute-on-redeclaration
	printf '%s\n' -D_LIBCPP_NO_VCRUNTIME -D_LIBCPP_NO_AUTO_LINK -D_LIBCPP_HAS_THREAD_API_WIN32 \
		-D_LIBCPP_HAS_NO_LOCALIZATION -D_LIBCPP_DISABLE_VISIBILITY_ANNOTATIONS -D_MSVCR_VER=140
	local folder prefix=-isystem
	case $1 in
	clang-cl*)
		prefix=/clang:-isystem
		printf '%s\n' -nobuiltininc /GR- /GS- /Zc:threadSafeInit- /FITests/Wine/runtime.h
		;;
	*) printf '%s\n' -nostdinc -fno-exceptions -fno-rtti -fno-threadsafe-statics -include Tests/Wine/runtime.h ;;
	esac
	for folder in /usr/lib/llvm-19/include/c++/v1 "$(clang++-19 -print-resource-dir)/include" \
		/usr/include/wine/wine/{msvcrt,windows}; do
		printf '%s\n' "$prefix$folder"
	done
}

# The arguments behind all others that link for Microsoft's ABI: a compiler, and what the linker makes.
link_with_wine()
{
	local libraries=/usr/lib/x86_64-linux-gnu/wine/x86_64-windows compiler=$1 option
	shift
	printf '%s\n' Tests/Wine/runtime.cpp -fuse-ld=lld
	case $compiler in
	clang-cl*) printf '%s\n' /link /nodefaultlib "$@" ;;
	*)
		printf '%s\n' -nostdlib
		for option in "$@"; do
			printf '%s\n' "-Wl,$option"
		done
		;;
	esac
	printf '%s\n' "$libraries"/lib{ucrtbase,vcruntime140,kernel32,ntdll}.a
}

compile()
{
	local compiler=$1 assertions=$2 standard=-std=c++17 runtime=()
	shift 2
	if [[ $* == *VEXMOOR_SIMDE* ]]; then
		mkdir -p "$build/include"
		ln -sfn /usr/include/simde "$build/include/simde" # headers alone, without the rest of this machine's
		set -- -isystem "$build/include" "$@"
	fi
	case $compiler in
	em++) export NODE_PATH=/usr/share/nodejs ;; # where its linker finds the packages that it asks node for
	*windows-msvc)
		mapfile -t runtime < <(microsoft_flags "$compiler")
		[[ $compiler != clang-cl* ]] || standard=/std:c++17
		;;
	esac
	# Jobs share out small scenes too.
	# shellcheck disable=SC2086 # a command, with its target
	$compiler $standard "${runtime[@]}" -DVX_ASSERTIONS="$assertions" -DVEXMOOR_MIN_RECORDS_PER_JOB=16 \
		-DVEXMOOR_MIN_PART_SIZE=8 -DVEXMOOR_MIN_RECORDS_OF_ONE_JOB=110 -DVEXMOOR_MIN_PAGE_SIZE_OF_ONE_JOB=1 \
		"${includes[@]}" -I Tests/Model "$@"
}

generator_object()
{
	printf '%s/generator_%s.o' "$build" "${1// /_}"
}

build_generators()
{
	local compiler
	while read -r compiler; do
		compile "$compiler" 0 -O1 -c "$generator" -o "$(generator_object "$compiler")"
	done < <(printf '%s\n' "${rows[@]}" | cut -d '|' -f 1 | sort -u)
}

build_row()
{
	local folder=$1 compiler=$2 level=$3 architecture=$4 more=$5 assertions=$6 linked=$7
	local flags=("$level" "-march=${architecture%@*}") generated linking=() dll_linking=() suffix
	generated=$(generator_object "$compiler")
	case $compiler in
	clang-cl*)
		flags=("$level")
		[ "$architecture" = x86-64 ] || flags+=("/arch:$architecture")
		;;
	em++)
		flags=("$level")
		[ "$architecture" = wasm32 ] || flags+=("-m$architecture")
		linking=(-sSINGLE_FILE=1 -sALLOW_MEMORY_GROWTH=1 -sEXIT_RUNTIME=1)
		;;
	esac
	[[ $compiler != *windows-msvc ]] ||
		mapfile -t linking < <(link_with_wine "$compiler" /subsystem:console /entry:mainCRTStartup)
	# shellcheck disable=SC2206 # a list of flags
	flags+=($more)
	rm -rf "$folder"
	mkdir -p "$folder"
	case $linked in
	sources)
		compile "$compiler" "$assertions" "${flags[@]}" "${library[@]}" "$program" "$generated" -o "$folder/same_bits" \
			"${linking[@]}" || return
		for suffix in exe js; do
			[ ! -e "$folder/same_bits.$suffix" ] || mv "$folder/same_bits.$suffix" "$folder/same_bits"
		done
		;;
	archive)
		local source
		for source in "${library[@]}"; do
			compile "$compiler" "$assertions" "${flags[@]}" -c "$source" -o "$folder/$(basename "$source").o" || return
		done
		ar rcs "$folder/libvexmoor.a" "$folder"/*.o
		compile "$compiler" "$assertions" "${flags[@]}" "$program" "$generated" -L "$folder" -lvexmoor \
			-o "$folder/same_bits"
		;;
	dll)
		# As the build system's targets do it, with all sources in one DLL. The loader looks beside the program.
		flags+=(-DVX_SHARED=1)
		local exports=(-DVX_BUILDS_KERNEL -DVX_BUILDS_GEOMETRICS)
		case $compiler in
		*mingw32*) exports+=(-shared "-Wl,--out-implib,$folder/vexmoor.lib") ;;
		*)
			exports+=(-D_WINDLL)
			mapfile -t dll_linking < <(link_with_wine "$compiler" /dll /entry:_DllMainCRTStartup \
				"/implib:$folder/vexmoor.lib")
			;;
		esac
		compile "$compiler" "$assertions" "${flags[@]}" "${exports[@]}" "${library[@]}" -o "$folder/vexmoor.dll" \
			"${dll_linking[@]}" || return
		compile "$compiler" "$assertions" "${flags[@]}" "$program" "$generated" "$folder/vexmoor.lib" \
			-o "$folder/same_bits" "${linking[@]}" || return
		[ ! -e "$folder/same_bits.exe" ] || mv "$folder/same_bits.exe" "$folder/same_bits"
		;;
	shared)
		compile "$compiler" "$assertions" "${flags[@]}" -fPIC -shared "${library[@]}" -o "$folder/libvexmoor.so" ||
			return
		compile "$compiler" "$assertions" "${flags[@]}" "$program" "$generated" -L "$folder" -lvexmoor \
			"-Wl,-rpath,$PWD/$folder" -o "$folder/same_bits"
		;;
	esac
}

run_row()
{
	local folder=$1 compiler=$2 architecture=$3
	if [[ $architecture == *@* ]]; then
		qemu-x86_64 -cpu "${architecture#*@}" "$folder/same_bits"
		return
	fi
	case $compiler in
	*i686*)
		/usr/i686-linux-gnu/lib/ld-linux.so.2 --library-path "/usr/i686-linux-gnu/lib:$folder" "$folder/same_bits"
		;;
	*aarch64*) qemu-aarch64 -L /usr/aarch64-linux-gnu "$folder/same_bits" ;;
	riscv64*) qemu-riscv64 -L /usr/riscv64-linux-gnu "$folder/same_bits" ;;
	arm-*) qemu-arm -L /usr/arm-linux-gnueabihf "$folder/same_bits" ;;
	em++) node "$folder/same_bits" ;;
	*mingw32* | *windows-msvc)
		WINEPREFIX=$PWD/$build/wine WINEDEBUG=-all wine "$folder/same_bits" 2>/dev/null | tr -d '\r'
		;;
	*) "$folder/same_bits" ;;
	esac
}

is_built()
{
	local sources=(Runtime Tests/SameBits Tests/Model Tests/Wine Tools/matrix.sh)
	[ -e "$1/same_bits" ] && [ -z "$(find "${sources[@]}" -newer "$1/same_bits")" ]
}

# Leaves the row's hash, or why there is none, in a file beside its folder.
try_row()
{
	local compiler level architecture more assertions linked folder
	IFS='|' read -r compiler level architecture more assertions linked <<<"$1"
	folder=$(folder_of "$1")
	if ! cpu_runs "$architecture"; then
		echo "skipped: this CPU does not run it" >"$folder.result"
	elif ! is_built "$folder" && ! build_row "$folder" "$compiler" "$level" "$architecture" "$more" "$assertions" \
		"$linked" >"$folder.log" 2>&1; then
		echo "does not build" >"$folder.result"
	elif ! run_row "$folder" "$compiler" "$architecture" >"$folder.result" 2>"$folder.log"; then
		echo "does not run" >"$folder.result"
	fi
}

folder_of()
{
	printf '%s/%s' "$build" "$(tr -s ' |' '_' <<<"$1" | tr -d '\n')"
}

# All rows.

if [ "$mode" = --record ]; then
	rows=()
	add_row g++ -O0 x86-64 "" 1 sources
	build_generators
	try_row "${rows[0]}"
	cp "$(folder_of "${rows[0]}").result" $expected
	printf '%s now expects %s\n' $expected "$(cat $expected)"
	exit 0
fi

if [ "$mode" = --short ]; then
	add_short_rows
else
	for compiler in g++ clang++; do
		add_level_rows $compiler
		add_fusing_rows $compiler
		add_linkage_rows $compiler
	done
	for compiler in "${newer_clangs[@]}"; do
		add_newer_clang_rows "$compiler"
	done
	add_standard_rows
	add_32_bit_rows
	add_rows_without_assembler
	add_older_processor_rows
	add_aarch64_rows
	add_simde_rows
	add_wasm_rows
	add_windows_rows
	add_microsoft_rows
fi
if [ "$mode" = --only ]; then
	mapfile -t rows < <(printf '%s\n' "${rows[@]}" | grep -F -- "$2")
	[ ${#rows[@]} != 0 ] || fail "no row contains \"$2\""
fi

build_generators
for row in "${rows[@]}"; do
	while [ "$(jobs -rp | wc -l)" -ge "$(nproc)" ]; do
		wait -n
	done
	try_row "$row" &
done
wait

recorded=$(cat $expected)
failures=0
format='%-43s %-5s %-17s %-30s %-10s %-8s %s\n'
# shellcheck disable=SC2059 # a format that both heading and rows share
printf "$format" compiler level cpu flags assertions library result
for row in "${rows[@]}"; do
	IFS='|' read -r compiler level architecture more assertions linked <<<"$row"
	result=$(cat "$(folder_of "$row").result")
	case $result in
	"$recorded") result=same ;;
	skipped:*) ;;
	*)
		failures=$((failures + 1))
		[[ $result == does* ]] || result="DIFFERS: $result"
		;;
	esac
	[ "$assertions" = 1 ] && assertions=on || assertions=off
	# shellcheck disable=SC2059
	printf "$format" "$compiler" "$level" "$architecture" "$more" "$assertions" "$linked" "$result"
	[[ $result != does* ]] || sed 's/^/    /' "$(folder_of "$row").log"
done
if [ $failures != 0 ]; then
	printf '%d of %d rows do not write the recorded bits, %s\n' $failures ${#rows[@]} "$recorded" >&2
	exit 1
fi
printf 'all rows that run here write the same bits: %s\n' "$recorded"
