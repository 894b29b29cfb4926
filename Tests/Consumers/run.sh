#!/usr/bin/env bash
# Tries every way in which a host can use the library: as a package from the build tree, installed, and installed and
# moved, with CMake and with pkg-config; as a subdirectory; and as bare sources with the host's own flags. Also checks
# that a client compiled with another VX_ASSERTIONS is refused. Arguments are a build folder, the name of a compiler,
# and a folder to work in. If that folder is kept, the next run is quicker.
set -euo pipefail
buildDir=$1 compiler=$2 workDir=$3
sourceDir=$(cd "$(dirname "$0")/../.." && pwd)
consumers=$sourceDir/Tests/Consumers

mkdir -p "$workDir"

step()
{
	printf '  %s\n' "$1"
	shift
	if ! "$@" >"$workDir/log" 2>&1; then
		cat "$workDir/log"
		printf 'failed: %s\n' "$*" >&2
		exit 1
	fi
}

build_and_run()
{
	local dir=$1
	shift
	cmake -G Ninja -B "$workDir/$dir" -DCMAKE_CXX_COMPILER="$compiler" "$@"
	cmake --build "$workDir/$dir"
	ctest --test-dir "$workDir/$dir"
}

step "package in the build tree" build_and_run from_build -S "$consumers/package" -DVexmoor_DIR="$buildDir"

rm -rf "$workDir/prefix" "$workDir/moved"
step "installation" cmake --install "$buildDir" --prefix "$workDir/prefix"
step "package in a prefix" "$consumers/try_prefix.sh" "$workDir/prefix" "$compiler" "$workDir/from_prefix"
mv "$workDir/prefix" "$workDir/moved"
step "package in a moved prefix" "$consumers/try_prefix.sh" "$workDir/moved" "$compiler" "$workDir/from_moved"

step "subdirectory, static" build_and_run subdirectory -S "$consumers/subdirectory" \
	-DVEXMOOR_SOURCE_DIR="$sourceDir" -DCMAKE_BUILD_TYPE=Release
step "subdirectory, shared" build_and_run subdirectory_shared -S "$consumers/subdirectory" \
	-DVEXMOOR_SOURCE_DIR="$sourceDir" -DCMAKE_BUILD_TYPE=Debug -DBUILD_SHARED_LIBS=ON
mapfile -t sharedLibraries < <(find "$workDir/subdirectory_shared" -name 'libvx_*.so')
step "the shared libraries' symbols" "$sourceDir/Tests/Abi/exports.sh" "${sharedLibraries[@]}"

# The first code block of the README is a function that a reader may copy.
readme_compiles()
{
	sed -n '/^```cpp$/,/^```$/p' "$sourceDir/README.md" | sed '1d;/^```$/,$d' >"$workDir/readme.cpp"
	grep -q SortPoints_AutogenIndices "$workDir/readme.cpp" &&
		"$compiler" -std=c++17 -Wall -Wextra -Werror -fsyntax-only "${includes[@]}" "$workDir/readme.cpp"
}

# Bare sources: four include folders, every source file, nothing else.
includes=()
for dir in include vx_maths/include vx_kernel/include vx_geometrics/include; do
	includes+=(-I "$sourceDir/Runtime/$dir")
done
mapfile -t sources < <(find "$sourceDir/Runtime" -name '*.cpp' | sort)
bare()
{
	"$compiler" -std=c++17 "$@" "${includes[@]}" "${sources[@]}" "$consumers/sort_one_frame.cpp" -o "$workDir/bare"
	"$workDir/bare"
}
step "the README's example" readme_compiles
step "bare sources" bare
step "bare sources, a host's flags" bare -O3 -march=native -ffast-math -flto -fno-exceptions -fno-rtti -DNDEBUG

# The linker's message names the value that the client asks for, even if the linker drops unused sections.
objects=$workDir/objects
mkdir -p "$objects"
compile_library()
{
	(cd "$objects" && "$compiler" -std=c++17 -DVX_ASSERTIONS="$1" "${includes[@]}" -c "${sources[@]}")
}
is_told()
{
	! "$compiler" -std=c++17 -DVX_ASSERTIONS="$1" "${includes[@]}" "$consumers/sort_one_frame.cpp" "$objects"/*.o \
		-ffunction-sections -fdata-sections -Wl,--gc-sections -o "$workDir/mismatch" 2>"$workDir/linker" &&
		grep -q "LibraryIsBuiltWith_VX_ASSERTIONS_$1" "$workDir/linker"
}
step "library without assertions" compile_library 0
step "client with assertions is told" is_told 1
step "library with assertions" compile_library 1
step "client without assertions is told" is_told 0
