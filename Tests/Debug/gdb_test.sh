#!/usr/bin/env bash
# Stops a program in gdb and compares what the printers say with Tests/Debug/printers.txt; addresses read ADDRESS there.
#
#   gdb_test.sh GDB PRINTERS PROGRAM
set -euo pipefail
gdb=$1 printers=$2 program=$3
here=$(cd "$(dirname "$0")" && pwd)
log=$(mktemp)
trap 'rm -f "$log"' EXIT

# What a sanitizer does at the end of a process, it does not do in a debugger.
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
