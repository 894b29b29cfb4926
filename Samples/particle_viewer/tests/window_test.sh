#!/usr/bin/env bash
# Uses the viewer's window as a user does, with keys and clicks on a virtual display, and looks at its pictures.
#
#   window_test.sh VIEWER CASE      CASE: picture, keys, mouse, frozen, output, wipe, scenes, drop, captured or refused
set -euo pipefail

viewer=$1
folder=$(mktemp -d)
out=$folder/out
complaint=$folder/complaint
width=240 # of the picture; the panel is to its right
height=180
patience=80 # seconds for anything to happen, on a busy machine that draws in software
display=
process=
shots=0

cleanup()
{
	[ -z "$process" ] || kill "$process" 2>/dev/null || true
	[ -z "$display" ] || kill "$display" 2>/dev/null || true
	wait
	rm -rf "$folder"
}
trap cleanup EXIT

fail()
{
	printf 'window_test.sh: %s\n' "$1" >&2
	[ ! -s "$complaint" ] || cat "$complaint" >&2
	exit 1
}

# Tries a command until it succeeds.
await()
{
	local what=$1 end=$((SECONDS + patience))
	shift
	until "$@" >/dev/null 2>&1; do
		[ "$SECONDS" -lt "$end" ] || fail "waited in vain for $what"
		[ -z "$process" ] || kill -0 "$process" 2>/dev/null || fail "the viewer ended before $what"
		sleep 0.1
	done
}

# The server chooses a number that is free, so that tests run side by side. It must not start anew, and turn clients
# away meanwhile, when the one client that there is leaves.
open_display()
{
	Xvfb -displayfd 3 -screen 0 1000x800x24 -nolisten tcp -noreset 3>"$folder/display" >/dev/null 2>&1 &
	display=$!
	await "the virtual display" test -s "$folder/display"
	DISPLAY=:$(cat "$folder/display")
	export DISPLAY
	await "an answer of the virtual display" xdotool getdisplaygeometry
}

find_window()
{
	window=$(xdotool search --name '^particle_viewer: ' | head -n 1)
	[ -n "$window" ]
}

has_title()
{
	xdotool getwindowname "$window" | grep -Eq -- "$1"
}

# Opens the viewer with the options given, and waits until the scene plays.
open_viewer()
{
	open_display
	"$viewer" --window --width "$width" --height "$height" --particles 2000 --out "$out" "$@" 2>"$complaint" &
	process=$!
	await "a window" find_window
	await "the scene" has_title 'playing$'
	xdotool windowfocus --sync "$window"
}

keys()
{
	local key
	for key in "$@"; do
		xdotool key "$key"
	done
}

# Has the viewer write what it shows, and names the picture in $picture.
shoot()
{
	shots=$((shots + 1))
	keys F12
	await "picture $shots" test -s "$out/window_$shots.png"
	picture=$out/picture_$shots.png
}

pause()
{
	keys space
	await "a pause" has_title 'paused$'
}

expect_same()
{
	cmp -s "$1" "$2" || fail "$3"
}

expect_other()
{
	! cmp -s "$1" "$2" || fail "$3"
}

# Escape ends the viewer, and it has nothing to complain of.
close_viewer()
{
	keys Escape
	wait "$process" || fail "exit code $? at the end"
	process=
	[ ! -s "$complaint" ] || fail "something on standard error"
}

# The window shows what a run without it writes, to the pixel.
picture()
{
	local options=(--width "$width" --height "$height" --particles 2000 --frames 3)
	"$viewer" "${options[@]}" --out "$folder/headless" >/dev/null
	open_display
	"$viewer" --window "${options[@]}" --out "$out" 2>"$complaint" || fail "exit code $?"
	[ ! -s "$complaint" ] || fail "something on standard error"
	[ "$(ls "$out")" = $'picture_1.png\nwindow_1.png' ] || fail "unexpected files: $(ls "$out")"
	expect_same "$out/picture_1.png" "$folder/headless/sorted.png" "the window draws another picture"
	pngtopnm "$out/picture_1.png" >"$folder/drawn.ppm"
	pngtopnm "$out/window_1.png" | pamcut -left 0 -top 0 -width "$width" -height "$height" >"$folder/shown.ppm"
	expect_same "$folder/drawn.ppm" "$folder/shown.ppm" "the window does not show what it draws"
}

keyboard()
{
	open_viewer --particles 16000 # as many as 16-bit indices reach in one draw call, in pages of both kinds
	pause
	shoot
	local sorted=$picture
	sleep 1
	shoot
	expect_same "$sorted" "$picture" "a paused picture changes"
	keys s
	await "no sorting" has_title 'unsorted, paused$'
	shoot
	expect_other "$sorted" "$picture" "unsorted looks like sorted"
	keys s
	await "sorting" has_title 'sorted by value, paused$'
	shoot
	expect_same "$sorted" "$picture" "sorted again looks other than before"
	keys i
	shoot
	expect_same "$sorted" "$picture" "16-bit indices draw another picture"
	keys i o
	await "another order" has_title 'by position'
	shoot
	expect_other "$sorted" "$picture" "mixed pages sorted by position look sorted"
	keys o c
	shoot
	expect_other "$sorted" "$picture" "colours of the order look like light"
	keys c c n
	shoot
	expect_other "$sorted" "$picture" "a step changes nothing"
	close_viewer
}

mouse()
{
	open_viewer
	pause
	shoot
	local before=$picture
	# The second row of buttons, on the left: 14 + 32 + 7 below the top, 32 high.
	xdotool mousemove --window "$window" $((width + 90)) 69 click 1
	await "the button's effect" has_title 'unsorted, paused$'
	shoot
	expect_other "$before" "$picture" "unsorted looks like sorted"
	xdotool mousemove --window "$window" $((width + 90)) 69 click 1
	await "the button's effect" has_title 'sorted by value, paused$'

	drag 60 "$before" "dragging does not turn the camera"
	keys Home
	shoot
	expect_same "$before" "$picture" "the camera is not where it was"
	xdotool mousemove --window "$window" 100 100 click 4
	await "a nearer picture" shows_other_than "$before"
	xdotool windowsize --sync "$window" 700 300
	await "a picture of another size" shows_size 420 300
	close_viewer
}

shows_size()
{
	shoot
	[ "$(pngtopnm "$picture" | sed -n 2p)" = "$1 $2" ]
}

shows_other_than()
{
	shoot
	! cmp -s "$1" "$picture"
}

# However slowly frames follow each other, the button is down in two of them at last.
#
#   drag COLUMN PICTURE COMPLAINT      from that column on, until something else than the picture is shown
drag()
{
	xdotool mousemove --window "$window" "$1" 100 mousedown 1
	local end=$((SECONDS + patience))
	until shows_other_than "$2"; do
		[ "$SECONDS" -lt "$end" ] || fail "$3"
		xdotool mousemove_relative 5 0
	done
	xdotool mouseup 1
}

frozen()
{
	local turn=(Right Right Right Right Right Right Right Right Right)
	open_viewer
	pause
	shoot
	local before=$picture
	keys "${turn[@]}"
	shoot
	local turned=$picture
	expect_other "$before" "$turned" "the arrow keys do not turn the camera"
	keys Home f
	await "a frozen order" has_title 'frozen, paused$'
	shoot
	expect_same "$before" "$picture" "freezing changes the picture where nothing has moved"
	keys "${turn[@]}"
	shoot
	expect_other "$turned" "$picture" "a frozen order follows the camera"
	keys f
	await "a free order" has_title 'sorted by value, paused$'
	shoot
	expect_same "$turned" "$picture" "the order is not right after the thaw"
	close_viewer
}

output()
{
	open_viewer
	pause
	shoot
	local whole=$picture
	keys bracketleft bracketleft bracketleft bracketleft
	shoot
	expect_other "$whole" "$picture" "nothing is lost in a small output"
	keys bracketright bracketright bracketright bracketright m
	shoot
	expect_same "$whole" "$picture" "an output off a vector's boundary draws another picture"
	close_viewer
}

# The divider is dragged, and the camera stays where it is.
wipe()
{
	open_viewer
	pause
	shoot
	local before=$picture
	keys w
	await "a wipe" has_title 'unsorted \| sorted by value, paused$'
	shoot
	expect_other "$before" "$picture" "nothing is unsorted on the left"
	drag $((width / 2)) "$picture" "dragging does not move the divider"
	keys w
	await "the next wipe" has_title 'sorted for another camera \| sorted for this one, paused$'
	keys w w w
	await "no wipe" has_title 'smoke, sorted by value, paused$'
	shoot
	expect_same "$before" "$picture" "the wipe has moved the camera"
	close_viewer
}

scenes()
{
	open_viewer
	keys Tab
	await "the next scene" has_title '^particle_viewer: debris, .*playing$'
	close_viewer
}

# A file dropped on the window is shown; one that is none leaves what is shown.
drop()
{
	"$(dirname "$viewer")/make_cloud" knot 2000 spz "$folder/knot"
	printf 'a text\n' >"$folder/text"
	open_viewer
	/usr/bin/python3 "$(dirname "$0")/drop_file.py" "$window" "$folder/knot"
	await "the file" has_title '^particle_viewer: splats, .*playing$'
	/usr/bin/python3 "$(dirname "$0")/drop_file.py" "$window" "$folder/text"
	pause
	has_title '^particle_viewer: splats, ' || fail "no file, and no splats any more"
	close_viewer
}

# A captured call dropped on the window is looked at, and a scene plays again after it.
captured()
{
	"$viewer" --scene interleave --frames 1 --capture "$folder/kept" >/dev/null
	open_viewer
	/usr/bin/python3 "$(dirname "$0")/drop_file.py" "$window" "$folder/kept"
	await "the call" has_title '^particle_viewer: capture, as recorded, paused$'
	shoot
	local all=$picture
	keys j
	shoot
	expect_other "$all" "$picture" "a hundredth less looks like all"
	keys l g
	shoot
	expect_other "$all" "$picture" "quads look like triangles"
	keys g g o
	await "the other output" has_title '^particle_viewer: capture, as sorted here, paused$'
	shoot
	expect_same "$all" "$picture" "sorted here is not as recorded"
	keys Right
	shoot
	expect_other "$all" "$picture" "the camera does not turn"
	keys Home s
	await "the order of memory" has_title '^particle_viewer: capture, unsorted, paused$'
	shoot
	expect_other "$all" "$picture" "unsorted looks like sorted"
	keys s w f i m Tab Tab # what is about sorting is none of a capture's
	await "a scene" has_title '^particle_viewer: debris, sorted.* playing$'
	close_viewer
}

# Exit code 2 and one sentence on standard error.
expect_refused()
{
	local code=0
	"$viewer" --window "$@" >"$folder/figures" 2>"$complaint" || code=$?
	[ "$code" = 2 ] || fail "exit code $code of: $*"
	[ ! -s "$folder/figures" ] || fail "something on standard output of: $*"
	[ "$(wc -l <"$complaint")" = 1 ] || fail "not one line on standard error of: $*"
	grep -Eq '^particle_viewer: [^ ].*\.$' "$complaint" || fail "no sentence on standard error of: $*"
	[ ! -e "$out" ] || fail "something on disk after: $*"
}

refused()
{
	unset DISPLAY WAYLAND_DISPLAY
	expect_refused --out "$out/deeper"
	grep -q 'no display' "$complaint" || fail "no word of the display"
	expect_refused --out "$out/deeper" --frames 0
	expect_refused --out /dev/null
	expect_refused --colour error
	expect_refused --trace "$out"
	expect_refused --capture "$out"
	expect_refused --replay "$out"
	DISPLAY=:nowhere expect_refused
}

case ${2:-} in
keys) keyboard ;;
picture | mouse | frozen | output | wipe | scenes | drop | captured | refused) "$2" ;;
*) fail "there is no case '${2:-}'" ;;
esac
