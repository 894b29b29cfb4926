#!/usr/bin/env bash
# Installs what is missing, builds particle_viewer, and runs it. Without options, it draws a smoke plume, unsorted and
# sorted, into pictures in out/.
#
#   ./Tools/demo.sh                     draws the smoke plume
#   ./Tools/demo.sh --window            shows it in a window, where you can turn it and change how it is sorted
#   ./Tools/demo.sh --scene debris      passes any options on to particle_viewer
#   ./Tools/demo.sh --help              builds particle_viewer as well, and lists its options
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
[[ " $* " != *" --help "* ]] || print_usage
cd "$(dirname "$0")/.."

Tools/install_packages.sh g++ cmake ninja-build pkg-config libepoxy-dev libegl-dev libegl-mesa0 libgl1-mesa-dri \
	libstb-dev libcli11-dev libglfw3-dev libimgui-dev libglx-mesa0 fonts-dejavu-core zlib1g-dev libzip-dev libwebp-dev \
	nlohmann-json3-dev

# The output of a build is shown only if the build fails.
log=$(mktemp)
trap 'rm -f "$log"' EXIT
quietly()
{
	"$@" >"$log" 2>&1 && return
	cat "$log" >&2
	exit 1
}

# A build tree of its own: it has no tests, and needs nothing that only they do.
printf 'Building in build/demo ...\n' >&2
quietly cmake --preset release -B build/demo -DVEXMOOR_BUILD_SAMPLES=ON -DBUILD_TESTING=OFF
quietly cmake --build build/demo --target particle_viewer

status=0 # 1 if a captured call is not as recorded; then there are pictures as well
build/demo/Samples/particle_viewer/particle_viewer --out out "$@" || status=$?
pictures=$(find "$PWD/out" -name '*.png' -newer "$log" 2>/dev/null | sort)
[ -z "$pictures" ] || printf '\nThe pictures:\n%s\n' "$pictures"
exit $status
