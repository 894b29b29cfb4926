#!/usr/bin/env bash
# Installs what is missing, builds the library, and passes every test: in all sections, or in those named.
#
#   ./Tools/test.sh                 everything, as on a new machine
#   ./Tools/test.sh debug           one section
#   ./Tools/test.sh --list          what sections there are
set -euo pipefail
cd "$(dirname "$0")/.."

sections=(format same-bits fuzz debug release clang-debug clang-release sanitize host-flags clang-host-flags)

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

Tools/install_packages.sh g++ clang clang-format libclang-rt-14-dev cmake ninja-build pkg-config libgtest-dev \
	nlohmann-json3-dev libepoxy-dev libegl-dev libegl-mesa0 libgl1-mesa-dri libstb-dev libcli11-dev

check_format()
{
	find Runtime Tests Samples Benchmarks \( -name '*.h' -o -name '*.cpp' \) -print0 |
		xargs -0 clang-format --dry-run --Werror
	printf 'every source file is formatted\n'
}

test_preset()
{
	# The viewer draws the same pictures whatever the sorter is built with: one preset builds it.
	local samples=OFF
	[ "$1" != release ] || samples=ON
	cmake --preset "$1" -DVEXMOOR_BUILD_SAMPLES=$samples
	cmake --build --preset "$1"
	ctest --preset "$1" --parallel "$(nproc)" --progress
}

# For each of two targets. At a desk, a look at the corpus and a little more.
fuzzSeconds=3
[ "${CI:-}" != true ] || fuzzSeconds=30

for section in "$@"; do
	printf '\n== %s\n' "$section"
	case $section in
	format) check_format ;;
	same-bits) Tools/matrix.sh --short ;;
	fuzz) Tools/fuzz.sh "$fuzzSeconds" ;;
	*) test_preset "$section" ;;
	esac
done
