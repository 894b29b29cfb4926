#!/usr/bin/env bash
# Makes the packages of a release: an archive of the static libraries, one of the shared libraries, and two Debian
# packages. Checks them, and builds a program with each.
#
#   ./Tools/package.sh              writes them to build/packages
#   ./Tools/package.sh FOLDER       writes them to the folder
#
# As root, the script installs the Debian packages with apt and removes them again. Otherwise, or if the machine has
# them already, it unpacks them instead.
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"

if [[ $# -gt 1 || ${1:-} == -* ]]; then
	fail "it takes a folder for the packages, or nothing"
fi
packages=$(realpath -m "${1:-$(dirname "$0")/../build/packages}")
cd "$(dirname "$0")/.."

Tools/install_packages.sh g++ clang cmake ninja-build pkg-config dpkg-dev file lintian

build=$PWD/build/package
compilers=(g++ clang++)
mkdir -p "$build"

# The step's output matters only when it fails.
step()
{
	printf '  %s\n' "$1"
	shift
	if ! "$@" >"$build/log" 2>&1; then
		cat "$build/log"
		printf 'package.sh: failed: %s\n' "$*" >&2
		exit 1
	fi
}

# Packages of one commit have the same dates, and so the same bytes.
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct 2>/dev/null || date +%s)
export SOURCE_DATE_EPOCH

# The shared libraries get the flags that a distribution builds everything with; the paths in reports stay the library's
# own.
debian_flags()
{
	DEB_BUILD_MAINT_OPTIONS="hardening=+all reproducible=-fixfilepath" dpkg-buildflags --get "$1"
}
make_packages()
{
	local kind=$1
	shift
	cmake -S . -B "$build/$kind" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=g++ -DBUILD_TESTING=OFF \
		-DVEXMOOR_BUILD_SAMPLES=OFF -DCMAKE_INSTALL_PREFIX=/usr "$@"
	cmake --build "$build/$kind"
	rm -f "$build/$kind"/*.tar.gz "$build/$kind"/*.deb
	(cd "$build/$kind" && cpack)
}

printf 'building\n'
step "static libraries" make_packages static-libraries -DBUILD_SHARED_LIBS=OFF -DCMAKE_INSTALL_LIBDIR=lib
step "shared libraries" make_packages shared-libraries -DBUILD_SHARED_LIBS=ON \
	-DCMAKE_CXX_FLAGS="$(debian_flags CPPFLAGS) $(debian_flags CXXFLAGS)" \
	-DCMAKE_SHARED_LINKER_FLAGS="$(debian_flags LDFLAGS)"
archives=("$build"/*-libraries/*.tar.gz)
debs=("$build"/shared-libraries/*.deb)

printf 'checking\n'
step "lintian" lintian --allow-root --fail-on error,warning "${debs[@]}"

printf 'building a program with\n'
try_prefix()
{
	local name=$1 prefix=$2 compiler
	for compiler in "${compilers[@]}"; do
		step "$name, $compiler" Tests/Consumers/try_prefix.sh "$prefix" "$compiler" "$build/program"
	done
}
rm -rf "$build/unpacked"
mkdir -p "$build/unpacked/debian"
for archive in "${archives[@]}"; do
	tar -xf "$archive" -C "$build/unpacked"
	name=$(basename "$archive" .tar.gz)
	try_prefix "$name" "$build/unpacked/$name"
done

names=()
for deb in "${debs[@]}"; do
	names+=("$(dpkg-deb --field "$deb" Package)")
done
if [ "$(id -u)" = 0 ] && ! dpkg-query --show "${names[@]}" >/dev/null 2>&1; then
	# Packages in a folder that only root may enter are not for the user that apt fetches with.
	apt=(env DEBIAN_FRONTEND=noninteractive apt-get -y -o DPkg::Lock::Timeout=600 -o APT::Sandbox::User=root)
	trap '"${apt[@]}" purge "${names[@]}" >/dev/null 2>&1' EXIT
	step "the Debian packages, by apt-get" "${apt[@]}" install --no-install-recommends "${debs[@]}"
	try_prefix "the Debian packages, installed" /usr
	trap - EXIT
	step "apt-get, to remove them" "${apt[@]}" purge "${names[@]}"
else
	for deb in "${debs[@]}"; do
		dpkg-deb -x "$deb" "$build/unpacked/debian"
	done
	try_prefix "the Debian packages, unpacked" "$build/unpacked/debian/usr"
fi

mkdir -p "$packages"
cp "${archives[@]}" "${debs[@]}" "$packages"
printf 'the packages are in %s:\n' "$packages"
for file in "${archives[@]}" "${debs[@]}"; do
	printf '  %7d bytes  %s\n' "$(stat -c %s "$file")" "$(basename "$file")"
done
