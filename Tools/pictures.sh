#!/usr/bin/env bash
# Draws the pictures of Docs/images again, except that of the page in a browser, which ./Tools/web.sh --picture takes.
# With the same graphics driver, the files have the same bytes.
#
#   ./Tools/pictures.sh
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"
[ $# = 0 ] || fail "it takes no arguments, unlike \"$1\""
cd "$(dirname "$0")/.."

# name, scene, and further options of particle_viewer
draw()
{
	local name=$1 scene=$2
	Tools/demo.sh --scene "$scene" "${@:3}" --out "build/pictures/$name"
	cp "build/pictures/$name/comparison.png" "Docs/images/$name.png"
}

small=(--width 320 --height 200)
draw comparison smoke --width 400 --height 225
draw smoke_order smoke "${small[@]}" --colour order
draw interleave interleave "${small[@]}"
draw sparks sparks "${small[@]}"
draw tubes tubes "${small[@]}"

# Short keys, where one splat is far away.
viewer=build/demo/Samples/particle_viewer
cmake --build build/demo --target make_cloud >build/pictures/make_cloud.log
"$viewer/make_cloud" knot 100000 splat build/pictures/large_knot.splat
"$viewer/particle_viewer" build/pictures/large_knot.splat --frames 1 --wipe 16-bit --outlier 50000 \
	--out build/pictures/short_keys >build/pictures/short_keys.txt
cp build/pictures/short_keys/wipe.png Docs/images/short_keys.png

# A captured call in the window, whose host has overwritten some of its indices.
capture=build/pictures/knot.capture
Tools/install_packages.sh xvfb xauth python3
"$viewer/make_cloud" knot 6000 splat build/pictures/knot.splat
"$viewer/particle_viewer" build/pictures/knot.splat --frames 1 --capture "$capture" >build/pictures/capture.txt
changes=(-2000 99999)
for i in {1..24}; do
	changes+=($((-480 * i - i * i * 52 % 400 / 4 * 4)) $((i * 211)))
done
Samples/particle_viewer/tests/alter_capture.py "$capture" "${changes[@]}"
xvfb-run -a -s '-screen 0 1280x800x24' "$viewer/particle_viewer" "$capture" --window --frames 1 --first 5400 \
	--width 700 --height 640 --out build/pictures/capture
cp build/pictures/capture/window_1.png Docs/images/capture.png
