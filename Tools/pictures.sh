#!/usr/bin/env bash
# Draws the pictures of Docs/images again. With the same graphics driver they are the same, to the byte.
set -euo pipefail
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
