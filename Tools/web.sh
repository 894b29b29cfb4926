#!/usr/bin/env bash
# Installs what is missing and builds the sorter for JavaScript, with and without WebAssembly's SIMD, and for several
# threads. The result is a package for npm, as a folder, build/web/package, and as an archive beside it, and the page of
# Web/page, in build/web/page. With an option, the script does something more:
#
#   ./Tools/web.sh                     builds the package and the page
#   ./Tools/web.sh --test              runs the tests of the package in node, and those of the page in a browser
#   ./Tools/web.sh --bench             measures the package in node beside other sorts, and goes with two more options:
#                                      --sizes 10000,100000 names the numbers of points, and --write FILE writes the
#                                      medians into a file that Benchmarks/report.py reads
#   ./Tools/web.sh --serve [PORT]      serves the page on 127.0.0.1, at port 8000 if none is named
#   ./Tools/web.sh --orders            prints what 16-bit keys do to an order: a table of Docs/exact-order.md
#   ./Tools/web.sh --picture           takes the picture of the page in Docs/images
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"
cd "$(dirname "$0")/.."

mode=${1:-}
case $mode in
"" | --test | --orders | --picture)
	[ $# -le 1 ] || fail "$mode takes no further argument, unlike \"$2\""
	;;
--serve)
	[ $# -le 2 ] || fail "--serve takes one port, and nothing behind it like \"$3\""
	port=${2:-8000}
	if [[ ! $port =~ ^[1-9][0-9]{0,4}$ ]] || [ "$port" -gt 65535 ]; then
		fail "--serve takes a port from 1 to 65535, not \"$port\""
	fi
	;;
--bench) ;;
*) fail "there is no option \"$mode\"; the options are: --test, --bench, --serve, --orders, --picture" ;;
esac

packages=(emscripten python3)
command -v node >/dev/null || packages+=(nodejs)
command -v npm >/dev/null || packages+=(npm) # comes with node where that is not Debian's
[ "$mode" != --test ] || packages+=(node-typescript chromium g++ cmake)
[ "$mode" != --picture ] || packages+=(chromium g++ cmake pngquant)
[ "$mode" != --bench ] || packages+=(g++ cmake)
Tools/install_packages.sh "${packages[@]}"

build=build/web
includes=(-I Runtime/include -I Runtime/vx_maths/include -I Runtime/vx_kernel/include -I Runtime/vx_geometrics/include)
# The module's sort on threads uses what the library's sort with jobs is made of.
includes+=(-I Runtime/vx_geometrics/src/ge_mesh/include)
compiling=(-std=c++17 -DNDEBUG -DVX_ASSERTIONS=0 -fno-exceptions -fno-rtti -Wall -Wextra -Wno-unused-function
	"${includes[@]}")
# No main and no JavaScript of emscripten's: a few imports, which vexmoor.js knows. The stack holds the radix sort's 22
# KB of counters several times over.
linking=(--no-entry -sSTANDALONE_WASM=1 -sMALLOC=emmalloc -sALLOW_MEMORY_GROWTH=1 -sMAXIMUM_MEMORY=4GB
	-sINITIAL_MEMORY=1MB -sTOTAL_STACK=128KB)
export NODE_PATH=/usr/share/nodejs # where emscripten finds the packages that it asks node for

# What a build says is worth reading only when it fails.
mkdir -p "$build"
log=$PWD/$build/log
quietly()
{
	"$@" >"$log" 2>&1 && return
	cat "$log" >&2
	printf 'failed: %s\n' "$*" >&2
	exit 1
}

# Compiles the library into an archive, so that the linker takes from it what the module needs, and links the module
# with the flags given. Only where a source, or how it is compiled, has changed.
build_module()
{
	local name=$1
	shift
	local objects=$build/objects/$name state
	state=$({
		printf '%s\n' "$name" "$@"
		cat Tools/web.sh
		find Runtime Web/package/src \( -name '*.cpp' -o -name '*.h' \) -print0 | sort -z | xargs -0 cat
	} | sha256sum)
	if [ -e "$build/$name" ] && [ "$(cat "$objects/state" 2>/dev/null)" = "$state" ]; then
		return
	fi
	printf 'Building %s ...\n' "$name" >&2
	rm -rf "$objects"
	mkdir -p "$objects"
	find Runtime -name '*.cpp' -print0 | quietly xargs -0 -n 1 -P "$(nproc)" \
		bash -c 'em++ "${@:2:$#-2}" -c "${*: -1}" -o "$1/$(basename "${*: -1}" .cpp).o"' \
		_ "$objects" "${compiling[@]}" "$@"
	quietly emar rcs "$objects/library.a" "$objects"/*.o
	if [ "$name" = vexmoor-threads.wasm ]; then
		link_with_threads "$name" "$objects" "$@"
	else
		quietly em++ "${compiling[@]}" -DVEXMOOR_WEB_THREADS=0 "$@" Web/package/src/{module,services}.cpp \
			"$objects/library.a" "${linking[@]}" -o "$build/$name"
	fi
	printf '%s\n' "$state" >"$objects/state"
}

# Links the module that workers share a memory with. Emscripten does so only with its own JavaScript for threads, so the
# linker and the optimiser are called here as emscripten calls them. The limits of memory are those of
# vexmoor-threads.js.
link_with_threads()
{
	local name=$1 objects=$2 source
	shift 2
	local libraries
	libraries=$(em-config CACHE)/sysroot/lib/wasm32-emscripten
	for source in module services threads; do
		quietly em++ "${compiling[@]}" -DVEXMOOR_WEB_THREADS=1 "$@" -c "Web/package/src/$source.cpp" \
			-o "$objects/$source.web.o"
	done
	quietly wasm-ld --shared-memory --import-memory --initial-memory=1048576 --max-memory=4294967296 \
		--stack-first -z stack-size=131072 --entry=_initialize --export=__stack_pointer --export=__wasm_init_tls \
		--allow-undefined --gc-sections --strip-all "$libraries/crt1_reactor.o" "$objects"/*.web.o \
		"$objects/library.a" "$libraries"/lib{c-mt,emmalloc-mt,c++abi-mt-noexcept,compiler_rt-mt}.a \
		"$libraries/libstandalonewasm-memgrow.a" -o "$objects/linked.wasm"
	quietly wasm-opt -O3 --enable-threads --enable-bulk-memory --enable-simd --enable-mutable-globals \
		--enable-sign-ext "$objects/linked.wasm" -o "$build/$name"
}

build_package()
{
	# Every engine that has SIMD also has instructions that copy and fill memory.
	build_module vexmoor-simd.wasm -O3 -msimd128 -mbulk-memory
	build_module vexmoor-threads.wasm -O3 -msimd128 -mbulk-memory -pthread
	build_module vexmoor.wasm -O3

	local package=$build/package
	rm -rf "$package"
	mkdir -p "$package"
	cp COPYRIGHT Web/package/{package.json,README.md,vexmoor.d.ts,vexmoor.js,vexmoor-threads.js,vexmoor-worker.js} \
		"$build"/vexmoor{,-simd,-threads}.wasm "$package"
	rm -f "$build"/*.tgz
	(cd "$package" && quietly npm pack --offline --pack-destination ..)
}

# What the package is measured beside: a counting sort in C, compiled like the module, and the library's native code.
build_peers()
{
	quietly emcc -O3 -msimd128 -mbulk-memory -mnontrapping-fptoint -Wall -Wextra Web/bench/counting_sort.c \
		--no-entry -sSTANDALONE_WASM=1 -sINITIAL_MEMORY=1MB -sTOTAL_STACK=64KB -sALLOW_MEMORY_GROWTH=1 \
		-sMAXIMUM_MEMORY=4GB -o "$build/counting_sort.wasm"
	build_native_program Web/bench/native.cpp "$build/native"
}

# A program of one source, with the library for this machine.
build_native_program()
{
	local source=$1 program=$2
	quietly cmake -S . -B "$build/native-library" -DCMAKE_CXX_COMPILER=g++ -DCMAKE_BUILD_TYPE=Release \
		-DBUILD_TESTING=OFF -DVEXMOOR_BUILD_SAMPLES=OFF
	quietly cmake --build "$build/native-library" --parallel "$(nproc)"
	quietly g++ -std=c++17 -O3 -DNDEBUG -DVX_ASSERTIONS=0 -Wall -Wextra "${includes[@]}" "$source" \
		"$build"/native-library/Runtime/vx_{geometrics/libvx_geometrics,kernel/libvx_kernel}.a -o "$program"
}

# A folder of static files: the page, and the package beside it.
build_page()
{
	rm -rf "$build/page"
	cp -r Web/page "$build/page"
	rm "$build/page/README.md" "$build/page/package.json" # for readers, and for node
	cp -r "$build/package" "$build/page/vexmoor"
}

# What the page's tests take: the order of the library on this machine, and what drives a browser.
build_page_tests()
{
	mkdir -p "$build/tests"
	cp Web/tests/package.json "$build/tests"
	if ! (cd "$build/tests" && npm ls >/dev/null 2>&1); then
		(cd "$build/tests" && quietly npm install --no-audit --no-fund --no-package-lock)
	fi
	build_native_program Web/tests/page/native_order.cpp "$build/tests/native_order"
}

build_package
printf 'The package: %s\n' "$PWD/$build/"*.tgz
build_page

case $mode in
--test)
	build_page_tests
	VEXMOOR_WEB_BUILD=$PWD/$build node --test Web/tests/*.test.mjs Web/tests/page/*.test.mjs
	;;
--bench)
	build_peers
	VEXMOOR_WEB_COMPILERS="emscripten $(emcc -dumpversion), g++ $(g++ -dumpfullversion), -O3" \
		VEXMOOR_WEB_BUILD=$PWD/$build node Web/bench/bench.mjs "${@:2}"
	;;
--orders) VEXMOOR_WEB_BUILD=$PWD/$build node Web/bench/compare_orders.mjs ;;
--picture)
	build_page_tests
	VEXMOOR_WEB_BUILD=$PWD/$build node Web/tests/page/take_picture.mjs "$build/page.png"
	pngquant --force --speed 1 --output Docs/images/web-page.png 256 "$build/page.png"
	;;
--serve)
	exec node Web/server/main.mjs "$build/page" "$port"
	;;
esac
