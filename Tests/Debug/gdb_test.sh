#!/usr/bin/env bash
# Stops a program in gdb and compares what the printers print with Tests/Debug/printers.txt, in which addresses read
# ADDRESS.
#
#   gdb_test.sh GDB PRINTERS PROGRAM
set -euo pipefail
gdb=$1 printers=$2 program=$3
here=$(cd "$(dirname "$0")" && pwd)
log=$(mktemp)
trap 'rm -f "$log"' EXIT

# In a debugger, a sanitizer cannot check for leaks when the process ends.
ASAN_OPTIONS=detect_leaks=0 "$gdb" -nx -batch -x "$printers" -x "$here/printers.gdb" "$program" >"$log" 2>&1 ||
	{ cat "$log"; exit 1; }
if grep -Eq 'ptrace: Operation not permitted|Cannot PTRACE' "$log"; then
	printf 'gdb_test.sh: this system does not let a debugger run a program\n' >&2
	exit 77
fi
if ! diff -u "$here/printers.txt" <(grep '^\$' "$log" | sed -E 's/0x[0-9a-f]{9,}/ADDRESS/g'); then
	cat "$log" >&2
	exit 1
fi
