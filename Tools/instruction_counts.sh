#!/usr/bin/env bash
# Counts the instructions that the library executes in fixed calls and compares them with the recorded counts. A case
# that takes over 3 % more fails. Unlike a time, a count is the same on a busy machine and on another processor.
#
#   ./Tools/instruction_counts.sh             counts and compares
#   ./Tools/instruction_counts.sh --record    counts and records, for a commit that says why the counts changed
#
# Only the code of the program, which contains the library, is counted. The C library's is not, because how it fills and
# copies memory depends on the processor. On x86-64, Callgrind counts inside the measured calls. The library is limited
# to 128-bit lanes there. If the processor has 256-bit lanes, some cases are counted with these as well. On AArch64, an
# emulator logs what it executes.
#
# Flags are fixed. With another version of a compiler than the recorded one, counts mean nothing, so the script says so
# and does not compare.
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"
cd "$(dirname "$0")/.."

mode=${1:-}
case "$mode" in
"" | --record) ;;
*)
	fail "there is no option \"$mode\"; the one option is: --record"
	;;
esac

Tools/install_packages.sh g++ valgrind python3 g++-aarch64-linux-gnu qemu-user

tests=Tests/InstructionCounts
build=build/instruction-counts
rm -rf "$build"
mkdir -p "$build/include"
ln -s /usr/include/valgrind "$build/include/valgrind" # headers alone, without the rest of this machine's

# Here and below, what distributions set differently is said as well.
flags=(
	-std=c++17 -O3 -DNDEBUG -mtune=generic -fno-stack-protector -fno-pie -no-pie -isystem "$build/include"
	-I Runtime/include -I Runtime/vx_maths/include -I Runtime/vx_kernel/include -I Runtime/vx_geometrics/include
)
mapfile -t sources < <(find Runtime $tests -name '*.cpp' | sort)

# Each of these two writes the compiler's version and a line per case.

count_on_x86_64()
{
	local program=$build/counted_calls dumps
	g++ "${flags[@]}" -march=x86-64 -fcf-protection=none "${sources[@]}" -o "$program"

	# A dump per case, called out.1 and on.
	valgrind -q --tool=callgrind --collect-atstart=no --compress-strings=no --compress-pos=no \
		--callgrind-out-file="$build/out" "$program" >/dev/null

	# What a function executed itself is on lines of a position and a count. The line after a "calls=" has what its
	# callee executed, which is on the callee's own lines.
	mapfile -t dumps < <(find "$build" -name 'out.*' | sort -V)
	printf 'compiler %s\n' "$(g++ -dumpfullversion)"
	awk -v program="ob=$PWD/$program" '
		/^desc: Trigger: Client Request: / { names[++cases] = $NF }
		/^ob=/ { own = $0 == program }
		/^calls=/ { getline; next }
		/^[0-9]/ && own { counts[cases] += $2 }
		END { for (i = 1; i <= cases; ++i) print names[i], counts[i] + 0 }
	' "${dumps[@]}"
}

# The log has a line per instruction, at whose end is its function. It covers the program, which lies from 4 MB on, but
# no library. The names of the cases, in order, are what the program itself writes.
count_on_aarch64()
{
	local program=$build/counted_calls_aarch64
	aarch64-linux-gnu-g++ "${flags[@]}" -march=armv8-a -mno-outline-atomics "${sources[@]}" -o "$program"
	printf 'compiler %s\n' "$(aarch64-linux-gnu-g++ -dumpfullversion)"
	qemu-aarch64 -L /usr/aarch64-linux-gnu -singlestep -d nochain,exec -dfilter 0x400000+0x400000 "$program" \
		2>&1 >"$build/names" | awk -v names="$build/names" '
		!/^Trace / { print > "/dev/stderr"; next }
		$NF == "ToggleCounting" { toggles = 1; next }
		toggles { toggles = 0; counting = !counting; cases += counting }
		counting { ++counts[cases] }
		END { for (i = 1; i <= cases; ++i) { getline name < names; print name "_aarch64", counts[i] + 0 } }
	'
}

count_on_x86_64 >"$build/counts"
count_on_aarch64 >"$build/counts_aarch64"

if [ "$mode" != --record ]; then
	failures=0
	for counts in counts counts_aarch64; do
		python3 $tests/compare.py $tests/recorded_$counts.txt "$build/$counts" || failures=1
	done
	exit $failures
fi
for counts in counts counts_aarch64; do
	python3 $tests/compare.py "$build/$counts" "$build/$counts" >"$build/log" # every line is a count
done
if ! grep -q _avx2 "$build/counts"; then
	printf 'instruction_counts.sh: not recorded: %s\n' \
		'this processor has no AVX2, and the cases with 256-bit lanes would go' >&2
	exit 1
fi
for counts in counts counts_aarch64; do
	cp "$build/$counts" "$tests/recorded_$counts.txt"
	cat "$tests/recorded_$counts.txt"
done
