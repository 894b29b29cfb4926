#!/usr/bin/env bash
# Tries an installed library in hosts that find it with CMake and with pkg-config, in C++ and in C. Also checks that a
# client compiled with another VX_ASSERTIONS does not link. Arguments are the prefix, the name of a C++ compiler, whose
# C compiler has to be installed too, and a folder to work in.
set -euo pipefail
prefix=$1 compiler=$2 workDir=$3
consumers=$(cd "$(dirname "$0")" && pwd)

rm -rf "$workDir"
mkdir -p "$workDir"

cmake -G Ninja -S "$consumers/package" -B "$workDir/package" -DCMAKE_CXX_COMPILER="$compiler" \
	-DCMAKE_PREFIX_PATH="$prefix"
cmake --build "$workDir/package"
ctest --test-dir "$workDir/package" --output-on-failure

cCompiler=${compiler/%clang++/clang}
cCompiler=${cCompiler/%g++/gcc}
cmake -G Ninja -S "$consumers/package_in_c" -B "$workDir/package_in_c" -DCMAKE_C_COMPILER="$cCompiler" \
	-DCMAKE_PREFIX_PATH="$prefix"
cmake --build "$workDir/package_in_c"
ctest --test-dir "$workDir/package_in_c" --output-on-failure

# Below /usr, both pkg-config and the loader find it by themselves; elsewhere they are told.
loader=()
if [ "$prefix" != /usr ]; then
	PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name vexmoor.pc)")
	export PKG_CONFIG_PATH
	loader=("-Wl,-rpath,$(pkg-config --variable=libdir vexmoor)")
fi
defs=$consumers/../../Runtime/include/vx_defs.h
pkg-config --print-errors --exact-version="$(sed -n 's/^#define VX_VERSION_[A-Z]* //p' "$defs" | paste -sd .)" vexmoor

read -ra compileFlags < <(pkg-config --cflags vexmoor)
read -ra linkFlags < <(pkg-config --libs vexmoor)
client()
{
	"$compiler" -std=c++17 "${compileFlags[@]}" "$@" "$consumers/sort_one_frame.cpp" "${linkFlags[@]}" "${loader[@]}" \
		-o "$workDir/sort_one_frame"
}
client -fvisibility=hidden
"$workDir/sort_one_frame"

# Archives need the C++ runtime as well, which pkg-config knows under --static.
read -ra cLinkFlags < <(pkg-config --libs --static vexmoor)
"$cCompiler" -std=c99 "${compileFlags[@]}" "$consumers/../CInterface/c99_program.c" "${cLinkFlags[@]}" "${loader[@]}" \
	-o "$workDir/c99_program"
"$workDir/c99_program"

other=1
[[ " ${compileFlags[*]} " != *" -DVX_ASSERTIONS=1 "* ]] || other=0
if client -UVX_ASSERTIONS -DVX_ASSERTIONS=$other 2>"$workDir/linker"; then
	echo "a client with VX_ASSERTIONS=$other links" >&2
	exit 1
fi
grep -q "LibraryIsBuiltWith_VX_ASSERTIONS_$other" "$workDir/linker"
