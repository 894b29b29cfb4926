#!/usr/bin/env bash
# Says whether programs that are built against the shared libraries of one revision run with those of another. They do
# if nothing that the public headers declare is gone or has changed its layout.
#
#   ./Tools/abi.sh              compares the working tree with the recorded interface of the last release
#   ./Tools/abi.sh --record     records the interface of the working tree, at a release
#   ./Tools/abi.sh OLD          compares the working tree with a revision
#   ./Tools/abi.sh OLD NEW      compares two revisions
#
# The record, Tests/Abi/recorded_interface.txt, is readable text. Two revisions are compared by abidiff. The exit code
# is 1 if built programs break although the libraries keep their names. What is merely new is not reported.
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"

if [[ $# -gt 2 || ${1:-} == -* && ${1:-} != --record || ${1:-} == --record && $# -gt 1 ]]; then
	fail "it takes --record, or up to two revisions: ./Tools/abi.sh [--record | OLD [NEW]]"
fi
cd "$(dirname "$0")/.."
for revision in "$@"; do
	if [ "$revision" != --record ] && ! git rev-parse --verify --quiet "$revision^{commit}" >/dev/null 2>&1; then
		fail "there is no revision \"$revision\""
	fi
done

Tools/install_packages.sh g++ cmake ninja-build abigail-tools binutils python3 >&2

build=$PWD/build/abi
libraries=(libvx_kernel.so libvx_geometrics.so)

quietly()
{
	if ! "$@" >"$build/log" 2>&1; then
		cat "$build/log" >&2
		printf 'abi.sh: failed: %s\n' "$*" >&2
		exit 1
	fi
}

# Installs the shared libraries of a revision, or of the working tree where none is named, and leaves the prefix's name
# in installed. A revision is built once.
install_revision()
{
	local source=$PWD name=working-tree
	if [ -n "$1" ]; then
		name=$(git rev-parse "$1^{commit}")
		source=$build/$name/source
	fi
	installed=$build/$name/installed
	if [ -n "$1" ] && [ -d "$installed" ]; then
		return
	fi
	mkdir -p "$build/$name"
	if [ -n "$1" ]; then
		mkdir -p "$source"
		git archive "$1" | tar -x -C "$source"
	fi
	quietly cmake -S "$source" -B "$build/$name/build" -G Ninja -DCMAKE_CXX_COMPILER=g++ -DCMAKE_BUILD_TYPE=Release \
		-DCMAKE_CXX_FLAGS_RELEASE="-g -O1" -DBUILD_SHARED_LIBS=ON -DBUILD_TESTING=OFF -DVEXMOOR_BUILD_SAMPLES=OFF \
		-DCMAKE_INSTALL_LIBDIR=lib
	quietly cmake --build "$build/$name/build"
	rm -rf "$installed"
	quietly cmake --install "$build/$name/build" --prefix "$installed"
}

record=Tests/Abi/recorded_interface.txt
breaks='programs built against %s break: keep what they count on, or raise VX_VERSION_MAJOR\n'

# Writes the lines of the working tree's interface to a file.
describe_working_tree()
{
	local library descriptions=()
	install_revision ""
	for library in "${libraries[@]}"; do
		abidw --out-file "$build/$library.xml" "$installed/lib/$library"
		descriptions+=("$build/$library.xml")
	done
	Tests/Abi/interface.py "${descriptions[@]}" >"$1"
}

mkdir -p "$build"
if [ "${1:-}" = --record ]; then
	describe_working_tree "$build/interface.txt"
	version=$(sed -n 's/^#define VX_VERSION_\(MAJOR\|MINOR\|PATCH\) //p' Runtime/include/vx_defs.h | paste -sd .)
	{
		printf '# What programs that are built against version %s count on. Tools/abi.sh --record writes it.\n' \
			"$version"
		cat "$build/interface.txt"
	} >$record
	printf 'the interface of %s is recorded\n' "$version"
	exit 0
fi
if [ $# = 0 ]; then
	describe_working_tree "$build/interface.txt"
	recorded=$(sed -n '1s/.* version \([0-9.]*\) .*/\1/p' $record)
	printf 'from the record of %s to the working tree: ' "$recorded"
	if ! Tests/Abi/interface.py --compare $record "$build/interface.txt"; then
		# shellcheck disable=SC2059
		printf "$breaks" "$recorded" >&2
		exit 1
	fi
	exit 0
fi
old=$1
new=${2:-}

# Instances of the standard library's templates come and go with the optimiser, and no client counts on ours. Structures
# for C that begin with their size may grow at their end.
cat >"$build/suppressions" <<'END'
[suppress_function]
symbol_name_regexp = ^_Z(NK?)?St
[suppress_type]
name_regexp = ^vexmoor_(call|report|scope|allocator)$
has_data_member_inserted_at = end
END

install_revision "$old"
oldPrefix=$installed
install_revision "$new"
newPrefix=$installed

compare()
{
	abidiff --suppressions "$build/suppressions" --headers-dir1 "$oldPrefix/include" \
		--headers-dir2 "$newPrefix/include" \
		"$@" "$oldPrefix/lib/$library" "$newPrefix/lib/$library"
}

soname()
{
	readelf -d "$1/lib/$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p'
}

printf 'from %s to %s\n' "$old" "${new:-the working tree}"
broken=0
for library in "${libraries[@]}"; do
	printf '  %s: ' "$library"
	if [ "$(soname "$oldPrefix")" != "$(soname "$newPrefix")" ]; then
		printf '%s is now %s, which no built program asks for\n' "$(soname "$oldPrefix")" "$(soname "$newPrefix")"
		continue
	fi
	status=0
	report=$(compare --no-added-syms) || status=$?
	if [ $((status & 3)) != 0 ]; then
		printf '%s\n' "$report"
		exit 2
	elif [ $status != 0 ]; then
		printf 'breaks built programs\n%s\n' "$report"
		broken=1
	elif compare >"$build/log"; then
		printf 'the same\n'
	else
		printf 'has more than before\n'
	fi
done
if [ $broken != 0 ]; then
	# shellcheck disable=SC2059
	printf "$breaks" "$old" >&2
	exit 1
fi
