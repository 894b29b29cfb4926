#!/usr/bin/env bash
# Counts the instructions that the library executes in fixed calls and compares them with the recorded counts: a case that
# takes over 3 % more fails. A count is the same on a busy machine and on another processor, which a time is not.
#
#   ./Tools/instruction_counts.sh             counts and compares
#   ./Tools/instruction_counts.sh --record    counts and records, which is for a commit that says why they changed
#
# Callgrind counts inside the measured calls. Only the program's own code counts, which has the library in it: how the C
# library fills and copies memory depends on the processor. The library is held to 128-bit lanes, and a few cases with
# 256-bit ones come on top where the processor has them. Flags are fixed, and so is the compiler's version: another one
# counts differently, and is told so instead of compared.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=${1:-}
case "$mode" in
"" | --record) ;;
*)
	printf 'instruction_counts.sh: there is no option "%s"; the one option is: --record\n' "$mode" >&2
	exit 2
	;;
esac

Tools/install_packages.sh g++ valgrind python3

tests=Tests/InstructionCounts
build=build/instruction-counts
rm -rf "$build"
mkdir -p "$build"

# The last three are what distributions set differently.
flags=(
	-std=c++17 -O3 -DNDEBUG -march=x86-64 -mtune=generic -fcf-protection=none -fno-stack-protector -fno-pie
	-I Runtime/include -I Runtime/vx_maths/include -I Runtime/vx_kernel/include -I Runtime/vx_geometrics/include
)
mapfile -t sources < <(find Runtime $tests -name '*.cpp' | sort)
g++ "${flags[@]}" -no-pie "${sources[@]}" -o "$build/counted_calls"

# A dump per case, called out.1 and on.
valgrind -q --tool=callgrind --collect-atstart=no --compress-strings=no --compress-pos=no \
	--callgrind-out-file="$build/out" "$build/counted_calls"

# What a function executed itself is on lines of a position and a count. The line after a "calls=" has what its callee
# executed, which is on the callee's own lines.
mapfile -t dumps < <(find "$build" -name 'out.*' | sort -V)
{
	printf 'compiler %s\n' "$(g++ -dumpfullversion)"
	awk -v program="ob=$PWD/$build/counted_calls" '
		/^desc: Trigger: Client Request: / { names[++cases] = $NF }
		/^ob=/ { own = $0 == program }
		/^calls=/ { getline; next }
		/^[0-9]/ && own { counts[cases] += $2 }
		END { for (i = 1; i <= cases; ++i) print names[i], counts[i] + 0 }
	' "${dumps[@]}"
} >"$build/counts"

recorded=$tests/recorded_counts.txt
if [ "$mode" != --record ]; then
	exec python3 $tests/compare.py $recorded "$build/counts"
fi
python3 $tests/compare.py "$build/counts" "$build/counts" >"$build/log" # every line is a count
if ! grep -q _avx2 "$build/counts"; then
	printf 'instruction_counts.sh: not recorded: this processor has no AVX2, and the cases with 256-bit lanes would go\n' >&2
	exit 1
fi
cp "$build/counts" $recorded
cat $recorded
