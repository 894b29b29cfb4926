#!/usr/bin/env bash
# Runs the viewer as a user does and looks at what it prints and writes.
#
#   viewer_test.sh VIEWER CASE      CASE: smoke, same_seed, index_types, debris, sparks,
#                                   tubes, rain, interleave, splats, packed, harmonics, bad_splat, points, colours,
#                                   wipe, trace, capture, captured, help or wrong_use
set -euo pipefail

viewer=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
figures=$folder/figures
complaint=$folder/complaint

fail()
{
	printf 'viewer_test.sh: %s\n' "$1" >&2
	[ ! -s "$figures" ] || cat "$figures" >&2
	[ ! -s "$complaint" ] || cat "$complaint" >&2
	exit 1
}

# A small run that has to succeed and say nothing on standard error.
run()
{
	"$viewer" --width 320 --height 180 --frames 3 "$@" >"$figures" 2>"$complaint" || fail "exit code $? of: $*"
	[ ! -s "$complaint" ] || fail "something on standard error of: $*"
}

# What stands after a word at the start of a line of the figures.
figure()
{
	sed -n "s/^$1 *//p" "$figures"
}

expect()
{
	awk "BEGIN { exit !($1) }" || fail "expected $1 ($2)"
}

mean_of()
{
	figure "$1" | awk '{ print $1 }'
}

expect_png()
{
	[ "$(head -c 8 "$1" | od -An -tx1 | tr -d ' \n')" = 89504e470d0a1a0a ] || fail "no PNG: $1"
}

# Every neighbour that is out of order has its cause, nothing was reported, and everything was drawn.
expect_sound()
{
	local unexplained
	unexplained=$(awk '/ unexplained$/ { rows += 1; sum += $1 } END { print rows + 0, sum + 0 }' "$figures")
	[ "$unexplained" = "$1 0" ] || fail "expected $1 explained pictures, got rows and sum $unexplained"
	grep -Eq '^assertions +(0|compiled out)$' "$figures" || fail "assertions were reported"
	! grep -q 'not every particle' "$figures" || fail "particles are missing"
}

expect_only()
{
	local expected
	expected=$(printf '%s\n' "$@" | sort)
	[ "$(ls -A "$folder/out")" = "$expected" ] || fail "unexpected files: $(ls -A "$folder/out")"
	for name in "$@"; do
		expect_png "$folder/out/$name"
	done
}

smoke()
{
	run --particles 20000 --out "$folder/out"
	expect_only by_position.png comparison.png sorted.png unsorted.png
	expect_sound 2
	expect "$(mean_of sorted.png) <= 0.05" "a sorted picture is the exact one, but for equal keys"
	expect "$(mean_of unsorted.png) >= 2" "an unsorted picture is plainly wrong"
	expect "$(mean_of by_position.png) >= 0.5" "mixed pages sorted by position are wrong too"
	[ "$(figure particles)" = 20,000 ] || fail "not as many particles as asked for"
	figure pages | grep -Eq '^[0-9]+, [1-9][0-9]* with disabled particles, [1-9][0-9]* empty$' || fail "pages"
	[ "$(figure 'slow paths')" = 0 ] || fail "slow paths were taken"
	# What is in all is the sum of what is above it, the computing of values too.
	awk '/^sort values|^fill|^sort  |^expansion/ { for (i = 1; i <= NF; ++i) if ($(i + 1) == "us") sum += $i; ++rows }
		/^in all/ { all = $3 } END { exit !(rows == 4 && all > sum - 0.5 && all < sum + 0.5) }' "$figures" ||
		fail "not the sum of all stages"
	figure 'whole frame' | grep -Eq '^[0-9.]+ us, [0-9.]+ a second: ' || fail "no figure of whole frames"
}

same_seed()
{
	run --particles 20000 --seed 7
	local first
	first=$(figure 'index hash')
	[ -n "$first" ] || fail "no hash"
	run --particles 20000 --seed 7 --width 64 --height 64
	[ "$(figure 'index hash')" = "$first" ] || fail "one seed, two hashes"
	run --particles 20000 --seed 7 --threads 3
	[ "$(figure 'index hash')" = "$first" ] || fail "three threads give other indices than one"
	[ "$(figure threads)" = 3 ] || fail "no word of the threads"
	run --particles 20000 --seed 8
	[ "$(figure 'index hash')" != "$first" ] || fail "two seeds, one hash"
}

index_types()
{
	run --particles 16000 --index-type 32
	local wide
	wide=$(figure 'index hash')
	run --particles 16000 --index-type 16
	figure 'draw calls' | grep -q '^1, 96,000 indices of 16 bits$' || fail "one draw call reaches 16,000 quads"
	[ "$(figure 'index hash')" = "$wide" ] || fail "16 and 32 bits give other orders"
	expect "$(mean_of sorted.png) <= 0.05" "16-bit indices"
	expect_sound 2
	run --particles 20000 --index-type 16
	figure 'draw calls' | grep -q '^2, 120,000 indices of 16 bits$' || fail "two draw calls reach 20,000 quads"
	expect_sound 2
}

# A scene draws everything, in the same order for the same seed, whatever the width of its indices.
sound_scene()
{
	local first pictures=$1
	shift
	run "$@"
	expect_sound "$pictures"
	first=$(figure 'index hash')
	run "$@" --index-type 16
	[ "$(figure 'index hash')" = "$first" ] || fail "16 and 32 bits give other orders"
	expect_sound "$pictures"
	run "$@" --seed 2
	[ "$(figure 'index hash')" != "$first" ] || fail "two seeds, one hash"
	run "$@" --out "$folder/out"
	[ "$(figure 'index hash')" = "$first" ] || fail "one seed, two hashes"
}

# One whose sorted picture is the exact one.
exact_scene()
{
	sound_scene 1 "$@"
	expect_only comparison.png sorted.png unsorted.png
	expect "$(mean_of sorted.png) <= 0.05" "a sorted picture is the exact one, but for equal keys"
	expect "$(mean_of unsorted.png) >= 2" "an unsorted picture is plainly wrong"
}

debris()
{
	exact_scene --scene debris
}

sparks()
{
	exact_scene --scene sparks
	figure pages | grep -Eq '^[0-9]+, [1-9][0-9]* with disabled particles' || fail "pages"
}

# Quads have their tube's key, and tubes come near each other: the exact answer, quad by quad, is a little different.
tubes()
{
	sound_scene 2 --scene tubes
	expect_only comparison.png sorted.png unsorted.png whole_tubes.png
	expect "$(mean_of sorted.png) < $(mean_of whole_tubes.png)" "the order of quads shows"
	expect "$(mean_of whole_tubes.png) < $(mean_of unsorted.png) / 2" "the order of tubes shows"
	grep -q 'Very slow tube quad sorter' "$figures" || fail "quads were not sorted"
}

rain()
{
	exact_scene --scene rain --particles 12000
	[ "$(figure particles)" = 12,000 ] || fail "not as many particles as asked for"
	figure pages | grep -Eq '^[0-9]+, [1-9][0-9]* with disabled particles' || fail "pages"
	"$viewer" --scene rain --particles 500 --width 16 --height 16 >"$figures"
	figure scene | grep -q '^rain, seed 1, 4 frames ' || fail "few frames of many drops by default"
}

interleave()
{
	run --scene interleave --out "$folder/out"
	expect_only comparison.png per_particle.png per_triangle.png
	expect_sound 2
	expect "$(mean_of per_triangle.png) <= 0.05" "triangles by their own depth are the exact answer"
	expect "$(mean_of per_particle.png) >= 2" "woven shards have no right order as wholes"
}

# The figures of a run, but for times.
same_figures()
{
	[ "$(sed '/^median/,/^$/d' "$1")" = "$(sed '/^median/,/^$/d' "$2")" ] || fail "$1 and $2 differ"
}

# A scene in all colours: its first picture is in a wrong order, its last in the right one.
colours_of()
{
	local wrong=$1 right=$2 colour
	shift 2
	for colour in light order overdraw error; do
		run --frames 1 --width 160 --height 90 --colour "$colour" --out "$folder/$colour" "$@"
		cp "$figures" "$folder/$colour.txt"
		same_figures "$folder/light.txt" "$folder/$colour.txt"
	done
	for colour in light order error; do
		! cmp -s "$folder/$colour/$wrong" "$folder/$colour/$right" || fail "one picture in two orders: $colour, $*"
	done
	cmp -s "$folder/overdraw/$wrong" "$folder/overdraw/$right" || fail "overdraw depends on the order: $*"
	for colour in order overdraw error; do
		! cmp -s "$folder/light/$right" "$folder/$colour/$right" || fail "light and $colour are the same: $*"
	done
}

colours()
{
	colours_of unsorted.png sorted.png --scene smoke --particles 2000
	colours_of unsorted.png sorted.png --scene debris --particles 400
	colours_of unsorted.png sorted.png --scene sparks --particles 1000
	colours_of unsorted.png sorted.png --scene tubes --particles 20
	colours_of unsorted.png sorted.png --scene rain --particles 2000
	colours_of per_particle.png per_triangle.png --scene interleave
}

# A number of columns of a wipe, from the given one on, without the caption above the picture.
columns_of()
{
	pngtopnm "$1" | pamcut -top $(($(pngtopnm "$1" | sed -n '2s/.* //p') - 90)) -left "$2" -width "$3"
}

# What lies left and right of the divider is what the pictures by themselves show there.
wipe()
{
	local kind options=(--particles 2000 --frames 1 --width 160 --height 90)
	for kind in unsorted frozen error; do
		run "${options[@]}" --wipe "$kind" --wipe-at 25 --out "$folder/$kind"
		expect_png "$folder/$kind/wipe.png"
	done
	# What short keys do shows where one point is far away, which the figures say too.
	cloud knot 5000 splat
	run "$folder/cloud" --width 160 --height 90 --wipe 16-bit --wipe-at 25 --out "$folder/16-bit"
	grep -q '^keys of 32 bits  worst backtrack 0 %, 0 of 12,497,500 pairs out of order$' "$figures" || fail "not exact"
	grep -q '^keys of 16 bits  worst backtrack 0.00[0-9]* %, ' "$figures" || fail "no few pairs out of order"
	rm -r "$folder/16-bit"
	run "$folder/cloud" --outlier 20000 --width 160 --height 90 --wipe 16-bit --wipe-at 25 --out "$folder/16-bit"
	figure source | grep -q '; a point added 20,000 radii away$' || fail "silent about the point that was added"
	[ "$(figure particles)" = 5,001 ] || fail "no point was added"
	grep -q '^keys of 32 bits  worst backtrack 0 %, 0 of 12,502,500 pairs out of order$' "$figures" || fail "not exact"
	grep -Eq '^keys of 16 bits  worst backtrack [1-9][0-9]* %, [0-9,]*,[0-9]{3} of ' "$figures" || fail "no many pairs"
	columns_of "$folder/unsorted/wipe.png" 0 38 >"$folder/left.ppm"
	columns_of "$folder/unsorted/unsorted.png" 0 38 | cmp -s - "$folder/left.ppm" || fail "unsorted is not on the left"
	for kind in unsorted frozen; do
		columns_of "$folder/$kind/wipe.png" 42 118 >"$folder/right.ppm"
		columns_of "$folder/$kind/sorted.png" 42 118 | cmp -s - "$folder/right.ppm" ||
			fail "$kind: not sorted on the right"
	done
	for kind in 16-bit error; do
		columns_of "$folder/$kind/wipe.png" 0 38 >"$folder/left.ppm"
		columns_of "$folder/$kind/sorted.png" 0 38 | cmp -s - "$folder/left.ppm" || fail "$kind: not sorted on the left"
		columns_of "$folder/$kind/wipe.png" 42 118 >"$folder/right.ppm"
		! columns_of "$folder/$kind/sorted.png" 42 118 | cmp -s - "$folder/right.ppm" ||
			fail "$kind: nothing on the right"
	done
	columns_of "$folder/frozen/wipe.png" 0 38 >"$folder/left.ppm"
	! columns_of "$folder/frozen/sorted.png" 0 38 | cmp -s - "$folder/left.ppm" || fail "frozen: nothing on the left"
}

trace()
{
	run --particles 2000 --trace "$folder/trace.json"
	[ "$(ls -A "$folder")" = "$(printf 'complaint\nfigures\ntrace.json')" ] ||
		fail "unexpected files: $(ls -A "$folder")"
	python3 - "$folder/trace.json" <<-'END' || fail "the trace is not what happened"
		import json, sys
		trace = json.load(open(sys.argv[1]))
		scopes = [event for event in trace["traceEvents"] if event["ph"] == "X"]
		starts = {}
		for scope in scopes:
		    starts.setdefault(scope["name"], []).append((scope["ts"], scope["ts"] + scope["dur"]))
		parts = ("Simulate", "Describe the frame", "Upload", "Sort and draw")
		for name in ("Frame", *parts, "Compute sort values", "Wait for index memory", "CTriangleSorter::Sort",
		        "ExpandIndices<u32>", "Draw"):
		    assert len(starts[name]) == 3, name
		    for inner, frame in zip(starts[name], starts["Frame"]):
		        assert frame[0] - 0.001 <= inner[0] <= inner[1] <= frame[1] + 0.001, name
		assert len(starts["Read indices back"]) == 3
		def total(*names): # the last indices are read back after the last frame
		    return sum(end - start for name in names for start, end in starts[name])
		readBack = total("Read indices back") - (starts["Read indices back"][2][1] - starts["Read indices back"][2][0])
		assert total(*parts) + readBack > 0.8 * total("Frame"), "what takes time has a name"
		assert trace["otherData"]["droppedScopes"] == 0
	END
}

# A replayed sort is the captured one, and a file that is not whole is refused.
capture()
{
	local scene bits captured=$folder/captured
	for scene in smoke debris sparks tubes interleave; do
		for bits in 16 32; do
			run --scene "$scene" --index-type "$bits" --frames 1 --capture "$captured"
			"$viewer" --replay "$captured" >"$figures" 2>"$complaint" || fail "exit code $? of a replay of $scene"
			[ ! -s "$complaint" ] || fail "a replay complains"
			[ "$(figure 'as recorded')" = "yes, every index" ] || fail "$scene, $bits bits: not as recorded"
			[ "$(figure 'broken rules')" = 0 ] || fail "$scene, $bits bits: broken rules"
		done
	done
	head -c -1 "$captured" >"$captured.short"
	refused --replay "$captured.short"
	refused --replay "$folder/nothing"
	refused --replay "$folder"
	refused --replay "$viewer"
}

# How many pixels of a picture have a colour, within some steps of each channel.
pixels_like()
{
	pngtopnm "$1" | tail -n +4 | od -An -v -tu1 -w3 |
		awk -v r="$2" -v g="$3" -v b="$4" '($1-r)^2 < 900 && ($2-g)^2 < 900 && ($3-b)^2 < 900 { ++n } END { print n+0 }'
}

# A captured draw call, named like a file, is looked at.
captured()
{
	local scene kept=$folder/kept look=(--width 200 --height 120 --out "$folder/out")
	for scene in smoke debris sparks tubes interleave; do
		run --scene "$scene" --frames 1 --capture "$kept"
		run "$kept" --out "$folder/out"
		expect_only comparison.png recorded.png sorted_here.png unsorted.png
		cmp -s "$folder/out/recorded.png" "$folder/out/sorted_here.png" || fail "$scene: not drawn as recorded"
		! cmp -s "$folder/out/recorded.png" "$folder/out/unsorted.png" || fail "$scene: drawn as in memory"
		[ "$(figure 'as recorded')" = "yes, every index" ] || fail "$scene: not as recorded"
		[ "$(pixels_like "$folder/out/recorded.png" 255 41 184)" = 0 ] || fail "$scene: something is lit"
		run "$kept" --first 0 --out "$folder/out"
		[ "$(pixels_like "$folder/out/recorded.png" 5 5 8)" = $((320 * 180)) ] || fail "$scene: the first 0 are some"
	done
	for shape in triangles quads points; do
		run "$kept" --shape $shape --out "$folder/$shape"
	done
	! cmp -s "$folder/points/recorded.png" "$folder/quads/recorded.png" || fail "points are quads"
	! cmp -s "$folder/triangles/recorded.png" "$folder/quads/recorded.png" || fail "triangles are quads"
	for colour in light overdraw; do
		run "$kept" --colour $colour --out "$folder/$colour"
		! cmp -s "$folder/$colour/recorded.png" "$folder/triangles/recorded.png" || fail "$colour is order"
	done

	# The last primitive of the host has other indices, of which one is that of no vertex.
	python3 "$(dirname "$0")/alter_capture.py" "$kept" -4 0xFFFFFFFF -8 1
	local code=0
	"$viewer" "$kept" "${look[@]}" >"$figures" 2>"$complaint" || code=$?
	[ "$code" = 1 ] || fail "exit code $code of a call that is not as recorded"
	grep -q '^    2 indices differ, in 1 primitive, lit. The first is at place ' "$figures" || fail "nothing differs"
	grep -q '1 primitive has indices that none of the call has, lit white' "$figures" || fail "nothing is lost"
	[ "$(pixels_like "$folder/out/sorted_here.png" 255 41 184)" -gt 0 ] || fail "the difference is not lit"
	[ "$(pixels_like "$folder/out/recorded.png" 255 41 184)" -gt 0 ] || fail "the lost one is not lit"

	# A call that breaks a rule: what it has, in grey.
	python3 "$(dirname "$0")/alter_capture.py" "$kept" 52 7
	code=0
	rm -r "$folder/out"
	"$viewer" "$kept" "${look[@]}" >"$figures" 2>"$complaint" || code=$?
	[ "$code" = 1 ] || fail "exit code $code of a call that breaks a rule"
	expect_only comparison.png unsorted.png
	[ "$(pixels_like "$folder/out/unsorted.png" 128 128 128)" -gt 100 ] || fail "its particles are not shown in grey"
	grep -q 'but the particle count is 7' "$figures" || fail "silent about the rule"
	rm -r "$folder/out"

	refused "${look[@]}" "$kept" --wipe unsorted
	refused "${look[@]}" "$kept" --particles 3
	refused "${look[@]}" "$kept" --sort-by x
	refused "${look[@]}" "$kept" --colour error
	refused "${look[@]}" "$kept" --first x
	refused "${look[@]}" "$kept" --shape round
	refused "${look[@]}" --first 3
	refused "${look[@]}" --shape quads
	head -c -1 "$kept" >"$kept.short"
	refused "${look[@]}" "$kept.short"
	grep -q 'kept.short. cannot be shown. The file is damaged' "$complaint" || fail "not what is damaged"
}

# A file that make_cloud, which lies beside the viewer, has written.
cloud()
{
	"$(dirname "$viewer")/make_cloud" "$@" "$folder/cloud"
}

splats()
{
	cloud knot 20000 splat-ply
	run "$folder/cloud" --out "$folder/out"
	expect_only comparison.png sorted.png unsorted.png
	expect_sound 1
	expect "$(mean_of sorted.png) <= 0.05" "a sorted picture is the exact one, but for equal keys"
	expect "$(mean_of unsorted.png) >= 2" "an unsorted picture is plainly wrong"
	figure 'draw calls' | grep -q '^1, 20,000 indices of 32 bits$' || fail "not an index per splat"
	local first
	first=$(figure 'index hash')
	run --index-type 16 "$folder/cloud"
	[ "$(figure 'index hash')" = "$first" ] || fail "16 and 32 bits give other orders"
	cloud knot 20000 splat
	run "$folder/cloud"
	[ "$(figure 'index hash')" = "$first" ] || fail "the same splats in another format, another order"
	for colour in order overdraw error; do
		run "$folder/cloud" --color $colour
	done
	run "$folder/cloud" --particles 500
	[ "$(figure particles)" = 500 ] || fail "not as many splats as asked for"
	for option in --ply --splat; do
		run $option "$folder/cloud"
		[ "$(figure 'index hash')" = "$first" ] || fail "$option opens another file"
	done
}

# Each packed format, with spherical harmonics, is told by its content and drawn whole.
packed()
{
	local format
	for format in packed-ply spz sog; do
		"$(dirname "$viewer")/make_cloud" knot 5000 $format "$folder/cloud" 3
		run "$folder/cloud"
		[ "$(figure particles)" = 5,000 ] || fail "not all splats of $format"
		expect_sound 1
		expect "$(mean_of sorted.png) <= 0.05" "a sorted picture is the exact one, but for equal keys"
		run "$folder/cloud" --sort-by alpha
		figure sorted.png | awk '{ exit !($5 == 0) }' || fail "not in order of the property: $format"
		head -c 1000 "$folder/cloud" >"$folder/cut"
		refused "$folder/cut"
	done
	"$(dirname "$viewer")/make_cloud" knot 100 ascii "$folder/cloud"
	gzip "$folder/cloud"
	refused "$folder/cloud.gz"
	grep -q 'other files that gzip has packed are not read' "$complaint" || fail "not what else it is"
}

# A large splat in the middle of the picture, whose coefficients are drawn by lot: its colour is that of the formulas,
# which this computes from Legendre's polynomials, for the camera's first frame and half a turn later.
harmonics()
{
	local degree frames
	for degree in 1 2 3; do
		for frames in 1 121; do
			python3 - "$folder/cloud" $degree $frames >"$folder/expected" <<-'END'
				import math, random, struct, sys
				path, degree, frames = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
				count = (degree + 1) ** 2 - 1
				random.seed(degree)
				rest = [random.uniform(-0.3, 0.3) for _ in range(3 * count)]
				names = "x y z f_dc_0 f_dc_1 f_dc_2 opacity scale_0 scale_1 scale_2 rot_0 rot_1 rot_2 rot_3".split()
				names += ["f_rest_%d" % i for i in range(3 * count)]
				header = "ply\nformat binary_little_endian 1.0\nelement vertex 3\n"
				header += "".join("property float %s\n" % name for name in names) + "end_header\n"
				with open(path, "wb") as file:
				    file.write(header.encode())
				    # From the front, the file's order is wrong.
				    for z, size, opacity in ((0, -1, 12), (1, -9, -9), (-1, -9, -9)):
				        numbers = [0, 0, z, 0, 0, 0, opacity, size, size, size, 1, 0, 0, 0] + rest
				        file.write(struct.pack("<%df" % len(numbers), *numbers))

				def legendre(l, m, x):
				    before, value = 0.0, math.prod(-(2 * i - 1) * math.sqrt(1 - x * x) for i in range(1, m + 1))
				    for i in range(m + 1, l + 1):
				        before, value = value, ((2 * i - 1) * x * value - (i + m - 1) * before) / (i - m)
				    return value

				def harmonic(l, m, theta, phi):
				    order = abs(m)
				    share = math.factorial(l - order) / math.factorial(l + order)
				    length = math.sqrt((2 * l + 1) / (4 * math.pi) * share)
				    around = math.sqrt(2) * (math.sin(order * phi) if m < 0 else math.cos(order * phi)) if m else 1.0
				    return length * legendre(l, order, math.cos(theta)) * around

				turn = 2 * math.pi * frames / 240  # of the camera, from the z axis on; it looks down a little
				x, y, z = -math.sin(turn), -0.38, -math.cos(turn)
				theta, phi = math.acos(z / math.hypot(x, y, z)), math.atan2(y, x)
				basis = [harmonic(l, m, theta, phi) for l in range(1, degree + 1) for m in range(-l, l + 1)]
				for channel in range(3):
				    colour = 0.5 + sum(a * b for a, b in zip(basis, rest[channel * count:]))
				    print(round(255 * min(max(colour, 0), 1)))
			END
			run "$folder/cloud" --up y --frames $frames --out "$folder/out"
			pngtopnm "$folder/out/sorted.png" | pamcut -left 160 -top 90 -width 1 -height 1 | tail -c 3 |
				od -An -tu1 | tr -s ' ' '\n' | sed '/^$/d' >"$folder/found"
			paste "$folder/expected" "$folder/found" |
				awk '{ if ($1 - $2 > 2 || $2 - $1 > 2) bad = 1 } END { exit bad || NR != 3 }' ||
				fail "degree $degree, $frames frames: not the colour of the formulas: $(
					paste -sd' ' "$folder/expected" "$folder/found"
				)"
		done
	done
}

# A splat without a place among many: the file is refused, and with --skip-bad shown without it.
bad_splat()
{
	cloud knot 2000 splat
	printf '\0\0\300\177' | dd of="$folder/cloud" bs=1 seek=$((32 * 70 + 4)) conv=notrunc status=none
	refused "$folder/cloud"
	grep -q "byte 2,240: splat 70 has no finite 'y'; --skip-bad leaves such points out.$" "$complaint" ||
		fail "not the place and the way out"
	run --skip-bad "$folder/cloud"
	[ "$(figure particles)" = 1,999 ] || fail "not all others are shown"
	figure source | grep -q "; left out: 1 of 2,000, the first at byte 2,240: splat 70 has no finite 'y'$" ||
		fail "silent about what was left out"
	expect_sound 1
}

points()
{
	cloud galaxy 20000 ascii
	run "$folder/cloud"
	expect_sound 1
	expect "$(mean_of sorted.png) <= 0.05" "a sorted picture is the exact one, but for equal keys"
	expect "$(mean_of unsorted.png) >= 1" "an unsorted picture is plainly wrong"
	local first
	first=$(figure 'index hash')
	for format in little big; do
		cloud galaxy 20000 $format
		run "$folder/cloud"
		[ "$(figure 'index hash')" = "$first" ] || fail "the same points in another format, another order"
	done
	run "$folder/cloud" --sort-by age
	[ "$(figure 'index hash')" != "$first" ] || fail "sorted by a property, the order of distance"
	expect_sound 1
	figure unsorted.png | awk '{ exit !($5 > 0) }' || fail "the file lies in order of the property already"
	figure sorted.png | awk '{ exit !($5 == 0) }' || fail "not in order of the property"
}

help()
{
	"$viewer" --help >"$figures" 2>"$complaint" || fail "--help fails"
	[ ! -s "$complaint" ] || fail "--help complains"
	for option in --scene FILE --ply --splat --sort-by --up --skip-bad --color --particles \
		--frames --seed --width --height --index-type --threads --colour --wipe --wipe-at \
		--first --shape --outlier --out --trace --capture --replay --window --help; do
		grep -q -- "$option" "$figures" || fail "--help is silent about $option"
	done
}

# Exit code 2, one sentence on standard error, nothing on standard output, nothing on disk.
refused()
{
	local code=0
	"$viewer" "$@" >"$figures" 2>"$complaint" || code=$?
	[ "$code" = 2 ] || fail "exit code $code of: $*"
	[ ! -s "$figures" ] || fail "something on standard output of: $*"
	[ "$(wc -l <"$complaint")" = 1 ] || fail "not one line on standard error of: $*"
	grep -Eq '^particle_viewer: [^ ].*\.$' "$complaint" || fail "no sentence on standard error of: $*"
	[ ! -e "$folder/out" ] || fail "something on disk after: $*"
}

wrong_use()
{
	local out=(--out "$folder/out/deeper")
	refused "${out[@]}" --unknown
	refused "${out[@]}" stray
	refused "${out[@]}" --particles 0
	refused "${out[@]}" --particles -1
	refused "${out[@]}" --particles 4000000000
	refused "${out[@]}" --particles 99999999999999999999
	refused "${out[@]}" --particles 1e5
	refused "${out[@]}" --particles ''
	refused "${out[@]}" --particles
	refused "${out[@]}" --frames 0
	refused "${out[@]}" --frames many
	refused "${out[@]}" --seed -1
	refused "${out[@]}" --width 0
	refused "${out[@]}" --height 100000
	refused "${out[@]}" --index-type 17
	refused "${out[@]}" --wipe sideways
	refused "${out[@]}" --wipe-at 101
	refused "${out[@]}" --up w
	refused "${out[@]}" --up ''
	refused "${out[@]}" --threads 0
	refused "${out[@]}" --threads 257
	refused "${out[@]}" --colour blue
	refused "${out[@]}" --colour ''
	refused "${out[@]}" --scene fog
	refused --out ''
	refused "${out[@]}" --trace ''
	refused "${out[@]}" --capture ''
	refused "${out[@]}" --trace "$folder"
	refused "${out[@]}" --capture /proc/capture
	refused --replay ''
	refused --out /dev/null
	refused --out /dev/null/pictures
	refused --out /proc/pictures
	refused "${out[@]}" --sort-by x
	refused "${out[@]}" --skip-bad
	refused "${out[@]}" --outlier 100
	refused "${out[@]}" "$folder/cloud" --outlier 0
	refused "${out[@]}" ''
	refused "${out[@]}" --ply ''
	refused "${out[@]}" --ply
	refused "${out[@]}" "$folder/missing.ply"
	refused "${out[@]}" "$folder"
	refused "${out[@]}" /dev/null
	printf 'a text\n' >"$folder/cloud"
	refused "${out[@]}" "$folder/cloud"
	cloud knot 100 little
	refused "${out[@]}" "$folder/cloud" --sort-by nothing
	refused "${out[@]}" "$folder/cloud" --scene smoke
	refused "${out[@]}" "$folder/cloud" "$folder/cloud"
	refused "${out[@]}" --ply "$folder/cloud" --splat "$folder/cloud"
	refused "${out[@]}" "$folder/cloud" --particles 101
	truncate -s -1 "$folder/cloud"
	refused "${out[@]}" "$folder/cloud"
	__EGL_VENDOR_LIBRARY_FILENAMES=/nonexistent refused "${out[@]}"
	refused "${out[@]}" --scene interleave --particles 100 --index-type 16 --frames 1
	refused "${out[@]}" --scene tubes --particles 3000 --index-type 16 --frames 1
	refused "${out[@]}" --scene sparks --particles 40000 --index-type 16 --frames 1
}

case ${2:-} in
smoke | same_seed | index_types | debris | sparks | tubes | rain | interleave | splats | packed | harmonics | \
	bad_splat | points | colours) "$2" ;;
wipe | trace | capture | captured | help | wrong_use) "$2" ;;
*) fail "there is no case '${2:-}'" ;;
esac
