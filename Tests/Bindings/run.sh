#!/usr/bin/env bash
# Calls the shared libraries, with assertions, from Python with numpy and from Rust, through the modules of
# Samples/languages. Runs the samples, and the tests of what the modules sort and refuse. The argument is a folder to
# build in.
set -euo pipefail
workDir=$1
mkdir -p "$workDir"
workDir=$(cd "$workDir" && pwd)
cd "$(dirname "$0")/../.."

# These are Debian's own compiler and interpreter, whatever else is installed.
python=/usr/bin/python3
rustc=(/usr/bin/rustc --edition 2021 -D warnings --out-dir "$workDir")
samples=Samples/languages

step()
{
	local status=0
	printf '  %s\n' "$1"
	shift
	"$@" >"$workDir/log" 2>&1 || status=$?
	# A call that a check lets pass breaks no rule.
	if [ $status != 0 ] || grep -q 'assertion "' "$workDir/log"; then
		cat "$workDir/log"
		printf 'failed: %s\n' "$*" >&2
		exit 1
	fi
}

build_libraries()
{
	cmake -S . -B "$workDir/libraries" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DCMAKE_CXX_COMPILER=g++ -DBUILD_SHARED_LIBS=ON \
		-DBUILD_TESTING=OFF -DVEXMOOR_BUILD_SAMPLES=OFF -DCMAKE_INSTALL_LIBDIR=lib
	cmake --build "$workDir/libraries"
	cmake --install "$workDir/libraries" --prefix "$workDir/installed"
}
step "shared libraries" build_libraries
libraries=$workDir/installed/lib

export VEXMOOR_LIBRARY=$libraries/libvx_geometrics.so.1
step "Python, the sample" "$python" $samples/sort_points.py
step "Python, the tests" "$python" Tests/Bindings/python_test.py

rustc+=(-L "$libraries" -C "link-arg=-Wl,-rpath,$libraries" -C "link-arg=-Wl,-rpath-link,$libraries")
step "Rust, the module" "${rustc[@]}" --crate-type rlib $samples/vexmoor.rs
rustc+=(--extern "vexmoor=$workDir/libvexmoor.rlib")
step "Rust, the sample compiles" "${rustc[@]}" $samples/sort_points.rs
step "Rust, the sample" "$workDir/sort_points"
step "Rust, the tests compile" "${rustc[@]}" --test Tests/Bindings/rust_test.rs
step "Rust, the tests" "$workDir/rust_test"
