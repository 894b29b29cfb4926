#!/usr/bin/env bash
# Checks that code for wider registers is not shared with the rest of the program. If several files have a body of an
# inline function, the linker keeps one of them, and a processor without wide registers might run the wrong one.
# Compiles each file of instances with several flags and looks for such bodies: weak functions that are defined.
#
#   run.sh REPOSITORY COMPILER FOLDER
set -euo pipefail
cd "$1"
compiler=$2
folder=$3
mkdir -p "$folder"

shared=0
for source in Runtime/vx_kernel/src/sort_lanes_avx*.cpp Runtime/vx_geometrics/src/ge_mesh/fill_avx*.cpp; do
	for flags in -O0 -O2 "-O0 -DVX_HAS_ASM=0" "-O2 -DVX_HAS_ASM=0"; do
		object=$folder/$(basename "$source").o
		# shellcheck disable=SC2086 # a list of flags
		$compiler -std=c++17 $flags -I Runtime/include -I Runtime/vx_maths/include -I Runtime/vx_kernel/include \
			-I Runtime/vx_geometrics/include -c "$source" -o "$object"
		symbols=$(nm -C --defined-only "$object")
		if ! grep -q 'Kernels_Avx' <<<"$symbols"; then
			printf '%s with %s: it has no table of functions\n' "$source" "$flags" >&2
			exit 1
		fi
		if grep ' W ' <<<"$symbols"; then
			printf '%s with %s: the functions above may be taken for the whole program\n' "$source" "$flags" >&2
			shared=1
		fi
	done
done
exit $shared
